// The slave unit's measurements aren't part of this load yet.
#include "refs/kvd_slave.h"

#include "mgr/trace_groups.h"
#include "node/trace.h"

void KvdLoz6TuSlave_handleIdlInt()
{
    KVD_TRACE(TRACE_TUSLAVE, TRACE_3, "inter-unit link edge dropped, its measurement isn't running");
}
int KvdLoz6TuSlave_idl2SyncData(const Signal*) { return 0; }
void KvdLoz6TuSlave_idl2SyncDataStopped(u32) {}
