// kvd_gps_out.h - The unit's own time on the serial output.
#pragma once
#include "ose/types.h"

struct Signal;

int  KvdLoz6GpsOut_dispatch(Signal* sig);
/// Emulation mode 1 GPS, 2 HPTSI.
void KvdLoz6GpsOut_start(u8 mode);
void KvdLoz6GpsOut_stop();
/// The output driver runs.
bool KvdLoz6GpsOut_isRunning();
void KvdLoz6GpsOut_handleInt();
void KvdLoz6GpsOut_regStateChanged();
/// A loop's word: 11 where it reports a locked time, else another.
void KvdLoz6GpsOut_pllStateChanged(u32 pllState);
/// The regulator steps the time counters: before the step, and after one that was made.
void KvdLoz6GpsOut_prepareTimeStep();
void KvdLoz6GpsOut_timeStepped();
/// 1 while its time is valid; time in s.
u32  KvdLoz6GpsOut_time(double& time);
void KvdLoz6GpsOut_printInfo();
