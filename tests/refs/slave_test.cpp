// Time between two units: what the slave measures, echoes and follows on IDL1, and what it makes of
// sync data, jumps of the master, unstable links and damaged data on IDL2.
#include "slave_bench.h"

#include "refs/kvd_ref_idl.h"
#include "tests/support/unit_bench.h"

#include <limits>

using bench::SlaveBench;
using bench::stableData;

namespace {

constexpr u32 VALID_ONLY = 0x80000000;      // without the extended words
constexpr u32 PARITY = 0xE0000000;

std::size_t used(const auto& ring)
{
    std::size_t count = 0;
    for (const auto& record : ring.slot) count += record.used;
    return count;
}

TEST(Idl1Slave, DropsWhatItCannotUse)
{
    struct Case { const char* what; u32 flags; u32 remoteMfn; bool validState; std::size_t snapshots; };
    for (const Case& c : std::to_array<Case>({
             {"no word",                    0,                      0,  true,  1},
             {"word without its extension", VALID_ONLY,             0,  true,  1},
             {"parity error",               PARITY,                 0,  true,  1},
             {"counter out of range",       SlaveBench::VALID_WORD, 25, true,  1},
             {"regulator in warm-up",       SlaveBench::VALID_WORD, 0,  false, 0}})) {
        SCOPED_TRACE(c.what);
        SlaveBench b;
        b.manager([] { slave::writeIdl1History(1e-7); });
        if (!c.validState) b.manager([] { KvdLoz6TuReg_forceRegState(WARMUP); });
        b.set(7, 0xFFFFFFFF);
        b.bfnIn({0, 5, 1000}, c.remoteMfn, 5, {0, 0, 10, 0, 0, 1}, c.flags);
        b.interrupt();
        EXPECT_TRUE(b.phases.empty());
        EXPECT_EQ(b.get(7), 0xFFFFFFFF);
        EXPECT_EQ(b.meas().m[Z_IDL1_LOZ6], 0.0);
        b.manager([&] {
            EXPECT_EQ(used(slave::history().idl1), 1u);
            EXPECT_EQ(used(slave::history().idl1Snapshot), c.snapshots);
            EXPECT_EQ(slave::history().currSlavePllEvent, c.validState ? 1u : 0u);
        });
    }
}

TEST(Idl1Slave, GoesToTheTurnThatTheMasterTellsTwice)
{
    SlaveBench b;
    b.manager([] { KvdLoz6TuReg_setLastTime(3 * 1024.0, 0.0); });
    for (const double turn : {3, 5}) {
        b.bfnIn({0, 5, 1000}, 0, 5, {0, 5, 3, 0, 0, 1});
        b.interrupt();
        EXPECT_EQ(b.meas().t_c_last, turn * 1024.0);
    }
}

TEST(Idl1History, KeepsTheTimeBeforeAnEvent)
{
    SlaveBench b;
    b.manager([] { slave::writeIdl1History(2e-9); });
    b.loopState = SLAVE_PLL_Locked;
    b.loopEvent = EV_SLAVE_PLL_PROCEEDING_TO_LOCKED;
    b.bfnIn({0, 5, 1000}, 0, 5, {0, 0, 10, 0, 0, 1});
    b.interrupt();
    b.loopEvent = EV_SLAVE_PLL_UNEVENTFUL_MEASUREMENT;
    b.interrupt();                                   // comes too late for it
    b.manager(KvdLoz6TuSlave_printInfo);
    const std::string snapshot = b.bus.shell.substr(b.bus.shell.find("IDL1 measurement history snapshot"));
    EXPECT_NE(snapshot.find("phaseDiff = 2e-09"), std::string::npos);
    EXPECT_NE(snapshot.find("currSlavePllEvent = EV_SLAVE_PLL_PROCEEDING_TO_LOCKED\n"), std::string::npos);
    EXPECT_EQ(snapshot.find("m = 2, currSlavePllState"), std::string::npos);
}

TEST(Idl2Slave, RefusesDamagedData)
{
    using Data = KvdTuiifIdl2SyncDataInd;
    void (*const damages[])(Data&) = {
        [](Data& d) { d.mfc = 25; }, [](Data& d) { d.sfc = 4096; }, [](Data& d) { d.inc = 1228800; },
        [](Data& d) { d.synchPortNo = 6; }, [](Data& d) { d.intermediaryDuPhaseDiff = std::nan(""); },
        [](Data& d) { d.intermediaryDuPhaseDiff = std::numeric_limits<double>::infinity(); }};
    for (const auto damage : damages) {
        SlaveBench b;
        Data data = stableData();
        damage(data);
        EXPECT_EQ(b.syncData(data), 0);
        EXPECT_TRUE(b.events.empty());
        EXPECT_EQ(b.idl2().idl2FineTuning, 0u);
        EXPECT_EQ(b.meas().m[Z_IDL2_LOZ6], 0.0);
        EXPECT_EQ(b.bus.countOf("sync data refused"), 1u);
    }
    SlaveBench b;
    Data last = stableData();
    last.mfc = 24, last.sfc = 4095, last.inc = 1228799, last.synchPortNo = 5;
    b.manager([&] {
        auto* sig = ose::alloc(sizeof(Data) - 4, KVD_TUIIF_IDL2_SYNC_DATA_IND);
        EXPECT_EQ(KvdLoz6TuReg_handleIdl2Slave(sig), 0);
        ose::free_buf(&sig);
    });
    b.timeTuning = 0;
    EXPECT_EQ(b.syncData(stableData()), 0);
    EXPECT_EQ(b.bus.levelOf("Unexpected KVD_TUIIF_IDL2_SYNC_DATA_IND received!"), TRACE_ERROR);
    EXPECT_TRUE(b.reports().empty());
    b.timeTuning = 1;
    b.syncData(last);
    EXPECT_EQ(b.bus.countOf("sync data refused"), 0u) << "the last numbers of each";
}

TEST(Idl2Slave, LinkRestartsFourTenthsOfASecondAfterAJump)
{
    for (const u32 loopState : {SLAVE_PLL_Unlocked, SLAVE_PLL_Locked}) {
        SlaveBench b;
        b.loopState = loopState;
        KvdTuiifIdl2SyncDataInd data = stableData();
        data.mfc = 1, data.sfc = 4095;     // the counter has turned since: no step, which takes 12 ms
        data.jumpInd = 1;
        b.syncData(data);
        data.jumpInd = 0;
        b.world.runFor(370 * ose::MS);               // and 20 ms of the bench's
        b.events.clear();
        b.syncData(data);
        EXPECT_EQ(b.events.dump(), R"([["slavePll"]])");
        b.events.clear();
        b.syncData(data);
        EXPECT_EQ(b.events.dump(), loopState == SLAVE_PLL_Locked
                                       ? R"([["idpi",3],["idpi",4],["slavePll"]])"
                                       : R"([["idpi",3],["slavePll"]])");
        EXPECT_EQ(b.clkStatus(), loopState == SLAVE_PLL_Locked ? 4u : 3u);
        b.manager([] { EXPECT_EQ(used(slave::history().idl2Snapshot), 1u) << "as it stood at the jump"; });
    }
    EXPECT_NEAR(slave::phaseDifference({}, {0, 0, 0, 2000}), -1e-9, 1e-15);     // one of them negative
    EXPECT_NEAR(slave::phaseDifference({0, 0, 0, 2000}, {}), 1e-9, 1e-15);
}

TEST(Idl2Slave, AStatusThatIsNotSentIsNotStored)
{
    SlaveBench b;
    b.serverResult = 1;
    KvdTuiifIdl2SyncDataInd data = stableData();
    data.jumpPend = 1;
    EXPECT_EQ(b.syncData(data), 0);
    EXPECT_EQ(b.clkStatus(), 0u);
    EXPECT_EQ(b.idl2().postponeTimeTuning, 1u);
    EXPECT_EQ(b.bus.countOf("received from MP, sent IDPI_CLK_STATUS_LOCKED"), 0u);
    data = stableData();
    data.jumpInd = 1;
    EXPECT_EQ(b.syncData(data), 1);
    b.manager([] { KvdLoz6TuSlave_idl2Reset(); });
    EXPECT_EQ(b.syncData(stableData()), 1);              // coarse again
    EXPECT_EQ(b.clkStatus(), 0u);
    EXPECT_EQ(b.bus.countOf("Unable to send IDPI_CLK_STATUS_LOCKED - IDPI Server"), 1u);
    EXPECT_EQ(b.bus.countOf("Unable to send IDPI_CLK_STATUS_COARSE_TIME_SYNCED - IDPI"), 1u);
}

}  // namespace
