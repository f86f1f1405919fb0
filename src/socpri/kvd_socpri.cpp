// Synchronisation over CPRI isn't part of this load yet: its element of the chain answers 0.
#include "socpri/kvd_socpri.h"

#include "mgr/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"

void KvdLoz6Inrsi_initiate() {}
void KvdLoz6InrsiSdu_initiate() {}
int KvdLoz6Inrsi_dispatch(Signal*) { return 0; }
int KvdLoz6InrsiSdu_dispatch(Signal*) { return 0; }
void KvdLoz6Socpri_stop() {}
void KvdLoz6Socpri_referenceLost() {}
void KvdLoz6Socpri_logEvent(u32) {}
void KvdLoz6Socpri_snapshot() {}
void KvdLoz6Socpri_reportOcxoTemp(u32) {}
void KvdLoz6Socpri_stopTimeSync() {}
void KvdLoz6Socpri_orderContinuedRegulationTimer() {}
void KvdLoz6Socpri_continuePostponedRegulation() {}
void KvdLoz6Socpri_answerOpenScan(u32) {}
void KvdLoz6Socpri_resendLinkStates() {}
int KvdLoz6Socpri_startScan(u8 port)
{
    KVD_TRACE(TRACE_SOCPRI, TRACE_ERROR, "scan of port %u refused, SoCPRI isn't running", port);
    return 0;
}
int KvdLoz6Socpri_selectSyncLink(u8 port, u32)
{
    KVD_TRACE(TRACE_SOCPRI, TRACE_ERROR, "selection of port %u refused, SoCPRI isn't running", port);
    return 0;
}
int KvdLoz6Socpri_alignBfnToGroup(u8 port, u32, u16)
{
    KVD_TRACE(TRACE_SOCPRI, TRACE_ERROR, "alignment to port %u refused, SoCPRI isn't running", port);
    return 0;
}
u32  KvdLoz6TuSoCpri_inrsi_action() { return INRSI_CLIENT_IDLE; }
void KvdLoz6TuSoCpri_inrsi_sendBfnJumpInfo(u32) {}
void KvdLoz6TuSoCpri_inrsi_noMoreBfnJumpsExpected(u32) {}
void KvdLoz6TuSoCpri_inrsi_restartPhaseTimer() {}
void KvdLoz6TuSoCpri_inrsi_bfnAlignCompleted(u32) {}
void KvdLoz6TuSoCpri_inrsi_answerContinuation(u32) {}
void KvdLoz6TuSoCpri_inrsi_armContinuation() {}
void KvdLoz6TuSoCpri_inrsi_timeSyncSucceeded() {}
void KvdLoz6TuSoCpri_inrsi_timeSyncFailed() {}
void KvdLoz6InrsiSdu_resendLinkStates() {}
void KvdLoz6InrsiSdu_sendBfnJumpInfo(u32) {}
void KvdLoz6Inrsi_printInfo()
{
    node::shellPrintf("\n***** INRSI *****\n   not running\n");
}
