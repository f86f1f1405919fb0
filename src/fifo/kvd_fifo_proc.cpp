#include "fifo/kvd_fifo_proc.h"

#include "base/trace_groups.h"
#include "fifo/kvd_fifo_dump.h"
#include "fifo/kvd_fifo_upcalls.h"
#include "node/trace.h"
#include "ose/ose.h"
#include "sig/fifo_sig.h"
#include "sig/gps_types.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_process.h"

namespace {

void onDump()
{
    if (KvdLoz6TuRef_row(ROW_GPS).supervisionStatus == 0) {
        KVD_TRACE(TRACE_FIFO, TRACE_INFO,
                  "GpsSyncRef is not registered in Synch MO - no GPS data will be dumped!");
    } else if (FIFO_UPCALLS.receiver().gpssType == GPSS_NORVANE) {
        KVD_TRACE(TRACE_FIFO, TRACE_INFO, "GpsSyncRef in GPSOUT profile - no GPS data will be dumped!");
    } else {
        fifo::dumpGps();
    }
    fifo::dumpRegulator();
}

void handle(SIGSELECT sigNo)
{
    switch (sigNo) {
    case KVD_FIFO_DUMP_FIFO_TO_FILE_IND:         onDump();                    break;
    case KVD_FIFO_DUMP_SKYVIEW_FIFO_TO_FILE_IND: fifo::onSkyViewDump();       break;
    case KVD_FIFO_SKYVIEW_FIFO_WRITE_DATA_IND:   fifo::onSkyViewWriteData();  break;
    case KVD_FIFO_SKYVIEW_START_TIMER_IND:       fifo::onSkyViewStartTimer(); break;
    default: KVD_TRACE(TRACE_FIFO, TRACE_ERROR, "Unknown signal %u received", sigNo); break;
    }
}

}  // namespace

void KvdLoz6Fifo_proc()
{
    node::traceAttachProcess();
    KVD_TRACE(TRACE_FIFO, TRACE_INFO, "PROCESS started: Kvd_loz6_fifo_proc");
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        handle(sig->sigNo);
        ose::free_buf(&sig);
        if (node::traceErrorStatus() != 0) KVD_TRACE(TRACE_FIFO, TRACE_CHECK, "ERROR STATUS");
        node::traceClearErrorStatus();
    }
}

void KvdLoz6Fifo_dump()
{
    Signal* sig = ose::alloc(sizeof(Signal), KVD_FIFO_DUMP_FIFO_TO_FILE_IND);
    ose::send(&sig, KvdLoz6TuFifo_pid());
}
