// The frame counter: its rate, its registers on both board types, steps, the output's copy, the NTP
// counter.
#include "board_bench.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace {

using boardtest::A;
using boardtest::B;
using boardtest::Bench;
using boardtest::C;
using boardtest::configOf;
using ose::MS;
using ose::NS;
using ose::PS;
using ose::SEC;
using ose::US;

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

TEST(CounterRate, NominalRatioOfEachBoardGivesTheNominalRate)
{
    struct Case { const char* what; u32 type; const char* revision; bool ext; u32 divisor, k; };
    for (const Case& c : std::to_array<Case>({
             {"type 1",                       1, "R5A2", false, 705, 69'791'666},
             {"type 1 has no phase detector", 1, "R5A2", true,  705, 69'791'666},
             {"type 2",                       2, "R5A2", false, 705, 69'791'666},
             {"type 2, phase detector",       2, "R5A2", true,  109, 260'904'947},
             {"revision 3",                   2, "R3A1", true,  1249, 0}})) {
        SCOPED_TRACE(c.what);
        sim::BoardConfig config = configOf(c.type, c.revision);
        config.extPhaseDetector = c.ext;
        Bench b(config);
        b.setDivider(c.divisor, 0, c.k);
        EXPECT_EQ(b.board.frequencyError(), 0.0);
        EXPECT_EQ(b.board.divider(), c.divisor + 1 + c.k / 8e8);
    }
}

TEST(CounterRate, ManyReadsDoNotMoveIt)
{
    sim::BoardConfig config = configOf(2);
    config.oscillator.offset_ppb = 12.5;
    Bench often(config);
    Bench seldom(config);
    for (int i = 0; i < 10'000; ++i) {
        often.run(99'999'937 * NS + i * PS);
        often.read(C + 0xC8);
    }
    seldom.run(often.world.now());
    EXPECT_NEAR(often.board.timeError_s(), seldom.board.timeError_s(), 1e-15);
    const double seconds = static_cast<double>(often.world.now()) * 1e-12;
    EXPECT_NEAR(seldom.board.timeError_s(), 12.5e-9 * seconds, PICOSECOND);
}

TEST(CounterRate, ChangesAtTheRisingEdgeOfTheEnableAlone)
{
    Bench b(configOf(1, "R3A1"));
    b.setDivider(1249, 0, 0);
    b.write(A + 0x58, 1'000'000);
    EXPECT_EQ(b.board.frequencyError(), 0.0);
    b.write(A + 0x5C, 0x80000000);                       // already high
    EXPECT_EQ(b.board.frequencyError(), 0.0);
    b.run(500 * MS);
    b.write(A + 0x5C, 0x7FFFFFFF);
    EXPECT_EQ(b.board.frequencyError(), 0.0);
    b.write(A + 0x5C, 0x80000000);
    EXPECT_NEAR(b.board.frequencyError(), -9.99999000001e-7, 1e-20);
    b.run(500 * MS);                                     // in the middle of an oscillator segment
    EXPECT_NEAR(b.board.timeError_s(), -4.999995000005e-7, 1e-15);
}

TEST(CounterRate, KeepsItsLastRatioForWordsThatGiveNone)
{
    Bench b(configOf(1, "R3A1"));
    b.setDivider(1249, 0, 1'000'000);
    const double before = b.board.frequencyError();
    b.write(A + 0x50, 0);                                // M of 0
    b.write(A + 0x5C, 0);
    b.write(A + 0x5C, 0x80000000);
    EXPECT_EQ(b.board.frequencyError(), before);
}

TEST(CounterRate, FollowsTheOscillatorSegmentBySegment)
{
    sim::BoardConfig config = configOf(2);
    config.oscillator.series = sim::EndlessSeries({1e-6, 3e-6, 5e-6, 3e-6});
    for (const double segment_s : {1.0, 2.0}) {
        SCOPED_TRACE(segment_s);
        config.oscillator.segment_s = segment_s;
        Bench b(config);
        b.setNominalDivider();
        b.run(2 * SEC);
        EXPECT_NEAR(b.board.timeError_s(), 4e-6, 1e-15);   // a segment takes the record's mean
        b.run(2 * SEC);
        EXPECT_NEAR(b.board.timeError_s(), 12e-6, 1e-15);
    }
}

// ---- registers ----------------------------------------------------------------------------------

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

TEST(RunningCounter, TheFrameWordHoldsTheIncrementsOnType2Alone)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        Bench b(type);
        b.run(10 * MS);
        b.read(type == 1 ? A + 0x24 : C + 0xC8);
        b.run(100 * US);                                 // 12288 increments
        EXPECT_EQ(b.read(type == 1 ? A + 0x28 : C + 0xCC), type == 1 ? 12'288u : 0u);
    }
}

TEST(RunningCounter, StartsWhereItIsToldAndRunsOnThroughAReset)
{
    sim::BoardConfig config = configOf(2);
    config.counterStart_s = 41.0;
    Bench b(config);
    EXPECT_EQ(b.read(C + 0xC8), 0x01004u);
    b.run(10 * MS);
    b.board.reset();
    EXPECT_EQ(b.read(C + 0xC8), 0x01005u);
    b.run(SEC);
    b.board.powerOff();
    b.run(SEC);
    b.board.powerOn(true);
    EXPECT_EQ(b.read(C + 0xC8), 0x01004u);
    EXPECT_EQ(b.board.timeError_s(), 0.0);
}

TEST(RunningCounter, FieldsOutOfRangeAreReadAsTheFaultSays)
{
    Bench b(2);
    b.run(10 * MS);
    b.board.faults.counterMfn = 25;
    EXPECT_EQ(b.read(C + 0xC8), 0x19001u);
    b.board.faults.counterInc = 1'228'800;
    b.read(C + 0xC8);
    EXPECT_EQ(b.read(C + 0xCC) >> 1, 1'228'800u);
    b.board.faults.unmapped = sim::REGION_TIMING;
    EXPECT_EQ(b.read(C + 0xC8), 0xFFFFFFFFu);
    EXPECT_EQ(b.read(B + 0x7C), 0x52354132u);            // "R5A2", in another window
    b.board.faults.unmapped = sim::REGION_SHARED;
    EXPECT_EQ(b.read(B + 0x7C), 0xFFFFFFFFu);
    b.write(B + 0x0C, 1);
    b.board.faults = {};
    EXPECT_EQ(b.read(B + 0x0C), 0u);
}

// ---- steps --------------------------------------------------------------------------------------

TEST(CounterStep, Type1StepsAtTheWriteOfTheIncrements)
{
    Bench b(1);
    b.write(A + 0x2C, 0x01002);                          // 40.96 s and two frames
    EXPECT_EQ(b.read(A + 0x24), 0u);
    b.write(A + 0x30, 5);
    EXPECT_EQ(b.read(A + 0x24), 0x01002u);
    EXPECT_EQ(b.read(A + 0x28), 5u);
    EXPECT_NEAR(b.board.timeError_s(), 40.98 + 5 / 122.88e6, PICOSECOND);
    b.write(A + 0x30, 5);                                // the frames stand: again by the same
    EXPECT_EQ(b.read(A + 0x24), 0x02004u);
}

TEST(CounterStep, Type2LoadsWithinTenMillisecondsOfTheOrder)
{
    Bench b(2);
    b.write(C + 0x88, 0x00003);
    b.write(C + 0x8C, 7 << 1);
    b.run(100 * MS);
    EXPECT_EQ(b.read(C + 0xC8), 0x0000Au);               // not yet ordered
    b.write(C + 0x90, 0x5);
    EXPECT_EQ(b.read(C + 0x94), 0u);
    b.run(10 * MS);
    EXPECT_EQ(b.read(C + 0x94) & 1, 1u);
    EXPECT_EQ(b.read(C + 0xC8), 0x0000Eu);
    EXPECT_EQ(b.read(C + 0xCC), 7u << 1);
    b.write(C + 0x90, 0x5);                              // no new order while the bits stand
    b.run(20 * MS);
    EXPECT_EQ(b.read(C + 0xC8), 0x00010u);
    b.write(C + 0x90, 0x0);
    EXPECT_EQ(b.read(C + 0x94), 0u);
    b.board.faults.loadNeverDone = true;
    b.write(C + 0x90, 0x5);
    b.run(SEC);
    EXPECT_EQ(b.read(C + 0x94), 0u);
    EXPECT_EQ(b.read(C + 0xC8), 0x00074u);
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

// ---- output, NTP --------------------------------------------------------------------------------

TEST(OutputCounter, TellsTheNextPulseAndIsMovedByTheOffset)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        sim::BoardConfig config = configOf(type);
        config.counterStart_s = 41.25;                   // pulses come a quarter past the second
        Bench b(config);
        const u32 framesAt = type == 1 ? A + 0x130 : C + 0xF0;
        const u32 incsAt = type == 1 ? A + 0x134 : C + 0xF4;
        const u32 offsetAt = type == 1 ? A + 0x134 : C + 0xF8;
        b.run(500 * MS);
        // 42.25 s: mfn 1, sfn 129 = 1 * 128 + 1.
        EXPECT_EQ(b.read(framesAt), 1u << 5 | 1u);
        EXPECT_EQ(b.read(incsAt), type == 1 ? 1u << 21 : 1u << 22);
        // Moved by 50 frames and 614400 increments, 0.505 s: 41.755 s comes first. mfn 1, sfn 79.
        b.write(offsetAt, type == 1 ? 50u << 21 | 614'400u : 50u << 22 | 614'400u << 1);
        EXPECT_EQ(b.read(framesAt), 1u << 5 | 0u);
        EXPECT_EQ(b.read(incsAt), type == 1 ? 79u << 21 | 614'400u : 79u << 22 | 614'400u << 1);
    }
}

TEST(OutputCounter, InterruptsOnceASecondAtItsPulseWhateverTheOutputDoes)
{
    sim::BoardConfig config = configOf(2);
    config.counterStart_s = 10.75;
    config.oscillator.offset_ppb = 5000.0;
    Bench b(config);
    b.write(C + 0xF8, 25u << 22);                        // onto the whole second
    b.write(C + 0x08, 0x1);
    EXPECT_FALSE(b.board.outputEnabled());
    for (u32 pulse = 1; pulse <= 5; ++pulse) {
        const u32 before = b.interrupts;
        while (b.interrupts == before) b.run(US);
        EXPECT_EQ(b.read(C + 0x04), 0x1u);
        b.write(C + 0x04, 0x1);
        const sim::CounterTriple c = b.board.counter();
        EXPECT_EQ(c.sfn, 1000 + 100 * pulse);
        EXPECT_LT(c.inc, 200u);                          // a microsecond of the search
        EXPECT_EQ(b.read(C + 0xF0) << 7 | b.read(C + 0xF4) >> 22, 1100 + 100 * pulse);
    }
    // A step of the counter moves the pulse with it.
    b.write(C + 0x88, 50);
    b.write(C + 0x8C, 0);
    b.write(C + 0x90, 0x5);
    b.run(480 * MS);
    EXPECT_EQ(b.interrupts, 5u);
    b.run(30 * MS);
    EXPECT_EQ(b.interrupts, 6u);
    b.write(C + 0x08, 0);
    b.run(5 * SEC);
    EXPECT_EQ(b.interrupts, 6u);
}

TEST(NtpCounter, StandsAtTheLastFrameEdgeAndIsNotStepped)
{
    Bench b(1);
    b.run(1255 * MS);
    EXPECT_EQ(b.read(A + 0x04), 1u);
    EXPECT_EQ(b.read(A + 0x08), 0x40000000u);            // 1.25 s
    b.write(A + 0x2C, 50);
    b.write(A + 0x30, 0);
    EXPECT_EQ(b.read(A + 0x24), 175u);
    EXPECT_EQ(b.read(A + 0x04), 1u);
    EXPECT_EQ(b.read(A + 0x08), 0x40000000u);
    EXPECT_NEAR(b.board.timeError_s(), 0.5, 1e-3);
    EXPECT_NEAR(b.board.stampError_s(), 0.0, 1e-3);
    b.run(2000 * SEC);                                   // doesn't wrap with the frame counter
    EXPECT_EQ(b.read(A + 0x04), 2001u);
}

// ---- BFN link -----------------------------------------------------------------------------------

TEST(BfnLink, LatchesTheCounterBesideTheFarUnitsWords)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        const u32 base = type == 1 ? A + 0x100 : C + 0xD0;
        sim::BoardConfig config = configOf(type);
        config.counterStart_s = 123.45;                  // mfn 3, sfn 57
        Bench b(config);
        b.run(100 * US);                                 // 12288 increments
        b.board.bfnReceived(
            {.remoteMfn = 24, .remoteSfn = 4095, .word1 = 0x3FFFFF, .word2 = 0x1F654321});
        EXPECT_EQ(b.read(base), 0xA0000000u | 57u << 12 | 4095u);
        EXPECT_EQ(b.read(base + 4), 12'288u << (type == 1 ? 10 : 11) | 3u << 5 | 24u);
        EXPECT_EQ(b.read(base + 8), 0x3FFFFFu);
        EXPECT_EQ(b.read(base + 12), 0x1F654321u);
        b.run(SEC);
        EXPECT_EQ(b.read(base) >> 12 & 0xFFF, 57u);
        b.board.bfnReceived(
            {.extended = false, .parityError = true, .valid = false, .localMfn = 25});
        EXPECT_EQ(b.read(base) >> 29, 0x2u);
        EXPECT_EQ(b.read(base + 4) >> 5 & 0x1F, 25u);
        // The pair goes out at the second word's write, once.
        b.write(type == 1 ? A + 0x110 : C + 0xE0, 0x40000000);
        EXPECT_FALSE(b.board.takeBfnWords());
        b.write(type == 1 ? A + 0x114 : C + 0xE4, 0x12345678);
        EXPECT_EQ(b.board.takeBfnWords(), std::pair(0x40000000u, 0x12345678u));
        EXPECT_FALSE(b.board.takeBfnWords());
    }
}

}  // namespace
