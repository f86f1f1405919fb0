// EEPROM block, multiplicator, external PLL, checked words and the plain registers of the board.
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
using ose::SEC;

sim::BoardConfig calibrated(u32 type)
{
    sim::BoardConfig config = configOf(type);
    config.eeprom.version = 3;
    config.eeprom.serial = "TU00000000000001";
    config.eeprom.partNumber = "OXK317295/1";
    config.eeprom.tempMin_V = 1.0;
    config.eeprom.tempMax_V = 3.1;
    config.oscillator.a[0] = -1.5;
    config.oscillator.a[1] = 0.25;
    config.oscillator.a[2] = -0.5;
    config.oscillator.a[3] = 0.0;
    return config;
}

std::string text(Bench& b, u32 offset, u32 length)
{
    std::string out;
    for (u32 i = offset; i < offset + length; ++i)
        out += static_cast<char>(b.read(b.shared(0x80 + (i & ~3u))) >> (24 - 8 * (i & 3)));
    return out;
}

void order(Bench& b)
{
    b.write(b.shared(0x14), 1);
    b.run(50 * MS);
}

TEST(Eeprom, IsCopiedIntoItsBlockWithinFiftyMilliseconds)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        Bench b(calibrated(type));
        EXPECT_EQ(b.read(b.shared(0x14)) & 2, 0u);
        EXPECT_EQ(b.read(b.shared(0x80)), 0u);
        b.write(b.shared(0x14), 1);
        EXPECT_EQ(b.read(b.shared(0x14)) & 2, 0u);
        b.run(50 * MS);
        EXPECT_EQ(b.read(b.shared(0x14)) & 2, 2u);
        EXPECT_EQ(b.read(b.shared(0x80)) >> 24, 3u);
        EXPECT_EQ(text(b, 1, 16), "TU00000000000001");
        EXPECT_EQ(text(b, 17, 11), "OXK317295/1");
        // 64-bit words with 32 fraction bits, upper word first.
        struct Word { const char* what; u32 offset, high, low; };
        for (const Word& w : std::to_array<Word>({{"nominal", 0xA0, 10'000'000, 0},
                                                  {"a3", 0xA8, 0, 0},
                                                  {"a2", 0xB0, 0xFFFFFFFF, 0x80000000},
                                                  {"a1", 0xB8, 0, 0x40000000},
                                                  {"a0", 0xC0, 0xFFFFFFFE, 0x80000000},
                                                  {"warmest", 0xC8, 3, 0x1999999A},
                                                  {"coldest", 0xD0, 1, 0}})) {
            SCOPED_TRACE(w.what);
            EXPECT_EQ(b.read(b.shared(w.offset)), w.high);
            EXPECT_EQ(b.read(b.shared(w.offset + 4)), w.low);
        }
        EXPECT_EQ(b.read(b.shared(0xFC)), 0x12A8u);      // sum of the bytes
        b.write(b.shared(0x80), 0);
        EXPECT_EQ(b.read(b.shared(0x80)) >> 24, 3u);     // no way to write it
    }
}

TEST(Eeprom, HasACalibrationDateOnType2Alone)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        sim::BoardConfig config = calibrated(type);
        config.eeprom.calibrationDate = "2024-02-29";
        Bench b(config);
        order(b);
        EXPECT_EQ(text(b, 88, 10), type == 2 ? "2024-02-29" : std::string(10, '\0'));
        EXPECT_EQ(b.read(b.shared(0xFC)), type == 2 ? 0x1497u : 0x12A8u);
    }
}

TEST(Eeprom, FaultsAndReplacement)
{
    Bench b(calibrated(2));
    b.board.faults.eepromNeverLoads = true;
    order(b);
    b.run(10 * SEC);
    EXPECT_EQ(b.read(B + 0x14) & 2, 0u);
    b.board.faults = {};
    b.board.faults.eepromBadSum = true;
    order(b);
    EXPECT_EQ(b.read(B + 0x14) & 2, 2u);
    EXPECT_EQ(b.read(B + 0xFC), 0x12A9u);
    b.board.faults = {};
    b.board.faults.eepromZero = true;
    order(b);
    EXPECT_EQ(b.read(B + 0x80), 0u);
    EXPECT_EQ(b.read(B + 0xFC), 0u);
    b.board.faults = {};
    sim::EepromConfig other;
    other.partNumber = "OXK318 407/";
    b.board.setEeprom(other);
    order(b);
    EXPECT_EQ(text(b, 17, 11), "OXK318 407/");
    b.board.reset();                                     // the copy is gone until the next order
    EXPECT_EQ(b.read(B + 0x14) & 2, 0u);
    EXPECT_EQ(b.read(B + 0x80), 0u);
}

TEST(Multiplicator, TakesWordsAndGivesThemBack)
{
    Bench b(2);
    for (u32 address = 0; address < 16; ++address) {
        b.write(B + 0x120, address << 8 | (0xA0 + address));
        EXPECT_EQ(b.read(B + 0x120) >> 31, 1u);
    }
    EXPECT_EQ(b.board.multiplicatorWords().size(), 16u);
    EXPECT_EQ(b.board.multiplicatorWords()[15], 0xFAFu);
    b.write(B + 0x12C, 1);
    EXPECT_EQ(b.read(B + 0x12C) & 2, 0u);
    b.run(50 * MS);
    EXPECT_EQ(b.read(B + 0x12C) & 2, 2u);
    EXPECT_EQ(b.read(B + 0x17C) & 1u << 18, 0u);
    EXPECT_EQ(b.read(B + 0x180) >> 24, 0x10u);
    EXPECT_EQ(b.read(B + 0x184), 0xA3A4A5A6u);           // from the fourth word on
    EXPECT_EQ(b.read(B + 0x188), 0xA7A8A9AAu);
    b.write(B + 0x120, 0x77);                            // a new burst
    EXPECT_EQ(b.board.multiplicatorWords().size(), 1u);
}

TEST(Multiplicator, Faults)
{
    Bench b(1);
    b.board.faults.multiplicatorTimeoutAt = 2;
    for (u32 address = 0; address < 4; ++address) {
        b.write(A + 0x120, address << 8 | 0x80000055);
        EXPECT_EQ(b.read(A + 0x120) >> 31, address == 2 ? 0u : 1u);
    }
    b.board.faults = {};
    for (u32 address = 0; address < 8; ++address) b.write(A + 0x120, address << 8 | 0x55);
    b.board.faults.multiplicatorDiffersAt = 4;
    EXPECT_EQ(b.read(A + 0x184), 0x55AA5555u);
    b.board.faults.multiplicatorCrc = true;
    EXPECT_EQ(b.read(A + 0x17C), 0x40000u);
    b.board.faults.multiplicatorReadNever = true;
    b.write(A + 0x12C, 1);
    b.run(10 * SEC);
    EXPECT_EQ(b.read(A + 0x12C) & 2, 0u);
}

TEST(ExternalPll, TakesWordsAndHasItsEnable)
{
    Bench b(2);
    EXPECT_FALSE(b.board.externalPllEnabled());
    b.write(B + 0x20, 0x80000008);
    EXPECT_TRUE(b.board.externalPllEnabled());
    b.write(B + 0x200, 0x80008096);                      // the busy bit falls
    EXPECT_EQ(b.read(B + 0x200), 0x00008096u);
    b.board.faults.pllIcTimeout = true;
    b.write(B + 0x200, 4);
    EXPECT_EQ(b.read(B + 0x200), 0x80000004u);
    EXPECT_EQ(b.board.pllIcWords().size(), 1u);
}

TEST(Synthesiser, StatusAndFeedbackCount)
{
    struct Case { u32 type, count; };
    for (const Case& c : std::to_array<Case>({{1, 1252}, {2, 1174}})) {
        Bench b(c.type);
        EXPECT_EQ(b.read(b.shared(0x1C)), 0xFu);
        EXPECT_EQ(b.read(b.shared(0x128)), c.count);
        b.board.faults.synthStatusAnd = 0x7;             // no feedback
        b.board.faults.a1Ref = 2047;
        EXPECT_EQ(b.read(b.shared(0x1C)), 0x7u);
        EXPECT_EQ(b.read(b.shared(0x128)), 2047u);
        b.write(b.shared(0x1C), 0xF);
        EXPECT_EQ(b.read(b.shared(0x1C)), 0x7u);
    }
}

TEST(CheckedWords, ReadBackWhatWasWrittenUnlessStuck)
{
    Bench b(2);
    for (const u32 offset : {0x48u, 0x4Cu, 0x50u, 0x54u, 0x58u, 0x124u}) {
        SCOPED_TRACE(offset);
        b.board.faults.readBackStuck = 3;
        b.write(B + offset, 0x1592);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(b.read(B + offset), 0u);
        EXPECT_EQ(b.read(B + offset), 0x1592u);
    }
}

TEST(Registers, ComeUpAtTheirResetValues)
{
    Bench b(2);
    EXPECT_EQ(b.read(B + 0x20), 0x8u);                   // no reference
    EXPECT_EQ(b.read(B + 0x48), 0u);                     // divider not set: a cold start
    EXPECT_EQ(b.read(B + 0x50), 0u);
    EXPECT_EQ(b.read(B + 0x7C), 0x52354132u);            // "R5A2"
    EXPECT_EQ(b.read(C + 0xB4), 0u);
    Bench rev3(configOf(2, "R3A1"));
    EXPECT_EQ(rev3.read(B + 0x48), 1249u);               // runs without being set
    EXPECT_EQ(rev3.read(B + 0x50), 800'000'000u);
}

TEST(Registers, StoreAndShowWhatTheProgramSets)
{
    Bench b(2);
    b.write(0xE2002040, 0x30);
    EXPECT_EQ(b.read(0xE2002040), 0x30u);
    EXPECT_EQ(b.board.mokaTestWord(), 0x30u);
    b.write(C + 0x90, 0x380);
    EXPECT_EQ(b.board.fsyncWord(), 0x380u);
    b.write(B + 0x0C, 1);
    EXPECT_EQ(b.board.bbClock(), 1u);
    b.write(C + 0x28, 1);
    EXPECT_EQ(b.read(C + 0x28), 1u);
    b.write(B + 0x7C, 0);
    EXPECT_EQ(b.read(B + 0x7C), 0x52354132u);
    b.board.faults.unmapped = sim::REGION_TOP;
    EXPECT_EQ(b.read(0xE2002040), 0xFFFFFFFFu);
    EXPECT_EQ(b.read(A), 0u);                            // nothing of type 1 here
    Bench old(1);
    old.write(A + 0x70, 0x80000000);
    EXPECT_EQ(old.board.fsyncWord(), 0x80000000u);
    old.write(0xE2002040, 0x30);
    EXPECT_EQ(old.read(0xE2002040), 0u);
}

}  // namespace
