// Timers of a packet time reference's delay variation and lock, and what their end means.
#include "base/trace_groups.h"
#include "mp/kvd_iifadm_send.h"
#include "node/sig.h"
#include "node/trace.h"
#include "ose/ose.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet_int.h"
#include "sig/reg_sig.h"
#include "sig/tuiif_sig.h"

#include <algorithm>
#include <iterator>

using packet::state;

namespace {

struct TimerRow { SIGSELECT sigNo; OSTIME time_ms; const char* name; };
constexpr TimerRow ROWS[packet::PDV_TIMERS] = {
    {KVD_TUREG_PTP_TIME_PDV_TIMEOUT_IND,          60'000,    "high"},
    {KVD_TUREG_PTP_TIME_NOT_RELIABLE_TIMEOUT_IND, 60'000,    "not reliable"},
    {KVD_TUREG_PTP_TIME_1588J3_LOCK_TIMEOUT_IND,  5'400'000, "1588J3 lock"},
    {KVD_TUREG_PTP_TIME_G82751_LOCK_TIMEOUT_IND,  120'000,   "G82751 lock"},
};

u32 timerOf(SIGSELECT sigNo)
{
    const auto row = std::find_if(std::begin(ROWS), std::end(ROWS),
                                  [sigNo](const TimerRow& r) { return r.sigNo == sigNo; });
    return static_cast<u32>(row - std::begin(ROWS));
}

void onExpiry(u32 which)
{
    KVD_TRACE(TRACE_PTPTIME_REF, packet::pdvLevel(which), "PTP time sync ref %s PDV timer timeout",
              ROWS[which].name);
    state().timers[which].isTold = true;
    if (which != packet::NOT_RELIABLE_TIMER) return packet::needs().setRefState(KVD_TUIIF_REF_DEGRADED);
    constexpr u32 NOT_RELIABLE = 0x20, OF_ACTIVE_REFERENCE = 1;
    KvdLoz6TuIifAdm_updateTuPktRefStatus(0, 0, NOT_RELIABLE, OF_ACTIVE_REFERENCE);
}

struct ProfileChangeInd {
    SIGSELECT sigNo;
    u8 ptpProfile;
};

void onPktTimeProfileChange(const ProfileChangeInd* ind)
{
    if (ind == nullptr) return;
    const packet::ProfileRow* const row = packet::profileRow(ind->ptpProfile);
    if (row == nullptr) {
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_ERROR, "Unexpected ptpProfile change indication (%hhu)",
                  ind->ptpProfile);
        return;
    }
    packet::stopPdvTimer(row->lockTimer == packet::LOCK_1588J3_TIMER ? packet::LOCK_G82751_TIMER
                                                                      : packet::LOCK_1588J3_TIMER);
    if (!packet::isTimeState(KvdLoz6TuReg_regState())) packet::startPdvTimer(row->lockTimer);
    packet::resetMask();
}

}  // namespace

bool packet::startPdvTimer(u32 which)
{
    RunningTimer& t = state().timers[which];
    if (t.timer.runs()) return false;
    t.owner = ose::current_process();
    return KvdTimer_start(t.timer, ROWS[which].time_ms, ROWS[which].sigNo);
}

bool packet::stopPdvTimer(u32 which)
{
    RunningTimer& t = state().timers[which];
    t.isTold = false;
    if (!t.timer.runs()) return false;
    const bool isOwn = t.owner == ose::current_process();
    if (isOwn) KvdTimer_cancel(t.timer);
    else       KVD_TRACE(TRACE_PTPTIME_REF, TRACE_ERROR,
                         "Check: Cancelling %s PDV timer requested by other process", ROWS[which].name);
    return isOwn;
}

node::TraceLevel packet::pdvLevel(u32 which) { return state().timers[which].isTold ? TRACE_3 : TRACE_INFO; }

bool packet::pdvTimerRuns(u32 which) { return state().timers[which].timer.runs(); }

void KvdLoz6TuReg_packetDispatch(Signal* sig)
{
    if (sig->sigNo == KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND)
        return onPktTimeProfileChange(as<ProfileChangeInd>(sig));
    const u32 which = timerOf(sig->sigNo);
    if (KvdTimer_expired(state().timers[which].timer)) onExpiry(which);
}
