// kvd_socpri.h - Synchronisation over CPRI: client of the radio links' service on master and slave.
#pragma once
#include "ose/types.h"

struct Signal;

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
void KvdLoz6Socpri_coarseTimeData(u32 ref_esfc, u16 ref_mfn);
void KvdLoz6Socpri_continuePostponedRegulation();
void KvdLoz6Socpri_answerOpenScan(u32 result);
void KvdLoz6Socpri_resendLinkStates();
void KvdLoz6InrsiSdu_resendLinkStates();
/// Orders of the main processor: 1 when taken. Ports 0 to 5 are CPRI ports A to F, 6 is port X.
int  KvdLoz6Socpri_startScan(u8 port);
/// isLocked 1: the loop has time already and goes on with this link.
int  KvdLoz6Socpri_selectSyncLink(u8 port, u32 isLocked);
int  KvdLoz6Socpri_alignBfnToGroup(u8 port, u32 esfc, u16 mfn);
/// On a slave: whether the radio links are told of frame number jumps.
void KvdLoz6InrsiSdu_sendBfnJumpInfo(u32 bfnJumpsEnabled);
void KvdLoz6Inrsi_printInfo();
