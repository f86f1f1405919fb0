// Time counters: reading with their range checks, stepping, the BFN link and its noise, the output
// counter.
#include "hw/fake_bus.h"

#include <gtest/gtest.h>

using namespace hwtest;
using namespace hwif;

TEST(RunningCounter, IsReadFramesFirstAndGivesTheMiddleOfTheIncrement)
{
    Bench bench(2);
    const u32 incs = bench.address(21);
    // The hardware latches the increments at the read of the frames.
    bench.bus.onRead[bench.address(20)] = [&](u32) {
        bench.bus.memory[incs] = 122880 << 1;
        return 1u << 12 | 100;
    };
    double period = 0, time = 0, frameTime = 0;
    u16 mfn = 0, sfn = 0;
    u32 inc = 0;
    bench.in([&] {
        EXPECT_EQ(HALI_readTime(period, time), 0);
        EXPECT_EQ(tuHwIf_readSfc(mfn, sfn, inc), 0);
        EXPECT_EQ(tuHwIf_getSfnAndCorrespondingTime(sfn, period, frameTime), 0);
    });
    EXPECT_EQ(period, 1024.0);
    EXPECT_NEAR(time, 40.96 + 1.0 + 0.001 + 0.5 / 122880000, 1e-13);
    EXPECT_NEAR(frameTime, 40.96 + 1.0 + 0.5 / 122880000, 1e-13);
    EXPECT_EQ(mfn, 1);
    EXPECT_EQ(sfn, 100);
    EXPECT_EQ(inc, 122880u);
}

TEST(RunningCounter, AValueThatCannotBeIsAFaultAndReportedOnce)
{
    struct Case { u32 frames; u32 incs; const char* trace; const char* report; };
    for (const Case& c :
         std::to_array<Case>({{25u << 12, 0, "MFC value out of range 0x19",
                               "MCN KVD: Read SFC Failed MFC value out of range"},
                              {0, 1228800, "Increment value out of range 0x12c000",
                               "MCN KVD: Read SFC Failed Increment value out of range"}})) {
        SCOPED_TRACE(c.trace);
        Bench bench(1);
        bench.set(20, c.frames);
        bench.set(21, c.incs);
        double period = 9, time = 9;
        bench.in([&] {
            EXPECT_EQ(tuHwIf_readTime(period, time), 1);
            EXPECT_EQ(tuHwIf_readTime(period, time), 1);
        });
        EXPECT_EQ(period, 0.0);
        EXPECT_EQ(time, 0.0);
        EXPECT_EQ(bench.bus.countOf(c.trace), 2u);
        EXPECT_EQ(bench.bus.countOf("Read SFC failed"), 2u);
        EXPECT_EQ(bench.bus.errorLog, (std::vector<std::string>{c.report}));
    }
}

TEST(RunningCounter, WithoutARegisterOrABoardIsReportedByItsNumber)
{
    Bench unmapped(2, false);
    u16 mfn = 0, sfn = 0;
    u32 inc = 0;
    unmapped.in([&] { EXPECT_EQ(tuHwIf_readSfc(mfn, sfn, inc), 1); });
    ASSERT_EQ(unmapped.bus.errorLog.size(), 1u);
    EXPECT_EQ(unmapped.bus.errorLog[0].substr(0, 3), "MCL");

    Bench unknown(NO_BOARD);
    unknown.in([&] { EXPECT_EQ(tuHwIf_readSfc(mfn, sfn, inc), 1); });
    ASSERT_EQ(unknown.bus.errorLog.size(), 1u);
    EXPECT_EQ(unknown.bus.errorLog[0].substr(0, 3), "MC9");
}

TEST(Latch, GivesNothingWithoutItsValidBit)
{
    struct Case { u32 board; u32 validId; u32 frames; u32 incs; };
    for (const Case& c :
         std::to_array<Case>({{1, 23, 3u << 12 | 7, 9}, {2, 22, 3u << 12 | 7, 18}})) {
        SCOPED_TRACE(c.board);
        Bench bench(c.board);
        bench.set(23, c.frames);
        bench.set(24, c.incs);
        double period = 9, time = 9;
        bench.in([&] { EXPECT_EQ(tuHwIf_readLatchedRefClock(period, time), 1); });
        EXPECT_EQ(period + time, 0.0);
        EXPECT_TRUE(bench.bus.traces.empty());
        bench.set(c.validId, bench.get(c.validId) | 0x80000000);
        u16 mfn = 0, sfn = 0;
        u32 inc = 0;
        bench.in([&] {
            EXPECT_EQ(tuHwIf_readGpsFc(mfn, sfn, inc), 0);
            EXPECT_EQ(tuHwIf_readLatchedRefClock(period, time), 0);
        });
        EXPECT_EQ(mfn, 3);
        EXPECT_EQ(sfn, 7);
        EXPECT_EQ(inc, 9u);
        EXPECT_NEAR(time, 122.95 + 9.5 / 122880000, 1e-13);
        bench.set(23, (bench.get(23) & 0x80000000) | 25u << 12);
        bench.in([&] { EXPECT_EQ(tuHwIf_readLatchedRefClock(period, time), 1); });
        EXPECT_EQ(bench.bus.countOf("Latched MFC value out of range 0x19"), 1u);
        EXPECT_TRUE(bench.bus.errorLog.empty());
    }
}

// ---- stepping ---------------------------------------------------------------------------------

TEST(Step, BelowFiveIncrementsIsNotMade)
{
    struct Case {
        u32 board;
        double ext;
        double t;
        int result;
        std::vector<std::pair<u32, u32>> writes;
    };
    const double increment = 1.0 / 122880000;
    for (const Case& c :
         std::to_array<Case>({{1, 0, 4 * increment, 0, {}},
                              {1, 7, 4 * increment, 0, {}}, // no extended counter on this board
                              {1, 0, 5 * increment, 1, {{BASE_1 + 0x2c, 0}, {BASE_1 + 0x30, 5}}},
                              {1, 0, 1023.99, 1, {{BASE_1 + 0x2c, 0x18FFF}, {BASE_1 + 0x30, 0}}},
                              {2, 0, 4 * increment, 0, {}},
                              {2,
                               3,
                               4 * increment,
                               1,
                               {{BASE_2C + 0x88, 0},
                                {BASE_2C + 0x8c, 0},
                                {BASE_2C + 0x84, 3},
                                {BASE_2C + 0x90, 0x85},
                                {BASE_2C + 0x90, 0x80}}},
                              {2,
                               -1,
                               5 * increment,
                               1,
                               {{BASE_2C + 0x88, 0},
                                {BASE_2C + 0x8c, 10},
                                {BASE_2C + 0x84, 0xFFFFFF},
                                {BASE_2C + 0x90, 0x85},
                                {BASE_2C + 0x90, 0x80}}},
                              {NO_BOARD, 0, 1, 0, {}}})) {
        SCOPED_TRACE(testing::Message() << c.board << " " << c.ext << " " << c.t);
        Bench bench(c.board);
        bench.bus.memory[BASE_2C + 0x90] = 0x80;                 // FSYNC shares the load control
        bench.bus.memory[BASE_2C + 0x94] = 1;
        int result = -1;
        bench.in([&] { result = HALI_adjustTime(c.ext, c.t); });
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(bench.takeWrites(), c.writes);
    }
}

TEST(Step, FailsWhenTheHardwareDoesNotLoadInTime)
{
    Bench bench(2);
    bench.bus.memory[BASE_2C + 0x94] = 0xFFFFFFFE;
    const ose::Time before = bench.world.now();
    bench.in([&] { EXPECT_EQ(tuHwIf_adjustTime(0, 0.5), 0); });
    EXPECT_EQ(bench.world.now() - before, 12 * ose::MS);
    EXPECT_EQ(bench.bus.memory[BASE_2C + 0x90], 5u);             // the order stays
    EXPECT_EQ(bench.bus.countOf("Loading value to SFC not finished in 10 ms."), 1u);
    EXPECT_EQ(bench.bus.countOf("tuHwIf_loadSfc failed"), 1u);
}

TEST(Step, ToAWantedValueIsTheDifferenceToThePresentOne)
{
    Bench bench(1);
    bench.set(20, 1u << 12 | 4095);
    bench.set(21, 1228799);
    bench.in([&] { EXPECT_EQ(tuHwIf_writeSfc(2, 0, 4), 0); });
    EXPECT_EQ(bench.takeWrites(),
              (std::vector<std::pair<u32, u32>>{{BASE_1 + 0x2c, 0}, {BASE_1 + 0x30, 5}}));
    bench.in([&] {
        EXPECT_EQ(tuHwIf_writeSfc(1, 4095, 1228798), 0);         // one back is the period less one
        EXPECT_EQ(tuHwIf_writeSfc(25, 0, 0), 1);
    });
    EXPECT_EQ(bench.takeWrites(), (std::vector<std::pair<u32, u32>>{{BASE_1 + 0x2c, 0x18FFF},
                                                                    {BASE_1 + 0x30, 1228799}}));
}

TEST(Step, ResetOfTheLoadRegistersIsForTheNewerBoard)
{
    Bench newer(2), older(1), unknown(NO_BOARD);
    newer.in([] { tuHwIf_resetSfcLoadRegisters(); });
    older.in([] { tuHwIf_resetSfcLoadRegisters(); });
    unknown.in([] { tuHwIf_resetSfcLoadRegisters(); });
    EXPECT_EQ(newer.takeWrites(),
              (std::vector<std::pair<u32, u32>>{
                  {BASE_2C + 0x84, 0}, {BASE_2C + 0x88, 0}, {BASE_2C + 0x8c, 0}}));
    EXPECT_TRUE(older.takeWrites().empty());
    EXPECT_EQ(unknown.bus.countOf("tuHwIf_resetSfcLoadRegisters failed due to unsupported hw"), 1u);
}

TEST(Ntp, IsOnTheOlderBoardOnly)
{
    u32 seconds = 9, fraction = 9;
    Bench older(1), newer(2);
    older.set(43, 0xE0000000);
    older.set(44, 0x80000000);
    older.in([&] { EXPECT_EQ(tuHwIf_readNtp(seconds, fraction), 0); });
    EXPECT_EQ(seconds, 0xE0000000u);
    EXPECT_EQ(fraction, 0x80000000u);
    newer.in([&] { EXPECT_EQ(tuHwIf_readNtp(seconds, fraction), 1); });
    EXPECT_EQ(seconds + fraction, 0u);
}

// ---- BFN link ---------------------------------------------------------------------------------

namespace {

/// A board of type 1 whose link delivers words at local times given in ms.
struct Link : Bench {
    Link() : Bench(1) {}
    int read(u32 ms, bool parity, bool valid = true, bool extended = false)
    {
        const u32 frame = ms / 10;
        const u32 inc = ms % 10 * 122880;
        set(2, (frame / 4096) << 5 | (frame / 4096) | inc << 10);
        set(3, (valid ? 0x80000000 : 0) | (parity ? 0x40000000 : 0) | (extended ? 0x20000000 : 0)
                   | (frame % 4096) << 12 | (frame % 4096));
        int result = -1;
        in([&] { result = tuHwIf_readBfnIn(last); });
        return result;
    }
    BfnIn last{};
};

}  // namespace

TEST(BfnNoise, TwoCloseParityErrorsAreErrorsAndTheThirdIsNoise)
{
    Link link;
    EXPECT_EQ(link.read(50'000, false), 0);
    EXPECT_EQ(link.read(50'010, true), 5);
    EXPECT_EQ(link.read(50'020, true, false), 4);       // not valid: changes nothing
    EXPECT_EQ(link.read(50'020, true), 5);
    EXPECT_EQ(link.read(50'030, true), 1);
    EXPECT_EQ(link.bus.countOf("BfnIn noise detected, ignoring BfnIn for the next 2 seconds."), 1u);
    EXPECT_EQ(link.read(52'030, false), 1);             // exactly 2 s: still ignored
    EXPECT_EQ(link.read(52'031, false), 0);
    EXPECT_EQ(link.bus.countOf("BfnIn noise protection ceased"), 1u);
}

TEST(BfnNoise, AGoodWordBetweenStartsTheCountAnew)
{
    Link link;
    EXPECT_EQ(link.read(50'000, false), 0);
    for (const u32 ms : {10u, 20u}) EXPECT_EQ(link.read(50'000 + ms, true), 5);
    EXPECT_EQ(link.read(50'030, false), 0);
    for (const u32 ms : {40u, 50u}) EXPECT_EQ(link.read(50'000 + ms, true), 5);
    EXPECT_EQ(link.read(50'060, true), 1);
}

TEST(BfnNoise, CeasesAtTheTwentiethWordAtItsDistance)
{
    BfnNoiseFilter filter;
    filter.active = 1;
    filter.start = filter.last = 100.0;
    // 0.0951 s apart, twenty of them take less than the 2 s.
    for (int i = 1; i < 20; ++i)
        EXPECT_EQ(filterBfnNoise(filter, 100.0 + 0.0951 * i, false), BfnNoise::Quiet) << i;
    EXPECT_EQ(filterBfnNoise(filter, 100.0 + 0.0951 * 20, false), BfnNoise::Ceased);
    EXPECT_EQ(filter.active, 0u);
}

TEST(BfnRead, TellsWhatIsOutOfRange)
{
    struct Case { u32 counters; const char* trace; };
    for (const Case& c :
         std::to_array<Case>({{25u << 5, "local MFC value out of range 0x19"},
                              {1228800u << 10, "local increment value out of range 0x12c000"},
                              {25u, "remote MFC value out of range 0x19"}})) {
        SCOPED_TRACE(c.trace);
        Bench bench(1);
        bench.set(2, c.counters);
        bench.set(3, 0x80000000);
        BfnIn in;
        bench.in([&] { EXPECT_EQ(tuHwIf_readBfnIn(in), 1); });
        EXPECT_EQ(bench.bus.countOf(c.trace), 1u);
        EXPECT_TRUE(bench.bus.errorLog.empty());
    }
}

TEST(BfnRead, OfAllGivesTheMeanOfBothWays)
{
    Link link;
    link.set(4, 0xFFC00000 | 1000);                     // inc_diff 1000
    link.set(5, 1u << 28 | 1u << 27 | 5u << 22 | 77);
    ASSERT_EQ(link.read(50'001, false, true, true), 0);
    BfnAll all;
    link.in([&] { EXPECT_EQ(tuHwIf_readBfnInAll(all), 0); });
    EXPECT_EQ(all.valid, 1u);
    EXPECT_EQ(all.inc, 122880u);
    EXPECT_EQ(all.e_sfc, 77u);
    EXPECT_EQ(all.rc_state, 5u);
    EXPECT_EQ(all.jump, 1u);
    EXPECT_EQ(all.ms_flag, 1u);
    EXPECT_EQ(all.coldRestartFlag_tmp, 0u);
    EXPECT_EQ(all.meanDifference, 122880.5 - 0.5 * 123880);
}

TEST(BfnRead, CountsFailuresUpToThree)
{
    Link link;
    link.read(50'000, false, false);
    BfnAll all;
    link.in([&] {
        for (int i = 0; i < 4; ++i) EXPECT_EQ(tuHwIf_readBfnAll(all), 4);
    });
    EXPECT_EQ(all.valid, 0u);
    EXPECT_EQ(link.bus.countOf("attempt to read bfnIn failed 1 times"), 2u);
    EXPECT_EQ(link.bus.countOf("attempt to read bfnIn failed 2 times"), 1u);
    EXPECT_EQ(link.bus.levelOf("tuHwIf_readBfnIn Failed"), 1);
}

TEST(BfnOut, WritesItsWordsInOrder)
{
    Bench bench(2);
    bench.bus.order.clear();
    bench.in([] { tuHwIf_writeBfnOutPacked(5, 6, 3, 1, 0, 1); });
    EXPECT_EQ(bench.takeWrites(), (std::vector<std::pair<u32, u32>>{
                                      {BASE_2C + 0xe0, 5}, {BASE_2C + 0xe4, 0x18C00006}}));
    EXPECT_EQ(bench.bus.order, (std::vector<std::string>{"w", "b", "w"}));
}

// ---- output counter ---------------------------------------------------------------------------

TEST(GpsOut, StepsToTheNextWholeSecond)
{
    // 0.25 s and 40 increments of delay into second 1: 0.75 s less 40 increments are missing.
    const GpsOutStep step = gpsOutStep({0, 125, 0}, 320);
    EXPECT_EQ(step.frames, 74u);
    EXPECT_NEAR(step.inc, 1228800 - 40, 1);
    const GpsOutStep none = gpsOutStep({0, 100, 0}, 7);
    EXPECT_EQ(none.frames + none.inc, 0u);
    // A single frame that is missing whole is told as none.
    const GpsOutStep frame = gpsOutStep({0, 99, 0}, 0);
    EXPECT_EQ(frame.x, 1228800u);
    EXPECT_EQ(frame.frames + frame.inc, 0u);
}

TEST(GpsOut, OffsetHasLimits)
{
    Bench bench(2);
    bench.in([] {
        EXPECT_EQ(tuHwIf_adjustGpsOutOffset(0x7F, 2097151), 0);
        EXPECT_EQ(tuHwIf_adjustGpsOutOffset(0x80, 0), 1);
        EXPECT_EQ(tuHwIf_adjustGpsOutOffset(0, 2097152), 1);
    });
    EXPECT_EQ(bench.takeWrites().size(), 1u);
    EXPECT_EQ(bench.bus.levelOf("Frame value out of range 0x00000080"), 1);
    EXPECT_EQ(bench.bus.levelOf("Increment value out of range 0x00200000"), 1);
}

TEST(GpsOut, AdjustsTheCounterOrSaysThatItIsInPlace)
{
    Bench bench(1);
    bench.set(25, 1);
    bench.set(26, 0);
    bench.in([] { tuHwIf_adjustGpsOutTime(0); });      // frame 128: 1.28 s
    EXPECT_EQ(bench.takeWrites(), (std::vector<std::pair<u32, u32>>{{BASE_1 + 0x134, 72u << 21}}));
    bench.set(25, 0);
    bench.set(26, 0);
    bench.in([] { tuHwIf_adjustGpsOutTime(0); });
    EXPECT_EQ(bench.bus.countOf("No adjustment necessary"), 1u);
    bench.set(25, 25u << 5);
    bench.in([] { tuHwIf_adjustGpsOutTime(0); });
    EXPECT_EQ(bench.bus.levelOf("Unable to read register for GPS OUT"), 1);
    EXPECT_TRUE(bench.takeWrites().empty());
}

TEST(GpsOutTime, CountsThePeriodsThatTheCounterLost)
{
    struct Case {
        const char* what;
        Sfc c;
        GpsOutSources src;
        GpsOutData before, after;
        double time;
    };
    const GpsOutSources master{true, 0, 0, 0};
    for (const Case& c : std::to_array<Case>(
             {{"within the period", {24, 3995, 0}, master, {4, 24, 0}, {4, 24, 0}, 4096 + 1022.99},
              {"last second of it", {24, 3996, 0}, master, {4, 24, 0}, {5, 0, 0}, 4096 + 1023.0},
              {"a wrap was missed", {1, 0, 0}, master, {4, 24, 0}, {5, 1, 0}, 5120 + 40.96},
              {"master takes its own time",
               {0, 0, 0},
               {true, 3 * 1024.0, 0, 0},
               {0, 0, 0},
               {3, 0, 0},
               3072},
              {"but not over a known one",
               {0, 0, 0},
               {true, 3 * 1024.0, 0, 0},
               {1, 0, 0},
               {1, 0, 0},
               1024},
              {"no time yet", {0, 0, 0}, {true, -1.0, 0, 0}, {0, 0, 0}, {0, 0, 0}, 0},
              {"slave follows a later time",
               {0, 0, 0},
               {false, 0, 0, 2048.0},
               {1, 0, 0},
               {2, 0, 0},
               2048},
              {"not an earlier one",
               {0, 500, 0},
               {false, 0, 1, 1024.0},
               {2, 0, 0},
               {2, 0, 0},
               2053},
              {"lost, at 5 s not yet", {0, 500, 0}, {false, 0, 1, 0}, {2, 0, 0}, {2, 0, 0}, 2053},
              {"lost, past 5 s", {0, 501, 0}, {false, 0, 1, 0}, {2, 0, 0}, {0, 0, 0}, 5.01},
              {"lost, but not valid",
               {0, 501, 0},
               {false, 0, 0, 0},
               {2, 0, 0},
               {2, 0, 0},
               2053.01}})) {
        SCOPED_TRACE(c.what);
        GpsOutData data = c.before;
        EXPECT_NEAR(extendGpsOutTime(c.c, c.src, data).time, c.time, 1e-11);
        EXPECT_EQ(data.mfnOffset, c.after.mfnOffset);
        EXPECT_EQ(data.mfn, c.after.mfn);
    }
}

TEST(GpsOutTime, WithoutPersistentMemoryStaysWithinThePeriod)
{
    Bench bench(1);
    bench.set(25, 1);
    double period = 0, time = 0;
    bench.in([&] {
        EXPECT_EQ(tuHwIf_readGpsOutTime(period, time), 0);
        tuHwIf_resetGpsOutMsiMem();
    });
    EXPECT_EQ(period, 1024.0);
    EXPECT_NEAR(time, 1.28, 1e-13);
    EXPECT_EQ(bench.bus.countOf("Could not read gpsOutData_r from persistent memory"), 1u);
    EXPECT_EQ(bench.bus.countOf("Resetting mfn and mfnOffset to 0!"), 1u);
    EXPECT_EQ(bench.bus.countOf("stored in persistent memory"), 0u);
    bench.set(25, 31u << 5);
    bench.in([&] { EXPECT_EQ(tuHwIf_readGpsOutTime(period, time), 1); });
    EXPECT_EQ(period + time, 0.0);
    EXPECT_EQ(bench.bus.countOf("Read GPS FC failed"), 1u);
}
