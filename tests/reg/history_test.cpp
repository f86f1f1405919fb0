// What survives a restart: when the record is used, from where, and what happens to a broken one.
#include "reg/support/history_bench.h"

using regtest::HistoryBench;

namespace {

/// A locked filter whose record is written `age` seconds before a restart.
struct Restarted : HistoryBench {
    explicit Restarted(i64 age, bool toFlash = false)
    {
        lock();
        in([toFlash] { KvdLoz6TuReg_writeHistory(toFlash); });
        restart();
        node.setCalendar(regtest::NOW + age);
    }
    int withMsi()
    {
        int result = -1;
        in([&] { result = KvdLoz6TuReg_initiateWithMsi(2.0); });
        return result;
    }
    int withFlash()
    {
        int result = -1;
        in([&] { result = KvdLoz6TuReg_initiateWithFlash(2.0); });
        return result;
    }
};

TEST(HistoryStart, UsesPersistentMemoryUpTo200Seconds)
{
    struct Case { i64 age; int result; const char* trace; };
    for (const Case& c : {Case{5, 0, "Initiate with MSI SUCCESSFUL"},
                          Case{200, 0, "Initiate with MSI SUCCESSFUL"},
                          Case{201, 2, "Initiate with MSI Failed "},
                          Case{0, 1, "Initiate with msi, no sys time"},
                          Case{-10, 1, "Initiate with msi, no sys time"}}) {
        SCOPED_TRACE(c.age);
        Restarted unit(c.age);
        EXPECT_EQ(unit.withMsi(), c.result);
        EXPECT_TRUE(unit.traced(c.trace));
    }
}

TEST(HistoryStart, TakesTheFrequencyFromFlashAndNotTheTime)
{
    Restarted unit(86400, true);
    EXPECT_EQ(unit.withFlash(), 0);
    unit.in([] {
        EXPECT_EQ(KvdLoz6TuReg_controlStateVar().U[1], tuHwIf_factoryDivider());
        EXPECT_EQ(KvdLoz6TuReg_estimateStateVar().P_est[0], 1024.0 * 1024.0 / 12);
        EXPECT_EQ(KvdLoz6TuReg_getMod(), 0.0);
    });
    EXPECT_TRUE(unit.traced("Ocxo serial number ok, reading Flash file"));
}

TEST(HistoryStart, RefusesWhatItCannotTrust)
{
    constexpr std::size_t VERSION = 0, SERIAL = 20, FIRST_OF_U = 48, DIVIDER = 56, FREQUENCY_VARIANCE = 168;
    struct Case { const char* what; void (*damage)(std::string& file); int result; };
    const Case cases[] = {
        {"cut in the middle", [](std::string& f) { f.resize(200); }, 2},
        {"one byte too long", [](std::string& f) { f += '\0'; }, 2},
        {"another oscillator", [](std::string& f) { f[SERIAL] ^= 1; }, 2},
        {"no number", [](std::string& f) { f.replace(FIRST_OF_U, 8, "\x7F\xF8\0\0\0\0\0\0", 8); }, 2},
        {"a divider of 1", [](std::string& f) { f.replace(DIVIDER, 8, "\x3F\xF0\0\0\0\0\0\0", 8); }, 2},
        {"no variance", [](std::string& f) { f.replace(FREQUENCY_VARIANCE, 8, 8, '\0'); }, 2},
        {"infinite", [](std::string& f) { f.replace(FREQUENCY_VARIANCE, 8, "\x7F\xF0\0\0\0\0\0\0", 8); }, 2},
        {"newer version", [](std::string& f) { f[VERSION + 1] = 6; }, 2},
        {"untouched", [](std::string&) {}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        Restarted unit(86400, true);
        std::string file = unit.file(HIST_FILE);
        ASSERT_EQ(file.size(), 460u);
        c.damage(file);
        unit.node.volumes().write(HIST_FILE, file);
        EXPECT_EQ(unit.withFlash(), c.result);
    }
}

TEST(HistoryStart, WaitsForACalendarThatIsNotSetYet)
{
    Restarted unit(86400, true);
    unit.node.setCalendar(regtest::NOW - 86400);
    EXPECT_EQ(unit.withFlash(), 1);
    EXPECT_TRUE(unit.traced("Initiate with flash, no sys time"));
}

TEST(HistoryWrite, HappensOnALockedMasterAlone)
{
    HistoryBench unit;
    unit.lock();
    unit.in([] {
        control::state().var.f_ix = 4;
        KvdLoz6TuReg_writeHistory(true);
        control::state().var.f_ix = 5;
        regulator::state().masterSlaveMode = 0;
        KvdLoz6TuReg_writeHistory(true);
        regulator::state().masterSlaveMode = 1;
    });
    EXPECT_EQ(unit.file(HIST_FILE), "");
    unit.node.volumes().writeFails = true;
    unit.in([] {
        KvdLoz6TuReg_writeHistory(true);
        EXPECT_NEAR(KvdLoz6TuReg_measStateVar().histCountDown * 2.1, 60.0, 1e-9) << "not at the next tick";
    });
    EXPECT_TRUE(unit.traced("Failed to write history file to flash"));
    unit.node.volumes().writeFails = false;
    unit.in([] { KvdLoz6TuReg_writeHistory(true); });
    EXPECT_EQ(unit.file(HIST_FILE).size(), 460u);
    EXPECT_EQ(unit.file(HIST_FILE).substr(0, 4), std::string("\0\x05\0\x06", 4));
}

TEST(HistoryWrite, ComesAgainAtHalfTheTimeThatItWillHoldOrInAMinute)
{
    HistoryBench unit;
    unit.lock();
    unit.in([] {
        const double holds = KvdLoz6TuReg_lookAheadHistory();
        ASSERT_GT(holds, 60.0);
        KvdLoz6TuReg_writeHistory(true);
        EXPECT_EQ(KvdLoz6TuReg_measStateVar().histCountDown, holds / 2);
        estimator::state().var.P_est[7] = 1e-14;       // 300 ppb: out of its grade at once
        KvdLoz6TuReg_writeHistory(true);
        EXPECT_EQ(KvdLoz6TuReg_measStateVar().histCountDown, 28.571428571428573);
    });
}

TEST(HistoryStart, FallsBackToFlashWhenPersistentMemoryIsTooOld)
{
    Restarted unit(201, true);
    unit.in([] {
        u8 record[HIST_RECORD_SIZE];
        u32 fromMsi = 7;
        EXPECT_EQ(KvdLoz6TuReg_readHistData(record, fromMsi), 1);
        EXPECT_EQ(fromMsi, 0u);
        const HistRecord h = KvdLoz6TuReg_unpackHistory(record);
        EXPECT_EQ(h.t_mod, 0.0);
        EXPECT_EQ(h.cold, 1u);
    });
}

}  // namespace
