// Replay of check values: measurement core, temperature, start values, answers.
#include "reg/support/measure_bench.h"
#include "reg/support/regulator_fields.h"
#include "support/vectors.h"

#include "node/sig.h"
#include "reg/kvd_reg_packet_int.h"
#include "sig/tuiif_sig.h"

using regtest::compareAll;
using regtest::MeasureBench;
using regtest::Triple;
using vectors::expectAll;
using vectors::json;
using vectors::toleranceOf;
using vectors::Tolerance;
using vectors::Value;

namespace {

Triple triple(const Value& v) { return {v[0], v[1], v[2]}; }
json pair(TimePair p) { return {p.c, p.f}; }

struct SettledBench : MeasureBench {
    SettledBench() { settle(); }
    std::size_t traced(const char* text) const { return bus.countOf(text); }
};

/// Calls what a group is about with the arguments that stand in `in`, and hands back what comes out of it.
using Call = json (*)(SettledBench& bench, const Value& in);

/// A group of calls: the records get the numbers of `init` or `in`, and all of `out` is compared with the
/// call's results and the records.
std::function<void(const Value&, const Value&)> calls(Call call)
{
    return [call](const Value& v, const Value& group) {
        SettledBench bench;
        bench.in([&] {
            regtest::write(v.contains("init") ? v["init"] : v["in"]);
            const auto one = [&](const Value& step, const Tolerance& tolerance) {
                compareAll(call(bench, step["in"]), step["out"], tolerance);
            };
            if (!v.contains("steps")) return one(v, toleranceOf({v, group}));
            for (const Value step : v["steps"]) one(step, toleranceOf({step, v, group}));
        });
    };
}

// ---- tables -----------------------------------------------------------------------------------------------

json measurementIndex(SettledBench& b, const Value& in)
{
    const u32 selectedRef = in["selectedRef"];
    return {{"z_i", KvdLoz6TuReg_measurementIndex(selectedRef)},
            {"isTimeRef", KvdLoz6TuReg_isTimeRef(selectedRef) != 0},
            {"trace", b.traced("Unknown TUREG refType") > 0}};
}

void coldStart(const Value& v, const Value&)
{
    SettledBench bench;
    const u32 z_i = v["in"]["z_i"];
    if (v.contains("alt")) v["alt"].skip({"m", "R"});      // set at each use all the same
    expectAll({{"m", bench.meas().m[z_i]}, {"R", bench.meas().R_all[z_i]}}, v["out"]);
}

json setMeasR(SettledBench& b, const Value& in)
{
    KvdLoz6TuReg_setMeasR(in["R"], in["z_i"]);
    return {{"written", KvdLoz6TuReg_getMeasR(in["z_i"]) == double{in["R"]}},
            {"trace", b.traced("out-of-range") > 0}};
}

json validState(SettledBench&, const Value& in)
{
    return {{"valid",
             measure::isValidState(in["regState"], in["refType"], in["selectedRef"], in["prevSelectedRef"])}};
}
json knowsTime(SettledBench&, const Value&) { return {{"knows", KvdLoz6TuReg_knowsTime() != 0}}; }

// ---- initiation -------------------------------------------------------------------------------------------

void initiationTime(const Value& v, const Value& group)
{
    SettledBench bench;
    MeasInitiation values;
    values.time = v["in"]["t_c"];
    values.time_f = v["in"]["t_f"];
    bench.in([&] { KvdLoz6TuReg_measInitiate(values); });
    // Where a pair may also stand with its parts moved against each other, either is right.
    const json got = {{"t_c_last", bench.meas().t_c_last}, {"t_f_last", bench.meas().t_f_last}};
    const auto isNear = [&](const Value& wanted) {
        const json& c = wanted["t_c_last"].read();
        const json& f = wanted["t_f_last"].read();
        return vectors::isNear(got["t_c_last"], c, toleranceOf({v, group}))
               && vectors::isNear(got["t_f_last"], f, toleranceOf({v, group}));
    };
    const bool isOther = v.contains("alt") && isNear(v["alt"]);
    EXPECT_TRUE(isNear(v["out"]) || isOther) << got << " wanted " << v["out"];
}

json initiationRest(SettledBench&, const Value& in)
{
    MeasStateVar& m = measure::state().var;
    m.vThigh = m.vTlow = m.delta0_slave_c = m.delta0_slave_f = 9;
    m.max_locked_diff = m.max_locked_interval_diff = m.refBreak = 9;
    MeasInitiation values;
    values.vTmin = in["vTmin"];
    values.vTmax = in["vTmax"];
    KvdLoz6TuReg_measInitiate(values);
    return json::object();
}

json boardDelay(SettledBench& b, const Value& in)
{
    b.bus.parameters.erase("pp1s_board_delay_to_latch");
    if (!in["ns"].is_null()) b.bus.parameters["pp1s_board_delay_to_latch"] = in["ns"].dump();
    KvdLoz6TuReg_measInitiate({});
    return {{"pp1sBoardDelay", KvdLoz6TuReg_getPp1sBoardDelay()}};
}

// ---- samples ----------------------------------------------------------------------------------------------

/// The arithmetic to the bit, and the operation, whose counter reads in increments of 8 ns.
void sampleInterval(const Value& v, const Value&)
{
    constexpr Tolerance INCREMENT{0.0, 1.7e-8};
    SettledBench bench;
    bench.in([&] { regtest::write(v["init"]); });
    double t_c_last = v["init"]["t_c_last"], t_f_last = v["init"]["t_f_last"];
    for (const Value step : v["steps"]) {
        const Value in = step["in"], out = step["out"];
        const bool fails = in["t_f"].is_null();
        if (!fails) {
            const measure::SampleInterval i = measure::sampleInterval(t_c_last, t_f_last, in["t_f"], 1024.0);
            expectAll({{"ret", i.t_s >= 0}, {"t_s", i.t_s >= 0 ? json(i.t_s) : json()}}, out);
            if (i.t_s >= 0) t_c_last = i.t_c, t_f_last = in["t_f"];
        }
        expectAll({{"t_c_last", t_c_last}, {"t_f_last", t_f_last}}, out);

        if (fails) bench.failRun();
        else bench.run(in["t_f"]);
        bench.in([&] {
            measure::state().diffCheckActive = in["flags_before"][0];
            measure::state().diffCheckAfterJump = in["flags_before"][1];
            double t_s = 0;
            const int ret = KvdLoz6TuReg_calcSampleTimeInterval(t_s);
            const auto logged = std::ranges::count_if(
                bench.bus.errorLog, [](const std::string& line) { return line.starts_with("MCO"); });
            compareAll({{"ret", ret}, {"t_s", t_s}, {"elog", logged}}, out, INCREMENT);
        });
    }
}

void referenceEdges(const Value& v, const Value&)
{
    SettledBench bench;
    bench.in([&] {
        measure::state().var.m = {};
        regtest::write(v["init"]);
    });
    for (const Value step : v["steps"]) {
        const Value in = step["in"], out = step["out"];
        out["why"].read();
        if (in.contains("select")) {
            bench.edit([&](measure::State& s) { s.var.selectedRef = in["select"]; });
            if (in.size() == 1) continue;
        }
        if (in["latch"].is_null()) bench.noLatch();
        else bench.putLatch(triple(in["latch"]));
        if (in["run"].is_null()) bench.failRun(), bench.endHaltLater();   // the process halts
        else bench.putRun(triple(in["run"]));
        bench.in([&] {
            KvdLoz6TuReg_forceRegState(bool{in["valid"]} ? FREQLOCKED : WARMUP);
            LatchedEdge edge{};
            const int ret = KvdLoz6TuReg_handleRefClkInt(edge);
            const measure::State& s = measure::state();
            json got = {{"ret", ret}, {"m", s.var.m[KvdLoz6TuReg_measurementIndex(s.var.selectedRef)]},
                        {"decimation", s.decimation}};
            if (ret != 0)
                got.update(
                    {{"z_i", edge.z_i}, {"time0", edge.time[0]}, {"time1", edge.time[1]}, {"t_s", edge.t_s}});
            compareAll(got, out, {});
        });
    }
}

// ---- offsets and phase ------------------------------------------------------------------------------------

json adjust(SettledBench&, const Value& in) { return {{"ret", KvdLoz6TuReg_adjustOffset(in["c"], in["f"])}}; }
json adjustSlave(SettledBench&, const Value& in)
{
    KvdLoz6TuReg_adjustSlaveOffset(in["c"], in["f"]);
    return json::object();
}
json setOffset(SettledBench&, const Value& in)
{
    packet::state().supervision.phaseJumpFlag = 0;
    KvdLoz6TuReg_setOffset(in["c"], in["f"]);
    return {{"phaseJumpFlag", packet::state().supervision.phaseJumpFlag != 0}};
}

struct Phase {
    double z = 0, phase = 0;
    TimePair zPair{};
    Phase(double t_mod, const std::array<double, 2>& time, const std::array<double, 2>& timeRef)
    {
        KvdLoz6TuReg_calcZ(t_mod, time.data(), timeRef.data(), z, zPair, phase);
    }
};

json phaseError(SettledBench&, const Value& in)
{
    const Phase p(in["t_mod"], in["time"], in["timeRef"]);
    return {{"z", p.z}, {"zPair", pair(p.zPair)}, {"phase", p.phase}};
}

void signalBreaks(const Value& v, const Value& group)
{
    SettledBench bench;
    bench.in([&] { regtest::write(v["init"]); });
    for (const Value step : v["steps"]) {
        const Value out = step["out"];
        bench.bus.traces.clear();
        bench.in([&] {
            const u32 z_i = KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef());
            KvdLoz6TuReg_setMeasR(5e-10, z_i);
            const Phase p(0.125, step["in"]["time"], {0, 0});
            KvdLoz6TuReg_signalBreakCheck(z_i, p.z, p.zPair);
            const MeasStateVar& m = measure::state().var;
            const Tolerance tolerance = toleranceOf({step, v, group});
            expectAll({{"z", p.z}, {"zPair", pair(p.zPair)}}, out, tolerance);
            expectAll({{"R", KvdLoz6TuReg_getMeasR(z_i)}, {"refBreak", m.refBreak},
                       {"jump", bench.traced("Reference signal break detected, compensating.")}}, out);
            EXPECT_NEAR((m.delta0_c - double{out["delta0_c"]}) + (m.delta0_f - double{out["delta0_f"]}), 0.0,
                        tolerance.of(m.delta0_c + m.delta0_f));
        });
    }
}

// ---- another reference ------------------------------------------------------------------------------------

constexpr const char* ESTIMATOR_RESET = "estimator back to start values";
constexpr const char* TIME_RESET = "time covariance reset";

/// A master in the middle of things, so that what a change leaves alone shows.
void beforeChange(const Value& in)
{
    measure::State& s = measure::state();
    s.var.delta0_c = 5.0, s.var.delta0_f = 0.25, s.var.calibrationCountDown = 77.0, s.var.histCountDown = 9.0;
    s.var.refBreak = 4, s.var.pktRate = 3;
    for (u32 z_i = 0; z_i < Z_I_COUNT; ++z_i) s.var.m[z_i] = 100 + z_i;
    control::state().var.regState = bool{in["locked"]} ? FREQLOCKED : FREQDRIFTING;
    estimator::state().var.P_est = {};
    estimator::state().var.P_est[1] = estimator::state().var.P_est[7] = 3e-9;
    packet::state().supervision.intervalSize = 7;
}

/// What the change did, in the words of the file; the start values of the estimator hold all of its rows.
std::set<std::string> actionsOf(SettledBench& b, u32 latchReads, std::set<std::string>& wanted)
{
    std::set<std::string> seen;
    const Mat6& P = estimator::state().var.P_est;
    if (b.bus.reads[hwtest::BASE_2C + 0xb4] != latchReads) seen.insert("latch read");
    if (b.traced("Not supported reference") > 0) seen.insert("trace not supported");
    if (measure::state().var.pktRate == 10) seen.insert("setPktRate 10");
    if (packet::state().supervision.intervalSize != 7) seen.insert("supervision restart");
    if (P[7] == 1e-12 && P[14] == 1e-28) {
        seen.insert(ESTIMATOR_RESET);
        wanted.erase(TIME_RESET);
    } else {
        EXPECT_EQ(P[7], 3e-9);
        if (P[0] > 87381.0 && P[1] == 0.0) seen.insert(TIME_RESET);
        else EXPECT_EQ(P[1], 3e-9);
    }
    return seen;
}

void referenceChange(const Value& v, const Value&)
{
    SettledBench bench;
    bench.in([&] {
        const Value in = v["in"], out = v["out"];
        regtest::write(in);
        beforeChange(in);
        const u32 latchReads = bench.bus.reads[hwtest::BASE_2C + 0xb4];
        KvdLoz6TuReg_handleConfigRefType(in["refType"], 0xFFFFFFFF);
        auto wanted = out["actions"].get<std::set<std::string>>();
        // The packet measurements' own, and the time inputs': nothing to look at here.
        for (const char* notSeen : {"PDV restart 0", "PDV restart 1", "PDV restart 2", "onPktTimeRefInit",
                                    "onPktTimeRefTerm", "preTimeOffset_c of GPS and HPTSI cleared"})
            wanted.erase(notSeen);
        const std::set<std::string> seen = actionsOf(bench, latchReads, wanted);
        EXPECT_EQ(seen, wanted);
        json m = json::object();
        for (u32 z_i = 1; z_i < Z_I_COUNT; ++z_i) {
            const double is = measure::state().var.m[z_i];
            if (is != 100.0 + z_i || out["m"].contains(std::to_string(z_i))) m[std::to_string(z_i)] = is;
        }
        compareAll({{"m", m}}, out, {});
    });
}

json takeOverAsMaster(SettledBench&, const Value& in)
{
    MeasStateVar& m = measure::state().var;
    m.t_mod_old = 1.0, m.delta0_c = 5.0, m.delta0_f = 0.25;
    regulator::state().masterSlaveMode = in["wasMaster"];
    KvdLoz6TuReg_takeOverAsMaster(in["otherRegState"]);
    return json::object();
}

// ---- packet counter ---------------------------------------------------------------------------------------

void counterDifference(const Value& v, const Value& group)
{
    const Value init = v["init"];
    measure::State s;
    s.diff_c = init["diff_c"], s.diff_f = init["diff_f"], s.countConsecutiveDiff = init["count"];
    s.diffCheckActive = init["diffCheckActive"], s.diffCheckAfterJump = init["diffCheckAfterJump"];
    for (const Value step : v["steps"]) {
        const Value i = step["in"];
        const Tolerance tolerance = toleranceOf({step, v, group});
        MeasureBench bench(u32{i["board"]} == 1 ? 1 : 2);
        if (!i["t_f"].is_null() && !i["ntp"].is_null() && i["board"] == 1) {
            const TimePair candidate = measure::diffCandidate(i["t_f"], i["t_c_last"], i["t_f_last"], 1024.0,
                                                              i["ntp"][0], i["ntp"][1]);
            bench.in([&] { measure::checkDiff(s, candidate); });
            expectAll({{"cand_c", candidate.c}, {"cand_f", candidate.f}}, step["out"], tolerance);
        } else {
            // A board without the counter, or a counter that can't be read: nothing moves.
            // (The packet counter's registers can't fail on a board that has them.)
            if (i["t_f"].is_null()) bench.failRun();
            const bool canHappen = i["t_f"].is_null() || i["board"] != 1;
            i.skip({"t_f", "t_c_last", "t_f_last", "ntp"});
            step["out"].skip({"cand_c", "cand_f"});
            bench.in([&] {
                measure::state() = s;
                if (canHappen) KvdLoz6TuReg_handlePp100msInterupt();
                s = measure::state();
            });
        }
        // Where the pair's parts move against each other, their sums are what is compared.
        const Value out = step.contains("alt") ? step["alt"] : step["out"];
        out.skip({"cand_c", "cand_f"});
        if (step.contains("alt"))
            for (const auto& [key, other] : step["out"].items())
                if (out.contains(key)) other.read();
        expectAll({{"diff_c", s.diff_c}, {"diff_f", s.diff_f}, {"count", s.countConsecutiveDiff},
                   {"diffCheckActive", s.diffCheckActive}, {"diffCheckAfterJump", s.diffCheckAfterJump}},
                  out, tolerance);
    }
}

json counterTicks(SettledBench& b, const Value& in)
{                                            // board type 2: a check reads the counter, and no more
    const auto set = in["set"].get<std::set<u32>>(), clear = in["clear"].get<std::set<u32>>();
    json ran = json::array();
    for (u32 tick = 1; tick <= u32{in["ticks"]}; ++tick) {
        if (set.contains(tick)) measure::setDiffCheckActive();
        if (clear.contains(tick)) measure::state().diffCheckActive = 0;
        const u32 before = b.bus.reads[hwtest::BASE_2C + 0xc8];
        KvdLoz6TuReg_handleInterrupt(2);
        if (b.bus.reads[hwtest::BASE_2C + 0xc8] != before) ran.push_back(tick);
    }
    return {{"run", ran}};
}

// ---- temperature ------------------------------------------------------------------------------------------

constexpr double SENSOR_STEP = 1.0 / 32768;           // V, of the sensor's word
/// A voltage as the sensor's word can hold it: a limit and a reading that are equal stay equal.
double sensor(double volts) { return std::floor(volts / SENSOR_STEP + 0.5) * SENSOR_STEP; }
constexpr double SENSOR_MAX = 0x1FFFF * SENSOR_STEP;  // V
/// A reading that lies on its side of the limits, however close.
double reading(double volts, double vTmin, double vTmax)
{
    const double v = std::min(sensor(volts), SENSOR_MAX);
    if (volts < vTmin && v >= sensor(vTmin)) return sensor(vTmin) - SENSOR_STEP;
    if (volts > vTmax && v <= sensor(vTmax)) return sensor(vTmax) + SENSOR_STEP;
    return v;
}
/// What of a wanted reading the sensor's word can tell; `lowAtStart` is none.
double held(const std::string& name, double wanted, double lowAtStart)
{
    if (name == "vTlow" && wanted == lowAtStart) return wanted;
    return name == "vT" || name == "vThigh" || name == "vTlow" ? std::min(wanted, SENSOR_MAX) : wanted;
}

void temperature(const Value& v, const Value& group)
{
    if (group.contains("tol")) group["tol"].read();   // to the bit of the model; the word is coarser
    constexpr u32 FAULTS_BORNE = 5;
    const double vTmin = v["init"]["vTmin"], vTmax = v["init"]["vTmax"];
    SettledBench bench;
    MeasInitiation values;
    values.vTmin = sensor(vTmin);
    values.vTmax = sensor(vTmax);
    bench.in([&] { KvdLoz6TuReg_measInitiate(values); });
    for (const Value step : v["steps"]) {
        const Value out = step["out"];
        const bool fails = bool{step["in"]["res"]};
        const double vT = step["in"]["vT"];
        if (fails) bench.failTemperature();
        else bench.volts(reading(vT, vTmin, vTmax));
        if ((fails && u32{out["nrBadSamples"]} > FAULTS_BORNE) || u32{out["nrOutRange"]} > FAULTS_BORNE)
            bench.endHaltLater();
        bench.in([&] {
            KvdLoz6TuReg_readOcxoTemp();
            for (const auto& [name, wanted] : out.items())
                if (!wanted.is_null())
                    vectors::expectNear(name, regtest::numbers().at(name).get(),
                                        held(name, vectors::number(wanted), 2 * vTmax),
                                        {0.0, 2 * 1.6 * SENSOR_STEP});
        });
    }
}

// ---- start values -----------------------------------------------------------------------------------------

regulator::TemperaturePolynomial polynomial(const Value& i)
{
    return regulator::temperaturePolynomial(i["a3"], i["a2"], i["a1"], i["a0"], i["vTmin"], i["vTmax"]);
}

json temperatureCoefficients(SettledBench&, const Value& in)
{
    const regulator::TemperaturePolynomial p = polynomial(in);
    return {{"x3", p.P1}, {"x4", p.P2}, {"x5", p.P3}, {"T2f3", p.P0}};
}

void coldDivider(const Value& v, const Value& group)
{
    const Value i = v["in"], out = v["out"];
    SettledBench bench;
    bench.in([&] {
        regulator::state().vTmin = i["vTmin"];
        regulator::state().vTmax = i["vTmax"];
        const double T = regulator::normalisedTemperature(i["vT"]);
        const double D0 = double{i["nomDiv"]} + double{i["K0"]} / double{i["M0"]};
        const double Div = regulator::coldDivider(D0, i["fNom"], polynomial(i), T);
        vectors::expect("T", T, out["T"], {0.0, 1e-15});
        expectAll({{"Div", Div}, {"b", tuHwIf_calcOcxoGain(Div)}}, out, toleranceOf({v, group}));
    });
}

json temperatureLimits(SettledBench&, const Value& in)
{
    const bool valid = regulator::areLimitsValid(in["vTmin"], in["vTmax"]);
    return {{"trace", !valid}, {"vTmin", valid ? double{in["vTmin"]} : 1.0},
            {"vTmax", valid ? double{in["vTmax"]} : 3.1}};
}

// ---- answers ----------------------------------------------------------------------------------------------

void rntToSfcDiff(const Value& v, const Value&)
{
    constexpr i32 PERIOD_us = 40960000;
    v["margin"].read();
    const i32 diff = regulator::rntToSfcDiff(v["in"]["delta0_c"], v["in"]["delta0_f"]);
    const i32 off = std::abs(diff - i32{v["out"]["diff"]});
    EXPECT_LE(std::min(off, PERIOD_us - off), v.value("tol_int", 0)) << "gives " << diff;
}

void calendar(const Value& v, const Value&)
{
    if (v.contains("text_pair")) v["text_pair"].read();
    const regulator::Date d = regulator::dateOfDays(v["in"]["days"]);
    expectAll({{"year", d.year}, {"month", d.month}, {"day", d.day}}, v["out"]);
}

void rntForSfn(const Value& v, const Value& group)
{
    const Value i = v["in"], out = v["out"];
    v["frac_exact"].read();
    EXPECT_EQ(out["sfn"], u32{i["triple"][1]});
    const double t_f = ((double{i["triple"][0]} * 4096 + double{i["triple"][1]}) * 1228800 + 0.5) / 122880000;
    const double time = regulator::rntOfCounter(i["t_c_last"], i["t_f_last"], t_f, 1024.0, i["delta0_c"],
                                                i["delta0_f"], i["sfcGpsOffset"]);
    const regulator::RntTime t = regulator::rntTime(time);
    vectors::expect("rnt", time, out["rnt"], toleranceOf({v, group}));
    expectAll({{"year", t.date.year}, {"month", t.date.month}, {"day", t.date.day}, {"hour", t.hour},
               {"minute", t.minute}, {"second", t.second}}, out);
    vectors::expect("frac", t.fraction, out["frac"], {0.0, v["tol_int"]["frac"]});
}

json timeOffset(SettledBench&, const Value&)
{
    u32 seconds = 0, nanoseconds = 0;
    KvdLoz6TuReg_calcSoCpriRTO(seconds, nanoseconds);
    return {{"seconds", seconds}, {"nanoseconds", nanoseconds}};
}

json sfnInitTime(SettledBench&, const Value& in)
{
    const Value t = in["time"];
    const double before = measure::state().var.delta0_c;
    auto* ind = node::make<KvdTuiifSetSfnInitTimeInd>(KVD_TUIIF_SET_SFN_INIT_TIME_IND);
    ind->sfnInitTime = {t[0], t[1], t[2], t[3], t[4], t[5]};
    Signal* sig = reinterpret_cast<Signal*>(ind);
    EXPECT_EQ(KvdLoz6TuReg_dispatch(sig), 1);
    ose::free_buf(&sig);
    // A restart finds the same change against what it stored.
    return {{"restartDelta", measure::state().var.delta0_c - before}};
}

}  // namespace

TEST(MeasureVectors, Measurements)
{
    vectors::Document document("o01_meas.json");
    vectors::eachGroup(document["groups"], {
        {"measurementIndex", calls(measurementIndex)}, {"coldStart", coldStart},
        {"setMeasR", calls(setMeasR)}, {"knowsTime", calls(knowsTime)}, {"validState", calls(validState)},
        {"measInitiate_time", initiationTime}, {"measInitiate_rest", calls(initiationRest)},
        {"pp1sBoardDelay", calls(boardDelay)},
        {"calcSampleTimeInterval", sampleInterval}, {"handleRefClkInt", referenceEdges},
        {"adjustOffset", calls(adjust)}, {"adjustSlaveOffset", calls(adjustSlave)},
        {"setOffset", calls(setOffset)}, {"calcZ", calls(phaseError)}, {"signalBreak", signalBreaks},
        {"handleConfigRefType", referenceChange}, {"takeOverAsMaster", calls(takeOverAsMaster)},
        {"sfcToNtp", counterDifference}, {"ntpTick", calls(counterTicks)}});
}

TEST(MeasureVectors, Oscillator)
{
    vectors::Document document("o01_ocxo.json");
    vectors::eachGroup(document["groups"], {
        {"readOcxoTemp_sequence", temperature}, {"temperatureLimits", calls(temperatureLimits)},
        {"tempCoefficients", calls(temperatureCoefficients)}, {"coldDivider", coldDivider}},
        {"temperatureVolts", "coeffPlain", "coeffLimits", "eepromChecksum", "eepromRetries", "serialAndPart",
         "calibrationDate", "isCalibrated"});
}

TEST(RegulatorVectors, Answers)
{
    vectors::Document document("o01_answers.json");
    vectors::eachGroup(document["groups"], {
        {"rntToSfcDiff", rntToSfcDiff}, {"calendar", calendar}, {"rntForSfn", rntForSfn},
        {"calcSoCpriRTO", calls(timeOffset)}, {"sfnInitTime", calls(sfnInitTime)}});
}
