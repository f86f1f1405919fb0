// kvd_reg_control.h - Control law: grades the estimate, derives the regulator's state, steers the divider.
// Owner   the manager process; only kvd_reg_control*.cpp write `controlStateVar`.
// Units   divider units, relative frequency, seconds.
// Errors  hardware failures are traced by the hardware interface; the step goes on.
#pragma once
#include "ose/types.h"
#include "reg/kvd_reg_estimate.h"

struct FixFilter {                    // hysteresis of the frequency grading
    double last = 0;                  // last log_f_dev
    double meanStep = 0, meanRisingStep = 0;
    double stepSum = 0, risingStepSum = 0;
    double hyst = 0;
    u32 count = 0, risingCount = 0;
    u32 first = 1;
};
/// Grades of frequency (`f_ix`): the best, which counts as locked, and the worst.
constexpr u8 F_IX_LOCKED = 5, F_IX_WORST = 1;

struct ControlStateVar {
    double U[2] = {0, 0};             // time control (always 0), Div
    u8 regState = 0;
    u8 f_ix = F_IX_WORST;             // up to F_IX_LOCKED
    u8 t_ix = 1;                      // 1 to 3
    double f_lim_low = 0, f_lim_high = 0;
    double t_lim_low = 0, t_lim_high = 0;
    double xf_limit = 0;
    double b = 0;
    double du[2] = {0, 0};
    u32 nomDiv = 0;
    i64 K = 0, M = 0;
    u32 initJumpCounter = 0, startUpCounter = 0, lockedCounter = 0;
    u32 bbClockEnabled = 0;
    FixFilter fix{};
    u32 t_acc_report = 0;             // ns
    u32 f_acc_report = 0;             // ppb
};
const ControlStateVar& KvdLoz6TuReg_controlStateVar();

/// One step after an estimation. u and b go to the next prediction, x0 is x[0] as the step left it.
struct ControlResult { double u[2]; double b; double x0; };
/// `x0` comes in as x[0]; a path that ends early hands back u = 0 and the present gain.
ControlResult KvdLoz6TuReg_controller(const Vec6& x, const Mat6& P, bool doControl, u32 z_i);

/// Control initiation; `U1` is the wanted divider and is overwritten on the warm path.
void KvdLoz6TuReg_controlInitiate(bool coldRestart, double U[2]);
/// The same without a cold path and without touching regState; reads the divider from hardware when told.
void KvdLoz6TuReg_controlInitFromPll(double U[2], bool fromHardware);

/// Grade of frequency, 1 to 5. update 0 is a look-ahead and leaves the filter as it was.
u8 KvdLoz6TuReg_computeFix(const Vec6& x, const Mat6& P, int update);

/// Writes Div to the hardware and stores it.
void KvdLoz6TuReg_writeDiv(double U1);

void KvdLoz6TuReg_setFrequencyLimit(double f);
void KvdLoz6TuReg_setFrequencyLowerLimit(double f);
void KvdLoz6TuReg_setHigherTimeLimit(double t);
void KvdLoz6TuReg_setLowerTimeLimit(double t);
void KvdLoz6TuReg_setXfLimit(double xf);

/// Change of regState with report; no change, no report.
void KvdLoz6TuReg_setRegState(u8 regState);
/// The same without report.
void KvdLoz6TuReg_forceRegState(u8 regState);
u8     KvdLoz6TuReg_regState();
u8     KvdLoz6TuReg_f_ix();
u8     KvdLoz6TuReg_t_ix();
/// Each pulse tells whether its source gives the time with it. A source that has run free for a while is
/// followed as an offset at best, until it gives the time again or another one is selected.
void   KvdLoz6TuReg_setSourceTime(bool counts);
bool   KvdLoz6TuReg_sourceTime();
double KvdLoz6TuReg_Div();
/// Locked states, and SYNCH1 to SYNCH3 while the forced lock timer runs.
bool   KvdLoz6TuReg_isLocked();
/// Command: t_ix = 1, t_mod = 0.
void   KvdLoz6TuReg_forceTimeDrift();
void   KvdLoz6TuReg_controlPrintInfo();
