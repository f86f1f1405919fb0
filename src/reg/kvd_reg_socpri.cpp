// Frequency and phase of a radio link on their way to the oscillator; the pause after a step of the
// counters; what a slave does after its master.
#include "reg/kvd_reg_socpri.h"
#include "reg/kvd_reg_socpri_int.h"

#include "base/kvd_math.h"
#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm_send.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/reg_sig.h"
#include "sig/tuiif_socpri_sig.h"
#include "base/frame_counter.h"

#include <cmath>
#include <cstdlib>
#include <utility>

namespace {

constexpr i32 GOOD_ppb = 5;
constexpr u8  GOOD_BELOW = 2;                    // in a row: one more is enough
constexpr double PPB = 1e-9;
constexpr u8  INVALID_TOLERATED = 10;            // in a row
constexpr OSTIME POSTPONED_ms = 5000;
constexpr double COUNTER_STEP_s = 1.0 / INCREMENTS_PER_SECOND;

struct State {
    KvdTimer continueTimer;
    u32 postponeReg = 0;
    u32 isPortRemembered = 0;
    u8  rememberedPort = 0;
    u8  validityCnt = 0;                         // invalid phases in a row
    u8  goodCount = 0;                           // good frequencies in a row
    const socpri::Needs* needs = nullptr;        // a test's own
};
ose::ModuleData<State> s;

constexpr socpri::Needs NEEDS = {
    .currentFrequency = tuHwIf_readCurrentFrequency,
    .adjustFrequency = tuHwIf_adjustFrequency,
    .sendFollowOcxoAdj = KvdLoz6TuIifAdm_sendSocpriSduFollowOcxoAdjInd,
    .pllControl = KvdLoz6TuReg_soCpriPll_control,
    .adjustTime = KvdLoz6TuReg_adjust_time,
    .phaseMeasAnalysisFailed = [] { REG_UPCALLS.socpriPhaseMeasAnalysisFailed(); },
    .answerContinuation = [](u32 status) { REG_UPCALLS.socpriAnswerContinuation(status); },
};

double picoseconds(u32 high, u32 low) { return (high * 4294967296.0 + low) * 1e-12; }

void changeFrequency(i32 less_ppb)
{
    socpri::needs().adjustFrequency(socpri::needs().currentFrequency() - less_ppb * PPB);
}

}  // namespace

const socpri::Needs& socpri::needs() { return s->needs != nullptr ? *s->needs : NEEDS; }
void socpri::setNeeds(const Needs* replacement) { s->needs = replacement; }
u8 socpri::validityCnt() { return s->validityCnt; }

double KvdLoz6TuReg_soCpriPhase(u32 trpDiffHigh, u32 trpDiffLow)
{
    return KvdLoz6Math_wrapSymmetric(picoseconds(trpDiffHigh, trpDiffLow), SFN_PERIOD_s);
}

// ---- frequency ----------------------------------------------------------------------------------

bool KvdLoz6TuReg_handleSoCpriFreqDiffMeas(i32 freqDiff, u32 freqDiffValid)
{
    socpri::LogRecord record = socpri::newRecord(SOCPRI_EV_FREQ_MEAS);
    record.freqDiff = freqDiff;
    record.freqDiffValid = freqDiffValid;
    socpri::write(record);
    if (freqDiffValid == 1) {
        if (std::abs(freqDiff) > GOOD_ppb) {
            s->goodCount = 0;
        } else {
            KvdLoz6TuReg_traceSoCpriLog(1);
            if (++s->goodCount > GOOD_BELOW) {
                s->goodCount = 0;
                return true;
            }
        }
        KVD_TRACE(TRACE_SOCPRI, TRACE_INFO, "Consecutive good freq measurements received: %u", s->goodCount);
        changeFrequency(freqDiff);
        socpri::needs().sendFollowOcxoAdj(static_cast<i16>(freqDiff));
    }
    KvdLoz6TuReg_traceSoCpriLog(freqDiffValid != 1 ? 1 : 0);
    return false;
}

// ---- phase --------------------------------------------------------------------------------------

namespace {

struct Phase {
    u32 high, low, valid;
    double calc;                                 // s, before reduction
    double diff;                                 // s
    socpri::Counters at;                         // when it came
};

/// The record of a phase, after what has been done with it.
void writePhase(const Phase& phase, u32 isRegulated, u32 keep)
{
    socpri::LogRecord record = socpri::newRecord(SOCPRI_EV_PHASE_MEAS, phase.at);
    record.trpDiffHigh = phase.high;
    record.trpDiffLow = phase.low;
    record.trpDiffValid = phase.valid;
    record.phaseDiffCalc = phase.calc;
    record.phaseDiff = phase.diff;
    record.relAbsDiff = std::fabs(phase.diff - record.targetDiff);
    record.iterationIsRegulated = isRegulated;
    socpri::write(record);
    KvdLoz6TuReg_traceSoCpriLog(keep);
}

void soCpriCheckPhaseDiffValidity(const Phase& phase)
{
    ++s->validityCnt;
    KVD_TRACE(TRACE_SOCPRI, TRACE_INFO,
              "%s(): Delay measurement invalid (%u. subsequent), ignoring measurement, no regulation",
              __func__, s->validityCnt);
    if (s->validityCnt <= INVALID_TOLERATED) return writePhase(phase, 0, 0);
    KVD_TRACE(TRACE_SOCPRI, TRACE_INFO,
              "%s() - Phase diff measurement validity threshold reached, regulation will be aborted",
              __func__);
    s->validityCnt = 0;
    socpri::needs().phaseMeasAnalysisFailed();
    writePhase(phase, 0, 1);
    socpri::needs().answerContinuation(PHASE_MEAS_PROBLEM);
}

}  // namespace

void KvdLoz6TuReg_handleSoCpriPhaseDiffMeas(u32 trpDiffHigh, u32 trpDiffLow, u32 trpDiffValid)
{
    KvdLoz6TuReg_countMeasurement(Z_SOCPRI_REF);
    Phase phase{trpDiffHigh, trpDiffLow, trpDiffValid, picoseconds(trpDiffHigh, trpDiffLow),
                KvdLoz6TuReg_soCpriPhase(trpDiffHigh, trpDiffLow), socpri::readCounters()};
    if (s->postponeReg == 1) {
        if (trpDiffValid != 1) phase.calc = phase.diff = 0.0;
        writePhase(phase, 0, 0);
        KVD_TRACE(TRACE_SOCPRI, TRACE_INFO,
                  "%s(): postponeReg flag is active, measurement will not be used for regulation", __func__);
        return;
    }
    if (trpDiffValid == 0) return soCpriCheckPhaseDiffValidity(phase);
    s->validityCnt = 0;
    socpri::needs().pllControl(phase.diff);
    double t_s = 0.0;
    if (!KvdLoz6TuReg_calcSampleTimeInterval(t_s))
        KVD_TRACE(TRACE_SOCPRI, TRACE_INFO,
                  "%s(): Unable to calculate sampling interval - the measStateVar will not be updated "
                  "with correct t_f",
                  __func__);
    writePhase(phase, 1, 0);
}

void KvdLoz6TuReg_resetSoCpriFreq() { s->goodCount = 0; }
void KvdLoz6TuReg_clearSoCpriValidityCnt() { s->validityCnt = 0; }

void KvdLoz6TuReg_resetSoCpriPhase() { KvdLoz6TuReg_SoCpriClearJump(); }

// ---- pause after a step -------------------------------------------------------------------------

void KvdLoz6TuReg_orderContinuedRegulationTimer()
{
    if (s->continueTimer.runs()) {
        KVD_TRACE(TRACE_SOCPRI, TRACE_INFO, "SoCPRI continued regulation tmo already started.");
        return;
    }
    if (!KvdTimer_start(s->continueTimer, POSTPONED_ms, KVD_TUSOCPRI_CONTINUE_POSTPONED_REGULATION_TMO)) {
        // Without its end the pause would last for ever.
        KVD_TRACE(TRACE_SOCPRI, TRACE_ERROR, "regulation not postponed, no timer");
        return;
    }
    KVD_TRACE(TRACE_SOCPRI, TRACE_INFO, "SoCPRI continued regulation tmo requested.");
    s->postponeReg = 1;
    KvdLoz6TuReg_pll_soCpriPostponeRegulation();
    KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_REGULATION_POSTPONED_AFTER_BFN_ADJ);
}

void KvdLoz6TuReg_onContinuePostponedRegulationTimeout()
{
    if (!KvdTimer_expired(s->continueTimer)) return;
    s->postponeReg = 0;
    KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_REGULATION_CONTINUED);
    if (s->isPortRemembered == 0) return;
    s->isPortRemembered = 0;
    REG_UPCALLS.socpriSelectRememberedPort(s->rememberedPort);
}

u32 KvdLoz6TuReg_postponeReg() { return s->postponeReg; }

void KvdLoz6TuReg_rememberSoCpriPort(u8 port)
{
    s->isPortRemembered = 1;
    s->rememberedPort = port;
}

u32 KvdLoz6TuReg_forgetSoCpriPort() { return std::exchange(s->isPortRemembered, 0); }

// ---- a slave follows ----------------------------------------------------------------------------

namespace {

bool isOnMaster(const char* caller)
{
    if (!KvdLoz6TuReg_isMaster()) return false;
    KVD_TRACE(TRACE_SOCPRI, TRACE_INFO, "%s(): This should not happen on mDU", caller);
    return true;
}

/// Whatever its size: no step of the master's is too small to be followed.
void setOffset(double c, double f)
{
    KvdLoz6TuReg_supervisionPhaseJump();
    const TimePair offset = KvdLoz6Math_longDouble(c, f);
    KvdLoz6TuReg_setOffset(offset.c, offset.f);
}

/// A negative step of less than that is (-1, 0.99...) in normal form, so the sum counts too.
bool isOverOneStep(const TimePair& t)
{
    return tuHwIf_isOverOneIncrement(t.c, t.f) && isBeyond(t.c + t.f, COUNTER_STEP_s);
}

}  // namespace

void KvdLoz6TuReg_handleSoCpriSDuFollowOCXOAdjInd(i32 freqDiff)
{
    KVD_TRACE(TRACE_SOCPRI, TRACE_INFO, "%s(): freqDiff = %d ppb", __func__, freqDiff);
    if (isOnMaster(__func__)) return;
    if (KvdLoz6TuReg_slavePllState() == SLAVE_PLL_Locked) {
        changeFrequency(freqDiff);
        KvdLoz6TuReg_pll_setExtAccFreqOffset(KvdLoz6TuReg_pll_extAccFreqOffset() - freqDiff * PPB);
        KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_OCXO_ACC_FREQ_UPDATED);
    } else {
        KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_OCXO_ADJ_IGNORED);
    }
    KvdLoz6TuReg_traceSoCpriLog(1);
}

void KvdLoz6TuReg_handleSoCpriSDuFollowSFCAdjInd(double delta0_c, double delta0_f)
{
    KVD_TRACE(TRACE_SOCPRI, TRACE_INFO, "%s(): delta0_c = %-17.16g, delta0_f = %-17.16g", __func__, delta0_c,
              delta0_f);
    if (isOnMaster(__func__)) return;
    const TimePair own = KvdLoz6TuReg_getOffset();
    setOffset(delta0_c, delta0_f);
    const TimePair step = KvdLoz6TuReg_getOffset();
    if (isOverOneStep(step)) {
        KVD_TRACE(TRACE_SOCPRI, TRACE_INFO, "%s: Adjust time (forwarded) with: delta0_c: %s delta0_f: %s",
                  __func__, TuCommon_text(step.c), TuCommon_text(step.f));
        socpri::needs().adjustTime(-step.c, -step.f);
    }
    setOffset(own.c, own.f);
    KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_SFC_ADJ_FOLLOWED);
    KvdLoz6TuReg_traceSoCpriLog(1);
}
