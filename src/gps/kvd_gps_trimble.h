// kvd_gps_trimble.h - The module behind a GPS02 (address PTNL): its identity and its antenna feed.
// Owner   the manager process; the queries run in the process of the one who asks.
// Errors  parsers answer 1 for taken, 0 for refused with a trace.
#pragma once
#include "ose/types.h"

constexpr u32 MODULE_TEXT = 16;
struct GpsModule {
    char hardwareId[MODULE_TEXT] = "Unknown";
    char serialNumber[MODULE_TEXT] = "Unknown";
    char manufactureDate[MODULE_TEXT] = "Unknown";    // month.day.year
    char firmwareVersion[MODULE_TEXT] = "Unknown";    // major.minor.build
};
enum GpsAntennaFeedline : u32 {
    FEEDLINE_NORMAL = 0,
    FEEDLINE_OPEN = 1,
    FEEDLINE_SHORT = 2,
    FEEDLINE_UNKNOWN = 3
};

struct GpsTrimbleCounters { u32 numberOfPTNLRBA = 0, numberOfPTNLRVRH = 0, numberOfPTNLRVRS = 0; };

bool KvdLoz6TuGps_parsePTNLRBA(const char* sentence);
bool KvdLoz6TuGps_parsePTNLRVR(const char* sentence);

const GpsModule& KvdLoz6TuGps_module();
void KvdLoz6TuGps_resetModule();
u32  KvdLoz6TuGps_antennaFeedline();
/// "Open Circuit" for 1, "Unknown" from 3 on.
const char* KvdLoz6TuGps_feedlineText(u32 feedline);
const GpsTrimbleCounters& KvdLoz6TuGps_trimbleCounters();
void KvdLoz6TuGps_clearTrimbleCounters();

/// Asks the module who it is and waits up to 2 s. Not for the manager process.
GpsModule KvdLoz6TuGps_queryChipset();
/// Asks for the antenna feed and waits up to 2 s; the feedline's name. "" when it isn't asked at all
/// (no receiver there, or a GPS01). Not for the manager process.
const char* KvdLoz6TuGps_queryAntenna();
