// tupktsync_ptp_clock.h - One PTP clock: the data sets of IEEE 1588-2008 clause 8 and what its slave
// needs beside them. Private to tupktsync_ptp_*.cpp.
// Owner   Kvd_loz6_tupktsync_proc. Eight clocks at most, by syncrefId; a clock that is deleted leaves
//         nothing.
#pragma once
#include "pktsync/tupktsync_ptp_bmca.h"
#include "pktsync/tupktsync_ptp_delay_e2e.h"
#include "pktsync/tupktsync_ptp_protocol.h"
#include "pktsync/tupktsync_ptp_quality.h"
#include "pktsync/tupktsync_timer.h"
#include "pktsync/tupktsync_ts_collect.h"

#include <array>

constexpr u32 PTP_FOREIGN_MASTERS = 5;
constexpr u32 PTP_ARRIVALS = 8;

struct PtpForeignMaster {
    bool used = false;
    PtpPortIdentity port;
    i8 logAnnounceInterval = 0;
    std::array<double, PTP_ARRIVALS> arrival_ms{};     // 0: free
    PktsyncTimer timer;
};

struct PtpParent {                                     // and what it tells of its grandmaster
    PtpPortIdentity parentPortIdentity;
    PtpClockIdentity grandmasterIdentity{};
    PtpClockQuality grandmasterClockQuality{};
    u8 grandmasterPriority1 = 0;
    u8 grandmasterPriority2 = 0;
};

struct PtpTimeProperties {
    i16 currentUtcOffset = 0;
    u8  flags = 0;                                     // as flagField's second octet
    u8  timeSource = 0;
};

enum SyncStatus : u32 { SYNC_OFF = 0, SYNC_OK = 1, SYNC_DEGRADED = 2, SYNC_FAILED = 3 };

struct PtpSyncSup {
    u32 syncStatus = SYNC_OFF;
    u8  msgs_this_period = 0;
    u8  msgs_prev_period = 0;
    u8  norm_threshold = 0;
    i8  logMsgInterval = 0;
    u32 timer_interval = 0;                            // ms
    PktsyncTimer timer;
};

struct PtpClock {
    PtpClockSetup setup;
    bool enabled = false;                              // supervised: reports go out
    bool selected = false;

    PtpPortIdentity portIdentity;
    u8  priority1 = 0, priority2 = 0;
    u32 portState = 0;                                 // PtpPortState
    u16 stepsRemoved = 0;
    i64 offsetFromMaster = 0;                          // ns * 2^16, from the regulator
    i64 meanPathDelay = 0;                             // ns, from the regulator
    PtpParent parent;
    PtpTimeProperties timeProperties;
    i8  logAnnounceInterval = 0;
    i8  logSyncInterval = 0;
    i8  logMinDelayReqInterval = 0;

    u32 fault_flags = 0;
    PktsyncTimer announceTimer;
    PtpSyncSup syncSup;
    u16 logPassFraction = 0;
    u16 seqIdDiscardMask = 0;
    std::array<PtpForeignMaster, PTP_FOREIGN_MASTERS> foreignMasters{};
    u8 foreignMasterCount = 0;
    TsBuffer syncStamps;
    DelayReqRespCtrl delay;
    // Of its messages: those that served, by type; Announces of masters that it doesn't follow, or not
    // yet; those of types that a slave doesn't read.
    std::array<u32, 16> used{};
    u32 stored = 0, unread = 0;
};

/// The clock of a syncref, nullptr without one.
PtpClock* ptpClockOf(u32 syncrefId);

bool ptpIsFrequency(const PtpClock& c);
/// A time reference under ITU_T_G_8275_1; all else goes by IEEE_1588_J3's rules.
bool ptpIsG82751Time(const PtpClock& c);

// ---- tupktsync_ptp_protocol.cpp -------------------------------------------------------------------
void ptpPortEvent(PtpClock& c, u32 portStateEvent);
/// Sets and clears bits of the fault word; a change is reported while the clock is supervised.
void ptpFaults(PtpClock& c, u32 set, u32 clear);
/// One of them, set or cleared.
inline void ptpFault(PtpClock& c, u32 fault, bool raised)
{
    ptpFaults(c, raised ? fault : 0, raised ? 0 : fault);
}
/// Class or QualityLevelIndex of its grandmaster.
inline bool ptpHasMaster(const PtpClock& c) { return c.parent.parentPortIdentity != PtpPortIdentity{}; }
u8   ptpQualityOf(const PtpClock& c);
/// Goes out while the clock is supervised.
void ptpReportQuality(const PtpClock& c, u8 quality);
void ptpStartAnnounceTimer(PtpClock& c);
/// Parent and time properties as before the first Announce.
void ptpForgetMaster(PtpClock& c);

// ---- tupktsync_ptp_announce.cpp -------------------------------------------------------------------
/// True when it tells of the master that is followed now.
bool ptpOnAnnounce(PtpClock& c, const PtpHeader& h, const PtpAnnounce& a);
void ptpForeignMasterTimeout(PtpClock& c, u32 index);

// ---- tupktsync_ptp_sync.cpp -----------------------------------------------------------------------
/// Each true when its stamps were kept.
bool ptpOnSync(PtpClock& c, const PtpHeader& h, const PtpTimestamp& origin, const PtpStamp& received);
bool ptpOnFollowUp(PtpClock& c, const PtpHeader& h, const PtpTimestamp& preciseOrigin);
bool ptpOnDelayResp(PtpClock& c, const PtpHeader& h, const PtpDelayResp& r);
void ptpStartSyncSup(PtpClock& c, bool keepStatus);
void ptpStopSyncSup(PtpClock& c);
void ptpSyncSupTimeout(PtpClock& c);
/// A set of a Sync is complete.
void ptpCountSync(PtpClock& c);
void ptpRecomputeFilter(PtpClock& c);
/// The Sync rate, and the Delay_Req rate, meet the requirement.
bool ptpSyncRateMet(const PtpClock& c);
bool ptpDelayReqRateMet(const PtpClock& c);
