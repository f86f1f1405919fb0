// kvd_reg_jump.h - Planned steps of the time counters.
#pragma once
#include "ose/types.h"

struct Signal;

enum JumpState : u32 {
    JUMP_NOT_NEEDED = 0,
    JUMP_REQUESTED = 1,         // ordered by a client, the indication timer runs
    JUMP_NEEDED = 2,            // the timer ended while time wasn't known: try at each control step
};

u32  KvdLoz6TuReg_jumpState();
void KvdLoz6TuReg_setJumpState(u32 jumpState);
/// Run by time steering while a jump is needed.
void KvdLoz6TuReg_Jump();
/// Order of the main processor, and the timers of a jump.
void KvdLoz6TuReg_onJumpRequest(const Signal* sig, PROCESS client);
void KvdLoz6TuReg_onJumpIndTimeout();
void KvdLoz6TuReg_onBfnJumpWarningTimeout();
void KvdLoz6TuReg_onSocpriSfcAdjMonitorTimeout();
