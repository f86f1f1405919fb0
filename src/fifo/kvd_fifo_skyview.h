// kvd_fifo_skyview.h - Sky view: a record of satellites and position a minute for up to 24 hours,
// on a service technician's order.
// Owner   the manager process ticks; Kvd_loz6_fifo_proc takes the records and writes the file.
#pragma once
#include "ose/types.h"

/// Forgets what was collected before and starts; the caller sees to it that it isn't running.
void KvdLoz6FifoSkyView_start();
/// Also at the end of the GPS reference's supervision. Does nothing when it isn't running.
void KvdLoz6FifoSkyView_stop();
bool KvdLoz6FifoSkyView_isRunning();
/// Once a second, by the sentence that closes a second's record.
void KvdLoz6FifoSkyView_tick();
