// kvd_gps_out.h - The unit's own time on the serial output: a pulse a second, and sentences that say which
// second it began, for another unit that takes it for a receiver.
// Owner   the manager process; only kvd_gps_out*.cpp write this module's state.
// Units   s since the GPS epoch; delays in ns, timers in ms.
// Errors  a serial line that can't be opened leaves the output off until the next start; a sentence longer
//         than the receiving end takes isn't sent. Both are traced.
#pragma once
#include "ose/types.h"

struct Signal;

bool KvdLoz6GpsOut_dispatch(Signal* sig);
/// Emulation mode 1 GPS, any other HPTSI. While the output runs, only its protocol changes. It takes the
/// board's one serial line from a receiver.
void KvdLoz6GpsOut_start(u8 mode);
/// Output, line and timers off, whatever the state.
void KvdLoz6GpsOut_stop();
/// The output driver runs.
bool KvdLoz6GpsOut_isRunning();
/// An edge of another unit's output, TU_GPS_OUT_REF being selected.
void KvdLoz6GpsOut_handleInt();
/// Told after the change; a slave goes by its master's state and traces its own.
void KvdLoz6GpsOut_regStateChanged();
/// A loop's word: PLL_IS_TIME_LOCKED; any other ends a locked output.
void KvdLoz6GpsOut_pllStateChanged(u32 pllState);
/// The regulator steps the time counters: before the step, and after one that was made.
void KvdLoz6GpsOut_prepareTimeStep();
void KvdLoz6GpsOut_timeStepped();
/// The time that the master's time data carried, in s; 1 when any has come.
u32  KvdLoz6GpsOut_time(double& time);
/// "tugps_out" section of kvdinfo.
void KvdLoz6GpsOut_printInfo();
