#include "pktsync/tupktsync_timer.h"

#include "base/element_of.h"
#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <array>

namespace {

constexpr u32 SYNCREFS = 8, TIMERS = PTP_TMO_UC_DELAYED_START + 1, INDICES = 5;

struct State {
    // By syncref, timer and index: a clock that is deleted leaves its queued time-outs behind.
    std::array<std::array<std::array<KvdTimer, INDICES>, TIMERS>, SYNCREFS> timers{};
};
ose::ModuleData<State> s;

/// nullptr when there is none of that name.
KvdTimer* timerOf(u32 syncrefId, u32 timerId, u32 index)
{
    auto* const ofSyncref = elementOf(s->timers, syncrefId);
    auto* const ofTimer = ofSyncref != nullptr ? elementOf(*ofSyncref, timerId) : nullptr;
    return ofTimer != nullptr ? elementOf(*ofTimer, index) : nullptr;
}

}  // namespace

void TuPktsync_timerInit(PktsyncTimer& timer, u32 syncrefId, u32 timerId, u32 index, u32 default_ms)
{
    timer = {syncrefId, timerId, index, default_ms};
}

void TuPktsync_timerStart(PktsyncTimer& timer, u32 ms)
{
    if (ms != 0) timer.duration_ms = ms;
    KvdTimer* const t = timerOf(timer.syncrefId, timer.timerId, timer.index);
    if (t == nullptr) return;
    auto* ind = node::make<TuPktsyncTmoInd>(TUPKTSYNC_TMO_IND);
    ind->tmoClass = TUPKTSYNC_TMO_CLASS_PTP;
    ind->syncrefId = timer.syncrefId;
    ind->timerId = timer.timerId;
    ind->index = timer.index;
    if (KvdTimer_restartSig(*t, timer.duration_ms, reinterpret_cast<Signal*>(ind))) return;
    KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_ERROR, "timer %u of syncrefId %u failed to start", timer.timerId,
              timer.syncrefId);
}

void TuPktsync_timerStop(const PktsyncTimer& timer)
{
    if (KvdTimer* const t = timerOf(timer.syncrefId, timer.timerId, timer.index)) KvdTimer_cancel(*t);
}

bool TuPktsync_timerExpired(u32 syncrefId, u32 timerId, u32 index)
{
    KvdTimer* const t = timerOf(syncrefId, timerId, index);
    const bool runs = t != nullptr && t->runs();
    return t != nullptr && KvdTimer_expired(*t) && runs;
}
