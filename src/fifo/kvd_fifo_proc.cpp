// The rolling logs aren't part of this load yet: the process stands in its place in the process table,
// and an order to dump says that there is nothing to write.
#include "fifo/kvd_fifo_proc.h"

#include "mgr/trace_groups.h"
#include "node/trace.h"
#include "ose/ose.h"

void KvdLoz6Fifo_proc()
{
    node::traceAttachProcess();
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        ose::free_buf(&sig);
    }
}

void KvdLoz6Fifo_dump()
{
    KVD_TRACE(TRACE_FIFO, TRACE_INFO, "dump of the logs ordered, no log is kept in this load");
}
