// kvd_ref_mon_proc.h - Toggle monitor: a timer-interrupt process that watches the detectors.
#pragma once
#include "ose/types.h"

/// Creates and starts Kvd_loz6_turefmon_proc, once a program life.
void KvdLoz6TuRefMon_start();
