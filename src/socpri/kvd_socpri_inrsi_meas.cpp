// Measurements of the port in focus: requests, answers, and what becomes of them when there is none.
// Answers that belong to another port's supervision are sorted out here.
#include "socpri/kvd_socpri_inrsi_master_int.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm_send.h"
#include "node/trace.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"

namespace inrsi::master {

namespace {

constexpr OSTIME RETRIEVE_ORDER_ms = 500;

u32 action() { return record().currAction; }

bool isInOrder()
{
    return action() >= INRSI_CLIENT_ACTION_FREQ_SCANNING && action() <= INRSI_CLIENT_ACTION_FREQ_SYNC;
}

/// The order is still at the frequency, which comes before the phase.
bool isInFrequencyStage()
{
    return action() == INRSI_CLIENT_ACTION_FREQ_SCANNING || action() == INRSI_CLIENT_ACTION_FREQ_SYNC
           || (action() == INRSI_CLIENT_ACTION_BFN_ALIGN && record().freqScanCnt > 0);
}

/// What goes the long way, by port X, is given more time for its answer, and so is all after it.
void startRetrieve()
{
    if (!isInOrder() && focus() == PORT_X) record().measRetrieveTimeMs = RETRIEVE_SLOW_ms;
    startTimer(MEAS_RETRIEVE, focus(), retrieveTime());
}

void startFrequencyTimer() { startTimer(FREQ_DATA, REQUEST_ms); }
void startPhaseTimer() { startTimer(PHASE_DATA, focus(), REQUEST_ms); }

void begin(SIGSELECT sigNo, void (*viaMainProcessor)(u32 sharedUnitId))
{
    if (focus() == PORT_X) viaMainProcessor(client().sharedUnitId);
    else                   requestMeasurement(client(), sigNo, client().sharedUnitId);
    startRetrieve();
    record().measUnavailableCounter = 0;
    record().measOngoing = true;
    record().measAskedAt = ose::get_ticks();
}

/// The unit to measure, the first at the port with that status.
bool chooseUnit(u8 linkStatus)
{
    const Slot* const unit = firstUnit(client(), focus(), linkStatus);
    client().sharedUnitId = unit != nullptr ? unit->sharedUnitId : NO_UNIT;
    return unit != nullptr;
}

/// Answers with the frequency's result and gives the order up.
void failOrder(u32 syncStatus)
{
    answerOrder(syncStatus);
    setToIdle();
}

/// A measurement whose answer nobody waits for any more doesn't stand in the way of the next.
bool isAbandoned() { return !runs(MEAS_RETRIEVE, focus()); }

/// An order before has left its measurement open, and the answer may come yet.
bool isOpen() { return record().measOngoing && ose::get_ticks() - record().measAskedAt <= RETRIEVE_SLOW_ms; }

/// The answer belongs to the sample of a supervised port. Without a port in focus, the unit in focus is one
/// that an order has left with its request open: an open sample of the unit's port counts first.
bool belongsToSupervision(u8 port, u32 sharedUnitId)
{
    if (port == focus() || port == NO_PORT) return false;
    return sharedUnitId != client().sharedUnitId
           || (focus() == NO_PORT && client().supervision[port].supMeasOngoing);
}

/// Whatever answer came has closed the measurement that was open. The answer to a request that an order has
/// left open is nobody's, but it has come: nothing is missing.
void closeMeasurement(u32 sharedUnitId)
{
    record().measOngoing = false;
    cancelTimer(MEAS_RETRIEVE, focus());
    if (focus() != NO_PORT || sharedUnitId != client().sharedUnitId) return;
    const u8 port = portOfUnit(client(), sharedUnitId);
    if (!belongsToSupervision(port, sharedUnitId)) cancelTimer(MEAS_RETRIEVE, port);
    if (findUnit(client(), PORT_X, sharedUnitId) != nullptr) cancelTimer(MEAS_RETRIEVE, PORT_X);
    client().sharedUnitId = NO_UNIT;
}

/// An answer of the other kind has closed the order's own measurement, which may stay unanswered now
/// without anybody seeing it: the order asks again.
void askAgain()
{
    if (focus() == NO_PORT) return;
    if (isInFrequencyStage())                              startFrequencyTimer();
    else if (action() == INRSI_CLIENT_ACTION_TIME_SYNC)    startPhaseTimer();
}

void traceIncompatible(const char* caller, Event event)
{
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "%s(): Measurement type is incompatible with current INRSI Client action", caller);
    log(event);
}

// ---- link is not there ----------------------------------------------------------------------------

/// The frequency's request is put off, up to five times.
void putOffFrequency()
{
    Record& r = record();
    if (++r.measUnavailableCounter < UNAVAILABLE_TRIES) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "%s():CPRI Link (Port: %u) is currently down, "
                  "request new timer for freq measurement request",
                  __func__, focus());
        startFrequencyTimer();
        return;
    }
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "%s():CPRI Link (Port: %u) is down, return negative response to MP for freq measurements",
              __func__, focus());
    r.measUnavailableCounter = 0;
    log(INRSI_CL_EV_FREQ_SYNC_FAILED, KEEP);
    failOrder(FREQ_MEAS_MISSING);
}

/// An answer to an order to go on may be owed; it goes out before the link's status.
void abortSync(u32 syncStatus)
{
    if (abortJump(syncStatus)) return;
    inrsiAnswerContinuation(syncStatus);
    inrsiLinkSyncAborted(syncStatus);
}

void linkDisturbanceCheck()
{
    Record& r = record();
    if (++r.measUnavailableCounter < UNAVAILABLE_TRIES) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "%s():CPRI Link (Port: %u) is currently down, "
                  "request new timer for phase measurement request",
                  __func__, focus());
        startPhaseTimer();
        return;
    }
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "%s():CPRI Link (Port: %u) is down, return negative response to MP for phase measurements",
              __func__, focus());
    r.measUnavailableCounter = 0;
    log(INRSI_CL_EV_TIME_SYNC_FAILED, KEEP);
    if (action() == INRSI_CLIENT_ACTION_BFN_ALIGN) answerOrder(CPRI_LINK_NOT_AVAILABLE);
    abortSync(CPRI_LINK_NOT_AVAILABLE);
}

void failLostMeasurement(u8 port)
{
    if (action() == INRSI_CLIENT_ACTION_TIME_SYNC) {
        if (firstUnit(client(), port, LINK_AVAILABLE) == nullptr) linkDisturbanceCheck();
        else startPhaseTimer();        // another unit is left, and nothing is open any more
    } else if (firstUnit(client(), port, LINK_PRESENT) != nullptr) {
        startRetrieve();
    } else {
        answerOrder(CPRI_LINK_NOT_AVAILABLE);
        dropWork();
    }
}

}  // namespace

void handleLinkDownIndication(u8 port)
{
    if (port != focus()) {
        if (port != PORT_X) stopSupervision(client(), port);
        return;
    }
    if (action() == INRSI_CLIENT_IDLE) return;
    if (record().measOngoing) {
        record().measOngoing = false;
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Link went down, cancel active measurement.", __func__);
        failLostMeasurement(port);
    } else if (action() == INRSI_CLIENT_ACTION_BFN_ALIGN) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():BFN alignment failed due to active link down indication.",
                  __func__);
        KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(0);
        dropWork();
    }
}

// ---- requests ------------------------------------------------------------------------------------

OSTIME retrieveTime() { return isInOrder() ? RETRIEVE_ORDER_ms : record().measRetrieveTimeMs; }

/// The order before has left its measurement open: a scan is refused for that, other orders aren't.
void sendInrsiGetFreqDiffReq()
{
    if (focus() == NO_PORT) return;
    if (isOpen()) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "Measurement already ongoing!");
        log(INRSI_CL_EV_MEAS_ONGOING_CONFLICT, KEEP);
        if (action() == INRSI_CLIENT_ACTION_FREQ_SCANNING) {
            record().measOngoing = false;      // so that the next one isn't refused as well
            return failOrder(FREQ_MEAS_PROBLEM);
        }
    }
    if (!chooseUnit(LINK_PRESENT)) return putOffFrequency();
    begin(INRSI_GET_FREQ_DIFF2_REQ, KvdLoz6TuIifAdm_sendInrsiGetFreqDiff2ReqFwd);
}

void sendInrsiGetPhaseDiffReq()
{
    if (record().measOngoing && !isAbandoned()) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s():Measurement already ongoing!", __func__);
        return log(INRSI_CL_EV_MEAS_ONGOING_CONFLICT);
    }
    if (!chooseUnit(LINK_AVAILABLE)) return linkDisturbanceCheck();
    begin(INRSI_GET_PHASE_DIFF2_REQ, KvdLoz6TuIifAdm_sendInrsiGetPhaseDiff2ReqFwd);
}

// ---- answers: frequency ---------------------------------------------------------------------------

namespace {

/// What follows a frequency that is good: a scan has ended, the others go on with the phase.
void frequencyLocked()
{
    const u8 port = focus();
    log(INRSI_CL_EV_FREQ_LOCKED);
    answerOrder(OK_FREQ_LOCKED);
    if (action() == INRSI_CLIENT_ACTION_FREQ_SCANNING) {
        setToIdle();
        startSupervision(client(), port);
        return;
    }
    KvdLoz6TuReg_pll_init(PLL_Unlocked);
    endHoldoverLimit();
    KvdLoz6TuReg_resetSoCpriPhase();
    if (action() == INRSI_CLIENT_ACTION_FREQ_SYNC) record().currAction = INRSI_CLIENT_ACTION_TIME_SYNC;
    record().freqScanCnt = 0;
    startPhaseTimer();
}

void frequencyNotYet()
{
    Record& r = record();
    if (r.freqScanCnt > 0) return startFrequencyTimer();
    log(INRSI_CL_EV_FREQ_SYNC_FAILED, KEEP);
    answerOrder(FREQ_MEAS_PROBLEM);
    superviseFocus();
    setToIdle();
}

void onFrequency(u32 sharedUnitId, i16 freqDiff, u32 freqDiffValid)
{
    Record& r = record();
    r.freqDiff = freqDiff;
    r.freqDiffValid = freqDiffValid;
    closeMeasurement(sharedUnitId);
    if (action() == INRSI_CLIENT_IDLE || action() == INRSI_CLIENT_ACTION_TIME_SYNC) {
        traceIncompatible(__func__, INRSI_CL_EV_FREQ_DIFF_CFM_UNEXPECTED_ACTION);
        return askAgain();
    }
    if (sharedUnitId != client().sharedUnitId) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "%s(): Received response for sharedUnitId (%u) different from the referenced one (%u)",
                  __func__, sharedUnitId, client().sharedUnitId);
        log(INRSI_CL_EV_FREQ_DIFF_CFM_WRONG_PORT_NUMBER, KEEP);
        return setToIdle();
    }
    if (r.freqScanCnt != 0) --r.freqScanCnt;
    const bool isGood = KvdLoz6TuReg_handleSoCpriFreqDiffMeas(freqDiff, freqDiffValid);
    const Slot* const unit = findUnit(client(), focus(), sharedUnitId);
    if (isGood && unit != nullptr && unit->linkStatus == LINK_AVAILABLE) frequencyLocked();
    else                                                                frequencyNotYet();
}

void handleInrsiGetFreqDiffRej(u32 sharedUnitId, u32 errorCode)
{
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): errorCode=%u", __func__, errorCode);
    log(INRSI_CL_EV_FREQ_DIFF_REJ, KEEP);
    closeMeasurement(sharedUnitId);
    if (action() == INRSI_CLIENT_ACTION_TIME_SYNC) {
        // It has no answer of its kind: going idle would leave the loop without a word.
        traceIncompatible(__func__, INRSI_CL_EV_FREQ_DIFF_CFM_UNEXPECTED_ACTION);
        return askAgain();
    }
    failOrder(FREQ_MEAS_MISSING);
}

// ---- answers: phase -------------------------------------------------------------------------------

/// A supervision's answer that comes once its port is to be aligned: the frequency isn't there yet.
bool isLate() { return action() == INRSI_CLIENT_ACTION_BFN_ALIGN && isInFrequencyStage(); }

void dropLate()
{
    if (isPort(focus())) client().supervision[focus()].supMeasOngoing = false;
    cancelTimer(SUPERVISION, focus());
    log(INRSI_CL_EV_LATE_PHASE_MEAS_WHILE_BFN_ALIGNING);
}

/// The link went while the answer was on its way: one more try.
void phaseWithoutLink()
{
    Record& r = record();
    if (!r.linkGone) {
        r.linkGone = true;
        startPhaseTimer();
        return;
    }
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): CPRI Link (%u) is not available ", __func__, focus());
    r.linkGone = false;
    log(INRSI_CL_EV_PHASE_DIFF_CFM_LINK_UNAVAILABLE, KEEP);
    if (action() == INRSI_CLIENT_ACTION_BFN_ALIGN) {
        KvdLoz6TuIifAdm_sendSocpriBfnAlignToGroupRsp(0);
        setToIdle();
    } else if (!abortJump(CPRI_LINK_NOT_AVAILABLE)) {
        inrsiLinkSyncAborted(CPRI_LINK_NOT_AVAILABLE);
    }
}

void onFocusPhase(u32 sharedUnitId, u32 high, u32 low, u32 valid)
{
    Record& r = record();
    if (isLate()) return dropLate();
    const bool isWrongUnit = sharedUnitId != client().sharedUnitId;
    closeMeasurement(sharedUnitId);
    r.trpDiffHigh = high;
    r.trpDiffLow = low;
    r.trpDiffValid = valid;
    if (focus() == NO_PORT) {
        client().sharedUnitId = NO_UNIT;
        return log(INRSI_CL_EV_PHASE_DIFF_CFM_PORT_NOT_SELECTED);
    }
    if (isWrongUnit) log(INRSI_CL_EV_PHASE_DIFF_CFM_WRONG_PORT_NUMBER);
    if (isInFrequencyStage()) {
        traceIncompatible(__func__, INRSI_CL_EV_PHASE_DIFF_CFM_UNEXPECTED_ACTION);
        return askAgain();
    }
    if (firstUnit(client(), focus(), LINK_AVAILABLE) == nullptr) return phaseWithoutLink();
    r.linkGone = false;
    startPhaseTimer();
    KvdLoz6TuReg_handleSoCpriPhaseDiffMeas(high, low, valid);
    endHoldoverLimit();
}

void onPhase(u32 sharedUnitId, u32 high, u32 low, u32 valid)
{
    const u8 port = portOfUnit(client(), sharedUnitId);
    if (belongsToSupervision(port, sharedUnitId)) onSupervisionSample(client(), port, high, low, valid);
    else                                          onFocusPhase(sharedUnitId, high, low, valid);
}

void rejectSupervision(u8 port)
{
    // of a unit that is gone, or of port X's when that had the focus
    if (!isPort(port))
        return traceIncompatible("handleInrsiGetPhaseDiffRej", INRSI_CL_EV_PHASE_DIFF_REJ_UNEXPECTED_ACTION);
    cancelTimer(MEAS_RETRIEVE, port);
    client().supervision[port].supMeasOngoing = false;
    superviseIfLinked(client(), port);
    sendSupervisionStatus(port, PHASE_MEAS_MISSING);
}

/// No phase was asked for, or it was an alignment's, which can't go on without.
void rejectUnexpectedly()
{
    traceIncompatible("handleInrsiGetPhaseDiffRej", INRSI_CL_EV_PHASE_DIFF_REJ_UNEXPECTED_ACTION);
    if (isInFrequencyStage())                              askAgain();
    else if (action() == INRSI_CLIENT_ACTION_BFN_ALIGN)    failOrder(PHASE_MEAS_MISSING);
}

void handleInrsiGetPhaseDiffRej(u32 sharedUnitId, u32 errorCode)
{
    const u8 port = portOfUnit(client(), sharedUnitId);
    KVD_TRACE(TRACE_INRSI, TRACE_INFO, "%s(): sharedUnitId=%u, errorCode=%u", __func__, sharedUnitId,
              errorCode);
    log(INRSI_CL_EV_PHASE_DIFF_REJ, KEEP);
    // The measurement of the port in focus stays open: it will be answered, or its time will run out.
    const bool isNobodys = port != focus() && sharedUnitId != client().sharedUnitId;
    if (isNobodys || belongsToSupervision(port, sharedUnitId)) return rejectSupervision(port);
    closeMeasurement(sharedUnitId);
    startSupervision(client(), focus());
    if (action() != INRSI_CLIENT_ACTION_TIME_SYNC || focus() == NO_PORT) return rejectUnexpectedly();
    KVD_TRACE(TRACE_INRSI, TRACE_INFO,
              "%s(): Sending indication to MP containing KVD_TUIIF_PHASE_MEAS_MISSING information.",
              __func__);
    abortSync(PHASE_MEAS_MISSING);
}

// ---- time-outs -----------------------------------------------------------------------------------

void onPhaseDataTimeout(u8 port)
{
    if (port == focus())
        sendInrsiGetPhaseDiffReq();
    else if (port == PORT_X)
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "INRSI_REQUEST_PHASE_DATA_TMO arrived for CPRI_PORT_X but it refers to supervision");
    else
        requestSupervision(client(), port);
}

void supervisionUnanswered(u8 port)
{
    log(INRSI_CL_EV_MEAS_TMO_EXPIRED_SUPERVISION, KEEP);
    sendSupervisionStatus(port, PHASE_MEAS_MISSING);
    startSupervision(client(), port);
}

void onRetrieveTimeout(u8 port)
{
    if (port != focus()) return supervisionUnanswered(port);
    record().measOngoing = false;
    log(INRSI_CL_EV_MEAS_TMO_EXPIRED, KEEP);
    superviseFocus();
    if (action() == INRSI_CLIENT_ACTION_TIME_SYNC) return abortSync(PHASE_MEAS_MISSING);
    failOrder(FREQ_MEAS_MISSING);
}

void onSupervisionTimeout(u8 port)
{
    if (port != focus()) requestSupervision(client(), port);
}

// ---- signals -------------------------------------------------------------------------------------

void onPhaseCfm(const InrsiGetPhaseDiff2Cfm* cfm)
{
    if (cfm != nullptr) onPhase(cfm->sharedUnitId, cfm->trpDiffHigh, cfm->trpDiffLow, cfm->trpDiffValid);
}
void onPhaseCfmFwd(const KvdTuiifInrsiGetPhaseDiff2CfmFwd* cfm)
{
    if (cfm != nullptr) onPhase(cfm->sharedUnitId, cfm->trpDiffHigh, cfm->trpDiffLow, cfm->trpDiffValid);
}
void onFreqCfm(const InrsiGetFreqDiff2Cfm* cfm)
{
    if (cfm != nullptr) onFrequency(cfm->sharedUnitId, cfm->freqDiff, cfm->freqDiffValid);
}
void onFreqCfmFwd(const KvdTuiifInrsiGetFreqDiff2CfmFwd* cfm)
{
    if (cfm != nullptr) onFrequency(cfm->sharedUnitId, cfm->freqDiff, cfm->freqDiffValid);
}
void onPhaseRej(const InrsiUnitRej* rej)
{
    if (rej != nullptr) handleInrsiGetPhaseDiffRej(rej->sharedUnitId, rej->errorCode);
}
void onPhaseRejFwd(const KvdTuiifInrsiGetPhaseDiff2RejFwd* rej)
{
    if (rej != nullptr) handleInrsiGetPhaseDiffRej(rej->sharedUnitId, rej->errorCode);
}
void onFreqRej(const InrsiUnitRej* rej)
{
    if (rej != nullptr) handleInrsiGetFreqDiffRej(rej->sharedUnitId, rej->errorCode);
}
void onFreqRejFwd(const KvdTuiifInrsiGetFreqDiff2RejFwd* rej)
{
    if (rej != nullptr) handleInrsiGetFreqDiffRej(rej->sharedUnitId, rej->errorCode);
}

}  // namespace

bool dispatchMeasurement(Signal* sig)
{
    switch (sig->sigNo) {
    case INRSI_GET_PHASE_DIFF2_CFM: onPhaseCfm(as<InrsiGetPhaseDiff2Cfm>(sig));                  break;
    case INRSI_GET_PHASE_DIFF2_REJ: onPhaseRej(as<InrsiUnitRej>(sig));                           break;
    case INRSI_GET_FREQ_DIFF2_CFM:  onFreqCfm(as<InrsiGetFreqDiff2Cfm>(sig));                    break;
    case INRSI_GET_FREQ_DIFF2_REJ:  onFreqRej(as<InrsiUnitRej>(sig));                            break;
    case KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD:
        onPhaseCfmFwd(as<KvdTuiifInrsiGetPhaseDiff2CfmFwd>(sig));                                break;
    case KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD:
        onPhaseRejFwd(as<KvdTuiifInrsiGetPhaseDiff2RejFwd>(sig));                                break;
    case KVD_TUIIF_INRSI_GET_FREQ_DIFF2_CFM_FWD:
        onFreqCfmFwd(as<KvdTuiifInrsiGetFreqDiff2CfmFwd>(sig));                                  break;
    case KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD:
        onFreqRejFwd(as<KvdTuiifInrsiGetFreqDiff2RejFwd>(sig));                                  break;
    case INRSI_REQUEST_PHASE_DATA_TMO:   onPhaseDataTimeout(portOfTimeout(sig));                 break;
    case INRSI_REQUEST_FREQ_DATA_TMO:    sendInrsiGetFreqDiffReq();                              break;
    case KVD_TUSOCPRI_MEAS_RETRIEVE_TMO: onRetrieveTimeout(portOfTimeout(sig));                  break;
    case KVD_TUSOCPRI_SUPERVISION_TMO:   onSupervisionTimeout(portOfTimeout(sig));               break;
    default:                                                                                     return false;
    }
    return true;
}

}  // namespace inrsi::master
