// Expiry of the oscillator's calibration: how long holdover would keep the frequency in its best
// grade, told to the client as a date and as a warning.
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"

#include <cmath>
#include <cstdio>

namespace {

struct State {
    bool soonToExpire = false;         // as last told
};
ose::ModuleData<State> s;

void setExpiryText()
{
    constexpr double DAY = 86400.0;
    const double left = std::floor(KvdLoz6TuReg_lookAheadCalibration() * DAY);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Expiration within %s number of seconds", TuCommon_text(left));
    const DateTime t = TuCommon_secondsToDate(node::platform().calendar().seconds + static_cast<i64>(left));
    char text[16];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d", t.year, t.month, t.day);
    KvdLoz6TuReg_setCalibrationExpiry(text);
}

}  // namespace

bool KvdLoz6TuReg_calibrationExpiryCheck()
{
    constexpr double CHECK_INTERVAL = 3600.0;      // s
    bool soon = KvdLoz6TuReg_lookAheadSoonToExpire(tuHwIf_calibrationLimit());
    const u32 selectedRef = KvdLoz6TuReg_selectedRef();
    if (selectedRef == TU_SR_GPSOSL_REF || selectedRef == TU_SR_SOCPRI_REF) soon = false;
    if (soon != s->soonToExpire) {
        KvdLoz6TuIifAdm_setSoonToExpire(soon ? 1 : 0);
        s->soonToExpire = soon;
    }
    setExpiryText();
    KvdLoz6TuReg_setCalibrationCountDown(CHECK_INTERVAL);
    return soon;
}
