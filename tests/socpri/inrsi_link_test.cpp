// The master's client and its links: connection, subscription, states of units, supervision, the time
// counters that it tells.
#include "mp/kvd_iifadm.h"
#include "tests/socpri/socpri_bench.h"

namespace {

using namespace bench;
using sim::Answer;
using sim::InrsiFrequency;
using sim::InrsiPhase;
using Strings = std::vector<std::string>;

// ---- connection ---------------------------------------------------------------------------------

TEST(InrsiConnection, ARejectionClosesItUntilTheNextOrder)
{
    SocpriUnit u{MASTER, false};
    u.inrsi().setAnswer(Answer::Reject);
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_EQ(u.started(), 0u);
    u.inrsi().setAnswer(Answer::Accept);
    u.inject(InrsiServerUpInd{INRSI_SERVER_UP_IND, 1});                          // by its other name
    u.run(5.0);
    EXPECT_EQ(u.inrsi().connections(), 0u);
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_EQ(u.started(), 1u);
    u.inject(InrsiConnEstablishCfm{INRSI_CONN_ESTABLISH_CFM, 0, 9, 2});          // not asked for
    EXPECT_FALSE(u.started());
}

// An exchange that was stopped begins again with the next supervision.
TEST(InrsiConnection, AStoppedExchangeIsMadeAgain)
{
    SocpriUnit u{MASTER};
    const auto established = [&u](u8 port) {
        return u.get([port] { return inrsi::master::client().cpriPortStatus[port][0].inciEstablishStatus; });
    };
    u.run(2.0);
    ASSERT_EQ(established(0), u32{inrsi::INCI_ESTABLISHED});
    u.order(KVD_TUIIF_SOCPRI_STOP_REQ);
    u.inrsi().setStatus(UNIT_A, 2);              // nobody is there to be asked
    u.run(LATER);
    EXPECT_EQ(established(0), u32{inrsi::INCI_NONE});
    u.supervise({1, 3});
    u.run(2.0);
    for (const u8 port : {u8{0}, u8{2}}) EXPECT_EQ(established(port), u32{inrsi::INCI_ESTABLISHED});
    u.supervise({1, 3});                         // nothing is left to be made
    EXPECT_FALSE(u.traced("NGSC-INCI already established for portNo = 0"));
}

// ---- subscription, link status -------------------------------------------------------------------

TEST(InrsiSubscription, FollowsTheListOfCandidates)
{
    SocpriUnit u{MASTER};
    EXPECT_NE(u.node.system().find("PsxIwNgscInciServer"), 0u);
    std::string text;
    EXPECT_EQ(u.node.volumes().read("/d/socpri_active", text), 0);
    EXPECT_EQ(text, "SoCPRI is active!");

    u.supervise({3, 7, 0, 9, 3});
    EXPECT_FALSE(u.traced("Resend SoCPRI link status")) << "a restarted main processor alone is told again";
    EXPECT_FALSE(u.inrsi().subscribed(1));
    EXPECT_TRUE(u.inrsi().subscribed(3));
    EXPECT_TRUE(u.traced("():INRSI link already subscribed (port 2)"));
    EXPECT_TRUE(u.traced("(): Port number out of range (6)"));
    EXPECT_TRUE(u.traced("(): Port number out of range (8)"));
    u.mp().clearLog();
    u.inrsi().tellLink({.port = 1, .unit = UNIT_A, .status = 1});
    u.run(LATER);
    EXPECT_TRUE(u.links().empty());
    EXPECT_TRUE(u.traced("():Port 0 is not Sync RI port candidate, link status is ignored!"));

    const auto asked = [&u](u8 is) {
        return u.get([is] { return std::exchange(inrsi::master::client().asked[4], is); });
    };
    asked(1);
    u.inject(InrsiPortRej{INRSI_SUBSCRIBE_LINK_STATUS_REJ, 0, 0, 5, 1});
    EXPECT_EQ(asked(0), 0) << "a rejection is an answer";
    u.supervise({}, false);
    EXPECT_FALSE(u.inrsi().subscribed(3));
    EXPECT_EQ(u.node.volumes().exists("/d/socpri_active"), 0);
    EXPECT_EQ(u.node.system().find("PsxIwNgscInciServer"), 0u);
    u.order(KVD_TUIIF_SOCPRI_STOP_REQ);
    EXPECT_TRUE(u.traced("Something went wrong! SoCOPRI file is not removed."));
}

TEST(InrsiLinkStatus, IsStoredByUnitAndPassedOn)
{
    SocpriUnit u{MASTER};
    const auto unitAt = [&u](u32 slot) {
        return u.get([slot] { return inrsi::master::client().cpriPortStatus[0][slot].sharedUnitId; });
    };
    u.inrsi().setLink({.port = 1, .unit = 12, .status = 1});
    u.inrsi().setLink({.port = 1, .unit = 13, .status = 2, .subsumed = 12});     // 12 goes by 13 now
    u.inrsi().setLink({.port = 1, .unit = 13, .status = 2, .subsumed = 12});
    u.run(LATER);
    EXPECT_EQ(u.links(), (Strings{"1:1:12", "1:2:13", "1:2:13"}));
    EXPECT_EQ(unitAt(0), UNIT_A);
    EXPECT_EQ(unitAt(1), 13u);
    EXPECT_EQ(unitAt(2), inrsi::NO_UNIT);
    u.inrsi().setStatus(13, 7);                                                  // no such status
    u.run(LATER);
    EXPECT_EQ(u.links(), (Strings{"1:0:13"}));
    EXPECT_EQ(unitAt(1), inrsi::NO_UNIT);
    for (u32 unit = 20; unit < 24; ++unit) u.inrsi().setLink({.port = 1, .unit = unit});
    u.run(LATER);
    EXPECT_TRUE(u.traced("Mapping was not successful (port 0, sharedUnitId 23), returning 0 for slot"));
    EXPECT_EQ(unitAt(0), 23u);

    u.mp().clearLog();
    for (const u16 port : {0, 7}) u.inrsi().tellLink({.port = port, .unit = 99});
    u.inject(InrsiLinkStatus2Ind{INRSI_LINK_STATUS2_IND, 0, 0, 1, {}, 2, 1, {}, 0, 0}, 40);   // cut off
    EXPECT_TRUE(u.links().empty());
    EXPECT_TRUE(u.traced("(): Port number out of range (6)"));
    u.inrsi().setLink({.port = 3, .unit = 34, .status = 1, .huntPath = std::string(150, 'x')});
    u.run(LATER);
    const auto fwd = u.told<KvdTuiifSocpriLinkStatusFwd>(KVD_TUIIF_SOCPRI_LINK_STATUS_FWD);
    ASSERT_TRUE(fwd);
    EXPECT_EQ(std::string(fwd->huntPathPrefix), std::string(99, 'x'));
}

// The path to a unit that goes by another number is given up once that one's has been tried.
TEST(InrsiLinkStatus, OfAUnitUnderAnotherNumberReleasesItsPath)
{
    SocpriUnit u{MASTER};
    const auto paths = [&u] { return u.printed("kvdngpduh inci_if"); };
    u.run(2.0);
    EXPECT_NE(paths().find("sharedId           : 11\n"), std::string::npos);
    for (const u8 is : {u8{1}, u8{2}})
        u.inrsi().setLink({.port = 1, .unit = 13, .status = is, .huntPath = "bbu/13", .subsumed = UNIT_A});
    u.run(2.0);
    EXPECT_EQ(paths().find("sharedId           : 11\n"), std::string::npos);
    EXPECT_NE(paths().find("sharedId           : 13\n"), std::string::npos);
}

// The number that marks a free place comes as a unit's, and one that isn't known goes.
TEST(InrsiLinkStatus, NumbersThatAreNoUnitsTouchNoOther)
{
    SocpriUnit u{MASTER};
    u.inrsi().tellLink({.port = 1, .unit = inrsi::NO_UNIT});
    u.inrsi().tellLink({.port = 1, .unit = 77, .status = 0});
    u.run(LATER);
    EXPECT_EQ(u.links(), (Strings{"1:2:-1", "1:0:77"}));
    u.frequencyIs(InrsiFrequency{2, true});
    u.scan(1);
    u.run(0.5);
    EXPECT_EQ(u.scanned(), "1:1");
    u.run(62.0);
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), 5u);
    EXPECT_EQ(u.inrsi().phaseRequests(inrsi::NO_UNIT) + u.inrsi().phaseRequests(77), 0u);
}

// ---- log ------------------------------------------------------------------------------------------

// What an operator reads afterwards, one step after the other.
TEST(InrsiLog, TellsTheStory)
{
    struct Step { const char* events; void (*act)(SocpriUnit&); };
    const Step steps[] = {
        {"START_REQ_HANDLED ", [](SocpriUnit& u) { u.order(KVD_TUIIF_SOCPRI_START_REQ); }},
        {"SET_TO_IDLE RESET SET_TO_IDLE RESET "              // the reference becomes that of the links
         "SET_TO_IDLE READ_DELTA_SIGMA INIT_FREQ_SCAN FREQ_LOCKED SET_TO_IDLE ",
         [](SocpriUnit& u) { u.frequencyIs(InrsiFrequency{2, true}), u.scan(1), u.run(0.5); }},
        {"SET_TO_IDLE READ_DELTA_SIGMA INIT_FREQ_SCAN "
         "ACTIVITY_DISRUPTED SET_TO_IDLE READ_DELTA_SIGMA INIT_FREQ_SCAN MEAS_ONGOING_CONFLICT "
         "REVERTED_DELTA_SIGMA SET_TO_IDLE ",
         [](SocpriUnit& u) { u.inrsi().silentUnits = {UNIT_A}, u.scan(1), u.scan(1); }},
        {"SET_TO_IDLE READ_DELTA_SIGMA INIT_FREQ_SCAN SET_TO_IDLE INIT_SYNC_ON_LINK MEAS_ONGOING_CONFLICT "
         "MEAS_TMO_EXPIRED SET_TO_IDLE ",
         [](SocpriUnit& u) { u.scan(1), u.select(1), u.run(0.6); }},
        {"SET_TO_IDLE INIT_SYNC_ON_LINK FREQ_LOCKED TIME_SYNC_SUCCEEDED ",
         [](SocpriUnit& u) { u.inrsi().silentUnits.clear(), u.lock(1); }},
        {"SFC_ADJ_NOTIF_CFM SFC_ADJ_NOTIF_REJ ",
         [](SocpriUnit& u) {
             u.inject(SIGSELECT{INRSI_BFN_JUMP_INFO_CFM});
             u.inject(InrsiErrorRej{INRSI_BFN_JUMP_INFO_REJ, 0, 0, 1});
         }},
        {"", [](SocpriUnit& u) { u.select(3); }},             // there is one
        {"SET_TO_IDLE LINK_DESELECTED SET_TO_IDLE READ_DELTA_SIGMA INIT_FREQ_SCAN FREQ_LOCKED SET_TO_IDLE ",
         [](SocpriUnit& u) { u.toMeasurement(true), u.deselect(1), u.scan(3), u.run(0.5); }},
        {"CONTINUE_SYNC_FLAG_SET CONTINUE_SYNC_ON_LINK ", [](SocpriUnit& u) { u.lock(1); }},
        {"HO_ENTRY_ORDERED ENTERED_HO ",
         [](SocpriUnit& u) {
             u.toMeasurement(true), u.toMeasurement(false);
             u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
             const u32 asked = u.inrsi().phaseRequests(UNIT_A);
             u.run(1.0);
             EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), asked) << "the link is left, also by its timer";
         }},
        {"SET_TO_IDLE LINK_DESELECTED ", [](SocpriUnit& u) { u.deselect(1); }},
        {"UNSUBSCRIBE_LINK_STATUS_OK SUP_IND_HANDLED ", [](SocpriUnit& u) { u.supervise({3}); }},
        {"SUBSCRIBE_SERVER_STATUS_OK SUP_IND_HANDLED LINK_STATUS_CHANGE ",
         [](SocpriUnit& u) { u.supervise({1, 3}); }},
        {"LINK_STATUS_RESET LINK_STATUS_CHANGE ",
         [](SocpriUnit& u) {
             for (const u8 status : {u8{0}, u8{2}}) u.inrsi().setStatus(UNIT_A, status);
             u.run(LATER);
         }},
        {"LINK_SC_IGNORED_PORTNO_LIMITS LINK_SC_IGNORED_PORT_NOT_SUBSCRIBED ",
         [](SocpriUnit& u) {
             for (const u16 port : {0, 2}) u.inrsi().tellLink({.port = port, .unit = 99});
             u.run(LATER);
         }},
        {"SERVER_DOWN SET_TO_IDLE PORT_STATUS_RESET PORT_STATUS_RESET SERVER_UP CONN_ESTABLISH_CFM ",
         [](SocpriUnit& u) { u.inrsi().die(), u.run(LATER), u.inrsi().start(), u.run(LATER); }},
        {"STOP_REQ_HANDLED ", [](SocpriUnit& u) { u.order(KVD_TUIIF_SOCPRI_STOP_REQ); }},
    };
    SocpriUnit u{MASTER};
    u.events();
    for (const Step& step : steps) {
        step.act(u);
        EXPECT_EQ(u.events(), step.events);
    }
}

// ---- supervision ---------------------------------------------------------------------------------

TEST(InrsiSupervision, TellsOncePerMinute)
{
    struct Case {
        const char* what;
        u32 good;                          // of five samples
        std::optional<u64> ps;             // phase of the good ones
        const char* status;
    };
    for (const Case& c : std::to_array<Case>({{"3 of 5", 3, 99'999, "1:2"},
                                              {"2 of 5", 2, 0, "1:6"},
                                              {"at the limit", 5, 100'000, "1:6"},
                                              {"a negative phase", 5, 40'960'000'000'000 - 99'999, "1:2"},
                                              {"rejected", 0, std::nullopt, "1:7"}})) {
        SCOPED_TRACE(c.what);
        SocpriUnit u{MASTER};
        u.supervise({1});                        // port A alone
        u32 sample = 0;
        u.inrsi().onPhase([&](u32) -> std::optional<InrsiPhase> {
            if (!c.ps) return std::nullopt;
            return InrsiPhase{*c.ps, sample++ % 5 < c.good};
        });
        u.run(59.0);
        EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), 0u);
        u.run(2.0);
        EXPECT_EQ(u.supervised(), c.status);
        const u32 samples = c.ps ? 5 : 1;
        EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), samples);
        u.run(60.5);
        EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), 2 * samples);
        EXPECT_EQ(u.supervised(), c.status);
        const bool isBad = c.status == std::string("1:6");
        EXPECT_EQ(u.node.traces().count({"concluded syncStatus=6", "", 4}), isBad ? 1u : 0u) << "news alone";
        EXPECT_EQ(u.node.traces().count({"concluded syncStatus=2", "", 4}), 0u);
    }
}

// ---- time counters ---------------------------------------------------------------------------------

// The count of turns follows the counter's wrap only with the next sample of a reference.
TEST(InrsiTimeData, CountsTheTurnThatTheCounterHasBegun)
{
    SocpriUnit u{MASTER};
    std::vector<KvdTuSocpriInciGetTimeDataRsp> got;
    const PROCESS asker = u.node.system().spawn("asker", 20, [&got] {
        bench::serve([&got](Signal* sig) {
            if (const auto* rsp = node::as<KvdTuSocpriInciGetTimeDataRsp>(sig)) got.push_back(*rsp);
            return false;
        });
    });
    const auto ask = [&](u16 mfn, double lastTime) {
        const SIGSELECT req = KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ;
        u.node.system().call(*u.node.program(), [&] {
            tuHwIf_writeSfc(mfn, 5, 6);
            KvdLoz6TuReg_setLastTime(lastTime, 1.0);
        });
        u.run(0.1);
        bench::injectInto(u.node.system(), u.manager(), req, asker);
        u.run(LATER);
        return got.empty() ? KvdTuSocpriInciGetTimeDataRsp{} : got.back();
    };
    EXPECT_EQ(ask(24, 5120.0).eSfc, 5u);
    const auto wrapped = ask(0, 5120.0);
    EXPECT_EQ(wrapped.eSfc, 6u);
    EXPECT_EQ(wrapped.mfn, 0u);
    EXPECT_EQ(wrapped.timeDataValid, 1u);
    EXPECT_EQ(wrapped.clockState, u.get(KvdLoz6TuIifAdm_radioClockState));
    EXPECT_EQ(ask(0, 5120.0).eSfc, 6u);
    EXPECT_EQ(ask(0, 6144.0).eSfc, 6u);
    EXPECT_EQ(ask(0, 6144.0).eSfc, 6u);
    EXPECT_EQ(ask(24, 6144.0).eSfc, 6u);
    EXPECT_EQ(ask(0, 6144.0).eSfc, 7u) << "at every wrap";
}

}  // namespace
