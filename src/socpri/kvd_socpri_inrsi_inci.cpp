// Exchange of sync data with the units behind the links: its process, and which connections it is to have.
#include "socpri/kvd_socpri_inrsi_int.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "socpri/kvd_ngpduh_proc.h"

#include <cstring>

namespace inrsi {

namespace {

void sendRelease(u8 port, u32 sharedUnitId, u32 remove)
{
    auto* req = node::make<KvdTuSocpriInciReleaseReq>(KVD_TUSOCPRI_INCI_RELEASE_REQ);
    req->cpriPortNo = port;
    req->sharedId = sharedUnitId;
    req->remove = remove;
    node::sendTo(KvdLoz6NgPduh_pid(), req);
}

}  // namespace

void establishInci(u8 port, Slot& slot)
{
    if (KvdLoz6NgPduh_pid() == 0) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO, "no process for NGSC-INCI yet, portNo = %u, sharedId = %u", port,
                  slot.sharedUnitId);
        return;
    }
    if (slot.inciEstablishStatus != INCI_NONE) {
        KVD_TRACE(TRACE_INRSI, TRACE_INFO,
                  "NGSC-INCI already established for portNo = %u, sharedId = %u, huntPathPrefix = %s", port,
                  slot.sharedUnitId, slot.huntPathPrefix);
        return;
    }
    slot.inciEstablishStatus = INCI_ASKED;
    auto* req = node::make<KvdTuSocpriInciEstablishReq>(KVD_TUSOCPRI_INCI_ESTABLISH_REQ);
    std::memcpy(req->huntPathPrefix, slot.huntPathPrefix, sizeof req->huntPathPrefix);
    req->cpriPortNo = port;
    req->sharedId = slot.sharedUnitId;
    req->subsumedUnitId = slot.subsumedUnitId;
    node::sendTo(KvdLoz6NgPduh_pid(), req);
}

void releaseInci(Client& c, u8 port)
{
    for (Slot& slot : c.cpriPortStatus[port]) {
        if (slot.inciEstablishStatus == INCI_NONE) continue;
        sendRelease(port, slot.sharedUnitId, 0);
        slot.inciEstablishStatus = INCI_NONE;
    }
}

void startInci(Client& c)
{
    KvdLoz6NgPduh_start();
    for (const u8 port : PORTS_A_TO_F) {
        if (!c.subscribed[port]) continue;
        for (Slot& slot : c.cpriPortStatus[port])
            if (slot.linkStatus == LINK_AVAILABLE && slot.inciEstablishStatus == INCI_NONE)
                establishInci(port, slot);
    }
}

void onInciEstablishRsp(Client& c, const KvdTuSocpriInciEstablishRsp* rsp)
{
    if (rsp == nullptr) return;
    Slot* const slot = findUnit(c, rsp->cpriPortNo, rsp->sharedId);
    if (slot == nullptr) return;
    if (rsp->subsumedIdValid != 0) sendRelease(rsp->cpriPortNo, rsp->subsumedUnitId, 1);
    slot->inciEstablishStatus = INCI_ESTABLISHED;
}

void killInci(Client& c)
{
    KvdLoz6NgPduh_kill();
    for (PortUnits& units : c.cpriPortStatus)
        for (Slot& slot : units) slot.inciEstablishStatus = INCI_NONE;
}
}  // namespace inrsi
