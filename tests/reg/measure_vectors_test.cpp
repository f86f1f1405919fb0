// Replay of check values: measurement core, temperature, start values, answers.
#include "reg/support/measure_bench.h"
#include "support/vectors.h"

#include "node/sig.h"
#include "reg/kvd_reg_packet_int.h"
#include "sig/tuiif_sig.h"

using regtest::MeasureBench;
using regtest::Triple;
using vectors::expectNear;
using vectors::Field;
using vectors::field;
using vectors::toleranceOf;
using vectors::Tolerance;
using vectors::Value;

namespace {

double num(const Value& v) { return vectors::number(v); }
Triple triple(const Value& v) { return {v[0].get<u32>(), v[1].get<u32>(), v[2].get<u32>()}; }

struct SettledBench : MeasureBench {
    explicit SettledBench(u32 boardType = 2) : MeasureBench(boardType) { settle(); }
};

const std::vector<Field<MeasStateVar>> MEAS = {
    field("selectedRef", &MeasStateVar::selectedRef),
    field("prevSelectedRef", &MeasStateVar::prevSelectedRef),
    field("t_c_last", &MeasStateVar::t_c_last),
    field("t_f_last", &MeasStateVar::t_f_last),
    field("t_mod_old", &MeasStateVar::t_mod_old),
    field("delta0_c", &MeasStateVar::delta0_c),
    field("delta0_f", &MeasStateVar::delta0_f),
    field("delta0_slave_c", &MeasStateVar::delta0_slave_c),
    field("delta0_slave_f", &MeasStateVar::delta0_slave_f),
    field("refBreak", &MeasStateVar::refBreak),
    field("histCountDown", &MeasStateVar::histCountDown),
    field("calibrationCountDown", &MeasStateVar::calibrationCountDown),
    field("max_locked_diff", &MeasStateVar::max_locked_diff),
    field("max_locked_interval_diff", &MeasStateVar::max_locked_interval_diff),
    field("vThigh", &MeasStateVar::vThigh),
    field("vTlow", &MeasStateVar::vTlow),
    field("vT", &MeasStateVar::vT),
    field("vTnorm", &MeasStateVar::vTnorm),
    field("nrBadSamples", &MeasStateVar::nrBadSamples),
    field("nrOutRange", &MeasStateVar::nrOutRange),
};

/// Writes those of `fields` that the record has.
void set(MeasureBench& bench, const Value& fields)
{
    bench.edit([&](measure::State& s) {
        for (const auto& [name, value] : fields.items()) vectors::write(MEAS, s.var, name, value);
    });
}

/// Compares those of `wanted` that the record has, null left out.
void compare(MeasureBench& bench, const Value& wanted, Tolerance tolerance = {})
{
    const MeasStateVar m = bench.meas();
    for (const auto& [name, value] : wanted.items()) {
        const auto* f = vectors::find(MEAS, name);
        if (f != nullptr && !value.is_null()) expectNear(name, f->get(m), num(value), tolerance);
    }
}

// ---- tables -----------------------------------------------------------------------------------------------

void measurementIndex(const Value& v, const Value&)
{
    SettledBench bench;
    bench.in([&] {
        const u32 selectedRef = v["in"]["selectedRef"].get<u32>();
        EXPECT_EQ(KvdLoz6TuReg_measurementIndex(selectedRef), v["out"]["z_i"].get<u32>());
        if (v["out"]["isTimeRef"].is_null()) return;
        EXPECT_EQ(KvdLoz6TuReg_isTimeRef(selectedRef) ? 1 : 0, v["out"]["isTimeRef"].get<int>());
    });
    EXPECT_EQ(bench.bus.countOf("Unknown TUREG refType") > 0, v["out"]["trace"].get<bool>());
}

void coldStart(const Value& v, const Value&)
{
    SettledBench bench;
    const u32 z_i = v["in"]["z_i"].get<u32>();
    const Value out = v["out"];
    if (v.contains("alt")) v["alt"].read();       // set at each use all the same
    if (!out["m"].is_null()) {
        EXPECT_EQ(bench.meas().m[z_i], num(out["m"]));
    }
    if (!out["R"].is_null()) {
        EXPECT_EQ(bench.meas().R_all[z_i], num(out["R"]));
    }
}

void setMeasR(const Value& v, const Value&)
{
    SettledBench bench;
    bench.in([&] {
        const u32 z_i = v["in"]["z_i"].get<u32>();
        KvdLoz6TuReg_setMeasR(num(v["in"]["R"]), z_i);
        EXPECT_EQ(KvdLoz6TuReg_getMeasR(z_i) == num(v["in"]["R"]), v["out"]["written"].get<bool>());
    });
    EXPECT_EQ(bench.bus.countOf("out-of-range") > 0, v["out"]["trace"].get<bool>());
}

void validState(const Value& v, const Value&)
{
    const Value i = v["in"];
    EXPECT_EQ(measure::isValidState(i["regState"].get<u8>(), i["refType"].get<u8>(), i["selectedRef"].get<u32>(),
                                    i["prevSelectedRef"].get<u32>()),
              num(v["out"]["valid"]) != 0);
}

void knowsTime(const Value& v, const Value&)
{
    SettledBench bench;
    bench.in([&] {
        KvdLoz6TuReg_setMod(num(v["in"]["t_mod_old"]));
        EXPECT_EQ(KvdLoz6TuReg_knowsTime(), v["out"]["knows"].get<bool>());
    });
}

// ---- initiation -------------------------------------------------------------------------------------------

void initiationTime(const Value& v, const Value& group)
{
    SettledBench bench;
    bench.in([&] {
        MeasInitiation values;
        values.time = num(v["in"]["t_c"]);
        values.time_f = num(v["in"]["t_f"]);
        KvdLoz6TuReg_measInitiate(values);
    });
    // Where a pair may also stand with its parts moved against each other, either is right.
    const MeasStateVar m = bench.meas();
    const Value out = v["out"];
    const Tolerance tolerance = toleranceOf({v, group});
    const auto near = [&](const Value& wanted) {
        return std::fabs(m.t_c_last - num(wanted["t_c_last"])) <= tolerance.of(num(wanted["t_c_last"]))
               && std::fabs(m.t_f_last - num(wanted["t_f_last"])) <= tolerance.of(num(wanted["t_f_last"]));
    };
    const bool isOther = v.contains("alt") && near(v["alt"]);
    EXPECT_TRUE(near(out) || isOther) << m.t_c_last << ", " << m.t_f_last << " wanted " << out;
}

void initiationRest(const Value& v, const Value&)
{
    SettledBench bench;
    bench.edit([](measure::State& s) {
        s.var.vThigh = 9, s.var.vTlow = 9, s.var.delta0_slave_c = 9, s.var.delta0_slave_f = 9;
        s.var.refBreak = 9, s.var.max_locked_diff = 9, s.var.max_locked_interval_diff = 9;
    });
    bench.in([&] {
        MeasInitiation values;
        values.vTmin = num(v["in"]["vTmin"]);
        values.vTmax = num(v["in"]["vTmax"]);
        KvdLoz6TuReg_measInitiate(values);
    });
    compare(bench, v["out"]);
}

void boardDelay(const Value& v, const Value& group)
{
    SettledBench bench;
    bench.bus.parameters.erase("pp1s_board_delay_to_latch");
    if (!v["in"]["ns"].is_null()) bench.bus.parameters["pp1s_board_delay_to_latch"] = v["in"]["ns"].dump();
    bench.in([] { KvdLoz6TuReg_measInitiate({}); });
    ose::DataScope scope(*bench.block);
    expectNear("pp1sBoardDelay", KvdLoz6TuReg_getPp1sBoardDelay(), num(v["out"]["pp1sBoardDelay"]),
               toleranceOf({v, group}));
}

// ---- samples ----------------------------------------------------------------------------------------------

/// Twice: the arithmetic to the bit, and the operation, whose counter reads in increments of 8 ns.
void sampleInterval(const Value& v, const Value&)
{
    constexpr Tolerance INCREMENT{0.0, 1.7e-8};
    SettledBench bench;
    set(bench, v["init"]);
    double t_c_last = num(v["init"]["t_c_last"]), t_f_last = num(v["init"]["t_f_last"]);
    for (const Value step : v["steps"]) {
        const Value in = step["in"], out = step["out"];
        const bool fails = in["t_f"].is_null();
        const double t_f = fails ? 0.0 : num(in["t_f"]);
        if (!fails) {
            const measure::SampleInterval i = measure::sampleInterval(t_c_last, t_f_last, t_f, 1024.0);
            EXPECT_EQ(i.t_s >= 0 ? 1 : 0, out["ret"].get<int>());
            if (i.t_s >= 0) {
                EXPECT_EQ(i.t_s, num(out["t_s"]));
                t_c_last = i.t_c;
                t_f_last = t_f;
            }
        }
        EXPECT_EQ(t_c_last, num(out["t_c_last"]));
        EXPECT_EQ(t_f_last, num(out["t_f_last"]));

        bench.edit([&](measure::State& s) {
            s.diffCheckActive = in["flags_before"][0].get<u32>();
            s.diffCheckAfterJump = in["flags_before"][1].get<u32>();
        });
        if (fails) bench.failRun();
        else bench.run(t_f);
        bench.in([&] {
            double t_s = 0;
            EXPECT_EQ(KvdLoz6TuReg_calcSampleTimeInterval(t_s), out["ret"].get<int>());
            if (!out["t_s"].is_null()) expectNear("t_s", t_s, num(out["t_s"]), INCREMENT);
        });
        compare(bench, out, INCREMENT);
        bench.edit([&](measure::State& s) {
            EXPECT_EQ(s.diffCheckActive, out["diffCheckActive"].get<u32>());
            EXPECT_EQ(s.diffCheckAfterJump, out["diffCheckAfterJump"].get<u32>());
        });
        EXPECT_EQ(std::count_if(bench.bus.errorLog.begin(), bench.bus.errorLog.end(),
                                [](const std::string& line) { return line.starts_with("MCO"); }),
                  out["elog"].get<std::ptrdiff_t>());
    }
}

void referenceEdges(const Value& v, const Value&)
{
    SettledBench bench;
    bench.edit([](measure::State& s) { s.var.m = {}; });
    set(bench, v["init"]);
    for (const Value step : v["steps"]) {
        const Value in = step["in"], out = step["out"];
        out["why"].read();
        if (in.contains("select")) {
            bench.edit([&](measure::State& s) { s.var.selectedRef = in["select"].get<u32>(); });
            if (in.size() == 1) continue;
        }
        if (in["latch"].is_null()) bench.noLatch();
        else bench.putLatch(triple(in["latch"]));
        if (in["run"].is_null()) {
            bench.failRun();
            bench.endHaltLater();            // a counter that fails halts the process
        } else {
            bench.putRun(triple(in["run"]));
        }
        bench.in([&] {
            KvdLoz6TuReg_forceRegState(num(in["valid"]) != 0 ? FREQLOCKED : WARMUP);
            LatchedEdge edge{};
            EXPECT_EQ(KvdLoz6TuReg_handleRefClkInt(edge), out["ret"].get<int>());
            if (out["ret"] == 0) return;
            EXPECT_EQ(edge.z_i, out["z_i"].get<u32>());
            EXPECT_EQ(edge.time[0], num(out["time0"]));
            EXPECT_EQ(edge.time[1], num(out["time1"]));
            EXPECT_EQ(edge.t_s, num(out["t_s"]));
        });
        compare(bench, out);
        bench.edit([&](measure::State& s) {
            EXPECT_EQ(s.var.m[KvdLoz6TuReg_measurementIndex(s.var.selectedRef)], num(out["m"]));
            EXPECT_EQ(s.decimation, out["decimation"].get<int>());
        });
    }
}

// ---- offsets and phase ------------------------------------------------------------------------------------

void adjustOffset(const Value& v, const Value&)
{
    SettledBench bench;
    set(bench, v["in"]);
    bench.in([&] {
        EXPECT_EQ(KvdLoz6TuReg_adjustOffset(num(v["in"]["c"]), num(v["in"]["f"])), v["out"]["ret"].get<int>());
    });
    compare(bench, v["out"]);
}

void adjustSlaveOffset(const Value& v, const Value&)
{
    SettledBench bench;
    set(bench, v["in"]);
    bench.in([&] { KvdLoz6TuReg_adjustSlaveOffset(num(v["in"]["c"]), num(v["in"]["f"])); });
    compare(bench, v["out"]);
}

void setOffset(const Value& v, const Value&)
{
    SettledBench bench;
    bench.in([&] {
        packet::state().supervision.phaseJumpFlag = 0;
        KvdLoz6TuReg_setOffset(num(v["in"]["c"]), num(v["in"]["f"]));
        EXPECT_EQ(packet::state().supervision.phaseJumpFlag != 0, v["out"]["phaseJumpFlag"].get<bool>());
    });
}

void phaseError(const Value& v, const Value& group)
{
    SettledBench bench;
    set(bench, v["init"]);
    for (const Value step : v["steps"]) {
        const Value i = step["in"], out = step["out"];
        const double time[2] = {num(i["time"][0]), num(i["time"][1])};
        const double timeRef[2] = {num(i["timeRef"][0]), num(i["timeRef"][1])};
        double z = 0, phase = 0;
        TimePair zPair{};
        bench.in([&] { KvdLoz6TuReg_calcZ(num(i["t_mod"]), time, timeRef, z, zPair, phase); });
        const Tolerance tolerance = toleranceOf({step, v, group});
        expectNear("z", z, num(out["z"]), tolerance);
        expectNear("zPair[0]", zPair.c, num(out["zPair"][0]), tolerance);
        expectNear("zPair[1]", zPair.f, num(out["zPair"][1]), tolerance);
        expectNear("phase", phase, num(out["phase"]), {});
        compare(bench, out, tolerance);
    }
}

void signalBreaks(const Value& v, const Value& group)
{
    SettledBench bench;
    set(bench, v["init"]);
    for (const Value step : v["steps"]) {
        const Value out = step["out"];
        const double time[2] = {num(step["in"]["time"][0]), num(step["in"]["time"][1])};
        const double timeRef[2] = {0, 0};
        double z = 0, R = 0;
        TimePair zPair{};
        const std::size_t before = bench.bus.countOf("Reference signal break detected, compensating.");
        bench.in([&] {
            const u32 z_i = KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef());
            double phase = 0;
            KvdLoz6TuReg_setMeasR(5e-10, z_i);
            KvdLoz6TuReg_calcZ(0.125, time, timeRef, z, zPair, phase);
            KvdLoz6TuReg_signalBreakCheck(z_i, z, zPair);
            R = KvdLoz6TuReg_getMeasR(z_i);
        });
        const Tolerance tolerance = toleranceOf({step, v, group});
        expectNear("z", z, num(out["z"]), tolerance);
        expectNear("zPair[0]", zPair.c, num(out["zPair"][0]), tolerance);
        expectNear("zPair[1]", zPair.f, num(out["zPair"][1]), tolerance);
        EXPECT_EQ(R, num(out["R"]));
        EXPECT_EQ(bench.bus.countOf("Reference signal break detected, compensating.") - before,
                  out["jump"].get<std::size_t>());
        EXPECT_EQ(bench.meas().refBreak, out["refBreak"].get<int>());
        expectNear("delta0", bench.meas().delta0_c + bench.meas().delta0_f,
                   num(out["delta0_c"]) + num(out["delta0_f"]), tolerance);
    }
}

// ---- another reference ------------------------------------------------------------------------------------

void referenceChange(const Value& v, const Value&)
{
    // Those with nothing to look at here: the packet measurements' own, and the time inputs'.
    static const std::set<std::string> NOT_SEEN = {
        "PDV restart 0", "PDV restart 1", "PDV restart 2", "onPktTimeRefInit", "onPktTimeRefTerm",
        "preTimeOffset_c of GPS and HPTSI cleared"};
    static const std::set<std::string> SEEN = {"latch read", "time covariance reset", "supervision restart",
                                               "estimator back to start values", "setPktRate 10",
                                               "trace not supported"};
    constexpr u16 NO_INTERVAL = 7;
    const Value i = v["in"], out = v["out"];
    const auto actions = out["actions"].get<std::set<std::string>>();
    for (const std::string& a : actions)
        if (!SEEN.contains(a) && !NOT_SEEN.contains(a)) ADD_FAILURE() << "no replay of the action \"" << a << "\"";

    SettledBench bench;
    bench.edit([&](measure::State& s) {
        s.var.selectedRef = i["selectedRef"].get<u32>();
        s.var.t_mod_old = num(i["t_mod_old"]);
        s.var.delta0_c = 5.0, s.var.delta0_f = 0.25;
        s.var.calibrationCountDown = 77.0, s.var.histCountDown = 9.0, s.var.refBreak = 4;
        s.var.pktRate = 3;
        for (u32 z_i = 0; z_i < Z_I_COUNT; ++z_i) s.var.m[z_i] = 100 + z_i;
        control::state().var.f_ix = i["f_ix"].get<u8>();
        control::state().var.regState = i["locked"] == 1 ? FREQLOCKED : FREQDRIFTING;
        regulator::state().initCnt = i["noisyCounter"].get<u8>();
        estimator::state().var.P_est = {};
        estimator::state().var.P_est[1] = estimator::state().var.P_est[7] = 3e-9;
        packet::state().supervision.intervalSize = NO_INTERVAL;
    });
    const u32 latchReads = bench.bus.reads[hwtest::BASE_2C + 0xb4];
    bench.in([&] { KvdLoz6TuReg_handleConfigRefType(i["refType"].get<u32>(), 0xFFFFFFFF); });
    EXPECT_EQ(bench.bus.reads[hwtest::BASE_2C + 0xb4] - latchReads, actions.contains("latch read") ? 1u : 0u);
    EXPECT_EQ(bench.bus.countOf("Not supported reference") > 0, actions.contains("trace not supported"));
    compare(bench, out);
    bench.edit([&](measure::State& s) {
        EXPECT_EQ(regulator::state().initCnt, out["noisyCounter"].get<int>());
        for (u32 z_i = 1; z_i < Z_I_COUNT; ++z_i) {
            const std::string key = std::to_string(z_i);
            EXPECT_EQ(s.var.m[z_i], out["m"].contains(key) ? num(out["m"][key]) : 100.0 + z_i) << "m of " << z_i;
        }
        EXPECT_EQ(s.var.pktRate, actions.contains("setPktRate 10") ? 10 : 3);
        EXPECT_EQ(packet::state().supervision.intervalSize != NO_INTERVAL, actions.contains("supervision restart"));
        const Mat6& P = estimator::state().var.P_est;
        if (actions.contains("estimator back to start values")) {
            EXPECT_EQ(P[7], 1e-12);
            EXPECT_EQ(P[14], 1e-28);
        } else {
            EXPECT_EQ(P[7], 3e-9);
            EXPECT_EQ(P[1], actions.contains("time covariance reset") ? 0.0 : 3e-9);
            EXPECT_EQ(P[0] > 87381.0, actions.contains("time covariance reset"));
        }
    });
}

void takeOverAsMaster(const Value& v, const Value&)
{
    SettledBench bench;
    bench.edit([&](measure::State& s) {
        s.var.t_mod_old = 1.0;
        s.var.delta0_c = 5.0, s.var.delta0_f = 0.25;
        regulator::state().masterSlaveMode = v["in"]["wasMaster"].get<u8>();
        control::state().var.regState = v["in"]["regState"].get<u8>();
    });
    bench.in([&] { KvdLoz6TuReg_takeOverAsMaster(v["in"]["otherRegState"].get<u8>()); });
    compare(bench, v["out"]);
}

// ---- packet counter ---------------------------------------------------------------------------------------

void counterDifference(const Value& v, const Value& group)
{
    const Value init = v["init"];
    measure::State s;
    s.diff_c = num(init["diff_c"]);
    s.diff_f = num(init["diff_f"]);
    s.countConsecutiveDiff = init["count"].get<u32>();
    s.diffCheckActive = init["diffCheckActive"].get<u32>();
    s.diffCheckAfterJump = init["diffCheckAfterJump"].get<u32>();
    for (const Value step : v["steps"]) {
        const Value i = step["in"];
        const Tolerance tolerance = toleranceOf({step, v, group});
        MeasureBench bench(i["board"] == 1 ? 1 : 2);
        if (!i["t_f"].is_null() && !i["ntp"].is_null() && i["board"] == 1) {
            const TimePair candidate =
                measure::diffCandidate(num(i["t_f"]), num(i["t_c_last"]), num(i["t_f_last"]), 1024.0,
                                       i["ntp"][0].get<u32>(), i["ntp"][1].get<u32>());
            bench.in([&] { measure::checkDiff(s, candidate); });
            expectNear("candidate c", candidate.c, num(step["out"]["cand_c"]), tolerance);
            expectNear("candidate f", candidate.f, num(step["out"]["cand_f"]), tolerance);
        } else {
            // A board without the counter, or a counter that can't be read: nothing moves.
            // (The packet counter's registers can't fail on a board that has them.)
            if (i["t_f"].is_null()) bench.failRun();
            const bool canHappen = i["t_f"].is_null() || i["board"] != 1;
            i.read();
            step["out"].read();
            bench.in([&] {
                measure::state() = s;
                if (canHappen) KvdLoz6TuReg_handlePp100msInterupt();
                s = measure::state();
            });
        }
        // Where the pair's parts move against each other, their sums are what is compared.
        const Value out = step.contains("alt") ? step["alt"] : step["out"];
        if (step.contains("alt")) step["out"].read(), step["alt"].read();
        expectNear("diff_c", s.diff_c, num(out["diff_c"]), tolerance);
        expectNear("diff_f", s.diff_f, num(out["diff_f"]), tolerance);
        EXPECT_EQ(s.countConsecutiveDiff, out["count"].get<u32>());
        EXPECT_EQ(s.diffCheckActive, out["diffCheckActive"].get<u32>());
        EXPECT_EQ(s.diffCheckAfterJump, out["diffCheckAfterJump"].get<u32>());
    }
}

void counterTicks(const Value& v, const Value&)
{
    SettledBench bench;                      // board type 2: a check reads the counter, and no more
    const auto set = v["in"]["set"].get<std::set<u32>>(), clear = v["in"]["clear"].get<std::set<u32>>();
    std::vector<u32> ran;
    bench.in([&] {
        for (u32 tick = 1; tick <= v["in"]["ticks"].get<u32>(); ++tick) {
            if (set.contains(tick)) measure::setDiffCheckActive();
            if (clear.contains(tick)) measure::state().diffCheckActive = 0;
            const u32 before = bench.bus.reads[hwtest::BASE_2C + 0xc8];
            KvdLoz6TuReg_handleInterrupt(2);
            if (bench.bus.reads[hwtest::BASE_2C + 0xc8] != before) ran.push_back(tick);
        }
    });
    EXPECT_EQ(ran, v["out"]["run"].get<std::vector<u32>>());
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
    const double vTmin = num(v["init"]["vTmin"]), vTmax = num(v["init"]["vTmax"]);
    SettledBench bench;
    bench.in([&] {
        MeasInitiation values;
        values.vTmin = sensor(vTmin);
        values.vTmax = sensor(vTmax);
        KvdLoz6TuReg_measInitiate(values);
    });
    for (const Value step : v["steps"]) {
        const Value out = step["out"];
        const double vT = num(step["in"]["vT"]);
        if (step["in"]["res"] != 0) {
            bench.failTemperature();
            if (out["nrBadSamples"].get<u32>() > FAULTS_BORNE) bench.endHaltLater();
        } else {
            bench.volts(reading(vT, vTmin, vTmax));
        }
        if (out["nrOutRange"].get<u32>() > FAULTS_BORNE) bench.endHaltLater();
        bench.in([] { KvdLoz6TuReg_readOcxoTemp(); });
        const MeasStateVar m = bench.meas();
        for (const auto& [name, wanted] : out.items())
            if (!wanted.is_null())
                expectNear(name, vectors::find(MEAS, name)->get(m), held(name, num(wanted), 2 * vTmax),
                           {0.0, 2 * 1.6 * SENSOR_STEP});
    }
}

// ---- start values -----------------------------------------------------------------------------------------

regulator::TemperaturePolynomial polynomial(const Value& i)
{
    return regulator::temperaturePolynomial(num(i["a3"]), num(i["a2"]), num(i["a1"]), num(i["a0"]),
                                            num(i["vTmin"]), num(i["vTmax"]));
}

void temperatureCoefficients(const Value& v, const Value& group)
{
    const regulator::TemperaturePolynomial p = polynomial(v["in"]);
    const Tolerance tolerance = toleranceOf({v, group});
    expectNear("x_est[3]", p.P1, num(v["out"]["x3"]), tolerance);
    expectNear("x_est[4]", p.P2, num(v["out"]["x4"]), tolerance);
    expectNear("x_est[5]", p.P3, num(v["out"]["x5"]), tolerance);
    expectNear("constant", p.P0, num(v["out"]["T2f3"]), tolerance);
}

void coldDivider(const Value& v, const Value& group)
{
    const Value i = v["in"], out = v["out"];
    const Tolerance tolerance = toleranceOf({v, group});
    SettledBench bench;
    double T = 0;
    bench.in([&] {
        regulator::state().vTmin = num(i["vTmin"]);
        regulator::state().vTmax = num(i["vTmax"]);
        T = regulator::normalisedTemperature(num(i["vT"]));
    });
    expectNear("T", T, num(out["T"]), {0.0, 1e-15});
    const double D0 = num(i["nomDiv"]) + num(i["K0"]) / num(i["M0"]);
    const double Div = regulator::coldDivider(D0, num(i["fNom"]), polynomial(i), T);
    expectNear("Div", Div, num(out["Div"]), tolerance);
    bench.in([&] { expectNear("b", tuHwIf_calcOcxoGain(Div), num(out["b"]), tolerance); });
}

void temperatureLimits(const Value& v, const Value&)
{
    const Value in = v["in"], out = v["out"];
    const bool valid = regulator::areLimitsValid(num(in["vTmin"]), num(in["vTmax"]));
    EXPECT_EQ(valid, !out["trace"].get<bool>());
    EXPECT_EQ(num(out["vTmin"]), valid ? num(in["vTmin"]) : 1.0);
    EXPECT_EQ(num(out["vTmax"]), valid ? num(in["vTmax"]) : 3.1);
}

// ---- answers ----------------------------------------------------------------------------------------------

void rntToSfcDiff(const Value& v, const Value&)
{
    constexpr i32 PERIOD_us = 40960000;
    v["margin"].read();
    const i32 diff = regulator::rntToSfcDiff(num(v["in"]["delta0_c"]), num(v["in"]["delta0_f"]));
    i32 off = std::abs(diff - v["out"]["diff"].get<i32>());
    if (off > PERIOD_us / 2) off = PERIOD_us - off;
    EXPECT_LE(off, v.value("tol_int", 0)) << "gives " << diff;
}

void calendar(const Value& v, const Value&)
{
    if (v.contains("text_pair")) v["text_pair"].read();
    const regulator::Date d = regulator::dateOfDays(v["in"]["days"].get<i64>());
    EXPECT_EQ(v["out"]["year"], d.year);
    EXPECT_EQ(v["out"]["month"], d.month);
    EXPECT_EQ(v["out"]["day"], d.day);
}

void rntForSfn(const Value& v, const Value& group)
{
    const Value i = v["in"], out = v["out"];
    v["frac_exact"].read();
    EXPECT_EQ(out["sfn"], i["triple"][1].get<u32>());
    const double t_f = ((num(i["triple"][0]) * 4096 + num(i["triple"][1])) * 1228800 + 0.5) / 122880000;
    const double time =
        regulator::rntOfCounter(num(i["t_c_last"]), num(i["t_f_last"]), t_f, 1024.0, num(i["delta0_c"]),
                                num(i["delta0_f"]), num(i["sfcGpsOffset"]));
    expectNear("rnt", time, num(out["rnt"]), toleranceOf({v, group}));
    const regulator::RntTime t = regulator::rntTime(time);
    EXPECT_EQ(t.date.year, out["year"].get<int>());
    EXPECT_EQ(t.date.month, out["month"].get<int>());
    EXPECT_EQ(t.date.day, out["day"].get<int>());
    EXPECT_EQ(t.hour, out["hour"].get<int>());
    EXPECT_EQ(t.minute, out["minute"].get<int>());
    EXPECT_EQ(t.second, out["second"].get<int>());
    EXPECT_LE(std::llabs(static_cast<i64>(t.fraction) - out["frac"].get<i64>()), v["tol_int"]["frac"].get<i64>());
}

void timeOffset(const Value& v, const Value&)
{
    SettledBench bench;
    set(bench, v["in"]);
    bench.in([&] {
        u32 seconds = 0, nanoseconds = 0;
        KvdLoz6TuReg_calcSoCpriRTO(seconds, nanoseconds);
        EXPECT_EQ(seconds, v["out"]["seconds"].get<u32>());
        EXPECT_EQ(nanoseconds, v["out"]["nanoseconds"].get<u32>());
    });
}

void sfnInitTime(const Value& v, const Value&)
{
    const Value t = v["in"]["time"], out = v["out"];
    SettledBench bench;
    set(bench, v["in"]);
    bench.edit([&](measure::State&) { regulator::state().sfcGpsOffset = num(v["in"]["sfcGpsOffset"]); });
    bench.in([&] {
        Signal* sig = reinterpret_cast<Signal*>(
            node::make<KvdTuiifSetSfnInitTimeInd>(KVD_TUIIF_SET_SFN_INIT_TIME_IND));
        reinterpret_cast<KvdTuiifSetSfnInitTimeInd*>(sig)->sfnInitTime = {
            t[0].get<u16>(), t[1].get<u8>(), t[2].get<u8>(), t[3].get<u8>(), t[4].get<u8>(), t[5].get<u8>()};
        EXPECT_EQ(KvdLoz6TuReg_dispatch(sig), 1);
        ose::free_buf(&sig);
        EXPECT_EQ(KvdLoz6TuReg_sfcGpsOffset(), num(out["sfcGpsOffset"]));
        EXPECT_EQ(KvdLoz6TuReg_sfcPtpOffset(), num(out["sfcPtpOffset"]));
    });
    compare(bench, out);
    // A restart finds the same change against what it stored.
    EXPECT_EQ(bench.meas().delta0_c - num(v["in"]["delta0_c"]), num(out["restartDelta"]));
}

}  // namespace

TEST(MeasureVectors, Measurements)
{
    vectors::Document document("o01_meas.json");
    vectors::eachGroup(document["groups"], {
        {"measurementIndex", measurementIndex}, {"coldStart", coldStart}, {"setMeasR", setMeasR},
        {"knowsTime", knowsTime}, {"validState", validState}, {"measInitiate_time", initiationTime},
        {"measInitiate_rest", initiationRest}, {"pp1sBoardDelay", boardDelay},
        {"calcSampleTimeInterval", sampleInterval}, {"handleRefClkInt", referenceEdges},
        {"adjustOffset", adjustOffset}, {"adjustSlaveOffset", adjustSlaveOffset}, {"setOffset", setOffset},
        {"calcZ", phaseError}, {"signalBreak", signalBreaks}, {"handleConfigRefType", referenceChange},
        {"takeOverAsMaster", takeOverAsMaster}, {"sfcToNtp", counterDifference}, {"ntpTick", counterTicks}});
}

TEST(MeasureVectors, Oscillator)
{
    vectors::Document document("o01_ocxo.json");
    vectors::eachGroup(document["groups"], {
        {"readOcxoTemp_sequence", temperature}, {"temperatureLimits", temperatureLimits},
        {"tempCoefficients", temperatureCoefficients}, {"coldDivider", coldDivider}},
        {"temperatureVolts", "coeffPlain", "coeffLimits", "eepromChecksum", "eepromRetries", "serialAndPart",
         "calibrationDate", "isCalibrated"});
}

TEST(RegulatorVectors, Answers)
{
    vectors::Document document("o01_answers.json");
    vectors::eachGroup(document["groups"], {
        {"rntToSfcDiff", rntToSfcDiff}, {"calendar", calendar}, {"rntForSfn", rntForSfn},
        {"calcSoCpriRTO", timeOffset}, {"sfnInitTime", sfnInitTime}});
}
