#include "sim/refs/gps_receiver_sky.h"

#include "sim/clock/portable_math.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr double EARTH_km = 6371.0;
constexpr double SIDEREAL_DAY_s = 86164.0905;
constexpr double MASK_DEGREES = 5.0;

double sine(double turns) { return portable::sineOfTurns(turns); }
double cosine(double turns) { return portable::sineOfTurns(turns + 0.25); }

/// Arc tangent of z, in turns: halves the angle three times, then the series.
double turnsOfTangent(double z)
{
    constexpr double TWO_PI = 6.283185307179586;
    for (int i = 0; i < 3; ++i) z = z / (1.0 + std::sqrt(1.0 + z * z));
    const double square = z * z;                  // |z| is below 0.2 by now
    double sum = 0.0;
    for (int k = 23; k >= 1; k -= 2) sum = 1.0 / k - sum * square;
    return 8.0 * z * sum / TWO_PI;
}

/// Direction of (north, east), 0 up to 360 degrees.
double azimuthOf(double north, double east)
{
    if (north == 0.0 && east == 0.0) return 0.0;
    double turns = std::fabs(north) >= std::fabs(east) ? turnsOfTangent(east / north)
                                                       : 0.25 - turnsOfTangent(north / east);
    const bool turnedBack = std::fabs(north) >= std::fabs(east) ? north < 0.0 : east < 0.0;
    if (turnedBack) turns += 0.5;
    return 360.0 * (turns - std::floor(turns));
}

}  // namespace

struct GpsSky::Constellation {
    u32 planes, perPlane;
    u8  first;               // number of the first satellite
    double inclination;      // turns
    double period_s, radius_km;
    double firstNode;        // turns
    std::size_t channels;
};

GpsSky::GpsSky(double latitude, double longitude)
{
    const double sinLat = sine(latitude / 360.0), cosLat = cosine(latitude / 360.0);
    const double sinLon = sine(longitude / 360.0), cosLon = cosine(longitude / 360.0);
    up_ = {cosLat * cosLon, cosLat * sinLon, sinLat};
    north_ = {-sinLat * cosLon, -sinLat * sinLon, cosLat};
    east_ = {-sinLon, cosLon, 0.0};
}

std::vector<SkySatellite> GpsSky::gps(i64 gpsSecond) const
{
    return inView({6, 5, 1, 55.0 / 360.0, 43082.0, 26560.0, 0.0, 12}, gpsSecond);
}

std::vector<SkySatellite> GpsSky::glonass(i64 gpsSecond) const
{
    return inView({3, 8, 65, 64.8 / 360.0, 40544.0, 25510.0, 1.0 / 12.0, 8}, gpsSecond);
}

std::vector<SkySatellite> GpsSky::inView(const Constellation& c, i64 gpsSecond) const
{
    struct Seen { double sinElevation; SkySatellite satellite; };
    std::vector<Seen> seen;
    const double t = static_cast<double>(gpsSecond);
    const double sinInc = sine(c.inclination), cosInc = cosine(c.inclination);
    const double sinMask = sine(MASK_DEGREES / 360.0);
    for (u32 plane = 0; plane < c.planes; ++plane) {
        const double node = c.firstNode + 1.0 * plane / c.planes - t / SIDEREAL_DAY_s;
        const double sinNode = sine(node), cosNode = cosine(node);
        for (u32 slot = 0; slot < c.perPlane; ++slot) {
            const double along = t / c.period_s + 1.0 * slot / c.perPlane
                                 + 1.0 * plane / (c.planes * c.perPlane);
            const double sinU = sine(along), cosU = cosine(along);
            const Vector d{
                c.radius_km * (cosU * cosNode - sinU * cosInc * sinNode) - EARTH_km * up_.x,
                c.radius_km * (cosU * sinNode + sinU * cosInc * cosNode) - EARTH_km * up_.y,
                c.radius_km * sinU * sinInc - EARTH_km * up_.z};
            const double height = d.x * up_.x + d.y * up_.y + d.z * up_.z;
            const double sinEl = height / std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
            if (sinEl < sinMask) continue;
            const double tanEl = sinEl / std::sqrt(std::max(1.0 - sinEl * sinEl, 1e-12));
            const double azimuth = azimuthOf(d.x * north_.x + d.y * north_.y + d.z * north_.z,
                                             d.x * east_.x + d.y * east_.y);
            SkySatellite s;
            s.number = static_cast<u8>(c.first + plane * c.perPlane + slot);
            s.elevation = static_cast<u8>(360.0 * turnsOfTangent(tanEl) + 0.5);
            s.azimuth = static_cast<u16>(static_cast<u32>(azimuth + 0.5) % 360);
            // 32 dB at the mask to 52 dB overhead, with the slow ripple of reflections.
            s.snr = 30.0 + 22.0 * sinEl + sine(t / 900.0 + s.number / 7.0);
            seen.push_back({sinEl, s});
        }
    }
    std::stable_sort(seen.begin(), seen.end(),
                     [](const Seen& a, const Seen& b) { return a.sinElevation > b.sinElevation; });
    std::vector<SkySatellite> satellites;
    for (const Seen& s : seen)
        if (satellites.size() < c.channels) satellites.push_back(s.satellite);
    return satellites;
}

}  // namespace sim
