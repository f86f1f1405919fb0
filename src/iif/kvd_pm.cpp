#include "iif/kvd_pm.h"

#include "base/trace_groups.h"
#include "iif/kvd_pm_gps.h"
#include "iif/kvd_pm_synch.h"
#include "mp/kvd_iifadm_send.h"
#include "node/platform.h"
#include "node/pmai.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr u32 PUSH_PERIOD_s = 300;     // of the agent

struct Subscription {
    u32 subscribed = 0;
    u32 granularityPeriod = 0;         // s
    u32 froType = FRO_NONE, froId = FRO_NONE;
};

struct PmSet {
    u32 froType;
    const char* name;
    void (*subscribe)();
    void (*unsubscribe)();
    void (*report)(u32 reportReason, u32 froId);
    void (*traceIllegal)(u32 granularityPeriod);
};
constexpr PmSet SETS[] = {
    {SYNC_PM_FROTYPE, "SynchMo", KvdLoz6PmSynch_subscribe, KvdLoz6PmSynch_unsubscribe, KvdLoz6PmSynch_report,
     [](u32 period) {
         KVD_TRACE(TRACE_TUPM, TRACE_ERROR, "Illegal granularity period on SynchMo %u", period);
     }},
    {GPSSYNCREF_PM_FROTYPE, "SGpshMo", KvdLoz6PmGps_subscribe, KvdLoz6PmGps_unsubscribe, KvdLoz6PmGps_report,
     [](u32 period) {
         KVD_TRACE(TRACE_TUPM, TRACE_ERROR, "Illegal granularity period on SGpshMo %u", period);
     }},
};

struct State {
    std::array<Subscription, std::size(SETS)> subscription;
    bool attached = false;             // the PM agent's client has been started
    u32 seqNo = 0;                     // of the agent's last push
    u64 ticks = 0;                     // the kernel's, carried on over their wrap ...
    u32 lastTicks = 0;                 // ... up to here
};
ose::ModuleData<State> s;

u64 ticksNow() { return s->ticks + (ose::get_ticks() - s->lastTicks); }

void followTicks()
{
    s->ticks = ticksNow();
    s->lastTicks = static_cast<u32>(s->ticks);
}

/// nullptr (traced) when there is none.
const PmSet* setOf(u32 froType)
{
    for (const PmSet& set : SETS)
        if (set.froType == froType) return &set;
    KVD_TRACE(TRACE_TUPM, TRACE_INFO, "Wrong froType!");
    return nullptr;
}

Subscription& subscriptionOf(const PmSet& set) { return s->subscription[static_cast<u32>(&set - SETS)]; }

void attachOnce()
{
    if (s->attached) return;
    s->attached = true;
    const u32 result = node::TmvPmai_serviceAttach(KvdLoz6TuMgr_pid());
    if (result != 0) KVD_TRACE(TRACE_TUPM, TRACE_ERROR, "PM agent not attached to, result=%u", result);
}

void onSubscribe(const KvdTuiifSubscribePmReq* req)
{
    if (req == nullptr) return;
    const PmSet* const set = setOf(req->froType);
    if (set == nullptr) return;
    subscriptionOf(*set) = {1, req->granularity, req->froType, req->froId};
    set->subscribe();
    attachOnce();
    KvdLoz6TuIifAdm_sendSubscribePmCfm(req->froType, req->froId);
}

void onUnsubscribe(const KvdTuiifUnsubscribePmReq* req)
{
    if (req == nullptr) return;
    const PmSet* const set = setOf(req->froType);
    if (set == nullptr) return;
    subscriptionOf(*set) = {};
    set->unsubscribe();
    KvdLoz6TuIifAdm_sendUnsubscribePmCfm(req->froType, req->froId);
}

void onGetCurrent(const KvdTuiifGetCurrentPmReq* req)
{
    if (req == nullptr) return;
    const PmSet* const set = setOf(req->froType);
    if (set != nullptr) set->report(PM_ON_REQUEST, req->froId);
}

void endPeriod(const PmSet& set)
{
    const Subscription& subscription = subscriptionOf(set);
    if (subscription.subscribed == 0 || subscription.granularityPeriod == 0) return;
    if (subscription.granularityPeriod < PUSH_PERIOD_s) {
        set.traceIllegal(subscription.granularityPeriod);
        return;
    }
    if (s->seqNo % (subscription.granularityPeriod / PUSH_PERIOD_s) != 0) {
        KVD_TRACE(TRACE_TUPM, TRACE_3, "Wrong seqNo!");
        return;
    }
    set.report(PM_PERIOD_END, subscription.froId);
}

void onPush(const TmvPmaiPushInd* ind)
{
    if (ind == nullptr) return;
    s->seqNo = ind->seqNo;
    for (const PmSet& set : SETS) endPeriod(set);
}

}  // namespace

bool KvdLoz6TuPm_dispatch(Signal* sig)
{
    followTicks();
    switch (sig->sigNo) {
    case KVD_TUIIF_SUBSCRIBE_PM_REQ:   onSubscribe(as<KvdTuiifSubscribePmReq>(sig));     return true;
    case KVD_TUIIF_UNSUBSCRIBE_PM_REQ: onUnsubscribe(as<KvdTuiifUnsubscribePmReq>(sig)); return true;
    case KVD_TUIIF_GET_CURRENT_PM_REQ: onGetCurrent(as<KvdTuiifGetCurrentPmReq>(sig));   return true;
    case TMV_PMAI_PUSH_IND:            onPush(as<TmvPmaiPushInd>(sig));                  return true;
    default:                                                                             return false;
    }
}

void KvdLoz6TuPm_startStatistics(u32 regulatorRef) { KvdLoz6PmSynch_startStatistics(regulatorRef); }
void KvdLoz6TuPm_clockState(u8 radioClockState) { KvdLoz6PmSynch_clockState(radioClockState); }
void KvdLoz6TuPm_gpsStatus(u8 gpsStatus) { KvdLoz6PmGps_gpsStatus(gpsStatus); }
void KvdLoz6TuPm_delaySample(u64 T1, u64 T2, u64 T3, u64 T4) { KvdLoz6PmSynch_delaySample(T1, T2, T3, T4); }

u32 KvdLoz6TuPm_seconds()
{
    constexpr u64 US_PER_S = 1'000'000;
    return static_cast<u32>(ticksNow() * ose::system_tick() / US_PER_S);
}

u32 KvdLoz6TuPm_granularityPeriod(u32 froType)
{
    for (const PmSet& set : SETS)
        if (set.froType == froType) return subscriptionOf(set).granularityPeriod;
    return 0;
}

void KvdLoz6TuPm_reportToClient(const PmReport& report)
{
    KvdLoz6TuIifAdm_sendCurrentPmCfm(report.froType, report.froId, report.suspectFlag,
                                     report.pmAttrList.data(), report.noOfPmAttr);
}

u32 KvdLoz6TuPm_reportToAgent(const PmReport& report)
{
    TmvPmaiPmData* pmDataStruct_p = node::TmvPmai_newPmData();
    if (pmDataStruct_p == nullptr) {
        KVD_TRACE(TRACE_TUPM, TRACE_ERROR, "Unable to allocate memory for pmDataStruct_p");
        return 1;
    }
    pmDataStruct_p->froType = report.froType;
    pmDataStruct_p->froId = report.froId;
    pmDataStruct_p->suspectFlag = report.suspectFlag;
    pmDataStruct_p->noOfPmAttr = report.noOfPmAttr;
    std::copy_n(report.pmAttrList.begin(), report.noOfPmAttr, pmDataStruct_p->pmAttrList);
    u32 result = node::TmvPmai_sendPmData(s->seqNo, pmDataStruct_p);
    if (result == 0) result = node::TmvPmai_endOfData(s->seqNo, report.froType);
    if (result != 0) KVD_TRACE(TRACE_TUPM, TRACE_ERROR, "PM agent didn't take the report, result=%u", result);
    return 0;
}

void KvdLoz6TuPm_printInfo()
{
    node::shellPrintf("\n***** PM *****\n");
    for (const PmSet& set : SETS) {
        const Subscription& subscription = subscriptionOf(set);
        node::shellPrintf("%s\n   subscribed        : %u\n   granularityPeriod : %u\n"
                          "   froType           : 0x%x\n   froId             : 0x%x\n",
                          set.name, subscription.subscribed, subscription.granularityPeriod,
                          subscription.froType, subscription.froId);
        set.report(PM_PRINTOUT, subscription.froId);
    }
}
