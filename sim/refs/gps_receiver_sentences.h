// gps_receiver_sentences.h - Texts that a simulated GPS receiver sends. Each function gives a whole
// sentence, "$" to CR LF.
#pragma once
#include "ose/types.h"
#include "sim/refs/gps_receiver_sky.h"

#include <span>
#include <string>
#include <vector>

namespace sim::nmea {

constexpr i64 GPS_EPOCH = 315'964'800;     // 1980-01-06 00:00:00 UTC, seconds since 1970
constexpr i64 WEEK_s = 604'800;

// Characters of the two timing sentences between "$" and "*".
constexpr u32 TPS_BODY = 73;
constexpr u32 PPR_BODY = 36;
// "$", checksum, CR and LF.
constexpr u32 FRAME = 3, CHECKSUM = 3;

struct Position { double latitude, longitude, altitude_m; };    // degrees, north and east positive

std::string frame(const std::string& body, bool checksum);

/// `utc` in seconds since 1970; `used` satellites, 0 without a fix.
std::string gga(i64 utc, const Position& at, u32 used, double dop, bool checksum);
std::string gsa(std::span<const u8> used, double pdop, double hdop, double vdop, bool checksum);
struct Shown {
    SkySatellite satellite;
    u32 snr = 0;                           // 0: not tracked
};
/// A series, four satellites a sentence; one sentence when there are none. Without `angles`
/// elevation and azimuth are empty.
std::vector<std::string> gsv(const char* address, std::span<const Shown> satellites, bool angles,
                             bool checksum);

struct TimingReport {
    i64 week = 0, tow = 0;                 // of the second that it names
    i64 utc = 0;                           // the same in seconds since 1970
    i32 leapSeconds = 0;
    u8  standard = 0;                      // 2: GPS; below: not usable
    bool pps = false;                      // available
    u8  mode = 1;                          // 1 survey, 2 position hold
};
std::string tps(const TimingReport& r, bool checksum);
std::string anc(i64 utc, bool checksum);
/// `status`: 0 locked, 1 free running, 3 1PPS not synchronised.
std::string ppr(i64 week, i64 tow, u8 status, bool faulty);
/// `pp1state`: 0 none, 1 survey, 2 position hold. `port`: 0 normal, 1 open, 2 short.
std::string sts(u8 pp1state, u8 positionHoldMode, u8 port, bool glonass);
std::string ver(const std::string& designation, const std::string& firmware);
std::string avp(const Position& at, u32 minutes);
std::string rba(u8 feedline, bool checksum);
std::string rvrHardware();
std::string rvrSoftware(const std::string& firmware);

/// The body of a command, without "$", checksum and CR; false when the checksum is wrong. It may
/// be missing, and its first digit may be a blank.
bool bodyOf(const std::string& sentence, std::string& body);

}  // namespace sim::nmea
