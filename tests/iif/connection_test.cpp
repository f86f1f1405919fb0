// How the unit finds the main processor, negotiates, and goes on when a side restarts; refused orders.
#include "iif/kvd_mgr_wait.h"
#include "ref/kvd_ref_select.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_pll.h"
#include "sig/reg_sig.h"
#include "tests/iif/iif_bench.h"
#include "unit/kvd_ref_table.h"

namespace {

using bench::IifBench;

// ---- the request ----

TEST(NameServerRequest, IsRepeatedAtANewNameServer)
{
    IifBench b;
    b.mp().die();
    b.initiate();
    b.run(1);
    b.node.nameServer().die();                 // with the request
    b.run(0.1);
    b.node.nameServer().start();
    b.run(0.1);
    b.mp().start();
    b.run(5);
    EXPECT_TRUE(b.mp().connected());
}

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

/// Without it nothing is initiated; a service that starts or speaks again is asked anew.
TEST(OwnIdentity, IsAskedForUntilTheServiceTellsIt)
{
    struct Case {
        sim::Answer answer;
        u32 identityResult, hwAddrResult;
        bool isThere;
        const char* trace;
        std::size_t traces;
    };
    constexpr sim::Answer YES = sim::Answer::Accept;
    for (const Case& c : std::to_array<Case>({
             {YES, 1, 1, false, "WARNING: TarsoPri_initiateService() did not succeed, retrying ...", 3},
             {sim::Answer::Silent, 1, 1, true, "The PRI service doesn't answer", 0},
             {sim::Answer::Reject, 1, 1, true, "Unexpected signal: 393986 received", 1},
             {YES, 0, 1, true, "no instance", 0}, {YES, 1, 2, true, "no address", 0}})) {
        SCOPED_TRACE(c.trace);
        IifBench b;
        sim::PriServer& pri = b.node.pri();
        pri.setAnswer(c.answer);
        pri.identityResult = c.identityResult;
        pri.hwAddrResult = c.hwAddrResult;
        if (!c.isThere) pri.die();
        b.initiate();
        b.run(8.9);                          // at 0, 3 and 6 s without a service
        EXPECT_EQ(b.traces(c.trace), c.traces);
        b.run(16);
        EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 0u);
        if (c.isThere && c.answer != sim::Answer::Silent) pri.die();
        pri.setAnswer(YES);
        pri.identityResult = pri.hwAddrResult = 1;
        if (c.answer != sim::Answer::Silent) pri.start();
        b.run(10);
        EXPECT_EQ(b.sent(KVD_TUIIF_INITIATE_SERVICE_REQ), 1u);
        EXPECT_TRUE(b.mp().connected());
        if (!c.isThere) { EXPECT_EQ(pri.clients(), 0u) << "terminated again"; }
    }
}

// ---- the answer ----

TEST(InitiateService, IsTakenOnlyWithTheAgreedVersion)
{
    struct Case { u32 revision; u32 pv; bool taken; };
    for (const Case& c : {Case{4, 22, true}, Case{4, 21, false}, Case{4, 23, false}, Case{2, 22, false},
                          Case{5, 22, false}}) {
        SCOPED_TRACE(testing::Message() << c.revision << " " << c.pv);
        sim::NodeConfig config = IifBench::config();
        config.mainProcessor.signalRevision = c.revision;
        config.mainProcessor.selectedPv = c.pv;
        IifBench b{config};
        b.initiate();
        b.run(5);
        EXPECT_EQ(b.startState(), c.taken ? 2u : 0u);
        EXPECT_EQ(b.traced(" and PV " + std::to_string(c.pv) + " . Requested signal revision = 2, wanted PV"),
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
               "SERVICE_SUS received. highestAvailablePV=20Wait until BVQ has restarted"},
          Case{sim::Answer::Reject, TUIIF_ERROR, TUIIF_BVQ_RESTARTED,
               "SERVICE_REJ received. highestAvailablePV=20Wait until BVQ has restarted"}}) {
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
        b.run(2 * 3'600);
        EXPECT_TRUE(bench::pktsyncInbox().empty()) << "dropped";
        for (const char* hours : {"to restart, waited=1 h", "to restart, waited=2 h"})
            EXPECT_EQ(b.traces(hours), 1u) << hours;

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
    b.inject(KvdTuiifInitiateServiceCfm{KVD_TUIIF_INITIATE_SERVICE_CFM, 4, 22, 3, 1, 0, 0, {}, 0});
    EXPECT_EQ(b.traces("no main processor is there, answer dropped"), 3u);
    EXPECT_EQ(b.startState(), TUIIF_BVQ_RESTARTED);
    b.mp().start();
    b.run(5);
    EXPECT_EQ(b.startState(), TUIIF_START_RESTART_READY);
}

TEST(Waits, OfAnExchangeSayWhatTheyWaitForUpToTheirLimit)
{
    IifBench b;
    b.node.system().call(*b.node.program(), [] {
        static constexpr SIGSELECT NOTHING[] = {1, 0x1FFFF};
        KvdMgrExchange exchange{TRACE_TUIIFADM, "The server", 25'000};
        EXPECT_EQ(KvdLoz6TuMgr_await(exchange, NOTHING, "its word"), nullptr);
        EXPECT_EQ(exchange.waited_ms, 25'000u);
        exchange = {TRACE_TUIIFADM, "The server", 1'000};
        EXPECT_TRUE(KvdLoz6TuMgr_pause(exchange, 400) && KvdLoz6TuMgr_pause(exchange, 400));
        EXPECT_FALSE(KvdLoz6TuMgr_pause(exchange, 200));
        EXPECT_TRUE(KvdLoz6TuMgr_pause(exchange, 199));
        EXPECT_EQ(exchange.waited_ms, 999u);
        exchange = {TRACE_TUIIFADM, "The server", 0};
        EXPECT_TRUE(KvdLoz6TuMgr_pause(exchange, 9'000));
    }, 15, "waits");
    for (const char* waited : {"waits for its word, waited=10 s", "waits for its word, waited=20 s",
                               "goes on without its word, waited=25000 ms"})
        EXPECT_EQ(b.traces(waited), 1u) << waited;
    EXPECT_EQ(b.traces("The server doesn't answer"), 3u);
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
    EXPECT_EQ(b.sent(KVD_TUIIF_OSC_TEMPERATURE_STATE_IND), 1u);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), KVD_TUIIF_UNKNOWN);
    EXPECT_EQ(b.clock(), KVD_TUIIF_UNKNOWN);
    EXPECT_EQ(b.sent(KVD_TUIIF_BVQ_STATUS_IND), 0u);

    b.report(TRUETIME);   // the new peer hasn't selected anything yet
    EXPECT_EQ(b.sent(KVD_TUIIF_CALIBRATION_STATUS_IND), 1u) << "a new peer is told again";
    const auto status = b.take<KvdTuiifBvqStatusInd>(KVD_TUIIF_BVQ_STATUS_IND);
    ASSERT_TRUE(status);
    EXPECT_EQ(status->radioClockState, KVD_TUIIF_RNT_TIME_HOLDOVER);
    EXPECT_EQ(status->refState, 0u);
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
    for (const u8 role : {1, 0}) {
        IifBench b{bench::Negotiated{3, role}};
        b.connect();
        for (const SIGSELECT sigNo :
             {KVD_TUIIF_INITIATE_SERVICE_CFM, KVD_TUIIF_INITIATE_SERVICE_SUS, KVD_TUIIF_INITIATE_SERVICE_REJ,
              KVD_TUIIF_CHANGE_MASTER_TU_IND, KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ,
              KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ, KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM,
              KVD_TUIIF_SOCPRI_SCAN_LINK_REQ, KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ,
              KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD}) {
            SCOPED_TRACE(testing::Message() << std::hex << sigNo);
            b.inject(Signal{sigNo});
            b.run(0.1);
            EXPECT_EQ(b.startState(), TUIIF_START_RESTART_READY);
            EXPECT_EQ(b.mp().log().size(), 0u);
            bool isAlive = false;
            b.in([&] { isAlive = true; });
            EXPECT_TRUE(isAlive);
        }
    }
}

TEST(ChangeOfRole, ToAnUnknownOneIsStoredAndNoMore)
{
    IifBench b;
    b.connect();
    b.in([] { KvdLoz6TuRef_selectSynchRef(GPS_REF, 1, 2); });
    b.mp().changeMaster(3, 2);
    b.run(0.1);
    EXPECT_TRUE(b.traced("Unavailable master/slave mode received 2 "));
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_storedMasterSlaveMode), 2);
    EXPECT_EQ(b.look(KvdLoz6TuReg_isMaster), 1);
    EXPECT_EQ(b.look(KvdLoz6TuRef_selectedRef), GPS_REF);
}

// The loop that a restarted main processor finds goes on, and only that one's count stays as it is.
TEST(AlignmentToGroup, IsRefusedWhereTheLoopCameBack)
{
    struct Case { std::vector<u8> selected; u32 pllState; bool refused; };
    for (const Case& c : std::to_array<Case>({{{SOCPRI_REF}, PLL_Locked, true},
                                              {{SOCPRI_REF}, PLL_Uninitialized, false},
                                              {{GPS_REF, SOCPRI_REF}, PLL_Locked, false},
                                              {{GPS_REF}, PLL_Locked, false}})) {
        IifBench b;
        b.connect();
        b.mp().restart(ose::SEC);
        b.run(5);
        for (const u8 refType : c.selected) b.select(refType);
        b.in([&] { KvdLoz6TuReg_pll_setState(c.pllState); });
        b.mp().sendLayout(
            KvdTuiifSocpriBfnAlignToGroupReq{KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, 1, 1, 5, 3});
        b.run(0.1);
        EXPECT_EQ(b.sent(KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP), c.refused ? 1u : 0u);
    }
}

// A day after the start, the lock that was forced is over; a loop on the sync link has its own word.
TEST(ForcedLock, EndsWithTheRegulatorsStateUnlessTheSyncLinksLoopRuns)
{
    for (const u8 refType : {GPSOSL_REF, SOCPRI_REF}) {
        IifBench b;
        b.connect();
        b.select(refType);
        b.report(FREQLOCKED);
        b.in([] { KvdLoz6TuReg_pll_setState(PLL_Unlocked); });
        b.inject(Signal{KVD_FORCED_LOCKED_TIMEOUT_IND});
        EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState) == KVD_TUIIF_FREQUENCY_LOCKED,
                  refType == GPSOSL_REF);
    }
}

TEST(LinkTypeOrder, IsConfirmedAndTakenByTheRightUnit)
{
    struct Case { const char* when; u32 apn; u32 isMasterServer; const char* trace; };
    for (const Case& c :
         {Case{"other unit", 1, 1, "KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ Signal received by wrong slave DU!"},
          Case{"not the server", 2, 0,
               "Master should not be server. Don't handle signal. idlType = 0, idl2Type = 1"},
          Case{"right one", 2, 1, nullptr}}) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config = IifBench::config();
        config.apn = c.apn;
        IifBench b{config};
        b.connect();
        b.mp().sendLayout(
            KvdTuiifIdl2SetMasterServerCfm{KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM, c.isMasterServer});
        b.mp().sendLayout(KvdTuiifIdl2SelectIdlTypeReq{KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ, 1, 3});
        b.run(0.1);
        EXPECT_EQ(b.sent(KVD_TUIIF_IDL2_SELECT_IDL_TYPE_CFM), 1u);
        EXPECT_EQ(b.traces("wrong slave DU!") + b.traces("Master should not be server"),
                  c.trace != nullptr ? 1u : 0u);
        if (c.trace != nullptr) { EXPECT_TRUE(b.traced(c.trace)); }
    }
}

}  // namespace
