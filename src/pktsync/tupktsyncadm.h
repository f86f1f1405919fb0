// tupktsyncadm.h - Packet synchronisation seen from the manager: tells the packet process which
// reference is selected and what is required of it, gives the regulator that reference's exchanges.
// Owner   the manager process; clockClassValid is called by the packet process.
// Errors  an exchange of a reference that isn't selected is dropped.
#pragma once
#include "ose/types.h"

struct Signal;

void TuPktsyncAdm_initiate();
bool TuPktsyncAdm_dispatch(Signal* sig);
void TuPktsync_selectionMode(u8 selectionProcessMode);
/// 0 select, 1 deselect, 2 deselect all; `consumer` gets the exchanges.
void KvdLoz6TuPktsync_selection(u32 froId, u32 froClassNo, u32 selectOperation, PROCESS consumer);
/// Tells the packet process what is required of references and masters.
void KvdLoz6TuPktsync_clockRqmt();
/// ns as 2^-32 s, cut down.
constexpr u32 TuPktsyncAdm_fractionOf(u32 ns) { return static_cast<u32>(ns * 4.294967296); }
/// Reports the quality level of a PTP reference: the class, its index under ITU-T G.8275.1, or 255 for
/// none. A frequency reference's class beyond what is required goes as 98 when it is none of
/// ITU-T G.8265.1 table 2.
void TuPktsyncAdm_clockClassValid(u32 froId, u32 froClassNo, u8 clockClass);
/// History of grandmasters as a text; returns its length.
u32  TuPktsync_grandmasterHistoryText(char* text, u32 room);
