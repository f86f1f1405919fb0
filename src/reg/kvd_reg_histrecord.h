// kvd_reg_histrecord.h - The regulator's history record as it stands in persistent memory and on
// flash. 456 bytes, big-endian:
//
//     0  u32       version, 0x50006
//     4  u32 u32   0; in persistent memory checksum and size
//    12  u32       freqWriteTime, s since 1970 of the write
//    16  u32       the same again
//    20  char[18]  serial number of the oscillator, NUL terminated
//    38  u8        time mode at the write
//    39  u8        0
//    40  u32 u32   selectedRef, prevSelectedRef
//    48  f64[2]    U: time control, divider
//    64  f64[6]    x_est
//   112  f64[36]   P_est, row major
//   400  f64[2]    delta0_c, delta0_f
//   416  f64       t_mod
//   424  f64       T, normalised temperature
//   432  f64[2]    t_c_last, t_f_last
//   448  u32       1 in a record that was read from flash: it holds frequency, not time
//   452  u32       0
#pragma once
#include "ose/types.h"
#include "reg/kvd_reg_estimate.h"

constexpr u32 HIST_RECORD_SIZE    = 456;
constexpr u32 HIST_RECORD_VERSION = 0x50006;

// Places that are read or written without unpacking the whole.
constexpr u32 HIST_WRITE_TIME_AT = 12;
constexpr u32 HIST_TIME_MODE_AT  = 38;
constexpr u32 HIST_U_AT          = 48;
constexpr u32 HIST_X_AT          = 64;
constexpr u32 HIST_P_AT          = 112;
constexpr u32 HIST_DELTA0_AT     = 400;
constexpr u32 HIST_T_AT          = 424;
constexpr u32 HIST_LAST_TIME_AT  = 432;
constexpr u32 HIST_COLD_AT       = 448;
// And their sizes.
constexpr u32 HIST_HEAD_SIZE      = HIST_X_AT - HIST_WRITE_TIME_AT;
constexpr u32 HIST_X_SIZE         = HIST_P_AT - HIST_X_AT;
constexpr u32 HIST_P_SIZE         = HIST_DELTA0_AT - HIST_P_AT;
constexpr u32 HIST_OFFSET_SIZE    = HIST_T_AT - HIST_DELTA0_AT;             // with t_mod
constexpr u32 HIST_LAST_TIME_SIZE = HIST_COLD_AT - HIST_LAST_TIME_AT;
constexpr u32 HIST_KEPT_SIZE      = HIST_LAST_TIME_AT - HIST_WRITE_TIME_AT; // all that an older program knew

struct HistRecord {
    u32 freqWriteTime = 0;
    char serial[18] = "";
    u8 timeMode = 0;
    u32 selectedRef = 0, prevSelectedRef = 0;
    double U[2] = {0, 0};
    Vec6 x_est{};
    Mat6 P_est{};
    double delta0_c = 0, delta0_f = 0;
    double t_mod = 0;
    double T = 0;
    double t_c_last = 0, t_f_last = 0;
    u32 cold = 0;
};

void KvdLoz6TuReg_packHistory(const HistRecord& history, u8* record);
HistRecord KvdLoz6TuReg_unpackHistory(const u8* record);

/// True when the record is of this version and none of its doubles from U[0] to T is NaN.
bool KvdLoz6TuReg_validateHistory(const u8* record);
