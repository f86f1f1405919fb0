// Inter-unit link port data isn't part of this load yet.
#include "refs/kvd_idpi.h"

#include "node/platform.h"

void KvdLoz6Idpi_initiate() {}
int KvdLoz6Idpi_dispatch(Signal*) { return 0; }
int KvdLoz6Idpi_start() { return 0; }
void KvdLoz6Idpi_resendLinkStatus() {}
void KvdLoz6Idpi_printInfo()
{
    node::shellPrintf("\n***** IDPI *****\n   not running\n");
}
