// kvd_pm_gps.h - Counters of the GPS reference: how many outages of each length there were.
// Owner   the manager process; a report to a printout only reads.
// Units   times in s.
#pragma once
#include "ose/types.h"

void KvdLoz6PmGps_subscribe();
void KvdLoz6PmGps_unsubscribe();
/// 2 is a fault, 0 and 1 aren't.
void KvdLoz6PmGps_gpsStatus(u8 gpsStatus);
/// Index of the counter that an outage of so many seconds belongs to, 0 to 10; -1 for none.
i32  KvdLoz6PmGps_counterOf(u32 elapsed);
/// Outages since the subscription, by counter 0 to 10.
i32  KvdLoz6PmGps_count(u32 counter);
/// reportReason is a PmReportReason.
void KvdLoz6PmGps_report(u32 reportReason, u32 froId);
