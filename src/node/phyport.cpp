#include "node/phyport.h"

#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <algorithm>
#include <array>

namespace {

constexpr u32 CEPS_MAX = 8;   // connection end points of one server

struct State {
    const char* serviceName = nullptr;   // nullptr: not registered
    u32 interfaceNumber = 0;
    u32 pvFirst = 0, pvSecond = 0;
    node::PhyPortCallbacks callbacks{};
    PROCESS server = 0;
    AttachRef attachRef = 0;
    bool isAwaited = false;              // asked, and it said nothing yet
    std::array<u32, CEPS_MAX> cep{};     // 0 is free
};
ose::ModuleData<State> s;

void huntServer()
{
    Signal* up = ose::alloc(sizeof(SIGSELECT), PHYPORT_SERVER_UP_IND);
    ose::hunt(s->serviceName, 0, nullptr, &up);
}

/// Puts `to` in the place of `from`; 0 when `from` isn't in the list.
int replaceCep(u32 from, u32 to)
{
    const auto slot = std::find(s->cep.begin(), s->cep.end(), from);
    if (slot == s->cep.end()) return 0;
    *slot = to;
    return 1;
}

bool knowsCep(u32 cepId) { return std::find(s->cep.begin(), s->cep.end(), cepId) != s->cep.end(); }

void ask()
{
    auto* req = node::make<PhyportConnectReq>(PHYPORT_CONNECT_REQ);
    req->interfaceNumber = s->interfaceNumber;
    req->pvFirst = s->pvFirst;
    req->pvSecond = s->pvSecond;
    node::sendTo(s->server, req);
    s->isAwaited = true;
}

void onServerUp(PROCESS server)
{
    if (s->server != 0) return;   // a second answer to the hunt
    s->server = server;
    Signal* down = ose::alloc(sizeof(SIGSELECT), PHYPORT_SERVER_DOWN_IND);
    s->attachRef = ose::attach(&down, server);
    ask();
}

void onServerDown()
{
    s->server = 0;
    s->attachRef = 0;
    s->isAwaited = false;
    for (u32& cep : s->cep) {
        if (cep == 0) continue;
        const u32 lost = cep;
        cep = 0;
        s->callbacks.disconnected(lost);
    }
    huntServer();
}

void onCepUp(const PhyportCepInd* ind)
{
    if (ind == nullptr || ind->cepId == 0 || knowsCep(ind->cepId)) return;
    if (replaceCep(0, ind->cepId) == 0) return;   // more end points than the service offers
    s->callbacks.connected(ind->cepId);
}

void onCepDown(const PhyportCepInd* ind)
{
    if (ind == nullptr || ind->cepId == 0 || replaceCep(ind->cepId, 0) == 0) return;
    s->callbacks.disconnected(ind->cepId);
}

void onSyncState(const PhyportSyncStateInd* ind)
{
    if (ind == nullptr) return;
    s->callbacks.syncStateChange(ind->line, ind->syncState);
}

void onPortInfo(const PhyportPortInfoInd* ind)
{
    if (ind == nullptr) return;
    s->callbacks.portInfo({ind->cepId, ind->line, ind->froId, ind->stateControl, ind->opState, ind->adState});
}

}  // namespace

namespace node {

u32 PhyPortInfo_attach(const char* serviceName, u32 interfaceNumber, u32 pvFirst, u32 pvSecond,
                       const PhyPortCallbacks& callbacks)
{
    if (callbacks.connected == nullptr || callbacks.disconnected == nullptr
        || callbacks.syncStateChange == nullptr || callbacks.portInfo == nullptr)
        return 1;
    if (s->serviceName != nullptr) return 1;
    s->serviceName = serviceName;
    s->interfaceNumber = interfaceNumber;
    s->pvFirst = pvFirst;
    s->pvSecond = pvSecond;
    s->callbacks = callbacks;
    huntServer();
    return 0;
}

int PhyPortInfo_dispatch(const Signal* sig)
{
    if (sig->sigNo < PHYPORT_SERVER_UP_IND || sig->sigNo > PHYPORT_PORT_INFO_IND) return 0;
    if (s->serviceName == nullptr) return 1;   // nobody is registered: nothing to tell
    switch (sig->sigNo) {
    case PHYPORT_SERVER_UP_IND:   onServerUp(senderOf(sig));         break;
    case PHYPORT_SERVER_DOWN_IND: onServerDown();                             break;
    case PHYPORT_CEP_UP_IND:      onCepUp(as<PhyportCepInd>(sig));            break;
    case PHYPORT_CEP_DOWN_IND:    onCepDown(as<PhyportCepInd>(sig));          break;
    case PHYPORT_SYNC_STATE_IND:  onSyncState(as<PhyportSyncStateInd>(sig));  break;
    case PHYPORT_PORT_INFO_IND:   onPortInfo(as<PhyportPortInfoInd>(sig));    break;
    // A confirmation needs no step: the end points follow it. A server that rejects stays attached,
    // and the next one to come up under its name is asked again.
    default:                      s->isAwaited = false;                       break;
    }
    return 1;
}

bool PhyPortInfo_owesAnswer() { return s->isAwaited; }

void PhyPortInfo_askAgain()
{
    if (s->isAwaited) ask();
}

}  // namespace node
