// Sentences, series of satellite sentences, framing of the line and frames of written sentences
// against check values.
#include "gps/kvd_gps_common.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_nmea_int.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_out_int.h"
#include "gps/kvd_gps_send_int.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_trimble.h"
#include "base/tu_common.h"
#include "mp/kvd_iifadm_state.h"
#include "sig/gps_sig.h"
#include "sig/ref_types.h"
#include "tests/iif/iif_bench.h"
#include "tests/support/hex.h"
#include "tests/support/vectors.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_unit_process.h"

#include <map>
#include <set>
#include <variant>

namespace {

using vectors::json;
using vectors::Value;

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
json list(const u8 (&bytes)[N]) { return std::vector<int>(std::begin(bytes), std::end(bytes)); }

/// Everything that a sentence can change, by the names of the check values.
json snapshot()
{
    const gps::NmeaState& nmea = gps::nmea();
    const GpsReceiver& receiver = KvdLoz6TuGps_receiver();
    const GpsNorvane& norvane = KvdLoz6TuGps_norvane();
    const GpsAlmanac& almanac = KvdLoz6TuGps_almanac();
    const GpsModule& module = KvdLoz6TuGps_module();
    const GpsNorvaneCounters& pnvx = KvdLoz6TuGps_norvaneCounters();
    const GpsFurunoCounters& pfec = KvdLoz6TuGps_furunoCounters();
    return {
        {"numberOfGPGGA", nmea.counters.numberOfGPGGA},
        {"numberOfGPGSA", nmea.counters.numberOfGPGSA},
        {"numberOfGPGSV", nmea.counters.numberOfGPGSV},
        {"numberOfGLGSV", nmea.counters.numberOfGLGSV},
        {"numberOfPNVXGPppr", pnvx.numberOfPNVXGPppr},
        {"numberOfPNVXGPsts", pnvx.numberOfPNVXGPsts},
        {"numberOfPNVXGPver", pnvx.numberOfPNVXGPver},
        {"numberOfPNVXGPavp", pnvx.numberOfPNVXGPavp}, {"numberOfPFECMsgs", pfec.numberOfPFECMsgs},
        {"numberOfPFECGPtps", pfec.numberOfPFECGPtps},
        {"numberOfPFECGPanc", pfec.numberOfPFECGPanc},
        {"noOfSatellitesForPosit", nmea.noOfSatellitesForPosit},
        {"posInst", position(receiver.instantaneous)}, {"posAvg", position(receiver.averaged)},
        {"PDOP", nmea.dop.PDOP}, {"HDOP", nmea.dop.HDOP}, {"VDOP", nmea.dop.VDOP},
        {"usedSatellites", nmea.usedSatellites}, {"gpsInView", nmea.gps.inView},
        {"glonassInView", nmea.glonass.inView},
        {"noOfSatellitesInView", nmea.noOfSatellitesInView}, {"gpsFillIndex", nmea.gps.fillIndex},
        {"glonassFillIndex", nmea.glonass.fillIndex}, {"gpsFill", table(nmea.gps.fill)},
        {"glonassFill", table(nmea.glonass.fill)}, {"gpsCurrent", table(nmea.gps.current)},
        {"glonassCurrent", table(nmea.glonass.current)}, {"merged", table(nmea.merged)},
        {"best", table(nmea.best)}, {"gpssType", receiver.gpssType},
        {"gpssType_backup", receiver.gpssType_backup}, {"timeValidFlag", receiver.timeValid},
        {"timeNotValidFlag", receiver.timeNotValid}, {"TOW", receiver.gpsTow},
        {"week", receiver.gpsTimeWeek}, {"gpsCurrentTime", receiver.gpsCurrentTime},
        {"observationMode", receiver.observationMode}, {"gpssStatus", norvane.gpssStatus},
        {"gpssFaulty", norvane.gpssFaulty},
        {"gppprCount", KvdLoz6TuGps_selfTestRecord().gppprCount},
        {"pp1state", norvane.GPsts_pp1state}, {"positionHoldMode", norvane.GPsts_positionHoldMode},
        {"antennaPortSts", norvane.GPsts_antennaPortSts}, {"capabilities", norvane.capabilities},
        {"glonassCapability", norvane.glonassCapability},
        {"productDesignation", norvane.productDesignation}, {"productNo", norvane.productNo},
        {"productRev", norvane.productRev},
        {"additionalInformation", norvane.additionalInformation},
        {"remoteRadioClockState", KvdLoz6GpsOsl_remoteState()},
        {"remoteJumpIndication", norvane.remoteJumpIndication},
        {"gnssTimePresent", norvane.gnssTimePresent}, {"gnssDataPresent", norvane.gnssDataPresent},
        {"isMaster", norvane.isMaster}, {"timeStandard", KvdLoz6TuGps_timeStandard()},
        {"almanacDate", list(almanac.dateTime)}, {"almanacHealth", list(almanac.health)},
        {"antennaFeedline", KvdLoz6TuGps_antennaFeedline()}, {"hardwareId", module.hardwareId},
        {"serialNumber", module.serialNumber}, {"manufactureDate", module.manufactureDate},
        {"firmwareVersion", module.firmwareVersion},
    };
}

/// Puts a value of "before" in its place.
void put(const std::string& key, const Value& value)
{
    GpsReceiver& receiver = KvdLoz6TuGps_receiverRecord();
    GpsNorvane& norvane = const_cast<GpsNorvane&>(KvdLoz6TuGps_norvane());
    const std::map<std::string, std::variant<u8*, u32*>> place{
        {"noOfSatellitesForPosit", &gps::nmea().noOfSatellitesForPosit},
        {"noOfSatellitesInView", &gps::nmea().noOfSatellitesInView},
        {"gpsFillIndex", &gps::nmea().gps.fillIndex},
        {"glonassFillIndex", &gps::nmea().glonass.fillIndex},
        {"gpsInView", &gps::nmea().gps.inView}, {"glonassInView", &gps::nmea().glonass.inView},
        {"TOW", &receiver.gpsTow}, {"week", &receiver.gpsTimeWeek}, {"gpssType", &receiver.gpssType},
        {"gpssType_backup", &receiver.gpssType_backup}, {"timeValidFlag", &receiver.timeValid},
        {"timeNotValidFlag", &receiver.timeNotValid},
        {"observationMode", &receiver.observationMode},
        {"glonassCapability", &norvane.glonassCapability}, {"gpssStatus", &norvane.gpssStatus},
        {"gpssFaulty", &norvane.gpssFaulty}, {"pp1state", &norvane.GPsts_pp1state},
        {"positionHoldMode", &norvane.GPsts_positionHoldMode},
        {"antennaPortSts", &norvane.GPsts_antennaPortSts},
        {"gppprCount", &KvdLoz6TuGps_selfTestRecord().gppprCount},
        {"remoteJumpIndication", &norvane.remoteJumpIndication},
        {"gnssTimePresent", &norvane.gnssTimePresent},
        {"gnssDataPresent", &norvane.gnssDataPresent}, {"isMaster", &norvane.isMaster}};
    if (const auto found = place.find(key); found != place.end())
        std::visit([&](auto* at) { *at = value.get<std::remove_pointer_t<decltype(at)>>(); }, found->second);
    else if (key == "gpsCurrentTime") receiver.gpsCurrentTime = vectors::number(value);
    else if (key == "remoteRadioClockState") KvdLoz6GpsOsl_storeRemoteState(value);
    else if (key == "waiter") value.read(), gps::state().waiter = KvdLoz6TuPktsync_pid();
    else if (key == "gpssStatusOverride") KvdLoz6TuGps_overrideGpssStatus(true, value);
    else if (key == "timeStandardOverride") KvdLoz6TuGps_overrideTimeStandard(true, value);
    else if (key == "timeStandard") {              // no other way in than a sentence
        std::string text = "PFEC,GPtps,230115120000,0,1,2,000000000000,18,18,230115120000,2245,043200\r";
        text[24] = static_cast<char>('0' + value.get<u32>());
        const GpsReceiver kept = receiver;
        EXPECT_EQ(KvdLoz6TuGps_parsePxxxGPtps(text.c_str()), 1);
        KvdLoz6TuGps_clearFurunoCounters();
        receiver = kept;
    } else throw std::runtime_error("nothing to put \"" + key + "\" into");
}

/// "%s" of an expected text is the parser's name.
std::string named(std::string text, const std::string& sentence)
{
    if (const std::size_t at = text.find("%s"); at != std::string::npos)
        text.replace(at, 2, "KvdLoz6TuGps_parse" + sentence.substr(0, 7));
    return text;
}

struct Outcome {
    std::string text;
    int result = 0;
    GpsSentenceType type;
    json changed, after;
    std::set<std::string> traces;
    json signals = json::array();
};

struct Replay : bench::IifBench {
    Replay()
    {
        connect();
        in([] { gps::state() = {}; });
    }

    Outcome run(const Value& step)
    {
        Outcome outcome;
        outcome.text = step.value("text", "");
        node.traces().clear();
        mp().clearLog();
        bench::pktsyncInbox().clear();
        const auto timers = [] {
            return std::array{gps::nmea().gps.silenceTmoRef.ref, gps::nmea().glonass.silenceTmoRef.ref};
        };
        in([&] {
            // A timer that runs is taken away, so that a restart shows as a new one; the far end's clock
            // state is told to a main processor that follows it and hasn't heard of any.
            KvdLoz6TuGps_cancelSatelliteTimers();
            tuiif::state().savedBvqStatusData.selectedRef = GPSOSL_REF;
            tuiif::state().savedBvqStatusData.remoteRCState = UNHEARD;
            const json before = snapshot();
            apply(step, outcome);
            const json after = snapshot();
            outcome.changed = json::object();
            for (const auto& [key, value] : after.items())
                if (value != before[key]) outcome.changed[key] = value;
            outcome.after = after;
            constexpr const char* NAME[] = {"KVD_TUGPS_RESET_GPS_SATELLITES",
                                            "KVD_TUGPS_RESET_GLONASS_SATELLITES"};
            for (std::size_t i = 0; i < 2; ++i)
                if (timers()[i] != 0) outcome.signals.push_back({"restart", NAME[i], 60000});
        });
        world.runUntil(world.now());
        for (const json& quality : qualities()) outcome.signals.push_back(quality);
        for (const sim::MpRecord& r : mp().all(KVD_TUIIF_REMOTE_RC_STATE_IND))
            outcome.signals.push_back(
                {"remoteRadioClockState", r.as<KvdTuiifRemoteRcStateInd>()->remoteRCState});
        for (const auto& bytes : bench::pktsyncInbox()) {        // the waiter's
            static const std::map<SIGSELECT, const char*> NAMES = {
                {KVD_TUGPS_STATUS_MSG_PARSED, "KVD_TUGPS_STATUS_MSG_PARSED"},
                {KVD_TUGPS_CHIP_MSG_PARSED_IND, "KVD_TUGPS_CHIP_MSG_PARSED_IND"}};
            outcome.signals.push_back({NAMES.at(reinterpret_cast<const Signal*>(bytes.data())->sigNo)});
        }
        for (const sim::TraceLine& line : node.traces().find({"", "KVD_BVQ_LOZ6_TUGPS"}))
            outcome.traces.insert(line.text);
        return outcome;
    }

private:
    static constexpr u32 UNHEARD = 0xFF;

    static void apply(const Value& step, Outcome& outcome)
    {
        if (step.contains("text")) {
            outcome.result = KvdLoz6TuGps_parseSentence(outcome.text.c_str(), outcome.type);
        } else if (step.contains("reset")) {
            if (step["reset"] != "entry to WAIT_FOR_ANY_MSG") throw std::runtime_error("another reset");
            KvdLoz6TuGps_resetSatellites();
            KvdLoz6TuGps_resetReceiver();
        } else if (step["timeout"] == "KVD_TUGPS_RESET_GPS_SATELLITES") {
            KvdLoz6TuGps_onResetGpsSatellites();
        } else if (step["timeout"] == "KVD_TUGPS_RESET_GLONASS_SATELLITES") {
            KvdLoz6TuGps_onResetGlonassSatellites();
        } else throw std::runtime_error("no replay of the step " + step.dump());
    }
};

/// One of the other readings of a case that the text leaves open.
bool isAlternative(const Outcome& got, const Value& vector)
{
    if (!vector.contains("alternatives")) return false;
    for (const json& alternative : vector["alternatives"].read()) {
        bool fits = alternative.is_object() && !alternative.empty();
        for (auto it = alternative.begin(); fits && it != alternative.end(); ++it)
            fits = it.value()
                   == (it.key() == "result" ? json(got.result) : got.after.value(it.key(), json()));
        if (fits) return true;
    }
    return false;
}

void expectTraces(const Outcome& got, const Value& want)
{
    if (want.contains("trace_open")) want["trace_open"].read();
    for (const char* key : {"trace", "traces", "info"}) {
        if (!want.contains(key)) continue;
        json texts = want[key].read();
        if (!texts.is_array()) texts = json::array({texts});
        for (const json& text : texts)
            EXPECT_TRUE(text.is_null() || got.traces.contains(named(text, got.text)))
                << text << " isn't in " << json(got.traces);
    }
}

void compare(const Outcome& got, const Value& want, const Value& vector)
{
    if (isAlternative(got, vector)) return void(want.read());
    if (want.contains("result") && want["result"].is_number() && !got.text.empty()) {
        EXPECT_EQ(got.result, want["result"]);
    } else if (want.contains("result")) want["result"].read();       // of a time-out or a reset
    if (want.contains("class")) {
        EXPECT_EQ(got.type.sentenceClass, want["class"]);
        EXPECT_EQ(got.type.kind, want["kind"]);
    }
    json expected = want["changed"].read(), changed = got.changed;
    if (want.contains("open_keys"))
        for (const Value open : want["open_keys"]) {
            expected.erase(open.get<std::string>());
            changed.erase(open.get<std::string>());
        }
    EXPECT_EQ(changed, expected);

    EXPECT_EQ(got.signals, want.contains("signals") ? want["signals"].read() : json::array());
    expectTraces(got, want);
}

/// The serial line with what it posts to the manager.
struct Line : bench::IifBench {
    Line()
    {
        in([] { KvdLoz6TuMgr_setPids(KvdLoz6TuPktsync_pid(), 0, KvdLoz6TuPktsync_pid()); });
        node.inProgram([] { KvdLoz6TuGps_clearSerialCounters(); return 0; });
    }
    void feed(const std::vector<u8>& bytes)
    {
        in([&] { KvdLoz6TuGps_serialReceived(bytes.data(), static_cast<u32>(bytes.size())); });
        world.runUntil(world.now());
    }
    json posted()
    {
        json sentences = json::array();
        for (const auto& bytes : bench::pktsyncInbox()) {
            const auto* rec = reinterpret_cast<const KvdTugpsNmeaMsgRec*>(bytes.data());
            const std::string hex = bench::hexOf(reinterpret_cast<const u8*>(rec->text), rec->length);
            EXPECT_EQ(rec->text[rec->length], '\0');
            sentences.push_back({{"text", hex}, {"length", rec->length}, {"buffer", bytes.size()}});
        }
        return sentences;
    }
    GpsSerialCounters counters() { return look([] { return KvdLoz6TuGps_serialCounters(); }); }
};


/// A step or sentence after the other, from what "before" holds on.
void replay(const Value& v, const std::vector<std::pair<Value, Value>>& steps)
{
    Replay bench;
    if (v["in"].contains("before"))
        bench.in([&] { for (const auto& [key, value] : v["in"]["before"].items()) put(key, value); });
    bench.world.runFor(ose::MS);
    for (std::size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i));
        compare(bench.run(steps[i].first), steps[i].second, v);
    }
}

void sentence(const Value& v) { replay(v, {{v["in"], v["out"]}}); }

void series(const Value& v)
{
    std::vector<std::pair<Value, Value>> steps;
    for (const Value step : v["in"]["steps"]) steps.emplace_back(step, v["out"]["after"][steps.size()]);
    EXPECT_EQ(steps.size(), v["out"]["after"].size());
    replay(v, steps);
}

void positionChoice(const Value& v)
{
    Replay bench;
    bench.in([&] {
        GpsReceiver& receiver = KvdLoz6TuGps_receiverRecord();
        receiver.gpssType = v["in"]["gpssType"];
        receiver.observationMode = v["in"]["observationMode"];
        const bool averaged = &KvdLoz6TuGps_shownPosition() == &receiver.averaged;
        EXPECT_EQ(v["out"]["record"], averaged ? "averaged" : "instantaneous");
    });
}

/// Bytes in one piece, or in several.
void framing(const Value& v)
{
    Line line;
    const bool isSplit = v["in"].contains("chunks");
    if (!isSplit) line.feed(vectors::bytes(v["in"]["bytes"]));
    else for (const Value chunk : v["in"]["chunks"]) line.feed(vectors::bytes(chunk));
    static const std::set<std::string> KNOWN = {"sentences", "numberOfBytesRec", "numberOfTooLongMsgs",
                                                "serialState", "index"};
    json got = line.posted(), want;
    for (const auto& [key, value] : v["out"].items())
        if (KNOWN.contains(key)) want[key] = value.read();
    if (v.contains("alternatives"))
        for (const json& other : v["alternatives"].read())
            if (got == other.at("sentences")) want.update(other);
    EXPECT_EQ(line.counters().numberOfBytesRec, want.at("numberOfBytesRec"));
    if (isSplit) {
        for (json& sentence : got) sentence = sentence.at("text");
        EXPECT_EQ(got, want.at("sentences"));
        return;
    }
    EXPECT_EQ(got, want.at("sentences"));
    EXPECT_EQ(line.counters().numberOfTooLongMsgs, want.at("numberOfTooLongMsgs"));
    // Inside a sentence a CR delivers what has been put together; outside of one nothing.
    bench::pktsyncInbox().clear();
    line.feed({'\r'});
    ASSERT_EQ(line.posted().size(), want.at("serialState").get<std::size_t>());
    if (want.at("serialState") == 1) {
        EXPECT_EQ(line.posted()[0].at("length"), want.at("index").get<u32>() + 1);
    }
}

constexpr std::pair<const char*, NmeaFrame> FRAMES[] = {
    {"two_digit", NMEA_CHECKSUM}, {"blank", NMEA_CHECKSUM_BLANK}, {"none", NMEA_PLAIN}};

void frame(const Value& v)
{
    const std::string body = v["in"]["body"].get<std::string>();
    for (const auto& [name, how] : FRAMES) {
        char text[200];
        const u32 length = KvdLoz6TuGps_frameSentence(text, sizeof text, body.c_str(), how);
        EXPECT_EQ(v["out"][name], std::string(text, length));
    }
    EXPECT_EQ(TuCommon_nmeaChecksum(body.data(), body.size()), v["out"]["checksum"].get<u8>());
}

/// What the user of a frame writes. GPmod stands for either of its numbers.
std::string writtenBy(const std::string& user)
{
    gps::SendState& queue = gps::sendState();
    u32& type = KvdLoz6TuGps_receiverRecord().gpssType;
    queue = {};
    type = GPSS_FURUNO_GPS02;
    if (user == "GPppr") return std::string(gpsout::gppprSentence(1, 2, 3));
    if (user == "GPout") return std::string(gpsout::gpoutSentence(1, false, 0, false));
    if (user == "GPGGA of the output") return std::string(gpsout::gpggaSentence());
    if (user == "PNVX,GPmod,%u") KvdLoz6TuGps_queueModeSetup(true);
    else if (user == "PNVX,GPper,1") KvdLoz6TuGps_changeProtocol(GPS_PROTOCOL_NORVANE);
    else if (user == "$PFEC,GPset,Z1 of the protocol change") {
        type = GPSS_NORVANE_COMBINED;
        KvdLoz6TuGps_changeProtocol(GPS_PROTOCOL_FURUNO);
    } else if (user == "one-shot commands without the checksum flag") {
        KvdLoz6TuGps_sendOneShot("PTNLQBA", false);
    } else if (user.starts_with("PTNL")) KvdLoz6TuGps_sendOneShot(user.c_str(), true);
    else throw std::runtime_error("nobody writes \"" + user + "\"");
    return queue.queue;
}

void frameUse(const Value& v)
{
    static const std::map<std::string, NmeaFrame> FORMS = {{R"($%s*%2X\r\n)", NMEA_CHECKSUM_BLANK},
                                                           {R"($%s*%02X\r\n)", NMEA_CHECKSUM},
                                                           {R"($%s\r\n)", NMEA_PLAIN}};
    Replay bench;
    bench.in([&] {
        KvdLoz6TuGps_setTuGpsRefType(GPS_REF);
        KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_ANY_MSG);
        for (const auto& [form, users] : v["out"].items()) {
            if (form == "gps01_reset") {
                gps::sendState() = {};
                KvdLoz6TuGps_receiverRecord().gpssType = GPSS_FURUNO;
                EXPECT_EQ(KvdLoz6TuGps_resetGps01(), 1);
                EXPECT_EQ(users, std::string(gps::sendState().queue));
                continue;
            }
            for (const Value user : users) {
                const std::string got = writtenBy(user.get<std::string>());
                const std::string body = got.substr(1, got.find_first_of("*\r") - 1);
                char wanted[200] = "";
                KvdLoz6TuGps_frameSentence(wanted, sizeof wanted, body.c_str(), vectors::rowOf(FORMS, form));
                EXPECT_EQ(got, wanted) << user;
            }
        }
    });
}

TEST(NmeaCheckValues, AreMet)
{
    vectors::Document document("o05_nmea.json");
    vectors::eachKind(document["vectors"],
                      {{"sentence", sentence}, {"series", series}, {"positionChoice", positionChoice},
                       {"framing", framing}, {"framingSplit", framing}, {"frame", frame},
                       {"frameUse", frameUse}});
}

}  // namespace
