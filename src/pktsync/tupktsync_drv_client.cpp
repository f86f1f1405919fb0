#include "pktsync/tupktsync_drv_client.h"

#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_ptp_protocol.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "sig/tupktsync_sig.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr u32 PV = 1;
constexpr KvdAnswerOf ANSWER{TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, "PKTSYNCDRV", TUPKTSYNC_DRV_ANSWER_TMO};

enum Request : u32 { SET = 0x1, CHANGE = 0x2, DELETE = 0x4 };
/// What the driver is to know of a syncref, and the requests about it that it hasn't answered: its answers
/// tell the froId alone.
struct Asked {
    bool isUsed = false;             // with a reference that can be told again
    u32 awaits = 0;                  // Request
    u32 froId = 0;
    PktsyncDrvRef ref{};
};

struct State {
    u32 state = DRV_NOT_AVAILABLE;
    bool isSuspended = false;        // it may serve later
    node::PktsyncDrvProxy* proxy = nullptr;
    KvdTimer answerTimer;
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

void awaitAnswer() { KvdAnswer_await(s->answerTimer, ANSWER); }

// ---- connection ---------------------------------------------------------------------------------

void lookForServer()
{
    const u32 result = node::PktsyncDrv_initiateServiceReq(s->proxy, PV, PV, PV, PV);
    if (result != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
                  "PktsyncDrv_initiateServiceReq failed, result=%u", result);
        return;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_INFO, "TUPKTSYNC: PKTSYNCDRV interface initiated");
    s->state = DRV_WAIT_FOR_SERVER_UP;
}

/// One that died as it was found leaves nobody to ask.
void askForService()
{
    if (node::PktsyncDrv_askAgain(s->proxy) == 0) awaitAnswer();
    else                                          lookForServer();
}

void onServerUp(const Signal* sig)
{
    if (!isIn(DRV_WAIT_FOR_SERVER_UP, "PKTSYNCDRV_SERVER_UP_IND")) return;
    internal(sig);
    s->state = DRV_WAIT_FOR_INIT_RESPONS;
    awaitAnswer();
}

/// The chain of starts went on without the service, and begins anew with it.
void onServesAgain()
{
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_INFO, "TUPKTSYNC: PKTSYNCDRV serves again");
    TuPktsync_SyncrefCtrl_handleServerDownInd();
}

void onConfirm(const Signal* sig)
{
    if (s->isSuspended) return onServesAgain();
    if (!isIn(DRV_WAIT_FOR_INIT_RESPONS, "PKTSYNCDRV_INITIATE_SERVICE_CFM")) return;
    const auto* cfm = as<node::ProxyInitiateAnswer>(sig);
    if (cfm == nullptr) return;
    if (cfm->pv != PV)
        KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
                  "TuPktsync_PktSyncDrvClient: Wrong PV has been used. /n");
    internal(sig);
    KvdTimer_cancel(s->answerTimer);
    s->state = DRV_AVAILABLE;
    reportReady();
}

/// What is asked won't be answered.
void giveUpRequests()
{
    for (const u32 id : PTP_CLOCK_IDS) {
        const u32 awaits = std::exchange(s->asked[id], {}).awaits;
        if ((awaits & SET) != 0)    TuPktsync_SyncrefCtrl_PktSyncDrvRefused(id);
        if ((awaits & DELETE) != 0) TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(id);
    }
}

void onSuspend()
{
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
              "TuPktsync_PktSyncDrvClient: PKTSYNCDRV_INITIATE_SERVICE_SUS received; service is not "
              "available!");
    s->state = DRV_NOT_AVAILABLE;
    giveUpRequests();
    if (!std::exchange(s->isSuspended, true)) reportReady();
    awaitAnswer();
}

void onReject(const Signal* sig)
{
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
              "TuPktsync_PktSyncDrvClient: PKTSYNCDRV_INITIATE_SERVICE_REJ received; indicates build "
              "fault!");
    internal(sig);
    KvdTimer_cancel(s->answerTimer);
    s->state = DRV_NOT_AVAILABLE;
    giveUpRequests();
    if (!std::exchange(s->isSuspended, false)) reportReady();
}

void onServerDown(const Signal* sig)
{
    if (!internal(sig)) return;
    s->state = DRV_NOT_AVAILABLE;
    TuPktsync_SyncrefCtrl_handleServerDownInd();
}

// ---- syncrefs -----------------------------------------------------------------------------------

bool isAwaited(u32 froId)
{
    return std::any_of(s->asked.begin(), s->asked.end(),
                       [=](const Asked& a) { return a.awaits != 0 && a.froId == froId; });
}

/// A froId is told as a whole: the driver forgets all of it with one of its references, and which of two it
/// has answered isn't known.
void repeatRequests()
{
    for (const Asked& a : s->asked)
        if (a.awaits == DELETE) node::PktsyncDrv_deletePktSyncReq(s->proxy, a.froId);
    for (const Asked& a : s->asked) {
        if (!a.isUsed || !isAwaited(a.froId)) continue;
        if ((a.awaits & SET) != 0) node::PktsyncDrv_setPktSyncReq(s->proxy, a.froId, a.ref);
        else                       node::PktsyncDrv_changePktSyncReq(s->proxy, a.froId, a.ref);
    }
    awaitAnswer();
}

void onAnswerTimeout()
{
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    if (s->state == DRV_AVAILABLE) repeatRequests();
    else                           askForService();
}

/// The syncref's request is answered; the wait is over with the last one.
void answered(Asked& asked, Request request)
{
    asked.awaits &= ~u32{request};
    if (request == DELETE) asked = {};
    if (std::none_of(s->asked.begin(), s->asked.end(), [](const Asked& a) { return a.awaits != 0; }))
        KvdTimer_cancel(s->answerTimer);
}

struct Answer { SIGSELECT sigNo; const char* name; Request request; void (*tell)(u32 syncrefId); };
constexpr Answer ANSWERS[] = {
    {PKTSYNCDRV_SETSYNCREF_CFM, "PKTSYNCDRV_SETSYNCREF_CFM", SET, TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm},
    {PKTSYNCDRV_CHANGESYNCREF_CFM, "PKTSYNCDRV_CHANGESYNCREF_CFM", CHANGE,
     TuPktsync_SyncrefCtrl_PktSyncDrvChangeCfm},
    {PKTSYNCDRV_DELETESYNCREF_CFM, "PKTSYNCDRV_DELETESYNCREF_CFM", DELETE,
     TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm},
};

void onAnswer(const Signal* sig)
{
    const Answer& answer = *std::find_if(std::begin(ANSWERS), std::end(ANSWERS),
                                         [sig](const Answer& a) { return a.sigNo == sig->sigNo; });
    if (!isIn(DRV_AVAILABLE, answer.name)) return;
    const auto* cfm = as<PktsyncDrvCfm>(sig);
    if (cfm == nullptr) return;
    for (const u32 id : PTP_CLOCK_IDS) {
        Asked& asked = s->asked[id];
        if ((asked.awaits & answer.request) == 0 || asked.froId != cfm->syncRefFroId) continue;
        answered(asked, answer.request);
        return answer.tell(id);
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
              "TuPktsync_PktSyncDrvClient: %s for froId %u, which nobody waits for", answer.name,
              cfm->syncRefFroId);
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
bool ask(u32 syncrefId, const Asked& asked, Call call)
{
    s->asked[syncrefId] = {};
    if (!isOperative()) return false;
    const u32 result = call();
    if (result != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_ERROR,
                  "TuPktsync_PktSyncDrvClient: request failed, result=%u", result);
        return false;
    }
    s->asked[syncrefId] = asked;
    if (!s->answerTimer.runs()) awaitAnswer();
    return true;
}

}  // namespace

void TuPktsync_PktsyncDriverClient_init()
{
    s->state = DRV_NOT_AVAILABLE;
    s->asked.fill({});
    s->proxy = node::PktsyncDrv_initiateMemory();
    lookForServer();
}

void TuPktsync_PktSyncDrvClient_reset()
{
    node::PktsyncDrv_freeMemory(s->proxy);
    s->proxy = nullptr;
    KvdTimer_cancel(s->answerTimer);
    s->isSuspended = false;
    s->state = DRV_NOT_AVAILABLE;
    KVD_TRACE(TRACE_TUPKTSYNC_PKTSYNCDRV_CLIENT, TRACE_INFO,
              "TUPKTSYNC: PKTSYNCDRV proxy memory freed and state set to NOT_AVAILABLE");
}

bool TuPktsync_PktSyncDrvClient_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case PKTSYNCDRV_SERVER_UP_IND:        onServerUp(sig);   return true;
    case PKTSYNCDRV_SERVER_DOWN_IND:      onServerDown(sig); return true;
    case PKTSYNCDRV_INITIATE_SERVICE_CFM: onConfirm(sig);    return true;
    case PKTSYNCDRV_INITIATE_SERVICE_SUS: onSuspend();       return true;
    case PKTSYNCDRV_INITIATE_SERVICE_REJ: onReject(sig);     return true;
    case PKTSYNCDRV_SETSYNCREF_CFM:
    case PKTSYNCDRV_CHANGESYNCREF_CFM:
    case PKTSYNCDRV_DELETESYNCREF_CFM:    onAnswer(sig);     return true;
    case PKTSYNCDRV_TIMESTAMP_IND:        onTimestamp(sig);  return true;
    case TUPKTSYNC_DRV_ANSWER_TMO:        onAnswerTimeout(); return true;
    default:                                                 return false;
    }
}

u32 TuPktsync_PktSyncDrvClient_setSyncRefReq(u32 froId, const PktsyncDrvRef& ref)
{
    return ask(ref.syncrefId, {true, SET, froId, ref},
               [&] { return node::PktsyncDrv_setPktSyncReq(s->proxy, froId, ref); });
}

u32 TuPktsync_PktSyncDrvClient_changeSyncRefReq(u32 froId, const PktsyncDrvRef& ref)
{
    const u32 awaits = s->asked[ref.syncrefId].awaits | CHANGE;
    return ask(ref.syncrefId, {true, awaits, froId, ref},
               [&] { return node::PktsyncDrv_changePktSyncReq(s->proxy, froId, ref); });
}

u32 TuPktsync_PktSyncDrvClient_deleteSyncRefReq(u32 froId, u32 syncrefId)
{
    return ask(syncrefId, {.awaits = DELETE, .froId = froId},
               [&] { return node::PktsyncDrv_deletePktSyncReq(s->proxy, froId); });
}

u32 TuPktsync_PktSyncDrvClient_state() { return s->state; }

const char* TuPktsync_drvStateText(u32 state)
{
    static constexpr const char* TEXTS[] = {"NOT_AVAILABLE", "WAIT_FOR_SERVER_UP", "WAIT_FOR_INIT_RESPONS",
                                            "AVAILABLE"};
    return state < std::size(TEXTS) ? TEXTS[state] : "UNKNOWN";
}
