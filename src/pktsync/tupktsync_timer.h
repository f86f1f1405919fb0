// tupktsync_timer.h - Timers of the packet process: each comes back as TUPKTSYNC_TMO_IND and says
// whose it is.
// Owner   Kvd_loz6_tupktsync_proc.
// Errors  a timer that can't be had is traced; it doesn't expire then.
#pragma once
#include "ose/types.h"

#include <cstddef>

constexpr SIGSELECT TUPKTSYNC_TMO_IND = 0x9C665;

constexpr u32 TUPKTSYNC_TMO_CLASS_PTP = 1;

enum PtpTimerId : u32 {
    PTP_TMO_ANNOUNCE = 0, PTP_TMO_SYNC_SUP = 1, PTP_TMO_DELAY = 2, PTP_TMO_UC_REPLY = 4,
    PTP_TMO_UC_DURATION = 5, PTP_TMO_UC_RETRY = 6, PTP_TMO_FOREIGN_MASTER = 7,
    PTP_TMO_UC_DELAYED_START = 8,
};

struct TuPktsyncTmoInd {
    SIGSELECT sigNo;
    u32 tmoClass;
    u32 syncrefId;
    u32 timerId;
    u32 index;             // of a foreign master
};
static_assert(offsetof(TuPktsyncTmoInd, index) == 16 && sizeof(TuPktsyncTmoInd) == 20);

struct PktsyncTimer {
    u32 syncrefId = 0;
    u32 timerId = 0;
    u32 index = 0;
    u32 duration_ms = 0;   // of the next start without one
};

void TuPktsync_timerInit(PktsyncTimer& timer, u32 syncrefId, u32 timerId, u32 index = 0, u32 default_ms = 0);
/// Starts or restarts; 0 takes the stored duration, another becomes the stored one.
void TuPktsync_timerStart(PktsyncTimer& timer, u32 ms);
void TuPktsync_timerStop(const PktsyncTimer& timer);
/// Asked once for each time-out that comes, also when its clock is gone. False for one whose timer was
/// stopped or started over meanwhile.
bool TuPktsync_timerExpired(u32 syncrefId, u32 timerId, u32 index);
