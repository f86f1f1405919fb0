// kvd_fifo_proc.h - Rolling logs for trouble reports, written to file by a process of the lowest priority.
#pragma once
#include "ose/types.h"

/// Entry point of Kvd_loz6_fifo_proc.
void KvdLoz6Fifo_proc();
/// Orders the dump of all logs to file.
void KvdLoz6Fifo_dump();
