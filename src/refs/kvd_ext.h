// kvd_ext.h - Plain references: external frequency, external 1PPS, PDH and SDH lines, NTP's selection.
// Owner   the manager process.
// Units   seconds, variances in s^2.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6TuExt_initiate();   // at the initiation of the measurements: 1PPS is SENSITIVE
/// Reference edge with a PDH or SDH line, the external frequency, the external 1PPS selected.
void KvdLoz6TuExt_handlePdhSdhInt();
void KvdLoz6TuExt_handleExtInt();
void KvdLoz6TuExt_handleExt1ppsInt();
/// kvdsetfastlock: level 0, 1 or 2.
void KvdLoz6TuExt_setFastLock(u32 useFastLock, double R_fastLock);
u32    KvdLoz6TuExt_useFastLock();
double KvdLoz6TuExt_R_fastLock();
u32    KvdLoz6TuExt_stateSensitive();
