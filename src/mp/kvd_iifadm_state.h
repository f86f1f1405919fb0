// kvd_iifadm_state.h - State of the interface to the main processor, and the steps that its sources, here and
// in src/iif, offer each other.
// Owner   the manager process, kvd_iifadm*.cpp.
#pragma once
#include "base/kvd_timer.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "sig/ref_types.h"
#include "sig/reg_types.h"
#include "sig/tuiif_sig.h"

constexpr SIGSELECT KVD_TUIIF_ANSWER_TMO = 0x9C692;   // timer, no data

namespace tuiif {

/// What is known of the clock and the selection; what the status is made of.
struct SavedBvqStatusData {
    u8 selectedRef = NO_REF;              // RefType, as are the next two
    u8 prevSelectedRef = NO_REF;
    u8 prevPrevSelectedRef = NO_REF;
    u8 lastRegulatorState = KVD_TUIIF_UNKNOWN;
    bool ltrStatus = false;               // while the hardware can't follow a reference
    u8 masterSlaveMode = KVD_TUIIF_SLAVE_TU;
    u8 radioClockState = KVD_TUIIF_UNKNOWN;
    u8 activRefDegrStatus = KVD_TUIIF_NOT_VALID;
    u8 activRefLtrStatus = KVD_TUIIF_NOT_VALID;
    u32 activRefFroId = FRO_NONE;
    u32 activRefFroClassNo = FRO_NONE;
    u8 gpsOut = KVD_TUIIF_GPSOUT_DISABLED;
    u8 hptsiOut = 0;
    u8 timeMode = 0;
    u32 tuiifRefState = 0;
    u32 remoteRCState = REMOTE_RC_UNKNOWN;
};

struct LatestSentBvqStatusInd {
    bool sentBvqStatusInd = false;        // not yet: the next status goes, whatever it says
    u8 radioClockState = KVD_TUIIF_UNKNOWN;
    u32 refState = 0;
    u8 activRefLtrStatus = KVD_TUIIF_NOT_VALID;
    u8 activRefDegrStatus = KVD_TUIIF_NOT_VALID;
    u32 activRefFroId = FRO_NONE;
    u32 activRefFroClassNo = FRO_NONE;
};

constexpr u32 STATUS_TEXT_SIZE = 128;     // bytes with the terminator
struct StatusRecord {
    u8 status = 0;
    char text[STATUS_TEXT_SIZE] = "   ";
};

struct HoldoverThreshold {
    u32 minutes = 0;                      // 0: none
    KvdTimer timer;
};

struct State {
    // Connection. startState and the peer are read by packet sync's process too.
    u32 startState = TUIIF_LOZ6_STARTED;
    PROCESS nsPid = 0;
    PROCESS procTuiifMpPid = 0;
    AttachRef nsAttach = 0;
    AttachRef peerAttach = 0;
    u32 firstPriCall = 0;                 // 1: the own identity is known
    u32 ownPiuInstanceId = 0;
    struct { u32 smn = 0, apn = 0; } ownPiuHwAddr_r;
    u32 tuiifServerUp = 0;
    u32 msiMemInitiated = 0;
    KvdTimer answerTimer;                 // the main processor owes its answer to the request
    bool everConfirmed = false;           // the components have been started in this life
    bool pktsyncUp = false;               // packet synchronisation holds this connection for up

    SavedBvqStatusData savedBvqStatusData;
    LatestSentBvqStatusInd latestSentBvqStatusInd;
    bool forceSend = false;

    u8 calibrationStatus = KVD_TUIIF_UNCALIBRATED;
    char calibrationExpirationDate[128] = "";
    u32 soonToExpire = 0;

    HoldoverThreshold threshold[3];       // by HoldoverClass
    KvdTimer forceLockedTimer;
    u32 latestSentTimeAccChangeInd = 0;   // ns
    u32 manualAccuracy = 0;
    u32 socpriMarker = 0;

    StatusRecord gps, hptsi{0, "NOT OK"}, gpsOsl;

    u32 isMasterServer = 0;               // of the inter-unit links, as the main processor says
};
State& state();

inline bool isReady() { return state().startState == TUIIF_START_RESTART_READY; }
inline bool isMaster() { return state().savedBvqStatusData.masterSlaveMode == KVD_TUIIF_MASTER_TU; }
inline u32 apn() { return state().ownPiuHwAddr_r.apn; }
inline u32 smn() { return state().ownPiuHwAddr_r.smn; }

/// To the main processor. Only with isReady().
template <typename T>
void sendToPeer(T*& sig)
{
    node::sendTo(state().procTuiifMpPid, sig);
}

// ---- kvd_iifadm_clock.cpp ----

/// The status as it stands, unless it was sent so already.
void sendBvqStatus();
/// The regulator's last word as clock state, when something else has changed that this depends on.
void showLastRegState();

// ---- kvd_iifadm_status.cpp ----

/// Back to what a main processor that knows nothing yet assumes.
void resetStatus();
/// After a change of the clock and at connection.
void updateCalibrationStatus();

}  // namespace tuiif
