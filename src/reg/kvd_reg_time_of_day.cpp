#include "reg/kvd_reg_time_of_day.h"

#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"

#include <cmath>

namespace {

constexpr double PRE_TIME_TOLERANCE = 0.1;          // s
constexpr u32 PRE_TIME_SECONDS = 2;

/// GPS time on the scale of the node's time: whole seconds modulo 2^32 and the fraction. With the
/// seconds in the fine part a double would hold the phase to 238 ns only.
ReferenceTime onNodesScale(double gpsTime)
{
    const double time = gpsTime - KvdLoz6TuReg_sfcGpsOffset();
    const double seconds = std::floor(time);
    const double turns = std::floor(seconds / TMOD_GPS_NMEA);
    return {{seconds - turns * TMOD_GPS_NMEA, time - seconds}, TMOD_GPS_NMEA};
}

/// False while the time doesn't count yet.
bool agreesWithPulses(TimeOfDayGate& gate, double timeTold, double latchedTime)
{
    if (gate.preTimeOffset_c == 0) return true;
    if (std::fabs(timeTold - (latchedTime + gate.delta0_pre)) < PRE_TIME_TOLERANCE) {
        --gate.preTimeOffset_c;
    } else {
        gate.delta0_pre = timeTold - latchedTime;
        gate.preTimeOffset_c = PRE_TIME_SECONDS;
    }
    return false;
}

}  // namespace

ReferenceTime KvdLoz6TuReg_timeOfPulse(TimeOfDayGate& gate, double gpsTime, const double latched[2])
{
    const ReferenceTime reference = onNodesScale(gpsTime);
    const double timeTold = reference.time[0] + reference.time[1];
    return agreesWithPulses(gate, timeTold, latched[0] + latched[1]) ? reference : ReferenceTime{};
}
