// The simulated board where no scenario goes: far steps of the counter, all inputs, odd temperatures.
#include "ose/world.h"
#include "sim/board/board.h"
#include "sim/refs/line_source.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using ose::MS;
using ose::SEC;

// Type 1 has one window, type 2 one for the shared block and one for the counters.
constexpr u32 A = 0xE0070000, B = 0xE1070000, C = 0xE2010000;

struct Bench {
    ose::World world{1};
    sim::Board board;

    explicit Bench(u32 type, const sim::TemperatureConfig& temperature = {})
        : board(world, configOf(type, temperature))
    {
        board.powerOn(false);
    }
    static sim::BoardConfig configOf(u32 type, const sim::TemperatureConfig& temperature)
    {
        sim::BoardConfig config;
        config.type = type;
        config.revision = "R5A2";
        config.counterStart_s = 0.0;
        config.temperature = temperature;
        return config;
    }
};

TEST(CounterStep, GoesTheShorterWayAndCarriesIntoTheExternalCounter)
{
    struct Case { const char* what; u32 ext, frames, inc; double error_s; u32 external; };
    for (const Case& c : std::to_array<Case>({
             {"10 ms ahead",        0,        0x00001, 0,         0.01,                 2},
             {"an increment back",  0xFFFFFF, 0x18FFF, 1'228'799, -1.0 / 122'880'000.0, 2},
             {"half a period",      0,        0x0C800, 0,         512.0,                2},
             {"1000 periods ahead", 1000,     0x00001, 0,         0.01,                 1002},
             {"three periods back", 0xFFFFFD, 0x00000, 0,         0.0,                  0xFFFFFF}})) {
        SCOPED_TRACE(c.what);
        Bench b(2);
        b.world.runFor(2100 * SEC);                      // wrapped twice
        b.board.write(C + 0x84, c.ext);
        b.board.write(C + 0x88, c.frames);
        b.board.write(C + 0x8C, c.inc << 1);
        b.board.write(C + 0x90, 0x5);
        b.world.runFor(12 * MS);
        EXPECT_NEAR(b.board.timeError_s(), c.error_s, 1e-12);
        EXPECT_EQ(b.board.externalCounter(), c.external);
    }
}

TEST(ReferenceSelect, RoutesEachInputByItsField)
{
    struct Case { u32 type, word; int input; };          // -1: nothing is routed
    for (const Case& c : std::to_array<Case>({
             {1, 0x008, -1},    {2, 0x808, -1},
             {1, 0x000, 6},     {2, 0x800, 6},           // 1PPS
             {1, 0x10B, 3},     {2, 0x90B, 3},           // PDH 4
             {1, 0x10C, 4},     {2, 0x90C, 4},           // SDH
             {1, 0x10D, 5},     {2, 0x90D, 5},           // external frequency
             {1, 0x10E, 8},     {2, 0x90E, -1},          // Ethernet B of type 1
             {1, 0x1108, -1},   {2, 0x1908, 7},          // Ethernet A
             {1, 0x3108, -1},   {2, 0x3908, 9},
             {1, 0x80000148, 0}, {2, 0x80000948, 0}})) { // output and PLL enable beside it
        SCOPED_TRACE(testing::Message() << "type " << c.type << " word " << std::hex << c.word);
        Bench b(c.type);
        b.board.write((c.type == 1 ? A : B) + 0x20, c.word);
        const auto input = b.board.selectedInput();
        EXPECT_EQ(input ? static_cast<int>(*input) : -1, c.input);
    }
}

TEST(ReferenceLatch, ABoardMayEndBeforeItsSource)
{
    ose::World world{1};
    sim::LineSource pps(world, {}, sim::PPS_RATE_Hz, 1, "pps");
    {
        sim::Board board(world, Bench::configOf(2, {}));
        board.powerOn(false);
        board.connect(sim::ReferenceInput::Pps, &pps);
        board.write(B + 0x20, 0x800);
    }
    pps.addPhase(0.1);
    world.runFor(2 * SEC);
}

TEST(TemperatureRegister, FollowsItsProfile)
{
    sim::TemperatureConfig step, ramp, series;
    step.shape = sim::TemperatureShape::Step;
    step.amplitude_V = 0.5;
    step.stepAt_s = 100.0;
    ramp.shape = sim::TemperatureShape::Ramp;
    ramp.slope_V_per_h = -0.1;
    series.shape = sim::TemperatureShape::Series;
    series.series = sim::EndlessSeries({20.0, 30.0, 40.0});
    series.seriesScale_V = 0.01;
    series.seriesOffset_V = 1.5;
    struct Case { const char* what; sim::TemperatureConfig config; i64 t_s; double volts; };
    for (const Case& c : std::to_array<Case>({{"before the step", step, 99, 2.0},
                                              {"at the step", step, 100, 2.5},
                                              {"ramp", ramp, 7200, 1.8},
                                              {"series, first", series, 59, 1.7},
                                              {"series, last", series, 120, 1.9},
                                              {"series, running back", series, 180, 1.8}})) {
        SCOPED_TRACE(c.what);
        Bench b(2, c.config);
        b.world.runFor(c.t_s * SEC);
        EXPECT_NEAR(b.board.temperature_V(), c.volts, 1e-12);
    }
}

}  // namespace
