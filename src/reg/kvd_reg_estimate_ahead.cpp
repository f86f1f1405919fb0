// Look-ahead of the filter, and the few places where something from outside pushes it.
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"

namespace {

constexpr double HISTORY_FIRST = 1714.2857142857142;  // ticks, one hour
constexpr u32    HISTORY_ROUNDS = 8;
constexpr double DAY = 86400.0;                       // s
constexpr double CALIBRATION_STEP = DAY / 2;
constexpr u32    CALIBRATION_ROUNDS = 31;             // the last one looks beyond 1300000 s
constexpr double POOR_FREQUENCY_VARIANCE = 1e-14;     // one sigma of 100 ppb

/// Grade of the frequency when nothing but time passes for t_s seconds. The grading filter and the stored
/// control learn nothing of it.
u8 gradeAfter(double t_s)
{
    const EstimateStateVar& v = estimator::state().var;
    const double u[2] = {0.0, 0.0};
    const Prediction p = KvdLoz6TuReg_predict(v.x_est, v.P_est, 0.0, u, v.T, v.T, t_s);
    return KvdLoz6TuReg_computeFix(p.x_pred, p.P_pred, 0);
}

}  // namespace

/// When all rounds pass the answer is the doubled time, one further than was looked at.
double KvdLoz6TuReg_lookAheadHistory()
{
    double h = HISTORY_FIRST;
    bool stopped = false;
    for (u32 round = 0; round < HISTORY_ROUNDS && !stopped; ++round) {
        const u8 f_ix = gradeAfter(h);
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Predicting state: after %-17.16g hours, state will be f_ix = %u",
                  h * TEMP_TICK / 3600.0, f_ix);
        if (f_ix < F_IX_LOCKED) stopped = true;
        else h *= 2.0;
    }
    if (stopped) h = h > HISTORY_FIRST ? h / 2.0 : 0.0;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Hours history is valid from now: %-17.16g", h * TEMP_TICK / 3600.0);
    return h;
}

double KvdLoz6TuReg_lookAheadCalibration()
{
    double t = 0.0;
    for (u32 round = 0; round < CALIBRATION_ROUNDS; ++round) {
        if (gradeAfter(t + CALIBRATION_STEP) != F_IX_LOCKED) break;
        t += CALIBRATION_STEP;
    }
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Days calibration is valid from now: %s", TuCommon_text(t / DAY));
    return t / DAY;
}

bool KvdLoz6TuReg_lookAheadSoonToExpire(double days)
{
    const bool soon = gradeAfter(days * DAY) != F_IX_LOCKED;
    if (soon) KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Soon to expire! %s", TuCommon_text(days));
    else      KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Not soon to expire! %s", TuCommon_text(days));
    return soon;
}

void KvdLoz6TuReg_fixFrequency()
{
    EstimateStateVar& v = estimator::state().var;
    if (!KvdLoz6TuReg_isMaster()) return;
    if (KvdLoz6TuReg_computeFix(v.x_est, v.P_est, 0) != F_IX_LOCKED) return;
    v.fixFreqMode = 1;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Setting P_est to get to correct frequency more quickly");
    v.P_est[7] = POOR_FREQUENCY_VARIANCE;
    estimator::control(1, Z_TEMP_REF);
}

void KvdLoz6TuReg_forceTimeOffsetHoldover()
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Setting delta0 to achieve timeOffset Holdover");
    KvdLoz6TuReg_setOffset(0.0, 1e-6);
}

void KvdLoz6TuReg_forceFrequencyHoldover()
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Setting P_est to achieve frequency Holdover");
    estimator::state().var.P_est[0] = regulator::TIME_UNKNOWN;
}

void KvdLoz6TuReg_forceFrequencyDrifting()
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Setting P_est to achieve frequency drifting");
    estimator::state().var.P_est[7] = POOR_FREQUENCY_VARIANCE;
}
