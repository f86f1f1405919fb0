// Answers of the measurement server that are of the other kind, of another unit, late, twice or never,
// and what the master's client makes of them.
#include "sig/reg_sig.h"
#include "tests/socpri/socpri_bench.h"

namespace {

using namespace bench;
using sim::InrsiFrequency;
using sim::InrsiPhase;

constexpr InrsiFrequency GOOD{2, true}, FAR{40, true};

void frequencyRejected(SocpriUnit& u) { u.inject(InrsiUnitRej{INRSI_GET_FREQ_DIFF2_REJ, 0, 0, UNIT_A, 3}); }
void phaseRejected(SocpriUnit& u) { u.inject(InrsiUnitRej{INRSI_GET_PHASE_DIFF2_REJ, 0, 0, UNIT_A, 3}); }
void frequencyComes(SocpriUnit& u) { u.inrsi().tellFrequency(UNIT_A, {-77, true}), u.run(LATER); }
void phaseComes(SocpriUnit& u) { u.inrsi().tellPhase(UNIT_A, {0x5'0000'0009, true}), u.run(LATER); }

// The order's own measurement is taken for closed. It is asked for again, so that a server which never
// answers it is seen all the same.
TEST(InrsiStrayAnswer, OfTheOtherKindClosesTheMeasurementAndTheOrderAsksAgain)
{
    struct Case {
        const char* what;
        void (*order)(SocpriUnit&);        // its measurement stays open
        void (*stray)(SocpriUnit&);
        u32 wait_ms;                       // from the new request to the order's end
        SIGSELECT told;
        const char* result;
    };
    constexpr SIGSELECT SYNC = KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND, SCAN = KVD_TUIIF_SOCPRI_SCAN_LINK_RSP,
                        SELECT = KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP;
    const auto selectAndGoSilent = [](SocpriUnit& u) {
        u.synchronise(1);
        u.inrsi().silentUnits = {UNIT_A};
        u.run(0.15);
    };
    const auto scanSilent = [](SocpriUnit& u) { u.inrsi().silentUnits = {UNIT_A}, u.scan(1); };
    const auto selectSilent = [](SocpriUnit& u) { u.inrsi().silentUnits = {UNIT_A}, u.select(1); };
    for (const Case& c : std::to_array<Case>({
             {"a frequency in time synchronisation", selectAndGoSilent, frequencyComes, 300, SYNC, "1:7"},
             {"a frequency's rejection in it", selectAndGoSilent, frequencyRejected, 300, SYNC, "1:7"},
             {"a phase in a scan", scanSilent, phaseComes, 500, SCAN, "1:5"},
             {"a phase's rejection in a scan", scanSilent, phaseRejected, 500, SCAN, "1:5"},
             {"a phase in a selection's frequency stage", selectSilent, phaseComes, 500, SELECT, "1:5"},
             {"a phase's rejection in it", selectSilent, phaseRejected, 500, SELECT, "1:5"}})) {
        SCOPED_TRACE(c.what);
        SocpriUnit u{MASTER};
        c.order(u);
        u.mp().clearLog();
        const u32 action = u.action();
        c.stray(u);
        EXPECT_EQ(u.action(), action);
        EXPECT_EQ(u.get([] { return inrsi::master::record().measOngoing; }), 0);
        EXPECT_TRUE(u.traced("Measurement type is incompatible with current INRSI Client action"));
        u.toMeasurement(true);
        const u32 asked_ms = u.get([] { return inrsi::master::record().measAskedAt; });
        u.run((asked_ms + c.wait_ms - 1 - u.get(ose::get_ticks)) / 1000.0);
        EXPECT_EQ(u.mp().count(c.told), 0u);
        u.run(0.001);
        EXPECT_EQ(u.result(c.told), c.result);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// A supervised port's rejection is no answer to the port in focus.
TEST(InrsiStrayAnswer, OfAnotherPortsSupervisionLeavesTheFocusAlone)
{
    SocpriUnit u{MASTER};
    u.lock(1);
    u.mp().clearLog();
    u.inject(InrsiUnitRej{INRSI_GET_PHASE_DIFF2_REJ, 0, 0, UNIT_C, 3});
    EXPECT_EQ(u.supervised(), "3:7");
    for (const u32 nobody : {77u, 0u, 0xFFFFFFFFu}) {
        u.inrsi().tellPhase(nobody, {5'000'000'000'000, true});
        u.inject(InrsiUnitRej{INRSI_GET_PHASE_DIFF2_REJ, 0, 0, nobody, 3});
        u.send(KvdTuiifInrsiGetPhaseDiff2RejFwd{KVD_TUIIF_INRSI_GET_PHASE_DIFF2_REJ_FWD, 2, nobody, 1});
    }
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND), 0u);
    u.run(2.0);
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_ACTION_TIME_SYNC});
    EXPECT_EQ(u.synced(), "");
    EXPECT_FALSE(u.traced("phase of a unit that no port has")) << "it is nobody's supervision";

    // While the focus's own request is open, whose link goes before it is answered.
    u.inrsi().silentUnits = {UNIT_A};
    u.toMeasurement(true);
    u.inject(InrsiUnitRej{INRSI_GET_PHASE_DIFF2_REJ, 0, 0, UNIT_C, 3});
    u.inrsi().setStatus(UNIT_A, 0);
    u.run(1.0);
    EXPECT_EQ(u.synced(), "1:3");
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});

    // What comes of the port in focus is the order's, though its unit isn't asked at the moment.
    SocpriUnit late{MASTER};
    late.lock(1);
    late.inrsi().setStatus(UNIT_A, 1);
    late.run(0.15);
    phaseRejected(late);
    EXPECT_EQ(late.synced(), "1:7");
}

// Time-outs that lay in the queue when their timer was stopped, by whichever client.
TEST(InrsiLateTimeout, CountsForNothing)
{
    SocpriUnit u{MASTER, false};
    u.node.system().call(*u.node.program(), [&u] {
        using namespace inrsi;
        const auto isVoid = [] {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            const bool yes = isVoidTimeout(sig);
            ose::free_buf(&sig);
            return yes;
        };
        startTimer(PHASE_DATA, PORT_X, 10);
        startTimer(MEAS_RETRIEVE, 0, 10);
        startTimer(HOLDOVER, 10);
        ose::delay(20);
        KvdLoz6Inrsi_leave();
        startTimer(HOLDOVER, 30);
        startTimer(PHASE_DATA, 0, 30);           // another port's
        for (int i = 0; i < 3; ++i) EXPECT_TRUE(isVoid());
        for (int i = 0; i < 2; ++i) EXPECT_FALSE(isVoid());
        u.node.system().faults().refuseTimers = 2;
        startTimer(SUPERVISION, 0, 10), startTimer(BFN_JUMP_WARNING, 10);
    });
    EXPECT_EQ(u.traces("no timer for signal 0x9c6"), 2u);
    const u32 before = u.get([] { return inrsi::master::record().client.procedureRef; });
    for (const u8 port : {7, 255}) u.inject(InrsiPortTmo{KVD_TUSOCPRI_SUPERVISION_TMO, port});
    u.inject(SIGSELECT{INRSI_REQUEST_PHASE_DATA_TMO});
    EXPECT_TRUE(u.traced("ignored, too short"));
    EXPECT_EQ(u.get([] { return inrsi::master::record().client.procedureRef; }), before);
}

// The oscillator stands as it did before, whatever has become of its registers.
TEST(InrsiScan, OfAFrequencyThatStaysFarMovesNothingInTheEnd)
{
    SocpriUnit u{MASTER};
    const auto divider = [&u] {
        return u.get([] { return std::pair(tuHwIf_readDeltaSigmaK(), tuHwIf_readDeltaSigmaM()); });
    };
    const auto before = divider();
    u.frequencyIs(FAR);
    u.scan(1);
    u.get([] { tuHwIf_writeDeltaSigmaM(700'000'000); });
    u.run(2.0);
    EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_A), 15u);
    EXPECT_EQ(u.scanned(), "1:4");
    EXPECT_EQ(divider(), before);
}

// Answers on their way when the link went: the first is one more try, a second ends it.
TEST(InrsiTimeSync, EndsWithASecondAnswerOfALinkThatIsGone)
{
    SocpriUnit u{MASTER};
    u.synchronise(1);
    u.inrsi().answer_ms = 60;
    u.toMeasurement(false);
    u.toMeasurement(true);
    u.mp().clearLog();
    u.inrsi().setStatus(UNIT_A, 0);
    u.run(0.07);
    EXPECT_EQ(u.synced(), "");
    u.inrsi().answer_ms = 5;
    phaseComes(u);
    EXPECT_EQ(u.synced(), "1:3");
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
}

// 600 phases that never agree with each other.
TEST(InrsiTimeSync, EndsWhenTheLoopDoesNotSettle)
{
    SocpriUnit u{MASTER};
    u32 n = 0;
    u.inrsi().onPhase([&n](u32) { return InrsiPhase{++n % 2 * 1'000'000, true}; });
    u.synchronise(1);
    u.mp().clearLog();
    u.run(60.0);
    EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND), 0u);
    u.run(5.0);
    EXPECT_EQ(u.synced(), "1:6");
    EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
}

// While an order is at work, a sample of another port is given the order's time.
TEST(InrsiSupervision, IsGivenHalfASecondWhileAnOrderIsAtWork)
{
    SocpriUnit u{MASTER};
    u.run(55.0);
    u.frequencyIs(GOOD);
    u.align(1, {5, 3});
    u.inrsi().silentUnits = {UNIT_C};
    for (u32 i = 0; i < 1000 && u.inrsi().phaseRequests(UNIT_C) == 0; ++i) u.run(0.01);
    ASSERT_EQ(u.action(), u32{INRSI_CLIENT_ACTION_BFN_ALIGN});
    u.run(0.48);
    EXPECT_EQ(u.supervised(), "");
    u.run(0.03);
    EXPECT_EQ(u.supervised(), "3:7");
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
        u.align(port, {0, 0});
        EXPECT_EQ(u.aligned(), 0u);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// An answer that comes twice, and one of another unit change nothing.
TEST(InrsiTimeSync, SurvivesAnswersThatArentItsOwn)
{
    SocpriUnit u{MASTER};
    u.lock(1);
    u.mp().clearLog();
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

// The far end agrees while a phase is asked for: that its answer comes when the order is over is no fault.
// One that never comes is told once, and takes no later sample's place.
TEST(InrsiAlignment, AnAnswerAfterItsEndIsNotMissing)
{
    for (const bool answered : {true, false}) {
        SCOPED_TRACE(answered);
        SocpriUnit u{MASTER};
        u.frequencyIs(GOOD);
        u.supervise({1});
        u.inrsi().answer_ms = 60;
        u.align(1, u.count());
        u.run(19.0);                             // a hundred phases, 160 ms apart, and the step
        EXPECT_EQ(u.inrsi().jumpInfos().at(0), 1u) << "the other ends are told of the step";
        u.toMeasurement(false);
        if (!answered) u.inrsi().silentUnits = {UNIT_A};
        u.toMeasurement(true);
        u.otherEndSays(u.count());
        ASSERT_EQ(u.aligned(), 1u);
        u.inrsi().silentUnits.clear();
        u.run(55.0);
        EXPECT_EQ(u.supervised(), answered ? "" : "1:7");
        u.run(7.0);
        EXPECT_EQ(u.supervised(), "1:2");
    }
}

// ---- an answer that is owed -------------------------------------------------------------------------

// Too many invalid phases during a jump: the jump ends first, then the answer goes out that is owed.
TEST(InrsiContinuation, IsAnsweredAfterTheJumpThatItsLinkEnds)
{
    for (const bool givenUp : {false, true}) {
        SCOPED_TRACE(givenUp);
        SocpriUnit u{MASTER};
        u.frequencyIs(GOOD);
        u.phaseIs(InrsiPhase{1'000'000'000, true});          // 1 ms ahead: locked to an offset
        u.lock(1);
        u.mp().orderJump();
        u.run(4.1);
        ASSERT_EQ(u.get(KvdLoz6TuReg_SoCpriJumpRunning), 1u);
        EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1}));
        u.phaseIs(InrsiPhase{0, false});
        u.run(0.2);
        u.mp().clearLog();
        u.get([] { inrsiSetContinuationOfSync(1); });
        if (givenUp) u.deselect(1);
        u.inject(SIGSELECT{KVD_TUSOCPRI_CONTINUE_POSTPONED_REGULATION_TMO});   // the pause is over
        u.run(1.3);
        EXPECT_EQ(u.get(KvdLoz6TuReg_SoCpriJumpRunning), 0u);
        EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND), givenUp ? 0u : 1u);
        EXPECT_EQ(u.mp().count(KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP), givenUp ? 0u : 1u);
        EXPECT_EQ(u.selected(), givenUp ? "" : "1:6");
    }
}

}  // namespace
