// kvd_mgr_hwdiag.h - Hardware tests at start and in running, and their reports to the error log.
// Owner   the manager process.
// Errors  every fault goes to the error log and the test service; nothing here stops the program.
#pragma once
#include "ose/types.h"

/// Start-up sequence driven by the test service. Blocks the manager until it is through, or the service has
/// rejected or has said nothing for a minute. 0 passed or not requested, 1 no answer from the service, 2
/// failed.
u8 KvdLoz6HwDiag_startUp(u32& restartType, u32 hwInitResult);
/// The check of one tick of the toggle monitor.
void KvdLoz6HwDiag_runTimeCheck();
