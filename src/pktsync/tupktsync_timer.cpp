#include "pktsync/tupktsync_timer.h"

#include "mgr/trace_groups.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <array>

namespace {

constexpr u32 SYNCREFS = 8, TIMERS = PTP_TMO_UC_DELAYED_START + 1, INDICES = 5;

struct State {
    // Time-outs in the queue whose timers were stopped. They outlive their clock.
    std::array<std::array<std::array<u32, INDICES>, TIMERS>, SYNCREFS> stale{};
};
ose::ModuleData<State> s;

/// Of a timer; nullptr when there is none of that name.
u32* staleOf(u32 syncrefId, u32 timerId, u32 index)
{
    if (syncrefId >= SYNCREFS || timerId >= TIMERS || index >= INDICES) return nullptr;
    return &s->stale[syncrefId][timerId][index];
}

}  // namespace

void TuPktsync_timerInit(PktsyncTimer& timer, u32 syncrefId, u32 timerId, u32 default_ms, u32 index)
{
    timer = {syncrefId, timerId, index, default_ms, 0};
}

void TuPktsync_timerStart(PktsyncTimer& timer, u32 ms)
{
    if (ms != 0) timer.duration_ms = ms;
    TuPktsync_timerStop(timer);
    TuPktsyncTmoInd* ind = node::make<TuPktsyncTmoInd>(TUPKTSYNC_TMO_IND);
    ind->tmoClass = TUPKTSYNC_TMO_CLASS_PTP;
    ind->syncrefId = timer.syncrefId;
    ind->timerId = timer.timerId;
    ind->index = timer.index;
    Signal* sig = reinterpret_cast<Signal*>(ind);
    timer.ref = ose::request_tmo_sig(timer.duration_ms, &sig);
    if (timer.ref != 0) return;
    KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_ERROR, "timer %u of syncrefId %u failed to start",
              timer.timerId, timer.syncrefId);
    ose::free_buf(&sig);
}

void TuPktsync_timerStop(PktsyncTimer& timer)
{
    if (timer.ref == 0) return;
    Signal* sig = ose::cancel_tmo_sig(&timer.ref);
    if (sig != nullptr) {
        ose::free_buf(&sig);
        return;
    }
    if (u32* const stale = staleOf(timer.syncrefId, timer.timerId, timer.index)) ++*stale;
}

bool TuPktsync_timerIsStale(u32 syncrefId, u32 timerId, u32 index)
{
    u32* const stale = staleOf(syncrefId, timerId, index);
    if (stale == nullptr || *stale == 0) return false;
    --*stale;
    return true;
}

u32 TuPktsync_timerExpired(PktsyncTimer& timer)
{
    const bool runs = timer.ref != 0;
    timer.ref = 0;
    return runs ? 1 : 0;
}
