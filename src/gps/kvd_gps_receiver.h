// kvd_gps_receiver.h - What the receiver has told of itself: kind, time, observation mode, position.
// Owner   the manager process. Detection and the sentence parsers write; everybody reads.
// Units   GPS time in s since 1980-01-06; week and second of the week.
// Errors  none.
#pragma once
#include "ose/types.h"

/// What the receiver was found to be, `gpssType`.
enum GpssType : u32 {
    GPSS_UNKNOWN          = 0,
    GPSS_FURUNO           = 1,   // GPS01: GPtps without GPsts
    GPSS_NORVANE_COMBINED = 2,   // GPppr and GPsts
    GPSS_PENDING          = 3,   // GPppr seen, GPsts not yet
    GPSS_NORVANE          = 4,   // GPppr without GPsts: another unit's output
    GPSS_PENDING_FURUNO   = 5,   // GPtps seen, GPsts not yet
    GPSS_FURUNO_GPS02     = 6,   // GPtps and GPsts: a GPS02 or GPS03 in its Furuno protocol
};

enum GpsObservationMode : u8 { GPS_SURVEY = 0, GPS_POSITION_HOLD = 1, GPS_MODE_UNKNOWN = 2 };
enum GpsDirection : u8 { GPS_NORTH = 0, GPS_EAST = 1, GPS_SOUTH = 2, GPS_WEST = 3 };

struct GpsCoordinate {
    u8  deg = 0, min = 0;
    u16 fractMin = 0;              // 1/10000 min
    u8  dir = GPS_NORTH;           // GpsDirection
};

struct GpsPosition {
    GpsCoordinate latitude;
    GpsCoordinate longitude{0, 0, 0, GPS_EAST};
    double altitude = 0.0;         // m
};

struct GpsReceiver {
    u32 gpssType = GPSS_UNKNOWN;          // GpssType; back to 0 whenever a receiver is looked for anew
    u32 gpssType_backup = GPSS_UNKNOWN;   // the last one written, never cleared
    u8  timeValid = 1;                    // a timing sentence said that its time can be used
    u32 timeNotValid = 1;
    u32 gpsTimeWeek = 0;
    u32 gpsTow = 0;                       // s of the week
    double gpsCurrentTime = 0.0;          // s since the GPS epoch, 0.0 is none
    u8  timeKept = 0;                     // it is an earlier second's: the last timing sentence gave none
    u8  observationMode = GPS_MODE_UNKNOWN;   // GpsObservationMode
    GpsPosition averaged;                 // from GPavp
    GpsPosition instantaneous;            // from GPGGA
};
/// The one record. Only detection and the parsers write it.
GpsReceiver& KvdLoz6TuGps_receiver();

/// Both types at once, as detection and the dialects do.
void KvdLoz6TuGps_setGpssType(u32 gpssType);
/// "Norvane Combined"; a type 6 is "Furuno (GPS02)" or "Furuno (GPS03)" by its firmware field.
const char* KvdLoz6TuGps_gpssTypeText(u32 gpssType);
/// Position for the client: the averaged one in position hold with any type but GPS01, else the
/// instantaneous one.
const GpsPosition& KvdLoz6TuGps_shownPosition();
/// Type, mode, week, TOW and both positions as before any sentence. Flags, time and backup stay.
void KvdLoz6TuGps_resetReceiver();
