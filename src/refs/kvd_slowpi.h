// kvd_slowpi.h - Slow protocol frames (ESMC) on the Ethernet ports.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr SIGSELECT KVD_SLOWPI_HEART_BEAT_IND  = 0x9C6C0;   // own timer; its buffer is armed again and again
constexpr SIGSELECT KVD_SLOWPI_PDU_MISSING_IND = 0x9C6C1;   // own timer; its buffer is armed again and again

void KvdLoz6TuSlowpi_initiate();
int  KvdLoz6TuSlowpi_dispatch(Signal* sig);
void KvdLoz6TuSlowpi_unsubscribe();
void KvdLoz6TuSlowpi_selectionMode(u8 selectionProcessMode);
void KvdLoz6TuSlowpi_printInfo();
