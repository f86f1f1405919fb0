#include "base/trace_groups.h"
#include "mp/kvd_iifadm_state.h"
#include "mp/kvd_mp_upcalls.h"
#include "node/trace.h"
#include "sig/reg_sig.h"

#include <algorithm>

namespace {

using tuiif::isMaster;
using tuiif::state;

tuiif::SavedBvqStatusData& saved() { return state().savedBvqStatusData; }

// ---- from a report to a clock state ----

constexpr OSTIME FORCE_LOCKED_ms = 86400000;   // 24 h
constexpr u32 MS_PER_MINUTE = 60000;
constexpr u32 MINUTES_MAX = 0xFFFFFFFF / MS_PER_MINUTE;   // what a timer can hold, 49 days

/// The relaxation: shortly after the start a unit counts as locked a little earlier.
bool isRelaxed() { return state().forceLockedTimer.runs() && state().threshold[HOLDOVER_FREQ].minutes == 0; }

u8 clockOfMasterRegState(u8 regState)
{
    switch (regState) {
    case WARMUP:       return KVD_TUIIF_WARMUP;
    case SYNCH1:
    case SYNCH2:
    case SYNCH3: return isRelaxed() ? KVD_TUIIF_FREQUENCY_LOCKED : KVD_TUIIF_FREQUENCY_DRIFTING;
    case FREQDRIFTING: return KVD_TUIIF_FREQUENCY_DRIFTING;
    case FREQLOCKED:   return KVD_TUIIF_FREQUENCY_LOCKED;
    case FAILURE:      return KVD_TUIIF_FAILURE;
    case TIMELOCKED:
    case STARTUPTIME:  return KVD_TUIIF_TIME_OFFSET_LOCKED;
    case TRUETIME:     return KVD_TUIIF_RNT_TIME_LOCKED;
    case PREJUMPSTART: return KVD_TUIIF_PREJUMP_START;
    case PREJUMPHIST:  return KVD_TUIIF_PREJUMP_HIST;
    default:           return KVD_TUIIF_UNKNOWN;
    }
}

u8 clockOfSlaveRegState(u8 regState)
{
    switch (regState) {
    case WARMUP:       return KVD_TUIIF_WARMUP;
    case FREQLOCKED:   return KVD_TUIIF_SLAVE_FREQUENCY_LOCKED;
    case FREQDRIFTING: return KVD_TUIIF_SLAVE_FREE_RUNNING;
    case FAILURE:      return KVD_TUIIF_FAILURE;
    case TRUETIME:     return KVD_TUIIF_SLAVE_FRAME_LOCKED;
    default:
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "Strange regState =%u", regState);
        return KVD_TUIIF_UNKNOWN;
    }
}

// ---- from a clock state to the shown one ----

u8 holdoverTwin(u8 clock)
{
    switch (clock) {
    case KVD_TUIIF_FREQUENCY_LOCKED:   return KVD_TUIIF_FREQUENCY_HOLDOVER;
    case KVD_TUIIF_TIME_OFFSET_LOCKED: return KVD_TUIIF_TIME_OFFSET_HOLDOVER;
    case KVD_TUIIF_RNT_TIME_LOCKED:    return KVD_TUIIF_RNT_TIME_HOLDOVER;
    default:                           return clock;
    }
}

u8 lockedTwin(u8 clock)
{
    switch (clock) {
    case KVD_TUIIF_FREQUENCY_HOLDOVER:   return KVD_TUIIF_FREQUENCY_LOCKED;
    case KVD_TUIIF_TIME_OFFSET_HOLDOVER: return KVD_TUIIF_TIME_OFFSET_LOCKED;
    case KVD_TUIIF_RNT_TIME_HOLDOVER:    return KVD_TUIIF_RNT_TIME_LOCKED;
    default:                             return clock;
    }
}

/// A frequency-only node hears nothing of time.
u8 frequencyTwin(u8 clock)
{
    switch (clock) {
    case KVD_TUIIF_TIME_OFFSET_LOCKED:
    case KVD_TUIIF_RNT_TIME_LOCKED:      return KVD_TUIIF_FREQUENCY_LOCKED;
    case KVD_TUIIF_TIME_OFFSET_HOLDOVER:
    case KVD_TUIIF_RNT_TIME_HOLDOVER:    return KVD_TUIIF_FREQUENCY_HOLDOVER;
    default:                             return clock;
    }
}

u8 bySelection(u8 clock)
{
    const u8 selected = saved().selectedRef;
    if (selected == NO_REF) {
        if (clock >= KVD_TUIIF_WARMUP && clock <= TUIIF_SOCPRI_STARTING) return holdoverTwin(clock);
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "Wrong clockState! (%d)", clock);
        return KVD_TUIIF_UNKNOWN;
    }
    const bool hasOwnHoldover = selected == GPSOSL_REF || selected == SOCPRI_REF;
    if (!hasOwnHoldover && saved().prevSelectedRef == NO_REF) return lockedTwin(clock);
    return clock;
}

u8 byTimeMode(u8 clock)
{
    if (!isMaster()) return clock;
    if (saved().timeMode == FREQUENCY_LOCKING) return frequencyTwin(clock);
    if (saved().timeMode != ABSOLUTE_TIME_LOCKING)
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "Unknown timemode =%u", saved().timeMode);
    return clock;
}

u8 shownState(u8 clock)
{
    u8 shown = bySelection(clock);
    if (saved().ltrStatus) shown = KVD_TUIIF_LOSS_OF_TRACKING;
    return byTimeMode(shown);
}

// ---- holdover thresholds ----

struct ThresholdRow {
    u32 holdoverClass;
    u8 clock;
    SIGSELECT sigNo;
};
constexpr ThresholdRow THRESHOLDS[] = {   // in the order in which they are looked at
    {HOLDOVER_RNT, KVD_TUIIF_RNT_TIME_HOLDOVER, KVD_TUIIF_RNT_HOLDOVER_TMO_IND},
    {HOLDOVER_TO, KVD_TUIIF_TIME_OFFSET_HOLDOVER, KVD_TUIIF_TO_HOLDOVER_TMO_IND},
    {HOLDOVER_FREQ, KVD_TUIIF_FREQUENCY_HOLDOVER, KVD_TUIIF_FREQ_HOLDOVER_TMO_IND},
};

void followThresholds(u8 shown)
{
    for (const ThresholdRow& row : THRESHOLDS) {
        tuiif::HoldoverThreshold& threshold = state().threshold[row.holdoverClass];
        const bool wanted = threshold.minutes != 0 && shown == row.clock;
        const u32 minutes = std::min(threshold.minutes, MINUTES_MAX);
        if (!wanted)
            KvdTimer_cancel(threshold.timer);
        else if (!KvdTimer_start(threshold.timer, minutes * MS_PER_MINUTE, row.sigNo))
            KVD_TRACE(TRACE_TUIIFADM, TRACE_ERROR, "holdover timer refused, clockState=%u", shown);
    }
}

// ---- the status ----

tuiif::LatestSentBvqStatusInd presentStatus()
{
    tuiif::LatestSentBvqStatusInd now;
    now.sentBvqStatusInd = true;
    now.radioClockState = saved().radioClockState;
    now.refState = saved().tuiifRefState;
    now.activRefLtrStatus = saved().activRefLtrStatus;
    now.activRefDegrStatus = saved().activRefDegrStatus;
    now.activRefFroId = saved().activRefFroId;
    now.activRefFroClassNo = saved().activRefFroClassNo;
    return now;
}

bool isEqual(const tuiif::LatestSentBvqStatusInd& a, const tuiif::LatestSentBvqStatusInd& b)
{
    return a.radioClockState == b.radioClockState && a.refState == b.refState
           && a.activRefLtrStatus == b.activRefLtrStatus && a.activRefDegrStatus == b.activRefDegrStatus
           && a.activRefFroId == b.activRefFroId && a.activRefFroClassNo == b.activRefFroClassNo;
}

/// SoCPRI passes through frequency locked on its way to time: it would look like a step back.
bool isSocpriOnItsWay()
{
    const u8 sent = state().latestSentBvqStatusInd.radioClockState;
    return saved().selectedRef == SOCPRI_REF && saved().radioClockState == KVD_TUIIF_FREQUENCY_LOCKED
           && (sent == TUIIF_SOCPRI_STARTING || sent == KVD_TUIIF_TIME_OFFSET_HOLDOVER
               || sent == KVD_TUIIF_RNT_TIME_HOLDOVER);
}

}  // namespace

namespace tuiif {

void sendBvqStatus()
{
    if (!isReady()) return;
    const u8 clock = saved().radioClockState;
    if (clock != KVD_TUIIF_TIME_OFFSET_LOCKED) MP_UPCALLS.cancelJump();
    if (clock == KVD_TUIIF_UNKNOWN) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO, "radioClockState is UNKNOWN, BvqStatusInd not sent");
        return;
    }
    if (isSocpriOnItsWay()) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_INFO,
                  "SoCPRI got to PLL_LOCKED state after STARTING_UP or HOLDOVER don't propagate "
                  "FREQ_LOCKED");
        return;
    }
    LatestSentBvqStatusInd& latest = state().latestSentBvqStatusInd;
    const LatestSentBvqStatusInd now = presentStatus();
    if (latest.sentBvqStatusInd && isEqual(latest, now) && !state().forceSend) {
        KVD_TRACE(TRACE_TUIIFADM, TRACE_3,
                  "Signal BvqStatusInd already sent with: clockState=%u, refState=%x, ltr=%u, "
                  "degr=%u",
                  now.radioClockState, now.refState, now.activRefLtrStatus, now.activRefDegrStatus);
        return;
    }
    if (isMaster()) MP_UPCALLS.clockStateTold(clock);
    latest = now;
    state().forceSend = false;
    auto* ind = node::make<KvdTuiifBvqStatusInd>(KVD_TUIIF_BVQ_STATUS_IND);
    ind->smn = smn();
    ind->apn = apn();
    ind->radioClockState = now.radioClockState;
    ind->refState = now.refState;
    ind->activRefLtrStatus = now.activRefLtrStatus;
    ind->activRefDegrStatus = now.activRefDegrStatus;
    ind->activRefFroId = now.activRefFroId;
    ind->activRefFroClassNo = now.activRefFroClassNo;
    sendToPeer(ind);
}

}  // namespace tuiif

// ---- reports ----

namespace {

/// SoCPRI was at work before this start and will be selected again: no holdover in between, but that of a
/// loop, whose reference has been here since.
u8 untilSocpri(u8 clock)
{
    const bool awaitsSocpri = saved().selectedRef == NO_REF && state().socpriMarker != 0;
    const bool isLocked = saved().prevSelectedRef == SOCPRI_REF      // and about to hold over
                          && (clock == KVD_TUIIF_TIME_OFFSET_LOCKED || clock == KVD_TUIIF_RNT_TIME_LOCKED);
    const bool isOfLoop = isLocked || lockedTwin(clock) != clock;    // the regulator is locked, or isn't
    return awaitsSocpri && clock != KVD_TUIIF_WARMUP && !isOfLoop ? u8{KVD_TUIIF_FREQUENCY_DRIFTING} : clock;
}

}  // namespace

void KvdLoz6TuIifAdm_reportRegState(u8 regState)
{
    saved().lastRegulatorState = isMaster() ? clockOfMasterRegState(regState)
                                            : clockOfSlaveRegState(regState);
    KvdLoz6TuIifAdm_updateRadioClockState(untilSocpri(saved().lastRegulatorState));
}

void tuiif::showLastRegState()
{
    const u8 clock = saved().lastRegulatorState;
    KvdLoz6TuIifAdm_updateRadioClockState(clock == KVD_TUIIF_UNKNOWN ? clock : untilSocpri(clock));
}

void KvdLoz6TuIifAdm_reportPllState(u32 pllState)
{
    constexpr u8 CLOCK_OF_PLL[] = {
        KVD_TUIIF_UNKNOWN,                // PLL_Uninitialized
        KVD_TUIIF_UNKNOWN,                // PLL_PreJumpStart
        KVD_TUIIF_UNKNOWN,                // PLL_PreJumpHist
        KVD_TUIIF_FREQUENCY_LOCKED,       // PLL_Unlocked
        KVD_TUIIF_TIME_OFFSET_LOCKED,     // PLL_OffsetLocked
        KVD_TUIIF_RNT_TIME_LOCKED,        // PLL_Locked
        KVD_TUIIF_FREQUENCY_HOLDOVER,     // PLL_Freq_Holdover
        KVD_TUIIF_TIME_OFFSET_HOLDOVER,   // PLL_Offset_Holdover
        KVD_TUIIF_RNT_TIME_HOLDOVER,      // PLL_Locked_Holdover
    };
    saved().lastRegulatorState = pllState < sizeof CLOCK_OF_PLL ? CLOCK_OF_PLL[pllState]
                                                                : u8{KVD_TUIIF_UNKNOWN};
}

void KvdLoz6TuIifAdm_reportSlavePllState(u32 slavePllState)
{
    switch (slavePllState) {
    case SLAVE_PLL_Unlocked: saved().lastRegulatorState = KVD_TUIIF_SLAVE_FREQUENCY_LOCKED; break;
    case SLAVE_PLL_Locked:   saved().lastRegulatorState = KVD_TUIIF_SLAVE_FRAME_LOCKED;     break;
    default:                 saved().lastRegulatorState = KVD_TUIIF_UNKNOWN;                break;
    }
}

void KvdLoz6TuIifAdm_updateRadioClockState(u8 clock)
{
    const u8 shown = shownState(clock);
    followThresholds(shown);
    // A failure is told again and again: the status decides whether it is news.
    if (shown == saved().radioClockState && shown != KVD_TUIIF_FAILURE) return;
    saved().radioClockState = shown;
    tuiif::sendBvqStatus();
    tuiif::updateCalibrationStatus();
}

void KvdLoz6TuIifAdm_reportClockState(u8 clockState) { KvdLoz6TuIifAdm_updateRadioClockState(clockState); }
void KvdLoz6TuIifAdm_setForceSend() { state().forceSend = true; }
u8   KvdLoz6TuIifAdm_radioClockState() { return saved().radioClockState; }
u8   KvdLoz6TuIifAdm_lastRegulatorState() { return saved().lastRegulatorState; }

void KvdLoz6TuIifAdm_startForceLockedTimer()
{
    if (!KvdTimer_start(state().forceLockedTimer, FORCE_LOCKED_ms, KVD_FORCED_LOCKED_TIMEOUT_IND))
        KVD_TRACE(TRACE_TUIIFADM, TRACE_ERROR, "forced lock timer refused");
}
bool KvdLoz6TuIifAdm_forceLockedTimerRuns() { return state().forceLockedTimer.runs(); }

u32 KvdLoz6TuIifAdm_holdoverThreshold(u32 holdoverClass) { return state().threshold[holdoverClass].minutes; }
void KvdLoz6TuIifAdm_setHoldoverThreshold(u32 holdoverClass, u32 minutes)
{
    // Called from the shell's process too, so the timer is left to the manager's next update.
    state().threshold[holdoverClass].minutes = minutes;
}

// ---- reference state, tracking, degradation ----

u32  KvdLoz6TuIifAdm_tuiifRefState() { return saved().tuiifRefState; }
void KvdLoz6TuIifAdm_setRefStateBits(u32 bits) { saved().tuiifRefState |= bits; }
void KvdLoz6TuIifAdm_clearRefStateBits(u32 bits) { saved().tuiifRefState &= ~bits; }
void KvdLoz6TuIifAdm_storeRefState(u32 tuiifRefState) { saved().tuiifRefState = tuiifRefState; }
void KvdLoz6TuIifAdm_updateRefState(u32 tuiifRefState)
{
    saved().tuiifRefState = tuiifRefState;
    tuiif::sendBvqStatus();
}
void KvdLoz6TuIifAdm_markNotSent() { state().latestSentBvqStatusInd.sentBvqStatusInd = false; }

void KvdLoz6TuIifAdm_updateLtr(u32 detected)
{
    const bool was = saved().ltrStatus, is = detected != 0;
    const bool isOver = was && !is;
    const bool isNew = is && (!was || saved().activRefLtrStatus == KVD_TUIIF_NOT_VALID);
    saved().ltrStatus = is;
    if (!isOver && !isNew) return;
    saved().activRefLtrStatus = isOver ? KVD_TUIIF_REF_OK : KVD_TUIIF_REF_LTR;
    tuiif::showLastRegState();
    tuiif::sendBvqStatus();
}

void KvdLoz6TuIifAdm_updateDegraded(u8 status)
{
    saved().activRefDegrStatus = status;
    tuiif::sendBvqStatus();
}
