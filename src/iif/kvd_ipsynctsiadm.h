// kvd_ipsynctsiadm.h - NTP packets of the node's IP sync service.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6TuIpSyncTsiAdm_initiate();
int  KvdLoz6TuIpSyncTsiAdm_dispatch(Signal* sig);
void KvdLoz6TuIpSyncTsiAdm_printInfo();
