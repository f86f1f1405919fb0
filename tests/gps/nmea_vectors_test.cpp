// Sentences, series of satellite sentences, framing of the line and frames of written sentences
// against check values.
#include "gps/gps_sig.h"
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_nmea_int.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_trimble.h"
#include "tests/iif/iif_bench.h"
#include "tests/support/vectors.h"

#include <set>

namespace {

using vectors::json;

// ---- what is compared ---------------------------------------------------------------------------

json table(std::span<const GpsSatellite> satellites)
{
    json rows = json::array();
    std::size_t used = 0;
    for (const GpsSatellite& sat : satellites) {
        rows.push_back({sat.SVno, sat.elevation, sat.azimuth, sat.SNR});
        if (rows.back() != json{0, 0, 0, 0}) used = rows.size();
    }
    rows.erase(rows.begin() + static_cast<std::ptrdiff_t>(used), rows.end());
    return rows;
}

json position(const GpsPosition& p)
{
    return {p.latitude.deg,  p.latitude.min,  p.latitude.fractMin,  p.latitude.dir, p.longitude.deg,
            p.longitude.min, p.longitude.fractMin, p.longitude.dir, p.altitude};
}

template <std::size_t N>
json list(const u8 (&bytes)[N])
{
    return std::vector<int>(std::begin(bytes), std::end(bytes));
}

/// Everything that a sentence can change, by the names of the check values.
json snapshot()
{
    const gps::NmeaState& nmea = gps::nmea();
    const GpsReceiver& receiver = KvdLoz6TuGps_receiver();
    const GpsNorvane& norvane = KvdLoz6TuGps_norvane();
    const GpsAlmanac& almanac = KvdLoz6TuGps_almanac();
    const GpsModule& module = KvdLoz6TuGps_module();
    return {
        {"numberOfGPGGA", nmea.counters.numberOfGPGGA},
        {"numberOfGPGSA", nmea.counters.numberOfGPGSA},
        {"numberOfGPGSV", nmea.counters.numberOfGPGSV},
        {"numberOfGLGSV", nmea.counters.numberOfGLGSV},
        {"numberOfPNVXGPppr", KvdLoz6TuGps_norvaneCounters().numberOfPNVXGPppr},
        {"numberOfPNVXGPsts", KvdLoz6TuGps_norvaneCounters().numberOfPNVXGPsts},
        {"numberOfPNVXGPver", KvdLoz6TuGps_norvaneCounters().numberOfPNVXGPver},
        {"numberOfPNVXGPavp", KvdLoz6TuGps_norvaneCounters().numberOfPNVXGPavp},
        {"numberOfPFECMsgs", KvdLoz6TuGps_furunoCounters().numberOfPFECMsgs},
        {"numberOfPFECGPtps", KvdLoz6TuGps_furunoCounters().numberOfPFECGPtps},
        {"numberOfPFECGPanc", KvdLoz6TuGps_furunoCounters().numberOfPFECGPanc},
        {"noOfSatellitesForPosit", nmea.noOfSatellitesForPosit},
        {"posInst", position(receiver.instantaneous)},
        {"posAvg", position(receiver.averaged)},
        {"PDOP", nmea.dop.PDOP},
        {"HDOP", nmea.dop.HDOP},
        {"VDOP", nmea.dop.VDOP},
        {"usedSatellites", nmea.usedSatellites},
        {"gpsInView", nmea.gps.inView},
        {"glonassInView", nmea.glonass.inView},
        {"noOfSatellitesInView", nmea.noOfSatellitesInView},
        {"gpsFillIndex", nmea.gps.fillIndex},
        {"glonassFillIndex", nmea.glonass.fillIndex},
        {"gpsFill", table(nmea.gps.fill)},
        {"glonassFill", table(nmea.glonass.fill)},
        {"gpsCurrent", table(nmea.gps.current)},
        {"glonassCurrent", table(nmea.glonass.current)},
        {"merged", table(nmea.merged)},
        {"best", table(nmea.best)},
        {"gpssType", receiver.gpssType},
        {"gpssType_backup", receiver.gpssType_backup},
        {"timeValidFlag", receiver.timeValid},
        {"timeNotValidFlag", receiver.timeNotValid},
        {"TOW", receiver.gpsTow},
        {"week", receiver.gpsTimeWeek},
        {"gpsCurrentTime", receiver.gpsCurrentTime},
        {"observationMode", receiver.observationMode},
        {"gpssStatus", norvane.gpssStatus},
        {"gpssFaulty", norvane.gpssFaulty},
        {"gppprCount", KvdLoz6TuGps_selfTestRecord().gppprCount},
        {"pp1state", norvane.GPsts_pp1state},
        {"positionHoldMode", norvane.GPsts_positionHoldMode},
        {"antennaPortSts", norvane.GPsts_antennaPortSts},
        {"capabilities", norvane.capabilities},
        {"glonassCapability", norvane.glonassCapability},
        {"productDesignation", norvane.productDesignation},
        {"productNo", norvane.productNo},
        {"productRev", norvane.productRev},
        {"additionalInformation", norvane.additionalInformation},
        {"remoteRadioClockState", norvane.remoteRadioClockState},
        {"remoteJumpIndication", norvane.remoteJumpIndication},
        {"gnssTimePresent", norvane.gnssTimePresent},
        {"gnssDataPresent", norvane.gnssDataPresent},
        {"isMaster", norvane.isMaster},
        {"timeStandard", KvdLoz6TuGps_timeStandard()},
        {"almanacDate", list(almanac.dateTime)},
        {"almanacHealth", list(almanac.health)},
        {"antennaFeedline", KvdLoz6TuGps_antennaFeedline()},
        {"hardwareId", module.hardwareId},
        {"serialNumber", module.serialNumber},
        {"manufactureDate", module.manufactureDate},
        {"firmwareVersion", module.firmwareVersion},
    };
}

/// Puts a value of "before" in its place.
void put(const std::string& key, const json& value)
{
    GpsReceiver& receiver = KvdLoz6TuGps_receiver();
    GpsNorvane& norvane = const_cast<GpsNorvane&>(KvdLoz6TuGps_norvane());
    if (key == "gpsCurrentTime") { receiver.gpsCurrentTime = vectors::number(value); return; }
    if (key == "waiter") { gps::state().waiter = ose::current_process(); return; }
    const u32 n = value.get<u32>();
    const u8 byte = static_cast<u8>(n);
    if (key == "gpsFillIndex") gps::nmea().gps.fillIndex = byte;
    else if (key == "glonassFillIndex") gps::nmea().glonass.fillIndex = byte;
    else if (key == "gpssType") receiver.gpssType = n;
    else if (key == "gpssType_backup") receiver.gpssType_backup = n;
    else if (key == "timeValidFlag") receiver.timeValid = byte;
    else if (key == "timeNotValidFlag") receiver.timeNotValid = n;
    else if (key == "observationMode") receiver.observationMode = byte;
    else if (key == "glonassCapability") norvane.glonassCapability = byte;
    else if (key == "gpssStatus") norvane.gpssStatus = byte;
    else if (key == "gppprCount") KvdLoz6TuGps_selfTestRecord().gppprCount = byte;
    else if (key == "remoteRadioClockState") norvane.remoteRadioClockState = byte;
    else if (key == "remoteJumpIndication") norvane.remoteJumpIndication = byte;
    else if (key == "gnssTimePresent") norvane.gnssTimePresent = byte;
    else if (key == "gnssDataPresent") norvane.gnssDataPresent = byte;
    else if (key == "isMaster") norvane.isMaster = byte;
    else if (key == "gpssStatusOverride") KvdLoz6TuGps_overrideGpssStatus(true, byte);
    else if (key == "timeStandardOverride") KvdLoz6TuGps_overrideTimeStandard(true, byte);
    else if (key == "timeStandard") {              // no other way in than a sentence
        std::string text =
            "PFEC,GPtps,230115120000,0,1,2,000000000000,18,18,230115120000,2245,043200\r";
        text[24] = static_cast<char>('0' + n);
        const GpsReceiver kept = receiver;
        EXPECT_EQ(KvdLoz6TuGps_parsePxxxGPtps(text.c_str()), 1);
        KvdLoz6TuGps_clearFurunoCounters();
        receiver = kept;
    } else ADD_FAILURE() << "nothing to put " << key << " into";
}

/// "%s" of an expected text is the parser's name.
std::string named(std::string text, const std::string& sentence)
{
    if (const std::size_t at = text.find("%s"); at != std::string::npos)
        text.replace(at, 2, "KvdLoz6TuGps_parse" + sentence.substr(0, 7));
    return text;
}

struct Outcome {
    int result = 0;
    GpsSentenceType type;
    json changed;
    std::set<std::string> traces;
    std::vector<std::string> refusals;   // level 8, in order
    json signals = json::array();
};

struct Replay : bench::IifBench {
    Replay()
    {
        connect();
        in([] { gps::state() = {}; });
    }

    Outcome run(const std::function<void(Outcome&)>& step)
    {
        Outcome outcome;
        node.traces().clear();
        mp().clearLog();
        const auto timers = [] {
            return std::array{gps::nmea().gps.silenceTmoRef, gps::nmea().glonass.silenceTmoRef};
        };
        in([&] {
            // A timer that runs is taken away, so that a restart shows as a new one.
            KvdLoz6TuGps_cancelSatelliteTimers();
            const json before = snapshot();
            step(outcome);
            const json after = snapshot();
            outcome.changed = json::object();
            for (const auto& [key, value] : after.items())
                if (value != before[key]) outcome.changed[key] = value;
            constexpr const char* NAME[] = {"KVD_TUGPS_RESET_GPS_SATELLITES",
                                            "KVD_TUGPS_RESET_GLONASS_SATELLITES"};
            for (std::size_t i = 0; i < 2; ++i)
                if (timers()[i] != 0) outcome.signals.push_back({"restart", NAME[i], 60000});
        });
        world.runUntil(world.now());
        for (const sim::MpRecord& r : mp().all(KVD_TUIIF_QUALITY_LEVEL_IND)) {
            const auto ind = r.as<KvdTuiifQualityLevelInd>().value();
            outcome.signals.push_back({"KVD_TUIIF_QUALITY_LEVEL_IND", ind.froId, ind.froClassNo,
                                       ind.clockQuality, ind.tcuDetected});
        }
        for (const sim::TraceLine& line : node.traces().find({"", "KVD_BVQ_LOZ6_TUGPS"})) {
            outcome.traces.insert(line.text);
            if (line.level == TRACE_4) outcome.refusals.push_back(line.text);
        }
        return outcome;
    }
    Outcome sentence(const std::string& text)
    {
        return run(
            [&](Outcome& o) { o.result = KvdLoz6TuGps_parseSentence(text.c_str(), o.type); });
    }
};

/// What differs from `want`, "" when nothing does.
std::string difference(const Outcome& got, const json& want, const std::string& text)
{
    const auto differs = [](const char* what, const json& a, const json& b) {
        return std::string(what) + " is " + a.dump() + ", want " + b.dump() + "; ";
    };
    std::string told;
    if (want.contains("result")) {
        if (want["result"] != got.result) told += differs("result", got.result, want["result"]);
        if (want["class"] != got.type.sentenceClass)
            told += differs("class", got.type.sentenceClass, want["class"]);
        if (want["kind"] != got.type.kind) told += differs("kind", got.type.kind, want["kind"]);
    }
    json expected = want["changed"];
    json changed = got.changed;
    for (const json& open : want.value("open_keys", json::array())) {
        expected.erase(open.get<std::string>());
        changed.erase(open.get<std::string>());
    }
    if (expected != changed) told += differs("changed", changed, expected);

    json signals = json::array();
    for (const json& signal : want.value("signals", json::array()))
        if (signal[0] != "remoteRadioClockState") signals.push_back(signal);   // the link's to send
    if (signals != got.signals) told += differs("signals", got.signals, signals);

    json faults = want.value("traces", json::array());
    const json first = want.value("trace", json());
    if (faults.empty() && !first.is_null()) faults.push_back(first);
    for (const json& fault : faults)
        if (!got.traces.contains(named(fault, text)))
            told += "no trace " + fault.dump() + " in " + json(got.refusals).dump() + "; ";
    for (const json& info : want.value("info", json::array()))
        if (!got.traces.contains(named(info, text)))
            told += "no trace \"" + info.get<std::string>() + "\"; ";
    if (!first.is_null() && !got.refusals.empty() &&
        want.value("trace_open", false) == false && !text.starts_with("PNVX,GPout") &&
        got.refusals.front() != named(first, text))
        told += differs("first trace", got.refusals.front(), first);
    return told;
}

/// Passes when the outcome is as told or as one of the other readings has it.
bool matches(const Outcome& got, const json& want, const json& alternatives,
             const std::string& text, std::string& told)
{
    told = difference(got, want, text);
    if (told.empty()) return true;
    for (const json& other : alternatives) {
        if (!other.is_object()) continue;
        if (other.contains("result") && other["result"] == got.result &&
            want["result"] != got.result)
            return true;
        json patched = want;
        for (const auto& [key, value] : other.items()) patched["changed"][key] = value;
        if (difference(got, patched, text).empty()) return true;
    }
    return false;
}

std::string bytesOf(const std::string& hex)
{
    std::string bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

/// The serial line with what it posts to the manager.
struct Line : bench::IifBench {
    Line()
    {
        in([] { KvdLoz6TuMgr_setPids(KvdLoz6TuPktsync_pid(), 0, KvdLoz6TuPktsync_pid()); });
        node.inProgram([] { KvdLoz6TuGps_clearSerialCounters(); return 0; });
    }
    void feed(const std::string& bytes)
    {
        in([&] {
            KvdLoz6TuGps_serialReceived(reinterpret_cast<const u8*>(bytes.data()),
                                        static_cast<u32>(bytes.size()));
        });
        world.runUntil(world.now());
    }
    json posted()
    {
        json sentences = json::array();
        for (const auto& bytes : bench::pktsyncInbox()) {
            const auto* rec = reinterpret_cast<const KvdTugpsNmeaMsgRec*>(bytes.data());
            std::string hex;
            for (u32 i = 0; i < rec->length; ++i) {
                char digits[3];
                std::snprintf(digits, sizeof digits, "%02x", static_cast<u8>(rec->text[i]));
                hex += digits;
            }
            EXPECT_EQ(rec->text[rec->length], '\0');
            sentences.push_back({{"text", hex}, {"length", rec->length}, {"buffer", bytes.size()}});
        }
        return sentences;
    }
    GpsSerialCounters counters() { return look(KvdLoz6TuGps_serialCounters); }
};

}  // namespace

TEST(NmeaCheckValues, Sentences)
{
    TU_LOAD_VECTORS(document, "o05_nmea.json");
    std::size_t replayed = 0;
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "sentence") continue;
        Replay bench;
        bench.in([&] {
            for (const auto& [key, value] : v["in"]["before"].items()) put(key, value);
        });
        bench.world.runFor(ose::MS);
        const std::string text = v["in"]["text"];
        std::string told;
        EXPECT_TRUE(matches(bench.sentence(text), v["out"], v.value("alternatives", json::array()),
                            text,
                            told))
            << v["id"] << " " << told << v["notes"];
        ++replayed;
    }
    EXPECT_GT(replayed, 0u);
}

TEST(NmeaCheckValues, SeriesOfSatellites)
{
    TU_LOAD_VECTORS(document, "o05_nmea.json");
    std::size_t replayed = 0;
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "series") continue;
        SCOPED_TRACE(v["id"].get<std::string>() + v["notes"].dump());
        Replay bench;
        const json alternatives = v.value("alternatives", json::array());
        for (std::size_t i = 0; i < v["in"]["steps"].size(); ++i) {
            const json& step = v["in"]["steps"][i];
            const std::string text = step.value("text", "");
            const Outcome got =
                step.contains("text")      ? bench.sentence(text)
                : step.contains("timeout") ? bench.run([&](Outcome&) {
                      if (step["timeout"] == "KVD_TUGPS_RESET_GPS_SATELLITES")
                          KvdLoz6TuGps_onResetGpsSatellites();
                      else
                          KvdLoz6TuGps_onResetGlonassSatellites();
                  })
                                           : bench.run([](Outcome&) {
                                                 KvdLoz6TuGps_resetSatellites();
                                                 KvdLoz6TuGps_resetReceiver();
                                             });
            json other = json::array();
            if (i < alternatives.size()) other.push_back(alternatives[i]);
            json want = v["out"]["after"][i];
            if (text.empty()) want.erase("result");
            std::string told;
            EXPECT_TRUE(matches(got, want, other, text, told)) << "step " << i << " " << told;
        }
        ++replayed;
    }
    EXPECT_GT(replayed, 0u);
}

TEST(NmeaCheckValues, PositionShown)
{
    TU_LOAD_VECTORS(document, "o05_nmea.json");
    Replay bench;
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "positionChoice") continue;
        bench.in([&] {
            GpsReceiver& receiver = KvdLoz6TuGps_receiver();
            receiver.gpssType = v["in"]["gpssType"];
            receiver.observationMode = v["in"]["observationMode"];
            const bool averaged = &KvdLoz6TuGps_shownPosition() == &receiver.averaged;
            EXPECT_EQ(averaged ? "averaged" : "instantaneous", v["out"]["record"]) << v["id"];
        });
    }
}

TEST(NmeaCheckValues, Framing)
{
    TU_LOAD_VECTORS(document, "o05_nmea.json");
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "framing" && v["kind"] != "framingSplit") continue;
        SCOPED_TRACE(v["id"].get<std::string>() + v["notes"].dump());
        Line line;
        if (v["kind"] == "framingSplit") {
            for (const json& chunk : v["in"]["chunks"]) line.feed(bytesOf(chunk));
            json texts = json::array();
            for (const json& sentence : line.posted()) texts.push_back(sentence["text"]);
            EXPECT_EQ(texts, v["out"]["sentences"]);
        } else {
            line.feed(bytesOf(v["in"]["bytes"]));
            json want = v["out"];
            const json got = line.posted();
            for (const json& other : v.value("alternatives", json::array()))
                if (got == other["sentences"]) want = other;
            EXPECT_EQ(got, want["sentences"]);
            EXPECT_EQ(line.counters().numberOfTooLongMsgs, want["numberOfTooLongMsgs"]);
            // Inside a sentence a CR delivers what has been put together; outside of one nothing.
            bench::pktsyncInbox().clear();
            line.feed("\r");
            ASSERT_EQ(line.posted().size(), want["serialState"].get<std::size_t>());
            if (want["serialState"] == 1) {
                EXPECT_EQ(line.posted()[0]["length"], want["index"].get<u32>() + 1);
            }
            EXPECT_EQ(line.counters().numberOfBytesRec, want["numberOfBytesRec"].get<u32>() + 1);
            continue;
        }
        EXPECT_EQ(line.counters().numberOfBytesRec, v["out"]["numberOfBytesRec"]);
    }
}

TEST(NmeaCheckValues, Frames)
{
    TU_LOAD_VECTORS(document, "o05_nmea.json");
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "frame") continue;
        const std::string body = v["in"]["body"];
        constexpr std::pair<const char*, NmeaFrame> FRAMES[] = {
            {"two_digit", NMEA_CHECKSUM}, {"blank", NMEA_CHECKSUM_BLANK}, {"none", NMEA_PLAIN}};
        for (const auto& [name, frame] : FRAMES) {
            char text[200];
            const u32 length = KvdLoz6TuGps_frameSentence(text, sizeof text, body.c_str(), frame);
            EXPECT_EQ(std::string(text, length), v["out"][name]) << v["id"];
        }
    }
}
