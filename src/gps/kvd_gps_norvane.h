// kvd_gps_norvane.h - Sentences of the address PNVX: GPppr, GPsts, GPver, GPavp, GPout.
// Owner   the manager process; the test override is set by a command.
// Errors  parsers answer 1 for taken, 0 for refused with a trace; fields before the fault are stored.
#pragma once
#include "ose/types.h"

constexpr u32 GPVER_TEXT = 17;   // 16 characters and the NUL

struct GpsNorvane {
    u8 GPsts_pp1state = 0;
    u8 GPsts_positionHoldMode = 1;
    u8 GPsts_antennaPortSts = 0;
    char capabilities[6] = "0";              // five characters
    u8 glonassCapability = 0;                // 0 none, 1 or 2 supported
    u8 gpssStatus = 0xFF;                    // 0 locked, 1 free running, 3 1PPS not synchronised
    u8 gpssFaulty = 0;
    char productDesignation[GPVER_TEXT] = "Unknown";
    char productNo[GPVER_TEXT] = "Unknown";
    char productRev[GPVER_TEXT] = "Unknown";
    char additionalInformation[GPVER_TEXT] = "Unknown";   // firmware of a GPS02: "110624", "120510"
    u8 remoteJumpIndication = 0;             // with it GPout tells a clock state: KvdLoz6GpsOsl_remoteState
    u8 gnssTimePresent = 0;
    u8 gnssDataPresent = 0;
    u8 isMaster = 0;
};

/// The receiver's self-test, as the check of a type 6 reads it.
struct GpsSelfTestRecord {
    u8 reserved[14] = {};
    u8 code = 0;             // no sentence fills it
    u8 gpssFaulty = 0;
    u8 gppprCount = 0;       // modulo 256
};
static_assert(sizeof(GpsSelfTestRecord) == 17);

struct GpsNorvaneCounters {
    u32 numberOfPNVXGPppr = 0, numberOfPNVXGPsts = 0, numberOfPNVXGPver = 0, numberOfPNVXGPavp = 0,
        numberOfPNVXGPout = 0;
};

bool KvdLoz6TuGps_parsePxxxGPppr(const char* sentence);
bool KvdLoz6TuGps_parsePxxxGPsts(const char* sentence);
bool KvdLoz6TuGps_parsePxxxGPver(const char* sentence);
bool KvdLoz6TuGps_parsePxxxGPavp(const char* sentence);
bool KvdLoz6TuGps_parsePxxxGPout(const char* sentence);

const GpsNorvane& KvdLoz6TuGps_norvane();
/// No sentence fills `code`: it is set from outside.
GpsSelfTestRecord& KvdLoz6TuGps_selfTestRecord();
const GpsNorvaneCounters& KvdLoz6TuGps_norvaneCounters();
void KvdLoz6TuGps_clearNorvaneCounters();
/// All that the sentences said, and their counters, as before the first of them. The test override stays.
void KvdLoz6TuGps_clearNorvane();
/// The four GPver texts to "Unknown".
void KvdLoz6TuGps_resetVersion();
/// Firmware "110624" or "120510": a module that recovery can restart.
bool KvdLoz6TuGps_isGps02();
bool KvdLoz6TuGps_isFirmware(const char* additionalInformation);

/// Test override of the received status: 0, 1 or 3 in its place until it is taken away.
void KvdLoz6TuGps_overrideGpssStatus(bool enabled, u8 gpssStatus);
/// "GPS Locked", "Free Running", "1PPS not Synchronized".
const char* KvdLoz6TuGps_gpssStatusText(u8 gpssStatus);
