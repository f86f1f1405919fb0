// The phase-locked loops aren't part of this load yet: they stay uninitialised, the Kalman path regulates.
#include "reg/kvd_reg_pll.h"

#include "mgr/trace_groups.h"
#include "node/trace.h"

namespace {

void traceNotThere(u32 wanted)
{
    if (wanted != PLL_Uninitialized)
        KVD_TRACE(TRACE_PLL, TRACE_ERROR, "loop isn't in this load, state=%u not entered", wanted);
}

}  // namespace

u32 KvdLoz6TuReg_pllState() { return PLL_Uninitialized; }
u32 KvdLoz6TuReg_slavePllState() { return SLAVE_PLL_Uninitialized; }
void KvdLoz6TuReg_pll_init(u32 pllState) { traceNotThere(pllState); }
void KvdLoz6TuReg_slavePll_init(u32 slavePllState) { traceNotThere(slavePllState); }
void KvdLoz6TuReg_pll_setState(u32 pllState) { traceNotThere(pllState); }
void KvdLoz6TuReg_slavePll_setState(u32 slavePllState) { traceNotThere(slavePllState); }
void KvdLoz6TuReg_pll_toHoldover() { traceNotThere(PLL_Freq_Holdover); }
void KvdLoz6TuReg_pll_clearEmptyHOVector() {}
bool KvdLoz6TuReg_pllIsLocked() { return false; }
bool KvdLoz6TuReg_pllIsHoldover() { return false; }
double KvdLoz6TuReg_pll_targetDiff() { return 0.0; }
void KvdLoz6TuReg_pll_setTargetDiff(double) {}
void KvdLoz6TuReg_pllPrintInfo() {}
