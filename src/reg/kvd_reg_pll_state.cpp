// Changes of the loops' states, in the order in which they are told.
#include "reg/kvd_reg_pll_int.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "node/trace.h"
#include "sig/inrsi_sig.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_unit_link.h"

namespace {

void report(u8 clockState) { pll::needs().report(clockState); }

void reportFromFreqLocked(u8 clockState)
{
    report(KVD_TUIIF_FREQUENCY_LOCKED);
    report(clockState);
}

void reportOffsetLocked(u32 from)
{
    if (from == PLL_Locked || from == PLL_Offset_Holdover || (from == PLL_Locked_Holdover && pll::isSoCpri()))
        return report(KVD_TUIIF_TIME_OFFSET_LOCKED);
    if (from != PLL_Locked_Holdover) return reportFromFreqLocked(KVD_TUIIF_TIME_OFFSET_LOCKED);
    report(KVD_TUIIF_RNT_TIME_LOCKED);
    report(KVD_TUIIF_TIME_OFFSET_LOCKED);
}

void reportChange(u32 from, u32 to)
{
    switch (to) {
    case PLL_Uninitialized:
        if (from == PLL_Unlocked && pll::needs().isMaster()) report(KVD_TUIIF_FREQUENCY_HOLDOVER);
        break;
    case PLL_PreJumpStart: return report(KVD_TUIIF_PREJUMP_START);
    case PLL_PreJumpHist:  return report(KVD_TUIIF_PREJUMP_HIST);
    case PLL_Unlocked:
        if (from == PLL_OffsetLocked || from == PLL_Locked) report(KVD_TUIIF_FREQUENCY_LOCKED);
        break;
    case PLL_OffsetLocked: return reportOffsetLocked(from);
    case PLL_Locked:
        if (from != PLL_Uninitialized && from != PLL_OffsetLocked && from != PLL_Locked_Holdover)
            report(KVD_TUIIF_FREQUENCY_LOCKED);
        pll::needs().tellGpsOut(PLL_IS_TIME_LOCKED);
        return report(KVD_TUIIF_RNT_TIME_LOCKED);
    case PLL_Freq_Holdover:
        if (from == PLL_Locked) report(KVD_TUIIF_RNT_TIME_HOLDOVER);
        if (from == PLL_OffsetLocked) report(KVD_TUIIF_TIME_OFFSET_HOLDOVER);
        return report(KVD_TUIIF_FREQUENCY_HOLDOVER);
    case PLL_Offset_Holdover: return report(KVD_TUIIF_TIME_OFFSET_HOLDOVER);
    case PLL_Locked_Holdover: return report(KVD_TUIIF_RNT_TIME_HOLDOVER);
    default:                  break;
    }
}

void log(u32 state)
{
    pll::Pll& p = pll::vars();
    pll::LogEntry& entry = p.log[p.logIndex];
    entry.state = state;
    entry.mode = pll::mode();
    TuCommon_timeStamp(entry.time);
    p.logIndex = static_cast<u16>((p.logIndex + 1) % pll::LOG_ENTRIES);
}

/// What lay in the vector came from another lock, unless this one follows its own holdover after a
/// restart of the main processor.
void emptyOrKeepVector(u32 from, u32 to)
{
    if (to != PLL_OffsetLocked && to != PLL_Locked) return;
    const char* const a = KvdLoz6TuReg_pllStateText(from);
    const char* const b = KvdLoz6TuReg_pllStateText(to);
    const u32 ownHoldover = to == PLL_OffsetLocked ? PLL_Offset_Holdover : PLL_Locked_Holdover;
    if (from != ownHoldover) {
        KVD_TRACE(TRACE_PLL, TRACE_INFO, "Holdover vector is emptied. State change: %s -> %s.", a, b);
        pll::emptyVector();
    } else if (pll::vars().emptyHOVector != 0) {
        KVD_TRACE(TRACE_PLL, TRACE_INFO,
                  "Holdover vector is emptied. State change: %s -> %s.MP restart is not reason for "
                  "state change.",
                  a, b);
        pll::emptyVector();
    } else {
        KVD_TRACE(TRACE_PLL, TRACE_INFO,
                  "Holdover vector is not emptied. State change: %s -> %s.MP restart is reason for "
                  "state change.",
                  a, b);
        pll::vars().emptyHOVector = 1;
    }
}

void forgetVector()
{
    pll::emptyVector();
    pll::vars().timeAccuracyIndSent = 0;
    pll::vars().emptyHOVector = 1;
}

}  // namespace

bool pll::isGpsOsl() { return needs().selectedRef() == TU_SR_GPSOSL_REF; }
bool pll::isSoCpri() { return needs().selectedRef() == TU_SR_SOCPRI_REF; }

pll::Mode pll::mode()
{
    if (!needs().isMaster()) return needs().idlMode() == KVD_BIRAIIF_IDL_MODE_2 ? MODE_IDL2 : MODE_IDL1;
    if (isGpsOsl()) return MODE_GPSOSL;
    return isSoCpri() ? MODE_SOCPRI : MODE_NONE;
}

void pll::traceFaulty(const char* control, u32 state)
{
    KVD_TRACE(TRACE_PLL, TRACE_ERROR, "%s() - Controlling PLL while in faulty state (%u)", control, state);
}

bool pll::isUnreliable(Counters& c)
{
    if (c.unreliableMeasCnt >= UNRELIABLE) return false;
    ++c.unreliableMeasCnt;
    return true;
}

bool pll::followTarget(Counters& c, double phaseDiff, double near_s, double far_s)
{
    const double d = phaseDiff - vars().targetDiff;
    if (isBeyond(d, far_s)) {
        vars().targetDiff = phaseDiff;
        c.changeStateCounter = 0;
        return true;
    }
    if (isWithin(d, near_s))           ++c.changeStateCounter;
    else if (c.changeStateCounter > 0) --c.changeStateCounter;
    return false;
}

void pll::countBeyondLimit(Counters& c, double phaseDiff, double near_s, double far_s)
{
    if (++c.changeToUnlockedCounter == 1 && isBeyond(phaseDiff, far_s)) vars().targetDiff = phaseDiff;
    if (isWithin(phaseDiff - vars().targetDiff, near_s)) ++c.changeToOffsetLockedCounter;
}

void pll::loseOffset(const char* control, double phaseDiff)
{
    KVD_TRACE(TRACE_PLL, TRACE_INFO,
              "*** Transiting from OffsetLocked to Unlocked! *** %s() - phaseDiff %-17.16g [s], "
              "targetDiff %-17.16g [s]",
              control, phaseDiff, vars().targetDiff);
    changeState(PLL_Unlocked);
}

void pll::changeState(u32 to)
{
    Pll& p = vars();
    const u32 from = p.currState;
    if (from == to) return;
    p.prevState = from;
    p.currState = to;
    KVD_TRACE(TRACE_PLL, TRACE_INFO, "State change: %s -> %s", KvdLoz6TuReg_pllStateText(from),
              KvdLoz6TuReg_pllStateText(to));
    needs().forceStatus();
    if (needs().action() != INRSI_CLIENT_ACTION_BFN_ALIGN) needs().lastRegulatorState(to);
    const bool locks = to == PLL_OffsetLocked || to == PLL_Locked;
    if (isGpsOsl() && (locks || (to == PLL_Uninitialized && from == PLL_Unlocked))) needs().setFreqLocked();
    reportChange(from, to);
    log(to);
    p.stateChanged = 1;
    if (isGpsOsl() || isSoCpri()) emptyOrKeepVector(from, to);
}

void pll::changeSlaveState(u32 to)
{
    Pll& p = vars();
    const u32 from = p.currSlaveState;
    if (from == to) return;
    p.prevSlaveState = from;
    p.currSlaveState = to;
    KVD_TRACE(TRACE_PLL, TRACE_INFO, "State change: %s -> %s", KvdLoz6TuReg_slavePllStateText(from),
              KvdLoz6TuReg_slavePllStateText(to));
    needs().forceStatus();
    needs().lastSlaveRegulatorState(to);
    if (to == SLAVE_PLL_Locked || (from == SLAVE_PLL_Unlocked && to == SLAVE_PLL_Uninitialized))
        needs().setFreqLocked();
    switch (to) {
    case SLAVE_PLL_Uninitialized:
        report(KVD_TUIIF_SLAVE_FREE_RUNNING);
        needs().tellGpsOut(PLL_IS_NOT_TIME_LOCKED);
        break;
    case SLAVE_PLL_Unlocked:
        if (from == SLAVE_PLL_Locked) report(KVD_TUIIF_SLAVE_FREE_RUNNING);
        break;
    default:
        if (from != SLAVE_PLL_Uninitialized) report(KVD_TUIIF_SLAVE_FREQUENCY_LOCKED);
        report(KVD_TUIIF_SLAVE_FRAME_LOCKED);
        break;
    }
    log(to);
    p.stateChanged = 1;
}

void KvdLoz6TuReg_pll_setState(u32 pllState)
{
    pll::changeState(pllState);
    if (pllState == PLL_Uninitialized) forgetVector();
}

void KvdLoz6TuReg_slavePll_setState(u32 slavePllState)
{
    pll::changeSlaveState(slavePllState);
    if (slavePllState == SLAVE_PLL_Uninitialized) forgetVector();
}
