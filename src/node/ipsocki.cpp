#include "node/ipsocki.h"

#include "node/ipsocki_sig.h"
#include "node/platform.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

namespace node {

struct IpsockiProxy {
    ServiceProxy service;
    u32 apn = 0, piuInstanceId = 0;
    std::array<u8, 1472> buffer{};       // one UDP payload of an Ethernet frame
    bool bufferOut = false;
    u32 undelivered = 0;
};

}  // namespace node

namespace {

using node::IpsockiProxy;

using node::PROXY_DONE, node::PROXY_NONE, node::PROXY_NOT_CONNECTED;
constexpr int BUSY = 4;

struct State { IpsockiProxy proxy; };
ose::ModuleData<State> s;

u32 requestCredit(const IpsockiProxy* p, u32 credit, u32 maxUndelivered)
{
    if (p == nullptr || p->service.server == 0) return PROXY_NOT_CONNECTED;
    auto* req = node::make<TarsoIpsockiAcreditReq>(TARSO_IPSOCKI_ACREDIT_REQ);
    req->credit = credit;
    req->maxUndelivered = maxUndelivered;
    node::sendTo(p->service.server, req);
    return PROXY_DONE;
}

void initiate(const IpsockiProxy& p)
{
    auto* req = node::make<TarsoIpsockiInitiateReq>(TARSO_IPSOCKI_INITIATE_SERVICE_REQ);
    req->wanted = p.service.wanted;
    req->apn = p.apn;
    req->piuInstanceId = p.piuInstanceId;
    node::sendTo(p.service.server, req);
}

}  // namespace

namespace node {

IpsockiProxy* TarsoIpsocki_initiateMemory()
{
    if (s->proxy.service.used) return nullptr;
    s->proxy = {};
    s->proxy.service.used = true;
    return &s->proxy;
}

void TarsoIpsocki_freeMemory(IpsockiProxy* p)
{
    if (p == nullptr) return;
    proxyForget(p->service);
    *p = {};
}

u32 TarsoIpsocki_initiateHostPID(IpsockiProxy* p, u32 apn, u32 piuInstanceId)
{
    if (p == nullptr) return PROXY_NONE;
    p->apn = apn;
    p->piuInstanceId = piuInstanceId;
    return PROXY_DONE;
}

u32 TarsoIpsocki_initiateService(IpsockiProxy* p, u32 firstPv, u32 secondPv, u32 thirdPv)
{
    if (p == nullptr) return PROXY_NONE;
    if (platform().ipState() == BUSY) return IPSOCKI_NOT_YET_AVAILABLE;
    p->service.wanted = {firstPv, secondPv, thirdPv};
    proxyHunt(TARSO_IPSOCKI_SERVER_NAME, TARSO_IPSOCKI_SERVER_UP_IND);
    return PROXY_DONE;
}

u32 TarsoIpsocki_internal(IpsockiProxy* p, const Signal* sig)
{
    if (p == nullptr) return PROXY_NONE;
    switch (sig->sigNo) {
    case TARSO_IPSOCKI_SERVER_UP_IND:
        if (p->service.server != 0) return PROXY_DONE;      // of a hunt before
        if (proxyServerUp(p->service, sig, TARSO_IPSOCKI_SERVER_DOWN_IND) != 0) {
            proxyHunt(TARSO_IPSOCKI_SERVER_NAME, TARSO_IPSOCKI_SERVER_UP_IND);   // dead already
            return PROXY_NOT_CONNECTED;
        }
        initiate(*p);
        return PROXY_DONE;
    case TARSO_IPSOCKI_SERVER_DOWN_IND:
        return node::proxyServerDown(p->service, sig) == 0 ? PROXY_DONE : PROXY_NOT_CONNECTED;
    case TARSO_IPSOCKI4_TERMINATE_SERVICE_CFM: proxyForget(p->service); return PROXY_DONE;
    default: return PROXY_DONE;
    }
}

void TarsoIpsocki_askAgain(const IpsockiProxy* p)
{
    if (p != nullptr && p->service.server != 0) initiate(*p);
}

u32 TarsoIpsocki_terminateService(IpsockiProxy* p)
{
    if (p == nullptr || p->service.server == 0) return PROXY_NOT_CONNECTED;
    Signal* req = ose::alloc(sizeof(SIGSELECT), TARSO_IPSOCKI4_TERMINATE_SERVICE_REQ);
    ose::send(&req, p->service.server);
    return PROXY_DONE;
}

u32 TarsoIpsocki_creditWindowReq(IpsockiProxy* p, u32 credit, u32 maxUndelivered)
{
    if (p != nullptr) p->undelivered = maxUndelivered;
    return requestCredit(p, credit, maxUndelivered);
}

i32 TarsoIpsocki_giveCredit(IpsockiProxy* p)
{
    constexpr u32 ONE = 1;
    return requestCredit(p, ONE, p != nullptr ? p->undelivered : 0) == PROXY_DONE ? 0 : -1;
}

i32 TarsoIpsocki_socket(IpsockiProxy* p, u32 family, u32 type)
{
    return p != nullptr ? platform().ipSocket(family, type) : -1;
}

i32 TarsoIpsocki_setsockopt(IpsockiProxy* p, i32 socketId, IpsockiOption option, u32 value, u32 low)
{
    return p != nullptr ? platform().ipOption(socketId, option, value, low) : -1;
}

i32 TarsoIpsocki_bind(IpsockiProxy* p, i32 socketId, const IpsockiAddress& own)
{
    return p != nullptr ? platform().ipBind(socketId, own.octets.data(), own.port) : -1;
}

u8* TarsoIpsocki_getSendBuffer(IpsockiProxy* p, u32 size)
{
    if (p == nullptr || p->bufferOut || size > p->buffer.size()) return nullptr;
    p->bufferOut = true;
    return p->buffer.data();
}

void TarsoIpsocki_freeSendBuffer(IpsockiProxy* p, u8* buffer)
{
    if (p != nullptr && buffer == p->buffer.data()) p->bufferOut = false;
}

i32 TarsoIpsocki_send(IpsockiProxy* p, i32 socketId, u8* buffer, u32 size, const IpsockiAddress& to)
{
    if (p == nullptr || !p->bufferOut || buffer != p->buffer.data()) return -1;
    if (platform().ipSend(socketId, buffer, size, to.octets.data(), to.port) < 0) return -1;
    p->bufferOut = false;
    return 0;
}

i32 TarsoIpsocki_close(IpsockiProxy* p, i32 socketId)
{
    return p != nullptr ? platform().ipClose(socketId) : -1;
}

i32 TarsoIpsocki_socketError(IpsockiProxy*) { return platform().ipError(); }

const u8* TarsoIpsocki_readData(const TarsoIpsockiFdReadData& ind, u32 signalSize, i32& result)
{
    result = signalSize - sizeof ind < ind.length ? i32{IPSOCKI_E_FAULT} : i32{IPSOCKI_E_NONE};
    return result == IPSOCKI_E_NONE ? reinterpret_cast<const u8*>(&ind + 1) : nullptr;
}

}  // namespace node
