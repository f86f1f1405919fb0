// Replay of check values: measurement core, temperature, start values, answers.
#include "reg/support/measure_bench.h"
#include "support/vectors.h"

#include "iif/tuiif_sig.h"
#include "node/sig.h"

using regtest::MeasureBench;
using regtest::Triple;
using vectors::json;

namespace {

double num(const json& v) { return vectors::number(v); }
Triple triple(const json& v) { return {v[0].get<u32>(), v[1].get<u32>(), v[2].get<u32>()}; }

/// Value within the vector's, the group's or no tolerance.
void expectNear(double value, const json& wanted, const json& tolerance, const char* what)
{
    const double e = num(wanted);
    const double abs = tolerance.value("abs", 0.0), rel = tolerance.value("rel", 0.0);
    EXPECT_LE(std::fabs(value - e), abs + rel * std::fabs(e))
        << what << " is " << value << ", wanted " << e;
}

const json& group(const json& document, const std::string& name)
{
    for (const json& g : document["groups"])
        if (g["name"] == name) return g;
    static const json NONE;
    ADD_FAILURE() << "no group " << name;
    return NONE;
}

json toleranceOf(const json& group, const json& vector)
{
    if (vector.contains("tol")) return vector["tol"];
    return group.value("tol", json::object());
}

std::string idOf(const json& g, const json& v)
{
    return g["name"].get<std::string>() + " " + v["id"].dump();
}

}  // namespace

TEST(MeasureVectors, Tables)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    MeasureBench bench;
    bench.settle();
    for (const json& v : group(doc, "measurementIndex")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "measurementIndex"), v));
        bench.bus.traces.clear();
        bench.in([&] {
            const u32 selectedRef = v["in"]["selectedRef"];
            EXPECT_EQ(KvdLoz6TuReg_measurementIndex(selectedRef), v["out"]["z_i"].get<u32>());
            if (v["out"]["isTimeRef"].is_null()) return;
            EXPECT_EQ(KvdLoz6TuReg_isTimeRef(selectedRef) ? 1 : 0,
                      v["out"]["isTimeRef"].get<int>());
        });
        EXPECT_EQ(bench.bus.countOf("Unknown TUREG refType") > 0, v["out"]["trace"].get<bool>());
    }
    for (const json& v : group(doc, "coldStart")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "coldStart"), v));
        const u32 z_i = v["in"]["z_i"];
        const MeasStateVar m = bench.meas();
        if (!v["out"]["m"].is_null()) {
            EXPECT_EQ(m.m[z_i], num(v["out"]["m"]));
        }
        if (!v["out"]["R"].is_null()) {
            EXPECT_EQ(m.R_all[z_i], num(v["out"]["R"]));
        }
    }
    for (const json& v : group(doc, "setMeasR")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "setMeasR"), v));
        bench.bus.traces.clear();
        bench.in([&] {
            const u32 z_i = v["in"]["z_i"];
            KvdLoz6TuReg_setMeasR(num(v["in"]["R"]), z_i);
            EXPECT_EQ(KvdLoz6TuReg_getMeasR(z_i) == num(v["in"]["R"]),
                      v["out"]["written"].get<bool>());
        });
        EXPECT_EQ(bench.bus.countOf("out-of-range") > 0, v["out"]["trace"].get<bool>());
    }
    for (const json& v : group(doc, "validState")["vectors"]) {
        const json& i = v["in"];
        EXPECT_EQ(measure::isValidState(i["regState"], i["refType"], i["selectedRef"],
                                        i["prevSelectedRef"]),
                  v["out"]["valid"].get<int>() == 1)
            << idOf(group(doc, "validState"), v);
    }
    for (const json& v : group(doc, "knowsTime")["vectors"])
        bench.in([&] {
            KvdLoz6TuReg_setMod(num(v["in"]["t_mod_old"]));
            EXPECT_EQ(KvdLoz6TuReg_knowsTime(), v["out"]["knows"].get<bool>());
        });
}

TEST(MeasureVectors, Initiation)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    MeasureBench bench;
    const json& time = group(doc, "measInitiate_time");
    for (const json& v : time["vectors"]) {
        SCOPED_TRACE(idOf(time, v));
        bench.in([&] {
            MeasInitiation values;
            values.time = num(v["in"]["t_c"]);
            values.time_f = num(v["in"]["t_f"]);
            KvdLoz6TuReg_measInitiate(values);
        });
        expectNear(bench.meas().t_c_last, v["out"]["t_c_last"], toleranceOf(time, v), "t_c_last");
        expectNear(bench.meas().t_f_last, v["out"]["t_f_last"], toleranceOf(time, v), "t_f_last");
    }
    for (const json& v : group(doc, "measInitiate_rest")["vectors"]) {
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
        const MeasStateVar m = bench.meas();
        EXPECT_EQ(m.vThigh, num(v["out"]["vThigh"]));
        EXPECT_EQ(m.vTlow, num(v["out"]["vTlow"]));
        EXPECT_EQ(m.delta0_slave_c, num(v["out"]["delta0_slave_c"]));
        EXPECT_EQ(m.delta0_slave_f, num(v["out"]["delta0_slave_f"]));
        EXPECT_EQ(m.refBreak, v["out"]["refBreak"].get<int>());
        EXPECT_EQ(m.max_locked_diff, num(v["out"]["max_locked_diff"]));
        EXPECT_EQ(m.max_locked_interval_diff, num(v["out"]["max_locked_interval_diff"]));
    }
    const json& delay = group(doc, "pp1sBoardDelay");
    for (const json& v : delay["vectors"]) {
        SCOPED_TRACE(idOf(delay, v));
        bench.bus.parameters.erase("pp1s_board_delay_to_latch");
        if (!v["in"]["ns"].is_null())
            bench.bus.parameters["pp1s_board_delay_to_latch"] = v["in"]["ns"].dump();
        bench.in([] { KvdLoz6TuReg_measInitiate({}); });
        ose::DataScope scope(*bench.block);
        expectNear(KvdLoz6TuReg_getPp1sBoardDelay(), v["out"]["pp1sBoardDelay"],
                   toleranceOf(delay, v), "pp1sBoardDelay");
    }
}

TEST(MeasureVectors, SampleInterval)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    for (const json& v : group(doc, "calcSampleTimeInterval")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "calcSampleTimeInterval"), v));
        double t_c_last = num(v["init"]["t_c_last"]), t_f_last = num(v["init"]["t_f_last"]);
        for (const json& step : v["steps"]) {
            if (step["in"]["t_f"].is_null()) continue;
            const double t_f = num(step["in"]["t_f"]);
            const measure::SampleInterval i =
                measure::sampleInterval(t_c_last, t_f_last, t_f, 1024.0);
            ASSERT_EQ(i.t_s >= 0 ? 1 : 0, step["out"]["ret"].get<int>());
            if (i.t_s < 0) continue;
            EXPECT_EQ(i.t_s, num(step["out"]["t_s"]));
            t_c_last = i.t_c;
            t_f_last = t_f;
            EXPECT_EQ(t_c_last, num(step["out"]["t_c_last"]));
        }
    }
}

TEST(MeasureVectors, ReferenceEdges)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    for (const json& v : group(doc, "handleRefClkInt")["vectors"]) {
        SCOPED_TRACE(v["name"].get<std::string>());
        MeasureBench bench;
        bench.settle();
        bench.edit([&](measure::State& s) {
            s.var.selectedRef = v["init"]["selectedRef"];
            s.var.t_c_last = num(v["init"]["t_c_last"]);
            s.var.t_f_last = num(v["init"]["t_f_last"]);
            s.var.m = {};
        });
        for (const json& step : v["steps"]) {
            const json& in = step["in"];
            const json& out = step["out"];
            if (in["latch"].is_null()) bench.noLatch();
            else bench.putLatch(triple(in["latch"]));
            if (in["run"].is_null()) bench.failRun();
            else bench.putRun(triple(in["run"]));
            bench.in([&] {
                KvdLoz6TuReg_forceRegState(in["valid"].get<int>() == 1 ? FREQLOCKED : WARMUP);
                LatchedEdge edge{};
                ASSERT_EQ(KvdLoz6TuReg_handleRefClkInt(edge), out["ret"].get<int>());
                if (out["ret"] == 0) return;
                EXPECT_EQ(edge.z_i, out["z_i"].get<u32>());
                EXPECT_EQ(edge.time[0], num(out["time0"]));
                EXPECT_EQ(edge.time[1], num(out["time1"]));
                EXPECT_EQ(edge.t_s, num(out["t_s"]));
            });
            bench.edit([&](measure::State& s) {
                EXPECT_EQ(s.var.m[KvdLoz6TuReg_measurementIndex(s.var.selectedRef)], num(out["m"]));
                EXPECT_EQ(s.var.t_c_last, num(out["t_c_last"]));
                EXPECT_EQ(s.var.t_f_last, num(out["t_f_last"]));
                EXPECT_EQ(s.decimation, out["decimation"].get<int>());
            });
        }
    }
}

TEST(MeasureVectors, Offsets)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    MeasureBench bench;
    bench.settle();
    for (const json& v : group(doc, "adjustOffset")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "adjustOffset"), v));
        bench.edit([&](measure::State& s) {
            s.var.selectedRef = v["in"]["selectedRef"];
            s.var.delta0_c = num(v["in"]["delta0_c"]);
            s.var.delta0_f = num(v["in"]["delta0_f"]);
        });
        bench.in([&] {
            EXPECT_EQ(KvdLoz6TuReg_adjustOffset(num(v["in"]["c"]), num(v["in"]["f"])),
                      v["out"]["ret"].get<int>());
        });
        EXPECT_EQ(bench.meas().delta0_c, num(v["out"]["delta0_c"]));
        EXPECT_EQ(bench.meas().delta0_f, num(v["out"]["delta0_f"]));
    }
    for (const json& v : group(doc, "adjustSlaveOffset")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "adjustSlaveOffset"), v));
        bench.edit([&](measure::State& s) {
            s.var.delta0_slave_c = num(v["in"]["delta0_slave_c"]);
            s.var.delta0_slave_f = num(v["in"]["delta0_slave_f"]);
        });
        bench.in([&] { KvdLoz6TuReg_adjustSlaveOffset(num(v["in"]["c"]), num(v["in"]["f"])); });
        EXPECT_EQ(bench.meas().delta0_slave_c, num(v["out"]["delta0_slave_c"]));
        EXPECT_EQ(bench.meas().delta0_slave_f, num(v["out"]["delta0_slave_f"]));
    }
}

TEST(MeasureVectors, PhaseError)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    const json& g = group(doc, "calcZ");
    MeasureBench bench;
    bench.settle();
    for (const json& v : g["vectors"]) {
        SCOPED_TRACE(v["name"].get<std::string>());
        bench.edit([&](measure::State& s) {
            s.var.selectedRef = v["init"]["selectedRef"];
            s.var.t_mod_old = num(v["init"]["t_mod_old"]);
            s.var.delta0_c = num(v["init"]["delta0_c"]);
            s.var.delta0_f = num(v["init"]["delta0_f"]);
        });
        for (const json& step : v["steps"]) {
            const json& i = step["in"];
            const double time[2] = {num(i["time"][0]), num(i["time"][1])};
            const double timeRef[2] = {num(i["timeRef"][0]), num(i["timeRef"][1])};
            double z = 0, phase = 0;
            TimePair zPair{};
            bench.in([&] { KvdLoz6TuReg_calcZ(num(i["t_mod"]), time, timeRef, z, zPair, phase); });
            const json tol = toleranceOf(g, step);
            expectNear(z, step["out"]["z"], tol, "z");
            expectNear(zPair.c, step["out"]["zPair"][0], tol, "zPair[0]");
            expectNear(zPair.f, step["out"]["zPair"][1], tol, "zPair[1]");
            EXPECT_EQ(phase, num(step["out"]["phase"]));
            expectNear(bench.meas().delta0_c, step["out"]["delta0_c"], tol, "delta0_c");
            expectNear(bench.meas().delta0_f, step["out"]["delta0_f"], tol, "delta0_f");
            EXPECT_EQ(bench.meas().t_mod_old, num(step["out"]["t_mod_old"]));
        }
    }
}

TEST(MeasureVectors, SignalBreaks)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    const json& g = group(doc, "signalBreak");
    for (const json& v : g["vectors"]) {
        SCOPED_TRACE(v["name"].get<std::string>());
        MeasureBench bench;
        bench.settle();
        bench.edit([&](measure::State& s) {
            s.var.selectedRef = v["init"]["selectedRef"];
            s.var.t_mod_old = num(v["init"]["t_mod_old"]);
            s.var.delta0_c = num(v["init"]["delta0_c"]);
            s.var.delta0_f = num(v["init"]["delta0_f"]);
            s.var.refBreak = v["init"]["refBreak"].get<u8>();
        });
        for (const json& step : v["steps"]) {
            const double time[2] = {num(step["in"]["time"][0]), num(step["in"]["time"][1])};
            const double timeRef[2] = {0, 0};
            double z = 0, R = 0;
            bench.in([&] {
                const u32 z_i = KvdLoz6TuReg_measurementIndex(KvdLoz6TuReg_selectedRef());
                double phase = 0;
                TimePair zPair{};
                KvdLoz6TuReg_setMeasR(5e-10, z_i);
                KvdLoz6TuReg_calcZ(0.125, time, timeRef, z, zPair, phase);
                KvdLoz6TuReg_signalBreakCheck(z_i, z, zPair);
                R = KvdLoz6TuReg_getMeasR(z_i);
            });
            const json tol = toleranceOf(g, step);
            expectNear(z, step["out"]["z"], tol, "z");
            EXPECT_EQ(R, num(step["out"]["R"]));
            EXPECT_EQ(bench.meas().refBreak, step["out"]["refBreak"].get<int>());
            expectNear(bench.meas().delta0_c + bench.meas().delta0_f,
                       num(step["out"]["delta0_c"]) + num(step["out"]["delta0_f"]), tol, "delta0");
        }
    }
}

TEST(MeasureVectors, ReferenceChange)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    MeasureBench bench;
    bench.settle();
    for (const json& v : group(doc, "handleConfigRefType")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "handleConfigRefType"), v));
        const json& i = v["in"];
        const json& out = v["out"];
        const json& actions = out["actions"];
        const auto wants = [&](const char* action) {
            return std::find(actions.begin(), actions.end(), action) != actions.end();
        };
        bench.edit([&](measure::State& s) {
            s.var.selectedRef = i["selectedRef"];
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
        });
        const u32 latchReads = bench.bus.reads[hwtest::BASE_2C + 0xb4];
        bench.in([&] { KvdLoz6TuReg_handleConfigRefType(i["refType"], 0xFFFFFFFF); });
        EXPECT_EQ(bench.bus.reads[hwtest::BASE_2C + 0xb4] - latchReads,
                  wants("latch read") ? 1u : 0u);
        bench.edit([&](measure::State& s) {
            EXPECT_EQ(s.var.selectedRef, out["selectedRef"].get<u32>());
            EXPECT_EQ(s.var.prevSelectedRef, out["prevSelectedRef"].get<u32>());
            EXPECT_EQ(s.var.refBreak, out["refBreak"].get<int>());
            EXPECT_EQ(s.var.histCountDown, num(out["histCountDown"]));
            EXPECT_EQ(s.var.calibrationCountDown, num(out["calibrationCountDown"]));
            EXPECT_EQ(s.var.t_mod_old, num(out["t_mod_old"]));
            EXPECT_EQ(s.var.delta0_c, num(out["delta0_c"]));
            EXPECT_EQ(s.var.delta0_f, num(out["delta0_f"]));
            EXPECT_EQ(regulator::state().initCnt, out["noisyCounter"].get<int>());
            for (u32 z_i = 1; z_i < Z_I_COUNT; ++z_i) {
                const std::string key = std::to_string(z_i);
                const double m = out["m"].contains(key) ? num(out["m"][key]) : 100.0 + z_i;
                EXPECT_EQ(s.var.m[z_i], m) << "m of " << z_i;
            }
            EXPECT_EQ(s.var.pktRate, wants("setPktRate 10") ? 10 : 3);
            const Mat6& P = estimator::state().var.P_est;
            if (wants("estimator back to start values")) {
                EXPECT_EQ(P[7], 1e-12);
                EXPECT_EQ(P[14], 1e-28);
            } else {
                EXPECT_EQ(P[7], 3e-9);
                EXPECT_EQ(P[1], wants("time covariance reset") ? 0.0 : 3e-9);
                EXPECT_EQ(P[0] > 87381.0, wants("time covariance reset"));
            }
        });
    }
}

TEST(MeasureVectors, TakeOverAsMaster)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    MeasureBench bench;
    bench.settle();
    for (const json& v : group(doc, "takeOverAsMaster")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "takeOverAsMaster"), v));
        bench.edit([&](measure::State& s) {
            s.var.t_mod_old = 1.0;
            s.var.delta0_c = 5.0, s.var.delta0_f = 0.25;
            regulator::state().masterSlaveMode = v["in"]["wasMaster"].get<u8>();
            control::state().var.regState = v["in"]["regState"].get<u8>();
        });
        bench.in([&] { KvdLoz6TuReg_takeOverAsMaster(v["in"]["otherRegState"].get<u8>()); });
        EXPECT_EQ(bench.meas().t_mod_old, num(v["out"]["t_mod_old"]));
        EXPECT_EQ(bench.meas().delta0_c, num(v["out"]["delta0_c"]));
        EXPECT_EQ(bench.meas().delta0_f, num(v["out"]["delta0_f"]));
    }
}

TEST(MeasureVectors, PacketCounterDifference)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    const json& g = group(doc, "sfcToNtp");
    MeasureBench bench;
    for (const json& v : g["vectors"]) {
        SCOPED_TRACE(v["name"].get<std::string>());
        const json& init = v["init"];
        measure::State s;
        s.diff_c = num(init["diff_c"]);
        s.diff_f = num(init["diff_f"]);
        s.countConsecutiveDiff = init["count"];
        s.diffCheckActive = init["diffCheckActive"];
        s.diffCheckAfterJump = init["diffCheckAfterJump"];
        for (const json& step : v["steps"]) {
            const json& i = step["in"];
            if (!i["t_f"].is_null() && !i["ntp"].is_null() && i["board"] == 1) {
                const TimePair candidate =
                    measure::diffCandidate(num(i["t_f"]), num(i["t_c_last"]), num(i["t_f_last"]),
                                           1024.0, i["ntp"][0].get<u32>(), i["ntp"][1].get<u32>());
                bench.in([&] { measure::checkDiff(s, candidate); });
                expectNear(candidate.c, step["out"]["cand_c"], toleranceOf(g, step), "candidate c");
                expectNear(candidate.f, step["out"]["cand_f"], toleranceOf(g, step), "candidate f");
            }
            // Where the pair's parts move against each other, their sums are what is compared.
            const json& out = step.contains("alt") ? step["alt"] : step["out"];
            expectNear(s.diff_c, out["diff_c"], toleranceOf(g, step), "diff_c");
            expectNear(s.diff_f, out["diff_f"], toleranceOf(g, step), "diff_f");
            EXPECT_EQ(s.countConsecutiveDiff, out["count"].get<u32>());
            EXPECT_EQ(s.diffCheckActive, out["diffCheckActive"].get<u32>());
            EXPECT_EQ(s.diffCheckAfterJump, out["diffCheckAfterJump"].get<u32>());
        }
    }
}

TEST(MeasureVectors, PacketCounterTicks)
{
    TU_LOAD_VECTORS(doc, "o01_meas.json");
    const auto has = [](const json& list, u32 tick) {
        return std::find(list.begin(), list.end(), tick) != list.end();
    };
    for (const json& v : group(doc, "ntpTick")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "ntpTick"), v));
        MeasureBench bench;                  // board type 2: a check reads the counter, and no more
        bench.settle();
        std::vector<u32> ran;
        bench.in([&] {
            for (u32 tick = 1; tick <= v["in"]["ticks"].get<u32>(); ++tick) {
                if (has(v["in"]["set"], tick)) measure::setDiffCheckActive();
                if (has(v["in"]["clear"], tick)) measure::state().diffCheckActive = 0;
                const u32 before = bench.bus.reads[hwtest::BASE_2C + 0xc8];
                KvdLoz6TuReg_handleInterrupt(2);
                if (bench.bus.reads[hwtest::BASE_2C + 0xc8] != before) ran.push_back(tick);
            }
        });
        EXPECT_EQ(ran, v["out"]["run"].get<std::vector<u32>>());
    }
}

/// A voltage as the sensor's word can hold it: a limit and a reading that are equal stay equal.
static double sensor(double volts) { return std::floor(volts * 32768 + 0.5) / 32768; }

TEST(MeasureVectors, Temperature)
{
    TU_LOAD_VECTORS(doc, "o01_ocxo.json");
    const json& g = group(doc, "readOcxoTemp_sequence");
    for (const json& v : g["vectors"]) {
        SCOPED_TRACE(idOf(g, v));
        MeasureBench bench;
        bench.settle();
        bench.in([&] {
            MeasInitiation values;
            values.vTmin = sensor(num(v["init"]["vTmin"]));
            values.vTmax = sensor(num(v["init"]["vTmax"]));
            KvdLoz6TuReg_measInitiate(values);
        });
        for (const json& step : v["steps"]) {
            const json& out = step["out"];
            if (step["in"]["res"] != 0) {
                if (out["nrBadSamples"].get<u32>() > 5) break;   // a board fault halts the process
                bench.failTemperature();
            } else {
                bench.volts(num(step["in"]["vT"]));
            }
            bench.in([] { KvdLoz6TuReg_readOcxoTemp(); });
            const MeasStateVar m = bench.meas();
            EXPECT_EQ(m.nrBadSamples, out["nrBadSamples"].get<u32>());
            EXPECT_EQ(m.nrOutRange, out["nrOutRange"].get<u32>());
            const json resolution = {{"abs", 1.6e-5}};           // half a bit of the sensor's word
            expectNear(m.vThigh, out["vThigh"], resolution, "vThigh");
            expectNear(m.vTlow, out["vTlow"], resolution, "vTlow");
            if (!out["vT"].is_null()) expectNear(m.vT, out["vT"], resolution, "vT");
            if (!out["vTnorm"].is_null())
                expectNear(m.vTnorm, out["vTnorm"], {{"abs", 3.2e-5}}, "vTnorm");
        }
    }
}

TEST(RegulatorVectors, StartValues)
{
    TU_LOAD_VECTORS(doc, "o01_ocxo.json");
    const json& coefficients = group(doc, "tempCoefficients");
    for (const json& v : coefficients["vectors"]) {
        SCOPED_TRACE(idOf(coefficients, v));
        const json& i = v["in"];
        const regulator::TemperaturePolynomial p =
            regulator::temperaturePolynomial(num(i["a3"]), num(i["a2"]), num(i["a1"]), num(i["a0"]),
                                             num(i["vTmin"]), num(i["vTmax"]));
        expectNear(p.P1, v["out"]["x3"], v["tol"], "x_est[3]");
        expectNear(p.P2, v["out"]["x4"], v["tol"], "x_est[4]");
        expectNear(p.P3, v["out"]["x5"], v["tol"], "x_est[5]");
        expectNear(p.P0, v["out"]["T2f3"], v["tol"], "constant");
    }
    const json& divider = group(doc, "coldDivider");
    MeasureBench bench;
    for (const json& v : divider["vectors"]) {
        SCOPED_TRACE(idOf(divider, v));
        const json& i = v["in"];
        double T = 0;
        bench.in([&] {
            regulator::state().vTmin = num(i["vTmin"]);
            regulator::state().vTmax = num(i["vTmax"]);
            T = regulator::normalisedTemperature(num(i["vT"]));
        });
        expectNear(T, v["out"]["T"], {{"abs", 1e-15}}, "T");
        const double D0 = num(i["nomDiv"]) + num(i["K0"]) / num(i["M0"]);
        const double Div = regulator::coldDivider(
            D0, num(i["fNom"]),
            regulator::temperaturePolynomial(num(i["a3"]), num(i["a2"]), num(i["a1"]), num(i["a0"]),
                                             num(i["vTmin"]), num(i["vTmax"])),
            T);
        expectNear(Div, v["out"]["Div"], toleranceOf(divider, v), "Div");
    }
    for (const json& v : group(doc, "temperatureLimits")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "temperatureLimits"), v));
        EXPECT_EQ(regulator::areLimitsValid(num(v["in"]["vTmin"]), num(v["in"]["vTmax"])),
                  !v["out"]["trace"].get<bool>());
    }
}

TEST(RegulatorVectors, Answers)
{
    TU_LOAD_VECTORS(doc, "o01_answers.json");
    for (const json& v : group(doc, "rntToSfcDiff")["vectors"]) {
        const i32 diff =
            regulator::rntToSfcDiff(num(v["in"]["delta0_c"]), num(v["in"]["delta0_f"]));
        i32 off = std::abs(diff - v["out"]["diff"].get<i32>());
        if (off > 20480000) off = 40960000 - off;
        EXPECT_LE(off, v.value("tol_int", 0))
            << idOf(group(doc, "rntToSfcDiff"), v) << " gives " << diff;
    }
    for (const json& v : group(doc, "calendar")["vectors"]) {
        const regulator::Date d = regulator::dateOfDays(v["in"]["days"].get<i64>());
        EXPECT_TRUE(d.year == v["out"]["year"] && d.month == v["out"]["month"] &&
                    d.day == v["out"]["day"])
            << idOf(group(doc, "calendar"), v);
    }
    const json& rnt = group(doc, "rntForSfn");
    for (const json& v : rnt["vectors"]) {
        SCOPED_TRACE(idOf(rnt, v));
        const json& i = v["in"];
        const json& out = v["out"];
        const double t_f =
            ((i["triple"][0].get<double>() * 4096 + i["triple"][1].get<double>()) * 1228800 + 0.5) /
            122880000;
        const double time =
            regulator::rntOfCounter(num(i["t_c_last"]), num(i["t_f_last"]), t_f, 1024.0,
                                    num(i["delta0_c"]), num(i["delta0_f"]), num(i["sfcGpsOffset"]));
        expectNear(time, out["rnt"], rnt["tol"], "rnt");
        const regulator::RntTime t = regulator::rntTime(time);
        EXPECT_EQ(t.date.year, out["year"].get<int>());
        EXPECT_EQ(t.date.month, out["month"].get<int>());
        EXPECT_EQ(t.date.day, out["day"].get<int>());
        EXPECT_EQ(t.hour, out["hour"].get<int>());
        EXPECT_EQ(t.minute, out["minute"].get<int>());
        EXPECT_EQ(t.second, out["second"].get<int>());
        EXPECT_LE(std::llabs(static_cast<i64>(t.fraction) - out["frac"].get<i64>()),
                  v["tol_int"]["frac"].get<i64>());
    }
    MeasureBench bench;
    bench.settle();
    for (const json& v : group(doc, "calcSoCpriRTO")["vectors"]) {
        bench.edit([&](measure::State& s) {
            s.var.delta0_c = num(v["in"]["delta0_c"]);
            s.var.delta0_f = num(v["in"]["delta0_f"]);
        });
        bench.in([&] {
            u32 seconds = 0, nanoseconds = 0;
            KvdLoz6TuReg_calcSoCpriRTO(seconds, nanoseconds);
            EXPECT_EQ(seconds, v["out"]["seconds"].get<u32>());
            EXPECT_EQ(nanoseconds, v["out"]["nanoseconds"].get<u32>());
        });
    }
    for (const json& v : group(doc, "sfnInitTime")["vectors"]) {
        SCOPED_TRACE(idOf(group(doc, "sfnInitTime"), v));
        const json& t = v["in"]["time"];
        bench.edit([&](measure::State& s) {
            regulator::state().sfcGpsOffset = num(v["in"]["sfcGpsOffset"]);
            s.var.delta0_c = num(v["in"]["delta0_c"]);
            s.var.delta0_f = num(v["in"]["delta0_f"]);
        });
        bench.in([&] {
            Signal* sig = reinterpret_cast<Signal*>(
                node::make<KvdTuiifSetSfnInitTimeInd>(KVD_TUIIF_SET_SFN_INIT_TIME_IND));
            reinterpret_cast<KvdTuiifSetSfnInitTimeInd*>(sig)->sfnInitTime = {
                t[0].get<u16>(), t[1].get<u8>(), t[2].get<u8>(),
                t[3].get<u8>(),  t[4].get<u8>(), t[5].get<u8>()};
            EXPECT_EQ(KvdLoz6TuReg_dispatch(sig), 1);
            ose::free_buf(&sig);
            EXPECT_EQ(KvdLoz6TuReg_sfcGpsOffset(), num(v["out"]["sfcGpsOffset"]));
            EXPECT_EQ(KvdLoz6TuReg_sfcPtpOffset(), num(v["out"]["sfcPtpOffset"]));
        });
        EXPECT_EQ(bench.meas().delta0_c, num(v["out"]["delta0_c"]));
        EXPECT_EQ(bench.meas().delta0_f, num(v["out"]["delta0_f"]));
    }
}
