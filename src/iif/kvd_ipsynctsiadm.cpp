// The client of the node's IP sync service isn't part of this load yet: no NTP packet arrives.
#include "iif/kvd_ipsynctsiadm.h"

#include "node/platform.h"

void KvdLoz6TuIpSyncTsiAdm_initiate() {}
int KvdLoz6TuIpSyncTsiAdm_dispatch(Signal*) { return 0; }
void KvdLoz6TuIpSyncTsiAdm_printInfo()
{
    node::shellPrintf("\n***** IP sync TSI *****\n   not running\n");
}
