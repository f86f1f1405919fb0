#include "gps/kvd_gps_recovery.h"

#include "base/element_of.h"
#include "base/kvd_timer.h"
#include "base/ref_ring.h"
#include "base/text_of.h"
#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "fifo/kvd_fifo_proc.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_send.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"
#include "sig/gps_sig.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>

namespace {

constexpr const char* FIRMWARE_WITH_UNIT_RESET = "120510";
constexpr u8 RESTARTS_A_CYCLE = 3;
constexpr u8 UNIT_RESETS_A_ROW = 3;
constexpr u8 SNR_STRONG = 40;              // dB
constexpr u32 STRONG_ENOUGH_FOR_1PPS = 3;  // with more than that the module ought to have a 1PPS
constexpr u32 HISTORY_ROWS = 10;
constexpr u32 DATE_TEXT = 20;              // "%Y-%m-%d %H:%M:%S" and the NUL

// ---- timers -------------------------------------------------------------------------------------

enum RecoveryTimer : u8 {
    GPGSV_TIMER, GPSTS_TIMER, GPSTS_SUB_SM_TIMER, GPVER_TIMER, RECOVERY_TIMER, HYSTERESIS_TIMER,
    HRV_SW_RESET_TIMER, RECOVERY_TIMERS
};
struct TimerRow {
    const char* name;
    SIGSELECT sigNo;
    u32 event;              // what its time-out means to the machine
};
// In the order of RecoveryTimer. The two for GPsts never run at once and share a signal.
constexpr TimerRow TIMERS[] = {
    {"gpgsvTimer",      KVD_TUGPS_RECOVERY_GPGSV_TIMEOUT_IND, RECOVERY_EVENT_GPGSV_TIMER_ELAPSED},
    {"gpstsTimer",      KVD_TUGPS_RECOVERY_GPSTS_TIMEOUT_IND, RECOVERY_EVENT_GPSTS_TIMER_ELAPSED},
    {"gpstsSubSmTimer", KVD_TUGPS_RECOVERY_GPSTS_TIMEOUT_IND, RECOVERY_EVENT_GPSTS_TIMER_ELAPSED},
    {"gpverTimer",      KVD_TUGPS_RECOVERY_GPVER_TIMEOUT_IND, RECOVERY_EVENT_GPVER_TIMER_ELAPSED},
    {"recoveryTimer",   KVD_TUGPS_RECOVERY_TIMER_TIMEOUT_IND,
     RECOVERY_EVENT_RECOVERY_TIMER_ELAPSED},
    {"hysteresisTimer", KVD_TUGPS_RECOVERY_HYSTERESIS_TIMEOUT_IND,
     RECOVERY_EVENT_HYSTERESIS_TIMER_ELAPSED},
    {"hrvSwResetTimer", KVD_TUGPS_RECOVERY_HRVSW_TIMEOUT_IND, RECOVERY_EVENT_HRVSW_TIMER_ELAPSED},
};
static_assert(std::size(TIMERS) == RECOVERY_TIMERS);

constexpr OSTIME GPGSV_ms        = 90'000;
constexpr OSTIME GPSTS_ms        = 4'000;
constexpr OSTIME GPVER_ms        = 90'000;
constexpr OSTIME RECOVERY_ms     = 360'000;     // a restart of the module takes no longer
constexpr OSTIME HYSTERESIS_ms   = 1'800'000;
constexpr OSTIME HRV_SW_RESET_ms = 3'600'000;   // rest after the third reset in a row

// ---- names --------------------------------------------------------------------------------------

constexpr const char* SUB_STATES[] = {
    "RECOVERY_SUBSTATE_GPGSV_WAITING",
    "RECOVERY_SUBSTATE_GPSTS_WAITING",
    "RECOVERY_SUBSTATE_INITIAL",
    "RECOVERY_SUBSTATE_FINAL",
};
constexpr const char* EVENTS[] = {
    "RECOVERY_EVENT_GPVER_OK",
    "RECOVERY_EVENT_GRM_OK",
    "RECOVERY_EVENT_GPSTS_OK",
    "RECOVERY_EVENT_GPSTS_NOK",
    "RECOVERY_EVENT_GPGSV_TIMER_ELAPSED",
    "RECOVERY_EVENT_GPVER_TIMER_ELAPSED",
    "RECOVERY_EVENT_GPSTS_TIMER_ELAPSED",
    "RECOVERY_EVENT_RECOVERY_TIMER_ELAPSED",
    "RECOVERY_EVENT_HYSTERESIS_TIMER_ELAPSED",
    "RECOVERY_EVENT_HRVSW_TIMER_ELAPSED",
    "RECOVERY_EVENT_NO_EL_AZ",
    "RECOVERY_EVENT_GPGSV_RECEIVED",
    "RECOVERY_EVENT_NULL",
    "RECOVERY_EVENT_SUB_INIT",
};
constexpr const char* STATUSES[] = {"Not Available", "OK", "Case 1", "Case 2", "Unresolvable Outage"};

const char* eventText(u32 event) { return textOf(EVENTS, event); }
const char* subStateText(u32 state) { return textOf(SUB_STATES, state); }

// ---- state --------------------------------------------------------------------------------------

struct StatusRecord {
    char time[DATE_TEXT];
    u32 oldStatus;          // EnhancedGps02SupervisionStatus
    u32 newStatus;
};

struct State {
    u32 state = RECOVERY_STATE_NOT_AVAILABLE;
    u32 subState = RECOVERY_SUBSTATE_INITIAL;
    u32 superEvent = RECOVERY_EVENT_NULL;       // what the sub machine has to tell the main one
    u32 status = GPS02_NOT_AVAILABLE;
    KvdTimer timer[RECOVERY_TIMERS];
    RecoveryCounters counters;
    RefRing<StatusRecord, HISTORY_ROWS> history;
};
ose::ModuleData<State> s;

void startTimer(RecoveryTimer timer, OSTIME duration_ms)
{
    if (s->timer[timer].runs()) return;
    const TimerRow& row = TIMERS[timer];
    if (!KvdTimer_start(s->timer[timer], duration_ms, row.sigNo))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Timer %s didn't start properly.", row.name);
    else
        KVD_TRACE(TRACE_TUGPS, TRACE_7, "Timer %s started: %d sec", row.name,
                  static_cast<int>(duration_ms / 1000));
}

void cancelTimer(RecoveryTimer timer)
{
    if (!s->timer[timer].runs()) return;
    KvdTimer_cancel(s->timer[timer]);
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "Timer %s canceled.", TIMERS[timer].name);
}

void setStatus(u32 status)
{
    if (status == s->status) return;
    char now[TIME_STAMP_SIZE];
    TuCommon_timeStamp(now);
    StatusRecord record{{}, s->status, status};
    std::memcpy(record.time, now, DATE_TEXT - 1);
    s->history.push(record);
    s->status = status;
}

// ---- sub machine --------------------------------------------------------------------------------

void onRecoverySubSMEvent(u32 event);

void enterSubState(u32 subState)
{
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "Gps Recovery SM substate change. Old substate: %s, New substate: %s",
              subStateText(s->subState), subStateText(subState));
    s->subState = subState;
}

struct Verdict {
    u32 superEvent;
    u32 subState;
};

/// What the satellites in view say about a module that has just told whether its 1PPS is good.
Verdict judge(u32 event)
{
    const u32 inView = std::min<u32>(KvdLoz6TuGps_noOfSatellitesInView(), GPS_SATELLITES);
    u32 strong = 0;
    bool noElAz = true;
    for (const GpsSatellite& satellite : std::span(KvdLoz6TuGps_gpsSatellites()).first(inView)) {
        if (satellite.SNR < SNR_STRONG) continue;
        ++strong;
        if (satellite.azimuth != 0 && satellite.elevation != 0) noElAz = false;
    }
    if (event == RECOVERY_EVENT_GPSTS_NOK && noElAz && strong > 0)
        return {RECOVERY_EVENT_NO_EL_AZ, RECOVERY_SUBSTATE_FINAL};
    if (event == RECOVERY_EVENT_GPSTS_NOK && !noElAz && strong > STRONG_ENOUGH_FOR_1PPS)
        return {RECOVERY_EVENT_NULL, RECOVERY_SUBSTATE_GPGSV_WAITING};
    return {RECOVERY_EVENT_GRM_OK, RECOVERY_SUBSTATE_FINAL};
}

void onGpstsInSubMachine(u32 event)
{
    const Verdict verdict = judge(event);
    s->superEvent = verdict.superEvent;
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "Recovery Substate: %s, Super event triggered: %s",
              subStateText(s->subState), eventText(s->superEvent));
    cancelTimer(GPSTS_SUB_SM_TIMER);
    if (s->superEvent != RECOVERY_EVENT_NULL) KvdLoz6TuGps_onRecoverySMEvent(s->superEvent);
    enterSubState(verdict.subState);
}

void onRecoverySubSMEvent(u32 event)
{
    KVD_TRACE(TRACE_TUGPS, TRACE_7,
              "Recovery subState machine (onRecoverySubSMEvent). Event = %s. State = %s", eventText(event),
              subStateText(s->subState));
    switch (s->subState) {
    case RECOVERY_SUBSTATE_INITIAL:
        if (event == RECOVERY_EVENT_SUB_INIT) enterSubState(RECOVERY_SUBSTATE_GPGSV_WAITING);
        break;
    case RECOVERY_SUBSTATE_GPGSV_WAITING:
        if (event != RECOVERY_EVENT_GPGSV_RECEIVED) break;
        enterSubState(RECOVERY_SUBSTATE_GPSTS_WAITING);
        startTimer(GPSTS_SUB_SM_TIMER, GPSTS_ms);
        break;
    case RECOVERY_SUBSTATE_GPSTS_WAITING:
        if (event == RECOVERY_EVENT_GPSTS_OK || event == RECOVERY_EVENT_GPSTS_NOK) onGpstsInSubMachine(event);
        break;
    case RECOVERY_SUBSTATE_FINAL: break;
    default:
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Illegal Recovery Sub SM state: %d",
                  static_cast<int>(s->subState));
    }
}

// ---- main machine: exit and entry actions -------------------------------------------------------

void enterNotAvailable() { setStatus(GPS02_NOT_AVAILABLE); }

void exitGpverWaiting(u32) { cancelTimer(GPVER_TIMER); }
void enterGpverWaiting()
{
    startTimer(GPVER_TIMER, GPVER_ms);
    s->counters.currentAttemptedRecoveries = 0;
}

void exitGpgsvWaiting(u32 event)
{
    cancelTimer(GPGSV_TIMER);
    s->subState = RECOVERY_SUBSTATE_FINAL;
    s->superEvent = RECOVERY_EVENT_NULL;
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "SubState machine reset.");
    cancelTimer(GPSTS_SUB_SM_TIMER);
    if (event == RECOVERY_EVENT_GRM_OK) {
        setStatus(GPS02_OK);
        s->counters.HrvSwRestartsCounter = 0;
    }
    if (event == RECOVERY_EVENT_NO_EL_AZ) setStatus(GPS02_CASE_1);
}
void enterGpgsvWaiting()
{
    startTimer(GPGSV_TIMER, GPGSV_ms);
    s->subState = RECOVERY_SUBSTATE_INITIAL;
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "SubState machine initialized.");
    onRecoverySubSMEvent(RECOVERY_EVENT_SUB_INIT);
}

void enterGrmRecovery()
{
    KvdLoz6Fifo_dump();
    KvdLoz6TuGps_GpsFwRestart();
    ++s->counters.totalAttemptedRecoveries;
    ++s->counters.currentAttemptedRecoveries;
    startTimer(RECOVERY_TIMER, RECOVERY_ms);
}

void exitHysteresis(u32) { cancelTimer(HYSTERESIS_TIMER); }
void enterHysteresis()
{
    startTimer(HYSTERESIS_TIMER, HYSTERESIS_ms);
    ++s->counters.unsuccessfulRecoveryCycles;
}

void enterGpstsWait() { startTimer(GPSTS_TIMER, GPSTS_ms); }
void exitOutage(u32 event)
{
    cancelTimer(GPSTS_TIMER);
    if (event == RECOVERY_EVENT_GPSTS_OK) setStatus(GPS02_CASE_2);
    if (event == RECOVERY_EVENT_GPSTS_NOK) setStatus(GPS02_UNRESOLVABLE_OUTAGE);
}
void exitExpired(u32 event)
{
    cancelTimer(GPSTS_TIMER);
    if (event == RECOVERY_EVENT_GPSTS_OK) setStatus(GPS02_OK);
}

void exitHrvSwReset(u32) { cancelTimer(HRV_SW_RESET_TIMER); }
void enterHrvSwReset()
{
    KvdLoz6Fifo_dump();
    KvdLoz6TuGps_resetHrv();
    RecoveryCounters& c = s->counters;
    c.HrvSwRestartsCounter = static_cast<u8>((c.HrvSwRestartsCounter + 1) % UNIT_RESETS_A_ROW);
    ++c.HrvSwRestartsCounterTotal;
    startTimer(HRV_SW_RESET_TIMER, c.HrvSwRestartsCounter == 2 ? HRV_SW_RESET_ms : 0);
}

struct StateRow {
    const char* name;
    void (*onExit)(u32 event);
    void (*onEntry)();
};
// In the order of RecoveryState.
constexpr StateRow STATES[] = {
    {"RECOVERY_STATE_NOT_AVAILABLE", nullptr, enterNotAvailable},
    {"RECOVERY_STATE_GPVER_WAITING", exitGpverWaiting, enterGpverWaiting},
    {"RECOVERY_STATE_GPGSV_WAITING", exitGpgsvWaiting, enterGpgsvWaiting},
    {"RECOVERY_STATE_GRM_RECOVERY", nullptr, enterGrmRecovery},
    {"RECOVERY_STATE_GRM_RECOVERY_CYCLE_HYSTERESIS", exitHysteresis, enterHysteresis},
    {"RECOVERY_STATE_NOGPGSV_OR_UNRESOLVABLE_OUTAGE", exitOutage, enterGpstsWait},
    {"RECOVERY_STATE_GRM_RECOVERY_EXPIRED", exitExpired, enterGpstsWait},
    {"RECOVERY_STATE_HRV_SW_RESET", exitHrvSwReset, enterHrvSwReset},
};

void enter(u32 state, u32 event)
{
    const StateRow& from = STATES[s->state];
    const StateRow& to = STATES[state];
    if (from.onExit != nullptr) from.onExit(event);
    KVD_TRACE(TRACE_TUGPS, TRACE_7, "Gps Recovery SM state change. Old state: %s, New state: %s", from.name,
              to.name);
    s->state = state;
    to.onEntry();
}

bool hasUnitReset() { return KvdLoz6TuGps_isFirmware(FIRMWARE_WITH_UNIT_RESET); }
bool hasRestartsLeft() { return s->counters.currentAttemptedRecoveries < RESTARTS_A_CYCLE; }

struct Transition {
    RecoveryState state;
    RecoveryEvent event;
    bool (*when)();         // nullptr: always
    RecoveryState next;
};
// The first row that fits is taken; without one nothing happens.
constexpr Transition TRANSITIONS[] = {
    {RECOVERY_STATE_NOT_AVAILABLE, RECOVERY_EVENT_GPSTS_OK, nullptr, RECOVERY_STATE_GPVER_WAITING},
    {RECOVERY_STATE_NOT_AVAILABLE, RECOVERY_EVENT_GPSTS_NOK, nullptr, RECOVERY_STATE_GPVER_WAITING},

    {RECOVERY_STATE_GPVER_WAITING, RECOVERY_EVENT_GPVER_OK, nullptr, RECOVERY_STATE_GPGSV_WAITING},
    {RECOVERY_STATE_GPVER_WAITING, RECOVERY_EVENT_GPVER_TIMER_ELAPSED, nullptr, RECOVERY_STATE_NOT_AVAILABLE},

    {RECOVERY_STATE_GPGSV_WAITING, RECOVERY_EVENT_GPGSV_TIMER_ELAPSED, nullptr,
     RECOVERY_STATE_NOGPGSV_OR_UNRESOLVABLE_OUTAGE},
    {RECOVERY_STATE_GPGSV_WAITING, RECOVERY_EVENT_NO_EL_AZ, nullptr, RECOVERY_STATE_GRM_RECOVERY},
    {RECOVERY_STATE_GPGSV_WAITING, RECOVERY_EVENT_GRM_OK, nullptr, RECOVERY_STATE_GPVER_WAITING},

    {RECOVERY_STATE_GRM_RECOVERY, RECOVERY_EVENT_RECOVERY_TIMER_ELAPSED, nullptr,
     RECOVERY_STATE_GRM_RECOVERY_EXPIRED},

    {RECOVERY_STATE_GRM_RECOVERY_CYCLE_HYSTERESIS, RECOVERY_EVENT_HYSTERESIS_TIMER_ELAPSED, nullptr,
     RECOVERY_STATE_GPVER_WAITING},

    {RECOVERY_STATE_NOGPGSV_OR_UNRESOLVABLE_OUTAGE, RECOVERY_EVENT_GPSTS_OK, hasUnitReset,
     RECOVERY_STATE_HRV_SW_RESET},
    {RECOVERY_STATE_NOGPGSV_OR_UNRESOLVABLE_OUTAGE, RECOVERY_EVENT_GPSTS_OK, nullptr,
     RECOVERY_STATE_GPVER_WAITING},
    {RECOVERY_STATE_NOGPGSV_OR_UNRESOLVABLE_OUTAGE, RECOVERY_EVENT_GPSTS_NOK, nullptr,
     RECOVERY_STATE_GRM_RECOVERY},

    {RECOVERY_STATE_GRM_RECOVERY_EXPIRED, RECOVERY_EVENT_GPSTS_OK, nullptr, RECOVERY_STATE_GPVER_WAITING},
    {RECOVERY_STATE_GRM_RECOVERY_EXPIRED, RECOVERY_EVENT_GPSTS_NOK, hasRestartsLeft,
     RECOVERY_STATE_GPGSV_WAITING},
    {RECOVERY_STATE_GRM_RECOVERY_EXPIRED, RECOVERY_EVENT_GPSTS_NOK, nullptr,
     RECOVERY_STATE_GRM_RECOVERY_CYCLE_HYSTERESIS},

    {RECOVERY_STATE_HRV_SW_RESET, RECOVERY_EVENT_HRVSW_TIMER_ELAPSED, nullptr, RECOVERY_STATE_GPVER_WAITING},
};

/// The signal of both timers for GPsts. The sub machine's counts as running until the state is left, which
/// cancels it, though nothing of it is queued then.
void onGpstsTimeout()
{
    KvdTimer& subTimer = s->timer[GPSTS_SUB_SM_TIMER];
    if (!KvdTimer_expired(subTimer.stale > 0 ? subTimer : s->timer[GPSTS_TIMER])) return;
    const bool wasSubTimers = subTimer.runs();
    KvdLoz6TuGps_onRecoverySMEvent(RECOVERY_EVENT_GPSTS_TIMER_ELAPSED);
    if (wasSubTimers) subTimer.stale = 0;
}

// ---- what the sentences mean --------------------------------------------------------------------

void onGpsts()
{
    switch (const u8 pp1state = KvdLoz6TuGps_norvane().GPsts_pp1state; pp1state) {
    case 1: case 2: KvdLoz6TuGps_onRecoverySMEvent(RECOVERY_EVENT_GPSTS_OK);  break;
    case 0: case 3: KvdLoz6TuGps_onRecoverySMEvent(RECOVERY_EVENT_GPSTS_NOK); break;
    default:
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Unsuported pp1sState: %d", pp1state);
    }
}

}  // namespace

void KvdLoz6TuGps_onRecoverySMEvent(u32 event)
{
    KVD_TRACE(TRACE_TUGPS, TRACE_7,
              "Recovery state machine (onRecoverySMEvent). Received event = %s. "
              "Current Recovery State Machine state = %s",
              eventText(event), KvdLoz6TuGps_recoveryStateText(s->state));
    onRecoverySubSMEvent(event);
    if (elementOf(STATES, s->state) == nullptr) {
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "Illegal recovery SM state: %d", static_cast<int>(s->state));
        return;
    }
    if (event == RECOVERY_EVENT_GPSTS_TIMER_ELAPSED) enter(RECOVERY_STATE_NOT_AVAILABLE, event);
    for (const Transition& t : TRANSITIONS) {
        if (t.state != s->state || t.event != event || (t.when != nullptr && !t.when())) continue;
        enter(t.next, event);
        return;
    }
}

void KvdLoz6TuGps_recoverySentence(u8 kind)
{
    switch (kind) {
    case GPS_KIND_GPSTS: onGpsts(); break;
    case GPS_KIND_GPVER:
        if (KvdLoz6TuGps_isGps02()) KvdLoz6TuGps_onRecoverySMEvent(RECOVERY_EVENT_GPVER_OK);
        break;
    case GPS_KIND_GPGSV:
        if (KvdLoz6TuGps_gpgsvFillIndex() == 0) KvdLoz6TuGps_onRecoverySMEvent(RECOVERY_EVENT_GPGSV_RECEIVED);
        break;
    default: break;
    }
}

bool KvdLoz6TuGps_recoveryDispatch(Signal* sig)
{
    const auto row = std::ranges::find(TIMERS, sig->sigNo, &TimerRow::sigNo);
    if (row == std::end(TIMERS)) return false;
    const auto timer = std::distance(TIMERS, row);
    if (timer == GPSTS_TIMER)
        onGpstsTimeout();
    else if (KvdTimer_expired(s->timer[timer]))
        KvdLoz6TuGps_onRecoverySMEvent(row->event);
    return true;
}

u32 KvdLoz6TuGps_recoveryState() { return s->state; }
u32 KvdLoz6TuGps_recoverySubState() { return s->subState; }
u32 KvdLoz6TuGps_supervisionStatus() { return s->status; }
const RecoveryCounters& KvdLoz6TuGps_recoveryCounters() { return s->counters; }

const char* KvdLoz6TuGps_recoveryStateText(u32 state)
{
    const auto* const row = elementOf(STATES, state);
    return row != nullptr ? row->name : "UNKNOWN";
}
const char* KvdLoz6TuGps_supervisionStatusText(u32 status) { return textOf(STATUSES, status); }

void KvdLoz6TuGps_clearRecoveryHistory() { s->history = {}; }

void KvdLoz6TuGps_printRecoveryHistory()
{
    const auto& history = s->history;
    if (history.count == 0) node::shellPrintf("      No state changes\n\n");
    for (u32 row = history.count; row > 0; --row) {
        const StatusRecord& r = history.oldest(row - 1);
        node::shellPrintf("      [%s] %-19s --> %s\n", r.time,
                          KvdLoz6TuGps_supervisionStatusText(r.oldStatus),
                          KvdLoz6TuGps_supervisionStatusText(r.newStatus));
    }
}
