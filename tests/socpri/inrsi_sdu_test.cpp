// The slave's client of the measurement server: ports lent to the master, the rest supervised.
#include "tests/socpri/socpri_bench.h"

namespace {

using bench::LATER;
using bench::SLAVE;
using bench::SocpriUnit;
using bench::UNIT_A;
using bench::UNIT_C;
using sim::InrsiFrequency;
using sim::InrsiPhase;
using Strings = std::vector<std::string>;

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
        return std::to_string(cfm->trpDiffHigh) + ":" + std::to_string(cfm->trpDiffLow) + ":" +
               std::to_string(cfm->trpDiffValid);
    }
    /// The event that was logged last and kept.
    inrsi::Event kept()
    {
        return get([] {
            const inrsi::slave::Log& log = inrsi::slave::snapshot();
            constexpr u32 N = inrsi::slave::LOG_ENTRIES;
            return inrsi::SLAVE_EVENTS[log.entry[(log.index + N - 1) % N].event];
        });
    }
    u8  focused() { return get([] { return inrsi::slave::clientRecord().portNo; }); }
    u32 focusedUnit() { return get([] { return inrsi::slave::clientRecord().sharedUnitId; }); }
};

TEST(InrsiSduRequests, ReachTheServerForTheUnitInFocusAlone)
{
    SduUnit u;
    u.frequencyIs(InrsiFrequency{-7, true});
    u.phaseIs(InrsiPhase{0x5'0000'0009, true});
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

    u.frequencyIs(std::nullopt);
    u.phaseIs(std::nullopt);
    EXPECT_EQ(u.frequency(UNIT_C), "");
    u.ask(KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD, UNIT_C);
    u.ask(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD, UNIT_C);
    for (const SIGSELECT rejection :
         {KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REJ_FWD, KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD}) {
        ASSERT_EQ(u.mp().count(rejection), 1u);
        const auto rej = u.mp().last(rejection)->as<KvdTuiifInrsiGetFreqDiff2RejFwd>();
        EXPECT_EQ(rej->sharedUnitId, UNIT_C);
        EXPECT_EQ(rej->errorCode, 7);
    }
    u.inrsi().silentUnits = {UNIT_C};
    u.mp().clearLog();
    u.ask(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD, UNIT_C);
    u.run(5.0);
    EXPECT_EQ(u.supervised(), "") << "the master has its own time limit";
}

TEST(InrsiSduFocus, MovesByTheTwoIndicationsAndSupervisionWithIt)
{
    SduUnit u;
    u.focus(1);
    u.focus(3);
    EXPECT_EQ(u.focused(), 2);
    EXPECT_EQ(u.focusedUnit(), UNIT_C);
    EXPECT_TRUE(u.traced("():Port 0 had its NGSM focus removed in place of port 2"));
    u.mp().clearLog();
    u.run(61.0);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND), 1u);
    EXPECT_EQ(u.supervised(), "1:2");
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_C), 0u);

    for (const u8 port : {u8{0}, u8{7}, u8{255}}) {
        u.focus(port);
        EXPECT_EQ(u.focused(), 2) << "out of bounds";
    }
    EXPECT_TRUE(u.traced("():Port 6 out of bound error!"));
    u.inrsi().setStatus(UNIT_C, 1);
    u.run(LATER);
    u.focus(3);
    EXPECT_EQ(u.focusedUnit(), inrsi::NO_UNIT) << "its link doesn't carry a phase";
    u.inrsi().setStatus(UNIT_C, 2);
    u.run(LATER);
    u.clearFocus();
    u.clearFocus();
    EXPECT_EQ(u.focused(), inrsi::NO_PORT);
    u.run(62.0);
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_C), 5u);
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

TEST(InrsiSduSupervision, TellsWhatIsMissing)
{
    for (const bool rejected : {true, false}) {
        SCOPED_TRACE(rejected);
        SduUnit u;
        u.supervise({1});
        if (rejected) u.phaseIs(std::nullopt);
        else          u.inrsi().silentUnits = {UNIT_A};
        u.run(60.0);
        u.run(0.5);
        EXPECT_EQ(u.supervised(), "1:7");
        EXPECT_EQ(u.kept(), rejected ? inrsi::INRSI_CL_EV_PHASE_DIFF_REJ : inrsi::INRSI_CL_EV_MEAS_TMO_EXPIRED);
        u.run(60.5);
        EXPECT_EQ(u.supervised(), "1:7") << "and goes on";
    }
}

TEST(InrsiSduLinks, AreToldAtEachIndicationAndLeaveTheFocusAlone)
{
    SduUnit u;
    u.supervise({1});
    EXPECT_EQ(u.links(), (Strings{"1:2:11", "1:0:-1", "1:0:-1", "1:0:-1"}));
    EXPECT_EQ(u.node.volumes().exists("/d/socpri_active"), 0);
    u.focus(1);
    u.inrsi().setStatus(UNIT_A, 0);
    u.run(LATER);
    EXPECT_EQ(u.links(), (Strings{"1:0:11"}));
    EXPECT_EQ(u.focused(), 0);
    EXPECT_EQ(u.phase(UNIT_A), "0:0:0");
    u.inrsi().die();
    u.run(LATER);
    EXPECT_EQ(u.kept(), inrsi::INRSI_CL_EV_SERVER_DOWN);
    EXPECT_EQ(u.links().size(), 4u);
    u.inrsi().start();
    u.run(0.1);
    EXPECT_EQ(u.started(), 1u);
}

// Each bad signal is dropped with a trace, and the next good one is served.
TEST(InrsiSduBadInput, IsTracedAndTheNextGoodOneIsTaken)
{
    struct Case {
        const char* what;
        void (*bad)(SduUnit&);
        const char* trace;
    };
    for (const Case& c : std::to_array<Case>({
             {"a phase of a unit that no port has", [](SduUnit& u) { u.inrsi().tellPhase(77, {1, true}); },
              "phase of a unit that no port has, dropped"},
             {"a rejection of such a unit",
              [](SduUnit& u) { u.inject(InrsiUnitRej{INRSI_GET_PHASE_DIFF2_REJ, 0, 0, 77, 3}); }, nullptr},
             {"a link of port 0", [](SduUnit& u) { u.inrsi().tellLink({.port = 0, .unit = 77}); },
              "(): Port number out of range (4294967295)"},
             {"a link of port 7", [](SduUnit& u) { u.inrsi().tellLink({.port = 7, .unit = 77}); },
              "(): Port number out of range (6)"},
             {"a subscription of port 9",
              [](SduUnit& u) { u.inject(InrsiPort{INRSI_SUBSCRIBE_LINK_STATUS_CFM, 0, 0, 9}); },
              "(): Port number out of range (8)"},
             {"a phase cut off",
              [](SduUnit& u) {
                  u.inject(InrsiGetPhaseDiff2Cfm{INRSI_GET_PHASE_DIFF2_CFM, 0, 0, UNIT_A, 0, 0, {}, 1}, 24);
              },
              "ignored, too short"},
             {"a request cut off", [](SduUnit& u) { u.order(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD); },
              "ignored, too short"}})) {
        SCOPED_TRACE(c.what);
        SduUnit u;
        u.focus(1);
        u.mp().clearLog();
        c.bad(u);
        u.run(LATER);
        if (c.trace != nullptr) { EXPECT_TRUE(u.traced(c.trace)); }
        EXPECT_EQ(u.mp().count(KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD), 0u);
        EXPECT_EQ(u.supervised(), "");
        u.phaseIs(InrsiPhase{9, true});
        EXPECT_EQ(u.phase(UNIT_A), "0:9:1");
    }
}

TEST(InrsiSduFollows, FrequencyTimeAndWhatIsTakenBack)
{
    SduUnit u;
    const double before = u.get(tuHwIf_readCurrentFrequency);
    u.send(KvdTuiifSocpriSduFollowOcxoRevertInd{KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND, 1, 3e-8});
    EXPECT_NEAR(u.get(tuHwIf_readCurrentFrequency), before - 3e-8, 1e-11);
    EXPECT_NEAR(u.get(KvdLoz6TuReg_pll_extAccFreqOffset), -3e-8, 1e-15);
    u.send(KvdTuiifSocpriSduFollowOcxoAdjInd{KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND, 1, 5});
    EXPECT_NEAR(u.get(tuHwIf_readCurrentFrequency), before - 3e-8, 1e-11) << "its loop isn't locked";
    u.get([] { KvdLoz6TuReg_setOffset(2.0, 0.25); });
    const double error = u.node.board().timeError_s();
    u.send(KvdTuiifSocpriSduFollowSfcAdjInd{KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND, 1, 0.0, 0.5});
    u.run(0.1);
    EXPECT_NEAR(u.node.board().timeError_s() - error, -0.5, 1e-6);
    EXPECT_EQ(u.get(KvdLoz6TuReg_getOffset).c, 2.0);
    EXPECT_EQ(u.get(KvdLoz6TuReg_getOffset).f, 0.25);
    EXPECT_NE(u.printed("kvdhist socpri").find("event = SOCPRI_EV_SFC_ADJ_FOLLOWED,"), std::string::npos);
}

TEST(InrsiSduJumpInfo, GoesToTheLinksWhileTheServerIsThere)
{
    SduUnit u;
    const auto tell = [&u](u32 enabled) {
        u.send(KvdTuiifInrsiBfnJumpInfoReqFwd{KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD, 1, enabled});
    };
    tell(1);
    tell(2);
    u.inrsi().jumpInfoAnswer = sim::Answer::Reject;
    tell(0);
    EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1, 0, 0}));
    EXPECT_TRUE(u.traced("received INRSI_BFN_JUMP_INFO_REJ: errorCode=7"));
    u.inrsi().die();
    u.run(LATER);
    tell(1);
    EXPECT_EQ(u.kept(), inrsi::INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_NOK);
    const std::string story = u.printed("kvdhist inrsi");
    EXPECT_NE(story.find("event = INRSI_CL_EV_SFC_ADJ_FWD_NOTIF_OK_ENABLED,"), std::string::npos);
    EXPECT_NE(u.printed("kvdinfo inrsi").find("TU_SOCPRI INRSI (sDU) related data"), std::string::npos);
}

// A change of role ends one client's work; the other meets neither its timers nor its answers.
TEST(InrsiRole, AChangeLeavesNothingBehind)
{
    SocpriUnit u{bench::MASTER};
    u.lock(1);
    u.mp().changeMaster(3, SLAVE);
    u.run(1.0);
    const u32 last = u.inrsi().phaseRequests(UNIT_A);
    u.run(125.0);
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), last);
    EXPECT_EQ(u.supervised(), "");
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_EQ(u.started(), 1u);
    u.supervise({1});
    EXPECT_EQ(u.links().back(), "1:2:11");
    u.inrsi().die();
    u.run(LATER);
    EXPECT_EQ(u.links().size(), 4u) << "told once, by the client at work";
}

// A master tells the sync group its time, a slave doesn't; which of them it is may change at any time.
TEST(InrsiRole, TheExchangeOfSyncDataFollowsAChange)
{
    for (const u8 role : {SLAVE, bench::MASTER}) {
        SCOPED_TRACE(role);
        SocpriUnit u{role};
        const auto rounds = [&u] {
            const std::size_t before = u.traces("INCI get time data tmo requested.");
            u.run(2.0);
            return u.traces("INCI get time data tmo requested.") - before;
        };
        EXPECT_EQ(rounds(), role == SLAVE ? 0u : 10u);
        u.mp().changeMaster(3, role == SLAVE ? bench::MASTER : SLAVE);
        u.run(1.0);
        EXPECT_EQ(rounds(), role == SLAVE ? 10u : 0u);
        EXPECT_NE(u.node.system().find("PsxIwNgscInciServer"), 0u);
    }
}

// Orders that are a master's are refused by a slave, whose loop and oscillator they don't touch.
TEST(InrsiRole, ASlaveRefusesAMastersOrders)
{
    SduUnit u;
    const double frequency = u.get(tuHwIf_readCurrentFrequency);
    u.frequencyIs(InrsiFrequency{40, true});
    u.scan(1);
    EXPECT_EQ(u.scanned(), "1:5");
    u.select(1);
    EXPECT_EQ(u.selected(), "1:5");
    u.send(KvdTuiifSocpriBfnAlignToGroupReq{KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, 2, 1, 0, 3});
    EXPECT_EQ(u.aligned(), 0u);
    u.run(2.0);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_A), 0u);
    EXPECT_EQ(u.get(tuHwIf_readCurrentFrequency), frequency);
}

}  // namespace
