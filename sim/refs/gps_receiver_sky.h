// gps_receiver_sky.h - Satellites over a place: 30 GPS and 24 GLONASS on circular orbits over a
// spherical earth, good to a degree of the real shape of a day: they rise, culminate and set.
#pragma once
#include "ose/types.h"

#include <vector>

namespace sim {

struct SkySatellite {
    u8  number = 0;        // GPS 1 to 30, GLONASS 65 to 88
    u8  elevation = 0;     // degrees
    u16 azimuth = 0;       // degrees from north over east, 0 to 359
    double snr = 0;        // dB, without disturbance
};

class GpsSky {
public:
    /// Degrees, north and east positive.
    GpsSky(double latitude, double longitude);

    /// Highest first, above 5 degrees: 12 GPS or 8 GLONASS satellites at most, as many as a
    /// receiver has channels for.
    std::vector<SkySatellite> gps(i64 gpsSecond) const;
    std::vector<SkySatellite> glonass(i64 gpsSecond) const;

private:
    struct Vector { double x, y, z; };
    struct Constellation;
    std::vector<SkySatellite> inView(const Constellation& c, i64 gpsSecond) const;

    Vector up_, north_, east_;
};

}  // namespace sim
