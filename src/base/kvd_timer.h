// kvd_timer.h - A timer as a component owns it: at most one run at a time, ended by a signal to its owner.
//
// The kernel delivers a time-out that was queued already when its timer is cancelled or started over. Such a
// one belongs to a run that is gone: expired() counts it away, so that it neither acts nor takes the present
// run for ended. Time-outs keep their order in the owner's queue, those of former runs come first.
// Owner   the process that starts it; the others only ask runs(). A Timer outlives its queued time-outs: it
//         lies in a module's state, not in a record that is deleted before them.
// Errors  a timer that can't be had answers false, its owner traces it.
#pragma once
#include "ose/ose.h"

struct KvdTimer {
    TimerRef ref = 0;   // 0 while it doesn't run
    u32 stale = 0;      // time-outs of former runs that lie in the queue

    bool runs() const { return ref != 0; }
};

/// Lets it run for `time` ms until a signal `sigNo` comes; one that runs goes on as it is. False when the
/// kernel has no timer.
bool KvdTimer_start(KvdTimer& timer, OSTIME time, SIGSELECT sigNo,
                    const ose::Place& place = ose::Place::current());
/// The same with a signal of the owner's, which is taken over in every case.
bool KvdTimer_startSig(KvdTimer& timer, OSTIME time, Signal* sig,
                       const ose::Place& place = ose::Place::current());
/// Ends the present run, if any, and begins another.
bool KvdTimer_restart(KvdTimer& timer, OSTIME time, SIGSELECT sigNo,
                      const ose::Place& place = ose::Place::current());
bool KvdTimer_restartSig(KvdTimer& timer, OSTIME time, Signal* sig,
                         const ose::Place& place = ose::Place::current());
/// Ends the present run: its time-out won't act. Nothing when it doesn't run.
void KvdTimer_cancel(KvdTimer& timer);
/// The same, and the signal goes back to its owner; nullptr when the timer doesn't run or the signal is
/// queued.
Signal* KvdTimer_cancelSig(KvdTimer& timer);
/// First call of a time-out's handler. True when it ends the present run, which is over then, or when the
/// timer doesn't run and nothing is owed; false for one of a former run.
bool KvdTimer_expired(KvdTimer& timer);
