// The simulated board: the counter's rate, registers and steps; multiplexer, interrupts, temperature sensor.
#include "ose/world.h"
#include "sim/board/board.h"
#include "sim/refs/line_source.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

using ose::MS;
using ose::PS;
using ose::SEC;

// Type 1 has one window, type 2 one for the shared block and one for the counters.
constexpr u32 A = 0xE0070000, B = 0xE1070000, C = 0xE2010000;

sim::BoardConfig configOf(u32 type, const std::string& revision = "R5A2")
{
    sim::BoardConfig config;
    config.type = type;
    config.revision = revision;
    config.counterStart_s = 0.0;
    return config;
}

struct Bench {
    ose::World world{1};
    sim::Board board;
    u32 interrupts = 0;

    explicit Bench(const sim::BoardConfig& config) : board(world, config)
    {
        board.irq = [this] { ++interrupts; };
        board.powerOn(false);
    }
    explicit Bench(u32 type) : Bench(configOf(type)) {}

    u32  read(u32 address) { return board.read(address); }
    void write(u32 address, u32 value) { board.write(address, value); }
    void run(ose::Time span) { world.runFor(span); }
    bool type1() const { return board.config().type == 1; }
    /// A register of the shared block.
    u32  shared(u32 offset) const { return (type1() ? A : B) + offset; }

    /// Divider words, made effective.
    void setDivider(u32 divisor, u32 kHigh, u32 kLow)
    {
        write(shared(0x48), divisor);
        write(shared(0x4C), 0);
        write(shared(0x50), 800'000'000);
        write(shared(0x54), kHigh);
        write(shared(0x58), kLow);
        write(shared(0x5C), 0);
        write(shared(0x5C), 0x80000000);
    }
};

constexpr double PICOSECOND = 1e-12;
constexpr ose::Time DAY = 86'400 * SEC;

TEST(CounterRate, IsExactToAPicosecondOverAMonth)
{
    struct Case {
        const char* what;
        u32 divisor, kHigh, kLow;
        double offset_ppb;
        i64 days;
        double error_s;
    };
    // Revision 3: nominal ratio 1250, M = 8e8, so that K = 1e6 is 1 ppm. A higher ratio is slower.
    for (const Case& c : std::to_array<Case>({
             {"nominal",             1249, 0, 0,                         0.0,   30, 0.0},
             {"oscillator +100 ppb", 1249, 0, 0,                         100.0, 30, 0.2592},
             {"oscillator -0.01 ppb", 1249, 0, 0,                        -0.01, 30, -2.592e-5},
             {"ratio +1 ppm",        1249, 0, 1'000'000,            0.0,   30, -2.591997408002592},
             {"ratio -1 ppm",        1249, 1, 0xFFFFFFFF - 999'999, 0.0,   30, 2.592002592002592},
             {"both",                1249, 0, 1'000'000,            100.0, 1, -0.07775992224007776},
         })) {
        SCOPED_TRACE(c.what);
        sim::BoardConfig config = configOf(1, "R3A1");
        config.oscillator.offset_ppb = c.offset_ppb;
        Bench b(config);
        b.setDivider(c.divisor, c.kHigh, c.kLow);
        b.run(c.days * DAY);
        EXPECT_NEAR(b.board.timeError_s(), c.error_s, PICOSECOND);
    }
}

TEST(RunningCounter, CountsFramesAndIncrementsOnBothTypes)
{
    struct Case { const char* when; ose::Time t; u32 frames, inc, half; };
    for (const Case& c : std::to_array<Case>({
             {"start",                    0,                       0x00000, 0,         0},
             {"just below an increment",  8138 * PS,               0x00000, 0,         1},
             {"just past it",             8139 * PS,               0x00000, 1,         0},
             {"below its half",           12'207 * PS,             0x00000, 1,         0},
             {"past its half",            12'208 * PS,             0x00000, 1,         1},
             {"last of a frame",          10 * MS - 8138 * PS,     0x00000, 1'228'799, 0},
             {"frame",                    10 * MS,                 0x00001, 0,         0},
             {"1.5 s",                    1500 * MS,               0x00096, 0,         0},
             {"last frame of a turn",     40'950 * MS,             0x00FFF, 0,         0},
             {"turn",                     40'960 * MS,             0x01000, 0,         0},
             {"last turn",                1023 * SEC,              0x18F9C, 0,         0},
             {"last increment",           1024 * SEC - 4069 * PS,  0x18FFF, 1'228'799, 1},
             {"wrap",                     1024 * SEC,              0x00000, 0,         0},
             {"after it",                 1024 * SEC + 10 * MS,    0x00001, 0,         0}})) {
        SCOPED_TRACE(c.when);
        Bench b1(1);
        b1.run(c.t);
        EXPECT_EQ(b1.read(A + 0x24), c.frames);
        EXPECT_EQ(b1.read(A + 0x28), c.inc);
        Bench b2(2);
        b2.run(c.t);
        EXPECT_EQ(b2.read(C + 0xC8), c.frames);
        EXPECT_EQ(b2.read(C + 0xCC), c.inc << 1 | c.half);
    }
}

TEST(CounterStep, GoesTheShorterWayAndCarriesIntoTheExternalCounter)
{
    struct Case { const char* what; u32 ext, frames, inc; double error_s; u32 external; };
    for (const Case& c : std::to_array<Case>({
             {"10 ms ahead",        0,        0x00001, 0,         0.01,                 2},
             {"10 ms back",         0xFFFFFF, 0x18FFF, 0,         -0.01,                2},
             {"an increment back",  0xFFFFFF, 0x18FFF, 1'228'799, -1.0 / 122'880'000.0, 2},
             {"half a period",      0,        0x0C800, 0,         512.0,                2},
             {"1000 periods ahead", 1000,     0x00001, 0,         0.01,                 1002},
             {"three periods back", 0xFFFFFD, 0x00000, 0,         0.0,                  0xFFFFFF},
         })) {
        SCOPED_TRACE(c.what);
        Bench b(2);
        b.run(2100 * SEC);                               // wrapped twice
        b.write(C + 0x84, c.ext);
        b.write(C + 0x88, c.frames);
        b.write(C + 0x8C, c.inc << 1);
        b.write(C + 0x90, 0x5);
        b.run(12 * MS);
        EXPECT_NEAR(b.board.timeError_s(), c.error_s, PICOSECOND);
        EXPECT_EQ(b.board.externalCounter(), c.external);
    }
}

TEST(Interrupts, MaskedOnesWaitAndRaiseTheLineWhenTheyAreEnabled)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        const u32 enableAt = type == 1 ? A + 0x40 : C + 0x08;
        const u32 portA = type == 1 ? 0x4 : 0x2;
        Bench b(type);
        b.board.bfnReceived({});
        EXPECT_EQ(b.interrupts, 0u);
        EXPECT_FALSE(b.board.interruptPending());
        b.write(enableAt, portA);
        EXPECT_EQ(b.interrupts, 0u);                     // not in the middle of the access
        b.run(PS);
        EXPECT_EQ(b.interrupts, 1u);
        b.write(enableAt, 0);
        b.board.bfnReceived({});
        EXPECT_EQ(b.interrupts, 1u);
    }
}

TEST(ReferenceSelect, RoutesEachInputByItsField)
{
    struct Case { u32 type, word; int input; };          // -1: nothing is routed
    for (const Case& c : std::to_array<Case>({
             {1, 0x008, -1},    {2, 0x808, -1},
             {1, 0x000, 6},     {2, 0x800, 6},           // 1PPS
             {1, 0x108, 0},     {2, 0x908, 0},           // PDH 1
             {1, 0x10B, 3},     {2, 0x90B, 3},
             {1, 0x10C, 4},     {2, 0x90C, 4},           // SDH
             {1, 0x10D, 5},     {2, 0x90D, 5},           // external frequency
             {1, 0x10E, 8},     {2, 0x90E, -1},          // Ethernet B of type 1
             {1, 0x1108, -1},   {2, 0x1908, 7},          // Ethernet A
             {1, 0x2108, -1},   {2, 0x2908, 8},
             {1, 0x3108, -1},   {2, 0x3908, 9},
             {1, 0x80000148, 0}, {2, 0x80000948, 0}})) { // output and PLL enable beside it
        SCOPED_TRACE(testing::Message() << "type " << c.type << " word " << std::hex << c.word);
        Bench b(c.type);
        b.write(b.shared(0x20), c.word);
        const auto input = b.board.selectedInput();
        EXPECT_EQ(input ? static_cast<int>(*input) : -1, c.input);
        EXPECT_EQ(b.read(b.shared(0x20)), c.word);
    }
}

TEST(ReferenceLatch, ABoardMayEndBeforeItsSource)
{
    ose::World world{1};
    sim::LineSource pps(world, {}, sim::PPS_RATE_Hz, 1, "pps");
    {
        sim::Board board(world, configOf(2));
        board.powerOn(false);
        board.connect(sim::ReferenceInput::Pps, &pps);
        board.write(B + 0x20, 0x800);
    }
    pps.addPhase(0.1);
    world.runFor(2 * SEC);
}

TEST(TemperatureRegister, FollowsItsProfileAndTheOven)
{
    struct Case { const char* what; sim::TemperatureConfig config; i64 t_s; double volts; };
    sim::TemperatureConfig step, day, ramp, series;
    step.shape = sim::TemperatureShape::Step;
    step.amplitude_V = 0.5;
    step.stepAt_s = 100.0;
    day.shape = sim::TemperatureShape::Day;
    day.amplitude_V = 0.2;
    ramp.shape = sim::TemperatureShape::Ramp;
    ramp.slope_V_per_h = -0.1;
    series.shape = sim::TemperatureShape::Series;
    series.series = sim::EndlessSeries({20.0, 30.0, 40.0});
    series.seriesScale_V = 0.01;
    series.seriesOffset_V = 1.5;
    for (const Case& c : std::to_array<Case>({
             {"constant", {}, 5000, 2.0},
             {"before the step", step, 99, 2.0},
             {"at the step", step, 100, 2.5},
             {"morning", day, 0, 2.0},
             {"six hours", day, 21'600, 2.2},
             {"two hours", day, 7200, 2.1},              // sine of 30 degrees
             {"eighteen hours", day, 64'800, 1.8},
             {"ramp", ramp, 7200, 1.8},
             {"series, first", series, 59, 1.7},
             {"series, last", series, 120, 1.9},
             {"series, running back", series, 180, 1.8}})) {
        SCOPED_TRACE(c.what);
        sim::BoardConfig config = configOf(2);
        config.temperature = c.config;
        Bench b(config);
        b.run(c.t_s * SEC);
        EXPECT_NEAR(b.board.temperature_V(), c.volts, 1e-12);
    }
}

}  // namespace
