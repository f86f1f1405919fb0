// kvd_gps_state.h - State of the GPS reference and the history of its changes.
// Owner   the manager process; the machine in kvd_gps_machine.cpp writes.
// Errors  none.
#pragma once
#include "base/tu_common.h"
#include "ose/types.h"

enum GpsState : u32 {
    GPS_ILLEGAL_STATE = 0,
    GPS_UN_INIT = 1,
    GPS_INIT_SERIAL_PORT = 2,
    GPS_WAIT_FOR_ANY_MSG = 3,
    GPS_WAIT_FOR_VALID_MSG = 4,
    GPS_WAIT_FOR_OPERATIONAL = 5,
    GPS_OPERATIONAL = 6,
    GPS_OPERATIONAL_WITH_VALID_TIME = 7,
};

constexpr u32 GPS_STATE_HISTORY = 10;
struct GpsStateRecord {
    u32 state = 0;
    char time[TIME_STAMP_SIZE] = "";
};

/// The last states with their times, newest first. A receiver whose sentences come late toggles between the
/// two operational states every second: the latest pair of such rows is kept and not all of them.
struct GpsStateHistory {
    GpsStateRecord rows[GPS_STATE_HISTORY];
    u8 count = 0;
    bool wasValid = false;                 // OPERATIONAL_WITH_VALID_TIME is the newest row
    bool droppedBack = false;              // OPERATIONAL came after it, at the time noted
    char droppedTime[TIME_STAMP_SIZE] = "";
};
/// Notes that `state` is entered now.
void KvdLoz6TuGps_recordState(GpsStateHistory& history, u32 state);

u32  KvdLoz6TuGps_gpsState();
/// Stores the state and its row of the history.
void KvdLoz6TuGps_storeGpsState(u32 state);
/// "1PPS present" for 6, "UNKNOWN" beyond the names.
const char* KvdLoz6TuGps_gpsStateText(u32 state);
/// Rows held, at most ten; row 0 is the newest.
u8   KvdLoz6TuGps_stateHistoryCount();
const GpsStateRecord& KvdLoz6TuGps_stateHistory(u8 row);
/// The newest row is above UN_INIT: the serial line is in use.
bool KvdLoz6TuGps_historyAboveUnInit();
