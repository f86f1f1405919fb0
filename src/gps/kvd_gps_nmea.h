// kvd_gps_nmea.h - The four standard sentences and what becomes of them: satellites, DOP, position.
// Owner   the manager process.
// Units   degrees, dB, m.
// Errors  parsers answer 1 for taken, 0 for refused with a trace.
#pragma once
#include "ose/types.h"

#include <array>
#include <cstddef>

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

/// Sentences by kind, counted as each parser says.
struct GpsNmeaCounters { u32 numberOfGPGGA = 0, numberOfGPGSA = 0, numberOfGPGSV = 0, numberOfGLGSV = 0; };

int KvdLoz6TuGps_parseGPGGA(const char* sentence);
int KvdLoz6TuGps_parseGPGSA(const char* sentence);
int KvdLoz6TuGps_parseGPGSV(const char* sentence);
int KvdLoz6TuGps_parseGLGSV(const char* sentence);

/// Of the series that is being received; 0: the last sentence finished one, or none is under way.
u8 KvdLoz6TuGps_gpgsvFillIndex();
const std::array<GpsSatellite, GPS_SATELLITES>& KvdLoz6TuGps_gpsSatellites();
const std::array<GpsSatellite, GPS_SATELLITES>& KvdLoz6TuGps_glonassSatellites();
const std::array<GpsSatellite, GPS_MERGED_SATELLITES>& KvdLoz6TuGps_mergedSatellites();
const std::array<GpsSatellite, GPS_BEST_SATELLITES>& KvdLoz6TuGps_bestSatellites();
const std::array<u8, GPS_BEST_SATELLITES>& KvdLoz6TuGps_usedSatellites();
u8 KvdLoz6TuGps_gpsInView();
u8 KvdLoz6TuGps_glonassInView();
u8 KvdLoz6TuGps_noOfSatellitesInView();
u8 KvdLoz6TuGps_noOfSatellitesForPosit();
const GpsDop& KvdLoz6TuGps_dop();
const GpsNmeaCounters& KvdLoz6TuGps_nmeaCounters();

/// A system was silent for 60 s: its satellites are gone. Clear their timer's reference first.
void KvdLoz6TuGps_onResetGpsSatellites();
void KvdLoz6TuGps_onResetGlonassSatellites();
void KvdLoz6TuGps_cancelSatelliteTimers();
/// DOP, in-view counts, best, merged and current tables. The fill tables stay until a series begins.
void KvdLoz6TuGps_resetSatellites();
void KvdLoz6TuGps_clearNmeaCounters();
