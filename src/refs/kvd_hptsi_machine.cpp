// Frames in pairs, the state that they lead to, and the timers that take it back.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "refs/kvd_hptsi_int.h"

namespace {

using namespace hptsi;

struct TimerRow { OSTIME time_ms; SIGSELECT sigNo; const char* failed; };
constexpr TimerRow TIMER_ROWS[TIMERS] = {
    {5000, KVD_TUHPTSI_OPERATIONAL_TIMEOUT,    "Timer Hptsi Operational failed to start!"},
    {1000, KVD_TUHPTSI_VALID_TIME_TIMEOUT,     "Timer hptsiValid failed to start!"},
    {4000, KVD_TUHPTSI_SUPR_ALARM_TIMEOUT,     "Timer alarmSupression failed to start!"},
    {5050, KVD_TUHPTSI_NO_VALID_TIME_TIMEOUT,  "Timer hptsiNoValid failed to start!"},
    {5100, KVD_TUHPTSI_MONITOR_TIMEOUT,        "Timer hptsiMonitor failed to start!"},
    {1100, KVD_TUHPTSI_RECEIVE_FRAMES_TIMEOUT, "Timer receiveFrames failed to start!"},
};

constexpr double WEEK_s = 604800.0;
constexpr u8  PP1S_USABLE_BELOW = 2;        // normal, or held by an atomic clock
constexpr u16 STATE_NOT_USABLE = 4, STATE_NOT_USABLE_BIT = 0x80;

bool isOperational() { return state().hptsiState >= OPERATIONAL; }
bool takesFrames() { return state().hptsiState >= WAIT_FOR_FRAMES; }

// ---- timers -------------------------------------------------------------------------------------

void cancel(TimerId id) { KvdTimer_cancel(state().timers[id]); }

void restart(TimerId id)
{
    if (!runs(id)) return;
    cancel(id);
    startTimer(id);
}

// ---- states -------------------------------------------------------------------------------------

void clearVerdicts()
{
    state().timeInfoValid = 0;
    state().timeStateValid = 0;
}

void leaveOperational()
{
    if (runs(T_VALID)) state().hptsiCurrentTime = 0.0;
    cancel(T_VALID);
    cancel(T_NO_VALID);
    cancel(T_MONITOR);
    state().noValid = 0;
    state().monitor = 0;
    clearVerdicts();
    reportStatus();
}

void beginOperational()
{
    startTimer(T_NO_VALID);
    state().noValid = 0;
    startTimer(T_MONITOR);
    state().monitor = 0;
    startTimer(T_OPERATIONAL);
}

void beginValidTime()
{
    cancel(T_NO_VALID);
    startTimer(T_VALID);
    reportStatus();
}

// ---- what a frame says --------------------------------------------------------------------------

void takeTimeState(CmccTimeState frame)
{
    State& s = state();
    if (s.overrideEnabled != 0) frame.clkSource = s.overrideValue;
    s.timeState = frame;
    if (frame.clkSource != s.qualityType) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_INFO, "QualityLevelInd (HPTSI) type: %u -> %u", u32{s.qualityType},
                  u32{frame.clkSource});
        s.qualityType = frame.clkSource;
        sendQualityLevel();
    }
    ++s.numberOfTimeStateMsg;
    s.timeStateValid = frame.state != STATE_NOT_USABLE && (frame.state & STATE_NOT_USABLE_BIT) == 0 ? 1 : 0;
    KVD_TRACE(TRACE_TUHPTSI, TRACE_9, "Recv cmcc time state frame: type=%u, state=%u, alarm=%d",
              u32{frame.clkSource}, u32{frame.state}, int{frame.alarm});
}

void takeTimeInfo(const CmccTimeInfo& frame)
{
    State& s = state();
    s.timeInfo = frame;
    ++s.numberOfTimeInfoMsg;
    // The frame tells the second of the last pulse and so announces the next one.
    s.hptsiCurrentTime = static_cast<double>(frame.tow) + 1.0 + static_cast<double>(frame.week) * WEEK_s;
    s.timeInfoValid = frame.pp1sState < PP1S_USABLE_BELOW ? 1 : 0;
    KVD_TRACE(TRACE_TUHPTSI, TRACE_9,
              "Recv cmcc time info frame: tow=%u, week=%u, leapSec=%d, pp1sState=%u, tacc=%u", frame.tow,
              u32{frame.week}, int{frame.leapSec}, u32{frame.pp1sState}, u32{frame.tacc});
}

// ---- the machine --------------------------------------------------------------------------------

/// True when the frame is the second of a pair.
bool pairs(NextFrame mine, NextFrame other)
{
    State& s = state();
    if (s.nextFrame == other && runs(T_RECEIVE_FRAMES)) {
        s.nextFrame = NEXT_COMPLETE;
        cancel(T_RECEIVE_FRAMES);
        if (isOperational()) restart(T_OPERATIONAL);
        return true;
    }
    if (runs(T_RECEIVE_FRAMES)) {
        restart(T_RECEIVE_FRAMES);
    } else {
        s.nextFrame = mine;
        startTimer(T_RECEIVE_FRAMES);
    }
    return false;
}

// Levels of the modules' own, not of information: these come with each frame.

void infoInOperational()
{
    State& s = state();
    if (s.timeInfoValid == 0) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_3, "Time info that is not valid was received in operational state");
        return;
    }
    restart(T_NO_VALID);
    s.noValid = 0;
    if (s.timeStateValid == 0) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_3,
                  "Valid time info but no valid time state received in operational state");
        return;
    }
    KVD_TRACE(TRACE_TUHPTSI, TRACE_3, "Valid time info received in operational state");
    changeState(OPERATIONAL_WITH_VALID_TIME);
}

void stateInOperational()
{
    if (state().timeStateValid == 0) {
        KVD_TRACE(TRACE_TUHPTSI, TRACE_3, "Time state that is not valid was received in operational state");
        return;
    }
    KVD_TRACE(TRACE_TUHPTSI, TRACE_3, "Valid time state received in operational state");
    if (runs(T_MONITOR)) restart(T_MONITOR);
    else                 startTimer(T_MONITOR);
    state().monitor = 0;
}

void inValidTime(bool isInfo)
{
    if (!isInfo) {
        if (state().timeStateValid != 0) restart(T_MONITOR);
        return;
    }
    if (state().timeInfoValid == 0 || state().timeStateValid == 0) return;
    KVD_TRACE(TRACE_TUHPTSI, TRACE_3, "Valid time received in operational with valid time state");
    restart(T_VALID);
}

void runMachine(bool isInfo)
{
    if (!takesFrames()) return;
    const bool complete = isInfo ? pairs(NEXT_INFO_CAME, NEXT_STATE_CAME)
                                 : pairs(NEXT_STATE_CAME, NEXT_INFO_CAME);
    switch (state().hptsiState) {
    case WAIT_FOR_FRAMES:
        if (!complete) return;
        KVD_TRACE(TRACE_TUHPTSI, TRACE_INFO, "Received data in wait for frames");
        return changeState(OPERATIONAL);
    case OPERATIONAL: return isInfo ? infoInOperational() : stateInOperational();
    default:          return inValidTime(isInfo);
    }
}

}  // namespace

bool hptsi::runs(TimerId id) { return state().timers[id].runs(); }

void hptsi::startTimer(TimerId id)
{
    const TimerRow& row = TIMER_ROWS[id];
    if (!KvdTimer_start(state().timers[id], row.time_ms, row.sigNo))
        KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "%s", row.failed);
}

void hptsi::cancelAllTimers()
{
    for (KvdTimer& timer : state().timers) KvdTimer_cancel(timer);
}

void hptsi::changeState(u32 to)
{
    const u32 from = state().hptsiState;
    const bool isUsual = from >= OPERATIONAL && to >= OPERATIONAL;   // may come each second
    KVD_TRACE(TRACE_TUHPTSI, isUsual ? TRACE_3 : TRACE_INFO, "HPTSI STATE %s to %s", stateText(from),
              stateText(to));
    state().hptsiState = to;
    switch (to) {
    case WAIT_FOR_FRAMES:
        if (from >= OPERATIONAL) leaveOperational();
        else                     clearVerdicts();
        break;
    case OPERATIONAL:
        if (from == OPERATIONAL_WITH_VALID_TIME) startTimer(T_NO_VALID);
        else if (from == WAIT_FOR_FRAMES)        beginOperational();
        else if (from == OPERATIONAL)            reportStatus();
        break;
    case OPERATIONAL_WITH_VALID_TIME:
        if (from == OPERATIONAL) beginValidTime();
        break;
    default: break;
    }
}

void hptsi::onWrongLength(u32 length)
{
    KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "Recv cmcc of len=%u", length);
    KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "Invalid frame received");
}

void hptsi::onFrame(std::span<const u8> frame)
{
    switch (KvdLoz6TuHptsi_frameVerdict(frame)) {
    case CmccVerdict::WrongLength: onWrongLength(static_cast<u32>(frame.size())); break;
    case CmccVerdict::TimeState:
        takeTimeState(KvdLoz6TuHptsi_timeStateOf(frame));
        runMachine(false);
        break;
    case CmccVerdict::TimeInfo:
        takeTimeInfo(KvdLoz6TuHptsi_timeInfoOf(frame));
        runMachine(true);
        break;
    case CmccVerdict::UnknownId: KVD_TRACE(TRACE_TUHPTSI, TRACE_ERROR, "unexpected state"); break;
    }
}

void hptsi::onTimeout(TimerId id)
{
    if (!KvdTimer_expired(state().timers[id])) return;
    State& s = state();
    switch (id) {
    case T_OPERATIONAL:
        s.nextFrame = NEXT_NONE;
        cancel(T_RECEIVE_FRAMES);
        return changeState(WAIT_FOR_FRAMES);
    case T_VALID: s.hptsiCurrentTime = 0.0; return changeState(OPERATIONAL);
    case T_NO_VALID:
        if (s.hptsiState != OPERATIONAL) return;
        s.noValid = 1;
        return changeState(OPERATIONAL);
    case T_MONITOR: s.monitor = 1; return changeState(OPERATIONAL);
    case T_RECEIVE_FRAMES: s.nextFrame = NEXT_NONE; return;
    default: return reportStatus();
    }
}
