// GPS output isn't part of this load yet: nothing is sent on the serial line.
#include "gps/kvd_gps_out.h"

#include "gps/kvd_gps.h"
#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"

int KvdLoz6GpsOut_dispatch(Signal*) { return 0; }
void KvdLoz6GpsOut_start(u8 mode)
{
    KVD_TRACE(TRACE_TUGPS_OUT, TRACE_ERROR, "output driver isn't in this load, mode=%u not started", mode);
}
void KvdLoz6GpsOut_stop() {}
bool KvdLoz6GpsOut_isRunning() { return false; }
/// The edge of another unit's output is measured against the time that it sends.
void KvdLoz6GpsOut_handleInt() { KvdLoz6TuGps_handleInt(); }
void KvdLoz6GpsOut_regStateChanged() {}
void KvdLoz6GpsOut_pllStateChanged(u32) {}
void KvdLoz6GpsOut_prepareTimeStep() {}
void KvdLoz6GpsOut_timeStepped() {}
u32 KvdLoz6GpsOut_time(double& time)
{
    time = 0.0;
    return 0;
}
void KvdLoz6GpsOut_printInfo()
{
    node::shellPrintf("\n***** GPS output *****\n   not running\n");
}
