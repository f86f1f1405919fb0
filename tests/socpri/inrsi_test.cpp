// The master's client of the measurement server, seen from the main processor and the server.
#include "iif/kvd_iifadm.h"
#include "tests/socpri/socpri_bench.h"

namespace {

using bench::LATER;
using bench::MASTER;
using bench::SocpriUnit;
using bench::UNIT_A;
using bench::UNIT_C;
using sim::Answer;
using sim::InrsiFrequency;
using sim::InrsiPhase;
using Strings = std::vector<std::string>;

constexpr InrsiFrequency GOOD{2, true}, FAR{40, true};

// ---- connection ---------------------------------------------------------------------------------

TEST(InrsiConnection, IsToldOnceTheServerHasAnswered)
{
    SocpriUnit u{MASTER, false};
    u.inrsi().die();
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_FALSE(u.started());
    EXPECT_TRUE(u.traced("Failed to hunt for process: inrsiServer"));
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_TRUE(u.traced("failed to initiate INRSI subscription"));
    u.inrsi().start();
    u.run(0.1);
    EXPECT_EQ(u.started(), 1u);
    EXPECT_EQ(u.inrsi().connections(), 1u);
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_EQ(u.started(), 1u) << "there already";
    EXPECT_EQ(u.inrsi().connections(), 1u);
}

TEST(InrsiConnection, ARejectionClosesItUntilTheNextOrder)
{
    SocpriUnit u{MASTER, false};
    u.inrsi().setAnswer(Answer::Reject);
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_EQ(u.started(), 0u);
    u.inrsi().setAnswer(Answer::Accept);
    u.run(5.0);
    EXPECT_EQ(u.inrsi().connections(), 0u);
    u.inject(InrsiConnEstablishCfm{INRSI_CONN_ESTABLISH_CFM, 0, 9, 2});          // not asked for
    EXPECT_FALSE(u.started());
    u.order(KVD_TUIIF_SOCPRI_START_REQ);
    EXPECT_EQ(u.started(), 1u);
}

TEST(InrsiConnection, ALossEndsTheWorkAndTheLinksAndIsMadeAgain)
{
    SocpriUnit u{MASTER};
    u.inrsi().silentUnits = {UNIT_A};
    u.scan(1);
    const double divider = u.node.board().divider();
    u.inrsi().die();
    u.run(LATER);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND), 1u);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SCAN_LINK_RSP), 1u);
    const Strings links = u.links();
    ASSERT_EQ(links.size(), 8u) << "every place of the two ports";
    EXPECT_EQ(links[0], "1:0:11");
    EXPECT_EQ(links[1], "1:0:-1");
    EXPECT_EQ(links[4], "3:0:33");
    EXPECT_EQ(u.node.board().divider(), divider);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});

    u.inrsi().silentUnits.clear();
    u.inrsi().start();
    u.run(0.1);
    EXPECT_EQ(u.started(), 1u);
    u.supervise({1});
    EXPECT_EQ(u.links(), (Strings{"1:2:11"})) << "the subscription begins anew";
    u.frequencyIs(GOOD);
    u.scan(1);
    u.run(1.0);
    EXPECT_EQ(u.scanned(), "1:1") << "the measurement that was open is forgotten";
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

    u.supervise({}, false);
    EXPECT_FALSE(u.inrsi().subscribed(3));
    EXPECT_EQ(u.node.volumes().exists("/d/socpri_active"), 0);
    EXPECT_EQ(u.node.system().find("PsxIwNgscInciServer"), 0u);
    u.order(KVD_TUIIF_SOCPRI_STOP_REQ);
    EXPECT_TRUE(u.traced("Something went wrong! SoCOPRI file is not removed."));
}

TEST(InrsiSubscription, WithoutTheServerOrRejectedIsOnlyTraced)
{
    SocpriUnit u{MASTER};
    u.inrsi().subscribeAnswer = Answer::Reject;
    u.supervise({1, 3, 5});
    EXPECT_TRUE(u.traced("received INRSI_SUBSCRIBE_LINK_STATUS_REJ: nearEndPortNo=5, errorCode=7"));
    u.inrsi().die();
    u.run(LATER);
    u.supervise({2});
    EXPECT_TRUE(u.traced("(): Server is not available"));
    EXPECT_TRUE(u.traced("():INRSI SUBSCRIBE LINK STATUS failed (port 1)"));
}

// The main processor comes back and knows nothing; the unit keeps its tables and asks for all anew.
TEST(InrsiSubscription, BeginsAnewWithTheMainProcessor)
{
    SocpriUnit u{MASTER};
    u.mp().restart(2 * ose::SEC);
    u.run(5.0);
    EXPECT_EQ(u.links().size(), 8u);
    u.inrsi().tellLink({.port = 1, .unit = UNIT_A, .status = 1});
    u.run(LATER);
    EXPECT_TRUE(u.links().empty()) << "not subscribed any more";
    u.supervise({1});
    EXPECT_EQ(u.links(), (Strings{"1:2:11"}));
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
    EXPECT_TRUE(u.traced("Mapping was not successful (port 0, sharedUnitId 23), returning 0 for slot number!"));
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

// ---- scan ----------------------------------------------------------------------------------------

TEST(InrsiScan, EndsByWhatTheLinkGives)
{
    struct Case {
        const char* what;
        std::function<void(SocpriUnit&)> link;
        double seconds;                    // the answer isn't there a little before
        const char* answer;
        u32 requests;
    };
    const auto frequency = [](std::optional<InrsiFrequency> f) {
        return [f](SocpriUnit& u) { u.frequencyIs(f); };
    };
    for (const Case& c : std::to_array<Case>({
             {"good at the third", frequency(GOOD), 0.22, "1:1", 3},
             {"never good", frequency(FAR), 1.475, "1:4", 15},
             {"never valid", frequency(InrsiFrequency{1, false}), 1.475, "1:4", 15},
             {"good, but only present",
              [](SocpriUnit& u) { u.frequencyIs(GOOD), u.inrsi().setStatus(UNIT_A, 1); }, 1.475, "1:4", 15},
             {"rejected", frequency(std::nullopt), 0.005, "1:5", 1},
             {"not answered", [](SocpriUnit& u) { u.inrsi().silentUnits = {UNIT_A}; }, 0.5, "1:5", 1},
             {"link not there", [](SocpriUnit& u) { u.inrsi().setStatus(UNIT_A, 0); }, 0.4, "1:5", 0}})) {
        SCOPED_TRACE(c.what);
        SocpriUnit u{MASTER};
        c.link(u);
        u.run(LATER);
        u.mp().clearLog();
        const double divider = u.node.board().divider();
        u.mp().sendLayout(KvdTuiifSocpriScanLinkReq{KVD_TUIIF_SOCPRI_SCAN_LINK_REQ, 1, 1});
        if (c.seconds > 0.1) {
            u.run(c.seconds - 0.01);
            EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SCAN_LINK_RSP), 0u);
        }
        u.run(0.15);
        const bool isGood = std::string(c.answer) == "1:1";
        EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND), isGood ? 0u : 1u);
        const std::size_t followed = u.mp().count(KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_ADJ_IND);
        if (isGood) {
            EXPECT_EQ(followed, 2u);
            EXPECT_NE(u.node.board().divider(), divider);
        } else {
            EXPECT_EQ(u.node.board().divider(), divider) << "as before the scan";
        }
        EXPECT_EQ(u.scanned(), c.answer);
        EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_A), c.requests);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
        EXPECT_EQ(u.port(), inrsi::NO_PORT);
    }
}

// What the slave is told to take back is what the scan's steps came to.
TEST(InrsiScan, TheSlaveIsToldTheWholeOfWhatIsTakenBack)
{
    SocpriUnit u{MASTER};
    u.frequencyIs(FAR);
    const double before = u.get(tuHwIf_readCurrentFrequency);
    u.scan(1);
    u.run(1.0);
    const double moved = u.get(tuHwIf_readCurrentFrequency);
    EXPECT_NEAR(moved - before, -10 * 40e-9, 1e-9);
    u.run(1.0);
    const auto back = u.told<KvdTuiifSocpriSduFollowOcxoRevertInd>(KVD_TUIIF_SOCPRI_SDU_FOLLOW_OCXO_REVERT_IND);
    ASSERT_TRUE(back);
    EXPECT_NEAR(back->deltaFreq, -15 * 40e-9, 1e-11);
    EXPECT_NEAR(u.get(tuHwIf_readCurrentFrequency), before, 1e-12);
}

TEST(InrsiScan, ASecondOneDropsTheFirst)
{
    SocpriUnit u{MASTER};
    u.frequencyIs(GOOD);
    u.scan(1);
    u.scan(3);                                   // the first waits for its next request
    u.run(1.0);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SCAN_LINK_RSP), 1u);
    EXPECT_EQ(u.scanned(), "3:1");

    u.inrsi().silentUnits = {UNIT_A};
    u.scan(1);                                   // its request stays open
    u.scan(3);
    EXPECT_EQ(u.scanned(), "3:4");
    EXPECT_TRUE(u.traced("Measurement already ongoing!"));
    u.scan(3);
    u.run(1.0);
    EXPECT_EQ(u.scanned(), "3:1") << "an open request refuses one order, not all";
}

TEST(InrsiScan, AnAnswerOfAnotherUnitEndsItAndALateOneDoesNothing)
{
    SocpriUnit u{MASTER};
    u.inrsi().silentUnits = {UNIT_A};
    u.scan(1);
    u.inrsi().tellFrequency(UNIT_C, GOOD);
    u.run(LATER);
    EXPECT_TRUE(u.traced("Received response for sharedUnitId (33) different from the referenced one (11)"));
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    u.inrsi().silentUnits.clear();
    u.frequencyIs(GOOD);
    u.inrsi().answers = 2;                       // each answer comes twice
    u.scan(1);
    u.run(1.0);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SCAN_LINK_RSP), 1u);
    EXPECT_EQ(u.scanned(), "1:1");
    const double frequency = u.get(tuHwIf_readCurrentFrequency);
    u.inrsi().tellFrequency(UNIT_A, FAR);        // late
    u.inrsi().tellPhase(77, {});                 // of a unit that nobody knows
    u.run(LATER);
    EXPECT_EQ(u.get(tuHwIf_readCurrentFrequency), frequency);
    EXPECT_TRUE(u.traced("Measurement type is incompatible with current INRSI Client action"));
}

TEST(InrsiOrders, ForPortsThatThereAreNotAreAnsweredAsForALinkThatIsNot)
{
    SocpriUnit u{MASTER};
    for (const u8 port : {u8{0}, u8{8}, u8{255}}) {
        const std::string answer = std::to_string(port) + ":3";
        u.scan(port);
        EXPECT_EQ(u.scanned(), answer);
        u.select(port);
        EXPECT_EQ(u.selected(), answer);
        u.send(KvdTuiifSocpriBfnAlignToGroupReq{KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, 1, port, 0, 0});
        EXPECT_EQ(u.aligned(), 0u);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// ---- selection -----------------------------------------------------------------------------------

TEST(InrsiSelection, GoesFromFrequencyToTime)
{
    SocpriUnit u{MASTER};
    u.frequencyIs(GOOD);
    u.select(1);
    u.run(0.25);
    EXPECT_EQ(u.selected(), "1:1");
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_ACTION_TIME_SYNC});
    EXPECT_EQ(u.get(KvdLoz6TuReg_pllState), u32{PLL_Unlocked});
    const u32 before = u.inrsi().phaseRequests(UNIT_A);
    u.run(2.1);
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A) - before, 20u) << "100 ms and the answer's 5";
    u.run(5.0);
    EXPECT_EQ(u.synced(), "1:2");
    EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsLocked));

    u.select(3);
    const auto refused = u.told<KvdTuiifSocpriAlreadySelectedInd>(KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->selectedCpriPort, 1);
    EXPECT_EQ(refused->requestedCpriPort, 3);
    EXPECT_EQ(u.port(), 0);

    u.deselect(1);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    u.run(0.1);
    const u32 last = u.inrsi().phaseRequests(UNIT_A);
    u.run(5.0);
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A), last);
}

TEST(InrsiTimeSync, EndsByWhatTheLinkGives)
{
    struct Case {
        const char* what;
        std::function<void(SocpriUnit&)> link;
        double notYet, seconds;
        const char* status;
    };
    for (const Case& c : std::to_array<Case>({
             {"rejected", [](SocpriUnit& u) { u.phaseIs(std::nullopt); }, 0.0, 0.2, "1:7"},
             {"not answered", [](SocpriUnit& u) { u.inrsi().silentUnits = {UNIT_A}; }, 0.3, 0.5, "1:7"},
             {"server gone", [](SocpriUnit& u) { u.inrsi().die(); }, 0.0, 0.05, "1:7"},
             {"link gone", [](SocpriUnit& u) { u.inrsi().setStatus(UNIT_A, 0); }, 0.35, 0.7, "1:3"},
             {"link present alone", [](SocpriUnit& u) { u.inrsi().setStatus(UNIT_A, 1); }, 0.35, 0.7, "1:3"},
             {"10 invalid values", [](SocpriUnit& u) { u.phaseIs(InrsiPhase{0, false}); }, 1.0, 1.3, "1:6"}})) {
        SCOPED_TRACE(c.what);
        SocpriUnit u{MASTER};
        u.synchronise(1);
        u.mp().clearLog();
        c.link(u);
        if (c.notYet > 0.0) {
            u.run(c.notYet);
            EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND), 0u);
        }
        u.run(c.seconds - c.notYet);
        EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP), 0u) << "no answer is owed";
        EXPECT_EQ(u.synced(), c.status);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// A link that comes back in time, an answer that comes twice, and one of another unit change nothing.
TEST(InrsiTimeSync, SurvivesShortTroubles)
{
    SocpriUnit u{MASTER};
    u.lock(1);
    u.mp().clearLog();
    u.inrsi().setStatus(UNIT_A, 0);
    u.run(0.3);
    u.inrsi().setStatus(UNIT_A, 2);
    u.run(0.5);
    u.inrsi().answers = 2;
    u.run(1.0);
    u.inrsi().answers = 1;
    u.inrsi().tellPhase(UNIT_C, {5'000'000'000'000, true});
    u.inrsi().tellFrequency(UNIT_C, FAR);
    u.inject(InrsiUnitRej{INRSI_GET_FREQ_DIFF2_REJ, 0, 0, UNIT_A, 3});
    u.run(3.0);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_ACTION_TIME_SYNC});
    EXPECT_EQ(u.synced(), "");
    EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsLocked));
    const u32 before = u.inrsi().phaseRequests(UNIT_A);
    u.run(2.1);
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_A) - before, 20u) << "one chain of requests";
}

// ---- alignment to a group -------------------------------------------------------------------------

struct AlignUnit : SocpriUnit {
    AlignUnit() : SocpriUnit(MASTER) { frequencyIs(GOOD); }
    struct Count { u32 esfc; u16 mfn; };
    Count count()
    {
        return get([] {
            u16 mfn = 0, sfn = 0;
            u32 inc = 0;
            tuHwIf_readSfc(mfn, sfn, inc);
            return Count{static_cast<u32>(KvdLoz6TuReg_getLastTime().c / 1024.0), mfn};
        });
    }
    void align(u8 port, Count group)
    {
        send(KvdTuiifSocpriBfnAlignToGroupReq{KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, 1, port, group.esfc,
                                              group.mfn});
    }
    void otherEndSays(Count c)
    {
        send(KvdTuiifSocpriCoarseTimeDataInd{KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, c.esfc, c.mfn});
    }
};

TEST(InrsiAlignment, StepsTheCountersToTheGroupAndTellsTheLinks)
{
    AlignUnit u;
    AlignUnit::Count group = u.count();
    group.mfn = static_cast<u16>((group.mfn + 7) % 25);
    u.align(1, group);
    u.run(1.0);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_ACTION_BFN_ALIGN});
    EXPECT_EQ(u.get(KvdLoz6TuReg_pllState), u32{PLL_Unlocked});
    u.run(9.0);
    EXPECT_TRUE(u.inrsi().jumpInfos().empty()) << "a hundred samples first";
    u.run(3.0);
    EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1}));
    EXPECT_EQ(u.mp().count(KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD), 1u);
    EXPECT_GE(u.mp().count(KVD_TUIIF_SOCPRI_SDU_FOLLOW_SFC_ADJ_IND), 1u);
    EXPECT_EQ(u.count().mfn, group.mfn);
    EXPECT_EQ(u.aligned(), std::nullopt) << "the other end hasn't said so yet";
    u.otherEndSays(u.count());
    EXPECT_EQ(u.aligned(), 1u);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    u.run(1.1);
    EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1, 0}));
}

TEST(InrsiAlignment, FailsByWhatTheLinkGives)
{
    struct Case {
        const char* what;
        std::function<void(AlignUnit&)> trouble;
        double after, within;
    };
    for (const Case& c : std::to_array<Case>({
             {"never a good frequency", [](AlignUnit& u) { u.frequencyIs(FAR); }, 0.0, 2.0},
             {"frequency rejected", [](AlignUnit& u) { u.frequencyIs(std::nullopt); }, 0.0, 0.3},
             {"link down while nothing is measured", [](AlignUnit& u) { u.inrsi().setStatus(UNIT_A, 0); }, 0.0, 0.05},
             {"phase not answered", [](AlignUnit& u) { u.inrsi().silentUnits = {UNIT_A}; }, 2.0, 1.0},
             {"phase never valid", [](AlignUnit& u) { u.phaseIs(InrsiPhase{0, false}); }, 2.0, 2.0},
             {"the other end never agrees", [](AlignUnit&) {}, 12.0, 5.0}})) {
        SCOPED_TRACE(c.what);
        AlignUnit u;
        u.align(1, {5, 3});
        u.run(c.after);
        c.trouble(u);
        EXPECT_EQ(u.aligned(), std::nullopt);
        u.run(c.within);
        EXPECT_EQ(u.aligned(), 0u);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// Five seconds after a step no phase is used; a selection waits for their end.
TEST(InrsiSelection, WaitsForTheEndOfAPause)
{
    for (const bool dropped : {false, true}) {
        SCOPED_TRACE(dropped);
        AlignUnit u;
        u.align(1, u.count());
        u.run(12.5);
        u.otherEndSays(u.count());
        ASSERT_EQ(u.aligned(), 1u);
        const u32 before = u.inrsi().frequencyRequests(UNIT_C);
        u.select(3);
        u.run(1.0);
        EXPECT_EQ(u.selected(), "");
        EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C), before);
        if (dropped) u.mp().selectNone();
        u.run(5.0);
        EXPECT_EQ(u.selected(), dropped ? "" : "3:1");
        EXPECT_EQ(u.traced("SoCPRI is no longer selected reference, abort new selection request."), dropped);
        EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C) > before, !dropped);
    }
}

// The order to step the counters reaches the links 70 ms ahead; a link lost meanwhile ends the step.
TEST(InrsiJump, IsToldToTheLinksAndEndsWithTheLink)
{
    for (const bool lost : {false, true}) {
        SCOPED_TRACE(lost);
        AlignUnit u;
        u.phaseIs(InrsiPhase{1'000'000'000, true});      // 1 ms ahead: locked to an offset
        u.lock(1);
        ASSERT_EQ(u.get(KvdLoz6TuReg_pllState), u32{PLL_OffsetLocked});
        u.mp().orderJump();
        u.run(3.9);
        EXPECT_TRUE(u.inrsi().jumpInfos().empty());
        u.run(0.2);
        EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1}));
        EXPECT_EQ(u.get(KvdLoz6TuReg_SoCpriJumpRunning), 1u);
        u.mp().clearLog();
        if (lost) {
            u.inrsi().setStatus(UNIT_A, 0);
            u.run(0.7);
            EXPECT_EQ(u.synced(), "1:3");
            EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
        } else {
            u.otherEndSays(u.count());
            u.run(1.0);
        }
        EXPECT_EQ(u.get(KvdLoz6TuReg_SoCpriJumpRunning), 0u);
        EXPECT_EQ(u.get(KvdLoz6TuReg_pllState), lost ? u32{PLL_Unlocked} : u32{PLL_Locked});
        u.run(0.1);
        EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1, 0}));
    }
}

// ---- holdover ------------------------------------------------------------------------------------

TEST(InrsiHoldover, IsEnteredFromALockAndLeftOnALink)
{
    SocpriUnit u{MASTER};
    u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
    EXPECT_EQ(u.heldOver(), 0u) << "no loop";
    u.lock(1);
    u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
    EXPECT_EQ(u.heldOver(), 1u);
    EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsHoldover));
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_ACTION_TIME_SYNC});
    EXPECT_EQ(u.port(), inrsi::NO_PORT);
    u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
    EXPECT_EQ(u.heldOver(), 0u) << "in it already";
    u.inrsi().tellPhase(UNIT_A, {});             // late
    u.run(10.0);
    EXPECT_EQ(u.get([] { return inrsi::master::client().sharedUnitId; }), inrsi::NO_UNIT);

    u.select(3);
    EXPECT_EQ(u.selected(), "") << "the loop has to settle first";
    EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C), 0u) << "it has time already";
    u.run(5.0);
    EXPECT_EQ(u.selected(), "3:2");
    u.run(310.0);
    EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsLocked)) << "the holdover's limit is off";
}

TEST(InrsiHoldover, AnOrderToGoOnIsAnsweredWhenTheLinkFails)
{
    SocpriUnit u{MASTER};
    u.lock(1);
    u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
    u.phaseIs(std::nullopt);
    u.mp().clearLog();
    u.select(3);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND), 1u);
    EXPECT_EQ(u.selected(), "3:7");
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
}

TEST(InrsiHoldover, EndsAfterFiveMinutes)
{
    SocpriUnit u{MASTER};
    u.lock(1);
    u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
    u.run(299.0);
    EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsHoldover));
    u.run(2.0);
    EXPECT_EQ(u.get(KvdLoz6TuReg_pllState), u32{PLL_Unlocked});
    EXPECT_EQ(u.mp().clockState(), 4);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
}

TEST(InrsiHoldover, IsEnteredUnaskedWhenTheReferenceIsDeselected)
{
    SocpriUnit u{MASTER};
    u.lock(1);
    u.mp().selectNone();
    u.run(LATER);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP), 0u);
    EXPECT_TRUE(u.traced("Deselecting SoCPRI reference."));
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
    }
}

TEST(InrsiSupervision, EndsWithTheLinkAndLeavesThePortInFocusAlone)
{
    SocpriUnit u{MASTER};
    u.inrsi().silentUnits = {UNIT_A};
    u.run(60.2);
    EXPECT_EQ(u.supervised(), "");
    u.run(0.3);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND), 2u) << "A not answered, C good";
    u.inrsi().silentUnits.clear();
    u.inrsi().setStatus(UNIT_C, 0);
    u.synchronise(1);
    u.mp().clearLog();
    const u32 before = u.inrsi().phaseRequests(UNIT_C);
    u.run(130.0);
    EXPECT_EQ(u.supervised(), "");
    EXPECT_EQ(u.inrsi().phaseRequests(UNIT_C), before);
    u.deselect(1);
    u.run(62.0);
    EXPECT_EQ(u.supervised(), "1:2") << "again, once it is given up";
    EXPECT_NE(u.printed("kvdhist socpri_supervision 0").find("port = 0, phaseDiff = 0"), std::string::npos);
    EXPECT_EQ(u.printed("kvdhist socpri_supervision 4").find("port = "), std::string::npos);
}

// ---- port X --------------------------------------------------------------------------------------

/// The slave's links, through the main processor, which answers as the slave would.
struct PortXUnit : SocpriUnit {
    static constexpr u32 UNIT_X = 66;
    u32 phases = 0;
    bool answers = true;

    PortXUnit() : SocpriUnit(MASTER)
    {
        mp().onForward([this](const sim::MpRecord& r) {
            if (!answers) return;
            if (r.sigNo == KVD_TUIIF_INRSI_GET_FREQ_DIFF2_REQ_FWD)
                mp().sendLayout(KvdTuiifInrsiGetFreqDiff2CfmFwd{KVD_TUIIF_INRSI_GET_FREQ_DIFF2_CFM_FWD, 2, UNIT_X,
                                                                1, 1});
            if (r.sigNo == KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REQ_FWD && ++phases != 0)
                mp().sendLayout(KvdTuiifInrsiGetPhaseDiff2CfmFwd{KVD_TUIIF_INRSI_GET_PHASE_DIFF2_CFM_FWD, 2,
                                                                 UNIT_X, 0, 0, 1});
        });
        link(2);
    }
    void link(u8 status)
    {
        send(KvdTuiifInrsiLinkStatus2IndFwd{KVD_TUIIF_INRSI_LINK_STATUS2_IND_FWD, 2, 4, status, UNIT_X, 0, 0});
    }
};

TEST(InrsiPortX, IsMeasuredThroughTheMainProcessor)
{
    PortXUnit u;
    EXPECT_TRUE(u.links().empty()) << "nothing of it is passed on";
    u.select(7);
    u.run(0.5);
    EXPECT_EQ(u.selected(), "7:1");
    u.run(5.0);
    EXPECT_EQ(u.synced(), "7:2");
    EXPECT_GT(u.phases, 30u);
    EXPECT_EQ(u.inrsi().phaseRequests(PortXUnit::UNIT_X), 0u);

    u.answers = false;                           // it is given a second, and keeps it
    u.run(0.9);
    EXPECT_EQ(u.synced(), "");
    u.run(0.3);
    EXPECT_EQ(u.synced(), "7:7");
    const auto retrieve = [&u] {
        return u.get([] { return inrsi::master::record().measRetrieveTimeMs; });
    };
    EXPECT_EQ(retrieve(), 1000);
    u.send(KvdTuiifSocpriSpJumpInd{KVD_TUIIF_SOCPRI_SP_JUMP_IND, 0});
    EXPECT_EQ(retrieve(), 300);
    u.send(KvdTuiifSocpriSpJumpInd{KVD_TUIIF_SOCPRI_SP_JUMP_IND, 2});
    EXPECT_EQ(retrieve(), 1000);
    u.mp().clearLog();
    u.run(130.0);
    EXPECT_NE(u.supervised().substr(0, 2), "7:") << "never supervised";
}

TEST(InrsiPortX, EndsWithARejectionOrItsLink)
{
    for (const bool rejected : {true, false}) {
        SCOPED_TRACE(rejected);
        PortXUnit u;
        u.select(7);
        u.run(1.0);
        u.mp().clearLog();
        if (rejected) {
            u.answers = false;
            u.run(0.2);
            u.send(KvdTuiifInrsiGetPhaseDiff2RejFwd{KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD, 2, PortXUnit::UNIT_X, 1});
        } else {
            u.link(0);
            u.run(0.7);
        }
        EXPECT_EQ(u.synced(), rejected ? "7:7" : "7:3");
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// ---- the rest ------------------------------------------------------------------------------------

TEST(InrsiTemperature, IsToldForEachSubscribedLink)
{
    SocpriUnit u{MASTER};
    u.inrsi().setStatus(UNIT_C, 1);
    u.run(LATER);
    u.mp().clearLog();
    u.node.system().call(*u.node.program(), [] { inrsiReportOcxoTemp(1); });
    u.run(LATER);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND), 2u);
    EXPECT_EQ(u.synced(), "3:4");
    u.inrsi().setStatus(UNIT_C, 0);
    u.run(LATER);
    u.mp().clearLog();
    u.node.system().call(*u.node.program(), [] { inrsiReportOcxoTemp(0); });
    u.run(LATER);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND), 1u);
    EXPECT_EQ(u.synced(), "1:1");
}

TEST(InrsiPrintout, ShowsStateAndTheStoryUpToTheLastEndOfSomething)
{
    SocpriUnit u{MASTER};
    u.inrsi().silentUnits = {UNIT_A};
    u.scan(1);
    u.run(1.0);
    const std::string info = u.printed("kvdinfo inrsi");
    EXPECT_NE(info.find("TU_SOCPRI INRSI (mDU) related data"), std::string::npos);
    EXPECT_NE(info.find("   subscribed             : A-C---\n"), std::string::npos);
    EXPECT_NE(info.find("   port C: unit 0x00000021, subsumed 0xffffffff, link status 2, INCI 2, prefix bbu/3\n"),
              std::string::npos);
    const std::string story = u.printed("kvdhist inrsi");
    const std::size_t begin = story.find("event = INRSI_CL_EV_INIT,");
    const std::size_t end = story.find("event = INRSI_CL_EV_MEAS_TMO_EXPIRED,");
    ASSERT_NE(begin, std::string::npos);
    ASSERT_NE(end, std::string::npos);
    EXPECT_LT(begin, end);
    const std::string all = u.printed("kvdhist all");
    for (const char* part : {"SoCPRI measurement history snapshot:", "INRSI (mDU) trace history snapshot:",
                             "SoCPRI supervision history:", "***** END *****"})
        EXPECT_NE(all.find(part), std::string::npos) << part;
}

// The count of turns follows the counter's wrap only with the next sample of a reference.
TEST(InrsiTimeData, CountsTheTurnThatTheCounterHasBegun)
{
    SocpriUnit u{MASTER};
    std::vector<KvdTuSocpriInciGetTimeDataRsp> got;
    const PROCESS asker = u.node.system().spawn("asker", 20, [&got] {
        for (;;) {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            if (const auto* rsp = node::as<KvdTuSocpriInciGetTimeDataRsp>(sig)) got.push_back(*rsp);
            ose::free_buf(&sig);
        }
    });
    const auto ask = [&](u16 mfn, double lastTime) {
        const SIGSELECT req = KVD_TUSOCPRI_INCI_GET_TIME_DATA_REQ;
        u.node.system().call(*u.node.program(), [&] {
            tuHwIf_writeSfc(mfn, 5, 6);
            KvdLoz6TuReg_setLastTime(lastTime, 1.0);
        });
        u.run(0.1);
        u.node.system().inject(std::as_bytes(std::span(&req, 1)), u.manager(), asker);
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
