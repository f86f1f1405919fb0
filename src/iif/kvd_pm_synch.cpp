#include "iif/kvd_pm_synch.h"

#include "base/trace_groups.h"
#include "iif/kvd_pm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>

namespace {

constexpr u32 SAMPLES = 100;          // one a second: a window of 100 s
constexpr double US_PER_S = 1000000.0;
constexpr u8 KEEP_STATE = 0xFE;       // no change of state: counts up to now

constexpr i32 NO_VALUE = -2;          // nothing measured, or not over the whole period
constexpr i32 NOT_MEASURED = -1;      // the reference has no such statistics

/// The attributes in the order of a report.
enum Attribute : u32 {
    par_pmMDVCounter,
    par_pmHDVB1Pct,
    par_pmHDVB10Pct,
    par_pmHDVB50Pct,
    par_pmTimeHO,
    par_pmTimeFreerunning,
    par_pmFreqHO,
    par_pmFreerunning,
    ATTRIBUTES
};
constexpr const char* LABELS[] = {"MaxDelayVar", "HDVB1Pct", "HDVB10Pct", "HDVB50Pct",
                                  "THS",         "TFS",      "FHS",       "FRS"};
static_assert(sizeof LABELS / sizeof *LABELS == ATTRIBUTES);

enum TimeCounter : u32 {
    TIME_HOLDOVER,
    FREQ_LOCKED,
    FREQ_HOLDOVER,
    FREERUNNING,
    TIME_LOCKED,                      // kept, but no attribute carries it
    TIME_COUNTERS                     // also: no counter
};

using TimeCounters = std::array<u32, TIME_COUNTERS>;

struct State {
    std::array<double, SAMPLES> sample{};   // delays of the running window, s
    u32 sampleCount = 0;
    PmSynchCounters counters;
    std::optional<u8> runningState;         // none before the first is told
    u32 lastTimeStamp = 0;                  // s, since when the running state counts
    u32 suspectFlag = 1;
};
ose::ModuleData<State> s;

bool ntpSelected() { return KvdLoz6TuReg_selectedRef() == TU_SR_NTP_REF; }

void fillArrays(i32 value)
{
    s->counters.PmHighestDelayVarBest1Array.fill(value);
    s->counters.PmHighestDelayVarBest10Array.fill(value);
    s->counters.PmHighestDelayVarBest50Array.fill(value);
    s->counters.PmMaxDelayVariationArray.fill(value);
}

void clearSamples()
{
    s->sample.fill(0.0);
    s->sampleCount = 0;
}

void clearPeriod()
{
    clearSamples();
    s->counters.arrayIndex = 0;
    s->counters.lowestDelay_us = 0.0;
    s->counters.timeCounter.fill(0);
    if (ntpSelected()) fillArrays(0);
}

TimeCounter counterOf(u8 radioClockState)
{
    switch (radioClockState) {
    case KVD_TUIIF_TIME_OFFSET_HOLDOVER:
    case KVD_TUIIF_RNT_TIME_HOLDOVER: return TIME_HOLDOVER;
    case KVD_TUIIF_FREQUENCY_LOCKED: return FREQ_LOCKED;
    case KVD_TUIIF_FREQUENCY_HOLDOVER: return FREQ_HOLDOVER;
    case KVD_TUIIF_FREQUENCY_DRIFTING:
    case KVD_TUIIF_LOSS_OF_TRACKING:
    case KVD_TUIIF_FAILURE: return FREERUNNING;
    case KVD_TUIIF_TIME_OFFSET_LOCKED:
    case KVD_TUIIF_RNT_TIME_LOCKED: return TIME_LOCKED;
    default: return TIME_COUNTERS;
    }
}

/// The counters with the running state's time up to `now`, s.
TimeCounters countedUpTo(u32 now)
{
    TimeCounters counters = s->counters.timeCounter;
    const TimeCounter running = s->runningState ? counterOf(*s->runningState) : TIME_COUNTERS;
    if (running != TIME_COUNTERS) counters[running] += now - s->lastTimeStamp;
    return counters;
}

void changeState(u8 radioClockState)
{
    const u32 now = KvdLoz6TuPm_seconds();
    if (!s->runningState) {
        s->lastTimeStamp = now;
        s->runningState = radioClockState;
        return;
    }
    if (counterOf(*s->runningState) == TIME_COUNTERS)
        KVD_TRACE(TRACE_TUPM, TRACE_3, "Don't count this state!");
    s->counters.timeCounter = countedUpTo(now);
    s->lastTimeStamp = now;
    if (radioClockState != KEEP_STATE) s->runningState = radioClockState;
}

/// A delay as its distance to the lowest one, whole us.
i32 variation_us(double delay_s)
{
    const double rounded = std::round(delay_s * US_PER_S - s->counters.lowestDelay_us);
    constexpr double LOWEST = std::numeric_limits<i32>::min();
    constexpr double HIGHEST = std::numeric_limits<i32>::max();
    return static_cast<i32>(std::clamp(rounded, LOWEST, HIGHEST));
}

void closeWindow()
{
    PmSynchCounters& c = s->counters;
    std::sort(s->sample.begin(), s->sample.end());
    const double lowest_us = s->sample[0] * US_PER_S;
    c.lowestDelay_us = c.lowestDelay_us == 0.0 ? lowest_us : std::min(c.lowestDelay_us, lowest_us);

    const u32 i = c.arrayIndex;
    c.PmHighestDelayVarBest1Array[i] = variation_us(s->sample[1]);
    c.PmHighestDelayVarBest10Array[i] = variation_us(s->sample[10]);
    c.PmHighestDelayVarBest50Array[i] = variation_us(s->sample[50]);
    c.PmMaxDelayVariationArray[i] = variation_us(s->sample[99]);
    KVD_TRACE(TRACE_TUPM, TRACE_3,
              "100 sec calculation, index=%u lowest=%.3f us, variation of best 1 %%=%d us, "
              "10 %%=%d us, 50 %%=%d us, highest=%d us",
              i, c.lowestDelay_us, c.PmHighestDelayVarBest1Array[i], c.PmHighestDelayVarBest10Array[i],
              c.PmHighestDelayVarBest50Array[i], c.PmMaxDelayVariationArray[i]);
    c.arrayIndex = (i + 1) % static_cast<u32>(c.PmMaxDelayVariationArray.size());
    clearSamples();
}

i32 highest(const PmWindows& windows)
{
    const i32 value = *std::max_element(windows.begin(), windows.end());
    return value > 0 ? value : NO_VALUE;
}

PmReport makeReport(u32 froId, const TimeCounters& counters)
{
    PmReport report{SYNC_PM_FROTYPE, froId, s->suspectFlag, ATTRIBUTES, {}};
    std::array<i32, PM_ATTR_MAX>& attribute = report.pmAttrList;
    if (s->suspectFlag != 0) {
        std::fill_n(attribute.begin(), u32{ATTRIBUTES}, NO_VALUE);
        return report;
    }
    const bool ntp = ntpSelected();
    attribute[par_pmMDVCounter] = ntp ? highest(s->counters.PmMaxDelayVariationArray) : NO_VALUE;
    attribute[par_pmHDVB1Pct] = ntp ? highest(s->counters.PmHighestDelayVarBest1Array) : NO_VALUE;
    attribute[par_pmHDVB10Pct] = ntp ? highest(s->counters.PmHighestDelayVarBest10Array) : NO_VALUE;
    attribute[par_pmHDVB50Pct] = ntp ? highest(s->counters.PmHighestDelayVarBest50Array) : NO_VALUE;
    attribute[par_pmTimeHO] = static_cast<i32>(counters[TIME_HOLDOVER]);
    attribute[par_pmTimeFreerunning] = static_cast<i32>(counters[FREQ_LOCKED] + counters[FREQ_HOLDOVER]);
    attribute[par_pmFreqHO] = static_cast<i32>(counters[FREQ_HOLDOVER]);
    attribute[par_pmFreerunning] = static_cast<i32>(counters[FREERUNNING]);
    return report;
}

void reportPeriod(u32 froId)
{
    changeState(KEEP_STATE);
    if (KvdLoz6TuPm_reportToAgent(makeReport(froId, s->counters.timeCounter)) != 0) return;
    clearPeriod();
    s->suspectFlag = 0;
}

void reportCurrent(u32 froId)
{
    changeState(KEEP_STATE);
    PmReport report = makeReport(froId, s->counters.timeCounter);
    if (!ntpSelected()) std::fill_n(report.pmAttrList.begin(), u32{par_pmTimeHO}, NOT_MEASURED);
    KvdLoz6TuPm_reportToClient(report);
}

void print(u32 froId)
{
    const PmReport report = makeReport(froId, countedUpTo(KvdLoz6TuPm_seconds()));
    node::shellPrintf("   suspectFlag       : %u\n", report.suspectFlag);
    for (u32 i = 0; i < ATTRIBUTES; ++i)
        node::shellPrintf("   %-17s : %d\n", LABELS[i], report.pmAttrList[i]);
}

}  // namespace

void KvdLoz6PmSynch_subscribe()
{
    changeState(KEEP_STATE);   // what ran up to now belongs to the counters that are cleared
    clearPeriod();
    s->suspectFlag = 1;        // it begins in the middle of the agent's period
}

void KvdLoz6PmSynch_unsubscribe()
{
    s->suspectFlag = 1;
    fillArrays(0);
}

void KvdLoz6PmSynch_startStatistics(u32 regulatorRef)
{
    s->counters.lowestDelay_us = 0.0;
    fillArrays(regulatorRef == TU_SR_NTP_REF ? 0 : NOT_MEASURED);
}

void KvdLoz6PmSynch_clockState(u8 radioClockState) { changeState(radioClockState); }

const PmSynchCounters& KvdLoz6PmSynch_counters() { return s->counters; }

double KvdLoz6PmSynch_delay(u64 T1, u64 T2, u64 T3, u64 T4)
{
    const i64 bothWays = static_cast<i64>((T2 - T1) + (T4 - T3));   // wraps as the stamps do
    return std::ldexp(static_cast<double>(bothWays), -33);          // half of it, fraction of 2^32
}

void KvdLoz6PmSynch_delaySample(u64 T1, u64 T2, u64 T3, u64 T4)
{
    if (KvdLoz6TuPm_granularityPeriod(SYNC_PM_FROTYPE) == 0) return;
    s->sample[s->sampleCount++] = KvdLoz6PmSynch_delay(T1, T2, T3, T4);
    if (s->sampleCount == SAMPLES) closeWindow();
}

void KvdLoz6PmSynch_report(u32 reportReason, u32 froId)
{
    switch (reportReason) {
    case PM_PERIOD_END: return reportPeriod(froId);
    case PM_ON_REQUEST: return reportCurrent(froId);
    case PM_PRINTOUT:   return print(froId);
    default:
        KVD_TRACE(TRACE_TUPM, TRACE_CHECK, "CHECK: Unexpected reportReason [%d]",
                  static_cast<int>(reportReason));
    }
}
