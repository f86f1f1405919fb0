// Time counters: reading with their range checks, stepping, the BFN link and its noise, the output
// counter.
#include "hw/fake_bus.h"

using namespace hwtest;
using namespace hwif;

TEST(RunningCounter, WithoutARegisterOrABoardIsReportedByItsNumber)
{
    struct Case { u32 board; bool isMapped; const char* number; };
    for (const Case& c : {Case{2, false, "MCL"}, Case{NO_BOARD, true, "MC9"}}) {
        Bench bench(c.board, c.isMapped);
        u16 mfn = 0, sfn = 0;
        u32 inc = 0;
        bench.in([&] { EXPECT_EQ(tuHwIf_readSfc(mfn, sfn, inc), 1); });
        ASSERT_EQ(bench.bus.errorLog.size(), 1u);
        EXPECT_EQ(bench.bus.errorLog[0].substr(0, 3), c.number);
    }
}

// ---- stepping ---------------------------------------------------------------------------------

TEST(Step, ToAWantedValueIsTheDifferenceToThePresentOne)
{
    Bench bench(1);
    bench.set(20, 1u << 12 | 4095);
    bench.set(21, 1228799);
    bench.in([&] { EXPECT_EQ(tuHwIf_writeSfc(2, 0, 4), 0); });
    EXPECT_EQ(bench.takeWrites(), (std::vector<std::pair<u32, u32>>{{BASE_1 + 0x2c, 0}, {BASE_1 + 0x30, 5}}));
    bench.in([&] {
        EXPECT_EQ(tuHwIf_writeSfc(1, 4095, 1228798), 0);         // one back is the period less one
        EXPECT_EQ(tuHwIf_writeSfc(25, 0, 0), 1);
    });
    EXPECT_EQ(bench.bus.levelOf("MFC value out of range 0x19"), 1);
    EXPECT_EQ(bench.takeWrites(),
              (std::vector<std::pair<u32, u32>>{{BASE_1 + 0x2c, 0x18FFF}, {BASE_1 + 0x30, 1228799}}));
    Bench newer(2);
    newer.set(REG_LOAD_STATUS, 1);
    newer.in([] { EXPECT_EQ(tuHwIf_writeSfc(2, 0, 4), 0); });
    EXPECT_EQ(newer.takeWrites(), (std::vector<std::pair<u32, u32>>{{BASE_2C + 0x88, 0x2000},
                                                                    {BASE_2C + 0x8c, 8},
                                                                    {BASE_2C + 0x84, 0},
                                                                    {BASE_2C + 0x90, 5},
                                                                    {BASE_2C + 0x90, 0}}));
    newer.set(REG_LOAD_STATUS, 0);
    newer.in([] { EXPECT_EQ(tuHwIf_writeSfc(2, 0, 4), 1); });
}

TEST(Ntp, IsOnTheOlderBoardOnly)
{
    u32 seconds = 9, fraction = 9;
    Bench older(1), newer(2);
    older.set(43, 0xE0000000);
    older.set(44, 0x80000000);
    Sfc c;
    older.in([&] { EXPECT_EQ(tuHwIf_readNtp(seconds, fraction), 0); });
    older.in([&] { EXPECT_EQ(tuHwIf_readGpsFc(c.mfn, c.sfn, c.inc), 1) << "a latch without its valid bit"; });
    EXPECT_EQ(seconds, 0xE0000000u);
    EXPECT_EQ(fraction, 0x80000000u);
    newer.in([&] { EXPECT_EQ(tuHwIf_readNtp(seconds, fraction), 1); });
    EXPECT_EQ(seconds + fraction, 0u);
}

TEST(Accesses, OfOneMatterKeepTheirOrder)
{
    using Read = int (*)(u16&, u16&, u32&);
    static constexpr auto isRead = [](Read read) {
        Sfc c;
        return read(c.mfn, c.sfn, c.inc) == 0;
    };
    struct Case { const char* what; u32 board; bool (*act)(); const char* order; };
    for (const Case& c : std::to_array<Case>({
             {"counter", 1, [] { return isRead(tuHwIf_readSfc); }, "rbr"},
             {"latch", 2, [] { return isRead(tuHwIf_readGpsFc); }, "rrbr"},
             {"output counter", 1, [] { return isRead(tuHwIf_readGpsOutSfc); }, "rbr"},
             {"step", 1, [] { return tuHwIf_adjustSfc({1, 2, 3}); }, "wbw"},
             {"turns", 2, [] { return tuHwIf_adjustExtSfc(7); }, "bw"},
             {"load", 2, [] { return tuHwIf_loadSfc(); }, "rwbrrw"},
             {"output's step", 1, [] { return tuHwIf_adjustGpsOutOffset(1, 1) == 0; }, "bw"},
             {"link", 2, [] { return tuHwIf_writeBfnOut(1, 2), true; }, "wbw"},
             {"interrupts", 2, [] { return tuHwIf_readPendingIsr() == 0; }, "rwbr"},
             {"divider", 2, [] { return tuHwIf_enableDeltaSigma(), true; }, "rwbw"}})) {
        SCOPED_TRACE(c.what);
        Bench bench(c.board);
        if (c.board == 2) bench.set(REG_LATCH_VALID, BIT31), bench.set(REG_LOAD_STATUS, 1);
        bench.bus.order.clear();
        bench.in([&] { EXPECT_TRUE(c.act()); });
        EXPECT_EQ(bench.bus.order, c.order);
    }
}

TEST(Noise, AtItsLimits)
{
    BfnNoiseFilter atTime{.active = 1}, close{.last = -0.0475, .parityRun = 2};
    BfnNoiseFilter atDistance{.active = 1, .goodCount = 19};           // and the twentieth good word
    EXPECT_EQ(filterBfnNoise(atDistance, 0.095, false), BfnNoise::Ceased);
    EXPECT_EQ(filterBfnNoise(atTime, 2.0, false), BfnNoise::Quiet);
    EXPECT_EQ(filterBfnNoise(close, 0.0475, true), BfnNoise::Quiet);
}

// ---- output counter ---------------------------------------------------------------------------

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
    GpsOutData data{7, 0};                               // lost after five seconds, not at them
    EXPECT_FALSE(extendGpsOutTime({0, 500, 0}, {false, 0, 1, 0}, data).adjusted);
    bench.in([] { EXPECT_EQ(tuHwIf_adjustGpsOutOffset(0x7F, 2097152), 1); });
    bench.set(25, 31u << 5);
    bench.in([&] { EXPECT_EQ(tuHwIf_adjustGpsOutTime(0), 1); });
    EXPECT_EQ(bench.bus.levelOf("Unable to read register for GPS OUT"), 1);
    EXPECT_TRUE(bench.takeWrites().empty());
}
