#include "gps/kvd_gps_hrv_supervision.h"

#include "base/element_of.h"
#include "base/kvd_timer.h"
#include "base/ref_ring.h"
#include "base/text_of.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "gps/kvd_gps_send.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "sig/gps_sig.h"

#include <cstring>

namespace {

constexpr OSTIME SUPERVISION_ms = 1'800'000;   // without 1PPS until the receiver is restarted
constexpr OSTIME ONE_PPS_ms     = 90'000;      // for the 1PPS to come back after a restart
constexpr u32 HISTORY_ROWS = 10;
constexpr u32 DATE_TEXT = 20;                  // "%Y-%m-%d %H:%M:%S" and the NUL

constexpr const char* STATES[] = {
    "HRV_SUPERVISION_STATE_IDLE",
    "HRV_SUPERVISION_STATE_HRV_WAITING_RESTART",
    "HRV_SUPERVISION_STATE_HRV_RESTART",
};
constexpr const char* EVENTS[] = {
    "HRV_SUPERVISION_EVENT_1PPS_OK",           "HRV_SUPERVISION_EVENT_1PPS_NOK",
    "HRV_SUPERVISION_EVENT_1PPS_TIMER_ELAPSE", "HRV_SUPERVISION_EVENT_TIMER_ELAPSE",
    "HRV_SUPERVISION_EVENT_INIT_SM",
};
const char* eventText(u32 event) { return textOf(EVENTS, event); }

struct Transition {
    HRVSupervisionState state;
    HRVSupervisionEvent event;
    HRVSupervisionState next;
};
// A pair that isn't listed changes nothing.
constexpr Transition TRANSITIONS[] = {
    {HRV_SUPERVISION_STATE_IDLE, HRV_SUPERVISION_EVENT_1PPS_NOK, HRV_SUPERVISION_STATE_HRV_WAITING_RESTART},

    {HRV_SUPERVISION_STATE_HRV_WAITING_RESTART, HRV_SUPERVISION_EVENT_TIMER_ELAPSE,
     HRV_SUPERVISION_STATE_HRV_RESTART},
    {HRV_SUPERVISION_STATE_HRV_WAITING_RESTART, HRV_SUPERVISION_EVENT_1PPS_OK, HRV_SUPERVISION_STATE_IDLE},
    {HRV_SUPERVISION_STATE_HRV_WAITING_RESTART, HRV_SUPERVISION_EVENT_INIT_SM, HRV_SUPERVISION_STATE_IDLE},

    {HRV_SUPERVISION_STATE_HRV_RESTART, HRV_SUPERVISION_EVENT_1PPS_TIMER_ELAPSE,
     HRV_SUPERVISION_STATE_HRV_WAITING_RESTART},
    {HRV_SUPERVISION_STATE_HRV_RESTART, HRV_SUPERVISION_EVENT_1PPS_OK, HRV_SUPERVISION_STATE_IDLE},
    {HRV_SUPERVISION_STATE_HRV_RESTART, HRV_SUPERVISION_EVENT_INIT_SM, HRV_SUPERVISION_STATE_IDLE},
};

struct StateRecord {
    char time[DATE_TEXT];
    u32 oldState;           // HRVSupervisionState
    u32 newState;
};

struct State {
    u32 state = HRV_SUPERVISION_STATE_IDLE;
    KvdTimer supervisionTimer;
    KvdTimer onePPSTimer;
    u8 resetAttempts = 0;
    RefRing<StateRecord, HISTORY_ROWS> history;
};
ose::ModuleData<State> s;

void startTimer(KvdTimer& timer, OSTIME duration_ms, SIGSELECT sigNo, const char* name)
{
    if (timer.runs()) return;
    if (!KvdTimer_start(timer, duration_ms, sigNo))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Timer %s didn't start properly.", name);
    else
        KVD_TRACE(TRACE_TUGPS, TRACE_7, "Timer %s started: %d sec", name,
                  static_cast<int>(duration_ms / 1000));
}

void cancelTimer(KvdTimer& timer, const char* name)
{
    if (!timer.runs()) return;
    KvdTimer_cancel(timer);
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "Timer %s canceled.", name);
}

void onExit(u32 state)
{
    if (state == HRV_SUPERVISION_STATE_HRV_WAITING_RESTART)
        cancelTimer(s->supervisionTimer, "supervisionTimer");
    if (state == HRV_SUPERVISION_STATE_HRV_RESTART) cancelTimer(s->onePPSTimer, "onePPSTimer");
}

void onEntry(u32 state)
{
    if (state == HRV_SUPERVISION_STATE_HRV_WAITING_RESTART)
        startTimer(s->supervisionTimer, SUPERVISION_ms, KVD_GPS_HRV_SUPERVISION_TIMEOUT_IND,
                   "supervisionTimer");
    if (state == HRV_SUPERVISION_STATE_HRV_RESTART) {
        KvdLoz6TuGps_GpsFwRestart();
        ++s->resetAttempts;
        startTimer(s->onePPSTimer, ONE_PPS_ms, KVD_GPS_HRV_SUPERVISION_1PPS_TIMEOUT_IND, "onePPSTimer");
    }
}

void enter(u32 state)
{
    const u32 before = s->state;
    onExit(before);
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "HRV Supervision SM state changed. Old state: %s, New state: %s",
              KvdLoz6TuGps_hrvStateText(before), KvdLoz6TuGps_hrvStateText(state));
    char now[TIME_STAMP_SIZE];
    TuCommon_timeStamp(now);
    StateRecord record{{}, before, state};
    std::memcpy(record.time, now, DATE_TEXT - 1);
    s->history.push(record);
    s->state = state;
    onEntry(state);
}

}  // namespace

void KvdLoz6TuGps_onHRVSupervisionEvent(u32 event)
{
    KVD_TRACE(TRACE_TUGPS, TRACE_7,
              "HRV Supervision state machine (onHRVSupervisionEvent). Received event = %s. "
              "Current state = %s",
              eventText(event), KvdLoz6TuGps_hrvStateText(s->state));
    if (elementOf(STATES, s->state) == nullptr) {
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Illegal HRV Supervision SM state: %d",
                  static_cast<int>(s->state));
        return;
    }
    for (const Transition& t : TRANSITIONS) {
        if (t.state != s->state || t.event != event) continue;
        enter(t.next);
        return;
    }
}

bool KvdLoz6TuGps_hrvDispatch(Signal* sig)
{
    switch (sig->sigNo) {
    case KVD_GPS_HRV_SUPERVISION_TIMEOUT_IND:
        if (KvdTimer_expired(s->supervisionTimer))
            KvdLoz6TuGps_onHRVSupervisionEvent(HRV_SUPERVISION_EVENT_TIMER_ELAPSE);
        return true;
    case KVD_GPS_HRV_SUPERVISION_1PPS_TIMEOUT_IND:
        if (KvdTimer_expired(s->onePPSTimer))
            KvdLoz6TuGps_onHRVSupervisionEvent(HRV_SUPERVISION_EVENT_1PPS_TIMER_ELAPSE);
        return true;
    default: return false;
    }
}

u32 KvdLoz6TuGps_hrvState() { return s->state; }
const char* KvdLoz6TuGps_hrvStateText(u32 state) { return textOf(STATES, state); }
u8 KvdLoz6TuGps_hrvResetAttempts() { return s->resetAttempts; }
void KvdLoz6TuGps_clearHrvHistory() { s->history = {}; }

void KvdLoz6TuGps_printHrvHistory()
{
    const auto& history = s->history;
    if (history.count == 0) node::shellPrintf("      None");
    for (u32 row = history.count; row > 0; --row) {
        const StateRecord& r = history.oldest(row - 1);
        node::shellPrintf("      [%s] %-41s --> %s\n", r.time, KvdLoz6TuGps_hrvStateText(r.oldState),
                          KvdLoz6TuGps_hrvStateText(r.newState));
    }
}
