// Start of the hardware: board type, base addresses, register lookup, cold and warm start, and each
// result.
#include "hw/fake_bus.h"
#include "hw/kvd_hwif_mult_words.h"

using namespace hwtest;
using namespace hwif;

namespace {

constexpr u32 REVISION_R41A = 0x52343141, REVISION_R42A = 0x52343241, REVISION_R3A1 = 0x52334131;

/// A board whose ICs, EEPROM and registers answer as they should.
struct Board : Bench {
    u32 base; // of the part with the synthesiser and the EEPROM
    std::vector<u32> multWords, pllWords;
    u32 eepromReads = 0;
    u32 coldRestart = 0;

    explicit Board(u32 type, u32 revision = REVISION_R41A) : Bench(type), base(type == 1 ? BASE_1 : BASE_2B)
    {
        bus.memory[base + 0x7c] = revision;
        bus.memory[base + 0x1c] = 0xF;             // synthesisers locked, feedback there
        bus.onWrite[base + 0x120] = [this](u32 word) {
            multWords.push_back(word);
            bus.memory[base + 0x120] = 0x80000000 | word;
        };
        bus.onWrite[base + 0x200] = [this](u32 word) { pllWords.push_back(word); };
        bus.onWrite[base + 0x14] = [this](u32) {
            ++eepromReads;
            bus.memory[base + 0x14] = 2;
        };
        std::vector<u8> block(128, 0);
        block[0] = 3;
        std::ranges::copy(std::string(16, 'A') + "OXK317295/1", block.begin() + 1);
        const u32 sum = 3 + 16 * 65 + 'O' + 'X' + 'K' + '3' + '1' + '7' + '2' + '9' + '5' + '/' + '1';
        block[126] = static_cast<u8>(sum >> 8);
        block[127] = static_cast<u8>(sum);
        putBlock(bus, base, block);
    }
    /// The registers as a previous run left them.
    void leaveWarm(u32 divisor = 705)
    {
        bus.memory[base + 0x14] = 2;
        bus.memory[base + 0x48] = divisor;
        bus.memory[base + 0x50] = 800000000;
        bus.memory[base + 0x58] = 12345;
    }
    int initiate(u32 basicHwInit = 0)
    {
        int result = -1;
        bus.writes.clear();
        in([&] { result = tuHwIf_initiate(coldRestart, basicHwInit); });
        return result;
    }
    bool wrote(u32 at) const
    {
        for (const auto& [address, value] : bus.writes)
            if (address == at) return true;
        return false;
    }
};

TEST(BoardType, ComesFromTheBoardCodeAndIsReadOnce)
{
    struct Case { u32 code; int adi; u32 type; const char* trace; };
    for (const Case& c : std::to_array<Case>({
             {7, 0, 1, "Board type set to: 1"},
             {9, 0, 2, "Board type set to: 2"},
             {8, 0, 0, "Unable to determine hardware type."},
             {9, 5, 0, "Board type could not be received from ADI."}})) {
        SCOPED_TRACE(c.trace);
        Bench bench(1, false);
        bench.bus.boardCode = c.code;
        bench.bus.adiResult = c.adi;
        u32 first = 99, second = 99;
        bench.in([&] { first = getBoardType(); });
        bench.bus.boardCode = 7;
        bench.bus.adiResult = 0;
        bench.in([&] { second = tuHwIf_initiateBoardType(); });
        EXPECT_EQ(first, c.type);
        EXPECT_EQ(second, c.type);
        EXPECT_EQ(bench.bus.countOf(c.trace), 1u);
    }
}

TEST(BaseAddresses, AParameterThatIsNoAddressFailsTheInit)
{
    struct Case { const char* name; const char* value; const char* trace; };
    constexpr const char* BVF4 = "zfb/hw/fpga/bvf4/base";
    constexpr const char* NO_BVF4 = "Unable to obtain BVF4 base parameter.";
    for (const Case& c : std::to_array<Case>({
             {"zfb/hw/fpga/moka/tu_clk_sys/base", nullptr, "Unable to obtain MOKA TU base parameter."},
             {"zfb/hw/fpga/moka/base", nullptr, "Unable to obtain MOKA top parameter."},
             {BVF4, nullptr, NO_BVF4},
             {BVF4, "none", NO_BVF4},
             {BVF4, "0x100000000", NO_BVF4},
             {BVF4, "0x00000000C00000", NO_BVF4}})) {
        SCOPED_TRACE(c.trace);
        Bench bench(2, false);
        if (c.value == nullptr) bench.bus.parameters.erase(c.name);
        else bench.bus.parameters[c.name] = c.value;
        double period = 1, time = 1;
        bench.in([&] {
            EXPECT_EQ(HALI_init(), 1);
            EXPECT_EQ(HALI_readTime(period, time), 1);
        });
        EXPECT_EQ(bench.bus.countOf(c.trace), 1u);
        EXPECT_EQ(bench.bus.countOf("Unable to obtain FPGA memory base address"), 1u);
        EXPECT_EQ(period + time, 0);
        EXPECT_TRUE(bench.bus.reads.empty());
    }
}

TEST(BaseAddresses, TakeAnyRadix)
{
    Bench bench(2, false);
    bench.bus.parameters["zfb/hw/fpga/bvf4/base"] = "3221225472";          // 0xC0000000
    bench.bus.parameters["zfb/hw/fpga/moka/tu_clk_sys/base"] = "032000200000";   // 0xD0010000
    bench.in([] { EXPECT_EQ(HALI_init(), 0); });
    EXPECT_EQ(bench.address(0), 0xC007007Cu);
    EXPECT_EQ(bench.address(20), 0xD00100C8u);
}

TEST(ColdStart, WritesTheNominalValuesAndTheMultiplicator)
{
    struct Case { u32 type; u32 synthC; u32 K; u32 divisor; };
    for (const Case& c : std::to_array<Case>({{1, 398, 69791666, 705}, {2, 1592, 69791666, 705}})) {
        SCOPED_TRACE(c.type);
        Board board(c.type);
        EXPECT_EQ(board.initiate(), 0);
        EXPECT_EQ(board.coldRestart, 1u);
        EXPECT_EQ(board.get(81), c.synthC);
        EXPECT_EQ(board.get(77), 800000000u);
        EXPECT_EQ(board.get(79), c.K);
        EXPECT_EQ(board.get(75), c.divisor);
        EXPECT_EQ(board.get(80), 0x80000000u);
        EXPECT_TRUE(std::ranges::equal(board.multWords, multiplicatorWords(0)));
        EXPECT_TRUE(board.pllWords.empty());
        EXPECT_EQ(board.eepromReads, 1u);
        EXPECT_EQ(board.bus.countOf("LOZ6 FPGA revision is R41A"), 1u);
    }
}

TEST(ColdStart, GoesOnWithADividerThatDoesNotReadBack)
{
    Board board(1);
    board.bus.onRead[board.address(81)] = [](u32 stored) { return stored ^ 1; };
    EXPECT_EQ(board.initiate(), 0);
    EXPECT_EQ(board.bus.countOf("writeSynthcDivider failed 3 times"), 1u);
    EXPECT_EQ(board.bus.levelOf("writeSynthcDivider failed for value :398"), 1);
    EXPECT_EQ(board.multWords.size(), 112u);
}

TEST(ColdStart, SetsUpThePllIcOfAnExternalPhaseDetector)
{
    Board board(2);
    board.bus.parameters["productrevision"] = "P3A";
    EXPECT_EQ(board.initiate(), 0);
    EXPECT_EQ(board.get(81), 99u);
    EXPECT_EQ(board.get(79), 260904947u);
    EXPECT_EQ(board.get(75), 109u);
    EXPECT_TRUE(std::ranges::equal(board.multWords, multiplicatorWords(1)));
    EXPECT_EQ(board.pllWords, (std::vector<u32>{32918, 4, 12345, 32914}));
    EXPECT_EQ(board.get(52) & 0x80000000u, 0x80000000u);
    EXPECT_EQ(board.bus.memory[BASE_2C + 0x28], 1u);
    EXPECT_EQ(board.bus.memory[BASE_2C + 0x40], 1u);
    board.bus.parameters.erase("productrevision");
    board.in([] { EXPECT_EQ(tuHwIf_checkExtPhaseDetector(), 0u); });
}

TEST(WarmStart, LeavesTheSynthesiserAlone)
{
    for (const u32 type : {1u, 2u}) {
        SCOPED_TRACE(type);
        Board board(type);
        board.leaveWarm();
        EXPECT_EQ(board.initiate(), 0);
        EXPECT_EQ(board.coldRestart, 0u);
        EXPECT_TRUE(board.multWords.empty());
        for (const u32 offset : {0x48u, 0x4cu, 0x50u, 0x54u, 0x58u, 0x5cu, 0x124u})
            EXPECT_FALSE(board.wrote(board.base + offset)) << offset;
        EXPECT_EQ(board.get(79), 12345u);
    }
}

TEST(WarmStart, AMissingValueOfThePreviousRunMakesItCold)
{
    struct Case { u32 offset; u32 value; const char* trace; };
    for (const Case& c : std::to_array<Case>(
             {{0x14, 0, "cold restart = 1"},
              {0x48, 0, "Incorrect nominal divisor (0). Cold Start used."},
              {0x48, 0xC000, "Incorrect nominal divisor (0). Cold Start used."},  // above its 14 bits
              {0x50, 0, "Incorrect Delta/Sigma M (0). Cold Start used."}})) {
        SCOPED_TRACE(c.trace);
        Board board(1);
        board.leaveWarm();
        board.bus.memory[board.base + c.offset] = c.value;
        EXPECT_EQ(board.initiate(), 0);
        EXPECT_EQ(board.coldRestart, 1u);
        EXPECT_GE(board.bus.countOf(c.trace), 1u);
        EXPECT_EQ(board.multWords.size(), 112u);
    }
}

TEST(ColdStart, IsLeftToTheOtherOwnerOfTheHardware)
{
    Board board(1);
    board.coldRestart = 1;
    EXPECT_EQ(board.initiate(1), 0);
    EXPECT_EQ(board.coldRestart, 1u);
    EXPECT_TRUE(board.multWords.empty());
    EXPECT_EQ(board.get(75), 0u);
    EXPECT_EQ(board.eepromReads, 1u);
}

TEST(ColdStart, OfRevision3WritesNothingAndHasItsOwnNominals)
{
    Board board(1, REVISION_R3A1);
    EXPECT_EQ(board.initiate(), 0);
    EXPECT_EQ(board.coldRestart, 1u);
    EXPECT_TRUE(board.multWords.empty());
    EXPECT_FALSE(board.wrote(board.base + 0x48));
    board.in([] {
        EXPECT_EQ(tuHwIf_readNomDiv(), 1250u);
        EXPECT_EQ(tuHwIf_factoryDivider(), 1250.0);
    });
    EXPECT_EQ(board.bus.countOf("Is P3"), 1u);
}

TEST(StartResult, IsThreeOnAnUnknownBoardAndFourWithoutRegisters)
{
    Board unknown(NO_BOARD);
    EXPECT_EQ(unknown.initiate(), 3);
    unknown.in([] { EXPECT_EQ(HALI_readToggleStatus(), 0u); });

    Board unmapped(2);
    unmapped.bus.parameters.erase("zfb/hw/fpga/moka/base");
    unmapped.in([] { HALI_init(); });
    EXPECT_EQ(unmapped.initiate(), 4);
    EXPECT_TRUE(unmapped.bus.writes.empty());
}

TEST(StartResult, IsTwoWhenAnIcTakesNoWord)
{
    Board mult(1);
    u32 words = 0;
    mult.bus.onWrite[mult.base + 0x120] = [&](u32 word) {
        if (++words < 3) mult.bus.memory[mult.base + 0x120] = 0x80000000 | word;
    };
    const ose::Time before = mult.world.now();
    EXPECT_EQ(mult.initiate(), 2);
    EXPECT_EQ(words, 3u);
    EXPECT_EQ(mult.bus.countOf("to FPGA, BVF_IDT_MULT_REG = 0x00000200, type = 0, elem = 2"), 1u);
    EXPECT_EQ(mult.bus.countOf("Error while writing multiplicator values"), 1u);
    EXPECT_EQ(mult.world.now() - before, 1009 * ose::MS);      // 3 x 3 ms and 1000 polls

    Board pll(2);
    pll.bus.parameters["bvqmodule"] = "another";
    pll.bus.onRead[pll.base + 0x200] = [](u32 stored) { return stored | 0x80000000; };
    EXPECT_EQ(pll.initiate(), 2);
    EXPECT_EQ(pll.bus.countOf("Error while writing external pll IC values"), 1u);
    EXPECT_EQ(pll.bus.countOf("type = 1, elem = 0"), 1u);
}

/// FNV-1a over the two low bytes of each word: what the ICs are programmed with is a matter of their data
/// sheets, and a digit that slips shows nowhere else.
u32 digest(std::span<const u32> words)
{
    u32 hash = 2166136261u;
    for (const u32 word : words)
        for (const u32 byte : {word >> 8 & 0xFF, word & 0xFF}) hash = (hash ^ byte) * 16777619u;
    return hash;
}

TEST(Words, OfTheIcsAndWhichOfThemAreCompared)
{
    EXPECT_EQ(digest(multiplicatorWords(0)), 0xb2c9876u);
    EXPECT_EQ(digest(multiplicatorWords(1)), 0x14e5876eu);
    EXPECT_EQ(digest(PLL_IC_WORDS), 0x5eedd032u);
    for (const u32 index : {4u, 53u, 56u, 111u}) EXPECT_TRUE(isCheckedIndex(0, index)) << index;
    for (const u32 index : {3u, 54u, 55u, 112u}) EXPECT_FALSE(isCheckedIndex(0, index)) << index;
    for (const u32 index : {4u, 33u}) EXPECT_TRUE(isCheckedIndex(1, index)) << index;
    for (const u32 index : {6u, 34u}) EXPECT_FALSE(isCheckedIndex(1, index)) << index;
}

// ---- multiplicator read back, revision 42 and later -------------------------------------------

/// Answers a read of the multiplicator with what was written to it.
struct ReadBackBoard : Board {
    explicit ReadBackBoard(u32 type) : Board(type, REVISION_R42A)
    {
        bus.onWrite[base + 0x12c] = [this](u32) {
            bus.memory[base + 0x12c] = 2;
            std::vector<u32> value(128, 0);
            for (const u32 word : multWords) value[word / 256] = word % 256;
            bus.memory[base + 0x180] = 0x10ABCDEF;
            for (u32 i = 3; i < 115; ++i) {
                u32& word = bus.memory[base + 0x184 + (i - 3) / 4 * 4];
                const u32 shift = 24 - 8 * ((i - 3) % 4);
                word = (word & ~(0xFFu << shift)) | value[i] << shift;
            }
        };
    }
};

TEST(MultiplicatorReadBack, GivesUpAfterThreeAttempts)
{
    // Each attempt writes 112 words of 3 ms, waits 50 ms and polls each 10 ms for 5 s; feedback takes 100 ms.
    struct Case { const char* what; void (*fault)(ReadBackBoard&); const char* trace; u32 attempt_ms = 386; };
    for (const Case& c : std::to_array<Case>({
             {"identity", [](ReadBackBoard& b) {
                  b.bus.onRead[b.base + 0x180] = [](u32 w) { return w ^ 0x01000000; };
              }, "IDT MULT data read from fpga differs, expected 10 read 11 "},
             {"value", [](ReadBackBoard& b) {
                  b.bus.onRead[b.base + 0x184] = [](u32 w) { return w ^ 0x00000100; };
              }, "IDT MULT data read from fpga differs, expected ff read fe for IDT address 5"},
             {"crc", [](ReadBackBoard& b) { b.bus.memory[b.base + 0x17c] = 0x00040001; },
              "IDT CRC error, expected 0 read 40001 "},
             {"no data", [](ReadBackBoard& b) { b.bus.onWrite.erase(b.base + 0x12c); },
              "Unable to read IDT MULT data (data valid never set).", 5386},
             {"no feedback, out of window", [](ReadBackBoard& b) {
                  b.bus.memory[b.base + 0x1c] = 0x7;
                  b.bus.memory[b.base + 0x128] = 1172;
              }, "Feedback is missing on 30,72 MHz. A1_REF=1172. Expected between 1173 and 1175", 486},
             {"no feedback, low end", [](ReadBackBoard& b) {
                  b.bus.memory[b.base + 0x1c] = 0x7;
                  b.bus.memory[b.base + 0x128] = 1173;
              }, "Feedback is missing on 30,72 MHz. A1_REF=1173", 486},
             {"no feedback, high end", [](ReadBackBoard& b) {
                  b.bus.memory[b.base + 0x1c] = 0x7;
                  b.bus.memory[b.base + 0x128] = 0xF800 | 1175;
              }, "Feedback is missing on 30,72 MHz. A1_REF=1175", 486}})) {
        SCOPED_TRACE(c.what);
        ReadBackBoard board(2);
        c.fault(board);
        const ose::Time before = board.world.now();
        EXPECT_EQ(board.initiate(), 2);
        EXPECT_EQ(board.world.now() - before, 3 * c.attempt_ms * ose::MS);
        EXPECT_EQ(board.bus.countOf(c.trace), 3u);
        const bool isOut = std::string(c.trace).ends_with("1173 and 1175");
        EXPECT_EQ(board.bus.countOf(". Expected between"), isOut ? 3u : 0u);
        EXPECT_EQ(board.bus.countOf("Error while writing and checking multiplicator values"), 1u);
        EXPECT_EQ(board.multWords.size(), 3u * 112);
    }
}

TEST(MultiplicatorReadBack, ABoardWindowDependsOnTheTypeAndASecondAttemptMayPass)
{
    ReadBackBoard board(1);
    u32 reads = 0;
    board.bus.onRead[board.base + 0x1c] = [&](u32 word) { return ++reads == 1 ? 0x7 : word; };
    board.bus.memory[board.base + 0x128] = 1254;
    EXPECT_EQ(board.initiate(), 0);
    EXPECT_EQ(board.bus.countOf("is missing on 30,72 MHz. A1_REF=1254. Expected between 1251 and 1253"), 1u);
    EXPECT_EQ(board.multWords.size(), 2u * 112);
}

}  // namespace
