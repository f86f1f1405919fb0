// From a reference's edge to a sample: what is let in, what is dropped, what each leaves.
#include "reg/support/measure_bench.h"

#include "sig/ref_types.h"

using regtest::MeasureBench;

TEST(Interrupt, IsServedInTheLastTwoStartStatesAndAlwaysOpenedAgain)
{
    for (u32 state = TUREG_START; state <= TUREG_INIT; ++state) {
        SCOPED_TRACE(state);
        MeasureBench bench;
        bench.settle();
        bench.select(TU_SR_EXT_1PPS_REF);
        bench.in([&] {
            regulator::state().tuRegInitiateState = state;
            tuHwif_startIntProc();
        });
        const std::size_t opened = bench.bus.lines.size();
        bench.edge(200.0);
        EXPECT_EQ(bench.meas().m[Z_EXT_1PPS_REF], state >= TUREG_INIT_NOISY ? 1.0 : 0.0);
        ASSERT_EQ(bench.bus.lines.size(), opened + 1);
        EXPECT_EQ(bench.bus.lines.back().first, 'e');
    }
}

TEST(Sample, AnEdgeThatCantBeUsedCountsNothing)
{
    struct Case { u32 selected; bool latch; const char* trace; };
    for (const Case& c : {Case{TU_SR_NO_REF, true, "No reference selected."},
                          {TU_SR_PKT_TIME_REF, true, "No reference selected."},
                          {TU_SR_EXT_1PPS_REF, false, "Reading latched value failed."}}) {
        MeasureBench bench;
        bench.settle();
        bench.select(c.selected);
        bench.latch(200.0);
        if (!c.latch) bench.noLatch();
        bench.dispatch(KVD_TUHWIF_REF_INTERRUPT, KvdTuhwifRefInterrupt{0, 4});
        EXPECT_EQ(bench.bus.countOf(std::string("Measurement discarded: ") + c.trace), 1u);
        EXPECT_EQ(bench.meas().m[Z_EXT_1PPS_REF], 0.0);
        EXPECT_EQ(bench.meas().t_c_last, -1.0);
    }
}

TEST(Sample, ACounterThatStepsBackOrCantBeReadHalts)
{
    for (const bool reads : {true, false}) {
        SCOPED_TRACE(reads);
        MeasureBench bench;
        bench.settle();
        bench.select(TU_SR_EXT_1PPS_REF);
        bench.edge(800.0);
        bench.run(289.0);                         // 511 s back: no wrap
        if (!reads) bench.failRun();
        bench.endHaltLater();
        bench.dispatch(KVD_TUHWIF_REF_INTERRUPT, KvdTuhwifRefInterrupt{0, 4});
        EXPECT_EQ(bench.bus.countOf("handleRefClkInt: calcSampleTimeInterval failed"), 1u);
        EXPECT_EQ(bench.bus.countOf("halting process"), 1u);
        EXPECT_EQ(bench.bus.countOf("Negative sampling interval length"), reads ? 1u : 0u);
        EXPECT_NEAR(bench.meas().t_f_last, 800.001, 1e-7);
        EXPECT_EQ(bench.meas().measRefData.m, 1.0) << "the first edge's";
    }
}

TEST(TemperatureSample, CountsDownToHistoryAndCalibration)
{
    struct Case { u32 selected; double before, after; };
    for (const Case& c : std::to_array<Case>({{TU_SR_NO_REF, 3.0, 2.0},
                                              {TU_SR_NO_REF, 0.0, 60.0 / 2.1 - 1.0},   // no record: a minute
                                              {TU_SR_PDH_REF1, 0.5, -0.5},
                                              {TU_SR_GPSOSL_REF, 3.0, 3.0},
                                              {TU_SR_SOCPRI_REF, 3.0, 3.0}})) {
        MeasureBench bench;
        bench.settle();
        bench.edit([&](measure::State& s) {
            s.var.selectedRef = c.selected;
            s.var.histCountDown = c.before;
            s.var.calibrationCountDown = 10.0;
            s.var.vTnorm = 0.25;
        });
        bench.in([] { KvdLoz6TuReg_handleTempMeasurement(); });
        EXPECT_NEAR(bench.meas().histCountDown, c.after, 1e-12) << c.selected;
        EXPECT_DOUBLE_EQ(bench.meas().calibrationCountDown, 7.9);
        EXPECT_EQ(bench.meas().measRefData.z, 0.25);
        EXPECT_EQ(bench.meas().measRefData.z_i, u32{Z_TEMP_REF});
        EXPECT_EQ(bench.meas().measRefData.m, 10.0);
        EXPECT_EQ(bench.meas().R_all[Z_TEMP_REF], 1e-6) << "a temperature doesn't adapt its noise";
        bench.in([] {
            KvdLoz6TuReg_setCalibrationCountDown(0.0);
            KvdLoz6TuReg_handleTempMeasurement();
        });
        EXPECT_EQ(bench.meas().calibrationCountDown, 3600.0) << "it was asked for at once";
    }
}
