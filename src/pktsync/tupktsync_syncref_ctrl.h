// tupktsync_syncref_ctrl.h - The table of packet synchronisation references ("syncrefs"), eight at most:
// brings up what each one needs as the main processor asks for it, audits the table with it, keeps which
// one is selected.
// Owner   Kvd_loz6_tupktsync_proc.
// Errors  a request in the wrong state, or for a reference that isn't there, is traced and not answered;
//         one that fails is answered with its result.
#pragma once
#include "sig/tupktsync_sig.h"

#include <array>

struct Signal;

enum SyncRefCtrlState : u32 {
    UNINITIALIZED = 0, AUDIT_PENDING, AUDIT_DELETE_PENDING, AUDIT_CREATE_PENDING, READY, REINIT,
};

/// The process begins: board type 2 or another, the main processor is there.
void TuPktsync_SyncrefCtrl_started(u32 board);
void TuPktsync_SyncrefCtrl_init();
bool TuPktsync_SyncrefCtrl_dispatch(Signal* sig);

// ---- from the clients ---------------------------------------------------------------------------
void TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(u32 syncrefId);
void TuPktsync_SyncrefCtrl_PktSyncDrvChangeCfm(u32 syncrefId);
/// The driver won't answer the set request.
void TuPktsync_SyncrefCtrl_PktSyncDrvRefused(u32 syncrefId);
void TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(u32 syncrefId);
void TuPktsync_SyncrefCtrl_CfiSetupReady(u32 group);
/// Who is created with that group won't stand.
void TuPktsync_SyncrefCtrl_CfiSetupRefused(u32 group);
void TuPktsync_SyncrefCtrl_CfiRemoveReady(u32 group);
/// A service has died: everything begins anew.
void TuPktsync_SyncrefCtrl_handleServerDownInd();
/// Tells the main processor that no packet reference stands.
void TuPktsync_SyncrefCtrl_sendUnavailableInd();

// ---- from the time stamp server -----------------------------------------------------------------
void TuPktsync_SyncrefCtrl_selectionInd(u32 froId, u32 froClassNo, u32 operation);
void TuPktsync_SyncrefCtrl_clockRqmtInd(const TuPktsyncClockRqmt& rqmt);

/// -1 while none is selected.
i32  TuPktsync_SyncrefCtrl_selectedSyncrefId();
/// 0 to 7, -1 when there is none of that identity.
i32  TuPktsync_SyncrefCtrl_syncrefIdOf(u32 froId, u32 froClassNo);
/// ns, egress less ingress, of the port in use.
i32  TuPktsync_SyncrefCtrl_latencyAsymmetry();
u32  TuPktsync_SyncrefCtrl_state();
const char* TuPktsync_syncrefCtrlStateText(u32 state);
/// The table to the operator.
void TuPktsync_SyncrefCtrl_print();
