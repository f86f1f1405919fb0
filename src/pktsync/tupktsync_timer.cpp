#include "pktsync/tupktsync_timer.h"

#include "mgr/trace_groups.h"
#include "node/sig.h"
#include "node/trace.h"

void TuPktsync_timerInit(PktsyncTimer& timer, u32 syncrefId, u32 timerId, u32 default_ms, u32 index)
{
    timer = {syncrefId, timerId, index, default_ms, 0, 0};
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
    if (sig != nullptr) ose::free_buf(&sig);
    else                ++timer.stale;
}

u32 TuPktsync_timerExpired(PktsyncTimer& timer)
{
    if (timer.stale > 0) {
        --timer.stale;
        return 0;
    }
    const bool runs = timer.ref != 0;
    timer.ref = 0;
    return runs ? 1 : 0;
}
