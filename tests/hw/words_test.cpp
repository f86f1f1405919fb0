// Words of the FPGA against literals worked out from the bit positions.
#include "hw/kvd_hwif_mult_words.h"
#include "hw/kvd_hwif_priv.h"

#include <gtest/gtest.h>

#include <array>

using namespace hwif;

namespace {

void expectSfc(const Sfc& c, u16 mfn, u16 sfn, u32 inc)
{
    EXPECT_EQ(c.mfn, mfn);
    EXPECT_EQ(c.sfn, sfn);
    EXPECT_EQ(c.inc, inc);
}

}  // namespace

TEST(Words, CounterFieldsLieWhereEachBoardPutsThem)
{
    expectSfc(unpackCounter(1, 0x00018FFF, 0x0012BFFF), 24, 4095, 1228799);
    expectSfc(unpackCounter(2, 0x00018FFF, 0x00257FFF), 24, 4095, 1228799);   // half increment set
    expectSfc(unpackCounter(1, 0xFFFE1001, 0xFFE00001), 1, 1, 1); // noise above the fields
    expectSfc(unpackCounter(2, 0xFFFE1001, 0xFFC00003), 1, 1, 1);
    // sfn 4095 is split 31 and 127, mfn 24 stands above the 31.
    expectSfc(unpackGpsOut(1, 24u << 5 | 31, 127u << 21 | 1228799), 24, 4095, 1228799);
    expectSfc(unpackGpsOut(2, 24u << 5 | 31, 127u << 22 | 1228799u << 1 | 1), 24, 4095, 1228799);
    expectSfc(unpackGpsOut(1, 3, 5u << 21), 0, 389, 0);
}

TEST(Words, ATripleAtItsLimitIsGoodAndAboveItIsAFault)
{
    EXPECT_EQ(checkSfc({24, 4095, 1228799}), SfcFault::None);
    EXPECT_EQ(checkSfc({24, 4095, 1228800}), SfcFault::Increment);
    EXPECT_EQ(checkSfc({25, 0, 0}), SfcFault::Mfc);
    EXPECT_EQ(checkSfc({25, 4096, 1228800}), SfcFault::Sfc);
}

TEST(Words, StepAndOutputOffsetArePackedByBoard)
{
    EXPECT_EQ(packStepFrames(24, 4095), 0x18FFFu);
    EXPECT_EQ(packStepIncrements(1, 1228799), 0x12BFFFu);
    EXPECT_EQ(packStepIncrements(2, 1228799), 0x257FFEu);
    EXPECT_EQ(packGpsOutOffset(1, 127, 1), 0x0FE00001u);
    EXPECT_EQ(packGpsOutOffset(2, 127, 1), 0x1FC00002u);
}

TEST(Words, BfnWordsCarryTheirFieldsAcross)
{
    const BfnInWords in =
        unpackBfnIn(1, 1228799u << 10 | 24u << 5 | 23, 0xA0000000 | 4095u << 12 | 17);
    EXPECT_EQ(in.valid, 1u);
    EXPECT_EQ(in.parityError, 0u);
    EXPECT_EQ(in.extended, 1u);
    expectSfc(in.local, 24, 4095, 1228799);
    EXPECT_EQ(in.remoteMfn, 23);
    EXPECT_EQ(in.remoteSfn, 17);
    expectSfc(unpackBfnIn(2, 1228799u << 11, 0).local, 0, 0, 1228799);

    const BfnOutWords out = packBfnExtended({0x3FFFFF, 0x200001, 0xA, 1, 0, 1});
    EXPECT_EQ(out.word1, 0x003FFFFFu);
    EXPECT_EQ(out.word2, 0x16A00001u);   // ms 28, cold 26, rc_state 25..22, e_sfc 21..0
    const BfnExtended back = unpackBfnExtended(out.word1, out.word2);
    EXPECT_EQ(back.e_sfc, 0x200001u);
    EXPECT_EQ(back.rc_state, 0xAu);
    EXPECT_EQ(back.coldRestartFlag_tmp, 1u);
    EXPECT_EQ(back.jump, 0u);
    EXPECT_EQ(back.ms_flag, 1u);
}

TEST(Words, DeltaSigmaKeepsItsSignIn33Bits)
{
    struct Case { i64 value; u32 high; u32 low; };
    for (const Case& c : std::to_array<Case>({{0, 0, 0},
                                              {-1, 1, 0xFFFFFFFF},
                                              {4294967295, 0, 0xFFFFFFFF},
                                              {-4294967296, 1, 0},
                                              {-69791666, 1, 0xFBD7104E}})) {
        SCOPED_TRACE(c.value);
        EXPECT_EQ(deltaSigmaHigh(c.value), c.high);
        EXPECT_EQ(deltaSigmaLow(c.value), c.low);
        EXPECT_EQ(deltaSigmaValue(c.high | 0xFFFFFFFE, c.low), c.value);
    }
}

TEST(Words, ToggleDetectorsMapToTheStatusWord)
{
    struct Case { const char* what; u32 raw; u32 type1; u32 type2; };
    for (const Case& c : std::to_array<Case>({
             {"lines", 0x1F, 0x1F, 0x1F},
             {"1PPS", 0x80, 0x20, 0x20},
             {"activity without a mode", 0x20, 0x80, 0x80},
             {"external, mode 1", 0x120, 0xC0, 0xC0},
             {"external, mode 2", 0x220, 0xC0, 0xC0},
             {"mode 3 is none", 0x320, 0x80, 0x80},
             {"mode without activity", 0x100, 0, 0},
             {"1PPS rules out external", 0x1A0, 0xA0, 0xA0},
             {"Ethernet, first detector", 0x400, 0x200, 0x100},
             {"Ethernet, second and third", 0x1800, 0, 0x600},
             {"unused", 0x40, 0, 0}})) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(toggleWord(1, c.raw), c.type1);
        EXPECT_EQ(toggleWord(2, c.raw), c.type2);
    }
}

TEST(Words, InterruptBitsAreExchangedBothWays)
{
    struct Case { u32 abstract; u32 type1; u32 type2; };
    for (const Case& c : std::to_array<Case>({{0x1, 0x4, 0x2},
                                              {0x2, 0x1, 0x8},
                                              {0x4, 0x2, 0x4},
                                              {0x8, 0x8, 0x1},
                                              {0x7, 0x7, 0xE}})) {
        SCOPED_TRACE(c.abstract);
        EXPECT_EQ(interruptsToBoard(1, c.abstract), c.type1);
        EXPECT_EQ(interruptsToBoard(2, c.abstract), c.type2);
        EXPECT_EQ(interruptsFromBoard(1, c.type1 | 0xFFFFFFF0), c.abstract);
        EXPECT_EQ(interruptsFromBoard(2, c.type2 | 0xFFFFFFF0), c.abstract);
    }
}

TEST(Words, RevisionIsReadFromItsSecondAndThirdCharacter)
{
    struct Case { u32 word; bool rev3; bool readBack; };
    for (const Case& c : std::to_array<Case>({{0x52334131, true, false},       // R3A1
                                              {0x52343141, false, false},      // R41A
                                              {0x52343241, false, true},       // R42A
                                              {0x52353041, false, true},       // R50A
                                              {0x33320000, false, false}})) {  // 32
        SCOPED_TRACE(c.word);
        EXPECT_EQ(isRevision3(c.word), c.rev3);
        EXPECT_EQ(hasMultiplicatorReadBack(c.word), c.readBack);
    }
}

TEST(Words, TemperatureIsScaledByRevision)
{
    struct Case { u32 word; bool rev3; int result; double volts; };
    for (const Case& c : std::to_array<Case>({{0x7FFFFFFF, false, 3, -1},
                                              {0x80010000, false, 0, 2.0},
                                              {0x8001FFFF, false, 0, 3.999969482421875},
                                              {0x80007FFF, true, 2, -1},
                                              {0x80008000, true, 0, 0.0},
                                              {0x80018000, true, 0, 4.0},
                                              {0x80018001, true, 2, -1},
                                              {0x00010000, true, 3, -1}})) {
        SCOPED_TRACE(c.word);
        double volts = -1;
        EXPECT_EQ(temperatureVolts(c.word, c.rev3, volts), c.result);
        EXPECT_EQ(volts, c.volts);
    }
}

TEST(Words, HardwareMonitorTakesThreeBitsADetector)
{
    u32 word = 0;
    EXPECT_TRUE(hmWord(0, 4, 0xFFFFFFFF, word));
    EXPECT_EQ(word, 0xFFFFFFFDu);
    EXPECT_TRUE(hmWord(5, 2, 0, word));
    EXPECT_EQ(word, 0x00010000u);
    EXPECT_TRUE(hmWord(6, 3, 0, word));
    EXPECT_EQ(word, 0x00100000u);
    EXPECT_FALSE(hmWord(6, 2, 0, word));
    EXPECT_FALSE(hmWord(6, 5, 0, word));
    EXPECT_FALSE(hmWord(7, 0, 0, word));
    EXPECT_FALSE(hmWord(0, 6, 0, word));
}

TEST(Words, ProgrammingTablesAreWholeAndCheckedWhereTheIcHoldsStill)
{
    u32 sum112 = 0;
    for (const u32 word : multiplicatorWords(0)) sum112 += word;
    u32 sum53 = 0;
    for (const u32 word : multiplicatorWords(1)) sum53 += word;
    EXPECT_EQ(sum112, 1594783u);
    EXPECT_EQ(sum53, 600230u);
    struct Case { u32 ext; u32 index; bool checked; };
    for (const Case& c : std::to_array<Case>({{0, 3, false},
                                              {0, 4, true},
                                              {0, 53, true},
                                              {0, 54, false},
                                              {0, 55, false},
                                              {0, 56, true},
                                              {0, 111, true},
                                              {0, 112, false},
                                              {1, 4, true},
                                              {1, 6, false},
                                              {1, 33, true},
                                              {1, 34, false}}))
        EXPECT_EQ(isCheckedIndex(c.ext, c.index), c.checked) << c.ext << " " << c.index;
}
