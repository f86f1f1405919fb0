// Start-up of the regulator: the controller that each temperature reading runs, and the ways in
// which the filter gets its first values.
#include "base/kvd_mgr_hwdiag_log.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/trace.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_history.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_socpri.h"
#include "reg/kvd_reg_upcalls.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "store/kvd_mgr_mem.h"
#include "unit/kvd_unit_link.h"
#include "unit/kvd_unit_process.h"

#include <cmath>

using regulator::setInitiateState;
using regulator::state;

// ---- oscillator temperature ---------------------------------------------------------------------

namespace {

enum OscTempState : u8 {
    OSC_TEMP_GOOD = 1,
    OSC_TEMP_TOO_LOW = 2,
    OSC_TEMP_TOO_HIGH = 3,
    OSC_TEMP_UNREADABLE = 4
};

/// The state belongs to the hardware diagnosis, which writes the error log at a change.
void reportTemperature(u8 oscTempState, int haliResult)
{
    if (KvdLoz6HwDiag_lastTemperatureState() != oscTempState)
        KvdLoz6TuIifAdm_sendOscTemperatureState(oscTempState);
    KvdLoz6HwDiag_temperatureState(oscTempState, haliResult);
}

/// Before its first values the filter has no divider and no variance: what a sample made of it would be
/// steered by, told and kept.
bool isFilterStarted() { return state().tuRegInitiateState >= TUREG_WARM_INITIATED; }

/// A loop can't hold the clock with an oscillator out of its range. One that pulls in says "frequency locked"
/// at its end, and a master's that its frequency is held.
void shutDownLoop()
{
    if (!KvdLoz6TuReg_isMaster()) {
        KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Uninitialized);
        KvdLoz6TuReg_setRegState(WARMUP);
    } else if (KvdLoz6TuReg_pllState() != PLL_Uninitialized) {
        KvdLoz6TuReg_endPll();
        KvdLoz6TuReg_setRegState(WARMUP);
        KvdLoz6TuIifAdm_reportRegState(WARMUP);
    }
}

void stopRadioLinks()
{
    regulator::State& s = state();
    if (!KvdLoz6TuReg_isMaster() || KvdLoz6TuReg_selectedRef() != TU_SR_SOCPRI_REF) return;
    KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_TEMP);
    if (s.badTempReported != 0) return;
    s.badTempReported = 1;
    REG_UPCALLS.socpriReportOcxoTemp(1);
    KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_BAD_OCXO_TEMP);
    KvdLoz6TuReg_traceSoCpriLog(1);              // once, not at every tick outside
    REG_UPCALLS.socpriReset();
}

void temperatureOutside(double vT, u32 outOfLimits, int result)
{
    const regulator::State& s = state();
    if (s.passedWarmup != 0) {
        if (outOfLimits > regulator::TEMP_FAULT_TICKS) {
            KvdLoz6TuReg_setRegState(WARMUP);
            shutDownLoop();
            stopRadioLinks();
        } else if (isFilterStarted()) {
            KvdLoz6TuReg_handleTempMeasurement();
        }
        const bool isCold = std::signbit(regulator::normalisedTemperature(vT));
        reportTemperature(isCold ? OSC_TEMP_TOO_LOW : OSC_TEMP_TOO_HIGH, result);
    } else if (s.tuRegInitiateState <= TUREG_WARM_UP) {
        KvdLoz6TuReg_setRegState(WARMUP);
        KVD_TRACE(TRACE_TUREG, TRACE_3, "in warmup");
    }
}

/// A loop on IDL2 that ended with the temperature has nobody else who begins it again.
void restartIdl2Loop()
{
    if (!regulator::isIdl2Slave() || KvdLoz6TuReg_regState() != WARMUP) return;
    if (KvdLoz6BiraIifAdm_timeTuningOngoing() == 0) return;
    KvdLoz6TuReg_setRegState(FREQDRIFTING);      // the divider stays the loop's
    KvdLoz6TuReg_slavePll_init(SLAVE_PLL_Unlocked);
    KvdLoz6TuIifAdm_updateRadioClockState(KVD_TUIIF_SLAVE_FREQUENCY_LOCKED);
}

void temperatureInside(int result)
{
    regulator::State& s = state();
    if (s.passedWarmup == 0) return;
    restartIdl2Loop();
    if (s.badTempReported != 0) {
        s.badTempReported = 0;
        REG_UPCALLS.socpriReportOcxoTemp(0);
        KvdLoz6TuReg_logSoCpriEvent(SOCPRI_EV_OCXO_TEMP_RECOVERED);
    }
    reportTemperature(OSC_TEMP_GOOD, result);
}

// ---- start-up machine ---------------------------------------------------------------------------

void stepStart(double vT, bool isOutside)
{
    regulator::State& s = state();
    const bool idl2Slave = regulator::isIdl2Slave();
    if ((KvdLoz6TuMgr_restartType() == 0 || isOutside) && !idl2Slave) {
        s.initCnt = 0;
        KVD_TRACE(TRACE_TUREG, TRACE_3, "2 min counter, initated");
    }
    if (!(vT > s.vTmin && vT < s.vTmax)) return;
    if (!idl2Slave) {
        setInitiateState(TUREG_WARM_UP);
        return;
    }
    regulator::initiateRegulator(vT);
    REG_UPCALLS.idl2Reset();                  // a link that came first has set the time that is gone now
    s.passedWarmup = 1;
    setInitiateState(TUREG_INIT);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "IDL2 Slave - temp range reached through BASIC LM");
    KvdLoz6TuReg_handleTempMeasurement();
}

void stepWarmUp(double vT)
{
    regulator::State& s = state();
    if (!regulator::initiateRegulator(vT)) return;
    regulator::cancelWarmupTimer();
    s.passedWarmup = 1;
    if (s.initCnt <= regulator::TICKS_WARM_INITIATED) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "temp range reached, 2 min counter still active ");
        setInitiateState(TUREG_WARM_INITIATED);
        return;
    }
    setInitiateState(TUREG_INIT);
    KvdLoz6TuReg_handleTempMeasurement();
}

/// A time reference is followed with extra drift noise for a while.
bool needsNoisyPhase()
{
    const u32 selectedRef = KvdLoz6TuReg_selectedRef();
    return KvdLoz6TuReg_isTimeRef(selectedRef) && KvdLoz6TuReg_isMaster() && selectedRef != TU_SR_NO_REF
           && selectedRef != TU_SR_PKT_TIME_REF && selectedRef != TU_SR_SOCPRI_REF;
}

void stepWarmInitiated()
{
    const regulator::State& s = state();
    if (s.initCnt <= regulator::TICKS_WARM_INITIATED) return;
    if (s.passedWarmup != 0) KvdLoz6TuReg_handleTempMeasurement();
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "2 min counter finished. Regulator state = %u",
              KvdLoz6TuReg_regState());
    setInitiateState(needsNoisyPhase() ? TUREG_INIT_NOISY : TUREG_INIT);
}

void stepInit(int result)
{
    reportTemperature(OSC_TEMP_GOOD, result);
    KvdLoz6TuReg_handleTempMeasurement();
    BfnIn in{};
    tuHwIf_readBfnIn(in);    // keeps the input's noise filter going; nobody waits for the word
}

void stepInitNoisy(int result)
{
    const regulator::State& s = state();
    KvdLoz6TuReg_setInitialFrequencyDrift(s.initCnt);
    if (s.initCnt >= regulator::TICKS_COUNTED) {
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "4.2 min counter finished. Regulator state = %u",
                  KvdLoz6TuReg_regState());
        setInitiateState(TUREG_INIT);
    }
    stepInit(result);
}

}  // namespace

void KvdLoz6TuReg_startUpController(double vT, u32 attempts, u32 outOfLimits, int result)
{
    regulator::State& s = state();
    if (attempts > regulator::TEMP_FAULT_TICKS) {
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "Can not read OCXO temperature");
        reportTemperature(OSC_TEMP_UNREADABLE, result);
        REG_UPCALLS.halt();
        return;
    }
    const bool isOutside = vT < s.vTmin || vT > s.vTmax;
    if (isOutside) {
        temperatureOutside(vT, outOfLimits, result);
        if (s.tuRegInitiateState != TUREG_START) return;
    } else {
        temperatureInside(result);
    }
    if (s.tuRegInitiateState != TUREG_START && s.initCnt < regulator::TICKS_COUNTED) ++s.initCnt;

    switch (s.tuRegInitiateState) {
    case TUREG_START:          stepStart(vT, isOutside);  break;
    case TUREG_WARM_UP:        stepWarmUp(vT);            break;
    case TUREG_WARM_INITIATED: stepWarmInitiated();       break;
    case TUREG_INIT_NOISY:     stepInitNoisy(result);     break;
    case TUREG_INIT:           stepInit(result);          break;
    default:                                              break;
    }
}

// ---- values of a start --------------------------------------------------------------------------

namespace regulator {

double normalisedTemperature(double vT)
{
    const State& s = state();
    return 2 * (vT - s.vTmin) / (s.vTmax - s.vTmin) - 1;
}

TemperaturePolynomial temperaturePolynomial(double a3, double a2, double a1, double a0, double vTmin,
                                            double vTmax)
{
    constexpr double PPB = 1e-9;
    const double v3 = a3 * PPB, v2 = a2 * PPB, v1 = a1 * PPB, v0 = a0 * PPB;
    const double k = 2 / (vTmax - vTmin);
    const double c = (vTmax + vTmin) / (vTmax - vTmin);
    // Monomials of T, with v = (T + c)/k.
    const double T3 = v3 / (k * k * k);
    const double T2 = 3 * v3 * c / (k * k * k) + v2 / (k * k);
    const double T1 = 3 * v3 * c * c / (k * k * k) + 2 * v2 * c / (k * k) + v1 / k;
    const double T0 = v3 * c * c * c / (k * k * k) + v2 * c * c / (k * k) + v1 * c / k + v0;
    return {T3, T2, T1 + 0.6 * T3, T0 + T2 / 3};
}

Mat6 diagonal(const Diagonal& values)
{
    Mat6 P{};
    for (std::size_t i = 0; i < values.size(); ++i) P[i * 7] = values[i];
    return P;
}

double coldDivider(double D0, double nominalFrequency_Hz, const TemperaturePolynomial& p, double T)
{
    constexpr double BASE_FREQUENCY_Hz = 10000000;
    const double P2 = T * T - 1.0 / 3, P3 = T * T * T - 0.6 * T;
    return D0 * (nominalFrequency_Hz / BASE_FREQUENCY_Hz + P3 * p.P3 + P2 * p.P2 + T * p.P1 + p.P0);
}

}  // namespace regulator

namespace {

using regulator::Diagonal;
using regulator::diagonal;

regulator::TemperaturePolynomial polynomialOf(const OcxoParams& params)
{
    const regulator::State& s = state();
    return regulator::temperaturePolynomial(params.a3, params.a2, params.a1, params.a0, s.vTmin, s.vTmax);
}

Vec6 startState(const regulator::TemperaturePolynomial& p) { return {0, 0, 0, p.P1, p.P2, p.P3}; }

constexpr double NO_CONTROL[2] = {0, 0};

constexpr int INITIATE_BOARD_FAULT = 3;            // the process was halted; no other way is tried

/// Starts filter, control law and measurements without any history. INITIATE_DONE or _BOARD_FAULT.
int startWithoutHistory(double vT, const Diagonal& P, bool coldControl)
{
    OcxoParams params{};
    HALI_getOcxoParams(params);
    if (!(params.nominalFrequency > 0)) {
        KVD_TRACE(TRACE_TUREG, TRACE_ERROR, "Ocxo Eeprom nominal frequency not valid: %s",
                  TuCommon_text(params.nominalFrequency));
        KvdLoz6HwDiag_reportNominalFrequencyFailure();
        REG_UPCALLS.halt();
        return INITIATE_BOARD_FAULT;
    }
    regulator::storeSfcGpsOffset();
    const regulator::State& s = state();
    const regulator::TemperaturePolynomial p = polynomialOf(params);
    const double T = regulator::normalisedTemperature(vT);
    double U[2] = {0, regulator::coldDivider(tuHwIf_factoryDivider(), params.nominalFrequency, p, T)};
    KvdLoz6TuReg_controlInitiate(coldControl, U);
    KvdLoz6TuReg_estimateInitiate(startState(p), diagonal(P), T, NO_CONTROL, tuHwIf_calcOcxoGain(U[1]));
    MeasInitiation values;
    values.vTmin = s.vTmin;
    values.vTmax = s.vTmax;
    values.coldRestart = KvdLoz6TuReg_isMaster() && s.coldRestart != 0;
    KvdLoz6TuReg_measInitiate(values);
    return INITIATE_DONE;
}

i64 systemClock() { return node::platform().calendar().seconds; }

int initiateWithCalibration(double vT)
{
    if (tuHwIf_isCalibrated() == 0) {
        constexpr i64 CLOCK_SET_FROM = 31536000;  // s, a year: before that the date can't be judged
        if (systemClock() < CLOCK_SET_FROM) {
            KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Initiate with calib failed, no systime");
            return INITIATE_NO_SYSTIME;
        }
        KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Initiate with calib failed");
        return INITIATE_FAILED;
    }
    const int result = startWithoutHistory(vT, regulator::P_CALIBRATED, true);
    if (result != INITIATE_DONE) return result;
    tuHwIf_resetGpsOutMsiMem();
    KvdLoz6TuIifAdm_startForceLockedTimer();
    return INITIATE_DONE;
}

struct Attempt { int (*initiate)(double vT); const char* done; };
constexpr Attempt ATTEMPTS[] = {                   // in this order
    {KvdLoz6TuReg_initiateWithMsi,   "%s:: initiate with msi done"},
    {KvdLoz6TuReg_initiateWithFlash, "%s:: initiate with flash done"},
    {initiateWithCalibration,        "%s:: initiate with calibration done"},
};

}  // namespace

bool regulator::initiateRegulator(double vT)
{
    const bool isMaster = KvdLoz6TuReg_isMaster();
    if (isMaster) {
        constexpr i64 CLOCK_RUNS_FROM = 60;        // s: set, or a minute since it started from 0
        for (const Attempt& attempt : ATTEMPTS) {
            const int result = attempt.initiate(vT);
            if (result == INITIATE_DONE) {
                KVD_TRACE(TRACE_TUREG, TRACE_INFO, attempt.done, __func__);
                return true;
            }
            if (result == INITIATE_BOARD_FAULT) return false;
            if (result != INITIATE_NO_SYSTIME) continue;
            if (systemClock() <= CLOCK_RUNS_FROM) return false;
            break;
        }
    }
    const bool coldControl = isMaster || state().coldRestart != 0;
    if (startWithoutHistory(vT, regulator::P_COLD, coldControl) != INITIATE_DONE) return false;
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "%s:: initiate cold done", __func__);
    return true;
}

/// The measurement record stays as it is, its modulus too.
void KvdLoz6TuReg_initiateFromPll(double vT)
{
    OcxoParams params{};
    HALI_getOcxoParams(params);
    const regulator::TemperaturePolynomial p = polynomialOf(params);
    double U[2] = {0, 0};
    regulator::storeSfcGpsOffset();
    KvdLoz6TuReg_controlInitFromPll(U, true);
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Initial PLL values are set");
    KvdLoz6TuReg_estimateInitiate(startState(p), diagonal(regulator::P_FROM_PLL),
                                  regulator::normalisedTemperature(vT), NO_CONTROL,
                                  tuHwIf_calcOcxoGain(U[1]));
    KVD_TRACE(TRACE_TUREG, TRACE_INFO, "Initiate with PLL successful");
}

void KvdLoz6TuReg_initiateFromPllNow()
{
    double vT = 0.0;
    HALI_getOcxoTemp(vT);
    KvdLoz6TuReg_initiateFromPll(vT);
}

void KvdLoz6TuReg_endPll(void (*tell)(u32 event), u32 event)
{
    KvdLoz6TuReg_pll_setState(PLL_Uninitialized);
    if (tell != nullptr) tell(event);
    KvdLoz6TuReg_initiateFromPllNow();
    if (KvdLoz6TuReg_regState() == WARMUP) return;   // an oscillator out of its range stays that
    KvdLoz6TuReg_forceRegState(UNKNOWN);
    // While the link is selected the grades of the Kalman path aren't told: nothing but this says that
    // the time which the loop held is gone.
    if (KvdLoz6TuReg_selectedRef() == TU_SR_GPSOSL_REF)
        KvdLoz6TuIifAdm_reportClockState(KVD_TUIIF_FREQUENCY_HOLDOVER);
}

void KvdLoz6TuReg_temperatureCoefficients(double coeff[3])
{
    OcxoParams params{};
    HALI_getOcxoParams(params);
    const regulator::TemperaturePolynomial p = polynomialOf(params);
    coeff[0] = p.P1;
    coeff[1] = p.P2;
    coeff[2] = p.P3;
}
