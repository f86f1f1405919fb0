// kvd_gps_nmea.h - The four standard sentences and what becomes of them: satellites, DOP, position.
// Owner   the manager process.
// Units   degrees, dB, m.
// Errors  parsers answer 1 for taken, 0 for refused with a trace.
#pragma once
#include "sig/gps_types.h"

#include <array>

/// Sentences by kind, counted as each parser says.
struct GpsNmeaCounters { u32 numberOfGPGGA = 0, numberOfGPGSA = 0, numberOfGPGSV = 0, numberOfGLGSV = 0; };

bool KvdLoz6TuGps_parseGPGGA(const char* sentence);
bool KvdLoz6TuGps_parseGPGSA(const char* sentence);
bool KvdLoz6TuGps_parseGPGSV(const char* sentence);
bool KvdLoz6TuGps_parseGLGSV(const char* sentence);

/// Of the series that is being received; 0: the last sentence finished one, or none is under way.
u8 KvdLoz6TuGps_gpgsvFillIndex();
const std::array<GpsSatellite, GPS_SATELLITES>& KvdLoz6TuGps_gpsSatellites();
const std::array<GpsSatellite, GPS_MERGED_SATELLITES>& KvdLoz6TuGps_mergedSatellites();
const std::array<GpsSatellite, GPS_BEST_SATELLITES>& KvdLoz6TuGps_bestSatellites();
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
