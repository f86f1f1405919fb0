#include "pktsync/tupktsync_ptp_delay_e2e.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "pktsync/tupktsync_ptp_clock.h"

#include <algorithm>

namespace {

constexpr u32 IDLE_INTERVAL = 8000;
constexpr u16 IDLE_LIMIT = 2;
constexpr u32 SILENCE_ms = 8000;       // of the master until a clock is LATE
constexpr u16 POSITIONS = 32, STAMPS_PER_SET = 2;

/// Any spread will do: it keeps slaves of one master apart (IEEE 1588-2008 9.5.11.2).
u32 nextRandom(DelayReqRespCtrl& d)
{
    d.random = d.random * 1'664'525u + 1'013'904'223u;
    return d.random >> 8;
}

void sendDelayReq(PtpClock& c)
{
    ptpSendDelayReq(c.setup.syncrefId, c.delay.nextSequenceId);
    ++c.delay.nextSequenceId;
}

void onSet(u32 userReference, const TsPosition& set) { TuPktsyncPTP_TS_set_ready(userReference, set); }

}  // namespace

void TuPktsyncPTP_new_DelayReqRespCtrl(PtpClock& c, u32 syncrefId)
{
    DelayReqRespCtrl& d = c.delay;
    d = {};
    d.syncrefId = syncrefId;
    d.nom_interval = IDLE_INTERVAL;
    d.missed_limit = IDLE_LIMIT;
    d.random = syncrefId + 1;
    TuPktsync_timerInit(d.timer, syncrefId, PTP_TMO_DELAY, 0, IDLE_INTERVAL);
    TuPktsync_new_TS_buffer(d.stamps, syncrefId << 16 | PTP_POOL_DELAY, POSITIONS, STAMPS_PER_SET, onSet);
}

void TuPktsyncPTP_delete_DelayReqRespCtrl(PtpClock& c) { TuPktsync_timerStop(c.delay.timer); }

void TuPktsyncPTP_start_DelayReqRespCtrl(PtpClock& c)
{
    DelayReqRespCtrl& d = c.delay;
    if (d.status != DRM_OFF) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_ERROR,
                  "TuPktsyncPTP_start_DelayReqRespCtrl called from invalid state (%d)", d.status);
        return;
    }
    sendDelayReq(c);
    d.missed_replies = 0;
    d.no_reply = 1;
    d.status = DRM_WAIT_1ST;
    ptpFaults(c, 0, FAULT_NO_DELAY_RESP);
    TuPktsync_timerStart(d.timer, 0);
}

void TuPktsyncPTP_stop_DelayReqRespCtrl(PtpClock& c)
{
    DelayReqRespCtrl& d = c.delay;
    TuPktsync_timerStop(d.timer);
    d.status = DRM_OFF;
    d.nom_interval = IDLE_INTERVAL;
    d.timer.duration_ms = IDLE_INTERVAL;
    d.no_reply = 0;
    d.missed_replies = 0;
    d.missed_limit = IDLE_LIMIT;
    ptpFaults(c, 0, FAULT_NO_DELAY_RESP | FAULT_DELAY_REQ_RATE);
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_1,
              "TuPktsyncPTP_stop_DelayReqRespCtrl - stopped for syncrefId %d", d.syncrefId);
}

void TuPktsyncPTP_update_DelayReqRespCtrl_interval(PtpClock& c, u32 MCmin_interval, u32 effectiveSyncInterval)
{
    DelayReqRespCtrl& d = c.delay;
    if (d.status == DRM_OFF) return;
    const u32 wish = d.status == DRM_LATE ? IDLE_INTERVAL : MCmin_interval;
    d.nom_interval = std::max(wish, effectiveSyncInterval);
    d.missed_limit = static_cast<u16>(SILENCE_ms / d.nom_interval);
    d.no_reply = 0;
    d.missed_replies = 0;
    TuPktsync_timerStart(d.timer, d.nom_interval);
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_1,
              "TuPktsyncPTP_update_DelayReqRespCtrl_interval - updated for syncrefId %d; "
              "nom_interval set to %u msec; timer restarted",
              d.syncrefId, d.nom_interval);
}

void TuPktsyncPTP_handle_DelayReqRespCtrl_timeout(PtpClock& c)
{
    DelayReqRespCtrl& d = c.delay;
    const u32 jitter = static_cast<u32>(u64{nextRandom(d) % 101} * d.nom_interval / 1000);
    TuPktsync_timerStart(d.timer, d.nom_interval + jitter);
    sendDelayReq(c);
    if (d.status != DRM_LATE && d.no_reply == 1 && ++d.missed_replies >= d.missed_limit) {
        d.status = DRM_LATE;
        ptpFaults(c, FAULT_NO_DELAY_RESP, 0);
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_1,
                  "TuPktsyncPTP_handle_DelayReqRespCtrl_timeout: onset of NO_DELAY_RESP for "
                  "syncrefId %d: limit of %u missed Delay_Resp exceeded, setting DRM status to LATE",
                  d.syncrefId, d.missed_limit);
    }
    d.no_reply = 1;
}

void TuPktsyncPTP_handle_Delay_timestamps(PtpClock& c, const TsPosition& set)
{
    DelayReqRespCtrl& d = c.delay;
    if (d.status == DRM_OFF) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_1,
                  "TuPktsyncPTP_handle_Delay_timestamps - called for syncrefId %d when DRM is not "
                  "running",
                  d.syncrefId);
        return;
    }
    d.sample = {set.stamps[0].high, ptpFraction_ns(set.stamps[0].low), set.stamps[1].high,
                set.stamps[1].low, set.sequenceId, 0};
    d.no_reply = 0;
    d.missed_replies = 0;
    if (d.status == DRM_LATE) ptpFaults(c, 0, FAULT_NO_DELAY_RESP);
    d.status = DRM_OK;
}

const PtpDelaySample* TuPktsyncPTP_delaySample(PtpClock& c)
{
    if (c.delay.status < DRM_OK) return nullptr;
    ++c.delay.sample.age;
    return &c.delay.sample;
}

const char* TuPktsyncPTP_drmStatusText(u32 status)
{
    switch (status) {
    case DRM_OFF:      return "OFF";
    case DRM_WAIT_1ST: return "WAIT_1ST";
    case DRM_OK:       return "OK";
    case DRM_LATE:     return "LATE";
    default:           return "UNKNOWN";
    }
}
