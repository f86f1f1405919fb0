// kvd_fifo_proc.h - Rolling logs for trouble reports, written to file by a process of the lowest
// priority.
// Owner   Kvd_loz6_fifo_proc writes the files; the rings are the manager's to fill.
// Errors  a file that can't be opened is traced, that dump is lost.
#pragma once
#include "ose/types.h"

/// Entry point of Kvd_loz6_fifo_proc.
void KvdLoz6Fifo_proc();
/// Orders the dump of the GPS and the regulator's log, from any process; returns at once.
void KvdLoz6Fifo_dump();
