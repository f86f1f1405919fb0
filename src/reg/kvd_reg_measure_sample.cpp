// From a latched edge to the record of the estimator.
#include "base/kvd_mgr_hwdiag_log.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "fifo/kvd_fifo_reg.h"
#include "hw/kvd_hwif.h"
#include "node/trace.h"
#include "ose/ose.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/ref_types.h"
#include "unit/kvd_ref_table.h"

#include <cmath>
#include <cstdio>

using measure::state;

// ---- interrupt dispatch -------------------------------------------------------------------------

namespace {

void serveReferenceEdge()
{
    if (!REG_UPCALLS.referenceEdge(KvdLoz6TuReg_selectedRef()))
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Measurement discarded: No reference selected.");
}

void serve100msTick()
{
    measure::State& s = state();
    if (s.diffCheckActive == 0) {
        s.diffCheckTicks = measure::TICKS_BETWEEN_DIFF_CHECKS;
    } else if (s.diffCheckTicks >= measure::TICKS_BETWEEN_DIFF_CHECKS) {
        s.diffCheckTicks = 0;
        KvdLoz6TuReg_handlePp100msInterupt();
    } else {
        ++s.diffCheckTicks;
    }
}

}  // namespace

void KvdLoz6TuReg_handleInterrupt(u32 pending)
{
    const u32 startUp = KvdLoz6TuReg_initiateState();
    if (startUp != TUREG_INIT_NOISY && startUp != TUREG_INIT) return;
    if ((pending & TU_INT_REF_CLK_INT) != 0) serveReferenceEdge();
    if ((pending & TU_100MS_INT) != 0) serve100msTick();
    if ((pending & TU_BFN_IN_INT) != 0) REG_UPCALLS.idlInterrupt();
}

// ---- the sample ---------------------------------------------------------------------------------

bool measure::isValidState(u8 regState, u8 managerRefType, u32 selectedRef, u32 prevSelectedRef)
{
    switch (regState) {
    case WARMUP:
    case FAILURE: return false;
    case UNKNOWN:
        return managerRefType == SOCPRI_REF
               || (selectedRef == TU_SR_NO_REF && prevSelectedRef == TU_SR_SOCPRI_REF);
    default: return true;
    }
}

bool KvdLoz6TuReg_isValidState()
{
    return measure::isValidState(KvdLoz6TuReg_regState(), KvdLoz6TuRef_selectedRef(),
                                 KvdLoz6TuReg_selectedRef(), KvdLoz6TuReg_prevSelectedRef());
}

namespace {

constexpr double NO_SAMPLE_YET = -1.0;       // t_c_last of a record without time

/// Line references come at 8 Hz; one edge in eight is measured.
bool isDecimated(u32 z_i) { return (z_i >= Z_EXT_REF && z_i <= Z_SDH_REF) || z_i == Z_ETH_REF; }

/// An edge that waited while the counter was stepped stands on the scale from before the step.
bool isBeforeStep(double age, double period)
{
    std::optional<double>& steppedAt_s = state().steppedAt_s;
    if (!steppedAt_s) return false;
    const double sinceStep = KvdLoz6Math_fmodSignY(state().var.t_f_last - *steppedAt_s, period);
    if (age >= sinceStep) return true;
    steppedAt_s.reset();
    return false;
}

/// True when this edge is left out.
bool decimate()
{
    constexpr u8 EDGES_A_SAMPLE = 8;
    u8& edges = state().decimation;
    edges = static_cast<u8>((edges + 1) % EDGES_A_SAMPLE);
    return edges != 0;
}

}  // namespace

bool KvdLoz6TuReg_handleRefClkInt(LatchedEdge& edge)
{
    if (!KvdLoz6TuReg_isValidState()) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Measurement discarded: Regulator not in valid state.");
        return false;
    }
    MeasStateVar& v = state().var;
    edge.z_i = KvdLoz6TuReg_measurementIndex(v.selectedRef);
    double period = 0.0, t_f_latched = 0.0;
    if (tuHwIf_readLatchedRefClock(period, t_f_latched) != 0) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "tuHwIf_getGpsFc failed");
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Measurement discarded: Reading latched value failed.");
        return false;
    }
    if (isDecimated(edge.z_i) && decimate()) return false;

    v.m[edge.z_i] += 1.0;
    if (!KvdLoz6TuReg_calcSampleTimeInterval(edge.t_s)) {
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR,
                  "handleRefClkInt: calcSampleTimeInterval failed - Measurement discarded.");
        REG_UPCALLS.halt();
        return false;
    }
    edge.time[0] = v.t_c_last;
    edge.time[1] = t_f_latched;
    KvdLoz6FifoReg_setLatchedTime(t_f_latched);
    double age = v.t_f_last - t_f_latched;
    if (age < 0) {                                // the counter wrapped between latch and read
        edge.time[0] -= period;
        age = (period - t_f_latched) + v.t_f_last;
    }
    constexpr double DEADLINE = 0.1;              // s, below the 8 Hz period
    if (age > DEADLINE) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Handle reference interupt deadline passed");
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Reference measurement discarded");
        KVD_TRACE(TRACE_TUREG, TRACE_INFO,
                  "Measurement discarded: Diff betw curr. and latched time too large.");
        return false;
    }
    if (isBeforeStep(age, period)) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Measurement discarded: Latched before the counter was stepped.");
        return false;
    }
    return true;
}

void KvdLoz6TuReg_counterStepped()
{
    double period = 0, t_f = 0;
    if (tuHwIf_readTime(period, t_f) == 0) state().steppedAt_s = t_f;
}

measure::SampleInterval measure::sampleInterval(double t_c_last, double t_f_last, double t_f, double period)
{
    if (t_c_last == NO_SAMPLE_YET) return {0.0, 0.0};
    const double d = t_f - t_f_last;
    const double t_c = d < -period / 2 ? t_c_last + period : t_c_last;   // the counter wrapped
    return {t_c, (t_c - t_c_last) + d};
}

namespace {

u32 now_ms()
{
    constexpr u32 US_PER_MS = 1000;
    return ose::get_ticks() * (ose::system_tick() / US_PER_MS);
}

/// The whole turns that the counter alone doesn't show, by the kernel's time: nobody looked at it for more
/// than half a turn while the oven was out of its limits, the hardware another's or the main processor away.
void addMissedTurns(measure::SampleInterval& sample, double period)
{
    const measure::State& s = state();
    if (!s.hasSampled) return;
    const double elapsed_s = (now_ms() - s.sampledAt_ms) / 1000.0;
    const double turns = std::round((elapsed_s - sample.t_s) / period);
    if (turns < 1.0) return;
    sample.t_c += turns * period;
    sample.t_s += turns * period;
}

void keepSampleTime(double t_c, double t_f)
{
    measure::State& s = state();
    s.var.t_c_last = t_c;
    s.var.t_f_last = t_f;
    s.sampledAt_ms = now_ms();
    s.hasSampled = true;
}

}  // namespace

bool KvdLoz6TuReg_calcSampleTimeInterval(double& t_s)
{
    double period = 0.0, t_f = 0.0;
    if (tuHwIf_readTime(period, t_f) != 0) return false;

    measure::State& s = state();
    MeasStateVar& v = s.var;
    if (v.t_c_last == NO_SAMPLE_YET) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "No previous sample time. Get historical data. Not implemented!");
    }
    measure::SampleInterval sample = measure::sampleInterval(v.t_c_last, v.t_f_last, t_f, period);
    addMissedTurns(sample, period);
    if (sample.t_s < 0) {
        char now[64], last[64];
        std::snprintf(now, sizeof now, "%s, %s", TuCommon_text(sample.t_c), TuCommon_text(t_f));
        std::snprintf(last, sizeof last, "%s, %s", TuCommon_text(v.t_c_last), TuCommon_text(v.t_f_last));
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Negative sampling interval length: t_c, t_f %s,", now);
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "t_c_last, t_f_last %s, ", last);
        KvdLoz6HwDiag_reportSamplingFailure();
        return false;
    }
    keepSampleTime(sample.t_c, t_f);
    t_s = sample.t_s;
    measure::setDiffCheckActive();
    s.diffCheckAfterJump = 0;
    return true;
}

void KvdLoz6TuReg_takeSampleTime()
{
    double period = 0.0, t_f = 0.0;
    if (tuHwIf_readTime(period, t_f) != 0) return;
    const MeasStateVar& v = state().var;
    measure::SampleInterval sample = measure::sampleInterval(v.t_c_last, v.t_f_last, t_f, period);
    addMissedTurns(sample, period);
    keepSampleTime(sample.t_c, t_f);
}

// ---- phase error --------------------------------------------------------------------------------

measure::PhaseError measure::phaseError(double t_mod, const double time[2], const double timeRef[2],
                                        TimePair delta0)
{
    const double c = time[0] - timeRef[0] - delta0.c;
    const double f = time[1] - timeRef[1] - delta0.f;
    const TimePair pair = KvdLoz6Math_ldMod(c, f, t_mod);
    double phase = time[0] - std::floor(time[1]);
    if (delta0.f == 0.0 && phase < 0.5) phase += 1.0;
    return {pair.c + pair.f, pair, phase};
}

TimePair measure::offsetForNewMod(double t_mod_old, double t_mod, const double time[2],
                                  const double timeRef[2], TimePair delta0)
{
    const double c = time[0] - timeRef[0] - delta0.c;
    const double f = time[1] - timeRef[1] - delta0.f;
    const TimePair before = KvdLoz6Math_ldMod(c, f, t_mod_old);
    const TimePair after = KvdLoz6Math_ldMod(c, f, t_mod);
    return {after.c - before.c, after.f - before.f};
}

void KvdLoz6TuReg_updateOffsetForNewMod(const double time[2], const double timeRef[2], double t_mod)
{
    const TimePair step = measure::offsetForNewMod(KvdLoz6TuReg_getMod(), t_mod, time, timeRef,
                                                   KvdLoz6TuReg_getOffset());
    KvdLoz6TuReg_adjustOffset(step.c, step.f);
    KvdLoz6TuReg_setMod(t_mod);
}

void KvdLoz6TuReg_calcZ(double t_mod, const double time[2], const double timeRef[2], double& z,
                        TimePair& zPair, double& phase)
{
    if (t_mod > KvdLoz6TuReg_getMod()) KvdLoz6TuReg_updateOffsetForNewMod(time, timeRef, t_mod);
    const measure::PhaseError error = measure::phaseError(t_mod, time, timeRef, KvdLoz6TuReg_getOffset());
    z = error.z;
    zPair = error.pair;
    phase = error.phase;
}

void KvdLoz6TuReg_signalBreakCheck(u32 z_i, double z, const TimePair& zPair)
{
    constexpr double BREAK = 6.25e-05;            // s
    constexpr u8 COMPENSATED_BELOW = 5;           // two a break, one back a good sample
    u8& refBreak = state().var.refBreak;
    if (std::fabs(z) <= BREAK) {
        if (refBreak > 0) --refBreak;
        return;
    }
    if (refBreak >= COMPENSATED_BELOW) return;    // the step is the reference's own: follow it
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Reference signal break detected, compensating. refBreak=%u, %s",
              refBreak, TuCommon_text(z));
    KvdLoz6TuReg_adjustOffset(zPair.c, zPair.f);
    KvdLoz6TuReg_setMeasR(0.0, z_i);
    refBreak = static_cast<u8>(refBreak + 2);
    KvdLoz6TuReg_reportPhaseJump(z_i, z);
}

void KvdLoz6TuReg_measUpdate(u32 z_i, double z, double t_s, double phase)
{
    constexpr u32 SUPERVISION_INTERVAL = 360, SUPERVISION_WINDOW = 30;   // measurements
    MeasStateVar& v = state().var;
    v.measRefData = {z, z_i, t_s, v.m[z_i], v.R_all[z_i]};
    v.R_all[z_i] = KvdLoz6TuReg_estimate(v.measRefData);
    KvdLoz6TuReg_frequencySupervision(SUPERVISION_INTERVAL, SUPERVISION_WINDOW, phase);
    if (KvdLoz6TuReg_f_ix() >= F_IX_LOCKED && KvdLoz6TuReg_isMaster()) KvdLoz6TuReg_writeHistory(false);
}
