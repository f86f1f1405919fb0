#include "gps/kvd_gps_state.h"

#include "mgr/tu_common.h"
#include "ose/module_data.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace {

struct State {
    u32 gpsState = GPS_UN_INIT;
    std::array<GpsStateRecord, GPS_STATE_HISTORY> history;   // newest first
    u8 historyCount = 0;
    // A receiver whose sentences come late toggles between the two operational states every second.
    // The history keeps the latest pair of such rows and not all of them.
    bool wasValid = false;            // OPERATIONAL_WITH_VALID_TIME is the newest row
    bool droppedBack = false;         // OPERATIONAL came after it, at the time noted
    char droppedTime[GPS_TIME_TEXT] = "";
};
ose::ModuleData<State> s;

constexpr const char* TEXTS[] = {
    "GPS in illegal state",
    "GPS uninitialized",
    "GPS serial port initialized",
    "No messages",
    "Wait for valid messages",
    "1PPS not present",
    "1PPS present",
    "Operational with 1PPS and Time message",
};

bool isNewest(u32 state) { return s->historyCount > 0 && s->history[0].state == state; }

void setTime(GpsStateRecord& record, const char* time)
{
    std::memcpy(record.time, time, GPS_TIME_TEXT);
}

void insert(u32 state, const char* time)
{
    std::copy_backward(s->history.begin(), s->history.end() - 1, s->history.end());
    s->history[0].state = state;
    setTime(s->history[0], time);
    if (s->historyCount < GPS_STATE_HISTORY) ++s->historyCount;
}

void recordOperational(const char* now)
{
    if (s->wasValid) {
        if (s->droppedBack) return;
        std::memcpy(s->droppedTime, now, GPS_TIME_TEXT);
        s->droppedBack = true;
    } else if (!isNewest(GPS_OPERATIONAL)) {
        insert(GPS_OPERATIONAL, now);
    }
}

void recordValidTime(const char* now)
{
    if (s->droppedBack) {
        setTime(s->history[0], now);
        setTime(s->history[1], s->droppedTime);
        s->droppedBack = false;
    } else if (!isNewest(GPS_OPERATIONAL_WITH_VALID_TIME)) {
        insert(GPS_OPERATIONAL_WITH_VALID_TIME, now);
    }
    s->wasValid = true;
}

void recordOther(u32 state, const char* now)
{
    if (s->droppedBack && state != GPS_UN_INIT) insert(GPS_OPERATIONAL, s->droppedTime);
    s->wasValid = false;
    s->droppedBack = false;
    if (!isNewest(state)) insert(state, now);
}

}  // namespace

u32 KvdLoz6TuGps_gpsState() { return s->gpsState; }

void KvdLoz6TuGps_storeGpsState(u32 state)
{
    s->gpsState = state;
    char now[GPS_TIME_TEXT];
    TuCommon_timeStamp(now);
    switch (state) {
    case GPS_OPERATIONAL:                 recordOperational(now);  break;
    case GPS_OPERATIONAL_WITH_VALID_TIME: recordValidTime(now);    break;
    default:                              recordOther(state, now); break;
    }
}

const char* KvdLoz6TuGps_gpsStateText(u32 state)
{
    return state < std::size(TEXTS) ? TEXTS[state] : "UNKNOWN";
}

u8 KvdLoz6TuGps_stateHistoryCount() { return s->historyCount; }

const GpsStateRecord& KvdLoz6TuGps_stateHistory(u8 row)
{
    return s->history[std::min<u32>(row, GPS_STATE_HISTORY - 1)];
}

bool KvdLoz6TuGps_historyAboveUnInit()
{
    return s->historyCount > 0 && s->history[0].state > GPS_UN_INIT;
}
