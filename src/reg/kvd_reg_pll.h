// kvd_reg_pll.h - Phase-locked loops: GPS out sync link, SoCPRI, slave unit on an inter-unit link.
// Owner   the manager process.
#pragma once
#include "ose/types.h"

enum PllState : u32 {
    PLL_Uninitialized = 0, PLL_PreJumpStart = 1, PLL_PreJumpHist = 2, PLL_Unlocked = 3,
    PLL_OffsetLocked = 4, PLL_Locked = 5, PLL_Freq_Holdover = 6, PLL_Offset_Holdover = 7,
    PLL_Locked_Holdover = 8,
};
enum SlavePllState : u32 { SLAVE_PLL_Uninitialized = 0, SLAVE_PLL_Unlocked = 1, SLAVE_PLL_Locked = 2 };

u32  KvdLoz6TuReg_pllState();
u32  KvdLoz6TuReg_slavePllState();
void KvdLoz6TuReg_pll_init(u32 pllState);
void KvdLoz6TuReg_slavePll_init(u32 slavePllState);
/// Forced change of state; Uninitialized also empties the holdover vector.
void KvdLoz6TuReg_pll_setState(u32 pllState);
void KvdLoz6TuReg_slavePll_setState(u32 slavePllState);
void KvdLoz6TuReg_pll_toHoldover();
void KvdLoz6TuReg_pll_clearEmptyHOVector();
bool KvdLoz6TuReg_pllIsLocked();     // OffsetLocked or Locked
bool KvdLoz6TuReg_pllIsHoldover();   // one of the three holdover states
/// Phase that the loop holds until a jump takes it out, s.
double KvdLoz6TuReg_pll_targetDiff();
void   KvdLoz6TuReg_pll_setTargetDiff(double targetDiff);
void KvdLoz6TuReg_pllPrintInfo();
