#include "iif/kvd_iifadm_orders.h"
#include "base/trace_groups.h"
#include "iif/kvd_biraiifadm.h"
#include "iif/kvd_iif_upcalls.h"
#include "mp/kvd_iifadm_state.h"
#include "node/platform.h"
#include "ref/kvd_ref.h"
#include "ref/kvd_ref_select.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "sig/ref_types.h"
#include "socpri/kvd_socpri_inrsi.h"
#include "socpri/kvd_socpri_inrsi_sdu.h"
#include "unit/kvd_unit_process.h"

namespace {

using tuiif::isMaster;
using tuiif::isReady;
using tuiif::state;

const tuiif::SavedBvqStatusData& saved() { return state().savedBvqStatusData; }

constexpr u32 SLAVE_DU = 2;   // apn of the unit that follows on an inter-unit link

// ---- SoCPRI ----

constexpr u32 SOCPRI_FRO_ID = 0;
constexpr u32 ALIGN_REFUSED = 1, ALIGN_FAILED = 0;

/// Ports travel counted from 1; none becomes 255.
u8 portOf(u8 portNo) { return static_cast<u8>(portNo - 1); }

bool isFirstStart() { return KvdLoz6TuRef_isFirstStart() != 0; }

bool isInTimeHoldover()
{
    const u32 pllState = KvdLoz6TuReg_pllState();
    return pllState == PLL_Offset_Holdover || pllState == PLL_Locked_Holdover;
}

/// Selects SoCPRI; `isScan` when it is only to be looked at first.
void selectSocpri(bool isScan)
{
    KvdLoz6TuRef_selectSynchRef(SOCPRI_REF, SOCPRI_FRO_ID, SOCPRI_FRO_CLASS);
    if (isScan && isFirstStart()) KvdLoz6TuIifAdm_reportClockState(TUIIF_SOCPRI_STARTING);
    KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(0);
}

// ---- inter-unit links ----

void confirm(SIGSELECT sigNo)
{
    Signal* cfm = ose::alloc(sizeof(SIGSELECT), sigNo);
    KvdLoz6TuIifAdm_send(&cfm);
}

}  // namespace

namespace tuiif {

void onChangeMasterTu(const KvdTuiifChangeMasterTuInd* ind)
{
    if (ind == nullptr) return;
    const u8 timeMode = ind->timeMode;
    const u8 mode = ind->masterSlaveMode;
    state().savedBvqStatusData.masterSlaveMode = mode;
    switch (mode) {
    case KVD_TUIIF_SLAVE_TU: {
        const bool isIdl2 = KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2;
        IIF_UPCALLS.takeRole(timeMode, mode);
        KvdLoz6TuRef_selectSynchRef(isIdl2 ? IDL2_REF : IDL1_REF, FRO_NONE, FRO_NONE);
        break;
    }
    case KVD_TUIIF_MASTER_TU:
        IIF_UPCALLS.takeRole(timeMode, mode);
        KvdLoz6TuRef_selectSynchRef(NO_REF, FRO_NONE, FRO_NONE);
        break;
    default: KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "Unavailable master/slave mode received %d ", mode); break;
    }
}

void onSelectIdlType(const KvdTuiifIdl2SelectIdlTypeReq* req)
{
    if (req == nullptr) return;
    confirm(KVD_TUIIF_IDL2_SELECT_IDL_TYPE_CFM);
    if (apn() != SLAVE_DU) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ Signal received by wrong slave DU!");
        return;
    }
    const u32 present = KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2 ? 1 : 0;
    if (state().isMasterServer == 0) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "Master should not be server. Don't handle signal. idlType = %d, idl2Type = %d",
                  static_cast<int>(present), static_cast<int>(req->idl2Type));
        return;
    }
    if (req->idl2Type != present) KvdLoz6BiraIifAdm_selectIdlType(req->idl2Type, req->synchPortNo);
}

void onTogglePersistentFreqLock(const KvdTuiifIdl2TogglePersistentFreqLockReq* req)
{
    if (req == nullptr) return;
    confirm(KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_CFM);
    if (apn() == SLAVE_DU) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "Signal received by wrong slave DU!");
        return;
    }
    // The value stands until the server confirms it: an end may follow a lock that was confirmed long ago.
    if (req->persistentFreqLock != 0 && req->persistentFreqLock == KvdLoz6BiraIifAdm_persistentFreqLock())
        return;
    KvdLoz6BiraIifAdm_togglePersistentFreqLock(req->persistentFreqLock, req->synchPortNo);
}

void onSetMasterServer(const KvdTuiifIdl2SetMasterServerCfm* cfm)
{
    if (cfm != nullptr) state().isMasterServer = cfm->isMasterServer;
}

void onSocpriScanLink(const KvdTuiifSocpriScanLinkReq* req)
{
    if (req == nullptr) return;
    if (!isMaster()) {
        KvdLoz6TuIifAdm_sendSocpriScanLinkRsp(req->portNo, FREQ_MEAS_MISSING);
        return;
    }
    if (saved().selectedRef != SOCPRI_REF) selectSocpri(true);
    if (saved().prevSelectedRef == NO_REF && !isFirstStart() && isInTimeHoldover())
        KvdLoz6TuIifAdm_sendSocpriScanLinkRsp(req->portNo, OK_FREQ_LOCKED);
    else
        inrsiStartScan(portOf(req->portNo));
}

void onSocpriSelectSyncLink(const KvdTuiifSocpriSelectSyncLinkReq* req)
{
    if (req == nullptr) return;
    if (!isMaster()) {
        KvdLoz6TuIifAdm_sendSocpriSelectSyncLinkRsp(req->portNo, FREQ_MEAS_MISSING);
        return;
    }
    if (KvdLoz6TuReg_badTempReported() != 0) {
        KvdLoz6TuIifAdm_sendSocpriSelectSyncLinkRsp(req->portNo, FREQ_MEAS_PROBLEM);
        return;
    }
    if (saved().selectedRef != SOCPRI_REF) selectSocpri(false);
    const bool hasTime = KvdLoz6TuReg_pllIsLocked() || isInTimeHoldover();
    if (hasTime) inrsiContinueOnLink(portOf(req->portNo));
    else         inrsiSelectSyncLink(portOf(req->portNo));
}

void onSocpriBfnAlignToGroup(const KvdTuiifSocpriBfnAlignToGroupReq* req)
{
    if (req == nullptr) return;
    if (!isMaster()) return KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(ALIGN_FAILED);
    const bool isRunning = KvdLoz6TuReg_pllState() != PLL_Uninitialized;
    const bool cameBack = saved().selectedRef == SOCPRI_REF && saved().prevSelectedRef == NO_REF;
    if (cameBack && !isFirstStart() && isRunning)
        KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(ALIGN_REFUSED);
    else
        inrsiAlignBfnToGroup(portOf(req->portNo), req->esfc, req->mfn);
}

void onBfnJumpInfo(const KvdTuiifInrsiBfnJumpInfoReqFwd* fwd)
{
    if (fwd != nullptr && !isMaster()) inrsiSduSendBfnJumpInfo(fwd->bfnJumpsEnabled);
}

void onSduFollowOcxoAdj(const KvdTuiifSocpriSduFollowOcxoAdjInd* ind)
{
    if (ind != nullptr) KvdLoz6TuReg_handleSoCpriSDuFollowOCXOAdjInd(ind->freqDiff);
}

void onSduFollowSfcAdj(const KvdTuiifSocpriSduFollowSfcAdjInd* ind)
{
    if (ind != nullptr) KvdLoz6TuReg_handleSoCpriSDuFollowSFCAdjInd(ind->delta0_c, ind->delta0_f);
}

}  // namespace tuiif
