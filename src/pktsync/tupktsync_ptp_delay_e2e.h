// tupktsync_ptp_delay_e2e.h - Delay request-response of a PTP clock (IEEE 1588-2008 11.3): sends
// Delay_Req at a jittered interval, keeps the newest pair T3, T4, supervises the answers.
// Owner   Kvd_loz6_tupktsync_proc; the object is part of its clock, also while the clock is idle.
// Units   ms; T3 and T4 in s and ns.
#pragma once
#include "pktsync/tupktsync_timer.h"
#include "pktsync/tupktsync_ts_collect.h"

enum DrmStatus : u32 { DRM_OFF = 0, DRM_WAIT_1ST = 1, DRM_OK = 2, DRM_LATE = 3 };

struct PtpDelaySample {
    u64 T3s = 0;
    u32 T3f = 0;
    u64 T4s = 0;
    u32 T4f = 0;
    u16 sequenceId = 0;
    u16 age = 0;                       // reads since it came
};

struct DelayReqRespCtrl {
    u32 syncrefId = 0;
    u32 status = DRM_OFF;
    PktsyncTimer timer;
    TsBuffer stamps;                   // index 0 T3 as the driver gives it, index 1 T4
    PtpDelaySample sample;
    u32 nom_interval = 0;
    u16 nextSequenceId = 0;
    u32 no_reply = 0;                  // from a send until a reply arrives
    u16 missed_replies = 0;
    u16 missed_limit = 0;
    u32 random = 1;
};

struct PtpClock;

void TuPktsyncPTP_new_DelayReqRespCtrl(PtpClock& clock, u32 syncrefId);
/// Its timer goes with the clock.
void TuPktsyncPTP_delete_DelayReqRespCtrl(PtpClock& clock);
void TuPktsyncPTP_start_DelayReqRespCtrl(PtpClock& clock);
void TuPktsyncPTP_stop_DelayReqRespCtrl(PtpClock& clock);
/// The master's wish and the interval of the Sync messages that pass the filter.
void TuPktsyncPTP_update_DelayReqRespCtrl_interval(PtpClock& clock, u32 MCmin_interval,
                                                   u32 effectiveSyncInterval);
void TuPktsyncPTP_handle_DelayReqRespCtrl_timeout(PtpClock& clock);
void TuPktsyncPTP_handle_Delay_timestamps(PtpClock& clock, const TsPosition& set);
/// The newest sample, nullptr while there is none; each read makes it older.
const PtpDelaySample* TuPktsyncPTP_delaySample(PtpClock& clock);
/// "OFF", "WAIT_1ST", "OK", "LATE", else "UNKNOWN".
const char* TuPktsyncPTP_drmStatusText(u32 status);
