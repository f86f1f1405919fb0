// tupktsync_proc.h - The packet process: its life, the order in which its objects start, and what the
// manager sends it.
// Owner   Kvd_loz6_tupktsync_proc; the last two functions run in the manager process.
#pragma once
#include "ose/types.h"

struct Signal;

/// Objects that report to the root, in the order of their start.
enum TuPktsyncObject : u32 {
    TUPKTSYNC_OBJECT_ALL = 0,
    TUPKTSYNC_OBJECT_ROOT,
    TUPKTSYNC_OBJECT_PKTSYNCDRV_CLIENT,
    TUPKTSYNC_OBJECT_CFI_CLIENT,
    TUPKTSYNC_OBJECT_IPSOCKI_CLIENT,
    TUPKTSYNC_OBJECT_TIMESTAMP_SERVER,
    TUPKTSYNC_OBJECT_SYNCREFCTRL,
};

enum TuPktsyncRootState : u32 {
    ROOT_UNINITIALIZED = 0, WAIT4_PKTSYNCDRV_CLIENT, WAIT4_CFI_CLIENT, WAIT4_IPSOCKI_CLIENT,
    WAIT4_TIMESTAMP_SERVER, WAIT4_SYNCREFCTRL, ROOT_STARTED,
};

/// Entry point of Kvd_loz6_tupktsync_proc.
void TuPktsync_proc();
/// An object is ready, or has given up: the next one starts. Only the one that is waited for may report.
void TuPktsync_Root_initReady(u32 objectId);
/// The chain of starts begins anew.
void TuPktsync_Root_reInitPktSyncRo();
u32  TuPktsync_Root_state();
const char* TuPktsync_rootStateText(u32 rootState);

// ---- in the manager process ---------------------------------------------------------------------
/// The main processor is there; the first one is the packet process's release. `board` 2 on board type
/// 2, else 1.
void TuPktsync_tuiifUPInd(u32 board);
void TuPktsync_tuiifDownInd();
/// A copy of a signal of the main processor.
void TuPktsync_forward(Signal* sig);
