#include "pktsync/tupktsync_drv_client.h"

#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_ptp_protocol.h"
#include "pktsync/tupktsync_syncref_ctrl.h"

#include <iterator>

namespace {

constexpr u32 PV = 1;

enum class Request : u32 { None, Set, Delete };
/// The last request for a syncref; the driver's answer tells the froId alone.
struct Asked {
    Request request = Request::None;
    u32 froId = 0;
};

struct State {
    u32 state = DRV_NOT_AVAILABLE;
    u32 selectedPv = 0;
    node::PktsyncDrvProxy* proxy = nullptr;
    std::array<Asked, PTP_CLOCKS> asked{};
};
ose::ModuleData<State> s;

bool isIn(u32 state, const char* signal)
{
    if (s->state == state) return true;
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_2,
              "TuPktsync_PktSyncDrvClient: Wrong state when receiving %s", signal);
    return false;
}

bool internal(const Signal* sig)
{
    const u32 result = node::PktsyncDrv_internal(s->proxy, sig);
    if (result != 0)
        KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
                  "TuPktsync_PktSyncDrvClient: Proxy error %u", result);
    return result == 0;
}

void reportReady() { TuPktsync_Root_initReady(TUPKTSYNC_OBJECT_PKTSYNCDRV_CLIENT); }

void onServerUp(const Signal* sig)
{
    if (!isIn(DRV_WAIT_FOR_SERVER_UP, "PKTSYNCDRV_SERVER_UP_IND")) return;
    internal(sig);
    s->state = DRV_WAIT_FOR_INIT_RESPONS;
}

void onConfirm(const Signal* sig)
{
    if (!isIn(DRV_WAIT_FOR_INIT_RESPONS, "PKTSYNCDRV_INITIATE_SERVICE_CFM")) return;
    const auto* cfm = as<node::ProxyInitiateAnswer>(sig);
    if (cfm == nullptr) return;
    if (cfm->pv != PV)
        KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
                  "TuPktsync_PktSyncDrvClient: Wrong PV has been used. /n");
    internal(sig);
    s->selectedPv = cfm->pv;
    s->state = DRV_AVAILABLE;
    reportReady();
}

void onSuspend()
{
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
              "TuPktsync_PktSyncDrvClient: PKTSYNCDRV_INITIATE_SERVICE_SUS received; service is not "
              "available!");
    s->state = DRV_NOT_AVAILABLE;
    reportReady();
}

void onReject(const Signal* sig)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
              "TuPktsync_PktSyncDrvClient: PKTSYNCDRV_INITIATE_SERVICE_REJ received; indicates build "
              "fault!");
    internal(sig);
    s->state = DRV_NOT_AVAILABLE;
    reportReady();
}

void onServerDown(const Signal* sig)
{
    if (!internal(sig)) return;
    s->state = DRV_NOT_AVAILABLE;
    TuPktsync_SyncrefCtrl_handleServerDownInd();
}

void onAnswer(const Signal* sig, const char* name, Request request, void (*tell)(u32 syncrefId))
{
    if (!isIn(DRV_AVAILABLE, name)) return;
    const auto* cfm = as<PktsyncDrvCfm>(sig);
    if (cfm == nullptr) return;
    for (u32 id = 0; id < PTP_CLOCKS; ++id) {
        Asked& asked = s->asked[id];
        if (asked.request != request || asked.froId != cfm->syncRefFroId) continue;
        asked.request = Request::None;
        return tell(id);
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
              "TuPktsync_PktSyncDrvClient: %s for froId %u, which nobody waits for", name, cfm->syncRefFroId);
}

void onTimestamp(const Signal* sig)
{
    if (!isIn(DRV_AVAILABLE, "PKTSYNCDRV_TIMESTAMP_IND")) return;
    const auto* ind = as<PktsyncDrvTimestampInd>(sig);
    if (ind == nullptr) return;
    u8 metadata[8];
    node::putBe32(metadata, ind->MetadataH);
    node::putBe32(metadata + 4, ind->MetadataL);
    TuPktsync_PTP_egressTimestamp(metadata, {ind->TimestampH, ind->TimestampL});
}

bool isOperative()
{
    if (s->state == DRV_AVAILABLE) return true;
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_1,
              "TuPktsync_PktSyncDrvClient: Wrong state (%s) to send operative PKTSYNCDRV signal",
              TuPktsync_drvStateText(s->state));
    return false;
}

/// A request to the driver; 0 when it couldn't be asked.
template <typename Call>
u32 ask(Call call)
{
    if (!isOperative()) return 0;
    const u32 result = call();
    if (result == 0) return 1;
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
              "TuPktsync_PktSyncDrvClient: request failed, result=%u", result);
    return 0;
}

}  // namespace

void TuPktsync_PktsyncDriverClient_init()
{
    s->state = DRV_NOT_AVAILABLE;
    s->asked.fill({});
    s->proxy = node::PktsyncDrv_initiateMemory();
    const u32 result = node::PktsyncDrv_initiateServiceReq(s->proxy, PV, PV, PV, PV);
    if (result != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
                  "PktsyncDrv_initiateServiceReq failed, result=%u", result);
        return;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_INFO, "TUPKTSYNC: PKTSYNCDRV interface initiated");
    s->state = DRV_WAIT_FOR_SERVER_UP;
}

void TuPktsync_PktSyncDrvClient_reset()
{
    node::PktsyncDrv_freeMemory(s->proxy);
    s->proxy = nullptr;
    s->state = DRV_NOT_AVAILABLE;
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_INFO,
              "TUPKTSYNC: PKTSYNCDRV proxy memory freed and state set to NOT_AVAILABLE");
}

int TuPktsync_PktSyncDrvClient_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case PKTSYNCDRV_SERVER_UP_IND:        onServerUp(sig);   return 1;
    case PKTSYNCDRV_SERVER_DOWN_IND:      onServerDown(sig); return 1;
    case PKTSYNCDRV_INITIATE_SERVICE_CFM: onConfirm(sig);    return 1;
    case PKTSYNCDRV_INITIATE_SERVICE_SUS: onSuspend();       return 1;
    case PKTSYNCDRV_INITIATE_SERVICE_REJ: onReject(sig);     return 1;
    case PKTSYNCDRV_SETSYNCREF_CFM:
        onAnswer(sig, "PKTSYNCDRV_SETSYNCREF_CFM", Request::Set, TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm);
        return 1;
    case PKTSYNCDRV_CHANGESYNCREF_CFM:
        if (isIn(DRV_AVAILABLE, "PKTSYNCDRV_CHANGESYNCREF_CFM")) TuPktsync_SyncrefCtrl_PktSyncDrvChangeCfm();
        return 1;
    case PKTSYNCDRV_DELETESYNCREF_CFM:
        onAnswer(sig, "PKTSYNCDRV_DELETESYNCREF_CFM", Request::Delete,
                 TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm);
        return 1;
    case PKTSYNCDRV_TIMESTAMP_IND:        onTimestamp(sig);  return 1;
    default:                              return 0;
    }
}

u32 TuPktsync_PktSyncDrvClient_setSyncRefReq(u32 froId, const PktsyncDrvRef& ref)
{
    s->asked[ref.syncrefId] = {Request::Set, froId};
    return ask([&] { return node::PktsyncDrv_setPktSyncReq(s->proxy, froId, ref); });
}

u32 TuPktsync_PktSyncDrvClient_changeSyncRefReq(u32 froId, const PktsyncDrvRef& ref)
{
    return ask([&] { return node::PktsyncDrv_changePktSyncReq(s->proxy, froId, ref); });
}

u32 TuPktsync_PktSyncDrvClient_deleteSyncRefReq(u32 froId, u32 syncrefId)
{
    s->asked[syncrefId] = {Request::Delete, froId};
    return ask([&] { return node::PktsyncDrv_deletePktSyncReq(s->proxy, froId); });
}

u32 TuPktsync_PktSyncDrvClient_state() { return s->state; }

const char* TuPktsync_drvStateText(u32 state)
{
    static constexpr const char* TEXTS[] = {"NOT_AVAILABLE", "WAIT_FOR_SERVER_UP",
                                            "WAIT_FOR_INIT_RESPONS", "AVAILABLE"};
    return state < std::size(TEXTS) ? TEXTS[state] : "UNKNOWN";
}
