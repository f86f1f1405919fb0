// tupktsyncadm.h - Packet synchronisation seen from the manager, and its process.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr SIGSELECT TUPKTSYNC_TUIIF_DOWN_IND  = 0x9C666;   // manager -> packet sync, no data
constexpr SIGSELECT TUPKTSYNC_TUIIF_UP_IND    = 0x9C667;   // manager -> packet sync: TuPktsyncTuiifUpInd

struct TuPktsyncTuiifUpInd {
    SIGSELECT sigNo;
    u32 board;           // 2 on board type 2, else 1
};

constexpr SIGSELECT TUPKTSYNC_REG_IND         = 0x9C668;   // regulator -> packet sync: TuPktsyncRegInd

/// What the regulator makes of the selected clock.
struct TuPktsyncRegInd {
    SIGSELECT sigNo;
    u32 reserved;
    i64 offsetFromMaster;   // ns * 2^16
    i64 meanPathDelay;      // ns
};
static_assert(sizeof(TuPktsyncRegInd) == 24);

/// Entry point of Kvd_loz6_tupktsync_proc.
void TuPktsync_proc();
void TuPktsyncAdm_initiate();
int  TuPktsyncAdm_dispatch(Signal* sig);
void TuPktsync_tuiifUPInd(u32 board);
void TuPktsync_tuiifDownInd();
void TuPktsync_selectionMode(u8 selectionProcessMode);
/// History of grandmasters as a text; returns its length.
u32  TuPktsync_grandmasterHistoryText(char* text, u32 room);
