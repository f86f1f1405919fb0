#include "socpri/kvd_socpri_inci_server.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/inci_sig.h"
#include "socpri/kvd_ngpduhif_client.h"
#include "socpri/kvd_socpri_inci_bcm.h"
#include "socpri/kvd_socpri_inci_ref.h"

#include <algorithm>
#include <array>

namespace {

constexpr AttachRef NO_ATTACH = 0xFFFFFFFF;
constexpr u32 REVISION_1 = 1, REVISION_2 = 2;

enum RecordState : u32 { INCI_DISCONNECTED = 0, INCI_CONNECTED = 1 };

struct Record {
    PROCESS pid = 0;                           // the client's process
    u32 clientConnectionRef = 0;
    u32 serverConnectionRef = 0;               // own
    u32 protocolRev = 0;
    u32 state = INCI_DISCONNECTED;
    AttachRef serviceAttachRef = NO_ATTACH;
    bool inciSubscription = false;
};

struct State {
    std::array<Record, INCI_SERVER_RECORDS> records{};
    u8  connected = 0;
    i32 key = INCI_FIRST_KEY;
};
ose::ModuleData<State> s;

template <typename Match>
Record* findConnected(Match matches)
{
    for (Record& r : s->records)
        if (r.state == INCI_CONNECTED && matches(r)) return &r;
    return nullptr;
}
Record* recordByRef(u32 serverConnectionRef)
{
    return findConnected([=](const Record& r) { return r.serverConnectionRef == serverConnectionRef; });
}

void dropRecord(Record& r)
{
    --s->connected;
    r = Record{};
}

// ---- connection ---------------------------------------------------------------------------------

/// The highest revision offered that is ours, 0 for none. Looks at no more than the signal holds.
u32 selectRevision(const InciConnEstablishReq& req)
{
    const std::span<const u32> held = node::tail<u32>(&req);
    u32 selected = 0;
    for (const u32 offered : held.first(std::min<std::size_t>(req.numberOfRevisions, held.size())))
        if (offered == REVISION_1 || offered == REVISION_2) selected = std::max(selected, offered);
    return selected;
}

void rejectConnection(const InciConnEstablishReq& req, PROCESS client)
{
    u8 errorCode = INCI_NO_SUPPORTED_REVISION;
    if (s->connected >= INCI_SERVER_RECORDS) {
        errorCode = INCI_TOO_MANY_CLIENTS;
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7, "%s(): Rejecting INCI conn establish: Too many clients",
                  __func__);
    }
    auto* rej = node::make<InciRej>(PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ);
    rej->procedureRef = req.connectionRef;
    rej->connectionRef = 0;
    rej->errorCode = errorCode;
    node::sendTo(client, rej);
}

Signal* makeDownInd(u32 serverConnectionRef)
{
    auto* ind = node::make<InciServerInd>(NGSC_INCI_CLIENT_DOWN_IND);
    ind->serverConnectionRef = serverConnectionRef;
    return reinterpret_cast<Signal*>(ind);
}

/// Reference of the new connection, 0 when there is no place for it.
u32 addClient(PROCESS client, u32 clientConnectionRef, u32 protocolRev)
{
    const auto place = std::find_if(s->records.begin(), s->records.end(),
                                    [](const Record& r) { return r.state == INCI_DISCONNECTED; });
    if (place == s->records.end()) {
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                  "Unable to add INCI client 0x%x, clientConnectionRef = 0x%x, protocolRev = 0x%x", client,
                  clientConnectionRef, protocolRev);
        return 0;
    }
    ++s->connected;
    const u32 apn = KvdLoz6TuIifAdm_apn();
    const u32 seed = KvdLoz6TuSoCpri_ngpduhif_nodeIdentifier();
    const auto [key, ref] = inciNextReference(s->key, apn, seed);
    KVD_TRACE(TRACE_INCI_SERVER, TRACE_INFO,
              "%s(): apn: %u, key :%u, rand num:%u, Calculated server reference = 0x%x", __func__, apn,
              static_cast<u32>(key), seed, ref);
    if (recordByRef(ref) != nullptr)
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_ERROR, "two connections have the reference 0x%x", ref);
    Record& r = *place;
    r.pid = client;
    r.clientConnectionRef = clientConnectionRef;
    r.serverConnectionRef = ref;
    r.protocolRev = protocolRev;
    r.state = INCI_CONNECTED;
    Signal* down = makeDownInd(ref);
    r.serviceAttachRef = ose::attach(&down, client);
    KVD_TRACE(TRACE_INCI_SERVER, TRACE_INFO, "%s(): New INCI client added, serverConnectionRef = 0x%x",
              __func__, ref);
    return ref;
}

u32 connect(PROCESS client, u32 clientConnectionRef, u32 protocolRev)
{
    Record* const known = findConnected(
        [=](const Record& r) { return r.pid == client && r.clientConnectionRef == clientConnectionRef; });
    if (known == nullptr) return addClient(client, clientConnectionRef, protocolRev);
    KVD_TRACE(TRACE_INCI_SERVER, TRACE_INFO,
              "%s(): INCI client already connected, serverConnectionRef = 0x%x", __func__,
              known->serverConnectionRef);
    known->protocolRev = protocolRev;
    return known->serverConnectionRef;
}

void onConnEstablishReq(const InciConnEstablishReq* req, PROCESS client)
{
    if (req == nullptr) return;
    const u32 revision = selectRevision(*req);
    KVD_TRACE(TRACE_INCI_SERVER, TRACE_INFO, " %s(): SelectedProtocolRevision = %d", __func__,
              static_cast<i32>(revision));
    if (revision == 0) return rejectConnection(*req, client);
    const u32 ref = connect(client, req->connectionRef, revision);
    auto* cfm = node::make<InciConnEstablishCfm>(PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM);
    cfm->procedureRef = revision == REVISION_1 ? req->connectionRef : req->procedureRef;
    cfm->connectionRef = ref;
    cfm->protocolRevision = revision;
    node::sendTo(client, cfm);
}

// ---- subscription, release ----------------------------------------------------------------------

void sendRefs(SIGSELECT sigNo, PROCESS client, u32 procedureRef, u32 connectionRef)
{
    auto* cfm = node::make<InciRefs>(sigNo);
    cfm->procedureRef = procedureRef;
    cfm->connectionRef = connectionRef;
    node::sendTo(client, cfm);
}

void rejectSubscription(const InciRefs& req, PROCESS client)
{
    KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
              "Client 0x%x with serverConnectionRef 0x%x not connected to INCI rejecting INCI subscription",
              client, req.connectionRef);
    auto* rej = node::make<InciRej>(PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REJ);
    rej->procedureRef = req.procedureRef;
    rej->connectionRef = req.procedureRef;
    rej->errorCode = INCI_CLIENT_NOT_CONNECTED;
    node::sendTo(client, rej);
}

void onSubscribeReq(const InciRefs* req, PROCESS client)
{
    if (req == nullptr) return;
    Record* const r = recordByRef(req->connectionRef);
    if (r == nullptr) return rejectSubscription(*req, client);
    r->inciSubscription = true;
    sendRefs(PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_CFM, client, req->procedureRef, r->clientConnectionRef);
    if (KvdLoz6TuSoCpri_ngpduhif_sendHandshakePduReq(r->serverConnectionRef) != 0)
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                  "%s(): Failed to request Broadcast message indications from NGPDUHIF server!", __func__);
}

void onConnReleaseReq(const InciRefs* req, PROCESS client)
{
    if (req == nullptr) return;
    Record* const r = recordByRef(req->connectionRef);
    if (r == nullptr) {
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                  "Client 0x%x with serverConnectionRef 0x%x not connected to INCI client release "
                  "not possible",
                  client, req->connectionRef);
        return;
    }
    const u32 ref = r->serverConnectionRef;
    sendRefs(PSX_IW_NGSC_INCI_CONN_RELEASE_CFM, client, req->procedureRef, r->clientConnectionRef);
    ose::detach(&r->serviceAttachRef);
    dropRecord(*r);
    if (KvdLoz6TuSoCpri_ngpduhif_sendServerConnReleaseReq(ref) != 0)
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                  " %s(): Failed to request INCI server connection release from NGPDUHIF server", __func__);
}

void onClientDown(const InciServerInd* ind, PROCESS client)
{
    if (ind == nullptr) return;
    Record* const r = recordByRef(ind->serverConnectionRef);
    if (r == nullptr) {
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                  "%s(): Client 0x%x with serverConnectionRef 0x%X not connected to INCI", __func__, client,
                  ind->serverConnectionRef);
        return;
    }
    dropRecord(*r);
    if (KvdLoz6TuSoCpri_ngpduhif_sendServerConnReleaseReq(ind->serverConnectionRef) != 0)
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                  "%s(): Failed to request INCI server connection release from NGPDUHIF server", __func__);
}

// ---- broadcast ----------------------------------------------------------------------------------

template <typename Message>
void broadcast(const Record& r, const Message& message)
{
    auto* ind = node::make<Message>(message.sigNo);
    *ind = message;
    ind->procedureRef = r.serverConnectionRef;
    ind->connectionRef = r.clientConnectionRef;
    node::sendTo(r.pid, ind);
}

}  // namespace

void KvdLoz6TuSoCpri_inci_initiateServer() { *s = State{}; }

bool KvdLoz6TuSoCpri_inci_dispatchServer(Signal* sig)
{
    switch (sig->sigNo) {
    case PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ:
        onConnEstablishReq(as<InciConnEstablishReq>(sig), ose::sender(&sig));                        break;
    case PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ:
        onSubscribeReq(as<InciRefs>(sig), ose::sender(&sig));                                        break;
    case PSX_IW_NGSC_INCI_CONN_RELEASE_REQ:
        onConnReleaseReq(as<InciRefs>(sig), ose::sender(&sig));                                      break;
    case NGSC_INCI_CLIENT_DOWN_IND: onClientDown(as<InciServerInd>(sig), ose::sender(&sig));         break;
    default:                                                                                     return false;
    }
    return true;
}

void KvdLoz6TuSoCpri_inci_sendServerBcmInd(const KvdNgpduhifSendBcmDataInd& data)
{
    const Record* const r = recordByRef(data.serverConnectionRef);
    if (r == nullptr) {
        KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                  "%s(): Client with serverConnectionRef 0x%x not connected to INCI can not send "
                  "broadcast indication",
                  __func__, data.serverConnectionRef);
        return;
    }
    const u32 nodeIdentifier = KvdLoz6TuSoCpri_ngpduhif_nodeIdentifier();
    if (r->protocolRev == REVISION_1)
        broadcast(*r, inciMessage(data, nodeIdentifier));
    else
        broadcast(*r, inciMessage2(data, nodeIdentifier));
}

void KvdLoz6TuSoCpri_inci_resendServerConnectsToNgsm()
{
    for (Record& r : s->records) {
        if (r.state != INCI_CONNECTED) continue;
        r.inciSubscription = true;
        if (KvdLoz6TuSoCpri_ngpduhif_sendHandshakePduReq(r.serverConnectionRef) != 0)
            KVD_TRACE(TRACE_INCI_SERVER, TRACE_7,
                      "%s():Failed to request Broadcast message indications from NGPDUHIF server! "
                      "serverConnectionRef = 0x%x",
                      __func__, r.serverConnectionRef);
    }
}

void KvdLoz6TuSoCpri_inci_printServer()
{
    constexpr const char* STATES[] = {"Disconnected", "Connected"};
    const State& st = *s;
    node::shellPrintf("\n***** SYNC-INCI server related data *****\n");
    node::shellPrintf("   connected clients : %u\n", st.connected);
    u32 shown = 0;                             // the free places behind the last client stay out
    for (u32 i = 0; i < INCI_SERVER_RECORDS; ++i)
        if (st.records[i].state == INCI_CONNECTED) shown = i + 1;
    for (u32 i = 0; i < shown; ++i) {
        const Record& r = st.records[i];
        node::shellPrintf("   client[%u]  %s\n", i, STATES[r.state]);
        if (r.state != INCI_CONNECTED) continue;
        node::shellPrintf("      pid                 : 0x%08x\n", r.pid);
        node::shellPrintf("      clientConnectionRef : 0x%x\n", r.clientConnectionRef);
        node::shellPrintf("      serverConnectionRef : 0x%x\n", r.serverConnectionRef);
        node::shellPrintf("      protocolRev         : %u\n", r.protocolRev);
        node::shellPrintf("      inciSubscription    : %u\n", r.inciSubscription);
    }
}
