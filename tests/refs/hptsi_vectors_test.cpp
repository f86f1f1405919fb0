// Replay of check values: what the time input makes of bytes, of frames, and of what comes in which order.
#include "base/tu_common.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_hptsi_int.h"
#include "reg/support/measure_bench.h"
#include "tests/iif/iif_bench.h"
#include "tests/support/hex.h"
#include "tests/support/vectors.h"
#include "unit/kvd_ref_table.h"

#include <map>

namespace {

using hptsi::state;
using vectors::json;
using vectors::Value;
using Bytes = std::vector<u8>;

void checksum(const Value& v)
{
    const Bytes data = vectors::bytes(v["in"]["data"]);
    EXPECT_EQ(TuCommon_crc8(data.data(), data.size()), v["out"]["crc"].get<u8>());
}

void reception(const Value& v)
{
    CmccReader reader;
    json frames = json::array();
    for (const u8 byte : vectors::bytes(v["in"]["bytes"]))
        if (KvdLoz6TuHptsi_takeByte(reader, byte))
            frames.push_back(bench::hexOf(std::data(reader.buffer), CMCC_FRAME_READ));
    vectors::expectAll({{"frames", frames}, {"frameState", reader.frameState}, {"index", reader.index}},
                       v["out"]);
}

// ---- one signal at a time -----------------------------------------------------------------------

const std::map<std::string, SIGSELECT> SIGNALS = {
    {"KVD_TUHPTSI_OPERATIONAL_TIMEOUT", 0x9C670},    {"KVD_TUHPTSI_VALID_TIME_TIMEOUT", 0x9C671},
    {"KVD_TUHPTSI_SERIALPORT_INITIALISED", 0x9C673}, {"KVD_TUHPTSI_SUPR_ALARM_TIMEOUT", 0x9C674},
    {"KVD_TUHPTSI_NO_VALID_TIME_TIMEOUT", 0x9C676},  {"KVD_TUHPTSI_MONITOR_TIMEOUT", 0x9C677},
    {"KVD_TUHPTSI_RECEIVE_FRAMES_TIMEOUT", 0x9C678}};
constexpr const char* TIMER_NAMES[] = {"operational",  "hptsiValid",   "alarmSupression",
                                       "hptsiNoValid", "hptsiMonitor", "receiveFrames"};

struct Replay : bench::IifBench {
    std::string told = "0 NOT OK";       // a status goes out when it is another one

    Replay() { connect(); }

    void dispatch(SIGSELECT sigNo, const void* data = nullptr, std::size_t size = 0)
    {
        IifBench::dispatch(KvdLoz6TuHptsi_dispatch, sigNo, data, size);
    }
    void frame(const Value& hex)
    {
        const Bytes bytes = vectors::bytes(hex);
        Bytes data(4 + std::max<std::size_t>(bytes.size(), 4));
        const u32 length = static_cast<u32>(bytes.size());
        std::memcpy(data.data(), &length, 4);
        std::copy(bytes.begin(), bytes.end(), data.begin() + 4);
        dispatch(KVD_TUHPTSI_CMCC_FRAME_REC, data.data(), data.size());
    }
    void supervise(const Value& step)
    {
        node.serial().openResult = step.value("subscribe_ok", 1) != 0 ? 0 : 8;
        in([&] {
            auto* ind = node::make<KvdTuiifSynchPathSupInd>(KVD_TUIIF_SYNCH_PATH_SUP_IND);
            ind->on = step["on"].get<u32>();
            Signal* sig = reinterpret_cast<Signal*>(ind);
            KvdLoz6TuHptsi_supervision(sig, ROW_HPTSI);
            ose::free_buf(&sig);
        });
    }
    void step(const Value& step)
    {
        const std::string ev = step["ev"].get<std::string>();
        if (ev == "frame") frame(step["hex"]);
        else if (ev == "timeout" || ev == "signal")
            dispatch(vectors::rowOf(SIGNALS, step["name"].get<std::string>()));
        else if (ev == "toggle") in([&] { KvdLoz6TuHptsi_statusChange(step["present"].get<u32>()); });
        else if (ev == "selectionMode") {
            const u32 mode = step["mode"].get<u32>();
            dispatch(KVD_TUIIF_SELECTION_MODE_CHANGE_IND, &mode, 4);
        } else if (ev == "force") {
            in(KvdLoz6TuHptsi_setForceReport);
        } else if (ev == "override") {
            const bool isNamed = step.contains("clkSource");
            const bool on = isNamed ? !step["clkSource"].is_null() : step.value("on", 1) != 0;
            const u8 source = on && isNamed ? step["clkSource"].get<u8>() : step.value("value", u8{0});
            in([&] { KvdLoz6TuHptsi_overrideClockSource(on, source); });
        } else if (ev == "supervise") supervise(step);
        else throw std::runtime_error("no replay of the step \"" + ev + "\"");
        world.runUntil(world.now());
    }

    /// Those of the reports that differ from the one before.
    std::vector<std::string> changesAmong(const json& reports)
    {
        std::vector<std::string> changes;
        for (const json& r : reports) {
            const std::string text = std::to_string(r.at(0).get<u32>()) + " " + r.at(1).get<std::string>();
            if (text != std::exchange(told, text)) changes.push_back(text);
        }
        return changes;
    }
    /// Of those that the check values tell.
    json texts()
    {
        json all = json::array();
        for (const sim::TraceLine& line : node.traces().find({"", "KVD_BVQ_LOZ6_TUHPTSI"})) {
            const bool isOther = line.text.starts_with("Recv cmcc time")
                                 || line.text.starts_with("HPTSI STATE")
                                 || line.text.starts_with("SelectionProcessMode");
            if (!isOther) all.push_back(line.text);
        }
        return all;
    }
    std::array<TimerRef, hptsi::TIMERS> timers()
    {
        return node.inProgram([] {
            std::array<TimerRef, hptsi::TIMERS> refs{};
            for (u32 id = 0; id < hptsi::TIMERS; ++id) refs[id] = state().timers[id].ref;
            return refs;
        });
    }
};

/// What the last frames left.
void expectFrames(const hptsi::State& s, const Value& out)
{
    vectors::expectAll({{"hptsiCurrentTime", s.hptsiCurrentTime}, {"timeInfoValid", s.timeInfoValid},
                        {"timeStateValid", s.timeStateValid}, {"qualityType", s.qualityType},
                        {"numberOfTimeInfoMsg", s.numberOfTimeInfoMsg},
                        {"numberOfTimeStateMsg", s.numberOfTimeStateMsg}}, out);
}

void expectState(Replay& replay, const Value& after)
{
    const hptsi::State s = replay.node.inProgram([] { return state(); });
    u32 timeQuery = 0;
    replay.in([&] {
        double time = 0.0;
        timeQuery = KvdLoz6TuHptsi_time(time);
    });
    expectFrames(s, after);
    vectors::expectAll({{"hptsiState", s.hptsiState}, {"nextFrame", s.nextFrame}, {"noValidFlag", s.noValid},
                        {"monitorFlag", s.monitor}, {"timeQuery7", timeQuery == 7}}, after);
}

void expectTimers(Replay& replay, const std::array<TimerRef, hptsi::TIMERS>& before, const Value& after)
{
    const auto now = replay.timers();
    const json& restarts = after["restarted"].read();
    for (const char* list : {"timers", "restarted"})
        for (const json& name : after[list].read())
            if (std::ranges::find(TIMER_NAMES, name) == std::end(TIMER_NAMES))
                throw std::runtime_error("no timer " + name.dump());
    const auto has = [](const json& list, const char* name) {
        return std::find(list.begin(), list.end(), name) != list.end();
    };
    for (u32 id = 0; id < hptsi::TIMERS; ++id) {
        const char* const name = TIMER_NAMES[id];
        EXPECT_EQ(now[id] != 0, has(after["timers"].read(), name)) << name;
        // One that is started and cancelled in the same step isn't seen here.
        if (now[id] != 0) { EXPECT_EQ(now[id] != before[id], has(restarts, name)) << name; }
    }
}

void sequence(const Value& v)
{
    Replay replay;
    const Value steps = v["in"]["steps"];
    for (std::size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE(testing::Message() << "step " << i << " " << steps[i]);
        const auto before = replay.timers();
        replay.mp().clearLog();
        replay.node.traces().clear();
        replay.step(steps[i]);
        const Value after = v["out"]["after"][i];
        constexpr auto STATUS = &KvdTuiifHptsiStatusInd::status;
        EXPECT_EQ(bench::statusTexts(replay.mp(), KVD_TUIIF_HPTSI_STATUS_IND, STATUS),
                  replay.changesAmong(after["reports"].read()));
        EXPECT_EQ(after["signals"], replay.qualities());
        EXPECT_EQ(after["traces"], replay.texts());
        expectState(replay, after);
        expectTimers(replay, before, after);
    }
}

void parse(const Value& v)
{
    const Value in = v["in"], out = v["out"];
    Replay replay;
    replay.in([&] {
        state().hptsiState = in["hptsiState"].get<decltype(state().hptsiState)>();
        if (!in["override"].is_null()) KvdLoz6TuHptsi_overrideClockSource(true, in["override"].get<u8>());
    });
    replay.frame(in["frame"]);
    replay.world.runUntil(replay.world.now());
    const hptsi::State s = replay.node.inProgram([] { return state(); });
    const json got = {{"tow", s.timeInfo.tow}, {"week", s.timeInfo.week}, {"leapSec", s.timeInfo.leapSec},
                      {"pp1sState", s.timeInfo.pp1sState}, {"tacc", s.timeInfo.tacc},
                      {"alarm", s.timeState.alarm}, {"clkSource", s.timeState.clkSource},
                      {"state", s.timeState.state}};
    for (const char* part : {"info", "state"})
        for (const auto& [name, wanted] : out[part].items()) vectors::expect(name, got.at(name), wanted);
    expectFrames(s, out);
    EXPECT_EQ(out["signals"], replay.qualities());
    EXPECT_EQ(out["traces"], replay.texts());
}

void compensationDelay(const Value& v)
{
    const Value in = v["in"];
    regtest::MeasureBench b;
    if (in["regulator_started"] == 1) b.settle();
    b.select(in["selectedRef"].get<u32>());
    b.in([&] { hptsi::setCompensationDelay(in["old_ns"].get<i32>()); });
    b.edit([](measure::State& s) { s.var.m[Z_HPTSI_REF] = 50.0; });
    b.in([&] {
        hptsi::setCompensationDelay(in["new_ns"].get<i32>());
        EXPECT_EQ(state().hptsiCompensationDelay, v["out"]["delay_s"].get<double>());
    });
    EXPECT_EQ(b.meas().m[Z_HPTSI_REF], v["out"]["restart"] == 1 ? 0.0 : 50.0);
}

TEST(HptsiCheckValues, AreMet)
{
    vectors::Document document("o05_cmcc_hptsi.json");
    vectors::eachKind(document["vectors"],
                      {{"crc", checksum}, {"reception", reception}, {"sequence", sequence}, {"parse", parse},
                       {"delay", compensationDelay}},
                      {"frameOut"});                     // the output's
}

}  // namespace
