// What survives a restart: when the record is written, and what happens to a broken one.
#include "reg/support/history_bench.h"
#include "sig/ref_types.h"

using regtest::HistoryBench;

TEST(HistoryStart, RefusesWhatItCannotTrust)
{
    constexpr std::size_t VERSION = 0, SERIAL = 20, FIRST_OF_U = 48, DIVIDER = 56, FREQUENCY_VARIANCE = 168;
    struct Case { const char* what; void (*damage)(std::string& file); int forLoop, result = 2; };
    const Case cases[] = {
        {"cut in the middle", [](std::string& f) { f.resize(200); }, 2},
        {"one byte too long", [](std::string& f) { f += '\0'; }, 2},
        {"another oscillator", [](std::string& f) { f[SERIAL] ^= 1; }, 2},
        {"no number", [](std::string& f) { f.replace(FIRST_OF_U, 8, "\x7F\xF8\0\0\0\0\0\0", 8); }, 1},
        {"a divider of 1", [](std::string& f) { f.replace(DIVIDER, 8, "\x3F\xF0\0\0\0\0\0\0", 8); }, 1},
        {"no variance", [](std::string& f) { f.replace(FREQUENCY_VARIANCE, 8, 8, '\0'); }, 1},
        {"infinite", [](std::string& f) { f.replace(FREQUENCY_VARIANCE, 8, "\x7F\xF0\0\0\0\0\0\0", 8); }, 1},
        {"newer version", [](std::string& f) { f[VERSION + 1] = 6; }, 2},
        {"untouched", [](std::string&) {}, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        HistoryBench unit;
        unit.lock();
        unit.in([] { KvdLoz6TuReg_writeHistory(true); });
        std::string file = unit.file(HIST_FILE);
        ASSERT_EQ(file.size(), 460u);
        c.damage(file);
        unit.restart();
        unit.node.volumes().write(HIST_FILE, file);
        unit.node.setCalendar(regtest::NOW + 86400);
        unit.in([&c] {
            EXPECT_EQ(KvdLoz6TuReg_historyForPll(), c.forLoop);
            EXPECT_EQ(KvdLoz6TuReg_initiateWithFlash(2.0), c.result);
        });
    }
}

// The time of a reference that has none is known to the second that the counter shows.
TEST(HistoryStart, KnowsTheTimeAsWellAsTheReferenceDid)
{
    for (const auto& [selectedRef, P_s2] : {std::pair{TU_SR_GPS_REF, 0.0}, {TU_SR_PDH_REF1, 1.0 / 12}}) {
        HistoryBench unit;
        unit.lock();
        unit.in([&] {
            measure::state().var.selectedRef = selectedRef;
            KvdLoz6TuReg_writeHistory(false);
        });
        unit.restart();
        unit.node.setCalendar(regtest::NOW + 60);
        unit.in([&] {
            EXPECT_EQ(KvdLoz6TuReg_initiateWithMsi(2.0), 0);
            EXPECT_NEAR(estimator::state().var.P_est[0], P_s2, 1e-6) << selectedRef;
        });
    }
}

TEST(HistoryWrite, ThatFailsIsTriedAgainAfterAMinute)
{
    HistoryBench unit;
    unit.lock();
    unit.node.volumes().writeFails = true;
    unit.in([] {
        KvdLoz6TuReg_writeHistory(true);
        EXPECT_NEAR(KvdLoz6TuReg_measStateVar().histCountDown * 2.1, 60.0, 1e-9) << "not at the next tick";
    });
    EXPECT_TRUE(unit.traced("Failed to write history file to flash"));
    unit.node.volumes().writeFails = false;
    unit.in([] { KvdLoz6TuReg_writeHistory(true); });
    EXPECT_EQ(unit.file(HIST_FILE).size(), 460u);
}

TEST(HistoryRecord, KeepsThatTheRestartWasCold)
{
    HistoryBench unit;
    unit.lock();
    unit.in([] {
        KvdLoz6TuReg_writeHistory(false);
        for (const auto& [told, kept] : {std::pair{0u, 0u}, {1u, 1u}, {0u, 1u}}) {
            u32 cold = told;
            KvdLoz6TuReg_historyColdFlag(cold);
            EXPECT_EQ(cold, kept);
        }
    });
}
