// kvd_mgr_int.h - Shared between the sources of the manager: start-up, own signals, restart.
#pragma once
#include "ose/types.h"

/// Orders of commands that end in the components: they run in the manager, not in the shell's process.
constexpr SIGSELECT KVD_TUMGR_FIX_FREQUENCY_IND = 0x9C6F0;   // shell -> manager, no data

/// All that comes before the manager's first receive.
void KvdLoz6TuMgr_startUp();
/// A stored FSYNC setting, or what else its file holds: the file goes then. The registers can't be reached
/// before the hardware's start, which repeats it.
void KvdLoz6TuMgr_repeatFsyncSetting();
/// The manager's own elements of the dispatch chain.
bool KvdLoz6TuMgr_dispatchFirstGroup(Signal* sig);
bool KvdLoz6TuMgr_dispatchSecondGroup(Signal* sig);
/// Ends a signal that was read. A buffer that its component arms again and again stays that component's.
void KvdLoz6TuMgr_release(Signal* sig);
/// Red LED of the board: the hardware fault alarm.
void KvdLoz6TuMgr_raiseAlarm();
void KvdLoz6TuMgr_ceaseAlarm();
