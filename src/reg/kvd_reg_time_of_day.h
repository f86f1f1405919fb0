// kvd_reg_time_of_day.h - The time of day that comes with a 1PPS: on the scale of the node's time, and
// whether it may be believed.
// Owner   each pulse reference holds a gate of its own; all in the manager process.
// Units   s.
// Errors  none.
#pragma once
#include "ose/types.h"

/// A wrong message must not step the clock: a time counts once it has agreed with the pulses so often.
struct TimeOfDayGate {
    double delta0_pre = 0.0;             // time told minus time latched
    u32 preTimeOffset_c = 2;             // seconds that must still agree
};

/// Time of the reference as a pair for calcZ, and the modulus that goes with it.
struct ReferenceTime {
    double time[2] = {0.0, 0.0};
    double t_mod = 1.0;                  // the pulse alone
};

/// The time of a pulse, in s since the GPS epoch, for an edge latched at that pair. As without a time while
/// it doesn't count yet.
ReferenceTime KvdLoz6TuReg_timeOfPulse(TimeOfDayGate& gate, double gpsTime, const double latched[2]);
