// kvd_refs_upcalls.h - What references ask of the floors above them, and tell them.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct RefsUpcalls {
    void (*followLink)(u8 refType);     // a slave follows the other unit over this link
    void (*finishWarmStart)();          // the link works and the warm data was taken
    int  (*unableToTimeLock)();         // 0 sent
    void (*delaySample)(u64 T1, u64 T2, u64 T3, u64 T4);   // an NTP exchange, for the statistics
};
extern const RefsUpcalls REFS_UPCALLS;
