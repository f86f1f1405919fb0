// kvd_unit_process.h - The program's life: its processes, how it was restarted, whether it runs or is halted.
// Owner   the manager process writes; interrupt processes and forwarders read.
#pragma once
#include "ose/ose.h"

/// Process ids, the send targets of interrupt processes and forwarders.
PROCESS KvdLoz6TuMgr_pid();
PROCESS KvdLoz6TuPktsync_pid();
PROCESS KvdLoz6TuFifo_pid();
/// Written once by the load module's main thread.
void KvdLoz6TuMgr_setPids(PROCESS manager, PROCESS fifo, PROCESS pktsync);

/// 1 from the first halted state on: what ran into it isn't to run again.
u32  KvdLoz6TuMgr_isHalted();
/// The components have been started: the unit may be following a reference.
bool KvdLoz6TuMgr_isRunning();
/// Restart type that the test service reported, 0 until reported.
u32 KvdLoz6TuMgr_restartType();

struct KvdUnitLife {
    u32 restartType = 0;       // of the test service, 0 until reported
    u32 hwFailed = 0;          // the halted state has no main processor to tell, or was left by its restart
    u32 componentsStarted = 0;
};
/// The one record, for its writer (frame/kvd_mgr_restart.cpp).
KvdUnitLife& KvdUnit_life();
