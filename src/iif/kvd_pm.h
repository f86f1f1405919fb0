// kvd_pm.h - Performance counters on synchronisation and GPS quality.
#pragma once
#include "ose/types.h"

struct Signal;

int  KvdLoz6TuPm_dispatch(Signal* sig);
/// Starts the statistics of a new reference, by the regulator's value.
void KvdLoz6TuPm_startStatistics(u32 regulatorRef);
void KvdLoz6TuPm_clockState(u8 radioClockState);
/// A new status of the GPS receiver, as it goes to the main processor.
void KvdLoz6TuPm_gpsStatus(u8 gpsStatus);
void KvdLoz6TuPm_printInfo();
