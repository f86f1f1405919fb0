// tu_coli.h - The operator's commands: registration with the platform's shell, and their handlers.
// Owner   handlers run in the shell's process, beside the manager.
// Errors  result codes: 0 done, 10 refused in the present clock state, 20 wrong usage.
#pragma once
#include "ose/types.h"

constexpr int COLI_DONE = 0;
constexpr int COLI_REFUSED = 10;
constexpr int COLI_USAGE = 20;

/// Registers the 32 commands, in their order.
void TuColi_registerCommands();
/// Every component's report that "kvdinfo all" prints, in its order; from any process.
void TuColi_printAll();
/// Where a setting stands that is to be repeated at each start.
constexpr const char* FSYNC_SETTING = "/d/kvdsetfsyncreg.txt";
/// Handler of kvdsetfsyncreg, also used by the manager at start for a stored setting.
int TuColi_setFsyncReg(int argc, char** argv);
