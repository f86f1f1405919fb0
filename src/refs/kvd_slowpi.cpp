// Slow protocol frames (ESMC) aren't part of this load yet.
#include "refs/kvd_slowpi.h"

#include "node/platform.h"

void KvdLoz6TuSlowpi_initiate() {}
int KvdLoz6TuSlowpi_dispatch(Signal*) { return 0; }
void KvdLoz6TuSlowpi_unsubscribe() {}
void KvdLoz6TuSlowpi_selectionMode(u8) {}
void KvdLoz6TuSlowpi_printInfo()
{
    node::shellPrintf("\n***** SLOWPI *****\n   not running\n");
}
