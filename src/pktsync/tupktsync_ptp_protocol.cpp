#include "pktsync/tupktsync_ptp_protocol.h"

#include "base/element_of.h"
#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_ptp_uc_neg.h"

#include <iterator>
#include <optional>

namespace {

struct State {
    std::array<std::optional<PtpClock>, PTP_CLOCKS> clocks{};
    PtpNeeds needs{};
};
ose::ModuleData<State> s;

constexpr u32 ANNOUNCE_J3_ms = 8100, ANNOUNCE_G82751_ms = 1100;
constexpr i8  LOG_8S = 3;
constexpr u16 POSITIONS = 32, STAMPS_PER_SYNC = 3;
constexpr u8  QUALITY_NONE = 255;

void onSet(u32 userReference, const TsPosition& set) { TuPktsyncPTP_TS_set_ready(userReference, set); }

PtpDescriptor descriptorOf(const PtpClock& c, i32 socket)
{
    return {c.setup.ptpMapping, c.setup.ptpMulticastAddress, c.setup.pbit,
            c.setup.dscp,       socket,                      c.setup.serverIpAddress};
}

i8 negotiatedLog(const PtpClock& c) { return ptpMsToLog(c.setup.rqmt.maxSyncInterval); }

void setPriorities(PtpClock& c)
{
    const bool isJ3 = c.setup.ptpProfile == IEEE_1588_J3;
    c.priority1 = isJ3 ? 0 : 128;
    c.priority2 = isJ3 ? 0 : 255;
}

// ---- port state machine -------------------------------------------------------------------------

void nothing(PtpClock&) {}

void beginListening(PtpClock& c)
{
    if (!ptpIsG82751Time(c) && ptpHasUcNeg(c.setup.syncrefId))
        TuPktsyncPTP_start_UCnegotiation(c.setup.syncrefId, negotiatedLog(c));
    else
        ptpStartAnnounceTimer(c);
}

void loseMaster(PtpClock& c)
{
    ptpStopSyncSup(c);
    ptpFaults(c, 0, FAULTS_SYNC);
    ptpStartAnnounceTimer(c);
}

constexpr u32 bitOf(u32 portState) { return 1u << portState; }
constexpr u32 LISTENS = bitOf(LISTENING), SLAVES = bitOf(SLAVE), ANY = ~0u;
constexpr u32 FOLLOWS = bitOf(UNCALIBRATED) | bitOf(SLAVE);
constexpr u32 AS_IS = 0xFFFFFFFF;

/// The states of a port that is never master, IEEE 1588-2008 9.2.5: what leads out of which, what is done
/// then.
struct PortRow {
    u32 event;
    u32 from;                      // bits of the states in which it is expected
    void (*act)(PtpClock& c);
    u32 to;
};
constexpr PortRow PORT_ROWS[] = {
    {INITIALIZE,                       ANY,               nothing,                 INITIALIZING},
    {INITIALIZE_READY,                 ANY,               beginListening,          LISTENING},
    {REC_STATE_BMC_SLAVE,              LISTENS,           ptpStartAnnounceTimer,   UNCALIBRATED},
    {REC_STATE_BMC_SLAVE,              FOLLOWS,           ptpStartAnnounceTimer,   AS_IS},
    {REC_STATE_BMC_SLAVE_NEW_MASTER,   LISTENS | FOLLOWS, ptpStartAnnounceTimer,   UNCALIBRATED},
    {ANNOUNCE_RECEIPT_TIMEOUT_EXPIRES, LISTENS,           ptpStartAnnounceTimer,   LISTENING},
    {ANNOUNCE_RECEIPT_TIMEOUT_EXPIRES, FOLLOWS,           loseMaster,              LISTENING},
    {SYNCHRONIZATION_FAULT,            SLAVES,            nothing,                 UNCALIBRATED},
    {MASTER_CLOCK_SELECTED,            ANY,               TuPktsyncPTP_start_DelayReqRespCtrl, SLAVE},
};

/// Does what the event asks for; the state that the port is in then.
u32 follow(PtpClock& c, u32 event)
{
    for (const PortRow& row : PORT_ROWS)
        if (row.event == event && (row.from & bitOf(c.portState)) != 0) {
            const u32 before = c.portState;
            row.act(c);
            return row.to == AS_IS ? before : row.to;
        }
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR, "%s portStateEvent (%u) for syncrefId %d",
              event > MASTER_CLOCK_SELECTED ? "Unknown" : "Unexpected", event, c.setup.syncrefId);
    return c.portState;
}

// ---- exchange -----------------------------------------------------------------------------------

void onSyncSet(PtpClock& c, const TsPosition& set)
{
    const u32 id = c.setup.syncrefId;
    ptpCountSync(c);
    if (!c.selected) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_6,
                  "handle_Sync_timestamps(syncrefId=%u) - clock not selected", id);
        return;
    }
    const PtpDelaySample* const sample = TuPktsyncPTP_delaySample(c);
    if (sample == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_6,
                  "handle_Sync_timestamps(syncrefId=%u) - no Delay_Resp yet", id);
        return;
    }
    const i64 raw = static_cast<i64>(u64{set.stamps[0].high} << 32 | set.stamps[0].low);
    const PtpTime T1 = ptpAdd({set.stamps[1].high, set.stamps[1].low},
                              ptpCorrection_ns(raw) + c.setup.delayAsymmetry - s->needs.latencyAsymmetry());
    PtpExchange e;
    e.froId = c.setup.froId;
    e.froClassNo = c.setup.froClassNo;
    e.interval_ms = ptpLogToMs(c.logSyncInterval);
    e.T1s = static_cast<u64>(T1.seconds);
    e.T1f = T1.nanoseconds;
    e.T2s = set.stamps[2].high;
    e.T2f = ptpFraction_ns(set.stamps[2].low);
    e.T3s = sample->T3s;
    e.T3f = sample->T3f;
    e.T4s = sample->T4s;
    e.T4f = sample->T4f;
    e.asymComp = c.setup.delayAsymmetry;
    s->needs.sendExchange(e);
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_8, "Timestamps sent to tureg for syncrefId=%u", id);
}

void checkRate(PtpClock& c, u32 fault, bool met, const char* text, i8 log)
{
    if (!met) KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, text, c.setup.syncrefId, log);
    ptpFault(c, fault, !met);
}

void checkRates(PtpClock& c)
{
    if (c.delay.status == DRM_OK)
        checkRate(c, FAULT_DELAY_REQ_RATE, ptpDelayReqRateMet(c),
                  "Updated clock requirements for syncrefId %u do not met by current "
                  "logMinDelayReqInterval=%d",
                  c.logMinDelayReqInterval);
    if (c.portState == SLAVE)
        checkRate(c, FAULT_SYNC_RATE, ptpSyncRateMet(c),
                  "Updated clock requirements for syncrefId %u not met by current "
                  "logSyncInterval=%d",
                  c.logSyncInterval);
}

void announceTimeout(PtpClock& c)
{
    ptpForgetMaster(c);
    ptpFaults(c, FAULT_NO_ANNOUNCE, 0);
    ptpPortEvent(c, ANNOUNCE_RECEIPT_TIMEOUT_EXPIRES);
}

}  // namespace

// ---- shared with the clock's parts --------------------------------------------------------------

PtpClock* ptpClockOf(u32 syncrefId)
{
    auto* const place = elementOf(s->clocks, syncrefId);
    return place != nullptr && *place ? &**place : nullptr;
}

bool ptpIsFrequency(const PtpClock& c) { return c.setup.froClassNo == PACKET_FREQ_FRO_CLASS; }

bool ptpIsG82751Time(const PtpClock& c) { return !ptpIsFrequency(c) && c.setup.ptpProfile == ITU_T_G_8275_1; }

void ptpFaults(PtpClock& c, u32 set, u32 clear)
{
    const u32 faults = (c.fault_flags & ~clear) | set;
    if (faults == c.fault_flags) return;
    c.fault_flags = faults;
    if (c.enabled) s->needs.reportFaults(c.setup.froId, c.setup.froClassNo, faults);
}

u8 ptpQualityOf(const PtpClock& c)
{
    const PtpClockQuality& q = c.parent.grandmasterClockQuality;
    // Before the first Announce there is no class: 0 would be the best of all.
    if (!ptpIsG82751Time(c)) return ptpHasMaster(c) ? q.clockClass : QUALITY_NONE;
    const u8 flags = c.timeProperties.flags;
    return ptpQualityLevelIndex({q.clockClass, q.clockAccuracy, (flags & PTP_TIME_TRACEABLE) != 0,
                                 (flags & PTP_FREQUENCY_TRACEABLE) != 0});
}

void ptpReportQuality(const PtpClock& c, u8 quality)
{
    if (c.enabled) s->needs.reportQuality(c.setup.froId, c.setup.froClassNo, quality);
}

void ptpStartAnnounceTimer(PtpClock& c)
{
    TuPktsync_timerStart(c.announceTimer, ptpIsG82751Time(c) ? ANNOUNCE_G82751_ms : ANNOUNCE_J3_ms);
}

void ptpForgetMaster(PtpClock& c)
{
    c.parent = {};
    c.timeProperties = {};
    c.stepsRemoved = 0;
}

void ptpPortEvent(PtpClock& c, u32 event)
{
    const u32 before = c.portState;
    c.portState = follow(c, event);
    if (before == SLAVE && c.portState != SLAVE) {
        TuPktsyncPTP_stop_DelayReqRespCtrl(c);
        TuPktsync_clear_TS_buffer(c.syncStamps);
        TuPktsync_clear_TS_buffer(c.delay.stamps);
        c.logMinDelayReqInterval = LOG_8S;
    }
    if (c.portState == UNCALIBRATED && before != UNCALIBRATED) ptpStartSyncSup(c, before == SLAVE);
}

void ptpSendDelayReq(u32 syncrefId, u16 sequenceId)
{
    PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr) return;
    u8 message[PTP_DELAY_REQ_LENGTH] = {};
    PtpHeader h;
    h.messageType = PTP_DELAY_REQ;
    h.versionPTP = 2;
    h.messageLength = PTP_DELAY_REQ_LENGTH;
    h.domainNumber = c->setup.domainNumber;
    h.flagField = {c->setup.ptpMapping == UDP_UC ? PTP_UNICAST : u8{0}, c->timeProperties.flags};
    h.correctionField = -i64{c->setup.delayAsymmetry} * 65'536;
    h.sourcePortIdentity = c->portIdentity;
    h.sequenceId = sequenceId;
    h.controlField = 1;
    h.logMessageInterval = 127;
    ptpPutHeader(message, h);
    const u8 metadata[8] = {static_cast<u8>(sequenceId >> 8), static_cast<u8>(sequenceId), 0,
                            static_cast<u8>(syncrefId), PTP_DELAY_REQ, 0, 0, 0};
    if (!s->needs.send(descriptorOf(*c, c->setup.eventSocket), message, sizeof message, metadata))
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR, "Failed to allocate send buffer");
}

bool ptpSendGeneral(u32 syncrefId, const u8* message, u32 length)
{
    const PtpClock* const c = ptpClockOf(syncrefId);
    return c != nullptr && s->needs.send(descriptorOf(*c, c->setup.generalSocket), message, length, nullptr);
}

// ---- life of a clock ----------------------------------------------------------------------------

void TuPktsync_PTP_init(const PtpNeeds& needs) { s->needs = needs; }

bool TuPktsync_new_ptp_clock(const PtpClockSetup& setup)
{
    if (setup.peerDelayMechanism) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR,
                  "TuPktsync_new_ptp_clock: Peer Delay Mechanism not implemented yet");
        return false;
    }
    const u32 id = setup.syncrefId;
    auto* const place = elementOf(s->clocks, id);
    if (place == nullptr || *place) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR,
                  "new_clock_entry: syncrefId position already occupied");
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR, "TuPktsync_new_ptp_clock: failed");
        return false;
    }
    PtpClock& c = place->emplace();
    c.setup = setup;
    c.portIdentity = {setup.clockIdentity, 1};
    setPriorities(c);
    c.logMinDelayReqInterval = LOG_8S;
    TuPktsync_new_TS_buffer(c.syncStamps, id << 16 | PTP_POOL_SYNC, POSITIONS, STAMPS_PER_SYNC, onSet);
    TuPktsync_timerInit(c.announceTimer, id, PTP_TMO_ANNOUNCE);
    TuPktsyncPTP_new_DelayReqRespCtrl(c, id);
    if (setup.ptpMapping == UDP_UC) TuPktsyncPTP_new_UCnegCtrl(id);
    TuPktsync_timerInit(c.syncSup.timer, id, PTP_TMO_SYNC_SUP);
    for (u32 i = 0; i < PTP_FOREIGN_MASTERS; ++i)
        TuPktsync_timerInit(c.foreignMasters[i].timer, id, PTP_TMO_FOREIGN_MASTER, i);
    ptpPortEvent(c, INITIALIZE);
    ptpPortEvent(c, INITIALIZE_READY);
    return true;
}

void TuPktsync_delete_ptp_clock(u32 syncrefId)
{
    PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr) return;
    TuPktsyncPTP_cancel_UCtrans(syncrefId);
    TuPktsyncPTP_delete_UCnegCtrl(syncrefId);
    TuPktsync_timerStop(c->announceTimer);
    TuPktsync_timerStop(c->syncSup.timer);
    TuPktsyncPTP_delete_DelayReqRespCtrl(*c);
    for (PtpForeignMaster& f : c->foreignMasters) TuPktsync_timerStop(f.timer);
    s->clocks[syncrefId].reset();
}

void TuPktsync_change_ptp_clock(u32 syncrefId, i32 delayAsymmetry, u8 pbit, u8 dscp, u8 ptpProfile)
{
    PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr) return;
    const auto change = [syncrefId](auto& field, auto value, const char* name) {
        if (field == value) return;
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_INFO, "%s changed for syncrefId %u from %d to %d", name,
                  syncrefId, static_cast<i32>(field), static_cast<i32>(value));
        field = value;
    };
    change(c->setup.delayAsymmetry, delayAsymmetry, "delayAsymmetry");
    change(c->setup.pbit, pbit, "pbit");
    change(c->setup.dscp, dscp, "dscp");
    if (c->setup.ptpProfile == ptpProfile) return;
    change(c->setup.ptpProfile, ptpProfile, "ptpProfile");
    ptpForgetMaster(*c);
    c->fault_flags = 0;
    if (c->selected) s->needs.profileChanged(ptpProfile);
    if (c->enabled) s->needs.reportFaults(c->setup.froId, c->setup.froClassNo, 0);
    setPriorities(*c);
    ptpReportQuality(*c, ptpQualityOf(*c));
}

void TuPktsync_set_ptp_path_supervision(u32 syncrefId, u32 on)
{
    PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr) return;
    if (on == 0) {
        c->enabled = false;
        s->needs.reportQuality(c->setup.froId, c->setup.froClassNo, QUALITY_NONE);
        return;
    }
    c->enabled = true;
    s->needs.reportFaults(c->setup.froId, c->setup.froClassNo, c->fault_flags);
    ptpReportQuality(*c, TuPktsyncPTP_findClockQuality(syncrefId));
}

void TuPktsync_set_ptp_selected(u32 syncrefId, u32 selected)
{
    if (PtpClock* const c = ptpClockOf(syncrefId)) c->selected = selected != 0;
}

const u8* TuPktsync_PTP_getProfile(u32 syncrefId)
{
    const PtpClock* const c = ptpClockOf(syncrefId);
    return c != nullptr ? &c->setup.ptpProfile : nullptr;
}

void TuPktsync_PTP_clockRqmtInd(u32 syncrefId, u32 minPktInterval, u32 maxPktInterval, u8 clockClass,
                                const std::array<u8, 5>& classes, u8 clockAccuracy)
{
    PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr) return;
    PtpClockRqmt& r = c->setup.rqmt;
    r.clockClass = clockClass;
    r.freqClockClassG8265_1 = classes;
    r.clockAccuracy = clockAccuracy;
    if (r.minSyncInterval != minPktInterval) {
        r.minSyncInterval = minPktInterval;
        ptpRecomputeFilter(*c);
    }
    if (r.maxSyncInterval == maxPktInterval) return;
    r.maxSyncInterval = maxPktInterval;
    r.maxDelayReqInterval = maxPktInterval;
    if (!ptpHasUcNeg(syncrefId)) {
        checkRates(*c);
        return;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
              "Restarting Unicast Negatiation for syncrefId %u for updated clock requirements", syncrefId);
    TuPktsyncPTP_start_UCnegotiation(syncrefId, negotiatedLog(*c));
}

// ---- stamps and time-outs -------------------------------------------------------------------------------

void TuPktsync_PTP_egressTimestamp(const u8* metadata, const PtpStamp& sent)
{
    const u16 sequenceId = node::be16(metadata);
    const u32 syncrefId = metadata[3];
    const u8 messageType = metadata[4];
    PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "PktSyncDrvTimestampInd for non-existing syncrefId(%u)",
                  syncrefId);
        return;
    }
    if (messageType == PTP_PDELAY_RESP || messageType == PTP_PDELAY_RESP_FOLLOW_UP) return;
    if (messageType != PTP_DELAY_REQ) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "PktSyncDrvTimestampInd with wrong messageType(%u)",
                  messageType);
        return;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_6,
              "Egress timestamp for Delay_Req, syncrefId %u, sequenceId %u", syncrefId, sequenceId);
    TuPktsync_save_TS(c->delay.stamps, sequenceId, 0, 0, sent);
}

void TuPktsyncPTP_TS_set_ready(u32 userReference, const TsPosition& set)
{
    PtpClock* const c = ptpClockOf(userReference >> 16);
    if (c == nullptr) return;
    switch (userReference & 0xFFFF) {
    case PTP_POOL_SYNC:  return onSyncSet(*c, set);
    case PTP_POOL_DELAY: return TuPktsyncPTP_handle_Delay_timestamps(*c, set);
    default: KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR, "unknown timestammp poolId");
    }
}

void TuPktsync_PTP_TmoSig(u32 syncrefId, u32 timerId, u32 index)
{
    PtpClock* const c = ptpClockOf(syncrefId);
    const bool counts = TuPktsync_timerExpired(syncrefId, timerId, index);
    if (c == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "TuPktsync_PTP_TmoSig for non-existing syncrefId(%d), specificInfo(%u)", syncrefId,
                  timerId);
        return;
    }
    if (!counts) return;
    switch (timerId) {
    case PTP_TMO_ANNOUNCE:       return announceTimeout(*c);
    case PTP_TMO_SYNC_SUP:       return ptpSyncSupTimeout(*c);
    case PTP_TMO_DELAY:          return TuPktsyncPTP_handle_DelayReqRespCtrl_timeout(*c);
    case PTP_TMO_FOREIGN_MASTER: return ptpForeignMasterTimeout(*c, index);
    default:                     return TuPktsyncPTP_UCtimeout(syncrefId, timerId);
    }
}

void TuPktsyncPTP_handleRegInd(i32 syncrefId, i64 offsetFromMaster, i64 meanPathDelay)
{
    if (syncrefId < 0) return;
    PtpClock* const c = ptpClockOf(static_cast<u32>(syncrefId));
    if (c == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "%s for non-existing syncrefId (%d)",
                  "TuPktsyncPTP_handleRegInd", syncrefId);
        return;
    }
    c->offsetFromMaster = offsetFromMaster;
    c->meanPathDelay = meanPathDelay;
}

// ---- queries ------------------------------------------------------------------------------------

u8 TuPktsyncPTP_findClockQuality(u32 syncrefId)
{
    const PtpClock* const c = ptpClockOf(syncrefId);
    if (c == nullptr || !c->enabled) return QUALITY_NONE;
    if (ptpHasUcNeg(syncrefId)) {
        const u32 negotiation = ptpUcNegState(syncrefId);
        if (negotiation <= UC_NEG_WAIT_ANNOUNCE_MSG
            && (negotiation == UC_NEG_WAIT_ANNOUNCE_MSG || !ptpHasMaster(*c)))
            return QUALITY_NONE;
    }
    return ptpQualityOf(*c);
}

void TuPktsyncPTP_reportQualities()
{
    for (const auto& c : s->clocks)
        if (c)
            s->needs.reportQuality(c->setup.froId, c->setup.froClassNo,
                                   TuPktsyncPTP_findClockQuality(c->setup.syncrefId));
}

const char* ptpPortStateText(u32 portState)
{
    static constexpr const char* TEXTS[] = {"PRE_INIT",  "INITIALIZING", "FAULTY",       "DISABLED",
                                            "LISTENING", "PRE_MASTER",   "MASTER",       "PASSIVE",
                                            "UNCALIBRATED", "SLAVE"};
    return portState < std::size(TEXTS) ? TEXTS[portState] : "UNKNOWN";
}
