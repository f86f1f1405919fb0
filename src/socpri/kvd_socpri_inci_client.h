// kvd_socpri_inci_client.h - Client side of SYNC-INCI: the connections to the units behind the CPRI links,
// whose broadcasts go on to the sync group logic.
// Owner   the process PsxIwNgscInciServer.
// Units   timers in ms.
// Errors  traced; the manager is answered with result 0. A peer that is lost is hunted for again.
#pragma once
#include "ose/types.h"

struct Signal;

constexpr u32 INCI_CLIENTS = 64;

/// In the opposite order of the link clients' one.
enum InciAvailability : u32 { INCI_UNAVAILABLE = 0, INCI_INITIATING = 1, INCI_AVAILABLE = 2 };

/// Empties the tables.
void KvdLoz6TuSoCpri_inci_initiateClient();
bool KvdLoz6TuSoCpri_inci_dispatchClient(Signal* sig);
void KvdLoz6TuSoCpri_inci_printClients();
