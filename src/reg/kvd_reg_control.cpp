#include "reg/kvd_reg_control.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_imprec.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/ref_types.h"
#include "unit/kvd_unit_link.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {

ose::ModuleData<control::State> s;

constexpr double OFFSET_GONE = 5e-7;   // s: below it the local scale counts as the reference's
constexpr u8 WITHOUT_TIME_MAX = 5;     // pulses: a receiver that aligns its own names no time for so long
constexpr double FIX_FREQUENCY_REACHED = 1.5e-8;

bool isTimeSteered(u8 regState)
{
    return regState == TIMELOCKED || regState == TRUETIME || regState == PREJUMPSTART
           || regState == PREJUMPHIST;
}

bool isWaitingForJump(u8 regState) { return regState == PREJUMPSTART || regState == PREJUMPHIST; }

/// A reference that the loops follow is selected, or was until now, or its loop holds over.
bool isLoopReference()
{
    if (KvdLoz6TuReg_pllIsHoldover()) return true;
    const u32 selected = KvdLoz6TuReg_selectedRef();
    const u32 shown = selected == TU_SR_NO_REF ? KvdLoz6TuReg_prevSelectedRef() : selected;
    return shown == TU_SR_GPSOSL_REF || shown == TU_SR_SOCPRI_REF;
}

/// Start on a GPS out sync link: the first time step may still be taken when nothing depends on
/// time yet.
void startOnGpsOsl()
{
    if (!KvdLoz6TuReg_isMaster() || KvdLoz6TuReg_coldRestart() == 0) {
        KvdLoz6TuReg_setRegState(FREQDRIFTING);
        KvdLoz6TuReg_pll_init(PLL_Unlocked);
        return;
    }
    switch (KvdLoz6TuReg_historyForPll()) {
    case 0:
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Valid historical data available. Entering PREJUMPHIST");
        KvdLoz6TuReg_setRegState(PREJUMPHIST);
        KvdLoz6TuReg_pll_init(PLL_PreJumpHist);
        return;
    case 1:
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Valid historical data not available. Entering PREJUMPSTART");
        break;
    default:
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Failed to read history file from flash. Entering PREJUMPSTART");
        break;
    }
    KvdLoz6TuReg_setRegState(PREJUMPSTART);
    KvdLoz6TuReg_pll_init(PLL_PreJumpStart);
}

void startOnIdl1()
{
    KvdLoz6TuReg_setRegState(FREQDRIFTING);
    // A loop that a change of role began during the warm-up changes no state here, and told its own before.
    if (KvdLoz6TuReg_slavePllState() == SLAVE_PLL_Unlocked) KvdLoz6TuIifAdm_reportRegState(FREQDRIFTING);
    KvdLoz6TuReg_slavePll_init(SLAVE_PLL_Unlocked);
    if (s->var.bbClockEnabled != 0) return;
    tuHwIf_enableBbClk(1);
    s->var.bbClockEnabled = 1;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Slave BBclock enabled");
}

void KvdLoz6TuReg_calc_t_ix(double x0, double P00)
{
    ControlStateVar& v = s->var;
    if (KvdLoz6TuReg_timeMode() != ABSOLUTE_TIME_LOCKING) {
        v.t_ix = 1;
        return;
    }
    const double t_acc = std::fabs(x0) + 3.0 * std::sqrt(P00);
    if (control::timeIsLocked({t_acc, v.t_lim_low, v.t_lim_high, v.t_ix, KvdLoz6TuReg_knowsTime()})) {
        v.t_ix = 2;
        const TimePair delta0 = KvdLoz6TuReg_getOffset();
        if (isWithin(delta0.c + delta0.f, OFFSET_GONE) && KvdLoz6TuReg_sourceTime()) {
            // Clearing an offset that is clear would mark a phase jump at every step.
            if (delta0.c != 0.0 || delta0.f != 0.0) KvdLoz6TuReg_setOffset(0.0, 0.0);
            v.t_ix = 3;
        }
    } else {
        v.t_ix = 1;
    }
    v.t_acc_report = control::toU32(std::floor(t_acc * 1e9 + 0.5));
    if (isLoopReference()) {
        KVD_TRACE(TRACE_TUREG, TRACE_3,
                  "KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd is not sent for PLL based reference");
    } else {
        KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(v.t_acc_report);
    }
}

/// Grades the estimate and derives regState. x[0] goes to 0 when it was folded into the offset.
void decideState(Vec6& x, const Mat6& P)
{
    ControlStateVar& v = s->var;
    const u8 f_ixOld = v.f_ix, t_ixOld = v.t_ix;
    v.f_ix = KvdLoz6TuReg_computeFix(x, P, 1);
    if (v.f_ix == F_IX_LOCKED) {
        if (v.t_ix == 1 && f_ixOld == F_IX_LOCKED && KvdLoz6TuReg_adjustOffset(0.0, x[0])) {
            KVD_TRACE(TRACE_TUREG, TRACE_3, "Adjust i control: x_est[P11_61]");
            x[0] = 0.0;
        }
        KvdLoz6TuReg_calc_t_ix(x[0], P[0]);
    } else if (v.f_ix < F_IX_LOCKED) {
        v.t_ix = 1;
    }
    if (isWaitingForJump(v.regState)) return;   // left by the loop alone

    const u8 wanted = control::stateOfGrades(v.f_ix, v.t_ix, t_ixOld, v.regState);
    if (wanted == v.regState) return;
    KvdLoz6TuReg_setRegState(wanted);
    KvdLoz6TuReg_setHistCountDown(0.0);
    if (f_ixOld < F_IX_LOCKED && v.f_ix >= F_IX_LOCKED) KvdLoz6TuReg_setCalibrationCountDown(0.0);
}

double steerFrequency(const Vec6& x, double b, u8 timeMode)
{
    const double du = control::frequencyStep(x[1], b);
    if (timeMode == FREQUENCY_LOCKING) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "mode = frequency locking");
        KVD_TRACE(TRACE_TUREG, TRACE_3, "du[21_21] %-16.17g", du);
        KVD_TRACE(TRACE_TUREG, TRACE_3, "U[21_21] %-16.17g", s->var.U[1]);
    } else {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "du[1] %-16.17g", du);
        KVD_TRACE(TRACE_TUREG, TRACE_3, "U[1] %-16.17g", s->var.U[1]);
        KVD_TRACE(TRACE_TUREG, TRACE_3, "t_s %-16.17g", KvdLoz6TuReg_estimatePar().t_s);
    }
    return du;
}

double steerTime(const Vec6& x, const Mat6& P, double b)
{
    const control::TimeSteering t = control::timeStep(x[0], x[1], x[2], P[7], b, s->var.xf_limit);
    KVD_TRACE(TRACE_TUREG, TRACE_3, "xf_limit %-16.17g", t.du_l);
    if (KvdLoz6TuReg_jumpState() == JUMP_NEEDED && s->var.regState == TIMELOCKED) KvdLoz6TuReg_Jump();
    return t.du;
}

/// Divider step of a master.
double steer(const Vec6& x, const Mat6& P, double b)
{
    const u8 timeMode = KvdLoz6TuReg_timeMode();
    if (timeMode == ABSOLUTE_TIME_LOCKING && isTimeSteered(s->var.regState)) return steerTime(x, P, b);
    if (timeMode == ABSOLUTE_TIME_LOCKING || timeMode == FREQUENCY_LOCKING)
        return steerFrequency(x, b, timeMode);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "KvdLoz6TuReg_controller: Strange mode ");
    return 0.0;
}

enum class Path : u8 { Regulate, OutputOnly, Leave };

/// What the step may do, by regState and reference; starts the loops that follow a reference
/// themselves.
Path choosePath()
{
    const bool idl2Slave = regulator::isIdl2Slave();
    const u32 selected = KvdLoz6TuReg_selectedRef();
    if (s->var.regState == FAILURE) {
        if (KvdLoz6TuReg_isMaster() || idl2Slave) KvdLoz6TuReg_setRegState(WARMUP);
        return Path::OutputOnly;
    }
    if (s->var.regState == WARMUP) {
        if (selected == TU_SR_GPSOSL_REF) {
            startOnGpsOsl();
            return Path::OutputOnly;
        }
        if (!KvdLoz6TuReg_isMaster() && KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_1) {
            startOnIdl1();
            return Path::Leave;
        }
        if (idl2Slave) return Path::OutputOnly;
    }
    if (selected == TU_SR_SOCPRI_REF) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Ignore control function for SoCPRI");
        return Path::Leave;
    }
    return Path::Regulate;
}

void writeTransition(u8 regState)
{
    control::State& st = *s;
    if (st.transitionCount == control::TRANSITIONS_MAX) {
        auto* const first = std::begin(st.transitions);
        std::move(std::next(first), std::end(st.transitions), first);
        --st.transitionCount;
    }
    const node::CalendarTime now = node::platform().calendar();
    const DateTime d = TuCommon_secondsToDate(now.seconds);
    st.transitions[st.transitionCount++] = {d.second, d.minute, d.hour, d.day, d.month, d.year,
                                            static_cast<i32>(now.microseconds), {0, 0}, regState};
}

}  // namespace

namespace control {

State& state() { return *s; }

void storeRegState(u8 regState)
{
    if (regState == s->var.regState) return;
    s->var.regState = regState;
    writeTransition(regState);
}

}  // namespace control

const ControlStateVar& KvdLoz6TuReg_controlStateVar() { return s->var; }

ControlResult KvdLoz6TuReg_controller(const Vec6& x, const Mat6& P, bool doControl, [[maybe_unused]] u32 z_i)
{
    ControlStateVar& v = s->var;
    const double b = tuHwIf_calcOcxoGain(v.U[1]);
    double du = 0.0;
    Vec6 own = x;

    const Path path = choosePath();
    if (path == Path::Leave) return {{0.0, 0.0}, b, x[0]};
    double U1 = v.U[1];
    if (path == Path::Regulate) {
        if (KvdLoz6TuReg_isMaster()) {
            decideState(own, P);
            du = steer(own, P, b);
            U1 += du;
        }
        if (KvdLoz6TuReg_dualConfigurationMode() != 0) KvdLoz6TuReg_sendTimeData();
    }
    if (doControl) KvdLoz6TuReg_writeDiv(U1);
    KvdLoz6TuReg_recoveryEvent(3);
    v.b = b;
    v.du[0] = 0.0;
    v.du[1] = du;
    return {{0.0, du}, b, own[0]};
}

u8 KvdLoz6TuReg_computeFix(const Vec6& x, const Mat6& P, int update)
{
    ControlStateVar& v = s->var;
    const double log_f_dev = control::logFrequencyDeviation(x[1], P[7]);
    if (update != 0) control::fixFilterStep(v.fix, log_f_dev);
    const double distance = control::fixDistance(v.fix, log_f_dev, v.f_ix, v.f_lim_low, v.f_lim_high);
    v.f_acc_report = control::toU32(std::pow(10.0, log_f_dev) * 1e9 + 0.5);

    if (KvdLoz6TuReg_estimateStateVar().fixFreqMode == 0) return control::gradeOfDistance(distance);
    if (KvdLoz6TuReg_isMaster() && log_f_dev < std::log10(FIX_FREQUENCY_REACHED)) {
        estimator::clearFixFreqMode();
        KvdLoz6TuReg_setHistCountDown(0.0);
    }
    return 5;
}

void KvdLoz6TuReg_writeDiv(double U1)
{
    ControlStateVar& v = s->var;
    double D = U1;
    const double wander = tuHwIf_wanderOffset();
    if (wander != 0.0) {
        const double D0 = tuHwIf_factoryDivider();
        D = D0 * (U1 / D0 + wander);
    }
    const u32 hardwareNomDiv = tuHwIf_readNominalDivisor();
    const control::DividerWords w = control::splitDivider(D, hardwareNomDiv, v.M);
    v.nomDiv = w.nomDiv;
    v.K = w.K;
    if (w.nomDiv != hardwareNomDiv) tuHwIf_writeNominalDivisor(w.nomDiv);
    tuHwIf_writeDeltaSigmaK(w.K);
    tuHwIf_enableDeltaSigma();
    v.U[1] = U1;
}

void KvdLoz6TuReg_setRegState(u8 regState)
{
    const u8 before = s->var.regState;
    if (regState == before) return;
    control::storeRegState(regState);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Report regState %s -> %s", KvdLoz6TuReg_regStateText(before),
              KvdLoz6TuReg_regStateText(regState));
    KvdLoz6TuReg_regStateChanged(before, regState);
}

void KvdLoz6TuReg_forceRegState(u8 regState) { control::storeRegState(regState); }

u8     KvdLoz6TuReg_regState() { return s->var.regState; }
u8     KvdLoz6TuReg_f_ix() { return s->var.f_ix; }
u8     KvdLoz6TuReg_t_ix() { return s->var.t_ix; }

void KvdLoz6TuReg_setSourceTime(bool counts)
{
    if (counts)                                    s->withoutTime = 0;
    else if (s->withoutTime <= WITHOUT_TIME_MAX) ++s->withoutTime;
}
bool KvdLoz6TuReg_sourceTime() { return s->withoutTime <= WITHOUT_TIME_MAX; }
double KvdLoz6TuReg_Div() { return s->var.U[1]; }

bool KvdLoz6TuReg_isLocked()
{
    switch (s->var.regState) {
    case FREQLOCKED: case TIMELOCKED: case TRUETIME:
        return true;
    case SYNCH1: case SYNCH2: case SYNCH3:
        return KvdLoz6TuIifAdm_forceLockedTimerRuns();
    default:
        return false;
    }
}

void KvdLoz6TuReg_forceTimeDrift()
{
    KvdLoz6TuReg_setMod(0.0);
    s->var.t_ix = 1;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Setting Time Drift with Coli Command");
}

void KvdLoz6TuReg_controlPrintInfo()
{
    const ControlStateVar& v = s->var;
    node::shellPrintf("\n***** Control *****\n   regState             : %s (%u)\n",
                      KvdLoz6TuReg_regStateText(v.regState), v.regState);
    node::shellPrintf("   f_ix, t_ix           : %u, %u\n   U[1]                 : %-16.17g\n",
                      v.f_ix, v.t_ix, v.U[1]);
    node::shellPrintf(
        "   nomDiv, K, M         : %u, %lld, %lld\n   du[1]                : %-16.17g\n", v.nomDiv,
        static_cast<long long>(v.K), static_cast<long long>(v.M), v.du[1]);
    node::shellPrintf(
        "   b                    : %-16.17g\n   f_lim low, high      : %-16.17g, %-16.17g\n", v.b,
        v.f_lim_low, v.f_lim_high);
    node::shellPrintf(
        "   t_lim low, high      : %-16.17g, %-16.17g\n   xf_limit             : %-16.17g\n",
        v.t_lim_low, v.t_lim_high, v.xf_limit);
    node::shellPrintf(
        "   hyst                 : %-16.17g\n   f_acc, t_acc         : %u ppb, %u ns\n", v.fix.hyst,
        v.f_acc_report, v.t_acc_report);
    node::shellPrintf("   counters             : %u, %u, %u\n   BB clock enabled     : %u\n",
                      v.initJumpCounter, v.startUpCounter, v.lockedCounter, v.bbClockEnabled);
    for (u32 i = 0; i < s->transitionCount; ++i) {
        const control::Transition& t = s->transitions[i];
        node::shellPrintf("   %04d-%02d-%02d %02d:%02d:%02d  %s\n", t.year, t.month, t.day, t.hour, t.minute,
                          t.second, KvdLoz6TuReg_regStateText(static_cast<u8>(t.regState)));
    }
}
