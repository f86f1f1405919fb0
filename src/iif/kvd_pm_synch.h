// kvd_pm_synch.h - Counters of the synchronisation function: delay variation of an NTP reference
// over the last hour, time spent in each class of clock state.
// Owner   the manager process; a report to a printout only reads.
// Units   delay variations in us, times in s.
#pragma once
#include "ose/types.h"

#include <array>

/// One result a window of 100 s, the last hour of them.
using PmWindows = std::array<i32, 36>;

struct PmSynchCounters {
    PmWindows PmHighestDelayVarBest1Array{};      // second lowest delay of a window, ...
    PmWindows PmHighestDelayVarBest10Array{};
    PmWindows PmHighestDelayVarBest50Array{};
    PmWindows PmMaxDelayVariationArray{};         // ... highest: each above the lowest delay
    u32 arrayIndex = 0;                           // of the next window
    double lowestDelay_us = 0.0;                  // 0: none yet
    std::array<u32, 5> timeCounter{};   // s in clock states 9 and 11; 3; 4; 2, 5, 6; 8, 10
};

/// As they stand: the running state's time is added when it ends or is reported.
const PmSynchCounters& KvdLoz6PmSynch_counters();
void KvdLoz6PmSynch_subscribe();
void KvdLoz6PmSynch_unsubscribe();
void KvdLoz6PmSynch_startStatistics(u32 regulatorRef);
void KvdLoz6PmSynch_clockState(u8 radioClockState);
void KvdLoz6PmSynch_delaySample(u64 T1, u64 T2, u64 T3, u64 T4);
/// The one-way delay that four stamps of one exchange tell, s. Below 0 when they are at odds.
double KvdLoz6PmSynch_delay(u64 T1, u64 T2, u64 T3, u64 T4);
/// reportReason is a PmReportReason.
void KvdLoz6PmSynch_report(u32 reportReason, u32 froId);
