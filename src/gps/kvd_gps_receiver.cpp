#include "gps/kvd_gps_receiver.h"

#include "gps/kvd_gps_norvane.h"
#include "ose/module_data.h"

namespace {

ose::ModuleData<GpsReceiver> s;

/// Firmware of the module inside a GPS02; a later receiver says something else.
const char* furunoUnitText()
{
    if (KvdLoz6TuGps_isFirmware("Unknown")) return "<Unknown>";
    return KvdLoz6TuGps_isGps02() ? "Furuno (GPS02)" : "Furuno (GPS03)";
}

}  // namespace

const GpsReceiver& KvdLoz6TuGps_receiver() { return *s; }
GpsReceiver& KvdLoz6TuGps_receiverRecord() { return *s; }

void KvdLoz6TuGps_setGpssType(u32 gpssType)
{
    s->gpssType = gpssType;
    s->gpssType_backup = gpssType;
}

const char* KvdLoz6TuGps_gpssTypeText(u32 gpssType)
{
    switch (gpssType) {
    case GPSS_FURUNO:           return "Furuno";
    case GPSS_NORVANE_COMBINED: return "Norvane Combined";
    case GPSS_PENDING:          return "Pending";
    case GPSS_NORVANE:          return "Norvane";
    case GPSS_FURUNO_GPS02:     return furunoUnitText();
    default:                    return "<Unknown>";
    }
}

const GpsPosition& KvdLoz6TuGps_shownPosition()
{
    const bool holds = s->observationMode == GPS_POSITION_HOLD && s->gpssType != GPSS_FURUNO;
    return holds ? s->averaged : s->instantaneous;
}

void KvdLoz6TuGps_resetReceiver()
{
    s->gpssType = GPSS_UNKNOWN;
    s->gpsTimeWeek = 0;
    s->gpsTow = 0;
    s->observationMode = GPS_MODE_UNKNOWN;
    s->averaged = {};
    s->instantaneous = {};
}
