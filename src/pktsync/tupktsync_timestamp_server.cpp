#include "pktsync/tupktsync_timestamp_server.h"

#include "base/trace_groups.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_proc.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "sig/tupktsync_sig.h"

namespace {

struct State {
    PROCESS timestampConsumerPid = 0;
    u32 reInit = 0;
};
ose::ModuleData<State> s;

bool hasConsumer()
{
    if (s->timestampConsumerPid != 0) return true;
    KVD_TRACE(TRACE_TUPKTSYNC_TIMESTAMP_SERVER, TRACE_ERROR,
              "attempt to send timestamp indication when no receiver registered");
    return false;
}

void onSelection(const Signal* sig)
{
    const auto* ind = as<TuPktsyncRefSelectionInd>(sig);
    if (ind == nullptr) return;
    TuPktsync_SyncrefCtrl_selectionInd(ind->froId, ind->froClassNo, ind->selectOperation);
    s->timestampConsumerPid = ind->timestampConsumerPid;
}

void onRegInd(const Signal* sig)
{
    const auto* ind = as<TuPktsyncRegInd>(sig);
    if (ind == nullptr) return;
    TuPktsyncPTP_handleRegInd(TuPktsync_SyncrefCtrl_selectedSyncrefId(), ind->offsetFromMaster,
                              ind->meanPathDelay);
}

}  // namespace

void TuPktsync_Timestamp_server_init()
{
    if (s->reInit != 0) {
        s->reInit = 0;
        KVD_TRACE(TRACE_TUPKTSYNC_TIMESTAMP_SERVER, TRACE_INFO,
                  "TuPktsync_Timestamp_server_init: not reseting timestampConsumer pid=0x%x",
                  s->timestampConsumerPid);
    } else {
        s->timestampConsumerPid = 0;
    }
    TuPktsync_Root_initReady(TUPKTSYNC_OBJECT_TIMESTAMP_SERVER);
}

void TuPktsync_Timestamp_reInit() { s->reInit = 1; }

bool TuPktsync_Timestamp_server_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case TUPKTSYNC_REF_SELECTION_IND: onSelection(sig); return true;
    case TUPKTSYNC_REG_IND:           onRegInd(sig);    return true;
    case TUPKTSYNC_CLOCK_RQMT_IND:
        if (const auto* ind = as<TuPktsyncClockRqmtInd>(sig)) TuPktsync_SyncrefCtrl_clockRqmtInd(ind->rqmt);
        return true;
    default: return false;
    }
}

void TuPktsync_Timestamp_server_handle_ts_ptp(const PtpExchange& e)
{
    if (!hasConsumer()) return;
    auto* ind = node::make<TuPktsyncPtpPacketInd>(TUPKTSYNC_PTP_PACKET_IND);
    ind->froId = e.froId;
    ind->froClassNo = e.froClassNo;
    ind->logSyncInterval = e.interval_ms;
    ind->T1s = e.T1s;
    ind->T1f = e.T1f;
    ind->T2s = e.T2s;
    ind->T2f = e.T2f;
    ind->T3s = e.T3s;
    ind->T3f = e.T3f;
    ind->T4s = e.T4s;
    ind->T4f = e.T4f;
    ind->asymComp = e.asymComp;
    node::sendTo(s->timestampConsumerPid, ind);
}

void TuPktsync_Timestamp_server_handle_ts_ptpPeerDelay(u32 froId, u32 froClassNo, u64 T1s, u32 T1f, u64 T2s,
                                                       u32 T2f)
{
    if (!hasConsumer()) return;
    auto* ind = node::make<TuPktsyncPtpPacketPeerdelayInd>(TUPKTSYNC_PTP_PACKET_PEERDELAY_IND);
    ind->froId = froId;
    ind->froClassNo = froClassNo;
    ind->T1s = T1s;
    ind->T1f = T1f;
    ind->T2s = T2s;
    ind->T2f = T2f;
    node::sendTo(s->timestampConsumerPid, ind);
}

void TuPktsync_Timestamp_server_handle_ts_ntp(u32 froId, u32 froClassNo, const std::array<u32, 8>& T)
{
    if (!hasConsumer()) return;
    auto* ind = node::make<TuPktsyncNtpPacketInd>(TUPKTSYNC_NTP_PACKET_IND);
    ind->froId = froId;
    ind->froClassNo = froClassNo;
    ind->T = T;
    node::sendTo(s->timestampConsumerPid, ind);
}

PROCESS TuPktsync_Timestamp_server_consumer() { return s->timestampConsumerPid; }
