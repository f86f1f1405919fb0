// Replay of check values: what the GPS output says, its events, and its way to the driver.
#include "gps/kvd_gps_out_int.h"
#include "gps/kvd_gps_serial.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_int.h"
#include "node/trace.h"
#include "tests/support/idle_node.h"
#include "tests/support/vectors.h"

namespace {

using gpsout::state;
using vectors::Value;

/// A condition of the file that isn't one is null.
bool isSet(const Value& in, const char* key, int otherwise)
{
    if (!in.contains(key)) return otherwise != 0;
    return !in[key].is_null() && in[key] != 0;
}

void checkEvent(const Value& in, const Value& out)
{
    state() = {};
    state().gpsOutState = in["state"];
    state().gpsTimeLocked = in["state"] == 5 ? 1 : 0;
    regulator::state().masterSlaveMode = isSet(in, "master", 1) ? 1 : 0;
    state().master.selectedRef = isSet(in, "output_may_be_on", 1) ? 6 : 14;
    const bool isUsable = isSet(in, "time_usable", 0), isKnown = isSet(in, "offset_known", 0);
    KvdLoz6TuReg_forceRegState(isKnown ? TRUETIME : isUsable ? FREQLOCKED : FREQDRIFTING);
    state().master.regState = isUsable ? FREQLOCKED : FREQDRIFTING;
    gpsout::changeState(in["event"]);
    const vectors::json got = {{"state", state().gpsOutState}, {"gpsTimeLocked", state().gpsTimeLocked},
                               {"pp1sAligned", state().pp1sAligned}, {"dropped_set", state().dropped},
                               {"graceTimer", state().graceTimer.runs()}};
    for (const auto& [key, value] : got.items())
        if (out.contains(key)) vectors::expect(key, value, out[key]);
}

void checkRegulatorChange(const Value& in, const Value& out)
{
    state() = {};
    state().gpsOutState = in["state"];
    state().gpsTimeLocked = in["state"] == 5 ? 1 : 0;
    regulator::state().masterSlaveMode = isSet(in, "master", 1) ? 1 : 0;
    // Whether the time is usable is read off the regulator's state: one that is locked always is.
    KvdLoz6TuReg_forceRegState(in["time_usable"] == 1 ? in["regState"].get<u8>() : u8{FREQDRIFTING});
    KvdLoz6GpsOut_regStateChanged();
    in["regState"].read();
    // The state that the event leads to, where it is allowed.
    EXPECT_EQ(state().gpsOutState, (out["event"].is_null() ? in["state"] : out["event"]).get<u32>());
}

void expectSentence(const Value& out, std::string_view got)
{
    EXPECT_EQ(out["sentence"].is_null() ? std::string() : out["sentence"].get<std::string>(), got);
}

void gpppr(const Value& in, const Value& out)
{
    constexpr std::array<u32, 4> STATE_OF_STATUS = {6, 4, 3, 3};
    const u32 gpsOutState = STATE_OF_STATUS.at(in["status"].get<u32>());
    expectSentence(out, gpsout::gppprSentence(in["tow"], in["week"], gpsOutState));
}
void gpout(const Value& in, const Value& out)
{
    expectSentence(out, gpsout::gpoutSentence(in["radioClockState"], in["jump"] != 0, in["gnssTime"],
                                              in["slave"] != 0));
    out["value"].read();                                              // stands in the sentence
}
void gnssTimePresent(const Value& in, const Value& out)
{
    const u8 stored = in["storedSelectedRef"], shown = in["clientViewSelectedRef"];
    EXPECT_EQ(gpsout::gnssTimePresent(stored, in["master"] != 0, shown), out["value"].get<u8>());
}
void pprStatus(const Value& in, const Value& out)
{
    EXPECT_EQ(gpsout::gppprStatus(in["gpsOutState"]), out["status"].get<u8>());
}
void towWeek(const Value& in, const Value& out)
{
    gpsout::setTime(in["gpsTime"].get<double>());
    EXPECT_EQ(state().gpsTimeWeek, out["week"].get<u32>());
    EXPECT_EQ(state().gpsTimeTOW, out["tow"].get<u32>());
}
void classTest(const Value& in, const Value& out)
{
    EXPECT_EQ(gpsout::classTest(in["regState"], in["rcState"]) ? 1 : 0, out["true"].get<int>());
}

void checkPllChange(const Value& in, const Value& out)
{
    const u8 regState = in["storedRegState"].get<u8>();
    state() = {};
    state().gpsOutState = in["state"].get<u32>();
    state().pp1sAligned = in["aligned"].get<u32>();
    state().master.regState = regState;
    state().master.selectedRef = 6;
    const bool wanted = in["classTest"] == 1;
    for (u8 n = 0; n < 16 && gpsout::classTest(regState, state().master.rcState) != wanted; ++n)
        state().master.rcState = n;
    KvdLoz6GpsOut_pllStateChanged(in["pllState"].get<u32>());
    // The state that the event leads to.
    EXPECT_EQ(state().gpsOutState, (out["event"].is_null() ? in["state"] : out["event"]).get<u32>());
}

void checkFrame(const Value& v)
{
    const Value in = v["in"];
    const std::string kind = in["kind"].get<std::string>();
    if (kind != "time info" && kind != "time state") throw std::runtime_error("no frame " + kind);
    const bool isInfo = kind == "time info";
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
    std::string written, wanted;
    std::vector<std::string> traces;
    b.node.serial().onHeard([&](const auto& bytes) { written.append(bytes.begin(), bytes.end()); });
    b.in([&] {
        ASSERT_EQ(KvdLoz6TuGps_openSerial(GPS_LINE_OUTPUT), 0);
        node::traceSetProgramMask(0xFFFFFFFF);
        state().gpsOutState = gpsout::OUT_NOTHING_LOCKED;
        for (u32 i = 0; i < v["in"]["ops"].size(); ++i) {
            SCOPED_TRACE(i);
            const std::string op = v["in"]["ops"][i].get<std::string>();
            const Value after = v["out"]["after"][i];
            if (op == "t") endPacing();
            else           gpsout::write(op);
            vectors::expectAll({{"busy", state().driverBusy}, {"queued", state().sendQueue.size()},
                                {"numberOfNmeaMsgs", state().counters.numberOfNmeaMsgs},
                                {"numberOfBytesSent", state().counters.numberOfBytesSent},
                                {"timer", state().simIntTmoRef.runs()}}, after);
            for (const Value text : after["written"]) wanted += text.get<std::string>();
            for (const Value text : after["traces"]) traces.push_back(text.get<std::string>());
        }
    });
    b.world.runFor(ose::SEC);
    EXPECT_EQ(written, wanted);
    for (const std::string& text : traces)                            // a trace holds so much of a long one
        EXPECT_TRUE(b.node.traces().has(text.substr(0, 60))) << text;
}

/// A row that runs with the output's line open.
std::function<void(const Value&)> inOutput(void (*check)(const Value& in, const Value& out))
{
    return [check](const Value& v) {
        IdleNode b;
        b.in([&] {
            ASSERT_EQ(KvdLoz6TuGps_openSerial(GPS_LINE_OUTPUT), 0);
            node::traceSetProgramMask(0xFFFFFFFF);
            check(v["in"], v["out"]);
        });
        for (const char* key : {"trace", "trace_format"}) {           // up to the numbers of a format
            if (!v["out"].contains(key) || v["out"][key].is_null()) continue;
            const std::string text = v["out"][key].get<std::string>();
            const bool isSilent = text.starts_with("GPS OUT STATE") && v["in"]["state"] == v["out"]["state"];
            EXPECT_NE(b.node.traces().has(text.substr(0, text.find('%'))), isSilent) << text;
        }
    };
}

TEST(GpsOutCheckValues, AreMet)
{
    vectors::Document document("o05_gpsout.json");
    vectors::eachKind(document["vectors"],
                      {{"gpppr", inOutput(gpppr)}, {"gpout", inOutput(gpout)},
                       {"pprStatus", inOutput(pprStatus)},
                       {"gnssTimePresent", inOutput(gnssTimePresent)}, {"towWeek", inOutput(towWeek)},
                       {"classTest", inOutput(classTest)}, {"event", inOutput(checkEvent)},
                       {"regulatorChange", inOutput(checkRegulatorChange)}, {"writer", checkWriter},
                       {"pllChange", inOutput(checkPllChange)}});
}

TEST(GpsOutCheckValues, Frames)
{
    vectors::Document document("o05_cmcc_hptsi.json");
    vectors::eachKind(document["vectors"], {{"frameOut", checkFrame}},
                      {"crc", "reception", "sequence", "parse", "delay"});      // the time input's
}

}  // namespace
