// The control step on a unit: who steers, and what a start on a link waits for.
#include "reg/kvd_reg_pll.h"
#include "reg/support/regulator_unit.h"

#include <gtest/gtest.h>

#include <array>

using regtest::RegulatorUnit;

namespace {

constexpr double TIME_OF_DAY = 4294967296.0;
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
