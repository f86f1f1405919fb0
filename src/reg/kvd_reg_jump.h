// kvd_reg_jump.h - Planned steps of the time counters: the client's order with its warning time,
// the step itself, and the longer sequence on a SoCPRI link, which checks its result against the
// other end's time data.
// Owner   the manager process; only kvd_reg_jump*.cpp write this module's state.
// Units   seconds; timers in ms.
// Errors  a step that the hardware refuses is traced there; the bookkeeping goes on and the next
//         measurement measures the rest.
#pragma once
#include "ose/types.h"
#include "sig/reg_types.h"

struct Signal;

u32  KvdLoz6TuReg_jumpState();
/// JUMP_NOT_NEEDED cancels a pending jump, not its timer.
void KvdLoz6TuReg_setJumpState(u32 jumpState);
/// A client has ordered a jump, a jump has begun: each reads and clears, for a master's time data.
u32  KvdLoz6TuReg_takeJumpRequested();
u32  KvdLoz6TuReg_takeJumpPerformed();

/// The one operation that steps the counters: moves local time by the sum, positive ahead.
void KvdLoz6TuReg_adjust_time(double d_c, double d_f);
/// Writes the offset into the counters; with time not known it leaves JUMP_NEEDED. Run at the end
/// of the warning time, and by time steering while the jump is needed.
void KvdLoz6TuReg_Jump();

/// Order of the main processor, and the timers of a jump.
void KvdLoz6TuReg_onJumpRequest(const Signal* sig);
void KvdLoz6TuReg_onJumpIndTimeout();
void KvdLoz6TuReg_onBfnJumpWarningTimeout();

// ---- SoCPRI (kvd_reg_jump_socpri.cpp) -----------------------------------------------------------

void KvdLoz6TuReg_SoCpriJump();
/// The same steps to align frame numbers to a group; run when time synchronisation has succeeded.
void KvdLoz6TuReg_SoCpriJumpBfnAlignmentAction();
/// The coarse step again. The first answers true when it was made, false when the jump was aborted.
bool KvdLoz6TuReg_SoCpriRepeatCoarseTimeJump();
void KvdLoz6TuReg_SoCpriRepeatCoarseTimeJumpBfnAdj();
/// The link is lost during a jump.
void KvdLoz6TuReg_SoCpriJumpAborted();
/// KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND: what the other end's counters say.
void KvdLoz6TuReg_SoCpriCoarseTimeData(u32 ref_esfc, u16 ref_mfn);
void KvdLoz6TuReg_onSocpriSfcAdjMonitorTimeout();

/// True when the counters agree with the last coarse time data.
bool KvdLoz6TuReg_socpriTimeDataEqual();
u32  KvdLoz6TuReg_SoCpriJumpRunning();
u32  KvdLoz6TuReg_SoCpriBfnAdjustmentRunning();
u8   KvdLoz6TuReg_SoCpriRetries();
/// The other end's count, in turns of 1024 s, and its major frame; from its time data, or from the
/// order to align to a group.
u32  KvdLoz6TuReg_SoCpriRefEsfc();
u16  KvdLoz6TuReg_SoCpriRefMfn();
void KvdLoz6TuReg_SoCpriSetRef(u32 ref_esfc, u16 ref_mfn);
/// Running flags and count of invalid phases to 0, retries to 3: a link's phase stage begins.
void KvdLoz6TuReg_SoCpriClearJump();
