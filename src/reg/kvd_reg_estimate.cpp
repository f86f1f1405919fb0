#include "reg/kvd_reg_estimate.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "fifo/kvd_fifo_proc.h"
#include "fifo/kvd_fifo_reg.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_imprec.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pll.h"
#include "sig/ref_types.h"

#include <cmath>
#include <cstdio>

namespace {

ose::ModuleData<estimator::State> s;

constexpr Vec6 H = {1.0, 0.0, 0.0, 0.0, 0.0, 0.0};   // a measurement sees the time offset

// Squared distance, in variances, beyond which a measurement is unreliable.
constexpr double UNRELIABLE = 9.0;
constexpr u8 SAME_SIGN_LIMIT = 75;   // outliers of one sign that a line reference may have in a row
constexpr u32 STEADY_REFUSALS = 900; // in a row, one a second, after which the estimate is what is wrong
constexpr double OWN_OFFSET = 0.5;   // s, what a clock may be off; whole seconds are a source's
constexpr double R_TOO_SMALL = 1e-23;      // s^2, nothing is that good
constexpr double R_NEGLIGIBLE = 1e-12;     // of HPH: the update leaves rounding only

const char* degrStateText(u8 degrState)
{
    switch (degrState) {
    case KVD_TUIIF_NOT_VALID:    return "KVD_TUIIF_NOT_VALID";
    case KVD_TUIIF_REF_OK:       return "KVD_TUIIF_REF_OK";
    case KVD_TUIIF_REF_DEGRADED: return "KVD_TUIIF_REF_DEGRADED";
    case KVD_TUIIF_REF_LTR:      return "KVD_TUIIF_REF_LTR";
    default:                     return "UNKNOWN";
    }
}

bool isInterUnitLink(u32 z_i) { return z_i == Z_IDL1_LOZ6 || z_i == Z_IDL2_LOZ6; }

void phaseJump(u32 z_i, double z)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "phase jump !!");
    estimator::resetTimeRow(s->estimatePar.P_pred);   // which P_est becomes
    s->var.degrd = 0;
    KvdLoz6TuReg_reportPhaseJump(z_i, z);
}

double unreliableAbove(u32 z_i, double S) { return UNRELIABLE * (S + estimator::baseVariance(z_i)); }
bool isUnreliable(double distance, double limit) { return distance * distance > limit; }

/// The next measurement begins a time scale at 0. An estimate that is farther from that than a measurement
/// may be, as after minutes without one, would refuse all of them.
void timeJump(u32 z_i, double S)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "phase jump on %s reference. Set t_mod = 0.",
              KvdLoz6TuReg_measurementText(z_i));
    s->var.degrd = 0;
    KvdLoz6TuReg_setMod(0.0);
    if (isUnreliable(s->estimatePar.x_pred[0], unreliableAbove(z_i, S)))
        estimator::resetTimeRow(s->estimatePar.P_pred);
}

void trackResidualSign(double resid)
{
    EstimateStateVar& v = s->var;
    if (v.residualSignConstant == 0) return;
    const u32 sign = std::signbit(resid) ? 0 : 1;
    if (v.degrd == 1) v.residualSign = sign;
    else if (v.residualSign != sign) v.residualSignConstant = 0;
}

/// One more unreliable measurement of a reference that isn't degraded yet. True when it is used all
/// the same.
bool useOutlier(u32 z_i, const estimator::Residual& r)
{
    EstimateStateVar& v = s->var;
    const estimator::OutlierRule rule = estimator::outlierRule(z_i);
    ++v.degrd;
    if (rule.outlierClass == estimator::OutlierClass::Sign) trackResidualSign(r.resid);
    if (v.degrd <= rule.limit) return false;

    switch (rule.outlierClass) {
    case estimator::OutlierClass::Reset: phaseJump(z_i, r.resid); return false;
    case estimator::OutlierClass::TMod:  timeJump(z_i, r.S);      return false;
    case estimator::OutlierClass::Degrade:
    case estimator::OutlierClass::Sign:  break;
    }
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "measReliability: MAXDISCARDED (%d) reached (%d)", rule.limit,
              v.degrd);
    if (rule.outlierClass == estimator::OutlierClass::Sign && v.residualSignConstant != 0
        && v.degrd <= SAME_SIGN_LIMIT) {
        // A frequency error of the line pulls every residual to one side; it has to be followed.
        KVD_TRACE(TRACE_TUREG, TRACE_INFO,
                  "measReliability: MAXDISCARDED with the same sign. Use measurement.");
        return true;
    }
    KvdLoz6TuReg_setDegrState(KVD_TUIIF_REF_DEGRADED);
    return false;
}

/// One more unreliable measurement of a degraded reference. An estimate that took an oven's warming for its
/// drift runs off ever faster and would refuse a good receiver for ever: refusals that lie close to each
/// other speak for the reference. The next one is judged against an estimate that knows nothing.
void refuseDegraded(u32 z_i, double resid, double limit)
{
    const bool isSteady = !isUnreliable(resid - s->lastRefused, limit) && isWithin(resid, OWN_OFFSET);
    s->lastRefused = resid;
    s->steadyRefusals = isSteady ? s->steadyRefusals + 1 : 0;
    if (s->steadyRefusals < STEADY_REFUSALS
        || estimator::outlierRule(z_i).outlierClass != estimator::OutlierClass::Degrade)
        return;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s degraded, and steady: the estimate begins anew",
              KvdLoz6TuReg_measurementText(z_i));
    s->steadyRefusals = 0;
    KvdLoz6TuReg_restartEstimate();
    s->estimatePar.x_pred = s->var.x_est;
    s->estimatePar.P_pred = s->var.P_est;
}

/// True when the measurement may update the filter.
bool measReliability(u32 z_i, const estimator::Residual& r)
{
    EstimateStateVar& v = s->var;
    if (z_i != v.prevRef) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "measReliability: New ref: %s (prev: %s)",
                  KvdLoz6TuReg_measurementText(z_i), KvdLoz6TuReg_measurementText(v.prevRef));
        v.degrd = 0;
        v.degrState = KVD_TUIIF_REF_OK;
        v.residualSign = 2;
        v.residualSignConstant = 1;
        v.prevRef = z_i;
    }
    const double limit = unreliableAbove(z_i, r.S);
    if (isUnreliable(r.resid, limit)) {
        if (v.degrState == KVD_TUIIF_REF_DEGRADED) {
            KVD_TRACE(TRACE_TUREG, TRACE_3,
                      "measReliability: Measurement unreliable (%f > %f) for degraded reference",
                      r.resid * r.resid, limit);
            refuseDegraded(z_i, r.resid, limit);
            return false;
        }
        s->steadyRefusals = 0;
        return useOutlier(z_i, r);
    }
    KVD_TRACE(TRACE_TUREG, TRACE_3, "meas:      RELIABLE!");
    v.degrd = 0;
    v.residualSignConstant = 1;
    v.residualSign = 2;
    // Packets whose delays vary degrade their reference behind each measurement: not told good in between.
    if (!KvdLoz6TuReg_pdvIsHigh()) KvdLoz6TuReg_setDegrState(KVD_TUIIF_REF_OK);
    return true;
}

/// The divider belongs to the loops while they follow their reference or hold its frequency, however often
/// nothing was selected since, a slave's even when its link is deselected: the filter's own divider is that
/// of its start then.
bool kalmanSteers()
{
    if (!KvdLoz6TuReg_isMaster() && KvdLoz6TuReg_slavePllState() != SLAVE_PLL_Uninitialized) return false;
    const u32 selected = KvdLoz6TuReg_selectedRef();
    const bool onLoop = selected == TU_SR_GPSOSL_REF || selected == TU_SR_SOCPRI_REF
                        || selected == TU_SR_IDL1_REF || selected == TU_SR_IDL2_REF;
    if (onLoop && KvdLoz6TuReg_regState() != WARMUP) return false;
    return selected != TU_SR_NO_REF || !KvdLoz6TuReg_pllIsHoldover();
}

void temperatureStep(double T_new, double t_s, FifoRegStep& step)
{
    EstimateStateVar& v = s->var;
    const double T_old = v.T;
    v.T = T_new;
    const Prediction p = KvdLoz6TuReg_predict(v.x_est, v.P_est, v.b, v.u_tf, T_old, T_new, t_s);
    v.x_est = p.x_pred;
    v.P_est = p.P_pred;
    v.Q = p.Q;
    step.x_pred = p.x_pred;
    step.P_pred = p.P_pred;
}

/// Returns the adapted variance.
double referenceStep(const MeasRefData& o, FifoRegStep& step)
{
    EstimateStateVar& v = s->var;
    EstimatePar& par = s->estimatePar;
    const bool master = KvdLoz6TuReg_isMaster();
    if (!master && isInterUnitLink(o.z_i)) {
        v.slaveR = o.R;
        v.P_est[7] = std::max(v.P_est[7], o.R);
    }
    const Prediction p = KvdLoz6TuReg_predict(v.x_est, v.P_est, v.b, v.u_tf, v.T, v.T, o.t_s);
    par.x_pred = p.x_pred;
    par.P_pred = p.P_pred;
    v.Q = p.Q;
    step.x_pred = p.x_pred;
    step.P_pred = p.P_pred;

    const estimator::Residual r = estimator::covarianceResidual(H, par.x_pred, par.P_pred, o.z, o.R);
    const double R_new = estimator::adjustCovariance(o.z_i, estimator::baseVariance(o.z_i), o.m, o.R, r);

    const bool wanted = master ? measReliability(o.z_i, r) : true;
    if (wanted && std::fabs(R_new) >= R_TOO_SMALL) {
        const estimator::Update u = estimator::completeUpdate(H, par.x_pred, par.P_pred, r.S, r.resid);
        v.x_est = u.x_est;
        v.P_est = u.P_est;
        step.K = u.K;
        KvdLoz6TuReg_recoveryWatch(o.z);
        if (o.R < R_NEGLIGIBLE * r.HPH) v.P_est[0] = o.R;
    } else {
        v.x_est = par.x_pred;
        v.P_est = par.P_pred;
    }
    return R_new;
}

/// What the log is to say of the step, as far as it is known before.
FifoRegStep stepOf(const MeasRefData& o)
{
    const TimePair t = KvdLoz6TuReg_getLastTime();
    FifoRegStep step{.z_i = o.z_i, .c = t.c, .f = t.f, .z = o.z, .R = o.R, .m = o.m};
    TuCommon_timeStamp(step.time);
    return step;
}

}  // namespace

namespace estimator {

State& state() { return *s; }

void resetTimeRow(Mat6& P)
{
    for (u32 i = 0; i < 6; ++i) {
        P[i] = 0.0;
        P[i * 6] = 0.0;
    }
    P[0] = regulator::TIME_UNKNOWN;
}

void control(bool doControl, u32 z_i)
{
    EstimateStateVar& v = s->var;
    const ControlResult c = KvdLoz6TuReg_controller(v.x_est, v.P_est, doControl, z_i);
    v.u_tf[0] = c.u[0];
    v.u_tf[1] = c.u[1];
    v.b = c.b;
    v.x_est[0] = c.x0;
}

void clearFixFreqMode() { s->var.fixFreqMode = 0; }

}  // namespace estimator

const EstimateStateVar& KvdLoz6TuReg_estimateStateVar() { return s->var; }
const EstimatePar& KvdLoz6TuReg_estimatePar() { return s->estimatePar; }

Prediction KvdLoz6TuReg_predict(const Vec6& x, const Mat6& P, double b, const double u[2], double T_old,
                                double T_new, double t_s)
{
    const bool testMode = KvdLoz6TuReg_isMaster() && KvdLoz6TuReg_testMode() != 0;
    return estimator::predict(x, P, b, u, T_old, T_new, t_s,
                              {s->var.var_G, s->var.var_F, s->initialFrequencyDrift, testMode});
}

double KvdLoz6TuReg_estimate(const MeasRefData& observation)
{
    EstimateStateVar& v = s->var;
    ++v.measCount;
    s->estimatePar.t_s = observation.t_s;
    FifoRegStep step = stepOf(observation);
    double R_new = 0.0;
    if (observation.z_i == Z_TEMP_REF) temperatureStep(observation.z, observation.t_s, step);
    else R_new = referenceStep(observation, step);
    v.prev_x_est = v.x_est;
    step.x_est = v.x_est;
    step.P_est = v.P_est;
    estimator::control(kalmanSteers(), observation.z_i);
    step.Uf = KvdLoz6TuReg_Div();
    step.duf = v.u_tf[1];
    KvdLoz6FifoReg_add(step);
    if (observation.z_i != Z_TEMP_REF) estimator::recordReferenceSwitch(observation.z);
    return R_new;
}

void KvdLoz6TuReg_estimateInitiate(const Vec6& x, const Mat6& P, double T, const double u[2], double b)
{
    EstimateStateVar& v = s->var;
    v = EstimateStateVar{};
    v.b = b;
    v.u_tf[0] = u[0];
    v.u_tf[1] = u[1];
    v.P_est = P;
    v.T = T;
    v.x_est = x;
    KvdLoz6TuReg_recoveryInitiate();
}

void KvdLoz6TuReg_setSystemNoise(double var_G, double var_F)
{
    s->var.var_G = var_G;
    s->var.var_F = var_F;
    // The trace has one place for both values.
    char text[64];
    std::snprintf(text, sizeof text, "%-16.17g, %-16.17g", var_G, var_F);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "var_G = , var_F = %s", text);
}

void KvdLoz6TuReg_loadTemperatureCoefficients(const double coeff[3])
{
    EstimateStateVar& v = s->var;
    for (u32 i = 3; i < 6; ++i) {
        v.x_est[i] = coeff[i - 3];
        for (u32 j = 0; j < 6; ++j) {
            v.P_est[i * 6 + j] = 0.0;
            v.P_est[j * 6 + i] = 0.0;
        }
    }
}

void KvdLoz6TuReg_clearDegradationCounter()
{
    s->var.degrd = 0;
    s->var.degrState = KVD_TUIIF_REF_OK;
}

void KvdLoz6TuReg_resetTimeUncertainty() { estimator::resetTimeRow(s->var.P_est); }

void KvdLoz6TuReg_estimateReinitiate(const double coeff[3])
{
    EstimateStateVar& v = s->var;
    v.x_est = {0.0, 0.0, 0.0, coeff[0], coeff[1], coeff[2]};
    v.P_est = regulator::diagonal(regulator::P_COLD);
}

void KvdLoz6TuReg_restartEstimate()
{
    double coeff[3];
    KvdLoz6TuReg_temperatureCoefficients(coeff);
    KvdLoz6TuReg_estimateReinitiate(coeff);
}

void KvdLoz6TuReg_setInitialFrequencyDrift(u8 initCnt)
{
    s->initialFrequencyDrift = estimator::initialFrequencyDrift(initCnt, s->initialFrequencyDrift);
    KVD_TRACE(TRACE_TUREG, TRACE_3, "set initialFrequencyDrift: %e (initCnt=%u)", s->initialFrequencyDrift,
              initCnt);
}

double KvdLoz6TuReg_initialFrequencyDrift() { return s->initialFrequencyDrift; }

void KvdLoz6TuReg_setDegrState(u8 degrState)
{
    const u8 before = s->var.degrState;
    if (degrState == before) return;
    s->var.degrState = degrState;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Report refState: degrState %s -> %s", degrStateText(before),
              degrStateText(degrState));
    KvdLoz6TuIifAdm_updateDegraded(degrState);
    if (degrState == KVD_TUIIF_REF_DEGRADED) KvdLoz6Fifo_dump();
}

u8 KvdLoz6TuReg_degrState() { return s->var.degrState; }

void KvdLoz6TuReg_mergeOtherEstimate(double x1, double x2, double P11)
{
    EstimateStateVar& v = s->var;
    v.x_est[0] += x1;
    v.x_est[1] += x2;
    v.P_est[7] += P11;
    v.P_est[7] += v.slaveR;
}
