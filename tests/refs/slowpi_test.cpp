// The ESMC client at its edges: refused calls of the service, answers in the wrong state, frames that
// aren't taken and what they do all the same, timers whose expiry is late, buffers that aren't its own.
#include "refs/slowpi_bench.h"

namespace {

using bench::FakeService;
using bench::SlowpiBench;
using bench::Told;
using namespace slowpi;

constexpr const char* INFO_4 = "0180c2000002aabbccddeeff88090a0019a70001100000000100040400000000";
constexpr const char* EVENT_2 = "0180c2000002aabbccddeeff88090a0019a70001180000000100040200000000";

Told level(u32 q, u32 tcu = 0, u32 froId = 5) { return {"KVD_TUIIF_QUALITY_LEVEL_IND", {froId, 7, q, tcu}}; }
Told missing(u32 on, u32 froId = 5) { return {"KVD_TUIIF_PDU_MISSING_IND", {froId, 7, on}}; }

std::string tagged(const std::string& hex) { return hex.substr(0, 24) + "8100006488b5" + hex.substr(28); }

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

TEST(SlowpiService, ServerDownAsksAgainAtOnceOrStaysDown)
{
    SlowpiBench b;
    b.toQlSend();
    b.service.initiateResult = 2;
    b.serverDown();
    EXPECT_EQ(b.levelOf("Slowpi_initiateServiceReq() failed with result= 2"), 1);
    EXPECT_EQ(b.state().slowpiState, IF_DOWN);
    EXPECT_FALSE(b.state().heartBeat.timer.runs());
    EXPECT_TRUE(b.state().pduMissing.timer.runs());
    b.cfm();                                           // in the wrong state
    EXPECT_EQ(b.state().slowpiState, IF_DOWN);
    b.service.initiateResult = 0;
    b.serverDown();
    b.cfm();
    EXPECT_EQ(b.takeRequests(), (std::vector<std::string>{"Slowpi_initiateServiceReq",
                                                          "Slowpi_initiateServiceReq",
                                                          "Slowpi_subscribeReq"}));
}

TEST(SlowpiService, AnswersInTheWrongState)
{
    struct Case {
        const char* what;
        std::function<void(SlowpiBench&)> before, answer;
        u32 state;
        std::vector<std::string> requests;
    };
    const auto nothing = [](SlowpiBench&) {};
    const auto up = [](SlowpiBench& b) { b.cfm(); };
    const auto used = [](SlowpiBench& b) { b.toQlSend(); };
    const std::string event = "Slowpi_sendFrameInd 0180c200000200000000000088090a0019a70001180000000100040f";
    for (const Case& c : std::vector<Case>{
             {"a second confirmation", used, up, IF_QL_SEND, {}},
             {"suspended in use", used, [](SlowpiBench& b) { b.sus(); }, IF_QL_SEND, {}},
             {"rejected after the confirmation", up, [](SlowpiBench& b) { b.rej(); }, IF_UP, {}},
             {"subscription refused", up, [](SlowpiBench& b) { b.subscribeRsp(7); }, IF_UP, {}},
             {"end of the subscription refused", used, [](SlowpiBench& b) { b.unsubscribeRsp(7); },
              IF_QL_SEND, {}},
             // Without supervision: given up again at once, after its one event PDU.
             {"subscribed, uncalled", up, [](SlowpiBench& b) { b.subscribeRsp(); }, IF_SUBSCRIBED,
              {"Slowpi_unsubscribeReq", event}},
             {"unsubscribed before the confirmation", nothing, [](SlowpiBench& b) { b.unsubscribeRsp(); },
              IF_UP, {}},
             {"unsubscribed, uncalled", used, [](SlowpiBench& b) { b.unsubscribeRsp(); }, IF_UP,
              {"Slowpi_subscribeReq"}}}) {
        SCOPED_TRACE(c.what);
        SlowpiBench b;
        c.before(b);
        b.clear();
        c.answer(b);
        EXPECT_EQ(b.state().slowpiState, c.state);
        EXPECT_EQ(b.takeRequests(), c.requests);
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

// ---- own frames -------------------------------------------------------------------------------

// ---- frames of the peer -----------------------------------------------------------------------

/// One wrong frame at a time, plain and behind a tag: no level, but the alarm falls and the timer starts.
TEST(SlowpiFrames, AFrameThatIsNotTakenStillProvesAPeer)
{
    struct Case { std::string hex; EsmcVerdict verdict; u8 code; bool hasTaggedForm; };
    const std::string head = "0180c2000002aabbccddeeff", good = INFO_4, end = "0000000100040400000000";
    for (const Case& c : {
             Case{"", EsmcVerdict::NoFrame, 1, false},
             Case{head + "88", EsmcVerdict::NoFrame, 1, false},
             Case{head + "88f70a0019a7000110" + end, EsmcVerdict::OtherEtherType, 2, false},
             Case{head + "88090a", EsmcVerdict::OtherProtocol, 4 | 16, true},
             Case{head + "8809", EsmcVerdict::OtherProtocol, 4 | 8 | 16, true},
             Case{head + "8809030019a7000110" + end, EsmcVerdict::OtherProtocol, 8, true},
             Case{head + "88090a0119a7000110" + end, EsmcVerdict::OtherProtocol, 16, true},
             Case{head + "88090a0019a6000110" + end, EsmcVerdict::OtherProtocol, 16, true},
             Case{good.substr(0, 62), EsmcVerdict::TooShort, 0, true},
             Case{head + "88090a0019a7", EsmcVerdict::TooShort, 0, true},
             Case{head + "88090a0019a7000210" + end, EsmcVerdict::BadSubtype, 0, true},
             Case{head + "88090a0019a70001100000000200040400000000", EsmcVerdict::BadTlvType, 0, true},
             Case{head + "88090a0019a70001100000000100050400000000", EsmcVerdict::BadTlvLength, 0, true}}) {
        for (const bool tag : {false, true}) {
            if (tag && !c.hasTaggedForm) continue;
            const std::string hex = tag ? tagged(c.hex) : c.hex;
            SCOPED_TRACE(hex);
            const EsmcReading reading = readEsmc(bench::bytesOf(hex));
            EXPECT_EQ(reading.verdict, c.verdict);
            EXPECT_EQ(reading.code, c.code);

            SlowpiBench b;
            b.toQlSend();
            b.pduMissing();
            EXPECT_EQ(b.takeTold(), (std::vector<Told>{missing(1), level(255)}));
            b.frame(hex);
            EXPECT_EQ(b.state().nmbOfRejectedFrames, 1u);
            EXPECT_EQ(b.state().slowpiState, IF_QL_SEND);
            EXPECT_TRUE(b.state().pduMissing.timer.runs());
            EXPECT_EQ(b.takeTold(), (std::vector<Told>{missing(0)}));
            b.frame(INFO_4);                           // the next good one is taken
            EXPECT_EQ(b.takeTold(), (std::vector<Told>{level(4)}));
        }
    }
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
    b.frame({}, 1500);
    EXPECT_EQ(b.traces("frame_len 0 bytes, code=1"), 1u);
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
    const std::function<void()> busy = [] {
        ose::delay(5210);                              // both timers expire into the queue meanwhile
        const std::vector<u8> bytes = bench::bytesOf(INFO_4);
        Signal* sig = ose::alloc(static_cast<u32>(sizeof(SlowpiFrame) + bytes.size()),
                                 SLOWPI_RECEIVE_FRAME_IND);
        reinterpret_cast<SlowpiFrame*>(sig)->length = static_cast<u32>(bytes.size());
        std::memcpy(reinterpret_cast<u8*>(sig) + sizeof(SlowpiFrame), bytes.data(), bytes.size());
        KvdLoz6TuSlowpi_dispatch(sig);
        ose::free_buf(&sig);
        EXPECT_EQ(slowpi::state().pduMissing.timer.stale, 1u);
    };
    b.in(busy);
    b.runFor_ms(5210);
    EXPECT_EQ(b.takeTold(), (std::vector<Told>{level(4)}));
    EXPECT_EQ(b.state().pduMissingAlarmRaised, 0u);
    EXPECT_TRUE(b.state().pduMissing.timer.runs());
    b.runFor_ms(5200);
    EXPECT_EQ(b.takeTold(), (std::vector<Told>{missing(1), level(255)}));
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

}  // namespace
