// kvd_mp_upcalls.h - What the interface to the main processor asks of the floors above it, and tells them.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct MpUpcalls {
    bool (*loopHolds)();                   // a loop is locked, or in one of its holdovers
    const char* (*calibrationExpiry)();    // its date, "" for none
    bool (*isGpsOperational)();
    bool (*isHptsiOperational)();
    void (*cancelJump)();                  // one that is pending: the clock has no time to move
    void (*clockStateTold)(u8 radioClockState);   // of a master
    void (*gpsStatusTold)(u8 gpsStatus);
};
extern const MpUpcalls MP_UPCALLS;
