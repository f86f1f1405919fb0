#include "base/kvd_timer.h"

bool KvdTimer_start(KvdTimer& timer, OSTIME time, SIGSELECT sigNo, const ose::Place& place)
{
    if (!timer.runs()) timer.ref = ose::request_tmo(time, sigNo, place);
    return timer.runs();
}

bool KvdTimer_startSig(KvdTimer& timer, OSTIME time, Signal* sig, const ose::Place& place)
{
    if (!timer.runs()) timer.ref = ose::request_tmo_sig(time, &sig, place);
    if (sig != nullptr) ose::free_buf(&sig, place);
    return timer.runs();
}

bool KvdTimer_restart(KvdTimer& timer, OSTIME time, SIGSELECT sigNo, const ose::Place& place)
{
    KvdTimer_cancel(timer);
    return KvdTimer_start(timer, time, sigNo, place);
}

bool KvdTimer_restartSig(KvdTimer& timer, OSTIME time, Signal* sig, const ose::Place& place)
{
    KvdTimer_cancel(timer);
    return KvdTimer_startSig(timer, time, sig, place);
}

void KvdTimer_cancel(KvdTimer& timer)
{
    Signal* sig = KvdTimer_cancelSig(timer);
    if (sig != nullptr) ose::free_buf(&sig);
}

Signal* KvdTimer_cancelSig(KvdTimer& timer)
{
    if (!timer.runs()) return nullptr;
    Signal* const sig = ose::cancel_tmo_sig(&timer.ref);
    if (sig == nullptr) ++timer.stale;
    return sig;
}

bool KvdTimer_expired(KvdTimer& timer)
{
    if (timer.stale > 0) {
        --timer.stale;
        return false;
    }
    timer.ref = 0;
    return true;
}
