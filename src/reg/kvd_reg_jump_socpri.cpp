// Jump and frame number adjustment on a SoCPRI link: a fine step by the loop's offset, a coarse
// step to the other end's count, then a wait for its time data, which has to agree.
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_jump_int.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "hw/kvd_hwif.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "sig/inrsi_sig.h"
#include "sig/reg_sig.h"
#include "base/frame_counter.h"

namespace {

constexpr u8 RETRIES = 3;

/// Bookkeeping of a jump that waits for the other end.
struct SoCpriJump {
    u32 jumpRunning = 0;
    u32 bfnAdjustmentRunning = 0;
    u8  retries = RETRIES;
    u32 ref_esfc = 0;                  // the other end's count, in turns of 1024 s
    u16 ref_mfn = 0;                   // and its major frame, 0 to 24
};

struct State {
    SoCpriJump soCpriJump;
    KvdTimer sfcAdjMonitor;
};
ose::ModuleData<State> s;

/// What the two sequences log at their stages.
struct Stages { SocpriEvent phase1, phase1To2, phase2, phase3, phase4; };
constexpr Stages JUMP_STAGES = {SOCPRI_EV_JUMP_PHASE_1, SOCPRI_EV_JUMP_PHASE_1_TO_2,
                                SOCPRI_EV_JUMP_PHASE_2, SOCPRI_EV_JUMP_PHASE_3,
                                SOCPRI_EV_JUMP_PHASE_4};
constexpr Stages BFN_ADJ_STAGES = {
    SOCPRI_EV_JUMP_PHASE_1_BFN_ADJ, SOCPRI_EV_JUMP_PHASE_1_TO_2_BFN_ADJ,
    SOCPRI_EV_JUMP_PHASE_2_BFN_ADJ, SOCPRI_EV_JUMP_PHASE_3_BFN_ADJ, SOCPRI_EV_JUMP_PHASE_4_BFN_ADJ};

void log(SocpriEvent event) { jump::needs().logEvent(event); }

u32 presentEsfc() { return static_cast<u32>(KvdLoz6TuReg_getLastTime().c / COUNTER_PERIOD); }

/// True when the counter could be read.
bool presentMfn(u16& mfn)
{
    u16 sfn = 0;
    u32 inc = 0;
    return tuHwIf_readSfc(mfn, sfn, inc) == 0;
}

double secondsOfMfn(u16 mfn) { return mfn * SFN_PERIOD_s; }

// ---- steps --------------------------------------------------------------------------------------

void fineStep(const Stages& stages)
{
    const double targetDiff = jump::needs().targetDiff();
    KvdLoz6TuReg_setOffset(0.0, 0.0);
    KvdLoz6TuReg_adjustOffset(0.0, targetDiff);
    log(stages.phase1);
    if (jump::removeOffset()) jump::needs().sendFollowSfcAdj(0.0, targetDiff);
    jump::needs().setTargetDiff(0.0);
    log(stages.phase1To2);
}

void coarseStep(SocpriEvent stage)
{
    const SoCpriJump& ref = s->soCpriJump;
    u16 mfn = 0;
    if (!presentMfn(mfn)) {
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "coarse step left out, the counter can't be read");
        return;
    }
    const double c = static_cast<i32>(presentEsfc() - ref.ref_esfc) * COUNTER_PERIOD;
    const double f = secondsOfMfn(mfn) - secondsOfMfn(ref.ref_mfn);
    KvdLoz6TuReg_adjustOffset(c, f);
    log(stage);
    if (jump::removeOffset()) jump::needs().sendFollowSfcAdj(c, f);
}

/// Both steps, and then the wait for the other end's time data.
void runStages(const Stages& stages, u32& running)
{
    fineStep(stages);
    coarseStep(stages.phase2);
    jump::needs().orderContinuedRegulationTimer();
    jump::needs().restartPhaseTimer();
    log(stages.phase3);
    running = 1;
    s->soCpriJump.retries = RETRIES;
    const bool isNew = !s->sfcAdjMonitor.runs();
    const bool isStarted =
        KvdTimer_start(s->sfcAdjMonitor, jump::SFC_ADJ_MONITOR_TMO_ms, KVD_TUREG_SOCPRI_SFC_ADJ_MONITOR_TMO);
    if (!isStarted) jump::traceRefusedTimer();
    else if (isNew)
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s():SoCPRI SFC Adjustment monitor tmo requested.", __func__);
}

// ---- ends ---------------------------------------------------------------------------------------

void cancelMonitor() { KvdTimer_cancel(s->sfcAdjMonitor); }

void endJumpWithSuccess()
{
    cancelMonitor();
    jump::needs().noMoreBfnJumpsExpected(1);
    KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);
    jump::needs().restartPhaseTimer();
    jump::needs().forcePllState(PLL_Locked);
    log(SOCPRI_EV_JUMP_END);
    KvdLoz6TuReg_SoCpriClearJump();
}

void endBfnAdjustmentWithSuccess()
{
    cancelMonitor();
    jump::needs().noMoreBfnJumpsExpected(1);
    log(SOCPRI_EV_JUMP_END_BFN_ADJ);
    KvdLoz6TuReg_SoCpriClearJump();
    jump::needs().bfnAlignCompleted(1);
}

bool meetsPreconditions()
{
    return jump::isPending() && jump::needs().action() == INRSI_CLIENT_ACTION_TIME_SYNC
           && jump::needs().pllState() == PLL_OffsetLocked;
}

void abortJump(const char* caller)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s: Aborting jump, preconditions are not met", caller);
    cancelMonitor();                   // of a jump that is only repeated
    jump::needs().noMoreBfnJumpsExpected(0);
    KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);
    KvdLoz6TuReg_SoCpriClearJump();
    log(SOCPRI_EV_JUMP_END);
}

}  // namespace

// ---- jump and adjustment ------------------------------------------------------------------------

void KvdLoz6TuReg_SoCpriJump()
{
    jump::markPerformed();
    log(SOCPRI_EV_JUMP_BEGIN);
    if (!meetsPreconditions()) {
        abortJump(__func__);
        return;
    }
    tuHwIf_writeBfnOut(jump::BFN_OUT_JUMP, 0);
    runStages(JUMP_STAGES, s->soCpriJump.jumpRunning);
}

bool KvdLoz6TuReg_SoCpriRepeatCoarseTimeJump()
{
    if (!meetsPreconditions()) {
        abortJump(__func__);
        return false;
    }
    coarseStep(JUMP_STAGES.phase4);
    return true;
}

void KvdLoz6TuReg_SoCpriJumpBfnAlignmentAction()
{
    KvdLoz6TuReg_setOffset(0.0, 0.0);
    log(SOCPRI_EV_JUMP_BEGIN_BFN_ADJ);
    runStages(BFN_ADJ_STAGES, s->soCpriJump.bfnAdjustmentRunning);
}

void KvdLoz6TuReg_SoCpriRepeatCoarseTimeJumpBfnAdj() { coarseStep(BFN_ADJ_STAGES.phase4); }

void KvdLoz6TuReg_SoCpriJumpAborted()
{
    cancelMonitor();
    jump::needs().noMoreBfnJumpsExpected(0);
    KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);
    KvdLoz6TuReg_SoCpriClearJump();
    jump::needs().forcePllState(PLL_Unlocked);
    log(SOCPRI_EV_JUMP_ABORTED);
}

void KvdLoz6TuReg_onSocpriSfcAdjMonitorTimeout()
{
    if (!KvdTimer_expired(s->sfcAdjMonitor)) return;
    const SoCpriJump running = s->soCpriJump;
    if (running.jumpRunning != 0) {
        jump::needs().noMoreBfnJumpsExpected(0);
        KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);
        jump::needs().restartPhaseTimer();
        log(SOCPRI_EV_JUMP_END_FAILURE);
        KvdLoz6TuReg_SoCpriClearJump();
    }
    if (running.bfnAdjustmentRunning != 0) {
        jump::needs().noMoreBfnJumpsExpected(0);
        log(SOCPRI_EV_JUMP_END_BFN_ADJ_FAILURE);
        jump::needs().bfnAlignCompleted(0);
        KvdLoz6TuReg_SoCpriClearJump();
    }
}

// ---- coarse time check --------------------------------------------------------------------------

namespace {

void timeDataAgrees()
{
    SoCpriJump& jumps = s->soCpriJump;
    if (jumps.jumpRunning != 0) endJumpWithSuccess();
    if (jumps.bfnAdjustmentRunning != 0) endBfnAdjustmentWithSuccess();
    jumps.retries = RETRIES;
}

/// The last retry: the coarse step again, which is then taken as good.
void repeatCoarseStep()
{
    const SoCpriJump running = s->soCpriJump;
    if (running.jumpRunning != 0 && KvdLoz6TuReg_SoCpriRepeatCoarseTimeJump()) endJumpWithSuccess();
    if (running.bfnAdjustmentRunning != 0) {
        KvdLoz6TuReg_SoCpriRepeatCoarseTimeJumpBfnAdj();
        endBfnAdjustmentWithSuccess();
    }
}

void timeDataDiffers()
{
    SoCpriJump& jumps = s->soCpriJump;
    if (jumps.retries != 0) --jumps.retries;
    if (jumps.retries > 0) {
        log(SOCPRI_EV_TIME_DATA_INCONSISTENCY_TOLERATED);
        if (jumps.retries == 1) repeatCoarseStep();
        return;
    }
    const bool wasLocked = jump::needs().pllState() == PLL_Locked;
    jump::needs().forcePllState(wasLocked ? PLL_OffsetLocked : PLL_Offset_Holdover);
    log(SOCPRI_EV_TIME_DATA_INCONSISTENCY);
    jumps.retries = RETRIES;
}

}  // namespace

bool KvdLoz6TuReg_socpriTimeDataEqual()
{
    u16 mfn = 0;
    return presentMfn(mfn) != 0 && mfn == s->soCpriJump.ref_mfn && presentEsfc() == s->soCpriJump.ref_esfc;
}

void KvdLoz6TuReg_SoCpriCoarseTimeData(u32 ref_esfc, u16 ref_mfn)
{
    SoCpriJump& jumps = s->soCpriJump;
    jumps.ref_esfc = ref_esfc;
    jumps.ref_mfn = ref_mfn;
    log(SOCPRI_EV_TIME_DATA);
    const u32 pllState = jump::needs().pllState();
    const bool isLocked = pllState == PLL_Locked || pllState == PLL_Locked_Holdover;
    if (!isLocked && jumps.jumpRunning == 0 && jumps.bfnAdjustmentRunning == 0) return;
    if (KvdLoz6TuReg_socpriTimeDataEqual()) timeDataAgrees();
    else                                    timeDataDiffers();
}

u32 KvdLoz6TuReg_SoCpriJumpRunning() { return s->soCpriJump.jumpRunning; }
u32 KvdLoz6TuReg_SoCpriBfnAdjustmentRunning() { return s->soCpriJump.bfnAdjustmentRunning; }
u8  KvdLoz6TuReg_SoCpriRetries() { return s->soCpriJump.retries; }
u32 KvdLoz6TuReg_SoCpriRefEsfc() { return s->soCpriJump.ref_esfc; }
u16 KvdLoz6TuReg_SoCpriRefMfn() { return s->soCpriJump.ref_mfn; }

void KvdLoz6TuReg_SoCpriSetRef(u32 ref_esfc, u16 ref_mfn)
{
    s->soCpriJump.ref_esfc = ref_esfc;
    s->soCpriJump.ref_mfn = ref_mfn;
}

void KvdLoz6TuReg_SoCpriClearJump()
{
    s->soCpriJump.jumpRunning = 0;
    s->soCpriJump.bfnAdjustmentRunning = 0;
    s->soCpriJump.retries = RETRIES;
    KvdLoz6TuReg_clearSoCpriValidityCnt();
}
