// kvd_reg_measure.h - Measurement core: from latched counters to the record of the estimator.
// Owner   the manager process; only kvd_reg_measure*.cpp write `measStateVar`.
// Units   seconds; coarse times in whole multiples of 1024, fine times from 0 up to 1024.
// Errors  a failed measurement is dropped with a trace.
#pragma once
#include "base/kvd_math.h"
#include "ose/types.h"
#include "sig/reg_types.h"

#include <array>

struct Signal;

constexpr u32 Z_I_COUNT = 22;
constexpr double TMOD_GPS_NMEA = 4294967296.0;   // s, time of day is known
constexpr double COUNTER_PERIOD = 1024.0;        // s

const char* KvdLoz6TuReg_measurementText(u32 z_i);

/// What the estimator is handed.
struct MeasRefData {
    double z;      // s after offset and modulus; the normalised temperature for Z_TEMP_REF
    u32 z_i;
    double t_s;    // s since the step before
    double m;      // memory length of the noise adaptation
    double R;      // variance, s^2
};

/// A reference's edge on the local scale, ready for calcZ.
struct LatchedEdge {
    u32 z_i;
    double time[2];   // coarse, fine
    double t_s;
};

/// The record of the measurement core, one instance.
struct MeasStateVar {
    u32 selectedRef = 0, prevSelectedRef = 0;
    double vTmin = 0, vTmax = 0;
    double vT = 0, vThigh = 0, vTlow = 0, vTnorm = 0;
    u32 nrBadSamples = 0, nrOutRange = 0;
    double t_mod_old = 0;
    double delta0_c = 0, delta0_f = 0, delta0_slave_c = 0, delta0_slave_f = 0;
    double t_c_last = -1.0, t_f_last = 0;
    std::array<double, Z_I_COUNT> m{};
    std::array<double, Z_I_COUNT> R_all{};
    double histCountDown = 0;          // temperature ticks
    double mean_dsfc = 0;              // printed only
    double max_locked_diff = 0, max_locked_interval_diff = 0;   // s, phase differences of a slave
    u8 jump_idl1 = 0;                  // a time adjustment of the master that IDL1 is to tell
    u8 pktRate = 0;
    double calibrationCountDown = 0;   // s
    u8 refBreak = 0;
    MeasRefData measRefData{};
};
/// The whole record, for the history, the printouts and the logs.
const MeasStateVar& KvdLoz6TuReg_measStateVar();

struct MeasInitiation {
    double time = -1.0;                 // s, coarse part of the restored time; -1.0 is none
    double time_f = 0;                  // s, its fine part
    double t_mod = 0;
    double delta0_c = 0, delta0_f = 0;
    const std::array<double, Z_I_COUNT>* m = nullptr;       // nullptr: cold-start values
    const std::array<double, Z_I_COUNT>* R_all = nullptr;   // nullptr: cold-start values
    double vTmin = 0, vTmax = 0;
    u8 jump_idl1 = 0;
    bool coldRestart = false;
};
void KvdLoz6TuReg_measInitiate(const MeasInitiation& values);

/// Serves KVD_TUHWIF_REF_INTERRUPT's pending bits; dropped before start-up's last two states.
void KvdLoz6TuReg_handleInterrupt(u32 pending);
void KvdLoz6TuReg_handleConfigRefType(u32 refType, u32 froId);
/// True when the latched edge may be used, false when it was discarded.
bool KvdLoz6TuReg_handleRefClkInt(LatchedEdge& edge);
/// True on success; moves t_c_last and t_f_last.
bool KvdLoz6TuReg_calcSampleTimeInterval(double& t_s);
/// The same for a counter that others may have set since the last sample: no interval is judged.
void KvdLoz6TuReg_takeSampleTime();
void KvdLoz6TuReg_calcZ(double t_mod, const double time[2], const double timeRef[2], double& z,
                        TimePair& zPair, double& phase);
/// What the narrower modulus hid goes into the offset, and the wider one holds from now on.
void KvdLoz6TuReg_updateOffsetForNewMod(const double time[2], const double timeRef[2], double t_mod);
void KvdLoz6TuReg_measUpdate(u32 z_i, double z, double t_s, double phase);
/// Takes a step of a line reference into the offset and keeps the estimator from it.
void KvdLoz6TuReg_signalBreakCheck(u32 z_i, double z, const TimePair& zPair);

u32  KvdLoz6TuReg_measurementIndex(u32 selectedRef);
bool KvdLoz6TuReg_isTimeRef(u32 selectedRef);
u32  KvdLoz6TuReg_selectedRef();
u32  KvdLoz6TuReg_prevSelectedRef();
/// Sets the selected value alone, without the actions of a reference change (service command).
void KvdLoz6TuReg_setSelectedRef(u32 selectedRef);

void   KvdLoz6TuReg_setMeasR(double R, u32 z_i);
double KvdLoz6TuReg_getMeasR(u32 z_i);
/// Adaptation of an index's noise begins anew, from its cold-start value.
void   KvdLoz6TuReg_restartMeasNoise(u32 z_i);
/// True when applied, false when at most 4.9e-8 s in all (SoCPRI is exempt from that limit).
bool KvdLoz6TuReg_adjustOffset(double c, double f);
void   KvdLoz6TuReg_adjustSlaveOffset(double c, double f);
TimePair KvdLoz6TuReg_getSlaveOffset();
void   KvdLoz6TuReg_clearSlaveOffset();
/// The largest phase differences take a slave's |z| when it is larger.
void   KvdLoz6TuReg_noteLockedDiff(double z);
/// Adds one to m[z_i] of a measurement that bypasses the estimator; answers the new count.
u32    KvdLoz6TuReg_countMeasurement(u32 z_i);
void   KvdLoz6TuReg_restartMeasurementCount(u32 z_i);
TimePair KvdLoz6TuReg_getOffset();
void   KvdLoz6TuReg_setOffset(double c, double f);
/// Moves delta0_c alone, by whole seconds.
void   KvdLoz6TuReg_shiftOffset(double c);
TimePair KvdLoz6TuReg_getLastTime();
void   KvdLoz6TuReg_setLastTime(double c, double f);
double KvdLoz6TuReg_setMod(double t_mod);        // returns the old value
double KvdLoz6TuReg_getMod();
bool   KvdLoz6TuReg_knowsTime();
double KvdLoz6TuReg_getPp1sBoardDelay();         // s
void   KvdLoz6TuReg_setTempLimits(double vTmin, double vTmax);
void   KvdLoz6TuReg_setPortSupervised(u32 supervised, u32 port);
void   KvdLoz6TuReg_setHistCountDown(double ticks);
void   KvdLoz6TuReg_setCalibrationCountDown(double seconds);
u8     KvdLoz6TuReg_getPktRate();
void   KvdLoz6TuReg_setPktRate(u8 rate);
/// Raises the jump flag of IDL1, but only while its port is supervised: nobody would echo it.
void   KvdLoz6TuReg_setJumpIdl1();
void   KvdLoz6TuReg_clearJumpIdl1();
u8     KvdLoz6TuReg_jumpIdl1();
u32    KvdLoz6TuReg_coldRestartFlag();
void   KvdLoz6TuReg_clearColdRestartFlag();
/// True while the regulator's state lets measurements in.
bool   KvdLoz6TuReg_isValidState();

/// Reads the oscillator's temperature and tells the start-up controller.
void KvdLoz6TuReg_readOcxoTemp();
/// A temperature sample that is to reach the estimator.
void KvdLoz6TuReg_handleTempMeasurement();
/// Relates packet time stamps to the frame counter; every hundredth 100 ms tick.
void KvdLoz6TuReg_handlePp100msInterupt();
/// Marks that the counter was stepped: the difference to the packet clock is measured anew.
void KvdLoz6TuReg_diffCheckAfterJump();
/// Marks that the counter has just been stepped: an edge that was latched before isn't measured.
void KvdLoz6TuReg_counterStepped();
TimePair KvdLoz6TuReg_sfcNtpDiff();
/// Marks that a slave's counter took its leader's time: its own offset belongs to the counter before.
void KvdLoz6TuReg_followedStep();
/// A slave unit of a pair takes over as master; regState of the other unit.
void KvdLoz6TuReg_takeOverAsMaster(u8 otherRegState);
/// Part of the "tureg" section of kvdinfo.
void KvdLoz6TuReg_measPrintInfo();
