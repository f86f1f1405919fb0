// kvd_reg_control_int.h - What the sources of the control law share: its state, and its arithmetic
// as functions of their arguments. Nobody else includes it, but for the tests.
// Owner   kvd_reg_control*.cpp.
// Units   divider units, relative frequency, seconds.
// Errors  none in the arithmetic: a value that no integer holds is taken to the nearest that does.
#pragma once
#include "reg/kvd_reg_control.h"

namespace control {

/// One change of regState with the node's time of day, 40 bytes.
struct Transition {
    i32 second, minute, hour, day, month, year;   // UTC; month 1 to 12, year as it is written
    i32 microsecond;
    i32 reserved[2];
    u32 regState;
};
static_assert(sizeof(Transition) == 40);
constexpr u32 TRANSITIONS_MAX = 20;

struct State {
    ControlStateVar var{};
    Transition transitions[TRANSITIONS_MAX] = {};   // oldest first
    u32 transitionCount = 0;
    u8  withoutTime = 0;                            // pulses in a row
};
State& state();

// ---- kvd_reg_control_law.cpp: values in, values out ---------------------------------------------

/// log10 of the frequency deviation that the estimate allows: |x[1]| and three sigma.
double logFrequencyDeviation(double x1, double P11);
/// One sample into the hysteresis filter; the 60th closes the averaging.
void   fixFilterStep(FixFilter& filter, double log_f_dev);
/// Distance above the limit of the present grade, in decades.
double fixDistance(const FixFilter& filter, double log_f_dev, u8 f_ix, double f_lim_low, double f_lim_high);
/// 5 below the limit, one less for each decade above it, down to 1.
u8     gradeOfDistance(double distance);

struct TimeGradeInput {
    double t_acc;
    double t_lim_low;
    double t_lim_high;
    u8 t_ix;
    bool knowsTime;
};
/// True while time counts as locked (grade 2 or 3).
bool   timeIsLocked(const TimeGradeInput& in);

/// State by the grades; a grade outside of its range is traced. `present` stays with a wrong f_ix.
u8     stateOfGrades(u8 f_ix, u8 t_ix, u8 t_ixOld, u8 present);

/// Divider step that removes the whole frequency offset, up to 1 ppm.
double frequencyStep(double x1, double b);
struct TimeSteering { double du_t; double du_l; double du; };
/// Dead-beat step over one horizon, held inside the band of allowed frequency.
TimeSteering timeStep(double x0, double x1, double x2, double P11, double b, double xf_limit);

/// Words of a divider value. `nomDiv` is that in hardware unless D lies outside of its reach.
struct DividerWords { u32 nomDiv; i64 K; };
DividerWords splitDivider(double D, u32 hardwareNomDiv, i64 M);
/// nomDiv for a divider value: its nearest integer less 1.
u32    nomDivOf(double D);

u32    toU32(double x);    // saturating, towards 0
i64    toI64(double x);    // saturating, towards 0

// ---- kvd_reg_control.cpp ------------------------------------------------------------------------

/// Stores regState and writes the log, without report; no change is written when there is none.
void storeRegState(u8 regState);

// ---- kvd_reg_control_init.cpp -------------------------------------------------------------------

/// Limits and filters as an initiation leaves them.
void loadDefaults(ControlStateVar& v);

}  // namespace control
