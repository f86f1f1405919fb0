#include "socpri/kvd_ngpduhif_client.h"

#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/name_service.h"
#include "node/platform.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sig/inci_sig.h"
#include "socpri/kvd_socpri_inci_bcm.h"
#include "socpri/kvd_socpri_inci_server.h"

namespace {

constexpr AttachRef NO_ATTACH = 0xFFFFFFFF;

struct State {
    u32 availabilityStatus = NGPDUHIF_UNAVAILABLE;
    PROCESS factoryPid = 0, servicePid = 0;    // as located, as it confirmed
    AttachRef serviceAttachRef = NO_ATTACH;
    AttachRef nsAttachRef = NO_ATTACH;
    u32 protocolRev = 0;
    u32 clientRef = 0;                         // one more at each connection request
    u32 serverRef = 0;
    PROCESS nsPid = 0;
    struct { u32 smn = 0, apn = 0, piuInstanceId = 0; } unitData;   // as of the connection
    u32 nodeIdentifier = 0;
    KvdTimer answerTimer;
};
ose::ModuleData<State> s;

constexpr KvdAnswerOf ANSWER{TRACE_NGPDUHIF, "NGPDUHIF", KVD_NGPDUHIF_ANSWER_TMO};

void detachFrom(AttachRef& ref)
{
    if (ref != NO_ATTACH) ose::detach(&ref);
    ref = NO_ATTACH;
}

void clearPids()
{
    s->factoryPid = 0;
    s->servicePid = 0;
}

node::NgpduhifPeer peer(PROCESS pid) { return {pid, s->clientRef, s->serverRef}; }

// ---- connection ---------------------------------------------------------------------------------

void onNameServerFound(PROCESS nameServer)
{
    detachFrom(s->nsAttachRef);
    s->nsPid = nameServer;
    s->nsAttachRef = node::NameService_attach(nameServer);
    node::NameService_ask(nameServer, NGPDUHIF_SERVICE_NAME);
}

void onNameServerDead()
{
    s->nsAttachRef = NO_ATTACH;
    node::NameService_hunt();
}

void askForConnection()
{
    node::Ngpduhif_connEstablish(peer(s->factoryPid), s->protocolRev, s->unitData.apn);
    KvdAnswer_await(s->answerTimer, ANSWER);
}

void onAnswerTimeout()
{
    if (KvdAnswer_isLate(s->answerTimer, ANSWER)) askForConnection();
}

void onServerUp(PROCESS server)
{
    detachFrom(s->nsAttachRef);
    // A name server that died on the way is asked again; a connection that stands by then isn't touched.
    if (s->availabilityStatus == NGPDUHIF_AVAILABLE) return;
    detachFrom(s->serviceAttachRef);
    s->unitData = {KvdLoz6TuIifAdm_smn(), KvdLoz6TuIifAdm_apn(), KvdLoz6TuIifAdm_piuInstanceId()};
    s->factoryPid = server;
    Signal* dead = ose::alloc(sizeof(SIGSELECT), KVD_COMM_SERVER_DEAD);
    s->serviceAttachRef = ose::attach(&dead, server);
    ++s->clientRef;
    askForConnection();
}

/// True when an answer to the connection request is awaited. One that comes late or twice would leave a
/// connection that nobody supervises, or end the one that stands.
bool awaitsAnswer(const char* what)
{
    if (s->availabilityStatus == NGPDUHIF_INITIATING && s->factoryPid != 0) return true;
    KVD_TRACE(TRACE_NGPDUHIF, TRACE_INFO, "%s not asked for, dropped, availabilityStatus=%u", what,
              s->availabilityStatus);
    return false;
}

void onConnEstablishCfm(const KvdNgpduhifConnEstablishCfm* cfm, PROCESS server)
{
    if (cfm == nullptr || !awaitsAnswer("KVD_NGPDUHIF_CONN_ESTABLISH_CFM")) return;
    KvdTimer_cancel(s->answerTimer);
    s->servicePid = server;
    s->serverRef = cfm->serverRef;
    s->nodeIdentifier = cfm->nodeIdentifier;
    s->availabilityStatus = NGPDUHIF_AVAILABLE;
    KVD_TRACE(TRACE_NGPDUHIF, TRACE_INFO, " %s(): availabilityStatus =%u, nodeIdentifier =0x%x ", __func__,
              s->availabilityStatus, s->nodeIdentifier);
    KvdLoz6TuSoCpri_inci_resendServerConnectsToNgsm();
}

void onConnEstablishRej(const KvdNgpduhifConnEstablishRej* rej)
{
    if (rej == nullptr || !awaitsAnswer("KVD_NGPDUHIF_CONN_ESTABLISH_REJ")) return;
    KvdTimer_cancel(s->answerTimer);
    detachFrom(s->serviceAttachRef);
    clearPids();
    s->availabilityStatus = NGPDUHIF_UNAVAILABLE;
    KVD_TRACE(TRACE_NGPDUHIF, TRACE_INFO,
              " %s(): received KVD_NGPDUHIF_CONN_ESTABLISH_REJ: clientRef=%u, serverRef=%u, errorCode=%u ",
              __func__, rej->clientRef, rej->serverRef, rej->errorCode);
}

void onServerDead()
{
    KvdTimer_cancel(s->answerTimer);
    s->serviceAttachRef = NO_ATTACH;
    clearPids();
    s->clientRef = 0;
    s->serverRef = 0;
    s->availabilityStatus = NGPDUHIF_UNAVAILABLE;
    if (!KvdLoz6TuSoCpri_ngpduhif_connEstablish(s->protocolRev))
        KVD_TRACE(TRACE_NGPDUHIF, TRACE_7, "%s(): NGPDUHIF CONNECTION ESTABLISH failed", __func__);
}

// ---- broadcast ----------------------------------------------------------------------------------

void onSendBcmData(const KvdNgpduhifSendBcmDataInd* data)
{
    if (data == nullptr || data->dataValid == 0) return;
    KvdLoz6TuSoCpri_inci_sendServerBcmInd(*data);
}

void onConnReleaseRsp(const KvdNgpduhifConnReleaseRsp* rsp, const char* what)
{
    if (rsp == nullptr) return;
    KVD_TRACE(TRACE_NGPDUHIF, TRACE_7, "received %s responseOk=%u", what, rsp->responseOk);
}

/// True, traced, when there is no service.
bool isUnavailable()
{
    if (s->availabilityStatus == NGPDUHIF_AVAILABLE) return false;
    KVD_TRACE(TRACE_NGPDUHIF, TRACE_7, "NGPDUHIF server not available.");
    return true;
}

/// The same for a broadcast.
bool isUnavailable(const char* function)
{
    if (s->availabilityStatus == NGPDUHIF_AVAILABLE) return false;
    KVD_TRACE(TRACE_NGPDUHIF, TRACE_7, "%s(): NGPDUHIF server not available.", function);
    return true;
}

InciOrigin origin(u8 cpriPortNo, u32 sharedId) { return {cpriPortNo, sharedId, s->unitData.apn}; }

}  // namespace

void KvdLoz6TuSoCpri_ngpduhif_initiate() { *s = State{}; }

bool KvdLoz6TuSoCpri_ngpduhif_connEstablish(u32 protocolRev)
{
    const u32 before = s->availabilityStatus;
    if (before == NGPDUHIF_AVAILABLE) KVD_TRACE(TRACE_NGPDUHIF, TRACE_INFO, "NGPDUHIF already available.");
    if (before == NGPDUHIF_UNAVAILABLE) {
        s->protocolRev = protocolRev;
        node::NameService_hunt();
        s->availabilityStatus = NGPDUHIF_INITIATING;
        clearPids();
    }
    return before != NGPDUHIF_INITIATING;
}

bool KvdLoz6TuSoCpri_ngpduhif_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_COMM_ONS_HUNT:      onNameServerFound(ose::sender(&sig));                               break;
    case KVD_COMM_ONS_DEAD:      onNameServerDead();                                                 break;
    case KVD_COMM_SERVER_UP_IND: onServerUp(ose::sender(&sig));                                      break;
    case KVD_COMM_SERVER_DEAD:   onServerDead();                                                     break;
    case KVD_NGPDUHIF_ANSWER_TMO: onAnswerTimeout();                                                 break;
    case KVD_NGPDUHIF_CONN_ESTABLISH_CFM:
        onConnEstablishCfm(as<KvdNgpduhifConnEstablishCfm>(sig), ose::sender(&sig));                 break;
    case KVD_NGPDUHIF_CONN_ESTABLISH_REJ: onConnEstablishRej(as<KvdNgpduhifConnEstablishRej>(sig));  break;
    case KVD_NGPDUHIF_HANDSHAKE_PDU_CFM:
        KVD_TRACE(TRACE_NGPDUHIF, TRACE_7, "received KVD_NGPDUHIF_HANDSHAKE_PDU_CFM");               break;
    case KVD_NGPDUHIF_HANDSHAKE_PDU_REJ:
        KVD_TRACE(TRACE_NGPDUHIF, TRACE_ERROR, "received KVD_NGPDUHIF_HANDSHAKE_PDU_REJ");           break;
    case KVD_NGPDUHIF_SEND_BCM_DATA_IND: onSendBcmData(as<KvdNgpduhifSendBcmDataInd>(sig));          break;
    case KVD_NGPDUHIF_SERVER_CONN_RELEASE_RSP:
        onConnReleaseRsp(as<KvdNgpduhifConnReleaseRsp>(sig), "KVD_NGPDUHIF_SERVER_CONN_RELEASE_RSP");
        break;
    case KVD_NGPDUHIF_CLIENT_CONN_RELEASE_RSP:
        onConnReleaseRsp(as<KvdNgpduhifConnReleaseRsp>(sig), "KVD_NGPDUHIF_CLIENT_CONN_RELEASE_RSP");
        break;
    default:                                                                                     return false;
    }
    return true;
}

u32 KvdLoz6TuSoCpri_ngpduhif_nodeIdentifier() { return s->nodeIdentifier; }
u32 KvdLoz6TuSoCpri_ngpduhif_availabilityStatus() { return s->availabilityStatus; }

u32 KvdLoz6TuSoCpri_ngpduhif_sendHandshakePduReq(u32 inciServerConnId)
{
    if (isUnavailable()) return NGPDUHIF_NO_SERVER;
    node::Ngpduhif_handshakePdu(peer(s->servicePid), inciServerConnId);
    return NGPDUHIF_SENT;
}

u32 KvdLoz6TuSoCpri_ngpduhif_sendServerConnReleaseReq(u32 inciServerConnId)
{
    if (isUnavailable()) return NGPDUHIF_NO_SERVER;
    node::Ngpduhif_serverConnRelease(peer(s->servicePid), inciServerConnId);
    return NGPDUHIF_SENT;
}

u32 KvdLoz6TuSoCpri_ngpduhif_sendClientConnReleaseReq(u32 inciConnId)
{
    if (isUnavailable()) return NGPDUHIF_NO_SERVER;
    node::Ngpduhif_clientConnRelease(peer(s->servicePid), inciConnId);
    return NGPDUHIF_SENT;
}

u32 KvdLoz6TuSoCpri_ngpduhif_sendNgpduhIfReceiveBcmInd(const InciBroadcastMessageInd& message, u8 cpriPortNo,
                                                       u32 sharedId)
{
    if (isUnavailable(__func__)) return NGPDUHIF_NO_SERVER;
    node::Ngpduhif_receiveBcmData(peer(s->servicePid), inciReceived(message, origin(cpriPortNo, sharedId)));
    return NGPDUHIF_SENT;
}

u32 KvdLoz6TuSoCpri_ngpduhif_sendNgpduhIfReceiveBcmInd2(const InciBroadcastMessage2Ind& message,
                                                        u8 cpriPortNo, u32 sharedId)
{
    if (isUnavailable(__func__)) return NGPDUHIF_NO_SERVER;
    node::Ngpduhif_receiveBcmData(peer(s->servicePid), inciReceived2(message, origin(cpriPortNo, sharedId)));
    return NGPDUHIF_SENT;
}

u32 KvdLoz6TuSoCpri_ngpduhif_sendTimeDataInd(const KvdNgpduhifTimeDataInd& data)
{
    if (s->servicePid == 0) return NGPDUHIF_NO_SERVER;
    node::Ngpduhif_timeData(s->servicePid, data);
    return NGPDUHIF_SENT;
}

void KvdLoz6TuSoCpri_ngpduhif_print()
{
    constexpr const char* STATUS[] = {"NGPDUHIF_AVAILABLE", "NGPDUHIF_INITIATING", "NGPDUHIF_UNAVAILABLE"};
    const State& st = *s;
    node::shellPrintf("\n***** NGPDUHIF related data *****\n");
    node::shellPrintf("   availabilityStatus : %s (%u)\n", STATUS[st.availabilityStatus],
                      st.availabilityStatus);
    node::shellPrintf("   protocolRev        : %u\n", st.protocolRev);
    node::shellPrintf("   factoryPid         : 0x%08x\n", st.factoryPid);
    node::shellPrintf("   servicePid         : 0x%08x\n", st.servicePid);
    node::shellPrintf("   name server        : 0x%08x\n", st.nsPid);
    node::shellPrintf("   clientRef          : %u\n", st.clientRef);
    node::shellPrintf("   serverRef          : %u\n", st.serverRef);
    node::shellPrintf("   nodeIdentifier     : 0x%x\n", st.nodeIdentifier);
    node::shellPrintf("   smn, apn, instance : %u, %u, %u\n", st.unitData.smn, st.unitData.apn,
                      st.unitData.piuInstanceId);
}
