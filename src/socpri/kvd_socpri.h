// kvd_socpri.h - Synchronisation over CPRI: one of two clients of the radio links' measurement
// server, by the unit's role. A master's follows a link (kvd_socpri_inrsi.h), a slave's lends its
// links to the master (kvd_socpri_inrsi_sdu.h).
// Owner   the manager process.
// Errors  none here.
#pragma once
#include "ose/types.h"

struct Signal;

void KvdLoz6TuSoCpri_initiate();
/// Element of the dispatch chain. A change of role ends the other client's work first.
bool KvdLoz6TuSoCpri_dispatch(Signal* sig);

/// "inrsi" section of kvdinfo.
void KvdLoz6TuSoCpri_printInfo();
/// kvdhist: the client's events up to the last that ended something, and its supervision of ports.
void KvdLoz6TuSoCpri_printHistory();
constexpr u8 INRSI_ALL_PORTS = 255;
void KvdLoz6TuSoCpri_printSupervisionHistory(u8 port);   // 0 to 5, or INRSI_ALL_PORTS
