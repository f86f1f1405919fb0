#include "node/ipsynctsi.h"

#include "node/ipsynctsi_sig.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

namespace node {

struct IpsynctsiProxy {
    bool used = false;
    bool initiated = false;
    bool asked = false;         // the server has got the request
    u32 pv[3] = {};
    PROCESS server = 0;         // 0: not found yet, or gone
    AttachRef attachRef = 0;
};

}  // namespace node

namespace {

using node::IpsynctsiProxy;

struct State {
    IpsynctsiProxy proxy;       // one a program
    bool hunting = false;       // a hunt can't be taken back: it outlives the proxy that began it
};
ose::ModuleData<State> s;

bool isProxy(const IpsynctsiProxy* handle) { return handle == &s->proxy && s->proxy.used; }

void hunt()
{
    if (s->hunting) return;
    s->hunting = true;
    Signal* up = ose::alloc(sizeof(SIGSELECT), IPSYNCTSI_SERVER_UP_IND);
    ose::hunt(IPSYNCTSI_SERVER_NAME, 0, nullptr, &up);
}

void ask(IpsynctsiProxy& p)
{
    auto* req = node::make<IpsynctsiInitiateServiceReq>(IPSYNCTSI_INITIATE_SERVICE_REQ);
    req->pvFirstWanted = p.pv[0];
    req->pvSecondWanted = p.pv[1];
    req->pvThirdWanted = p.pv[2];
    node::sendTo(p.server, req);
    p.asked = true;
}

u32 onServerUp(IpsynctsiProxy& p, PROCESS server)
{
    if (!p.initiated) return node::IPSYNCTSI_NOT_ASKED;
    if (p.server != 0 && p.server != server) return node::IPSYNCTSI_OTHER_SERVER;
    if (p.server == 0) {
        p.server = server;
        Signal* down = ose::alloc(sizeof(SIGSELECT), IPSYNCTSI_SERVER_DOWN_IND);
        p.attachRef = ose::attach(&down, server);
    }
    ask(p);
    return node::IPSYNCTSI_DONE;
}

}  // namespace

namespace node {

u32 Ipsynctsi_createProxy(IpsynctsiProxy*& handle)
{
    if (s->proxy.used) return IPSYNCTSI_NO_PROXY_FREE;
    s->proxy.used = true;
    handle = &s->proxy;
    return IPSYNCTSI_DONE;
}

u32 Ipsynctsi_freeProxy(IpsynctsiProxy*& handle)
{
    if (!isProxy(handle)) return IPSYNCTSI_NO_PROXY;
    // A server that is gone has told so already, or is about to: only a living one is let go of.
    if (handle->attachRef != 0 && ose::process_name(handle->server) != nullptr)
        ose::detach(&handle->attachRef);
    *handle = IpsynctsiProxy{};
    handle = nullptr;
    return IPSYNCTSI_DONE;
}

u32 Ipsynctsi_initiateService(IpsynctsiProxy* handle, u32 pvFirst, u32 pvSecond, u32 pvThird)
{
    if (!isProxy(handle)) return IPSYNCTSI_NO_PROXY;
    if (handle->initiated) return IPSYNCTSI_ALREADY_ASKED;
    handle->initiated = true;
    handle->pv[0] = pvFirst;
    handle->pv[1] = pvSecond;
    handle->pv[2] = pvThird;
    hunt();
    return IPSYNCTSI_DONE;
}

u32 Ipsynctsi_askAgain(IpsynctsiProxy* handle)
{
    if (!isProxy(handle)) return IPSYNCTSI_NO_PROXY;
    if (!handle->asked) return IPSYNCTSI_NOT_ASKED;
    ask(*handle);
    return IPSYNCTSI_DONE;
}

u32 Ipsynctsi_internal(IpsynctsiProxy* handle, const Signal* sig)
{
    if (sig->sigNo == IPSYNCTSI_SERVER_UP_IND) s->hunting = false;
    if (!isProxy(handle)) return IPSYNCTSI_NO_PROXY;
    switch (sig->sigNo) {
    case IPSYNCTSI_SERVER_UP_IND: return onServerUp(*handle, senderOf(sig));
    case IPSYNCTSI_INITIATE_SERVICE_CFM:
    case IPSYNCTSI_INITIATE_SERVICE_REJ:
    case IPSYNCTSI_INITIATE_SERVICE_SUS: return handle->asked ? IPSYNCTSI_DONE : IPSYNCTSI_NOT_ASKED;
    case IPSYNCTSI_SERVER_DOWN_IND:
        handle->attachRef = 0;
        handle->server = 0;
        handle->asked = false;
        return IPSYNCTSI_DONE;
    default: return IPSYNCTSI_DONE;
    }
}

}  // namespace node
