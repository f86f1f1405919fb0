// How the unit finds the main processor, negotiates, and goes on when a side restarts.
#include "tests/iif/iif_bench.h"

#include "iif/kvd_iifadm_orders.h"
#include "reg/kvd_reg.h"

namespace {

using bench::IifBench;

// ---- name server ----

/// A name server of the test's own that keeps the request.
struct RawNameServer {
    std::vector<std::byte> request;
    PROCESS pid;
    explicit RawNameServer(IifBench& b)
    {
        b.node.nameServer().die();
        pid = b.node.system().spawn("ose_ns", 10, [this] {
            for (;;) {
                Signal* sig = ose::receive(ose::ANY_SIGNAL);
                const auto* bytes = reinterpret_cast<const std::byte*>(sig);
                request.assign(bytes, bytes + ose::sigsize(&sig));
                ose::free_buf(&sig);
            }
        });
    }
};

TEST(NameServerRequest, IsRepeatedAtANewNameServer)
{
    IifBench b;
    RawNameServer first{b};
    b.in(KvdLoz6TuIifAdm_initiate);
    b.run(0.1);
    b.node.system().kill(first.pid);
    b.run(0.1);
    RawNameServer second{b};
    b.run(0.1);
    EXPECT_EQ(second.request.size(), 43u);
}

// ---- the request ----

TEST(InitiateService, WaitsForPersistentMemoryAndForThePeer)
{
    struct Case { const char* when; bool peerFirst; const char* trace; };
    for (const Case& c : {Case{"peer first", true, "TUIIF initiated, MSI not so much"},
                          Case{"memory first", false, "MSI initiated, TUIIF not so much"}}) {
        SCOPED_TRACE(c.when);
        IifBench b;
        b.in(c.peerFirst ? KvdLoz6TuIifAdm_initiate : KvdLoz6TuIifAdm_msiMemInitiated);
        b.run(10);
        EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 0u);
        EXPECT_TRUE(b.traced(c.trace));
        b.in(c.peerFirst ? KvdLoz6TuIifAdm_msiMemInitiated : KvdLoz6TuIifAdm_initiate);
        b.run(10);
        EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 1u);
        EXPECT_TRUE(b.mp().connected());
    }
}

TEST(OwnIdentity, IsAskedForEveryThreeSecondsUntilTheServiceIsThere)
{
    IifBench b;
    b.node.pri().die();
    b.initiate();
    b.run(8.9);   // at 0, 3 and 6 s
    EXPECT_EQ(b.traces("WARNING: TarsoPri_initiateService() did not succeed, retrying ..."), 3u);
    EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 0u);
    b.node.pri().start();
    b.run(0.2);
    EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 1u);
    EXPECT_EQ(b.node.pri().clients(), 0u) << "terminated again";
}

TEST(OwnIdentity, IsAskedForAgainWhenTheServiceSaysNothing)
{
    IifBench b;
    b.node.pri().setAnswer(sim::Answer::Silent);
    b.initiate();
    b.run(25);
    EXPECT_EQ(b.traces("The PRI service doesn't answer"), 2u);
    b.node.pri().setAnswer(sim::Answer::Accept);
    b.run(10);
    EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 1u);
}

TEST(OwnIdentity, ThatIsRefusedBlocksTheManager)
{
    struct Case { const char* when; sim::Answer answer; u32 identityResult; u32 hwAddrResult; };
    for (const Case& c : {Case{"rejected", sim::Answer::Reject, 1, 1},
                          Case{"no instance", sim::Answer::Accept, 0, 1},
                          Case{"no address", sim::Answer::Accept, 1, 2}}) {
        SCOPED_TRACE(c.when);
        IifBench b;
        b.node.pri().setAnswer(c.answer);
        b.node.pri().identityResult = c.identityResult;
        b.node.pri().hwAddrResult = c.hwAddrResult;
        b.initiate();
        b.run(20);
        EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 0u);
        EXPECT_EQ(b.traced("Unexpected signal: 393986 received"), c.answer == sim::Answer::Reject);
        b.node.pri().die();   // a service that dies is initiated again
        b.node.pri().setAnswer(sim::Answer::Accept);
        b.node.pri().identityResult = 1;
        b.node.pri().hwAddrResult = 1;
        b.node.pri().start();
        b.run(5);
        EXPECT_TRUE(b.mp().connected());
    }
}

// ---- the answer ----

TEST(InitiateService, IsTakenOnlyWithTheAgreedVersion)
{
    struct Case { u32 revision; u32 pv; bool taken; };
    for (const Case& c : {Case{4, 22, true}, Case{4, 21, false}, Case{4, 23, false},
                          Case{2, 22, false}, Case{5, 22, false}}) {
        SCOPED_TRACE(testing::Message() << c.revision << " " << c.pv);
        sim::NodeConfig config = IifBench::config();
        config.mainProcessor.signalRevision = c.revision;
        config.mainProcessor.selectedPv = c.pv;
        IifBench b{config};
        b.initiate();
        b.run(5);
        EXPECT_EQ(b.startState(), c.taken ? 2u : 0u);
        EXPECT_EQ(b.traced("KVD_TUIIF_INITIATE_SERVICE_CFM received with signal revision " +
                           std::to_string(c.revision) + " and PV " + std::to_string(c.pv) +
                           " . Requested signal revision = 2, wanted PV = 22"),
                  !c.taken);
        EXPECT_EQ(b.sent(KVD_TUIIF_OSC_TEMPERATURE_STATE_IND), c.taken ? 1u : 0u);
        EXPECT_EQ(b.traces("isLoz6Started"), c.taken ? 1u : 0u);
    }
}

TEST(InitiateService, SuspendedOrRejectedLeavesTheUnitDeafUntilThePeerDies)
{
    struct Case { sim::Answer answer; u32 deaf, afterDeath; const char* trace; };
    for (const Case& c :
         {Case{sim::Answer::Suspend, TUIIF_LOZ6_STARTED, TUIIF_LOZ6_STARTED,
               "KVD_TUIIF_INITIATE_SERVICE_SUS received. highestAvailablePV=20Wait until BVQ has restarted"},
          Case{sim::Answer::Reject, TUIIF_ERROR, TUIIF_BVQ_RESTARTED,
               "KVD_TUIIF_INITIATE_SERVICE_REJ received. highestAvailablePV=20Wait until BVQ has restarted"}}) {
        SCOPED_TRACE(c.trace);
        sim::NodeConfig config = IifBench::config();
        config.mainProcessor.highestAvailablePv = 20;
        IifBench b{config};
        b.mp().setAnswer(c.answer);
        b.initiate();
        b.run(5);
        EXPECT_TRUE(b.traced(c.trace));
        EXPECT_EQ(b.startState(), c.deaf);

        bench::pktsyncInbox().clear();
        b.mp().sendLayout(KvdTuiifDeletePktRefRoReq{KVD_TUIIF_DELETE_PKT_REF_RO_REQ, 1, 4});
        b.run(1);
        EXPECT_TRUE(bench::pktsyncInbox().empty()) << "dropped";

        b.mp().die();
        b.run(1);
        EXPECT_EQ(b.startState(), c.afterDeath);
        b.mp().setAnswer(sim::Answer::Accept);
        b.mp().start();
        b.run(5);
        EXPECT_EQ(b.startState(), TUIIF_START_RESTART_READY);
        EXPECT_TRUE(b.traced("isLoz6Started 1")) << "nothing has been started before";
        ASSERT_EQ(bench::pktsyncInbox().size(), 1u) << "no word of an end before the beginning";
        EXPECT_EQ(reinterpret_cast<const Signal*>(bench::pktsyncInbox()[0].data())->sigNo, 0x9C667u);
    }
}

// Answers that lay in the queue when their server died: nobody's death would end the wait.
TEST(InitiateService, AnswersOfNobodyAreDropped)
{
    IifBench b;
    b.connect();
    b.mp().die();
    b.run(1);
    for (const SIGSELECT sigNo : {KVD_TUIIF_INITIATE_SERVICE_SUS, KVD_TUIIF_INITIATE_SERVICE_REJ})
        b.inject(KvdTuiifInitiateServiceSus{sigNo, 2, 20});
    KvdTuiifInitiateServiceCfm cfm{};
    cfm.sigNo = KVD_TUIIF_INITIATE_SERVICE_CFM;
    cfm.signalRevision = 4;
    cfm.pvSelected = 22;
    b.inject(cfm);
    EXPECT_EQ(b.traces("no main processor is there, answer dropped"), 3u);
    EXPECT_EQ(b.startState(), TUIIF_BVQ_RESTARTED);
    b.mp().start();
    b.run(5);
    EXPECT_EQ(b.startState(), TUIIF_START_RESTART_READY);
}

// ---- the peer's death ----

TEST(PeerDeath, ForgetsWhatThePeerKnewAndConnectsAgain)
{
    IifBench b;
    b.connect();
    b.select(GPS_REF, 11, 12);
    b.in([] {
        KvdLoz6TuIifAdm_setRefStateBits(0x80);
        KvdLoz6TuIifAdm_reportRegState(TRUETIME);
    });
    EXPECT_EQ(b.sent(KVD_TUIIF_BVQ_STATUS_IND), 1u);
    EXPECT_EQ(b.sent(KVD_TUIIF_CALIBRATION_STATUS_IND), 1u);
    bench::pktsyncInbox().clear();

    b.mp().die();
    b.run(1);
    EXPECT_EQ(b.startState(), TUIIF_BVQ_RESTARTED);
    EXPECT_TRUE(b.traced("tuiifStartState: TUIIF_START_RESTART_READY->TUIIF_BVQ_RESTARTED"));
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_tuiifRefState), 0u);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_activRefFroId), 0xFFFFFFFFu);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_activRefFroClassNo), 0xFFFFFFFFu);
    ASSERT_EQ(bench::pktsyncInbox().size(), 1u);
    EXPECT_EQ(reinterpret_cast<const Signal*>(bench::pktsyncInbox()[0].data())->sigNo, 0x9C666u);

    b.mp().clearLog();
    b.mp().start();
    b.run(5);
    EXPECT_EQ(b.startState(), TUIIF_START_RESTART_READY);
    EXPECT_TRUE(b.traced("isLoz6Started 0, timeMode 3, masterSlaveMode 1, outEmuMode 0"));
    EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 1u);
    EXPECT_EQ(b.sent(KVD_TUIIF_OSC_TEMPERATURE_STATE_IND), 1u);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), KVD_TUIIF_UNKNOWN);
    EXPECT_EQ(b.clock(), KVD_TUIIF_UNKNOWN);
    EXPECT_EQ(b.sent(KVD_TUIIF_BVQ_STATUS_IND), 0u);

    b.report(TRUETIME);   // the new peer hasn't selected anything yet
    const auto* status = b.mp().last(KVD_TUIIF_BVQ_STATUS_IND);
    ASSERT_NE(status, nullptr);
    EXPECT_EQ(status->as<KvdTuiifBvqStatusInd>()->radioClockState, KVD_TUIIF_RNT_TIME_HOLDOVER);
    EXPECT_EQ(status->as<KvdTuiifBvqStatusInd>()->refState, 0u);
    EXPECT_EQ(b.sent(KVD_TUIIF_CALIBRATION_STATUS_IND), 1u) << "a new peer is told again";
}

TEST(PeerDeath, BeforeTheFirstConfirmationIsNoRestart)
{
    sim::NodeConfig config = IifBench::config();
    config.mainProcessor.selectedPv = 21;
    IifBench b{config};
    b.initiate();
    b.run(5);
    b.mp().config.selectedPv = 22;
    b.mp().restart(ose::SEC);
    b.run(5);
    EXPECT_TRUE(b.traced("isLoz6Started 1"));
    EXPECT_FALSE(b.traced("TUIIF_BVQ_RESTARTED"));
}

TEST(Connection, SendsNothingWhileItIsNotReady)
{
    IifBench b;
    b.connect();
    const auto speak = [&] {
        b.update(KVD_TUIIF_FREQUENCY_DRIFTING);
        b.update(KVD_TUIIF_FAILURE);
        b.in([] {
            KvdLoz6TuIifAdm_sendTimeAccuracyNow(50);
            KvdLoz6TuIifAdm_sendGpsStatus(1, "OK");
            KvdLoz6TuIifAdm_sendEtFroidInd(1, 2, 1);
            KvdLoz6TuIifAdm_sendRefState(ETHA_REF, 1, 7, 8, 2);
            KvdLoz6TuIifAdm_sendRemoteRcState(10);
            Signal* prepared = ose::alloc(8, KVD_TUIIF_PKT_RATE_IND);
            KvdLoz6TuIifAdm_send(&prepared);
            EXPECT_EQ(prepared, nullptr);
        });
        b.run(0.1);
    };
    speak();
    EXPECT_EQ(b.mp().log().size(), 8u);
    b.mp().die();
    b.run(1);
    b.mp().setAnswer(sim::Answer::Silent);
    b.mp().start();
    b.run(5);
    b.mp().clearLog();
    speak();
    EXPECT_EQ(b.mp().log().size(), 0u);
}

// ---- signals that aren't for this side ----

TEST(ShortSignals, AreRefused)
{
    IifBench b;
    b.connect();
    for (const SIGSELECT sigNo :
         {KVD_TUIIF_INITIATE_SERVICE_CFM, KVD_TUIIF_INITIATE_SERVICE_SUS,
          KVD_TUIIF_INITIATE_SERVICE_REJ, KVD_TUIIF_CHANGE_MASTER_TU_IND,
          KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ, KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ,
          KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM, KVD_TUIIF_SOCPRI_SCAN_LINK_REQ,
          KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ, KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ,
          KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD}) {
        SCOPED_TRACE(testing::Message() << std::hex << sigNo);
        b.inject(Signal{sigNo});
        b.run(0.1);
        EXPECT_EQ(b.startState(), TUIIF_START_RESTART_READY);
        EXPECT_EQ(b.mp().log().size(), 0u);
        int alive = 0;
        b.in([&] { alive = 1; });
        EXPECT_EQ(alive, 1) << "the manager goes on";
    }
}

}  // namespace
