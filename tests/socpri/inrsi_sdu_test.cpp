// The slave's client of the measurement server: ports lent to the master, the rest supervised.
#include "tests/socpri/socpri_bench.h"

namespace {

using namespace bench;
using sim::InrsiFrequency;
using sim::InrsiPhase;
using Entry = inrsi::slave::LogEntry;

struct SduUnit : SocpriUnit {
    SduUnit() : SocpriUnit(SLAVE) {}
    void focus(u8 port)
    {
        send(KvdTuiifSocpriSduLockPortFocusInd{KVD_TUIIF_SOCPRI_SDU_LOCK_PORT_FOCUS_IND, port});
    }
    void clearFocus() { order(KVD_TUIIF_SOCPRI_SDU_CLEAR_PORT_FOCUS_IND); }
    void ask(SIGSELECT sigNo, u32 unit) { send(KvdTuiifInrsiGetFreqDiff2ReqFwd{sigNo, 2, unit}); }
    /// "freqDiff:valid" of the newest answer passed on, "" when there was none.
    std::string frequency(u32 unit)
    {
        ask(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD, unit);
        const auto cfm = told<KvdTuiifInrsiGetFreqDiff2CfmFwd>(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_CFM_FWD);
        if (!cfm) return "";
        EXPECT_EQ(cfm->sharedUnitId, unit);
        return std::to_string(cfm->freqDiff) + ":" + std::to_string(cfm->freqDiffValid);
    }
    std::string phase(u32 unit)
    {
        ask(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD, unit);
        const auto cfm = told<KvdTuiifInrsiGetPhaseDiff2CfmFwd>(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD);
        if (!cfm) return "";
        return std::to_string(cfm->trpDiffHigh) + ":" + std::to_string(cfm->trpDiffLow) + ":"
               + std::to_string(cfm->trpDiffValid);
    }
    u16 kept() { return get([] { return inrsi::slave::snapshot().index; }); }
    u8  focused() { return get([] { return inrsi::slave::clientRecord().portNo; }); }
    u32 focusedUnit() { return get([] { return inrsi::slave::clientRecord().sharedUnitId; }); }
};

TEST(InrsiSduRequests, ReachTheServerForTheUnitInFocusAlone)
{
    SduUnit u;
    u.frequencyIs(InrsiFrequency{-7, true});
    u.phaseIs(InrsiPhase{0x5'0000'0009, true});
    EXPECT_EQ(u.node.volumes().exists("/d/socpri_active"), 0) << "the master's alone";
    u.supervise({1, 3});
    EXPECT_EQ(u.links().size(), 2 * inrsi::SLOTS) << "told again at each indication";
    EXPECT_EQ(u.frequency(UNIT_A), "0:0") << "no focus";
    u.focus(1);
    EXPECT_EQ(u.frequency(UNIT_A), "-7:1");
    EXPECT_EQ(u.phase(UNIT_A), "5:9:1");
    EXPECT_EQ(u.frequency(UNIT_C), "0:0");
    EXPECT_EQ(u.phase(UNIT_C), "0:0:0");
    EXPECT_EQ(u.phase(0xFFFFFFFF), "0:0:0") << "the mark of a free place is no unit";
    EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C) + u.inrsi().phaseRequests(UNIT_C), 0u);
    u.focus(3);
    EXPECT_EQ(u.phase(UNIT_A), "0:0:0") << "it crossed the change of focus";
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), 1u);

    u.phaseIs(std::nullopt);
    u.ask(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD, UNIT_C);
    using Rej = KvdTuiifInrsiGetPhaseDiff2RejFwd;
    const auto rej = u.told<Rej>(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD);
    EXPECT_TRUE(rej && rej->sharedUnitId == UNIT_C && rej->errorCode == 7);
    u.frequencyIs(std::nullopt);
    u.ask(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD, UNIT_C);
    EXPECT_TRUE(u.told<Rej>(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD));
    u.inrsi().silentUnits = {UNIT_C};
    u.mp().clearLog();
    u.ask(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD, UNIT_C);
    u.run(5.0);
    EXPECT_EQ(u.supervised(), "") << "the master has its own time limit";
}

TEST(InrsiSduFocus, MovesByTheTwoIndications)
{
    SduUnit u;
    u.focus(1);
    u.focus(3);
    EXPECT_EQ(u.focused(), 2);
    EXPECT_EQ(u.focusedUnit(), UNIT_C);
    EXPECT_TRUE(u.traced("():Port 0 had its NGSM focus removed in place of port 2"));
    for (const u8 port : {u8{0}, u8{7}, u8{255}}) {
        u.focus(port);
        EXPECT_EQ(u.focused(), 2) << "out of bounds";
    }
    EXPECT_TRUE(u.traced("():Port 6 out of bound error!"));
    u.inrsi().setStatus(UNIT_C, 1);
    u.run(LATER);
    u.focus(3);
    EXPECT_EQ(u.focusedUnit(), inrsi::NO_UNIT) << "its link doesn't carry a phase";
    for (int i = 0; i < 2; ++i) u.clearFocus();
    EXPECT_EQ(u.focused(), inrsi::NO_PORT);
    EXPECT_EQ(u.kept(), 0) << "orders aren't worth a snapshot";
    for (u32 i = 0; i < inrsi::slave::LOG_ENTRIES; ++i) u.clearFocus();
    u.inrsi().die();
    u.run(LATER);
    EXPECT_EQ(u.get([] { return std::ranges::count(inrsi::slave::snapshot().entry, 1u, &Entry::used); }),
              i64{inrsi::slave::LOG_ENTRIES});
}

TEST(InrsiSduSupervision, ASampleWhosePortGotTheFocusIsPassedOn)
{
    SduUnit u;
    u.inrsi().answer_ms = 100;
    for (u32 i = 0; i < 600 && u.inrsi().phaseRequests(UNIT_A) == 0; ++i) u.run(0.1);
    ASSERT_EQ(u.inrsi().phaseRequests(UNIT_A), 1u);
    u.focus(1);
    u.mp().clearLog();
    u.run(0.5);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD), 1u);
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), 1u);
}

// Each bad signal is dropped with a trace, and the next good one is served.
TEST(InrsiSduBadInput, IsTracedAndTheNextGoodOneIsTaken)
{
    const InrsiGetPhaseDiff2Cfm cutOff{INRSI_GET_PHASE_DIFF2_CFM, 0, 0, UNIT_A, 0, 0, {}, 1};
    const std::function<void(SduUnit&)> BAD[] = {
        [](SduUnit& u) { u.inrsi().tellPhase(77, {1, true}); },                  // a unit that no port has
        [](SduUnit& u) { u.inject(InrsiUnitRej{INRSI_GET_PHASE_DIFF2_REJ, 0, 0, 77, 3}); },
        [](SduUnit& u) { u.inrsi().tellLink({.port = 0, .unit = 77}); },
        [](SduUnit& u) { u.inrsi().tellLink({.port = 7, .unit = 77}); },
        [](SduUnit& u) { u.inject(InrsiPort{INRSI_SUBSCRIBE_LINK_STATUS_CFM, 0, 0, 7}); },
        [&cutOff](SduUnit& u) { u.inject(cutOff, 24); },
        [](SduUnit& u) { u.order(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD); },    // and no more
    };
    for (std::size_t i = 0; i < std::size(BAD); ++i) {
        SCOPED_TRACE(i);
        SduUnit u;
        u.focus(1);
        u.mp().clearLog();
        BAD[i](u);
        u.run(LATER);
        EXPECT_EQ(u.traced("(): Port number out of range"), i >= 2 && i <= 4);
        EXPECT_EQ(u.mp().count(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD), 0u);
        EXPECT_EQ(u.supervised(), "");
        u.phaseIs(InrsiPhase{9, true});
        EXPECT_EQ(u.phase(UNIT_A), "0:9:1");
    }
}

// A master tells the sync group its time, a slave doesn't; which of them it is may change at any time.
TEST(InrsiRole, TheExchangeOfSyncDataFollowsAChange)
{
    for (const u8 role : {SLAVE, MASTER}) {
        SCOPED_TRACE(role);
        SocpriUnit u{role};
        const auto rounds = [&u] {
            const std::size_t before = u.traces("INCI get time data tmo requested.");
            u.run(2.0);
            return u.traces("INCI get time data tmo requested.") - before;
        };
        EXPECT_EQ(rounds(), role == SLAVE ? 0u : 10u);
        u.mp().changeMaster(3, role == SLAVE ? MASTER : SLAVE);
        u.run(1.0);
        EXPECT_EQ(rounds(), role == SLAVE ? 10u : 0u);
        EXPECT_NE(u.node.system().find("PsxIwNgscInciServer"), 0u);
    }
}

}  // namespace
