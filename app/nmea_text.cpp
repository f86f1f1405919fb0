// What `tu nmea` prints.
#include "app/nmea.h"

#include <algorithm>

namespace app {
namespace {

unsigned long long count(u64 n) { return static_cast<unsigned long long>(n); }

std::string printable(const std::string& text)
{
    std::string out;
    for (const char c : text)
        if (c != '\r') out += c >= ' ' && c <= '~' ? c : '.';
    return out;
}

void printPosition(const NmeaResult& r, std::FILE* out)
{
    if (!r.hasPosition) {
        std::fprintf(out, "  position   none\n");
        return;
    }
    constexpr const char* DIRECTIONS = "NESW";
    const GpsPosition& p = r.position;
    std::fprintf(out, "  position   %02u %02u.%04u' %c, %03u %02u.%04u' %c, %.1f m\n", p.latitude.deg,
                 p.latitude.min, p.latitude.fractMin, DIRECTIONS[p.latitude.dir & 3], p.longitude.deg,
                 p.longitude.min, p.longitude.fractMin, DIRECTIONS[p.longitude.dir & 3], p.altitude);
}

void printSatellites(const NmeaResult& r, std::FILE* out)
{
    std::fprintf(out, "  satellites %u in view (GPS %u, GLONASS %u), %u in the last fix\n",
                 r.satellitesInView, r.gpsInView, r.glonassInView, r.satellitesUsed);
    for (const GpsSatellite& s : r.best)
        if (s.SVno != 0)
            std::fprintf(out, "             %3u  %2u dB, elevation %2u, azimuth %3u\n", s.SVno, s.SNR,
                         s.elevation, s.azimuth);
}

void printTime(const NmeaResult& r, std::FILE* out)
{
    if (r.gpsTime != 0.0)
        std::fprintf(out, "  time       GPS week %u, second %u\n", r.week, r.secondOfWeek);
    else if (r.week != 0 || r.secondOfWeek != 0)
        std::fprintf(out, "  time       none in use, last told GPS week %u, second %u\n", r.week,
                     r.secondOfWeek);
    else
        std::fprintf(out, "  time       none: no timing sentence\n");
}

}  // namespace

void printNmeaSentence(const NmeaSentence& s, std::FILE* out)
{
    constexpr const char* VERDICTS[] = {"taken", "refused", "woke", "too long"};
    std::fprintf(out, "%-8s  %s%s%s\n", VERDICTS[static_cast<u8>(s.verdict)], printable(s.text).c_str(),
                 s.reason.empty() ? "" : "   <- ", s.reason.c_str());
}

void printNmeaResult(const NmeaResult& r, const NmeaLog& log, const std::string& name, std::FILE* out)
{
    std::fprintf(out, "%s: %llu bytes, %llu sentences\n", name.c_str(), count(r.bytes), count(r.sentences));
    if (log.headingDropped) std::fprintf(out, "  the recorder's heading is left out\n");
    if (log.returnsPutBack) std::fprintf(out, "  lines end in LF alone: the CR is put back\n");
    if (log.noiseBytes != 0) std::fprintf(out, "  %llu bytes of noise mixed in\n", count(log.noiseBytes));
    std::fprintf(out, "  taken      %llu\n  refused    %llu\n", count(r.taken), count(r.refused));
    if (r.woke != 0)
        std::fprintf(
            out, "  woke       %llu: after silence the first only tells that there is a receiver\n",
            count(r.woke));
    if (r.tooLong != 0) std::fprintf(out, "  too long   %llu\n", count(r.tooLong));
    if (r.outsideBytes != 0)
        std::fprintf(out, "  outside    %llu bytes of no sentence\n", count(r.outsideBytes));
    if (r.lostBytes != 0) std::fprintf(out, "  lost       %llu bytes\n", count(r.lostBytes));

    std::fprintf(out, "by type            taken  refused\n");
    for (const auto& [type, n] : r.types)
        std::fprintf(out, "  %-14s %7llu  %7llu\n", type.c_str(), count(n.taken), count(n.refused));
    if (!r.reasons.empty()) std::fprintf(out, "refused because\n");
    std::vector<std::pair<std::string, u64>> reasons(r.reasons.begin(), r.reasons.end());
    std::stable_sort(reasons.begin(), reasons.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    for (const auto& [reason, n] : reasons) std::fprintf(out, "  %7llu  %s\n", count(n), reason.c_str());

    std::fprintf(out, "ends with\n  receiver   %s, %s\n", r.receiver.c_str(), r.state.c_str());
    printPosition(r, out);
    printSatellites(r, out);
    printTime(r, out);
    for (const std::string& misuse : r.misuses) std::fprintf(out, "kernel misuse: %s\n", misuse.c_str());
}

}  // namespace app
