// kvd_hwif_upcalls.h - What the hardware interface asks of the floors above it.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct HwifUpcalls {
    bool (*isMaster)();                          // as the regulator goes by
    double (*divider)();                         // the control law's last one
    double (*lastSampleTime)();                  // s, whole turns of the frame counter
    u32 (*gpsOutTime)(double& time);             // 1 while the output's time is valid; s
    void (*historyColdFlag)(u32& coldRestart);   // as the history record of the start tells it
};
extern const HwifUpcalls HWIF_UPCALLS;
