// kvd_socpri_inrsi_sdu.h - Client of the radio links' measurement server on a slave: it lends the
// unit's ports to the master, which measures on them through the main processor, and supervises
// those that aren't lent.
// Owner   the manager process; only kvd_socpri_inrsi_sdu.cpp writes this module's state.
// Units   ports 0 to 5 (A to F), 255 none.
// Errors  a request for a unit that isn't in focus any more is answered with no value.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6InrsiSdu_initiate();
bool KvdLoz6InrsiSdu_dispatch(Signal* sig);
/// The unit is no slave any more.
void KvdLoz6InrsiSdu_leave();
/// A confirmed main processor that knows nothing yet: link states again, subscriptions anew.
void KvdLoz6InrsiSdu_mainProcessorRestarted();
void KvdLoz6TuSoCpri_inrsi_sDu_resendSoCpriLinkStatusData();
/// Whether frame numbers may jump, told to the links: 1 they may.
void inrsiSduSendBfnJumpInfo(u32 enabled);
