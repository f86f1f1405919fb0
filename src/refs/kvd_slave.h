// kvd_slave.h - Slave unit's measurements on the inter-unit links.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6TuSlave_handleIdlInt();
/// KVD_TUIIF_IDL2_SYNC_DATA_IND: 1 when the port's link machine is to see an interrupt.
int  KvdLoz6TuSlave_idl2SyncData(const Signal* sig);
/// Sync data stopped (1) or flows (0).
void KvdLoz6TuSlave_idl2SyncDataStopped(u32 stopped);
