// kvd_reg_pll.h - Phase-locked loops, which own the divider while a reference is a phase difference
// against a clean clock: the GPS out sync link, SoCPRI, and a slave unit on an inter-unit link. A
// proportional-integral filter under a state machine; the estimator predicts on beside it.
// Owner   the manager process; only kvd_reg_pll*.cpp write this module's state.
// Units   phase differences in s, local less reference; y relative frequency of the divider, over
//         its factory value.
// Errors  a failed write to the slave's warm data is traced, the loop goes on.
#pragma once
#include "ose/types.h"
#include "sig/reg_types.h"

/// What a step on SoCPRI does with its phase.
enum RegulationMode : u8 {
    REGULATION_ON = 0,
    REGULATION_HOLDOVER_WITH_VECTOR = 1,
    REGULATION_OFF = 2,
};

u32  KvdLoz6TuReg_pllState();
u32  KvdLoz6TuReg_slavePllState();
/// Starts a loop in this state, from the frequency that the divider holds.
void KvdLoz6TuReg_pll_init(u32 pllState);
void KvdLoz6TuReg_slavePll_init(u32 slavePllState);
/// Forced change of state; Uninitialized also empties the holdover vector.
void KvdLoz6TuReg_pll_setState(u32 pllState);
void KvdLoz6TuReg_slavePll_setState(u32 slavePllState);

/// One step with the phase of a measurement.
void KvdLoz6TuReg_pll_control(double phaseDiff);         // master, GPS out sync link
void KvdLoz6TuReg_soCpriPll_control(double phaseDiff);   // master, SoCPRI
void KvdLoz6TuReg_slavePll_control(double phaseDiff);    // slave, IDL1 or IDL2
/// The link is gone: the frequency that the loop has come to, without its answer to the last sample. Nothing
/// when the loop doesn't run.
void KvdLoz6TuReg_slavePll_hold();

/// The last phase that a loop was given, s, and how many there have been; the frequency that its divider
/// settles on, over the factory value.
struct LoopSample { double phaseDiff = 0; u32 count = 0; double y = 0; };
LoopSample KvdLoz6TuReg_pll_lastSample();

/// The reference is lost: the mean of the last filter outputs holds the frequency.
void KvdLoz6TuReg_pll_toHoldover();
/// SoCPRI's phase isn't used for a while: the same mean meanwhile.
void KvdLoz6TuReg_pll_soCpriPostponeRegulation();
/// After a restart of the main processor the next lock keeps the vector, once.
void KvdLoz6TuReg_pll_clearEmptyHOVector();
bool KvdLoz6TuReg_pllIsLocked();     // OffsetLocked or Locked
bool KvdLoz6TuReg_pllIsHoldover();   // one of the three holdover states
/// The GPS out sync link's far end has a time that counts; told before each sample. Without one the loop is
/// locked to an offset at best.
void   KvdLoz6TuReg_pll_setSourceTime(bool counts);
bool   KvdLoz6TuReg_pll_sourceTime();
/// Phase that the loop holds until a jump takes it out, s.
double KvdLoz6TuReg_pll_targetDiff();
void   KvdLoz6TuReg_pll_setTargetDiff(double targetDiff);
/// The integrator as it was before a restart.
void   KvdLoz6TuReg_slavePll_setYi(double yi);
/// Frequency steps that a slave on IDL1 has accumulated.
double KvdLoz6TuReg_pll_extAccFreqOffset();
void   KvdLoz6TuReg_pll_setExtAccFreqOffset(double offset);
u8     KvdLoz6TuReg_pll_regulationMode();                // RegulationMode
void   KvdLoz6TuReg_pll_setRegulationMode(u8 mode);
const char* KvdLoz6TuReg_pllStateText(u32 pllState);             // "PLL_Locked"
const char* KvdLoz6TuReg_slavePllStateText(u32 slavePllState);   // "SLAVE_PLL_Locked"
/// State, filter, holdover vector and the log of changes; part of the "tureg" section of kvdinfo.
void KvdLoz6TuReg_pllPrintInfo();
