// kvd_ngpduh_proc.h - The process PsxIwNgscInciServer: hosts both sides of SYNC-INCI and the client of the
// sync group logic, and on a master tells the latter the node's time every 200 ms.
// Owner   starting and killing it: the manager process.
// Units   timers in ms.
// Errors  a signal that none of its parts takes is traced and freed.
#pragma once
#include "ose/types.h"

/// Starts the process unless it runs already.
void KvdLoz6NgPduh_start();
/// Kills it, if it runs; its tables are dropped with it.
void KvdLoz6NgPduh_kill();
/// Ends and starts it, if it runs: it knows the unit's role from its start on.
void KvdLoz6NgPduh_restart();
/// 0 while it doesn't run.
PROCESS KvdLoz6NgPduh_pid();
/// Its entry point.
void KvdLoz6NgPduh_proc();
