#include "socpri/kvd_socpri_inci_client.h"

#include "base/kvd_timer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/inci_sig.h"
#include "socpri/kvd_ngpduhif_client.h"
#include "socpri/kvd_socpri_inci_ref.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>

namespace {

constexpr OSTIME ESTABLISH_ms = 1000;
constexpr AttachRef NO_ATTACH = 0xFFFFFFFF;
constexpr u32 RESULT_OK = 1, RESULT_NOK = 0;

struct Client {
    u32 availabilityStatus = INCI_UNAVAILABLE;
    PROCESS factoryPid = 0, servicePid = 0;    // by the hunt, by the confirmation
    AttachRef serviceAttachRef = NO_ATTACH;
    u32 serverRef = 0;                         // the peer's
    u32 clientRef = 0;                         // own, the record's key; 0: never used
    char huntPathPrefix[INCI_PATH_SIZE] = {};  // with the process's name
    u8  cpriPortNo = 0;
    u32 sharedId = 0;
    KvdTimer establishTimer;                   // a time-out of a record that is gone finds no clientRef
    bool establishReported = false;            // the first broadcast has been seen
    u32 subsumedUnitId = INCI_NO_UNIT;
    bool isReleasing = false;                  // the peer has been asked to, and hasn't confirmed
};

using Path = std::array<char, INCI_PATH_SIZE>; // terminated

/// What a connection is to.
struct Unit {
    Path path;
    u8  cpriPortNo;
    u32 sharedId, subsumedUnitId;
};

struct State {
    std::array<Client, INCI_CLIENTS> clients{};
    u8  numClients = 0;
    i32 key = INCI_FIRST_KEY;
    u32 numberOfRevisions = 2;
    std::array<u32, 2> protocolRevision{1, 2};
    std::array<u32, INCI_CLIENTS> oldClientRefs{};   // of removed clients whose hunt may be answered yet
};
ose::ModuleData<State> s;

// ---- table --------------------------------------------------------------------------------------

template <typename Match>
Client* findClient(Match matches)
{
    for (Client& c : s->clients)
        if (c.clientRef != 0 && matches(c)) return &c;
    return nullptr;
}
Client* clientByRef(u32 clientRef)
{
    return findClient([clientRef](const Client& c) { return c.clientRef == clientRef; });
}
Client* clientBySharedId(u32 sharedId)
{
    return findClient([sharedId](const Client& c) { return c.sharedId == sharedId; });
}
Client* clientByPath(const char* path)
{
    return findClient([path](const Client& c) { return std::strcmp(c.huntPathPrefix, path) == 0; });
}

void detachFromServer(Client& c)
{
    if (c.serviceAttachRef != NO_ATTACH) ose::detach(&c.serviceAttachRef);
    c.serviceAttachRef = NO_ATTACH;
}

void clearPids(Client& c)
{
    c.factoryPid = 0;
    c.servicePid = 0;
}

/// The record is free again.
void dropClient(Client& c)
{
    KvdTimer_cancel(c.establishTimer);
    detachFromServer(c);
    --s->numClients;
    c = Client{};
}

/// The unit's path with the process's name behind it, cut to what a record holds.
Path pathOf(const char (&prefix)[INCI_PATH_SIZE])
{
    Path path{};
    std::string text(prefix, strnlen(prefix, sizeof prefix));
    text.append("/").append(INCI_PROCESS).copy(path.data(), path.size() - 1);
    return path;
}

Signal* makeClientInd(SIGSELECT sigNo, const Client& c)
{
    auto* ind = node::make<InciClientInd>(sigNo);
    ind->clientRef = c.clientRef;
    return reinterpret_cast<Signal*>(ind);
}

// ---- to the manager -----------------------------------------------------------------------------

void sendEstablishRsp(u8 cpriPortNo, u32 sharedId, u32 subsumedUnitId, u32 result)
{
    auto* rsp = node::make<KvdTuSocpriInciEstablishRsp>(KVD_TUSOCPRI_INCI_ESTABLISH_RSP);
    rsp->cpriPortNo = cpriPortNo;
    rsp->sharedId = sharedId;
    rsp->subsumedUnitId = subsumedUnitId;
    rsp->subsumedIdValid = clientBySharedId(subsumedUnitId) != nullptr ? 1 : 0;
    rsp->result = result;
    node::sendTo(KvdLoz6TuMgr_pid(), rsp);
}
void sendEstablishRsp(const Client& c, u32 result)
{
    sendEstablishRsp(c.cpriPortNo, c.sharedId, c.subsumedUnitId, result);
}

// ---- establishment ------------------------------------------------------------------------------

/// False when the peer is hunted for already.
bool connEstablishReq(Client& c)
{
    const u32 before = c.availabilityStatus;
    if (before == INCI_AVAILABLE)
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_INFO, "%s(): SYNC-INCI already available.", __func__);
    if (before == INCI_UNAVAILABLE) {
        Signal* up = makeClientInd(PSX_IW_NGSC_INCI_SERVER_UP_IND, c);
        // Not found yet: the hunt stands until the peer comes.
        if (ose::hunt(c.huntPathPrefix, 0, nullptr, &up) == 0)
            KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "%s(): Failed to hunt for process: %s", __func__,
                      c.huntPathPrefix);
        c.availabilityStatus = INCI_INITIATING;
        clearPids(c);
    }
    return before != INCI_INITIATING;
}

void startEstablishTimer(Client& c)
{
    if (c.establishTimer.runs()) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_INFO, " %s(): INCI establishment request tmo already started.",
                  __func__);
        return;
    }
    if (!KvdTimer_startSig(c.establishTimer, ESTABLISH_ms, makeClientInd(KVD_TUSOCPRI_INCI_ESTABLISH_TMO, c)))
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_ERROR, "no timer for the connection, clientRef=0x%x", c.clientRef);
}

/// nullptr when the table is full.
Client* addClient(const Unit& unit)
{
    const auto place = std::find_if(s->clients.begin(), s->clients.end(), [](const Client& c) {
        return c.availabilityStatus == INCI_UNAVAILABLE && c.sharedId == 0;
    });
    if (place == s->clients.end()) return nullptr;
    Client& c = *place;
    if (c.clientRef != 0) dropClient(c);       // of unit 0 and out of use: the place counts as free
    const u32 apn = KvdLoz6TuIifAdm_apn();
    const u32 seed = KvdLoz6TuSoCpri_ngpduhif_nodeIdentifier();
    const auto [key, clientRef] = inciNextReference(s->key, apn, seed);
    KVD_TRACE(TRACE_INCI_CLIENT, TRACE_INFO,
              "%s(): apn: %u, key :%u, rand num: %u, Calculated reference = 0x%x, client[%u]", __func__, apn,
              static_cast<u32>(key), seed, clientRef, static_cast<u32>(place - s->clients.begin()));
    if (clientByRef(clientRef) != nullptr)
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_ERROR, "two connections have the reference 0x%x", clientRef);
    ++s->numClients;
    c.clientRef = clientRef;
    std::copy(unit.path.begin(), unit.path.end(), c.huntPathPrefix);
    c.cpriPortNo = unit.cpriPortNo;
    c.sharedId = unit.sharedId;
    c.subsumedUnitId = unit.subsumedUnitId;
    KVD_TRACE(TRACE_INCI_CLIENT, TRACE_INFO, "%s(). New INCI client added, clientRef = 0x%x", __func__,
              c.clientRef);
    return &c;
}

void establish(const Unit& unit)
{
    Client* const c = addClient(unit);
    if (c == nullptr) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_ERROR,
                  "Unable to add INCI client, maximum client number exceeded, apn = %u.",
                  KvdLoz6TuIifAdm_apn());
        return sendEstablishRsp(unit.cpriPortNo, unit.sharedId, INCI_NO_UNIT, RESULT_NOK);
    }
    if (!connEstablishReq(*c)) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "Failed to initiate INCI subscription!");
        return sendEstablishRsp(*c, RESULT_NOK);
    }
    startEstablishTimer(*c);
}

void onEstablishReq(const KvdTuSocpriInciEstablishReq* req)
{
    if (req == nullptr) return;
    const Path path = pathOf(req->huntPathPrefix);
    if (Client* const known = clientByPath(path.data())) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_INFO,
                  "%s(): INCI client already added clientRef = 0x%x, serverRef = 0x%x, huntPathPrefix = %s, "
                  "numberOfRevisions = %u apn = %u",
                  __func__, known->clientRef, known->serverRef, known->huntPathPrefix, s->numberOfRevisions,
                  KvdLoz6TuIifAdm_apn());
        known->sharedId = req->sharedId;
        known->subsumedUnitId = req->subsumedUnitId;
        return startEstablishTimer(*known);
    }
    establish({path, req->cpriPortNo, req->sharedId, req->subsumedUnitId});
}

void releaseAtNgpduhif(u32 clientRef)
{
    if (KvdLoz6TuSoCpri_ngpduhif_sendClientConnReleaseReq(clientRef) != 0)
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7,
                  "Failed to request INCI client connection release from NGPDUHIF server");
}

/// The connection is given back; to be made anew when its path was named again meanwhile.
void endRelease(Client& c, bool isWantedAgain)
{
    Unit unit{{}, c.cpriPortNo, c.sharedId, c.subsumedUnitId};
    std::copy(std::begin(c.huntPathPrefix), std::end(c.huntPathPrefix), unit.path.begin());
    const u32 clientRef = c.clientRef;
    dropClient(c);
    releaseAtNgpduhif(clientRef);
    if (isWantedAgain) establish(unit);
}

void onEstablishTmo(const InciClientInd* tmo)
{
    if (tmo == nullptr) return;
    Client* const c = clientByRef(tmo->clientRef);
    if (c == nullptr) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7,
                  "Failed to send KVD_TUSOCPRI_INCI_ESTABLISH_RSP on INCI establish tmo expire");
        return;
    }
    if (!KvdTimer_expired(c->establishTimer)) return;
    sendEstablishRsp(*c, RESULT_NOK);
    if (c->isReleasing)
        endRelease(*c, true);  // a peer that doesn't know the connection won't confirm its end
}

// ---- answers of the peer ------------------------------------------------------------------------

void onUpOfRemovedClient(u32 clientRef)
{
    const auto old = std::find(s->oldClientRefs.begin(), s->oldClientRefs.end(), clientRef);
    if (clientRef == 0 || old == s->oldClientRefs.end()) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_ERROR,
                  "Server up received for non-existing INCI client, connectionRef = 0x%x ", clientRef);
        return;
    }
    *old = 0;
    KVD_TRACE(TRACE_INCI_CLIENT, TRACE_INFO,
              "%s(): Server up received for old INCI client which does not exist, connectionRef = 0x%x",
              __func__, clientRef);
}

void sendConnEstablishReq(const Client& c)
{
    const u32 revisionBytes = s->numberOfRevisions * static_cast<u32>(sizeof(u32));
    Signal* sig = ose::alloc(static_cast<u32>(sizeof(InciConnEstablishReq)) + revisionBytes,
                             PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ);
    auto* const req = reinterpret_cast<InciConnEstablishReq*>(sig);
    req->procedureRef = c.clientRef;
    req->connectionRef = c.clientRef;
    req->numberOfRevisions = s->numberOfRevisions;
    std::memcpy(req + 1, s->protocolRevision.data(), revisionBytes);
    ose::send(&sig, c.factoryPid);
}

void onServerUp(const InciClientInd* ind, PROCESS peer)
{
    if (ind == nullptr) return;
    Client* const c = clientByRef(ind->clientRef);
    if (c == nullptr) return onUpOfRemovedClient(ind->clientRef);
    detachFromServer(*c);
    c->factoryPid = peer;
    Signal* down = makeClientInd(PSX_IW_NGSC_INCI_SERVER_DOWN_IND, *c);
    c->serviceAttachRef = ose::attach(&down, peer);
    sendConnEstablishReq(*c);
}

void sendRefs(SIGSELECT sigNo, const Client& c)
{
    auto* req = node::make<InciRefs>(sigNo);
    req->procedureRef = c.clientRef;
    req->connectionRef = c.serverRef;
    node::sendTo(c.servicePid, req);
}

void onConnEstablishCfm(const InciConnEstablishCfm* cfm, PROCESS peer)
{
    if (cfm == nullptr) return;
    Client* const c = clientByRef(cfm->procedureRef);
    if (c == nullptr) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7,
                  "Connection establish confirm received for non-existing INCI client procedureRef = 0x%x, "
                  "protocolRevision = 0x%x",
                  cfm->procedureRef, cfm->protocolRevision);
        return;
    }
    if (c->factoryPid == 0) {                  // rejected before, or asked for by nobody
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "confirmation not asked for, dropped, clientRef=0x%x",
                  c->clientRef);
        return;
    }
    c->servicePid = peer;
    c->serverRef = cfm->connectionRef;
    c->availabilityStatus = INCI_AVAILABLE;
    sendRefs(PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REQ, *c);
}

/// The establish timer answers the manager.
void onConnEstablishRej(const InciRej* rej)
{
    if (rej == nullptr) return;
    KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7,
              "PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ procedureRef=0x%x errorCode=%u", rej->procedureRef,
              rej->errorCode);
    Client* const c = clientByRef(rej->procedureRef);
    if (c == nullptr || c->availabilityStatus != INCI_INITIATING) return;   // late: the connection stands
    detachFromServer(*c);
    clearPids(*c);
    c->availabilityStatus = INCI_UNAVAILABLE;
}

void onSubscribeRej(const InciRej* rej)
{
    if (rej == nullptr) return;
    KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "%s(): PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REJ errorCode = %u",
              __func__, rej->errorCode);
}

/// A connection counts as established at its first broadcast, and not before.
void reportEstablished(Client& c)
{
    if (c.establishReported) return;
    c.establishReported = true;
    KvdTimer_cancel(c.establishTimer);
    sendEstablishRsp(c, RESULT_OK);
}

template <typename Message>
void onBroadcast(const Message* message, u32 (*passOn)(const Message&, u8, u32))
{
    if (message == nullptr) return;
    Client* const c = clientByRef(message->connectionRef);
    if (c == nullptr) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7,
                  "Broadcast ind received for non-existing INCI client procedureRef = 0x%x, "
                  "connectionRef = 0x%x",
                  message->procedureRef, message->connectionRef);
        return;
    }
    if (passOn(*message, c->cpriPortNo, c->sharedId) != 0)
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "%s(): NGPDUHIF server not available", __func__);
    reportEstablished(*c);
}

// ---- release ------------------------------------------------------------------------------------

/// A hunt can't be withdrawn: the reference is kept so that its answer is told from a fault.
void removeOldHuntpathInciClient(u32 sharedId)
{
    Client* const c = clientBySharedId(sharedId);
    if (c == nullptr) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "Tried to remove non existing client.");
        return;
    }
    const auto place = std::find(s->oldClientRefs.begin(), s->oldClientRefs.end(), 0u);
    if (place != s->oldClientRefs.end()) *place = c->clientRef;
    dropClient(*c);
}

void handleInciReleaseReq(const KvdTuSocpriInciReleaseReq& req)
{
    Client* const c = clientBySharedId(req.sharedId);
    if (c != nullptr) KvdTimer_cancel(c->establishTimer);
    const bool isAvailable = c != nullptr && c->availabilityStatus == INCI_AVAILABLE;
    if (isAvailable) {
        sendRefs(PSX_IW_NGSC_INCI_CONN_RELEASE_REQ, *c);
        c->isReleasing = true;
    } else {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "%s(): SYNC-INCI not available.", __func__);
    }
    auto* rsp = node::make<KvdTuSocpriInciReleaseRsp>(KVD_TUSOCPRI_INCI_RELEASE_RSP);
    rsp->cpriPortNo = req.cpriPortNo;
    rsp->sharedId = req.sharedId;
    rsp->result = isAvailable ? RESULT_OK : RESULT_NOK;
    node::sendTo(KvdLoz6TuMgr_pid(), rsp);
}

void onReleaseReq(const KvdTuSocpriInciReleaseReq* req)
{
    if (req == nullptr) return;
    if (req->remove != 0)
        removeOldHuntpathInciClient(req->sharedId);
    else
        handleInciReleaseReq(*req);
}

void onConnReleaseCfm(const InciRefs* cfm)
{
    if (cfm == nullptr) return;
    Client* const c = clientByRef(cfm->connectionRef);
    if (c == nullptr || c->availabilityStatus != INCI_AVAILABLE) {
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "Failed to release INCI client!");
        return;
    }
    KVD_TRACE(TRACE_INCI_CLIENT, TRACE_INFO, "%s(): INCI client was released ", __func__);
    endRelease(*c, c->establishTimer.runs());  // a release had stopped it
}

void onServerDown(const InciClientInd* ind)
{
    if (ind == nullptr) return;
    Client* const c = clientByRef(ind->clientRef);
    if (c == nullptr) return;
    c->serviceAttachRef = NO_ATTACH;
    clearPids(*c);
    c->availabilityStatus = INCI_UNAVAILABLE;
    c->establishReported = false;
    c->isReleasing = false;
    releaseAtNgpduhif(c->clientRef);
    if (!connEstablishReq(*c))
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "%s(): SYNC-INCI CONNECTION ESTABLISH failed", __func__);
}

}  // namespace

void KvdLoz6TuSoCpri_inci_initiateClient() { *s = State{}; }

bool KvdLoz6TuSoCpri_inci_dispatchClient(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUSOCPRI_INCI_ESTABLISH_REQ: onEstablishReq(as<KvdTuSocpriInciEstablishReq>(sig));      break;
    case KVD_TUSOCPRI_INCI_RELEASE_REQ:   onReleaseReq(as<KvdTuSocpriInciReleaseReq>(sig));          break;
    case KVD_TUSOCPRI_INCI_ESTABLISH_TMO: onEstablishTmo(as<InciClientInd>(sig));                    break;
    case PSX_IW_NGSC_INCI_SERVER_UP_IND:
        onServerUp(as<InciClientInd>(sig), ose::sender(&sig));                                       break;
    case PSX_IW_NGSC_INCI_SERVER_DOWN_IND: onServerDown(as<InciClientInd>(sig));                     break;
    case PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM:
        onConnEstablishCfm(as<InciConnEstablishCfm>(sig), ose::sender(&sig));                        break;
    case PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ: onConnEstablishRej(as<InciRej>(sig));                  break;
    case PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_CFM:
        KVD_TRACE(TRACE_INCI_CLIENT, TRACE_7, "received PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_CFM");   break;
    case PSX_IW_NGSC_INCI_SUBSCRIBE_NGSM_BCM_REJ: onSubscribeRej(as<InciRej>(sig));                  break;
    case PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND:
        onBroadcast(as<InciBroadcastMessageInd>(sig), KvdLoz6TuSoCpri_ngpduhif_sendNgpduhIfReceiveBcmInd);
        break;
    case PSX_IW_NGSC_INCI_BROADCAST_MESSAGE2_IND:
        onBroadcast(as<InciBroadcastMessage2Ind>(sig), KvdLoz6TuSoCpri_ngpduhif_sendNgpduhIfReceiveBcmInd2);
        break;
    case PSX_IW_NGSC_INCI_CONN_RELEASE_CFM: onConnReleaseCfm(as<InciRefs>(sig));                     break;
    default:                                                                                     return false;
    }
    return true;
}

// ---- printout -----------------------------------------------------------------------------------

void KvdLoz6TuSoCpri_inci_printClients()
{
    constexpr const char* STATUS[] = {"INCI_UNAVAILABLE", "INCI_INITIATING", "INCI_AVAILABLE"};
    const State& st = *s;
    node::shellPrintf("\n***** SYNC-INCI client related data *****\n");
    node::shellPrintf("   numClients        : %u\n", st.numClients);
    node::shellPrintf("   protocolRevision  : %u, %u\n", st.protocolRevision[0], st.protocolRevision[1]);
    for (u32 i = 0; i < INCI_CLIENTS; ++i) {
        const Client& c = st.clients[i];
        if (c.clientRef == 0) continue;
        node::shellPrintf("   client[%u]  %s\n", i, c.huntPathPrefix);
        node::shellPrintf("      availabilityStatus : %s (%u)\n", STATUS[c.availabilityStatus],
                          c.availabilityStatus);
        node::shellPrintf("      factoryPid, servicePid : 0x%08x, 0x%08x\n", c.factoryPid, c.servicePid);
        node::shellPrintf("      clientRef, serverRef   : 0x%x, 0x%x\n", c.clientRef, c.serverRef);
        node::shellPrintf("      cpriPortNo         : %u\n", c.cpriPortNo);
        node::shellPrintf("      sharedId           : %u\n", c.sharedId);
        node::shellPrintf("      subsumedUnitId     : %d\n", static_cast<i32>(c.subsumedUnitId));
        node::shellPrintf("      established        : %s%s\n", c.establishReported ? "yes" : "no",
                          c.establishTimer.runs() ? ", timer runs" : "");
    }
}
