#include "gps/kvd_gps_nmea.h"

#include "fifo/kvd_fifo_gps.h"
#include "gps/kvd_gps_fields.h"
#include "gps/kvd_gps_nmea_int.h"
#include "gps/kvd_gps_receiver.h"
#include "ose/module_data.h"

namespace {

using gps::Fields;
using gps::LEVEL_CONTENT;
using gps::LEVEL_REFUSED;
using gps::Sentence;

ose::ModuleData<gps::NmeaState> s;

using GpggaFields = Fields<13>;

/// Field and direction of the latitude: "ddmm.ffff", "N" or "S".
bool readLatitude(GpggaFields& field, GpsCoordinate& latitude)
{
    if (!field.next("GPGGA latitude", 9)) return false;
    if (field.value[4] != '.') {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPGGA latitude separator error: %c", field.value[4]);
        return false;
    }
    const gps::DegMin angle = gps::toDegMin(field.value, 2);
    if (!field.next("GPGGA latitude direction", 1)) return false;
    if (!field.is('N') && !field.is('S')) {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPGGA: Error in latitude direction value");
        return false;
    }
    latitude = {angle.deg, angle.min, angle.fractMin, field.is('N') ? u8{GPS_NORTH} : u8{GPS_SOUTH}};
    return true;
}

/// "dddmm.ffff", "E" or "W".
bool readLongitude(GpggaFields& field, GpsCoordinate& longitude)
{
    if (!field.next("GPGGA longitude", 10)) return false;
    if (field.value[5] != '.') {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPGGA longitude separator error: %c", field.value[5]);
        return false;
    }
    const gps::DegMin angle = gps::toDegMin(field.value, 3);
    if (!field.next("GPGGA longitude direction", 1)) return false;
    if (!field.is('E') && !field.is('W')) {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPGGA: Error in longitude direction value");
        return false;
    }
    longitude = {angle.deg, angle.min, angle.fractMin, field.is('E') ? u8{GPS_EAST} : u8{GPS_WEST}};
    return true;
}

}  // namespace

bool KvdLoz6TuGps_parseGPGGA(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::optionalChecksumPasses(sentence, "KvdLoz6TuGps_parseGPGGA")) return false;
    if (!sentence.checksumPresent && !gps::lengthPasses(sentence, 70, 79, "GPGGA")) return false;

    GpggaFields field(sentence);
    field.skipAddress();
    ++s->counters.numberOfGPGGA;

    if (!field.next("GPGGA UTC", 6)) return false;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPGGA UTC time: %u:%u:%u", gps::toPair(field.value),
              gps::toPair(field.value + 2), gps::toPair(field.value + 4));
    GpsPosition position;
    if (!readLatitude(field, position.latitude)) return false;
    if (!readLongitude(field, position.longitude)) return false;

    if (!field.next("GPGGA status", 1)) return false;
    if (!field.is('0') && !field.is('1') && !field.is('2')) {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPGGA: Error in receiver status value");
        return false;
    }
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPGGA GPS Receiver Status: %u", gps::toNumber(field.value));

    if (!field.next("GPGGA number of satellites", 2)) return false;
    s->noOfSatellitesForPosit = static_cast<u8>(gps::toNumber(field.value));
    KvdLoz6FifoGps_storeGpggaSatellites(s->noOfSatellitesForPosit);
    if (!field.next("GPGGA DOP", 5)) return false;
    KvdLoz6FifoGps_storeGpggaDop(gps::toDouble(field.value));
    if (!field.next("GPGGA altitude", 8)) return false;
    position.altitude = gps::toDouble(field.value);

    if (!field.next("GPGGA unit of altitude", 1)) return false;
    if (!field.next("GPGGA geoid altitude", 6)) return false;
    if (!field.next("GPGGA unit of geoid", 1)) return false;
    if (!field.next("GPGGA DGPS data time", 0, 2)) return false;
    if (!field.next("GPGGA DGPS Station ID", 0, 4)) return false;
    if (!gps::fullyParsed(sentence, field.consumed(), "GPGGA")) return false;

    KvdLoz6TuGps_receiverRecord().instantaneous = position;
    KvdLoz6FifoGps_storeGpggaPosition(position);
    return true;
}

bool KvdLoz6TuGps_parseGPGSA(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::optionalChecksumPasses(sentence, "KvdLoz6TuGps_parseGPGSA")) return false;
    if (!gps::lengthPasses(sentence, 39, 66, "GPGSA")) return false;

    Fields<7> field(sentence);
    field.skipAddress();
    ++s->counters.numberOfGPGSA;

    if (!field.next("GPGSA operational mode", 1)) return false;
    if (!field.next("GPGSA positioning status", 1)) return false;
    std::array<u8, GPS_BEST_SATELLITES> used{};
    for (u8& SVno : used) {
        if (!field.next("GPGSA satellite used", 0, 2)) return false;
        SVno = static_cast<u8>(gps::toNumber(field.value));
    }
    GpsDop dop;
    if (!field.next("GPGSA PDOP", 5)) return false;
    dop.PDOP = gps::toDouble(field.value);
    if (!field.next("GPGSA HDOP", 5)) return false;
    dop.HDOP = gps::toDouble(field.value);
    if (!field.next("GPGSA VDOP", 5)) return false;
    dop.VDOP = gps::toDouble(field.value);
    if (!gps::fullyParsed(sentence, field.consumed(), "GPGSA")) return false;

    s->dop = dop;
    s->usedSatellites = used;
    KvdLoz6FifoGps_storeGpgsa(dop, used);
    return true;
}

u8 KvdLoz6TuGps_noOfSatellitesForPosit() { return s->noOfSatellitesForPosit; }
const GpsDop& KvdLoz6TuGps_dop() { return s->dop; }
const GpsNmeaCounters& KvdLoz6TuGps_nmeaCounters() { return s->counters; }
void KvdLoz6TuGps_clearNmeaCounters() { s->counters = {}; }

gps::NmeaState& gps::nmea() { return *s; }
