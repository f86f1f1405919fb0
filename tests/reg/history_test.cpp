// What survives a restart: when the record is written, and what happens to a broken one.
#include "reg/support/history_bench.h"

using regtest::HistoryBench;

namespace {

/// A locked filter whose flash file was written a day before a restart.
struct Restarted : HistoryBench {
    Restarted()
    {
        lock();
        in([] { KvdLoz6TuReg_writeHistory(true); });
        restart();
        node.setCalendar(regtest::NOW + 86400);
    }
    int withFlash()
    {
        int result = -1;
        in([&] { result = KvdLoz6TuReg_initiateWithFlash(2.0); });
        return result;
    }
};

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
        Restarted unit;
        std::string file = unit.file(HIST_FILE);
        ASSERT_EQ(file.size(), 460u);
        c.damage(file);
        unit.node.volumes().write(HIST_FILE, file);
        EXPECT_EQ(unit.withFlash(), c.result);
    }
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

}  // namespace
