// kvd_slave_warm.h - A slave unit's warm data: what lets it go on after a restart of the program
// without a coarse stage or a long lock. A copy in RAM, shared by the inter-unit link
// measurements, the slave loop and the BIRA client, and its region of persistent memory.
//
//   offset  40 octets, big-endian
//    0  u32     checksum
//    4  u32     size
//    8  double  t_c_last, s: turns of the 1024 s counter at the last sample
//   16  double  delta0_c, s: whole seconds of the offset
//   24  double  yi: integrator of the slave loop, relative frequency
//   32  u32     idpiClkStatus: clock status last told to the port server
//   36  u32     reserved, 0
//
// Owner   the manager process; only kvd_slave_warm.cpp writes the copy.
// Errors  a write answers 0 when the region couldn't be written; the copy holds all the same, and
//         is stored once the region is there.
#pragma once
#include "ose/types.h"
#include "sig/idpi_sig.h"

struct SlaveWarmData {
    double t_c_last = 0.0;
    double delta0_c = 0.0;
    double yi = 0.0;
    u32 idpiClkStatus = IDPI_CLK_STATUS_NOT_SET;
};

/// The copy in RAM.
const SlaveWarmData& KvdLoz6SlaveWarm_data();
/// Set a part of the copy; nothing is written.
void KvdLoz6SlaveWarm_setTime(double t_c_last, double delta0_c);
void KvdLoz6SlaveWarm_setYi(double yi);
void KvdLoz6SlaveWarm_setIdpiClkStatus(u32 idpiClkStatus);

/// Writes the copy: true done; false traces "%s(): Unable to write in MSI Slave warm region." with the
/// caller's name.
bool KvdLoz6SlaveWarm_write(const char* caller);
/// Fills the copy from the region: true done; false leaves the copy as it was.
bool KvdLoz6SlaveWarm_read();
/// True when the region exists.
bool KvdLoz6SlaveWarm_ready();
/// Clears the copy and the restoration, sets the status and writes; answers as _write.
int  KvdLoz6SlaveWarm_reset(u32 idpiClkStatus, const char* caller);

/// The copy came from before the restart and counts: the next IDL2 measurement takes time and loop
/// from it, once. Told by the BIRA client when it initiated the slave from the region.
void KvdLoz6SlaveWarm_setRestored();
/// 1 once after _setRestored.
u32  KvdLoz6SlaveWarm_takeRestored();
