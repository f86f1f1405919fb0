// The loop of a master on the GPS out sync link, a sample a second.
#include "reg/kvd_reg_pll_int.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/tuiif_sig.h"

namespace {

constexpr double NEW_TARGET_s = 5e-7;            // in Unlocked
constexpr double BAND_s = 5e-8;
constexpr double LOCKED_LIMIT_s = 1e-7;
constexpr u8  STABLE = 5;                        // more samples than these
constexpr u32 DRIFTING_AFTER = 100;              // samples
constexpr u32 HOLDOVER_SAMPLES = 12;

struct State {
    pll::Counters c;
    bool sourceTime = true;                      // the far end's time counts
    u8   withoutTime = 0;                        // samples in Locked, one after the other
};
ose::ModuleData<State> s;

/// The phase is stable where the target is: locked there, or at zero once it is moved.
void proceed()
{
    pll::Pll& p = pll::vars();
    if (isWithin(p.targetDiff, BAND_s)) {
        const TimePair delta0 = pll::needs().offset();
        const bool isOffset = !s->sourceTime || tuHwIf_isOverOneIncrement(delta0.c, delta0.f);
        pll::changeState(isOffset ? PLL_OffsetLocked : PLL_Locked);
        return;
    }
    pll::changeState(PLL_OffsetLocked);
    pll::needs().adjustOffset(0.0, p.targetDiff);
    p.targetDiff = 0.0;
}

void preJump(double phaseDiff)
{
    pll::needs().adjustOffset(0.0, phaseDiff);
    const TimePair delta0 = pll::needs().offset();
    pll::needs().adjustTime(-delta0.c, -delta0.f);
    pll::needs().clearOffset();
    pll::filter(0.0);
    pll::changeState(PLL_Unlocked);
}

void unlocked(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        p.targetDiff = 0.0;
        c = {};
        p.histPllCountDown = pll::HIST_OFF;
    }
    if (pll::isUnreliable(c)) {
        ++c.samplesInUnlocked;
        return;
    }
    if (c.samplesInUnlocked > DRIFTING_AFTER) pll::needs().report(KVD_TUIIF_FREQUENCY_DRIFTING);
    pll::followTarget(c, phaseDiff, BAND_s, NEW_TARGET_s);
    if (c.changeStateCounter > STABLE) {
        proceed();
    } else {
        pll::filter(phaseDiff - p.targetDiff);
    }
    ++c.samplesInUnlocked;
}

void offsetLocked(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        c.changeStateCounter = 0;
        p.writeToFlash = 1;
        p.histPllCountDown = pll::HIST_OFF;
    }
    if (isBeyond(phaseDiff - p.targetDiff, BAND_s)) {
        ++c.changeStateCounter;
    } else {
        c.changeStateCounter = 0;
        pll::filter(phaseDiff - p.targetDiff, p.writeToFlash);
        p.writeToFlash = 0;
        // The control law retries in TIMELOCKED, which a unit on this link doesn't enter.
        pll::needs().retryJump();
    }
    if (c.changeStateCounter > STABLE) pll::loseOffset("KvdLoz6TuReg_pll_control", phaseDiff);
}

/// The far end has run free for longer than while it aligns its pulse.
bool losesTime()
{
    if (s->sourceTime)
        s->withoutTime = 0;
    else
        ++s->withoutTime;
    return s->withoutTime > STABLE;
}

void locked(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        c = {};
        s->withoutTime = 0;
        p.writeToFlash = 1;
        p.histPllCountDown = pll::HIST_OFF;
        if (p.timeAccuracyIndSent == 0) pll::needs().timeAccuracy();
        p.timeAccuracyIndSent = 1;
    }
    if (losesTime()) return pll::changeState(PLL_OffsetLocked);
    if (isUpTo(phaseDiff, LOCKED_LIMIT_s)) {
        p.targetDiff = 0.0;
        c = {};
        pll::filter(phaseDiff, p.writeToFlash);
        p.writeToFlash = 0;
        return;
    }
    if (pll::isUnreliable(c)) return;
    pll::countBeyondLimit(c, phaseDiff, BAND_s, LOCKED_LIMIT_s);
    if (c.changeToOffsetLockedCounter > STABLE) {
        pll::changeState(PLL_OffsetLocked);
        pll::needs().adjustOffset(0.0, p.targetDiff);
        p.targetDiff = 0.0;
    } else if (c.changeToUnlockedCounter > STABLE) {
        pll::changeState(PLL_Unlocked);
    }
}

/// Measurements are back. No filter runs: the frequency stays as the holdover left it.
void holdover(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        c = {};
        p.targetDiff = phaseDiff;
        p.histPllCountDown = pll::HIST_OFF;
    }
    if (isWithin(phaseDiff - p.targetDiff, BAND_s)) {
        ++c.changeStateCounter;
    } else {
        c.changeStateCounter = 0;
        p.targetDiff = phaseDiff;
    }
    if (++c.samples >= HOLDOVER_SAMPLES) {
        pll::changeState(PLL_Unlocked);
    } else if (c.changeStateCounter > STABLE) {
        // A held true time isn't told as locked to a far end without one, not even on the way.
        const bool isLost = p.currState == PLL_Locked_Holdover && !s->sourceTime;
        if (isLost) pll::changeState(PLL_Unlocked);
        else        proceed();
    }
}

}  // namespace

void KvdLoz6TuReg_pll_setSourceTime(bool counts) { s->sourceTime = counts; }
bool KvdLoz6TuReg_pll_sourceTime() { return s->sourceTime; }

void KvdLoz6TuReg_pll_control(double phaseDiff)
{
    pll::notePhase(phaseDiff);
    const u32 state = pll::vars().currState;
    switch (state) {
    case PLL_PreJumpStart:
    case PLL_PreJumpHist:     return preJump(phaseDiff);
    case PLL_Unlocked:        return unlocked(phaseDiff);
    case PLL_OffsetLocked:    return offsetLocked(phaseDiff);
    case PLL_Locked:          return locked(phaseDiff);
    case PLL_Freq_Holdover:
    case PLL_Offset_Holdover:
    case PLL_Locked_Holdover: return holdover(phaseDiff);
    default:                  return pll::traceFaulty(__func__, state);
    }
}
