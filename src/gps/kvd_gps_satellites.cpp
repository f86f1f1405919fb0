// Satellites in view: the series of GPGSV and GLGSV, a table for each system, both put together.
#include "fifo/kvd_fifo_gps.h"
#include "gps/kvd_gps_fields.h"
#include "gps/kvd_gps_nmea.h"
#include "gps/kvd_gps_nmea_int.h"
#include "ose/ose.h"
#include "sig/gps_sig.h"

#include <algorithm>

namespace {

using gps::LEVEL_REFUSED;
using gps::SatelliteSystem;
using gps::SatelliteTable;
using gps::nmea;
using gps::Sentence;

constexpr u32 GROUPS = 4;                      // satellites in a sentence
constexpr u8  FILL_INDEX_LAST = 32;
constexpr u32 MESSAGES_MAX = 9;
constexpr OSTIME SILENCE = 60'000;             // ms until a system's satellites are forgotten

/// What the satellite systems differ in.
struct SystemText {
    const char* name;
    const char* parser;
    const char* messagesLabel;
    const char* messageLabel;
    const char* inViewLabel;
    const char* fieldLabel[4];                 // SVno, elevation, azimuth, SNR
    const char* timerFailed;
    SIGSELECT   timeOut;
};
constexpr SystemText GPS = {
    "GPGSV", "KvdLoz6TuGps_parseGPGSV", "GPGSV total number of messages", "GPGSV message number",
    "GPGSV satellites in view", {"GPGSV SVno", "GPGSV elevation", "GPGSV azimuth", "GPGSV SNR"},
    "Unable to start reset gps satellites timer!", KVD_TUGPS_RESET_GPS_SATELLITES};
constexpr SystemText GLONASS = {
    "GLGSV", "KvdLoz6TuGps_parseGLGSV", "GLGSV total number of messages", "GLGSV message number",
    "GLGSV satellites in view", {"GLGSV SVno", "GLGSV elevation", "GLGSV azimuth", "GLGSV SNR"},
    "Unable to start reset glonass satellites timer!", KVD_TUGPS_RESET_GLONASS_SATELLITES};

bool isStronger(const GpsSatellite& a, const GpsSatellite& b) { return a.SNR > b.SNR; }
bool isGps(const GpsSatellite& sat) { return sat.SVno >= 1 && sat.SVno <= 32; }
bool isGlonass(const GpsSatellite& sat) { return sat.SVno >= 65 && sat.SVno <= 96; }

/// Strongest first; of equals the earlier stays in front.
void sortBySnr(SatelliteTable& table)
{
    for (auto next = table.begin(); next != table.end(); ++next)
        std::rotate(std::upper_bound(table.begin(), next, *next, isStronger), next, next + 1);
}

/// Both tables as one, and the twelve for the client with at least one satellite of each system.
void merge()
{
    gps::NmeaState& state = nmea();
    // Both are sorted: a merge that prefers the first is the stable sort of the two in a row.
    std::merge(state.gps.current.begin(), state.gps.current.end(), state.glonass.current.begin(),
               state.glonass.current.end(), state.merged.begin(), isStronger);
    std::copy_n(state.merged.begin(), GPS_BEST_SATELLITES, state.best.begin());
    const auto ensure = [&state](bool (*ofSystem)(const GpsSatellite&), const GpsSatellite& strongest) {
        if (strongest.SVno != 0 && std::none_of(state.best.begin(), state.best.end(), ofSystem))
            state.best.back() = strongest;
    };
    ensure(isGlonass, state.glonass.current.front());
    ensure(isGps, state.gps.current.front());
    state.noOfSatellitesInView = static_cast<u8>(state.gps.inView + state.glonass.inView);
}

void restartSilenceTimer(SatelliteSystem& system, const SystemText& text)
{
    if (!KvdTimer_restart(system.silenceTmoRef, SILENCE, text.timeOut))
        KVD_TRACE(TRACE_TUGPS, TRACE_ERROR, "%s", text.timerFailed);
}

using GsvFields = gps::Fields<7>;

/// The four groups; those beyond the sentence's end stay empty.
bool readGroups(GsvFields& field, u32 end, const SystemText& text, GpsSatellite (&group)[GROUPS])
{
    for (GpsSatellite& sat : group) {
        if (field.consumed() >= end) break;
        if (!field.next(text.fieldLabel[0], 0, 2)) return false;
        sat.SVno = static_cast<u8>(gps::toNumber(field.value));
        if (!field.next(text.fieldLabel[1], 0, 2)) return false;
        sat.elevation = static_cast<u8>(gps::toNumber(field.value));
        if (!field.next(text.fieldLabel[2], 0, 3)) return false;
        sat.azimuth = static_cast<u16>(gps::toNumber(field.value));
        if (!field.next(text.fieldLabel[3], 0, 2)) return false;
        sat.SNR = static_cast<u8>(gps::toNumber(field.value));
    }
    return true;
}

/// Puts a sentence's groups into the series; `last` completes it.
void fill(SatelliteSystem& system, const GpsSatellite (&group)[GROUPS], bool last, u8 inView)
{
    if (system.fillIndex == 0) system.fill = {};
    std::copy(std::begin(group), std::end(group), system.fill.begin() + system.fillIndex);
    if (!last) {
        if (system.fillIndex < FILL_INDEX_LAST) system.fillIndex += GROUPS;
        return;
    }
    system.fillIndex = 0;
    system.inView = inView;
    sortBySnr(system.fill);
    system.current = system.fill;
    merge();
    KvdLoz6FifoGps_storeSatellites(nmea().best);
}

bool parseGSV(const char* sentenceText, SatelliteSystem& system, const SystemText& text)
{
    const Sentence sentence = gps::inspect(sentenceText);
    if (!gps::optionalChecksumPasses(sentence, text.parser)) return false;
    if (!gps::lengthPasses(sentence, 12, 67, text.name)) return false;

    GsvFields field(sentence);
    field.skipAddress();
    if (!field.next(text.messagesLabel, 1)) return false;
    const u32 messages = gps::toNumber(field.value);
    if (!field.next(text.messageLabel, 1)) return false;
    const u32 message = gps::toNumber(field.value);
    if (!field.next(text.inViewLabel, 2)) return false;
    const u8 inView = static_cast<u8>(gps::toNumber(field.value));
    if (messages < 1 || messages > MESSAGES_MAX) {
        system.fillIndex = 0;
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s Total number of messages out of range: %d", text.name,
                  static_cast<i32>(messages));
        return false;
    }
    if (message > messages) {
        system.fillIndex = 0;
        KVD_TRACE(TRACE_TUGPS, LEVEL_REFUSED, "%s message number too large: %d", text.name,
                  static_cast<i32>(message));
        return false;
    }

    // Behind the last group of a sentence with a checksum stand its two digits.
    const u32 end = sentence.checksumPresent ? sentence.length - 2 : sentence.length;
    GpsSatellite group[GROUPS];
    if (!readGroups(field, end, text, group)) return false;
    if (!gps::fullyParsed(sentence, field.consumed(), text.name)) return false;

    fill(system, group, message == messages, inView);
    restartSilenceTimer(system, text);
    return true;
}

/// The system has been silent too long.
void forget(SatelliteSystem& system)
{
    if (!KvdTimer_expired(system.silenceTmoRef)) return;
    system.current = {};
    system.inView = 0;
    merge();
}

}  // namespace

bool KvdLoz6TuGps_parseGPGSV(const char* sentence)
{
    ++nmea().counters.numberOfGPGSV;
    return parseGSV(sentence, nmea().gps, GPS);
}

bool KvdLoz6TuGps_parseGLGSV(const char* sentence)
{
    ++nmea().counters.numberOfGLGSV;
    return parseGSV(sentence, nmea().glonass, GLONASS);
}

void KvdLoz6TuGps_onResetGpsSatellites() { forget(nmea().gps); }
void KvdLoz6TuGps_onResetGlonassSatellites() { forget(nmea().glonass); }

void KvdLoz6TuGps_cancelSatelliteTimers()
{
    for (SatelliteSystem* system : {&nmea().gps, &nmea().glonass}) KvdTimer_cancel(system->silenceTmoRef);
}

void KvdLoz6TuGps_resetSatellites()
{
    nmea().dop = {};
    for (SatelliteSystem* system : {&nmea().gps, &nmea().glonass}) {
        system->current = {};
        system->inView = 0;
    }
    nmea().merged = {};
    nmea().best = {};
    nmea().noOfSatellitesInView = 0;
}

u8 KvdLoz6TuGps_gpgsvFillIndex() { return nmea().gps.fillIndex; }
const gps::SatelliteTable& KvdLoz6TuGps_gpsSatellites() { return nmea().gps.current; }
const std::array<GpsSatellite, GPS_MERGED_SATELLITES>& KvdLoz6TuGps_mergedSatellites()
{
    return nmea().merged;
}
const std::array<GpsSatellite, GPS_BEST_SATELLITES>& KvdLoz6TuGps_bestSatellites() { return nmea().best; }
u8 KvdLoz6TuGps_gpsInView() { return nmea().gps.inView; }
u8 KvdLoz6TuGps_glonassInView() { return nmea().glonass.inView; }
u8 KvdLoz6TuGps_noOfSatellitesInView() { return nmea().noOfSatellitesInView; }
