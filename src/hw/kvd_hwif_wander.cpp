// kvd_hwif_wander.cpp - Test generator that adds a sine to the frequency, sixteen steps a period.
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_priv.h"
#include "sig/hwif_sig.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "hw/kvd_hwif_upcalls.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"

using namespace hwif;

namespace {

constexpr u32 WANDER_STOP = 0, WANDER_START = 1, WANDER_STEP = 2;
constexpr u32 STEPS = 16;
constexpr double PI_9 = 3.14159265;     // nine decimals, as test reports are compared with it
constexpr u32 LONGEST_RUN_s = 172800;   // 2 days
constexpr double SINE[STEPS] = {        // sin((i + 1) pi / 8)
     0.3826834324,  0.7071067812,  0.9238795325,  1.0,
     0.9238795325,  0.7071067812,  0.3826834324,  0.0,
    -0.3826834324, -0.7071067812, -0.9238795325, -1.0,
    -0.9238795325, -0.7071067812, -0.3826834324,  0.0,
};

struct State {
    bool active = false;
    KvdTimer timer;
    u32 startTicks = 0;
    u32 index = 0;             // 0 to 15
    double offset = 0.0;       // relative
};
ose::ModuleData<State> s;

u32 secondsSinceStart()
{
    return static_cast<u32>(static_cast<u64>(ose::get_ticks() - s->startTicks) * ose::system_tick()
                            / 1000000);
}

void goIdle()
{
    s->active = false;
    s->offset = 0.0;
}

void renewTimer(const KvdTuhwifGenWanderReq& req, u32 interval)
{
    if (s->timer.runs()) return;
    auto* step = node::make<KvdTuhwifGenWanderReq>(KVD_TUHWIF_GEN_WANDER_REQ);
    step->operation = WANDER_STEP;
    step->frequency = req.frequency;
    step->amplitude = req.amplitude;
    step->offset = req.offset;
    if (KvdTimer_startSig(s->timer, interval, reinterpret_cast<Signal*>(step))) return;
    KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "No timer for wander generation, it ends here");
    goIdle();
}

void generate(const KvdTuhwifGenWanderReq& req, u32 interval)
{
    s->offset = wanderOffset(req.frequency, req.amplitude, req.offset, s->index);
    const double U_nom = tuHwIf_factoryDivider();
    tuHwIf_adjustFrequency(HWIF_UPCALLS.divider() / U_nom - 1);
    ++s->index;
    if (s->index >= STEPS) {
        s->index = 0;
        if (secondsSinceStart() > LONGEST_RUN_s) {
            KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "stopping wander generation after 2 days");
            goIdle();
            return;
        }
    }
    renewTimer(req, interval);
}

void onStart(const KvdTuhwifGenWanderReq& req, u32 interval)
{
    if (!s->active) {
        s->active = true;
        s->startTicks = ose::get_ticks();
        KVD_TRACE(TRACE_TUHWIF, TRACE_INFO,
                  "Starting wander generation, frequency= %g, amplitude= %g, offset= %g", req.frequency,
                  req.amplitude, req.offset);
    }
    if (s->timer.runs()) {
        KvdTimer_cancel(s->timer);
        KVD_TRACE(
            TRACE_TUHWIF, TRACE_INFO,
            "Previous wander generation is stopped. Starting new wander generation: frequency= %g, "
            "amplitude= %g, offset= %g",
            req.frequency, req.amplitude, req.offset);
    }
    generate(req, interval);
}

void onStop()
{
    KvdTimer_cancel(s->timer);
    goIdle();
    KVD_TRACE(TRACE_TUHWIF, TRACE_INFO, "Wander generation stopped.");
}

void onStep(const KvdTuhwifGenWanderReq& req, u32 interval)
{
    if (KvdTimer_expired(s->timer) && s->active) generate(req, interval);
}

void onGenWanderReq(const KvdTuhwifGenWanderReq* req)
{
    if (req == nullptr) return;
    if (req->operation == WANDER_STOP) return onStop();
    if (req->operation > WANDER_STEP) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Unknown Wander Generation Operation");
        return;
    }
    const u32 interval = wanderInterval(req->frequency);
    if (interval == 0) {
        KVD_TRACE(TRACE_TUHWIF, TRACE_ERROR, "Wander frequency refused, frequency= %g mHz", req->frequency);
        return;
    }
    if (req->operation == WANDER_START) onStart(*req, interval);
    else onStep(*req, interval);
}

}  // namespace

namespace hwif {

double wanderOffset(double f_mHz, double a_ns, double o, u32 index)
{
    return 2 * a_ns * PI_9 * f_mHz * SINE[index] * 1e-12 + o;
}

u32 wanderInterval(double f_mHz) { return wholeOr0(1000000 / (8 * f_mHz)); }

WanderState wanderState() { return {s->active ? 1u : 0u, s->index, s->timer.runs() ? 1u : 0u}; }

}  // namespace hwif

double tuHwIf_wanderOffset() { return s->offset; }

bool tuHwIf_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUHWIF_GEN_WANDER_REQ: onGenWanderReq(as<KvdTuhwifGenWanderReq>(sig)); return true;
    default:                                                                        return false;
    }
}
