// The regulator's beginning, and its two roles: initiation, a slave that becomes master and back, hardware
// that changes hands under a slave.
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_handover.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "store/kvd_mgr_mem.h"
#include "unit/kvd_unit_link.h"

#include <cstdio>

using regulator::state;

// ---- initiation ---------------------------------------------------------------------------------

namespace {

constexpr u32 REF_INTERRUPTS = TU_100MS_INT | TU_INT_REF_CLK_INT;
constexpr double VT_MIN_DEFAULT = 1.0, VT_MAX_DEFAULT = 3.1;   // V

void takeTemperatureLimits()
{
    OcxoParams params{};
    HALI_getOcxoParams(params);            // a failure leaves limits that aren't valid
    state().vTmin = params.tempMin;
    state().vTmax = params.tempMax;
    if (!regulator::areLimitsValid(state().vTmin, state().vTmax)) {
        char text[64];
        std::snprintf(text, sizeof text, "vTmin=%g vTmax=%g", state().vTmin, state().vTmax);
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "turegInit: Temperature limits are not valid. %s", text);
        state().vTmin = VT_MIN_DEFAULT;
        state().vTmax = VT_MAX_DEFAULT;
    }
    KvdLoz6TuReg_setTempLimits(state().vTmin, state().vTmax);
}

/// The reading is for the trace: the controller of the start gets the first tick's.
void startTemperature()
{
    regulator::startWarmupTimer();
    double vT = 0.0;
    HALI_getOcxoTemp(vT);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "First reading of temp (%s)", TuCommon_text(vT));
}

void enableBbClock(bool idl2Slave)
{
    tuHwIf_enableDeltaSigma();
    if (state().masterSlaveMode != 0) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Enable BBclock in master.");
        tuHwIf_enableBbClk(1);
    } else if (idl2Slave) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Enable BBclock in IDL2 slave.");
        tuHwIf_enableBbClk(1);
    }
}

}  // namespace

void KvdLoz6TuReg_initiate(u32 coldRestart, u8 timeMode, u8 masterSlaveMode)
{
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s: coldRestart (%u), timeMode (%d), masterSlaveMode (%d)", __func__,
              coldRestart, timeMode, masterSlaveMode);
    KvdLoz6TuMem_allocate(MEM_REG_HIST, coldRestart);
    state().receivedTimeDataInd = 0;
    state().otherLoz6Data = {};
    state().newTimeData = 0;

    state().coldRestart = coldRestart;
    state().masterSlaveMode = masterSlaveMode;
    const bool idl2Slave = regulator::isIdl2Slave();
    if (idl2Slave) {
        state().passedWarmup = 1;
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "passedWarmup set to True");
    } else {
        state().passedWarmup = 0;
        state().isInitiating = 1;
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "passedWarmup set to False");
    }
    state().tureg_timeMode = KvdLoz6TuReg_timeMode();
    state().previousTimeMode = state().tureg_timeMode;
    state().initCnt = regulator::TICKS_COUNTED;
    regulator::setInitiateState(TUREG_START);
    if (!idl2Slave) {
        KvdLoz6TuReg_setInitialFrequencyDrift(state().initCnt);
        KvdLoz6TuReg_setRegState(WARMUP);
    }
    takeTemperatureLimits();
    if (!idl2Slave) {
        KvdLoz6TuReg_startReadTempTimer();
        startTemperature();
        if (masterSlaveMode != 0) {
            KvdLoz6TuReg_setMaster(timeMode);
            tuHwIf_enableIsr(REF_INTERRUPTS);
        } else {
            KvdLoz6TuReg_setSlave(timeMode);
        }
    }
    if (KvdLoz6BiraIifAdm_idlMode() != KVD_BIRAIIF_IDL_MODE_2) tuHwIf_enableIsr(REF_INTERRUPTS);
    state().isInitiating = 0;
    enableBbClock(idl2Slave);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s: finished", __func__);
}

void KvdLoz6TuReg_setSlave(u8 timeMode)
{
    ++state().slaveSel;
    state().tureg_timeMode = timeMode;
    state().masterSlaveMode = 0;
}

namespace {

bool isTimeState(u8 regState)
{
    return regState == STARTUPTIME || regState == TIMELOCKED || regState == TRUETIME;
}

/// A slave that knows the time goes on as master from what both units know.
void takeOver()
{
    regulator::OtherUnit& other = state().otherLoz6Data;
    const Vec6 x_est = KvdLoz6TuReg_estimateStateVar().x_est;
    KvdLoz6TuReg_mergeOtherEstimate(other.x_est_1, other.x_est_2, other.P_est_1_1);
    if (state().receivedTimeDataInd != 0) {
        other.x_est_1 = -x_est[0];
        other.x_est_2 = -x_est[1];
    }
    state().newTimeData = 0;
    KvdLoz6TuReg_takeOverAsMaster(other.regState);
    if (state().receivedTimeDataInd != 0) other.regState = KvdLoz6TuReg_regState();
}

}  // namespace

void KvdLoz6TuReg_setMaster(u8 timeMode)
{
    ++state().masterSel;
    state().tureg_timeMode = timeMode;
    if (state().masterSlaveMode == 0 && state().isInitiating == 0) {
        if (isTimeState(KvdLoz6TuReg_regState())) {
            takeOver();
        } else {
            KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Initiate all values again and enable BBclock");
            KvdLoz6TuReg_initiate(1, timeMode, 1);
        }
    }
    KvdLoz6TuReg_forceRegState(UNKNOWN);
    state().masterSlaveMode = 1;
}

// ---- hardware that changes hands ----------------------------------------------------------------

namespace {

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
