// Replay of check values: packet delays, floors, phases and variances, both packet measurements, the
// delay history and its limits, the supervision.
#include "mp/kvd_iifadm_state.h"
#include "reg/support/packet_bench.h"
#include "support/vectors.h"

#include <cmath>
#include <map>
#include <set>

using regtest::PacketBench;
using vectors::expectNear;
using vectors::json;
using vectors::Value;

namespace {

double num(const Value& v) { return vectors::number(v); }

PktTimeMsg packetOf(const json& p)
{
    PktTimeMsg m{};
    m.syncIntervalMs = p.at(0);
    m.T1_s = p.at(1), m.T1_ns = p.at(2);
    m.T2_s = p.at(3), m.T2_ns = p.at(4);
    m.T3_s = p.at(5), m.T3_ns = p.at(6);
    m.T4_s = p.at(7), m.T4_ns = p.at(8);
    m.asymComp = p.at(9);
    return m;
}

/// Times as the measurements keep them: one number, or whole seconds apart from the rest.
template <typename Time>
double seconds(Time t)
{
    if constexpr (std::is_arithmetic_v<Time>) return t;
    else return t.c + t.f;
}
template <typename Time>
Time timeOf(double s)
{
    if constexpr (std::is_arithmetic_v<Time>) return s;
    else return {0.0, s};
}
using Delay = decltype(packet::Floor::min);

/// The model holds a time in one double: years from its master that has steps of 60 ns.
double stepOf(double time) { return std::nextafter(std::fabs(time), HUGE_VAL) - std::fabs(time); }

template <typename Time>
void expectTime(const char* what, Time is, double wanted, double tolerance)
{
    expectNear(what, seconds(is), wanted, {0.0, std::max(tolerance, 2 * stepOf(wanted))});
}

/// The event's name is known; the vectors tell much that shows elsewhere, or not at all.
void expectKnown(const json& event, const std::set<std::string>& names)
{
    if (!names.contains(event.at(0))) ADD_FAILURE() << "no replay of the event " << event;
}
std::size_t countOf(const json& events, const std::string& name)
{
    return static_cast<std::size_t>(
        std::count_if(events.begin(), events.end(), [&](const json& e) { return e.at(0) == name; }));
}
std::vector<u8> refStatesOf(const json& events)
{
    std::vector<u8> states;
    for (const json& e : events)
        if (e.at(0) == "refState") states.push_back(e.at(1));
    return states;
}

const packet::HistoryPlace* placeOf(u32 type)
{
    for (const packet::HistoryPlace& p : packet::state().history.places)
        if (p.used != 0 && p.type == type) return &p;
    return nullptr;
}
u32 appended(u32 type) { return placeOf(type) != nullptr ? placeOf(type)->count : 0; }

// ---- delays, rates, floors, phases ------------------------------------------------------------------------

TEST(PacketCheckValues, Delays)
{
    vectors::Document document("o03_pkt_delay.json");
    vectors::each(document["cases"], [](const Value& c) {
        SCOPED_TRACE(c["packet"].dump());
        const PktTimeMsg m = packetOf(c["packet"].read());
        expectTime("z21", packet::delay21(m), num(c["z21"]), 1e-12);
        expectTime("z43", packet::delay43(m), num(c["z43"]), 1e-12);
        const double mean = packet::meanPathDelay(m, m);
        expectNear("meanPathDelay", mean, num(c["meanPathDelay"]), {0.0, 1e-12});
        const bool atLimit = std::fabs(mean) <= 1e-12 || std::fabs(mean - 0.45) <= 1e-12;
        EXPECT_TRUE(packet::isRoundTripOk(mean) == (num(c["roundTripOk"]) != 0) || atLimit);
    });
}

TEST(PacketCheckValues, Rates)
{
    vectors::Document document("o03_pkt_rate.json");
    vectors::each(document["cases"], [](const Value& c) {
        for (const Value row : c["table"]) EXPECT_EQ(packet::packetRate(row[0].get<u32>()), row[1].get<u16>()) << row;
    });
    // "direct" gives packets a second: those that a whole number of ms makes are held.
    vectors::each(document["direct"], [](const Value& row) {
        const u32 rate = row[0].get<u32>(), wanted = row[1].get<u32>();
        if (rate != 0 && 1000 % rate == 0) {
            EXPECT_EQ(packet::packetRate(1000 / rate), wanted) << row;
        }
    });
}

TEST(PacketCheckValues, Floors)
{
    vectors::Document document("o03_pkt_track.json");
    vectors::each(document["cases"], [](const Value& c) {
        packet::Floor floor{packet::NO_DELAY_YET, timeOf<Delay>(num(c["minMin"])), 0};
        i32 stored = -1, index = 0;
        for (const Value step : c["steps"]) {
            SCOPED_TRACE(index);
            if (packet::trackDelay(timeOf<Delay>(num(step[0])), floor)) stored = index;
            expectTime("min", floor.min, num(step[1]), 0.0);
            expectTime("minMin", floor.minMin, num(step[2]), 0.0);
            EXPECT_EQ(floor.close, step[3].get<u32>());
            EXPECT_EQ(stored, step[4].get<i32>());
            ++index;
        }
    });
}

TEST(PacketCheckValues, Phases)
{
    vectors::Document document("o03_pkt_phase.json");
    PacketBench b(Z_PKT_TIME_REF);
    vectors::each(document["cases"], [&](const Value& c) {
        b.inManager([&] {
            KvdLoz6TuReg_setMod(num(c["t_mod_old"]));
            KvdLoz6TuReg_setOffset(num(c["delta0"][0]), num(c["delta0"][1]));
            b.diff = {num(c["diff"][0]), num(c["diff"][1])};
            b.sfcPtpOffset = num(c["sfcPtpOffset"]);
            const double t_mod = num(c["t_mod"]), tolerance = t_mod > 1.0 ? 1e-6 : 1e-9;
            expectNear("z", packet::phaseError(packetOf(c["a"].read()), packetOf(c["b"].read()), t_mod), num(c["z"]),
                       {0.0, tolerance});
            EXPECT_EQ(KvdLoz6TuReg_getMod(), num(c["t_mod_oldAfter"]));
            const TimePair after = KvdLoz6TuReg_getOffset();
            const Value wanted = c["delta0After"];
            EXPECT_NEAR((after.c - num(wanted[0])) + (after.f - num(wanted[1])), 0.0, tolerance);
        });
    });
}

// ---- variances --------------------------------------------------------------------------------------------

TEST(PacketCheckValues, SecondDifferences)
{
    vectors::Document document("o03_pkt_var2.json");
    PacketBench b(Z_PKT_TIME_REF);
    vectors::each(document["cases"], [&](const Value& c) {
        b.inManager([&] {
            packet::SecondDifference v;
            if (num(c["long"]) != 0) packet::startLong(v);
            u32 index = 0;
            for (const Value step : c["steps"]) {
                SCOPED_TRACE("step " + std::to_string(index++));
                packet::takeSample(v, num(step[0]));
                double ratio = 0;
                const bool major = packet::varianceJumpCheck(v, &ratio);
                EXPECT_EQ(v.skip, step[1].get<u32>());
                EXPECT_EQ(v.idx, step[2].get<u32>());
                EXPECT_EQ(v.full, step[3].get<u32>());
                // A sample of one double moves the second difference by its own steps.
                const double step2 = 4 * stepOf(num(step[0]));
                const double wanted = num(step[4]);
                expectNear("var", v.var, wanted, {1e-9, 1e-300 + step2 * step2 + 2 * step2 * std::sqrt(wanted)});
                EXPECT_EQ(major, !step[5].is_null());
                if (major && !step[5].is_null()) expectNear("ratio", ratio, num(step[5]), {0.0, 1e-6});
            }
        });
    });
}

TEST(PacketCheckValues, RunningVariances)
{
    vectors::Document document("o03_pkt_runvar.json");
    PacketBench b(Z_PKT_TIME_REF);
    vectors::each(document["cases"], [&](const Value& c) {
        b.inManager([&] {
            packet::RunningVariance v;
            v.window = c["window"].get<i32>();
            for (const Value step : c["steps"]) {
                if (step[0].is_string()) {
                    if (step[0] != "reset") throw std::runtime_error("no replay of the step " + step[0].dump());
                    packet::resetRunningVariance(&v);
                    step.read();
                    continue;
                }
                const double x = num(step[0]), wanted = num(step[1]);
                // Samples have the steps of one double, and so has what is left of a mean.
                const double error = 4 * stepOf(x);
                expectNear("variance", *packet::runningVariance(&v, timeOf<Delay>(x)), wanted,
                           {1e-9, error * error + error * std::sqrt(wanted)});
            }
        });
    });
    b.inManager([] { EXPECT_EQ(packet::runningVariance(nullptr, timeOf<Delay>(1.0)), nullptr); });
}

// ---- packet frequency -------------------------------------------------------------------------------------

const std::set<std::string> FREQUENCY_EVENTS = {"historyAppend", "refState", "pktRateInd"};

void setThreshold(u32 z_i, const Value& init)
{
    if (!init.contains("threshold")) return;
    const u32 type = z_i == Z_NTP_REF ? 2 : z_i == Z_PKT_FREQ_REF ? 5 : 4;
    KvdLoz6TuReg_setPdvThreshold(type, static_cast<u32>(std::lround(num(init["threshold"]) * 1e9)));
}

void beginFrequency(u32 z_i, const Value& init)
{
    MeasStateVar& v = measure::state().var;
    v.R_all[z_i] = 5e-7;
    v.pktRate = 10;
    KvdLoz6TuReg_setLastTime(-1.0, 0.0);
    for (const auto& [name, value] : init.items()) {
        if (name == "t_mod_old") v.t_mod_old = num(value);
        else if (name == "m") v.m[z_i] = num(value);
        else if (name == "R") v.R_all[z_i] = num(value);
        else if (name == "rate") v.pktRate = value.get<u8>();
        else if (name == "delta0") KvdLoz6TuReg_setOffset(num(value[0]), num(value[1]));
        else if (name == "t_last") KvdLoz6TuReg_setLastTime(num(value[0]), num(value[1]));
        else if (name == "highPdvCounter") packet::state().highPdvCounter = value.get<u32>();
        else if (name == "threshold") setThreshold(z_i, init);
        else ADD_FAILURE() << "no field \"" << name << "\" to set";
    }
}

/// The model lets samples in while the oscillator isn't usable yet, and while the state isn't known; the
/// regulator drops them. They are fed in the first state of a control that knows a frequency, which isn't locked
/// either.
u8 letIn(u8 regState) { return regState == WARMUP || regState == UNKNOWN ? u8{SYNCH1} : regState; }

void frequencySample(PacketBench& b, u32 z_i, const Value& step)
{
    const u32 type = z_i == Z_NTP_REF ? 0 : 1;
    const u32 before = appended(type);
    step["t_ms"].read();                     // the counter tells the time
    KvdLoz6TuReg_forceRegState(letIn(step["regState"].get<u8>()));
    tuiif::state().forceLockedTimer.ref = num(step["forcedLockedTimer"]) != 0 ? 1 : 0;
    double T[8];
    for (u32 k = 0; k < 8; ++k) T[k] = num(step["T"][k]);
    KvdLoz6TuReg_handlePktFreqMsg(T);
    tuiif::state().forceLockedTimer = {};
    if (!b.estimated.has_value()) throw std::runtime_error("no measurement");

    const Value meas = step["meas"];
    expectNear("z", b.estimated->z, num(meas["z"]), {0.0, 1e-9});
    EXPECT_EQ(b.estimated->z_i, meas["z_i"].get<u32>());
    expectNear("t_s", b.estimated->t_s, num(meas["t_s"]), {0.0, 1e-9});
    EXPECT_EQ(b.estimated->m, num(meas["m"]));
    expectNear("R", b.estimated->R, num(meas["R"]), {1e-12, 1e-18});
    const MeasStateVar& v = measure::state().var;
    expectNear("phase", packet::state().supervision.lastPhase, num(step["phase"]), {0.0, 1e-9});
    expectNear("delta0", v.delta0_c + v.delta0_f, num(step["delta0"][0]) + num(step["delta0"][1]), {0.0, 1e-9});
    EXPECT_EQ(v.t_mod_old, num(step["t_mod_old"]));
    EXPECT_EQ(v.m[z_i], num(step["m"]));
    EXPECT_EQ(packet::state().highPdvCounter, step["highPdvCounter"].get<u32>());
    EXPECT_EQ(v.pktRate, step["pktRate"].get<u8>());
    if (placeOf(type) != nullptr)
        expectNear("pdv", placeOf(type)->current.values[0], num(step["pdv"]), {1e-12, 0.0});
    const json& events = step["events"].read();
    for (const json& e : events) expectKnown(e, FREQUENCY_EVENTS);
    EXPECT_EQ(appended(type) - before, countOf(events, "historyAppend"));
    EXPECT_EQ(b.refStates, refStatesOf(events));
}

TEST(PacketCheckValues, FrequencyReference)
{
    vectors::Document document("o03_pkt_freq.json");
    vectors::each(document["cases"], [](const Value& c) {
        const u32 z_i = c["z_i"].get<u32>();
        PacketBench b(z_i);
        b.inManager([&] { beginFrequency(z_i, c["init"]); });
        u32 index = 0;
        for (const Value step : c["steps"]) {
            SCOPED_TRACE("step " + std::to_string(index++));
            const Value counter = step["counter"];
            b.putRun({counter[0].get<u32>(), counter[1].get<u32>(), counter[2].get<u32>()});
            b.R_est = num(step["R_est"]);
            b.refStates.clear();
            b.estimated.reset();
            const std::size_t rates = b.received<KvdTuiifPktRateInd>(KVD_TUIIF_PKT_RATE_IND).size();
            b.inManager([&] { frequencySample(b, z_i, step); });
            EXPECT_EQ(b.received<KvdTuiifPktRateInd>(KVD_TUIIF_PKT_RATE_IND).size() - rates,
                      countOf(step["events"].read(), "pktRateInd"));
        }
    });
}

// ---- packet time ------------------------------------------------------------------------------------------

/// One packet of the time reference, held against what the file has for it; nothing for most.
void compareTime(PacketBench& b, const Value& out)
{
    const packet::TimeFilter& f = packet::state().filter;
    const MeasStateVar& v = measure::state().var;
    EXPECT_EQ(f.numberOfPkts, out["n"].get<u32>());
    const packet::Floor* const floors[] = {&f.down, &f.up, &f.roundTrip};
    for (u32 i = 0; i < 3; ++i) {
        expectTime("floor", floors[i]->minMin, num(out["floor"][i]), 1e-9);
        EXPECT_EQ(floors[i]->close, out["close"][i].get<u32>());
    }
    EXPECT_EQ(f.floorGain21, num(out["gain"][0]));
    EXPECT_EQ(f.floorGain43, num(out["gain"][1]));
    EXPECT_EQ(f.jumpCount21, out["jumpCount"][0].get<u8>());
    EXPECT_EQ(f.jumpCount43, out["jumpCount"][1].get<u8>());
    expectNear("stdDev21", f.stdDev21, num(out["stdDev"][0]), {1e-6, 1e-10});
    expectNear("stdDev43", f.stdDev43, num(out["stdDev"][1]), {1e-6, 1e-10});
    EXPECT_EQ(v.m[Z_PKT_TIME_REF], num(out["m"]));
    EXPECT_EQ(f.secOffset, out["secOffset"].get<i32>());
    const Value meas = out["meas"];
    EXPECT_EQ(b.estimated.has_value(), !meas.is_null());
    if (meas.is_null() || !b.estimated.has_value()) return;
    expectNear("z", b.estimated->z, num(meas["z"]), {0.0, 1e-9});
    EXPECT_EQ(b.estimated->z_i, meas["z_i"].get<u32>());
    expectNear("t_s", b.estimated->t_s, num(meas["t_s"]), {0.0, 1e-9});
    EXPECT_EQ(b.estimated->m, num(meas["m"]));
    expectNear("R", b.estimated->R, num(meas["R"]), {1e-6, 1e-18});
    expectNear("syncVar", f.syncVar.var, num(meas["syncVar"]), {1e-6, 1e-18});
    expectNear("delayVar", f.delayVar.var, num(meas["delayVar"]), {1e-6, 1e-18});
    // What 48 bits of whole ns hold; an offset of years runs over.
    constexpr double TURN = 281474976710656.0;
    EXPECT_NEAR(std::remainder(static_cast<double>(*b.offsetFromMaster) / 65536 - num(meas["offsetFromMaster_ns"]),
                               TURN),
                0.0, 512.0);
    EXPECT_NEAR(static_cast<double>(*b.meanPathDelay), num(meas["meanPathDelay_ns"]), 1.0);
    EXPECT_EQ(f.syncPacket.T1_s, meas["syncT1"][0].get<i64>());
    EXPECT_EQ(f.syncPacket.T1_ns, meas["syncT1"][1].get<i32>());
    EXPECT_EQ(f.delayPacket.T3_s, meas["delayT3"][0].get<i64>());
    EXPECT_EQ(f.delayPacket.T3_ns, meas["delayT3"][1].get<i32>());
    EXPECT_NEAR((v.delta0_c - num(meas["delta0"][0])) + (v.delta0_f - num(meas["delta0"][1])), 0.0, 1e-9);
    EXPECT_EQ(v.t_mod_old, num(meas["t_mod_old"]));
    // How the model came to z: its two packets, its modulus, z before the term of the variations.
    for (const char* step : {"a", "b", "t_mod", "zRaw"}) meas[step].read();
}

/// Those without a look of their own show in the numbers: what was taken, dropped, kept.
const std::set<std::string> TIME_EVENTS = {
    "newMean", "highPdvEntered", "highPdvLeft", "notReliableEntered", "notReliableLeft", "timerExpired", "timerStart",
    "timerStop", "refState", "historyAppend", "intervalEnd", "withheld", "maskReset", "resetVariance",
    "roundTripOutside", "adjustOffset", "updateTuPktRefStatus"};

void compareTimeEvents(PacketBench& b, const json& events, u32 appendedBefore, std::set<u32>& running)
{
    static const std::map<std::string, u32> TIMER = {{"PDV", 0}, {"NOT_RELIABLE", 1}, {"LOCK_1588J3", 2},
                                                     {"LOCK_G82751", 3}};
    for (const json& e : events) {
        expectKnown(e, TIME_EVENTS);
        if (e[0] == "timerStart") running.insert(TIMER.at(e.at(1)));
        if (e[0] == "timerStop" || e[0] == "timerExpired") running.erase(TIMER.at(e.at(1)));
    }
    const std::size_t after = appendedBefore + countOf(events, "historyAppend");
    EXPECT_EQ(appended(2), after < 40 ? after : after - 20);
    for (u32 t = 0; t < 4; ++t) EXPECT_EQ(packet::pdvTimerRuns(t), running.contains(t)) << t;
    EXPECT_EQ(b.refStates, refStatesOf(events));
}

void beginTime(PacketBench& b, const Value& init)
{
    b.profile = init["profile"].get<u8>();
    b.diff = {num(init["diff"][0]), num(init["diff"][1])};
    b.sfcPtpOffset = num(init["sfcPtpOffset"]);
    b.inManager([&] {
        setThreshold(Z_PKT_TIME_REF, init);
        KvdLoz6TuReg_onPktTimeRefInit();
        KvdLoz6TuReg_restartPdvHistory(2, 1);
        MeasStateVar& v = measure::state().var;
        v.t_mod_old = num(init["t_mod_old"]);
        v.m[Z_PKT_TIME_REF] = num(init["m"]);
        KvdLoz6TuReg_setOffset(num(init["delta0"][0]), num(init["delta0"][1]));
        KvdLoz6TuReg_setLastTime(num(init["t_last"][0]), num(init["t_last"][1]));
    });
}

void timeOperation(PacketBench& b, const Value& op)
{
    if (op[0] != "profile") throw std::runtime_error("no replay of the operation " + op[0].dump());
    b.profile = op[1].get<u8>();
    struct Change { SIGSELECT sigNo; u8 ptpProfile; };
    b.inject(Change{KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND, b.profile});
}

void timeCase(const Value& c)
{
    PacketBench b(Z_PKT_TIME_REF);
    beginTime(b, c["init"]);
    std::map<u32, Value> outs;
    for (const Value out : c["out"]) outs.emplace(out["i"].get<u32>(), out);
    std::set<u32> running;
    const Value counter = c["firstCounter"];
    const double first =
        tuHwIf_sfcToIncrements(counter[0].get<u16>(), counter[1].get<u16>(), counter[2].get<u32>()) / 122880000.0;
    for (u32 i = 0; i < c["packets"].size(); ++i) {
        SCOPED_TRACE("packet " + std::to_string(i));
        const Value p = c["packets"][i];
        const double t_ms = num(p[2]);
        b.refStates.clear();
        b.estimated.reset();
        b.bus.traces.clear();
        b.world.runUntil(b.start + static_cast<ose::Time>(t_ms) * ose::MS);
        if (c["ops"].contains(std::to_string(i)))
            for (const Value op : c["ops"][std::to_string(i)]) timeOperation(b, op);
        const auto out = outs.find(i);
        if (out == outs.end()) {
            b.run(std::fmod(first + t_ms / 1000, 1024.0));
        } else {
            const Value at = out->second["counter"];
            b.putRun({at[0].get<u32>(), at[1].get<u32>(), at[2].get<u32>()});
        }
        b.inManager([&] {
            const u32 before = appended(2);
            KvdLoz6TuReg_forceRegState(p[1].get<u8>());
            KvdLoz6TuReg_handlePktTimeMsg(packetOf(p[0].read()));
            if (out == outs.end()) return;
            compareTime(b, out->second);
            compareTimeEvents(b, out->second["events"].read(), before, running);
        });
    }
}

TEST(PacketCheckValues, TimeReference)
{
    vectors::Document document("o03_pkt_time.json");
    vectors::each(document["cases"], timeCase);
}

// ---- history and limits -----------------------------------------------------------------------------------

void historyStep(const Value& step)
{
    constexpr u32 CLASS_OF[] = {2, 5, 4};
    const Value op = step["op"];
    const std::string what = op[0].get<std::string>();
    const u32 type = op[1].get<u32>(), id = op[2].get<u32>();
    if (what == "add") KvdLoz6TuReg_registerPacketRef(CLASS_OF[type], id);
    else if (what == "remove") KvdLoz6TuReg_deregisterPacketRef(CLASS_OF[type], id);
    else if (what == "restart") KvdLoz6TuReg_restartPdvHistory(type, id);
    else if (what == "entry") {
        packet::state().history.currentId[type] = id;
        const bool high = num(op[3]) != 0;
        const double second = op[4].size() > 1 ? num(op[4][1]) : 0.0;
        EXPECT_EQ(packet::historyEntry(type, high, num(op[4][0]), second), num(step["rule"]) != 0) << op;
    } else throw std::runtime_error("no replay of the step \"" + what + "\"");
    if (step.contains("rule")) step["rule"].read();
}

void expectPlace(const packet::HistoryPlace& p, const Value& end)
{
    EXPECT_EQ(p.type, end["type"].get<u32>());
    EXPECT_EQ(p.refId, end["id"].get<u32>());
    EXPECT_EQ(p.count, end["count"].get<u32>());
    EXPECT_EQ(p.first, end["first"].get<u32>());
    const auto same = [](const packet::PdvRecord& r, const Value& wanted) {
        for (u32 k = 0; k < wanted.size(); ++k) EXPECT_EQ(r.values[k], num(wanted[k]));
    };
    u32 k = 0;
    for (const Value record : end["oldestToNewest"]) same(p.records[(p.first + k++) % packet::HISTORY_RECORDS], record);
    if (!end["current"].is_null()) same(p.current, end["current"]);
}

TEST(PacketCheckValues, History)
{
    vectors::Document document("o03_pdv_history.json");
    PacketBench b(Z_PKT_TIME_REF);
    vectors::each(document["cases"], [&](const Value& c) {
        b.inManager([&] {
            packet::state().history = {};
            for (const Value step : c["steps"]) historyStep(step);
            u32 place = 0;
            for (const Value end : c["end"]) expectPlace(packet::state().history.places[place++], end);
            for (; place < packet::HISTORY_PLACES; ++place) EXPECT_EQ(packet::state().history.places[place].used, 0u);
        });
    });
}

TEST(PacketCheckValues, Thresholds)
{
    vectors::Document document("o03_pdv_history.json");
    PacketBench b(Z_PKT_TIME_REF);
    vectors::each(document["threshold"], [&](const Value& t) {
        b.inManager([&] {
            static const std::map<u32, u32> PLACE = {{2, packet::HISTORY_NTP}, {4, packet::HISTORY_TIME},
                                                     {5, packet::HISTORY_FREQUENCY}};
            KvdLoz6TuReg_setPdvThreshold(t["type"].get<u32>(), t["nanoseconds"].get<u32>());
            expectNear("stored", packet::state().pdvThreshold[PLACE.at(t["type"].get<u32>())], num(t["stored"]),
                       {1e-12, 1e-18});
        });
    });
    vectors::each(document["thresholdText"], [&](const Value& t) {
        b.inManager([&] {
            for (const u32 type : {2u, 4u, 5u}) KvdLoz6TuReg_setPdvThreshold(type, 0);
            for (const auto& [type, ns] : t["set"].items())
                KvdLoz6TuReg_setPdvThreshold(static_cast<u32>(std::stoul(type)), ns.get<u32>());
            char text[512];
            KvdLoz6TuReg_pdvThresholdText(text, sizeof text);
            EXPECT_EQ(t["text"], std::string(text));
        });
    });
}

// ---- supervision ------------------------------------------------------------------------------------------

constexpr vectors::Tolerance RING_ENTRY{1e-9, 1e-15};

/// A sample, or a command by its name.
void supervisionStep(const Value& op, u32 N, u32 W)
{
    if (!op.is_array()) return KvdLoz6TuReg_frequencySupervision(N, W, num(op));
    const std::string what = op[0].get<std::string>();
    if (what == "jump") KvdLoz6TuReg_reportPhaseJump(op[1].get<u32>(), num(op[2]));
    else if (what == "restart") {
        measure::state().var.selectedRef = op[1].get<u32>();
        EXPECT_EQ(KvdLoz6TuReg_measurementIndex(op[1].get<u32>()), op[2].get<u32>());
        KvdLoz6TuReg_supervisionRestart();
    } else if (what == "highPdv") packet::state().highPdvCounter = op[1].get<u32>();
    else if (what == "setOffset00") KvdLoz6TuReg_setOffset(0.0, 0.0);
    else throw std::runtime_error("no replay of the step \"" + what + "\"");
}

void expectSparse(const char* name, const auto& ring, const Value& wanted)
{
    for (const auto& [place, value] : wanted.items()) expectNear(name, ring.at(std::stoul(place)), num(value), RING_ENTRY);
    for (std::size_t i = 0; i < ring.size(); ++i)
        if (ring[i] != 0.0 && ring[i] != packet::MARK_PDV_DEGRADED) {
            EXPECT_TRUE(wanted.contains(std::to_string(i))) << name << " " << i << " is " << ring[i];
        }
}

void expectSupervision(const packet::SupervisionRecord& r, const Value& end)
{
    const std::map<std::string, double> numbers = {
        {"currMeas", r.currMeas}, {"pdvInterval", r.pdvInterval}, {"freqInterval", r.freqInterval},
        {"windowIdx", r.windowIdx}, {"minPrev", seconds(r.minPrev)}, {"minCurr", seconds(r.minCurr)},
        {"minCount", r.minCount}, {"consecJumps", r.consecJumps}, {"totalJumps", r.totalJumps},
        {"pdvStopped", r.pdvStopped}, {"lastPhase", r.lastPhase}, {"phaseJumpFlag", r.phaseJumpFlag}};
    for (const auto& [name, wanted] : end.items()) {
        if (name == "pdv") expectSparse("pdv", r.pdv, wanted);
        else if (name == "freqDev") expectSparse("freqDev", r.freqDev, wanted);
        else if (name == "jumpFlags") {
            std::vector<u32> flagged;
            for (u32 i = 0; i < r.jumpFlags.size(); ++i)
                if (r.jumpFlags[i] != 0) flagged.push_back(i);
            EXPECT_EQ(flagged, wanted.get<std::vector<u32>>());
        } else expectNear(name, numbers.at(name), num(wanted), {0.0, 1e-15});
    }
}

TEST(PacketCheckValues, Supervision)
{
    static const std::set<std::string> EVENTS = {"pdv", "freqDev", "refState", "degradedMarker"};
    vectors::Document document("o03_freq_supervision.json");
    vectors::each(document["cases"], [](const Value& c) {
        PacketBench b(c["z_i"].get<u32>());
        b.inManager([&] {
            measure::state().var.selectedRef = c["selectedRef"].get<u32>();
            measure::state().var.measRefData.m = 50.0;
            packet::SupervisionRecord& r = packet::state().supervision;
            r = {};
            r.intervalSize = c["N"].get<u16>();
            u32 index = 0;
            for (const Value step : c["steps"]) {
                SCOPED_TRACE("step " + std::to_string(index++));
                b.refStates.clear();
                supervisionStep(step[0], c["N"].get<u32>(), c["W"].get<u32>());
                const json& events = step[1].read();
                for (const json& e : events) expectKnown(e, EVENTS);
                EXPECT_EQ(b.refStates, refStatesOf(events));
            }
            expectSupervision(r, c["end"]);
        });
    });
}

}  // namespace
