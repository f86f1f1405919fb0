// Replay of check values: what the time input makes of bytes, of frames, and of what comes in which order.
#include "mgr/tu_common.h"
#include "ref/kvd_ref.h"
#include "refs/kvd_hptsi_int.h"
#include "reg/support/measure_bench.h"
#include "tests/iif/iif_bench.h"
#include "tests/support/vectors.h"

#include <map>

namespace {

using hptsi::state;
using vectors::json;
using Bytes = std::vector<u8>;

Bytes bytesOf(const std::string& hex)
{
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<u8>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

std::string hexOf(std::span<const u8> bytes)
{
    std::string hex;
    for (const u8 b : bytes) {
        constexpr const char* DIGIT = "0123456789abcdef";
        hex += {DIGIT[b >> 4], DIGIT[b & 15]};
    }
    return hex;
}

TEST(HptsiCheckValues, BytesAndChecksums)
{
    TU_LOAD_VECTORS(document, "o05_cmcc_hptsi.json");
    for (const json& v : document["vectors"]) {
        SCOPED_TRACE(v["id"].get<std::string>());
        const json &in = v["in"], &out = v["out"];
        if (v["kind"] == "crc") {
            const Bytes data = bytesOf(in["data"]);
            EXPECT_EQ(TuCommon_crc8(data.data(), data.size()), out["crc"].get<u8>());
        } else if (v["kind"] == "reception") {
            CmccReader reader;
            json frames = json::array();
            for (const u8 byte : bytesOf(in["bytes"]))
                if (KvdLoz6TuHptsi_takeByte(reader, byte))
                    frames.push_back(hexOf(std::span(reader.buffer).first(CMCC_FRAME_READ)));
            EXPECT_EQ(frames, out["frames"]);
            EXPECT_EQ(reader.frameState, out["frameState"].get<u32>());
            EXPECT_EQ(reader.index, out["index"].get<u32>());
        }
    }
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
    void frame(const std::string& hex)
    {
        const Bytes bytes = bytesOf(hex);
        Bytes data(4 + std::max<std::size_t>(bytes.size(), 4));
        const u32 length = static_cast<u32>(bytes.size());
        std::memcpy(data.data(), &length, 4);
        std::copy(bytes.begin(), bytes.end(), data.begin() + 4);
        dispatch(KVD_TUHPTSI_CMCC_FRAME_REC, data.data(), data.size());
    }
    void step(const json& step)
    {
        const std::string ev = step["ev"];
        if (ev == "frame") {
            frame(step["hex"]);
        } else if (ev == "timeout" || ev == "signal") {
            dispatch(SIGNALS.at(step["name"]));
        } else if (ev == "toggle") {
            in([&] { KvdLoz6TuHptsi_statusChange(step["present"]); });
        } else if (ev == "selectionMode") {
            const u32 mode = step["mode"];
            dispatch(KVD_TUIIF_SELECTION_MODE_CHANGE_IND, &mode, 4);
        } else {
            node.serial().openResult = step.value("subscribe_ok", 1) != 0 ? 0 : 8;
            in([&] {
                auto* ind = node::make<KvdTuiifSynchPathSupInd>(KVD_TUIIF_SYNCH_PATH_SUP_IND);
                ind->on = step["on"];
                Signal* sig = reinterpret_cast<Signal*>(ind);
                KvdLoz6TuHptsi_supervision(sig, ROW_HPTSI);
                ose::free_buf(&sig);
            });
        }
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
            const std::string text = std::to_string(r[0].get<u32>()) + " " + r[1].get<std::string>();
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

void expectState(Replay& replay, const json& after)
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

void expectTimers(Replay& replay, const std::array<TimerRef, hptsi::TIMERS>& before, const json& after)
{
    const auto now = replay.timers();
    const auto has = [](const json& list, const char* name) {
        return std::find(list.begin(), list.end(), name) != list.end();
    };
    for (u32 id = 0; id < hptsi::TIMERS; ++id) {
        const char* const name = TIMER_NAMES[id];
        EXPECT_EQ(now[id] != 0, has(after["timers"], name)) << name;
        // One that is started and cancelled in the same step isn't seen here.
        if (now[id] != 0) {
            EXPECT_EQ(now[id] != before[id], has(after["restarted"], name)) << name;
        }
    }
}

TEST(HptsiCheckValues, FramesAndTimeOutsInOrder)
{
    TU_LOAD_VECTORS(document, "o05_cmcc_hptsi.json");
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "sequence") continue;
        SCOPED_TRACE(v["id"].get<std::string>());
        Replay replay;
        for (std::size_t i = 0; i < v["in"]["steps"].size(); ++i) {
            SCOPED_TRACE("step " + std::to_string(i) + " " + v["in"]["steps"][i].dump());
            const auto before = replay.timers();
            replay.mp().clearLog();
            replay.node.traces().clear();
            replay.step(v["in"]["steps"][i]);
            const json& after = v["out"]["after"][i];
            EXPECT_EQ(replay.statuses(), replay.changesAmong(after["reports"]));
            EXPECT_EQ(replay.qualities(), after["signals"]);
            EXPECT_EQ(replay.texts(), after["traces"]);
            expectState(replay, after);
            expectTimers(replay, before, after);
        }
    }
}

TEST(HptsiCheckValues, WhatAFrameSays)
{
    TU_LOAD_VECTORS(document, "o05_cmcc_hptsi.json");
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "parse") continue;
        SCOPED_TRACE(v["id"].get<std::string>());
        const json &in = v["in"], &out = v["out"];
        Replay replay;
        replay.in([&] {
            state().hptsiState = in["hptsiState"];
            if (!in["override"].is_null()) KvdLoz6TuHptsi_overrideClockSource(true, in["override"]);
        });
        replay.frame(in["frame"]);
        replay.world.runUntil(replay.world.now());
        const hptsi::State s = replay.node.inProgram([] { return state(); });
        if (!out["info"].empty()) {
            const json& info = out["info"];
            EXPECT_EQ(s.timeInfo.tow, info["tow"].get<u32>());
            EXPECT_EQ(s.timeInfo.week, info["week"].get<u32>());
            EXPECT_EQ(s.timeInfo.leapSec, info["leapSec"].get<int>());
            EXPECT_EQ(s.timeInfo.pp1sState, info["pp1sState"].get<u32>());
            EXPECT_EQ(s.timeInfo.tacc, info["tacc"].get<u32>());
        }
        if (!out["state"].empty()) {
            EXPECT_EQ(s.timeState.clkSource, out["state"]["clkSource"].get<u32>());
            EXPECT_EQ(s.timeState.state, out["state"]["state"].get<u32>());
            EXPECT_EQ(s.timeState.alarm, out["state"]["alarm"].get<u32>());
        }
        EXPECT_EQ(s.timeInfoValid, out["timeInfoValid"].get<u32>());
        EXPECT_EQ(s.timeStateValid, out["timeStateValid"].get<u32>());
        EXPECT_EQ(s.hptsiCurrentTime, out["hptsiCurrentTime"].get<double>());
        EXPECT_EQ(s.qualityType, out["qualityType"].get<u32>());
        EXPECT_EQ(s.numberOfTimeInfoMsg, out["numberOfTimeInfoMsg"].get<u32>());
        EXPECT_EQ(s.numberOfTimeStateMsg, out["numberOfTimeStateMsg"].get<u32>());
        EXPECT_EQ(replay.qualities(), out["signals"]);
        EXPECT_EQ(replay.texts(), out["traces"]);
    }
}

TEST(HptsiCheckValues, CompensationDelay)
{
    TU_LOAD_VECTORS(document, "o05_cmcc_hptsi.json");
    for (const json& v : document["vectors"]) {
        if (v["kind"] != "delay") continue;
        SCOPED_TRACE(v["id"].get<std::string>());
        const json& in = v["in"];
        regtest::MeasureBench b;
        if (in["regulator_started"] == 1) b.settle();
        b.select(in["selectedRef"]);
        b.edit([](measure::State& s) { s.var.m[Z_HPTSI_REF] = 50.0; });
        b.in([&] {
            hptsi::setCompensationDelay(in["old_ns"]);
            hptsi::setCompensationDelay(in["new_ns"]);
            EXPECT_EQ(state().hptsiCompensationDelay, v["out"]["delay_s"].get<double>());
        });
        EXPECT_EQ(b.meas().m[Z_HPTSI_REF], v["out"]["restart"] == 1 ? 0.0 : 50.0);
    }
}

}  // namespace
