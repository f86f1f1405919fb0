#include "pktsync/tupktsync_ipsocki_client.h"

#include "base/element_of.h"
#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/bytes.h"
#include "node/ipsocki.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_pdu.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "sig/tupktsync_sig.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr u32 PV = 5;
constexpr u32 CREDIT = 25, MAX_UNDELIVERED = 50;
constexpr KvdAnswerOf ANSWER{TRACE_TUPKTSYNC_IPSOCKI_CLIENT, "IPSOCKI", TUPKTSYNC_IPSOCKI_ANSWER_TMO};
constexpr u32 FAMILY_IPV4 = 4, FAMILY_IPV6 = 6;

struct State {
    u32 state = IPSOCKI_NOT_AVAILABLE;
    node::IpsockiProxy* proxy = nullptr;
    KvdTimer answerTimer;            // and, while it serves, of the next look at the credit
    u32 datagrams = 0;               // since the last one
    std::array<TuPktsyncSocket, SOCKET_RESOURCES> sockets;
};
ose::ModuleData<State> s;

bool isIn(u32 state, const char* signal)
{
    if (s->state == state) return true;
    KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_2,
              "TuPktsync_IPSOCKI_client: Wrong state when receiving %s", signal);
    return false;
}

bool internal(const Signal* sig)
{
    const u32 result = node::TarsoIpsocki_internal(s->proxy, sig);
    if (result != 0)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR, "TuPktsync_IPSOCKI_client: Proxy error %u",
                  result);
    return result == 0;
}

void reportReady() { TuPktsync_Root_initReady(TUPKTSYNC_OBJECT_IPSOCKI_CLIENT); }
i32  lastError() { return node::TarsoIpsocki_socketError(s->proxy); }
u32  portOf(u32 portKind) { return portKind == SOCKET_GENERAL ? PTP_GENERAL_PORT : PTP_EVENT_PORT; }

void awaitAnswer() { KvdAnswer_await(s->answerTimer, ANSWER); }

// ---- connection ---------------------------------------------------------------------------------

void freeMemory()
{
    node::TarsoIpsocki_freeMemory(s->proxy);
    s->proxy = nullptr;
}

/// Tried again later when it fails; there is no proxy until then.
void initiateIpSocki()
{
    constexpr int ATTEMPTS = 5;
    KvdTimer_cancel(s->answerTimer);
    s->proxy = node::TarsoIpsocki_initiateMemory();
    const u32 apn = KvdLoz6TuIifAdm_apn();
    KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_INFO, "TuPktsync_IPSOCKI_client:initiateIpSocki apn = %u",
              apn);
    u32 result = node::TarsoIpsocki_initiateHostPID(s->proxy, apn, KvdLoz6TuIifAdm_piuInstanceId());
    if (result == 0) result = node::TarsoIpsocki_initiateService(s->proxy, PV, PV, PV);
    for (int i = 0; i < ATTEMPTS && result == node::IPSOCKI_NOT_YET_AVAILABLE; ++i)
        result = node::TarsoIpsocki_initiateService(s->proxy, PV, PV, PV);
    if (result == 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_INFO, "TUPKTSYNC: IPSOCKI_BVQ interface initiated");
        s->state = IPSOCKI_WAIT_FOR_INIT_RESPONS;
        return;
    }
    if (result == node::IPSOCKI_NOT_YET_AVAILABLE)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TarsoIpsocki_initiateService failed after 5 attempts \nipsockiResultCode=%d\n",
                  static_cast<i32>(result));
    KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_1, "TUPKTSYNC: IPSOCKI_BVQ interface failed to initiate");
    freeMemory();
    awaitAnswer();
}

/// The proxy asks the server that was found.
void onServerUp(const Signal* sig)
{
    if (internal(sig) && s->state == IPSOCKI_WAIT_FOR_INIT_RESPONS) awaitAnswer();
}

void requestCreditWindow()
{
    const u32 result = node::TarsoIpsocki_creditWindowReq(s->proxy, CREDIT, MAX_UNDELIVERED);
    if (result != 0)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: credit window request failed, result=%u", result);
    awaitAnswer();
}

/// One that was suspended may serve later.
void onConfirm(const Signal* sig)
{
    if (s->state != IPSOCKI_WAIT_FOR_SERVER_DOWN
        && !isIn(IPSOCKI_WAIT_FOR_INIT_RESPONS, "TARSO_IPSOCKI_INITIATE_SERVICE_CFM"))
        return;
    const auto* cfm = as<node::ProxyInitiateAnswer>(sig);
    if (cfm == nullptr) return;
    if (cfm->pv != PV)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Wrong PV given as selected by interface. \n");
    internal(sig);
    s->state = IPSOCKI_WAIT_FOR_ACREDIT_IND;
    requestCreditWindow();
}

void onCredit(const Signal* sig)
{
    if (s->state == IPSOCKI_AVAILABLE) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_2,
                  "TuPktsync_IPSOCKI_client: the credit window is granted anew");
        return;
    }
    if (!isIn(IPSOCKI_WAIT_FOR_ACREDIT_IND, "TARSO_IPSOCKI_ACREDIT_IND")) return;
    internal(sig);
    s->state = IPSOCKI_AVAILABLE;
    awaitAnswer();
    reportReady();
}

void terminate()
{
    const u32 result = node::TarsoIpsocki_terminateService(s->proxy);
    if (result != 0)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TarsoIpsocki_terminateService failed \nipsockiResultCode=%d", static_cast<i32>(result));
    awaitAnswer();
}

void onSuspend(const Signal* sig)
{
    if (!isIn(IPSOCKI_WAIT_FOR_INIT_RESPONS, "TARSO_IPSOCKI_INITIATE_SERVICE_SUS")) return;
    const auto* sus = as<node::ProxyInitiateAnswer>(sig);
    if (sus == nullptr) return;
    internal(sig);
    if (sus->pv <= PV) {
        s->state = IPSOCKI_WAIT_FOR_SERVER_DOWN;
        return;
    }
    terminate();
    s->state = IPSOCKI_WAIT_FOR_TERMINATE_CONFIRM;
}

void onReject(const Signal* sig)
{
    if (!isIn(IPSOCKI_WAIT_FOR_INIT_RESPONS, "TARSO_IPSOCKI_INITIATE_SERVICE_REJ")) return;
    internal(sig);
    KvdTimer_cancel(s->answerTimer);
    s->state = IPSOCKI_NOT_AVAILABLE;
    reportReady();
}

void onTerminated(const Signal* sig)
{
    if (!isIn(IPSOCKI_WAIT_FOR_TERMINATE_CONFIRM, "TARSO_IPSOCKI4_TERMINATE_SERVICE_CFM")) return;
    internal(sig);
    freeMemory();
    initiateIpSocki();
}

void onServerDown(const Signal* sig)
{
    if (!internal(sig)) return;              // of a connection before
    KvdTimer_cancel(s->answerTimer);
    s->state = IPSOCKI_NOT_AVAILABLE;
    freeMemory();
    TuPktsync_SyncrefCtrl_handleServerDownInd();
}

/// Credits that the service didn't hear of are lost, and with the last of them all that comes.
void watchCredit()
{
    const bool isInUse = std::any_of(s->sockets.begin(), s->sockets.end(),
                                     [](const TuPktsyncSocket& r) { return r.state != SOCKET_FREE; });
    const bool isSilent = std::exchange(s->datagrams, 0) == 0;
    if (isInUse && isSilent) requestCreditWindow();
    else                     awaitAnswer();
}

void onAnswerTimeout()
{
    if (s->state == IPSOCKI_AVAILABLE) {
        if (KvdTimer_expired(s->answerTimer)) watchCredit();
        return;
    }
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    if (s->proxy == nullptr) return initiateIpSocki();
    switch (s->state) {
    case IPSOCKI_WAIT_FOR_TERMINATE_CONFIRM: return terminate();
    case IPSOCKI_WAIT_FOR_ACREDIT_IND:       return requestCreditWindow();
    default: node::TarsoIpsocki_askAgain(s->proxy); return awaitAnswer();
    }
}

// ---- sockets ------------------------------------------------------------------------------------

struct NamedOption { IpsockiOption option; u32 value; const char* name; };
constexpr NamedOption OPTIONS[] = {
    {TARSO_IPSOCKI_SO_REUSEADDR, 1, "TARSO_IPSOCKI_SO_REUSEADDR"},
    {TARSO_IPSOCKI_SO_SNDBUF, 100, "TARSO_IPSOCKI_SO_SNDBUF"},
    {TARSO_IPSOCKI_SO_RCVBUF, 1600, "TARSO_IPSOCKI_SO_RCVBUF"},
    {TARSO_IPSOCKI__IP_RECVSRCADDR, 1, "TARSO_IPSOCKI__IP_RECVSRCADDR"},
    {TARSO_IPSOCKI_SO_TIMESTAMPING_ZFB, 20, "TARSO_IPSOCKI_SO_TIMESTAMPING_ZFB"},   // the event socket
};

bool setOptions(const TuPktsyncSocket& r)
{
    for (const NamedOption& o : OPTIONS) {
        if (o.option == TARSO_IPSOCKI_SO_TIMESTAMPING_ZFB && r.portKind != SOCKET_EVENT) continue;
        if (node::TarsoIpsocki_setsockopt(s->proxy, r.socketId, o.option, o.value) >= 0) continue;
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Failed to set socket option\n%s", o.name);
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: failed to set options for \nsocket identifier %d", r.socketId);
        return false;
    }
    return true;
}

const char* bindErrorText(i32 error)
{
    switch (error) {
    case IPSOCKI_E_BADF:         return ", not a socket";
    case IPSOCKI_E_ACCES:        return ", permission denied";
    case IPSOCKI_E_ADDRINUSE:    return ", address already in use";
    case IPSOCKI_E_ADDRNOTAVAIL: return ", address not available";
    case IPSOCKI_E_AFNOSUPPORT:  return ", address family not supported";
    case IPSOCKI_E_BOUND:        return ", socket already bound";
    case IPSOCKI_E_FAULT:        return ", bad address";
    case IPSOCKI_E_INVAL:        return ", invalid argument";
    case IPSOCKI_E_NOBUFS:       return ", no buffer space";
    default:                     return "";
    }
}

bool bindSocket(const TuPktsyncSocket& r)
{
    const node::IpsockiAddress own{r.addressFamily, r.own.octets, portOf(r.portKind)};
    if (node::TarsoIpsocki_bind(s->proxy, r.socketId, own) >= 0) return true;
    const i32 error = lastError();
    KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
              "TarsoIpsocki_bind failed%s \nipsockiResultCode=%d for socketId=%d \n", bindErrorText(error),
              error, r.socketId);
    return false;
}

void closeSocket(TuPktsyncSocket& r)
{
    if (r.socketId >= 0 && node::TarsoIpsocki_close(s->proxy, r.socketId) < 0)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: failed to close \nsocket identifier %d", r.socketId);
    r = {};
}

i32 openSocket(TuPktsyncSocket& r, const PktIpAddress& own, u32 portKind)
{
    constexpr i32 FAILED = -1, NO_HOST = -2;
    r = {};
    r.own = own;
    r.portKind = portKind;
    r.addressFamily = own.family == FAMILY_IPV6 ? IPSOCKI_AF_INET6 : IPSOCKI_AF_INET;
    r.socketType = IPSOCKI_DGRAM;
    r.socketId = node::TarsoIpsocki_socket(s->proxy, r.addressFamily, r.socketType);
    if (r.socketId < 0) {
        const i32 error = lastError();
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TarsoIpsocki_socket failed \nipsockiResultCode=%d", error);
        r = {};
        return error == IPSOCKI_E_HOST ? NO_HOST : FAILED;
    }
    if (!setOptions(r) || !bindSocket(r)) {
        closeSocket(r);
        return FAILED;
    }
    r.state = SOCKET_READY;
    r.users = 1;
    return 0;
}

TuPktsyncSocket* socketOf(i32 resource)
{
    return elementOf(s->sockets, static_cast<u32>(resource));      // one below 0 is beyond any
}

void setTos(TuPktsyncSocket& r, u8 dscp)
{
    const i32 tos = dscp * 4;
    if (r.tos == tos) return;
    const bool isV6 = r.addressFamily == IPSOCKI_AF_INET6;
    const IpsockiOption option = isV6 ? TARSO_IPSOCKI_IPV6_TCLASS : TARSO_IPSOCKI_SO_IP_TOS;
    if (node::TarsoIpsocki_setsockopt(s->proxy, r.socketId, option, static_cast<u32>(tos)) < 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Failed to set socket option\n%s",
                  isV6 ? "TARSO_IPSOCKI_IPV6_TCLASS" : "TARSO_IPSOCKI_SO_IP_TOS");
        return;
    }
    r.tos = tos;
}

// ---- datagrams ----------------------------------------------------------------------------------

/// The sender's address; false when it is of neither family.
bool senderOf(const TarsoIpsockiFdReadData& ind, PktIpAddress& sender)
{
    constexpr u32 IPV4_OCTETS = 4;
    if (ind.saFamily == IPSOCKI_AF_INET) {
        sender.family = FAMILY_IPV4;
        std::copy_n(ind.address.begin(), IPV4_OCTETS, sender.octets.begin());
        return true;
    }
    if (ind.saFamily == IPSOCKI_AF_INET6) {
        sender.family = FAMILY_IPV6;
        sender.octets = ind.address;
        return true;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
              "TuPktsync_IPSOCKI_client: senderAddress->sa_family %u not v4 or v6", ind.saFamily);
    return false;
}

/// Its receive stamp, zero when it has none.
PtpStamp stampOf(const TarsoIpsockiFdReadData& ind)
{
    if (ind.controlLevel != IPSOCKI_STAMP_LEVEL || ind.controlType != IPSOCKI_STAMP_TYPE) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_2,
                  "TuPktsync_IPSOCKI_client:get ControlData, unrecognised control data");
        return {};
    }
    KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_8,
              "TuPktsync_IPSOCKI_client:get ControlData, metadata received");
    return {node::be32(ind.control.data()), node::be32(ind.control.data() + 4)};
}

void giveCredit()
{
    if (node::TarsoIpsocki_giveCredit(s->proxy) < 0)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: socket error number = %d\n", lastError());
}

void onData(Signal* sig)
{
    if (s->state != IPSOCKI_AVAILABLE) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_1,
                  "TuPktsync_IPSOCKI_client: Wrong state when receiving TARSO_IPSOCKI_FD_READ_DATA");
        return;
    }
    ++s->datagrams;
    const auto* ind = as<TarsoIpsockiFdReadData>(sig);
    i32 result = IPSOCKI_E_FAULT;
    const u8* const data = ind != nullptr ? node::TarsoIpsocki_readData(*ind, ose::sigsize(&sig), result)
                                          : nullptr;
    if (data == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Failed to access socket data\nresult = %d", result);
    } else {
        PktIpAddress sender;
        // Without a sender it would pass for a frame, and its domain alone tell whose it is.
        if (senderOf(*ind, sender))
            TuPktsync_PDU_SockiRcvPacket(ind->localPort, data, ind->length, stampOf(*ind), &sender);
    }
    giveCredit();
}

}  // namespace

void TuPktsync_IPSOCKI_client_init()
{
    s->state = IPSOCKI_NOT_AVAILABLE;
    // Another service's death begins the chain anew while this one's connection stands.
    if (s->proxy != nullptr) {
        for (TuPktsyncSocket& r : s->sockets) closeSocket(r);
        freeMemory();
    }
    s->sockets.fill({});
    initiateIpSocki();
}

bool TuPktsync_IPSOCKI_client_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case TARSO_IPSOCKI_FD_READ_DATA:           onData(sig);       return true;
    case TARSO_IPSOCKI_SERVER_UP_IND:          onServerUp(sig);   return true;
    case TARSO_IPSOCKI_INITIATE_SERVICE_CFM:   onConfirm(sig);    return true;
    case TARSO_IPSOCKI_INITIATE_SERVICE_SUS:   onSuspend(sig);    return true;
    case TARSO_IPSOCKI_INITIATE_SERVICE_REJ:   onReject(sig);     return true;
    case TARSO_IPSOCKI_SERVER_DOWN_IND:        onServerDown(sig); return true;
    case TARSO_IPSOCKI_ACREDIT_IND:            onCredit(sig);     return true;
    case TARSO_IPSOCKI4_TERMINATE_SERVICE_CFM: onTerminated(sig); return true;
    case TUPKTSYNC_IPSOCKI_ANSWER_TMO:         onAnswerTimeout(); return true;
    default:                                                      return false;
    }
}

i32 TuPktsync_IPSOCKI_client_createSocketAndBind(const PktIpAddress& own, u32 portKind)
{
    if (s->state != IPSOCKI_AVAILABLE) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Wrong state at \n "
                  "TuPktsync_IPSOCKI_client_createSocketAndBind");
        return -1;
    }
    auto& all = s->sockets;
    const auto shared = std::find_if(all.begin(), all.end(), [&](const TuPktsyncSocket& r) {
        return r.state == SOCKET_READY && r.portKind == portKind && r.own == own;
    });
    if (shared != all.end()) {
        ++shared->users;
        return static_cast<i32>(shared - all.begin());
    }
    const auto free = std::find_if(all.begin(), all.end(),
                                   [](const TuPktsyncSocket& r) { return r.state == SOCKET_FREE; });
    if (free == all.end()) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: No free resource at \n "
                  "TuPktsync_IPSOCKI_client_createSocketAndBind");
        return -1;
    }
    const i32 result = openSocket(*free, own, portKind);
    return result < 0 ? result : static_cast<i32>(free - all.begin());
}

void TuPktsync_IPSOCKI_client_removeResourceUser(i32 resource)
{
    TuPktsyncSocket* const r = socketOf(resource);
    if (r == nullptr || r->state == SOCKET_FREE) return;
    if (--r->users == 0) closeSocket(*r);
}

u8* TuPktsync_IPSOCKI_client_getPayloadPointer(i32 resource, u32 length, u32 metadataLength,
                                               const u8* metadata, u8 dscp)
{
    TuPktsyncSocket* const r = socketOf(resource);
    if (s->state != IPSOCKI_AVAILABLE || r == nullptr || r->state != SOCKET_READY) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Resource %u in wrong state %d at \n"
                  "TuPktsync_IPSOCKI_client_getPayloadPointer\n",
                  static_cast<u32>(resource), r != nullptr ? static_cast<i32>(r->state) : -1);
        return nullptr;
    }
    constexpr u32 METADATA_OCTETS = 8;
    setTos(*r, dscp);
    if (metadata != nullptr && metadataLength == METADATA_OCTETS && r->portKind == SOCKET_EVENT &&
        node::TarsoIpsocki_setsockopt(s->proxy, r->socketId, TARSO_IPSOCKI_SO_METADATA_ZFB,
                                      node::be32(metadata), node::be32(metadata + 4)) < 0)
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Failed to set socket option\n"
                  "TARSO_IPSOCKI_SO_METADATA_ZFB");
    r->sendBuffer = node::TarsoIpsocki_getSendBuffer(s->proxy, length);
    if (r->sendBuffer == nullptr) return nullptr;
    r->size = length;
    r->state = SOCKET_BUFFER_OUT;
    return r->sendBuffer;
}

bool TuPktsync_IPSOCKI_client_sendPayload(i32 resource, const PktIpAddress& server)
{
    if (s->state != IPSOCKI_AVAILABLE) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: client not in state AVAILABLE \n"
                  "at TuPktsync_IPSOCKI_client_sendPayload");
        return false;
    }
    TuPktsyncSocket* const r = socketOf(resource);
    if (r == nullptr || r->state != SOCKET_BUFFER_OUT) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: Resource %u in wrong state %d at \n"
                  "TuPktsync_IPSOCKI_client_sendPayload\n",
                  static_cast<u32>(resource), r != nullptr ? static_cast<i32>(r->state) : -1);
        return false;
    }
    const node::IpsockiAddress to{r->addressFamily, server.octets, portOf(r->portKind)};
    const bool isSent = node::TarsoIpsocki_send(s->proxy, r->socketId, r->sendBuffer, r->size, to) >= 0;
    if (!isSent) {
        KVD_TRACE(TRACE_TUPKTSYNC_IPSOCKI_CLIENT, TRACE_ERROR,
                  "TuPktsync_IPSOCKI_client: socket error number = %d\n", lastError());
        node::TarsoIpsocki_freeSendBuffer(s->proxy, r->sendBuffer);
    }
    r->sendBuffer = nullptr;
    r->state = SOCKET_READY;
    return isSent;
}

u32 TuPktsync_IPSOCKI_client_state() { return s->state; }
const TuPktsyncSocket& TuPktsync_IPSOCKI_client_socket(u32 resource) { return s->sockets[resource]; }

const char* TuPktsync_ipsockiStateText(u32 state)
{
    static constexpr const char* TEXTS[] = {
        "NOT_AVAILABLE",       "WAIT_FOR_SERVER_DOWN", "WAIT_FOR_INIT_RESPONS",
        "WAIT_FOR_TERMINATE_CONFIRM", "WAIT_FOR_ACREDIT_IND", "AVAILABLE"};
    return state < std::size(TEXTS) ? TEXTS[state] : "UNKNOWN";
}
