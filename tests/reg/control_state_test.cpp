// The control step on a unit: states, folding of the time offset, what reaches the hardware, the
// log.
#include "reg/kvd_reg_pll.h"
#include "reg/support/regulator_unit.h"

#include <gtest/gtest.h>

#include <array>

using regtest::RegulatorUnit;

namespace {

constexpr double TIME_OF_DAY = 4294967296.0;

Vec6 offset(double x0, double x1) { return {x0, x1, 0, 0, 0, 0}; }

Mat6 variances(double P00, double P11)
{
    Mat6 P{};
    P[0] = P00;
    P[7] = P11;
    return P;
}

ControlResult step(double x0, double x1, double P00 = 1e-16, double P11 = 1e-20, int doControl = 1)
{
    return KvdLoz6TuReg_controller(offset(x0, x1), variances(P00, P11), doControl, Z_GPS_REF);
}

/// Divider that the registers give.
double hardwareDiv()
{
    return tuHwIf_readNominalDivisor() + 1.0
           + static_cast<double>(tuHwIf_readDeltaSigmaK())
                 / static_cast<double>(tuHwIf_readDeltaSigmaM());
}

}  // namespace

TEST(ControlStep, TimeStatesComeOneStepLate)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, TIME_OF_DAY);
        measure::state().var.histCountDown = 5.0;
        step(1e-9, 0.0);
        EXPECT_EQ(KvdLoz6TuReg_t_ix(), 2);
        EXPECT_EQ(KvdLoz6TuReg_regState(), FREQLOCKED);
        EXPECT_EQ(measure::state().var.histCountDown, 5.0);
        step(1e-9, 0.0);
        EXPECT_EQ(KvdLoz6TuReg_regState(), TIMELOCKED);
        EXPECT_EQ(measure::state().var.histCountDown, 0.0);
        KvdLoz6TuReg_setOffset(0.0, 4.9e-7);          // next to none: cleared, and time is true
        step(1e-9, 0.0);
        EXPECT_EQ(KvdLoz6TuReg_getOffset().f, 0.0);
        EXPECT_EQ(KvdLoz6TuReg_regState(), TRUETIME);
        step(9e-6, 0.0);                              // between the limits: stays
        EXPECT_EQ(KvdLoz6TuReg_regState(), TRUETIME);
        step(1.1e-5, 0.0);                            // lost, shown at once
        EXPECT_EQ(KvdLoz6TuReg_t_ix(), 1);
        EXPECT_EQ(KvdLoz6TuReg_regState(), FREQLOCKED);
        EXPECT_EQ(KvdLoz6TuReg_controlStateVar().t_acc_report,
                  11030u);   // 11 us and three sigma of 10 ns
    });
}

TEST(ControlStep, OffsetAtTheFoldingLimit)
{
    struct Case { const char* what; double x0; u8 f_ixBefore; bool folded; };
    for (const Case& c : std::to_array<Case>({
             {"at the limit",               4.9e-8, 5, false},
             {"above",                      4.91e-8, 5, true},
             {"above, behind",              -4.91e-8, 5, true},
             {"above, grade just reached",  4.91e-8, 4, false}})) {
        SCOPED_TRACE(c.what);
        RegulatorUnit unit;
        unit.run([&] {
            regtest::settle(10, 0.125);
            control::state().var.f_ix = c.f_ixBefore;
            const ControlResult r = step(c.x0, 0.0);
            EXPECT_EQ(r.x0, c.folded ? 0.0 : c.x0);
            EXPECT_NEAR(KvdLoz6TuReg_getOffset().f, c.folded ? 0.25 + c.x0 : 0.25, 1e-15);
        });
    }
}

TEST(ControlStep, WhoSteersAndWhatReachesTheHardware)
{
    // x1 = 8e-9 at a divider of 1250 asks for a step of 1e-5.
    struct Case {
        const char* what;
        u32 selected;
        bool master;
        u8 regState;
        int doControl;
        double du, Div;
    };
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
            const ControlResult r = step(0.0, 8e-9, 1e-16, 1e-20, c.doControl);
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

TEST(ControlStep, CalibrationIsCheckedWhenTheFrequencyLocks)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(10, 0.125);
        const auto countDown = [] { return measure::state().var.calibrationCountDown; };
        measure::state().var.calibrationCountDown = 100.0;
        step(0.0, 1e-7);                         // 5 to 4
        EXPECT_EQ(KvdLoz6TuReg_regState(), SYNCH3);
        EXPECT_EQ(countDown(), 100.0);
        step(0.0, 1e-9);                         // 4 to 5
        EXPECT_EQ(KvdLoz6TuReg_regState(), FREQLOCKED);
        EXPECT_EQ(countDown(), 0.0);
    });
}

TEST(ControlStep, OnlyLockedStatesAreLocked)
{
    RegulatorUnit unit;
    unit.run([&] {
        for (u8 state = 0; state <= 14; ++state) {
            KvdLoz6TuReg_forceRegState(state);
            EXPECT_EQ(KvdLoz6TuReg_isLocked(), state == 5 || state == 10 || state == 11)
                << int{state};
        }
    });
}

TEST(ControlLog, KeepsTheLastTwentyChangesForcedOnesToo)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(10, 0.125);
        const std::size_t reports = unit.traced("Report regState");
        for (u32 i = 0; i < 12; ++i) {
            KvdLoz6TuReg_setRegState(SYNCH1);
            KvdLoz6TuReg_setRegState(SYNCH1);             // no change, no entry
            KvdLoz6TuReg_forceRegState(UNKNOWN);
        }
        const control::State& s = control::state();
        ASSERT_EQ(s.transitionCount, 20u);
        EXPECT_EQ(s.transitions[19].regState, u32{UNKNOWN});
        EXPECT_EQ(s.transitions[18].regState, u32{SYNCH1});
        EXPECT_EQ(s.transitions[0].regState, u32{SYNCH1});
        EXPECT_EQ(s.transitions[19].year, 2023);          // 1'700'000'000 s: 2023-11-14 22:13:20
        EXPECT_EQ(s.transitions[19].month, 11);
        EXPECT_EQ(s.transitions[19].minute, 13);
        EXPECT_EQ(unit.traced("Report regState") - reports, 12u);
    });
}

TEST(ControlInitiation, FromTheLoopKeepsTheStateAndReadsTheDivider)
{
    RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(6, TIME_OF_DAY);
        KvdLoz6TuReg_setFrequencyLimit(3e-9);
        tuHwIf_writeNominalDivisor(1248);
        tuHwIf_writeDeltaSigmaK(-400000000);
        double U[2] = {0.0, 17.0};
        ASSERT_GT(control::state().transitionCount, 0u);
        KvdLoz6TuReg_controlInitFromPll(U, true);
        EXPECT_EQ(U[1], 1248.5);
        EXPECT_EQ(KvdLoz6TuReg_Div(), 1248.5);
        EXPECT_EQ(KvdLoz6TuReg_regState(), FREQLOCKED);
        EXPECT_EQ(KvdLoz6TuReg_f_ix(), 1);
        EXPECT_EQ(KvdLoz6TuReg_f_lim_high(), 1.7e-8);
        EXPECT_EQ(control::state().transitionCount, 0u);   // the log starts anew
    });
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
