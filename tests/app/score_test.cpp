// Scores of time error series with results known in closed form.
#include "app/recording.h"
#include "app/score.h"
#include "reg/kvd_reg_mtie.h"

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

}  // namespace
