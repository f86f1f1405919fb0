// Temperature of the oscillator: reading, limits, and the sample that drives the estimator without
// a reference.
#include "base/trace_groups.h"
#include "hw/hali.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/ref_types.h"

#include <algorithm>
#include <cstdio>

using measure::state;

namespace {

void takeTemperature(MeasStateVar& v, double vT)
{
    v.vT = vT;
    v.nrBadSamples = 0;
    v.vThigh = std::max(v.vThigh, vT);
    v.vTlow = std::min(v.vTlow, vT);
    v.vTnorm = std::clamp(2 * (vT - v.vTmin) / (v.vTmax - v.vTmin) - 1, -1.0, 1.0);
    if (vT >= v.vTmin && vT <= v.vTmax) {
        v.nrOutRange = 0;
        return;
    }
    ++v.nrOutRange;
    char text[64];
    std::snprintf(text, sizeof text, "%g (%g - %g)", vT, v.vTmin, v.vTmax);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "OCXO temperature outside limits: %s, attempts %u", text,
              v.nrOutRange);
}

/// A loop that owns the divider writes its own history.
bool loopKeepsHistory(u32 selectedRef)
{
    return selectedRef == TU_SR_GPSOSL_REF || selectedRef == TU_SR_SOCPRI_REF;
}

}  // namespace

void KvdLoz6TuReg_readOcxoTemp()
{
    MeasStateVar& v = state().var;
    double vT = 0.0;
    const int result = HALI_getOcxoTemp(vT);
    if (result == 0) {
        takeTemperature(v, vT);
    } else {
        ++v.nrBadSamples;
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "OCXO temperature reading failure: attempts:%d (%d)",
                  static_cast<int>(v.nrBadSamples), result);
    }
    KvdLoz6TuReg_startUpController(v.vT, v.nrBadSamples, v.nrOutRange, result);
}

void KvdLoz6TuReg_handleTempMeasurement()
{
    constexpr double M_TEMPERATURE = 10.0;
    MeasStateVar& v = state().var;
    v.m[Z_TEMP_REF] = M_TEMPERATURE;
    double t_s = 0.0;
    if (!KvdLoz6TuReg_calcSampleTimeInterval(t_s)) {
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "%s:: calcSampleTimeInterval failed - Measurement discarded.",
                  __func__);
        REG_UPCALLS.halt();
        return;
    }
    v.measRefData = {v.vTnorm, Z_TEMP_REF, t_s, v.m[Z_TEMP_REF], v.R_all[Z_TEMP_REF]};
    KvdLoz6TuReg_estimate(v.measRefData);

    if (!loopKeepsHistory(v.selectedRef)) {
        KvdLoz6TuReg_writeHistory(v.histCountDown <= 0.0);
        if (v.histCountDown > 0.0) v.histCountDown -= 1.0;
    }
    if (v.calibrationCountDown > 0.0) v.calibrationCountDown -= TEMP_TICK;
    if (v.calibrationCountDown <= 0.0 && KvdLoz6TuReg_calibrationExpiryCheck())
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s:: Calibration is soon to expire.", __func__);
}
