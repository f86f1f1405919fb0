// The ESMC client at its edges: refused calls of the service, lengths that lie, timers whose expiry is late,
// buffers that aren't its own. And a whole unit with the node's service and a peer: what outlives a service.
#include "refs/slowpi_bench.h"
#include "sim/refs/esmc_peer.h"
#include "tests/support/unit_bench.h"

namespace {

using bench::FakeService;
using bench::SlowpiBench;
using bench::Told;
using namespace slowpi;

constexpr const char* INFO_4 = "0180c2000002aabbccddeeff88090a0019a70001100000000100040400000000";
constexpr const char* EVENT_2 = "0180c2000002aabbccddeeff88090a0019a70001180000000100040200000000";

Told level(u32 q) { return {"KVD_TUIIF_QUALITY_LEVEL_IND", {5, 7, q, 0}}; }

// ---- the service ------------------------------------------------------------------------------

TEST(SlowpiService, ARefusedStartLeavesEverythingElseAlive)
{
    struct Case { const char* what; FakeService service; const char* trace; u32 freed; };
    for (const Case& c : {
             Case{"no memory", {.hasMemory = false}, " Not able to initiate proxy slowpi memory.", 0},
             Case{"refused", {.initiateResult = 3}, "Slowpi_initiateServiceReq() failed: result= 3", 1}}) {
        SCOPED_TRACE(c.what);
        SlowpiBench b{c.service};
        EXPECT_EQ(b.levelOf(c.trace), 1);
        EXPECT_EQ(b.service.freed, c.freed);
        b.cfm();                                       // nobody asked
        b.mode(1);
        b.supervise(1);
        b.subscribeRsp(9);
        b.frame(INFO_4);
        EXPECT_EQ(b.state().slowpiState, IF_DOWN);
        EXPECT_EQ(b.state().supervisionState, 1u);     // kept for when the service comes
        EXPECT_TRUE(b.takeTold().empty());
    }
}

TEST(SlowpiService, RefusedRequestsAreTraced)
{
    SlowpiBench b;
    b.cfm();
    b.service.subscribeResult = 3;
    b.supervise(1);
    EXPECT_EQ(b.traces("Unable to subscribe/unsubscribe from SLOWPI"), 1u);
    EXPECT_EQ(b.state().slowpiState, IF_UP);
    b.service.subscribeResult = 0;
    b.supervise(1);                                    // the next order tries again
    b.service.sendResult = 6;
    b.subscribeRsp();
    EXPECT_EQ(b.levelOf("Slowpi_sendFrameInd() failed: result= 6"), 1);
    EXPECT_TRUE(b.state().heartBeat.timer.runs());          // and so does the next second
    b.service.subscribeResult = 3;
    b.stopSupervision();
    EXPECT_EQ(b.levelOf("Unable to unsubscribe from SLOWPI"), 1);
    EXPECT_FALSE(b.state().heartBeat.timer.runs());
}

/// The frame is as long as its signal, whatever the length field says; a signal without one isn't a frame.
TEST(SlowpiFrames, ALyingLengthReadsNothingBehindTheSignal)
{
    SlowpiBench b;
    b.toQlSend();
    b.frame(bench::bytesOf(INFO_4), 0xFFFFFFFF);
    EXPECT_EQ(b.takeTold(), (std::vector<Told>{level(4)}));
    b.frame(bench::bytesOf(EVENT_2), 31);
    EXPECT_EQ(b.traces("ESMC received with too short frame 31 bytes."), 1u);
    const std::vector<u8> whole = bench::bytesOf(INFO_4);
    for (const u32 length : {14u, 16u}) b.frame({whole.begin(), whole.begin() + length}, 1500);
    EXPECT_EQ(b.traces("frame_len 14 bytes, code=28"), 1u);
    EXPECT_EQ(b.traces("frame_len 16 bytes, code=16"), 1u);
    const u32 frames = b.state().nmbOfFrames;
    for (const SIGSELECT sigNo : {SLOWPI_RECEIVE_FRAME_IND, SLOWPI_SUBSCRIBE_RSP, SLOWPI_UNSUBSCRIBE_RSP,
                                  KVD_TUIIF_SYNCH_PATH_SUP_IND, KVD_TUIIF_SELECTION_MODE_CHANGE_IND})
        b.inject(sigNo);                               // number alone
    KvdTuiifSynchPathSupInd withoutAddress{KVD_TUIIF_SYNCH_PATH_SUP_IND, ETHA_REF, 0, 9, 7};
    b.inject(withoutAddress);
    EXPECT_EQ(b.state().nmbOfFrames, frames);
    EXPECT_EQ(b.state().slowpiState, IF_QL_RECEIVED);
    EXPECT_EQ(b.state().froId, 5u);
    b.in(KvdLoz6TuSlowpi_printInfo);
    EXPECT_NE(b.bus.shell.find("slowpiState            : IF_QL_RECEIVED (5)\n"), std::string::npos);
    EXPECT_TRUE(b.takeTold().empty());
}

// ---- timers and their buffers -----------------------------------------------------------------

/// A frame and the time-out it should have prevented lie in the queue together.
TEST(SlowpiTimers, AnExpiryInTheQueueBeginsTheRunThatAFrameStarted)
{
    SlowpiBench b;
    b.toQlSend();
    b.in([] {
        ose::delay(5210);                              // both timers expire into the queue meanwhile
        const std::vector<u8> bytes = bench::bytesOf(INFO_4);
        const u32 size = static_cast<u32>(bytes.size());
        Signal* sig = ose::alloc(static_cast<u32>(sizeof(SlowpiFrame)) + size, SLOWPI_RECEIVE_FRAME_IND);
        reinterpret_cast<SlowpiFrame*>(sig)->length = size;
        std::memcpy(reinterpret_cast<u8*>(sig) + sizeof(SlowpiFrame), bytes.data(), bytes.size());
        KvdLoz6TuSlowpi_dispatch(sig);
        ose::free_buf(&sig);
    });
    b.runFor_ms(5210);
    EXPECT_EQ(b.takeTold(), (std::vector<Told>{level(4)}));
    EXPECT_EQ(b.state().pduMissingAlarmRaised, 0u);
    EXPECT_TRUE(b.state().pduMissing.timer.runs());
    b.runFor_ms(5200);
    EXPECT_EQ(b.takeTold(), (std::vector<Told>{{"KVD_TUIIF_PDU_MISSING_IND", {5, 7, 1}}, level(255)}));
}

TEST(SlowpiTimers, TheSameTwoBuffersForGoodAndNoStrangers)
{
    SlowpiBench b;
    const Signal* const heartBeat = b.state().heartBeat.buffer;
    const Signal* const pduMissing = b.state().pduMissing.buffer;
    b.toQlSend();
    for (int i = 0; i < 20; ++i) {
        b.runFor_ms(1700);
        if (i % 4 == 0) b.frame(INFO_4);
        b.inject(SIGSELECT{KVD_SLOWPI_HEART_BEAT_IND});     // of somebody else: freed, nothing sent
        b.inject(SIGSELECT{KVD_SLOWPI_PDU_MISSING_IND});
    }
    EXPECT_EQ(b.traces("of no timer, dropped"), 40u);
    EXPECT_EQ(b.takeRequests().size(), 34u);
    EXPECT_EQ(b.state().heartBeat.buffer, heartBeat);
    EXPECT_EQ(b.state().pduMissing.buffer, pduMissing);
    b.mode(0);
    b.supervise(0);
    EXPECT_EQ(b.state().heartBeat.sig, heartBeat);          // idle; its end at unload is no leak
    EXPECT_EQ(b.state().pduMissing.sig, pduMissing);
}

TEST(SlowpiTimers, NoFreeTimerIsTracedAndTheNextStartTriesAgain)
{
    SlowpiBench b;
    b.toQlSend();
    b.system.faults().refuseTimers = 1;
    b.frame(INFO_4);
    EXPECT_EQ(b.levelOf("timer 0x9C6C1 failed to start"), 1);
    EXPECT_FALSE(b.state().pduMissing.timer.runs());
    b.frame(INFO_4);
    EXPECT_TRUE(b.state().pduMissing.timer.runs());
}

// ---- a whole unit -----------------------------------------------------------------------------

struct EsmcUnit : bench::Unit {
    sim::EsmcPeer a{node, {.port = 0, .ssm = 2}};

    explicit EsmcUnit(const std::function<void(sim::SlowpiServer&)>& script = {}) : bench::Unit(config())
    {
        if (script) script(slowpi());
        node.powerOn();
        run(8);
    }
    static sim::NodeConfig config()
    {
        sim::NodeConfig c;
        c.mainProcessor.selectionQlMode = 1;
        c.mainProcessor.references = {{.name = "a", .refType = ETHA_REF, .froId = 21, .froClassNo = 7}};
        return c;
    }
    sim::SlowpiServer& slowpi() { return node.slowpi(); }
    sim::MainProcessor& mp() { return node.mainProcessor(); }
    u32 state() { return now().slowpiState; }
    slowpi::State now() { return node.inProgram([] { return slowpi::state(); }); }
};

TEST(EsmcUnit, WaitsForAServiceThatRefusesUntilItsNextServer)
{
    struct Case { const char* what; std::function<void(sim::SlowpiServer&)> script; u32 state, then; };
    for (const Case& c : std::vector<Case>{
             {"suspended", [](auto& s) { s.setAnswer(sim::Answer::Suspend); }, IF_DOWN, IF_DOWN},
             {"rejected", [](auto& s) { s.setAnswer(sim::Answer::Reject); }, IF_DOWN, IF_DOWN},
             {"of an older version", [](auto& s) { s.highestPv = 0; }, IF_DOWN, IF_DOWN},
             {"silent", [](auto& s) { s.setAnswer(sim::Answer::Silent); }, IF_INITIATING, IF_QL_RECEIVED},
             {"not there yet", [](auto& s) { s.die(); }, IF_INITIATING, IF_INITIATING}}) {
        SCOPED_TRACE(c.what);
        EsmcUnit unit{c.script};
        EXPECT_EQ(unit.state(), c.state);
        EXPECT_EQ(unit.a.received(), 0u);
        unit.slowpi().setAnswer(sim::Answer::Accept);
        unit.slowpi().highestPv = 1;
        unit.run(5);
        EXPECT_EQ(unit.state(), c.then);               // only a silent one is asked again
        unit.slowpi().die();
        unit.run(1);
        unit.slowpi().start();
        unit.run(3);
        EXPECT_EQ(unit.state(), IF_QL_RECEIVED);
        EXPECT_EQ(unit.slowpi().connections(), c.then == IF_QL_RECEIVED ? 2u : 1u);
    }
}

/// Both buffers idle, armed, or with the service away: none is a leak, and the next load begins anew.
TEST(EsmcUnit, RestartsLeaveNothingBehind)
{
    EsmcUnit unit;
    unit.node.restartWarm();
    unit.run(8);
    EXPECT_EQ(unit.state(), IF_QL_RECEIVED);
    EXPECT_EQ(unit.slowpi().connections(), 2u);
    unit.mp().superviseByName("a", false);
    unit.run(1);
    EXPECT_FALSE(unit.now().heartBeat.timer.runs());
    unit.node.restartWarm();
    unit.slowpi().die();
    unit.run(8);
    EXPECT_EQ(unit.state(), IF_INITIATING);
    unit.node.restartCold();
    unit.slowpi().start();
    unit.run(8);
    EXPECT_EQ(unit.state(), IF_QL_RECEIVED);
}

}  // namespace
