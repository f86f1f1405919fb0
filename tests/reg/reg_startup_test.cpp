// Start of the regulator: which tick leads where, and what stops it.
#include "reg/support/measure_bench.h"

#include "frame/kvd_mgr_proc.h"
#include "sig/ref_types.h"

using regtest::MeasureBench;

namespace {

constexpr const char* HALTED = "WARNING: LOZ6 HW diagnostic failed, halting process";

void putCalibrationDate(MeasureBench& bench, const char* date)
{
    for (u32 i = 0; i < 10; ++i) {
        u32& word = bench.bus.memory[hwtest::BASE_2B + 0xd8 + (i & ~3u)];
        const u32 shift = 24 - 8 * (i & 3);
        word = (word & ~(0xFFu << shift)) | static_cast<u32>(static_cast<u8>(date[i])) << shift;
    }
}

/// Once, with one line of the error log that begins so.
void expectHalted(const MeasureBench& bench, const char* code)
{
    EXPECT_EQ(bench.bus.countOf(HALTED), 1u);
    ASSERT_EQ(bench.bus.errorLog.size(), 1u);
    EXPECT_TRUE(bench.bus.errorLog[0].starts_with(code)) << bench.bus.errorLog[0];
}

}  // namespace

TEST(RegulatorStart, ColdUnitCountsTicksBeforeItMeasures)
{
    struct Case { const char* what; u32 selectedRef; u32 from58To120; };
    for (const Case& c : std::to_array<Case>({
             {"nothing selected",   TU_SR_NO_REF,       TUREG_INIT},
             {"GPS",                TU_SR_GPS_REF,      TUREG_INIT_NOISY},
             {"HPTSI",              TU_SR_HPTSI_REF,    TUREG_INIT_NOISY},
             {"packet time",        TU_SR_PKT_TIME_REF, TUREG_INIT},
             {"SoCPRI",             TU_SR_SOCPRI_REF,   TUREG_INIT}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.start();
        bench.volts(3.0);                         // the limit itself is no value to start at
        bench.tick();
        bench.volts(2.0);
        bench.select(c.selectedRef);
        struct Step { u32 ticks, state; double t_c_last; };
        for (const Step& step : {Step{0, TUREG_START, -1.0}, {1, TUREG_WARM_UP, -1.0},
                                 {1, TUREG_WARM_INITIATED, -1.0},
                                 {55, TUREG_WARM_INITIATED, -1.0},      // 56 ticks after the counter began
                                 {1, c.from58To120, 0.0}, {62, c.from58To120, 0.0}, {1, TUREG_INIT, 0.0}}) {
            bench.ticks(step.ticks);
            EXPECT_EQ(bench.startUpState(), step.state);
            EXPECT_EQ(bench.meas().t_c_last, step.t_c_last) << "samples that reach the filter";
        }
    }
}

TEST(RegulatorStart, FiveTicksOutOfLimitsAreBorneTheSixthIsNot)
{
    struct Case { const char* what; double volts; u8 oscTempState; };
    for (const Case& c : std::to_array<Case>({{"too cold", 0.5, 2}, {"too hot", 3.5, 3}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.connect();
        bench.start();
        bench.ticks(60);
        ASSERT_NE(bench.regState(), WARMUP);
        bench.volts(c.volts);
        bench.ticks(5);
        EXPECT_NE(bench.regState(), WARMUP);
        EXPECT_NEAR(bench.meas().measRefData.t_s, 2.1, 1e-6) << "the sample didn't reach the filter";
        bench.tick();
        EXPECT_EQ(bench.regState(), WARMUP);
        EXPECT_EQ(bench.startUpState(), TUREG_INIT);
        bench.volts(3.0);                         // the limit itself is inside
        bench.tick();
        EXPECT_NE(bench.regState(), WARMUP);
        std::vector<u8> states;
        for (const auto& ind :
             bench.received<KvdTuiifOscTemperatureStateInd>(KVD_TUIIF_OSC_TEMPERATURE_STATE_IND))
            states.push_back(ind.oscTempState);
        EXPECT_EQ(states, (std::vector<u8>{1, c.oscTempState, 1})) << "on change, and only then";
        EXPECT_EQ(bench.bus.errorLog.size(), 1u);
    }
}

TEST(RegulatorStart, SixthFailedTemperatureReadingHalts)
{
    MeasureBench bench;
    bench.start();
    bench.ticks(60);
    bench.failTemperature();
    bench.ticks(5);
    bench.volts(2.0);
    bench.tick();
    bench.failTemperature();
    bench.ticks(5);                               // a good one in between starts the count anew
    EXPECT_EQ(bench.bus.countOf(HALTED), 0u);
    bench.endHaltLater();
    bench.tick();
    expectHalted(bench, "MCM");
}

TEST(RegulatorStart, OscillatorWithoutNominalFrequencyHalts)
{
    for (const char* const calibrated : {"2021-11-14", "2023-05-15"}) {   // too long ago, half a year ago
        MeasureBench bench;
        putCalibrationDate(bench, calibrated);
        bench.putOcxo(0, 1, 3);
        bench.start();
        bench.tick();
        bench.endHaltLater();
        bench.tick();
        expectHalted(bench, "MCP");
        EXPECT_EQ(bench.startUpState(), TUREG_WARM_UP);
    }
}

TEST(RegulatorStart, WaitsForTheClockOfTheNodeUpToAMinute)
{
    MeasureBench bench;
    bench.start();
    struct Step { node::CalendarTime now; u32 ticks, state; };
    for (const Step& step : {Step{{1, 0}, 55, TUREG_WARM_UP}, {{60, 999999}, 1, TUREG_WARM_UP},
                             {{61, 0}, 1, TUREG_WARM_INITIATED}}) {
        bench.bus.now = step.now;
        bench.ticks(step.ticks);
        EXPECT_EQ(bench.startUpState(), step.state);
    }
    bench.bus.now = {31536000, 0};                // a date from here on
    bench.start();
    bench.ticks(2);
    EXPECT_EQ(bench.bus.countOf("Initiate with calib failed, no systime"), 56u);
    EXPECT_EQ(bench.bus.countOf("initiate cold done"), 2u);
}

TEST(RegulatorStart, CalibrationGivesTheBetterStart)
{
    struct Case { const char* what; const char* date; double variance; bool forcedLock; };
    for (const Case& c : std::to_array<Case>({
             {"half a year old", "2023-05-15", 2.7777777777777778e-16, true},
             {"two years old",   "2021-11-14", 1e-12, false}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;                       // the node's calendar: 2023-11-14
        putCalibrationDate(bench, c.date);
        bench.start();
        bench.ticks(2);
        ose::DataScope scope(*bench.block);
        const Mat6& P = KvdLoz6TuReg_estimateStateVar().P_est;
        EXPECT_NEAR(P[7], c.variance, c.variance * 1e-12);
        EXPECT_EQ(P[0], 1048576.0 / 12.0);
        EXPECT_EQ(P[28], 5.624999999999999e-20);
        EXPECT_EQ(KvdLoz6TuIifAdm_forceLockedTimerRuns(), c.forcedLock);
        EXPECT_EQ(bench.bus.countOf("warm  restart"), 0u) << "the divider is the calibrated one";
        EXPECT_EQ(bench.bus.countOf("initiate with calibration done"), c.forcedLock ? 1u : 0u);
    }
}

TEST(RegulatorStart, RefusedTimersAreToldAndTheStartGoesOn)
{
    MeasureBench bench;
    bench.system.faults().refuseTimers = 2;
    bench.start();
    EXPECT_EQ(bench.bus.countOf("Read Temp Tmo request failed!"), 1u);
    EXPECT_EQ(bench.bus.countOf("Warmup Tmo did not start."), 1u);
    EXPECT_EQ(bench.bus.countOf("KvdLoz6TuReg_initiate: finished"), 1u);
    bench.start();
    bench.start();
    EXPECT_EQ(bench.bus.countOf("Warmup Tmo already started."), 1u);
}

TEST(RegulatorConfiguration, LimitsAndNoisesFollowTheReference)
{
    constexpr double KEPT = 1.0;
    struct Case { u32 before, refType; double f_low, f_high, t_low, t_high, var_F; bool loads, clears; };
    for (const Case& c : std::to_array<Case>({
             {TU_SR_NO_REF, TU_GPS_OUT_REF, 1.7e-9, KEPT, 5e-8, 1e-7, 5e-21, true, true},
             {TU_SR_NO_REF, TU_SR_GPSOSL_REF, 1.7e-9, 1.7e-8, 5e-8, 1e-7, 5e-21, true, true},
             {TU_SR_GPS_REF, TU_SR_NO_REF, KEPT, KEPT, KEPT, 1e-5, 0, false, false},
             {TU_GPS_OUT_REF, TU_SR_NO_REF, KEPT, KEPT, KEPT, 2e-7, 0, false, false},
             {TU_SR_NO_REF, TU_SR_GPS_REF, 1.7e-8, 1.7e-8, 5e-7, 1e-5, 0, false, true}})) {
        SCOPED_TRACE(c.refType);
        MeasureBench bench;
        bench.settle();
        bench.in([&c] {
            measure::state().var.selectedRef = c.before;
            ControlStateVar& v = control::state().var;
            EstimateStateVar& e = estimator::state().var;
            v.f_lim_low = v.f_lim_high = v.t_lim_low = v.t_lim_high = KEPT;
            e.var_G = e.var_F = e.x_est[3] = e.P_est[28] = KEPT;
            e.degrd = 3;
            KvdLoz6TuReg_configRefType(c.refType, 1, 2);
            EXPECT_EQ(v.f_lim_low, c.f_low);
            EXPECT_EQ(v.f_lim_high, c.f_high);
            EXPECT_EQ(v.t_lim_low, c.t_low);
            EXPECT_EQ(v.t_lim_high, c.t_high);
            EXPECT_EQ(e.var_G, 0.0);
            EXPECT_EQ(e.var_F, c.var_F);
            EXPECT_EQ(e.x_est[3] != KEPT && e.P_est[28] == 0.0, c.loads);
            EXPECT_EQ(e.degrd == 0, c.clears);
            EXPECT_EQ(KvdLoz6TuReg_selectedRef(), c.refType);
        });
    }
}

TEST(RegulatorRoles, SlaveThatDoesntKnowTheTimeStartsAnewAsMaster)
{
    MeasureBench bench;
    bench.start(0, 0);
    bench.ticks(60);
    bench.in([] { KvdLoz6TuReg_setMaster(FREQUENCY_LOCKING); });
    EXPECT_EQ(bench.bus.countOf("Initiate all values again and enable BBclock"), 1u);
    EXPECT_EQ(bench.startUpState(), TUREG_START);
    EXPECT_EQ(bench.regState(), UNKNOWN);
}

TEST(RegulatorRoles, SlaveThatKnowsTheTimeMergesTheOtherUnit)
{
    struct Case { const char* what; u8 other; double t_mod; double delta0_c; };
    for (const Case& c : std::to_array<Case>({
             {"the other knew it too", TIMELOCKED, 4294967296.0, 7.0},
             {"the other did not",     FREQLOCKED, 0.0,          0.0}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.settle();
        bench.in([] {
            regulator::state().masterSlaveMode = 0;
            KvdLoz6TuReg_forceRegState(TIMELOCKED);
            KvdLoz6TuReg_setOffset(7.0, 0.5);
            estimator::state().var.x_est = {3e-6, 2e-9, 0, 0, 0, 0};
            estimator::state().var.slaveR = 4e-18;
        });
        KvdTuiif10TimeDataInd other{};
        other.data.x_est_1 = 1e-6, other.data.x_est_2 = 5e-10, other.data.P_est_1_1 = 6e-18;
        other.data.regState = c.other;
        bench.dispatch(KVD_TUIIF10_TIME_DATA_IND, other);
        bench.in([] { KvdLoz6TuReg_setMaster(ABSOLUTE_TIME_LOCKING); });

        EXPECT_EQ(bench.meas().t_mod_old, c.t_mod);
        EXPECT_EQ(bench.meas().delta0_c, c.delta0_c);
        ose::DataScope scope(*bench.block);
        EXPECT_EQ(KvdLoz6TuReg_isMaster(), 1);
        EXPECT_EQ(KvdLoz6TuReg_regState(), UNKNOWN);
        const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
        EXPECT_NEAR(e.x_est[0], 4e-6, 1e-20);
        EXPECT_NEAR(e.x_est[1], 2.5e-9, 1e-23);
        EXPECT_NEAR(e.P_est[7], 1e-20 + 6e-18 + 4e-18, 1e-30);
        EXPECT_EQ(regulator::state().otherLoz6Data.x_est_1, -3e-6);
        EXPECT_EQ(regulator::state().otherLoz6Data.x_est_2, -2e-9);
        EXPECT_EQ(regulator::state().otherLoz6Data.regState, TIMELOCKED);
    }
}
