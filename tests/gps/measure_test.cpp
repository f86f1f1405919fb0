// A pulse and what the receiver said become a measurement: delays, time of day and its agreement
// with the pulses, noise, another unit's output.
#include "tests/gps/gps_measure.h"

#include "node/trace.h"
#include "sig/ref_types.h"

namespace {

constexpr double WITH_TIME = 4294967296.0;

using bench::GpsMeasure;

TEST(GpsMeasurement, TakesOffCableAndBoardDelay)
{
    GpsMeasure bench;
    bench.gpsState(GPS_OPERATIONAL);                 // the pulse alone
    bench.second();
    // The latch is 32 ns behind the connector and reads in the middle of an increment, 4.069 ns.
    EXPECT_EQ(bench.meas().measRefData.z_i, 8u);
    EXPECT_NEAR(bench.meas().measRefData.z, -27.931e-9, 1e-12);
    bench.delay(60000);
    bench.second();
    EXPECT_NEAR(bench.meas().measRefData.z, -60.027931e-6, 1e-12);
    EXPECT_EQ(bench.meas().t_mod_old, 1.0);
    bench.delay(30);
    bench.second();
    bench.delay(130);
    EXPECT_EQ(bench.meas().m[8], 1.0) << "100 ns are no step";
}

TEST(GpsMeasurement, TimeOfDayGoesIntoTheOffset)
{
    GpsMeasure bench;
    bench.in([] { regulator::state().sfcGpsOffset = 1'000'000'000.0; });
    for (int i = 0; i < 4; ++i) bench.second();
    // Local 204 s stands for GPS time less the node's zero: 357'776'004 s.
    EXPECT_NEAR(bench.offset(), 204.0 - 357'776'004.0, 1e-6);
    EXPECT_NEAR(bench.meas().measRefData.z, 0.0, 1e-7);
    bench.second(3.0);                               // once it counts, a wrong second is measured
    EXPECT_NEAR(bench.meas().measRefData.z, -3.0, 1e-6);
    bench.gpsState(GPS_OPERATIONAL);                 // no time: within the second again
    bench.second();
    EXPECT_NEAR(bench.meas().measRefData.z, 0.0, 1e-6);
    EXPECT_EQ(bench.meas().t_mod_old, WITH_TIME);
}

TEST(GpsMeasurement, AfterAnotherReferenceTimeCountsAtOnce)
{
    GpsMeasure bench;
    bench.select(TU_SR_NO_REF);
    bench.select(TU_SR_GPS_REF);
    EXPECT_EQ(bench.left(), 2u);                     // from none: as it stood
    bench.select(TU_SR_PDH_REF1);
    bench.select(TU_SR_GPS_REF);
    bench.second();
    EXPECT_EQ(bench.left(), 0u);
    EXPECT_EQ(bench.meas().t_mod_old, WITH_TIME);
}

TEST(GpsMeasurement, KeepsTheNoiseInItsBounds)
{
    struct Case { double stored, used; std::size_t above, below; };
    for (const Case& c : std::to_array<Case>({{1.1e-14, 1e-14, 1, 0}, {1e-14, 1e-14, 0, 0},
                                              {3e-15, 3e-15, 0, 0}, {5e-16, 5e-16, 0, 0},
                                              {4e-16, 5e-16, 0, 1}})) {
        SCOPED_TRACE(c.stored);
        GpsMeasure bench;
        bench.in([] { node::traceSetProgramMask(0xFFFFFFFF); });
        bench.edit([&](measure::State& s) { s.var.R_all[8] = c.stored; });
        bench.second();
        EXPECT_EQ(bench.meas().measRefData.R, c.used);
        EXPECT_EQ(bench.bus.countOf("R > R_ALL_GPS_REF"), c.above);
        EXPECT_EQ(bench.bus.countOf("R < R_ALL_GPS_REF_MIN"), c.below);
    }
}

TEST(GpsMeasurement, AnotherUnitsOutputHasItsOwnReference)
{
    GpsMeasure bench;
    bench.kind(4);
    bench.second();
    EXPECT_EQ(bench.meas().selectedRef, 16u);
    EXPECT_EQ(bench.meas().measRefData.z_i, 19u);
    EXPECT_EQ(bench.meas().measRefData.R, 1e-18);
    EXPECT_EQ(bench.meas().measRefData.m, 1.0);
    bench.second();                                  // and goes on with it
    EXPECT_EQ(bench.meas().measRefData.z_i, 19u);
    EXPECT_EQ(bench.meas().measRefData.m, 2.0);
    bench.kind(3);                                   // looked for anew: not known yet
    bench.second();
    EXPECT_EQ(bench.meas().measRefData.z_i, 19u);
    bench.kind(2);                                   // a receiver
    bench.second();
    EXPECT_EQ(bench.meas().selectedRef, 6u);
    EXPECT_EQ(bench.meas().measRefData.z_i, 8u);
    EXPECT_GE(bench.meas().measRefData.R, 5e-16);
}

}  // namespace
