// Sync, Follow_Up and Delay_Resp: their stamps, the supervision of their flow, the filter that thins a
// flow out which is faster than the regulator wants it.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_ptp_uc_neg.h"

#include <algorithm>

namespace {

constexpr u32 STAMP_CORRECTION = 0, STAMP_T1 = 1, STAMP_T2 = 2;   // of the Sync pool
constexpr u32 STAMP_T4 = 1;                                       // of the delay pool
constexpr i8  LOG_USABLE_MIN = -7, LOG_USABLE_MAX = 5;
constexpr u32 G82751_LONGEST_ms = 63;                             // 16 messages a second

bool isFromParent(const PtpClock& c, const PtpHeader& h, const char* text)
{
    const bool isParent = h.sourcePortIdentity == c.parent.parentPortIdentity;
    if (!isParent) KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "%s received from unknown clock", text);
    return isParent;
}

bool isReady(const PtpClock& c, const char* text)
{
    const bool ready = c.portState == UNCALIBRATED || c.portState == SLAVE;
    if (!ready) KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "%s received - not ready for handling", text);
    return ready;
}

/// Its log interval, or the granted one; false for one that can't be used.
bool logIntervalOf(const PtpClock& c, const PtpHeader& h, u32 messageType, const char* text, i8& log)
{
    if (ptpHasUcNeg(c.setup.syncrefId)) {
        log = ptpGrantedLog(c.setup.syncrefId, messageType);
        return true;
    }
    log = h.logMessageInterval;
    if (log >= LOG_USABLE_MIN && log <= LOG_USABLE_MAX) return true;
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
              "%s received for syncrefId %u with unusable logMessageInterval (%d)", text, c.setup.syncrefId,
              log);
    return false;
}

/// Of the Syncs that pass the filter, which thins them out to what is wanted and never beyond.
i8 effectiveLog(const PtpClock& c) { return static_cast<i8>(c.logSyncInterval + c.logPassFraction); }

bool rateMet(const PtpClock& c, i8 log)
{
    const u32 limit = ptpIsG82751Time(c) ? G82751_LONGEST_ms : c.setup.rqmt.maxSyncInterval;
    return ptpLogToMs(log) <= limit;
}

void newSyncInterval(PtpClock& c, i8 log)
{
    c.logSyncInterval = log;
    if (ptpSyncRateMet(c)) {
        ptpFaults(c, 0, FAULT_SYNC_RATE);
    } else {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "Sync received for syncrefId %d with low  logMessageInterval (%hhd)", c.setup.syncrefId,
                  log);
        ptpFaults(c, FAULT_SYNC_RATE, 0);
    }
    ptpRecomputeFilter(c);
    TuPktsyncPTP_update_DelayReqRespCtrl_interval(c, ptpLogToMs(c.logMinDelayReqInterval),
                                                  ptpLogToMs(effectiveLog(c)));
}

void saveSyncStamp(PtpClock& c, u16 sequenceId, u32 index, const PtpStamp& stamp)
{
    TuPktsync_save_TS(c.syncStamps, sequenceId, c.logPassFraction, index, stamp);
}

void tellSyncStatus(PtpClock& c)
{
    switch (c.syncSup.syncStatus) {
    case SYNC_DEGRADED: return ptpFaults(c, FAULT_SYNC_DEGRADED, FAULT_SYNC_FAILED);
    case SYNC_FAILED: c.logSyncInterval = 0; return ptpFaults(c, FAULT_SYNC_FAILED, FAULT_SYNC_DEGRADED);
    default:            return ptpFaults(c, 0, FAULTS_SYNC);
    }
}

}  // namespace

bool ptpSyncRateMet(const PtpClock& c) { return rateMet(c, c.logSyncInterval); }
bool ptpDelayReqRateMet(const PtpClock& c) { return rateMet(c, c.logMinDelayReqInterval); }

// ---- messages -----------------------------------------------------------------------------------

bool ptpOnSync(PtpClock& c, const PtpHeader& h, const PtpTimestamp& origin, const PtpStamp& received)
{
    if (!isFromParent(c, h, "Sync") || !isReady(c, "Sync")) return false;
    i8 log = 0;
    if (!logIntervalOf(c, h, PTP_SYNC, "Sync", log)) return false;
    if (log != c.logSyncInterval || c.portState == UNCALIBRATED) newSyncInterval(c, log);
    if ((h.sequenceId & c.seqIdDiscardMask) != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_6,
                  "Filtering received Sync for syncrefId %u, sequenceId %u", c.setup.syncrefId, h.sequenceId);
        return false;
    }
    saveSyncStamp(c, h.sequenceId, STAMP_T2, received);
    if ((h.flagField[0] & PTP_TWO_STEP) == 0)
        saveSyncStamp(c, h.sequenceId, STAMP_T1, {origin.seconds, origin.nanoseconds});
    const u64 correction = static_cast<u64>(h.correctionField);
    saveSyncStamp(c, h.sequenceId, STAMP_CORRECTION,
                  {static_cast<u32>(correction >> 32), static_cast<u32>(correction)});
    if (c.portState == UNCALIBRATED) ptpPortEvent(c, MASTER_CLOCK_SELECTED);
    return true;
}

bool ptpOnFollowUp(PtpClock& c, const PtpHeader& h, const PtpTimestamp& preciseOrigin)
{
    if (!isFromParent(c, h, "Follow_Up") || !isReady(c, "Follow_Up")) return false;
    if ((h.sequenceId & c.seqIdDiscardMask) != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_6,
                  "Filtering received Follow_Up for syncrefId %u, sequenceId %u", c.setup.syncrefId,
                  h.sequenceId);
        return false;
    }
    const PtpTime T1 = ptpAdd(preciseOrigin, ptpCorrection_ns(h.correctionField));
    saveSyncStamp(c, h.sequenceId, STAMP_T1, {static_cast<u32>(T1.seconds), T1.nanoseconds});
    return true;
}

bool ptpOnDelayResp(PtpClock& c, const PtpHeader& h, const PtpDelayResp& r)
{
    if (c.portState != SLAVE) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Delay_Resp received - not ready for handling");
        return false;
    }
    if (r.requestingPortIdentity != c.portIdentity) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_6, "Delay_Resp received - not our PortIdentity");
        return false;
    }
    i8 log = 0;
    if (!logIntervalOf(c, h, PTP_DELAY_RESP, "Delay_Resp", log)) return false;
    if (log != c.logMinDelayReqInterval) {
        c.logMinDelayReqInterval = log;
        TuPktsyncPTP_update_DelayReqRespCtrl_interval(c, ptpLogToMs(log), ptpLogToMs(effectiveLog(c)));
        ptpFault(c, FAULT_DELAY_REQ_RATE, !ptpDelayReqRateMet(c));
    }
    const PtpTime T4 = ptpAdd(r.receiveTimestamp, -ptpCorrection_ns(h.correctionField));
    TuPktsync_save_TS(c.delay.stamps, h.sequenceId, 0, STAMP_T4,
                      {static_cast<u32>(T4.seconds), T4.nanoseconds});
    return true;
}

// ---- filter -------------------------------------------------------------------------------------

void ptpRecomputeFilter(PtpClock& c)
{
    const i8 wanted = ptpMsToLog(c.setup.rqmt.minSyncInterval);
    const u16 fraction = static_cast<u16>(std::max(wanted - c.logSyncInterval, 0));
    // A master may grant intervals of any log: beyond 2^16 only sequenceId 0 passes.
    constexpr u16 SEQUENCE_BITS = 16;
    const u16 mask = static_cast<u16>((1u << std::min(fraction, SEQUENCE_BITS)) - 1);
    if (fraction == c.logPassFraction) return;
    c.logPassFraction = fraction;
    c.seqIdDiscardMask = mask;
    if (c.syncSup.syncStatus != SYNC_OFF) ptpStartSyncSup(c, true);
}

// ---- supervision --------------------------------------------------------------------------------

void ptpStartSyncSup(PtpClock& c, bool keepStatus)
{
    constexpr u32 SHORTEST_ms = 4000, COUNTED_ms = 3000, FEWEST = 3;
    PtpSyncSup& s = c.syncSup;
    s.logMsgInterval = effectiveLog(c);
    const u32 interval = ptpLogToMs(s.logMsgInterval);
    s.timer_interval = std::max(4 * interval, SHORTEST_ms);
    // A byte counts: of a period's messages at the highest rates only so many are expected.
    s.norm_threshold = static_cast<u8>(std::clamp<u32>(COUNTED_ms / interval, FEWEST, UINT8_MAX));
    if (!keepStatus) s.syncStatus = SYNC_OK;
    s.msgs_prev_period = static_cast<u8>(std::min<u32>(s.norm_threshold + 1u, UINT8_MAX));
    s.msgs_this_period = 0;
    TuPktsync_timerStart(s.timer, s.timer_interval);
}

void ptpStopSyncSup(PtpClock& c)
{
    TuPktsync_timerStop(c.syncSup.timer);
    c.syncSup.syncStatus = SYNC_OFF;
}

void ptpCountSync(PtpClock& c)
{
    PtpSyncSup& s = c.syncSup;
    if (s.syncStatus == SYNC_OFF) return;
    if (s.logMsgInterval != effectiveLog(c)) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "syncSup_message_rcvd for syncrefId %d detected change of Sync and/or filter "
                  "interval; re-starting syncSup",
                  c.setup.syncrefId);
        ptpStartSyncSup(c, true);
        return;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_6, "syncSup_message_rcvd for syncrefId %d; message counted",
              c.setup.syncrefId);
    s.msgs_this_period = static_cast<u8>(std::min(s.msgs_this_period + 1, UINT8_MAX));
}

void ptpSyncSupTimeout(PtpClock& c)
{
    PtpSyncSup& s = c.syncSup;
    const bool now = s.msgs_this_period >= s.norm_threshold;
    const bool before = s.msgs_prev_period >= s.norm_threshold;
    const bool any = s.msgs_this_period != 0 || s.msgs_prev_period != 0;
    const u32 old = s.syncStatus;
    TuPktsync_timerStart(s.timer, 0);
    if (now && before) s.syncStatus = SYNC_OK;
    else if (!any) s.syncStatus = SYNC_FAILED;
    else if (!now && !before) s.syncStatus = SYNC_DEGRADED;
    if (!any) ptpPortEvent(c, SYNCHRONIZATION_FAULT);
    if (s.syncStatus != old) tellSyncStatus(c);
    s.msgs_prev_period = s.msgs_this_period;
    s.msgs_this_period = 0;
}
