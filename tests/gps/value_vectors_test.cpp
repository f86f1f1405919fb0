// Names, time query, restarts, send queue, quality level and measurement of the GPS front end
// against check values.
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_int.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_receiver.h"
#include "gps/kvd_gps_send_int.h"
#include "gps/kvd_gps_serial.h"
#include "refs/kvd_hptsi_int.h"
#include "tests/gps/gps_measure.h"
#include "tests/gps/gps_replay.h"
#include "tests/support/hex.h"
#include "tests/support/vectors.h"
#include "unit/kvd_gps_state.h"

namespace {

using bench::sentence;
using vectors::Value;

std::string hex(const std::string& bytes)
{
    return bench::hexOf(reinterpret_cast<const u8*>(bytes.data()), bytes.size());
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
    void timeQuery(const Value& given, const Value& out)
    {
        in([&] { KvdLoz6TuGps_storeGpsState(given["gpsState"]); });
        for (const char* key : {"with_time", "without_time"}) {
            double time = -1.0;
            in([&] {
                const bool with = key[4] == '_';
                KvdLoz6TuGps_receiverRecord().gpsCurrentTime = with ? 1357776004.0 : 0.0;
                EXPECT_EQ(KvdLoz6TuGps_time(time), out[key][0].get<u32>());
            });
            EXPECT_EQ(time, out[key][1].get<double>());
        }
    }
    void restarts(const Value& given, const Value& out)
    {
        in([&] {
            EXPECT_EQ(KvdLoz6TuGps_openSerial(), 0);
            KvdLoz6TuGps_setTuGpsRefType(GPS_REF);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_ANY_MSG);
        });
        version(given["additionalInformation"].get<std::string>());
        int done = 1;
        in([&] { done = KvdLoz6TuGps_GpsFwRestart(); });
        std::string expected;
        for (const Value body : out["does"]) {
            if (body != "failure") expected += "$" + body.get<std::string>() + "\r\n";
        }
        EXPECT_EQ(done == 0, expected.empty());
        EXPECT_EQ(withoutSums(tick()), expected);
        in([] { KvdLoz6TuGps_resetHrv(); });
        expected.clear();
        for (const Value body : out["unit_reset"]) expected += "$" + body.get<std::string>() + "\r\n";
        EXPECT_EQ(withoutSums(tick()), expected);
    }
    void oneShot(const Value& given, const Value& out)
    {
        in([&] {
            KvdLoz6TuGps_receiverRecord().gpssType = given["gpssType"];
            KvdLoz6TuGps_setTuGpsRefType(given["tuGpsRefType"]);
            KvdLoz6TuGps_storeGpsState(given["newest_history"]);
            KvdLoz6TuGps_sendOneShot("PNVX,GPrst,S,1", true);
            EXPECT_EQ(KvdLoz6TuGps_queuedBytes() > 0, out["queued"].get<u32>() == 1);
        });
        EXPECT_EQ(node.traces().has("GpsFwRestart not initiated!"), !out["trace"].is_null());
        EXPECT_TRUE(out["trace"].is_null() || out["trace"] == "GpsFwRestart not initiated!");
    }
    void queue(const Value& given, const Value& out)
    {
        in([&] {
            EXPECT_EQ(KvdLoz6TuGps_openSerial(), 0);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_ANY_MSG);
            KvdLoz6TuGps_receiverRecord().gpssType = given["gpssType"];
        });
        if (given.contains("op_form")) given["op_form"].read();      // in words
        std::size_t n = 0;
        for (const Value op : given["ops"]) {
            SCOPED_TRACE(n);
            written.clear();
            if (op[0] == "tick") {
                tick();
            } else if (op[0] == "begin") {
                in([&] { KvdLoz6TuGps_startGps02Reset(op[1], op[2].get<u32>() != 0); });
            } else if (op[0] == "put") {
                const std::string text = op[1].get<std::string>();
                const bool isOrdered = op.size() > 2 && op[2] != 0;
                in([&] {
                    (isOrdered ? KvdLoz6TuGps_queueOrdered
                               : KvdLoz6TuGps_queueSentence)(text.data(), static_cast<u32>(text.size()));
                });
            } else throw std::runtime_error("no replay of " + op.dump());
            const Value after = out["after"][n++];
            std::string expected;
            for (const Value bytes : after["written"]) expected += bytes.get<std::string>();
            EXPECT_EQ(hex(written), expected);
            const gps::SendState now = look([] { return gps::sendState(); });
            vectors::expectAll({{"queued", look(KvdLoz6TuGps_queuedBytes)}, {"step", now.resetStep},
                                {"pnvxCnt", now.pnvxCnt}, {"active", now.resetActive}}, after);
        }
    }

    void quality(const Value& given, const Value& out)
    {
        const std::string status = given["gpssStatus"].dump();
        const std::string standard = given["timeStandard"].dump();
        const std::string gpppr = sentence("PNVX,GPppr,000001,02245,00000,00," + status + ",0");
        const std::string gptps = sentence("PFEC,GPtps,230115000000," + standard
                                           + ",1,2,230115000000,18,18,230115000000,2245,000001");
        in([&] {
            if (status != "255") { EXPECT_EQ(KvdLoz6TuGps_parsePxxxGPppr(gpppr.c_str()), 1); }
            if (standard != "0") { EXPECT_EQ(KvdLoz6TuGps_parsePxxxGPtps(gptps.c_str()), 1); }
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
        for (std::size_t at = text.find('*'); at != std::string::npos; at = text.find('*')) text.erase(at, 3);
        return text;
    }
};

/// Pulses with the source's time for each, of the receiver's or the time input's gate; the latch stands for
/// the times to within its step.
void replayPreTime(const Value& v)
{
    constexpr double GPS_OFFSET = 1000.0;    // s; GPS time 0 would mean none
    const std::string which = v["in"]["which"].get<std::string>();
    if (which != "gps" && which != "hptsi") throw std::runtime_error("no replay of \"" + which + "\"");
    const bool isGps = which == "gps";
    bench::GpsMeasure replay(isGps ? TU_SR_GPS_REF : TU_SR_HPTSI_REF);
    replay.in([] {
        regulator::state().sfcGpsOffset = GPS_OFFSET;
        hptsi::state().hptsiState = hptsi::OPERATIONAL_WITH_VALID_TIME;
    });
    for (std::size_t n = 0; n < v["in"]["nmea_and_latched"].size(); ++n) {
        SCOPED_TRACE(n);
        const double source = v["in"]["nmea_and_latched"][n][0], latched = v["in"]["nmea_and_latched"][n][1];
        const Value after = v["out"]["after"][n];
        replay.in([&] {
            double& time = isGps ? KvdLoz6TuGps_receiverRecord().gpsCurrentTime
                                 : hptsi::state().hptsiCurrentTime;
            time = source + GPS_OFFSET;
        });
        replay.edge(latched);
        const double scale = after["scale"], time = after["time"];
        EXPECT_EQ(replay.meas().t_mod_old, scale);
        if (scale > 1.0) { EXPECT_NEAR(replay.meas().measRefData.z + replay.offset(), latched - time, 1e-7); }
        replay.in([&] {
            const auto& gate = isGps ? gps::state().gate : hptsi::state().gate;
            EXPECT_EQ(gate.preTimeOffset_c, after["preTimeOffset_c"].get<u32>());
            EXPECT_NEAR(gate.delta0_pre, after["delta0_pre"].get<double>(), 1e-7);
        });
    }
}

void replayDelay(const Value& v)
{
    const Value given = v["in"];
    bench::GpsMeasure replay(TU_SR_GPS_REF, given["regulator_started"] == 1);
    replay.delay(given["old_ns"]);
    replay.select(given["selectedRef"]);
    u32 z_i = 0;
    replay.in([&] { z_i = KvdLoz6TuReg_measurementIndex(given["selectedRef"]); });
    replay.edit([&](measure::State& s) { s.var.m[z_i] = 50.0; });
    replay.delay(given["new_ns"]);
    vectors::expectOut(v, "noise_restarted", replay.meas().m[z_i] == 0.0 ? 1 : 0);
    replay.in([&] { EXPECT_EQ(KvdLoz6TuGps_compensationDelay(), v["out"]["delay_s"].get<double>()); });
}

/// A value that a bench of its own is asked for.
template <void (ValueReplay::*check)(const Value&, const Value&)>
void asked(const Value& v)
{
    ValueReplay replay;
    (replay.*check)(v["in"], v["out"]);
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
                      {{"preTime", replayPreTime}, {"delay", replayDelay},
                       {"stateName", stateName}, {"typeName", typeName},
                       {"timeQuery", asked<&ValueReplay::timeQuery>},
                       {"fwRestart", asked<&ValueReplay::restarts>},
                       {"oneShot", asked<&ValueReplay::oneShot>}, {"queue", asked<&ValueReplay::queue>},
                       {"quality", asked<&ValueReplay::quality>}},
                      {"sequence", "recovery", "hrv"});              // machine_vectors_test.cpp
}

}  // namespace
