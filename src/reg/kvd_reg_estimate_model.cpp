#include "base/element_of.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/trace.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_matrix.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

using matrix::multiply;
using matrix::outer;
using matrix::scale;

namespace {

// Process noise of the oscillator, per second.
constexpr double DAY_CUBED = 86400.0 * 86400.0 * 86400.0;   // s^3
constexpr double DRIFT_NOISE = 1e-20;                       // of a day's drift per day
constexpr double TEMP_NOISE_1 = 1.5e-26;                    // of the coefficient of P1
constexpr double TEMP_NOISE_2 = 5.625e-26;
constexpr double TEMP_NOISE_3 = 2.1875000000000002e-25;
constexpr double TEST_MODE_DRIFT_FACTOR = 1e15;
// Quantisation of a 15-bit conversion over the sensor's 2.1 V, on a range of 2, plus a floor.
constexpr double TEMP_STEP = 2.0 / (32768.0 * 2.1);
constexpr double TEMP_QUANTISATION = TEMP_STEP * TEMP_STEP / 12.0 + 1e-8;

// A single step changes R by about a fifth.
constexpr double R_STEP = 0.19999999999999996;

constexpr u32 REPAIR_LAPS = 100;
constexpr u32 QR_ROUNDS = 30;

// Basis functions of the normalised temperature, orthogonal over -1 to +1.
double P2(double T) { return T * T - 1.0 / 3.0; }
double P3(double T) { return T * T * T - 0.6 * T; }

Mat6 transitionMatrix(double T_old, double T_new, double t_s)
{
    const double dP1 = T_new - T_old;
    const double dP2 = P2(T_new) - P2(T_old);
    const double dP3 = P3(T_new) - P3(T_old);
    Mat6 A = matrix::identity<6>();
    const Vec6 row0 = {1.0, t_s, t_s * t_s / 2.0, dP1 * t_s, dP2 * t_s, dP3 * t_s};
    const Vec6 row1 = {0.0, 1.0, t_s, dP1, dP2, dP3};
    std::copy(row0.begin(), row0.end(), A.begin());
    std::copy(row1.begin(), row1.end(), A.begin() + 6);
    return A;
}

/// A sum of scaled outer products, so symmetric to the bit. The test mode's factor covers all drift noise.
Mat6 processNoise(const Vec6& x, double T, double t_s, const estimator::ProcessNoise& noise)
{
    const double p2 = P2(T), p3 = P3(T);
    const matrix::Matrix<6, 3> G3 = {
        t_s * x[3], t_s * x[4], t_s * x[5], x[3], x[4], x[5],
    };
    const std::array<double, 3> w = {1.0, 2.0 * T, 3.0 * (T * T) - 0.6};

    double driftNoise = t_s * DRIFT_NOISE / DAY_CUBED + noise.initialFrequencyDrift;
    if (noise.testMode) driftNoise *= TEST_MODE_DRIFT_FACTOR;
    // Columns of G; the last three carry the temperature's own noise through the coefficients.
    const struct { Vec6 column; double variance; } noises[] = {
        {{1.0, 0.0, 0.0, 0.0, 0.0, 0.0}, t_s * noise.var_G},
        {{t_s, 1.0, 0.0, 0.0, 0.0, 0.0}, t_s * noise.var_F},
        {{t_s * t_s / 2.0, t_s, 1.0, 0.0, 0.0, 0.0}, driftNoise},
        {{t_s * T, T, 0.0, 1.0, 0.0, 0.0}, t_s * TEMP_NOISE_1},
        {{t_s * p2, p2, 0.0, 0.0, 1.0, 0.0}, t_s * TEMP_NOISE_2},
        {{t_s * p3, p3, 0.0, 0.0, 0.0, 1.0}, t_s * TEMP_NOISE_3},
    };
    const double q_T = t_s * TEMP_QUANTISATION;

    Mat6 Q{};
    for (const auto& n : noises) matrix::addOuter(Q, n.column, n.variance);
    const Mat6 temperature = multiply<6, 3, 6>(multiply<6, 3, 3>(G3, outer(w, w)),
                                               matrix::transpose<6, 3>(G3));
    return matrix::sum(Q, scale(temperature, q_T));
}

bool diagonalNotNegative(const Mat6& P)
{
    for (u32 i = 0; i < 6; ++i)
        if (!(P[i * 6 + i] >= 0.0)) return false;
    return true;
}

struct Text { char text[160]; };

Text diagonalText(const Mat6& P)
{
    Text t;
    std::snprintf(t.text, sizeof t.text, "%-16.17g %-16.17g %-16.17g %-16.17g %-16.17g %-16.17g", P[0], P[7],
                  P[14], P[21], P[28], P[35]);
    return t;
}

Text vectorText(const Vec6& v)
{
    Text t;
    std::snprintf(t.text, sizeof t.text, "%-16.17g %-16.17g %-16.17g %-16.17g %-16.17g %-16.17g", v[0], v[1],
                  v[2], v[3], v[4], v[5]);
    return t;
}

/// Orthonormal columns of A by modified Gram-Schmidt, transposed.
Mat6 orthonormalColumns(const Mat6& A)
{
    auto columns = std::bit_cast<std::array<Vec6, 6>>(matrix::transpose<6, 6>(A));
    for (auto column = columns.begin(); column != columns.end(); ++column) {
        const double n = matrix::dot(*column, *column);
        if (n == 0.0) {
            KVD_TRACE(TRACE_TUREG, TRACE_INFO, "A has linerarly dependant columns");
            continue;
        }
        const double r_jj = std::sqrt(n);
        for (double& x : *column) x /= r_jj;
        for (auto later = std::next(column); later != columns.end(); ++later)
            *later = matrix::difference(*later, scale(*column, matrix::dot(*column, *later)));
    }
    return std::bit_cast<Mat6>(columns);
}

/// Smallest diagonal entry after the rounds of unshifted QR iteration: the smallest eigenvalue when
/// the iteration has converged by then.
double smallestByQr(Mat6 A)
{
    for (u32 round = 0; round < QR_ROUNDS; ++round) {
        const Mat6 Qt = orthonormalColumns(A);
        A = multiply<6, 6, 6>(multiply<6, 6, 6>(Qt, A), matrix::transpose<6, 6>(Qt));
    }
    double smallest = A[0];
    for (u32 i = 1; i < 6; ++i) smallest = std::min(smallest, A[i * 6 + i]);
    return smallest;
}

/// Lifts the diagonal until the symmetrised matrix is non-negative definite. Returns the laps
/// taken.
u32 repair(Mat6& P)
{
    P = scale(matrix::sum(P, matrix::transpose<6, 6>(P)), 0.5);
    double factor = 1.0;
    u32 laps = 0;
    while (laps != REPAIR_LAPS) {
        ++laps;
        const double lambda = smallestByQr(P);
        if (lambda >= 0.0) {
            KVD_TRACE(TRACE_TUREG, TRACE_INFO, "The matrix is non-negative definite, lambda: %-16.17g\n",
                      lambda);
            return laps;
        }
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Negative eigenvalue!! lambda = %-16.17g", lambda);
        for (u32 i = 0; i < 6; ++i) P[i * 6 + i] += factor * std::fabs(lambda);
        factor += 0.5;
    }
    return laps;
}

}  // namespace

namespace estimator {

Prediction predict(const Vec6& x, const Mat6& P, double b, const double u[2], double T_old, double T_new,
                   double t_s, const ProcessNoise& noise)
{
    const Mat6 A = transitionMatrix(T_old, T_new, t_s);
    matrix::Matrix<6, 2> B{};
    B[0] = 1.0;
    B[1] = b * t_s;
    B[3] = b;
    const std::array<double, 2> control = {u[0], u[1]};

    Prediction p;
    p.x_pred = matrix::sum(multiply<6, 6>(A, x), multiply<6, 2>(B, control));
    p.Q = processNoise(x, T_new, t_s, noise);
    p.P_pred = matrix::sum(multiply<6, 6, 6>(multiply<6, 6, 6>(A, P), matrix::transpose<6, 6>(A)), p.Q);
    if (!diagonalNotNegative(p.P_pred))
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "predictCovariance: WARNING! Negative variance in P_pred! [%s]",
                  diagonalText(p.P_pred).text);
    return p;
}

Residual covarianceResidual(const Vec6& H, const Vec6& x_pred, const Mat6& P_pred, double z, double R)
{
    Residual r;
    r.resid = z - matrix::dot(H, x_pred);
    r.HPH = matrix::dot(multiply<6, 6>(matrix::transpose<6, 6>(P_pred), H), H);
    r.S = r.HPH + R;
    if (r.S < 0.0)
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "covarianceResidual: WARNING! Negative variance in S! [%s]",
                  TuCommon_text(r.S));
    return r;
}

double adjustCovariance(u32 z_i, double baseVar, double m, double R, const Residual& residual)
{
    const double residSquared = residual.resid * residual.resid;
    const bool farOff = residSquared > 25.0 * (residual.S + baseVar);
    const bool packetFrequency = z_i == Z_NTP_REF || z_i == Z_PKT_FREQ_REF;
    if (farOff && ((packetFrequency && R > 1e-6) || z_i == Z_PKT_TIME_REF)) {
        KVD_TRACE(TRACE_TUREG, TRACE_3, "Measurement not used to update R");
        return R;
    }
    const double alpha_1 = 1.0 / m;
    const double R_delta = residSquared - residual.HPH;
    double alpha = alpha_1;
    if (R_delta != R) {
        const double alpha_2 = R_STEP * R / std::fabs(R_delta - R);
        alpha = std::min(alpha_1, alpha_2);
    }
    const double R_new = (1.0 - alpha) * R + alpha * R_delta;
    if (R_new < 0.0) KVD_TRACE(TRACE_TUREG, TRACE_INFO, "adjustCovariance: WARNING.. Negativ variance in R");
    return R_new;
}

/// (I - K H) P as it stands; a negative variance that it gives is repaired.
Update completeUpdate(const Vec6& H, const Vec6& x_pred, const Mat6& P_pred, double S, double resid)
{
    const Vec6 K = scale(multiply<6, 6>(P_pred, H), 1.0 / S);
    KVD_TRACE(TRACE_TUREG, TRACE_3, "K %s", vectorText(K).text);

    Update u;
    u.K = K;
    u.x_est = matrix::sum(x_pred, scale(K, resid));
    u.P_est = multiply<6, 6, 6>(matrix::difference(matrix::identity<6>(), outer(K, H)), P_pred);
    u.laps = 0;
    if (diagonalNotNegative(u.P_est)) return u;

    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "completeUpdate: WARNING: Negative variance in P_est");
    u.laps = repair(u.P_est);
    return u;
}

double initialFrequencyDrift(u8 initCnt, double present)
{
    if (initCnt > 119) return 0.0;
    if (initCnt <= 56) return present;
    if (initCnt <= 100) return 1e-20;
    // A straight line in log-log scale from 1e-20 at tick 101 to 1e-30 at tick 120.
    const double k = (std::log10(1e-20) - std::log10(1e-30)) / (std::log10(101.0) - std::log10(120.0));
    return std::pow(10.0, std::log10(1e-20) - k * std::log10(101.0))
           * std::pow(static_cast<double>(initCnt), k);
}

OutlierRule outlierRule(u32 z_i)
{
    switch (z_i) {
    case Z_EXT_REF: case Z_EXT_1PPS_REF: case Z_ETH_REF: case Z_SDH_REF:
    case Z_PDH_REF1: case Z_PDH_REF2: case Z_PDH_REF3: case Z_PDH_REF4:
        return {OutlierClass::Sign, 9};
    case Z_NTP_REF: case Z_PKT_FREQ_REF:
        return {OutlierClass::Reset, 49};
    case Z_PKT_TIME_REF:
        return {OutlierClass::TMod, 29};
    case Z_HPTSI_REF: case Z_GPS_OUT_REF: case Z_GPSOSL_REF:
        return {OutlierClass::TMod, 3};
    default:
        return {OutlierClass::Degrade, 9};
    }
}

double baseVariance(u32 z_i)
{
    static constexpr std::array<double, Z_I_COUNT> BASE = {
        0.0,
        1.2e-15,                                        // IDL1_LOZ6
        1.2e-11,                                        // EXT_REF
        1.2e-11, 1.2e-11, 1.2e-11, 1.2e-11, 1.2e-11,    // PDH_REF1 to PDH_REF4, SDH_REF
        1.2e-11,                                        // GPS_REF
        1.2e-14,                                        // NTP_REF
        1.2e-15,                                        // SOFT_REF
        1e99,                                           // TEMP_REF: never an outlier
        0.0,                                            // PKT_FREQ_REF
        1e-14,                                          // PKT_TIME_REF
        0.0,                                            // NO_REF
        4e-6,                                           // ETH_REF
        1e-6,                                           // EXT_1PPS_REF
        1.2e-15,                                        // IDL2_LOZ6
        1e-6,                                           // HPTSI_REF
        1.2e-11, 1.2e-11,                               // GPS_OUT_REF, GPSOSL_REF
        0.0,                                            // SOCPRI_REF
    };
    const double* const base = elementOf(BASE, z_i);
    return base != nullptr ? *base : 0.0;
}

}  // namespace estimator
