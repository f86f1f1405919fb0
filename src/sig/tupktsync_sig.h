// tupktsync_sig.h - Signals between the manager and the packet process, and their layouts.
#pragma once
#include "ose/types.h"

#include <array>
#include <cstddef>

constexpr SIGSELECT TUPKTSYNC_PTP_PACKET_IND           = 0x9C660;   // packet sync -> manager
constexpr SIGSELECT TUPKTSYNC_CLOCK_RQMT_IND           = 0x9C661;   // manager -> packet sync
constexpr SIGSELECT TUPKTSYNC_PTP_PACKET_PEERDELAY_IND = 0x9C662;   // packet sync -> manager
constexpr SIGSELECT TUPKTSYNC_NTP_PACKET_IND           = 0x9C663;   // packet sync -> manager
constexpr SIGSELECT TUPKTSYNC_REF_SELECTION_IND        = 0x9C664;   // manager -> packet sync
constexpr SIGSELECT TUPKTSYNC_TUIIF_DOWN_IND           = 0x9C666;   // manager -> packet sync, no data
constexpr SIGSELECT TUPKTSYNC_TUIIF_UP_IND             = 0x9C667;   // manager -> packet sync
constexpr SIGSELECT TUPKTSYNC_REG_IND                  = 0x9C668;   // regulator -> packet sync
constexpr SIGSELECT TUPKTSYNC_DRV_ANSWER_TMO           = 0x9C669;   // timer, no data
constexpr SIGSELECT TUPKTSYNC_CFI_ANSWER_TMO           = 0x9C66A;   // timer, no data
constexpr SIGSELECT TUPKTSYNC_IPSOCKI_ANSWER_TMO       = 0x9C66B;   // timer, no data
constexpr SIGSELECT TUPKTSYNC_AUDIT_ANSWER_TMO         = 0x9C66C;   // timer, no data

/// One PTP exchange. T1 and T4 are stamps of the master, T2 and T3 of this node.
struct TuPktsyncPtpPacketInd {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    u32 logSyncInterval;             // as ms
    u64 T1s; u32 T1f; u32 reserved1; // s, ns
    u64 T2s; u32 T2f; u32 reserved2;
    u64 T3s; u32 T3f; u32 reserved3;
    u64 T4s; u32 T4f;
    i32 asymComp;                    // ns
};
static_assert(offsetof(TuPktsyncPtpPacketInd, T1s) == 16 && offsetof(TuPktsyncPtpPacketInd, T2s) == 32);
static_assert(offsetof(TuPktsyncPtpPacketInd, T3s) == 48 && offsetof(TuPktsyncPtpPacketInd, T4s) == 64);
static_assert(offsetof(TuPktsyncPtpPacketInd, asymComp) == 76 && sizeof(TuPktsyncPtpPacketInd) == 80);

/// Two stamps of a peer delay exchange.
struct TuPktsyncPtpPacketPeerdelayInd {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    u32 reserved;
    u64 T1s; u32 T1f; u32 reserved1;
    u64 T2s; u32 T2f; u32 reserved2;
};
static_assert(sizeof(TuPktsyncPtpPacketPeerdelayInd) == 48);

/// One NTP exchange: seconds and 2^-32 s of T1 to T4 in turn.
struct TuPktsyncNtpPacketInd {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    std::array<u32, 8> T;
};
static_assert(sizeof(TuPktsyncNtpPacketInd) == 44);

enum TuPktsyncSelectOperation : u32 { PKTSYNC_SELECT = 0, PKTSYNC_DESELECT = 1, PKTSYNC_DESELECT_ALL = 2 };

struct TuPktsyncRefSelectionInd {
    SIGSELECT sigNo;
    u32 froId, froClassNo;
    u32 selectOperation;
    PROCESS timestampConsumerPid;
};
static_assert(sizeof(TuPktsyncRefSelectionInd) == 20);

/// What the regulator requires of a packet flow and its master.
struct TuPktsyncClockRqmt {
    u32 minPktInterval, maxPktInterval;           // ms
    u8  freqClockClass, freqClockAccuracy;
    u8  timeClockClass, timeClockAccuracy;
    u8  stratumLevel;
    std::array<u8, 5> freqClockClassG8265_1;      // classes of ITU-T G.8265.1 that will do as well
    bool operator==(const TuPktsyncClockRqmt&) const = default;
};
static_assert(offsetof(TuPktsyncClockRqmt, freqClockClassG8265_1) == 13);

struct TuPktsyncClockRqmtInd {
    SIGSELECT sigNo;
    TuPktsyncClockRqmt rqmt;
};
static_assert(sizeof(TuPktsyncClockRqmtInd) == 24);

struct TuPktsyncTuiifUpInd {
    SIGSELECT sigNo;
    u32 board;                       // 2 on board type 2, else 1
};
static_assert(sizeof(TuPktsyncTuiifUpInd) == 8);

/// What the regulator makes of the selected clock.
struct TuPktsyncRegInd {
    SIGSELECT sigNo;
    u32 reserved;
    i64 offsetFromMaster;            // ns * 2^16
    i64 meanPathDelay;               // ns
};
static_assert(sizeof(TuPktsyncRegInd) == 24);
