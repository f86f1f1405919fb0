// kvd_mgr_wait.h - Waits that block the manager. None is silent, and none has no way out.
//
// Two kinds. An exchange with a service of the node takes that service's signals alone and leaves all else in
// the queue, which nobody empties meanwhile: while the unit runs it has a limit. A deaf wait takes all that
// comes and may last for days: what its end needs is set aside, the rest is gone.
// Owner   the manager process.
// Units   times in ms.
// Errors  traced here, once: every 10 s of an exchange, every hour of a deaf wait, and the end of a limit.
#pragma once
#include "ose/ose.h"

/// Limit of an exchange while the unit runs: what comes meanwhile, packets above all, fills the signal pool.
constexpr OSTIME MGR_EXCHANGE_RUNNING_ms = 5000;

struct KvdMgrExchange {
    u32 traceGroup;             // of its owner
    const char* server;         // by the name of its process
    OSTIME limit_ms;            // 0: as long as it takes, since the server's death ends it or it comes back
    u32 waited_ms = 0;
};

/// The next signal of the selection, nullptr when the limit has passed. `what` is awaited, for the trace.
Signal* KvdLoz6TuMgr_await(KvdMgrExchange& exchange, const SIGSELECT* selection, const char* what);
/// A pause before the next attempt. False, and none, when it would pass the limit.
bool KvdLoz6TuMgr_pause(KvdMgrExchange& exchange, OSTIME time_ms);

/// Reads and drops until the main processor dies, but for what the components can't do without: time-outs,
/// deaths, words of services about their connections, links and ports. They are offered to the components
/// afterwards, first of all and in their order, and the interrupt's line is open again.
void KvdLoz6TuMgr_deafWait();
/// Reads and drops until the main processor dies, for good: nobody is going to need any of it. `take` is
/// offered each signal.
void KvdLoz6TuMgr_haltedWait(void (*take)(const Signal* sig));
/// The manager's next signal: what was set aside, or else what is received.
Signal* KvdLoz6TuMgr_next();
