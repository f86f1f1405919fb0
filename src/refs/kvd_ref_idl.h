// kvd_ref_idl.h - Inter-unit links: the machine of each of the two ports, a slave's minute of holdover, the
// supervision of sync data, histories.
// Owner   the manager process; only kvd_ref_idl*.cpp write this module's state.
// Units   timers in ms.
// Errors  a refused timer is traced; the port keeps its state and the next change tries again.
#pragma once
#include "sig/ref_sig.h"
#include "sig/ref_types.h"

u32  KvdLoz6TuRef_idlState(u32 port);
/// Starts a port's supervision with 1, ends it with any other value.
void KvdLoz6TuRef_idlSupervision(u32 port, u32 on);
/// The main processor went away: both ports unknown, tuiifRefState 0.
void KvdLoz6TuRef_idlReset();
/// Request of the port data or server interface: supervision of port 2 starts from IDL_ON.
void KvdLoz6TuRef_idl2Supervise();
/// A slave's link port works: supervision of port 2 starts, if nothing but the port was missing.
void KvdLoz6TuRef_idl2PortAvailable();
/// Master became slave, or slave master: what the old role waited for is over.
void KvdLoz6TuRef_roleChanged();
/// One interrupt step of a port's machine: the other end was heard.
void KvdLoz6TuRef_idlInterrupt(u32 port);
/// A new main processor knows nothing of the links yet: a slave's loop has a minute to hear its leader again.
void KvdLoz6TuRef_awaitLeader();
/// A slave took a word of port 1, fresh or one of before. Without fresh ones it keeps its loop for a minute,
/// as without the link: a leader that warms up sends none.
void KvdLoz6TuRef_idl1Words(bool areFresh);
/// Link port that carries IDL2, 0 to 5; a change goes to the port history.
void KvdLoz6TuRef_setSynchPortNo(u8 synchPortNo);

/// Sync data of port 2 on a slave: 40 ms from request to data, 50 expiries tell that data stopped.
void KvdLoz6TuRef_startIdl2SyncDataTimer();
void KvdLoz6TuRef_stopIdl2SyncDataTimer();
bool KvdLoz6TuRef_idl2SyncDataTimerRuns();
u32  KvdLoz6TuRef_idl2SyncDataIndTmoCntr();
void KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(u32 expiries);
const char* KvdLoz6TuRef_idlPortText(u32 port);
const char* KvdLoz6TuRef_idlStateText(u32 idlState);

// ---- inter-unit links ---------------------------------------------------------------------------
void KvdLoz6TuRef_idlClear();
void KvdLoz6TuRef_onIdlHoTimeout(u32 port);
void KvdLoz6TuRef_onIdlWtrTimeout(u32 port);
void KvdLoz6TuRef_onIdlSupervisionTimeout(u32 port);
void KvdLoz6TuRef_onSlaveHoldoverTimeout(const KvdTurefSlaveHoldoverTimeoutInd* ind);
void KvdLoz6TuRef_onIdl2SyncDataTimeout();
void KvdLoz6TuRef_printIdl();
