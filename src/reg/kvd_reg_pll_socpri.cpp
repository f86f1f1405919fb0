// The loop of a master on a SoCPRI link, ten samples a second: as that of the GPS out sync link, with
// limits of its own and the link client told at each stage.
#include "reg/kvd_reg_pll_int.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/inrsi_sig.h"
#include "sig/tuiif_socpri_sig.h"

namespace {

constexpr double NEW_TARGET_s = 1e-7;
constexpr double BAND_s = 2e-8;
constexpr double LOCKED_LIMIT_s = 4e-8;
constexpr u8  STABLE = 20, STABLE_BFN_ALIGN = 100;   // in Unlocked, more samples than these
constexpr u8  OFFSET_LOST = 5;                       // in OffsetLocked
constexpr u8  STABLE_LOCKED = 10;                    // in Locked and in holdover
constexpr u32 FAILED_AFTER = 600;                    // samples in Unlocked
constexpr u32 HOLDOVER_SAMPLES = 102;

struct State {
    pll::Counters c;
};
ose::ModuleData<State> s;

bool isBfnAlign() { return pll::needs().action() == INRSI_CLIENT_ACTION_BFN_ALIGN; }

/// The filter, as far as the operator lets it.
void regulate(double x)
{
    pll::Pll& p = pll::vars();
    switch (p.regulationMode) {
    case REGULATION_ON: return pll::filter(x);
    case REGULATION_HOLDOVER_WITH_VECTOR:
        pll::needs().adjustFrequency(pll::vectorMean());
        p.regulationMode = REGULATION_OFF;
        return;
    default: return;
    }
}

/// Phase at zero and counters at the other end's: time is there. Else a jump is to come.
u32 lockState()
{
    const bool isTime = isWithin(pll::vars().targetDiff, BAND_s) && pll::needs().timeDataEqual();
    return isTime ? PLL_Locked : PLL_OffsetLocked;
}

void unlocked(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    const bool bfnAlign = isBfnAlign();          // a failure ends it: what it leaves is no lock of a link
    if (pll::takeStateChanged()) {
        p.targetDiff = 0.0;
        c = {};
        p.histPllCountDown = pll::HIST_OFF;
    }
    if (pll::isUnreliable(c)) {
        ++c.samplesInUnlocked;
        return;
    }
    if (c.samplesInUnlocked > FAILED_AFTER) pll::needs().timeSyncFailed();
    pll::followTarget(c, phaseDiff, BAND_s, NEW_TARGET_s);
    if (c.changeStateCounter > (bfnAlign ? STABLE_BFN_ALIGN : STABLE)) {
        if (!bfnAlign) pll::changeState(lockState());
        pll::needs().timeSyncSucceeded();
        c.changeStateCounter = 0;
    } else {
        regulate(phaseDiff - p.targetDiff);
    }
    ++c.samplesInUnlocked;
}

void offsetLocked(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        c.changeStateCounter = 0;
        p.histPllCountDown = pll::HIST_OFF;
    }
    if (isBeyond(phaseDiff - p.targetDiff, BAND_s)) {
        ++c.changeStateCounter;
    } else {
        c.changeStateCounter = 0;
        regulate(phaseDiff - p.targetDiff);
    }
    if (c.changeStateCounter > OFFSET_LOST) pll::loseOffset("KvdLoz6TuReg_soCpriPll_control", phaseDiff);
}

void locked(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        c = {};
        p.histPllCountDown = pll::HIST_OFF;
        if (p.timeAccuracyIndSent == 0) pll::needs().timeAccuracy();
        p.timeAccuracyIndSent = 1;
    }
    if (isUpTo(phaseDiff, LOCKED_LIMIT_s)) {
        p.targetDiff = 0.0;
        c = {};
        regulate(phaseDiff);
        return;
    }
    if (pll::isUnreliable(c)) return;
    pll::countBeyondLimit(c, phaseDiff, BAND_s, NEW_TARGET_s);
    if (c.changeToOffsetLockedCounter > STABLE_LOCKED) pll::changeState(PLL_OffsetLocked);
    else if (c.changeToUnlockedCounter > STABLE_LOCKED) pll::changeState(PLL_Unlocked);
}

void endHoldover()
{
    const bool isNear = isWithin(pll::vars().targetDiff, BAND_s);
    pll::changeState(lockState());
    if (isNear) {
        pll::needs().armContinuation();
        pll::needs().answerContinuation(OK_TIME_LOCKED);
    }
}

void holdover(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        c = {};
        if (isBeyond(phaseDiff, NEW_TARGET_s)) p.targetDiff = phaseDiff;
        p.histPllCountDown = pll::HIST_OFF;
    }
    if (++c.samples >= HOLDOVER_SAMPLES) {
        pll::changeState(PLL_Unlocked);
        pll::needs().answerContinuation(PHASE_MEAS_PROBLEM);
        return;
    }
    const double d = phaseDiff - p.targetDiff;
    if (isWithin(d, BAND_s)) ++c.changeStateCounter;
    else                     c.changeStateCounter = 0;
    if (isBeyond(d, NEW_TARGET_s)) {
        p.targetDiff = phaseDiff;
        return;
    }
    if (c.changeStateCounter > STABLE_LOCKED) endHoldover();
    else                                      regulate(d);
}

}  // namespace

void KvdLoz6TuReg_soCpriPll_control(double phaseDiff)
{
    pll::notePhase(phaseDiff);
    pll::needs().answerContinuation(OK_TIME_LOCKED);
    const u32 state = pll::vars().currState;
    switch (state) {
    case PLL_Unlocked:        return unlocked(phaseDiff);
    case PLL_OffsetLocked:    return offsetLocked(phaseDiff);
    case PLL_Locked:          return locked(phaseDiff);
    case PLL_Freq_Holdover:
    case PLL_Offset_Holdover:
    case PLL_Locked_Holdover: return holdover(phaseDiff);
    default:                  return pll::traceFaulty(__func__, state);
    }
}
