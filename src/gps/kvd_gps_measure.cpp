// From a latched 1PPS edge to a measurement of the regulator: time query, agreement of the
// receiver's time with the pulses before it is used, noise, compensation delay.
#include "gps/kvd_gps_int.h"
#include "mgr/kvd_math.h"
#include "mgr/trace_groups.h"
#include "node/trace.h"
#include "ref/kvd_ref.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"

#include <cmath>

namespace {

using gps::state;

constexpr u32 TIME_NONE = 0, TIME_PULSE_ONLY = 3, TIME_WAITING = 4, TIME_UNKNOWN_STATE = 6,
              TIME_VALID = 7;

constexpr double T_MOD_1PPS = 1.0;                  // s, the pulse alone
constexpr double R_ALL_GPS_REF     = 1e-14;         // s^2, bounds of the adapted noise
constexpr double R_ALL_GPS_REF_MIN = 5e-16;
constexpr double R_GPS_OUT         = 1e-18;         // another unit's output
constexpr double PRE_TIME_TOLERANCE = 0.1;          // s
constexpr u32 PRE_TIME_SECONDS = 2;
constexpr double DELAY_STEP = 1e-7;                 // s, above it noise adaptation begins anew

/// Time of the receiver as a pair for calcZ, and the modulus that goes with it.
struct ReferenceTime {
    double time[2] = {0.0, 0.0};
    double t_mod = T_MOD_1PPS;
};

/// GPS time on the scale of the node's time: whole seconds modulo 2^32 and the fraction. With the
/// seconds in the fine part a double would hold the phase to 238 ns only.
ReferenceTime referenceTimeOf(double gpsTime)
{
    const double time = gpsTime - KvdLoz6TuReg_sfcGpsOffset();
    const double seconds = std::floor(time);
    const double turns = std::floor(seconds / TMOD_GPS_NMEA);
    return {{seconds - turns * TMOD_GPS_NMEA, time - seconds}, TMOD_GPS_NMEA};
}

/// A wrong sentence must not step the clock: the time counts once it agrees with the pulses for
/// some seconds. False while it doesn't count yet.
bool agreesWithPulses(double nmeaTime, double latchedTime)
{
    if (state().preTimeOffset_c == 0) return true;
    if (std::fabs(nmeaTime - (latchedTime + state().delta0_pre)) < PRE_TIME_TOLERANCE) {
        --state().preTimeOffset_c;
    } else {
        state().delta0_pre = nmeaTime - latchedTime;
        state().preTimeOffset_c = PRE_TIME_SECONDS;
    }
    return false;
}

ReferenceTime referenceTimeAt(const double latched[2], u32 (*timeQuery)(double& time))
{
    double gpsTime = 0.0;
    if (timeQuery(gpsTime) != TIME_VALID) return {};
    const ReferenceTime reference = referenceTimeOf(gpsTime);
    const double nmeaTime = reference.time[0] + reference.time[1];
    return agreesWithPulses(nmeaTime, latched[0] + latched[1]) ? reference : ReferenceTime{};
}

void clampNoise()
{
    const double R = KvdLoz6TuReg_getMeasR(Z_GPS_REF);
    if (R > R_ALL_GPS_REF) {
        KVD_TRACE(TRACE_TUGPS, TRACE_4, "R > R_ALL_GPS_REF");
        KvdLoz6TuReg_setMeasR(R_ALL_GPS_REF, Z_GPS_REF);
    } else if (R < R_ALL_GPS_REF_MIN) {
        KVD_TRACE(TRACE_TUGPS, TRACE_4, "R < R_ALL_GPS_REF_MIN. Set it to R_ALL_GPS_REF_MIN");
        KvdLoz6TuReg_setMeasR(R_ALL_GPS_REF_MIN, Z_GPS_REF);
    }
}

/// Another unit's output turned out to be the receiver: the regulator goes on with that reference,
/// so that this edge is the first of its own.
void takeGpsOutReference()
{
    const bool isGpsOut = KvdLoz6TuGps_receiver().gpssType == GPSS_NORVANE;
    if (!isGpsOut || KvdLoz6TuReg_selectedRef() == TU_GPS_OUT_REF) return;
    if (!KvdLoz6TuReg_isValidState()) return;
    const RefDesc& row = KvdLoz6TuRef_row(ROW_GPS);
    KvdLoz6TuReg_configRefType(TU_GPS_OUT_REF, row.froId, row.froClassNo);
}

bool regulatesOnPulse()
{
    switch (KvdLoz6TuReg_selectedRef()) {
    case TU_SR_GPS_REF:
    case TU_GPS_OUT_REF:
    case TU_SR_GPSOSL_REF: return KvdLoz6TuReg_initiateState() == TUREG_INIT;
    default:               return false;
    }
}

}  // namespace

u32 KvdLoz6TuGps_time(double& time)
{
    time = 0.0;
    switch (KvdLoz6TuGps_gpsState()) {
    case GPS_UN_INIT:
    case GPS_INIT_SERIAL_PORT:
    case GPS_WAIT_FOR_ANY_MSG:
        return TIME_NONE;
    case GPS_WAIT_FOR_VALID_MSG:
        return TIME_WAITING;
    case GPS_WAIT_FOR_OPERATIONAL:
    case GPS_OPERATIONAL:
        return TIME_PULSE_ONLY;
    case GPS_OPERATIONAL_WITH_VALID_TIME:
        time = KvdLoz6TuGps_receiver().gpsCurrentTime;
        return time != 0.0 ? TIME_VALID : TIME_PULSE_ONLY;
    default:
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Unknown state");
        return TIME_UNKNOWN_STATE;
    }
}

bool gps::observe(u32 (*timeQuery)(double& time), void (*setNoise)(u32 z_i), Observation& o)
{
    LatchedEdge edge{};
    if (KvdLoz6TuReg_handleRefClkInt(edge) == 0) return false;
    edge.time[1] -= state().gpsCompensationDelay + KvdLoz6TuReg_getPp1sBoardDelay();
    const ReferenceTime reference = referenceTimeAt(edge.time, timeQuery);
    setNoise(edge.z_i);
    TimePair zPair{};
    KvdLoz6TuReg_calcZ(reference.t_mod, edge.time, reference.time, o.z, zPair, o.phase);
    o.z_i = edge.z_i;
    o.t_s = edge.t_s;
    return true;
}

namespace {

void setReceiverNoise(u32 z_i)
{
    clampNoise();
    if (z_i == Z_GPS_OUT_REF) KvdLoz6TuReg_setMeasR(R_GPS_OUT, Z_GPS_OUT_REF);
}

}  // namespace

void KvdLoz6TuGps_handleInt()
{
    takeGpsOutReference();
    gps::Observation o;
    if (gps::observe(KvdLoz6TuGps_time, setReceiverNoise, o))
        KvdLoz6TuReg_measUpdate(o.z_i, o.z, o.t_s, o.phase);
}

void gps::setCompensationDelay(u16 delay_ns)
{
    const double delay = delay_ns * 1e-9;
    if (regulatesOnPulse() && std::fabs(delay - state().gpsCompensationDelay) > DELAY_STEP)
        KvdLoz6TuReg_restartMeasNoise(KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef()));
    state().gpsCompensationDelay = delay;
}

void   KvdLoz6TuGps_clearPreTimeOffset() { state().preTimeOffset_c = 0; }
u32    KvdLoz6TuGps_preTimeOffset() { return state().preTimeOffset_c; }
double KvdLoz6TuGps_compensationDelay() { return state().gpsCompensationDelay; }
