// The audit, which makes the table what the main processor believes, and what starts one: the
// connection to the main processor coming and going.
#include "base/trace_groups.h"
#include "mp/kvd_iifadm.h"
#include "node/sig.h"
#include "pktsync/tupktsync_syncref_int.h"

#include <algorithm>

namespace syncref {

namespace {

void sendResult()
{
    const auto& rows = state().audit;
    const u32 size = static_cast<u32>(sizeof(KvdTuiifAuditPktRefRoResultInd)
                                      + rows.size() * sizeof(TuiifAuditResult));
    Signal* sig = ose::alloc(size, KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND);
    auto* ind = reinterpret_cast<KvdTuiifAuditPktRefRoResultInd*>(sig);
    ind->apn = state().ownPiuHwAddr.apn;
    ind->count = static_cast<u32>(rows.size());
    auto* at = reinterpret_cast<TuiifAuditResult*>(ind + 1);
    for (const AuditRow& row : rows) *at++ = {row.froId, row.froClassNo, static_cast<u32>(row.result)};
    needs().sendToMainProcessor(&sig);
}

void auditDone()
{
    auto& s = state();
    // A main processor that has gone meanwhile lists everything again when it is back.
    const bool isWanted = s.tuiifAlive && !s.requestAudit;
    if (isWanted) sendResult();
    s.audit.clear();
    if (!isWanted) return delete_all_syncrefs();
    s.syncRefCtrlState = READY;
}

}  // namespace

void readOwnAddress() { state().ownPiuHwAddr = {KvdLoz6TuIifAdm_smn(), KvdLoz6TuIifAdm_apn(), 0}; }

void requestAudit()
{
    auto* req = node::make<KvdTuiifAuditPktRefRoReq>(KVD_TUIIF_AUDIT_PKT_REF_RO_REQ);
    req->apn = state().ownPiuHwAddr.apn;
    Signal* sig = reinterpret_cast<Signal*>(req);
    needs().sendToMainProcessor(&sig);
    state().syncRefCtrlState = AUDIT_PENDING;
    needs().awaitAudit(true);
}

void handle_AuditCfm(const Signal* sig)
{
    auto& s = state();
    if (s.syncRefCtrlState != AUDIT_PENDING) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR, "AuditCfm received in wrong state (%s)",
                  TuPktsync_syncrefCtrlStateText(s.syncRefCtrlState));
        return;
    }
    const auto* cfm = as<KvdTuiifAuditPktRefRoCfm>(sig);
    if (cfm == nullptr) return;
    needs().awaitAudit(false);
    const std::span<const TuiifPktRefConfig> configs = node::tail<TuiifPktRefConfig>(cfm);
    if (cfm->count > PTP_CLOCKS) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Number of syncrefs received in AuditPktRefRoCfm signal: %u; maximum allowed number "
                  "is %u",
                  cfm->count, PTP_CLOCKS);
        s.syncRefCtrlState = READY;
        return;
    }
    if (cfm->count > configs.size())
        node::traceShortSignal(sig, static_cast<u32>(sizeof *cfm + cfm->count * sizeof(TuiifPktRefConfig)));
    const auto listed = configs.first(std::min<std::size_t>(cfm->count, configs.size()));
    s.audit.clear();
    if (listed.empty()) {
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_INFO, "No sync refs to audit");
        sendResult();
        s.syncRefCtrlState = READY;
        return;
    }
    for (const TuiifPktRefConfig& c : listed) s.audit.push_back({c.froId, c.froClassNo, NOT_YET});
    s.auditRemaining = static_cast<u32>(listed.size());
    s.syncRefCtrlState = AUDIT_CREATE_PENDING;
    for (const TuiifPktRefConfig& c : listed) create_syncref(c);
}

void auditRowDone(u32 froId, u32 froClassNo, u32 result)
{
    auto& s = state();
    const auto row = std::find_if(s.audit.begin(), s.audit.end(), [&](const AuditRow& r) {
        return r.froId == froId && r.froClassNo == froClassNo && r.result == NOT_YET;
    });
    if (row == s.audit.end())
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "handle_auditCfm: setting of create success \nresult at audit failed");
    else
        row->result = static_cast<i32>(result);
    if (s.auditRemaining != 0 && --s.auditRemaining == 0) auditDone();
}

void deletionDone()
{
    u32& remaining = state().deletionsRemaining;
    if (remaining != 0 && --remaining == 0) massDeleteDone();
}

void massDeleteDone()
{
    auto& s = state();
    const bool again = s.tuiifAlive && s.requestAudit;
    s.requestAudit = false;
    if (again) requestAudit();
    else       s.syncRefCtrlState = READY;
}

void onTuiifDown()
{
    auto& s = state();
    s.tuiifAlive = false;
    needs().awaitAudit(false);
    switch (s.syncRefCtrlState) {
    case READY:         return delete_all_syncrefs();
    case AUDIT_PENDING: s.syncRefCtrlState = READY; return;
    default:
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_INFO, "tuiif down when in state=%s",
                  TuPktsync_syncrefCtrlStateText(s.syncRefCtrlState));
        return;
    }
}

void onTuiifUp()
{
    auto& s = state();
    if (s.tuiifAlive) {
        // A confirmation that nobody asked for: what stands was audited with this connection.
        KVD_TRACE(TRACE_TUPKTSYNC_SYNCREF_CTRL, TRACE_ERROR,
                  "Call to handle_tuiifUp while tuiif already up.");
        return;
    }
    s.tuiifAlive = true;
    s.selected_syncrefId = -1;
    readOwnAddress();
    const u32 before = s.syncRefCtrlState;
    if (before == AUDIT_DELETE_PENDING || before == AUDIT_CREATE_PENDING) s.requestAudit = true;
    TuPktsync_SyncrefCtrl_sendUnavailableInd();
    if (before == READY) requestAudit();
}

}  // namespace syncref
