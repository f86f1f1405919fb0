#include "sim/node/phy_port_server.h"

#include "node/phyport.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {
enum StateControl : u32 { ADD = 0, DELETE = 1, CHANGE = 2 };
}  // namespace

PhyPortServer::PhyPortServer(Node& node, const std::vector<PhyPort>& ports)
    : Server(node, PHY_PORTINFO_SERVICE_NAME, 10), ports_(ports)
{
}

void PhyPortServer::add(const PhyPort& port)
{
    ports_.push_back(port);
    announce(port, ADD);
}

void PhyPortServer::change(u32 line, const PhyPort& port)
{
    for (PhyPort& p : ports_) {
        if (p.line != line) continue;
        p = port;
        announce(port, CHANGE);
        return;
    }
}

void PhyPortServer::put(const PhyPort& port)
{
    std::erase_if(ports_, [&](const PhyPort& p) { return p.line != port.line && p.froId == port.froId; });
    if (std::any_of(ports_.begin(), ports_.end(), [&](const PhyPort& p) { return p.line == port.line; }))
        change(port.line, port);
    else
        add(port);
}

void PhyPortServer::remove(u32 line)
{
    for (const PhyPort& p : ports_)
        if (p.line == line) announce(p, DELETE);
    std::erase_if(ports_, [line](const PhyPort& p) { return p.line == line; });
}

void PhyPortServer::setSyncState(u32 line, u32 syncState)
{
    for (PhyPort& p : ports_)
        if (p.line == line) p.syncState = static_cast<u8>(syncState);
    tell(PhyportSyncStateInd{PHYPORT_SYNC_STATE_IND, line, syncState});
}

void PhyPortServer::disconnect() { tell(PhyportCepInd{PHYPORT_CEP_DOWN_IND, cepId}); }

void PhyPortServer::connect()
{
    tell(PhyportCepInd{PHYPORT_CEP_UP_IND, cepId});
    announceAll();
}

void PhyPortServer::die()
{
    client_ = 0;
    Server::die();
}

void PhyPortServer::onSignal(Signal* sig, PROCESS from)
{
    if (sig->sigNo != PHYPORT_CONNECT_REQ || ose::sigsize(&sig) < sizeof(PhyportConnectReq)) return;
    if (answer() == Answer::Silent) return;
    const auto* req = reinterpret_cast<const PhyportConnectReq*>(sig);
    const bool wrongInterface = req->interfaceNumber != PHY_PORTINFO_INTERFACE;
    if (answer() != Answer::Accept || wrongInterface || req->pvFirst > highestPv)
        return send(from, PhyportConnectRej{PHYPORT_CONNECT_REJ, highestPv});

    client_ = from;
    send(from, PhyportConnectCfm{PHYPORT_CONNECT_CFM, std::min(req->pvSecond, highestPv)});
    connect();
}

template <typename T>
void PhyPortServer::tell(const T& layout)
{
    if (client_ == 0) return;
    // Called by the script as well as by the server's own process: both go as events of the world,
    // so that their order is the order of the calls.
    node_.after(0, [this, layout, client = client_] {
        node_.system().inject(std::as_bytes(std::span(&layout, 1)), client, pid());
    });
}

void PhyPortServer::announce(const PhyPort& port, u32 stateControl)
{
    tell(PhyportPortInfoInd{PHYPORT_PORT_INFO_IND, cepId, port.line, port.froId, stateControl, port.operState,
                            port.admState});
    if (stateControl == ADD) tell(PhyportSyncStateInd{PHYPORT_SYNC_STATE_IND, port.line, port.syncState});
}

void PhyPortServer::announceAll()
{
    for (const PhyPort& p : ports_) announce(p, ADD);
}

}  // namespace sim
