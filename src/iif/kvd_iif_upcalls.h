// kvd_iif_upcalls.h - What the main processor's orders and the basic function's word mean to the frame above.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct Signal;

struct IifUpcalls {
    /// HardwareIdlMode, and the cold flag that goes with a basic function; at most once a program life.
    void (*startHardware)(u32 idlMode, u32 restart);
    void (*restartComponents)(u32 isFirstStart, u8 timeMode, u8 masterSlaveMode, u8 outEmuMode);
    void (*takeRole)(u8 timeMode, u8 masterSlaveMode);
    void (*release)(Signal* sig);       // a signal that was read and dropped
};
extern const IifUpcalls IIF_UPCALLS;
