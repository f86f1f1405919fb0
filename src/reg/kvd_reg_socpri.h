// kvd_reg_socpri.h - Measurements of a radio link (SoCPRI): a frequency difference steps the
// oscillator at once, a phase difference goes to the loop. After a step of the frame counters
// regulation pauses; a slave follows each step of its master. One log tells of all of it.
// Owner   the manager process; only kvd_reg_socpri*.cpp write this module's state.
// Units   frequency differences in ppb, phases as counts of ps or in s; timers in ms.
// Errors  an invalid value is logged and dropped; too many phases in a row end the link's sync.
#pragma once
#include "ose/types.h"

/// Events of the log.
enum SocpriEvent : u32 {
    SOCPRI_EV_FREQ_MEAS = 0,
    SOCPRI_EV_PHASE_MEAS = 1,
    SOCPRI_EV_TIME_DATA = 2,
    SOCPRI_EV_TIME_DATA_INCONSISTENCY = 3,
    SOCPRI_EV_TIME_DATA_INCONSISTENCY_TOLERATED = 4,
    SOCPRI_EV_JUMP_BEGIN = 5,
    SOCPRI_EV_JUMP_PHASE_1 = 6,
    SOCPRI_EV_JUMP_PHASE_1_TO_2 = 7,
    SOCPRI_EV_JUMP_PHASE_2 = 8,
    SOCPRI_EV_JUMP_PHASE_3 = 9,
    SOCPRI_EV_JUMP_PHASE_4 = 10,
    SOCPRI_EV_JUMP_END = 11,
    SOCPRI_EV_JUMP_END_FAILURE = 12,
    SOCPRI_EV_JUMP_ABORTED = 13,
    SOCPRI_EV_JUMP_BEGIN_BFN_ADJ = 14,
    SOCPRI_EV_JUMP_PHASE_1_BFN_ADJ = 15,
    SOCPRI_EV_JUMP_PHASE_1_TO_2_BFN_ADJ = 16,
    SOCPRI_EV_JUMP_PHASE_2_BFN_ADJ = 17,
    SOCPRI_EV_JUMP_PHASE_3_BFN_ADJ = 18,
    SOCPRI_EV_JUMP_PHASE_4_BFN_ADJ = 19,
    SOCPRI_EV_JUMP_END_BFN_ADJ = 20,
    SOCPRI_EV_JUMP_END_BFN_ADJ_FAILURE = 21,
    SOCPRI_EV_BAD_OCXO_TEMP = 22,
    SOCPRI_EV_OCXO_TEMP_RECOVERED = 23,
    SOCPRI_EV_REGULATION_POSTPONED_AFTER_BFN_ADJ = 24,
    SOCPRI_EV_REGULATION_CONTINUED = 25,
    SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_GPSOSL_HO_EXP = 26,
    SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_NOREF_HO = 27,
    SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_NOREF_LO = 28,
    SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_SAVACTREF = 29,
    SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_SELREF = 30,
    SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_TEMP = 31,
    SOCPRI_EV_PI_CONTROLLER_SHUTDOWN_TRANS = 32,
    SOCPRI_EV_PI_CONTROLLER_GPSOSL_TO_SOCPRI_SWITCH = 33,
    SOCPRI_EV_OCXO_ACC_FREQ_UPDATED = 34,
    SOCPRI_EV_OCXO_ADJ_IGNORED = 35,
    SOCPRI_EV_SFC_ADJ_FOLLOWED = 36,
};

/// ps to s, reduced to one turn of the frame number, -20.48 up to 20.48 s.
double KvdLoz6TuReg_soCpriPhase(u32 trpDiffHigh, u32 trpDiffLow);

/// A measured frequency difference, ppb. True at the third good value in a row, which isn't applied.
bool KvdLoz6TuReg_handleSoCpriFreqDiffMeas(i32 freqDiff, u32 freqDiffValid);
/// A measured phase difference, halves of a count of ps.
void KvdLoz6TuReg_handleSoCpriPhaseDiffMeas(u32 trpDiffHigh, u32 trpDiffLow, u32 trpDiffValid);
/// On a slave: what its master did to its oscillator, ppb, and to its counters, s.
void KvdLoz6TuReg_handleSoCpriSDuFollowOCXOAdjInd(i32 freqDiff);
void KvdLoz6TuReg_handleSoCpriSDuFollowSFCAdjInd(double delta0_c, double delta0_f);

/// A link's phase stage begins: no invalid value yet, no jump.
void KvdLoz6TuReg_resetSoCpriPhase();
void KvdLoz6TuReg_clearSoCpriValidityCnt();
/// Good frequencies of another link, or of an order before, don't count.
void KvdLoz6TuReg_resetSoCpriFreq();

/// Phase values aren't used for 5 s. Counted from the first order.
void KvdLoz6TuReg_orderContinuedRegulationTimer();
void KvdLoz6TuReg_onContinuePostponedRegulationTimeout();
u32  KvdLoz6TuReg_postponeReg();
/// The link to select when the pause is over, a port of 0 to 6.
void KvdLoz6TuReg_rememberSoCpriPort(u8 port);
/// 1 when there was one.
u32  KvdLoz6TuReg_forgetSoCpriPort();

// ---- log (kvd_reg_socpri_log.cpp) ---------------------------------------------------------------

/// One record of an event that isn't a measurement.
void KvdLoz6TuReg_logSoCpriEvent(u32 event);       // SocpriEvent
/// Traces the newest record; with keep 1 the ring is copied to the snapshot.
void KvdLoz6TuReg_traceSoCpriLog(u32 keep);
/// Part of kvdhist: the snapshot.
void KvdLoz6TuReg_printSoCpriHistory();
