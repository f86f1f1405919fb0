// The loop of a slave on IDL1, ten samples a second. It first steps the frequency by what the phase
// moved between two samples, then pulls in to an offset, then has the counter moved by it.
#include "reg/kvd_reg_pll_int.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/reg_types.h"
#include "sig/tuiif_sig.h"

namespace {

constexpr double ANOMALY_s = 0.001f;             // between two samples: the 5 ms grid slipped
constexpr double SAMPLES_PER_s = 10.0;
constexpr u8  PRE_STEPS = 20;
constexpr u32 FREE_RUNNING_AFTER = 100;          // samples in Unlocked
constexpr double NEW_TARGET_s = 9.6e-8;
constexpr double BAND_s = 3.2e-8;
constexpr double LOCKED_LIMIT_s = 6.4e-8;
constexpr u8  STABLE = 20, STABLE_LOCKED = 5;    // more samples than these
constexpr u8  TARGETS_IN_A_ROW = 2;              // then the frequency is stepped again

struct State {
    pll::Counters c;
    u8 preSteps = 0;
    u8 anomalies = 0;                            // new targets in a row
    double previous = 0;                         // phase of the sample before, s
};
ose::ModuleData<State> s;

void event(SlavePllEvent e) { pll::needs().slaveEvent(e); }

/// The counter is moved by the offset at once: nobody is warned on a slave.
void jump()
{
    pll::Pll& p = pll::vars();
    pll::needs().adjustSlaveOffset(0.0, p.targetDiff);
    p.targetDiff = 0.0;
    const TimePair d = pll::needs().slaveOffset();
    pll::needs().adjustTime(-d.c, -d.f);
    pll::needs().clearSlaveOffset();
    KVD_TRACE(TRACE_PLL, TRACE_INFO, "%s(): - Jump ordered for slave board!",
              "KvdLoz6TuReg_slavePll_control");
}

void preStep(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    const double moved = phaseDiff - s->previous;
    if (isBeyond(moved, ANOMALY_s)) {
        KVD_TRACE(TRACE_PLL, TRACE_INFO, "%s() - 5 ms measurement anomaly encountered, ignoring measurement",
                  "KvdLoz6TuReg_slavePll_control");
        return event(EV_SLAVE_PLL_5MS_ANOMALY);
    }
    const double step = moved * SAMPLES_PER_s;
    p.extAccFreqOffset += step;
    ++s->preSteps;
    KVD_TRACE(TRACE_PLL, TRACE_INFO,
              "%s() - frequency explicitly adjusted for %-17.16g, extAccFreqOffset = %-17.16g",
              "KvdLoz6TuReg_slavePll_control", step, p.extAccFreqOffset);
    pll::filter(0.0);
    event(EV_SLAVE_PLL_EXPLICIT_FREQ_SYNC);
}

void countTarget()
{
    if (++s->anomalies < TARGETS_IN_A_ROW) return event(EV_SLAVE_PLL_TARGETDIFF_UPDATED);
    s->anomalies = 0;
    s->preSteps = 0;
    pll::vars().extAccFreqOffset = 0.0;
    event(EV_SLAVE_PLL_REVERT_TO_EXPLICIT_FREQ_SYNC);
}

void proceedToLocked()
{
    if (pll::vars().targetDiff >= BAND_s) {      // signed: a slave that is early isn't moved here
        jump();
        event(EV_SLAVE_PLL_PROCEEDING_TO_LOCKED_W_JUMP);
    } else {
        event(EV_SLAVE_PLL_PROCEEDING_TO_LOCKED);
    }
    pll::changeSlaveState(SLAVE_PLL_Locked);
    pll::needs().tellIdl1Locked(true);
}

void pullIn(double phaseDiff)
{
    pll::Counters& c = s->c;
    if (pll::followTarget(c, phaseDiff, BAND_s, NEW_TARGET_s)) countTarget();
    else                                                       s->anomalies = 0;
    if (c.changeStateCounter > STABLE) proceedToLocked();
    else                               pll::filter(phaseDiff - pll::vars().targetDiff);
}

void unlocked(double phaseDiff)
{
    if (pll::takeStateChanged()) {
        *s = {};
        pll::vars().targetDiff = 0.0;
        pll::vars().extAccFreqOffset = 0.0;
        pll::needs().tellGpsOut(PLL_IS_NOT_TIME_LOCKED);
    }
    pll::Counters& c = s->c;
    if (pll::isUnreliable(c)) {
        event(EV_SLAVE_PLL_UNRELIABLE_MEASUREMENT);
    } else {
        if (c.samplesInUnlocked > FREE_RUNNING_AFTER) pll::needs().report(KVD_TUIIF_SLAVE_FREE_RUNNING);
        if (s->preSteps < PRE_STEPS) preStep(phaseDiff);
        else                         pullIn(phaseDiff);
    }
    ++c.samplesInUnlocked;
    s->previous = phaseDiff;
}

void locked(double phaseDiff)
{
    pll::Pll& p = pll::vars();
    pll::Counters& c = s->c;
    if (pll::takeStateChanged()) {
        c = {};
        pll::needs().tellGpsOut(PLL_IS_TIME_LOCKED);
    }
    if (isUpTo(phaseDiff, LOCKED_LIMIT_s)) {
        p.targetDiff = 0.0;
        c = {};
        return pll::filter(phaseDiff);
    }
    if (pll::isUnreliable(c)) return;
    pll::countBeyondLimit(c, phaseDiff, BAND_s, LOCKED_LIMIT_s);
    if (c.changeToOffsetLockedCounter > STABLE_LOCKED) {
        jump();
        c = {};                                  // what they counted has been taken out
        event(EV_SLAVE_PLL_JUMP_WITHIN_LOCKED);
    } else if (c.changeToUnlockedCounter > STABLE_LOCKED) {
        pll::changeSlaveState(SLAVE_PLL_Unlocked);
        pll::needs().tellIdl1Locked(false);
        event(EV_SLAVE_PLL_DEGRADING_TO_UNLOCKED);
    }
}

}  // namespace

void pll::controlIdl1(double phaseDiff)
{
    switch (vars().currSlaveState) {
    case SLAVE_PLL_Unlocked: return unlocked(phaseDiff);
    case SLAVE_PLL_Locked:   return locked(phaseDiff);
    default:                 return traceFaulty("KvdLoz6TuReg_slavePll_control", vars().currSlaveState);
    }
}
