// kvd_socpri_inci_server.h - Server side of SYNC-INCI: the units that have connected to this one and are sent
// its broadcast data.
// Owner   the process PsxIwNgscInciServer.
// Errors  traced; a client that can't be served is rejected.
#pragma once
#include "ose/types.h"

struct KvdNgpduhifSendBcmDataInd;
struct Signal;

constexpr u32 INCI_SERVER_RECORDS = 64;

/// Empties the table.
void KvdLoz6TuSoCpri_inci_initiateServer();
bool KvdLoz6TuSoCpri_inci_dispatchServer(Signal* sig);
/// Broadcast data of the sync group logic, on to the client that it is for.
void KvdLoz6TuSoCpri_inci_sendServerBcmInd(const KvdNgpduhifSendBcmDataInd& data);
/// All connections again to a sync group logic that knows none.
void KvdLoz6TuSoCpri_inci_resendServerConnectsToNgsm();
void KvdLoz6TuSoCpri_inci_printServer();
