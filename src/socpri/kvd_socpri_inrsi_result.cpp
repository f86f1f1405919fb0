// Holdover of a link's time, what the regulator makes of its phase, and what the links are told.
#include "socpri/kvd_socpri_inrsi_master_int.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_ref_table.h"

namespace inrsi::master {

namespace {

constexpr OSTIME HOLDOVER_ms = 300000;
constexpr OSTIME JUMP_WARNING_LONG_ms = 1000, JUMP_WARNING_SHORT_ms = 50;

/// The loop goes on without the link, for a time.
void leaveLink()
{
    startTimer(HOLDOVER, HOLDOVER_ms);
    cancelTimer(PHASE_DATA, focus());
    cancelTimer(MEAS_RETRIEVE, focus());
    record().measOngoing = false;
    resumeSupervision(client(), focus());
    client().portNo = NO_PORT;
}

/// From a lock: true when the loop holds the frequency now, false when it couldn't.
bool enterHoldover()
{
    KvdLoz6TuReg_pll_toHoldover();
    const bool isHeld = KvdLoz6TuReg_pllIsHoldover();
    log(isHeld ? INRSI_CL_EV_ENTERED_HO : INRSI_CL_EV_HO_ENTRY_DECLINED, KEEP);
    if (isHeld) leaveLink();
    return isHeld;
}

}  // namespace

void onGoToTimeHoldover()
{
    log(INRSI_CL_EV_HO_ENTRY_ORDERED);
    u32 entered = 0;
    if (KvdLoz6TuReg_pllIsLocked()) {
        entered = enterHoldover();
        KvdLoz6TuIifAdm_sendSocpriGoToTimeHoldoverRsp(entered);
        if (entered == 0) inrsiClientReset();
    } else if (KvdLoz6TuReg_pllIsHoldover()) {
        KvdLoz6TuIifAdm_sendSocpriGoToTimeHoldoverRsp(0);
    } else {
        inrsiClientReset();
        KvdLoz6TuIifAdm_sendSocpriGoToTimeHoldoverRsp(0);
    }
}

void onHoldoverTimeout()
{
    if (!KvdLoz6TuReg_pllIsHoldover()) return;     // it was ended from outside
    log(INRSI_CL_EV_HO_TMO_EXPIRED, KEEP);
    KvdLoz6TuReg_pll_setState(PLL_Unlocked);
    if (focus() == NO_PORT) setToIdle();
    KvdLoz6TuIifAdm_reportClockState(KVD_TUIIF_FREQUENCY_HOLDOVER);
    // Without the link no phase will come, and the Kalman path would go on from before the link.
    if (KvdLoz6TuReg_selectedRef() != TU_SR_SOCPRI_REF) KvdLoz6TuReg_endPll();
}

}  // namespace inrsi::master

using namespace inrsi;
using namespace inrsi::master;

void inrsiImplicitHoldover()
{
    log(KvdLoz6TuRef_isFirstStart() != 0 ? INRSI_CL_EV_IMPLICIT_HO : INRSI_CL_EV_HO_ENTRY_MP_RESTART);
    superviseFocus();
    if (record().currAction != INRSI_CLIENT_ACTION_TIME_SYNC) {
        if (!KvdLoz6TuReg_pllIsLocked()) return;
        // the link was lost before, or a scan is open: the loop holds time all the same
        inrsiClientReset();
    }
    if (!enterHoldover()) inrsiClientReset();
}

// ---- results of the regulator --------------------------------------------------------------------

namespace {

/// True when it was an alignment, which is over.
bool failAlignment()
{
    superviseFocus();
    cancelTimer(PHASE_DATA, focus());
    if (record().currAction != INRSI_CLIENT_ACTION_BFN_ALIGN) return false;
    KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(0);
    setToIdle();
    return true;
}

}  // namespace

void KvdLoz6TuSoCpri_inrsi_phaseMeasAnalysisFailed()
{
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): Measurements on CPRI Link (%u) are invalid", __func__, focus());
    log(INRSI_CL_EV_PHASE_MEAS_ANALYSIS_FAILED, KEEP);
    if (failAlignment() || abortJump(PHASE_MEAS_PROBLEM)) return;
    inrsiLinkSyncAborted(PHASE_MEAS_PROBLEM);
}

void KvdLoz6TuSoCpri_inrsi_timeSyncFailed()
{
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): Time synchronization on CPRI Link (%u) has failed", __func__,
              focus());
    log(INRSI_CL_EV_TIME_SYNC_FAILED, KEEP);
    if (failAlignment()) return;
    inrsiLinkSyncAborted(PHASE_MEAS_PROBLEM);
    inrsiAnswerContinuation(PHASE_MEAS_PROBLEM);
}

void inrsiTimeSyncSucceeded()
{
    log(INRSI_CL_EV_TIME_SYNC_SUCCEEDED);
    if (record().currAction != INRSI_CLIENT_ACTION_BFN_ALIGN) {
        KvdLoz6TuIifAdm_sendSocpriLinkSyncStatusInd(wirePort(focus()), OK_TIME_LOCKED);
        return;
    }
    cancelTimer(MEAS_RETRIEVE, focus());
    inrsiSendBfnJumpInfo(1);
    KvdLoz6TuReg_SoCpriJumpBfnAlignmentAction();
}

void inrsiBfnAlignCompleted(u32 status)
{
    if (record().currAction != INRSI_CLIENT_ACTION_BFN_ALIGN)
        return log(INRSI_CL_EV_BFN_ALIGN_COMPLETED_UNEXP_STATE);
    const u8 port = focus();
    KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(status);
    cancelTimer(PHASE_DATA, port);
    record().measOngoing = false;
    startSupervision(client(), port);
    log(INRSI_CL_EV_BFN_ALIGN_COMPLETED, KEEP);
    setToIdle();
}

void inrsiSetContinuationOfSync(u32 flag)
{
    record().continuationOfSync = flag != 0;
    record().continuationPort = focus();
    if (flag != 0) log(INRSI_CL_EV_CONTINUE_SYNC_FLAG_SET);
}

void inrsiAnswerContinuation(u32 status)
{
    Record& r = record();
    if (!r.continuationOfSync) return;
    if (status == OK_TIME_LOCKED && !KvdLoz6TuReg_pllIsLocked()) return;
    r.continuationOfSync = false;
    KvdLoz6TuIifAdm_sendSocpriSelectSyncLinkRsp(wirePort(r.continuationPort), status);
}

// ---- jumps, temperature --------------------------------------------------------------------------

void KvdLoz6TuSoCpri_inrsi_noMoreBfnJumpsExpected(u32 isLong)
{
    if (runs(BFN_JUMP_WARNING)) return;
    startTimer(BFN_JUMP_WARNING, isLong != 0 ? JUMP_WARNING_LONG_ms : JUMP_WARNING_SHORT_ms);
}

void inrsiRestartPhaseTimer() { startTimer(PHASE_DATA, focus(), REQUEST_ms); }

void inrsiSendBfnJumpInfo(u32 enabled)
{
    if (!requestBfnJumpInfo(client(), enabled)) return log(INRSI_CL_EV_SFC_ADJ_NOTIF_NOK, KEEP);
    inrsiRestartPhaseTimer();
    KvdLoz6TuIifAdm_sendInrsiBfnJumpInfoReqFwd(enabled);
    log(enabled == 1 ? INRSI_CL_EV_SFC_ADJ_NOTIF_OK_ENABLED : INRSI_CL_EV_SFC_ADJ_NOTIF_OK_DISABLED);
}

void inrsiReportOcxoTemp(u32 bad)
{
    const u32 syncStatus = bad != 0 ? FREQ_MEAS_PROBLEM : OK_FREQ_LOCKED;
    for (const u8 port : PORTS_A_TO_F) {
        if (!client().subscribed[port]) continue;
        if (firstUnit(client(), port, LINK_PRESENT) != nullptr)
            KvdLoz6TuIifAdm_sendSocpriLinkSyncStatusInd(wirePort(port), syncStatus);
    }
}
