// kvd_fifo_upcalls.h - What the rolling logs ask of the floors above them.
// frame/kvd_wiring.cpp gives the table its functions.
#pragma once
#include "sig/gps_types.h"

struct FifoUpcalls {
    void (*printAll)();           // every component's report, to the shell
    const GpsReceiver& (*receiver)();
    const std::array<GpsSatellite, GPS_MERGED_SATELLITES>& (*satellites)();   // of both systems
};
extern const FifoUpcalls FIFO_UPCALLS;
