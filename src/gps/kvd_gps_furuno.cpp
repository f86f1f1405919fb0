#include "gps/kvd_gps_furuno.h"

#include "fifo/kvd_fifo_gps.h"
#include "fifo/kvd_fifo_skyview.h"
#include "gps/kvd_gps_fields.h"
#include "gps/kvd_gps_receiver.h"
#include "mp/kvd_iifadm_send.h"
#include "ose/module_data.h"
#include "sig/ref_types.h"

#include <charconv>
#include <optional>

namespace {

using gps::Fields;
using gps::LEVEL_CONTENT;
using gps::LEVEL_REFUSED;
using gps::Sentence;

constexpr u64 WEEK_s = 604'800;
constexpr u8  LEVEL_TIME_STANDARD = TRACE_10;

struct State {
    GpsAlmanac almanac;
    GpsFurunoCounters counters;
    u32  timeStandard = 0;
    std::optional<u8> overrideStandard;    // in place of what the receiver says
};
ose::ModuleData<State> s;

using GptpsFields = Fields<15>;

bool isUsable(u32 timeStandard) { return timeStandard == 2 || timeStandard == 3; }

void storeTimeStandard(u32 timeStandard)
{
    if (timeStandard != s->timeStandard) {
        KVD_TRACE(TRACE_TUGPS, LEVEL_TIME_STANDARD, "TIME STANDARD %u to %u", s->timeStandard, timeStandard);
        s->timeStandard = timeStandard;
        KvdLoz6TuIifAdm_sendQualityLevelInd(GPS_FRO_ID, GPS_FRO_CLASS, isUsable(timeStandard) ? 0 : 1, 0);
    }
    KvdLoz6TuGps_receiverRecord().timeNotValid = isUsable(timeStandard) ? 0 : 1;
    if (!isUsable(timeStandard)) KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPtps: Time is not usable");
}

void setObservationMode(u32 mode)
{
    GpsReceiver& receiver = KvdLoz6TuGps_receiverRecord();
    switch (mode) {
    case 1:
        receiver.observationMode = GPS_SURVEY;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Observation Point Mode: Survey");
        break;
    case 2:
        receiver.observationMode = GPS_POSITION_HOLD;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Observation Point Mode: Position Hold");
        break;
    default:
        receiver.observationMode = GPS_MODE_UNKNOWN;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Observation Point Mode: Unknown");
        break;
    }
}

/// The four fields between mode and week, told and not used.
bool readLeapSeconds(GptpsFields& field)
{
    if (!field.next("GPtps: Leap second adjustment", 12)) return false;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPtps: Leap second adjustment: %s", field.value);
    if (!field.next("GPtps: Leap second", 2)) return false;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPtps: Leap second: %s", field.value);
    if (!field.next("GPtps: UTC-GPS Time Offset", 2)) return false;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPtps: UTC-GPS Time Offset: %s", field.value);
    if (!field.next("GPtps: Date/Time stamp of UTC", 12)) return false;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPtps: Date/Time stamp of UTC: %s", field.value);
    return true;
}

void storeInLog(u32 ppsAvailable, u32 mode)
{
    const GpsReceiver& receiver = KvdLoz6TuGps_receiver();
    // A type 6 sends GPsts too, which closes the second's record.
    if (receiver.gpssType == GPSS_FURUNO_GPS02) {
        KvdLoz6FifoGps_storeTowWeek(receiver.gpsTow, receiver.gpsTimeWeek);
        return;
    }
    KvdLoz6FifoGps_storeGptps(s->timeStandard, ppsAvailable, mode, receiver.gpsTimeWeek, receiver.gpsTow);
    KvdLoz6FifoGps_closeRecord();
    KvdLoz6FifoSkyView_tick();
}

const char* timeStandardText(u32 timeStandard)
{
    switch (timeStandard) {
    case 1:  return "RTC";
    case 2:  return "GPS";
    case 3:  return "UTC";
    default: return "<Unknown>";
    }
}

}  // namespace

bool KvdLoz6TuGps_parsePxxxGPtps(const char* text)
{
    // The Furuno protocol is in use, whatever becomes of this sentence.
    if (KvdLoz6TuGps_receiver().gpssType == GPSS_NORVANE_COMBINED) KvdLoz6TuGps_setGpssType(GPSS_FURUNO);

    const Sentence sentence = gps::inspect(text);
    if (!gps::optionalChecksumPasses(sentence, "KvdLoz6TuGps_parsePxxxGPtps")) return false;
    if (!gps::lengthPasses(sentence, 73, 76, "GPtps")) return false;
    GptpsFields field(sentence);
    field.skipAddressAndType();
    ++s->counters.numberOfPFECMsgs;
    ++s->counters.numberOfPFECGPtps;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPtps: Received GPS time command");

    if (!field.next("GPtps: Date/Time", 12)) return false;
    if (!field.next("GPtps: Time standard ID", 1)) return false;
    storeTimeStandard(s->overrideStandard ? *s->overrideStandard : gps::toNumber(field.value));
    if (!field.next("1PPS availability status flag", 1)) return false;
    const u32 ppsAvailable = gps::toNumber(field.value);
    if (!field.next("GPtps: Mode", 1)) return false;
    const u32 mode = gps::toNumber(field.value);
    if (!readLeapSeconds(field)) return false;
    GpsReceiver& receiver = KvdLoz6TuGps_receiverRecord();
    if (!field.next("GPtps: Gps weeks", 4)) return false;
    receiver.gpsTimeWeek = gps::toNumber(field.value);
    if (!field.next("GPtps: Count of seconds", 6)) return false;
    receiver.gpsTow = gps::toNumber(field.value);
    if (!gps::fullyParsed(sentence, field.consumed(), "GPtps")) return false;

    setObservationMode(mode);
    storeInLog(ppsAvailable, mode);
    if (ppsAvailable != 1) {
        receiver.timeValid = 0;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPtps time not valid");
        return true;
    }
    receiver.timeValid = 1;
    receiver.timeKept = 0;
    receiver.gpsCurrentTime = static_cast<double>(receiver.gpsTow + receiver.gpsTimeWeek * WEEK_s);
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Gps Seconds =%.0f", receiver.gpsCurrentTime);
    return true;
}

bool KvdLoz6TuGps_parsePxxxGPanc(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::optionalChecksumPasses(sentence, "KvdLoz6TuGps_parsePxxxGPanc")) return false;
    if (!gps::lengthPasses(sentence, 56, 59, "GPanc")) return false;
    Fields<35> field(sentence);
    field.skipAddressAndType();
    ++s->counters.numberOfPFECMsgs;
    ++s->counters.numberOfPFECGPanc;

    GpsAlmanac almanac;
    if (!field.next("GPanc: Date/Time of almanac", 12)) return false;
    const char* pair = field.value;
    for (u8& part : almanac.dateTime) {
        part = gps::toPair(pair);
        pair += 2;
    }
    if (!field.next("GPanc: Satellite Health", 32)) return false;
    // A field shorter than 32 leaves NULs, which say nothing of the last satellites.
    const char* digit = field.value;
    for (u8& health : almanac.health) {
        std::from_chars(digit, digit + 1, health);
        ++digit;
    }
    if (!gps::fullyParsed(sentence, field.consumed(), "GPanc")) return false;

    s->almanac = almanac;
    const u8* d = almanac.dateTime;
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPanc Almanac date/time: %02u%02u%02u %02u:%02u:%02u", d[0], d[1],
              d[2], d[3], d[4], d[5]);
    KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPanc Satellite health: %.32s", field.value);
    return true;
}

u32 KvdLoz6TuGps_timeStandard() { return s->timeStandard; }
const GpsAlmanac& KvdLoz6TuGps_almanac() { return s->almanac; }
const GpsFurunoCounters& KvdLoz6TuGps_furunoCounters() { return s->counters; }
void KvdLoz6TuGps_clearFurunoCounters() { s->counters = {}; }

void KvdLoz6TuGps_overrideTimeStandard(bool enabled, u8 timeStandard)
{
    s->overrideStandard = enabled ? std::optional(timeStandard) : std::nullopt;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT,
              "coli gentimestandard in state = %u (%s), time standard = 0x%02hhX (%s)", enabled ? 1u : 0u,
              enabled ? "enabled" : "disabled", timeStandard, timeStandardText(timeStandard));
}
