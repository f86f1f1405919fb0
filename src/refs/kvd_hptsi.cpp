// The dedicated time input isn't part of this load yet.
#include "refs/kvd_hptsi.h"

#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"

int KvdLoz6TuHptsi_dispatch(Signal*) { return 0; }
void KvdLoz6TuHptsi_handleInt()
{
    KVD_TRACE(TRACE_TUHPTSI, TRACE_INFO, "reference edge dropped, HPTSI isn't running");
}
void KvdLoz6TuHptsi_clearPreTimeOffset() {}
void KvdLoz6TuHptsi_serverGone() {}
void KvdLoz6TuHptsi_statusChange(u32) {}
void KvdLoz6TuHptsi_closePort() {}
void KvdLoz6TuHptsi_selectionMode(u8) {}
bool KvdLoz6TuHptsi_isOperational() { return false; }
void KvdLoz6TuHptsi_supervision(const Signal*, u32) {}
void KvdLoz6TuHptsi_printInfo()
{
    node::shellPrintf("\n***** HPTSI *****\n   not running\n");
}
