#include "node/service_proxy.h"

#include "node/sig.h"
#include "ose/ose.h"

namespace node {

void proxyHunt(const char* serverName, SIGSELECT upInd)
{
    Signal* up = ose::alloc(sizeof(SIGSELECT), upInd);
    ose::hunt(serverName, 0, nullptr, &up);
}

u32 proxyServerUp(ServiceProxy& proxy, const Signal* upInd, SIGSELECT downInd)
{
    Signal* sig = const_cast<Signal*>(upInd);
    const PROCESS server = ose::sender(&sig);
    if (ose::process_name(server) == nullptr) return 1;
    proxyForget(proxy);
    proxy.server = server;
    Signal* down = ose::alloc(sizeof(SIGSELECT), downInd);
    proxy.attachRef = ose::attach(&down, server);
    return 0;
}

u32 proxyServerDown(ServiceProxy& proxy, const Signal* downInd)
{
    Signal* sig = const_cast<Signal*>(downInd);
    if (proxy.server == 0 || ose::sender(&sig) != proxy.server) return 1;
    proxy = {};
    return 0;
}

void proxyInitiate(const ServiceProxy& proxy, SIGSELECT request, const ProtocolVersions& wanted)
{
    auto* req = make<ProxyInitiateReq>(request);
    req->wanted = wanted;
    sendTo(proxy.server, req);
}

void proxyForget(ServiceProxy& proxy)
{
    // A server that is gone has told so already, or is about to: only a living one is let go of.
    if (proxy.attachRef != 0 && ose::process_name(proxy.server) != nullptr) ose::detach(&proxy.attachRef);
    proxy = {};
}

}  // namespace node
