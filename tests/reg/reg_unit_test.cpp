// The regulator in a whole unit: start from cold and after a warm restart, and the operator's report.
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_measure.h"
#include "sim/board/board.h"
#include "support/unit_bench.h"

#include <gtest/gtest.h>

using bench::Unit;

namespace {

u32 startUpState(Unit& unit) { return unit.node.inProgram([] { return KvdLoz6TuReg_initiateState(); }); }
u32 noisyCounter(Unit& unit)
{
    return unit.node.inProgram([] { return u32{KvdLoz6TuReg_noisyCounter()}; });
}

/// Seconds until the start-up state is reached, negative when it isn't in time.
double secondsUntil(Unit& unit, u32 state, double limit)
{
    const ose::Time from = unit.world.now();
    const bool reached = unit.world.runUntilTrue(
        [&] { return unit.node.program() != nullptr && startUpState(unit) == state; },
        from + static_cast<ose::Time>(limit * 1e12));
    return reached ? static_cast<double>(unit.world.now() - from) / 1e12 : -1.0;
}

}  // namespace

TEST(RegulatorInUnit, ColdStartWaitsForTheTicksAWarmOneDoesnt)
{
    Unit unit;
    unit.node.powerOn();
    EXPECT_GT(secondsUntil(unit, TUREG_WARM_UP, 3600), 0) << "the oven never got warm";
    // 57 ticks of 2.1 s after the counter began.
    EXPECT_NEAR(secondsUntil(unit, TUREG_INIT, 300), 119.7, 0.1);
    EXPECT_EQ(noisyCounter(unit), 57u);
    EXPECT_TRUE(unit.traced("2 min counter finished. Regulator state ="));

    unit.node.restartWarm();
    // The connection takes its time; from the first tick to the last state it is one tick more.
    ASSERT_GT(secondsUntil(unit, TUREG_WARM_UP, 60), 0);
    EXPECT_EQ(noisyCounter(unit), 120u);
    EXPECT_NEAR(secondsUntil(unit, TUREG_INIT, 60), 2.1, 0.01);

    unit.node.restartCold();
    ASSERT_GT(secondsUntil(unit, TUREG_WARM_UP, 60), 0);
    EXPECT_EQ(unit.node.inProgram([] { return KvdLoz6TuReg_coldRestart(); }), 1u);
}

TEST(RegulatorInUnit, TemperatureTicksPredictWithoutAReference)
{
    Unit unit;
    unit.node.powerOn();
    ASSERT_GT(secondsUntil(unit, TUREG_INIT, 3600), 0);
    const auto measurements = [&] {
        return unit.node.inProgram([] { return KvdLoz6TuReg_estimateStateVar().measCount; });
    };
    unit.run(3);
    const u32 before = measurements();
    unit.run(210);
    EXPECT_NEAR(measurements() - before, 100, 1);
    const MeasStateVar m = unit.node.inProgram([] { return KvdLoz6TuReg_measStateVar(); });
    EXPECT_EQ(m.measRefData.z_i, u32{Z_TEMP_REF});
    EXPECT_NEAR(m.measRefData.t_s, 2.1, 1e-3);
    EXPECT_NEAR(m.vT, unit.node.board().temperature_V(), 0.01);
}

TEST(RegulatorInUnit, ReportNamesStateReferenceAndTime)
{
    Unit unit;
    unit.node.powerOn();
    ASSERT_GT(secondsUntil(unit, TUREG_INIT, 3600), 0);
    std::string output;
    EXPECT_EQ(unit.command("kvdinfo tureg", output), 0);
    for (const char* line : {"tuRegInitiateState   : TUREG_INIT (4)",
                             "TUREG_WARM_INITIATED => TUREG_INIT",
                             "master or slave      : master",
                             "selectedRef          : NO_REF (0)",
                             "***** END *****"})
        EXPECT_NE(output.find(line), std::string::npos) << line << " isn't in:\n" << output;
}
