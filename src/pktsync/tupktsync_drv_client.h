// tupktsync_drv_client.h - The packet driver of the packet process: syncrefs whose messages it stamps,
// and the stamps of those that left.
// Owner   Kvd_loz6_tupktsync_proc.
// Errors  as in tupktsync_cfi_client.h.
#pragma once
#include "node/pktsyncdrv.h"

struct Signal;

enum TuPktsyncDrvState : u32 {
    DRV_NOT_AVAILABLE = 0, DRV_WAIT_FOR_SERVER_UP, DRV_WAIT_FOR_INIT_RESPONS, DRV_AVAILABLE,
};

void TuPktsync_PktsyncDriverClient_init();
/// The proxy's memory goes, the client is without service.
void TuPktsync_PktSyncDrvClient_reset();
bool TuPktsync_PktSyncDrvClient_dispatch(Signal* sig);
/// To the driver a reference is its froId. Each is confirmed by
/// TuPktsync_SyncrefCtrl_PktSyncDrv...Cfm; 0 when it couldn't be asked.
u32  TuPktsync_PktSyncDrvClient_setSyncRefReq(u32 froId, const PktsyncDrvRef& ref);
u32  TuPktsync_PktSyncDrvClient_changeSyncRefReq(u32 froId, const PktsyncDrvRef& ref);
u32  TuPktsync_PktSyncDrvClient_deleteSyncRefReq(u32 froId, u32 syncrefId);

u32  TuPktsync_PktSyncDrvClient_state();
const char* TuPktsync_drvStateText(u32 state);
