// What the estimator tells an operator: its state, and how far apart two references were at a
// change.
#include "base/tu_common.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_estimate_int.h"
#include "reg/kvd_reg_text.h"
#include "sig/ref_types.h"

namespace {

void addTime(CutText& out, const node::CalendarTime& time)
{
    out.addTime(TuCommon_secondsToDate(time.seconds));
}

}  // namespace

namespace estimator {

void recordReferenceSwitch(double z)
{
    State& s = state();
    const u32 froId = KvdLoz6TuIifAdm_activRefFroId();
    const u32 froClassNo = KvdLoz6TuIifAdm_activRefFroClassNo();
    const node::CalendarTime now = node::platform().calendar();
    const bool changed = froId != s.lastFroId || froClassNo != s.lastFroClassNo;
    const bool bothKnown = froId != FRO_NONE && s.lastFroId != FRO_NONE;
    if (changed && bothKnown) {
        constexpr u32 SLOTS = static_cast<u32>(std::tuple_size_v<decltype(s.switches)>);
        s.switches[s.nextSwitch] = {s.lastFroId, s.lastFroClassNo, froId, froClassNo,
                                    z - s.lastZ, s.lastTime, now};
        s.nextSwitch = (s.nextSwitch + 1) % SLOTS;
        if (s.switchCount < SLOTS) ++s.switchCount;
    }
    s.lastFroId = froId;
    s.lastFroClassNo = froClassNo;
    s.lastZ = z;
    s.lastTime = now;
}

}  // namespace estimator

u32 KvdLoz6TuReg_referenceSwitchesText(char* text, u32 room)
{
    const estimator::State& s = estimator::state();
    const u32 slots = static_cast<u32>(s.switches.size());
    CutText out{text, room};
    out.add("\nSwitches between references and phase offset difference beween them\n");
    for (u32 i = 0; i < s.switchCount; ++i) {
        const estimator::ReferenceSwitch& sw = s.switches[(s.nextSwitch + slots - s.switchCount + i) % slots];
        addTime(out, sw.fromTime);
        out.add(" froId=%u froClassNo=%u -> ", sw.fromFroId, sw.fromFroClassNo);
        addTime(out, sw.toTime);
        out.add(" froId=%u froClassNo=%u: %-16.17g s\n", sw.toFroId, sw.toFroClassNo, sw.phaseDifference);
    }
    return out.length;
}

void KvdLoz6TuReg_estimatePrintInfo()
{
    const estimator::State& s = estimator::state();
    const EstimateStateVar& v = s.var;
    node::shellPrintf("\n***** Estimator *****\n");
    for (u32 i = 0; i < 6; ++i) node::shellPrintf("   x_est[%u]             : %-16.17g\n", i, v.x_est[i]);
    for (u32 i = 0; i < 6; ++i)
        node::shellPrintf("   P_est[%u][%u]          : %-16.17g\n", i, i, v.P_est[i * 6 + i]);
    node::shellPrintf("   T                    : %-16.17g\n   t_s                  : %-16.17g\n", v.T,
                      s.estimatePar.t_s);
    node::shellPrintf("   b                    : %-16.17g\n   u_tf[1]              : %-16.17g\n", v.b,
                      v.u_tf[1]);
    node::shellPrintf("   var_G, var_F         : %-16.17g, %-16.17g\n", v.var_G, v.var_F);
    node::shellPrintf("   initialFrequencyDrift: %-16.17g\n", s.initialFrequencyDrift);
    node::shellPrintf("   prevRef              : %s (%u)\n   measCount            : %u\n",
                      KvdLoz6TuReg_measurementText(v.prevRef), v.prevRef, v.measCount);
    node::shellPrintf("   degrd, degrState     : %u, %u\n   fixFreqMode          : %u\n", v.degrd,
                      v.degrState, v.fixFreqMode);
}
