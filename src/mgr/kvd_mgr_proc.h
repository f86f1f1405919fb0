// kvd_mgr_proc.h - The manager process: start-up, dispatch chain, restart of the components.
// Owner   the manager process; the process ids are written at load.
// Units   none.
// Errors  an unknown signal is traced and freed; a hardware fault ends in the halted state.
#pragma once
#include "ose/ose.h"

/// Entry point of Kvd_loz6_tumgr_proc.
void KvdLoz6TuMgr_proc();

/// Process ids, the send targets of interrupt processes and forwarders.
PROCESS KvdLoz6TuMgr_pid();
PROCESS KvdLoz6TuPktsync_pid();
PROCESS KvdLoz6TuFifo_pid();
/// Written once by the load module's main thread.
void KvdLoz6TuMgr_setPids(PROCESS manager, PROCESS fifo, PROCESS pktsync);

/// Takes every component through its start; called when the main processor has confirmed.
/// isFirstStart 1 at the first confirmation, 0 at a peer restart; masterSlaveMode 0 slave, 1 master;
/// outEmuMode 1 GPS output, 2 HPTSI output, 0 none.
void KvdLoz6TuMgr_restartComponents(u32 isFirstStart, u8 timeMode, u8 masterSlaveMode, u8 outEmuMode);
/// Which unit's hardware is set up; not the numbering of the link's type (iif/kvd_biraiifadm.h).
enum HardwareIdlMode : u32 {
    HW_IDL_MODE_NOT_AVAILABLE = 0,     // no basic function: this program sets all of it up
    HW_IDL_MODE_1 = 1,
    HW_IDL_MODE_2 = 2,
};
/// Hardware set-up, at most once a program life; `restart` is the cold flag that goes with IDL 1 and 2.
void KvdLoz6TuMgr_startHardware(u32 idlMode, u32 restart);

/// The halted state, for good: serves nothing until the main processor dies, then returns to the main loop,
/// where each new main processor is told. Returns at once when there is none.
void KvdLoz6TuMgr_haltProcess();
/// 1 from the first halted state on: what ran into it isn't to run again.
u32  KvdLoz6TuMgr_isHalted();
/// The components have been started: the unit may be following a reference.
bool KvdLoz6TuMgr_isRunning();

/// The unit is master (1) or slave (0) from now on, also when it was before: regulator, hardware and links follow.
void KvdLoz6TuMgr_takeRole(u8 timeMode, u8 masterSlaveMode);
/// 1 master, 0 slave; any other stored value is traced and reads as 0.
u8  KvdLoz6TuMgr_masterSlaveMode();
/// Restart type that the test service reported, 0 until reported.
u32 KvdLoz6TuMgr_restartType();
/// 1 when the hardware was set up from nothing.
u32 KvdLoz6TuMgr_coldRestart();
/// "tumgr" section of kvdinfo.
void KvdLoz6TuMgr_printInfo();
