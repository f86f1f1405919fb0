// Reference multiplexer, toggles, FSYNC, test access, interrupts: what reaches the registers and
// what not.
#include "frame/kvd_mgr_proc.h"
#include "hw/fake_bus.h"
#include "sig/hwif_sig.h"
#include "unit/kvd_unit_process.h"

using namespace hwtest;

TEST(Registers, ThatAreNotMappedReadZeroAndTakeNothing)
{
    Bench bench(2, false);                 // base addresses never found
    bench.in([] {
        EXPECT_EQ(HALI_readToggleStatus(), 0u);
        EXPECT_EQ(tuHwIf_readSynthStatus(), 0u);
        EXPECT_EQ(tuHwIf_isGpsOutEnabled(), 0u);
        EXPECT_EQ(tuHwIf_readPendingIsr(), 0u);
        EXPECT_EQ(tuHwIf_readCurrentFrequency(), 0.0);
        EXPECT_EQ(tuHwIf_readOcxoCoeff(1), 0.0);
        using namespace hwif;
        BfnIn in;
        std::tm date;
        char text[12] = "text", serial[18] = "text";
        u8 version = 9, maker = 9;
        double volts = 9;
        Sfc sfc;
        u32 seconds = 9;
        for (const int result :
             {HALI_subscribeRefTime(0), tuHwIf_enableIsr(1), tuHwIf_hwDiag(0, 0),
              tuHwIf_adjustGpsOutOffset(1, 1), tuHwIf_readBfnIn(in), tuHwIf_readOcxoEeprom(),
              tuHwIf_validateOcxoEeprom(), tuHwIf_readOcxoCalibDate(date), tuHwIf_readOcxoPartNum(text),
              tuHwIf_readOcxoSerial(serial, version, maker), HALI_getOcxoTemp(volts), HALI_muteTuOut(0),
              tuHwIf_readGpsOutSfc(sfc.mfn, sfc.sfn, sfc.inc), HALI_readOcxoSerial(serial, version, maker)})
            EXPECT_EQ(result, 1);
        EXPECT_EQ(HALI_unSubscribeRefTime(0) + HALI_getPowerOnTime(seconds), 0);
        EXPECT_EQ(text[0] + serial[0] + version + maker + seconds, 0u);
        EXPECT_FALSE(tuHwIf_adjustSfc({1, 2, 3}) || tuHwIf_adjustExtSfc(1) || tuHwIf_loadSfc()
                     || tuHwIf_writeMultiplicator() || tuHwIf_writeExternalPllIC()
                     || readAndCheckMultiplicator());
        tuHwIf_writeNominalDivisor(5);
        tuHwIf_writeDeltaSigmaK(5);
        tuHwIf_enableDeltaSigma(), tuHwIf_writeBfnOut(1, 2);
        HALI_enableTuOut(1, 0);
        tuHwIf_setFsync(1);
        tuHwIf_setMokaTestBus(1);
    });
    EXPECT_TRUE(bench.bus.writes.empty());
    EXPECT_TRUE(bench.bus.reads.empty());
    EXPECT_EQ(bench.bus.levelOf("Unable to obtain FPGA memory address."), 1);
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
        bench.in([] { tuHwIf_enableBbClk(0); });
        EXPECT_EQ(bench.get(73), 0u);
    }
}

// ---- interrupts -------------------------------------------------------------------------------

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
        EXPECT_EQ(bench.bus.countOf("from TarsoAdi"), 0u);
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

TEST(InterruptProcess, OfAnUnknownBoardHasNoLine)
{
    IntBench bench(NO_BOARD);
    bench.in([] {
        tuHwif_startIntProc();
        tuHwIf_disableExtInt();
    });
    EXPECT_TRUE(bench.bus.lines.empty());
    for (const char* text : {"Unable to determine interrupt vector", "Unable to determine interrupt prio",
                             "interrupt vector is 0. Interrupts not enabled.",
                             "interrupt vector is 0. Interrupts not disabled."})
        EXPECT_EQ(bench.bus.countOf(text), 1u) << text;
}

TEST(Words, HardwareMonitorTakesThreeBitsADetector)
{
    struct Case { u32 detector, value, before, after; };             // after 0: refused
    for (const Case& c : std::to_array<Case>({{0, 4, 0xFFFFFFFF, 0xFFFFFFFD}, {5, 2, 0, 0x00010000},
                                              {6, 3, 0, 0x00100000}, {6, 2, 0, 0}, {6, 5, 0, 0}, {7, 0, 0, 0},
                                              {0, 6, 0, 0}})) {
        EXPECT_EQ(hwif::hmWord(c.detector, c.value, c.before).value_or(0), c.after)
            << c.detector << " " << c.value;
    }
}

}  // namespace
