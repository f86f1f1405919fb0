// kvd_ref_idl_int.h - What the sources of the inter-unit links share: the ports' machines (kvd_ref_idl.cpp),
// what a slave waits for (kvd_ref_idl_slave.cpp), histories and printout (kvd_ref_idl_print.cpp).
// Owner   kvd_ref_idl*.cpp, each of its own state. Nobody else includes it.
// Units   timers in ms.
#pragma once
#include "base/kvd_timer.h"
#include "refs/kvd_ref_history.h"
#include "refs/kvd_ref_idl.h"

namespace idl {

constexpr u32 PORTS = IdlHistory::PORTS;

// ---- kvd_ref_idl.cpp ----
enum PortTimerId : u32 { HO, WTR, SUPERVISION, PORT_TIMERS };
struct Port {
    u32 idlState = IDL_UNKNOWN;
    std::array<KvdTimer, PORT_TIMERS> timer;
};
const Port& portOf(u32 port);

// ---- kvd_ref_idl_slave.cpp ----
/// A slave that lost its link keeps its loop for a minute. The first loss starts it; it runs on while the
/// link comes and goes.
void startSlaveHoldover(u32 port);
void stopSlaveHoldover(u32 port);
/// Stops it, on port 1 only with words that say something: without them the link alone is no leader.
void linkIsBack(u32 port);
bool slaveHoldoverRuns();
/// Sync data counts as coming again.
void forgetSyncDataStop();

// ---- kvd_ref_idl_print.cpp ----
/// Of a port's timer, with the port's state as it is.
void record(u32 port, IdlTimerType type, IdlTimerStatus status);

}  // namespace idl
