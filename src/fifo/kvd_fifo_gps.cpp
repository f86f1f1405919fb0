#include "fifo/kvd_fifo_gps.h"

#include "base/trace_groups.h"
#include "base/tu_common.h"
#include "fifo/kvd_fifo_dump.h"
#include "fifo/kvd_fifo_record.h"
#include "fifo/kvd_fifo_upcalls.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <cstring>

namespace {

using fifo::filePrint;
using fifo::fileText;
using fifo::GpsCommon;
using fifo::GpsFuruno;
using fifo::GpsOther;

constexpr u16 RECORDS = 3600;      // an hour, a record a second
constexpr const char* FILE_NAME = "/gzip/c/logfiles/kvdFifoGps.gz";

struct State {
    std::array<GpsFuruno, RECORDS> furuno{};
    std::array<GpsOther, RECORDS> other{};
    GpsFuruno nowFuruno{};         // second that is being filled, for either table
    GpsOther nowOther{};
    u16 index = 0;                 // place of that second, the oldest record, in either table
    bool inFuruno = false;         // table in use
};
ose::ModuleData<State> s;

GpsCommon& commonNow() { return s->inFuruno ? s->nowFuruno.common : s->nowOther.common; }

/// The record to fill, cleared but for what slower sentences filled in the record before.
void begin(const GpsCommon& before)
{
    const GpsCommon kept = before;
    if (s->inFuruno) s->nowFuruno = {};
    else s->nowOther = {};
    commonNow() = kept;
}

void copySlowFields(const GpsOther& from, GpsOther& to)
{
    to.GPavp_latitude = from.GPavp_latitude;
    to.GPavp_longitude = from.GPavp_longitude;
    to.GPavp_altitude = from.GPavp_altitude;
    to.GPGSA_HDOP = from.GPGSA_HDOP;
    to.GPGSA_VDOP = from.GPGSA_VDOP;
    to.GPGSA_PDOP = from.GPGSA_PDOP;
    to.GPGSA_used = from.GPGSA_used;
}

/// The receiver's kind says which table takes its records. While it is looked for anew the table
/// stays, so that a dump still tells what came before.
void chooseTable()
{
    const u32 gpssType = FIFO_UPCALLS.receiver().gpssType;
    const bool wanted = gpssType == GPSS_UNKNOWN ? s->inFuruno : gpssType == GPSS_FURUNO;
    if (wanted == s->inFuruno) return;
    const GpsCommon& before = commonNow();
    s->inFuruno = wanted;
    begin(before);
}

GpsCommon& common()
{
    chooseTable();
    return commonNow();
}

/// nullptr while the receiver is a GPS01, whose records have no place for it.
GpsOther* other()
{
    chooseTable();
    return s->inFuruno ? nullptr : &s->nowOther;
}

}  // namespace

void KvdLoz6FifoGps_storeGpggaSatellites(u8 noOfSatellites)
{
    common().GPGGA_noOfSatellites = noOfSatellites;
}

void KvdLoz6FifoGps_storeGpggaDop(double dop) { common().GPGGA_DOP = static_cast<float>(dop); }

void KvdLoz6FifoGps_storeGpggaPosition(const GpsPosition& position)
{
    common().GPGGA = fifo::positionOf(position);
}

void KvdLoz6FifoGps_storeGpgsa(const GpsDop& dop, const std::array<u8, GPS_BEST_SATELLITES>& used)
{
    GpsOther* const r = other();
    if (r == nullptr) return;
    r->GPGSA_HDOP = static_cast<float>(dop.HDOP);
    r->GPGSA_VDOP = static_cast<float>(dop.VDOP);
    r->GPGSA_PDOP = static_cast<float>(dop.PDOP);
    r->GPGSA_used = used;
}

void KvdLoz6FifoGps_storeSatellites(const std::array<GpsSatellite, GPS_BEST_SATELLITES>& best)
{
    common().satellites = best;
}

void KvdLoz6FifoGps_storeGpppr(u32 tow, u32 week, u8 gpssStatus, u8 gpssFaulty)
{
    GpsOther* const r = other();
    if (r == nullptr) return;
    r->GPS_TOW = tow;
    r->GPS_week = week;
    r->GPppr_gpssStatus = gpssStatus;
    r->GPppr_gpssFaulty = gpssFaulty;
}

void KvdLoz6FifoGps_storeGpsts(u8 pp1state, u8 positionHoldMode, u8 antennaPortSts, const char* capabilities)
{
    GpsOther* const r = other();
    if (r == nullptr) return;
    r->GPsts_pp1state = pp1state;
    r->GPsts_positionHoldMode = positionHoldMode;
    r->GPsts_antennaPortSts = antennaPortSts;
    std::memset(r->GPsts_capabilities, 0, sizeof r->GPsts_capabilities);
    for (std::size_t i = 0; i < sizeof r->GPsts_capabilities && capabilities[i] != '\0'; ++i)
        r->GPsts_capabilities[i] = capabilities[i];
}

void KvdLoz6FifoGps_storeGpavp(const GpsPosition& position)
{
    GpsOther* const r = other();
    if (r == nullptr) return;
    r->GPavp_latitude = fifo::coordinateOf(position.latitude);
    r->GPavp_longitude = fifo::coordinateOf(position.longitude);
    r->GPavp_altitude = static_cast<float>(position.altitude);
}

void KvdLoz6FifoGps_storeGptps(u32 timeStandard, u32 ppsAvailable, u32 mode, u32 week, u32 seconds)
{
    if (GpsOther* const r = other(); r != nullptr) {
        r->GPS_TOW = seconds;          // a receiver whose kind isn't settled yet
        r->GPS_week = week;
        return;
    }
    GpsFuruno& r = s->nowFuruno;
    r.GPtps_timeStandard = static_cast<u8>(timeStandard);
    r.GPtps_1PPSavail = static_cast<u8>(ppsAvailable);
    r.GPtps_ObsMode = static_cast<u8>(mode);
    r.GPtps_gpsWeeks = week;
    r.GPtps_gpsSeconds = seconds;
}

void KvdLoz6FifoGps_storeTowWeek(u32 seconds, u32 week)
{
    if (GpsOther* const r = other(); r != nullptr) {
        r->GPS_TOW = seconds;
        r->GPS_week = week;
    }
}

void KvdLoz6FifoGps_closeRecord()
{
    GpsCommon& closed = common();
    TuCommon_timeStamp(closed.time);
    const GpsOther closedOther = s->nowOther;
    if (s->inFuruno) s->furuno[s->index] = s->nowFuruno;
    else s->other[s->index] = closedOther;
    s->index = static_cast<u16>((s->index + 1) % RECORDS);
    begin(closed);
    if (!s->inFuruno) copySlowFields(closedOther, s->nowOther);
}

void KvdLoz6FifoGps_clear()
{
    s->furuno.fill({});
    s->other.fill({});
    s->nowFuruno = {};
    s->nowOther = {};
}

// ---- the file -----------------------------------------------------------------------------------

namespace {

void writeGpgga(const GpsCommon& r)
{
    fileText("\nGPGGA data received \n");
    fifo::writePosition("GPGGA", r.GPGGA.latitude, r.GPGGA.longitude, r.GPGGA.altitude);
    filePrint("GPGGA_noOfSatellites\t\t:\t%u\n", r.GPGGA_noOfSatellites);
    filePrint("GPGGA_DOP\t\t\t\t:\t%.2f\n", r.GPGGA_DOP);
    fifo::writeSatellites(r.satellites);
}

void writeFuruno(const GpsFuruno& r)
{
    fileText("\nGPtps data received \n");
    filePrint("GPtps_timeStandard\t\t:\t%u\n", r.GPtps_timeStandard);
    filePrint("GPtps_1PPSavail\t\t\t:\t%u\n", r.GPtps_1PPSavail);
    filePrint("GPtps_ObsMode\t\t\t:\t%u\n", r.GPtps_ObsMode);
    filePrint("GPtps_gpsWeeks\t\t\t:\t%u\n", r.GPtps_gpsWeeks);
    filePrint("GPtps_gpsSeconds\t\t:\t%u\n", r.GPtps_gpsSeconds);
    writeGpgga(r.common);
}

void writeOther(const GpsOther& r)
{
    fileText("\nGPsts data received \n");
    filePrint("GPsts_pp1state\t\t\t:\t%u\n", r.GPsts_pp1state);
    filePrint("GPsts_positionHoldMode\t:\t%u\n", r.GPsts_positionHoldMode);
    filePrint("GPsts_antennaPortSts\t:\t%u\n", r.GPsts_antennaPortSts);
    filePrint("GPsts_capabilities\t\t:\t%.5s\n", r.GPsts_capabilities);
    writeGpgga(r.common);
    fileText("\nGPppr_GPtps data received \n");
    filePrint("GPS_TOW\t\t\t\t\t:\t%u\n", r.GPS_TOW);
    filePrint("GPS_week\t\t\t\t:\t%u\n", r.GPS_week);
    filePrint("GPppr_gpssStatus\t\t:\t%u\n", r.GPppr_gpssStatus);
    filePrint("GPppr_gpssFaulty\t\t:\t%u\n", r.GPppr_gpssFaulty);
    fileText("\nGPavp data received \n");
    fifo::writePosition("GPavp", r.GPavp_latitude, r.GPavp_longitude, r.GPavp_altitude);
    fileText("\nGPGSA data received \n");
    filePrint("GPGSA_HDOP\t\t\t\t:\t%.2f\n", r.GPGSA_HDOP);
    filePrint("GPGSA_VDOP\t\t\t\t:\t%.2f\n", r.GPGSA_VDOP);
    filePrint("GPGSA_PDOP\t\t\t\t:\t%.2f\n", r.GPGSA_PDOP);
    fileText("GPGSA_usedSatellites\t:\t");
    for (const u8 SVno : r.GPGSA_used) filePrint("%3u ", SVno);
    fileText("\n");
}

void writeRing()
{
    const bool inFuruno = s->inFuruno;
    for (u32 i = 0; i < RECORDS; ++i) {
        const u32 at = (s->index + i) % RECORDS;
        const GpsCommon& common = inFuruno ? s->furuno[at].common : s->other[at].common;
        if (common.time[0] == '\0') continue;
        filePrint("################################################### \n"
                  "Time\t\t\t\t\t:\t%s \n",
                  common.time);
        if (inFuruno) writeFuruno(s->furuno[at]);
        else writeOther(s->other[at]);
    }
}

}  // namespace

void fifo::dumpGps()
{
    KVD_TRACE(TRACE_FIFO, TRACE_1, "Dump of gps fifo buffer started!");
    if (fileOpen(FILE_NAME)) {
        filePrint("Dump of GPS data started:\n%s\n\n", dateNow().text);
        writeRing();
        filePrint("Dump of GPS data finished:\n%s\n\n", dateNow().text);
        fileClose();
    }
    KVD_TRACE(TRACE_FIFO, TRACE_1, "Dump of gps fifo buffer ended!");
}
