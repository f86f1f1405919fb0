// Grading, hysteresis, steering and divider words, as functions of their arguments.
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control_int.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

TEST(Grading, OneGradeForEachDecadeAboveTheLimit)
{
    constexpr double INF = std::numeric_limits<double>::infinity();
    struct Case { double distance; int grade; };
    for (const Case& c : std::to_array<Case>({{-INF, 5},
                                              {-3.0, 5},
                                              {0.0, 5},
                                              {1e-12, 4},
                                              {1.0, 4},
                                              {1.0000001, 3},
                                              {2.5, 2},
                                              {3.5, 1},
                                              {40.0, 1},
                                              {INF, 1},
                                              {std::numeric_limits<double>::quiet_NaN(), 1}})) {
        EXPECT_EQ(control::gradeOfDistance(c.distance), c.grade) << c.distance;
    }
}

TEST(Grading, DeviationIsTheOffsetAndThreeSigma)
{
    EXPECT_DOUBLE_EQ(control::logFrequencyDeviation(-7e-9, 1e-18), -8.0);
    EXPECT_DOUBLE_EQ(control::logFrequencyDeviation(1e-6, 0.0), -6.0);
}

TEST(Grading, HysteresisWidensTheWayUpOnly)
{
    FixFilter f;
    f.hyst = 0.5;
    EXPECT_DOUBLE_EQ(control::fixDistance(f, -8.0, 4, 1e-8, 1e-7), 0.5);
    EXPECT_DOUBLE_EQ(control::fixDistance(f, -8.0, 1, 1e-8, 1e-7), 0.5);
    EXPECT_DOUBLE_EQ(control::fixDistance(f, -8.0, 5, 1e-8, 1e-7), -1.0);
}

TEST(Grading, SixtySamplesSetTheHysteresis)
{
    struct Case { const char* what; double step[3]; double hyst; };
    for (const Case& c : std::to_array<Case>({
             {"at rest",                       {0.0, 0.0, 0.0}, 0.0},
             {"only falling",                  {-0.1, -0.1, -0.1}, 0.0},
             // 40 steps of 0.1 up: mean 4/60/2 = 1/30, rising mean 0.1/2; ceil(4.5 * 1.5) = 7
             {"saw-tooth, two up, one down",   {0.1, 0.1, -0.2}, 7.0 / 30.0},
             // 20 steps of 0.1 up: mean 2/60/2 = 1/60, rising mean 0.05; ceil(13.5) = 14
             {"saw-tooth, one up, two down",   {0.1, -0.05, -0.05}, 14.0 / 60.0}})) {
        SCOPED_TRACE(c.what);
        FixFilter f;
        double level = -8.0;
        control::fixFilterStep(f, level);
        for (u32 i = 2; i <= 59; ++i) control::fixFilterStep(f, level += c.step[(i - 2) % 3]);
        EXPECT_EQ(f.hyst, 0.0);
        EXPECT_EQ(f.count, 59u);
        control::fixFilterStep(f, level += c.step[58 % 3]);
        EXPECT_NEAR(f.hyst, c.hyst, 1e-9);
        EXPECT_EQ(f.count, 0u);
        EXPECT_EQ(f.stepSum, 0.0);
        EXPECT_EQ(f.risingCount, 0u);
    }
}

TEST(Grading, HysteresisIsFifteenMeanStepsAtMost)
{
    FixFilter f;
    double level = -8.0;
    for (u32 i = 1; i <= 60; ++i) {
        if (i == 20 || i == 40) level += 0.5;   // mean 1/60/2 = 1/120, rising mean 0.25: 135 steps
        control::fixFilterStep(f, level);
    }
    EXPECT_NEAR(f.hyst, 15.0 / 120.0, 1e-12);
}

TEST(Grading, SingleRisingStepDoesNotMakeAMean)
{
    FixFilter f;
    f.meanRisingStep = 0.4;
    double level = -8.0;
    for (u32 i = 1; i <= 60; ++i) {
        if (i == 30) level += 0.5;
        control::fixFilterStep(f, level);
    }
    EXPECT_DOUBLE_EQ(f.meanRisingStep, 0.2);
}

TEST(Grading, TimeLocksBelowTheLowLimitAndHoldsBelowTheHigh)
{
    struct Case { const char* what; double t_acc; u8 t_ix; bool knowsTime; bool locked; };
    for (const Case& c : std::to_array<Case>({
             {"below low",                  4.9e-7, 1, true, true},
             {"at low",                     5e-7, 1, true, false},
             {"below low, time not known",  4.9e-7, 1, false, false},
             {"between, not locked",        9e-6, 1, true, false},
             {"between, locked",            9e-6, 2, true, true},
             {"between, locked, not known", 9e-6, 3, false, true},
             {"at high, locked",            1e-5, 3, true, false}})) {
        EXPECT_EQ(control::timeIsLocked({c.t_acc, 5e-7, 1e-5, c.t_ix, c.knowsTime}), c.locked)
            << c.what;
    }
}

TEST(Grading, StateByGrades)
{
    struct Case { u8 f_ix, t_ix, t_ixOld, state; };
    for (const Case& c :
         std::to_array<Case>({{1, 1, 1, FREQDRIFTING},
                              {2, 1, 3, SYNCH1},
                              {3, 1, 1, SYNCH2},
                              {4, 1, 1, SYNCH3},
                              {5, 1, 1, FREQLOCKED},
                              {5, 2, 1, FREQLOCKED},
                              {5, 3, 1, FREQLOCKED},
                              {5, 1, 3, FREQLOCKED},
                              {5, 2, 2, TIMELOCKED},
                              {5, 3, 2, TRUETIME},
                              {5, 2, 3, TIMELOCKED},
                              {0, 1, 1, SYNCH3},
                              {6, 1, 1, SYNCH3},   // a grade that can't be leaves the state
                              {5, 4, 2, FREQLOCKED},
                              {5, 0, 2, FREQLOCKED}})) {
        EXPECT_EQ(control::stateOfGrades(c.f_ix, c.t_ix, c.t_ixOld, SYNCH3), c.state)
            << int{c.f_ix} << " " << int{c.t_ix} << " " << int{c.t_ixOld};
    }
}

TEST(Steering, FrequencyIsRemovedUpToOnePpmAStep)
{
    struct Case { double x1, du; };
    for (const Case& c : std::to_array<Case>({{0.0, 0.0},
                                              {4e-7, 5e-4},
                                              {-4e-7, -5e-4},
                                              {1e-6, 1.25e-3},
                                              {2e-6, 1.25e-3},
                                              {-2e-6, -1.25e-3}})) {
        EXPECT_DOUBLE_EQ(control::frequencyStep(c.x1, -8e-4), c.du) << c.x1;
    }
}

// With a gain of -1 and neither offset nor drift, the dead-beat step is x0 / 62.1 and the limit
// step is the band, xf_limit less three sigma, on the side of x0.
TEST(Steering, TimeIsSteeredInsideTheBand)
{
    struct Case { const char* what; double x0, x1, x2, sigma, du; };
    for (const Case& c : std::to_array<Case>({
             {"small offset: dead-beat",                6.21e-8, 0, 0, 0, 1e-9},
             {"small offset, behind",                   -6.21e-8, 0, 0, 0, -1e-9},
             {"large offset: the band",                 6.21e-6, 0, 0, 0, 1.5e-8},
             {"large offset, behind",                   -6.21e-6, 0, 0, 0, -1.5e-8},
             {"sigma shrinks the band",                 6.21e-6, 0, 0, 1e-9, 1.2e-8},
             {"sigma beyond the band, small offset",    6.21e-8, 0, 0, 1e-8, 1e-9},
             {"sigma beyond the band, large offset",    6.21e-6, 0, 0, 1e-8, -1.5e-8},
             {"frequency off: dead-beat takes it out",  0, 5e-9, 0, 0, 5e-9},
             {"signs differ, end inside the band",      6.21e-8, -1.4e-8, 0, 0, -1.3e-8},
             {"already too slow: back to the edge",     6.21e-8, -1.55e-8, 0, 0, -5e-10},
             {"drift over the horizon",                 0, 0, 6.21e-12, 0, 1.28205e-11}})) {
        const control::TimeSteering t =
            control::timeStep(c.x0, c.x1, c.x2, c.sigma * c.sigma, -1.0, 1.5e-8);
        EXPECT_NEAR(t.du, c.du, 1e-16) << c.what;
    }
}

TEST(Divider, WordsOfAValue)
{
    constexpr i64 M = 800000000;
    struct Case { const char* what; double D; u32 hardware; i64 M; u32 nomDiv; i64 K; bool moved; };
    for (const Case& c : std::to_array<Case>({
             {"nominal",                    1250.0, 1249, M, 1249, 0, false},
             {"fraction",                   1250.5, 1249, M, 1249, 400000000, false},
             {"negative fraction",          1249.75, 1249, M, 1249, -200000000, false},
             {"end of reach stays",         1251.0, 1249, M, 1249, 800000000, false},
             {"other end stays",            1249.0, 1249, M, 1249, -800000000, false},
             {"beyond reach moves",         1251.25, 1249, M, 1250, 200000000, true},
             {"below reach moves",          1248.75, 1249, M, 1248, -200000000, true},
             {"half goes to the lower",     1252.5, 1249, M, 1251, 400000000, true},
             {"K of a half goes down",      1250.5, 1249, 1, 1249, 0, false},
             {"K of 1.5 goes down",         1250.5, 1249, 3, 1249, 1, false},
             {"K of -0.5 goes down",        1249.5, 1249, 1, 1249, -1, false},
             {"hardware not set up",        706.0, 0, M, 705, 0, true}})) {
        const control::DividerWords w = control::splitDivider(c.D, c.hardware, c.M);
        EXPECT_EQ(w.nomDiv, c.nomDiv) << c.what;
        EXPECT_EQ(w.K, c.K) << c.what;
        EXPECT_EQ(w.nomDivMoved, c.moved) << c.what;
    }
}
