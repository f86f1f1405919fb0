// kvd_gps_int.h - What the sources of the GPS front end share; nobody else includes it.
// Owner   kvd_gps*.cpp of the front end: kvd_gps, kvd_gps_machine, kvd_gps_report, kvd_gps_measure,
//         kvd_gps_print.
#pragma once
#include "base/kvd_timer.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_receiver.h"
#include "reg/kvd_reg_time_of_day.h"
#include "sig/gps_sig.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "unit/kvd_gps_state.h"

namespace gps {

/// Detection of the receiver's kind: what was seen, and how many valid sentences.
struct Detection {
    u8 seenTypes = 0;                     // bit 0 GPtps, 1 GPppr, 2 GPsts
    u8 seenCount = 0;                     // at most 8
};

/// State of the front end; the receiver's own data lies in kvd_gps_receiver.h and the parsers.
struct State {
    u8  tuGpsRefType = NO_REF;            // RefType that it serves
    u32 supervision = 0;                  // status of the last request, 0 none
    u32 present1pps = 0;
    u32 alarmActive = 0;
    u32 selfTestAlarmShown = 0;
    bool forceReport = false;             // the next report goes while the alarm is suppressed, too
    u8  lastSelfTestCode = 0;
    Detection detection;
    u8  modeRetries = 0;
    u8  selectionProcessMode = 0;
    u8  fixedPosition = 1;                // wanted: 1 fixed position, 0 survey
    PROCESS waiter = 0;                   // who asked for a module or antenna answer
    u32 numberOfNmeaMsgs = 0;
    double gpsCompensationDelay = 0.0;    // s
    TimeOfDayGate gate;

    KvdTimer suprAlarmTmoRef;
    KvdTimer additionalInfoSuprTmoRef;
    KvdTimer waitForValidTmoRef;
    KvdTimer waitForOperationalTmoRef;
    KvdTimer operationalTmoRef;
    KvdTimer validTmoRef;
    KvdTimer waitForSelfTestTmoRef;
};
State& state();

// ---- kvd_gps_fixed.cpp ----
/// As the main processor is told it.
TuiifCoordinate coordinateOf(const GpsCoordinate& from);
/// After each timing sentence: the main processor is told the position once it is held.
void tellFixedPosition();
/// The next main processor is told again.
void forgetFixedPosition();

// ---- kvd_gps_machine.cpp ----
/// One valid sentence of that kind more; stores the kind and answers it, PENDING ones too.
u32  detectReceiver(Detection& detection, u8 kind);
/// Neither unknown nor pending: the flags have done their work.
bool isSettled(u32 gpssType);
/// nullptr unless the sentence lies inside its buffer and ends where its length says.
const KvdTugpsNmeaMsgRec* wholeSentence(Signal* sig);
void gpsNmeaMsgRecv(Signal* sig);
void onSerialPortInitialised();
void onWaitForValidTimeout();
void onWaitForOperationalTimeout();
void onOperationalTimeout();
void onValidTimeout();
void enter(u32 gpsState);
void cancelAllTimers();
/// Wish of the main processor: 1 fixed position, else survey. Stored when the receiver can be
/// asked.
void setFixedPosition(u32 wanted);
/// Satellites, version, module, kind, mode, week and positions as before any sentence.
void resetReceiverData();

// ---- kvd_gps_report.cpp ----
void onSuprAlarmTimeout();
void onAdditionalInfoTimeout();
void onSelfTestTimeout();
void startAlarmSuppression();
/// Timing sentences come: whatever is wrong now is told from here on.
void endAlarmSuppression();
/// On entering states 3 to 5, and on a new failing self-test code.
void reportStatusChange();
void report();
void checkSelfTest();
/// Quality of the reference as the receiver's kind gives it, to the main processor.
void sendQualityLevel();

// ---- kvd_gps_measure.cpp ----
/// What a front end in that state knows of the time, as KvdLoz6TuGps_time says it.
u32 timeOf(u32 gpsState, double& time);
/// A latched edge against the time that a front end knows.
struct Observation {
    double z = 0, t_s = 0, phase = 0;    // s
    u32 z_i = 0;
};
/// False when the edge can't be used. `setNoise` is called before the phase is taken.
bool observe(u32 (*timeQuery)(double& time), void (*setNoise)(u32 z_i), Observation& observation);
void setCompensationDelay(u16 delay_ns);

}  // namespace gps
