// Reference multiplexer, toggles, FSYNC, test access, interrupts: what reaches the registers and
// what not.
#include "frame/kvd_mgr_proc.h"
#include "hw/fake_bus.h"
#include "sig/hwif_sig.h"
#include "unit/kvd_unit_process.h"

#include <gtest/gtest.h>

using namespace hwtest;

TEST(Select, RoutesTheReferenceAndKeepsTheOtherBits)
{
    struct Case { u32 board; u32 selector; u32 word; };
    for (const Case& c : std::to_array<Case>({{1, 0, 0xFFFFCE78},
                                              {1, 1, 0xFFFFCF78},
                                              {1, 5, 0xFFFFCF7C},
                                              {1, 6, 0xFFFFCE70},
                                              {1, 7, 0xFFFFCF7D},
                                              {1, 9, 0xFFFFCF7E},
                                              {2, 8, 0xFFFFDF78},
                                              {2, 9, 0xFFFFEF78},
                                              {2, 10, 0xFFFFFF78}})) {
        SCOPED_TRACE(testing::Message() << c.board << " " << c.selector);
        Bench bench(c.board);
        bench.set(52, 0xFFFFFFFF);
        int result = -1;
        bench.in([&] { result = HALI_subscribeRefTime(c.selector); });
        EXPECT_EQ(result, 0);
        EXPECT_EQ(bench.get(52), c.word);
    }
    Bench bench(2);
    bench.in([] { HALI_subscribeRefTime(HALI_GPS_HW_SYNC_REF); });
    EXPECT_EQ(bench.get(52), 0x800u);      // the newer board always has it
}

TEST(Select, RefusesWhatTheBoardDoesNotHave)
{
    struct Case { u32 board; u32 selector; const char* trace; };
    for (const Case& c : std::to_array<Case>({
             {1, 8, "Unknown sync ref to select (only one at atime val = 0x8)"},
             {1, 10, "Unknown sync ref to select (only one at atime val = 0xa)"},
             {2, 11, "Unknown sync ref to select (only one at atime val = 0xb)"},
             {NO_BOARD, 0, "Unknown sync ref to select (only one at atime val = 0x0)"}})) {
        SCOPED_TRACE(c.trace);
        Bench bench(c.board);
        int result = -1;
        bench.in([&] { result = HALI_subscribeRefTime(c.selector); });
        EXPECT_NE(result, 0);
        EXPECT_EQ(bench.bus.countOf(c.trace), 1u);
        EXPECT_TRUE(bench.bus.writes.empty());
    }
}

TEST(Registers, ThatAreNotMappedReadZeroAndTakeNothing)
{
    Bench bench(2, false);                 // base addresses never found
    u32 toggle = 9, synth = 9, enabled = 9, pending = 9;
    int select = -1, isr = -1, diag = -1, serialRead = -1;
    double frequency = 9, volts = 9;
    char serial[18];
    u8 version = 9, maker = 9;
    bench.in([&] {
        toggle = HALI_readToggleStatus();
        synth = tuHwIf_readSynthStatus();
        enabled = tuHwIf_isGpsOutEnabled();
        pending = tuHwIf_readPendingIsr();
        select = HALI_subscribeRefTime(0);
        isr = tuHwIf_enableIsr(1);
        diag = tuHwIf_hwDiag(0, 0);
        frequency = tuHwIf_readCurrentFrequency();
        tuHwIf_writeNominalDivisor(5);
        tuHwIf_writeDeltaSigmaK(5);
        tuHwIf_enableDeltaSigma();
        HALI_enableTuOut(1, 0);
        tuHwIf_setFsync(1);
        tuHwIf_setMokaTestBus(1);
        serialRead = HALI_readOcxoSerial(serial, version, maker);
        EXPECT_EQ(HALI_getOcxoTemp(volts), 1);
        EXPECT_EQ(tuHwIf_readOcxoCoeff(1), 0.0);
    });
    EXPECT_EQ(toggle + synth + enabled + pending, 0u);
    EXPECT_EQ(frequency, 0.0);
    EXPECT_EQ(select, 1);
    EXPECT_EQ(isr, 1);
    EXPECT_EQ(diag, 1);
    EXPECT_EQ(serialRead, 1);
    EXPECT_TRUE(bench.bus.writes.empty());
    EXPECT_TRUE(bench.bus.reads.empty());
    EXPECT_EQ(bench.bus.levelOf("Unable to obtain FPGA memory address."), 1);
}

TEST(Output, IsSwitchedWithoutTouchingTheSelection)
{
    Bench bench(2);
    bench.set(52, 0x80000909);
    u32 on = 9, off = 9;
    int mute = -1;
    bench.in([&] {
        HALI_enableTuOut(1, 1);
        on = tuHwIf_isGpsOutEnabled();
        mute = HALI_muteTuOut(1);
    });
    EXPECT_EQ(bench.get(52), 0x80000949u);
    bench.in([&] {
        HALI_enableTuOut(-1, 1);
        off = tuHwIf_isGpsOutEnabled();
    });
    EXPECT_EQ(bench.get(52), 0x80000909u);
    EXPECT_EQ(on, 1u);
    EXPECT_EQ(off, 0u);
    EXPECT_NE(mute, 0);
    EXPECT_EQ(bench.bus.countOf("Not supporting muteTuOut"), 1u);
}

TEST(Fsync, EachSettingHasItsBits)
{
    struct Case { const char* what; void (*set)(); u32 from; u32 to; };
    for (const Case& c : std::to_array<Case>(
             {{"on", [] { tuHwIf_setFsync(1); }, 0xFFFFFFFF, 0xFFFFFFBF},
              {"off clears pattern and alignment too", [] { tuHwIf_setFsync(0); }, 0xFFFFFFFF,
               0xFFFFFC1F},
              {"40 ms", [] { tuHwIf_setFsyncInterval(40); }, 0x00000345, 0x00000385},
              {"60 ms", [] { tuHwIf_setFsyncInterval(60); }, 0x000000C0, 0x00000040},
              {"10 ms", [] { tuHwIf_setFsyncInterval(10); }, 0, 0x000000C0},
              {"40960 ms", [] { tuHwIf_setFsyncInterval(40960); }, 0xC0, 0},
              {"BFN", [] { tuHwIf_setFsyncPattern(1); }, 0x300, 0x100},
              {"pattern off", [] { tuHwIf_setFsyncPattern(0); }, 0, 0x300},
              {"rising", [] { tuHwIf_setFsyncAlignment(1); }, 0, 0x20},
              {"falling", [] { tuHwIf_setFsyncAlignment(0); }, 0xFF, 0xDF}})) {
        SCOPED_TRACE(c.what);
        Bench bench(2);
        bench.bus.memory[BASE_2C + 0x90] = c.from;
        bench.in(c.set);
        EXPECT_EQ(bench.bus.memory[BASE_2C + 0x90], c.to);
    }
}

TEST(Fsync, OfTheOlderBoardIsOnOrOffAlone)
{
    Bench bench(1);
    bench.in([] {
        tuHwIf_setFsync(1);
        tuHwIf_setFsync(0);
        tuHwIf_setFsyncInterval(40);
        tuHwIf_setFsyncPattern(1);
        tuHwIf_setFsyncAlignment(1);
    });
    EXPECT_EQ(bench.takeWrites(),
              (std::vector<std::pair<u32, u32>>{{BASE_1 + 0x70, 0x80000000}, {BASE_1 + 0x70, 0}}));
    EXPECT_EQ(bench.bus.countOf("tuHwIf_setFsyncInterval should only be used for BVQ3 boards."),
              1u);
    EXPECT_EQ(bench.bus.countOf("should only be used for BVQ3 boards."), 3u);
}

TEST(TestAccess, IsOnTheNewerBoardOnly)
{
    Bench bench(2);
    bench.bus.memory[BASE_2D + 0x2040] = 0x1;
    bench.in([] {
        tuHwIf_setMokaTestMux(1);
        tuHwIf_setMokaTestBus(1);
        tuHwIf_setMokaTestMux(0);
    });
    EXPECT_EQ(bench.bus.memory[BASE_2D + 0x2040], 0x21u);
    EXPECT_EQ(bench.bus.shell, "MokaProdTestPort enabled: 0xd0002040 = 0x11\n"
                               "MokaTestBus enabled: 0xd0002040 = 0x31\n"
                               "MokaProdTestPort disabled: 0xd0002040 = 0x21\n");
    Bench older(1);
    older.in([] { tuHwIf_setMokaTestBus(1); });
    EXPECT_TRUE(older.bus.writes.empty());
    EXPECT_EQ(older.bus.shell, "Current board (1) is not a BVQ3 board with MOKA test ports.");
}

TEST(BbClock, IsOfTheOlderBoardOnly)
{
    for (const u32 type : {1u, 2u}) {
        Bench bench(type);
        bench.in([] { tuHwIf_enableBbClk(1); });
        EXPECT_EQ(bench.get(73), type == 1 ? 1u : 0u);
    }
}

// ---- interrupts -------------------------------------------------------------------------------

TEST(Interrupts, EnableAndDisableTouchTheirOwnBits)
{
    Bench bench(2);
    bench.set(10, 0xF0);
    bench.in([] { tuHwIf_enableIsr(0x1 | 0x2); });
    EXPECT_EQ(bench.get(10), 0xFAu);
    bench.in([] { tuHwIf_disableIsr(0x2); });
    EXPECT_EQ(bench.get(10), 0xF2u);
}

TEST(Interrupts, PendingIsClearedAndMaskedOnTheNewerBoard)
{
    Bench bench(2);
    const u32 pendingAt = bench.address(11);
    bench.bus.memory[pendingAt] = 0xE;
    bench.bus.onWrite[pendingAt] = [&](u32 written) {
        bench.bus.memory[pendingAt] = 0xE & ~written;
    };
    bench.set(10, 0xA);
    u32 first = 9, second = 9;
    bench.in([&] {
        first = tuHwIf_readPendingIsr();
        second = tuHwIf_readPendingIsr();
    });
    EXPECT_EQ(first, 0x3u);        // port A and 100 ms; the reference bit isn't enabled
    EXPECT_EQ(second, 0u);

    Bench older(1);
    older.set(11, 0xF);
    u32 pending = 0;
    older.in([&] { pending = tuHwIf_readPendingIsr(); });
    EXPECT_EQ(pending, 0xFu);
    EXPECT_TRUE(older.bus.writes.empty());
}

namespace {

/// A bench whose manager is a process that keeps what it is sent.
struct IntBench : Bench {
    PROCESS manager = 0;
    std::vector<std::pair<SIGSELECT, u32>> sent;

    explicit IntBench(u32 board) : Bench(board)
    {
        manager = system.spawn("manager", 16, [this] {
            for (;;) {
                Signal* sig = ose::receive(ose::ANY_SIGNAL);
                u32 pending = 0;
                if (ose::sigsize(&sig) >= sizeof(KvdTuhwifRefInterrupt))
                    pending = reinterpret_cast<KvdTuhwifRefInterrupt*>(sig)->pending;
                sent.emplace_back(sig->sigNo, pending);
                ose::free_buf(&sig);
            }
        });
        in([this] { KvdLoz6TuMgr_setPids(manager, 0, 0); });
    }
    void raise(u32 vector)
    {
        system.raise(vector);
        world.runFor(ose::MS);
    }
};

}  // namespace

TEST(InterruptProcess, HandsThePendingWordToTheManagerAndClosesTheLine)
{
    struct Case { u32 board; u32 vector; u32 raw; std::vector<std::pair<SIGSELECT, u32>> sent; };
    for (const Case& c : std::to_array<Case>({
             {1, 89, 0x1, {{0x9C640, 0x2}}},
             {1, 89, 0x8, {{0x9C651, 0}}},
             {1, 89, 0xE, {{0x9C651, 0}, {0x9C640, 0xD}}},
             {2, 166, 0x4, {{0x9C640, 0x4}}},
             {2, 166, 0x3, {{0x9C651, 0}, {0x9C640, 0x9}}},
             {2, 166, 0x0, {{0x9C640, 0}}}})) {
        SCOPED_TRACE(testing::Message() << c.board << " " << c.raw);
        IntBench bench(c.board);
        bench.set(10, 0xF);
        bench.set(11, c.raw);
        bench.in([] { tuHwif_startIntProc(); });
        EXPECT_EQ(bench.bus.lines, (std::vector<std::pair<char, u32>>{{'e', c.vector}}));
        bench.raise(c.vector);
        EXPECT_EQ(bench.sent, c.sent);
        EXPECT_EQ(bench.bus.lines.back(), (std::pair<char, u32>{'d', c.vector}));
    }
}

TEST(InterruptProcess, StartsOnceAndAgainAfterAKill)
{
    IntBench bench(2);
    bench.bus.extIntResult = 3;
    bench.in([] {
        tuHwIf_enableExtInt();             // nothing runs yet: the line stays as it is
        tuHwif_startIntProc();
        tuHwif_startIntProc();
    });
    EXPECT_EQ(bench.bus.lines.size(), 1u);
    EXPECT_EQ(bench.bus.countOf("Interrupt process Kvd_loz6_tuhwif_int_proc already started!"), 1u);
    EXPECT_EQ(bench.bus.countOf("Received 3 from TarsoAdi_enableExtInt"), 1u);
    bench.in([] { tuHwif_killIntProc(); });
    EXPECT_EQ(bench.bus.countOf("PROCESS Kvd_loz6_tuhwif_int_proc killed"), 1u);
    EXPECT_EQ(bench.system.find("Kvd_loz6_tuhwif_int_proc"), 0u);
    bench.in([] { tuHwif_startIntProc(); });
    EXPECT_NE(bench.system.find("Kvd_loz6_tuhwif_int_proc"), 0u);
    EXPECT_EQ(bench.bus.countOf("PROCESS Kvd_loz6_tuhwif_int_proc created"), 2u);
}
