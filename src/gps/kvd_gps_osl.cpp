// The GPS out sync link isn't part of this load yet: no remote clock state is known, no edge is used.
#include "gps/kvd_gps_osl.h"

#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"

int KvdLoz6GpsOsl_dispatch(Signal*) { return 0; }
void KvdLoz6GpsOsl_handleInt()
{
    KVD_TRACE(TRACE_TUGPS_OSL, TRACE_INFO, "reference edge dropped, GPS out sync link isn't running");
}
void KvdLoz6GpsOsl_statusChange(u32) {}
void KvdLoz6GpsOsl_closePort() {}
void KvdLoz6GpsOsl_filterEnd(u32) {}
void KvdLoz6GpsOsl_storeRemoteState(u32) {}
void KvdLoz6GpsOsl_sendRemoteState() {}
void KvdLoz6GpsOsl_supervision(const Signal*, u32) {}
void KvdLoz6GpsOsl_printInfo()
{
    node::shellPrintf("\n***** GPS out sync link *****\n   not running\n");
}
