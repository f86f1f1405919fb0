// Values that stand exactly on a limit: the side that they belong to.
#include "reg/kvd_reg_mtie.h"
#include "reg/kvd_reg_time_of_day.h"
#include "reg/support/measure_bench.h"

using control::timeStep, estimator::adjustCovariance, regulator::rntOfCounter;

TEST(Limits, BelongToOneSide)
{
    regtest::MeasureBench b;
    b.settle();
    b.select(TU_SR_EXT_1PPS_REF);
    b.in([&b] {
        FixFilter rest{-9, 2e-6, 1, 0, 0, 0, 59, 0, 0};
        control::fixFilterStep(rest, -9);
        TimeOfDayGate gate;
        KvdLoz6TuReg_timeOfPulse(gate, KvdLoz6TuReg_sfcGpsOffset(), std::array{0.0, 0.1}.data());
        measure::State s;
        s.diff_c = s.countConsecutiveDiff = 1;
        measure::checkDiff(s, {1.0, 0x1p-32});
        s.diffCheckAfterJump = s.diffCheckActive = 1;
        measure::checkDiff(s, {1.0, 0.0});           // the counter's step left the difference as it was
        regulator::State& r = regulator::state();
        r.tuRegInitiateState = TUREG_START;
        KvdLoz6TuReg_startUpController(r.vTmin, 0, 0, 0);
        EstimateStateVar& e = estimator::state().var;
        const auto variance = [&e](double P, double z, double R) {
            e.x_est = {}, e.P_est = regulator::diagonal({P});
            KvdLoz6TuReg_estimate({z, Z_PKT_FREQ_REF, 0.0, 1e300, R});
            return e.P_est[0];
        };
        u8& regState = control::state().var.regState = FAILURE;
        KvdLoz6TuReg_controller({}, {}, false, Z_TEMP_REF);
        KvdLoz6TuReg_setMeasR(7.0, Z_I_COUNT);
        KvdLoz6TuReg_signalBreakCheck(Z_EXT_1PPS_REF, 6.25e-05, {6.25e-05, 0.0});
        MtieMask* const mask = KvdLoz6TuReg_openMtieMask();
        KvdLoz6TuReg_addMtieMask(mask, 0.0, 8);
        const std::pair<double, double> rows[] = {
            {timeStep(0, 0, 0, 0, 1, -1).du, 1}, {timeStep(-62.1, 1, 0, 0, 1, 0.5).du, -0.5},
            {timeStep(-62.1, 0, 0, 1, 1, 1).du, 1}, {timeStep(-1, 0, 0, 1, 1, 3).du, 1 / 62.1},
            {timeStep(1, 0, 0, 1, 1, 3).du, -1 / 62.1}, {rest.hyst, 0}, {gate.delta0_pre, -0.1},
            {control::timeIsLocked({1, 1, 2, 1, true}), 0}, {control::timeIsLocked({2, 1, 2, 2, true}), 0},
            {control::toI64(0x1p63) == INT64_MAX, 1}, {control::toI64(NAN), 0},
            {adjustCovariance(Z_NTP_REF, 0, 9, 0.75, {5, 0.25, 1}) > 0.75, 1},
            {adjustCovariance(Z_NTP_REF, 0, 9, 1e-6, {9, 0, 1}) > 1e-6, 1},
            {measure::diffCandidate(0, 100, 512, 1024, 0, 0).c, 100},
            {rntOfCounter(9, 512, 0, 1024, 9, 0, 0), rntOfCounter(0, 0, 0, 1024, 0, 0, 0)},
            {measure::phaseError(1, std::array{0.5, 0.0}.data(), std::array{0.0, 0.0}.data(), {}).phase, 0.5},
            {KvdLoz6TuReg_addMtieMask(mask, 1.710624999999997e-05, 8), 0}, {b.bus.countOf("z_i [22] out"), 1},
            {s.countConsecutiveDiff, 0}, {measure::state().var.refBreak, 0}, {s.diffCheckActive, 0},
            {std::exchange(r.tuRegInitiateState, TUREG_INIT), TUREG_START},
            {std::exchange(regState, FREQLOCKED), WARMUP}, {variance(0.75, 3, 0.25), 0.1875},
            {variance(1, 0, 1e-23), 1e-23}, {variance(1, 0, 1e-12), 1 - 1 / (1 + 1e-12)},
            {variance(0, 0, 0), 0}, {b.bus.countOf("Negative variance in S"), 0},
            {std::exchange(e.fixFreqMode, 1), 0}, {KvdLoz6TuReg_computeFix({0, 1.5e-8}, {}, 0), 5},
            {std::exchange(e.fixFreqMode, 0), 1}};
        for (const auto& row : rows) EXPECT_EQ(row.first, row.second) << "row " << &row - rows;
    });
    b.edge(12345679 / 122880000.0, 0.1);
    EXPECT_EQ(b.bus.countOf("deadline passed"), 0u);
    b.in(KvdLoz6TuReg_counterStepped);
    b.edge(b.now, 0.0);
    EXPECT_EQ(b.bus.countOf("Latched before the counter was stepped"), 1u);
    b.edge(1023.9);
    b.latch(1023.96875), b.run(0.03125);          // a new turn began before the edge was served
    b.in([] {
        LatchedEdge edge{};
        KvdLoz6TuReg_handleRefClkInt(edge);
        EXPECT_EQ(edge.time[0], KvdLoz6TuReg_getLastTime().c - 1024);
    });
}
