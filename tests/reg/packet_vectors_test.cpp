// Replay of check values: packet delays, floors, phases and variances, both packet measurements, the
// delay history and its limits.
#include "reg/support/packet_bench.h"
#include "support/vectors.h"

#include <cmath>
#include <map>
#include <set>

using regtest::PacketBench;
using vectors::json;

namespace {

PktTimeMsg packetOf(const json& p)
{
    PktTimeMsg m{};
    m.syncIntervalMs = p[0];
    m.T1_s = p[1], m.T1_ns = p[2];
    m.T2_s = p[3], m.T2_ns = p[4];
    m.T3_s = p[5], m.T3_ns = p[6];
    m.T4_s = p[7], m.T4_ns = p[8];
    m.asymComp = p[9];
    return m;
}

void expectRelative(double is, const json& wanted, double tolerance, const char* what)
{
    const double w = wanted.get<double>();
    EXPECT_NEAR(is, w, std::fabs(w) * tolerance + 1e-18) << what;
}

void expectTime(TimePair is, const json& wanted, double tolerance)
{
    const double w = wanted.get<double>();          // one double: years away it has steps of 60 ns
    const double step = std::nextafter(std::fabs(w), HUGE_VAL) - std::fabs(w);
    EXPECT_NEAR(is.c + is.f, w, std::max(tolerance, 2 * step));
}

std::vector<u8> refStatesOf(const json& events)
{
    std::vector<u8> states;
    for (const json& e : events)
        if (e[0] == "refState") states.push_back(e[1]);
    return states;
}

u32 appended(u32 type)
{
    for (const packet::HistoryPlace& p : packet::state().history.places)
        if (p.used != 0 && p.type == type) return p.count;
    return 0;
}

TEST(PacketCheckValues, DelaysRatesFloorsAndPhases)
{
    TU_LOAD_VECTORS(delay, "o03_pkt_delay.json");
    TU_LOAD_VECTORS(rate, "o03_pkt_rate.json");
    TU_LOAD_VECTORS(track, "o03_pkt_track.json");
    TU_LOAD_VECTORS(phase, "o03_pkt_phase.json");
    for (const json& c : delay["cases"]) {
        SCOPED_TRACE(c.dump());
        const PktTimeMsg m = packetOf(c["packet"]);
        expectTime(packet::delay21(m), c["z21"], 1e-12);
        expectTime(packet::delay43(m), c["z43"], 1e-12);
        const double mean = packet::meanPathDelay(m, m);
        EXPECT_NEAR(mean, c["meanPathDelay"].get<double>(), 1e-12);
        const bool atLimit = std::fabs(mean) <= 1e-12 || std::fabs(mean - 0.45) <= 1e-12;
        EXPECT_TRUE(atLimit || packet::isRoundTripOk(mean) == (c["roundTripOk"] == 1));
    }
    for (const json& row : rate["cases"][0]["table"])
        EXPECT_EQ(packet::packetRate(row[0]), row[1].get<u16>()) << row;
    for (const json& c : track["cases"]) {
        packet::Floor floor{packet::NO_DELAY_YET, {0.0, c["minMin"]}, 0};
        i32 stored = -1;
        for (u32 i = 0; i < c["steps"].size(); ++i) {
            const json& step = c["steps"][i];
            if (packet::trackDelay({0.0, step[0]}, floor)) stored = static_cast<i32>(i);
            expectTime(floor.min, step[1], 0.0);
            expectTime(floor.minMin, step[2], 0.0);
            EXPECT_EQ(floor.close, step[3].get<u32>());
            EXPECT_EQ(stored, step[4].get<i32>());
        }
    }
    PacketBench b(Z_PKT_TIME_REF);
    b.inManager([&] {
        for (const json& c : phase["cases"]) {
            SCOPED_TRACE(c.dump());
            KvdLoz6TuReg_setMod(c["t_mod_old"]);
            KvdLoz6TuReg_setOffset(c["delta0"][0], c["delta0"][1]);
            b.diff = {c["diff"][0], c["diff"][1]};
            b.sfcPtpOffset = c["sfcPtpOffset"];
            const double t_mod = c["t_mod"];
            const double tolerance = t_mod > 1.0 ? 1e-6 : 1e-9;
            EXPECT_NEAR(packet::phaseError(packetOf(c["a"]), packetOf(c["b"]), t_mod),
                        c["z"].get<double>(), tolerance);
            EXPECT_EQ(KvdLoz6TuReg_getMod(), c["t_mod_oldAfter"].get<double>());
            const TimePair after = KvdLoz6TuReg_getOffset();
            EXPECT_NEAR((after.c - c["delta0After"][0].get<double>()) +
                            (after.f - c["delta0After"][1].get<double>()),
                        0.0, tolerance);
        }
    });
}

TEST(PacketCheckValues, Variances)
{
    TU_LOAD_VECTORS(second, "o03_pkt_var2.json");
    TU_LOAD_VECTORS(running, "o03_pkt_runvar.json");
    PacketBench b(Z_PKT_TIME_REF);
    b.inManager([&] {
        for (const json& c : second["cases"]) {
            packet::SecondDifference v;
            if (c["long"] == 1) packet::startLong(v);
            u32 index = 0;
            for (const json& step : c["steps"]) {
                SCOPED_TRACE(c["name"].get<std::string>() + " " + std::to_string(index++));
                packet::takeSample(v, step[0]);
                double ratio = 0;
                const bool major = packet::varianceJumpCheck(v, &ratio);
                EXPECT_EQ(v.skip, step[1].get<u32>());
                EXPECT_EQ(v.idx, step[2].get<u32>());
                EXPECT_EQ(v.full, step[3].get<u32>());
                expectRelative(v.var, step[4], 1e-9, "var");
                ASSERT_EQ(major, !step[5].is_null());
                EXPECT_NEAR(ratio, major ? step[5].get<double>() : 0.0, 1e-6);
            }
        }
        for (const json& c : running["cases"]) {
            packet::RunningVariance v;
            v.window = c["window"];
            for (const json& step : c["steps"]) {
                if (!step[0].is_number()) {
                    packet::resetRunningVariance(&v);
                    continue;
                }
                const double* const variance = packet::runningVariance(&v, {0.0, step[0]});
                const double mean = step[0].get<double>();
                EXPECT_NEAR(*variance, step[1].get<double>(),
                            1e-6 * std::fabs(step[1].get<double>()) + 1e-15 * mean * mean);
            }
        }
        EXPECT_EQ(packet::runningVariance(nullptr, {0.0, 1.0}), nullptr);
    });
}

TEST(PacketCheckValues, FrequencyReference)
{
    TU_LOAD_VECTORS(document, "o03_pkt_freq.json");
    for (const json& c : document["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        const u32 z_i = c["z_i"];
        const json& init = c["init"];
        PacketBench b(z_i);
        b.inManager([&] {
            MeasStateVar& v = measure::state().var;
            v.t_mod_old = init.value("t_mod_old", 0.0);
            v.m[z_i] = init.value("m", 0.0);
            v.R_all[z_i] = init.value("R", 5e-7);
            v.pktRate = init.value("rate", u8{10});
            const json delta0 = init.value("delta0", json::array({0.0, 0.0}));
            KvdLoz6TuReg_setOffset(delta0[0], delta0[1]);
            const json last = init.value("t_last", json::array({-1.0, 0.0}));
            KvdLoz6TuReg_setLastTime(last[0], last[1]);
            packet::state().highPdvCounter = init.value("highPdvCounter", 0u);
        });
        for (u32 i = 0; i < c["steps"].size(); ++i) {
            SCOPED_TRACE(i);
            const json& step = c["steps"][i];
            b.putRun({step["counter"][0], step["counter"][1], step["counter"][2]});
            b.R_est = step["R_est"];
            b.refStates.clear();
            b.estimated.reset();
            b.inManager([&] {
                const u32 type = z_i == Z_NTP_REF ? 0 : 1;
                const u32 before = appended(type);
                // The file also tells WARMUP, in which no measurement is let in.
                KvdLoz6TuReg_forceRegState(std::max<u8>(step["regState"].get<u8>(), SYNCH1));
                double T[8];
                for (u32 k = 0; k < 8; ++k) T[k] = step["T"][k];
                KvdLoz6TuReg_handlePktFreqMsg(T);
                const MeasStateVar& v = measure::state().var;
                ASSERT_TRUE(b.estimated.has_value());
                const json& meas = step["meas"];
                EXPECT_NEAR(b.estimated->z, meas["z"].get<double>(), 1e-9);
                EXPECT_EQ(b.estimated->z_i, meas["z_i"].get<u32>());
                EXPECT_NEAR(b.estimated->t_s, meas["t_s"].get<double>(), 1e-9);
                EXPECT_EQ(b.estimated->m, meas["m"].get<double>());
                expectRelative(b.estimated->R, meas["R"], 1e-12, "R");
                EXPECT_NEAR(packet::state().supervision.lastPhase, step["phase"].get<double>(), 1e-9);
                EXPECT_NEAR(v.delta0_f, step["delta0"][1].get<double>(), 1e-9);
                EXPECT_EQ(v.t_mod_old, step["t_mod_old"].get<double>());
                EXPECT_EQ(v.m[z_i], step["m"].get<double>());
                EXPECT_EQ(packet::state().highPdvCounter, step["highPdvCounter"].get<u32>());
                EXPECT_EQ(v.pktRate, step["pktRate"].get<u8>());
                u32 appends = 0;
                for (const json& e : step["events"]) appends += e[0] == "historyAppend" ? 1 : 0;
                EXPECT_EQ(appended(type) - before, appends);
                EXPECT_EQ(b.refStates, refStatesOf(step["events"]));
            });
            if (HasFailure()) return;
        }
    }
}

/// One packet of the time reference, held against what the file has for it; nothing for most.
void compareTime(PacketBench& b, const json& out)
{
    const packet::TimeFilter& f = packet::state().filter;
    const MeasStateVar& v = measure::state().var;
    EXPECT_EQ(f.numberOfPkts, out["n"].get<u32>());
    expectTime(f.down.minMin, out["floor"][0], 1e-9);
    expectTime(f.up.minMin, out["floor"][1], 1e-9);
    expectTime(f.roundTrip.minMin, out["floor"][2], 1e-9);
    EXPECT_EQ(f.down.close, out["close"][0].get<u32>());
    EXPECT_EQ(f.up.close, out["close"][1].get<u32>());
    EXPECT_EQ(f.roundTrip.close, out["close"][2].get<u32>());
    EXPECT_EQ(f.floorGain21, out["gain"][0].get<double>());
    EXPECT_EQ(f.floorGain43, out["gain"][1].get<double>());
    EXPECT_EQ(f.jumpCount21, out["jumpCount"][0].get<u8>());
    EXPECT_EQ(f.jumpCount43, out["jumpCount"][1].get<u8>());
    EXPECT_NEAR(f.stdDev21, out["stdDev"][0].get<double>(), 1e-10);
    EXPECT_NEAR(f.stdDev43, out["stdDev"][1].get<double>(), 1e-10);
    EXPECT_EQ(v.m[Z_PKT_TIME_REF], out["m"].get<double>());
    EXPECT_EQ(f.secOffset, out["secOffset"].get<i32>());
    const json& meas = out["meas"];
    ASSERT_EQ(b.estimated.has_value(), !meas.is_null());
    if (meas.is_null()) return;
    EXPECT_NEAR(b.estimated->z, meas["z"].get<double>(), 1e-9);
    EXPECT_NEAR(b.estimated->t_s, meas["t_s"].get<double>(), 1e-9);
    EXPECT_EQ(b.estimated->m, meas["m"].get<double>());
    expectRelative(b.estimated->R, meas["R"], 1e-6, "R");
    expectRelative(f.syncVar.var, meas["syncVar"], 1e-6, "syncVar");
    expectRelative(f.delayVar.var, meas["delayVar"], 1e-6, "delayVar");
    // What 48 bits of whole ns hold; an offset of years runs over.
    const double turn = 281474976710656.0;
    EXPECT_NEAR(std::remainder(static_cast<double>(*b.offsetFromMaster) / 65536 -
                                   meas["offsetFromMaster_ns"].get<double>(), turn),
                0.0, 512.0);
    EXPECT_NEAR(static_cast<double>(*b.meanPathDelay), meas["meanPathDelay_ns"].get<double>(), 1.0);
    EXPECT_EQ(f.syncPacket.T1_s, meas["syncT1"][0].get<i64>());
    EXPECT_EQ(f.syncPacket.T1_ns, meas["syncT1"][1].get<i32>());
    EXPECT_EQ(f.delayPacket.T3_ns, meas["delayT3"][1].get<i32>());
    EXPECT_NEAR((v.delta0_c - meas["delta0"][0].get<double>()) +
                    (v.delta0_f - meas["delta0"][1].get<double>()),
                0.0, 1e-9);
    EXPECT_EQ(v.t_mod_old, meas["t_mod_old"].get<double>());
}

/// Traces that the file's events stand for.
void compareTimeTraces(PacketBench& b, const json& events)
{
    struct Told { const char* event; const char* trace; };
    for (const Told& t : std::to_array<Told>({
             {"newMean", "new mean found: "}, {"highPdvEntered", "High PDV criteria for 1588J3 profile entered"},
             {"highPdvLeft", "High PDV criteria for 1588J3 profile left"},
             {"notReliableEntered", "Not Reliable criteria for 1588J3 profile entered"},
             {"notReliableLeft", "Not Reliable criteria for 1588J3 profile left"},
             {"timerExpired", "PTP time sync ref "}})) {
        std::size_t wanted = 0;
        for (const json& e : events) wanted += e[0] == t.event ? 1 : 0;
        EXPECT_EQ(b.traced(t.trace), wanted) << t.event;
    }
}

TEST(PacketCheckValues, TimeReference)
{
    TU_LOAD_VECTORS(document, "o03_pkt_time.json");
    const std::map<std::string, u32> TIMER = {{"PDV", 0}, {"NOT_RELIABLE", 1},
                                              {"LOCK_1588J3", 2}, {"LOCK_G82751", 3}};
    for (const json& c : document["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        const json& init = c["init"];
        PacketBench b(Z_PKT_TIME_REF);
        b.profile = init["profile"];
        b.diff = {init["diff"][0], init["diff"][1]};
        b.sfcPtpOffset = init["sfcPtpOffset"];
        b.inManager([&] {
            KvdLoz6TuReg_onPktTimeRefInit();
            KvdLoz6TuReg_restartPdvHistory(2, 1);
            MeasStateVar& v = measure::state().var;
            v.t_mod_old = init["t_mod_old"];
            v.m[Z_PKT_TIME_REF] = init["m"];
            KvdLoz6TuReg_setOffset(init["delta0"][0], init["delta0"][1]);
            KvdLoz6TuReg_setLastTime(init["t_last"][0], init["t_last"][1]);
        });
        std::map<u32, json> outs;
        for (const json& out : c["out"]) outs[out["i"]] = out;
        std::set<u32> running;
        const double first = tuHwIf_sfcToIncrements(c["firstCounter"][0], c["firstCounter"][1],
                                                    c["firstCounter"][2]) / 122880000.0;
        for (u32 i = 0; i < c["packets"].size(); ++i) {
            SCOPED_TRACE("packet " + std::to_string(i));
            const json& p = c["packets"][i];
            b.refStates.clear();
            b.estimated.reset();
            b.bus.traces.clear();
            b.world.runUntil(b.start + static_cast<ose::Time>(p[2].get<double>()) * ose::MS);
            if (c["ops"].contains(std::to_string(i)))
                for (const json& op : c["ops"][std::to_string(i)]) {
                    b.profile = op[1];
                    struct Change { SIGSELECT sigNo; u8 ptpProfile; };
                    b.inject(Change{KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND, b.profile});
                }
            const auto out = outs.find(i);
            if (out != outs.end()) {
                const json& counter = out->second["counter"];
                b.putRun({counter[0], counter[1], counter[2]});
            } else {
                b.run(std::fmod(first + p[2].get<double>() / 1000, 1024.0));
            }
            b.inManager([&] {
                const u32 before = appended(2);
                KvdLoz6TuReg_forceRegState(p[1]);
                KvdLoz6TuReg_handlePktTimeMsg(packetOf(p[0]));
                if (out == outs.end()) return;
                compareTime(b, out->second);
                u32 appends = 0;
                for (const json& e : out->second["events"]) {
                    appends += e[0] == "historyAppend" ? 1 : 0;
                    if (e[0] == "timerStart") running.insert(TIMER.at(e[1]));
                    if (e[0] == "timerStop" || e[0] == "timerExpired") running.erase(TIMER.at(e[1]));
                }
                const u32 after = before + appends;
                EXPECT_EQ(appended(2), after < 40 ? after : after - 20);
                for (u32 t = 0; t < 4; ++t)
                    EXPECT_EQ(packet::pdvTimerRuns(t), running.contains(t)) << t;
                EXPECT_EQ(b.refStates, refStatesOf(out->second["events"]));
                if (b.profile == 0) compareTimeTraces(b, out->second["events"]);
            });
            if (HasFailure()) return;
        }
    }
}

TEST(PacketCheckValues, HistoryAndLimits)
{
    TU_LOAD_VECTORS(document, "o03_pdv_history.json");
    PacketBench b(Z_PKT_TIME_REF);
    b.inManager([&] {
        const u32 CLASS_OF[] = {2, 5, 4};
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c["name"].get<std::string>());
            packet::state().history = {};
            for (const json& step : c["steps"]) {
                const json& op = step["op"];
                const u32 type = op[1], id = op[2];
                if (op[0] == "add") KvdLoz6TuReg_registerPacketRef(CLASS_OF[type], id);
                else if (op[0] == "remove") KvdLoz6TuReg_deregisterPacketRef(CLASS_OF[type], id);
                else if (op[0] == "restart") KvdLoz6TuReg_restartPdvHistory(type, id);
                else {
                    packet::state().history.currentId[type] = id;
                    EXPECT_EQ(packet::historyEntry(type, op[3] != 0, op[4][0], op[4][1]),
                              step["rule"] != 0)
                        << step;
                }
            }
            for (u32 i = 0; i < c["end"].size(); ++i) {
                const json& end = c["end"][i];
                const packet::HistoryPlace& p = packet::state().history.places[i];
                EXPECT_EQ(p.type, end["type"].get<u32>());
                EXPECT_EQ(p.refId, end["id"].get<u32>());
                EXPECT_EQ(p.count, end["count"].get<u32>());
                EXPECT_EQ(p.first, end["first"].get<u32>());
                for (u32 k = 0; k < end["oldestToNewest"].size(); ++k)
                    EXPECT_EQ(p.records[(p.first + k) % 20].values[0],
                              end["oldestToNewest"][k][0].get<double>());
            }
        }
        for (const json& t : document["threshold"]) {
            KvdLoz6TuReg_setPdvThreshold(t["type"], t["nanoseconds"]);
            const u32 index = t["type"] == 4 ? 2 : t["type"] == 5 ? 1 : 0;
            EXPECT_NEAR(packet::state().pdvThreshold[index], t["stored"].get<double>(), 1e-18);
        }
        for (const json& t : document["thresholdText"]) {
            for (const u32 type : {2u, 4u, 5u}) KvdLoz6TuReg_setPdvThreshold(type, 0);
            for (const auto& [type, ns] : t["set"].items())
                KvdLoz6TuReg_setPdvThreshold(static_cast<u32>(std::stoul(type)), ns);
            char text[512];
            KvdLoz6TuReg_pdvThresholdText(text, sizeof text);
            EXPECT_EQ(text, t["text"].get<std::string>());
        }
    });
}

}  // namespace
