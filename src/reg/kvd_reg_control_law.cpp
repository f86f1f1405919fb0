#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr u32 FIX_SAMPLES = 60;             // samples of one averaging
constexpr double MEAN_STEP_MIN = 1e-6;      // decades a sample; below it the frequency is at rest
constexpr double HYST_STEPS_MAX = 15.0;
constexpr double HYST_FACTOR = 4.5;

constexpr double FREQUENCY_STEP_MAX = 1e-6;   // relative, removed in one step
constexpr double HORIZON = 62.1;              // s, of the dead-beat step
constexpr double HORIZON_DRIFT = 126.0 + 0.5 * (TEMP_TICK * TEMP_TICK);

constexpr u8 BEST = F_IX_LOCKED, WORST = F_IX_WORST;

bool sameSign(double a, double b) { return (a > 0.0 && b > 0.0) || (a < 0.0 && b < 0.0); }

}  // namespace

namespace control {

double logFrequencyDeviation(double x1, double P11)
{
    return std::log10(std::fabs(x1) + 3.0 * std::sqrt(P11));
}

void fixFilterStep(FixFilter& f, double log_f_dev)
{
    if (!std::isfinite(log_f_dev)) return;   // an exact zero has no logarithm to average
    if (f.first != 0) {
        f.last = log_f_dev;
        f.first = 0;
    }
    const double step = log_f_dev - f.last;
    ++f.count;
    f.stepSum += std::max(0.0, step);       // a falling step counts as a sample of 0, "not a number" too
    if (step > 0.0) {
        f.risingStepSum += step;
        ++f.risingCount;
    }
    f.last = log_f_dev;
    if (f.count < FIX_SAMPLES) return;

    f.meanStep = (f.stepSum / FIX_SAMPLES + f.meanStep) / 2.0;
    f.stepSum = 0.0;
    f.count = 0;
    f.meanRisingStep = f.risingCount > 1
                           ? (f.risingStepSum / f.risingCount + f.meanRisingStep) / 2.0
                           : f.meanRisingStep / 2.0;
    f.risingStepSum = 0.0;
    f.risingCount = 0;
    double n = 0.0;
    if (f.meanStep > MEAN_STEP_MIN)
        n = std::min(std::ceil(HYST_FACTOR * f.meanRisingStep / f.meanStep), HYST_STEPS_MAX);
    f.hyst = n * f.meanStep;
}

double fixDistance(const FixFilter& f, double log_f_dev, u8 f_ix, double f_lim_low, double f_lim_high)
{
    if (f_ix == BEST) return log_f_dev - std::log10(f_lim_high);
    return log_f_dev - std::log10(f_lim_low) + f.hyst;
}

u8 gradeOfDistance(double distance)
{
    const double grade = std::min<double>(BEST - std::ceil(distance), BEST);
    return static_cast<u8>(std::max<double>(WORST, grade));   // in this order "not a number" is the worst
}

bool timeIsLocked(const TimeGradeInput& in)
{
    return (in.t_acc < in.t_lim_low && in.knowsTime) || (in.t_acc < in.t_lim_high && in.t_ix >= 2);
}

u8 stateOfGrades(u8 f_ix, u8 t_ix, u8 t_ixOld, u8 present)
{
    switch (f_ix) {
    case F_IX_WORST: return FREQDRIFTING;
    case 2: return SYNCH1;
    case 3: return SYNCH2;
    case 4: return SYNCH3;
    case F_IX_LOCKED: break;
    default: KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s: wrong f_ix (%d)", "decideState", f_ix); return present;
    }
    if (t_ixOld <= 1) return FREQLOCKED;
    switch (t_ix) {
    case 1: return FREQLOCKED;
    case 2: return TIMELOCKED;
    case 3: return TRUETIME;
    default:
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s: wrong t_ix (%d)", "decideState", t_ix);
        return FREQLOCKED;
    }
}

double frequencyStep(double x1, double b)
{
    return -std::clamp(x1, -FREQUENCY_STEP_MAX, FREQUENCY_STEP_MAX) / b;
}

TimeSteering timeStep(double x0, double x1, double x2, double P11, double b, double xf_limit)
{
    TimeSteering t;
    t.du_t = -(x0 + HORIZON * x1 + HORIZON_DRIFT * x2) / (HORIZON * b);
    const double f_next = x1 + TEMP_TICK * x2;
    const double s = x0 >= 0.0 ? 1.0 : -1.0;
    t.du_l = (-s * (xf_limit - 3.0 * std::sqrt(P11)) - f_next) / b;
    if (sameSign(t.du_t, t.du_l))
        t.du = std::copysign(std::min(std::fabs(t.du_t), std::fabs(t.du_l)), t.du_t);
    else
        t.du = std::fabs(f_next + b * t.du_t) > xf_limit ? t.du_l : t.du_t;
    return t;
}

u32 nomDivOf(double D) { return toU32(KvdLoz6Math_roundHalfDown(D) - 1.0); }

DividerWords splitDivider(double D, u32 hardwareNomDiv, i64 M)
{
    const u32 nomDiv = isBeyond(D - hardwareNomDiv - 1.0, 1.0) ? nomDivOf(D) : hardwareNomDiv;
    const double fraction = D - nomDiv - 1.0;
    return {nomDiv, toI64(KvdLoz6Math_roundHalfDown(fraction * static_cast<double>(M)))};
}

u32 toU32(double x)
{
    const double notNegative = std::max(0.0, x);   // in this order "not a number" is 0
    return static_cast<u32>(std::min(notNegative, 4294967295.0));
}

i64 toI64(double x)
{
    constexpr double LIMIT = 9223372036854775808.0;
    if (std::isnan(x)) return 0;
    if (x >= LIMIT) return INT64_MAX;
    return static_cast<i64>(std::max(x, -LIMIT));
}

}  // namespace control
