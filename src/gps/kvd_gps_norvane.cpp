#include "gps/kvd_gps_norvane.h"

#include "base/text_of.h"
#include "fifo/kvd_fifo_gps.h"
#include "fifo/kvd_fifo_skyview.h"
#include "gps/kvd_gps_fields.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_receiver.h"
#include "mp/kvd_iifadm_send.h"
#include "ose/module_data.h"
#include "sig/ref_types.h"

#include <algorithm>
#include <cstring>
#include <optional>

namespace {

using gps::Fields;
using gps::LEVEL_CONTENT;
using gps::LEVEL_REFUSED;
using gps::Sentence;

constexpr u64 WEEK_s = 604'800;
constexpr u8  GPSS_LOCKED = 0, GPSS_FREE_RUNNING = 1, GPSS_1PPS_NOT_SYNCHRONISED = 3;

struct State {
    GpsNorvane said;
    GpsSelfTestRecord selfTest;
    GpsNorvaneCounters counters;
    std::optional<u8> overrideStatus;    // in place of what the receiver says
};
ose::ModuleData<State> s;

/// The two fields between GPppr's week and status.
bool skipUnused(Fields<8>& field) { return field.nextBeforeChecksum() && field.nextBeforeChecksum(); }

void storeStatus(u8 gpssStatus)
{
    if (gpssStatus != s->said.gpssStatus) {
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "QualityLevelInd (GPS) gpssStatus: %u -> %u", s->said.gpssStatus,
                  gpssStatus);
        KvdLoz6TuIifAdm_sendQualityLevelInd(GPS_FRO_ID, GPS_FRO_CLASS, gpssStatus > GPSS_FREE_RUNNING ? 1 : 0,
                                            0);
    }
    s->said.gpssStatus = gpssStatus;
}

/// What the report means for the time of day.
void storeTime(u8 gpssStatus, u8 gpssFaulty)
{
    GpsReceiver& receiver = KvdLoz6TuGps_receiverRecord();
    if (gpssFaulty != 0 || gpssStatus == GPSS_1PPS_NOT_SYNCHRONISED) {
        receiver.timeNotValid = 1;
        receiver.timeValid = 0;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPppr time not valid");
        return;
    }
    receiver.timeValid = 1;
    receiver.timeNotValid = 0;
    // A receiver that runs free has valid pulses; its time stays the one before.
    receiver.timeKept = gpssStatus != GPSS_LOCKED ? 1 : 0;
    if (receiver.timeKept == 0)
        receiver.gpsCurrentTime = static_cast<double>(receiver.gpsTimeWeek * WEEK_s + receiver.gpsTow);
}

void setObservationMode(u8 pp1state)
{
    u8& mode = KvdLoz6TuGps_receiverRecord().observationMode;
    switch (pp1state) {
    case 1:
        mode = GPS_SURVEY;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Observation Point Mode: Survey");
        break;
    case 2:
        mode = GPS_POSITION_HOLD;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Observation Point Mode: Position Hold");
        break;
    default:
        mode = GPS_MODE_UNKNOWN;
        KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Observation Point Mode: Unknown");
        break;
    }
}

void setCapabilities(const char* text)
{
    std::memset(s->said.capabilities, 0, sizeof s->said.capabilities);
    std::memcpy(s->said.capabilities, text, std::min(std::strlen(text), sizeof s->said.capabilities - 1));
    // A shorter text leaves a NUL here, which is no capability either.
    const int glonass = s->said.capabilities[4] - '0';
    s->said.glonassCapability = glonass == 1 || glonass == 2 ? static_cast<u8>(glonass) : u8{0};
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "%s",
              s->said.glonassCapability != 0 ? "Glonass supported" : "Glonass not supported");
}

// ---- GPavp ----

using GpavpFields = Fields<14>;

struct CoordinateForm {
    u32  degDigits;
    char positive, negative;
    u8   positiveDir, negativeDir;
    const char* name;
};
constexpr CoordinateForm LATITUDE  = {2, 'N', 'S', GPS_NORTH, GPS_SOUTH, "latitude"};
constexpr CoordinateForm LONGITUDE = {3, 'E', 'W', GPS_EAST, GPS_WEST, "longitude"};

/// Field and direction.
bool readCoordinate(GpavpFields& field, const CoordinateForm& form, GpsCoordinate& coordinate)
{
    const bool isThere = field.next();
    const gps::DegMin angle = gps::toDegMin(field.value, form.degDigits);
    if (!isThere || !field.next()) return false;
    if (!field.is(form.positive) && !field.is(form.negative)) {
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "GPavp: Error in %s direction value", form.name);
        return false;
    }
    coordinate = {angle.deg, angle.min, angle.fractMin,
                  field.is(form.positive) ? form.positiveDir : form.negativeDir};
    return true;
}

// ---- GPout ----

constexpr u32 REMOTE_STATE_MAX = 18;

const char* remoteStateText(u32 state)
{
    static constexpr const char* TEXT[REMOTE_STATE_MAX + 1] = {
        "UNKNOWN", "WARMUP", "SYNCH1", "SYNCH2", "SYNCH3", "FREQ_LOCKED", "FREQ_HOLDOVER",
        "FREERUNNING", "LOSS_OF_TRACKING", "FAILURE", "RC_UNKNOWN", "TIME_OFFSET_LOCKED",
        "TIME_OFFSET_HOLDOVER", "RNT_TIME_LOCKED", "RNT_TIME_HOLDOVER", "INTER_DU_TIME_LOCKED",
        "INTER_DU_TIME_HOLDOVER", "PRE_JUMP_START", "PRE_JUMP_HIST"};
    return textOf(TEXT, state);
}

/// Stores `value`, or `replacement` (traced) when it is above `highest`.
void storeRemote(u8& stored, u32 value, u32 highest, u8 replacement, const char* name)
{
    if (value > highest) {
        KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Unexpected value for %s in GPout message : %u", name, value);
        value = replacement;
    }
    stored = static_cast<u8>(value);
}

void setRemoteRadioClockState(u32 value)
{
    const u32 before = KvdLoz6GpsOsl_remoteState();
    u8 now = 0;
    storeRemote(now, value, REMOTE_STATE_MAX, RC_UNKNOWN, "remoteRadioClockState");
    if (now == before) return;
    KVD_TRACE(TRACE_TUGPS, TRACE_INFO, "Remote Radio Clock State changed from %s (%u) to %s (%u)",
              remoteStateText(before), before, remoteStateText(now), u32{now});
    KvdLoz6GpsOsl_storeRemoteState(now);
    KvdLoz6GpsOsl_sendRemoteState();
}

}  // namespace

bool KvdLoz6TuGps_parsePxxxGPppr(const char* text)
{
    // The Norvane protocol is in use, whatever becomes of this sentence.
    if (KvdLoz6TuGps_receiver().gpssType == GPSS_FURUNO_GPS02)
        KvdLoz6TuGps_setGpssType(GPSS_NORVANE_COMBINED);

    const Sentence sentence = gps::inspect(text);
    if (!gps::requiredChecksumPasses(sentence, "GPppr")) return false;
    if (!gps::lengthPasses(sentence, 35, 40, "GPppr")) return false;
    Fields<8> field(sentence);
    field.skipAddressAndType();
    ++s->counters.numberOfPNVXGPppr;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Received Periodic PPS report");

    GpsReceiver& receiver = KvdLoz6TuGps_receiverRecord();
    if (!field.nextBeforeChecksum()) return false;
    receiver.gpsTow = gps::toNumber(field.value);
    if (!field.nextBeforeChecksum()) return false;
    receiver.gpsTimeWeek = gps::toNumber(field.value);
    if (!skipUnused(field)) return false;
    if (!field.nextBeforeChecksum()) return false;
    const u8 gpssStatus = s->overrideStatus.value_or(static_cast<u8>(gps::toNumber(field.value)));
    if (!field.nextBeforeChecksum()) return false;
    const u8 gpssFaulty = static_cast<u8>(gps::toNumber(field.value));

    storeStatus(gpssStatus);
    s->said.gpssFaulty = gpssFaulty;
    s->selfTest.gpssFaulty = gpssFaulty;
    ++s->selfTest.gppprCount;
    if (!gps::fullyParsed(sentence, field.consumed(), "GPppr")) return false;

    KvdLoz6FifoGps_storeGpppr(receiver.gpsTow, receiver.gpsTimeWeek, gpssStatus, gpssFaulty);
    storeTime(gpssStatus, gpssFaulty);
    return true;
}

bool KvdLoz6TuGps_parsePxxxGPsts(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::requiredChecksumPasses(sentence, "GPsts")) return false;
    if (!gps::lengthPasses(sentence, 24, 80, "GPsts")) return false;
    Fields<61> field(sentence);
    field.skipAddressAndType();
    ++s->counters.numberOfPNVXGPsts;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Received GPSS Status");

    GpsNorvane& said = s->said;
    if (!field.next()) return false;
    said.GPsts_pp1state = static_cast<u8>(gps::toNumber(field.value));
    setObservationMode(said.GPsts_pp1state);
    if (!field.next()) return false;
    said.GPsts_positionHoldMode = static_cast<u8>(gps::toNumber(field.value));
    if (!field.next()) return false;
    said.GPsts_antennaPortSts = static_cast<u8>(gps::toNumber(field.value));
    if (!field.next()) return false;
    setCapabilities(field.value);

    KvdLoz6FifoGps_storeGpsts(said.GPsts_pp1state, said.GPsts_positionHoldMode, said.GPsts_antennaPortSts,
                              said.capabilities);
    KvdLoz6FifoGps_closeRecord();
    KvdLoz6FifoSkyView_tick();
    return true;
}

bool KvdLoz6TuGps_parsePxxxGPver(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::requiredChecksumPasses(sentence, "GPver")) return false;
    if (!gps::lengthPasses(sentence, 17, 77, "GPver")) return false;
    Fields<GPVER_TEXT> field(sentence);
    field.skipAddressAndType();
    ++s->counters.numberOfPNVXGPver;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "Received GPSS Version");

    for (char* stored :
         {s->said.productDesignation, s->said.productNo, s->said.productRev, s->said.additionalInformation}) {
        if (!field.next()) return false;
        std::memcpy(stored, field.value, GPVER_TEXT);
    }
    // A receiver of the Furuno dialect that can tell its version is no GPS01.
    if (KvdLoz6TuGps_receiver().gpssType == GPSS_FURUNO) KvdLoz6TuGps_setGpssType(GPSS_FURUNO_GPS02);
    return true;
}

bool KvdLoz6TuGps_parsePxxxGPavp(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::requiredChecksumPasses(sentence, "GPavp")) return false;
    if (!gps::lengthPasses(sentence, 49, 53, "GPavp")) return false;
    GpavpFields field(sentence);
    field.skipAddressAndType();
    ++s->counters.numberOfPNVXGPavp;

    GpsPosition position;
    if (!readCoordinate(field, LATITUDE, position.latitude)) return false;
    if (!readCoordinate(field, LONGITUDE, position.longitude)) return false;
    if (!field.next()) return false;
    position.altitude = gps::toDouble(field.value);
    if (!field.next()) return false;

    KvdLoz6TuGps_receiverRecord().averaged = position;
    KvdLoz6FifoGps_storeGpavp(position);
    return true;
}

bool KvdLoz6TuGps_parsePxxxGPout(const char* text)
{
    const Sentence sentence = gps::inspect(text);
    if (!gps::requiredChecksumPasses(sentence, "GPout")) return false;
    if (!gps::lengthPasses(sentence, 24, 27, "GPout")) return false;
    KVD_TRACE(TRACE_TUGPS, LEVEL_CONTENT, "GPout: Sentence length: %u chars", sentence.length);
    Fields<4> field(sentence);
    field.skipAddressAndType();
    ++s->counters.numberOfPNVXGPout;

    GpsNorvane& said = s->said;
    if (!field.next()) return false;
    setRemoteRadioClockState(gps::toNumber(field.value));
    struct Row { u8& stored; u32 highest; const char* name; };
    for (const Row& row : {Row{said.remoteJumpIndication, 1, "remoteJumpIndication"},
                           Row{said.gnssTimePresent, 2, "GNSS Time Present"},
                           Row{said.gnssDataPresent, 1, "GNSS Data Present"},
                           Row{said.isMaster, 1, "is Master field"}}) {
        if (!field.next()) return false;
        storeRemote(row.stored, gps::toNumber(field.value), row.highest, 0, row.name);
    }
    return true;
}

const GpsNorvane& KvdLoz6TuGps_norvane() { return s->said; }
GpsSelfTestRecord& KvdLoz6TuGps_selfTestRecord() { return s->selfTest; }
const GpsNorvaneCounters& KvdLoz6TuGps_norvaneCounters() { return s->counters; }
void KvdLoz6TuGps_clearNorvaneCounters() { s->counters = {}; }
void KvdLoz6TuGps_clearNorvane()
{
    s->said = {};
    s->selfTest = {};
    s->counters = {};
}

void KvdLoz6TuGps_resetVersion()
{
    constexpr char UNKNOWN[] = "Unknown";
    static_assert(sizeof UNKNOWN <= GPVER_TEXT);
    for (char* text :
         {s->said.productDesignation, s->said.productNo, s->said.productRev, s->said.additionalInformation}) {
        std::memset(text, 0, GPVER_TEXT);
        std::memcpy(text, UNKNOWN, sizeof UNKNOWN);
    }
}

bool KvdLoz6TuGps_isFirmware(const char* additionalInformation)
{
    return std::strcmp(s->said.additionalInformation, additionalInformation) == 0;
}

bool KvdLoz6TuGps_isGps02() { return KvdLoz6TuGps_isFirmware("110624") || KvdLoz6TuGps_isFirmware("120510"); }

void KvdLoz6TuGps_overrideGpssStatus(bool enabled, u8 gpssStatus)
{
    s->overrideStatus = enabled ? std::optional(gpssStatus) : std::nullopt;
}

const char* KvdLoz6TuGps_gpssStatusText(u8 gpssStatus)
{
    switch (gpssStatus) {
    case 0:  return "GPS Locked";
    case GPSS_FREE_RUNNING: return "Free Running";
    case GPSS_1PPS_NOT_SYNCHRONISED: return "1PPS not Synchronized";
    default: return "<Unknown>";
    }
}
