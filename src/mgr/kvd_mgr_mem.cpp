// Persistent memory isn't part of this load yet: the negotiation ends at once without a service, the start
// goes on, every read finds nothing and every write is refused.
#include "mgr/kvd_mgr_mem.h"

#include "hw/hali.h"
#include "iif/kvd_iifadm.h"
#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"

void KvdLoz6TuMem_initiate()
{
    const int result = HALI_msiInitiate();
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Protocol Negotiation failed with MSI proxy, reason=%u",
              static_cast<u32>(result));
    KvdLoz6TuIifAdm_msiMemInitiated();
}

int KvdLoz6TuMem_dispatch(Signal*) { return 0; }

void KvdLoz6TuMem_allocate(u32, u32)
{
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "Memory allocation is not possible");
}

int KvdLoz6TuMem_read(u32, void*, u32)
{
    KVD_TRACE(TRACE_TUMGR_PROC, TRACE_INFO, "MSI has not yet been initiated");
    return 0;
}

int KvdLoz6TuMem_write(u32, const void*, u32) { return 0; }
int KvdLoz6TuMem_ready(u32) { return 0; }
void KvdLoz6TuMem_printInfo()
{
    node::shellPrintf("\n***** Persistent memory *****\n   msiState : 0\n");
}
