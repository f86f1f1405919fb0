// The master's client at the main processor's orders: scan, selection, holdover.
#include "tests/socpri/socpri_bench.h"

namespace {

using bench::LATER;
using bench::MASTER;
using bench::SocpriUnit;
using bench::UNIT_A;
using bench::UNIT_C;
using sim::InrsiFrequency;
using sim::InrsiPhase;

constexpr InrsiFrequency GOOD{2, true}, FAR{40, true};

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

// Three good values in a row are three of one link.
TEST(InrsiScan, CountsNoGoodValueOfAnOrderBefore)
{
    SocpriUnit u{MASTER};
    u32 left = 2;
    u.inrsi().onFrequency([&left](u32 unit) -> std::optional<InrsiFrequency> {
        if (unit == UNIT_A && left-- == 0) return std::nullopt;
        return GOOD;
    });
    u.scan(1);
    u.run(0.5);
    EXPECT_EQ(u.scanned(), "1:5");
    u.scan(3);
    u.run(0.5);
    EXPECT_EQ(u.scanned(), "3:1");
    EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C), 3u);
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
    u.select(3);
    const auto refused = u.told<KvdTuiifSocpriAlreadySelectedInd>(KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->selectedCpriPort, 1);
    EXPECT_EQ(refused->requestedCpriPort, 3);
    EXPECT_EQ(u.port(), 0);
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

TEST(InrsiHoldover, EndsAfterFiveMinutesWhateverHappensInIt)
{
    struct Case {
        const char* what;
        void (*event)(SocpriUnit&);
    };
    for (const Case& c : std::to_array<Case>({
             {"nothing", [](SocpriUnit&) {}},
             {"the server dies", [](SocpriUnit& u) { u.inrsi().die(); }},
             {"a scan", [](SocpriUnit& u) { u.scan(3); }},
             {"deselected", [](SocpriUnit& u) { u.deselect(1); }},
             {"a link to go on with that isn't there",
              [](SocpriUnit& u) { u.inrsi().setStatus(UNIT_C, 0), u.run(LATER), u.select(3); }},
             {"one without a valid phase",
              [](SocpriUnit& u) { u.phaseIs(InrsiPhase{0, false}), u.select(3); }},
             {"one that the loop has just begun with",
              [](SocpriUnit& u) { u.select(3), u.run(0.5), u.inrsi().silentUnits = {UNIT_C}; }}})) {
        SCOPED_TRACE(c.what);
        SocpriUnit u{MASTER};
        u.lock(1);
        u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
        u.run(10.0);
        c.event(u);
        u.run(288.0);
        EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsHoldover));
        EXPECT_EQ(u.mp().clockState(), 11);
        u.run(3.0);
        EXPECT_EQ(u.get(KvdLoz6TuReg_pllState), u32{PLL_Unlocked});
        EXPECT_EQ(u.mp().clockState(), 4);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// Whatever the loop's state: no link keeps the focus when its reference goes, and what is held runs on.
TEST(InrsiSelection, EndsWithItsReference)
{
    for (const bool holdsOver : {false, true}) {
        SCOPED_TRACE(holdsOver);
        SocpriUnit u{MASTER};
        u.mp().restart(2 * ose::SEC);            // no first start any more
        u.run(5.0);
        u.supervise({1, 3});
        if (holdsOver) u.lock(1), u.order(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
        u.frequencyIs(FAR);
        u.select(3);
        ASSERT_EQ(u.port(), 2);
        u.mp().selectNone();
        u.run(10.0);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
        EXPECT_EQ(u.get(KvdLoz6TuReg_pllIsHoldover), holdsOver);
        EXPECT_FALSE(u.get(KvdLoz6TuReg_pllIsLocked));
        u.run(301.0);
        EXPECT_FALSE(u.get(KvdLoz6TuReg_pllIsHoldover));
    }
}

// The link was lost, nobody ordered a holdover, and the reference goes: the loop doesn't stay locked to nothing.
TEST(InrsiHoldover, IsEnteredByALoopWhoseLinkWasLostBefore)
{
    SocpriUnit u{MASTER};
    u.mp().restart(2 * ose::SEC);                // no first start any more
    u.run(5.0);
    u.supervise({1, 3});
    u.lock(1);
    u.inrsi().setStatus(UNIT_A, 0);
    u.run(1.0);
    ASSERT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    ASSERT_TRUE(u.get(KvdLoz6TuReg_pllIsLocked));
    u.mp().selectNone();
    u.run(1.0);
    EXPECT_TRUE(u.get(KvdLoz6TuReg_pllIsHoldover));
    u.run(301.0);
    EXPECT_FALSE(u.get(KvdLoz6TuReg_pllIsHoldover));
}

}  // namespace
