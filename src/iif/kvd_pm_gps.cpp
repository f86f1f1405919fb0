#include "iif/kvd_pm_gps.h"

#include "base/trace_groups.h"
#include "iif/kvd_pm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"

namespace {

constexpr u8 GPS_STATUS_FAULT = 2;

struct Counter { const char* name; u32 above_min; };   // outages longer than so many minutes
constexpr Counter COUNTERS[] = {
    {"gpsFault_0-3min", 0},     {"gpsFault_3-6min", 3},     {"gpsFault_6-12min", 6},
    {"gpsFault_12-30min", 12},  {"gpsFault_30-60min", 30},  {"gpsFault_1-2h", 60},
    {"gpsFault_2-4h", 120},     {"gpsFault_4-8h", 240},     {"gpsFault_8-24h", 480},
    {"gpsFault_24-72h", 1440},  {"gpsFault_>72h", 4320},
};
constexpr u32 COUNTER_COUNT = sizeof COUNTERS / sizeof *COUNTERS;
static_assert(COUNTER_COUNT == PM_ATTR_MAX);

using Counts = std::array<i32, COUNTER_COUNT>;

constexpr Counts filled(i32 value)
{
    Counts counts{};
    counts.fill(value);
    return counts;
}

struct State {
    u8  gpsStatus = 0;                 // the last
    u32 faultStart = 0;                // s
    Counts count{};
    Counts reported = filled(-1);      // as last told; -1: not yet
    u32 suspectFlag = 1;
};
ose::ModuleData<State> s;

void openFault() { s->faultStart = KvdLoz6TuPm_seconds(); }

void closeFault()
{
    const i32 counter = KvdLoz6PmGps_counterOf(KvdLoz6TuPm_seconds() - s->faultStart);
    if (counter >= 0) ++s->count[static_cast<u32>(counter)];
}

PmReport makeReport(u32 froId)
{
    s->reported = s->count;
    return {GPSSYNCREF_PM_FROTYPE, froId, s->suspectFlag, COUNTER_COUNT, s->reported};
}

void print()
{
    node::shellPrintf("   suspectFlag       : %u\n   gpsStatus         : %u\n", s->suspectFlag, s->gpsStatus);
    for (u32 i = 0; i < COUNTER_COUNT; ++i)
        node::shellPrintf("   %-17s : %d, reported %d\n", COUNTERS[i].name, s->count[i], s->reported[i]);
}

}  // namespace

i32 KvdLoz6PmGps_counterOf(u32 elapsed)
{
    constexpr u32 SECONDS = 60;
    for (u32 i = COUNTER_COUNT; i > 0; --i)
        if (elapsed > COUNTERS[i - 1].above_min * SECONDS) return static_cast<i32>(i - 1);
    return -1;
}

i32 KvdLoz6PmGps_count(u32 counter) { return s->count[counter]; }

void KvdLoz6PmGps_subscribe()
{
    // A running fault begins anew: what it lasted so far belongs to the old counts.
    if (s->gpsStatus == GPS_STATUS_FAULT) openFault();
    s->count.fill(0);
    s->suspectFlag = 1;        // it begins in the middle of the agent's period
}

void KvdLoz6PmGps_unsubscribe()
{
    s->suspectFlag = 1;
    s->reported.fill(-1);
}

void KvdLoz6PmGps_gpsStatus(u8 gpsStatus)
{
    if (gpsStatus == s->gpsStatus) return;
    if (gpsStatus > GPS_STATUS_FAULT) {
        KVD_TRACE(TRACE_TUPM, TRACE_INFO, "Unknown state!");
        return;
    }
    if (gpsStatus == GPS_STATUS_FAULT) openFault();
    else if (s->gpsStatus == GPS_STATUS_FAULT) closeFault();
    s->gpsStatus = gpsStatus;
}

void KvdLoz6PmGps_report(u32 reportReason, u32 froId)
{
    switch (reportReason) {
    case PM_PERIOD_END:
        if (KvdLoz6TuPm_reportToAgent(makeReport(froId)) == 0) s->suspectFlag = 0;
        return;
    case PM_ON_REQUEST: return KvdLoz6TuPm_reportToClient(makeReport(froId));
    case PM_PRINTOUT:   return print();
    default:
        KVD_TRACE(TRACE_TUPM, TRACE_CHECK, "CHECK: Unexpected reportReason [%d]",
                  static_cast<int>(reportReason));
    }
}
