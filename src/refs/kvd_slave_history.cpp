// kvd_slave_history.cpp - What the slave's measurements brought: rings, snapshots, printout.
#include "refs/kvd_slave.h"
#include "refs/kvd_slave_int.h"

#include "base/text_of.h"
#include "base/tu_common.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "ose/module_data.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"

#include <iterator>

using node::shellPrintf;

namespace {

ose::ModuleData<slave::History> s;

constexpr const char* EVENT_TEXTS[] = {
    "EV_SLAVE_PLL_UNEVENTFUL_MEASUREMENT",       "EV_SLAVE_PLL_BFN_READ_ERROR",
    "EV_SLAVE_PLL_UNRELIABLE_MEASUREMENT",       "EV_SLAVE_PLL_5MS_ANOMALY",
    "EV_SLAVE_PLL_EXPLICIT_FREQ_SYNC",           "EV_SLAVE_PLL_TARGETDIFF_UPDATED",
    "EV_SLAVE_PLL_REVERT_TO_EXPLICIT_FREQ_SYNC", "EV_SLAVE_PLL_PROCEEDING_TO_LOCKED_W_JUMP",
    "EV_SLAVE_PLL_PROCEEDING_TO_LOCKED",         "EV_SLAVE_PLL_JUMP_WITHIN_LOCKED",
    "EV_SLAVE_PLL_DEGRADING_TO_UNLOCKED",
};
static_assert(std::size(EVENT_TEXTS) == EV_SLAVE_PLL_DEGRADING_TO_UNLOCKED + 1);

const char* eventText(u32 event) { return textOf(EVENT_TEXTS, event, "<Unknown>"); }

const char* stateText(u32 slavePllState)
{
    switch (slavePllState) {
    case SLAVE_PLL_Uninitialized: return "SLAVE_PLL_Uninitialized";
    case SLAVE_PLL_Unlocked:      return "SLAVE_PLL_Unlocked";
    case SLAVE_PLL_Locked:        return "SLAVE_PLL_Locked";
    default:                      return "<Unknown>";
    }
}

}  // namespace

slave::History& slave::history() { return *s; }

void slave::writeIdl1History(double phaseDiff)
{
    Idl1Record record;
    record.used = 1;
    record.currSlavePllState = needs().slavePllState();
    record.m = static_cast<u32>(KvdLoz6TuReg_measStateVar().m[Z_IDL1_LOZ6]);
    record.phaseDiff = phaseDiff;
    record.targetDiff = KvdLoz6TuReg_pll_targetDiff();
    record.extAccFreqOffset = KvdLoz6TuReg_pll_extAccFreqOffset();
    record.currSlavePllEvent = s->currSlavePllEvent;
    TuCommon_timeStamp(record.time);
    s->idl1.write(record);
}

void slave::writeIdl2History(const Idl2Record& record)
{
    Idl2Record stamped = record;
    stamped.used = 1;
    TuCommon_timeStamp(stamped.time);
    s->idl2.write(stamped);
}

void KvdLoz6TuSlave_setSlavePllEvent(u32 event) { s->currSlavePllEvent = event; }

void KvdLoz6TuSlave_logIdl1History(u32 keep)
{
    if (keep == 1) s->idl1Snapshot = s->idl1;
}

void KvdLoz6TuSlave_logIdl2History(u32 keep)
{
    if (keep == 1) s->idl2Snapshot = s->idl2;
}

// ---- printout -----------------------------------------------------------------------------------

namespace {

void printIdl1(const slave::Idl1Record& r)
{
    shellPrintf("[%s]: apn = %u, m = %u, currSlavePllState = %s, phaseDiff = %-17.16g s, "
                "targetDiff = %-17.16g s, extAccFreqOffset = %-17.16g, currSlavePllEvent = %s\n",
                r.time, KvdLoz6TuIifAdm_apn(), r.m, stateText(r.currSlavePllState), r.phaseDiff,
                r.targetDiff, r.extAccFreqOffset, eventText(r.currSlavePllEvent));
}

void printDelay(const char* unit, const slave::DelayWords& w)
{
    shellPrintf("   T1C1High_%s = %u, T1C1Low_%s = %u, C4T1High_%s = %u, C4T1Low_%s = %u\n", unit, w.T1C1High,
                unit, w.T1C1Low, unit, w.C4T1High, unit, w.C4T1Low);
}

void printIdl2(const slave::Idl2Record& r)
{
    shellPrintf("[%s]: apn = %u, m = %u, currSlavePllState = %s\n", r.time, KvdLoz6TuIifAdm_apn(), r.m,
                stateText(r.currSlavePllState));
    printDelay("masterDu", r.masterDu);
    printDelay("slaveDu", r.slaveDu);
    shellPrintf("   jumpPend = %u, jumpInd = %u, nearEndportNo = %u, farEndportNo = %u, "
                "synchPortNo = %u, directConn = %u, linkMode = %u, linkStability = %u\n",
                r.jumpPend, r.jumpInd, r.nearEndportNo, r.farEndportNo, r.synchPortNo,
                r.directConn, r.linkMode, r.linkStability);
    shellPrintf("   master_esfc = %u, master_mfc = %u, master_sfc = %u, master_inc = %u\n",
                r.master_esfc, r.master_mfc, r.master_sfc, r.master_inc);
    shellPrintf("   slave_esfc = %u, slave_mfc = %u, slave_sfc = %u, slave_inc = %u\n",
                r.slave_esfc, r.slave_mfc, r.slave_sfc, r.slave_inc);
    shellPrintf("   intermediaryDuFineTimeSynching = %u, intermediaryDuPhaseDiff = %-17.16g s, "
                "phaseDiff = %-17.16g s, totalPhaseDiff = %-17.16g s, "
                "extAccFreqOffset = %-17.16g\n",
                r.intermediaryDuFineTimeSynching, r.intermediaryDuPhaseDiff, r.phaseDiff,
                r.totalPhaseDiff, r.extAccFreqOffset);
    shellPrintf("   idl2FineTuning = %u, repeatFineSyncIndDueTojump = %u, instabilityCntNe = %u, "
                "instabilityCntFe = %u, iterationIsRegulated = %u, postponeTimeTuning = %u\n",
                r.idl2FineTuning, r.repeatFineSyncIndDueTojump, r.instabilityCntNe,
                r.instabilityCntFe, r.iterationIsRegulated, r.postponeTimeTuning);
}

template <typename Ring, typename Print>
void printRing(const Ring& ring, Print print)
{
    for (u32 i = 0; i < ring.slot.size(); ++i)
        if (ring.oldest(i).used != 0) print(ring.oldest(i));
}

}  // namespace

void KvdLoz6TuSlave_printInfo()
{
    const slave::Idl2State& state = slave::idl2State();
    const slave::EsfcSend& sent = slave::esfcSend();
    const slave::EsfcFollow& follow = slave::esfcFollowState();
    shellPrintf("\n***** Inter-unit measurements *****\n");
    shellPrintf("   eSfc sent            : last %u, last mfn %u, closed %u\n", sent.lastEsfc, sent.lastMfn,
                sent.eSfcClosed);
    shellPrintf("   eSfc received        : last %u, update %u\n", follow.lastEsfc, follow.updateEsfc);
    shellPrintf("   idl2SyncDataStopped  : %u\n   idl2FineTuning       : %u\n", state.idl2SyncDataStopped,
                state.idl2FineTuning);
    shellPrintf("   repeatFineSyncIndDueTojump, postponeTimeTuning : %u, %u\n",
                state.repeatFineSyncIndDueTojump, state.postponeTimeTuning);
    shellPrintf("   instabilityCntNe, instabilityCntFe : %u, %u\n", state.instabilityCntNe,
                state.instabilityCntFe);
    shellPrintf("\n\nIDL1 measurement history snapshot :\n\n");
    printRing(s->idl1Snapshot, printIdl1);
    shellPrintf("\n\nIDL2 measurement history snapshot:             \n\n");
    printRing(s->idl2Snapshot, printIdl2);
}
