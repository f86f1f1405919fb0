// tupktsync_ptp_protocol.h - A slave-only ordinary clock of IEEE 1588-2008 for each packet reference
// that uses PTP: selects a master, supervises its messages, gathers T1 to T4 and hands them on. It
// doesn't compute an offset.
// Owner   Kvd_loz6_tupktsync_proc.
// Units   intervals in ms; stamps of this node s and 2^-32 s, of the master s and ns.
// Errors  a message that can't be used is dropped with a trace and changes nothing; what an Announce or
//         a Sync has stored before it is refused stays.
#pragma once
#include "pktsync/tupktsync_ptp_msg.h"
#include "pktsync/tupktsync_ts_collect.h"
#include "sig/ref_types.h"

#include <array>

constexpr u32 PTP_CLOCKS = 8;
constexpr std::array<u32, PTP_CLOCKS> PTP_CLOCK_IDS{0, 1, 2, 3, 4, 5, 6, 7};   // syncrefIds

enum PtpProfile : u8 { IEEE_1588_J3 = 0, ITU_T_G_8275_1 = 1 };
enum PtpMulticastAddress : u8 { FORWARDABLE = 0, NON_FORWARDABLE = 1 };
enum PtpMapping : u8 { PTP_ETHERNET = 0, UDP_UC = 1, UDP_MC = 2 };

constexpr u32 PTP_POOL_SYNC = 0, PTP_POOL_DELAY = 1;

enum PtpPortState : u32 {
    PRE_INIT = 0, INITIALIZING, FAULTY, DISABLED, LISTENING, PRE_MASTER, MASTER, PASSIVE,
    UNCALIBRATED, SLAVE,
};
enum PtpPortStateEvent : u32 {
    POWERUP = 0, INITIALIZE, INITIALIZE_READY, DESIGNATED_ENABLED, DESIGNATED_DISABLED,
    FAULT_CLEARED, FAULT_DETECTED, STATE_DECISION_EVENT, REC_STATE_BMC_SLAVE,
    REC_STATE_BMC_SLAVE_NEW_MASTER, QUALIFICATION_TIMEOUT_EXPIRES,
    ANNOUNCE_RECEIPT_TIMEOUT_EXPIRES, SYNCHRONIZATION_FAULT, MASTER_CLOCK_SELECTED,
};

/// A host: family 4 or 6, and as many octets of the address.
struct PktIpAddress {
    u32 family = 0;
    std::array<u8, 16> octets{};
    bool operator==(const PktIpAddress&) const = default;
};

/// What the regulator requires of the flow and the master; the defaults hold until it has told.
struct PtpClockRqmt {
    u32 maxSyncInterval = 1000, minSyncInterval = 125, maxDelayReqInterval = 1000;
    u8  clockClass = 248;
    std::array<u8, 5> freqClockClassG8265_1{};
    u8  clockAccuracy = 0xFE;
};

struct PtpClockSetup {
    u32 syncrefId = 0;                 // 0 to 7
    u32 froId = 0;
    u32 froClassNo = 0;             // PACKET_TIME_FRO_CLASS or PACKET_FREQ_FRO_CLASS
    u8  ptpMapping = PTP_ETHERNET;
    u8  domainNumber = 0;
    PktIpAddress serverIpAddress;
    PtpClockIdentity clockIdentity{};
    i32 delayAsymmetry = 0;            // ns
    bool peerDelayMechanism = false;
    u8  dscp = 0;
    u8  pbit = 0;
    u8  ptpProfile = IEEE_1588_J3;
    u8  ptpMulticastAddress = FORWARDABLE;
    i32 eventSocket = -1, generalSocket = -1;
    PtpClockRqmt rqmt;
};

/// How a message leaves.
struct PtpDescriptor {
    u8  ptpMapping = PTP_ETHERNET;
    u8  ptpMulticastAddress = FORWARDABLE;
    u8  pbit = 0;
    u8  dscp = 0;
    i32 socket = -1;
    PktIpAddress serverIpAddress;
};

/// One exchange as it goes to the regulator.
struct PtpExchange {
    u32 froId = 0, froClassNo = 0;
    u32 interval_ms = 0;               // of the Sync messages
    u64 T1s = 0, T2s = 0, T3s = 0, T4s = 0;
    u32 T1f = 0, T2f = 0, T3f = 0, T4f = 0;   // ns
    i32 asymComp = 0;                  // ns
};

/// What the clocks reach outside of themselves, all of it. Set once, before the first clock.
struct PtpNeeds {
    void (*reportFaults)(u32 froId, u32 froClassNo, u32 fault_flags);
    void (*reportQuality)(u32 froId, u32 froClassNo, u8 quality);
    void (*profileChanged)(u8 ptpProfile);
    void (*sendExchange)(const PtpExchange& exchange);
    /// ns of this board's port: egress less ingress.
    i32 (*latencyAsymmetry)();
    /// Sends a message of the descriptor's transport; the eight octets of `metadata`, where given, come
    /// back with the egress stamp. False without a send buffer.
    bool (*send)(const PtpDescriptor& descriptor, const u8* message, u32 length, const u8* metadata);
};
void TuPktsync_PTP_init(const PtpNeeds& needs);

/// True when the clock stands, false when the peer delay mechanism is asked for or the place is taken.
bool TuPktsync_new_ptp_clock(const PtpClockSetup& setup);
void TuPktsync_delete_ptp_clock(u32 syncrefId);
void TuPktsync_change_ptp_clock(u32 syncrefId, i32 delayAsymmetry, u8 pbit, u8 dscp, u8 ptpProfile);
/// A received message without its transport's headers; `server` of one that came over IP.
void TuPktsync_handle_ptp_message(const u8* message, u32 length, const PtpStamp& received,
                                  const PktIpAddress* server);
void TuPktsync_set_ptp_path_supervision(u32 syncrefId, u32 on);
void TuPktsync_set_ptp_selected(u32 syncrefId, u32 selected);
/// PtpProfile of the clock; nullptr without one.
const u8* TuPktsync_PTP_getProfile(u32 syncrefId);
void TuPktsync_PTP_clockRqmtInd(u32 syncrefId, u32 minPktInterval, u32 maxPktInterval, u8 clockClass,
                                const std::array<u8, 5>& classes, u8 clockAccuracy);
/// TUPKTSYNC_TMO_IND of a clock's timer.
void TuPktsync_PTP_TmoSig(u32 syncrefId, u32 timerId, u32 index);
/// The driver's stamp of a message that was sent with this metadata.
void TuPktsync_PTP_egressTimestamp(const u8* metadata, const PtpStamp& sent);
/// What the regulator found of the selected clock, -1 for none; ns * 2^16, ns.
void TuPktsyncPTP_handleRegInd(i32 syncrefId, i64 offsetFromMaster, i64 meanPathDelay);
/// Class or QualityLevelIndex of a supervised clock, 255 when it has none to tell.
u8   TuPktsyncPTP_findClockQuality(u32 syncrefId);
/// Reports the quality of every supervised clock.
void TuPktsyncPTP_reportQualities();

// Of the clock's own parts.
void TuPktsyncPTP_TS_set_ready(u32 userReference, const TsPosition& set);
void ptpSendDelayReq(u32 syncrefId, u16 sequenceId);
/// Sends a message on the clock's general path; false without a send buffer.
bool ptpSendGeneral(u32 syncrefId, const u8* message, u32 length);
/// ns of a fraction in 2^-32 s, cut down.
constexpr u32 ptpFraction_ns(u32 fraction) { return static_cast<u32>((u64{fraction} * 1'000'000'000) >> 32); }
const char* ptpPortStateText(u32 portState);
