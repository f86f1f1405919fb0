// kvd_idpi.h - Inter-unit link port data.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6Idpi_initiate();
int  KvdLoz6Idpi_dispatch(Signal* sig);
/// Subscribes at the port server; 0 done.
int  KvdLoz6Idpi_start();
/// Sends the state of each of the six ports to the main processor.
void KvdLoz6Idpi_resendLinkStatus();
void KvdLoz6Idpi_printInfo();
