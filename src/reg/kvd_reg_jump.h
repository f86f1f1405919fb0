// kvd_reg_jump.h - Planned steps of the time counters.
#pragma once
#include "ose/types.h"

struct Signal;

enum JumpState : u32 { JUMP_NOT_NEEDED = 0, JUMP_NEEDED = 1 };

u32  KvdLoz6TuReg_jumpState();
void KvdLoz6TuReg_setJumpState(u32 jumpState);
/// Run by time steering while a jump is needed.
void KvdLoz6TuReg_Jump();
/// Order of the main processor, and the timers of a jump.
void KvdLoz6TuReg_onJumpRequest(const Signal* sig, PROCESS client);
void KvdLoz6TuReg_onJumpIndTimeout();
void KvdLoz6TuReg_onBfnJumpWarningTimeout();
void KvdLoz6TuReg_onSocpriSfcAdjMonitorTimeout();
