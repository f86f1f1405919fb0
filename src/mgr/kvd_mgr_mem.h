// kvd_mgr_mem.h - Client of the node's persistent memory: four regions that survive a restart.
// Owner   the manager process.
// Errors  a read that finds nothing answers 0; a write that can't be done answers 0.
#pragma once
#include "ose/types.h"

struct Signal;

/// Regions by client.
constexpr u32 MEM_REG_HIST   = 1;
constexpr u32 MEM_GPS_OUT    = 2;
constexpr u32 MEM_REG_NF     = 3;
constexpr u32 MEM_SLAVE_WARM = 4;

void KvdLoz6TuMem_initiate();
int  KvdLoz6TuMem_dispatch(Signal* sig);
/// Asks for a region; `clear` 1 wipes what it held.
void KvdLoz6TuMem_allocate(u32 clientRef, u32 clear);
/// 1 when the region was there and its checksum held.
int  KvdLoz6TuMem_read(u32 clientRef, void* buffer, u32 size);
/// 1 when stored.
int  KvdLoz6TuMem_write(u32 clientRef, const void* buffer, u32 size);
/// 1 when the region (both regions of client 2) exists.
int  KvdLoz6TuMem_ready(u32 clientRef);
/// "tumem" section of kvdinfo.
void KvdLoz6TuMem_printInfo();
