// Replay of check values: what the time input makes of bytes, of frames, and of what comes in which order.
#include "base/tu_common.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_hptsi_int.h"
#include "reg/support/measure_bench.h"
#include "tests/iif/iif_bench.h"
#include "tests/support/vectors.h"
#include "unit/kvd_ref_table.h"

#include <map>

namespace {

using hptsi::state;
using vectors::json;
using vectors::Value;
using Bytes = std::vector<u8>;

std::string hexOf(std::span<const u8> bytes)
{
    std::string hex;
    for (const u8 b : bytes) {
        constexpr const char* DIGIT = "0123456789abcdef";
        hex += {DIGIT[b >> 4], DIGIT[b & 15]};
    }
    return hex;
}

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
            frames.push_back(hexOf(std::span(reader.buffer).first(CMCC_FRAME_READ)));
    EXPECT_EQ(v["out"]["frames"], frames);
    EXPECT_EQ(reader.frameState, v["out"]["frameState"].get<u32>());
    EXPECT_EQ(reader.index, v["out"]["index"].get<u32>());
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
        in([&] {
            Signal* sig = ose::alloc(static_cast<u32>(4 + size), sigNo);
            if (size > 0) std::memcpy(reinterpret_cast<char*>(sig) + 4, data, size);
            EXPECT_EQ(KvdLoz6TuHptsi_dispatch(sig), 1) << std::hex << sigNo;
            ose::free_buf(&sig);
        });
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
        else if (ev == "timeout" || ev == "signal") dispatch(SIGNALS.at(step["name"].get<std::string>()));
        else if (ev == "toggle") in([&] { KvdLoz6TuHptsi_statusChange(step["present"].get<u32>()); });
        else if (ev == "selectionMode") {
            const u32 mode = step["mode"].get<u32>();
            dispatch(KVD_TUIIF_SELECTION_MODE_CHANGE_IND, &mode, 4);
        } else if (ev == "force") {
            in([&] { KvdLoz6TuHptsi_setForceReport(step.value("value", 1u)); });
        } else if (ev == "override") {
            const bool on = step.contains("clkSource") ? !step["clkSource"].is_null() : step.value("on", 1) != 0;
            const u8 source = on && step.contains("clkSource") ? step["clkSource"].get<u8>() : step.value("value", u8{0});
            in([&] { KvdLoz6TuHptsi_overrideClockSource(on, source); });
        } else if (ev == "supervise") supervise(step);
        else throw std::runtime_error("no replay of the step \"" + ev + "\"");
        world.runUntil(world.now());
    }

    json qualities()
    {
        json all = json::array();
        for (const sim::MpRecord& r : mp().all(KVD_TUIIF_QUALITY_LEVEL_IND)) {
            const auto q = r.as<KvdTuiifQualityLevelInd>();
            all.push_back({"KVD_TUIIF_QUALITY_LEVEL_IND", q->froId, q->froClassNo, q->clockQuality,
                           q->tcuDetected});
        }
        return all;
    }
    json statuses()
    {
        json all = json::array();
        for (const sim::MpRecord& r : mp().all(KVD_TUIIF_HPTSI_STATUS_IND)) {
            const auto status = r.as<KvdTuiifHptsiStatusInd>();
            all.push_back({status->status, status->text});
        }
        return all;
    }
    /// Those of the reports that differ from the one before.
    json changesAmong(const json& reports)
    {
        json changes = json::array();
        for (const json& r : reports) {
            const std::string text = std::to_string(r.at(0).get<u32>()) + " " + r.at(1).get<std::string>();
            if (text != told) changes.push_back(r);
            told = text;
        }
        return changes;
    }
    /// Of those that the check values tell.
    json texts()
    {
        json all = json::array();
        for (const sim::TraceLine& line : node.traces().find({"", "KVD_BVQ_LOZ6_TUHPTSI"})) {
            const bool isOther = line.text.starts_with("Recv cmcc time") ||
                                 line.text.starts_with("HPTSI STATE") ||
                                 line.text.starts_with("SelectionProcessMode");
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

void expectState(Replay& replay, const Value& after)
{
    const hptsi::State s = replay.node.inProgram([] { return state(); });
    EXPECT_EQ(s.hptsiState, after["hptsiState"].get<u32>());
    EXPECT_EQ(s.hptsiCurrentTime, after["hptsiCurrentTime"].get<double>());
    EXPECT_EQ(s.timeInfoValid, after["timeInfoValid"].get<u32>());
    EXPECT_EQ(s.timeStateValid, after["timeStateValid"].get<u32>());
    EXPECT_EQ(s.nextFrame, after["nextFrame"].get<u32>());
    EXPECT_EQ(s.noValid, after["noValidFlag"].get<u32>());
    EXPECT_EQ(s.monitor, after["monitorFlag"].get<u32>());
    EXPECT_EQ(s.qualityType, after["qualityType"].get<u32>());
    EXPECT_EQ(s.numberOfTimeInfoMsg, after["numberOfTimeInfoMsg"].get<u32>());
    EXPECT_EQ(s.numberOfTimeStateMsg, after["numberOfTimeStateMsg"].get<u32>());
    replay.in([&] {
        double time = 0.0;
        EXPECT_EQ(KvdLoz6TuHptsi_time(time) == 7 ? 1u : 0u, after["timeQuery7"].get<u32>());
    });
}

void expectTimers(Replay& replay, const std::array<TimerRef, hptsi::TIMERS>& before, const Value& after)
{
    const auto now = replay.timers();
    const json& restarts = after["restarted"].read();
    const auto has = [](const json& list, const char* name) {
        return std::find(list.begin(), list.end(), name) != list.end();
    };
    for (u32 id = 0; id < hptsi::TIMERS; ++id) {
        const char* const name = TIMER_NAMES[id];
        EXPECT_EQ(now[id] != 0, has(after["timers"].read(), name)) << name;
        // One that is started and cancelled in the same step isn't seen here.
        if (now[id] != 0) {
            EXPECT_EQ(now[id] != before[id], has(restarts, name)) << name;
        }
    }
}

void sequence(const Value& v)
{
    Replay replay;
    const Value steps = v["in"]["steps"];
    for (std::size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i) + " " + steps[i].dump());
        const auto before = replay.timers();
        replay.mp().clearLog();
        replay.node.traces().clear();
        replay.step(steps[i]);
        const Value after = v["out"]["after"][i];
        EXPECT_EQ(replay.statuses(), replay.changesAmong(after["reports"].read()));
        EXPECT_EQ(after["signals"], replay.qualities());
        EXPECT_EQ(after["traces"], replay.texts());
        expectState(replay, after);
        expectTimers(replay, before, after);
    }
}

const std::map<std::string, double (*)(const hptsi::State&)> FRAME_FIELDS = {
    {"tow", [](const auto& s) -> double { return s.timeInfo.tow; }},
    {"week", [](const auto& s) -> double { return s.timeInfo.week; }},
    {"leapSec", [](const auto& s) -> double { return s.timeInfo.leapSec; }},
    {"pp1sState", [](const auto& s) -> double { return s.timeInfo.pp1sState; }},
    {"tacc", [](const auto& s) -> double { return s.timeInfo.tacc; }},
    {"clkSource", [](const auto& s) -> double { return s.timeState.clkSource; }},
    {"state", [](const auto& s) -> double { return s.timeState.state; }},
    {"alarm", [](const auto& s) -> double { return s.timeState.alarm; }}};

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
    for (const char* part : {"info", "state"})
        for (const auto& [name, wanted] : out[part].items())
            EXPECT_EQ(FRAME_FIELDS.at(name)(s), vectors::number(wanted)) << name;
    EXPECT_EQ(s.timeInfoValid, out["timeInfoValid"].get<u32>());
    EXPECT_EQ(s.timeStateValid, out["timeStateValid"].get<u32>());
    EXPECT_EQ(s.hptsiCurrentTime, out["hptsiCurrentTime"].get<double>());
    EXPECT_EQ(s.qualityType, out["qualityType"].get<u32>());
    EXPECT_EQ(s.numberOfTimeInfoMsg, out["numberOfTimeInfoMsg"].get<u32>());
    EXPECT_EQ(s.numberOfTimeStateMsg, out["numberOfTimeStateMsg"].get<u32>());
    EXPECT_EQ(out["signals"], replay.qualities());
    EXPECT_EQ(out["traces"], replay.texts());
}

void compensationDelay(const Value& v)
{
    const Value in = v["in"];
    regtest::MeasureBench b;
    if (in["regulator_started"] == 1) b.settle();
    b.select(in["selectedRef"].get<u32>());
    b.edit([](measure::State& s) { s.var.m[Z_HPTSI_REF] = 50.0; });
    b.in([&] {
        hptsi::setCompensationDelay(in["old_ns"].get<i32>());
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
