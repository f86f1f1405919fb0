// kvd_fifo_record.h - Records of the rolling logs. Nobody outside of src/fifo includes it.
// Owner   the manager process fills; Kvd_loz6_fifo_proc reads without a lock, and may see a record
//         that is half written.
// Units   as the fields say.
#pragma once
#include "base/tu_common.h"
#include "ose/types.h"
#include "sig/gps_types.h"

#include <array>
#include <cstddef>

namespace fifo {

struct Coordinate {
    u8  hemisphere;                // GpsDirection
    u8  degrees;
    u8  minutes;
    u8  spare;
    u16 fraction;                  // 1/10000 min
};
static_assert(sizeof(Coordinate) == 6);

struct Position {
    Coordinate latitude;
    Coordinate longitude;
    float altitude;                // m
};
static_assert(sizeof(Position) == 16);

using Satellites = std::array<GpsSatellite, GPS_BEST_SATELLITES>;

/// What every receiver tells.
struct GpsCommon {
    char time[TIME_STAMP_SIZE];          // empty: not used
    u8 spare;
    Position GPGGA;
    u8 GPGGA_noOfSatellites;
    u8 spare2[3];
    float GPGGA_DOP;
    Satellites satellites;
};
static_assert(offsetof(GpsCommon, GPGGA) == 28 && offsetof(GpsCommon, GPGGA_DOP) == 48);
static_assert(offsetof(GpsCommon, satellites) == 52 && sizeof(GpsCommon) == 124);

/// A second of a GPS01.
struct GpsFuruno {
    GpsCommon common;
    u8 GPtps_timeStandard;
    u8 GPtps_1PPSavail;
    u8 GPtps_ObsMode;
    u8 spare;
    u32 GPtps_gpsWeeks;
    u32 GPtps_gpsSeconds;
};
static_assert(offsetof(GpsFuruno, GPtps_gpsWeeks) == 128 && sizeof(GpsFuruno) == 136);

/// A second of any other receiver.
struct GpsOther {
    GpsCommon common;
    u8 GPsts_pp1state;
    u8 GPsts_positionHoldMode;
    u8 GPsts_antennaPortSts;
    char GPsts_capabilities[5];    // without terminator
    u32 GPS_TOW;                   // s of the week
    u32 GPS_week;
    u8 GPppr_gpssStatus;
    u8 GPppr_gpssFaulty;
    Coordinate GPavp_latitude;
    Coordinate GPavp_longitude;
    float GPavp_altitude;          // m
    float GPGSA_HDOP;
    float GPGSA_VDOP;
    float GPGSA_PDOP;
    std::array<u8, GPS_BEST_SATELLITES> GPGSA_used;
};
static_assert(offsetof(GpsOther, GPS_TOW) == 132 && offsetof(GpsOther, GPavp_latitude) == 142);
static_assert(offsetof(GpsOther, GPGSA_used) == 172 && sizeof(GpsOther) == 184);

/// A control step of the regulator.
struct Regulator {
    char time[TIME_STAMP_SIZE];
    u8 spare;
    u32 Ref;                       // measurement index
    float latchedTime;             // s, of the reference's edge; 0 for a step without one
    float sfcTime_c;               // s, multiples of 1024
    double sfcTime_f;              // s, below 1024
    float z;                       // s; the normalised temperature of a temperature step
    float R;                       // s^2
    float m;
    float x_pred[2];               // s, s/s
    float x_est[2];
    float P_pred[4];               // 11, 12, 21, 22
    float P_est[4];
    float Kgain[2];
    double Uf;                     // divider
    float duf;
};
static_assert(offsetof(Regulator, Ref) == 28 && offsetof(Regulator, sfcTime_f) == 40);
static_assert(offsetof(Regulator, Uf) == 120 && sizeof(Regulator) == 136);

/// A minute of the sky.
struct SkyView {
    char time[TIME_STAMP_SIZE];
    u8 spare;
    Position GPGGA;                // instantaneous
    Position GPavp;                // averaged
    Satellites satellites;
};
static_assert(offsetof(SkyView, GPavp) == 44 && sizeof(SkyView) == 132);

inline Coordinate coordinateOf(const GpsCoordinate& c) { return {c.dir, c.deg, c.min, 0, c.fractMin}; }
inline Position positionOf(const GpsPosition& p)
{
    return {coordinateOf(p.latitude), coordinateOf(p.longitude), static_cast<float>(p.altitude)};
}

}  // namespace fifo
