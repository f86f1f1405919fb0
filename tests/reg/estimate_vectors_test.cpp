// Replay of check values: prediction, estimate steps, grading, steering, look-aheads, repair, a
// closed loop.
#include "iif/kvd_biraiifadm_int.h"
#include "reg/kvd_reg_matrix.h"
#include "reg/support/regulator_unit.h"
#include "support/vectors.h"

#include <gtest/gtest.h>

#include <cmath>

using regtest::RegulatorUnit;
using vectors::json;

namespace {

double num(const json& v) { return vectors::number(v); }

Vec6 vec6(const json& v)
{
    Vec6 r{};
    for (u32 i = 0; i < 6; ++i) r[i] = num(v[i]);
    return r;
}

Mat6 mat6(const json& v)
{
    Mat6 r{};
    for (u32 i = 0; i < 36; ++i) r[i] = num(v[i]);
    return r;
}

/// Tolerances that a record's fields share.
struct Compare {
    const json& after;

    double factor(const char* field) const
    {
        if (!after.contains("tol_factor") || !after["tol_factor"].contains(field)) return 1.0;
        return num(after["tol_factor"][field]);
    }
    bool wants(const char* field) const { return after.contains(field) && !after[field].is_null(); }

    template <typename T>
    void equal(const char* field, T value) const
    {
        if (!wants(field)) return;
        EXPECT_EQ(after[field].get<double>(), static_cast<double>(value)) << field;
    }
    void near(const char* field, double value, double relative, double absolute) const
    {
        if (!wants(field)) return;
        const double e = num(after[field]);
        const double tolerance = (relative * std::fabs(e) + absolute) * factor(field);
        EXPECT_LE(std::fabs(value - e), tolerance) << field << " is " << value << ", wanted " << e;
    }
    void state(const char* field, const Vec6& x) const
    {
        if (!wants(field)) return;
        constexpr double FLOOR[6] = {1e-15, 1e-18, 1e-22, 1e-18, 1e-18, 1e-18};
        constexpr double ROOT[6] = {1e-12, 1e-17, 1e-21, 1e-16, 1e-16, 1e-16};
        const Vec6 e = vec6(after[field]);
        for (u32 i = 0; i < 6; ++i) {
            double root = 0.0;
            if (wants("P"))
                root = std::min(1e-9 * std::sqrt(std::fabs(num(after["P"][i * 7]))), ROOT[i]);
            const double tolerance = (1e-9 * std::fabs(e[i]) + root + FLOOR[i]) * factor(field);
            EXPECT_LE(std::fabs(x[i] - e[i]), tolerance)
                << field << "[" << i << "] is " << x[i] << ", wanted " << e[i];
        }
    }
    void covariance(const char* field, const Mat6& P) const
    {
        if (!wants(field)) return;
        const Mat6 e = mat6(after[field]);
        const double extra = wants("P_abs_tol") ? num(after["P_abs_tol"]) : 0.0;
        for (u32 i = 0; i < 6; ++i)
            for (u32 j = 0; j < 6; ++j) {
                const u32 at = i * 6 + j;
                const double tolerance =
                    (1e-9 * std::sqrt(std::fabs(e[i * 7] * e[j * 7])) + 1e-45) * factor(field)
                    + extra;
                EXPECT_LE(std::fabs(P[at] - e[at]), tolerance)
                    << field << "[" << i << "][" << j << "] is " << P[at] << ", wanted " << e[at];
            }
    }
};

void setHardware(const json& hardware)
{
    tuHwIf_writeNominalDivisor(hardware["nomDiv"].get<u32>());
    tuHwIf_writeDeltaSigmaK(hardware["K"].get<i64>());
    tuHwIf_writeDeltaSigmaM(hardware["M"].get<i64>());
}

FixFilter filterOf(const json& f)
{
    return {num(f["last"]),    num(f["mean"]),     num(f["meanr"]),
            num(f["sum"]),     num(f["sumr"]),     num(f["hyst"]),
            f["n"].get<u32>(), f["nr"].get<u32>(), f["first"].get<u32>()};
}

/// Writes one named field of the three state records. False when the name isn't known.
bool writeField(const std::string& name, const json& value)
{
    ControlStateVar& c = control::state().var;
    EstimateStateVar& e = estimator::state().var;
    MeasStateVar& m = measure::state().var;
    if (name == "U1") c.U[1] = num(value);
    else if (name == "nomDiv") c.nomDiv = value.get<u32>();
    else if (name == "K") c.K = value.get<i64>();
    else if (name == "M") c.M = value.get<i64>();
    else if (name == "regState") KvdLoz6TuReg_forceRegState(value.get<u8>());
    else if (name == "f_ix") c.f_ix = value.get<u8>();
    else if (name == "t_ix") c.t_ix = value.get<u8>();
    else if (name == "f_lim_low") c.f_lim_low = num(value);
    else if (name == "f_lim_high") c.f_lim_high = num(value);
    else if (name == "t_lim_low") c.t_lim_low = num(value);
    else if (name == "t_lim_high") c.t_lim_high = num(value);
    else if (name == "xf_limit") c.xf_limit = num(value);
    else if (name == "filter") c.fix = filterOf(value);
    else if (name == "hw_nomDiv") tuHwIf_writeNominalDivisor(value.get<u32>());
    else if (name == "x") e.x_est = vec6(value);
    else if (name == "P") e.P_est = mat6(value);
    else if (name == "T") e.T = num(value);
    else if (name == "b") e.b = num(value);
    else if (name == "u") { e.u_tf[0] = num(value[0]); e.u_tf[1] = num(value[1]); }
    else if (name == "prevRef") e.prevRef = value.get<u32>();
    else if (name == "degrd") e.degrd = value.get<u8>();
    else if (name == "degrState") e.degrState = value.get<u8>();
    else if (name == "resSign") e.residualSign = value.get<u32>();
    else if (name == "resSignConst") e.residualSignConstant = value.get<u32>();
    else if (name == "var_G") e.var_G = num(value);
    else if (name == "var_F") e.var_F = num(value);
    else if (name == "fixFreqMode") e.fixFreqMode = value.get<u8>();
    else if (name == "initialFrequencyDrift" || name == "ifd")
        estimator::state().initialFrequencyDrift = num(value);
    else if (name == "selectedRef") m.selectedRef = value.get<u32>();
    else if (name == "prevSelectedRef") m.prevSelectedRef = value.get<u32>();
    else if (name == "t_mod") m.t_mod_old = num(value);
    else if (name == "delta0_c") m.delta0_c = num(value);
    else if (name == "delta0_f") m.delta0_f = num(value);
    else if (name == "histCountDown") m.histCountDown = num(value);
    else if (name == "calibrationCountDown") m.calibrationCountDown = num(value);
    else return false;
    return true;
}

void writeFields(const json& fields)
{
    for (const auto& [name, value] : fields.items()) {
        if (name == "op") continue;
        EXPECT_TRUE(writeField(name, value)) << name;
    }
}

void start(const json& init)
{
    const json& e = init["estimator"];
    const double u[2] = {num(e["u"][0]), num(e["u"][1])};
    KvdLoz6TuReg_estimateInitiate(vec6(e["x"]), mat6(e["P"]), num(e["T"]), u, num(e["b"]));
    setHardware(init["hardware"]);
    control::state().var = ControlStateVar{};
    writeFields(e);
    writeFields(init["control"]);
    writeFields(init["meas"]);
    measure::state().var.histCountDown = 1.0;
    measure::state().var.calibrationCountDown = 1.0;
    RegulatorUnit::beMaster(init["unit"]["master"] != 0);
    bira::state().idlMode =
        init["unit"]["idlMode"] == 2 ? KVD_BIRAIIF_IDL_MODE_2 : KVD_BIRAIIF_IDL_MODE_1;
    KvdLoz6TuReg_forceRegState(init["control"]["regState"].get<u8>());
    KvdLoz6TuReg_setJumpState(JUMP_NOT_NEEDED);
}

void compareState(const json& after)
{
    const Compare is{after};
    const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
    const ControlStateVar& c = KvdLoz6TuReg_controlStateVar();
    const MeasStateVar& m = KvdLoz6TuReg_measStateVar();
    is.state("x", e.x_est);
    is.state("xprev", e.prev_x_est);
    is.covariance("P", e.P_est);
    is.near("T", e.T, 1e-9, 1e-300);
    is.near("b", e.b, 1e-9, 1e-300);
    if (is.wants("u")) {
        const double wanted = num(after["u"][1]);
        EXPECT_LE(std::fabs(e.u_tf[1] - wanted),
                  (1e-9 * std::fabs(wanted) + 1e-12) * is.factor("u"));
        EXPECT_EQ(e.u_tf[0], 0.0);
    }
    is.equal("degrd", e.degrd);
    is.equal("degrState", e.degrState);
    is.equal("resSign", e.residualSign);
    is.equal("resSignConst", e.residualSignConstant);
    is.equal("prevRef", e.prevRef);
    is.equal("measCount", e.measCount);
    is.equal("fixFreqMode", e.fixFreqMode);
    is.near("initialFrequencyDrift", KvdLoz6TuReg_initialFrequencyDrift(), 1e-9, 1e-300);
    is.near("du", c.du[1], 1e-9, 1e-12);
    is.near("U1", c.U[1], 0.0, 1e-9);
    is.equal("nomDiv", c.nomDiv);
    is.near("K", static_cast<double>(c.K), 0.0, 1.0);
    is.equal("f_ix", c.f_ix);
    is.equal("t_ix", c.t_ix);
    is.equal("regState", c.regState);
    is.near("f_acc_report", c.f_acc_report, 1e-9, 1.0);
    is.near("t_acc_report", c.t_acc_report, 1e-9, 1.0);
    is.near("t_mod", m.t_mod_old, 1e-9, 1e-300);
    if (is.wants("delta0_c")) {
        const double wanted = num(after["delta0_c"]) + num(after["delta0_f"]);
        EXPECT_LE(std::fabs(m.delta0_c + m.delta0_f - wanted), 1e-12 * is.factor("delta0_c"))
            << "delta0";
    }
    is.equal("histCountDown_is_0", m.histCountDown == 0.0);
    is.equal("calibrationCountDown_is_0", m.calibrationCountDown == 0.0);
    if (is.wants("filter")) {
        const FixFilter f = filterOf(after["filter"]);
        const auto close = [](double value, double wanted, const char* name) {
            EXPECT_LE(std::fabs(value - wanted), 1e-9 * std::fabs(wanted) + 1e-14) << name;
        };
        close(c.fix.last, f.last, "last");
        close(c.fix.meanStep, f.meanStep, "mean");
        close(c.fix.meanRisingStep, f.meanRisingStep, "meanr");
        close(c.fix.stepSum, f.stepSum, "sum");
        close(c.fix.risingStepSum, f.risingStepSum, "sumr");
        close(c.fix.hyst, f.hyst, "hyst");
        EXPECT_EQ(c.fix.count, f.count);
        EXPECT_EQ(c.fix.risingCount, f.risingCount);
        EXPECT_EQ(c.fix.first, f.first);
    }
}

/// What a step told, by the traces that go with it.
void compareEvents(RegulatorUnit& unit, const json& after)
{
    if (!after.contains("events")) return;
    struct Told { const char* event; const char* trace; };
    for (const Told& t : std::to_array<Told>({
             {"degrState", "Report refState: degrState "}, {"regState", "Report regState "},
             {"fold", "Adjust i control: x_est[P11_61]"}, {"phaseJump", "phase jump !!"},
             {"t_mod0", "phase jump on "}, {"R_kept", "Measurement not used to update R"},
             {"sameSign", "measReliability: MAXDISCARDED with the same sign. Use measurement."},
             {"negP_pred", "predictCovariance: WARNING! Negative variance in P_pred! ["},
             {"negS", "covarianceResidual: WARNING! Negative variance in S! ["},
             {"negR", "adjustCovariance: WARNING.. Negativ variance in R"},
             {"repair", "completeUpdate: WARNING: Negative variance in P_est"}})) {
        std::size_t wanted = 0;
        for (const json& e : after["events"]) wanted += e[0] == t.event ? 1 : 0;
        EXPECT_EQ(unit.traced(t.trace), wanted) << t.event;
    }
    unit.platform.traces.clear();
}


void look(const json& call, const json& after)
{
    EXPECT_NEAR(KvdLoz6TuReg_lookAheadHistory(), num(after["history_h"]),
                1e-9 * num(after["history_h"]));
    EXPECT_NEAR(KvdLoz6TuReg_lookAheadCalibration(), num(after["calibration_days"]), 1e-9);
    for (const json& day : call["days"]) {
        int wanted = -1;
        for (const json& s : after["soon"])
            if (s[0] == day) wanted = s[1].get<int>();
        EXPECT_EQ(KvdLoz6TuReg_lookAheadSoonToExpire(num(day)) ? 1 : 0, wanted) << day;
    }
}

void step(const json& call, const json& after)
{
    const std::string op = call["op"];
    if (op == "estimate") {
        const double R_new =
            KvdLoz6TuReg_estimate({num(call["z"]), call["z_i"].get<u32>(), num(call["t_s"]),
                                   num(call["m"]), num(call["R"])});
        Compare{after}.near("R_new", R_new, 1e-9, 1e-300);
    } else if (op == "controller") {
        const ControlResult r = KvdLoz6TuReg_controller(
            vec6(call["x"]), mat6(call["P"]), call["doControl"].get<int>(), call["z_i"].get<u32>());
        const Compare is{after};
        is.near("u1", r.u[1], 1e-9, 1e-12);
        is.near("b", r.b, 1e-9, 1e-300);
        is.near("x0", r.x0, 1e-9, 1e-15);
    } else if (op == "f_ix") {
        Vec6 x{};
        Mat6 P{};
        x[1] = num(call["x1"]);
        P[7] = num(call["P11"]);
        const u8 result = KvdLoz6TuReg_computeFix(x, P, call["update"].get<int>());
        Compare{after}.equal("result", result);
        if (call.value("store", 0) != 0) control::state().var.f_ix = result;
    } else if (op == "set") {
        writeFields(call);
    } else if (op == "initCnt") {
        KvdLoz6TuReg_setInitialFrequencyDrift(call["n"].get<u8>());
    } else if (op == "force") {
        if (call["what"] == "timeOffset") KvdLoz6TuReg_forceTimeOffsetHoldover();
        else if (call["what"] == "frequencyDrifting") KvdLoz6TuReg_forceFrequencyDrifting();
        else ADD_FAILURE() << call;
    } else if (op == "look") {
        look(call, after);
    } else {
        ADD_FAILURE() << op;
    }
}

void replaySequences(const json& document, bool events)
{
    for (const json& sequence : document["sequences"]) {
        SCOPED_TRACE(sequence["name"].get<std::string>());
        RegulatorUnit unit;
        unit.run([&] {
            start(sequence["init"]);
            if (events) unit.traceAll();
            unit.platform.traces.clear();
            int index = 0;
            for (const json& s : sequence["steps"]) {
                SCOPED_TRACE("step " + std::to_string(index++));
                step(s["call"], s["after"]);
                // A controller's b, x0 go to its caller and are not the estimator's.
                json after = s["after"];
                if (s["call"]["op"] == "controller") after.erase("b");
                compareState(after);
                if (events) compareEvents(unit, s["after"]);
                if (testing::Test::HasFailure()) return;
            }
        });
        if (testing::Test::HasFailure()) return;
    }
}

}  // namespace

TEST(RegulatorCheckValues, Prediction)
{
    TU_LOAD_VECTORS(document, "o02_predict.json");
    for (const json& c : document["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        const json& in = c["in"];
        const Vec6 x = vec6(in["x"]);
        const Mat6 P = mat6(in["P"]);
        const double u[2] = {num(in["u"][0]), num(in["u"][1])};
        const double t_s = num(in["t_s"]), b = num(in["b"]), T0 = num(in["T_old"]),
                     T1 = num(in["T_new"]);
        const bool testMode = in["testMode"] != 0 && in["master"] != 0;
        const Prediction p = estimator::predict(x, P, b, u, T0, T1, t_s,
                                                {num(in["var_G"]), num(in["var_F"]),
                                                 num(in["initialFrequencyDrift"]), testMode});
        const Vec6 xWanted = vec6(c["out"]["x_pred"]);
        const Mat6 PWanted = mat6(c["out"]["P_pred"]), QWanted = mat6(c["out"]["Q"]);

        const double d2 = (T1 * T1) - (T0 * T0);
        const double d3 = (T1 * T1 * T1 - 0.6 * T1) - (T0 * T0 * T0 - 0.6 * T0);
        Mat6 A = matrix::identity<6>();
        const double row0[6] = {1, t_s, t_s * t_s / 2, (T1 - T0) * t_s, d2 * t_s, d3 * t_s};
        const double row1[6] = {0, 1, t_s, T1 - T0, d2, d3};
        for (u32 j = 0; j < 6; ++j) {
            A[j] = std::fabs(row0[j]);
            A[6 + j] = std::fabs(row1[j]);
        }
        Mat6 absP = P;
        Vec6 absX = x;
        for (double& v : absP) v = std::fabs(v);
        for (double& v : absX) v = std::fabs(v);
        Vec6 xSize = matrix::multiply<6, 6>(A, absX);
        xSize[0] += std::fabs(u[0]) + std::fabs(b * t_s * u[1]);
        xSize[1] += std::fabs(b * u[1]);
        const Mat6 PSize = matrix::multiply<6, 6, 6>(matrix::multiply<6, 6, 6>(A, absP),
                                                     matrix::transpose<6, 6>(A));

        bool negative = false;
        for (u32 i = 0; i < 6; ++i) {
            EXPECT_LE(std::fabs(p.x_pred[i] - xWanted[i]), 1e-12 * xSize[i] + 1e-30) << i;
            negative = negative || p.P_pred[i * 7] < 0.0;
            for (u32 j = 0; j < 6; ++j) {
                const u32 at = i * 6 + j;
                EXPECT_LE(std::fabs(p.P_pred[at] - PWanted[at]),
                          1e-12 * (PSize[at] + std::fabs(QWanted[at])) + 1e-60)
                    << i << "," << j;
                EXPECT_LE(std::fabs(p.Q[at] - QWanted[at]),
                          1e-12 * std::sqrt(QWanted[i * 7] * QWanted[j * 7]) + 1e-60)
                    << i << "," << j;
            }
        }
        EXPECT_EQ(negative, c["out"]["negativeDiagonal"] != 0);
    }
}

TEST(RegulatorCheckValues, EstimateSteps)
{
    TU_LOAD_VECTORS(document, "o02_estimate.json");
    replaySequences(document, true);
}

TEST(RegulatorCheckValues, Controller)
{
    TU_LOAD_VECTORS(document, "o02_controller.json");
    replaySequences(document, true);
}

TEST(RegulatorCheckValues, FrequencyGrading)
{
    TU_LOAD_VECTORS(document, "o02_fix.json");
    replaySequences(document, true);
}

TEST(RegulatorCheckValues, LookAhead)
{
    TU_LOAD_VECTORS(document, "o02_lookahead.json");
    replaySequences(document, false);
    double drift = 3e-21;
    for (const json& row : document["initialFrequencyDrift_table"]) {
        drift = estimator::initialFrequencyDrift(row[0].get<u8>(), drift);
        EXPECT_NEAR(drift, num(row[1]), 1e-10 * num(row[1])) << row;
    }
}

TEST(RegulatorCheckValues, CovarianceRepair)
{
    TU_LOAD_VECTORS(document, "o02_repair.json");
    replaySequences(document, true);
    for (const json& c : document["direct"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        const Vec6 H = {1, 0, 0, 0, 0, 0};
        const json& in = c["in"];
        const json& out = c["out"];
        const estimator::Update u = estimator::completeUpdate(
            H, vec6(in["x_pred"]), mat6(in["P_pred"]), num(in["S"]), num(in["resid"]));
        const Vec6 x = vec6(out["x_est"]);
        const Mat6 P = mat6(out["P_est"]);
        double largest = 0.0;
        for (u32 i = 0; i < 6; ++i) largest = std::max(largest, std::fabs(P[i * 7]));
        for (u32 i = 0; i < 6; ++i) EXPECT_NEAR(u.x_est[i], x[i], 1e-12 * std::fabs(x[i]));
        for (u32 i = 0; i < 36; ++i) EXPECT_NEAR(u.P_est[i], P[i], 1e-8 * largest) << i;
        EXPECT_EQ(u.laps != 0, out["repaired"] != 0);
        if (!out["laps"].is_null()) {
            EXPECT_EQ(u.laps, out["laps"].get<u32>());
        }
    }
}

TEST(RegulatorCheckValues, Steering)
{
    TU_LOAD_VECTORS(document, "o02_steering.json");
    replaySequences(document, true);
}

TEST(RegulatorCheckValues, ControlInitiation)
{
    TU_LOAD_VECTORS(document, "o02_steering.json");
    for (const json& c : document["control_initiation"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        RegulatorUnit unit;
        unit.run([&] {
            const json& in = c["in"];
            const json& out = c["out"];
            setHardware(in["hardware"]);
            RegulatorUnit::beMaster(in["master"] != 0);
            KvdLoz6TuReg_forceRegState(in["regState_before"].get<u8>());
            double U[2] = {0.0, num(in["U1"])};
            KvdLoz6TuReg_controlInitiate(in["coldRestart"] != 0, U);
            const ControlStateVar& v = KvdLoz6TuReg_controlStateVar();
            EXPECT_NEAR(v.U[1], num(out["U1"]), 1e-9);
            EXPECT_EQ(v.nomDiv, out["nomDiv"].get<u32>());
            EXPECT_EQ(v.K, out["K"].get<i64>());
            EXPECT_EQ(v.M, out["M"].get<i64>());
            EXPECT_EQ(v.regState, out["regState"].get<u8>());
            EXPECT_EQ(v.f_ix, out["f_ix"].get<u8>());
            EXPECT_EQ(v.t_ix, out["t_ix"].get<u8>());
            EXPECT_EQ(v.f_lim_low, num(out["f_lim_low"]));
            EXPECT_EQ(v.f_lim_high, num(out["f_lim_high"]));
            EXPECT_EQ(v.t_lim_low, num(out["t_lim_low"]));
            EXPECT_EQ(v.t_lim_high, num(out["t_lim_high"]));
            EXPECT_EQ(v.xf_limit, num(out["xf_limit"]));
            EXPECT_EQ(v.fix.hyst, num(out["hyst"]));
            EXPECT_EQ(v.fix.first, out["first"].get<u32>());
            EXPECT_EQ(tuHwIf_readNominalDivisor(), out["written"]["nomDiv"].get<u32>());
            EXPECT_EQ(tuHwIf_readDeltaSigmaK(), out["written"]["K"].get<i64>());
            EXPECT_EQ(tuHwIf_readDeltaSigmaM(), out["written"]["M"].get<i64>());
        });
    }
}

TEST(RegulatorCheckValues, ClosedLoopOnEthernet)
{
    TU_LOAD_VECTORS(document, "o02_closed_eth.json");
    RegulatorUnit unit;
    unit.run([&] {
        start(document["init"]);
        const json& snapshots = document["snapshots"];
        for (std::size_t i = 0; i < document["calls"].size() && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("call " + std::to_string(i));
            const json& call = document["calls"][i];
            const json& after = document["after"][i];
            const std::string form = call[0];
            double R_new = 0.0;
            if (form == "T")
                R_new = KvdLoz6TuReg_estimate({num(call[1]), Z_TEMP_REF, num(call[2]), 10.0, 1e-6});
            else if (form == "M")
                R_new = KvdLoz6TuReg_estimate(
                    {num(call[1]), call[2].get<u32>(), num(call[3]), num(call[4]), num(call[5])});
            else if (form == "I") KvdLoz6TuReg_setInitialFrequencyDrift(call[1].get<u8>());
            else if (form == "S") writeFields(call[1]);
            else if (form == "C") KvdLoz6TuReg_clearDegradationCounter();
            const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
            const ControlStateVar& c = KvdLoz6TuReg_controlStateVar();
            const MeasStateVar& m = KvdLoz6TuReg_measStateVar();
            const auto near = [](double value, double wanted, double relative, double absolute,
                                 const char* what) {
                EXPECT_LE(std::fabs(value - wanted), relative * std::fabs(wanted) + absolute)
                    << what << " is " << value << ", wanted " << wanted;
            };
            if (!after.is_null()) {
                if (!after[0].is_null()) near(R_new, num(after[0]), 1e-8, 0, "R_new");
                near(e.x_est[0], num(after[2]), 1e-9, 2e-14, "x0");
                near(e.x_est[1], num(after[3]), 1e-9, 1e-17, "x1");
                near(c.U[1], num(after[4]), 0, 1e-9, "U1");
                EXPECT_EQ(c.f_ix, after[5].get<u8>());
                EXPECT_EQ(c.t_ix, after[6].get<u8>());
                EXPECT_EQ(c.regState, after[7].get<u8>());
            }
            if (!snapshots.contains(std::to_string(i))) continue;
            const json& s = snapshots[std::to_string(i)];
            near(e.x_est[2], num(s["x"][2]), 1e-8, 2e-21, "x2");
            for (u32 k = 3; k < 6; ++k) near(e.x_est[k], num(s["x"][k]), 1e-9, 1e-17, "x[3..5]");
            for (u32 k = 0; k < 6; ++k) near(e.P_est[k * 7], num(s["Pdiag"][k]), 1e-8, 0, "Pdiag");
            EXPECT_EQ(c.nomDiv, s["nomDiv"].get<u32>());
            near(static_cast<double>(c.K), num(s["K"]), 0, 1, "K");
            near(m.delta0_c + m.delta0_f, num(s["delta0_c"]) + num(s["delta0_f"]), 0, 2e-13,
                 "delta0");
            EXPECT_EQ(e.degrd, s["degrd"].get<u8>());
            EXPECT_EQ(e.degrState, s["degrState"].get<u8>());
            near(c.du[1], num(s["du"]), 1e-9, 1e-12, "du");
            near(c.fix.hyst, num(s["hyst"]), 0, 1e-9, "hyst");
            near(c.f_acc_report, num(s["f_acc"]), 0, 1, "f_acc");
            near(c.t_acc_report, num(s["t_acc"]), 0, 1, "t_acc");
        }
    });
}
