// Core of the loops: their variables, start, reads, and the neighbours' operations.
#include "reg/kvd_reg_pll_int.h"

#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_unit_link.h"

#include <iterator>

using node::shellPrintf;

namespace {

constexpr u32 TIME_ACCURACY_ns = 50;             // at the first lock

constexpr const char* STATE_TEXT[] = {
    "PLL_Uninitialized", "PLL_PreJumpStart", "PLL_PreJumpHist",
    "PLL_Unlocked", "PLL_OffsetLocked", "PLL_Locked",
    "PLL_Freq_Holdover", "PLL_Offset_Holdover", "PLL_Locked_Holdover"};
constexpr const char* SLAVE_STATE_TEXT[] = {"SLAVE_PLL_Uninitialized", "SLAVE_PLL_Unlocked",
                                            "SLAVE_PLL_Locked"};
constexpr const char* MODE_TEXT[] = {"-", "GPSOSL", "IDL1", "IDL2", "SOCPRI"};

struct State {
    pll::Pll pll;
    const pll::Needs* needs = nullptr;           // a test's own
};
ose::ModuleData<State> s;

/// Only the basic function hands over a slave that follows in frequency already. Any other that isn't locked
/// runs free, and that is its last word until it locks.
void reportSlaveState(u32 slavePllState)
{
    KvdLoz6TuIifAdm_reportSlavePllState(slavePllState);
    const bool wasHandedOver = KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2
                               && s->pll.prevSlaveState == SLAVE_PLL_Uninitialized;
    if (slavePllState == SLAVE_PLL_Unlocked && !wasHandedOver) KvdLoz6TuIifAdm_reportRegState(FREQDRIFTING);
}

constexpr pll::Needs NEEDS = {
    .selectedRef = KvdLoz6TuReg_selectedRef,
    .isMaster = KvdLoz6TuReg_isMaster,
    .idlMode = KvdLoz6BiraIifAdm_idlMode,
    .currentFreqOffset = tuHwIf_getCurrentFreqOffset,
    .adjustFrequency = tuHwIf_adjustFrequency,
    .adjustOffset = [](double c, double f) { KvdLoz6TuReg_adjustOffset(c, f); },
    .offset = KvdLoz6TuReg_getOffset,
    .clearOffset = [] { KvdLoz6TuReg_setOffset(0.0, 0.0); },
    .adjustSlaveOffset = KvdLoz6TuReg_adjustSlaveOffset,
    .slaveOffset = KvdLoz6TuReg_getSlaveOffset,
    .clearSlaveOffset = KvdLoz6TuReg_clearSlaveOffset,
    .adjustTime = KvdLoz6TuReg_adjust_time,
    .clearMod = [] { KvdLoz6TuReg_setMod(0.0); },
    .writeHistory = KvdLoz6TuReg_writeHistoryFromPll,
    .retryJump =
        [] {
            if (KvdLoz6TuReg_jumpState() == JUMP_NEEDED && KvdLoz6TuReg_pll_sourceTime()) KvdLoz6TuReg_Jump();
        },
    .forceStatus = KvdLoz6TuIifAdm_setForceSend,
    .lastRegulatorState = KvdLoz6TuIifAdm_reportPllState,
    .lastSlaveRegulatorState = reportSlaveState,
    .setFreqLocked = [] { KvdLoz6TuReg_setRegState(FREQLOCKED); },
    .report = KvdLoz6TuIifAdm_updateRadioClockState,
    .timeAccuracy = [] { KvdLoz6TuIifAdm_sendTimeAccuracyNow(TIME_ACCURACY_ns); },
    .tellGpsOut = [](u32 state) { REG_UPCALLS.loopStateChanged(state); },
    .action = [] { return REG_UPCALLS.socpriAction(); },
    .timeDataEqual = KvdLoz6TuReg_socpriTimeDataEqual,
    .answerContinuation = [](u32 status) { REG_UPCALLS.socpriAnswerContinuation(status); },
    .armContinuation = [] { REG_UPCALLS.socpriSetContinuation(1); },
    .timeSyncSucceeded = [] { REG_UPCALLS.socpriTimeSyncSucceeded(); },
    .timeSyncFailed = [] { REG_UPCALLS.socpriTimeSyncFailed(); },
    .storeYi = [](double yi) { REG_UPCALLS.storeYi(yi); },
    .slaveEvent = [](u32 event) { REG_UPCALLS.slaveEvent(event); },
    .tellIdl1Locked = [](bool isLocked) { REG_UPCALLS.tellIdl1Locked(isLocked); },
    .unableToTimeLock = [] { return REG_UPCALLS.unableToTimeLock(); },
    .sendClkStatus = [](u8 clkStatus) { return REG_UPCALLS.sendClkStatus(clkStatus); },
    .storeClkStatus = [](u32 clkStatus,
                         const char* caller) { REG_UPCALLS.storeClkStatus(clkStatus, caller); },
    .startType = KvdLoz6BiraIifAdm_startType,
    .isTimeSyncAsked = [] { return KvdLoz6BiraIifAdm_timeTuningOngoing() != 0; },
    .tellFineTime = [] { KvdLoz6TuIifAdm_updateRadioClockState(KVD_TUIIF_SLAVE_FRAME_LOCKED); },
};

}  // namespace

pll::Pll& pll::vars() { return s->pll; }
const pll::Needs& pll::needs() { return s->needs != nullptr ? *s->needs : NEEDS; }
void pll::setNeeds(const Needs* replacement) { s->needs = replacement; }

bool pll::takeStateChanged()
{
    const bool isFirst = s->pll.stateChanged != 0;
    s->pll.stateChanged = 0;
    return isFirst;
}

void KvdLoz6TuReg_pll_init(u32 pllState)
{
    pll::changeState(pllState);
    s->pll.stateChanged = 1;
    if (pll::isSoCpri()) pll::needs().clearOffset();
    pll::needs().clearMod();
    s->pll.yi = pll::needs().currentFreqOffset();
}

void KvdLoz6TuReg_slavePll_init(u32 slavePllState)
{
    pll::changeSlaveState(slavePllState);
    s->pll.stateChanged = 1;
    pll::needs().clearMod();
    s->pll.yi = pll::needs().currentFreqOffset();
    const bool isIdl2 = pll::needs().idlMode() == KVD_BIRAIIF_IDL_MODE_2;
    KVD_TRACE(TRACE_PLL, TRACE_INFO,
              isIdl2 ? "%s() - IDL2 slave mode detected" : "%s() - IDL1 slave mode detected", __func__);
    pll::setSlaveGains(isIdl2);
}

void KvdLoz6TuReg_slavePll_control(double phaseDiff)
{
    pll::notePhase(phaseDiff);
    if (pll::needs().idlMode() == KVD_BIRAIIF_IDL_MODE_2) pll::controlIdl2(phaseDiff);
    else                                                  pll::controlIdl1(phaseDiff);
}

void pll::notePhase(double phaseDiff)
{
    s->pll.lastPhaseDiff = phaseDiff;
    ++s->pll.phaseCount;
}

LoopSample KvdLoz6TuReg_pll_lastSample()
{
    const pll::Pll& p = s->pll;
    return {p.lastPhaseDiff, p.phaseCount, p.yi + p.extAccFreqOffset};
}
u32  KvdLoz6TuReg_pllState() { return s->pll.currState; }
u32  KvdLoz6TuReg_slavePllState() { return s->pll.currSlaveState; }
bool KvdLoz6TuReg_pllIsLocked()
{
    return s->pll.currState == PLL_OffsetLocked || s->pll.currState == PLL_Locked;
}
bool KvdLoz6TuReg_pllIsHoldover() { return s->pll.currState >= PLL_Freq_Holdover; }

void   KvdLoz6TuReg_pll_clearEmptyHOVector() { s->pll.emptyHOVector = 0; }
double KvdLoz6TuReg_pll_targetDiff() { return s->pll.targetDiff; }
void   KvdLoz6TuReg_pll_setTargetDiff(double targetDiff) { s->pll.targetDiff = targetDiff; }
void   KvdLoz6TuReg_slavePll_setYi(double yi) { s->pll.yi = yi; }
double KvdLoz6TuReg_pll_extAccFreqOffset() { return s->pll.extAccFreqOffset; }
void   KvdLoz6TuReg_pll_setExtAccFreqOffset(double offset) { s->pll.extAccFreqOffset = offset; }
u8     KvdLoz6TuReg_pll_regulationMode() { return s->pll.regulationMode; }
void   KvdLoz6TuReg_pll_setRegulationMode(u8 mode) { s->pll.regulationMode = mode; }

const char* KvdLoz6TuReg_pllStateText(u32 pllState)
{
    return pllState < std::size(STATE_TEXT) ? STATE_TEXT[pllState] : "unknown";
}

const char* KvdLoz6TuReg_slavePllStateText(u32 slavePllState)
{
    return slavePllState < std::size(SLAVE_STATE_TEXT) ? SLAVE_STATE_TEXT[slavePllState] : "unknown";
}

void KvdLoz6TuReg_pllPrintInfo()
{
    const pll::Pll& p = s->pll;
    shellPrintf("\n***** PLL *****\n");
    shellPrintf("   state                : %s (before %s)\n", KvdLoz6TuReg_pllStateText(p.currState),
                KvdLoz6TuReg_pllStateText(p.prevState));
    shellPrintf("   slave state          : %s (before %s)\n",
                KvdLoz6TuReg_slavePllStateText(p.currSlaveState),
                KvdLoz6TuReg_slavePllStateText(p.prevSlaveState));
    shellPrintf("   targetDiff           : %g s\n", p.targetDiff);
    shellPrintf("   Kp, Ki, yi           : %g, %g, %.9g\n", p.Kp, p.Ki, p.yi);
    shellPrintf("   extAccFreqOffset     : %g\n", p.extAccFreqOffset);
    shellPrintf("   holdover vector      : %u of %u, mean %.9g\n", pll::vectorFill(), pll::HO_VECTOR,
                pll::vectorMean());
    shellPrintf("   histPllCountDown     : %d s\n", static_cast<i32>(p.histPllCountDown));
    shellPrintf("   regulation mode      : %u\n", p.regulationMode);
    for (u32 i = 0; i < pll::LOG_ENTRIES; ++i) {
        const pll::LogEntry& entry = p.log[(p.logIndex + i) % pll::LOG_ENTRIES];
        if (entry.time[0] == '\0') continue;
        const bool isSlave = entry.mode == pll::MODE_IDL1 || entry.mode == pll::MODE_IDL2;
        shellPrintf("   %.27s  %-6s  %s\n", entry.time, MODE_TEXT[entry.mode],
                    isSlave ? KvdLoz6TuReg_slavePllStateText(entry.state)
                            : KvdLoz6TuReg_pllStateText(entry.state));
    }
}
