// From a reference's edge to a sample: what is let in, what is dropped, what each leaves.
#include "reg/support/measure_bench.h"

#include "sig/ref_types.h"

using regtest::MeasureBench;

namespace {

constexpr SIGSELECT REF_INTERRUPT = KVD_TUHWIF_REF_INTERRUPT;

constexpr const char* HALTED = "halting process";

}  // namespace

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

TEST(Interrupt, EdgeWithoutAReferenceIsDropped)
{
    MeasureBench bench;
    bench.settle();
    for (const u32 selected : {TU_SR_NO_REF, TU_SR_NTP_REF, TU_SR_IDL1_REF, TU_SR_PKT_TIME_REF}) {
        bench.select(selected);
        const double before = bench.meas().t_c_last;
        bench.bus.traces.clear();
        bench.edge(200.0);
        EXPECT_EQ(bench.bus.countOf("Measurement discarded: No reference selected."), 1u)
            << selected;
        EXPECT_EQ(bench.meas().t_c_last, before);
    }
}

TEST(Interrupt, StatesWithoutMeasurements)
{
    struct Case { u8 regState; u32 selected, previous; double m; };
    for (const Case& c : std::to_array<Case>({{WARMUP, 11, 0, 0},
                                              {FAILURE, 11, 0, 0},
                                              {UNKNOWN, 11, 0, 0},
                                              {FREQDRIFTING, 11, 0, 1},
                                              {PREJUMPSTART, 11, 0, 1}})) {
        SCOPED_TRACE(int{c.regState});
        MeasureBench bench;
        bench.settle();
        bench.in([&] {
            measure::state().var.selectedRef = c.selected;
            measure::state().var.prevSelectedRef = c.previous;
            KvdLoz6TuReg_forceRegState(c.regState);
        });
        bench.edge(200.0);
        EXPECT_EQ(bench.meas().m[Z_EXT_1PPS_REF], c.m);
        EXPECT_EQ(bench.meas().t_c_last, c.m > 0 ? 0.0 : -1.0);
    }
    EXPECT_TRUE(measure::isValidState(UNKNOWN, SOCPRI_REF, 18, 0));
    EXPECT_TRUE(measure::isValidState(UNKNOWN, NO_REF, 0, 18));
    EXPECT_FALSE(measure::isValidState(UNKNOWN, NO_REF, 0, 17));
}

TEST(Sample, LatchThatCantBeReadCountsNothing)
{
    MeasureBench bench;
    bench.settle();
    bench.select(TU_SR_EXT_1PPS_REF);
    bench.noLatch();
    bench.dispatch(REF_INTERRUPT, KvdTuhwifRefInterrupt{0, 4});
    EXPECT_EQ(bench.bus.countOf("Measurement discarded: Reading latched value failed."), 1u);
    EXPECT_EQ(bench.meas().m[Z_EXT_1PPS_REF], 0.0);
    EXPECT_EQ(bench.meas().t_c_last, -1.0);
}

TEST(Sample, OneEdgeInEightOfALineIsMeasured)
{
    struct Case { const char* what; u32 selected; u32 z_i; double afterSeven, afterEight; };
    for (const Case& c : std::to_array<Case>({
             {"PDH 2",    TU_SR_PDH_REF2,     Z_PDH_REF2,     10000, 10001},
             {"SDH",      TU_SR_SDH_REF,      Z_SDH_REF,      10000, 10001},
             {"external", TU_SR_EXT_REF,      Z_EXT_REF,      0,     1},
             {"Ethernet", TU_ETH_REF,         Z_ETH_REF,      10000, 10001},
             {"1PPS",     TU_SR_EXT_1PPS_REF, Z_EXT_1PPS_REF, 7,     8}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.settle();
        bench.select(c.selected);
        for (int i = 0; i < 7; ++i) bench.edge(200.0 + i * 0.125);
        EXPECT_EQ(bench.meas().m[c.z_i], c.afterSeven);
        bench.edge(200.875);
        EXPECT_EQ(bench.meas().m[c.z_i], c.afterEight);
        EXPECT_EQ(bench.meas().measRefData.z_i, c.z_i);
    }
}

TEST(Sample, IntervalGoesOnAcrossTheWrapOfTheCounter)
{
    MeasureBench bench;
    bench.settle();
    bench.select(TU_SR_EXT_1PPS_REF);
    bench.edge(1023.0);
    EXPECT_EQ(bench.meas().t_c_last, 0.0);
    bench.edge(1024.0);
    EXPECT_EQ(bench.meas().t_c_last, 1024.0);
    EXPECT_NEAR(bench.meas().measRefData.t_s, 1.0, 1e-8);
    EXPECT_NEAR(bench.meas().measRefData.z, 0.0, 1e-8);
}

TEST(Sample, LatchBeforeTheWrapReadAfterIt)
{
    MeasureBench bench;
    bench.settle();
    bench.select(TU_SR_EXT_1PPS_REF);
    bench.edge(1022.98, 0.04);
    bench.in([&] {
        bench.latch(1023.98);
        bench.run(0.02);
        LatchedEdge edge{};
        ASSERT_EQ(KvdLoz6TuReg_handleRefClkInt(edge), 1);
        EXPECT_EQ(edge.time[0], 0.0);
        EXPECT_NEAR(edge.time[1], 1023.98, 1e-8);
        EXPECT_NEAR(edge.t_s, 1.0, 1e-8);
    });
    EXPECT_EQ(bench.meas().t_c_last, 1024.0);
}

TEST(Sample, LateHandlingIsDroppedAndItsTimeCounted)
{
    struct Case { const char* what; double latched, lag; bool used; };
    for (const Case& c : std::to_array<Case>({
             {"just in time",             300.0,   0.09999, true},
             {"just too late",            300.0,   0.10001, false},
             {"in time across the wrap",  1023.95, 0.09999, true},
             {"too late across the wrap", 1023.95, 0.10001, false}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.settle();
        bench.select(TU_SR_EXT_1PPS_REF);
        bench.edge(c.latched - 1);
        const double z_i_before = bench.meas().measRefData.t_s;
        bench.edge(c.latched, c.lag);
        EXPECT_EQ(bench.meas().m[Z_EXT_1PPS_REF], 2.0);
        EXPECT_NEAR(bench.meas().t_f_last, std::fmod(c.latched + c.lag, 1024.0), 1e-7);
        EXPECT_EQ(bench.bus.countOf("Measurement discarded: Diff betw curr."), c.used ? 0u : 1u);
        EXPECT_EQ(bench.meas().measRefData.t_s == z_i_before, !c.used);
    }
}

TEST(Sample, BackwardStepStopsTheUnitUnlessItLooksLikeAWrap)
{
    struct Case { const char* what; double next; bool halts; double t_c; };
    for (const Case& c : std::to_array<Case>({{"back 511 s", 289.0, true, 0.0},
                                              {"back 513 s: a wrap", 287.0, false, 1024.0}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.settle();
        bench.select(TU_SR_EXT_1PPS_REF);
        bench.edge(800.0);
        if (c.halts) bench.endHaltLater();
        bench.edge(c.next);
        EXPECT_EQ(bench.bus.countOf(HALTED), c.halts ? 1u : 0u);
        EXPECT_EQ(bench.bus.countOf("Negative sampling interval length"), c.halts ? 1u : 0u);
        EXPECT_EQ(bench.meas().t_c_last, c.t_c);
        EXPECT_NEAR(bench.meas().t_f_last, c.halts ? 800.001 : 287.001, 1e-7);
        ASSERT_EQ(bench.bus.errorLog.size(), c.halts ? 1u : 0u);
        if (!c.halts) continue;
        EXPECT_EQ(bench.bus.errorLog[0],
                  "MCO KVD: Calculate Samplings Intervall Failed - Negative samplings intervall");
        bench.endHaltLater();
        bench.edge(c.next + 1);
        EXPECT_EQ(bench.bus.errorLog.size(), 1u) << "once a program life";
    }
}

TEST(Sample, CounterThatCantBeReadHalts)
{
    MeasureBench bench;
    bench.settle();
    bench.select(TU_SR_EXT_1PPS_REF);
    bench.latch(200.0);
    bench.failRun();
    bench.endHaltLater();
    bench.dispatch(REF_INTERRUPT, KvdTuhwifRefInterrupt{0, 4});
    EXPECT_EQ(bench.bus.countOf("handleRefClkInt: calcSampleTimeInterval failed"), 1u);
    EXPECT_EQ(bench.bus.countOf(HALTED), 1u);
}

TEST(PhaseError, WiderModulusDoesntStepTheMeasurement)
{
    MeasureBench bench;
    bench.settle();
    bench.edit([](measure::State& s) { s.var.selectedRef = TU_SR_GPS_REF; });
    const double reference[2] = {1299999744.0, 0.0};     // a GPS second, multiple of 1024
    double z = 0, phase = 0;
    TimePair pair{};
    bench.in([&] {
        const double first[2] = {4096.0, 10.2500003}, second[2] = {4096.0, 11.2500004};
        const double none[2] = {0.0, 0.0}, known[2] = {reference[0], 11.0};
        KvdLoz6TuReg_calcZ(1.0, first, none, z, pair, phase);
        EXPECT_NEAR(z, 0.0, 1e-12) << "the first sample defines the offset";
        KvdLoz6TuReg_calcZ(1.0, second, none, z, pair, phase);
        EXPECT_NEAR(z, 1e-7, 1e-12);
        KvdLoz6TuReg_calcZ(4294967296.0, second, known, z, pair, phase);
        EXPECT_NEAR(z, 1e-7, 1e-12);
        EXPECT_TRUE(KvdLoz6TuReg_knowsTime());
    });
    EXPECT_EQ(bench.meas().delta0_c, 4096.0 - 1299999744.0);
    EXPECT_NEAR(bench.meas().delta0_f, 0.2500003, 1e-9);
    bench.in([&] {                                        // a narrower one leaves what is known
        const double third[2] = {4096.0, 12.2500005}, none[2] = {0.0, 0.0};
        KvdLoz6TuReg_calcZ(0.125, third, none, z, pair, phase);
        EXPECT_NEAR(z, 2e-7, 1e-12);
        EXPECT_EQ(KvdLoz6TuReg_getMod(), 4294967296.0);
    });
}

TEST(PhaseError, OffsetLimit)
{
    struct Case { u32 selected; double c, f; int applied; };
    for (const Case& c : std::to_array<Case>({{TU_SR_GPS_REF, 0.0, 4.9e-8, 0},
                                              {TU_SR_GPS_REF, 0.0, -4.9e-8, 0},
                                              {TU_SR_GPS_REF, 0.0, 4.91e-8, 1},
                                              {TU_SR_GPS_REF, 1.0, -1.0, 0},
                                              {TU_SR_SOCPRI_REF, 0.0, 4.9e-8, 1},
                                              {TU_SR_SOCPRI_REF, 0.0, 0.0, 1}})) {
        MeasureBench bench;
        bench.settle();
        bench.in([&] {
            KvdLoz6TuReg_setSelectedRef(c.selected);
            KvdLoz6TuReg_setOffset(2.0, 0.5);
            EXPECT_EQ(KvdLoz6TuReg_adjustOffset(c.c, c.f), c.applied) << c.selected << " " << c.f;
        });
        EXPECT_EQ(bench.meas().delta0_f, c.applied != 0 ? 0.5 + c.f : 0.5);
    }
}

TEST(SignalBreak, TrainOfStepsStopsBeingHidden)
{
    MeasureBench bench;
    bench.settle();
    bench.select(TU_ETH_REF);
    double edge = 200.0;
    u32 compensated = 0;
    const auto second = [&](double step) {                // eight edges, then the sample
        edge += step;
        for (int i = 0; i < 8; ++i) bench.edge(edge += 0.125);
        compensated =
            static_cast<u32>(bench.bus.countOf("Reference signal break detected, compensating."));
    };
    second(0);
    second(0);
    EXPECT_EQ(bench.meas().refBreak, 0);
    // Two a break and one back a good second: 2, 4, 6, and there it is full.
    second(0.0003);
    EXPECT_EQ(bench.meas().refBreak, 2);
    EXPECT_EQ(bench.meas().measRefData.R, 0.0) << "the step mustn't reach the filter";
    second(0.0003);
    second(0.0003);
    EXPECT_EQ(bench.meas().refBreak, 6);
    EXPECT_EQ(compensated, 3u);
    EXPECT_NEAR(bench.meas().delta0_c + bench.meas().delta0_f, 0.0009, 1e-7);
    second(0.0003);
    EXPECT_EQ(compensated, 3u);
    EXPECT_EQ(bench.meas().refBreak, 6);
    EXPECT_NEAR(bench.meas().measRefData.z, 0.0003, 1e-7);
    EXPECT_EQ(bench.meas().measRefData.R, 5e-10);
    // Part of that step went through the filter into the offset; the rest is taken back.
    second(bench.meas().delta0_c + bench.meas().delta0_f - 0.0012);
    second(0);
    EXPECT_EQ(bench.meas().refBreak, 4);
    second(0.0003);                                       // room for one again
    EXPECT_EQ(compensated, 4u);
}

TEST(SignalBreak, LimitIsOnBothSides)
{
    struct Case { double step; u8 refBreak; };
    for (const Case& c :
         std::to_array<Case>({{6.24e-5, 0}, {6.26e-5, 2}, {-6.24e-5, 0}, {-6.26e-5, 2}})) {
        MeasureBench bench;
        bench.settle();
        bench.select(TU_SR_PDH_REF1);
        double edge = 200.0;
        for (int i = 0; i < 16; ++i) bench.edge(edge += 0.125);
        edge += c.step;
        for (int i = 0; i < 8; ++i) bench.edge(edge += 0.125);
        EXPECT_EQ(bench.meas().refBreak, c.refBreak) << c.step;
    }
}

TEST(ReferenceChange, UnknownReferenceCountsAsNone)
{
    MeasureBench bench;
    bench.settle();
    bench.select(TU_SR_PDH_REF1);
    bench.edit([](measure::State& s) { s.var.histCountDown = 5, s.var.refBreak = 3; });
    bench.select(19);
    EXPECT_EQ(bench.bus.countOf("handleConfigRefType: Not supported reference (19)"), 1u);
    EXPECT_EQ(bench.meas().selectedRef, 0u);
    EXPECT_EQ(bench.meas().prevSelectedRef, 1u);
    EXPECT_EQ(bench.meas().histCountDown, 5.0);
    EXPECT_EQ(bench.meas().refBreak, 3);
}

TEST(ReferenceChange, KnownTimeOutlivesAChange)
{
    struct Case { const char* what; u32 from, to; double t_mod, t_modAfter, delta0_c; };
    for (const Case& c : std::to_array<Case>({
             {"GPS lost",                       6,  0,  4294967296.0, 4294967296.0, 5.0},
             {"GPS that gave seconds only",     6,  0,  1.0,          0.0,          0.0},
             {"to a line",                      6,  1,  4294967296.0, 4294967296.0, 5.0},
             {"sync link to packet time",       17, 13, 4294967296.0, 0.0,          0.0},
             {"GPS output to packet time",      16, 13, 4294967296.0, 0.0,          0.0},
             {"GPS to packet time",             6,  13, 4294967296.0, 4294967296.0, 5.0}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.settle();
        bench.edit([&](measure::State& s) {
            s.var.selectedRef = c.from;
            s.var.t_mod_old = c.t_mod;
            s.var.delta0_c = 5.0;
        });
        bench.select(c.to);
        EXPECT_EQ(bench.meas().t_mod_old, c.t_modAfter);
        EXPECT_EQ(bench.meas().delta0_c, c.delta0_c);
    }
}

TEST(PacketCounter, ThreeEqualDifferencesPutTheCheckToSleep)
{
    MeasureBench bench(1);
    bench.settle();
    bench.select(TU_SR_EXT_1PPS_REF);
    bench.edge(200.0);                                    // a sample wakes the check
    const auto tick = [&](double t, u32 ntpSeconds, double ntpFraction) {
        bench.run(t);
        bench.bus.memory[hwtest::BASE_1 + 0x4] = ntpSeconds;
        bench.bus.memory[hwtest::BASE_1 + 0x8] = static_cast<u32>(ntpFraction * 4294967296.0);
        bench.in([] {
            measure::state().diffCheckTicks = 100;
            KvdLoz6TuReg_handleInterrupt(2);
        });
    };
    const auto diff = [&] {
        ose::DataScope scope(*bench.block);
        const TimePair d = KvdLoz6TuReg_sfcNtpDiff();
        return d.c + d.f;
    };
    const auto isAwake = [&] {
        ose::DataScope scope(*bench.block);
        return measure::state().diffCheckActive == 1;
    };
    tick(200.105, 150, 0.1);
    EXPECT_NEAR(diff(), 50.0, 1e-8);
    tick(200.205, 150, 0.2);
    EXPECT_TRUE(isAwake());
    tick(201.305, 151, 0.3);                              // another second, the same difference
    EXPECT_FALSE(isAwake());
    EXPECT_EQ(bench.bus.countOf("Three consecutive diff received!"), 1u);

    bench.edge(202.0);
    tick(202.105, 152, 0.09);                          // latched late by a frame: larger, not taken
    EXPECT_NEAR(diff(), 50.0, 1e-8);
    tick(202.205, 152, 0.21);                             // smaller: taken
    EXPECT_NEAR(diff(), 49.99, 1e-8);

    bench.in([] { KvdLoz6TuReg_diffCheckAfterJump(); });
    tick(202.305, 142, 0.3);                              // after a step whatever comes is taken
    EXPECT_NEAR(diff(), 60.0, 1e-8);
    EXPECT_TRUE(isAwake());
}

TEST(PacketCounter, OtherBoardHasNone)
{
    MeasureBench bench(2);
    bench.settle();
    bench.in([] {
        measure::setDiffCheckActive();
        KvdLoz6TuReg_handleInterrupt(2);
        EXPECT_EQ(KvdLoz6TuReg_sfcNtpDiff().c, 0.0);
    });
    EXPECT_EQ(bench.bus.countOf("tuHwIf_readNtp failed"), 0u);
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
    }
}

TEST(Initiation, RestoresEveryIndexButSocpri)
{
    MeasureBench bench;
    bench.settle();
    std::array<double, Z_I_COUNT> m{}, R{};
    for (u32 z_i = 0; z_i < Z_I_COUNT; ++z_i) m[z_i] = 1000 + z_i, R[z_i] = 1e-9 * (1 + z_i);
    bench.in([&] {
        MeasInitiation values;
        values.m = &m;
        values.R_all = &R;
        values.coldRestart = true;
        KvdLoz6TuReg_measInitiate(values);
        EXPECT_EQ(KvdLoz6TuReg_coldRestartFlag(), 1u);
        KvdLoz6TuReg_measInitiate({});
        EXPECT_EQ(KvdLoz6TuReg_coldRestartFlag(), 1u) << "never cleared by an initiation";
        KvdLoz6TuReg_measInitiate(values);
    });
    EXPECT_EQ(bench.meas().m[20], 1020.0);
    EXPECT_EQ(bench.meas().R_all[20], 1e-9 * 21);
    EXPECT_EQ(bench.meas().m[21], 0.0);
    EXPECT_EQ(bench.meas().R_all[21], 0.0);
    EXPECT_EQ(bench.meas().t_c_last, -1.0);
}
