// kvd_mgr_int.h - Shared between the sources of the manager: start-up, own signals, restart.
#pragma once
#include "ose/types.h"

/// All that comes before the manager's first receive.
void KvdLoz6TuMgr_startUp();
/// The manager's own elements of the dispatch chain.
int KvdLoz6TuMgr_dispatchFirstGroup(Signal* sig);
int KvdLoz6TuMgr_dispatchSecondGroup(Signal* sig);
/// Red LED of the board: the hardware fault alarm.
void KvdLoz6TuMgr_raiseAlarm();
void KvdLoz6TuMgr_ceaseAlarm();
