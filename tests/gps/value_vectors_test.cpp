// Names, time query, restarts, send queue, quality level and measurement of the GPS front end
// against check values.
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_send.h"
#include "gps/kvd_gps_serial.h"
#include "gps/kvd_gps_state.h"
#include "tests/gps/gps_measure.h"
#include "tests/gps/gps_replay.h"
#include "tests/support/vectors.h"

namespace {

using bench::sentence;
using vectors::json;

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
        in([&] { KvdLoz6TuGps_storeGpsState(given["gpsState"]); });
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
        version(given["additionalInformation"]);
        int done = 1;
        in([&] { done = KvdLoz6TuGps_GpsFwRestart(); });
        std::string expected;
        for (const json& body : out["does"]) {
            if (body == "failure") EXPECT_EQ(done, 0);
            else expected += "$" + body.get<std::string>() + "\r\n";
        }
        EXPECT_EQ(withoutSums(tick()), expected);
        in([] { KvdLoz6TuGps_resetHrv(); });
        expected.clear();
        for (const json& body : out["unit_reset"])
            expected += "$" + body.get<std::string>() + "\r\n";
        EXPECT_EQ(withoutSums(tick()), expected);
    }
    void oneShot(const json& given, const json& out)
    {
        in([&] {
            KvdLoz6TuGps_receiver().gpssType = given["gpssType"];
            KvdLoz6TuGps_setTuGpsRefType(given["tuGpsRefType"]);
            KvdLoz6TuGps_storeGpsState(given["newest_history"]);
            KvdLoz6TuGps_sendOneShot("PNVX,GPrst,S,1", true);
            EXPECT_EQ(KvdLoz6TuGps_queuedBytes() > 0, out["queued"].get<u32>() == 1);
        });
        EXPECT_EQ(node.traces().has("GpsFwRestart not initiated!"), out["trace"].is_string());
    }
    void queue(const json& given, const json& out)
    {
        in([&] {
            EXPECT_EQ(KvdLoz6TuGps_openSerial(), 0);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_ANY_MSG);
            KvdLoz6TuGps_receiver().gpssType = given["gpssType"];
        });
        std::size_t n = 0;
        for (const json& op : given["ops"]) {
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
            const json& after = out["after"][n++];
            std::string expected;
            for (const json& bytes : after["written"]) expected += bytes.get<std::string>();
            EXPECT_EQ(hex(written), expected);
            EXPECT_EQ(look(KvdLoz6TuGps_queuedBytes), after["queued"].get<u32>());
        }
    }

    void quality(const json& given, const json& out)
    {
        const std::string status = given["gpssStatus"].dump();
        const std::string standard = given["timeStandard"].dump();
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
            KvdLoz6TuGps_setGpssType(given["gpssType"]);
            gps::state().supervision = 1;
        });
        mp().clearLog();
        const u8 byQuality = 1;
        dispatch(KVD_TUIIF_SELECTION_MODE_CHANGE_IND, &byQuality, 1);
        const auto told = mp().all(KVD_TUIIF_QUALITY_LEVEL_IND);
        ASSERT_EQ(told.size(), 1u);
        const auto ind = told[0].as<KvdTuiifQualityLevelInd>();
        EXPECT_EQ(ind->clockQuality, out["clockQuality"].get<u32>());
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
    for (std::size_t n = 0; n < given["nmea_and_latched"].size(); ++n) {
        SCOPED_TRACE(n);
        const double nmea = given["nmea_and_latched"][n][0];
        const double latched = given["nmea_and_latched"][n][1];
        const json& after = out["after"][n];
        replay.in([&] { KvdLoz6TuGps_receiver().gpsCurrentTime = nmea + GPS_OFFSET; });
        replay.edge(latched);
        const double scale = after["scale"];
        EXPECT_EQ(replay.meas().t_mod_old, scale);
        EXPECT_EQ(replay.left(), after["preTimeOffset_c"].get<u32>());
        const double time = after["time"];
        if (scale > 1.0) {
            EXPECT_NEAR(replay.meas().measRefData.z + replay.offset(), latched - time, 1e-7);
        }
        replay.in([&] {
            EXPECT_NEAR(gps::state().gate.delta0_pre, after["delta0_pre"].get<double>(), 1e-7);
        });
    }
}

/// A check value may allow other readings.
bool isAsTold(const json& vector, const char* key, u32 value)
{
    if (vector["out"][key] == value) return true;
    if (!vector.contains("alternatives")) return false;
    for (const json& reading : vector["alternatives"])
        if (reading[key] == value) return true;
    return false;
}

void replayDelay(const json& vector)
{
    const json& given = vector["in"];
    bench::GpsMeasure replay;
    replay.delay(given["old_ns"]);
    replay.select(given["selectedRef"]);
    u32 z_i = 0;
    replay.in([&] { z_i = KvdLoz6TuReg_measurementIndex(given["selectedRef"]); });
    replay.edit([&](measure::State& s) { s.var.m[z_i] = 50.0; });
    replay.delay(given["new_ns"]);
    EXPECT_TRUE(isAsTold(vector, "noise_restarted", replay.meas().m[z_i] == 0.0 ? 1 : 0));
    replay.in([&] {
        EXPECT_EQ(KvdLoz6TuGps_compensationDelay(), vector["out"]["delay_s"].get<double>());
    });
}

TEST(GpsMeasureCheckValues, AreMet)
{
    TU_LOAD_VECTORS(doc, "o05_gps_sm.json");
    u32 compared = 0;
    for (const json& vector : doc["vectors"]) {
        const std::string kind = vector["kind"];
        const json& given = vector["in"];
        SCOPED_TRACE(vector["id"].get<std::string>());
        if (kind == "preTime" && given["which"] == "gps")
            replayPreTime(given, vector["out"]);
        else if (kind == "delay")
            replayDelay(vector);
        else
            continue;
        ++compared;
    }
    EXPECT_EQ(compared, 7u);
}

TEST(GpsValueCheckValues, AreMet)
{
    TU_LOAD_VECTORS(doc, "o05_gps_sm.json");
    u32 compared = 0;
    for (const json& vector : doc["vectors"]) {
        const std::string kind = vector["kind"];
        const json& given = vector["in"];
        const json& out = vector["out"];
        if (kind == "sequence" || kind == "recovery" || kind == "hrv") continue;
        SCOPED_TRACE(vector["id"].get<std::string>());
        ValueReplay replay;
        if (kind == "stateName") {
            EXPECT_EQ(KvdLoz6TuGps_gpsStateText(given["gpsState"]), out["text"].get<std::string>());
        } else if (kind == "typeName") {
            replay.version(given["additionalInformation"]);
            replay.look([&] {
                EXPECT_EQ(KvdLoz6TuGps_gpssTypeText(given["gpssType"]),
                          out["text"].get<std::string>());
                return 0;
            });
        } else if (kind == "timeQuery") {
            replay.timeQuery(given, out);
        } else if (kind == "fwRestart") {
            replay.restarts(given, out);
        } else if (kind == "oneShot") {
            replay.oneShot(given, out);
        } else if (kind == "queue") {
            replay.queue(given, out);
        } else if (kind == "quality") {
            replay.quality(given, out);
        } else {
            continue;
        }
        ++compared;
    }
    EXPECT_EQ(compared, 34u);
}

}  // namespace
