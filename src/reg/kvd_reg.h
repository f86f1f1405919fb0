// kvd_reg.h - Regulator: start-up, temperature tick, state names and modes, initiation of the
// filter, and what the other components are told of the clock.
// Owner   the manager process; only kvd_reg*.cpp write this module's state.
// Units   seconds, volts of the oscillator's temperature sensor; timers in ms; yes and no are 1 and 0.
// Errors  a failed step leaves the state as it was; the next tick tries again.
#pragma once
#include "base/tu_common.h"
#include "ose/types.h"
#include "sig/reg_types.h"

struct Signal;

/// Time between two readings of the oscillator's temperature: the temperature tick.
constexpr u32 TEMP_TICK_ms = 2100;
constexpr double TEMP_TICK = TEMP_TICK_ms / 1000.0;   // s

const char* KvdLoz6TuReg_regStateText(u8 regState);

bool KvdLoz6TuReg_dispatch(Signal* sig);

/// masterSlaveMode 1 master, 0 slave; timeMode FREQUENCY_LOCKING or ABSOLUTE_TIME_LOCKING.
void KvdLoz6TuReg_initiate(u32 coldRestart, u8 timeMode, u8 masterSlaveMode);
void KvdLoz6TuReg_setSlave(u8 timeMode);
/// A slave that has time goes on from its estimate; any other is initiated cold.
void KvdLoz6TuReg_setMaster(u8 timeMode);
void KvdLoz6TuReg_dualConfiguration(u32 mode);  // 1 the other unit gets time data, 0 there is none
/// The date on which the frame counter was zero; called at a confirmation of the main processor.
void KvdLoz6TuReg_initSfnInitTime(const DateTime& date);
/// Gives the regulator a reference: its own value (TuSelectedRef) and the client's ids (froId,
/// froClassNo), which also identify a packet reference's delay history.
void KvdLoz6TuReg_configRefType(u32 refType, u32 froId, u32 froClassNo);
/// Starts the Kalman path again from the loop's values, with the oscillator's temperature in volts.
void KvdLoz6TuReg_initiateFromPll(double vT);
/// The same with the temperature read now; 0 V when it can't be read.
void KvdLoz6TuReg_initiateFromPllNow();
/// The master's loop gives the divider back, whatever its reference and its state: the loop is
/// uninitialised, the Kalman path goes on from the loop's values, regState is UNKNOWN without a report
/// until the next control step grades it; in WARMUP it stays. `tell` is called with `event` between the
/// two, for what its caller has to say of the end.
void KvdLoz6TuReg_endPll(void (*tell)(u32 event) = nullptr, u32 event = 0);

bool KvdLoz6TuReg_isMaster();
u32  KvdLoz6TuReg_initiateState();              // TuRegInitiateState
u8   KvdLoz6TuReg_timeMode();                   // FREQUENCY_LOCKING or ABSOLUTE_TIME_LOCKING
/// Seconds from a scale's epoch (1970-01-01 00:00:00, 1980-01-06 00:00:19) to the frame counter's zero.
double KvdLoz6TuReg_sfcPtpOffset();
double KvdLoz6TuReg_sfcGpsOffset();
double KvdLoz6TuReg_restartDelta();             // s, change of sfcGpsOffset across the restart
u32  KvdLoz6TuReg_coldRestart();                // as given to the initiation
u32  KvdLoz6TuReg_dualConfigurationMode();
u32  KvdLoz6TuReg_testMode();
u8   KvdLoz6TuReg_noisyCounter();               // initCnt, temperature ticks, 0 to 120
void KvdLoz6TuReg_setNoisyCounter(u8 ticks);
void KvdLoz6TuReg_clearReceivedTimeData();
/// Expiry date of the calibration, "%04d-%02d-%02d" or "".
const char* KvdLoz6TuReg_calibrationExpiry();
void KvdLoz6TuReg_setCalibrationExpiry(const char* text);
/// Counts a history record that was read, for the report.
void KvdLoz6TuReg_countHistoryUse(bool fromMsi);
/// 1 while SoCPRI regulation is suspended for an oscillator temperature out of range.
u32  KvdLoz6TuReg_badTempReported();
/// Starts the temperature tick unless it runs. An IDL2 slave's begins with the take-over of the
/// hardware, and ends when that is given back.
void KvdLoz6TuReg_startReadTempTimer();
/// Restart of the IDL2 link in synchronous mode: a timer of 400 ms, and the mark that it leaves.
void KvdLoz6TuReg_startIdl2LinkRestartTimer();
/// Also takes back the mark of a timer that has run out.
void KvdLoz6TuReg_cancelIdl2LinkRestartTimer();
u32  KvdLoz6TuReg_idl2LinkRestart();
void KvdLoz6TuReg_clearIdl2LinkRestart();
/// 1 while the regulator works on a selected reference.
int  KvdLoz6TuReg_isRegulatingOnRef();

/// Size of the offset of the node's time, rounded: whole seconds, and the rest below 1024 s in ns.
void KvdLoz6TuReg_calcSoCpriRTO(u32& seconds, u32& nanoseconds);

/// The start-up controller, told each temperature reading: volts, failed reads in a row, readings
/// out of limits in a row, and the read's result.
void KvdLoz6TuReg_startUpController(double vT, u32 attempts, u32 outOfLimits, int result);
/// Tells the other components of a change of regState, once the control law has stored it.
void KvdLoz6TuReg_regStateChanged(u8 from, u8 to);
/// Sends the time data to the other unit of a dual configuration.
void KvdLoz6TuReg_sendTimeData();

/// Temperature coefficients of the estimator's basis from the oscillator's polynomial: T,
/// T^2 - 1/3, T^3 - 0.6 T, in that order.
void KvdLoz6TuReg_temperatureCoefficients(double coeff[3]);

/// "tureg" section of kvdinfo.
void KvdLoz6TuReg_printInfo();
