// kvd_mgr_proc.h - The manager process: start-up, dispatch chain, restart of the components.
// Owner   the manager process.
// Units   none.
// Errors  an unknown signal is traced and freed; a hardware fault ends in the halted state.
#pragma once
#include "unit/kvd_unit_process.h"

/// Entry point of Kvd_loz6_tumgr_proc.
void KvdLoz6TuMgr_proc();

/// Takes every component through its start; called when the main processor has confirmed.
/// isFirstStart 1 at the first confirmation, 0 at a peer restart; masterSlaveMode 0 slave, 1 master;
/// outEmuMode 1 GPS output, 2 HPTSI output, 0 none.
void KvdLoz6TuMgr_restartComponents(u32 isFirstStart, u8 timeMode, u8 masterSlaveMode, u8 outEmuMode);
/// Hardware set-up, at most once a program life; `restart` is the cold flag that goes with IDL 1 and 2.
void KvdLoz6TuMgr_startHardware(u32 idlMode, u32 restart);

/// The halted state, for good: serves nothing until the main processor dies, then returns to the main loop,
/// where each new main processor is told. Returns at once when there is none.
void KvdLoz6TuMgr_haltProcess();

/// The unit is master (1) or slave (0) from now on, also when it was before: regulator, hardware and links
/// follow.
void KvdLoz6TuMgr_takeRole(u8 timeMode, u8 masterSlaveMode);
/// "tumgr" section of kvdinfo.
void KvdLoz6TuMgr_printInfo();
