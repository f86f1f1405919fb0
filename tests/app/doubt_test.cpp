// What stands beside a unit's estimate because its filter can't know it.
#include "app/estimate_doubt.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

// A measurement a second of 10 ns, an estimate of 1 ns and 0.01 ppb; what is told beside three deviations.
struct Doubter {
    app::EstimateDoubt doubt;
    app::EstimateDoubt::Seen seen;
    double t = 0, time_ns = 0, freq_ppb = 0;

    void run(double seconds, double residual_ns, bool measures = true)
    {
        for (const double end = t + seconds; t < end; ++t) {
            if (measures) seen.z = (residual_ns + (static_cast<int>(t) % 2 != 0 ? 1 : -1)) * 1e-9;
            seen.steps = static_cast<u32>(t * (1 + 1 / 2.1));    // the temperature's between
            seen.P0 = 1e-18;
            seen.R = 99e-18;
            app::Estimate e;
            e.timeDeviation_ns = 1;
            e.freqDeviation_ppb = e.freq_ppb = 0.01;
            doubt.take(t, seen, e);
            time_ns = e.timeBand_ns - 3;
            freq_ppb = e.freqBand_ppb - 3 * std::hypot(0.01, 0.01);
        }
    }
};

TEST(EstimateDoubt, ADisagreementWidensTheBandForAnHourAndALossOfTheReferenceFromThenOn)
{
    Doubter d;
    d.run(300, 0);
    EXPECT_LT(d.time_ns, 1.1);
    d.run(300, 20);
    EXPECT_NEAR(d.time_ns, 20, 0.1);
    EXPECT_NEAR(d.freq_ppb, 0.2, 0.02);  // of 20 ns a hundredth is taken back each second
    d.run(3000, 0);
    EXPECT_NEAR(d.time_ns, 20, 0.1);
    d.run(1000, 0);
    EXPECT_LT(d.time_ns, 1.1);
    const double at_loss = d.freq_ppb;
    d.run(10'000, 0, false);
    EXPECT_NEAR(d.time_ns, at_loss * 10'000, 1.1);
    d.seen.used = false;                 // an outlier that the filter refuses says nothing
    d.run(100, 1e6);
    EXPECT_NEAR(d.freq_ppb, at_loss, 1e-9);
}

TEST(EstimateDoubt, ADetourMayBeOneWayAndACompensationWrong)
{
    Doubter d;
    d.seen.pathDelay_ns = 200'000;
    d.run(200, 0);
    const double before_ns = d.time_ns;
    d.seen.pathDelay_ns = 230'000;
    d.seen.compensation_ns = -400;
    d.run(10, 0);
    EXPECT_NEAR(d.time_ns - before_ns, 30'400, 1);
    d.seen.path = 1;                     // another master's path is its own
    d.seen.compensation_ns = 0;
    d.run(4000, 0);
    EXPECT_NEAR(d.time_ns, before_ns, 1);
}

}  // namespace
