// kvd_biraiifadm_int.h - What the sources of the BIRA client share: start negotiation and link
// indications (kvd_biraiifadm.cpp), hand-over of the hardware (kvd_biraiifadm_handover.cpp).
#pragma once
#include "base/kvd_answer.h"
#include "iif/kvd_biraiifadm.h"
#include "ose/ose.h"
#include "sig/bira_sig.h"

namespace bira {

/// What the server owes in the negotiation.
enum class Answer : u8 { None, Service, LinkType };

/// What the main processor orders of the server, which owes a confirmation.
struct Order {
    u32 value = 0;
    u8  synchPortNo = 0;
    bool isOwed = false;
};

struct State {
    PROCESS biraServPid = 0;
    AttachRef attach = 0;
    u32 isMaster = 0;
    u32 biraInitiated = 0;             // the link type has been received and acted on
    u32 biraUnavailable = 0;           // there is no server, or it refused
    u8  synchPortNo = 0;
    KvdTimer basicRestartTimer;
    KvdTimer idl1ClkStateTimer;
    u32 persistentFreqLock = 0;
    bool hunting = false;              // a hunt is out
    Answer awaits = Answer::None;
    KvdTimer answerTimer;
    Order idlType, persistentLock;
    KvdTimer orderTimer;
    KvdTimer handBackTimer;            // the server has the hardware back and is to lock its frequency
    u32 waited_ms = 0;                 // blocked for the server's answers, for the report
};
State& state();

inline bool isSlave() { return state().isMaster == 0; }

/// False, and traced, for a number that names no type of link.
bool isLinkType(u32 linkType);
/// What a link indication of the server brings, or an order of the main processor in its place. Of a known
/// type.
void linkIndication(const KvdBiraiifIdl2LinkInd& ind);
/// The slave takes the hardware and starts to tune its time on the link.
void takeOver();
/// Asks the server for its service, with the unit's role of now: nothing else tells it. Its answers come
/// later.
void requestService();
/// The orders that the server hasn't confirmed go to it again.
void sendOrders();
void onOrderTimeout();
void onHandBackTimeout();
void onSelectIdlTypeCfm();
/// And lets go of it; the server is told when `tell`.
void giveUp(bool tell);
/// The hardware of a master that was ordered to leave it to the server, whose order or life is over.
void takeBackAsMaster();
/// A slave's start from its warm data; `expired` is the link indication's data flag.
void initiateWithSlaveMsi(u32 expired);
/// "Stop using Slave MSI data.": the region then holds nothing but this clock status.
void resetSlaveMsi(u32 idpiClkStatus);
/// The main processor makes the other unit serve this one with time data while it tunes its time.
void tellMasterServer();
/// The link turned out, or has become, IDL1: this program takes the hardware of a slave.
void becomeIdl1Slave();

void onFreqLocked();
void onTogglePersistentFreqLockCfm();
void onBasicRestartTimeout();
void onIdl1ClkStateTimeout();
void startBasicRestartTimer();
void startIdl1ClkStateTimer();

}  // namespace bira
