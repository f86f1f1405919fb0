// The filter's model, its noise adaptation, its repair, and that it finds a clock in noise.
#include "iif/kvd_iifadm_orders.h"
#include "mp/kvd_iifadm.h"
#include "reg/support/regulator_unit.h"
#include "sig/ref_types.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <string>

using regtest::RegulatorUnit;

namespace {

constexpr double NO_CONTROL[2] = {0.0, 0.0};

Mat6 diagonal(const std::array<double, 6>& d)
{
    Mat6 P{};
    for (u32 i = 0; i < 6; ++i) P[i * 7] = d[i];
    return P;
}

}  // namespace

TEST(Filter, TemperatureStepMovesFrequencyByThePolynomial)
{
    struct Case { const char* what; Vec6 x; double T_old, T_new, x0, x1; };
    for (const Case& c : std::to_array<Case>({
             {"no change of temperature", {0, 1e-9, 0, 5e-9, 5e-9, 5e-9}, 0.3, 0.3, 2e-9, 1e-9},
             {"first basis function",     {0, 0, 0, 4e-9, 0, 0}, 0.0, 0.5, 4e-9, 2e-9},
             {"second: 0.25 more",        {0, 0, 0, 0, 4e-9, 0}, 0.0, 0.5, 2e-9, 1e-9},
             {"second is even",           {0, 0, 0, 0, 4e-9, 0}, -0.5, 0.5, 0.0, 0.0},
             {"third: 0.125 - 0.3",       {0, 0, 0, 0, 0, 4e-9}, 0.0, 0.5, -1.4e-9, -7e-10},
             {"drift",                    {0, 0, 1e-12, 0, 0, 0}, 0.0, 0.0, 2e-12, 2e-12}})) {
        const Prediction p =
            estimator::predict(c.x, Mat6{}, 0.0, NO_CONTROL, c.T_old, c.T_new, 2.0, {});
        EXPECT_NEAR(p.x_pred[0], c.x0, 1e-21) << c.what;
        EXPECT_NEAR(p.x_pred[1], c.x1, 1e-21) << c.what;
    }
}

TEST(Filter, DividerStepsAreKnownToThePrediction)
{
    const double u[2] = {0.0, 2.0};
    const Prediction p = estimator::predict(Vec6{}, Mat6{}, -0.001, u, 0.0, 0.0, 10.0, {});
    EXPECT_DOUBLE_EQ(p.x_pred[0], -0.02);
    EXPECT_DOUBLE_EQ(p.x_pred[1], -0.002);
    EXPECT_EQ(p.x_pred[2], 0.0);
}

TEST(Filter, ProcessNoiseGrowsWithTimeAndWithTestMode)
{
    estimator::ProcessNoise noise;
    noise.var_F = 5e-21;
    const Prediction plain =
        estimator::predict(Vec6{}, Mat6{}, 0.0, NO_CONTROL, 0.0, 0.0, 2.0, noise);
    EXPECT_NEAR(plain.Q[7], 1e-20, 1e-25);                    // 2 s of 5e-21
    EXPECT_NEAR(plain.Q[0], 4e-20, 1e-25);                    // and its phase
    EXPECT_NEAR(plain.Q[14], 2e-20 / 6.44972544e14, 1e-40);   // 1e-20 a day^3
    noise.testMode = true;
    const Prediction test =
        estimator::predict(Vec6{}, Mat6{}, 0.0, NO_CONTROL, 0.0, 0.0, 2.0, noise);
    EXPECT_NEAR(test.Q[14] / plain.Q[14], 1e15, 1e3);
    EXPECT_EQ(plain.x_pred, test.x_pred);
}

TEST(Filter, VarianceFollowsTheResidualsByAFifthAtMost)
{
    struct Case { const char* what; u32 z_i; double m, R, resid, R_new; bool kept; };
    for (const Case& c : std::to_array<Case>(
             {{"first sample, far above", Z_GPS_REF, 1.0, 1e-14, 1e-6, 1.2e-14, false},
              {"no memory yet, far above", Z_GPS_REF, 0.0, 1e-14, 1e-6, 1.2e-14, false},
              {"first sample, nothing seen", Z_GPS_REF, 1.0, 1e-14, 0.0, 0.8e-14, false},
              {"long memory", Z_GPS_REF, 100.0, 1e-14, 1.4142135623730951e-7, 1.01e-14, false},
              {"exactly as expected", Z_GPS_REF, 4.0, 1e-14, 1e-7, 1e-14, false},
              {"NTP, within five sigma", Z_NTP_REF, 1.0, 4e-6, 9.9e-3, 4.8e-6, false},
              {"NTP, beyond five sigma", Z_NTP_REF, 1.0, 4e-6, 10.1e-3, 4e-6, true},
              {"NTP, beyond but R small", Z_NTP_REF, 1.0, 1e-6, 10.1e-3, 1.2e-6, false},
              {"packet time, R small, beyond", Z_PKT_TIME_REF, 1.0, 1e-11, 1e-4, 1e-11, true},
              {"GPS is never kept", Z_GPS_REF, 1.0, 4e-6, 10.1e-3, 4.8e-6, false}})) {
        const estimator::Residual r{c.resid, 0.0, c.R};
        const estimator::AdaptedR a = estimator::adjustCovariance(c.z_i, 0.0, c.m, c.R, r);
        EXPECT_NEAR(a.R_new, c.R_new, 1e-6 * c.R_new) << c.what;
        EXPECT_EQ(a.kept, c.kept) << c.what;
    }
}

TEST(Filter, NegativeCovarianceIsRepaired)
{
    const Vec6 H = {1, 0, 0, 0, 0, 0};
    struct Case { const char* what; double P01, P11; bool repaired; };
    for (const Case& c : std::to_array<Case>({
             {"correlation of 1 is possible",   1.0, 1.0, false},
             {"more than 1 is not",             3.0, 1.0, true},
             {"negative frequency variance",    0.0, -0.5, true}})) {
        SCOPED_TRACE(c.what);
        Mat6 P = diagonal({1.0, c.P11, 1.0, 1.0, 1.0, 1.0});
        P[1] = P[6] = c.P01;
        const estimator::Update u = estimator::completeUpdate(H, Vec6{}, P, 2.0, 0.0);
        EXPECT_EQ(u.laps != 0, c.repaired);
        for (u32 i = 0; i < 6; ++i) EXPECT_GE(u.P_est[i * 7], 0.0) << i;
        EXPECT_GE(u.P_est[0] * u.P_est[7] - u.P_est[1] * u.P_est[6], -1e-12);
        if (c.repaired) {
            EXPECT_EQ(u.P_est[1], u.P_est[6]);
        }
    }
}

TEST(Filter, ExtraDriftNoiseFallsWithTheStartUpCounter)
{
    constexpr double BEFORE = 7e-21;
    EXPECT_EQ(estimator::initialFrequencyDrift(0, BEFORE), BEFORE);
    EXPECT_EQ(estimator::initialFrequencyDrift(56, BEFORE), BEFORE);
    EXPECT_EQ(estimator::initialFrequencyDrift(57, BEFORE), 1e-20);
    EXPECT_EQ(estimator::initialFrequencyDrift(100, BEFORE), 1e-20);
    EXPECT_NEAR(estimator::initialFrequencyDrift(101, BEFORE), 1e-20, 1e-26);
    double last = 1.1e-20;
    for (u8 tick = 101; tick < 120; ++tick) {
        const double now = estimator::initialFrequencyDrift(tick, BEFORE);
        EXPECT_LT(now, last) << int{tick};
        EXPECT_GT(now, 1e-30) << int{tick};
        last = now;
    }
    EXPECT_EQ(estimator::initialFrequencyDrift(120, BEFORE), 0.0);
}

// A clock 100 ppb off, a reference with 30 ns of white noise: the divider in hardware must take it
// out.
TEST(Filter, FindsTheFrequencyInNoise)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(11, 1.0);
        double U[2] = {0.0, 1250.0};
        KvdLoz6TuReg_controlInitiate(true, U);
        const double u[2] = {0.0, 0.0};
        KvdLoz6TuReg_estimateInitiate(Vec6{},
                                      diagonal({87381.3, 1e-12, 1e-28, 1.5e-20, 5.6e-20, 2.2e-19}),
                                      0.0, u, -1.0 / 1250.0);
        std::mt19937_64 generator(20);
        std::normal_distribution<double> noise(0.0, 30e-9);
        constexpr double OSCILLATOR = 1e-7;
        double phase = 1e-3, worstLate = 0.0, R = 1e-14;
        for (u32 second = 1; second <= 3600; ++second) {
            const double divider = tuHwIf_readNominalDivisor() + 1.0
                                   + static_cast<double>(tuHwIf_readDeltaSigmaK()) / 800000000.0;
            const double frequency = (1.0 + OSCILLATOR) * (1250.0 / divider) - 1.0;
            phase += frequency;
            const double delta0 = KvdLoz6TuReg_getOffset().c + KvdLoz6TuReg_getOffset().f;
            const double z = phase - (delta0 - 3.25) + noise(generator);
            R = KvdLoz6TuReg_estimate({z, Z_EXT_1PPS_REF, 1.0, static_cast<double>(second), R});
            if (second > 1800) worstLate = std::max(worstLate, std::fabs(frequency));
        }
        EXPECT_LT(worstLate, 2e-9);
        EXPECT_EQ(KvdLoz6TuReg_f_ix(), 5);
        EXPECT_EQ(KvdLoz6TuReg_regState(), FREQLOCKED);
        const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
        EXPECT_GT(R, 0.5 * 9e-16);      // it also learnt how noisy the reference is: 30 ns squared
        EXPECT_LT(R, 2.0 * 9e-16);
        EXPECT_LT(v.P_est[7], 1e-18);
    });
}

TEST(Filter, ForcingsLowerTheGradeAtTheNextStep)
{
    struct Case { const char* what; void (*force)(); u8 f_ix, t_ix; };
    for (const Case& c : std::to_array<Case>({
             {"nothing",              [] {}, 5, 3},
             {"time offset",          KvdLoz6TuReg_forceTimeOffsetHoldover, 5, 2},
             {"frequency holdover",   KvdLoz6TuReg_forceFrequencyHoldover, 5, 1},
             {"frequency drifting",   KvdLoz6TuReg_forceFrequencyDrifting, 3, 1}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(6, 4294967296.0);
            KvdLoz6TuReg_setOffset(0.0, 0.0);
            for (u32 i = 0; i < 3; ++i) KvdLoz6TuReg_estimate({0.0, Z_TEMP_REF, 2.1, 10.0, 1e-6});
            ASSERT_EQ(KvdLoz6TuReg_regState(), TRUETIME);
            regtest::selectReference(0, 6);
            c.force();
            KvdLoz6TuReg_estimate({0.0, Z_TEMP_REF, 2.1, 10.0, 1e-6});
            EXPECT_EQ(KvdLoz6TuReg_f_ix(), c.f_ix);
            EXPECT_EQ(KvdLoz6TuReg_t_ix(), c.t_ix);
        });
    }
}

TEST(Filter, FixFrequencyHoldsTheGradeUntilTheFrequencyIsGood)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(11, 1.0);
        KvdLoz6TuReg_fixFrequency();
        ASSERT_EQ(KvdLoz6TuReg_estimateStateVar().fixFreqMode, 1);
        EXPECT_EQ(KvdLoz6TuReg_estimateStateVar().P_est[7], 1e-14);
        u32 steps = 0;
        while (KvdLoz6TuReg_estimateStateVar().fixFreqMode != 0 && steps < 1000) {
            EXPECT_EQ(KvdLoz6TuReg_f_ix(), 5);
            EXPECT_EQ(KvdLoz6TuReg_regState(), FREQLOCKED);
            KvdLoz6TuReg_estimate(
                {KvdLoz6TuReg_estimateStateVar().x_est[0], Z_EXT_1PPS_REF, 1.0, 1e9, 1e-14});
            ++steps;
        }
        EXPECT_LT(steps, 100u);
        EXPECT_LT(3.0 * std::sqrt(KvdLoz6TuReg_estimateStateVar().P_est[7]), 1.5e-8);
    });
    RegulatorUnit slave;
    slave.run([&] {
        regtest::settle(11, 1.0);
        RegulatorUnit::beMaster(false);
        KvdLoz6TuReg_fixFrequency();
        EXPECT_EQ(KvdLoz6TuReg_estimateStateVar().fixFreqMode, 0);
    });
}

TEST(Filter, OtherUnitsEstimateIsMergedByRole)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, 1.0);
        estimator::state().var.x_est = {1e-6, 1e-9, 0, 0, 0, 0};
        estimator::state().var.slaveR = 2e-18;
        const double P11 = KvdLoz6TuReg_estimateStateVar().P_est[7];
        KvdLoz6TuReg_mergeOtherEstimate(false, 2e-6, 3e-9, 1e-18);
        EXPECT_DOUBLE_EQ(KvdLoz6TuReg_estimateStateVar().x_est[0], 3e-6);
        EXPECT_DOUBLE_EQ(KvdLoz6TuReg_estimateStateVar().x_est[1], 4e-9);
        EXPECT_NEAR(KvdLoz6TuReg_estimateStateVar().P_est[7], P11 + 3e-18, 1e-30);
        KvdLoz6TuReg_mergeOtherEstimate(true, 2e-6, 3e-9, 1e-18);
        EXPECT_DOUBLE_EQ(KvdLoz6TuReg_estimateStateVar().x_est[0], -2e-6);
        EXPECT_DOUBLE_EQ(KvdLoz6TuReg_estimateStateVar().x_est[1], -3e-9);
    });
}

// With a frequency known to be 0 and no drift, only the drift's variance spoils it: three sigma
// reach f_lim_high, 1.7e-8, when the variance of drift times t^2 does. 1e-24 gives 5667 s.
TEST(LookAhead, TellsHowLongTheFrequencyStaysGood)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, 1.0);
        const FixFilter filter = KvdLoz6TuReg_controlStateVar().fix;
        const auto drift = [](double variance) {
            estimator::state().var.P_est = diagonal({0, 0, variance, 0, 0, 0});
        };
        drift(1e-24);
        EXPECT_NEAR(KvdLoz6TuReg_lookAheadHistory(), 1714.2857142857142 * 2,
                    1e-9);   // good at 3429
        EXPECT_EQ(KvdLoz6TuReg_lookAheadCalibration(), 0.0);
        EXPECT_TRUE(KvdLoz6TuReg_lookAheadSoonToExpire(1.0));
        drift(1e-20);
        EXPECT_EQ(KvdLoz6TuReg_lookAheadHistory(), 0.0);
        // 1e-28: 3 * sqrt(t^2 * 1e-28 + t^3 * 1.55e-35) is 1.62e-8 at 6 days, 1.76e-8 at 6.5.
        drift(1e-28);
        EXPECT_NEAR(KvdLoz6TuReg_lookAheadHistory(), 1714.2857142857142 * 256, 1e-6);
        EXPECT_EQ(KvdLoz6TuReg_lookAheadCalibration(), 6.0);
        EXPECT_FALSE(KvdLoz6TuReg_lookAheadSoonToExpire(6.0));
        EXPECT_TRUE(KvdLoz6TuReg_lookAheadSoonToExpire(7.0));
        drift(0.0);
        EXPECT_LE(KvdLoz6TuReg_lookAheadCalibration(), 1300000.0 / 86400.0 + 0.5);
        EXPECT_EQ(KvdLoz6TuReg_controlStateVar().fix.last, filter.last);
        EXPECT_EQ(KvdLoz6TuReg_controlStateVar().fix.count, filter.count);
    });
}

TEST(ReferenceSwitches, TellThePhaseBetweenTwoReferences)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, 1.0);
        const auto measure = [](double z) {
            KvdLoz6TuReg_estimate({z, Z_GPS_REF, 1.0, 1e9, 1e-14});
        };
        measure(1e-9);                                           // nobody's
        KvdLoz6TuIifAdm_updateSelection(GPS_REF, 6, 3);
        measure(2e-9);
        KvdLoz6TuIifAdm_updateSelection(TU_REF, 5, 7);
        measure(34e-9);
        measure(35e-9);
        char text[600];
        const u32 length = KvdLoz6TuReg_referenceSwitchesText(text, sizeof text);
        const std::string told(text);
        EXPECT_EQ(told.size(), length);
        EXPECT_NE(
            told.find("froId=6 froClassNo=3 -> 2023-11-14 22:13:20 froId=5 froClassNo=7: 3.2"),
            std::string::npos)
            << told;
        EXPECT_EQ(std::count(told.begin(), told.end(), '>'),
                  1);   // the first selection isn't a switch
        char tight[20];
        EXPECT_EQ(KvdLoz6TuReg_referenceSwitchesText(tight, sizeof tight), 19u);
    });
}
