#include "reg/kvd_reg_imprec.h"

#include "base/trace_groups.h"
#include "fifo/kvd_fifo_proc.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_measure.h"
#include "sig/ref_types.h"

#include <algorithm>
#include <cmath>

namespace {

ose::ModuleData<Recovery> s;

enum Mode : u32 { NORMAL = 0, RETURNING = 1, WIDENED = 2 };
enum Event : u32 { OFFSETS_GONE = 0, OFFSETS_LAST = 1, CONFIGURED = 2, STEP = 3, RETURNED = 4 };

void widenLimits(double xf_limit)
{
    KvdLoz6TuReg_setFrequencyLimit(3e-8);
    KvdLoz6TuReg_setFrequencyLowerLimit(2.98e-8);
    KvdLoz6TuReg_setXfLimit(xf_limit);
}

/// Offsets and what the filter believes lie apart: a third of that is one sigma.
void widen(double z)
{
    EstimateStateVar& v = estimator::state().var;
    const double sigma = (std::fabs(z) - std::fabs(v.x_est[0])) / 3.0;
    v.P_est[0] = 0.1 * (sigma * sigma);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Updated P_est[P11_66]");
    widenLimits(2.4e-8);
}

void beginReturn(double) { widenLimits(1.5e-8); }

void countStep(double)
{
    constexpr u8 STEPS = 2;
    if (++s->steps <= STEPS) return;
    KvdLoz6TuReg_recoveryEvent(RETURNED);
    s->steps = 0;
}

void endReturn(double)
{
    const u32 selectedRef = KvdLoz6TuReg_selectedRef();
    const bool isGpsOut = selectedRef == TU_GPS_OUT_REF || selectedRef == TU_SR_GPSOSL_REF;
    KvdLoz6TuReg_setFrequencyLimit(1.7e-8);
    KvdLoz6TuReg_setFrequencyLowerLimit(isGpsOut ? 1.7e-9 : 1.68e-8);
    s->ring.fill(0.0);
    s->next = 0;
    KvdLoz6Fifo_dump();
}

struct Transition { u32 mode; u32 event; void (*action)(double z); u32 next; };
constexpr Transition TRANSITIONS[] = {
    // mode     event         action       next
    {NORMAL,    OFFSETS_LAST, widen,       WIDENED},
    {WIDENED,   OFFSETS_GONE, beginReturn, RETURNING},
    {WIDENED,   CONFIGURED,   beginReturn, RETURNING},
    {RETURNING, STEP,         countStep,   RETURNING},
    {RETURNING, RETURNED,     endReturn,   NORMAL},
};

}  // namespace

const Recovery& KvdLoz6TuReg_recovery() { return *s; }

void KvdLoz6TuReg_recoveryInitiate() { *s = Recovery{}; }

void KvdLoz6TuReg_recoveryEvent(u32 event, double z)
{
    for (const Transition& t : TRANSITIONS) {
        if (t.mode != s->recoveryModeState || t.event != event) continue;
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Current recovery mode  : %d", static_cast<int>(t.mode));
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Current recovery event : %d", static_cast<int>(event));
        s->recoveryModeState = t.next;             // before the action, which may raise an event
        t.action(z);
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "New recovery mode: %d", static_cast<int>(s->recoveryModeState));
        return;
    }
}

void KvdLoz6TuReg_recoveryWatch(double z)
{
    constexpr double LASTING = 1e-6, GONE = 5e-7;  // s
    const u8 regState = KvdLoz6TuReg_regState();
    if (regState != TIMELOCKED && regState != TRUETIME) return;
    s->ring[s->next] = z;
    s->next = (s->next + 1) % static_cast<u32>(s->ring.size());

    const auto all = [](auto condition) { return std::all_of(s->ring.begin(), s->ring.end(), condition); };
    if (s->recoveryModeState == NORMAL) {
        const bool above = all([](double v) { return v >= LASTING; });
        const bool below = all([](double v) { return v <= -LASTING; });
        if (above || below) KvdLoz6TuReg_recoveryEvent(OFFSETS_LAST, z);
    } else if (s->recoveryModeState == WIDENED) {
        if (all([](double v) { return std::fabs(v) <= GONE; })) KvdLoz6TuReg_recoveryEvent(OFFSETS_GONE);
    }
}
