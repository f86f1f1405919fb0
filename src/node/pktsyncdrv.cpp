#include "node/pktsyncdrv.h"

#include "node/pktsyncdrv_sig.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "ose/ose.h"

namespace node {

struct PktsyncDrvProxy {
    ServiceProxy service;
};

}  // namespace node

namespace {

using node::PktsyncDrvProxy;

constexpr node::ProxyService SERVICE{PKTSYNCDRV_SERVER_NAME, PKTSYNCDRV_SERVER_UP_IND,
                                     PKTSYNCDRV_SERVER_DOWN_IND, PKTSYNCDRV_INITIATE_SERVICE_REQ};

struct State { PktsyncDrvProxy proxy; };
ose::ModuleData<State> s;

u32 request(PktsyncDrvProxy* p, SIGSELECT sigNo, u32 syncRefFroId, const PktsyncDrvRef& ref)
{
    if (p == nullptr || p->service.server == 0) return node::PROXY_NOT_CONNECTED;
    auto* req = node::make<PktsyncDrvReq>(sigNo);
    req->syncRefFroId = syncRefFroId;
    req->ref = ref;
    node::sendTo(p->service.server, req);
    return node::PROXY_DONE;
}

}  // namespace

namespace node {

PktsyncDrvProxy* PktsyncDrv_initiateMemory()
{
    if (s->proxy.service.used) return nullptr;
    s->proxy.service.used = true;
    return &s->proxy;
}

void PktsyncDrv_freeMemory(PktsyncDrvProxy* p)
{
    if (p == nullptr) return;
    proxyForget(p->service);
    *p = {};
}

u32 PktsyncDrv_initiateServiceReq(PktsyncDrvProxy* p, u32 firstPv, u32 secondPv, u32 thirdPv, u32 fourthPv)
{
    if (p == nullptr) return PROXY_NONE;
    return proxyInitiateService(p->service, SERVICE, {firstPv, secondPv, thirdPv, fourthPv});
}

u32 PktsyncDrv_internal(PktsyncDrvProxy* p, const Signal* sig)
{
    return p != nullptr ? proxyInternal(p->service, SERVICE, sig) : u32{PROXY_NONE};
}

u32 PktsyncDrv_askAgain(const PktsyncDrvProxy* p)
{
    return p != nullptr ? proxyAskAgain(p->service, SERVICE) : u32{PROXY_NONE};
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
