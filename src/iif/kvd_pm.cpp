// Performance counters aren't part of this load yet.
#include "iif/kvd_pm.h"

#include "node/platform.h"

int KvdLoz6TuPm_dispatch(Signal*) { return 0; }
void KvdLoz6TuPm_startStatistics(u32) {}
void KvdLoz6TuPm_clockState(u8) {}
void KvdLoz6TuPm_gpsStatus(u8) {}
void KvdLoz6TuPm_printInfo()
{
    node::shellPrintf("\n***** PM *****\n   not running\n");
}
