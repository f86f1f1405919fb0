#include "pktsync/tupktsyncadm.h"

#include "base/trace_groups.h"
#include "mp/kvd_iifadm_send.h"
#include "node/sig.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_grandmasters.h"
#include "pktsync/tupktsync_ptp_protocol.h"
#include "pktsync/tupktsync_upcalls.h"
#include "reg/kvd_reg_packet_entry.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sig/tupktsync_sig.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_process.h"

#include <algorithm>

namespace {

constexpr TuPktsyncClockRqmt RQMT = {
    .minPktInterval = 31,
    .maxPktInterval = 125,
    .freqClockClass = 14,
    .freqClockAccuracy = 0xFF,
    .timeClockClass = 7,
    .timeClockAccuracy = 0x22,
    .stratumLevel = 1,
    .freqClockClassG8265_1 = {80, 82, 84, 86, 90},
};

struct State {
    u8  refType = NO_REF;
    u32 froId = 0, froClassNo = 0;
    TuPktsyncClockRqmt clockRqmt = RQMT;
    u8  selectionMode = 0;
};
ose::ModuleData<State> s;

constexpr u8 BY_QUALITY_LEVEL = 1;

/// A deselected reference's last packets may still be on their way.
bool isSelected(u32 froId, u32 froClassNo) { return froId == s->froId || froClassNo == s->froClassNo; }

void onSelect(const Signal* sig)
{
    const auto* ind = as<KvdTuiifSelectSynchRefInd>(sig);
    if (ind == nullptr) return;
    s->refType = ind->refType;
    s->froId = ind->froId;
    s->froClassNo = ind->froClassNo;
    KVD_TRACE(TRACE_TUPKTSYNCADM, TRACE_8,
              "KVD_TUIIF_SELECT_SYNCH_REF_IND received. syncRefType=%s, %usyncRefFroId=%u"
              "syncRefFroClassNo=%u",
              KvdLoz6TuRef_refTypeText(ind->refType), ind->refType, ind->froId, ind->froClassNo);
    if (ind->refType == PACKET_TIME_REF || ind->refType == PACKET_FREQ_REF)
        KvdLoz6TuPktsync_selection(s->froId, s->froClassNo, PKTSYNC_SELECT, KvdLoz6TuMgr_pid());
    else
        KvdLoz6TuPktsync_selection(0, 0, PKTSYNC_DESELECT_ALL, KvdLoz6TuMgr_pid());
}

void onSelectionMode(const Signal* sig)
{
    if (const auto* ind = as<KvdTuiifSelectionModeChangeInd>(sig))
        TuPktsync_selectionMode(ind->selectionProcessMode);
}

PktTimeMsg timeMsg(const TuPktsyncPtpPacketInd& p)
{
    PktTimeMsg m{};
    m.syncIntervalMs = p.logSyncInterval;
    m.T1_s = static_cast<i64>(p.T1s);
    m.T1_ns = static_cast<i32>(p.T1f);
    m.T2_s = static_cast<i64>(p.T2s);
    m.T2_ns = static_cast<i32>(p.T2f);
    m.T3_s = static_cast<i64>(p.T3s);
    m.T3_ns = static_cast<i32>(p.T3f);
    m.T4_s = static_cast<i64>(p.T4s);
    m.T4_ns = static_cast<i32>(p.T4f);
    m.asymComp = p.asymComp;
    return m;
}

void onPtpPacket(const Signal* sig)
{
    const auto* p = as<TuPktsyncPtpPacketInd>(sig);
    if (p == nullptr || !isSelected(p->froId, p->froClassNo)) return;
    if (s->refType == PACKET_TIME_REF) {
        KVD_TRACE(TRACE_TUPKTSYNCADM, TRACE_3, "PTP packet received");
        PktTimeMsg message = timeMsg(*p);
        KvdLoz6TuReg_pktTimeMsg(message);
        return;
    }
    // The delay request's pair comes first: this node asks with it, as an NTP client does.
    const u32 halves[8] = {static_cast<u32>(p->T3s), TuPktsyncAdm_fractionOf(p->T3f),
                           static_cast<u32>(p->T4s), TuPktsyncAdm_fractionOf(p->T4f),
                           static_cast<u32>(p->T1s), TuPktsyncAdm_fractionOf(p->T1f),
                           static_cast<u32>(p->T2s), TuPktsyncAdm_fractionOf(p->T2f)};
    KvdLoz6TuReg_pktFreqMsg(halves);
}

void onPeerDelayPacket(const Signal* sig)
{
    const auto* p = as<TuPktsyncPtpPacketPeerdelayInd>(sig);
    if (p != nullptr && isSelected(p->froId, p->froClassNo))
        KVD_TRACE(TRACE_TUPKTSYNCADM, TRACE_3, "PTP peer delay packet received");
}

void onNtpPacket(const Signal* sig)
{
    const auto* p = as<TuPktsyncNtpPacketInd>(sig);
    if (p == nullptr || !isSelected(p->froId, p->froClassNo)) return;
    KVD_TRACE(TRACE_TUPKTSYNCADM, TRACE_3, "NTP packet received");
    u32 halves[8];
    std::copy(p->T.begin(), p->T.end(), halves);
    KvdLoz6TuReg_pktFreqMsg(halves);
    const auto stamp = [&p](u32 i) { return u64{p->T[2 * i]} << 32 | p->T[2 * i + 1]; };
    PKTSYNC_UPCALLS.delaySample(stamp(0), stamp(1), stamp(2), stamp(3));
}

}  // namespace

void TuPktsyncAdm_initiate() { KvdLoz6TuPktsync_clockRqmt(); }

bool TuPktsyncAdm_dispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_TUIIF_SELECT_SYNCH_REF_IND:       onSelect(sig);          return true;
    case KVD_TUIIF_SELECTION_MODE_CHANGE_IND:  onSelectionMode(sig);   return true;
    case TUPKTSYNC_PTP_PACKET_IND:             onPtpPacket(sig);       return true;
    case TUPKTSYNC_PTP_PACKET_PEERDELAY_IND:   onPeerDelayPacket(sig); return true;
    case TUPKTSYNC_NTP_PACKET_IND:             onNtpPacket(sig);       return true;
    default:                                                           return false;
    }
}

void TuPktsync_selectionMode(u8 selectionProcessMode)
{
    s->selectionMode = selectionProcessMode;
    if (selectionProcessMode == BY_QUALITY_LEVEL) TuPktsyncPTP_reportQualities();
}

void KvdLoz6TuPktsync_selection(u32 froId, u32 froClassNo, u32 selectOperation, PROCESS consumer)
{
    auto* ind = node::make<TuPktsyncRefSelectionInd>(TUPKTSYNC_REF_SELECTION_IND);
    ind->froId = froId;
    ind->froClassNo = froClassNo;
    ind->selectOperation = selectOperation;
    ind->timestampConsumerPid = consumer;
    node::sendTo(KvdLoz6TuPktsync_pid(), ind);
}

void KvdLoz6TuPktsync_clockRqmt()
{
    auto* ind = node::make<TuPktsyncClockRqmtInd>(TUPKTSYNC_CLOCK_RQMT_IND);
    ind->rqmt = s->clockRqmt;
    node::sendTo(KvdLoz6TuPktsync_pid(), ind);
}

void TuPktsyncAdm_clockClassValid(u32 froId, u32 froClassNo, u8 clockClass)
{
    constexpr u8 NONE = 255, UNKNOWN_QUALITY = 98;
    constexpr u8 FIRST = 80, LAST_STEP = 30;          // ITU-T G.8265.1 table 2: even, 80 to 110
    const bool isGated = clockClass != NONE && froClassNo == PACKET_FREQ_FRO_CLASS;
    if (isGated && clockClass > s->clockRqmt.freqClockClass
        && (static_cast<u8>(clockClass - FIRST) > LAST_STEP || clockClass % 2 != 0)) {
        KVD_TRACE(TRACE_TUPKTSYNCADM, TRACE_ENTER, "Func=%s, clockQl = %hhu", "clockClassValid", clockClass);
        clockClass = UNKNOWN_QUALITY;
    }
    KvdLoz6TuIifAdm_sendQualityLevelInd(froId, froClassNo, clockClass, 0);
}

u32 TuPktsync_grandmasterHistoryText(char* text, u32 room) { return TuPktsync_grandmastersText(text, room); }
