// Replay of check values: what the GPS output says, its events, and its way to the driver.
#include "gps/kvd_gps_out_int.h"
#include "gps/kvd_gps_serial.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_int.h"
#include "tests/support/idle_node.h"
#include "tests/support/vectors.h"

#include <gtest/gtest.h>

namespace {

using gpsout::state;
using vectors::json;

void checkEvent(const json& in, const json& out)
{
    state() = {};
    state().gpsOutState = in["state"];
    state().gpsTimeLocked = in["state"] == 5 ? 1 : 0;
    regulator::state().masterSlaveMode = in.value("master", 1) != 0 ? 1 : 0;
    const bool isOn = in.value("output_may_be_on", 1) != 0;
    state().master.selectedRef = isOn ? 6 : 14;
    const bool isUsable = in.contains("time_usable") && in["time_usable"] == 1;
    const bool isKnown = in.contains("offset_known") && in["offset_known"] == 1;
    KvdLoz6TuReg_forceRegState(isKnown ? TRUETIME : isUsable ? FREQLOCKED : FREQDRIFTING);
    state().master.regState = isUsable ? FREQLOCKED : FREQDRIFTING;
    gpsout::changeState(in["event"]);
    EXPECT_EQ(state().gpsOutState, out["state"].get<u32>());
    if (out.contains("gpsTimeLocked")) {
        EXPECT_EQ(state().gpsTimeLocked, out["gpsTimeLocked"].get<u32>());
    }
    if (out.contains("pp1sAligned")) {
        EXPECT_EQ(state().pp1sAligned, out["pp1sAligned"].get<u32>());
    }
}

void checkRegulatorChange(const json& in, const json& out)
{
    state() = {};
    state().gpsOutState = in["state"];
    state().gpsTimeLocked = in["state"] == 5 ? 1 : 0;
    regulator::state().masterSlaveMode = 1;
    // Whether the time is usable is read off the regulator's state: one that is locked always is.
    KvdLoz6TuReg_forceRegState(in["time_usable"] == 1 ? in["regState"].get<u8>() : u8{FREQDRIFTING});
    KvdLoz6GpsOut_regStateChanged();
    // The state that the event leads to, where it is allowed.
    EXPECT_EQ(state().gpsOutState, (out["event"].is_null() ? in["state"] : out["event"]).get<u32>());
}

void checkSentences(const json& v)
{
    const std::string kind = v["kind"];
    const json &in = v["in"], &out = v["out"];
    const auto sentence = [&] {
        return out["sentence"].is_null() ? std::string() : out["sentence"].get<std::string>();
    };
    if (kind == "gpppr") {
        constexpr u32 STATE_OF_STATUS[] = {6, 4, 3, 3};
        EXPECT_EQ(gpsout::gppprSentence(in["tow"], in["week"], STATE_OF_STATUS[in["status"].get<u32>()]),
                  sentence());
    } else if (kind == "gpout") {
        EXPECT_EQ(gpsout::gpoutSentence(in["radioClockState"], in["jump"] != 0, in["gnssTime"],
                                        in["slave"] != 0),
                  sentence());
    } else if (kind == "gnssTimePresent") {
        EXPECT_EQ(gpsout::gnssTimePresent(in["storedSelectedRef"], in["master"] != 0,
                                          in["clientViewSelectedRef"]),
                  out["value"].get<u8>());
    } else if (kind == "pprStatus") {
        EXPECT_EQ(gpsout::gppprStatus(in["gpsOutState"]), out["status"].get<u8>());
    } else if (kind == "towWeek") {
        gpsout::setTime(in["gpsTime"].get<double>());
        EXPECT_EQ(state().gpsTimeWeek, out["week"].get<u32>());
        EXPECT_EQ(state().gpsTimeTOW, out["tow"].get<u32>());
    } else if (kind == "classTest") {
        EXPECT_EQ(gpsout::classTest(in["regState"], in["rcState"]) ? 1 : 0, out["true"].get<int>());
    } else if (kind == "event") {
        checkEvent(in, out);
    } else if (kind == "regulatorChange") {
        checkRegulatorChange(in, out);
    }
}

TEST(GpsOutCheckValues, SentencesAndStates)
{
    TU_LOAD_VECTORS(document, "o05_gpsout.json");
    IdleNode b;
    b.in([&] {
        ASSERT_EQ(KvdLoz6TuGps_openSerial(GPS_LINE_OUTPUT), 0);
        for (const json& v : document["vectors"]) {
            SCOPED_TRACE(v["id"].get<std::string>());
            if (v["kind"] == "writer" || v["kind"] == "pllChange") continue;
            checkSentences(v);
            if (testing::Test::HasFailure()) FAIL() << v["id"];
        }
    });
}

TEST(GpsOutCheckValues, Frames)
{
    TU_LOAD_VECTORS(document, "o05_cmcc_hptsi.json");
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "frameOut") continue;
        SCOPED_TRACE(v["id"].get<std::string>());
        const json& in = v["in"];
        const auto frame = in["kind"] == "time info"
                               ? gpsout::cmccTimeFrame(in["tow"], in["week"], in["radioClockState"])
                               : gpsout::cmccStateFrame();
        std::string hex;
        for (const u8 b : frame) {
            constexpr const char* DIGIT = "0123456789abcdef";
            hex += {DIGIT[b >> 4], DIGIT[b & 15]};
        }
        EXPECT_EQ(hex, v["out"]["hex"].get<std::string>());
    }
}

TEST(GpsOutCheckValues, Writer)
{
    TU_LOAD_VECTORS(document, "o05_gpsout.json");
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "writer") continue;
        SCOPED_TRACE(v["id"].get<std::string>());
        IdleNode b;
        std::string written;
        b.node.serial().onHeard([&](const std::vector<u8>& bytes) { written.append(bytes.begin(), bytes.end()); });
        b.in([&] {
            ASSERT_EQ(KvdLoz6TuGps_openSerial(GPS_LINE_OUTPUT), 0);
            state().gpsOutState = gpsout::OUT_NOTHING_LOCKED;
            for (u32 i = 0; i < v["in"]["ops"].size(); ++i) {
                const std::string op = v["in"]["ops"][i];
                const json& after = v["out"]["after"][i];
                if (op == "t") {
                    KvdTimer_cancel(state().simIntTmoRef);
                    gpsout::onSimInterrupt();
                } else {
                    gpsout::write(op);
                }
                EXPECT_EQ(state().driverBusy, after["busy"].get<u32>()) << i;
                EXPECT_EQ(state().sendQueue.size(), after["queued"].get<u32>()) << i;
                EXPECT_EQ(state().counters.numberOfNmeaMsgs, after["numberOfNmeaMsgs"].get<u32>()) << i;
                EXPECT_EQ(state().counters.numberOfBytesSent, after["numberOfBytesSent"].get<u32>()) << i;
            }
        });
        std::string wanted;
        for (const json& after : v["out"]["after"])
            for (const json& text : after["written"]) wanted += text.get<std::string>();
        b.world.runFor(ose::SEC);
        EXPECT_EQ(written, wanted);
    }
}

}  // namespace
