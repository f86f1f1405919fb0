#include "node/cfi.h"

#include "node/cfi_sig.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

namespace node {

struct CfiProxy {
    ServiceProxy service;
    Signal* sending = nullptr;       // frame whose buffer was given out
};

}  // namespace node

namespace {

using node::CfiProxy;

constexpr u32 NO_BUFFER = 3;
constexpr node::ProxyService SERVICE{CFI_SERVER_NAME, CFI_SERVER_UP_IND, CFI_SERVER_DOWN_IND,
                                     CFI_INITIATE_SERVICE_REQ};

struct State {
    CfiProxy proxy;
};
ose::ModuleData<State> s;

u8* frameOf(Signal* sig) { return reinterpret_cast<u8*>(sig) + sizeof(CfiSendFrameReq); }

u32 requestMulticast(CfiProxy* p, SIGSELECT sigNo, u32 deviceId, const std::array<u8, 6>& mac,
                     const CfiFilter& filter, u32 clientData)
{
    if (p == nullptr || p->service.server == 0) return node::PROXY_NOT_CONNECTED;
    auto* req = node::make<CfiMulticastReq>(sigNo);
    req->deviceId = deviceId;
    req->macHigh = u32{mac[0]} << 24 | u32{mac[1]} << 16 | u32{mac[2]} << 8 | mac[3];
    req->macLow = u32{mac[4]} << 24 | u32{mac[5]} << 16;
    req->filter = filter;
    req->clientData = clientData;
    node::sendTo(p->service.server, req);
    return node::PROXY_DONE;
}

}  // namespace

namespace node {

CfiProxy* Cfi_initiateMemory()
{
    if (s->proxy.service.used) return nullptr;
    s->proxy = {};
    s->proxy.service.used = true;
    return &s->proxy;
}

void Cfi_freeMemory(CfiProxy* p)
{
    if (p == nullptr) return;
    if (p->sending != nullptr) ose::free_buf(&p->sending);
    proxyForget(p->service);
    *p = {};
}

u32 Cfi_initiateServiceReq(CfiProxy* p, u32 firstPv, u32 secondPv, u32 thirdPv)
{
    if (p == nullptr) return PROXY_NONE;
    return proxyInitiateService(p->service, SERVICE, {firstPv, secondPv, thirdPv});
}

u32 Cfi_internal(CfiProxy* p, const Signal* sig)
{
    return p != nullptr ? proxyInternal(p->service, SERVICE, sig) : u32{PROXY_NONE};
}

u32 Cfi_askAgain(const CfiProxy* p)
{
    return p != nullptr ? proxyAskAgain(p->service, SERVICE) : u32{PROXY_NONE};
}

u32 Cfi_attachReq(CfiProxy* p, u32 deviceId)
{
    if (p == nullptr || p->service.server == 0) return node::PROXY_NOT_CONNECTED;
    auto* req = make<CfiAttachReq>(CFI_ATTACH_REQ);
    req->deviceId = deviceId;
    sendTo(p->service.server, req);
    return node::PROXY_DONE;
}

u32 Cfi_joinMulticastReq(CfiProxy* p, u32 deviceId, const std::array<u8, 6>& mac, const CfiFilter& filter,
                         u32 clientData)
{
    return requestMulticast(p, CFI_JOIN_MULTICAST_REQ, deviceId, mac, filter, clientData);
}

u32 Cfi_leaveMulticastReq(CfiProxy* p, u32 deviceId, const std::array<u8, 6>& mac, const CfiFilter& filter,
                          u32 clientData)
{
    return requestMulticast(p, CFI_LEAVE_MULTICAST_REQ, deviceId, mac, filter, clientData);
}

u8* Cfi_getSendBuffer(CfiProxy* p, u32 deviceId, u32 frameLength, u32 metadataLength)
{
    constexpr u32 LONGEST = 2048;
    if (p == nullptr || p->service.server == 0 || p->sending != nullptr || frameLength > LONGEST)
        return nullptr;
    p->sending = ose::alloc(static_cast<u32>(sizeof(CfiSendFrameReq)) + frameLength, CFI_SEND_FRAME_REQ);
    auto* req = reinterpret_cast<CfiSendFrameReq*>(p->sending);
    req->deviceId = deviceId;
    req->length = frameLength;
    req->metalength = metadataLength;
    return frameOf(p->sending);
}

u32 Cfi_sendFrame(CfiProxy* p, u8* buffer)
{
    if (p == nullptr || p->sending == nullptr || buffer != frameOf(p->sending)) return NO_BUFFER;
    ose::send(&p->sending, p->service.server);
    return node::PROXY_DONE;
}

}  // namespace node
