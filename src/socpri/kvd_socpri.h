// kvd_socpri.h - Synchronisation over CPRI: client of the radio links' service on master and slave.
#pragma once
#include "ose/types.h"

struct Signal;

/// What the link client is at.
enum InrsiClientAction : u32 {
    INRSI_CLIENT_IDLE = 0,
    INRSI_CLIENT_ACTION_FREQ_SCANNING = 1,
    INRSI_CLIENT_ACTION_BFN_ALIGN = 2,
    INRSI_CLIENT_ACTION_FREQ_SYNC = 3,
    INRSI_CLIENT_ACTION_TIME_SYNC = 4,
};

/// Events of the log: coarse time data and the stages of a jump.
enum SocpriEvent : u32 {
    SOCPRI_EV_TIME_DATA = 2,
    SOCPRI_EV_TIME_DATA_INCONSISTENCY = 3,
    SOCPRI_EV_TIME_DATA_INCONSISTENCY_TOLERATED = 4,
    SOCPRI_EV_JUMP_BEGIN = 5,
    SOCPRI_EV_JUMP_PHASE_1 = 6,
    SOCPRI_EV_JUMP_PHASE_1_TO_2 = 7,
    SOCPRI_EV_JUMP_PHASE_2 = 8,
    SOCPRI_EV_JUMP_PHASE_3 = 9,
    SOCPRI_EV_JUMP_PHASE_4 = 10,
    SOCPRI_EV_JUMP_END = 11,
    SOCPRI_EV_JUMP_END_FAILURE = 12,
    SOCPRI_EV_JUMP_ABORTED = 13,
    SOCPRI_EV_JUMP_BEGIN_BFN_ADJ = 14,
    SOCPRI_EV_JUMP_PHASE_1_BFN_ADJ = 15,
    SOCPRI_EV_JUMP_PHASE_1_TO_2_BFN_ADJ = 16,
    SOCPRI_EV_JUMP_PHASE_2_BFN_ADJ = 17,
    SOCPRI_EV_JUMP_PHASE_3_BFN_ADJ = 18,
    SOCPRI_EV_JUMP_PHASE_4_BFN_ADJ = 19,
    SOCPRI_EV_JUMP_END_BFN_ADJ = 20,
    SOCPRI_EV_JUMP_END_BFN_ADJ_FAILURE = 21,
};

void KvdLoz6Inrsi_initiate();
void KvdLoz6InrsiSdu_initiate();
int  KvdLoz6Inrsi_dispatch(Signal* sig);
int  KvdLoz6InrsiSdu_dispatch(Signal* sig);
void KvdLoz6Socpri_stop();
void KvdLoz6Socpri_referenceLost();
void KvdLoz6Socpri_logEvent(u32 event);
void KvdLoz6Socpri_snapshot();
void KvdLoz6Socpri_reportOcxoTemp(u32 bad);
void KvdLoz6Socpri_stopTimeSync();
/// Phase values aren't used for a while after a step; its end.
void KvdLoz6Socpri_orderContinuedRegulationTimer();
void KvdLoz6Socpri_continuePostponedRegulation();
void KvdLoz6Socpri_answerOpenScan(u32 result);
void KvdLoz6Socpri_resendLinkStates();
/// What a jump needs of the link client.
u32  KvdLoz6TuSoCpri_inrsi_action();                  // InrsiClientAction
void KvdLoz6TuSoCpri_inrsi_sendBfnJumpInfo(u32 enabled);
/// The links hear that no more jumps come, after 1000 ms with 1, 50 ms with 0.
void KvdLoz6TuSoCpri_inrsi_noMoreBfnJumpsExpected(u32 isLong);
void KvdLoz6TuSoCpri_inrsi_restartPhaseTimer();       // of the port in focus, 100 ms
void KvdLoz6TuSoCpri_inrsi_bfnAlignCompleted(u32 status);
/// What the loop tells: at each of its steps and at the end of a holdover the answer to a request to
/// continue, once it is armed; then how time synchronisation went.
void KvdLoz6TuSoCpri_inrsi_answerContinuation(u32 status);
void KvdLoz6TuSoCpri_inrsi_armContinuation();
void KvdLoz6TuSoCpri_inrsi_timeSyncSucceeded();
void KvdLoz6TuSoCpri_inrsi_timeSyncFailed();
void KvdLoz6InrsiSdu_resendLinkStates();
/// Orders of the main processor: 1 when taken. Ports 0 to 5 are CPRI ports A to F, 6 is port X.
int  KvdLoz6Socpri_startScan(u8 port);
/// isLocked 1: the loop has time already and goes on with this link.
int  KvdLoz6Socpri_selectSyncLink(u8 port, u32 isLocked);
int  KvdLoz6Socpri_alignBfnToGroup(u8 port, u32 esfc, u16 mfn);
/// On a slave: whether the radio links are told of frame number jumps.
void KvdLoz6InrsiSdu_sendBfnJumpInfo(u32 bfnJumpsEnabled);
void KvdLoz6Inrsi_printInfo();
