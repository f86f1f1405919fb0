#include "sim/refs/gps_receiver_sentences.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace sim::nmea {
namespace {

u8 sumOf(const std::string& body)
{
    u8 sum = 0;
    for (const char c : body) sum = static_cast<u8>(sum ^ static_cast<u8>(c));
    return sum;
}

/// "yymmddhhmmss".
std::string dateText(i64 utc)
{
    using namespace std::chrono;
    const sys_seconds at{seconds{utc}};
    const sys_days day = floor<days>(at);
    const year_month_day date{day};
    const i64 s = (at - day).count();
    char text[32];
    std::snprintf(text, sizeof text, "%02d%02u%02u%02d%02d%02d", static_cast<int>(date.year()) % 100,
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(s / 3600), static_cast<int>(s / 60 % 60), static_cast<int>(s % 60));
    return text;
}

/// "ddmm.ffff,N,dddmm.ffff,E".
std::string positionText(const Position& at)
{
    const i64 lat = std::llround(std::fabs(at.latitude) * 600'000.0);     // 1/10000 min
    const i64 lon = std::llround(std::fabs(at.longitude) * 600'000.0);
    char text[64];
    std::snprintf(text, sizeof text, "%02d%02d.%04d,%c,%03d%02d.%04d,%c", static_cast<int>(lat / 600'000),
                  static_cast<int>(lat / 10'000 % 60), static_cast<int>(lat % 10'000),
                  at.latitude < 0.0 ? 'S' : 'N', static_cast<int>(lon / 600'000),
                  static_cast<int>(lon / 10'000 % 60), static_cast<int>(lon % 10'000),
                  at.longitude < 0.0 ? 'W' : 'E');
    return text;
}

}  // namespace

std::string frame(const std::string& body, bool checksum)
{
    char tail[8];
    std::snprintf(tail, sizeof tail, checksum ? "*%02X\r\n" : "\r\n", sumOf(body));
    return "$" + body + tail;
}

std::string gga(i64 utc, const Position& at, u32 used, double dop, bool checksum)
{
    char text[96];
    std::snprintf(text, sizeof text, "GPGGA,%s,%s,%d,%02u,%05.1f,%08.1f,M,%06.1f,M,,",
                  dateText(utc).substr(6).c_str(), positionText(at).c_str(), used > 0 ? 1 : 0, used, dop,
                  at.altitude_m, 0.0);
    return frame(text, checksum);
}

std::string gsa(std::span<const u8> used, double pdop, double hdop, double vdop, bool checksum)
{
    constexpr std::size_t LISTED = 12;
    std::string body = used.empty() ? "GPGSA,A,1" : "GPGSA,A,3";
    char text[32];
    for (std::size_t i = 0; i < LISTED; ++i) {
        if (i < used.size()) std::snprintf(text, sizeof text, ",%02u", used[i]);
        else std::snprintf(text, sizeof text, ",");
        body += text;
    }
    std::snprintf(text, sizeof text, ",%05.1f,%05.1f,%05.1f", pdop, hdop, vdop);
    return frame(body + text, checksum);
}

std::vector<std::string> gsv(const char* address, std::span<const Shown> satellites, bool angles,
                             bool checksum)
{
    const std::size_t total = std::max<std::size_t>((satellites.size() + 3) / 4, 1);
    std::vector<std::string> series;
    for (std::size_t page = 0; page < total; ++page) {
        char text[64];
        std::snprintf(text, sizeof text, ",%zu,%zu,%02zu", total, page + 1, satellites.size());
        std::string body = address;
        body += text;
        for (std::size_t i = page * 4; i < std::min(satellites.size(), page * 4 + 4); ++i) {
            const Shown& s = satellites[i];
            std::snprintf(text, sizeof text, ",%02u", s.satellite.number);
            body += text;
            if (angles)
                std::snprintf(text, sizeof text, ",%02u,%03u,", s.satellite.elevation, s.satellite.azimuth);
            else
                std::snprintf(text, sizeof text, ",,,");
            body += text;
            if (s.snr == 0) continue;
            std::snprintf(text, sizeof text, "%02u", s.snr);
            body += text;
        }
        series.push_back(frame(body, checksum));
    }
    return series;
}

std::string tps(const TimingReport& r, bool checksum)
{
    char text[96];
    std::snprintf(text, sizeof text, "PFEC,GPtps,%s,%u,%d,%u,170101000000,%02d,%02d,%s,%04u,%06u",
                  dateText(r.utc).c_str(), r.standard, r.pps ? 1 : 0, r.mode, r.leapSeconds, r.leapSeconds,
                  dateText(r.utc).c_str(), static_cast<u32>(r.week % 10'000), static_cast<u32>(r.tow));
    return frame(text, checksum);
}

std::string anc(i64 utc, bool checksum)
{
    return frame("PFEC,GPanc," + dateText(utc) + "," + std::string(32, '0'), checksum);
}

std::string ppr(i64 week, i64 tow, u8 status, bool faulty)
{
    char text[64];
    std::snprintf(text, sizeof text, "PNVX,GPppr,%06u,%05u,%05u,%02u,%01u,%01u", static_cast<u32>(tow),
                  static_cast<u32>(week % 100'000), 0u, 0u, status, faulty ? 1u : 0u);
    return frame(text, true);
}

std::string sts(u8 pp1state, u8 positionHoldMode, u8 port, bool glonass)
{
    char text[64];
    std::snprintf(text, sizeof text, "PNVX,GPsts,%u,%u,%u,0000%d", pp1state, positionHoldMode, port,
                  glonass ? 1 : 0);
    return frame(text, true);
}

std::string ver(const std::string& designation, const std::string& firmware)
{
    return frame("PNVX,GPver," + designation + ",NX 720 4101/1,R1A," + firmware, true);
}

std::string avp(const Position& at, u32 minutes)
{
    char text[32];
    std::snprintf(text, sizeof text, ",%07.1f,%04u", at.altitude_m, minutes % 10'000);
    return frame("PNVX,GPavp," + positionText(at) + text, true);
}

std::string rba(u8 feedline, bool checksum)
{
    char text[24];
    std::snprintf(text, sizeof text, "PTNLRBA,%d,%u", feedline == 0 ? 1 : 0, feedline);
    return frame(text, checksum);
}

std::string rvrHardware() { return frame("PTNLRVR,H,3023,00,60412345,03,17,2011", true); }

std::string rvrSoftware(const std::string& firmware)
{
    const bool dated = firmware.size() == 6;      // "yymmdd"
    const std::string yy = dated ? firmware.substr(0, 2) : "13";
    const std::string mm = dated ? firmware.substr(2, 2) : "01";
    const std::string dd = dated ? firmware.substr(4, 2) : "01";
    return frame("PTNLRVR,S,01." + mm + "." + dd + "," + mm + "," + dd + ",20" + yy, true);
}

bool bodyOf(const std::string& sentence, std::string& body)
{
    const std::size_t star = sentence.find('*');
    body = sentence.substr(0, star);
    if (star == std::string::npos) return true;
    const std::string digits = sentence.substr(star + 1, 2);
    char* end = nullptr;
    const unsigned long sum = std::strtoul(digits.c_str(), &end, 16);
    return digits.size() == 2 && *end == '\0' && sum == sumOf(body);
}

}  // namespace sim::nmea
