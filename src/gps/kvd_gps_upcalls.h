// kvd_gps_upcalls.h - What receivers and the GPS output ask of the floors above them.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "ose/types.h"

struct GpsUpcalls {
    void (*startOslHoldover)();     // 300 s in which the sync link's loop still holds
    void (*freeSerialLine)();       // the output wants the board's one line
};
extern const GpsUpcalls GPS_UPCALLS;
