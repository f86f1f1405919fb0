// The master's client: its record, the main processor's orders, and how they end.
#include "socpri/kvd_socpri_inrsi.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "sig/ref_types.h"
#include "socpri/kvd_socpri_inrsi_master_int.h"

namespace inrsi::master {

namespace {

struct State {
    Record now;
    Record snapshot;                           // as it was at the last event that ended something
};
ose::ModuleData<State> s;

}  // namespace

Record& record() { return s->now; }
const Record& snapshot() { return s->snapshot; }

void keepSnapshot() { s->snapshot = s->now; }

// ---- the client's states -------------------------------------------------------------------------

void setToIdle()
{
    Record& r = record();
    resumeSupervision(client(), focus());
    const bool isAwaited = runs(MEAS_RETRIEVE, focus());
    r.currAction = INRSI_CLIENT_IDLE;
    if (!isAwaited) client().sharedUnitId = NO_UNIT;
    client().portNo = NO_PORT;
    r.freqScanCnt = 0;
    r.freqDiff = 0;
    r.freqDiffValid = 0;
    r.trpDiffHigh = r.trpDiffLow = r.trpDiffValid = 0;
    log(INRSI_CL_EV_SET_TO_IDLE);
}

void dropWork()
{
    cancelTimer(PHASE_DATA, focus());
    cancelTimer(MEAS_RETRIEVE, focus());
    cancelTimer(FREQ_DATA);
    record().linkGone = false;
    setToIdle();
}

void giveUpWork()
{
    record().continuationOfSync = false;
    dropWork();
}

void answerOrder(u32 syncStatus)
{
    const u8 port = wirePort(focus());
    KVD_TRACE(TRACE_INRSI, TRACE_3, "%s on port %u: %s", inrsi::actionText(record().currAction), u32{port},
              inrsi::syncStatusText(syncStatus));
    switch (record().currAction) {
    case INRSI_CLIENT_ACTION_FREQ_SCANNING:
        KvdLoz6TuIifAdm_sendSocpriScanLinkRsp(port, syncStatus);
        if (syncStatus == OK_FREQ_LOCKED) dropSynthesiserCopy();
        else                              revertSynthesiser();
        break;
    case INRSI_CLIENT_ACTION_FREQ_SYNC: KvdLoz6TuIifAdm_sendSocpriSelectSyncLinkRsp(port, syncStatus); break;
    case INRSI_CLIENT_ACTION_BFN_ALIGN:
        if (syncStatus == OK_FREQ_LOCKED) break;
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Frequency synchronization failed", __func__);
        KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(0);
        break;
    default: break;
    }
}

void inrsiLinkSyncAborted(u32 syncStatus)
{
    KvdLoz6TuIifAdm_sendSocpriLinkSyncStatusInd(wirePort(focus()), syncStatus);
    setToIdle();
}

bool abortJump(u32 syncStatus)
{
    if (KvdLoz6TuReg_SoCpriJumpRunning() == 0) return false;
    KvdLoz6TuIifAdm_sendSocpriLinkSyncStatusInd(wirePort(focus()), syncStatus);
    dropWork();
    KvdLoz6TuReg_SoCpriJumpAborted();
    return true;
}

void superviseFocus() { superviseIfLinked(client(), focus()); }

void endHoldoverLimit()
{
    if (!KvdLoz6TuReg_pllIsHoldover()) cancelTimer(HOLDOVER);
}

// ---- orders --------------------------------------------------------------------------------------

namespace {

/// A selection that waits for the end of the pause is given up for a later order.
void forgetRememberedPort()
{
    if (KvdLoz6TuReg_forgetSoCpriPort() == 0) return;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "selection that waited for the end of the pause is given up");
}

/// A port that there is; else the order is answered as for a link that isn't there.
bool isPortOfOrder(u8 port)
{
    if (isPortOrX(port)) return true;
    KVD_TRACE(TRACE_INRSI, TRACE_ERROR, "%s(): Port number out of range (%u)", __func__, port);
    return false;
}

bool isSelected()
{
    const u32 action = record().currAction;
    return focus() != NO_PORT
           && (action == INRSI_CLIENT_ACTION_FREQ_SYNC || action == INRSI_CLIENT_ACTION_TIME_SYNC);
}

/// True, and answered, without such a port, and beside a selected link, which isn't given up for another.
bool refusesSelection(u8 port)
{
    if (!isPortOfOrder(port)) {
        KvdLoz6TuIifAdm_sendSocpriSelectSyncLinkRsp(wirePort(port), CPRI_LINK_NOT_AVAILABLE);
        return true;
    }
    if (!isSelected()) return false;
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "Port already selected, abort new selection request. Selected port: %u, Requested port: %u",
              focus(), port);
    KvdLoz6TuIifAdm_sendSocpriAlreadySelectedInd(wirePort(focus()), wirePort(port));
    return true;
}

void beginAction(u32 action, u8 port)
{
    record().currAction = action;
    client().portNo = port;
    record().freqScanCnt = FREQ_ATTEMPTS;
    record().measUnavailableCounter = 0;
    KvdLoz6TuReg_resetSoCpriFreq();
}

void beginNewSync(u8 port)
{
    giveUpWork();
    stopSupervision(client(), port);
    beginAction(INRSI_CLIENT_ACTION_FREQ_SYNC, port);
    log(INRSI_CL_EV_INIT_SYNC_ON_LINK);
    sendInrsiGetFreqDiffReq();
}

void onSpJump(const KvdTuiifSocpriSpJumpInd* ind)
{
    if (ind != nullptr)
        record().measRetrieveTimeMs = ind->jumpIndication != 0 ? RETRIEVE_SLOW_ms : RETRIEVE_ms;
}

void onDeselect(const KvdTuiifSocpriDeselectSyncLinkInd* ind)
{
    if (ind == nullptr) return;
    record().measOngoing = false;
    forgetRememberedPort();
    superviseFocus();
    giveUpWork();
    if (KvdLoz6TuReg_SoCpriJumpRunning() != 0) KvdLoz6TuReg_SoCpriJumpAborted();
    log(INRSI_CL_EV_LINK_DESELECTED);
}

/// A link of the slave's, through the main processor.
void onLinkXStatus(const KvdTuiifInrsiLinkStatus2IndFwd* fwd)
{
    if (fwd == nullptr) return;
    setPortInCpriPortStatus(client(), PORT_X,
                            {fwd->linkStatus, fwd->sharedUnitId, fwd->subsumedUnitId, fwd->valid, ""});
    if (fwd->linkStatus != LINK_AVAILABLE) {
        if (fwd->linkStatus != LINK_PRESENT) cancelTimer(MEAS_RETRIEVE, PORT_X);
        handleLinkDownIndication(PORT_X);
    }
    log(INRSI_CL_EV_LINK_X_STATUS_CHANGE);
}

// ---- what the shared code leaves to this client ---------------------------------------------------

void serverLost()
{
    record().measOngoing = false;
    switch (record().currAction) {
    case INRSI_CLIENT_IDLE: break;
    case INRSI_CLIENT_ACTION_TIME_SYNC:
        inrsiAnswerContinuation(PHASE_MEAS_MISSING);
        inrsiLinkSyncAborted(PHASE_MEAS_MISSING);
        break;
    default: answerOrder(FREQ_MEAS_MISSING); break;
    }
    giveUpWork();
    endHoldoverLimit();
}

void linkLost(u8 port, u8 linkStatus)
{
    if (linkStatus != LINK_PRESENT) cancelTimer(MEAS_RETRIEVE, port);
    handleLinkDownIndication(port);
}

}  // namespace

const Role ROLE = {
    .isMaster = true,
    .log = writeLog,
    .serverLost = serverLost,
    .linkLost = linkLost,
    .retrieveTime = retrieveTime,
    .supervised = logSupervision,
    .resendLinkStatus = KvdLoz6TuSoCpri_inrsi_resendSoCpriLinkStatusData,
};

}  // namespace inrsi::master

using namespace inrsi;
using namespace inrsi::master;

void KvdLoz6Inrsi_initiate() { inrsi::initiate(client(), ROLE); }

void KvdLoz6Inrsi_leave()
{
    inrsiClientReset();
    record().measOngoing = false;
    record().measRetrieveTimeMs = RETRIEVE_ms;
    inrsi::leave(client());
}

void KvdLoz6Inrsi_mainProcessorRestarted() { inrsi::mainProcessorRestarted(client()); }

void KvdLoz6TuSoCpri_inrsi_resendSoCpriLinkStatusData()
{
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Resend SoCPRI link status indications to MP", __func__);
    resendLinkStatusData(client());
}

bool KvdLoz6Inrsi_dispatch(Signal* sig)
{
    if (dispatchLink(client(), sig) || dispatchMeasurement(sig)) return true;
    switch (sig->sigNo) {
    case KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ: onGoToTimeHoldover();                          break;
    case KVD_TUIIF_SOCPRI_DESELECT_SYNC_LINK_IND:
        onDeselect(as<KvdTuiifSocpriDeselectSyncLinkInd>(sig));                                   break;
    case KVD_TUIIF_SOCPRI_SP_JUMP_IND: onSpJump(as<KvdTuiifSocpriSpJumpInd>(sig));                break;
    case KVD_TUIIF_INRSI_LINK_STATUS2_IND_FWD:
        onLinkXStatus(as<KvdTuiifInrsiLinkStatus2IndFwd>(sig));                                   break;
    case KVD_TUSOCPRI_HOLDOVER_TMO:         onHoldoverTimeout();                                  break;
    case KVD_TUSOCPRI_BFN_JUMP_WARNING_TMO: inrsiSendBfnJumpInfo(0);                              break;
    default:                                                                                     return false;
    }
    return true;
}

void inrsiStartScan(u8 port)
{
    if (!isPortOfOrder(port)) {
        KvdLoz6TuIifAdm_sendSocpriScanLinkRsp(wirePort(port), CPRI_LINK_NOT_AVAILABLE);
        return;
    }
    if (record().currAction != INRSI_CLIENT_IDLE) log(INRSI_CL_EV_ACTIVITY_DISRUPTED, KEEP);
    forgetRememberedPort();
    giveUpWork();
    endHoldoverLimit();
    suspendSupervision(port);
    beginAction(INRSI_CLIENT_ACTION_FREQ_SCANNING, port);
    saveSynthesiser();
    log(INRSI_CL_EV_INIT_FREQ_SCAN);
    sendInrsiGetFreqDiffReq();
}

void inrsiSelectSyncLink(u8 port)
{
    if (refusesSelection(port)) return;
    if (KvdLoz6TuReg_postponeReg() == 0) return beginNewSync(port);
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "Link has been (re)selected while regulation is being postponed. This procedure will be "
              "restarted when regulation postpone timer has expired (Selected port: %u, Requested port: %u).",
              focus(), port);
    KvdLoz6TuReg_rememberSoCpriPort(port);
    log(INRSI_CL_EV_INIT_SYNC_POSTPONED);
}

void inrsiSelectRememberedPort(u8 port)
{
    if (KvdLoz6TuIifAdm_selectedRef() != SOCPRI_REF) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "SoCPRI is no longer selected reference, abort new selection request. Selected port: %u, "
                  "Requested port: %u",
                  focus(), port);
        return log(INRSI_CL_EV_INIT_SYNC_CONTINUED_FAILURE, KEEP);
    }
    if (refusesSelection(port)) return;
    log(INRSI_CL_EV_INIT_SYNC_CONTINUED);
    beginNewSync(port);
}

void inrsiContinueOnLink(u8 port)
{
    if (refusesSelection(port)) return;
    forgetRememberedPort();
    if (record().currAction != INRSI_CLIENT_IDLE) giveUpWork();
    stopSupervision(client(), port);
    KvdLoz6TuReg_resetSoCpriPhase();
    record().currAction = INRSI_CLIENT_ACTION_TIME_SYNC;
    client().portNo = port;
    record().measUnavailableCounter = 0;
    inrsiSetContinuationOfSync(1);
    log(INRSI_CL_EV_CONTINUE_SYNC_ON_LINK);
    sendInrsiGetPhaseDiffReq();
}

void inrsiAlignBfnToGroup(u8 port, u32 esfc, u16 mfn)
{
    if (!isPortOfOrder(port)) return KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(0);
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():BFN alignment request will be processed.", __func__);
    forgetRememberedPort();
    giveUpWork();
    stopSupervision(client(), port);
    if (KvdLoz6TuReg_pllState() != PLL_Uninitialized) KvdLoz6TuReg_endPll();
    endHoldoverLimit();
    KvdLoz6TuReg_SoCpriSetRef(esfc, mfn);
    beginAction(INRSI_CLIENT_ACTION_BFN_ALIGN, port);
    startTimer(FREQ_DATA, REQUEST_ms);
    log(INRSI_CL_EV_INIT_BFN_ALIGN);
}

void inrsiClientReset()
{
    if (record().currAction == INRSI_CLIENT_ACTION_FREQ_SCANNING) answerOrder(FREQ_MEAS_MISSING);
    giveUpWork();
    cancelTimer(HOLDOVER);
    log(INRSI_CL_EV_RESET);
}

void inrsiReferenceDeselected()
{
    if (focus() == NO_PORT) return;
    inrsiAnswerOpenScan(FREQ_MEAS_MISSING);
    giveUpWork();
    endHoldoverLimit();
}

void inrsiAnswerOpenScan(u32 syncStatus)
{
    if (record().currAction != INRSI_CLIENT_ACTION_FREQ_SCANNING) return;
    answerOrder(syncStatus);
    dropWork();
    log(INRSI_CL_EV_ACTION_ABORTED);
}

u8  inrsiGetPortNo() { return focus(); }
u32 inrsiGetAction() { return record().currAction; }
