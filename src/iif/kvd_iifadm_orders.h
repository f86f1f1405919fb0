// kvd_iifadm_orders.h - The main processor's side of the unit: connection, its orders, what its selection
// means.
// Owner   the manager process.
// Errors  an order in the wrong state is answered with its rejection where it has one, else traced.
#pragma once
#include "sig/tuiif_sig.h"

struct Signal;

bool KvdLoz6TuIifAdm_dispatch(Signal* sig);
/// Start of the hunt for the name server.
void KvdLoz6TuIifAdm_initiate();
/// Persistent memory has answered, whatever it said: the request may go.
void KvdLoz6TuIifAdm_msiMemInitiated();
/// Client view of the selection, and what it makes of the clock state.
void KvdLoz6TuIifAdm_updateSelection(u8 refType, u32 froId, u32 froClassNo);
void KvdLoz6TuIifAdm_printInfo();

// ---- between its sources ----

namespace tuiif {

void onChangeMasterTu(const KvdTuiifChangeMasterTuInd* ind);
void onSelectIdlType(const KvdTuiifIdl2SelectIdlTypeReq* req);
void onTogglePersistentFreqLock(const KvdTuiifIdl2TogglePersistentFreqLockReq* req);
void onSetMasterServer(const KvdTuiifIdl2SetMasterServerCfm* cfm);
void onSocpriScanLink(const KvdTuiifSocpriScanLinkReq* req);
void onSocpriSelectSyncLink(const KvdTuiifSocpriSelectSyncLinkReq* req);
void onSocpriBfnAlignToGroup(const KvdTuiifSocpriBfnAlignToGroupReq* req);
void onBfnJumpInfo(const KvdTuiifInrsiBfnJumpInfoReqFwd* fwd);
void onSduFollowOcxoAdj(const KvdTuiifSocpriSduFollowOcxoAdjInd* ind);
void onSduFollowSfcAdj(const KvdTuiifSocpriSduFollowSfcAdjInd* ind);
void onHoldoverTimeout(u32 holdoverClass);
void onForcedLockedTimeout();

}  // namespace tuiif
