#include "reg/kvd_reg.h"

#include "base/trace_groups.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet.h"
#include "reg/kvd_reg_pdv_gen.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_rnt.h"
#include "reg/kvd_reg_socpri.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/hwif_sig.h"
#include "sig/ref_types.h"
#include "sig/reg_sig.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_unit_link.h"
#include "unit/kvd_unit_process.h"

#include <cmath>
#include <cstdio>

namespace {

ose::ModuleData<regulator::State> s;

struct RegStateText { u8 regState; const char* text; };
constexpr RegStateText REG_STATE_TEXTS[] = {
    {WARMUP, "WARMUP"},           {SYNCH1, "SYNCH1"},
    {SYNCH2, "SYNCH2"},           {SYNCH3, "SYNCH3"},
    {FREQLOCKED, "FREQLOCKED"},   {FREQDRIFTING, "FREQDRIFTING"},
    {FAILURE, "FAILURE"},         {UNKNOWN, "UNKNOWN"},
    {TIMELOCKED, "TIMELOCKED"},   {TRUETIME, "TRUETIME"},
    {STARTUPTIME, "STARTUPTIME"}, {PREJUMPSTART, "PREJUMPSTART"},
    {PREJUMPHIST, "PREJUMPHIST"},
};

constexpr const char* INITIATE_STATE_TEXTS[] = {
    "TUREG_START", "TUREG_WARM_UP", "TUREG_WARM_INITIATED", "TUREG_INIT_NOISY", "TUREG_INIT",
};

}  // namespace

namespace regulator {

State& state() { return *s; }

bool isIdl2Slave()
{
    return s->masterSlaveMode == 0 && KvdLoz6BiraIifAdm_idlMode() == KVD_BIRAIIF_IDL_MODE_2;
}

const char* initiateStateText(u32 tuRegInitiateState)
{
    return tuRegInitiateState <= TUREG_INIT ? INITIATE_STATE_TEXTS[tuRegInitiateState] : "<Unknown>";
}

void setInitiateState(u32 tuRegInitiateState)
{
    const u32 before = s->tuRegInitiateState;
    if (before == tuRegInitiateState) return;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "tuRegInitiateState changed: %s => %s",
              initiateStateText(before), initiateStateText(tuRegInitiateState));
    s->startUpHistory[s->startUpChanges % s->startUpHistory.size()] = {
        ose::get_ticks(), static_cast<u8>(before), static_cast<u8>(tuRegInitiateState)};
    ++s->startUpChanges;
    s->tuRegInitiateState = tuRegInitiateState;
}

void cancelWarmupTimer() { KvdTimer_cancel(s->warmupTimer); }

u8 timeMode(u32 selectedRef, u32 prevSelectedRef)
{
    if (!KvdLoz6TuReg_isTimeRef(selectedRef)) return FREQUENCY_LOCKING;
    if (selectedRef != TU_SR_NO_REF) return ABSOLUTE_TIME_LOCKING;
    return KvdLoz6TuReg_isTimeRef(prevSelectedRef) ? ABSOLUTE_TIME_LOCKING : FREQUENCY_LOCKING;
}

}  // namespace regulator

const char* KvdLoz6TuReg_regStateText(u8 regState)
{
    for (const RegStateText& row : REG_STATE_TEXTS)
        if (row.regState == regState) return row.text;
    return "<Unknown>";
}

// ---- timers -------------------------------------------------------------------------------------

void regulator::startWarmupTimer()
{
    if (s->warmupTimer.runs()) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Warmup Tmo already started.");
        return;
    }
    if (!KvdTimer_start(s->warmupTimer, regulator::WARMUP_TMO_ms, KVD_TUREG_WARMUP_TIMEOUT))
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Warmup Tmo did not start.");
}

void KvdLoz6TuReg_startReadTempTimer()
{
    if (!KvdTimer_start(s->readTempTimer, regulator::READ_TEMP_TMO_ms, KVD_TUREG_READ_TEMP_TIMEOUT))
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Read Temp Tmo request failed!");
}

// ---- signals ------------------------------------------------------------------------------------

namespace {

void onRefInterrupt(const KvdTuhwifRefInterrupt* ind)
{
    if (KvdLoz6TuMgr_isHalted() != 0) return;
    if (ind != nullptr) KvdLoz6TuReg_handleInterrupt(ind->pending);
    tuHwIf_enableExtInt();                 // the interrupt process left the line closed
}

/// A value that isn't finite would stay in the filter for good, and no variance is negative.
bool isUsable(const TuiifTimeData& data)
{
    const double values[] = {data.t_c,       data.delta0_c, data.delta0_f,
                             data.P_est_1_1, data.x_est_1,  data.x_est_2};
    for (const double value : values)
        if (!std::isfinite(value)) return false;
    return data.P_est_1_1 >= 0.0;
}

void onTimeData(const KvdTuiif10TimeDataInd* ind)
{
    if (ind == nullptr) return;
    const TuiifTimeData& data = ind->data;
    if (!isUsable(data)) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO,
                  "time data of the other unit refused, t_c=%g delta0_c=%g delta0_f=%g P_est_1_1=%g "
                  "x_est_1=%g x_est_2=%g",
                  data.t_c, data.delta0_c, data.delta0_f, data.P_est_1_1, data.x_est_1, data.x_est_2);
        return;
    }
    s->otherLoz6Data = {data.t_c,     data.delta0_c, data.delta0_f, data.P_est_1_1,
                        data.x_est_1, data.x_est_2,  data.regState};
    s->receivedTimeDataInd = 1;
    KVD_TRACE(TRACE_TUREG, TRACE_3, "receivedTimeDataInd = True");
    if (s->masterSlaveMode == 0) s->newTimeData = 1;
}

void onCoarseTimeData(const KvdTuiifSocpriCoarseTimeDataInd* ind)
{
    if (ind != nullptr) KvdLoz6TuReg_SoCpriCoarseTimeData(ind->ref_esfc, ind->ref_mfn);
}

void onSetTestMode(const KvdTuiifSetTestModeInd* ind)
{
    if (ind == nullptr) return;
    s->testMode = ind->on == 1 ? 1 : 0;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Test Mode %s", s->testMode != 0 ? "enabled" : "disabled");
    REG_UPCALLS.testMode(s->testMode);
}

void onReadTempTimeout()
{
    if (!KvdTimer_expired(s->readTempTimer)) return;
    if (regulator::isIdl2Slave()
        && (KvdLoz6BiraIifAdm_hasHwControl() == 0 || KvdLoz6BiraIifAdm_timeTuningOngoing() == 0)) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO,
                  "LOZ6 LM does not have HW control or time sync has has stopped. "
                  "Stopped processing temperature monitoring timeouts.");
        return;
    }
    KvdLoz6TuReg_readOcxoTemp();
    // The reading may have halted the unit: the next would do so again, before a main processor is heard.
    if (KvdLoz6TuMgr_isHalted() == 0) KvdLoz6TuReg_startReadTempTimer();
}

void onWarmupTimeout()
{
    if (!KvdTimer_expired(s->warmupTimer)) return;
    s->passedWarmup = 1;
}

void onIdl2LinkRestartTimeout()
{
    if (KvdTimer_expired(s->idl2LinkRestartTimer)) s->idl2LinkRestart = 1;
}

}  // namespace

bool KvdLoz6TuReg_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUHWIF_REF_INTERRUPT:  onRefInterrupt(as<KvdTuhwifRefInterrupt>(sig));       break;
    case KVD_TUIIF10_TIME_DATA_IND: onTimeData(as<KvdTuiif10TimeDataInd>(sig));           break;
    case KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND:
        onCoarseTimeData(as<KvdTuiifSocpriCoarseTimeDataInd>(sig));                       break;
    case KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ: KvdLoz6TuReg_onGetRntToSfcDiffReq(sig);       break;
    case KVD_TUIIF_GET_RNT_FOR_SFN_REQ:     KvdLoz6TuReg_onGetRntForSfnReq(sig);          break;
    case KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_REQ: KvdLoz6TuReg_onJumpRequest(sig);        break;
    case KVD_TUIIF_SET_TEST_MODE_IND:     onSetTestMode(as<KvdTuiifSetTestModeInd>(sig)); break;
    case KVD_TUIIF_SET_SFN_INIT_TIME_IND: KvdLoz6TuReg_onSetSfnInitTimeInd(sig);          break;
    case KVD_TUREG_READ_TEMP_TIMEOUT:     onReadTempTimeout();                            break;
    case KVD_TUREG_WARMUP_TIMEOUT:        onWarmupTimeout();                              break;
    case KVD_TUREG_JUMP_IND_TIMEOUT:      KvdLoz6TuReg_onJumpIndTimeout();                break;
    case KVD_TUREG_PTP_TIME_PDV_TIMEOUT_IND:
    case KVD_TUREG_PTP_TIME_NOT_RELIABLE_TIMEOUT_IND:
    case KVD_TUREG_PTP_TIME_1588J3_LOCK_TIMEOUT_IND:
    case KVD_TUREG_PTP_TIME_G82751_LOCK_TIMEOUT_IND:
    case KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND:
        KvdLoz6TuReg_packetDispatch(sig);                                                 break;
    case KVD_TUHWIF_GEN_PDV_REQ:               KvdLoz6TuReg_onGenPdvReq(sig);             break;
    case KVD_TUREG_IDL2_LINK_RESTART_TIMEOUT:  onIdl2LinkRestartTimeout();                break;
    case KVD_TUREG_BFN_JUMP_WARNING_IND_TIMEOUT: KvdLoz6TuReg_onBfnJumpWarningTimeout();  break;
    case KVD_TUREG_SOCPRI_SFC_ADJ_MONITOR_TMO:
        KvdLoz6TuReg_onSocpriSfcAdjMonitorTimeout();                                      break;
    case KVD_TUSOCPRI_CONTINUE_POSTPONED_REGULATION_TMO:
        KvdLoz6TuReg_onContinuePostponedRegulationTimeout();                              break;
    default:                                                                              return false;
    }
    return true;
}

// ---- what others are told -----------------------------------------------------------------------

void KvdLoz6TuReg_regStateChanged(u8 from, u8 to)
{
    if (from == TIMELOCKED) KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);

    const u32 selectedRef = KvdLoz6TuReg_selectedRef();
    // A slave's loop goes on when its reference is deselected.
    const bool loopReports = s->masterSlaveMode == 0 || selectedRef == TU_SR_GPSOSL_REF
                             || selectedRef == TU_SR_SOCPRI_REF || selectedRef == TU_SR_IDL1_REF
                             || selectedRef == TU_SR_IDL2_REF || KvdLoz6TuReg_pllState() != PLL_Uninitialized;
    if (!loopReports || to == WARMUP) KvdLoz6TuIifAdm_reportRegState(to);
    REG_UPCALLS.regStateChanged();
}

void KvdLoz6TuReg_sendTimeData()
{
    double period = 0.0, t_f = 0.0;
    if (HALI_readTime(period, t_f) != 0) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "HALI_readTime failed");
        return;
    }
    const MeasStateVar& meas = KvdLoz6TuReg_measStateVar();
    constexpr double NEAR_WRAP = 1.0;      // s
    const bool wraps = isWithin(KvdLoz6Math_wrapSymmetric(t_f, period), NEAR_WRAP);
    if (s->masterSlaveMode != 0 && (meas.jump_idl1 != 0 || wraps)) {
        KVD_TRACE(TRACE_TUREG, TRACE_3,
                  "Do not send TimeDataInd from master when jump flag is set or "
                  "sfc is wrapping around.");
        return;
    }
    const EstimateStateVar& estimate = KvdLoz6TuReg_estimateStateVar();
    auto* ind = node::make<KvdTuiif10TimeDataInd>(KVD_TUIIF10_TIME_DATA_IND);
    TuiifTimeData& data = ind->data;
    data.t_c = meas.t_c_last;
    data.delta0_c = meas.delta0_c;
    data.delta0_f = meas.delta0_f;
    data.P_est_1_1 = estimate.P_est[7];    // row 1, column 1: frequency
    data.x_est_1 = estimate.x_est[0];
    data.x_est_2 = estimate.x_est[1];
    data.smn = KvdLoz6TuIifAdm_smn();
    data.apn = KvdLoz6TuIifAdm_apn();
    data.regState = KvdLoz6TuReg_regState();
    data.rcState = KvdLoz6TuIifAdm_radioClockState();
    data.selectedRef = KvdLoz6TuIifAdm_selectedRef();
    data.gpsState = static_cast<u8>(KvdLoz6TuGps_gpsState());
    data.jumpIndication = KvdLoz6TuReg_jumpState() != JUMP_NOT_NEEDED ? 1 : 0;
    Signal* sig = reinterpret_cast<Signal*>(ind);
    KvdLoz6TuIifAdm_send(&sig);
}

// ---- access -------------------------------------------------------------------------------------

void KvdLoz6TuReg_dualConfiguration(u32 mode) { s->dualConfiguration = mode; }
bool KvdLoz6TuReg_isMaster() { return s->masterSlaveMode != 0; }
u32  KvdLoz6TuReg_initiateState() { return s->tuRegInitiateState; }

u8 KvdLoz6TuReg_timeMode()
{
    return regulator::timeMode(KvdLoz6TuReg_selectedRef(), KvdLoz6TuReg_prevSelectedRef());
}

double KvdLoz6TuReg_sfcPtpOffset() { return s->sfcPtpOffset; }
double KvdLoz6TuReg_sfcGpsOffset() { return s->sfcGpsOffset; }
double KvdLoz6TuReg_restartDelta() { return s->restartDelta; }
u32    KvdLoz6TuReg_dualConfigurationMode() { return s->dualConfiguration; }
u32    KvdLoz6TuReg_testMode() { return s->testMode; }
u32    KvdLoz6TuReg_coldRestart() { return s->coldRestart; }
u8     KvdLoz6TuReg_noisyCounter() { return s->initCnt; }
void   KvdLoz6TuReg_setNoisyCounter(u8 ticks) { s->initCnt = ticks; }
void   KvdLoz6TuReg_clearReceivedTimeData() { s->receivedTimeDataInd = 0; }
void   KvdLoz6TuReg_countHistoryUse(bool fromMsi) { ++(fromMsi ? s->msiUsed : s->flashUsed); }
u32    KvdLoz6TuReg_badTempReported() { return s->badTempReported; }

void KvdLoz6TuReg_startIdl2LinkRestartTimer()
{
    if (!KvdTimer_start(s->idl2LinkRestartTimer, regulator::IDL2_LINK_RESTART_TMO_ms,
                        KVD_TUREG_IDL2_LINK_RESTART_TIMEOUT))
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "IDL2 link restart tmo request failed!");
}

void KvdLoz6TuReg_cancelIdl2LinkRestartTimer()
{
    KvdTimer_cancel(s->idl2LinkRestartTimer);
    s->idl2LinkRestart = 0;
}

u32  KvdLoz6TuReg_idl2LinkRestart() { return s->idl2LinkRestart; }
void KvdLoz6TuReg_clearIdl2LinkRestart() { s->idl2LinkRestart = 0; }

const char* KvdLoz6TuReg_calibrationExpiry() { return s->calibrationExpiry; }

void KvdLoz6TuReg_setCalibrationExpiry(const char* text)
{
    std::snprintf(s->calibrationExpiry, sizeof s->calibrationExpiry, "%s", text);
}

int KvdLoz6TuReg_isRegulatingOnRef()
{
    return KvdLoz6TuReg_selectedRef() != TU_SR_NO_REF && KvdLoz6TuReg_isValidState() ? 1 : 0;
}
