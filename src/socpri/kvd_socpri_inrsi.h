// kvd_socpri_inrsi.h - Client of the radio links' measurement server on a master: looks at a link's
// frequency, takes its phase to the loop, aligns frame numbers to a group, supervises the others.
// Owner   the manager process; only kvd_socpri_inrsi*.cpp write this module's state.
// Units   ports 0 to 5 (A to F), 6 port X (the other unit's links), 255 none; timers in ms; esfc turns of the
//         frame counter, 1024 s each; mfn its major frame.
// Errors  what a link can't give is told to the main processor as a SocpriSyncStatus, which stands in
//         sig/tuiif_socpri_sig.h.
#pragma once
#include "ose/types.h"
#include "sig/inrsi_sig.h"

struct Signal;

void KvdLoz6Inrsi_initiate();
bool KvdLoz6Inrsi_dispatch(Signal* sig);
/// The unit is no master any more.
void KvdLoz6Inrsi_leave();
/// A confirmed main processor that knows nothing yet: link states again, subscriptions anew.
void KvdLoz6Inrsi_mainProcessorRestarted();
void KvdLoz6TuSoCpri_inrsi_resendSoCpriLinkStatusData();

// ---- orders of the main processor, SoCPRI being the selected reference ---------------------------

// A port that isn't one of the seven is answered by CPRI_LINK_NOT_AVAILABLE, or as a failed alignment.

void inrsiStartScan(u8 port);
/// From the frequency on.
void inrsiSelectSyncLink(u8 port);
/// The loop has time already and goes on with this link.
void inrsiContinueOnLink(u8 port);
void inrsiAlignBfnToGroup(u8 port, u32 esfc, u16 mfn);

// ---- for reference management --------------------------------------------------------------------

/// Stops whatever the client does.
void inrsiClientReset();
/// SoCPRI is deselected with its loop locked, or the main processor has restarted.
void inrsiImplicitHoldover();
/// No reference is selected after SoCPRI: no link keeps the focus. A holdover runs on to its end.
void inrsiReferenceDeselected();
/// Closes a scan that is open.
void inrsiAnswerOpenScan(u32 syncStatus);            // SocpriSyncStatus

// ---- for the regulator ---------------------------------------------------------------------------

u8   inrsiGetPortNo();                               // in focus, 255 none
u32  inrsiGetAction();                               // InrsiClientAction
/// The remembered link, now that regulation goes on.
void inrsiSelectRememberedPort(u8 port);
/// Too many phases of the link in focus were invalid: its synchronisation or alignment ends.
void KvdLoz6TuSoCpri_inrsi_phaseMeasAnalysisFailed();
/// The loop doesn't settle on the link: the same end, and an owed answer goes out.
void KvdLoz6TuSoCpri_inrsi_timeSyncFailed();
/// The loop has settled: the link is told as OK_TIME_LOCKED, an alignment goes on to its jump.
void inrsiTimeSyncSucceeded();
void inrsiBfnAlignCompleted(u32 status);             // 1 done, 0 not
/// 1: an answer to the order to go on with a link is owed; 0: none is.
void inrsiSetContinuationOfSync(u32 flag);
/// The owed answer goes out; OK_TIME_LOCKED waits until the loop is locked.
void inrsiAnswerContinuation(u32 status);            // SocpriSyncStatus
/// The links hear that no more jumps come, after 1000 ms with 1, 50 ms with 0.
void KvdLoz6TuSoCpri_inrsi_noMoreBfnJumpsExpected(u32 isLong);
void inrsiRestartPhaseTimer();                       // of the port in focus, 100 ms
/// The links hear whether frame numbers may jump: 1 or 0.
void inrsiSendBfnJumpInfo(u32 enabled);
/// The oscillator has left its range of temperature (1), or is back (0).
void inrsiReportOcxoTemp(u32 bad);
