// kvd_pm.h - Performance counters: who subscribes to which set, when a period ends, who gets the
// report. The sets themselves stand in kvd_pm_synch and kvd_pm_gps.
// Owner   the manager process; printInfo, which only reads, runs in the shell's.
// Units   periods and times in s of kernel time.
// Errors  a set that isn't known is traced and not confirmed; a period that can't be reported goes
//         on into the next.
#pragma once
#include "ose/types.h"

#include <array>

struct Signal;

/// The two sets of counters, as the main processor and the PM agent name them.
constexpr u32 SYNC_PM_FROTYPE       = 0x10501;
constexpr u32 GPSSYNCREF_PM_FROTYPE = 0x10502;

bool KvdLoz6TuPm_dispatch(Signal* sig);
/// Starts the statistics of a new reference, by the regulator's value.
void KvdLoz6TuPm_startStatistics(u32 regulatorRef);
/// A clock state as it goes to the main processor, on a master.
void KvdLoz6TuPm_clockState(u8 radioClockState);
/// A new status of the GPS receiver, as it goes to the main processor.
void KvdLoz6TuPm_gpsStatus(u8 gpsStatus);
/// One exchange with an NTP server, in the order in which its stamps are taken; seconds in the
/// upper, their fraction in the lower 32 bits.
void KvdLoz6TuPm_delaySample(u64 T1, u64 T2, u64 T3, u64 T4);
void KvdLoz6TuPm_printInfo();

// ---- for the sets ----

enum PmReportReason : u32 { PM_PERIOD_END = 0, PM_ON_REQUEST = 1, PM_PRINTOUT = 2 };

/// The larger set has so many attributes.
constexpr u32 PM_ATTR_MAX = 11;

struct PmReport {
    u32 froType, froId;
    u32 suspectFlag;                    // 1: not a whole period
    u32 noOfPmAttr;                     // 0 to PM_ATTR_MAX
    std::array<i32, PM_ATTR_MAX> pmAttrList;
};

/// Seconds of kernel time; runs on when the tick counter wraps.
u32  KvdLoz6TuPm_seconds();
/// 0 while nobody subscribes to the set.
u32  KvdLoz6TuPm_granularityPeriod(u32 froType);
void KvdLoz6TuPm_reportToClient(const PmReport& report);
/// 0 when the agent's proxy has it, 1 when there was no memory for it.
u32  KvdLoz6TuPm_reportToAgent(const PmReport& report);
