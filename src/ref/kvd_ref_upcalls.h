// kvd_ref_upcalls.h - What reference management tells the floors above it.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct RefUpcalls {
    void (*selectionMade)(u8 refType, u32 froId, u32 froClassNo);   // the main processor's view of it
    void (*startStatistics)(u32 regulatorRef);                      // TuSelectedRef
};
extern const RefUpcalls REF_UPCALLS;
