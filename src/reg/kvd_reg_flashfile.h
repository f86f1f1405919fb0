// kvd_reg_flashfile.h - Flash files of the regulator's history. They survive a power cycle and are
// trusted for the frequency alone. A file is a record and 4 bytes behind it, the FPGA's revision.
//
//   /d/kvd_loz_data_1   record of version 0x50006
//   /d/kvd_loz_data     what an older program left, of any version; kept up to date for it when it
//                       is of 0x40006 or 0x50006, never made
//
//   version    data    layout, offsets in bytes, all numbers big-endian
//   0x30003     352    0 version, 4 time, 12 serial, 40 U, 56 x of five states, 96 P of 5 x 5,
//   0x30005     360    296 delta0_c, delta0_f, t_mod, 320 T
//   0x40006     432    0 version, 4 time, 12 serial, 40 U, 56 x_est, 104 P_est,
//                      392 delta0_c, delta0_f, t_mod, 416 T
//   0x50006     456    kvd_reg_histrecord.h
//
// Owner   the manager process; no state.
// Errors  1 done, 0 not; each failure is traced here.
#pragma once
#include "ose/types.h"

#include <string>

constexpr const char* HIST_FILE     = "/d/kvd_loz_data_1";
constexpr const char* HIST_FILE_OLD = "/d/kvd_loz_data";

/// Replaces the file, and follows with the older program's when there is one. The older one counts
/// as done in any case.
bool KvdLoz6TuReg_writeFlashFile(const u8* record);
/// The newer of the two files as a record of the present version.
bool KvdLoz6TuReg_readFlashFile(u8* record);

namespace flashfile {

/// Name and content of the newer file; of equals HIST_FILE. nullptr when neither has the exact size
/// of its version.
const char* choose(std::string& content);
/// `content` is at least a version; `coeff` are the temperature coefficients that a five-state record lacks.
bool convert(const std::string& content, const double coeff[3], u8* record);

}  // namespace flashfile
