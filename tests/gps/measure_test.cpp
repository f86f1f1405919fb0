// A pulse and what the receiver said become a measurement: delays, time of day and its agreement
// with the pulses, noise, another unit's output.
#include "tests/gps/gps_measure.h"

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
}

TEST(GpsMeasurement, TimeOfDayCountsOnceItAgreesWithThePulses)
{
    struct Second { double off; u32 left; double t_mod; };
    struct Case { const char* what; std::vector<Second> seconds; };
    const Case cases[] = {
        {"good from the start", {{0, 2, 1.0}, {0, 1, 1.0}, {0, 0, 1.0}, {0, 0, WITH_TIME}}},
        {"a wrong second between", {{0, 2, 1.0}, {0, 1, 1.0}, {1, 2, 1.0}, {0, 2, 1.0}, {0, 1, 1.0},
                                    {0, 0, 1.0}, {0, 0, WITH_TIME}}},
        {"90 ms off", {{0, 2, 1.0}, {0.09, 1, 1.0}, {-0.09, 0, 1.0}, {0, 0, WITH_TIME}}},
        {"110 ms off", {{0, 2, 1.0}, {0.11, 2, 1.0}, {0.11, 1, 1.0}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        GpsMeasure bench;
        for (const Second& second : c.seconds) {
            bench.second(second.off);
            EXPECT_EQ(bench.left(), second.left);
            EXPECT_EQ(bench.meas().t_mod_old, second.t_mod);
        }
    }
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
    struct Case { double stored, used; };
    for (const Case& c : std::to_array<Case>(
             {{1.1e-14, 1e-14}, {1e-14, 1e-14}, {3e-15, 3e-15}, {5e-16, 5e-16}, {4e-16, 5e-16}})) {
        SCOPED_TRACE(c.stored);
        GpsMeasure bench;
        bench.edit([&](measure::State& s) { s.var.R_all[8] = c.stored; });
        bench.second();
        EXPECT_EQ(bench.meas().measRefData.R, c.used);
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

TEST(GpsMeasurement, AFreeRunningReceiverGivesItsPulseAlone)
{
    GpsMeasure bench;
    for (int i = 0; i < 4; ++i) bench.second();
    const double offset = bench.offset();
    for (const u8 kept : {1, 0}) {
        bench.in([=] { KvdLoz6TuGps_receiverRecord().timeKept = kept; });
        bench.second(kept != 0 ? -7.0 : 0.0);        // the time before stands while it is kept
        EXPECT_NEAR(bench.meas().measRefData.z, 0.0, 1e-6);
        EXPECT_EQ(bench.offset(), offset);
    }
}

TEST(GpsDelay, LargeStepStartsTheNoiseAnew)
{
    struct Case { const char* what; u32 selectedRef; u32 z_i; u16 from_ns, to_ns; bool anew; };
    for (const Case& c : std::to_array<Case>({
             {"100 ns more or less", 6, 8, 1000, 901, false},
             {"101 ns", 6, 8, 1000, 1101, true},
             {"down", 6, 8, 65535, 65400, true},
             {"GPS out", 16, 19, 0, 200, true},
             {"sync link", 17, 20, 0, 200, true},
             {"another reference", 11, 16, 0, 60000, false}})) {
        SCOPED_TRACE(c.what);
        GpsMeasure bench;
        bench.delay(c.from_ns);
        bench.select(c.selectedRef);
        bench.edit([&](measure::State& s) { s.var.m[c.z_i] = 50.0; });
        bench.delay(c.to_ns);
        EXPECT_EQ(bench.meas().m[c.z_i], c.anew ? 0.0 : 50.0);
        bench.in([&] { EXPECT_NEAR(KvdLoz6TuGps_compensationDelay(), c.to_ns * 1e-9, 1e-15); });
    }
}

}  // namespace
