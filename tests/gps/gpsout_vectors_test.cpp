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
using vectors::Value;

void checkEvent(const json& in, const json& out)
{
    state() = {};
    state().gpsOutState = in.at("state");
    state().gpsTimeLocked = in.at("state") == 5 ? 1 : 0;
    regulator::state().masterSlaveMode = in.value("master", 1) != 0 ? 1 : 0;
    const bool isOn = in.value("output_may_be_on", 1) != 0;
    state().master.selectedRef = isOn ? 6 : 14;
    const bool isUsable = in.contains("time_usable") && in.at("time_usable") == 1;
    const bool isKnown = in.contains("offset_known") && in.at("offset_known") == 1;
    KvdLoz6TuReg_forceRegState(isKnown ? TRUETIME : isUsable ? FREQLOCKED : FREQDRIFTING);
    state().master.regState = isUsable ? FREQLOCKED : FREQDRIFTING;
    gpsout::changeState(in.at("event"));
    EXPECT_EQ(state().gpsOutState, out.at("state").get<u32>());
    if (out.contains("gpsTimeLocked")) {
        EXPECT_EQ(state().gpsTimeLocked, out.at("gpsTimeLocked").get<u32>());
    }
    if (out.contains("pp1sAligned")) {
        EXPECT_EQ(state().pp1sAligned, out.at("pp1sAligned").get<u32>());
    }
}

void checkRegulatorChange(const json& in, const json& out)
{
    state() = {};
    state().gpsOutState = in.at("state");
    state().gpsTimeLocked = in.at("state") == 5 ? 1 : 0;
    regulator::state().masterSlaveMode = 1;
    // Whether the time is usable is read off the regulator's state: one that is locked always is.
    KvdLoz6TuReg_forceRegState(in.at("time_usable") == 1 ? in.at("regState").get<u8>() : u8{FREQDRIFTING});
    KvdLoz6GpsOut_regStateChanged();
    // The state that the event leads to, where it is allowed.
    EXPECT_EQ(state().gpsOutState, (out.at("event").is_null() ? in.at("state") : out.at("event")).get<u32>());
}

void checkSentences(const Value& view)
{
    const json& v = view.read();
    const std::string kind = v.at("kind");
    const json &in = v.at("in"), &out = v.at("out");
    const auto sentence = [&] {
        return out.at("sentence").is_null() ? std::string() : out.at("sentence").get<std::string>();
    };
    if (kind == "gpppr") {
        constexpr u32 STATE_OF_STATUS[] = {6, 4, 3, 3};
        EXPECT_EQ(gpsout::gppprSentence(in.at("tow"), in.at("week"), STATE_OF_STATUS[in.at("status").get<u32>()]),
                  sentence());
    } else if (kind == "gpout") {
        EXPECT_EQ(gpsout::gpoutSentence(in.at("radioClockState"), in.at("jump") != 0, in.at("gnssTime"),
                                        in.at("slave") != 0),
                  sentence());
    } else if (kind == "gnssTimePresent") {
        EXPECT_EQ(gpsout::gnssTimePresent(in.at("storedSelectedRef"), in.at("master") != 0,
                                          in.at("clientViewSelectedRef")),
                  out.at("value").get<u8>());
    } else if (kind == "pprStatus") {
        EXPECT_EQ(gpsout::gppprStatus(in.at("gpsOutState")), out.at("status").get<u8>());
    } else if (kind == "towWeek") {
        gpsout::setTime(in.at("gpsTime").get<double>());
        EXPECT_EQ(state().gpsTimeWeek, out.at("week").get<u32>());
        EXPECT_EQ(state().gpsTimeTOW, out.at("tow").get<u32>());
    } else if (kind == "classTest") {
        EXPECT_EQ(gpsout::classTest(in.at("regState"), in.at("rcState")) ? 1 : 0, out.at("true").get<int>());
    } else if (kind == "event") {
        checkEvent(in, out);
    } else if (kind == "regulatorChange") {
        checkRegulatorChange(in, out);
    } else throw std::runtime_error("no replay of \"" + kind + "\"");
}

void checkPllChange(const Value& v)
{
    const Value in = v["in"];
    const u8 regState = in["storedRegState"].get<u8>();
    state() = {};
    state().gpsOutState = in["state"].get<u32>();
    state().pp1sAligned = in["aligned"].get<u32>();
    state().master.regState = regState;
    state().master.selectedRef = 6;
    const bool wanted = in["classTest"] == 1;
    for (u32 rcState = 0; rcState < 16 && gpsout::classTest(regState, state().master.rcState) != wanted; ++rcState)
        state().master.rcState = static_cast<u8>(rcState);
    KvdLoz6GpsOut_pllStateChanged(in["pllState"].get<u32>());
    // The state that the event leads to.
    EXPECT_EQ(state().gpsOutState, v["out"]["event"].get<u32>());
}

void checkFrame(const Value& v)
{
    const Value in = v["in"];
    const std::string kind = in["kind"].get<std::string>();
    if (kind != "time info" && kind != "time state") throw std::runtime_error("no replay of the frame \"" + kind + "\"");
    const bool isInfo = kind == "time info";
    in.read();
    const auto frame = isInfo ? gpsout::cmccTimeFrame(in["tow"].get<u32>(), in["week"].get<u32>(),
                                                      in["radioClockState"].get<u8>())
                              : gpsout::cmccStateFrame();
    EXPECT_EQ(vectors::bytes(v["out"]["hex"]), (std::vector<u8>(frame.begin(), frame.end())));
}

/// The pacing timer's end, at once.
void endPacing()
{
    KvdTimer_cancel(state().simIntTmoRef);
    gpsout::onSimInterrupt();
}

void checkWriter(const Value& v)
{
    IdleNode b;
    std::string written;
    b.node.serial().onHeard([&](const std::vector<u8>& bytes) { written.append(bytes.begin(), bytes.end()); });
    std::string wanted;
    b.in([&] {
        ASSERT_EQ(KvdLoz6TuGps_openSerial(GPS_LINE_OUTPUT), 0);
        state().gpsOutState = gpsout::OUT_NOTHING_LOCKED;
        for (u32 i = 0; i < v["in"]["ops"].size(); ++i) {
            const std::string op = v["in"]["ops"][i].get<std::string>();
            const Value after = v["out"]["after"][i];
            if (op == "t") endPacing();
            else           gpsout::write(op);
            EXPECT_EQ(state().driverBusy, after["busy"].get<u32>()) << i;
            EXPECT_EQ(state().sendQueue.size(), after["queued"].get<u32>()) << i;
            EXPECT_EQ(state().counters.numberOfNmeaMsgs, after["numberOfNmeaMsgs"].get<u32>()) << i;
            EXPECT_EQ(state().counters.numberOfBytesSent, after["numberOfBytesSent"].get<u32>()) << i;
            for (const Value text : after["written"]) wanted += text.get<std::string>();
            after.read();
        }
    });
    b.world.runFor(ose::SEC);
    EXPECT_EQ(written, wanted);
}

/// A row that runs with the output's line open.
std::function<void(const Value&)> inOutput(void (*check)(const Value&))
{
    return [check](const Value& v) {
        IdleNode b;
        b.in([&] {
            ASSERT_EQ(KvdLoz6TuGps_openSerial(GPS_LINE_OUTPUT), 0);
            check(v);
        });
    };
}

TEST(GpsOutCheckValues, AreMet)
{
    const auto sentences = inOutput(checkSentences);
    vectors::Document document("o05_gpsout.json");
    vectors::eachKind(document["vectors"],
                      {{"gpppr", sentences}, {"gpout", sentences}, {"gnssTimePresent", sentences},
                       {"pprStatus", sentences}, {"towWeek", sentences}, {"classTest", sentences},
                       {"event", sentences}, {"regulatorChange", sentences}, {"writer", checkWriter},
                       {"pllChange", inOutput(checkPllChange)}});
}

TEST(GpsOutCheckValues, Frames)
{
    vectors::Document document("o05_cmcc_hptsi.json");
    vectors::eachKind(document["vectors"], {{"frameOut", checkFrame}},
                      {"crc", "reception", "sequence", "parse", "delay"});      // the time input's
}

}  // namespace
