// From a latched 1PPS edge to a measurement of the regulator: time query, agreement of the
// receiver's time with the pulses before it is used, noise, compensation delay.
#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "gps/kvd_gps_int.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_measure.h"
#include "unit/kvd_ref_table.h"

#include <cmath>

namespace {

using gps::state;

constexpr u32 TIME_NONE = 0, TIME_PULSE_ONLY = 3, TIME_WAITING = 4, TIME_UNKNOWN_STATE = 6, TIME_VALID = 7;

constexpr double R_ALL_GPS_REF     = 1e-14;         // s^2, bounds of the adapted noise
constexpr double R_ALL_GPS_REF_MIN = 5e-16;
constexpr double R_GPS_OUT         = 1e-18;         // another unit's output
constexpr double DELAY_STEP = 1e-7;                 // s, above it noise adaptation begins anew

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

/// The receiver turns out to be another unit's output, or a receiver again after one: the regulator goes on
/// with that reference and its noise, so that this edge is the first of its own.
void takeReceiversReference()
{
    const u32 gpssType = KvdLoz6TuGps_receiver().gpssType;
    if (!gps::isSettled(gpssType)) return;
    const u32 reference = gpssType == GPSS_NORVANE ? TU_GPS_OUT_REF : TU_SR_GPS_REF;
    if (KvdLoz6TuReg_selectedRef() == reference || !KvdLoz6TuReg_isValidState()) return;
    const RefDesc& row = KvdLoz6TuRef_row(ROW_GPS);
    KvdLoz6TuReg_configRefType(reference, row.froId, row.froClassNo);
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

u32 gps::timeOf(u32 gpsState, double& time)
{
    time = 0.0;
    switch (gpsState) {
    case GPS_UN_INIT:
    case GPS_INIT_SERIAL_PORT:
    case GPS_WAIT_FOR_ANY_MSG: return TIME_NONE;
    case GPS_WAIT_FOR_VALID_MSG: return TIME_WAITING;
    case GPS_WAIT_FOR_OPERATIONAL:
    case GPS_OPERATIONAL: return TIME_PULSE_ONLY;
    case GPS_OPERATIONAL_WITH_VALID_TIME:
        time = KvdLoz6TuGps_receiver().gpsCurrentTime;
        return time != 0.0 ? TIME_VALID : TIME_PULSE_ONLY;
    default: KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Unknown state"); return TIME_UNKNOWN_STATE;
    }
}

u32 KvdLoz6TuGps_time(double& time) { return gps::timeOf(KvdLoz6TuGps_gpsState(), time); }

bool gps::observe(u32 (*timeQuery)(double& time), void (*setNoise)(u32 z_i), Observation& o)
{
    LatchedEdge edge{};
    if (!KvdLoz6TuReg_handleRefClkInt(edge)) return false;
    edge.time[1] -= state().gpsCompensationDelay + KvdLoz6TuReg_getPp1sBoardDelay();
    double gpsTime = 0.0;
    ReferenceTime reference;
    if (timeQuery(gpsTime) == TIME_VALID && KvdLoz6TuGps_receiver().timeKept == 0)
        reference = KvdLoz6TuReg_timeOfPulse(state().gate, gpsTime, edge.time);
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
    takeReceiversReference();
    gps::Observation o;
    if (!gps::observe(KvdLoz6TuGps_time, setReceiverNoise, o)) return;
    KvdLoz6TuReg_setSourceTime(KvdLoz6TuGps_receiver().timeKept == 0);
    KvdLoz6TuReg_measUpdate(o.z_i, o.z, o.t_s, o.phase);
}

void gps::setCompensationDelay(u16 delay_ns)
{
    const double delay = delay_ns * 1e-9;
    if (regulatesOnPulse() && std::fabs(delay - state().gpsCompensationDelay) > DELAY_STEP)
        KvdLoz6TuReg_restartMeasNoise(KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef()));
    state().gpsCompensationDelay = delay;
}

void   KvdLoz6TuGps_clearPreTimeOffset() { state().gate.preTimeOffset_c = 0; }
u32    KvdLoz6TuGps_preTimeOffset() { return state().gate.preTimeOffset_c; }
double KvdLoz6TuGps_compensationDelay() { return state().gpsCompensationDelay; }
