// Scores of time error series with results known in closed form.
#include "app/packet_time.h"
#include "app/recording.h"
#include "app/score.h"
#include "reg/kvd_reg_mtie.h"
#include "sig/ref_types.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <span>

namespace {

using app::TauValue;

TEST(Series, HaveTheDeviationsOfTheirForm)
{
    std::vector<double> step(100, 0.0), ramp, drift;
    for (std::size_t i = 60; i < step.size(); ++i) step[i] = -25.0;
    for (int i = 0; i < 300; ++i) {
        ramp.push_back(1e6 + 3.0 * i);
        drift.push_back(static_cast<double>(i) * i);
    }
    const std::vector<double> taus = {1, 4, 10};
    for (const TauValue& v : app::mtie(step, 1.0, taus)) EXPECT_DOUBLE_EQ(v.value, 25.0);
    for (const TauValue& v : app::tdev(ramp, 1.0, taus)) EXPECT_NEAR(v.value, 0.0, 1e-6) << v.tau;
    // Of x = t^2 TDEV is 2 n^2 / sqrt(6).
    for (const TauValue& v : app::tdev(drift, 1.0, taus)) EXPECT_NEAR(v.value, v.tau * v.tau * 0.8165, 1e-2);
    // Intervals count in samples; those longer than the series are left out: 11 samples at 0.5 s span 5 s.
    const auto of5s = app::mtie(std::span(ramp).first(11), 0.5, std::array{0.5, 2.5, 5.0, 5.5});
    ASSERT_EQ(of5s.size(), 3u);
    EXPECT_DOUBLE_EQ(of5s[1].value, 15.0);
    EXPECT_DOUBLE_EQ(of5s[2].value, 30.0);
}

TEST(Masks, StandAtTheFiguresOfTheRecommendations)
{
    struct Case { const char* mask; bool mtie; double tau, limit_ns; };
    for (const Case& c : std::to_array<Case>({
             {"G.811", true, 1.0, 25.275}, {"G.811", true, 10000.0, 390.0}, {"G.811", true, 0.1, -1.0},
             {"G.811", false, 500.0, 15.0}, {"G.811", false, 10001.0, -1.0},
             {"G.812-III", true, 10.0, 100.475}, {"G.812-III", false, 2000.0, 10.0},
             {"G.8272", true, 273.0, 100.075}, {"G.8272", true, 274.0, 100.0},
             {"G.8272-B", true, 50.0, 38.75}, {"G.8272-B", false, 300.0, 3.0},
             {"G.8262", true, 1000.0, 100.522}, {"G.8262", true, 1001.0, -1.0},
             {"G.8262", false, 100.0, 6.4}})) {
        SCOPED_TRACE(std::string(c.mask) + (c.mtie ? " MTIE " : " TDEV ") + std::to_string(c.tau));
        const app::Mask* const mask = app::maskByName(c.mask);
        ASSERT_NE(mask, nullptr);
        EXPECT_NEAR(app::maskLimit(c.mtie ? mask->mtie : mask->tdev, c.tau), c.limit_ns, 1e-3);
    }
    EXPECT_EQ(app::maskByName("G.999"), nullptr);
    EXPECT_EQ(app::maskByName("G.8273.2-C")->mtie.front().factor, 10.0);
    EXPECT_NE(app::maskByName("G.8271.1"), nullptr);
    const auto network = app::packetNetworkMask().mtie;
    for (const double tau : {0.5, 1.3, 1.5, 2.4, 2.5, 10.0, 50.0, 100.0, 275.0})      // the unit's own limit
        EXPECT_NEAR(app::maskLimit(network, tau), mtie::mtieLimit(tau) * 1e9, 1e-6) << tau;
}

// A unit locked from sample 100 to 899 and again from 950 to the end.
app::UnitRecording lockedTwice()
{
    app::UnitRecording unit;
    unit.states = {{100.0, 3, "FREQUENCY_LOCKED"}};
    for (int i = 0; i < 1500; ++i) {
        app::Sample s;
        s.t = i;
        s.radioClockState = (i >= 100 && i < 900) || i >= 950 ? 3 : 4;
        s.timeError_ns = i < 900 ? i : 10'000 - 2.0 * i;
        s.freqError_ppb = i < 900 ? 1.0 : -2.0;
        unit.samples.push_back(s);
    }
    return unit;
}

TEST(Score, LeavesOutTheSettlingTimeOfEachLockAndItsOffset)
{
    const app::Scores scores = app::score(lockedTwice(), 1.0);
    ASSERT_EQ(scores.spans.size(), 2u);
    EXPECT_EQ(scores.spans[0].first, 400u);
    EXPECT_EQ(scores.spans[0].last, 899u);
    EXPECT_EQ(scores.spans[1].first, 1250u);
    EXPECT_EQ(scores.spans[1].last, 1499u);
    EXPECT_DOUBLE_EQ(scores.scored_s, 750.0);
    EXPECT_DOUBLE_EQ(scores.timeToLock_s, 100.0);
    EXPECT_DOUBLE_EQ(scores.timeError_ns.max, 499.0);     // 499 s at 1 ns/s, 249 s at -2 ns/s
    EXPECT_DOUBLE_EQ(scores.aboutMean_ns.max, 249.5);     // half the 499 ns that the first stretch spans
    EXPECT_NEAR(scores.freqError_ppb.rms, std::sqrt((500.0 * 1.0 + 250.0 * 4.0) / 750.0), 1e-12);
    EXPECT_DOUBLE_EQ(scores.mtieFrom_s, 400.0);           // the longer span

    // A step of the counters that the rate doesn't explain begins a new stretch, a small one doesn't.
    for (const double step_ns : {1010.0, 990.0}) {
        app::UnitRecording unit = lockedTwice();
        for (std::size_t i = 500; i < 900; ++i) unit.samples[i].timeError_ns += step_ns;
        EXPECT_EQ(app::score(unit, 1.0).spans.at(0).last, step_ns > 1000.0 ? 499u : 899u);
    }
}

TEST(Score, TellsHowFarAHoldoverHasDriftedAfterATime)
{
    app::UnitRecording unit;
    constexpr u8 WARMUP = 1, LOCKED = 8, HOLDOVER = 9;
    for (int i = 0; i < 7000; ++i) {
        app::Sample s;
        s.t = i;
        s.radioClockState = i < 100 ? WARMUP : i < 1000 || i > 4700 ? LOCKED : HOLDOVER;
        // Down by 0.1 ns a second to t = 3000, up again from there.
        if (i >= 1000) s.timeError_ns = 50.0 + (i < 3000 ? -0.1 * (i - 1000) : -200.0 + 0.3 * (i - 3000));
        unit.samples.push_back(s);
    }
    const std::vector<app::Holdover> found = app::holdovers(unit);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_DOUBLE_EQ(found[0].seconds, 3700.0);
    EXPECT_NEAR(found[0].drift_ns, 310.0, 1e-9);
    EXPECT_NEAR(*app::holdoverError_ns(unit, found[0], 2500.0), 200.0, 1e-9);
    EXPECT_NEAR(*app::holdoverError_ns(unit, found[0], 3600.0), 280.0, 1e-9);
    EXPECT_EQ(app::holdoverError_ns(unit, found[0], 3701.0), std::nullopt);
}

// Locked in time from 1000 s on; packets are the reference from 2000 s to 6000 s.
app::UnitRecording lockedToPackets(double (*error_ns)(double t))
{
    app::UnitRecording unit;
    unit.selected = {{0.0, GPS_REF, ""}, {2000.0, PACKET_TIME_REF, ""}, {6000.0, GPS_REF, ""}};
    for (int i = 0; i < 8000; ++i) {
        app::Sample s;
        s.t = i;
        s.radioClockState = i < 1000 ? 3 : 10;
        s.timeError_ns = 5000.0 + error_ns(i);
        constexpr double STEP_ns = 1e9 / 245'760'000.0;
        s.gpsTimeError_ns = std::floor(error_ns(i) / STEP_ns) * STEP_ns;
        unit.samples.push_back(s);
    }
    return unit;
}

TEST(PacketTime, IsScoredWhileAPacketReferenceIsSelectedAlone)
{
    // 12 ns; 25 ns for 60 s, and 300 ns outside.
    const app::PacketTime p = app::packetTime(lockedToPackets([](double t) {
        return t < 2000 || t >= 6000 ? 300.0 : t >= 4000 && t < 4060 ? 25.0 : 12.0 + 0.1 * std::sin(t);
    }), 1.0);
    ASSERT_EQ(p.spans.size(), 1u);
    EXPECT_EQ(p.spans[0].first, 2000u);
    EXPECT_EQ(p.spans[0].last, 5999u);
    EXPECT_DOUBLE_EQ(p.scored_s, 4000.0);
    EXPECT_NEAR(p.maxTe_ns, 25.0, 4.1);
    ASSERT_TRUE(p.cTe_ns);
    EXPECT_NEAR(*p.cTe_ns, 12.78 + (p.maxTe_ns - 25.0), 0.02);        // of the 1000 s with the 25 ns
    std::vector<std::string> held;
    for (const app::TimeClass& c : app::timeClasses())
        if (app::judge(p, c).holds()) held.push_back(c.name);
    EXPECT_THAT(held, testing::ElementsAre("G.8273.2-A", "G.8273.2-B"));
    const app::ClassVerdict v = app::judge(p, app::timeClasses()[2]);
    EXPECT_TRUE(*v.maxTe);
    EXPECT_FALSE(*v.cTe);
    EXPECT_FALSE(*v.mtie);                                            // 13 ns peak to peak, 10 allowed
    EXPECT_EQ(v.maxTeFiltered, std::nullopt);
}

TEST(PacketTime, IsntScoredWithoutATimeOfItsOwn)
{
    app::UnitRecording offset = lockedToPackets([](double) { return 0.0; });
    for (app::Sample& s : offset.samples) s.radioClockState = 8;
    EXPECT_TRUE(app::packetTime(offset, 1.0).spans.empty());
    std::vector<double> x(51, 1.0);
    x[0] = 0.0;
    EXPECT_NEAR(app::lowPass(x, 1.0)[1], 0.4665, 1e-4);               // 1 - exp(-0.2 pi)
    EXPECT_NEAR(app::lowPass(x, 1.0)[50], 1.0, 1e-9);
}

TEST(Restarts, AreJudgedUpToTheNextOne)
{
    app::UnitRecording u;
    for (int t = 0; t <= 400; ++t) {
        app::Sample s;
        s.t = t;
        s.timeError_ns = t < 110 ? 5.0 : 7.5;
        u.samples.push_back(s);
    }
    u.states = {{0, 10, ""}, {110, 7, ""}, {125, 10, ""}, {200, 7, ""}, {310, 10, ""}};
    const app::Restart kept{100, 110, 4, 10, app::FROM_PERSISTENT_MEMORY, 114};
    const app::Restart short_{199, 200, 4, 10, "flash /d/kvd_loz_data_1", 204};
    const app::Restart last{299, 300, 4, 10, "flash /d/kvd_loz_data_1", 304};
    u.restarts = {kept, short_, last};
    EXPECT_EQ(app::timeToFormerState_s(u, kept), 15.0);
    EXPECT_EQ(app::timeToFormerState_s(u, short_), std::nullopt);   // the next came first
    EXPECT_EQ(app::timeToFormerState_s(u, last), 10.0);
    EXPECT_EQ(app::errorAcrossGap_ns(u, kept), 2.5);
    EXPECT_EQ(app::errorAcrossGap_ns(u, last), std::nullopt);       // flash keeps no time
}

}  // namespace
