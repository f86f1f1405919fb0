// service_proxy.h - What the proxies of the packet services share: a server that is hunted for by its
// name, found, and gone again. Each step reaches the client as a signal of the service's own numbers.
#pragma once
#include "ose/types.h"

#include <array>

struct Signal;

namespace node {

/// Protocol versions that a client can speak, the best first; 0 where there is none.
using ProtocolVersions = std::array<u32, 4>;

/// Results of a proxy's calls, beside the service's own.
enum ProxyResult : u32 { PROXY_DONE = 0, PROXY_NONE = 1, PROXY_NOT_CONNECTED = 2 };

struct ServiceProxy {
    bool used = false;           // handed out
    ProtocolVersions wanted{};
    PROCESS server = 0;          // 0 until it is there
    AttachRef attachRef = 0;     // 0 when its death was told
};

/// A service: its server's name, and the numbers of its connection.
struct ProxyService {
    const char* serverName;
    SIGSELECT upInd, downInd, initiateReq;
};
/// Looks for the server; its answer to the initiation comes as a signal.
u32  proxyInitiateService(ServiceProxy& proxy, const ProxyService& service, const ProtocolVersions& wanted);
/// Takes one of the service's own signals: found, the server is asked for protocol versions.
u32  proxyInternal(ServiceProxy& proxy, const ProxyService& service, const Signal* sig);
/// Repeats that to a server which said nothing to it; PROXY_NOT_CONNECTED when there is none.
u32  proxyAskAgain(const ServiceProxy& proxy, const ProxyService& service);

/// `upInd` comes to the caller, sent by the server, as soon as there is one.
void proxyHunt(const char* serverName, SIGSELECT upInd);
/// The server of that signal is there; `downInd` comes when it dies. 0 done, 1 when it is dead already.
u32  proxyServerUp(ServiceProxy& proxy, const Signal* upInd, SIGSELECT downInd);
/// The server is gone. 1 when it isn't the present one: a word of a connection before.
u32  proxyServerDown(ServiceProxy& proxy, const Signal* downInd);
/// Lets go of the server.
void proxyForget(ServiceProxy& proxy);

/// Request of a client to its server: the protocol versions that it can speak.
struct ProxyInitiateReq {
    SIGSELECT sigNo;
    ProtocolVersions wanted;
};
static_assert(sizeof(ProxyInitiateReq) == 20);

/// The server's answers, CFM, SUS and REJ alike.
struct ProxyInitiateAnswer {
    SIGSELECT sigNo;
    u32 pv;                      // selected, or the highest that there is
};
static_assert(sizeof(ProxyInitiateAnswer) == 8);

}  // namespace node
