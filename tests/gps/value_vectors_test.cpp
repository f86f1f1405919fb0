// Names, time query, restarts, send queue, quality level and measurement of the GPS front end
// against check values.
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_send.h"
#include "gps/kvd_gps_serial.h"
#include "tests/gps/gps_measure.h"
#include "tests/gps/gps_replay.h"
#include "tests/support/vectors.h"
#include "unit/kvd_gps_state.h"

namespace {

using bench::sentence;
using vectors::json;
using vectors::Value;

std::string hex(const std::string& bytes)
{
    std::string text;
    char digits[3];
    for (const char c : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(c));
        text += digits;
    }
    return text;
}

struct ValueReplay : bench::GpsReplay {
    void version(const std::string& firmware)
    {
        if (firmware == "Unknown") return;
        const std::string text = sentence("PNVX,GPver,GRM,NO,R1," + firmware);
        in([&] { KvdLoz6TuGps_parsePxxxGPver(text.c_str()); });
    }
    /// What is in the queue leaves at the next turn of the pacing.
    std::string tick()
    {
        written.clear();
        dispatch(KVD_TUGPS_SEND_TO_GPS_TIMEOUT);
        return written;
    }
    void timeQuery(const json& given, const json& out)
    {
        in([&] { KvdLoz6TuGps_storeGpsState(given.at("gpsState")); });
        for (const char* key : {"with_time", "without_time"}) {
            double time = -1.0;
            in([&] {
                const bool with = key[4] == '_';
                KvdLoz6TuGps_receiver().gpsCurrentTime = with ? 1357776004.0 : 0.0;
                EXPECT_EQ(KvdLoz6TuGps_time(time), out[key][0].get<u32>());
            });
            EXPECT_EQ(time, out[key][1].get<double>());
        }
    }
    void restarts(const json& given, const json& out)
    {
        in([&] {
            EXPECT_EQ(KvdLoz6TuGps_openSerial(), 0);
            KvdLoz6TuGps_setTuGpsRefType(GPS_REF);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_ANY_MSG);
        });
        version(given.at("additionalInformation"));
        int done = 1;
        in([&] { done = KvdLoz6TuGps_GpsFwRestart(); });
        std::string expected;
        for (const json& body : out.at("does")) {
            if (body == "failure") EXPECT_EQ(done, 0);
            else expected += "$" + body.get<std::string>() + "\r\n";
        }
        EXPECT_EQ(withoutSums(tick()), expected);
        in([] { KvdLoz6TuGps_resetHrv(); });
        expected.clear();
        for (const json& body : out.at("unit_reset"))
            expected += "$" + body.get<std::string>() + "\r\n";
        EXPECT_EQ(withoutSums(tick()), expected);
    }
    void oneShot(const json& given, const json& out)
    {
        in([&] {
            KvdLoz6TuGps_receiver().gpssType = given.at("gpssType");
            KvdLoz6TuGps_setTuGpsRefType(given.at("tuGpsRefType"));
            KvdLoz6TuGps_storeGpsState(given.at("newest_history"));
            KvdLoz6TuGps_sendOneShot("PNVX,GPrst,S,1", true);
            EXPECT_EQ(KvdLoz6TuGps_queuedBytes() > 0, out.at("queued").get<u32>() == 1);
        });
        EXPECT_EQ(node.traces().has("GpsFwRestart not initiated!"), out.at("trace").is_string());
    }
    void queue(const json& given, const json& out)
    {
        in([&] {
            EXPECT_EQ(KvdLoz6TuGps_openSerial(), 0);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_ANY_MSG);
            KvdLoz6TuGps_receiver().gpssType = given.at("gpssType");
        });
        std::size_t n = 0;
        for (const json& op : given.at("ops")) {
            SCOPED_TRACE(n);
            written.clear();
            if (op[0] == "tick") {
                tick();
            } else if (op[0] == "begin") {
                in([&] { KvdLoz6TuGps_startGps02Reset(op[1], op[2].get<u32>() != 0); });
            } else {
                const std::string text = op[1];
                in([&] { KvdLoz6TuGps_queueSentence(text.data(), static_cast<u32>(text.size())); });
            }
            const json& after = out.at("after")[n++];
            std::string expected;
            for (const json& bytes : after.at("written")) expected += bytes.get<std::string>();
            EXPECT_EQ(hex(written), expected);
            EXPECT_EQ(look(KvdLoz6TuGps_queuedBytes), after.at("queued").get<u32>());
        }
    }

    void quality(const json& given, const json& out)
    {
        const std::string status = given.at("gpssStatus").dump();
        const std::string standard = given.at("timeStandard").dump();
        const std::string gpppr = sentence("PNVX,GPppr,000001,02245,00000,00," + status + ",0");
        const std::string gptps =
            sentence("PFEC,GPtps,230115000000," + standard +
                     ",1,2,230115000000,18,18,230115000000,2245,000001");
        in([&] {
            if (status != "255") {
                EXPECT_EQ(KvdLoz6TuGps_parsePxxxGPppr(gpppr.c_str()), 1);
            }
            if (standard != "0") {
                EXPECT_EQ(KvdLoz6TuGps_parsePxxxGPtps(gptps.c_str()), 1);
            }
            KvdLoz6TuGps_setGpssType(given.at("gpssType"));
            gps::state().supervision = 1;
        });
        mp().clearLog();
        const u8 byQuality = 1;
        dispatch(KVD_TUIIF_SELECTION_MODE_CHANGE_IND, &byQuality, 1);
        const auto told = mp().all(KVD_TUIIF_QUALITY_LEVEL_IND);
        ASSERT_EQ(told.size(), 1u);
        const auto ind = told[0].as<KvdTuiifQualityLevelInd>();
        EXPECT_EQ(ind->clockQuality, out.at("clockQuality").get<u32>());
    }

private:
    static std::string withoutSums(std::string text)
    {
        for (std::size_t at = text.find('*'); at != std::string::npos; at = text.find('*'))
            text.erase(at, 3);
        return text;
    }
};

/// Pulses with the receiver's time for each; the latch stands for the times to within its step.
void replayPreTime(const json& given, const json& out)
{
    constexpr double GPS_OFFSET = 1000.0;    // s; GPS time 0 would mean none
    bench::GpsMeasure replay;
    replay.in([] { regulator::state().sfcGpsOffset = GPS_OFFSET; });
    for (std::size_t n = 0; n < given.at("nmea_and_latched").size(); ++n) {
        SCOPED_TRACE(n);
        const double nmea = given.at("nmea_and_latched")[n][0];
        const double latched = given.at("nmea_and_latched")[n][1];
        const json& after = out.at("after")[n];
        replay.in([&] { KvdLoz6TuGps_receiver().gpsCurrentTime = nmea + GPS_OFFSET; });
        replay.edge(latched);
        const double scale = after.at("scale");
        EXPECT_EQ(replay.meas().t_mod_old, scale);
        EXPECT_EQ(replay.left(), after.at("preTimeOffset_c").get<u32>());
        const double time = after.at("time");
        if (scale > 1.0) {
            EXPECT_NEAR(replay.meas().measRefData.z + replay.offset(), latched - time, 1e-7);
        }
        replay.in([&] {
            EXPECT_NEAR(gps::state().gate.delta0_pre, after.at("delta0_pre").get<double>(), 1e-7);
        });
    }
}

/// A check value may allow other readings.
bool isAsTold(const json& vector, const char* key, u32 value)
{
    if (vector.at("out")[key] == value) return true;
    if (!vector.contains("alternatives")) return false;
    for (const json& reading : vector.at("alternatives"))
        if (reading[key] == value) return true;
    return false;
}

void replayDelay(const json& vector)
{
    const json& given = vector.at("in");
    bench::GpsMeasure replay;
    replay.delay(given.at("old_ns"));
    replay.select(given.at("selectedRef"));
    u32 z_i = 0;
    replay.in([&] { z_i = KvdLoz6TuReg_measurementIndex(given.at("selectedRef")); });
    replay.edit([&](measure::State& s) { s.var.m[z_i] = 50.0; });
    replay.delay(given.at("new_ns"));
    EXPECT_TRUE(isAsTold(vector, "noise_restarted", replay.meas().m[z_i] == 0.0 ? 1 : 0));
    replay.in([&] {
        EXPECT_EQ(KvdLoz6TuGps_compensationDelay(), vector.at("out").at("delay_s").get<double>());
    });
}

void replayPreTimeOf(const Value& view)
{
    const json& vector = view.read();
    const std::string which = vector.at("in").at("which");
    if (which == "gps") replayPreTime(vector.at("in"), vector.at("out"));
    else if (which != "hptsi") throw std::runtime_error("no replay of \"" + which + "\"");
    // The time input has the same gate; kvd_hptsi's own tests hold it.
}

/// A value that a bench of its own is asked for.
template <void (ValueReplay::*check)(const json&, const json&)>
void asked(const Value& view)
{
    const json& vector = view.read();
    ValueReplay replay;
    (replay.*check)(vector.at("in"), vector.at("out"));
}

void stateName(const Value& v)
{
    EXPECT_EQ(v["out"]["text"], std::string(KvdLoz6TuGps_gpsStateText(v["in"]["gpsState"].get<u32>())));
}

void typeName(const Value& v)
{
    ValueReplay replay;
    replay.version(v["in"]["additionalInformation"].get<std::string>());
    replay.look([&] {
        EXPECT_EQ(v["out"]["text"], std::string(KvdLoz6TuGps_gpssTypeText(v["in"]["gpssType"].get<u8>())));
        return 0;
    });
}

TEST(GpsValueCheckValues, AreMet)
{
    vectors::Document document("o05_gps_sm.json");
    vectors::eachKind(document["vectors"],
                      {{"preTime", replayPreTimeOf}, {"delay", [](const Value& v) { replayDelay(v.read()); }},
                       {"stateName", stateName}, {"typeName", typeName},
                       {"timeQuery", asked<&ValueReplay::timeQuery>}, {"fwRestart", asked<&ValueReplay::restarts>},
                       {"oneShot", asked<&ValueReplay::oneShot>}, {"queue", asked<&ValueReplay::queue>},
                       {"quality", asked<&ValueReplay::quality>}},
                      {"sequence", "recovery", "hrv"});              // machine_vectors_test.cpp
}

}  // namespace
