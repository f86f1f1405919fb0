#include "node/pktsyncdrv.h"

#include "node/pktsyncdrv_sig.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

namespace node {

struct PktsyncDrvProxy {
    bool used = false;
    ProtocolVersions wanted{};
    ServiceProxy service;
};

}  // namespace node

namespace {

using node::PktsyncDrvProxy;

enum Result : u32 { DONE = 0, NO_PROXY = 1, NOT_CONNECTED = 2 };

struct State { PktsyncDrvProxy proxy; };
ose::ModuleData<State> s;

u32 request(PktsyncDrvProxy* p, SIGSELECT sigNo, u32 syncRefFroId, const PktsyncDrvRef& ref)
{
    if (p == nullptr || p->service.server == 0) return NOT_CONNECTED;
    auto* req = node::make<PktsyncDrvReq>(sigNo);
    req->syncRefFroId = syncRefFroId;
    req->ref = ref;
    node::sendTo(p->service.server, req);
    return DONE;
}

}  // namespace

namespace node {

PktsyncDrvProxy* PktsyncDrv_initiateMemory()
{
    if (s->proxy.used) return nullptr;
    s->proxy = {};
    s->proxy.used = true;
    return &s->proxy;
}

void PktsyncDrv_freeMemory(PktsyncDrvProxy* p)
{
    if (p == nullptr) return;
    proxyForget(p->service);
    *p = {};
}

u32 PktsyncDrv_initiateServiceReq(PktsyncDrvProxy* p, u32 firstPv, u32 secondPv, u32 thirdPv,
                                  u32 fourthPv)
{
    if (p == nullptr) return NO_PROXY;
    p->wanted = {firstPv, secondPv, thirdPv, fourthPv};
    proxyHunt(PKTSYNCDRV_SERVER_NAME, PKTSYNCDRV_SERVER_UP_IND);
    return DONE;
}

u32 PktsyncDrv_internal(PktsyncDrvProxy* p, const Signal* sig)
{
    if (p == nullptr) return NO_PROXY;
    switch (sig->sigNo) {
    case PKTSYNCDRV_SERVER_UP_IND:
        if (proxyServerUp(p->service, sig, PKTSYNCDRV_SERVER_DOWN_IND) != 0) return NOT_CONNECTED;
        proxyInitiate(p->service, PKTSYNCDRV_INITIATE_SERVICE_REQ, p->wanted);
        return DONE;
    case PKTSYNCDRV_SERVER_DOWN_IND:
        return node::proxyServerDown(p->service, sig) == 0 ? DONE : NOT_CONNECTED;
    default:
        return DONE;
    }
}

u32 PktsyncDrv_setPktSyncReq(PktsyncDrvProxy* p, u32 syncRefFroId, const PktsyncDrvRef& ref)
{
    return request(p, PKTSYNCDRV_SETSYNCREF_REQ, syncRefFroId, ref);
}

u32 PktsyncDrv_changePktSyncReq(PktsyncDrvProxy* p, u32 syncRefFroId, const PktsyncDrvRef& ref)
{
    return request(p, PKTSYNCDRV_CHANGESYNCREF_REQ, syncRefFroId, ref);
}

u32 PktsyncDrv_deletePktSyncReq(PktsyncDrvProxy* p, u32 syncRefFroId)
{
    return request(p, PKTSYNCDRV_DELETESYNCREF_REQ, syncRefFroId, {});
}

}  // namespace node
