#include "unit/kvd_gps_state.h"

#include "base/text_of.h"
#include "base/tu_common.h"
#include "ose/module_data.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

struct State {
    u32 gpsState = GPS_UN_INIT;
    GpsStateHistory history;
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

bool isNewest(const GpsStateHistory& h, u32 state) { return h.rows[0].state == state; }

void setTime(GpsStateRecord& record, const char* time) { std::memcpy(record.time, time, TIME_STAMP_SIZE); }

void insert(GpsStateHistory& h, u32 state, const char* time)
{
    std::copy_backward(std::begin(h.rows), std::end(h.rows) - 1, std::end(h.rows));
    h.rows[0].state = state;
    setTime(h.rows[0], time);
    if (h.count < GPS_STATE_HISTORY) ++h.count;
}

void recordOperational(GpsStateHistory& h, const char* now)
{
    if (h.wasValid) {
        if (h.droppedBack) return;
        std::memcpy(h.droppedTime, now, TIME_STAMP_SIZE);
        h.droppedBack = true;
    } else if (!isNewest(h, GPS_OPERATIONAL)) {
        insert(h, GPS_OPERATIONAL, now);
    }
}

void recordValidTime(GpsStateHistory& h, const char* now)
{
    if (h.droppedBack) {
        setTime(h.rows[0], now);
        setTime(h.rows[1], h.droppedTime);
        h.droppedBack = false;
    } else if (!isNewest(h, GPS_OPERATIONAL_WITH_VALID_TIME)) {
        insert(h, GPS_OPERATIONAL_WITH_VALID_TIME, now);
    }
    h.wasValid = true;
}

void recordOther(GpsStateHistory& h, u32 state, const char* now)
{
    if (h.droppedBack && state != GPS_UN_INIT) insert(h, GPS_OPERATIONAL, h.droppedTime);
    h.wasValid = false;
    h.droppedBack = false;
    if (!isNewest(h, state)) insert(h, state, now);
}

}  // namespace

void KvdLoz6TuGps_recordState(GpsStateHistory& history, u32 state)
{
    char now[TIME_STAMP_SIZE];
    TuCommon_timeStamp(now);
    switch (state) {
    case GPS_OPERATIONAL:                 recordOperational(history, now);  break;
    case GPS_OPERATIONAL_WITH_VALID_TIME: recordValidTime(history, now);    break;
    default:                              recordOther(history, state, now); break;
    }
}

u32 KvdLoz6TuGps_gpsState() { return s->gpsState; }

void KvdLoz6TuGps_storeGpsState(u32 state)
{
    s->gpsState = state;
    KvdLoz6TuGps_recordState(s->history, state);
}

const char* KvdLoz6TuGps_gpsStateText(u32 state) { return textOf(TEXTS, state); }

u8 KvdLoz6TuGps_stateHistoryCount() { return s->history.count; }

const GpsStateRecord& KvdLoz6TuGps_stateHistory(u8 row)
{
    return s->history.rows[std::min<u32>(row, GPS_STATE_HISTORY - 1)];
}

bool KvdLoz6TuGps_historyAboveUnInit() { return s->history.rows[0].state > GPS_UN_INIT; }
