// kvd_reg_int.h - What the sources of the regulator share of its main part: its state, and its arithmetic as
// functions of their arguments. Nobody outside of src/reg includes it, but for the tests.
// Owner   kvd_reg*.cpp of the main part.
// Units   seconds, volts of the temperature sensor, relative frequency; timers in ms.
// Errors  told at each function.
#pragma once
#include "base/kvd_timer.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_estimate.h"

#include <array>

namespace regulator {

constexpr OSTIME WARMUP_TMO_ms = 300000;
constexpr OSTIME READ_TEMP_TMO_ms = TEMP_TICK_ms;
constexpr OSTIME IDL2_LINK_RESTART_TMO_ms = 400;

constexpr u8 TICKS_COUNTED = 120;          // the noisy counter stops here
constexpr u8 TICKS_WARM_INITIATED = 56;    // up to here a started filter waits
constexpr u32 TEMP_FAULT_TICKS = 5;        // so many in a row are borne

/// A change of the start-up state, for the report.
struct StartUpChange {
    u32 ticks;                             // kernel ticks
    u8 from, to;                           // TuRegInitiateState
};

/// Time data of the other unit of a pair.
struct OtherUnit {
    double t_c = 0;
    double delta0_c = 0, delta0_f = 0;
    double P_est_1_1 = 0;
    double x_est_1 = 0, x_est_2 = 0;       // its x_est[0] and x_est[1]
    u8 regState = 0;
};

struct State {
    double vTmin = 0, vTmax = 0;
    u32 coldRestart = 0;
    u32 passedWarmup = 0;
    u8 initCnt = 0;                        // temperature ticks, up to TICKS_COUNTED
    u8 tureg_timeMode = 0;
    u8 previousTimeMode = 0;
    u8 masterSlaveMode = 0;                // 1 master, 0 slave
    char calibrationExpiry[16] = "";
    u32 tuRegInitiateState = TUREG_START;
    std::array<StartUpChange, 16> startUpHistory{};
    u32 startUpChanges = 0;
    double sfcPtpOffset = 0;
    double sfcGpsOffset = 0;
    double restartDelta = 0;               // change of sfcGpsOffset across a restart
    u32 testMode = 0;
    u32 dualConfiguration = 0;
    OtherUnit otherLoz6Data{};
    u32 receivedTimeDataInd = 0;
    u32 newTimeData = 0;                   // on a slave: otherLoz6Data hasn't been used yet
    u32 masterSel = 0, slaveSel = 0, msiUsed = 0, flashUsed = 0;
    u32 isInitiating = 0;
    u32 idl2LinkRestart = 0;               // the restart timer of the link has run out
    u32 badTempReported = 0;               // SoCPRI was told, until the temperature is back
    KvdTimer warmupTimer, readTempTimer, idl2LinkRestartTimer;
};
State& state();

/// A slave on an IDL mode 2 link takes over hardware that is warm and steered already.
bool isIdl2Slave();
void setInitiateState(u32 tuRegInitiateState);
const char* initiateStateText(u32 tuRegInitiateState);
void startWarmupTimer();
void cancelWarmupTimer();
/// Stores sfcGpsOffset in persistent memory, when its region is there.
void storeSfcGpsOffset();
/// Normalised temperature, -1 to +1 inside the oscillator's limits.
double normalisedTemperature(double vT);

/// True when the filter has been started, false to try again at the next tick.
bool initiateRegulator(double vT);

// ---- arithmetic ---------------------------------------------------------------------------------

/// False for a pair of temperature limits that can't be the oscillator's.
constexpr bool areLimitsValid(double vTmin, double vTmax) { return vTmax != 0.0 && vTmax > vTmin; }

/// Time mode of a selection; holdover keeps the mode of the reference before.
u8 timeMode(u32 selectedRef, u32 prevSelectedRef);

// Covariances of a start, their diagonals.
using Diagonal = std::array<double, 6>;
constexpr double TIME_UNKNOWN = 1024.0 * 1024.0 / 12;   // s^2, even over one counter period
constexpr double VAR_T1 = 1.5e-20, VAR_T2 = 5.624999999999999e-20, VAR_T3 = 2.1875e-19;
constexpr Diagonal P_COLD = {TIME_UNKNOWN, 1e-12, 1e-28, VAR_T1, VAR_T2, VAR_T3};
constexpr Diagonal P_CALIBRATED = {TIME_UNKNOWN, 1.6666666666666667e-8 * 1.6666666666666667e-8,
                                   1e-30,        VAR_T1,
                                   VAR_T2,       VAR_T3};
constexpr Diagonal P_FROM_PLL = {TIME_UNKNOWN, 2.7777777777777778e-18, 1e-30, VAR_T1, VAR_T2, VAR_T3};
Mat6 diagonal(const Diagonal& values);

/// The oscillator's polynomial in the normalised temperature T, relative frequency.
struct TemperaturePolynomial {
    double P3, P2, P1, P0;                 // of T^3 - 0.6 T, T^2 - 1/3, T, 1
};
/// From ppb against volts: a3 v^3 + a2 v^2 + a1 v + a0.
TemperaturePolynomial temperaturePolynomial(double a3, double a2, double a1, double a0, double vTmin,
                                            double vTmax);
/// Divider that makes the nominal frequency at temperature T. D0 belongs to 10 MHz.
double coldDivider(double D0, double nominalFrequency_Hz, const TemperaturePolynomial& p, double T);

/// Node's time less frame counter, us, -20480000 up to +20480000.
i32 rntToSfcDiff(double delta0_c, double delta0_f);

/// Date of a count of days as the node's time counts them: 723186 is 1980-01-06.
struct Date { u16 year; u8 month; u8 day; };
Date dateOfDays(i64 days);

/// The node's time as the answer carries it.
struct RntTime { Date date; u8 hour, minute, second; u32 fraction; };   // fraction in 2^-32 s
RntTime rntTime(double rnt);
/// The node's time at counter value t_f, s since the calendar's beginning.
double rntOfCounter(double t_c_last, double t_f_last, double t_f, double period, double delta0_c,
                    double delta0_f, double sfcGpsOffset);

}  // namespace regulator
