// kvd_mgr_mem.h - Client of the node's persistent memory (MSI): regions that survive a restart of
// the program and of the board, but not a power loss, each protected by a checksum.
//
//   client            regions, bytes                       layout, all numbers big-endian
//   1 MEM_REG_HIST    TuRegHistData, 456                   4..7 checksum, 8..11 size; around them
//                                                          the regulator's history record
//   2 MEM_GPS_OUT     GpsOutMfnOffset, 8; GpsOutV1, 4      0 mfnOffset, 4 mfn; 8..11 checksum
//   3 MEM_REG_NF      TuRegNfDataV0, 16                    0..3 checksum, 8 sfcGpsOffset (double);
//                                                          the sum covers 8..15 alone
//   4 MEM_SLAVE_WARM  SlaveWarmData, 40                    0..3 checksum, 4..7 size
//
// Owner   the manager process.
// Errors  a read that finds nothing answers 0; a write that can't be done answers 0. Both are
//         traced here. A write holds when the call returns; that it is stored is told later.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr u32 MEM_REG_HIST   = 1;
constexpr u32 MEM_GPS_OUT    = 2;
constexpr u32 MEM_REG_NF     = 3;
constexpr u32 MEM_SLAVE_WARM = 4;

constexpr u32 MEM_REG_HIST_SIZE   = 456;
constexpr u32 MEM_GPS_OUT_SIZE    = 12;
constexpr u32 MEM_REG_NF_SIZE     = 16;
constexpr u32 MEM_REG_NF_OFFSET   = 8;       // of sfcGpsOffset
constexpr u32 MEM_SLAVE_WARM_SIZE = 40;

/// Starts the negotiation with the service. Its answer, or its absence, lets the start go on.
void KvdLoz6TuMem_initiate();
bool KvdLoz6TuMem_dispatch(Signal* sig);
/// Asks for a client's regions; `clear` 1 wipes what they held.
void KvdLoz6TuMem_allocate(u32 clientRef, u32 clear);
/// True when the client's bytes were there and passed their checksum; `size` is that of the table.
/// Client 1's content has to be a usable history record too.
bool KvdLoz6TuMem_read(u32 clientRef, void* buffer, u32 size);
/// True when written. The checksum and size words of `buffer` don't count.
bool KvdLoz6TuMem_write(u32 clientRef, const void* buffer, u32 size);
/// True when the region (both regions of client 2) exists.
bool KvdLoz6TuMem_ready(u32 clientRef);

/// The slave's warm data, 40 bytes. Written before the region exists, they are kept (false is answered)
/// and stored once it does.
bool KvdLoz6TuMem_writeSlaveWarm(const void* buffer);
bool KvdLoz6TuMem_readSlaveWarm(void* buffer);

/// FNV-1a (32 bits) over a client's bytes, those that don't count read as 0.
u32  KvdLoz6TuMem_checksum(u32 clientRef, const u8* bytes);
/// "tumem" section of kvdinfo.
void KvdLoz6TuMem_printInfo();
