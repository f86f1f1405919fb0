// gps_types.h - What a receiver tells: its kind, a position, satellites, dilution of precision.
// Units   degrees, dB, m; GPS time in s since 1980-01-06; week and second of the week.
#pragma once
#include "ose/types.h"

#include <array>
#include <cstddef>

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

constexpr u32 GPS_SATELLITES = 36;           // of each system
constexpr u32 GPS_BEST_SATELLITES = 12;
constexpr u32 GPS_MERGED_SATELLITES = 72;

struct GpsSatellite {
    u8  SVno = 0;        // 1 to 32 GPS, 65 to 96 GLONASS, 0 empty
    u8  elevation = 0;   // degrees
    u16 azimuth = 0;     // degrees
    u8  SNR = 0;         // dB
    u8  spare = 0;
};
static_assert(sizeof(GpsSatellite) == 6 && offsetof(GpsSatellite, SNR) == 4);

struct GpsDop { double PDOP = 0.0, HDOP = 0.0, VDOP = 0.0; };
