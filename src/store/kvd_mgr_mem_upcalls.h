// kvd_mgr_mem_upcalls.h - What the store asks of the floors above it, and tells them.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct MemUpcalls {
    void (*serviceAnswered)();                    // whatever it said: the unit's start goes on
    bool (*isHistoryUsable)(const u8* record);    // content of MEM_REG_HIST
    bool (*timeOffset)(double& offset_s);         // the regulator's own; false until it has taken one
};
extern const MemUpcalls MEM_UPCALLS;
