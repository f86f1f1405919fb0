// From a latched 1PPS edge to a measurement of the regulator, with the time that the source announced.
#include "base/kvd_math.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/trace.h"
#include "refs/kvd_hptsi_int.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"

#include <algorithm>
#include <cmath>

namespace {

using namespace hptsi;

constexpr u32 TIME_NONE = 0, TIME_VALID = 7;
constexpr double R_HPTSI_LEAST = 1e-15, R_HPTSI_MOST = 1e-14;   // s^2, bounds of the adapted noise
constexpr double DELAY_STEP = 1e-7;                             // s, above it noise adaptation begins anew

bool regulatesOnInput()
{
    return KvdLoz6TuReg_initiateState() == TUREG_INIT && KvdLoz6TuReg_selectedRef() == TU_SR_HPTSI_REF;
}

}  // namespace

u32 KvdLoz6TuHptsi_time(double& time)
{
    const bool isValid = state().hptsiState == OPERATIONAL_WITH_VALID_TIME;
    time = isValid ? state().hptsiCurrentTime : 0.0;
    return isValid ? TIME_VALID : TIME_NONE;
}

void KvdLoz6TuHptsi_handleInt()
{
    LatchedEdge edge{};
    if (!KvdLoz6TuReg_handleRefClkInt(edge)) return;
    double time = 0.0;
    ReferenceTime reference;
    if (KvdLoz6TuHptsi_time(time) == TIME_VALID)
        reference = KvdLoz6TuReg_timeOfPulse(state().gate, time, edge.time);
    edge.time[1] -= state().hptsiCompensationDelay + KvdLoz6TuReg_getPp1sBoardDelay();
    KvdLoz6TuReg_setMeasR(std::clamp(KvdLoz6TuReg_getMeasR(edge.z_i), R_HPTSI_LEAST, R_HPTSI_MOST), edge.z_i);
    double z = 0.0, phase = 0.0;
    TimePair zPair{};
    KvdLoz6TuReg_calcZ(reference.t_mod, edge.time, reference.time, z, zPair, phase);
    KvdLoz6TuReg_measUpdate(edge.z_i, z, edge.t_s, phase);
}

void KvdLoz6TuHptsi_clearPreTimeOffset() { state().gate.preTimeOffset_c = 0; }

void hptsi::setCompensationDelay(u16 delay_ns)
{
    const double delay = delay_ns * 1e-9;
    const double step = delay - state().hptsiCompensationDelay;
    if (regulatesOnInput() && isBeyond(step, DELAY_STEP)) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_INFO, "fabs(newdelay-oldDelay) = %s", TuCommon_text(std::fabs(step)));
        KvdLoz6TuReg_restartMeasNoise(KvdLoz6TuReg_measurementIndex(TU_SR_HPTSI_REF));
    }
    state().hptsiCompensationDelay = delay;
    KVD_TRACE(TRACE_TUHPTSI, TRACE_INFO, "hptsiCompensationDelay = %s s", TuCommon_text(delay));
}
