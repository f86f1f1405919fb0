// tupktsync_upcalls.h - What packet synchronisation tells the floors above it.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct PktsyncUpcalls {
    void (*delaySample)(u64 T1, u64 T2, u64 T3, u64 T4);   // an exchange, for the statistics
};
extern const PktsyncUpcalls PKTSYNC_UPCALLS;
