// Random streams and the noise of oscillators and pulses: levels, independence, the same bytes each
// time.
#include "sim/clock/noise.h"
#include "sim/clock/oscillator.h"
#include "sim/clock/random.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>
#include <vector>

namespace {

/// Overlapping Allan deviation at n samples of relative frequency, interval 1.
double allan(const std::vector<double>& y, std::size_t n)
{
    std::vector<double> x(1, 0.0);
    for (const double value : y) x.push_back(x.back() + value);
    double sum = 0.0;
    std::size_t count = 0;
    for (std::size_t i = 0; i + 2 * n < x.size(); ++i, ++count) {
        const double d = x[i + 2 * n] - 2.0 * x[i + n] + x[i];
        sum += d * d;
    }
    return std::sqrt(sum / 2.0 / static_cast<double>(count)) / static_cast<double>(n);
}

std::vector<double> samples(sim::FrequencyNoise noise, std::size_t count)
{
    std::vector<double> y;
    for (std::size_t i = 0; i < count; ++i) y.push_back(noise.next());
    return y;
}

TEST(RandomStream, IsTheGeneratorOfItsAuthors)
{
    // xoshiro256** begun with the first four words of splitmix64 from 1234567.
    sim::Random random(1234567, "");
    EXPECT_EQ(random.bits(), 3504822795582309479u);
    EXPECT_EQ(random.bits(), 1819558768956484042u);
    EXPECT_EQ(random.bits(), 1250851346055027673u);
    EXPECT_EQ(random.bits(), 16940231675099994102u);
}

TEST(RandomStream, GaussianHasTheMomentsOfANormalLaw)
{
    sim::Random random(7, "gaussian");
    constexpr int COUNT = 1'000'000;
    double sum = 0.0, square = 0.0, fourth = 0.0;
    int beyondTwo = 0;
    for (int i = 0; i < COUNT; ++i) {
        const double g = random.gaussian();
        sum += g;
        square += g * g;
        fourth += g * g * g * g;
        beyondTwo += std::abs(g) > 2.0;
    }
    EXPECT_NEAR(sum / COUNT, 0.0, 0.004);
    EXPECT_NEAR(square / COUNT, 1.0, 0.006);
    EXPECT_NEAR(fourth / COUNT, 3.0, 0.05);
    EXPECT_NEAR(static_cast<double>(beyondTwo) / COUNT, 0.0455, 0.001);
}

TEST(PortableMath, AgreesWithTabulatedValues)
{
    EXPECT_NEAR(sim::portable::ln(2.0), 0.693147180559945309, 1e-15);
    EXPECT_NEAR(sim::portable::ln(1e-300), -690.775527898213705, 1e-12);
    EXPECT_NEAR(sim::portable::ln(0.7071067811865475), -0.346573590279972655, 1e-15);
    EXPECT_EQ(sim::portable::ln(1.0), 0.0);
    EXPECT_NEAR(sim::portable::exp(-1.0), 0.367879441171442322, 1e-15);
    EXPECT_NEAR(sim::portable::exp(-40.0) / 4.24835425529158900e-18, 1.0, 1e-14);
    EXPECT_EQ(sim::portable::exp(0.0), 1.0);
    EXPECT_EQ(sim::portable::exp(-1000.0), 0.0);
    EXPECT_NEAR(sim::portable::sineOfTurns(1.0 / 12.0), 0.5, 1e-15);
    EXPECT_NEAR(sim::portable::sineOfTurns(0.25), 1.0, 1e-15);
    EXPECT_NEAR(sim::portable::sineOfTurns(-10.25), -1.0, 1e-15);
    EXPECT_NEAR(sim::portable::sineOfTurns(5.625), -0.707106781186547524, 1e-14);
}

TEST(FrequencyNoise, HasTheAllanDeviationThatItIsTold)
{
    struct Case {
        const char* what;
        sim::FrequencyNoiseLevels levels;
        double segment_s;
        std::size_t n;
        double sigma, tolerance;
    };
    for (const Case& c : std::to_array<Case>({
             {"white at 1 s",             {1e-11, 0, 0}, 1.0,  1,    1e-11,   0.03},
             {"white at 100 s",           {1e-11, 0, 0}, 1.0,  100,  1e-12,   0.05},
             {"white, segments of 10 s",  {1e-11, 0, 0}, 10.0, 10,   1e-12,   0.03},
             {"flicker at 30 s",          {0, 5e-12, 0}, 1.0,  30,   5e-12,   0.05},
             {"flicker at 1000 s",        {0, 5e-12, 0}, 1.0,  1000, 5e-12,   0.15},
             {"walk at 100 s",            {0, 0, 1e-14}, 1.0,  100,  1e-13,   0.05},
             {"walk at 1000 s",           {0, 0, 1e-14}, 1.0,  1000, 3.16e-13, 0.15},
             {"walk, segments of 10 s",   {0, 0, 1e-14}, 10.0, 100,  3.16e-13, 0.05}})) {
        SCOPED_TRACE(c.what);
        const double sigma = allan(samples({c.levels, c.segment_s, 3, "y"}, 200'000), c.n);
        EXPECT_NEAR(sigma / c.sigma, 1.0, c.tolerance);
    }
}

// ---- oscillator ---------------------------------------------------------------------------------

TEST(Oscillator, AddsUpItsTerms)
{
    struct Case {
        const char* what;
        sim::OscillatorConfig config;
        u64 segment;
        double volts, coldness, y;
    };
    sim::OscillatorConfig nominal, ageing, polynomial, slope, warmUp, longSegments;
    nominal.nominal_Hz = 10'000'001.0;
    nominal.offset_ppb = -30.0;
    ageing.ageing_ppb_per_day = 0.5;
    polynomial.a[0] = 4.0;
    polynomial.a[1] = -3.0;
    polynomial.a[2] = 2.0;
    polynomial.a[3] = -1.0;
    slope.slope_ppb_per_V = 8.0;
    warmUp.warmUp_ppb = 400.0;
    longSegments = ageing;
    longSegments.segment_s = 10.0;
    for (const Case& c : std::to_array<Case>({
             {"perfect", {}, 1000, 1.7, 0.0, 0.0},
             {"nominal and offset", nominal, 0, 2.0, 0.0, 7e-8},
             {"two days", ageing, 172'800, 2.0, 0.0, 1e-9},
             {"two days in long segments", longSegments, 17'280, 2.0, 0.0, 1e-9},
             {"polynomial at 2 V", polynomial, 0, 2.0, 0.0, -2e-9},
             {"polynomial at 0.5 V", polynomial, 0, 0.5, 0.0, 2.875e-9},
             {"slope", slope, 0, 1.75, 0.0, -2e-9},
             {"half warm", warmUp, 0, 2.0, 0.5, 2e-7}})) {
        SCOPED_TRACE(c.what);
        sim::Oscillator oscillator(c.config, 1, "x");
        EXPECT_NEAR(oscillator.frequency(c.segment, c.volts, c.coldness), c.y, 1e-18);
    }
}

}  // namespace
