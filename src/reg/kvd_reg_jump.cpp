#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_jump_int.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm_send.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/ref_types.h"
#include "sig/reg_sig.h"
#include "sig/tuiif_sig.h"

#include <cstdio>

namespace {

struct State {
    u32 jumpState = JUMP_NOT_NEEDED;
    u32 jumpRequested = 0, jumpPerformed = 0;        // not yet told in time data
    KvdTimer jumpIndTimer, bfnJumpWarningTimer;
    const jump::Needs* needs = nullptr;              // a test's own
};
ose::ModuleData<State> s;

constexpr jump::Needs NEEDS = {
    KvdLoz6TuReg_pllState,
    KvdLoz6TuReg_pll_setState,
    KvdLoz6TuReg_pll_targetDiff,
    KvdLoz6TuReg_pll_setTargetDiff,
    [] { return REG_UPCALLS.socpriAction(); },
    [](u32 enabled) { REG_UPCALLS.socpriSendBfnJumpInfo(enabled); },
    [](u32 isLong) { REG_UPCALLS.socpriNoMoreBfnJumpsExpected(isLong); },
    [] { REG_UPCALLS.socpriRestartPhaseTimer(); },
    [](u32 status) { REG_UPCALLS.socpriBfnAlignCompleted(status); },
    KvdLoz6TuReg_orderContinuedRegulationTimer,
    KvdLoz6TuReg_logSoCpriEvent,
    KvdLoz6TuIifAdm_sendSocpriSduFollowSfcAdjInd,
};

const char* jumpStateText(u32 jumpState)
{
    switch (jumpState) {
    case JUMP_NOT_NEEDED: return "JUMP_NOT_NEEDED";
    case JUMP_REQUESTED:  return "JUMP_REQUESTED";
    case JUMP_NEEDED:     return "JUMP_NEEDED";
    default:              return "<Unknown>";
    }
}

bool isSocpriSelected() { return KvdLoz6TuReg_selectedRef() == TU_SR_SOCPRI_REF; }

/// A pair as a trace argument.
struct PairText {
    char text[64];
    explicit PairText(TimePair t)
    {
        std::snprintf(text, sizeof text, "%s, %s", TuCommon_text(t.c), TuCommon_text(t.f));
    }
};

u32 take(u32& flag)
{
    const u32 was = flag;
    flag = 0;
    return was;
}

}  // namespace

// ---- shared -------------------------------------------------------------------------------------

namespace jump {

const Needs& needs() { return s->needs != nullptr ? *s->needs : NEEDS; }
void setNeeds(const Needs* replacement) { s->needs = replacement; }

void markPerformed() { s->jumpPerformed = 1; }
bool isPending() { return s->jumpState != JUMP_NOT_NEEDED; }

bool removeOffset()
{
    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    if (!tuHwIf_isOverOneIncrement(delta0.c, delta0.f)) return false;
    KvdLoz6TuReg_adjust_time(-delta0.c, -delta0.f);
    KvdLoz6TuReg_setOffset(0.0, 0.0);
    return true;
}

void traceRefusedTimer() { KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Jump indication tmo request failed!"); }

}  // namespace jump

u32 KvdLoz6TuReg_jumpState() { return s->jumpState; }

void KvdLoz6TuReg_setJumpState(u32 jumpState)
{
    if (jumpState == s->jumpState) return;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Jump State changed from %s -> %s", jumpStateText(s->jumpState),
              jumpStateText(jumpState));
    s->jumpState = jumpState;
}

u32 KvdLoz6TuReg_takeJumpRequested() { return take(s->jumpRequested); }
u32 KvdLoz6TuReg_takeJumpPerformed() { return take(s->jumpPerformed); }

// ---- the step -----------------------------------------------------------------------------------

TimePair jump::turnsOf(double c, double f)
{
    const TimePair t = KvdLoz6Math_longDouble(c / COUNTER_PERIOD, f / COUNTER_PERIOD);
    return {t.c, t.f * COUNTER_PERIOD};
}

namespace {

/// The last sample moves with the counters, so that the next interval is the true one.
void moveLastTime(TimePair step)
{
    constexpr double NO_SAMPLE_YET = -1.0;
    const TimePair last = KvdLoz6TuReg_getLastTime();
    if (last.c == NO_SAMPLE_YET) return;
    KVD_TRACE(TRACE_TUREG, TRACE_3, "adjust_time: t_c_last,t_f_last: %s", PairText(last).text);
    const TimePair sum = jump::turnsOf(last.c + step.c, last.f + step.f);
    const TimePair moved = {sum.c * COUNTER_PERIOD, sum.f};
    KVD_TRACE(TRACE_TUREG, TRACE_3, "adjust_time: new t_c_last,t_f_last: %s", PairText(moved).text);
    KvdLoz6TuReg_setLastTime(moved.c, moved.f);
}

/// Time data of a master waits until the other unit has echoed the jump; a slave took its leader's time.
void markStep()
{
    if (KvdLoz6TuReg_isMaster()) KvdLoz6TuReg_setJumpIdl1();
    else                         KvdLoz6TuReg_followedStep();
}

}  // namespace

void KvdLoz6TuReg_adjust_time(double d_c, double d_f)
{
    const TimePair turns = jump::turnsOf(d_c, d_f);
    const TimePair step = {turns.c * COUNTER_PERIOD, turns.f};
    KVD_TRACE(TRACE_TUREG, TRACE_3, "adjust_time: t_c, t_f: %s", PairText(step).text);
    REG_UPCALLS.timeStepComes();
    if (tuHwIf_adjustTime(turns.c, turns.f)) {
        REG_UPCALLS.timeStepped();
        KvdLoz6TuReg_supervisionPhaseJump();
        KvdLoz6TuReg_counterStepped();
    }
    KvdLoz6TuReg_diffCheckAfterJump();
    moveLastTime(step);
    markStep();
}

// ---- the client's order -------------------------------------------------------------------------

namespace {

void restartTimer(KvdTimer& timer, OSTIME time_ms, SIGSELECT sigNo)
{
    if (!KvdTimer_restart(timer, time_ms, sigNo)) jump::traceRefusedTimer();
}

}  // namespace

void KvdLoz6TuReg_onJumpRequest(const Signal* sig)
{
    const auto* req = as<KvdTuiifJumpRntToSfcDiffZeroReq>(sig);
    if (req == nullptr) return;
    restartTimer(s->jumpIndTimer, jump::JUMP_IND_TMO_ms, KVD_TUREG_JUMP_IND_TIMEOUT);
    if (isSocpriSelected())
        restartTimer(s->bfnJumpWarningTimer, jump::BFN_JUMP_WARNING_TMO_ms,
                     KVD_TUREG_BFN_JUMP_WARNING_IND_TIMEOUT);
    KvdLoz6TuReg_setJumpState(JUMP_REQUESTED);
    auto* cfm = node::make<KvdTuiifJumpRntToSfcDiffZeroCfm>(KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_CFM);
    cfm->clientPid = req->clientPid;
    Signal* answer = reinterpret_cast<Signal*>(cfm);
    KvdLoz6TuIifAdm_send(&answer);
    s->jumpRequested = 1;
}

void KvdLoz6TuReg_onBfnJumpWarningTimeout()
{
    if (!KvdTimer_expired(s->bfnJumpWarningTimer)) return;
    if (isSocpriSelected()) jump::needs().sendBfnJumpInfo(1);
}

void KvdLoz6TuReg_onJumpIndTimeout()
{
    if (!KvdTimer_expired(s->jumpIndTimer)) return;
    if (isSocpriSelected()) KvdLoz6TuReg_SoCpriJump();
    else                    KvdLoz6TuReg_Jump();
}

namespace {

bool hasTime()
{
    if (KvdLoz6TuReg_selectedRef() == TU_SR_GPSOSL_REF && !KvdLoz6TuReg_pll_sourceTime()) return false;
    return KvdLoz6TuReg_knowsTime() && KvdLoz6TuReg_sourceTime();
}

}  // namespace

void KvdLoz6TuReg_Jump()
{
    jump::markPerformed();
    if (!jump::isPending()) return;
    if (!hasTime() || KvdLoz6TuReg_estimateStateVar().degrd != 0) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO,
                  "Jump won't be performed since we don't know time, retry on next "
                  "measurement ...");
        KvdLoz6TuReg_setJumpState(JUMP_NEEDED);
        return;
    }
    tuHwIf_writeBfnOut(jump::BFN_OUT_JUMP, 0);
    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    if (jump::removeOffset())
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s: Adjust time with: delta0_c: %s delta0_f: %s", __func__,
                  TuCommon_text(delta0.c), TuCommon_text(delta0.f));
    else
        KvdLoz6TuReg_setOffset(0.0, 0.0);
    KvdLoz6TuReg_setHistCountDown(0.0);
    KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);
    if (KvdLoz6TuReg_selectedRef() == TU_SR_GPSOSL_REF) jump::needs().forcePllState(PLL_Locked);
}
