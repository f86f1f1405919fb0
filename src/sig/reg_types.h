// reg_types.h - States of the regulator and its loops, numbers of its measurements: what others read or are
// told.
#pragma once
#include "ose/types.h"

/// State of the regulator. State 7 does not exist.
enum RegState : u8 {
    WARMUP = 1,         // oscillator not usable yet
    SYNCH1 = 2,         // f_ix 2
    SYNCH2 = 3,         // f_ix 3
    SYNCH3 = 4,         // f_ix 4
    FREQLOCKED = 5,     // f_ix 5, time not locked
    FREQDRIFTING = 6,   // f_ix 1
    FAILURE = 8,        // tested, never entered
    UNKNOWN = 9,        // reset mark, left by the next decision
    TIMELOCKED = 10,    // t_ix 2
    TRUETIME = 11,      // t_ix 3
    STARTUPTIME = 12,   // tested, never entered
    PREJUMPSTART = 13,
    PREJUMPHIST = 14,
};

/// Start-up state of the regulator.
enum TuRegInitiateState : u32 {
    TUREG_START = 0,
    TUREG_WARM_UP = 1,
    TUREG_WARM_INITIATED = 2,
    TUREG_INIT_NOISY = 3,
    TUREG_INIT = 4,
};

/// Time mode, computed from the selected reference.
constexpr u8 FREQUENCY_LOCKING = 1;
constexpr u8 ABSOLUTE_TIME_LOCKING = 3;

/// Quality of the selected reference as reported to the main processor.
enum RefQuality : u8 {
    KVD_TUIIF_NOT_VALID = 0,
    KVD_TUIIF_REF_OK = 1,
    KVD_TUIIF_REF_DEGRADED = 2,
    KVD_TUIIF_REF_LTR = 3,
};

/// Measurement indices, slots of `m` and `R_all`.
enum MeasurementIndex : u32 {
    Z_IDL1_LOZ6 = 1, Z_EXT_REF = 2,
    Z_PDH_REF1 = 3, Z_PDH_REF2 = 4, Z_PDH_REF3 = 5, Z_PDH_REF4 = 6, Z_SDH_REF = 7,
    Z_GPS_REF = 8, Z_NTP_REF = 9, Z_SOFT_REF = 10, Z_TEMP_REF = 11, Z_PKT_FREQ_REF = 12,
    Z_PKT_TIME_REF = 13, Z_NO_REF = 14, Z_ETH_REF = 15, Z_EXT_1PPS_REF = 16, Z_IDL2_LOZ6 = 17,
    Z_HPTSI_REF = 18, Z_GPS_OUT_REF = 19, Z_GPSOSL_REF = 20, Z_SOCPRI_REF = 21,
};

enum JumpState : u32 {
    JUMP_NOT_NEEDED = 0,
    JUMP_REQUESTED = 1,         // ordered by a client, the indication timer runs
    JUMP_NEEDED = 2,            // the timer ended while time wasn't known: try at each control step
};

enum PllState : u32 {
    PLL_Uninitialized = 0,      // not running
    PLL_PreJumpStart = 1,       // the first phase is a time step, no history
    PLL_PreJumpHist = 2,        // the same, with history
    PLL_Unlocked = 3,           // pulls in
    PLL_OffsetLocked = 4,       // locked to an offset from zero
    PLL_Locked = 5,             // locked to phase zero
    PLL_Freq_Holdover = 6,      // reference lost, frequency of the vector or the last one
    PLL_Offset_Holdover = 7,    // lost from OffsetLocked, vector full
    PLL_Locked_Holdover = 8,    // lost from Locked, vector full
};
enum SlavePllState : u32 {
    SLAVE_PLL_Uninitialized = 0,
    SLAVE_PLL_Unlocked = 1,
    SLAVE_PLL_Locked = 2,
};

/// What the GPS output is told of a loop.
constexpr u32 PLL_IS_TIME_LOCKED = 11, PLL_IS_NOT_TIME_LOCKED = 6;

/// What a measurement of a slave brought, as the history shows it.
enum SlavePllEvent : u32 {
    EV_SLAVE_PLL_UNEVENTFUL_MEASUREMENT = 0,
    EV_SLAVE_PLL_BFN_READ_ERROR = 1,
    EV_SLAVE_PLL_UNRELIABLE_MEASUREMENT = 2,          // among the first ones of Unlocked
    EV_SLAVE_PLL_5MS_ANOMALY = 3,                     // the frequency pre-step met a step above 1 ms
    EV_SLAVE_PLL_EXPLICIT_FREQ_SYNC = 4,              // a frequency pre-step
    EV_SLAVE_PLL_TARGETDIFF_UPDATED = 5,
    EV_SLAVE_PLL_REVERT_TO_EXPLICIT_FREQ_SYNC = 6,    // the second update in a row
    EV_SLAVE_PLL_PROCEEDING_TO_LOCKED_W_JUMP = 7,
    EV_SLAVE_PLL_PROCEEDING_TO_LOCKED = 8,
    EV_SLAVE_PLL_JUMP_WITHIN_LOCKED = 9,
    EV_SLAVE_PLL_DEGRADING_TO_UNLOCKED = 10,
};
