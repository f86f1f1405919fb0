// kvd_ngpduhif_client.h - Connection to the node's NGPDUHIF service: the sync group logic hears of the
// SYNC-INCI connections and their broadcasts, and gives this node's identifier and broadcast data.
// Owner   the process PsxIwNgscInciServer.
// Errors  without the service the senders answer 2 and nothing is queued; a server that dies is waited for.
#pragma once
#include "node/ngpduhif.h"

struct InciBroadcastMessageInd;
struct InciBroadcastMessage2Ind;
struct Signal;

enum NgpduhifAvailability : u32 { NGPDUHIF_AVAILABLE = 0, NGPDUHIF_INITIATING = 1, NGPDUHIF_UNAVAILABLE = 2 };

/// Empties the record.
void KvdLoz6TuSoCpri_ngpduhif_initiate();
/// Connects to the service; returns at once. False when that is under way already.
bool KvdLoz6TuSoCpri_ngpduhif_connEstablish(u32 protocolRev);
bool KvdLoz6TuSoCpri_ngpduhif_dispatch(Signal* sig);

/// 0 until the service has confirmed for the first time.
u32  KvdLoz6TuSoCpri_ngpduhif_nodeIdentifier();
u32  KvdLoz6TuSoCpri_ngpduhif_availabilityStatus();      // NgpduhifAvailability

// The senders' answers.
constexpr u32 NGPDUHIF_SENT = 0, NGPDUHIF_NO_SERVER = 2;
u32  KvdLoz6TuSoCpri_ngpduhif_sendHandshakePduReq(u32 inciServerConnId);
u32  KvdLoz6TuSoCpri_ngpduhif_sendServerConnReleaseReq(u32 inciServerConnId);
u32  KvdLoz6TuSoCpri_ngpduhif_sendClientConnReleaseReq(u32 inciConnId);
u32  KvdLoz6TuSoCpri_ngpduhif_sendNgpduhIfReceiveBcmInd(const InciBroadcastMessageInd& message, u8 cpriPortNo,
                                                        u32 sharedId);
u32  KvdLoz6TuSoCpri_ngpduhif_sendNgpduhIfReceiveBcmInd2(const InciBroadcastMessage2Ind& message,
                                                         u8 cpriPortNo, u32 sharedId);
u32  KvdLoz6TuSoCpri_ngpduhif_sendTimeDataInd(const KvdNgpduhifTimeDataInd& data);

void KvdLoz6TuSoCpri_ngpduhif_print();
