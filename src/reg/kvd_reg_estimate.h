// kvd_reg_estimate.h - Six-state Kalman filter of the oscillator.
// Owner   the manager process; only kvd_reg_estimate*.cpp write `estimateStateVar`.
// Units   seconds, relative frequency (s/s), normalised temperature -1 to +1.
// Errors  negative variances are traced; processing goes on.
#pragma once
#include "ose/types.h"
#include "reg/kvd_reg_measure.h"

#include <array>

using Vec6 = std::array<double, 6>;
using Mat6 = std::array<double, 36>;   // row major

struct EstimateStateVar {
    double T = 0;
    u8 degrd = 0;
    u32 residualSign = 2;           // 1 positive, 0 negative, 2 not known yet
    u32 residualSignConstant = 1;
    Vec6 x_est{};
    Vec6 prev_x_est{};
    Mat6 P_est{};
    double b = 0;                   // relative frequency per divider unit
    double u_tf[2] = {0, 0};        // control since the last step: time s, divider
    u32 prevRef = Z_NO_REF;
    u32 measCount = 0;
    Mat6 Q{};
    u8 degrState = KVD_TUIIF_REF_OK;
    double slaveR = 0;
    double var_G = 0;
    double var_F = 0;
    u8 fixFreqMode = 0;
};
struct EstimatePar {
    double t_s = 0;
    Vec6 x_pred{};
    Mat6 P_pred{};
};
const EstimateStateVar& KvdLoz6TuReg_estimateStateVar();
const EstimatePar& KvdLoz6TuReg_estimatePar();

struct Prediction { Vec6 x_pred; Mat6 P_pred; Mat6 Q; };
/// Pure but for var_G, var_F, initialFrequencyDrift and the test mode, which it reads.
Prediction KvdLoz6TuReg_predict(const Vec6& x, const Mat6& P, double b, const double u[2], double T_old,
                                double T_new, double t_s);

/// One step: predict, screen, update, control. Returns the adapted R for the measurement's slot.
double KvdLoz6TuReg_estimate(const MeasRefData& observation);
void KvdLoz6TuReg_estimateInitiate(const Vec6& x, const Mat6& P, double T, const double u[2], double b);

void KvdLoz6TuReg_setSystemNoise(double var_G, double var_F);
/// Coefficients into x_est[3..5]; rows and columns 3 to 5 of P_est cleared.
void KvdLoz6TuReg_loadTemperatureCoefficients(const double coeff[3]);
void KvdLoz6TuReg_clearDegradationCounter();
/// Row and column 0 of P_est cleared, [0][0] = 1024^2/12.
void KvdLoz6TuReg_resetTimeUncertainty();
/// State and covariance back to their cold start values, temperature coefficients as given.
void KvdLoz6TuReg_estimateReinitiate(const double coeff[3]);
/// The same with the oscillator's own coefficients: the estimate knows neither time nor frequency.
void KvdLoz6TuReg_restartEstimate();
/// Extra drift noise of the start-up counter.
void KvdLoz6TuReg_setInitialFrequencyDrift(u8 initCnt);
double KvdLoz6TuReg_initialFrequencyDrift();
/// Sets the reported quality with report (service command: 2).
void KvdLoz6TuReg_setDegrState(u8 degrState);
/// A change with report; degrState of the estimator as it stands.
u8 KvdLoz6TuReg_degrState();

/// kvdfixfrequency.
void KvdLoz6TuReg_fixFrequency();
/// Forcing: each pushes the estimate down a grade.
void KvdLoz6TuReg_forceTimeOffsetHoldover();
void KvdLoz6TuReg_forceFrequencyHoldover();
void KvdLoz6TuReg_forceFrequencyDrifting();

/// Temperature ticks for which the history stays valid.
double KvdLoz6TuReg_lookAheadHistory();
/// Days for which the calibration stays valid.
double KvdLoz6TuReg_lookAheadCalibration();
/// True when the frequency would leave its best grade within `days`.
bool KvdLoz6TuReg_lookAheadSoonToExpire(double days);

/// Dual configuration: adds the other unit's estimate to a slave's.
void KvdLoz6TuReg_mergeOtherEstimate(double x1, double x2, double P11);

/// The last 20 reference switches as a text of at least one byte; returns its length.
u32 KvdLoz6TuReg_referenceSwitchesText(char* text, u32 room);
void KvdLoz6TuReg_estimatePrintInfo();
