// kvd_reg_estimate_int.h - What the sources of the estimator share: its state, and its arithmetic
// as functions of their arguments. Nobody else includes it, but for the tests.
// Owner   kvd_reg_estimate*.cpp; the control law ends the fix frequency mode by clearFixFreqMode.
// Units   seconds, relative frequency, normalised temperature.
// Errors  warnings are traced where they arise; the arithmetic goes on.
#pragma once
#include "node/platform.h"
#include "reg/kvd_reg_estimate.h"

namespace estimator {

/// One change of the active reference: both ends as the last measurement before and the first
/// after.
struct ReferenceSwitch {
    u32 fromFroId, fromFroClassNo;
    u32 toFroId, toFroClassNo;
    double phaseDifference;            // s, z after less z before
    node::CalendarTime fromTime, toTime;
};

struct State {
    EstimateStateVar var{};
    EstimatePar estimatePar{};
    double initialFrequencyDrift = 0;  // extra drift noise while the start-up counter runs
    double lastRefused = 0;            // residual of a degraded reference, s
    u32 steadyRefusals = 0;            // of it in a row, each close to the one before
    std::array<ReferenceSwitch, 20> switches{};
    u32 nextSwitch = 0, switchCount = 0;
    // The last reference measurement, for the next change of reference.
    u32 lastFroId = 0xFFFFFFFF, lastFroClassNo = 0xFFFFFFFF;
    double lastZ = 0;
    node::CalendarTime lastTime{0, 0};
};
State& state();

// ---- kvd_reg_estimate_model.cpp: values in, values out ------------------------------------------

struct ProcessNoise {
    double var_G = 0;                  // white phase noise per second
    double var_F = 0;                  // white frequency noise per second
    double initialFrequencyDrift = 0;
    bool testMode = false;             // a master's test mode: drift noise times 1e15
};
Prediction predict(const Vec6& x, const Mat6& P, double b, const double u[2], double T_old, double T_new,
                   double t_s, const ProcessNoise& noise);

struct Residual { double resid; double HPH; double S; };
Residual covarianceResidual(const Vec6& H, const Vec6& x_pred, const Mat6& P_pred, double z,
                            double R);

/// Adapted variance; the one before when the measurement was too far off to learn from.
double adjustCovariance(u32 z_i, double baseVar, double m, double R, const Residual& residual);

struct Update {
    Vec6 x_est;
    Mat6 P_est;
    u32 laps;                          // of the repair, 0 when none was needed
    Vec6 K;                            // gain
};
Update completeUpdate(const Vec6& H, const Vec6& x_pred, const Mat6& P_pred, double S, double resid);

/// Value for the start-up counter; `present` below the counter's range.
double initialFrequencyDrift(u8 initCnt, double present);

/// Class of a measurement index for repeated outliers.
enum class OutlierClass : u8 { Reset, TMod, Degrade, Sign };
struct OutlierRule {
    OutlierClass outlierClass;
    u8 limit;                          // outliers in a row that are dropped
};
OutlierRule outlierRule(u32 z_i);
double baseVariance(u32 z_i);

// ---- kvd_reg_estimate.cpp -----------------------------------------------------------------------

/// Row and column 0 cleared, [0][0] = regulator::TIME_UNKNOWN.
void resetTimeRow(Mat6& P);
/// Runs the control law on the state and takes back what it steered.
void control(bool doControl, u32 z_i);
void clearFixFreqMode();

// ---- kvd_reg_estimate_report.cpp ----------------------------------------------------------------

/// Looks for a change of the active reference at a reference measurement.
void recordReferenceSwitch(double z);

}  // namespace estimator
