#include "pktsync/tupktsync_syncref_ctrl.h"

#include "base/element_of.h"
#include "base/kvd_answer.h"
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "mp/kvd_iifadm_send.h"
#include "node/platform.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_cfi_client.h"
#include "pktsync/tupktsync_drv_client.h"
#include "pktsync/tupktsync_ipsocki_client.h"
#include "pktsync/tupktsync_pdu.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_syncref_int.h"
#include "pktsync/tupktsync_timer.h"
#include "pktsync/tupktsync_timestamp_server.h"
#include "pktsync/tupktsyncadm.h"
#include "sig/reg_sig.h"
#include "sig/tupktsync_sig.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>
#include <iterator>

using namespace syncref;

namespace {

ose::ModuleData<syncref::State> s;

void resetClients()
{
    TuPktsync_CFI_client_reset();
    TuPktsync_PktSyncDrvClient_reset();
    TuPktsync_Timestamp_reInit();
}

constexpr KvdAnswerOf AUDIT{TRACE_TUPKTSYNC_SYNCREF_CTRL, "the audit", TUPKTSYNC_AUDIT_ANSWER_TMO};

void awaitAudit(bool isAwaited)
{
    if (isAwaited) KvdAnswer_await(s->auditTimer, AUDIT);
    else           KvdTimer_cancel(s->auditTimer);
}

void onAuditTimeout()
{
    if (KvdAnswer_isLate(s->auditTimer, AUDIT)) requestAudit();
}

void reportReady() { TuPktsync_Root_initReady(TUPKTSYNC_OBJECT_SYNCREFCTRL); }

constexpr Needs NEEDS = {
    .addMCgroupUser = TuPktsync_CFI_client_addMCgroupUser,
    .removeMCgroupUser = TuPktsync_CFI_client_removeMCgroupUser,
    .createSocketAndBind = TuPktsync_IPSOCKI_client_createSocketAndBind,
    .removeResourceUser = TuPktsync_IPSOCKI_client_removeResourceUser,
    .setSyncRef = TuPktsync_PktSyncDrvClient_setSyncRefReq,
    .changeSyncRef = TuPktsync_PktSyncDrvClient_changeSyncRefReq,
    .deleteSyncRef = TuPktsync_PktSyncDrvClient_deleteSyncRefReq,
    .newClock = TuPktsync_new_ptp_clock,
    .deleteClock = TuPktsync_delete_ptp_clock,
    .changeClock = TuPktsync_change_ptp_clock,
    .superviseClock = TuPktsync_set_ptp_path_supervision,
    .selectClock = TuPktsync_set_ptp_selected,
    .sendToMainProcessor = KvdLoz6TuIifAdm_forwardPktsync,
    .awaitAudit = awaitAudit,
    .resetClients = resetClients,
    .reInit = TuPktsync_Root_reInitPktSyncRo,
    .ready = reportReady,
};

// ---- what the clocks reach ----------------------------------------------------------------------

void reportFaults(u32 froId, u32 froClassNo, u32 fault_flags)
{
    KvdLoz6TuIifAdm_updateTuPktRefStatus(froId, froClassNo, fault_flags, 0);
}

void tellProfile(u8 ptpProfile)
{
    struct Ind { SIGSELECT sigNo; u8 ptpProfile; };
    auto* ind = node::make<Ind>(KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND);
    ind->ptpProfile = ptpProfile;
    node::sendTo(KvdLoz6TuMgr_pid(), ind);
}

constexpr PtpNeeds PTP_NEEDS = {
    .reportFaults = reportFaults,
    .reportQuality = TuPktsyncAdm_clockClassValid,
    .profileChanged = tellProfile,
    .sendExchange = TuPktsync_Timestamp_server_handle_ts_ptp,
    .latencyAsymmetry = TuPktsync_SyncrefCtrl_latencyAsymmetry,
    .send = TuPktsync_send_message,
};

void onTimer(const Signal* sig)
{
    const auto* ind = as<TuPktsyncTmoInd>(sig);
    if (ind != nullptr && ind->tmoClass == TUPKTSYNC_TMO_CLASS_PTP)
        TuPktsync_PTP_TmoSig(ind->syncrefId, ind->timerId, ind->index);
}

// ---- selection ----------------------------------------------------------------------------------

void mark(u32 syncrefId, bool selected)
{
    if (auto& r = s->table[syncrefId]) r->selected = selected;
    needs().selectClock(syncrefId, selected ? 1 : 0);
    s->selected_syncrefId = selected ? static_cast<i32>(syncrefId) : -1;
}

void deselectAny()
{
    if (s->selected_syncrefId >= 0) mark(static_cast<u32>(s->selected_syncrefId), false);
}

/// The syncref of a selection request; nothing when it can't be selected.
std::optional<u32> selectable(u32 froId, u32 froClassNo, const char* request)
{
    const auto id = find(froId, froClassNo);
    if (!id) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "%s request for non-existing syncref (froId/froClassNo %u/%u)", request, froId, froClassNo);
        return std::nullopt;
    }
    const u32 indivState = s->table[*id]->syncRefIndivState;
    if (indivState == CREATED) return id;
    KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
              "%s request for syncrefId %d (froId/froClassNo %u/%u), still in state %s", request, *id, froId,
              froClassNo, indivStateText(indivState));
    return std::nullopt;
}

void selectOne(u32 froId, u32 froClassNo)
{
    const auto id = selectable(froId, froClassNo, "Select");
    if (!id) return;
    if (s->selected_syncrefId == static_cast<i32>(*id)) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_INFO,
                  "Select request for already selected syncrefId %d (froId/froClassNo %u/%u)", *id, froId,
                  froClassNo);
        return;
    }
    deselectAny();
    mark(*id, true);
}

void deselectOne(u32 froId, u32 froClassNo)
{
    const auto id = selectable(froId, froClassNo, "Deselect");
    if (!id) return;
    if (s->selected_syncrefId != static_cast<i32>(*id)) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_INFO,
                  "Deselect request received for non-selected syncrefId %d (froId/froClassNo %u/%u)", *id,
                  froId, froClassNo);
        return;
    }
    mark(*id, false);
}

// ---- confirmations ------------------------------------------------------------------------------

Syncref* pending(u32 syncrefId, u32 indivState, const char* confirmation)
{
    auto* const place = elementOf(s->table, syncrefId);
    if (place == nullptr || !*place) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "%s for non-existing syncrefId(%u)",
                  confirmation, syncrefId);
        return nullptr;
    }
    Syncref& r = **place;
    if (r.syncRefIndivState == indivState && (r.pendingFlags & WAIT_PKTDRV) != 0) return &r;
    KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
              "%s for syncrefId(%u) not expecting it IndivState=%s", confirmation, syncrefId,
              indivStateText(r.syncRefIndivState));
    return nullptr;
}

/// Each syncref of that state that waits for the group goes on.
void groupReady(u32 group, u32 indivState, void (*check)(u32 syncrefId))
{
    const u32 flag = group == 0 ? WAIT_CFI_MCG1 : WAIT_CFI_MCG2;
    for (const u32 id : PTP_CLOCK_IDS) {
        auto& r = s->table[id];
        if (!r || r->syncRefIndivState != indivState || (r->pendingFlags & flag) == 0) continue;
        r->pendingFlags &= ~flag;
        check(id);
    }
}

}  // namespace

namespace syncref {

State& state() { return *s; }
const Needs& needs() { return s->needs != nullptr ? *s->needs : NEEDS; }
void setNeeds(const Needs* replacement) { s->needs = replacement; }

std::optional<u32> find(u32 froId, u32 froClassNo)
{
    for (const u32 id : PTP_CLOCK_IDS) {
        const auto& r = s->table[id];
        if (r && r->froId == froId && r->froClassNo == froClassNo) return id;
    }
    return std::nullopt;
}

bool isReady(const char* request)
{
    if (s->syncRefCtrlState == READY) return true;
    const u8 level = s->syncRefCtrlState == REINIT ? TRACE_2 : TRACE_ERROR;
    KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, level, "%s request received from FRO when not READY: state=%s",
              request, TuPktsync_syncrefCtrlStateText(s->syncRefCtrlState));
    return false;
}

const char* indivStateText(u32 indivState)
{
    static constexpr const char* TEXTS[] = {"FREE", "CREATE_PENDING", "CREATED", "DELETE_PENDING",
                                            "CHANGE_PENDING"};
    return indivState < std::size(TEXTS) ? TEXTS[indivState] : "UNKNOWN";
}

PktIpAddress addressOf(const TuiifIpAddress& address)
{
    constexpr u32 IPV4 = 4, IPV4_OCTETS = 4;
    PktIpAddress out;
    out.family = address.family;
    std::copy_n(address.address, address.family == IPV4 ? IPV4_OCTETS : out.octets.size(),
                out.octets.begin());
    return out;
}

}  // namespace syncref

// ---- life ---------------------------------------------------------------------------------------

void TuPktsync_SyncrefCtrl_started(u32 board)
{
    s->board = board;
    s->tuiifAlive = true;
    readOwnAddress();
}

void TuPktsync_SyncrefCtrl_init()
{
    s->table.fill(std::nullopt);
    readOwnAddress();
    s->selected_syncrefId = -1;
    s->standardIdentityTaken = false;
    s->audit.clear();
    resetTimestampLatency();
    TuPktsync_PTP_init(PTP_NEEDS);
    if (s->tuiifAlive) requestAudit();
    else               s->syncRefCtrlState = READY;
    needs().ready();
}

bool TuPktsync_SyncrefCtrl_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case TUPKTSYNC_TMO_IND:                  onTimer(sig);           return true;
    case KVD_TUIIF_CREATE_PKT_REF_RO_REQ:    handle_CreateReq(sig);  return true;
    case KVD_TUIIF_DELETE_PKT_REF_RO_REQ:    onDeleteReq(sig);       return true;
    case KVD_TUIIF_SET_PKT_REF_RO_REQ:       handle_SetReq(sig);     return true;
    case KVD_TUIIF_AUDIT_PKT_REF_RO_CFM:     handle_AuditCfm(sig);   return true;
    case KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ: onGetAttributes(sig);  return true;
    case KVD_TUIIF_SYNCH_PATH_SUP_IND:       onPathSupervision(sig); return true;
    case TUPKTSYNC_TUIIF_UP_IND:             onTuiifUp();            return true;
    case TUPKTSYNC_TUIIF_DOWN_IND:           onTuiifDown();          return true;
    case TUPKTSYNC_AUDIT_ANSWER_TMO:         onAuditTimeout();       return true;
    default:                                                         return false;
    }
}

// ---- from the clients ---------------------------------------------------------------------------

void TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(u32 syncrefId)
{
    Syncref* const r = pending(syncrefId, CREATE_PENDING, "PktSyncDrvSetCfm");
    if (r == nullptr) return;
    r->pendingFlags &= ~u32{WAIT_PKTDRV};
    check_create_ready(syncrefId);
}

void TuPktsync_SyncrefCtrl_PktSyncDrvRefused(u32 syncrefId)
{
    Syncref* const r = pending(syncrefId, CREATE_PENDING, "refusal of PktSyncDrvSetReq");
    if (r == nullptr) return;
    r->isRefused = true;
    r->pendingFlags &= ~u32{WAIT_PKTDRV};
    check_create_ready(syncrefId);
}

void TuPktsync_SyncrefCtrl_PktSyncDrvChangeCfm(u32) {}   // a change takes effect without it

void TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(u32 syncrefId)
{
    Syncref* const r = pending(syncrefId, DELETE_PENDING, "PktSyncDrvDeleteCfm");
    if (r == nullptr) return;
    r->pendingFlags &= ~u32{WAIT_PKTDRV};
    check_delete_ready(syncrefId);
}

void TuPktsync_SyncrefCtrl_CfiSetupReady(u32 group) { groupReady(group, CREATE_PENDING, check_create_ready); }
void TuPktsync_SyncrefCtrl_CfiSetupRefused(u32 group)
{
    groupReady(group, CREATE_PENDING, [](u32 syncrefId) {
        s->table[syncrefId]->isRefused = true;
        check_create_ready(syncrefId);
    });
}
void TuPktsync_SyncrefCtrl_CfiRemoveReady(u32 group)
{
    groupReady(group, DELETE_PENDING, check_delete_ready);
}

void TuPktsync_SyncrefCtrl_handleServerDownInd()
{
    if (s->tuiifAlive)
        TuPktsync_SyncrefCtrl_sendUnavailableInd();
    else
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_INFO,
                  "TuPktsync_SyncrefCtrl_handleServerDownInd:: tuiifAlive=%s,not sending "
                  "KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND",
                  "FALSE");
    s->syncRefCtrlState = REINIT;
    s->requestAudit = false;
    needs().awaitAudit(false);
    s->selected_syncrefId = -1;
    needs().resetClients();
    for (const u32 id : PTP_CLOCK_IDS) {
        auto& r = s->table[id];
        if (r && r->syncRefIndivState == CREATED) needs().deleteClock(id);
        r.reset();
    }
    needs().reInit();
}

void TuPktsync_SyncrefCtrl_sendUnavailableInd()
{
    auto* ind = node::make<KvdTuiifPktRefRoUnavailableInd>(KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND);
    ind->apn = s->ownPiuHwAddr.apn;
    Signal* sig = reinterpret_cast<Signal*>(ind);
    needs().sendToMainProcessor(&sig);
}

// ---- from the time stamp server -----------------------------------------------------------------

void TuPktsync_SyncrefCtrl_selectionInd(u32 froId, u32 froClassNo, u32 operation)
{
    if (s->syncRefCtrlState == REINIT) return;
    switch (operation) {
    case PKTSYNC_SELECT:       return selectOne(froId, froClassNo);
    case PKTSYNC_DESELECT:     return deselectOne(froId, froClassNo);
    case PKTSYNC_DESELECT_ALL: return deselectAny();
    default:
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Selection request with undefined operation code %u", operation);
    }
}

void TuPktsync_SyncrefCtrl_clockRqmtInd(const TuPktsyncClockRqmt& n)
{
    if (n.minPktInterval > n.maxPktInterval) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "clock requirements refused: minPktInterval=%u, maxPktInterval=%u, freqClockClass=%hhu, "
                  "freqClockAccuracy=0x%02hhx, timeClockClass=%hhu, timeClockAccuracy=0x%02hhx, "
                  "stratumLevel=%hhu, freqClockClassG8265_1=%hhu,%hhu,%hhu,%hhu,%hhu",
                  n.minPktInterval, n.maxPktInterval, n.freqClockClass, n.freqClockAccuracy, n.timeClockClass,
                  n.timeClockAccuracy, n.stratumLevel, n.freqClockClassG8265_1[0], n.freqClockClassG8265_1[1],
                  n.freqClockClassG8265_1[2], n.freqClockClassG8265_1[3], n.freqClockClassG8265_1[4]);
        return;
    }
    const TuPktsyncClockRqmt old = s->clockRqmt.value_or(TuPktsyncClockRqmt{});
    s->clockRqmt = n;
    const bool intervals = n.minPktInterval != old.minPktInterval || n.maxPktInterval != old.maxPktInterval;
    const bool time = intervals || n.timeClockClass != old.timeClockClass
                      || n.timeClockAccuracy != old.timeClockAccuracy;
    const bool frequency = intervals || n.freqClockClass != old.freqClockClass
                           || n.freqClockAccuracy != old.freqClockAccuracy
                           || n.freqClockClassG8265_1 != old.freqClockClassG8265_1;
    for (const u32 id : PTP_CLOCK_IDS) {
        const auto& r = s->table[id];
        if (!r || !(r->typeOfPktStruct == UNI_IP_FREQ_PTP ? frequency : time)) continue;
        const PtpClockRqmt rqmt = rqmtOf(*r);
        TuPktsync_PTP_clockRqmtInd(id, rqmt.minSyncInterval, rqmt.maxSyncInterval, rqmt.clockClass,
                                   rqmt.freqClockClassG8265_1, rqmt.clockAccuracy);
    }
}

// ---- queries ------------------------------------------------------------------------------------

i32 TuPktsync_SyncrefCtrl_selectedSyncrefId() { return s->selected_syncrefId; }
i32 TuPktsync_SyncrefCtrl_syncrefIdOf(u32 froId, u32 froClassNo)
{
    const auto id = find(froId, froClassNo);
    return id ? static_cast<i32>(*id) : -1;
}

i32 TuPktsync_SyncrefCtrl_latencyAsymmetry() { return s->latencyAsymmetry; }
u32 TuPktsync_SyncrefCtrl_state() { return s->syncRefCtrlState; }

const char* TuPktsync_syncrefCtrlStateText(u32 ctrlState)
{
    static constexpr const char* TEXTS[] = {"UNINITIALIZED",        "AUDIT_PENDING", "AUDIT_DELETE_PENDING",
                                            "AUDIT_CREATE_PENDING", "READY",         "REINIT"};
    return ctrlState < std::size(TEXTS) ? TEXTS[ctrlState] : "UNKNOWN";
}

void TuPktsync_SyncrefCtrl_print()
{
    using node::shellPrintf;
    shellPrintf("   syncref control      : %s, selected %d, latency asymmetry %d ns\n",
                TuPktsync_syncrefCtrlStateText(s->syncRefCtrlState), s->selected_syncrefId,
                s->latencyAsymmetry);
    for (const u32 id : PTP_CLOCK_IDS) {
        const auto& r = s->table[id];
        if (!r) continue;
        shellPrintf("   syncref %u            : froId %u, froClassNo %u, type %u, %s%s%s%s\n", id, r->froId,
                    r->froClassNo, r->typeOfPktStruct, indivStateText(r->syncRefIndivState),
                    (r->pendingFlags & WAIT_PKTDRV) != 0 ? ", waits for the driver" : "",
                    (r->pendingFlags & WAIT_CFI_MCG1) != 0 ? ", waits for group 0" : "",
                    (r->pendingFlags & WAIT_CFI_MCG2) != 0 ? ", waits for group 1" : "");
    }
}
