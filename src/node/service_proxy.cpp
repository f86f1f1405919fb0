#include "node/service_proxy.h"

#include "node/sig.h"
#include "ose/ose.h"

namespace node {

u32 proxyInitiateService(ServiceProxy& proxy, const ProxyService& service, const ProtocolVersions& wanted)
{
    proxy.wanted = wanted;
    proxyHunt(service.serverName, service.upInd);
    return PROXY_DONE;
}

u32 proxyInternal(ServiceProxy& proxy, const ProxyService& service, const Signal* sig)
{
    if (sig->sigNo == service.downInd)
        return proxyServerDown(proxy, sig) == 0 ? PROXY_DONE : PROXY_NOT_CONNECTED;
    if (sig->sigNo != service.upInd) return PROXY_DONE;
    if (proxyServerUp(proxy, sig, service.downInd) != 0) return PROXY_NOT_CONNECTED;
    return proxyAskAgain(proxy, service);
}

u32 proxyAskAgain(const ServiceProxy& proxy, const ProxyService& service)
{
    if (proxy.server == 0) return PROXY_NOT_CONNECTED;
    auto* req = make<ProxyInitiateReq>(service.initiateReq);
    req->wanted = proxy.wanted;
    sendTo(proxy.server, req);
    return PROXY_DONE;
}

void proxyHunt(const char* serverName, SIGSELECT upInd)
{
    Signal* up = ose::alloc(sizeof(SIGSELECT), upInd);
    ose::hunt(serverName, 0, nullptr, &up);
}

u32 proxyServerUp(ServiceProxy& proxy, const Signal* upInd, SIGSELECT downInd)
{
    const PROCESS server = senderOf(upInd);
    if (ose::process_name(server) == nullptr) return 1;
    proxyForget(proxy);
    proxy.server = server;
    Signal* down = ose::alloc(sizeof(SIGSELECT), downInd);
    proxy.attachRef = ose::attach(&down, server);
    return 0;
}

u32 proxyServerDown(ServiceProxy& proxy, const Signal* downInd)
{
    if (proxy.server == 0 || senderOf(downInd) != proxy.server) return 1;
    proxy.server = 0;
    proxy.attachRef = 0;
    return 0;
}

void proxyForget(ServiceProxy& proxy)
{
    // A server that is gone has told so already, or is about to: only a living one is let go of.
    if (proxy.attachRef != 0 && ose::process_name(proxy.server) != nullptr) ose::detach(&proxy.attachRef);
    proxy.server = 0;
    proxy.attachRef = 0;
}

}  // namespace node
