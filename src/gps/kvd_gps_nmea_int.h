// kvd_gps_nmea_int.h - State of the standard sentences; their two sources share it, nobody else
// writes.
#pragma once
#include "base/kvd_timer.h"
#include "gps/kvd_gps_nmea.h"

namespace gps {

using SatelliteTable = std::array<GpsSatellite, GPS_SATELLITES>;

/// What is known of a satellite system.
struct SatelliteSystem {
    SatelliteTable fill{};                 // of the series under way
    SatelliteTable current{};              // last complete series, strongest first
    u8 fillIndex = 0;                      // 0, 4, ... 32
    u8 inView = 0;
    KvdTimer silenceTmoRef;
};

struct NmeaState {
    GpsNmeaCounters counters;
    GpsDop dop;
    std::array<u8, GPS_BEST_SATELLITES> usedSatellites{};
    u8 noOfSatellitesForPosit = 0;
    SatelliteSystem gps;
    SatelliteSystem glonass;
    std::array<GpsSatellite, GPS_MERGED_SATELLITES> merged{};
    std::array<GpsSatellite, GPS_BEST_SATELLITES> best{};
    u8 noOfSatellitesInView = 0;
};
NmeaState& nmea();

}  // namespace gps
