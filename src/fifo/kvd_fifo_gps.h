// kvd_fifo_gps.h - Ring of what the GPS receiver said, a record a second, for trouble reports.
// Owner   the manager process fills; Kvd_loz6_fifo_proc reads it without a lock while it writes a
//         file.
// Units   as the sentences give them.
#pragma once
#include "ose/types.h"
#include "sig/gps_types.h"

#include <array>

// Each stores a sentence's values in the record that is being filled.
void KvdLoz6FifoGps_storeGpggaSatellites(u8 noOfSatellites);
void KvdLoz6FifoGps_storeGpggaDop(double dop);
void KvdLoz6FifoGps_storeGpggaPosition(const GpsPosition& position);
void KvdLoz6FifoGps_storeGpgsa(const GpsDop& dop, const std::array<u8, GPS_BEST_SATELLITES>& used);
void KvdLoz6FifoGps_storeSatellites(const std::array<GpsSatellite, GPS_BEST_SATELLITES>& best);
void KvdLoz6FifoGps_storeGpppr(u32 tow, u32 week, u8 gpssStatus, u8 gpssFaulty);
void KvdLoz6FifoGps_storeGpsts(u8 pp1state, u8 positionHoldMode, u8 antennaPortSts, const char* capabilities);
void KvdLoz6FifoGps_storeGpavp(const GpsPosition& position);
void KvdLoz6FifoGps_storeGptps(u32 timeStandard, u32 ppsAvailable, u32 mode, u32 week, u32 seconds);
/// Second and week alone, of a GPtps whose record another sentence closes.
void KvdLoz6FifoGps_storeTowWeek(u32 seconds, u32 week);
/// Stamps the record and moves on; the next begins with what slower sentences filled.
void KvdLoz6FifoGps_closeRecord();
/// Empties the ring at the end of the reference's supervision; the index stays.
void KvdLoz6FifoGps_clear();
