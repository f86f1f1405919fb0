// kvd_reg_measure_int.h - What the sources of the measurement core share: state, tables, and
// arithmetic as functions of their arguments. Nobody else includes it, but for the tests.
// Owner   kvd_reg_measure*.cpp.
// Units   seconds, volts.
// Errors  none here; failures are traced where a sample is dropped.
#pragma once
#include "reg/kvd_reg_measure.h"

#include <optional>

namespace measure {

constexpr u32 TICKS_BETWEEN_DIFF_CHECKS = 100;   // 100 ms ticks; above 99 the check runs

struct State {
    MeasStateVar var{};
    u32 coldRestartFlag = 0;
    u32 portSupervised[2] = {0, 0};
    double pp1sBoardDelay = 0;               // s
    u8 decimation = 0;                       // edges since the last one used, 0 to 7
    // Frame counter against the packet time stamps' counter; both parts 0: not measured yet.
    double diff_c = 0.0, diff_f = 0.0;
    u32 countConsecutiveDiff = 0;
    u32 diffCheckActive = 0;
    u32 sampledAt_ms = 0;              // kernel time of the last sample
    bool hasSampled = false;           // since the start: that time is known
    std::optional<double> steppedAt_s; // counter right behind its last step, until an edge of later on
    bool followedStep = false;         // as a slave, since its own offset was true
    u32 diffCheckAfterJump = 0;
    u32 diffCheckTicks = TICKS_BETWEEN_DIFF_CHECKS;
};
State& state();

/// One measurement index: its label, start values, and its memory length when it is selected anew.
struct IndexRow {
    const char* label;
    double R;             // s^2 at a cold start
    double m;             // at a cold start
    double mSelected;     // KEPT: stays as it is
};
constexpr double KEPT = -1.0;
const IndexRow& indexRow(u32 z_i);

/// Switches the check of the packet counter on, so that it runs at the next 100 ms tick.
void setDiffCheckActive();

/// Interval from the last sample to counter value t_f; the first sample starts time at 0.
struct SampleInterval { double t_c; double t_s; };
SampleInterval sampleInterval(double t_c_last, double t_f_last, double t_f, double period);

/// z and its pair, once the modulus is in place.
struct PhaseError { double z; TimePair pair; double phase; };
PhaseError phaseError(double t_mod, const double time[2], const double timeRef[2], TimePair delta0);
/// What a wider modulus adds to the offset so that z goes on without a step.
TimePair offsetForNewMod(double t_mod_old, double t_mod, const double time[2], const double timeRef[2],
                         TimePair delta0);

/// Frame counter t_f less the packet counter, which was latched at the frame's beginning.
TimePair diffCandidate(double t_f, double t_c_last, double t_f_last, double period, u32 ntpSeconds,
                       u32 ntpFraction);
/// One comparison of the two counters; acts on the flags, count and difference.
void checkDiff(State& s, TimePair candidate);

/// True while the regulator's state lets measurements in.
bool isValidState(u8 regState, u8 managerRefType, u32 selectedRef, u32 prevSelectedRef);

}  // namespace measure
