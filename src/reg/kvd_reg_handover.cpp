#include "reg/kvd_reg_handover.h"

#include "reg/kvd_reg.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"

namespace {

using regulator::state;

bool isInitiated() { return state().vTmax != 0.0; }   // the limits are set by the first initiation

void waitForHandover()
{
    regulator::cancelWarmupTimer();
    state().passedWarmup = 1;
    state().initCnt = regulator::TICKS_COUNTED;
    regulator::setInitiateState(TUREG_START);
}

}  // namespace

void KvdLoz6TuReg_idl2Start()
{
    if (isInitiated()) waitForHandover();
}

void KvdLoz6TuReg_idl2Go()
{
    if (!isInitiated()) return;
    waitForHandover();
    // The filter starts before the first measurement on the link: it clears the time that the link sets.
    KvdLoz6TuReg_readOcxoTemp();
    KvdLoz6TuReg_startReadTempTimer();
}

void KvdLoz6TuReg_idl2Stop()
{
    KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Uninitialized);
    if (isInitiated()) waitForHandover();
}

void KvdLoz6TuReg_resetIdl1Slave()
{
    if (!isInitiated()) return;
    constexpr u32 HARDWARE_IS_SET = 0;
    constexpr u8 SLAVE = 0;
    KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Uninitialized);
    KvdLoz6TuReg_initiate(HARDWARE_IS_SET, state().tureg_timeMode, SLAVE);
}
