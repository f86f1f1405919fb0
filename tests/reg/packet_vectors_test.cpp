// Replay of check values: packet delays, floors, phases and variances, both packet measurements, the
// delay history and its limits, the supervision.
#include "mp/kvd_iifadm_state.h"
#include "reg/support/packet_bench.h"
#include "support/vectors.h"

#include <cmath>
#include <map>
#include <set>

using regtest::PacketBench;
using vectors::expect;
using vectors::expectAll;
using vectors::json;
using vectors::Value;

namespace {

PktTimeMsg packetOf(const json& p)
{
    if (p.size() != 10) throw std::runtime_error("no packet " + p.dump());
    PktTimeMsg m{};
    m.syncIntervalMs = p.at(0);
    m.T1_s = p.at(1), m.T1_ns = p.at(2);
    m.T2_s = p.at(3), m.T2_ns = p.at(4);
    m.T3_s = p.at(5), m.T3_ns = p.at(6);
    m.T4_s = p.at(7), m.T4_ns = p.at(8);
    m.asymComp = p.at(9);
    return m;
}

double seconds(TimePair t) { return t.c + t.f; }

/// The model holds a time in one double: years from its master that has steps of 60 ns.
double stepOf(double time) { return std::nextafter(std::fabs(time), HUGE_VAL) - std::fabs(time); }

void expectTime(const char* what, TimePair is, const Value& wanted, double tolerance)
{
    expect(what, seconds(is), wanted, {0.0, std::max(tolerance, 2 * stepOf(wanted))});
}

/// A pair whose parts may move against each other.
void expectSum(const char* what, TimePair is, const Value& wanted, double tolerance)
{
    EXPECT_NEAR((is.c - double{wanted[0]}) + (is.f - double{wanted[1]}), 0.0, tolerance) << what;
}

std::size_t countOf(const json& events, const std::string& name)
{
    return static_cast<std::size_t>(
        std::ranges::count_if(events, [&](const json& e) { return e.at(0) == name; }));
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

void delays(const Value& c)
{
    SCOPED_TRACE(c["packet"].dump());
    const PktTimeMsg m = packetOf(c["packet"].read());
    expectTime("z21", packet::delay21(m), c["z21"], 1e-12);
    expectTime("z43", packet::delay43(m), c["z43"], 1e-12);
    const double mean = packet::meanPathDelay(m, m);
    expect("meanPathDelay", mean, c["meanPathDelay"], {0.0, 1e-12});
    const bool atLimit = std::fabs(mean) <= 1e-12 || std::fabs(mean - 0.45) <= 1e-12;
    EXPECT_TRUE(packet::isRoundTripOk(mean) == bool{c["roundTripOk"]} || atLimit);
}

void rates(const Value& c)
{
    for (const Value row : c["table"]) expect("rate", packet::packetRate(row[0]), row[1]);
}
/// Packets a second.
void directRates(const Value& row) { expect("rate", packet::nearestRate(row[0]), row[1]); }

void floors(const Value& c)
{
    packet::Floor floor{packet::NO_DELAY_YET, TimePair{0.0, c["minMin"]}, 0};
    i32 stored = -1, index = 0;
    vectors::eachStep(c["steps"], [&](const Value& step) {
        if (packet::trackDelay(TimePair{0.0, step[0]}, floor)) stored = index;
        expectTime("min", floor.min, step[1], 0.0);
        expectTime("minMin", floor.minMin, step[2], 0.0);
        expect("close", floor.close, step[3]);
        expect("stored", stored, step[4]);
        ++index;
    });
}

void phases(PacketBench& b, const Value& c)
{
    KvdLoz6TuReg_setMod(c["t_mod_old"]);
    KvdLoz6TuReg_setOffset(c["delta0"][0], c["delta0"][1]);
    b.diff = {c["diff"][0], c["diff"][1]};
    b.sfcPtpOffset = c["sfcPtpOffset"];
    const double t_mod = c["t_mod"], tolerance = t_mod > 1.0 ? 1e-6 : 1e-9;
    expect("z", packet::phaseError(packetOf(c["a"].read()), packetOf(c["b"].read()), t_mod), c["z"],
           {0.0, tolerance});
    expect("t_mod_old", KvdLoz6TuReg_getMod(), c["t_mod_oldAfter"]);
    expectSum("delta0", KvdLoz6TuReg_getOffset(), c["delta0After"], tolerance);
}

// ---- variances --------------------------------------------------------------------------------------------

void secondDifferences(PacketBench&, const Value& c)
{
    packet::SecondDifference v;
    if (bool{c["long"]}) packet::startLong(v);
    vectors::eachStep(c["steps"], [&](const Value& step) {
        packet::takeSample(v, step[0]);
        double ratio = 0;
        const bool major = packet::varianceJumpCheck(v, &ratio);
        expect("skip", v.skip, step[1]);
        expect("idx", v.idx, step[2]);
        expect("full", v.full, step[3]);
        // A sample of one double moves the second difference by its own steps.
        const double step2 = 4 * stepOf(step[0]), wanted = step[4];
        expect("var", v.var, step[4], {1e-9, 1e-300 + step2 * step2 + 2 * step2 * std::sqrt(wanted)});
        expect("ratio", major ? json(ratio) : json(), step[5], {0.0, 1e-6});
    });
}

void runningVariances(PacketBench&, const Value& c)
{
    packet::RunningVariance v;
    v.window = c["window"];
    for (const Value step : c["steps"]) {
        if (step[0].is_string()) {
            if (step[0] != "reset") throw std::runtime_error("no replay of the step " + step[0].dump());
            packet::resetRunningVariance(&v);
            step.read();
            continue;
        }
        // Samples have the steps of one double, and so has what is left of a mean.
        const double error = 4 * stepOf(step[0]), wanted = step[1];
        expect("variance", *packet::runningVariance(&v, TimePair{0.0, step[0]}), step[1],
               {1e-9, error * error + error * std::sqrt(wanted)});
    }
}

// ---- packet frequency -------------------------------------------------------------------------------------

const std::set<std::string> FREQUENCY_EVENTS = {"historyAppend", "refState", "pktRateInd"};

void setThreshold(u32 z_i, const Value& init)
{
    if (!init.contains("threshold")) return;
    const u32 type = z_i == Z_NTP_REF ? 2 : z_i == Z_PKT_FREQ_REF ? 5 : 4;
    KvdLoz6TuReg_setPdvThreshold(type, static_cast<u32>(std::lround(double{init["threshold"]} * 1e9)));
}

void beginFrequency(u32 z_i, const Value& init)
{
    MeasStateVar& v = measure::state().var;
    v.R_all[z_i] = 5e-7;
    v.pktRate = 10;
    KvdLoz6TuReg_setLastTime(-1.0, 0.0);
    for (const auto& [name, value] : init.items()) {
        if (name == "t_mod_old") v.t_mod_old = value;
        else if (name == "m") v.m[z_i] = value;
        else if (name == "R") v.R_all[z_i] = value;
        else if (name == "rate") v.pktRate = value;
        else if (name == "delta0") KvdLoz6TuReg_setOffset(value[0], value[1]);
        else if (name == "t_last") KvdLoz6TuReg_setLastTime(value[0], value[1]);
        else if (name == "highPdvCounter") packet::state().highPdvCounter = value;
    }
    setThreshold(z_i, init);
}

/// The model lets samples in while the oscillator isn't usable yet, and while the state isn't known; the
/// regulator drops them. They are fed in the first state of a control that knows a frequency, which isn't
/// locked either.
u8 letIn(u8 regState) { return regState == WARMUP || regState == UNKNOWN ? u8{SYNCH1} : regState; }

/// The measurement that reached the estimator; z and R within their own tolerances.
void expectMeasurement(const PacketBench& b, const Value& meas, vectors::Tolerance R)
{
    expectAll({{"z", b.estimated->z}, {"t_s", b.estimated->t_s}}, meas, {0.0, 1e-9});
    expectAll({{"z_i", b.estimated->z_i}, {"m", b.estimated->m}}, meas);
    expect("R", b.estimated->R, meas["R"], R);
}

void frequencySample(PacketBench& b, u32 z_i, const Value& step)
{
    const u32 type = z_i == Z_NTP_REF ? 0 : 1;
    const u32 before = appended(type);
    step["t_ms"].read();                     // the counter tells the time
    KvdLoz6TuReg_forceRegState(letIn(step["regState"]));
    tuiif::state().forceLockedTimer.ref = bool{step["forcedLockedTimer"]} ? 1 : 0;
    double T[8];
    for (u32 k = 0; k < 8; ++k) T[k] = step["T"][k];
    KvdLoz6TuReg_handlePktFreqMsg(T);
    tuiif::state().forceLockedTimer = {};
    if (!b.estimated.has_value()) throw std::runtime_error("no measurement");

    expectMeasurement(b, step["meas"], {1e-12, 1e-18});
    const MeasStateVar& v = measure::state().var;
    expect("phase", packet::state().supervision.lastPhase, step["phase"], {0.0, 1e-9});
    expectSum("delta0", {v.delta0_c, v.delta0_f}, step["delta0"], 1e-9);
    expectAll({{"t_mod_old", v.t_mod_old}, {"m", v.m[z_i]}, {"pktRate", v.pktRate},
               {"highPdvCounter", packet::state().highPdvCounter}}, step);
    const json pdv = placeOf(type) != nullptr ? json(placeOf(type)->current.values[0]) : step["pdv"].read();
    expect("pdv", pdv, step["pdv"], {1e-12, 0.0});
    const json& events = step["events"].read();
    for (const json& e : events) vectors::expectKnown(e, FREQUENCY_EVENTS);
    EXPECT_EQ(appended(type) - before, countOf(events, "historyAppend"));
    EXPECT_EQ(b.refStates, refStatesOf(events));
}

void frequencyReference(const Value& c)
{
    const u32 z_i = c["z_i"];
    PacketBench b(z_i);
    b.inManager([&] { beginFrequency(z_i, c["init"]); });
    vectors::eachStep(c["steps"], [&](const Value& step) {
        const Value counter = step["counter"];
        b.putRun({counter[0], counter[1], counter[2]});
        b.R_est = step["R_est"];
        b.refStates.clear();
        b.estimated.reset();
        const std::size_t rates = b.received<KvdTuiifPktRateInd>(KVD_TUIIF_PKT_RATE_IND).size();
        b.inManager([&] { frequencySample(b, z_i, step); });
        EXPECT_EQ(b.received<KvdTuiifPktRateInd>(KVD_TUIIF_PKT_RATE_IND).size() - rates,
                  countOf(step["events"].read(), "pktRateInd"));
    });
}

// ---- packet time ------------------------------------------------------------------------------------------

/// One packet of the time reference, held against what the file has for it; nothing for most.
void compareTime(PacketBench& b, const Value& out)
{
    const packet::TimeFilter& f = packet::state().filter;
    const MeasStateVar& v = measure::state().var;
    const std::optional<MeasRefData>& estimated = b.estimated;
    expectAll({{"n", f.numberOfPkts}, {"close", {f.down.close, f.up.close, f.roundTrip.close}},
               {"gain", {f.floorGain21, f.floorGain43}}, {"jumpCount", {f.jumpCount21, f.jumpCount43}},
               {"m", v.m[Z_PKT_TIME_REF]}, {"secOffset", f.secOffset}}, out);
    u32 place = 0;
    for (const packet::Floor* floor : {&f.down, &f.up, &f.roundTrip})
        expectTime("floor", floor->minMin, out["floor"][place++], 1e-9);
    expect("stdDev", {f.stdDev21, f.stdDev43}, out["stdDev"], {1e-6, 1e-10});
    const Value meas = out["meas"];
    EXPECT_EQ(estimated.has_value(), !meas.is_null());
    if (meas.is_null() || !estimated.has_value()) return;
    constexpr vectors::Tolerance VARIANCE{1e-6, 1e-18};
    expectMeasurement(b, meas, VARIANCE);
    expectAll({{"syncVar", f.syncVar.var}, {"delayVar", f.delayVar.var}}, meas, VARIANCE);
    // What 48 bits of whole ns hold; an offset of years runs over.
    constexpr double TURN = 281474976710656.0;
    const double offset_ns = static_cast<double>(*b.offsetFromMaster) / 65536;
    EXPECT_NEAR(std::remainder(offset_ns - double{meas["offsetFromMaster_ns"]}, TURN), 0.0, 512.0);
    expect("meanPathDelay", *b.meanPathDelay, meas["meanPathDelay_ns"], {0.0, 1.0});
    expectAll({{"syncT1", {f.syncPacket.T1_s, f.syncPacket.T1_ns}},
               {"delayT3", {f.delayPacket.T3_s, f.delayPacket.T3_ns}}, {"t_mod_old", v.t_mod_old}}, meas);
    expectSum("delta0", {v.delta0_c, v.delta0_f}, meas["delta0"], 1e-9);
    // How the model came to z: its two packets, its modulus, z before the term of the variations.
    for (const char* step : {"a", "b", "t_mod", "zRaw"}) meas[step].read();
}

/// Those without a look of their own show in the numbers: what was taken, dropped, kept.
const std::set<std::string> TIME_EVENTS = {
    "newMean", "highPdvEntered", "highPdvLeft", "notReliableEntered", "notReliableLeft", "timerExpired",
    "timerStart", "timerStop", "refState", "historyAppend", "intervalEnd", "withheld", "maskReset",
    "resetVariance", "roundTripOutside", "adjustOffset", "updateTuPktRefStatus"};

void compareTimeEvents(PacketBench& b, const json& events, u32 appendedBefore, std::set<u32>& running)
{
    static const std::map<std::string, u32> TIMER = {{"PDV", 0}, {"NOT_RELIABLE", 1}, {"LOCK_1588J3", 2},
                                                     {"LOCK_G82751", 3}};
    for (const json& e : events) {
        vectors::expectKnown(e, TIME_EVENTS);
        if (e[0] == "historyAppend") {
            EXPECT_TRUE(vectors::isNear(placeOf(2)->current.values, {e.at(2), e.at(3)}, {1e-6, 1e-9})) << e;
        }
        if (e[0] == "timerStart") running.insert(vectors::rowOf(TIMER, e.at(1)));
        if (e[0] == "timerStop" || e[0] == "timerExpired") running.erase(vectors::rowOf(TIMER, e.at(1)));
    }
    static const std::map<std::string, const char*> TOLD = {
        {"newMean", "new mean found"}, {"highPdvEntered", " profile entered: pdv"},
        {"highPdvLeft", " profile left: pdv"}, {"notReliableEntered", " profile entered: rate"},
        {"notReliableLeft", " profile left: rate"}};
    for (const auto& [name, text] : TOLD) EXPECT_EQ(b.bus.countOf(text), countOf(events, name)) << name;
    const std::size_t after = appendedBefore + countOf(events, "historyAppend");
    EXPECT_EQ(appended(2), after < 40 ? after : after - 20);
    for (u32 t = 0; t < 4; ++t) EXPECT_EQ(packet::pdvTimerRuns(t), running.contains(t)) << t;
    EXPECT_EQ(b.refStates, refStatesOf(events));
}

void beginTime(PacketBench& b, const Value& init)
{
    b.profile = init["profile"];
    b.diff = {init["diff"][0], init["diff"][1]};
    b.sfcPtpOffset = init["sfcPtpOffset"];
    b.inManager([&] {
        setThreshold(Z_PKT_TIME_REF, init);
        KvdLoz6TuReg_onPktTimeRefInit();
        KvdLoz6TuReg_restartPdvHistory(2, 1);
        measure::state().var.t_mod_old = init["t_mod_old"];
        measure::state().var.m[Z_PKT_TIME_REF] = init["m"];
        KvdLoz6TuReg_setOffset(init["delta0"][0], init["delta0"][1]);
        KvdLoz6TuReg_setLastTime(init["t_last"][0], init["t_last"][1]);
    });
}

void timeOperation(PacketBench& b, const Value& op)
{
    if (op[0] != "profile") throw std::runtime_error("no replay of the operation " + op[0].dump());
    b.profile = op[1];
    struct Change { SIGSELECT sigNo; u8 ptpProfile; };
    b.inject(Change{KVD_TUREG_PTP_TIME_PROFILE_CHANGE_IND, b.profile});
}

void timeCase(const Value& c)
{
    PacketBench b(Z_PKT_TIME_REF);
    beginTime(b, c["init"]);
    std::map<u32, Value> outs;
    for (const Value out : c["out"]) outs.emplace(out["i"], out);
    std::set<u32> running;
    const Value counter = c["firstCounter"];
    const double first = tuHwIf_sfcToIncrements(counter[0], counter[1], counter[2]) / 122880000.0;
    for (u32 i = 0; i < c["packets"].size(); ++i) {
        SCOPED_TRACE("packet " + std::to_string(i));
        const Value p = c["packets"][i];
        const double t_ms = p[2];
        b.refStates.clear();
        b.estimated.reset();
        b.bus.traces.clear();
        b.world.runUntil(b.launchedAt + static_cast<ose::Time>(t_ms) * ose::MS);
        if (c["ops"].contains(std::to_string(i)))
            for (const Value op : c["ops"][std::to_string(i)]) timeOperation(b, op);
        const auto out = outs.find(i);
        if (out == outs.end()) {
            b.run(std::fmod(first + t_ms / 1000, 1024.0));
        } else {
            const Value at = out->second["counter"];
            b.putRun({at[0], at[1], at[2]});
        }
        b.inManager([&] {
            const u32 before = appended(2);
            KvdLoz6TuReg_forceRegState(p[1]);
            KvdLoz6TuReg_handlePktTimeMsg(packetOf(p[0].read()));
            if (out == outs.end()) return;
            compareTime(b, out->second);
            compareTimeEvents(b, out->second["events"].read(), before, running);
        });
    }
}


// ---- history and limits -----------------------------------------------------------------------------------

void historyStep(const Value& step)
{
    constexpr std::array<u32, 3> CLASS_OF = {2, 5, 4};
    const Value op = step["op"];
    const std::string what = op[0].get<std::string>();
    const u32 type = op[1], id = op[2];
    if (what == "add") KvdLoz6TuReg_registerPacketRef(CLASS_OF.at(type), id);
    else if (what == "remove") KvdLoz6TuReg_deregisterPacketRef(CLASS_OF.at(type), id);
    else if (what == "restart") KvdLoz6TuReg_restartPdvHistory(type, id);
    else if (what == "entry") {
        packet::state().history.currentId[type] = id;
        const double second = op[4].size() > 1 ? double{op[4][1]} : 0.0;
        packet::historyEntry(type, bool{op[3]}, op[4][0], second);
    } else throw std::runtime_error("no replay of the step \"" + what + "\"");
    if (step.contains("rule")) step["rule"].read();
}

void expectPlace(const packet::HistoryPlace& p, const Value& end)
{
    expectAll({{"type", p.type}, {"id", p.refId}, {"count", p.count}, {"first", p.first}}, end);
    const auto same = [](const packet::PdvRecord& r, const Value& wanted) {
        for (u32 k = 0; k < wanted.size(); ++k) expect("record", r.values[k], wanted[k]);
    };
    u32 k = 0;
    for (const Value record : end["oldestToNewest"])
        same(p.records[(p.first + k++) % packet::HISTORY_RECORDS], record);
    if (!end["current"].is_null()) same(p.current, end["current"]);
}

void history(PacketBench&, const Value& c)
{
    packet::state().history = {};
    for (const Value step : c["steps"]) historyStep(step);
    u32 place = 0;
    for (const Value end : c["end"]) expectPlace(packet::state().history.places[place++], end);
    for (; place < packet::HISTORY_PLACES; ++place) EXPECT_EQ(packet::state().history.places[place].used, 0u);
}

void thresholds(PacketBench&, const Value& t)
{
    const u32 type = t["type"];
    KvdLoz6TuReg_setPdvThreshold(type, t["nanoseconds"]);
    static const std::map<u32, u32> PLACE = {{2, packet::HISTORY_NTP}, {4, packet::HISTORY_TIME},
                                             {5, packet::HISTORY_FREQUENCY}};
    expect("stored", packet::state().pdvThreshold[PLACE.at(type)], t["stored"], {1e-12, 1e-18});
}

void thresholdText(PacketBench&, const Value& t)
{
    for (const u32 type : {2u, 4u, 5u}) KvdLoz6TuReg_setPdvThreshold(type, 0);
    for (const auto& [type, ns] : t["set"].items())
        KvdLoz6TuReg_setPdvThreshold(static_cast<u32>(std::stoul(type)), ns);
    char text[512];
    KvdLoz6TuReg_pdvThresholdText(text, sizeof text);
    EXPECT_EQ(t["text"], std::string(text));
}

// ---- supervision ------------------------------------------------------------------------------------------

constexpr vectors::Tolerance RING_ENTRY{1e-9, 1e-15};

/// A sample, or a command by its name.
void supervisionStep(const Value& op, u32 N, u32 W)
{
    if (!op.is_array()) return KvdLoz6TuReg_frequencySupervision(N, W, op);
    const std::string what = op[0].get<std::string>();
    if (what == "jump") KvdLoz6TuReg_reportPhaseJump(op[1], op[2]);
    else if (what == "restart") {
        measure::state().var.selectedRef = op[1];
        expect("z_i", KvdLoz6TuReg_measurementIndex(op[1]), op[2]);
        KvdLoz6TuReg_supervisionRestart();
    } else if (what == "highPdv") packet::state().highPdvCounter = op[1];
    else if (what == "setOffset00") KvdLoz6TuReg_setOffset(0.0, 0.0);
    else throw std::runtime_error("no replay of the step \"" + what + "\"");
}

void expectSparse(const char* name, const auto& ring, const Value& wanted)
{
    for (const auto& [place, value] : wanted.items())
        expect(name, ring.at(std::stoul(place)), value, RING_ENTRY);
    for (std::size_t i = 0; i < ring.size(); ++i)
        EXPECT_TRUE(ring[i] == 0.0 || ring[i] == packet::MARK_PDV_DEGRADED
                    || wanted.contains(std::to_string(i))) << name << " " << i << " is " << ring[i];
}

void expectSupervision(const packet::SupervisionRecord& r, const Value& end)
{
    json flagged = json::array();
    for (u32 i = 0; i < r.jumpFlags.size(); ++i)
        if (r.jumpFlags[i] != 0) flagged.push_back(i);
    const json is = {
        {"currMeas", r.currMeas}, {"pdvInterval", r.pdvInterval}, {"freqInterval", r.freqInterval},
        {"windowIdx", r.windowIdx}, {"minPrev", seconds(r.minPrev)}, {"minCurr", seconds(r.minCurr)},
        {"minCount", r.minCount}, {"consecJumps", r.consecJumps}, {"totalJumps", r.totalJumps},
        {"pdvStopped", r.pdvStopped}, {"lastPhase", r.lastPhase}, {"phaseJumpFlag", r.phaseJumpFlag},
        {"jumpFlags", flagged}};
    for (const auto& [name, wanted] : end.items()) {
        if (name == "pdv") expectSparse("pdv", r.pdv, wanted);
        else if (name == "freqDev") expectSparse("freqDev", r.freqDev, wanted);
        else expect(name, is.at(name), wanted, {0.0, 1e-15});
    }
}

void supervision(PacketBench& b, const Value& c)
{
    static const std::set<std::string> EVENTS = {"pdv", "freqDev", "refState", "degradedMarker"};
    measure::state().var.selectedRef = c["selectedRef"];
    measure::state().var.measRefData.m = 50.0;
    packet::SupervisionRecord& r = packet::state().supervision;
    r = {};
    r.intervalSize = c["N"];
    vectors::eachStep(c["steps"], [&](const Value& step) {
        b.refStates.clear();
        supervisionStep(step[0], c["N"], c["W"]);
        const json& events = step[1].read();
        for (const json& e : events) vectors::expectKnown(e, EVENTS);
        EXPECT_EQ(b.refStates, refStatesOf(events));
    });
    expectSupervision(r, c["end"]);
}

/// A row that runs as the manager.
std::function<void(const Value&)> asManager(void (*row)(PacketBench&, const Value&))
{
    return [row](const Value& v) {
        PacketBench b(v.contains("z_i") ? u32{v["z_i"]} : u32{Z_PKT_TIME_REF});
        b.inManager([&] { row(b, v); });
    };
}

TEST(PacketCheckValues, DelaysAndPhases)
{
    vectors::replay("o03_pkt_delay.json", "cases", delays);
    vectors::replay("o03_pkt_rate.json", "cases", rates);
    vectors::replay("o03_pkt_rate.json", "direct", directRates);
    vectors::replay("o03_pkt_track.json", "cases", floors);
    vectors::replay("o03_pkt_phase.json", "cases", asManager(phases));
    vectors::replay("o03_pkt_var2.json", "cases", asManager(secondDifferences));
    vectors::replay("o03_pkt_runvar.json", "cases", asManager(runningVariances));
}

TEST(PacketCheckValues, References)
{
    vectors::replay("o03_pkt_freq.json", "cases", frequencyReference);
    vectors::replay("o03_pkt_time.json", "cases", timeCase);
}

TEST(PacketCheckValues, HistoryLimitsAndSupervision)
{
    vectors::replay("o03_pdv_history.json", "cases", asManager(history));
    vectors::replay("o03_pdv_history.json", "threshold", asManager(thresholds));
    vectors::replay("o03_pdv_history.json", "thresholdText", asManager(thresholdText));
    vectors::replay("o03_freq_supervision.json", "cases", asManager(supervision));
}

}  // namespace
