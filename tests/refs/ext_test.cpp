// Plain references: the noise that each hands over, the sensitivity of the 1PPS, fast lock.
#include "reg/support/measure_bench.h"

#include "refs/kvd_eth.h"
#include "refs/kvd_ext.h"
#include "sig/ref_types.h"

using regtest::MeasureBench;

namespace {

/// Eight edges of a line, one sample.
void lineSecond(MeasureBench& bench, double& edge) { for (int i = 0; i < 8; ++i) bench.edge(edge += 0.125); }

u32 sensitive(MeasureBench& bench)
{
    ose::DataScope scope(*bench.block);
    return KvdLoz6TuExt_stateSensitive();
}

TEST(ExternalFrequency, FastLockTakesItsOwnNoise)
{
    struct Case { u32 useFastLock; double R_fastLock; double R; };
    for (const Case& c : std::to_array<Case>(
             {{0, 5e-10, 5e-10}, {1, 3e-12, 3e-12}, {1, 1e-14, 1e-14}, {0, 1e-14, 5e-10}})) {
        MeasureBench bench;
        bench.settle();
        bench.in([&] { KvdLoz6TuExt_setFastLock(c.useFastLock, c.R_fastLock); });
        bench.select(TU_SR_EXT_REF);
        double edge = 200.0;
        lineSecond(bench, edge);
        EXPECT_EQ(bench.meas().measRefData.R, c.R);
        bench.in([] { KvdLoz6TuReg_measInitiate({}); });
        EXPECT_EQ(bench.meas().R_all[Z_EXT_REF], c.useFastLock != 0 ? c.R_fastLock : 5e-10);
        EXPECT_EQ(bench.bus.countOf(c.useFastLock != 0 ? "useFastLock=True" : "useFastLock=False"), 1u);
    }
}

TEST(Lines, AllHaveTheirNoise)
{
    for (u32 ref = TU_SR_PDH_REF1; ref <= TU_SR_SDH_REF; ++ref) {
        MeasureBench bench;
        bench.settle();
        bench.select(ref);
        double edge = 200.0;
        bench.edit([](measure::State& s) { std::fill_n(&s.var.R_all[Z_PDH_REF1], 5, 1.0); });
        lineSecond(bench, edge);
        EXPECT_EQ(bench.meas().measRefData.R, 5e-10) << ref;
    }
}

TEST(External1pps, EarlyPulseIsDroppedOnce)
{
    struct Step { const char* what; double z; u32 sensitive; double R; };
    MeasureBench bench;
    bench.settle();
    bench.select(TU_SR_EXT_1PPS_REF);
    double second = 200.0;
    bench.edge(second);                            // defines the offset
    for (const Step& step : std::to_array<Step>({
             {"good",                           0.0,     1, 1e-14},
             {"just below the limit",           0.00099, 1, 1e-14},
             {"late by two ms: kept",          -0.002,   1, 1e-14},
             {"above the limit: dropped",       0.00101, 0, 0.0},
             {"above it again: used",           0.00101, 0, 1e-14},
             {"between the limits",             0.0007,  0, 1e-14},
             {"below the lower limit",          0.00049, 1, 1e-14},
             {"between the limits again",       0.0007,  1, 1e-14},
             {"above the limit: dropped again", 0.0011,  0, 0.0},
             {"far below",                     -0.3,     1, 1e-14}})) {
        SCOPED_TRACE(step.what);
        const TimePair offset = {bench.meas().delta0_c, bench.meas().delta0_f};
        second += 1.0;
        // The filter may have folded its estimate into the offset; z counts from there.
        bench.edge(second + step.z + offset.c + offset.f);
        EXPECT_NEAR(bench.meas().measRefData.z, step.z, 2e-8);
        EXPECT_EQ(sensitive(bench), step.sensitive);
        EXPECT_EQ(bench.meas().measRefData.R, step.R);
    }
}

}  // namespace
