// tupktsync_ptp_msg.h - PTP messages on the wire (IEEE 1588-2008 clause 13): what the slave reads, and
// the Delay_Req and Signaling messages that it sends. Stateless; multi-octet fields are big-endian.
// Callers make sure that a message is as long as its reader needs.
#pragma once
#include "ose/types.h"

#include <array>

enum PtpMessageType : u8 {
    PTP_SYNC = 0, PTP_DELAY_REQ = 1, PTP_PDELAY_RESP = 3, PTP_FOLLOW_UP = 8, PTP_DELAY_RESP = 9,
    PTP_PDELAY_RESP_FOLLOW_UP = 10, PTP_ANNOUNCE = 11, PTP_SIGNALING = 12,
};

using PtpClockIdentity = std::array<u8, 8>;

struct PtpPortIdentity {
    PtpClockIdentity clockIdentity{};
    u16 portNumber = 0;
    bool operator==(const PtpPortIdentity&) const = default;
};
/// Matches any port (13.12.1).
constexpr PtpPortIdentity PTP_ANY_PORT{{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0xFFFF};

struct PtpClockQuality {
    u8  clockClass = 0;
    u8  clockAccuracy = 0;
    u16 offsetScaledLogVariance = 0;
    bool operator==(const PtpClockQuality&) const = default;
};

// Octets of a whole message, header included.
constexpr u32 PTP_HEADER_LENGTH = 34;
constexpr u32 PTP_DELAY_REQ_LENGTH = 44;

// flagField, first octet.
constexpr u8 PTP_ALTERNATE_MASTER = 0x01, PTP_TWO_STEP = 0x02, PTP_UNICAST = 0x04;
// flagField, second octet.
constexpr u8 PTP_LEAP61 = 0x01, PTP_LEAP59 = 0x02, PTP_UTC_OFFSET_VALID = 0x04, PTP_TIMESCALE = 0x08,
             PTP_TIME_TRACEABLE = 0x10, PTP_FREQUENCY_TRACEABLE = 0x20;

struct PtpHeader {
    u8  messageType = 0;
    u8  versionPTP = 0;
    u16 messageLength = 0;
    u8  domainNumber = 0;
    std::array<u8, 2> flagField{};
    i64 correctionField = 0;           // ns * 2^16
    PtpPortIdentity sourcePortIdentity;
    u16 sequenceId = 0;
    u8  controlField = 0;
    i8  logMessageInterval = 0;
};

/// Seconds modulo 2^32, which the program's stamps hold, and ns.
struct PtpTimestamp {
    u32 seconds = 0;
    u32 nanoseconds = 0;
};

struct PtpAnnounce {
    i16 currentUtcOffset = 0;
    u8  grandmasterPriority1 = 0;
    PtpClockQuality grandmasterClockQuality;
    u8  grandmasterPriority2 = 0;
    PtpClockIdentity grandmasterIdentity{};
    u16 stepsRemoved = 0;
    u8  timeSource = 0;
};

struct PtpDelayResp {
    PtpTimestamp receiveTimestamp;
    PtpPortIdentity requestingPortIdentity;
};

/// From a message of at least PTP_HEADER_LENGTH octets.
PtpHeader ptpHeaderOf(const u8* message);
/// The octets behind the header; 30, 10 and 20 of them are read.
PtpAnnounce ptpAnnounceOf(const u8* body);
PtpTimestamp ptpTimestampOf(const u8* body);
PtpDelayResp ptpDelayRespOf(const u8* body);
/// Ten octets.
PtpPortIdentity ptpPortIdentityOf(const u8* at);
void ptpPut(u8* at, const PtpPortIdentity& port);
void ptpPutHeader(u8* message, const PtpHeader& header);

/// Whole ns of a correctionField, cut towards 0.
i64 ptpCorrection_ns(i64 correctionField);
/// Whole seconds and 0 to 999999999 ns.
struct PtpTime {
    i64 seconds = 0;
    u32 nanoseconds = 0;
};
/// t + ns, normalised.
PtpTime ptpAdd(const PtpTimestamp& t, i64 ns);

/// Interval of log2 seconds in ms by the table from -10 to 13; beyond it the table's ends.
u32 ptpLogToMs(i8 logInterval);
/// The largest log of the table whose interval doesn't exceed `ms`; -10 for 0.
i8  ptpMsToLog(u32 ms);
constexpr i8 PTP_LOG_MAX = 13;
