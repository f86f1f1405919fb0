// The loop of a slave on IDL2, whose coarse stage has moved the counter already: a sample for each
// sync data signal of the main processor.
#include "reg/kvd_reg_pll_int.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/idpi_sig.h"
#include "unit/kvd_unit_link.h"

#include <cmath>

namespace {

constexpr double FAR_s = 1e-7;                   // no loop brings this in: a jump, or no time lock
constexpr double NEAR_s = 2e-8;
constexpr u8  WINDOW = 20;                       // near samples before Locked
constexpr u8  LOST = 5;                          // more far samples than these leave Locked
constexpr u32 FINE_TIME_REACHED = 30;            // more good samples than these after a warm start
constexpr const char* CONTROL = "KvdLoz6TuReg_slavePll_control";

struct State {
    u8  near = 0;                                // samples of the window
    double nearSum = 0.0;                          // of their absolute phases, s
    u8  far = 0;                                 // in Locked, in a row
    u32 good = 0;                                // in Locked after a warm start
    u32 fineTimeReached = 0;
    u32 anomaly = 0;                             // one far sample has been dropped
};
ose::ModuleData<State> s;

const char* startTypeText()
{
    switch (pll::needs().startType()) {
    case KVD_BIRAIIF_RESTART_COLD: return "KVD_BIRAIIF_RESTART_COLD";
    case KVD_BIRAIIF_RESTART_WARM: return "KVD_BIRAIIF_RESTART_WARM";
    default:                       return "KVD_BIRAIIF_RESTART_NOT_AVAILABLE";
    }
}

/// Tells the port server, and keeps the status for the next start when it was told.
void sendClkStatus(u8 clkStatus, const char* failed)
{
    if (pll::needs().sendClkStatus(clkStatus) != 0) {
        KVD_TRACE(TRACE_PLL, TRACE_ERROR, "%s(): Unable to send %s - IDPI Server is not available.", CONTROL,
                  failed);
        return;
    }
    pll::needs().storeClkStatus(clkStatus, CONTROL);
}
void sendFine() { sendClkStatus(IDPI_CLK_STATUS_FINE_TIME_SYNCED, "IDPI_CLK_STATUS_FINE_TIME_SYNCED"); }
void sendCoarse() { sendClkStatus(IDPI_CLK_STATUS_COARSE_TIME_SYNCED, "IDPI_CLK_STATUS_COARSE_TIME_SYNCED"); }

/// The first far sample is taken for a jump of the master that hasn't been told yet; the second
/// gives the hardware back, so that frequency is synchronised anew.
void onFar(double phaseDiff, bool isLocked)
{
    if (s->anomaly == 0) {
        s->anomaly = 1;
        KVD_TRACE(TRACE_PLL, TRACE_INFO,
                  "%s() - Anomaly detected - Phase difference is out of tolerable limits (phaseDiff "
                  "= %-17.16g, limit = %-17.16g). Assuming master node jump, slave notification "
                  "pending - exiting function silently",
                  CONTROL, phaseDiff, FAR_s);
        return;
    }
    if (isLocked)
        KVD_TRACE(TRACE_PLL, TRACE_ERROR,
                  "%s() - Anomaly detected - Slave is in the Slave_PLL_Locked, yet its phase "
                  "difference is out of tolerable limits (phaseDiff = %-17.16g, limit = %-17.16g). "
                  "Restart type is %s LOZ LM will be suspended and handover to BASIC LM will be "
                  "initiated to retry frequency synchronization",
                  CONTROL, phaseDiff, FAR_s, startTypeText());
    else
        KVD_TRACE(TRACE_PLL, TRACE_ERROR,
                  "%s() - Anomaly detected - Slave has completed the coarse time adjustment, yet its "
                  "phase difference is out of tolerable limits (phaseDiff = %-17.16g, limit = "
                  "%-17.16g). LOZ LM will be suspended and handover to BASIC LM will be initiated to "
                  "retry frequency synchronization",
                  CONTROL, phaseDiff, FAR_s);
    s->anomaly = 0;
    pll::needs().unableToTimeLock();
}

/// First run of a state: its counters begin anew; fine time and a dropped sample belong to the whole loop.
void beginState()
{
    if (pll::vars().prevSlaveState == SLAVE_PLL_Uninitialized) *s = {};
    s->near = 0;
    s->nearSum = 0.0;
    s->far = 0;
    s->good = 0;
}

void clearWindow()
{
    s->near = 0;
    s->nearSum = 0.0;
}

void endWindow(double absPhase)
{
    if (absPhase <= s->nearSum / WINDOW) {
        pll::changeSlaveState(SLAVE_PLL_Locked);
        sendFine();
        return;
    }
    KVD_TRACE(TRACE_PLL, TRACE_INFO,
              "%s() - Last measurement within SLAVE_INITIAL_STATE_TRANSITION window is not below the "
              "window average (absolute values), criteria for entering SLAVE_PLL_LOCKED state not "
              "fulfilled, window parameters will be reset and another window will be observed",
              CONTROL);
    clearWindow();
}

void unlocked(double phaseDiff)
{
    if (pll::takeStateChanged()) {
        beginState();
        pll::vars().targetDiff = 0.0;
        pll::vars().extAccFreqOffset = 0.0;
        pll::needs().tellGpsOut(PLL_IS_NOT_TIME_LOCKED);
    }
    const double absPhase = std::fabs(phaseDiff);
    if (isBeyond(phaseDiff, FAR_s)) return onFar(phaseDiff, false);
    if (isWithin(phaseDiff, NEAR_s)) {
        ++s->near;
        s->nearSum += absPhase;
    } else {
        clearWindow();
    }
    if (s->near >= WINDOW) endWindow(absPhase);
    pll::filter(phaseDiff);
}

void countGood()
{
    if (pll::needs().startType() != KVD_BIRAIIF_RESTART_WARM || s->fineTimeReached != 0) return;
    ++s->good;
}

void onFineTime()
{
    s->good = 0;
    s->fineTimeReached = 1;
    if (pll::needs().isTimeSyncAsked()) sendFine();
    pll::needs().tellFineTime();
}

void locked(double phaseDiff)
{
    if (pll::takeStateChanged()) {
        beginState();
        pll::needs().tellGpsOut(PLL_IS_TIME_LOCKED);
    }
    if (isBeyond(phaseDiff, NEAR_s)) {
        ++s->far;
        if (isBeyond(phaseDiff, FAR_s) && pll::needs().startType() == KVD_BIRAIIF_RESTART_WARM) {
            onFar(phaseDiff, true);
            if (pll::vars().currSlaveState != SLAVE_PLL_Locked) return;   // the hardware was given back
        }
    } else {
        s->far = 0;
        countGood();
        pll::filter(phaseDiff);
    }
    if (s->far > LOST) {
        pll::changeSlaveState(SLAVE_PLL_Unlocked);
        s->good = 0;
        sendCoarse();
    }
    if (s->good > FINE_TIME_REACHED) onFineTime();
}

}  // namespace

void pll::controlIdl2(double phaseDiff)
{
    switch (vars().currSlaveState) {
    case SLAVE_PLL_Unlocked: return unlocked(phaseDiff);
    case SLAVE_PLL_Locked:   return locked(phaseDiff);
    default:                 return traceFaulty(CONTROL, vars().currSlaveState);
    }
}
