// Detectors, multiplexer, interrupts and temperature sensor of the board.
#include "board_bench.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>

namespace {

using boardtest::A;
using boardtest::B;
using boardtest::Bench;
using boardtest::C;
using boardtest::configOf;
using ose::MS;
using ose::PS;
using ose::SEC;
using sim::ReferenceInput;

std::unique_ptr<sim::LineSource> makeSource(Bench& b, u32 rate_Hz, double phase_s = 0.0)
{
    sim::LineConfig config;
    config.phase_s = phase_s;
    return std::make_unique<sim::LineSource>(b.world, config, rate_Hz, 1, "ref");
}

// ---- interrupts ---------------------------------------------------------------------------------

TEST(Interrupts, HaveTheBitsOfTheirBoardAndAreClearedItsWay)
{
    // Enable words for port A, 100 ms, reference.
    struct Case { u32 type, enableAt, pendingAt, portA, tick, reference; };
    for (const Case& c : std::to_array<Case>({{1, A + 0x40, A + 0x44, 0x4, 0x1, 0x2},
                                              {2, C + 0x08, C + 0x04, 0x2, 0x8, 0x4}})) {
        SCOPED_TRACE(c.type);
        Bench b(c.type);
        const auto pps = makeSource(b, sim::PPS_RATE_Hz, 0.05);
        b.board.connect(ReferenceInput::Pps, pps.get());
        b.write(b.shared(0x20), 0);
        b.write(c.enableAt, c.portA | c.tick | c.reference);
        EXPECT_EQ(b.read(c.enableAt), c.portA | c.tick | c.reference);
        b.run(99 * MS);
        EXPECT_EQ(b.interrupts, 1u);                     // the reference at 50 ms
        b.board.bfnReceived({});
        b.run(MS);
        EXPECT_EQ(b.interrupts, 3u);
        EXPECT_TRUE(b.board.interruptPending());
        EXPECT_EQ(b.read(c.pendingAt), c.portA | c.tick | c.reference);
        if (c.type == 2) {                               // cleared by writing back, bit by bit
            EXPECT_EQ(b.read(c.pendingAt), c.portA | c.tick | c.reference);
            b.write(c.pendingAt, c.tick);
            EXPECT_EQ(b.read(c.pendingAt), c.portA | c.reference);
            b.write(c.pendingAt, c.portA | c.reference);
        }
        EXPECT_EQ(b.read(c.pendingAt), 0u);
        EXPECT_FALSE(b.board.interruptPending());
        b.run(SEC);
        EXPECT_EQ(b.interrupts, 3u + 10 + 1);
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

TEST(Interrupts, TickStopsWithItsEnableAndWithThePower)
{
    Bench b(2);
    b.write(C + 0x08, 0x8);
    b.run(SEC);
    EXPECT_EQ(b.interrupts, 10u);
    b.write(C + 0x08, 0x0);
    b.run(SEC);
    EXPECT_EQ(b.interrupts, 10u);
    b.write(C + 0x08, 0x8);
    b.board.powerOff();
    b.run(SEC);
    EXPECT_EQ(b.interrupts, 10u);
    b.board.powerOn(false);                              // registers at their reset values
    EXPECT_EQ(b.read(C + 0x08), 0u);
    b.run(SEC);
    EXPECT_EQ(b.interrupts, 10u);
}

// ---- references ---------------------------------------------------------------------------------

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

TEST(ReferenceLatch, TakesTheCounterAtTheEdgeOfTheSelectedReferenceAlone)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        Bench b(type);
        const auto pdh = makeSource(b, sim::LINE_RATE_Hz, 0.0101);
        const auto pps = makeSource(b, sim::PPS_RATE_Hz, 0.02);
        b.board.connect(ReferenceInput::Pdh2, pdh.get());
        b.board.connect(ReferenceInput::Pps, pps.get());
        const auto valid = [&] { return b.read(type == 1 ? A + 0x34 : C + 0xB4) >> 31 != 0; };
        const auto frames = [&] { return b.read(type == 1 ? A + 0x34 : C + 0xB8) & 0x1FFFF; };
        const auto incs = [&] { return b.read(type == 1 ? A + 0x38 : C + 0xBC); };
        b.run(5 * SEC);
        EXPECT_FALSE(valid());
        b.write(b.shared(0x20), 0x109);                  // PDH 2
        b.write(type == 1 ? A + 0x40 : C + 0x08, type == 1 ? 0x2 : 0x4);
        b.run(15 * MS);
        EXPECT_TRUE(valid());
        EXPECT_EQ(frames(), 501u);
        EXPECT_EQ(incs(), type == 1 ? 12'288u : 24'576u);   // 100 us
        b.run(SEC);
        EXPECT_EQ(b.interrupts, 9u);                     // 8 Hz
        b.write(b.shared(0x20), 0x000);                  // 1PPS at 6.02 and 7.02 s and 32 ns
        b.run(SEC + 10 * MS);
        EXPECT_EQ(b.interrupts, 11u);
        EXPECT_EQ(frames(), 702u);
        EXPECT_EQ(incs(), type == 1 ? 3u : 7u);          // 3.93 increments
        b.board.faults.latchInvalid = true;
        EXPECT_FALSE(valid());
        b.board.faults.latchMfn = 25;
        b.board.faults.latchInc = 1'228'800;
        b.run(SEC);
        EXPECT_EQ(frames() >> 12, 25u);
        EXPECT_EQ(incs() >> (type == 1 ? 0 : 1), 1'228'800u);
        b.write(b.shared(0x20), 0x008);
        b.run(5 * SEC);
        EXPECT_EQ(b.interrupts, 12u);
    }
}

TEST(ReferenceLatch, FollowsWhatTheSourceDoes)
{
    Bench b(2);
    auto pps = makeSource(b, sim::PPS_RATE_Hz, 0.1);
    b.board.connect(ReferenceInput::Pps, pps.get());
    b.write(B + 0x20, 0x800);
    b.write(C + 0x08, 0x4);
    b.run(2 * SEC);
    EXPECT_EQ(b.interrupts, 2u);
    pps->setPresent(false);
    b.run(2 * SEC);
    EXPECT_EQ(b.interrupts, 2u);
    EXPECT_EQ(b.read(C + 0xB4), 0x80000000u);            // the old latch stands
    pps->setPresent(true);
    b.run(2 * SEC);
    EXPECT_EQ(b.interrupts, 4u);
    pps->addPhase(0.2);                                  // from 6.1 to 6.3 s
    b.run(200 * MS);
    EXPECT_EQ(b.interrupts, 4u);
    b.run(200 * MS);
    EXPECT_EQ(b.interrupts, 5u);
    pps.reset();                                         // taken out with its end
    b.run(3 * SEC);
    EXPECT_EQ(b.interrupts, 5u);
    pps = makeSource(b, sim::PPS_RATE_Hz);
    b.board.connect(ReferenceInput::Pps, pps.get());
    b.run(2 * SEC);
    EXPECT_EQ(b.interrupts, 7u);
}

TEST(ReferenceLatch, ABoardMayEndBeforeItsSource)
{
    ose::World world{1};
    sim::LineSource pps(world, {}, sim::PPS_RATE_Hz, 1, "pps");
    {
        sim::Board board(world, configOf(2));
        board.powerOn(false);
        board.connect(ReferenceInput::Pps, &pps);
        board.write(B + 0x20, 0x800);
    }
    pps.addPhase(0.1);
    world.runFor(2 * SEC);
}

// ---- toggle detectors ---------------------------------------------------------------------------

TEST(ToggleDetectors, SeeWhatIsConnected)
{
    struct Case { u32 type; ReferenceInput input; u32 raw; };
    for (const Case& c : std::to_array<Case>({
             {1, ReferenceInput::Pdh1, 0x1},       {2, ReferenceInput::Pdh4, 0x8},
             {1, ReferenceInput::Sdh, 0x10},       {2, ReferenceInput::Sdh, 0x10},
             {1, ReferenceInput::Pps, 0xA0},       {2, ReferenceInput::Pps, 0xA0},
             {1, ReferenceInput::ExternalFrequency, 0x120},
             {2, ReferenceInput::ExternalFrequency, 0x120},
             {1, ReferenceInput::EthernetA, 0x0},  {2, ReferenceInput::EthernetA, 0x400},
             {1, ReferenceInput::EthernetB, 0x400}, {2, ReferenceInput::EthernetB, 0x800},
             {1, ReferenceInput::EthernetC, 0x0},  {2, ReferenceInput::EthernetC, 0x1000}})) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << " raw " << std::hex << c.raw);
        Bench b(c.type);
        const auto source = makeSource(b, sim::LINE_RATE_Hz);
        EXPECT_EQ(b.read(b.shared(0x18)), 0u);
        b.board.connect(c.input, source.get());
        EXPECT_EQ(b.read(b.shared(0x18)), c.raw);
        source->setStuck(true);                          // edges stop, the toggling doesn't
        EXPECT_EQ(b.read(b.shared(0x18)), c.raw);
        source->setPresent(false);
        EXPECT_EQ(b.read(b.shared(0x18)), 0u);
    }
}

TEST(ToggleDetectors, ModeBitsOfTheCommonInputCanBeForced)
{
    Bench b(2);
    const auto source = makeSource(b, sim::LINE_RATE_Hz);
    b.board.connect(ReferenceInput::ExternalFrequency, source.get());
    b.board.setCommonMode(2);
    EXPECT_EQ(b.read(B + 0x18), 0x220u);
    b.board.setCommonMode(0);
    EXPECT_EQ(b.read(B + 0x18), 0x020u);
    b.board.setCommonMode(std::nullopt);
    EXPECT_EQ(b.read(B + 0x18), 0x120u);
}

TEST(ToggleDetectors, SeeWhatTheHardwareMonitorFeedsThem)
{
    struct Case { const char* mode; u32 value; bool withReference, withoutReference; };
    constexpr ReferenceInput INPUTS[] = {ReferenceInput::Pdh1, ReferenceInput::Pdh2,
                                         ReferenceInput::Pdh3, ReferenceInput::Pdh4,
                                         ReferenceInput::Sdh,  ReferenceInput::ExternalFrequency};
    for (const Case& c : std::to_array<Case>({{"zero in", 0, false, false},
                                              {"reference in", 1, true, false},
                                              {"clock in", 2, true, true},
                                              {"zero in, off", 4, false, false},
                                              {"reference in, off", 5, false, false},
                                              {"clock in, off", 6, false, false}})) {
        for (u32 detector = 0; detector < 6; ++detector) {
            SCOPED_TRACE(testing::Message() << c.mode << ", detector " << detector);
            Bench b(2);
            const u32 mask = 1u << detector;
            b.write(B + 0x74, (b.read(B + 0x74) & ~(7u << 3 * detector)) | c.value << 3 * detector);
            EXPECT_EQ(b.read(B + 0x18), c.withoutReference ? mask : 0u);
            const auto source = makeSource(b, sim::LINE_RATE_Hz);
            b.board.connect(INPUTS[detector], source.get());
            EXPECT_EQ(b.read(B + 0x18) & 0x3F, c.withReference ? mask : 0u);
        }
    }
}

TEST(ToggleDetectors, CanBeStuck)
{
    Bench b(2);
    const auto source = makeSource(b, sim::LINE_RATE_Hz);
    b.board.connect(ReferenceInput::Pdh1, source.get());
    b.board.faults.toggleStuckOn = 0x4;
    b.board.faults.toggleStuckOff = 0x1;
    EXPECT_EQ(b.read(B + 0x18), 0x4u);
    b.write(B + 0x74, 0);
    EXPECT_EQ(b.read(B + 0x18), 0x4u);
}

// ---- temperature --------------------------------------------------------------------------------

TEST(TemperatureRegister, HasTwoForms)
{
    struct Case { const char* revision; double volts; u32 word; };
    for (const Case& c : std::to_array<Case>({
             {"R5A2", 0.0, 0x80000000},  {"R5A2", 1.25, 0x8000A000}, {"R5A2", 3.0, 0x80018000},
             {"R5A2", 4.5, 0x8001FFFF},                              // the field's end
             {"R3A1", 0.0, 0x80008000},  {"R3A1", 1.25, 0x8000D000}, {"R3A1", 4.0, 0x80018000},
             {"R3A1", 4.5, 0x8001A000}})) {
        SCOPED_TRACE(testing::Message() << c.revision << " " << c.volts << " V");
        sim::BoardConfig config = configOf(2, c.revision);
        config.temperature.base_V = c.volts;
        Bench b(config);
        EXPECT_EQ(b.read(B + 0x10), c.word);
        b.board.faults.temperatureRaw = 32'767;          // out of the range of revision 3
        EXPECT_EQ(b.read(B + 0x10), 0x80007FFFu);
        b.board.faults.temperatureInvalid = true;
        EXPECT_EQ(b.read(B + 0x10) >> 31, 0u);
    }
}

TEST(TemperatureRegister, FollowsItsProfileAndTheOven)
{
    struct Case { const char* what; sim::TemperatureConfig config; i64 t_s; double volts; };
    sim::TemperatureConfig step, day, ramp, series, cold;
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

TEST(Oven, WarmsUpInMinutesAndTheFrequencyWithIt)
{
    sim::BoardConfig config = configOf(2);
    config.temperature.coldStart_V = 0.5;
    config.temperature.warmUpTau_s = 60.0;
    config.oscillator.warmUp_ppb = 500.0;
    config.oscillator.offset_ppb = 10.0;
    config.oscillator.retrace_ppb = 20.0;
    config.oscillator.retraceTau_s = 3600.0;
    Bench b(config);
    EXPECT_NEAR(b.board.temperature_V(), 2.0, 1e-12);
    b.board.powerOff();
    b.run(10 * SEC);
    b.board.powerOn(true);
    EXPECT_NEAR(b.board.temperature_V(), 0.5, 1e-12);
    b.run(60 * SEC);                                     // 1/e is left
    EXPECT_NEAR(b.board.temperature_V(), 2.0 - 1.5 * 0.36787944117144233, 1e-12);
    EXPECT_NEAR(b.board.frequencyError(),
                1e-8 + 5e-7 * 0.36787944117144233 + 2e-8 * 0.9834714538216175, 1e-15);
    b.run(1740 * SEC);
    EXPECT_NEAR(b.board.temperature_V(), 2.0, 1e-9);
    EXPECT_NEAR(b.board.frequencyError(), 1e-8 + 2e-8 * 0.6065306597126334, 1e-15);
    b.board.reset();                                     // a reset doesn't cool it
    EXPECT_NEAR(b.board.temperature_V(), 2.0, 1e-9);
}

}  // namespace
