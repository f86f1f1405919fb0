// kvd_slowpi_int.h - State of the ESMC client, and the service's operations as it calls them.
#pragma once
#include "base/kvd_timer.h"
#include "node/slowpi.h"
#include "ose/types.h"
#include "refs/kvd_slowpi_esmc.h"

struct Signal;

namespace slowpi {

enum SlowpiState : u32 {
    IF_DOWN = 0,
    IF_INITIATING = 1,
    IF_UP = 2,             // not subscribed
    IF_SUBSCRIBED = 3,     // sending, received quality isn't used
    IF_QL_SEND = 4,        // no quality level taken yet
    IF_QL_RECEIVED = 5,
};

constexpr u8 SSM_NONE = 255;
constexpr OSTIME HEART_BEAT_TIME = 1000;     // ms; ITU-T G.8264 11.3.2.1: one information PDU a second
constexpr OSTIME PDU_MISSING_TIME = 5200;    // ms; five periods of the peer's and a margin

/// A timer that is armed with the same buffer again and again. The buffer is here while it doesn't run,
/// and in the queue from its expiry until it is dispatched. One that is started anew meanwhile gets another,
/// and the late one is freed.
struct BufferTimer {
    OSTIME duration_ms = 0;
    SIGSELECT sigNo = 0;
    KvdTimer timer;
    Signal* sig = nullptr;         // held; nullptr while armed or queued
    const Signal* buffer = nullptr;
};

struct State {
    node::SlowpiContext* proxy = nullptr;
    u32 slowpiState = IF_DOWN;
    u8  selectionProcessMode = 0;
    u32 supervisionState = 0;
    u32 froId = 0;
    u8  SSM = SSM_NONE, previousSSM = SSM_NONE;
    u32 nmbOfEventMessages = 0;
    u32 nmbOfFrames = 0;           // received while their quality was used
    u32 nmbOfRejectedFrames = 0;   // of these
    u32 tcuDetected = 0;
    u32 pduMissingAlarmRaised = 0;
    BufferTimer heartBeat, pduMissing;
    KvdTimer answerTimer;          // the service owes an answer
    EsmcFrame frame{};             // zero until the service was asked for
    const struct Needs* needs = nullptr;
};
State& state();
const char* stateText(u32 slowpiState);
const char* enabledText(u32 value);          // 1 is enabled

/// Operations of the service, see node/slowpi.h.
struct Needs {
    node::SlowpiContext* (*initiateMemory)();
    void (*freeMemory)(node::SlowpiContext*);
    u32 (*initiateServiceReq)(node::SlowpiContext*, u32, u32, u32);
    u32 (*internal)(node::SlowpiContext*, const Signal*);
    u32 (*subscribeReq)(node::SlowpiContext*, u8, u32);
    u32 (*unsubscribeReq)(node::SlowpiContext*, u8, u32);
    u32 (*sendFrameInd)(node::SlowpiContext*, u32, const u8*);
    u32 (*askAgain)(const node::SlowpiContext*);
};
/// For tests; nullptr puts the node's own back.
void setNeeds(const Needs* replacement);

}  // namespace slowpi
