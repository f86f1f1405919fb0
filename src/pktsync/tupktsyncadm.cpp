// Packet synchronisation isn't part of this load yet: its process waits for its release and then drops
// what it is sent, its element of the dispatch chain answers 0.
#include "pktsync/tupktsyncadm.h"

#include "mgr/kvd_mgr_proc.h"
#include "mgr/trace_groups.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/ose.h"

void TuPktsync_proc()
{
    node::traceAttachProcess();
    // The first report that the main processor is there is this process's release; whatever was sent
    // before stays in the queue until then.
    constexpr SIGSELECT RELEASE[] = {1, TUPKTSYNC_TUIIF_UP_IND};
    Signal* up = ose::receive(RELEASE);
    ose::free_buf(&up);
    KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_INFO, "Kvd_loz6_tupktsync_proc started (semaphore signalled)");
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        KVD_TRACE(TRACE_TUPKTSYNC_ROOT, TRACE_3, "signal 0x%x dropped, packet synchronisation isn't running",
                  sig->sigNo);
        ose::free_buf(&sig);
    }
}

void TuPktsyncAdm_initiate() {}
int TuPktsyncAdm_dispatch(Signal*) { return 0; }

void TuPktsync_tuiifUPInd(u32 board)
{
    TuPktsyncTuiifUpInd* ind = node::make<TuPktsyncTuiifUpInd>(TUPKTSYNC_TUIIF_UP_IND);
    ind->board = board;
    node::sendTo(KvdLoz6TuPktsync_pid(), ind);
}

void TuPktsync_tuiifDownInd()
{
    Signal* ind = ose::alloc(sizeof(SIGSELECT), TUPKTSYNC_TUIIF_DOWN_IND);
    ose::send(&ind, KvdLoz6TuPktsync_pid());
}

void TuPktsync_selectionMode(u8) {}

u32 TuPktsync_grandmasterHistoryText(char* text, u32 room)
{
    if (room > 0) text[0] = '\0';
    return 0;
}
