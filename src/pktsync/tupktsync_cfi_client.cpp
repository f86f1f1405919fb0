#include "pktsync/tupktsync_cfi_client.h"

#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "node/cfi.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_pdu.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "sig/tupktsync_sig.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr u32 PV = 1;
constexpr u32 DEVICE = 3;
constexpr KvdAnswerOf ANSWER{TRACE_TUPKTSYNC_CFI_CLIENT, "CFI", TUPKTSYNC_CFI_ANSWER_TMO};
constexpr CfiFilter PTP_FRAMES{1, 12, 2, PTP_ETHERTYPE, 0xFFFF};

struct State {
    u32 state = CFI_NOT_AVAILABLE;
    bool isSuspended = false;        // it may serve later
    node::CfiProxy* proxy = nullptr;
    KvdTimer answerTimer;
    std::array<TuPktsyncGroup, TUPKTSYNC_GROUPS> groups;
};
ose::ModuleData<State> s;

bool isIn(u32 state, const char* signal)
{
    if (s->state == state) return true;
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_2, "TuPktsync_CFI_client: Wrong state when receiving %s",
              signal);
    return false;
}

bool internal(const Signal* sig)
{
    const u32 result = node::Cfi_internal(s->proxy, sig);
    if (result != 0)
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR, "TuPktsync_CFI_client: Proxy error %u", result);
    return result == 0;
}

void reportReady() { TuPktsync_Root_initReady(TUPKTSYNC_OBJECT_CFI_CLIENT); }

void awaitAnswer() { KvdAnswer_await(s->answerTimer, ANSWER); }

// ---- connection ---------------------------------------------------------------------------------

void lookForServer()
{
    const u32 result = node::Cfi_initiateServiceReq(s->proxy, PV, PV, PV);
    if (result != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR, "Cfi_initiateServiceReq failed, result=%u",
                  result);
        return;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_INFO, "TUPKTSYNC: CFI interface initiated");
    s->state = CFI_WAIT_FOR_SERVER_UP;
}

/// One that died as it was found leaves nobody to ask.
void askForService()
{
    if (node::Cfi_askAgain(s->proxy) == 0) awaitAnswer();
    else                                   lookForServer();
}

void onServerUp(const Signal* sig)
{
    if (!isIn(CFI_WAIT_FOR_SERVER_UP, "CFI_SERVER_UP_IND")) return;
    internal(sig);
    s->state = CFI_WAIT_FOR_INIT_RESPONS;
    awaitAnswer();
}

/// The chain of starts went on without the service, and begins anew with it.
void onServesAgain()
{
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_INFO, "TUPKTSYNC: CFI serves again");
    TuPktsync_SyncrefCtrl_handleServerDownInd();
}

void onConfirm(const Signal* sig)
{
    if (s->isSuspended) return onServesAgain();
    if (!isIn(CFI_WAIT_FOR_INIT_RESPONS, "CFI_INITIATE_SERVICE_CFM")) return;
    const auto* cfm = as<node::ProxyInitiateAnswer>(sig);
    if (cfm == nullptr) return;
    if (cfm->pv != PV)
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR,
                  "TuPktsync_CFI_client: Wrong PV has been used. /n");
    internal(sig);
    s->state = CFI_AVAILABLE;
    awaitAnswer();
    const u32 result = node::Cfi_attachReq(s->proxy, DEVICE);
    if (result != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR,
                  "TuPktsync_CFI_client: Cfi_attachReq failed, result=%u", result);
        return;
    }
    s->state = CFI_WAIT_FOR_ATTACH_CFM;
}

/// What is asked won't be answered. The groups begin anew with the service.
void giveUpRequests()
{
    for (const TuPktsyncGroup& g : s->groups) {
        TuPktsync_SyncrefCtrl_CfiSetupRefused(g.groupType);
        TuPktsync_SyncrefCtrl_CfiRemoveReady(g.groupType);
    }
}

void onSuspend()
{
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR,
              "TuPktsync_CFI_client: CFI_INITIATE_SERVICE_SUS received; service is not available!");
    s->state = CFI_NOT_AVAILABLE;
    giveUpRequests();
    if (!std::exchange(s->isSuspended, true)) reportReady();
    awaitAnswer();
}

void onReject(const Signal* sig)
{
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR,
              "TuPktsync_CFI_client: CFI_INITIATE_SERVICE_REJ received; indicates build fault!");
    internal(sig);
    KvdTimer_cancel(s->answerTimer);
    s->state = CFI_NOT_AVAILABLE;
    giveUpRequests();
    if (!std::exchange(s->isSuspended, false)) reportReady();
}

void onAttach(const Signal* sig)
{
    if (!isIn(CFI_WAIT_FOR_ATTACH_CFM, "CFI_ATTACH_CFM")) return;
    const auto* cfm = as<CfiResultCfm>(sig);
    if (cfm == nullptr) return;
    if (cfm->result != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR,
                  "TuPktsync_CFI_client: error result = %d\nin attach cfm", static_cast<i32>(cfm->result));
        return;                              // and asked again
    }
    KvdTimer_cancel(s->answerTimer);
    s->state = CFI_ATTACHED;
    reportReady();
}

void onServerDown(const Signal* sig)
{
    if (!internal(sig)) return;
    s->state = CFI_NOT_AVAILABLE;
    TuPktsync_SyncrefCtrl_handleServerDownInd();
}

// ---- multicast groups ---------------------------------------------------------------------------

/// The service takes one request at a time.
bool isBusy()
{
    return std::any_of(s->groups.begin(), s->groups.end(), [](const TuPktsyncGroup& g) { return g.isAsked; });
}

/// For what the group's state awaits. False when the service couldn't be asked.
bool request(TuPktsyncGroup& g)
{
    const bool isJoin = g.state == GROUP_JOIN_PENDING;
    const u32 result = isJoin
                           ? node::Cfi_joinMulticastReq(s->proxy, DEVICE, g.mac, PTP_FRAMES, g.groupType)
                           : node::Cfi_leaveMulticastReq(s->proxy, DEVICE, g.mac, PTP_FRAMES, g.groupType);
    if (result != 0)
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR,
                  "TuPktsync_CFI_client: Cfi_%sMulticastReq failed, result=%u", isJoin ? "join" : "leave",
                  result);
    g.isAsked = result == 0;
    if (g.isAsked) awaitAnswer();
    return g.isAsked;
}

/// False when the service couldn't be asked.
bool join(TuPktsyncGroup& g)
{
    if (isBusy()) {
        g.joinNeeded = 1;
        return true;
    }
    g.state = GROUP_JOIN_PENDING;
    g.joinNeeded = 0;
    return request(g);
}

bool leave(TuPktsyncGroup& g)
{
    if (isBusy()) {
        g.leaveNeeded = 1;
        return true;
    }
    g.state = GROUP_LEAVE_PENDING;
    g.leaveNeeded = 0;
    return request(g);
}

/// The users that wait get the group, or are told that they won't.
void joinForUsers(TuPktsyncGroup& g)
{
    if (!join(g)) TuPktsync_SyncrefCtrl_CfiSetupRefused(g.groupType);
}

/// Who waits for the end of a membership that nobody needs goes on, also when the leave can't be had.
void leaveUnused(TuPktsyncGroup& g)
{
    if (!leave(g)) TuPktsync_SyncrefCtrl_CfiRemoveReady(g.groupType);
}

/// What waited for another request's answer goes on.
void serveWaiting()
{
    for (TuPktsyncGroup& g : s->groups) {
        if (isBusy()) return;
        if (g.state != GROUP_JOINED && g.joinNeeded != 0 && g.users != 0) joinForUsers(g);
        if (g.leaveNeeded == 0) continue;
        if (g.users == 0) {
            leaveUnused(g);
        } else {
            g.leaveNeeded = 0;               // another user has come: it stays
            TuPktsync_SyncrefCtrl_CfiRemoveReady(g.groupType);
        }
    }
}

bool isGood(const CfiResultCfm& cfm, const char* request)
{
    if (cfm.result == 0) return true;
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR,
              "TuPktsync_CFI_client: error result = %u\nin %s multicast cfm", cfm.result, request);
    return false;
}

/// The group whose request of that state is answered; nullptr, and the answer is dropped, for none.
TuPktsyncGroup* takeAnswer(u32 state, const CfiResultCfm& cfm)
{
    for (TuPktsyncGroup& g : s->groups) {
        if (g.state != state || !g.isAsked || g.groupType != cfm.clientData) continue;
        KvdTimer_cancel(s->answerTimer);
        g.isAsked = false;
        return &g;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_2,
              "TuPktsync_CFI_client: answer 0x%x for group %u, which nobody waits for", cfm.sigNo,
              cfm.clientData);
    return nullptr;
}

void onJoined(const Signal* sig)
{
    if (!isIn(CFI_ATTACHED, "CFI_JOIN_MULTICAST_CFM")) return;
    const auto* cfm = as<CfiResultCfm>(sig);
    if (cfm == nullptr) return;
    const bool good = isGood(*cfm, "join");
    TuPktsyncGroup* const g = takeAnswer(GROUP_JOIN_PENDING, *cfm);
    if (g == nullptr) return;
    if (good) {
        g->state = GROUP_JOINED;
        TuPktsync_SyncrefCtrl_CfiSetupReady(g->groupType);
        if (g->leaveNeeded != 0 && g->users == 0) leaveUnused(*g);
    } else {
        g->leaveNeeded = 0;
        TuPktsync_SyncrefCtrl_CfiSetupRefused(g->groupType);
        TuPktsync_SyncrefCtrl_CfiRemoveReady(g->groupType);
    }
    serveWaiting();
}

void onLeft(const Signal* sig)
{
    if (!isIn(CFI_ATTACHED, "CFI_LEAVE_MULTICAST_CFM")) return;
    const auto* cfm = as<CfiResultCfm>(sig);
    if (cfm == nullptr) return;
    const bool good = isGood(*cfm, "leave");
    TuPktsyncGroup* const g = takeAnswer(GROUP_LEAVE_PENDING, *cfm);
    if (g == nullptr) return;
    if (good) g->state = GROUP_NONE;
    TuPktsync_SyncrefCtrl_CfiRemoveReady(g->groupType);
    if (g->joinNeeded != 0 && g->users != 0) joinForUsers(*g);
    serveWaiting();
}

void onAnswerTimeout()
{
    if (!KvdAnswer_isLate(s->answerTimer, ANSWER)) return;
    switch (s->state) {
    case CFI_AVAILABLE:
    case CFI_WAIT_FOR_ATTACH_CFM:
        if (node::Cfi_attachReq(s->proxy, DEVICE) == 0) s->state = CFI_WAIT_FOR_ATTACH_CFM;
        return awaitAnswer();
    case CFI_ATTACHED:
        for (TuPktsyncGroup& g : s->groups)
            if (g.isAsked) request(g);
        return;
    default: return askForService();
    }
}

void onFrame(Signal* sig)
{
    if (!isIn(CFI_ATTACHED, "CFI_RECEIVE_FRAME_IND")) return;
    const auto* ind = as<CfiReceiveFrameInd>(sig);
    if (ind == nullptr) return;
    if (ose::sigsize(&sig) - sizeof *ind < ind->length) {
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_2,
                  "TuPktsync_CFI_client: CFI_RECEIVE_FRAME_IND of %u octets holds no frame of %u",
                  ose::sigsize(&sig), ind->length);
        return;
    }
    TuPktsync_PDU_CfiRcvFrame(ind->length, ind->metalength, reinterpret_cast<const u8*>(ind + 1));
}

}  // namespace

void TuPktsync_CFI_client_init()
{
    s->state = CFI_NOT_AVAILABLE;
    for (u32 i = 0; i < TUPKTSYNC_GROUPS; ++i) {
        s->groups[i] = {};
        s->groups[i].groupType = i;
        s->groups[i].mac = TUPKTSYNC_GROUP_MAC[i];
    }
    s->proxy = node::Cfi_initiateMemory();
    lookForServer();
}

void TuPktsync_CFI_client_reset()
{
    node::Cfi_freeMemory(s->proxy);
    s->proxy = nullptr;
    KvdTimer_cancel(s->answerTimer);
    s->isSuspended = false;
    s->state = CFI_NOT_AVAILABLE;
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_INFO,
              "TUPKTSYNC: CFI proxy memory freed and state set to NOT_AVAILABE");
}

bool TuPktsync_CFI_client_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case CFI_SERVER_UP_IND:        onServerUp(sig);   return true;
    case CFI_SERVER_DOWN_IND:      onServerDown(sig); return true;
    case CFI_INITIATE_SERVICE_CFM: onConfirm(sig);    return true;
    case CFI_INITIATE_SERVICE_SUS: onSuspend();       return true;
    case CFI_INITIATE_SERVICE_REJ: onReject(sig);     return true;
    case CFI_ATTACH_CFM:           onAttach(sig);     return true;
    case CFI_JOIN_MULTICAST_CFM:   onJoined(sig);     return true;
    case CFI_LEAVE_MULTICAST_CFM:  onLeft(sig);       return true;
    case CFI_RECEIVE_FRAME_IND:    onFrame(sig);      return true;
    case TUPKTSYNC_CFI_ANSWER_TMO: onAnswerTimeout(); return true;
    default:                                          return false;
    }
}

u32 TuPktsync_CFI_client_addMCgroupUser(u32 groupType)
{
    TuPktsyncGroup& g = s->groups[groupType];
    if (s->state != CFI_ATTACHED) return GROUP_NO_SERVICE;
    ++g.users;
    switch (g.state) {
    case GROUP_JOINED: return 0;
    case GROUP_LEAVE_PENDING:
        if (!g.isAsked) break;
        g.joinNeeded = 1;
        return 1;
    case GROUP_JOIN_PENDING:
        if (!g.isAsked) break;
        return 1;
    default: break;
    }
    if (join(g)) return 1;
    --g.users;
    return GROUP_NO_SERVICE;
}

u32 TuPktsync_CFI_client_removeMCgroupUser(u32 groupType)
{
    TuPktsyncGroup& g = s->groups[groupType];
    if (g.users != 0) --g.users;
    if (s->state != CFI_ATTACHED) return 0;  // nobody would confirm the leave
    switch (g.state) {
    case GROUP_JOINED:
        if (g.users != 0) return 0;
        return leave(g) ? 1 : 0;
    case GROUP_JOIN_PENDING:
        if (g.users != 0 || !g.isAsked) return 0;
        g.leaveNeeded = 1;
        return 1;
    case GROUP_LEAVE_PENDING: return g.isAsked ? 1 : 0;
    default:                  return 0;
    }
}

u8* TuPktsync_CFI_client_getSendBuffer(u32 frameLength, u32 metadataLength)
{
    if (s->state == CFI_ATTACHED)
        return node::Cfi_getSendBuffer(s->proxy, DEVICE, frameLength, metadataLength);
    KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_1,
              "TuPktsync_CFI_client: client not attached at sendFrame request");
    return nullptr;
}

u32 TuPktsync_CFI_client_sendFrame(u8* buffer)
{
    const u32 result = node::Cfi_sendFrame(s->proxy, buffer);
    if (result != 0)
        KVD_TRACE(TRACE_TUPKTSYNC_CFI_CLIENT, TRACE_ERROR, "TuPktsync_CFI_client: Cfi_sendFrame failed, "
                  "result=%u", result);
    return result == 0 ? 1 : 0;
}

u32 TuPktsync_CFI_client_state() { return s->state; }
const TuPktsyncGroup& TuPktsync_CFI_client_group(u32 groupType) { return s->groups[groupType]; }

const char* TuPktsync_cfiStateText(u32 state)
{
    static constexpr const char* TEXTS[] = {"NOT_AVAILABLE",         "WAIT_FOR_SERVER_UP",
                                            "WAIT_FOR_INIT_RESPONS", "AVAILABLE",
                                            "WAIT_FOR_ATTACH_CFM",   "ATTACHED"};
    return state < std::size(TEXTS) ? TEXTS[state] : "UNKNOWN";
}
