// The control step and the filter on a unit: who steers, what a start on a link waits for, a clock found in noise,
// outliers by kind of reference.
#include "reg/kvd_reg_pll.h"
#include "reg/support/regulator_unit.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

using regtest::RegulatorUnit;

namespace {

constexpr double TIME_OF_DAY = 4294967296.0;
constexpr double FAR_OFF = 1.0;     // s, an outlier for every reference

ControlResult step(double x0, double x1, int doControl = 1)
{
    Mat6 P{};
    P[0] = 1e-16;
    P[7] = 1e-20;
    return KvdLoz6TuReg_controller({x0, x1, 0, 0, 0, 0}, P, doControl, Z_GPS_REF);
}

/// Divider that the registers give.
double hardwareDiv()
{
    return tuHwIf_readNominalDivisor() + 1.0
           + static_cast<double>(tuHwIf_readDeltaSigmaK()) / static_cast<double>(tuHwIf_readDeltaSigmaM());
}

struct Feed {
    u32 z_i;
    double R;
    u32 used = 0;                   // measurements that updated the filter

    void measure(double z)
    {
        KvdLoz6TuReg_estimate({z, z_i, 1.0, 1e9, R});
        if (KvdLoz6TuReg_estimateStateVar().P_est != KvdLoz6TuReg_estimatePar().P_pred) ++used;
    }
    void good() { measure(KvdLoz6TuReg_estimateStateVar().x_est[0]); }
    void outliers(u32 count, double z = FAR_OFF)
    {
        for (u32 i = 0; i < count; ++i) measure(z);
    }
};

}  // namespace

TEST(ControlStep, WhoSteersAndWhatReachesTheHardware)
{
    // x1 = 8e-9 at a divider of 1250 asks for a step of 1e-5.
    struct Case { const char* what; u32 selected; bool master; u8 regState; int doControl; double du, Div; };
    for (const Case& c : std::to_array<Case>({
             {"master on a line",            10, true, FREQLOCKED, 1, 1e-5, 1250.00001},
             {"loop owns the divider",       14, true, FREQLOCKED, 0, 1e-5, 1250.0},
             {"SoCPRI is left alone",        18, true, FREQLOCKED, 1, 0.0, 1250.0},
             {"slave",                       10, false, FREQLOCKED, 1, 0.0, 1250.0},
             {"failure ends in warm-up",     10, true, FAILURE, 1, 0.0, 1250.0}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(c.selected, 0.125);
            RegulatorUnit::beMaster(c.master);
            KvdLoz6TuReg_forceRegState(c.regState);
            const ControlResult r = step(0.0, 8e-9, c.doControl);
            EXPECT_NEAR(r.u[1], c.du, 1e-15);
            EXPECT_EQ(r.u[0], 0.0);
            EXPECT_DOUBLE_EQ(r.b, -0.0008);
            EXPECT_NEAR(hardwareDiv(), c.Div, 2e-9);
            EXPECT_NEAR(KvdLoz6TuReg_Div(), c.Div, 1e-12);
            EXPECT_EQ(KvdLoz6TuReg_regState(), c.regState == FAILURE ? WARMUP : FREQLOCKED);
        });
    }
}

TEST(ControlStep, WaitingForTheFirstJumpIsNotLeftByGrades)
{
    for (const u8 waiting : {u8{PREJUMPSTART}, u8{PREJUMPHIST}}) {
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(17, TIME_OF_DAY);
            KvdLoz6TuReg_forceRegState(waiting);
            step(1e-9, 1e-9);
            step(1e-9, 1e-5);
            EXPECT_EQ(KvdLoz6TuReg_regState(), waiting);
        });
    }
}

TEST(ControlStep, StartOnAGpsOutSyncLink)
{
    // No history is kept in this unit's memory, so a cold master waits for its first time step.
    struct Case { const char* what; bool master; u32 cold; u8 regState; };
    for (const Case& c : std::to_array<Case>({
             {"cold master", true, 1, PREJUMPSTART},
             {"warm master", true, 0, FREQDRIFTING},
             {"slave", false, 1, FREQDRIFTING}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(17, TIME_OF_DAY);
            RegulatorUnit::beMaster(c.master);
            regulator::state().coldRestart = c.cold;
            KvdLoz6TuReg_forceRegState(WARMUP);
            const ControlResult r = step(0.0, 8e-9);
            EXPECT_EQ(KvdLoz6TuReg_regState(), c.regState);
            EXPECT_EQ(r.u[1], 0.0);
            EXPECT_EQ(KvdLoz6TuReg_f_ix(), 5);      // nothing was graded
        });
    }
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
        Mat6 P{};
        const double diagonal[6] = {87381.3, 1e-12, 1e-28, 1.5e-20, 5.6e-20, 2.2e-19};
        for (u32 i = 0; i < 6; ++i) P[i * 7] = diagonal[i];
        KvdLoz6TuReg_estimateInitiate(Vec6{}, P, 0.0, u, -1.0 / 1250.0);
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

TEST(Screening, RunsOfOutliersByKindOfReference)
{
    struct Case {
        const char* what;
        u32 z_i;
        double R;
        u32 outliers, used;
        u8 degrState, degrd;
        bool timeRowReset;
        double t_mod;
    };
    for (const Case& c : std::to_array<Case>({
             {"GPS, 9",            Z_GPS_REF, 1e-14, 9, 0, 1, 9, false, 1.0},
             {"GPS, 10",           Z_GPS_REF, 1e-14, 10, 0, 2, 10, false, 1.0},
             {"GPS, 30",           Z_GPS_REF, 1e-14, 30, 0, 2, 10, false, 1.0},
             {"link, 9",           Z_IDL2_LOZ6, 1e-14, 9, 0, 1, 9, false, 1.0},
             {"link, 10",          Z_IDL2_LOZ6, 1e-14, 10, 0, 2, 10, false, 1.0},
             {"line, 9",           Z_SDH_REF, 5e-10, 9, 0, 1, 9, false, 1.0},
             {"line, 10",          Z_SDH_REF, 5e-10, 10, 1, 1, 10, false, 1.0},
             {"line, 75",          Z_SDH_REF, 5e-10, 75, 66, 1, 75, false, 1.0},
             {"line, 76",          Z_SDH_REF, 5e-10, 76, 66, 2, 76, false, 1.0},
             {"NTP, 49",           Z_NTP_REF, 5e-7, 49, 0, 1, 49, false, 1.0},
             {"NTP, 50",           Z_NTP_REF, 5e-7, 50, 0, 1, 0, true, 1.0},
             {"NTP, 51",           Z_NTP_REF, 5e-7, 51, 1, 1, 0, false, 1.0},
             {"packet freq, 50",   Z_PKT_FREQ_REF, 5e-7, 50, 0, 1, 0, true, 1.0},
             {"packet time, 29",   Z_PKT_TIME_REF, 2e-11, 29, 0, 1, 29, false, 1.0},
             {"packet time, 30",   Z_PKT_TIME_REF, 2e-11, 30, 0, 1, 0, false, 0.0},
             {"time input, 3",     Z_HPTSI_REF, 1e-14, 3, 0, 1, 3, false, 1.0},
             {"time input, 4",     Z_HPTSI_REF, 1e-14, 4, 0, 1, 0, false, 0.0},
             {"GPS out, 4",        Z_GPS_OUT_REF, 5e-18, 4, 0, 1, 0, false, 0.0}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(6, 1.0);
            Feed feed{c.z_i, c.R};
            feed.good();
            feed.used = 0;
            feed.outliers(c.outliers);
            const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
            EXPECT_EQ(feed.used, c.used);
            EXPECT_EQ(v.degrState, c.degrState);
            EXPECT_EQ(v.degrd, c.degrd);
            EXPECT_EQ(v.P_est[0] > 87381.0, c.timeRowReset);
            if (c.timeRowReset) {
                for (u32 i = 1; i < 6; ++i) EXPECT_EQ(v.P_est[i], 0.0);
            }
            EXPECT_EQ(KvdLoz6TuReg_getMod(), c.t_mod);
        });
    }
}

TEST(Screening, LineNoiseOfChangingSignDegradesAtTheTenth)
{
    struct Case { const char* what; u32 change; u32 total; u32 used; u8 degrState; };
    for (const Case& c : std::to_array<Case>({
             {"change at the second, nine",  2, 9, 0, 1},
             {"change at the second, ten",   2, 10, 0, 2},
             {"change at the tenth",         10, 10, 0, 2},
             {"change at the twentieth",     20, 20, 10, 2}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(10, 0.125);
            Feed feed{Z_ETH_REF, 5e-10};
            feed.good();
            feed.used = 0;
            feed.outliers(c.change - 1);
            feed.outliers(c.total - c.change + 1, -FAR_OFF);
            EXPECT_EQ(feed.used, c.used);
            EXPECT_EQ(KvdLoz6TuReg_degrState(), c.degrState);
        });
    }
}
