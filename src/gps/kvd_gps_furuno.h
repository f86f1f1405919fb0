// kvd_gps_furuno.h - Sentences of the address PFEC: GPtps, once a second, and GPanc, the almanac.
// Owner   the manager process; the test override is set by a command.
// Errors  parsers answer 1 for taken, 0 for refused with a trace; GPtps stores as it reads.
#pragma once
#include "ose/types.h"

struct GpsAlmanac {
    u8 dateTime[6] = {};         // year, month, day, hour, minute, second, as two-digit numbers
    u8 terminator = 0;
    u8 health[32] = {};          // a digit for each of satellites 1 to 32
};
static_assert(sizeof(GpsAlmanac) == 39);

struct GpsFurunoCounters { u32 numberOfPFECMsgs = 0, numberOfPFECGPtps = 0, numberOfPFECGPanc = 0; };

bool KvdLoz6TuGps_parsePxxxGPtps(const char* sentence);
bool KvdLoz6TuGps_parsePxxxGPanc(const char* sentence);

/// Time standard of the last GPtps: 2 GPS, 3 UTC, any other: the time can't be used.
u32 KvdLoz6TuGps_timeStandard();
const GpsAlmanac& KvdLoz6TuGps_almanac();
const GpsFurunoCounters& KvdLoz6TuGps_furunoCounters();
void KvdLoz6TuGps_clearFurunoCounters();
/// Test override of the received time standard until it is taken away.
void KvdLoz6TuGps_overrideTimeStandard(bool enabled, u8 timeStandard);
