// Replay of check values: prediction, estimate steps, grading, steering, look-aheads, repair, closed loops.
#include "iif/kvd_biraiifadm_int.h"
#include "reg/kvd_reg_matrix.h"
#include "reg/support/regulator_unit.h"
#include "support/vectors.h"
#include "unit/kvd_unit_link.h"

#include <gtest/gtest.h>

#include <cmath>

using regtest::RegulatorUnit;
using vectors::Field;
using vectors::field;
using vectors::Tolerance;
using vectors::Value;

namespace {

constexpr Vec6 H = {1, 0, 0, 0, 0, 0};
constexpr Tolerance STEP{1e-9, 1e-12};        // divider units
constexpr Tolerance CLOSE{1e-9, 1e-300};
constexpr Tolerance REPORT{1e-9, 1.0};        // ns or ppb, whole numbers

double num(const Value& v) { return vectors::number(v); }

template <std::size_t Size>
std::array<double, Size> numbers(const Value& v)
{
    if (v.size() != Size) throw std::runtime_error(std::to_string(v.size()) + " numbers");
    std::array<double, Size> r{};
    for (std::size_t i = 0; i < Size; ++i) r[i] = num(v[i]);
    return r;
}
Vec6 vec6(const Value& v) { return numbers<6>(v); }
Mat6 mat6(const Value& v) { return numbers<36>(v); }

// ---- the numbers of the records, by their names in the files ----------------------------------------------

const std::vector<Field<EstimateStateVar>> ESTIMATE = {
    field("T", &EstimateStateVar::T, CLOSE),
    field("b", &EstimateStateVar::b, CLOSE),
    field("prevRef", &EstimateStateVar::prevRef),
    field("degrd", &EstimateStateVar::degrd),
    field("degrState", &EstimateStateVar::degrState),
    field("resSign", &EstimateStateVar::residualSign),
    field("resSignConst", &EstimateStateVar::residualSignConstant),
    field("measCount", &EstimateStateVar::measCount),
    field("var_G", &EstimateStateVar::var_G, CLOSE),
    field("var_F", &EstimateStateVar::var_F, CLOSE),
    field("fixFreqMode", &EstimateStateVar::fixFreqMode),
};
const std::vector<Field<ControlStateVar>> CONTROL = {
    {"U1", [](const auto& c) { return c.U[1]; }, [](auto& c, double v) { c.U[1] = v; }, {0.0, 1e-9}},
    {"du", [](const auto& c) { return c.du[1]; }, [](auto& c, double v) { c.du[1] = v; }, STEP},
    field("nomDiv", &ControlStateVar::nomDiv),
    field("K", &ControlStateVar::K, {0.0, 1.0}),
    field("M", &ControlStateVar::M),
    field("regState", &ControlStateVar::regState),
    field("f_ix", &ControlStateVar::f_ix),
    field("t_ix", &ControlStateVar::t_ix),
    field("f_lim_low", &ControlStateVar::f_lim_low),
    field("f_lim_high", &ControlStateVar::f_lim_high),
    field("t_lim_low", &ControlStateVar::t_lim_low),
    field("t_lim_high", &ControlStateVar::t_lim_high),
    field("xf_limit", &ControlStateVar::xf_limit),
    field("f_acc_report", &ControlStateVar::f_acc_report, REPORT),
    field("t_acc_report", &ControlStateVar::t_acc_report, REPORT),
};
const std::vector<Field<MeasStateVar>> MEAS = {
    field("selectedRef", &MeasStateVar::selectedRef),
    field("prevSelectedRef", &MeasStateVar::prevSelectedRef),
    field("t_mod", &MeasStateVar::t_mod_old, CLOSE),
    field("delta0_c", &MeasStateVar::delta0_c),
    field("delta0_f", &MeasStateVar::delta0_f),
    field("histCountDown", &MeasStateVar::histCountDown),
    field("calibrationCountDown", &MeasStateVar::calibrationCountDown),
};
constexpr Tolerance FILTER_CLOSE{1e-9, 1e-14};
const std::vector<Field<FixFilter>> FILTER = {
    field("last", &FixFilter::last, FILTER_CLOSE),
    field("mean", &FixFilter::meanStep, FILTER_CLOSE),
    field("meanr", &FixFilter::meanRisingStep, FILTER_CLOSE),
    field("sum", &FixFilter::stepSum, FILTER_CLOSE),
    field("sumr", &FixFilter::risingStepSum, FILTER_CLOSE),
    field("hyst", &FixFilter::hyst, FILTER_CLOSE),
    field("n", &FixFilter::count),
    field("nr", &FixFilter::risingCount),
    field("first", &FixFilter::first),
};
/// What stands outside of the three records: the unit's role and modes, and the registers.
const std::map<std::string, void (*)(const Value&)> UNIT = {
    {"master", [](const Value& v) { RegulatorUnit::beMaster(num(v) != 0); }},
    {"testMode", [](const Value& v) { regulator::state().testMode = v.get<u32>(); }},
    {"dualConfiguration", [](const Value& v) { regulator::state().dualConfiguration = v.get<u32>(); }},
    {"jumpState", [](const Value& v) { KvdLoz6TuReg_setJumpState(static_cast<JumpState>(v.get<u32>())); }},
    {"idlMode",
     [](const Value& v) {
         KvdUnit_link().idlMode = num(v) == 2 ? KVD_BIRAIIF_IDL_MODE_2 : KVD_BIRAIIF_IDL_MODE_1;
     }},
    {"hw_nomDiv", [](const Value& v) { tuHwIf_writeNominalDivisor(v.get<u32>()); }},
    {"hw_K", [](const Value& v) { tuHwIf_writeDeltaSigmaK(v.get<i64>()); }},
    {"hw_M", [](const Value& v) { tuHwIf_writeDeltaSigmaM(v.get<i64>()); }},
    {"regState", [](const Value& v) { KvdLoz6TuReg_forceRegState(v.get<u8>()); }},
    {"x", [](const Value& v) { estimator::state().var.x_est = vec6(v); }},
    {"P", [](const Value& v) { estimator::state().var.P_est = mat6(v); }},
    {"u",
     [](const Value& v) {
         const auto u = numbers<2>(v);
         std::copy(u.begin(), u.end(), estimator::state().var.u_tf);
     }},
    {"initialFrequencyDrift", [](const Value& v) { estimator::state().initialFrequencyDrift = num(v); }},
    {"ifd", [](const Value& v) { estimator::state().initialFrequencyDrift = num(v); }},
    {"filter",
     [](const Value& v) {
         for (const auto& [name, value] : v.items())
             if (!vectors::write(FILTER, control::state().var.fix, name, value)) ADD_FAILURE() << "filter." << name;
     }},
};

void writeFields(const Value& fields)
{
    for (const auto& [name, value] : fields.items()) {
        if (name == "op") continue;
        const auto unit = UNIT.find(name);
        if (unit != UNIT.end()) unit->second(value);
        else if (!vectors::write(CONTROL, control::state().var, name, value)
                 && !vectors::write(ESTIMATE, estimator::state().var, name, value)
                 && !vectors::write(MEAS, measure::state().var, name, value))
            ADD_FAILURE() << "no field \"" << name << "\" to set";
    }
}

/// The board whose nominal divider is the wanted one.
void beBoard(const Value& factory)
{
    hwif::setRev3(factory["nomDiv"] == 1250 ? 1 : 0);
    hwif::setExtPhaseDetector(factory["nomDiv"] == 110 ? 1 : 0);
    ASSERT_EQ(tuHwIf_readNomDiv(), factory["nomDiv"].get<u32>());
    ASSERT_EQ(tuHwIf_readInitDeltaSigmaK(), factory["K"].get<i64>());
    ASSERT_EQ(tuHwIf_readInitDeltaSigmaM(), factory["M"].get<i64>());
}

void writeHardware(const Value& hardware)
{
    for (const auto& [name, value] : hardware.items()) UNIT.at("hw_" + name)(value);
}

void start(const Value& init)
{
    const Value e = init["estimator"];
    const auto u = numbers<2>(e["u"]);
    KvdLoz6TuReg_estimateInitiate(vec6(e["x"]), mat6(e["P"]), num(e["T"]), u.data(), num(e["b"]));
    beBoard(init["factory"]);
    writeHardware(init["hardware"]);
    control::state().var = ControlStateVar{};
    measure::state().var.histCountDown = 1.0;
    measure::state().var.calibrationCountDown = 1.0;
    for (const auto& [group, fields] : init.items())
        if (group != "factory" && group != "hardware") writeFields(fields);
}

// ---- comparison -------------------------------------------------------------------------------------------

/// What a step hands back, by the names in the files.
struct Result { double value; Tolerance tolerance; };
using Results = std::map<std::string, Result>;

struct Compare {
    const Value& after;
    double exactly = 1.0;          // 0 where K is held to the unit

    double factor(const std::string& name) const
    {
        if (!after.contains("tol_factor") || !after["tol_factor"].contains(name)) return 1.0;
        return num(after["tol_factor"][name]);
    }
    void state(const std::string& name, const Vec6& x) const
    {
        constexpr double FLOOR[6] = {1e-15, 1e-18, 1e-22, 1e-18, 1e-18, 1e-18};
        constexpr double ROOT[6] = {1e-12, 1e-17, 1e-21, 1e-16, 1e-16, 1e-16};
        const Vec6 e = vec6(after[name]);
        for (u32 i = 0; i < 6; ++i) {
            double root = 0.0;
            if (after.contains("P") && !after["P"].is_null())
                root = std::min(1e-9 * std::sqrt(std::fabs(num(after["P"][i * 7]))), ROOT[i]);
            vectors::expectNear(name + std::to_string(i), x[i], e[i], {1e-9, root + FLOOR[i]}, factor(name));
        }
    }
    void covariance(const Mat6& P) const
    {
        const Mat6 e = mat6(after["P"]);
        const double extra = after.contains("P_abs_tol") ? num(after["P_abs_tol"]) : 0.0;
        for (u32 at = 0; at < 36; ++at) {
            const double scale = std::sqrt(std::fabs(e[at / 6 * 7] * e[at % 6 * 7]));
            vectors::expectNear("P" + std::to_string(at), P[at], e[at],
                                {0.0, (1e-9 * scale + 1e-45) * factor("P") + extra});
        }
    }
    /// One name of the file: a result of the step, a matrix, or a number of a record.
    bool one(const std::string& name, const Value& wanted, const Results& results) const
    {
        const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
        const MeasStateVar& m = KvdLoz6TuReg_measStateVar();
        const auto result = results.find(name);
        if (result != results.end())
            vectors::expectNear(name, result->second.value, num(wanted), result->second.tolerance, factor(name));
        else if (name == "x") state(name, e.x_est);
        else if (name == "xprev") state(name, e.prev_x_est);
        else if (name == "P") covariance(e.P_est);
        else if (name == "u") {
            const auto u = numbers<2>(wanted);
            EXPECT_EQ(e.u_tf[0], u[0]);
            vectors::expectNear("u[1]", e.u_tf[1], u[1], STEP, factor(name));
        } else if (name == "delta0_c") {
            vectors::expectNear("delta0", m.delta0_c + m.delta0_f, num(wanted) + num(after["delta0_f"]),
                                {0.0, 1e-12}, factor(name));
        } else if (name == "histCountDown_is_0") EXPECT_EQ(m.histCountDown == 0.0, num(wanted) != 0);
        else if (name == "calibrationCountDown_is_0") EXPECT_EQ(m.calibrationCountDown == 0.0, num(wanted) != 0);
        else if (name == "initialFrequencyDrift")
            vectors::expectNear(name, KvdLoz6TuReg_initialFrequencyDrift(), num(wanted), CLOSE);
        else if (name == "filter") {
            for (const auto& [key, value] : wanted.items())
                EXPECT_TRUE(vectors::compare(FILTER, KvdLoz6TuReg_controlStateVar().fix, key, value)) << key;
        } else {
            const double scale = name == "K" ? exactly : factor(name);
            return vectors::compare(CONTROL, KvdLoz6TuReg_controlStateVar(), name, wanted, scale)
                   || vectors::compare(ESTIMATE, e, name, wanted, scale)
                   || (name != "delta0_f" && vectors::compare(MEAS, m, name, wanted, scale))
                   || name == "delta0_f";
        }
        return true;
    }
};

/// Words that say how the model came to its result; the result itself is compared.
bool isExplanation(const std::string& name)
{
    return name == "why" || name == "branch" || name == "doControl" || name == "events" || name == "tol_factor"
           || name == "P_abs_tol" || name == "repair_lambdas"
           || name == "soon" || name == "history_f_ix";     // compared by the look
}

void compareState(const Value& after, const Results& results, bool exactK)
{
    const Compare compare{after, exactK ? 0.0 : 1.0};
    for (const auto& [name, wanted] : after.items()) {
        if (isExplanation(name)) wanted.read();
        else if (!wanted.is_null() && !compare.one(name, wanted, results))
            ADD_FAILURE() << "nothing to compare \"" << name << "\" with";
    }
}

// ---- steps ------------------------------------------------------------------------------------------------

/// What the measurement will meet, before the step changes it.
void expectResidual(const MeasRefData& o, const Value& after, Results& results)
{
    const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
    Mat6 P = v.P_est;
    const bool link = o.z_i == Z_IDL1_LOZ6 || o.z_i == Z_IDL2_LOZ6;
    if (KvdLoz6TuReg_isMaster() == 0 && link) P[7] = std::max(P[7], o.R);
    const Prediction p = KvdLoz6TuReg_predict(v.x_est, P, v.b, v.u_tf, v.T, v.T, o.t_s);
    const estimator::Residual r = estimator::covarianceResidual(H, p.x_pred, p.P_pred, o.z, o.R);
    results["z_pred"] = {p.x_pred[0], STEP};
    results["resid"] = {r.resid, STEP};
    results["HPH"] = {r.HPH, CLOSE};
    results["S"] = {r.S, CLOSE};
    if (after.contains("repair_laps"))
        results["repair_laps"] = {
            static_cast<double>(estimator::completeUpdate(H, p.x_pred, p.P_pred, r.S, r.resid).laps), {}};
}

/// The time step of the state as the controller met it.
void expectTimeStep(double x0, const Vec6& x, const Mat6& P, double b, Results& results)
{
    const control::TimeSteering t =
        control::timeStep(x0, x[1], x[2], P[7], b, KvdLoz6TuReg_controlStateVar().xf_limit);
    results["du_t"] = {t.du_t, STEP};
    results["du_l"] = {t.du_l, STEP};
}

Results estimate(RegulatorUnit& unit, const Value& call, const Value& after)
{
    Results results;
    const MeasRefData o{num(call["z"]), call["z_i"].get<u32>(), num(call["t_s"]), num(call["m"]), num(call["R"])};
    if (o.z_i != Z_TEMP_REF) expectResidual(o, after, results);
    unit.bus.traces.clear();
    results["R_new"] = {KvdLoz6TuReg_estimate(o), CLOSE};
    const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
    const bool used = o.z_i != Z_TEMP_REF && e.prev_x_est != KvdLoz6TuReg_estimatePar().x_pred;
    results["used"] = {used ? 1.0 : 0.0, {}};
    results["P00_set_to_R"] = {e.P_est[0] == o.R ? 1.0 : 0.0, {}};
    expectTimeStep(e.x_est[0], e.prev_x_est, e.P_est, e.b, results);
    return results;
}

Results controller(const Value& call)
{
    Results results;
    const Vec6 x = vec6(call["x"]);
    const Mat6 P = mat6(call["P"]);
    const ControlResult r = KvdLoz6TuReg_controller(x, P, call["doControl"].get<int>(), call["z_i"].get<u32>());
    results["u1"] = {r.u[1], STEP};
    results["b"] = {r.b, CLOSE};
    results["x0"] = {r.x0, {1e-9, 1e-15}};
    expectTimeStep(r.x0, x, P, r.b, results);
    return results;
}

Results grade(const Value& call)
{
    Results results;
    Vec6 x{};
    Mat6 P{};
    x[1] = num(call["x1"]);
    P[7] = num(call["P11"]);
    ControlStateVar& c = control::state().var;
    const u8 result = KvdLoz6TuReg_computeFix(x, P, call["update"].get<int>());
    const double log_f_dev = control::logFrequencyDeviation(x[1], P[7]);
    results["result"] = {static_cast<double>(result), {}};
    results["log_f_dev"] = {log_f_dev, CLOSE};
    results["d"] = {control::fixDistance(c.fix, log_f_dev, c.f_ix, c.f_lim_low, c.f_lim_high), {1e-9, 1e-12}};
    if (call.value("store", 0) != 0) c.f_ix = result;
    return results;
}

Results look(RegulatorUnit& unit, const Value& call, Value after)
{
    Results results;
    unit.bus.traces.clear();
    results["history_h"] = {KvdLoz6TuReg_lookAheadHistory(), {1e-9, 0.0}};
    std::vector<int> grades;
    for (const auto& [level, t] : unit.bus.traces) {
        const std::size_t at = t.find("f_ix = ");
        if (t.rfind("Predicting state", 0) == 0 && at != std::string::npos) grades.push_back(std::stoi(t.substr(at + 7)));
        const std::string hours = "Hours history is valid from now: ";
        if (t.rfind(hours, 0) == 0) results["history_hours"] = {std::stod(t.substr(hours.size())), {1e-9, 0.0}};
    }
    EXPECT_EQ(grades, after["history_f_ix"].get<std::vector<int>>());
    results["calibration_days"] = {KvdLoz6TuReg_lookAheadCalibration(), {0.0, 1e-9}};
    std::map<double, int> soon;
    for (const Value pair : after["soon"]) soon[num(pair[0])] = pair[1].get<int>();
    for (const Value day : call["days"])
        EXPECT_EQ(KvdLoz6TuReg_lookAheadSoonToExpire(num(day)) ? 1 : 0, soon.at(num(day))) << day;
    return results;
}

/// The oscillator's three coefficients, whatever the call names them.
std::array<double, 3> coefficients(const Value& call)
{
    for (const auto& [name, value] : call.items())
        if (value.is_array() && value.size() == 3) return numbers<3>(value);
    throw std::runtime_error("no coefficients in the call");
}

void force(const std::string& what)
{
    if (what == "timeOffset") KvdLoz6TuReg_forceTimeOffsetHoldover();
    else if (what == "frequencyHoldover" || what == "frequency") KvdLoz6TuReg_forceFrequencyHoldover();
    else if (what == "frequencyDrifting") KvdLoz6TuReg_forceFrequencyDrifting();
    else throw std::runtime_error("nothing to force \"" + what + "\"");
}

Results step(RegulatorUnit& unit, const Value& call, const Value& after)
{
    const std::string op = call["op"].get<std::string>();
    unit.bus.traces.clear();
    if (op == "estimate") return estimate(unit, call, after);
    if (op == "controller") return controller(call);
    if (op == "f_ix") return grade(call);
    if (op == "look") return look(unit, call, after);
    if (op == "set") writeFields(call);
    else if (op == "initCnt") KvdLoz6TuReg_setInitialFrequencyDrift(call["n"].get<u8>());
    else if (op == "force") force(call["what"].get<std::string>());
    else if (op == "clearDegradation") KvdLoz6TuReg_clearDegradationCounter();
    else if (op == "timeReset") KvdLoz6TuReg_resetTimeUncertainty();
    else if (op == "loadTempCoeff") KvdLoz6TuReg_loadTemperatureCoefficients(coefficients(call).data());
    else if (op == "reinit") KvdLoz6TuReg_estimateReinitiate(coefficients(call).data());
    else if (op == "fixFrequency") KvdLoz6TuReg_fixFrequency();
    else throw std::runtime_error("no replay of the step \"" + op + "\"");
    return {};
}

void sequence(const Value& s)
{
    RegulatorUnit unit;
    unit.run([&] {
        start(s["init"]);
        unit.traceAll();
        const bool exactK = s["name"].get<std::string>() == "writing Div";
        int index = 0;
        for (const Value one : s["steps"]) {
            SCOPED_TRACE("step " + std::to_string(index++));
            const Results results = step(unit, one["call"], one["after"]);
            compareState(one["after"], results, exactK);
            one.read();
        }
    });
}

}  // namespace

TEST(RegulatorCheckValues, Sequences)
{
    for (const char* file : {"o02_estimate.json", "o02_controller.json", "o02_fix.json", "o02_lookahead.json",
                             "o02_repair.json", "o02_steering.json"}) {
        SCOPED_TRACE(file);
        vectors::Document document(file);
        vectors::each(document["sequences"], sequence);
    }
}

TEST(RegulatorCheckValues, Prediction)
{
    vectors::Document document("o02_predict.json");
    vectors::each(document["cases"], [](const Value& c) {
        const Value in = c["in"];
        const Vec6 x = vec6(in["x"]);
        const Mat6 P = mat6(in["P"]);
        const auto u = numbers<2>(in["u"]);
        const double t_s = num(in["t_s"]), b = num(in["b"]), T0 = num(in["T_old"]), T1 = num(in["T_new"]);
        const double test = num(in["testMode"]), master = num(in["master"]);
        const bool testMode = test != 0 && master != 0;
        const Prediction p = estimator::predict(
            x, P, b, u.data(), T0, T1, t_s,
            {num(in["var_G"]), num(in["var_F"]), num(in["initialFrequencyDrift"]), testMode});
        const Vec6 xWanted = vec6(c["out"]["x_pred"]);
        const Mat6 PWanted = mat6(c["out"]["P_pred"]), QWanted = mat6(c["out"]["Q"]);

        // The sizes of the terms whose sums are compared.
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
        const Mat6 PSize =
            matrix::multiply<6, 6, 6>(matrix::multiply<6, 6, 6>(A, absP), matrix::transpose<6, 6>(A));

        bool negative = false;
        for (u32 i = 0; i < 6; ++i) {
            vectors::expectNear("x_pred", p.x_pred[i], xWanted[i], {0.0, 1e-12 * xSize[i] + 1e-30});
            negative = negative || p.P_pred[i * 7] < 0.0;
            for (u32 j = 0; j < 6; ++j) {
                const u32 at = i * 6 + j;
                const std::string place = std::to_string(at);
                vectors::expectNear("P_pred " + place, p.P_pred[at], PWanted[at],
                                    {0.0, 1e-12 * (PSize[at] + std::fabs(QWanted[at])) + 1e-60});
                vectors::expectNear("Q " + place, p.Q[at], QWanted[at],
                                    {0.0, 1e-12 * std::sqrt(QWanted[i * 7] * QWanted[j * 7]) + 1e-60});
            }
        }
        EXPECT_EQ(negative, num(c["out"]["negativeDiagonal"]) != 0);
    });
}

TEST(RegulatorCheckValues, InitialFrequencyDrift)
{
    vectors::Document document("o02_lookahead.json");
    double drift = 3e-21;
    vectors::each(document["initialFrequencyDrift_table"], [&](const Value& row) {
        drift = estimator::initialFrequencyDrift(row[0].get<u8>(), drift);
        vectors::expectNear("drift", drift, num(row[1]), {1e-10, 0.0});
    });
}

TEST(RegulatorCheckValues, CovarianceRepair)
{
    vectors::Document document("o02_repair.json");
    vectors::each(document["direct"], [](const Value& c) {
        const Value in = c["in"], out = c["out"];
        const estimator::Update u = estimator::completeUpdate(H, vec6(in["x_pred"]), mat6(in["P_pred"]),
                                                              num(in["S"]), num(in["resid"]));
        const Vec6 x = vec6(out["x_est"]);
        const Mat6 P = mat6(out["P_est"]);
        double largest = 0.0;
        for (u32 i = 0; i < 6; ++i) largest = std::max(largest, std::fabs(P[i * 7]));
        for (u32 i = 0; i < 6; ++i) vectors::expectNear("x_est", u.x_est[i], x[i], {1e-12, 0.0});
        for (u32 i = 0; i < 36; ++i) vectors::expectNear("P_est", u.P_est[i], P[i], {0.0, 1e-8 * largest});
        EXPECT_EQ(u.laps != 0, num(out["repaired"]) != 0);
        if (!out["laps"].is_null()) {
            EXPECT_EQ(u.laps, out["laps"].get<u32>());
        }
        out["first_lambda"].read();      // for the reader
    });
}

TEST(RegulatorCheckValues, Gain)
{
    vectors::Document document("o02_steering.json");
    vectors::each(document["gain"], [](const Value& c) {
        RegulatorUnit unit;
        unit.run([&] {
            beBoard(c["factory"]);
            vectors::expectNear("b", tuHwIf_calcOcxoGain(num(c["U1"])), num(c["b"]), CLOSE);
        });
    });
}

TEST(RegulatorCheckValues, ControlInitiation)
{
    vectors::Document document("o02_steering.json");
    vectors::each(document["control_initiation"], [](const Value& c) {
        RegulatorUnit unit;
        unit.run([&] {
            const Value in = c["in"], out = c["out"];
            beBoard(in["factory"]);
            writeHardware(in["hardware"]);
            for (const char* name : {"master", "idlMode"}) UNIT.at(name)(in[name]);
            KvdLoz6TuReg_forceRegState(in["regState_before"].get<u8>());
            double U[2] = {0.0, num(in["U1"])};
            KvdLoz6TuReg_controlInitiate(num(in["coldRestart"]) != 0, U);
            const ControlStateVar& v = KvdLoz6TuReg_controlStateVar();
            for (const auto& [name, wanted] : out.items()) {
                if (name == "written") continue;
                if (!vectors::compare(CONTROL, v, name, wanted, name == "K" ? 0.0 : 1.0)
                    && !vectors::compare(FILTER, v.fix, name, wanted, 0.0))
                    ADD_FAILURE() << "nothing to compare \"" << name << "\" with";
            }
            const Value written = out["written"];
            EXPECT_EQ(tuHwIf_readNominalDivisor(), written["nomDiv"].get<u32>());
            EXPECT_EQ(tuHwIf_readDeltaSigmaK(), written["K"].get<i64>());
            EXPECT_EQ(tuHwIf_readDeltaSigmaM(), written["M"].get<i64>());
        });
    });
}

// ---- closed loops -----------------------------------------------------------------------------------------

namespace {

/// One call of a closed loop; the result of an estimate step.
double loopCall(const Value& call)
{
    const std::string form = call[0].get<std::string>();
    if (form == "T") return KvdLoz6TuReg_estimate({num(call[1]), Z_TEMP_REF, num(call[2]), 10.0, 1e-6});
    if (form == "M")
        return KvdLoz6TuReg_estimate(
            {num(call[1]), call[2].get<u32>(), num(call[3]), num(call[4]), num(call[5])});
    if (form == "I") KvdLoz6TuReg_setInitialFrequencyDrift(call[1].get<u8>());
    else if (form == "S") writeFields(call[1]);
    else if (form == "C") KvdLoz6TuReg_clearDegradationCounter();
    else throw std::runtime_error("no replay of the call \"" + form + "\"");
    return 0.0;
}

void loopAfter(const std::string& form, double R_new, const Value& after)
{
    const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
    const ControlStateVar& c = KvdLoz6TuReg_controlStateVar();
    if (!after[0].is_null()) vectors::expectNear("R_new", R_new, num(after[0]), {1e-8, 0.0});
    const bool used = form == "M" && e.prev_x_est != KvdLoz6TuReg_estimatePar().x_pred;
    EXPECT_EQ(used, num(after[1]) != 0);
    vectors::expectNear("x0", e.x_est[0], num(after[2]), {1e-9, 2e-14});
    vectors::expectNear("x1", e.x_est[1], num(after[3]), {1e-9, 1e-17});
    vectors::expectNear("U1", c.U[1], num(after[4]), {0.0, 1e-9});
    EXPECT_EQ(c.f_ix, after[5].get<u8>());
    EXPECT_EQ(c.t_ix, after[6].get<u8>());
    EXPECT_EQ(c.regState, after[7].get<u8>());
}

void loopSnapshot(const Value& s)
{
    const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
    const ControlStateVar& c = KvdLoz6TuReg_controlStateVar();
    const MeasStateVar& m = KvdLoz6TuReg_measStateVar();
    constexpr Tolerance X[6] = {{1e-9, 2e-14}, {1e-9, 1e-17}, {1e-8, 2e-21},
                                {1e-9, 1e-17}, {1e-9, 1e-17}, {1e-9, 1e-17}};
    const Vec6 x = vec6(s["x"]), Pdiag = vec6(s["Pdiag"]);
    for (u32 k = 0; k < 6; ++k) {
        vectors::expectNear("x" + std::to_string(k), e.x_est[k], x[k], X[k]);
        vectors::expectNear("Pdiag" + std::to_string(k), e.P_est[k * 7], Pdiag[k], {1e-8, 0.0});
    }
    vectors::expectNear("delta0", m.delta0_c + m.delta0_f, num(s["delta0_c"]) + num(s["delta0_f"]), {0.0, 2e-13});
    vectors::expectNear("hyst", c.fix.hyst, num(s["hyst"]), {0.0, 1e-9});
    vectors::expectNear("f_acc", c.f_acc_report, num(s["f_acc"]), {0.0, 1.0});
    vectors::expectNear("t_acc", c.t_acc_report, num(s["t_acc"]), {0.0, 1.0});
    static const std::set<std::string> DONE = {"x", "Pdiag", "delta0_c", "delta0_f", "hyst", "f_acc", "t_acc", "t"};
    for (const auto& [name, wanted] : s.items()) {
        if (DONE.contains(name)) continue;
        EXPECT_TRUE(vectors::compare(CONTROL, c, name, wanted) || vectors::compare(ESTIMATE, e, name, wanted)
                    || vectors::compare(MEAS, m, name, wanted)) << "nothing to compare \"" << name << "\" with";
    }
}

void closedLoop(const Value& loop)
{
    RegulatorUnit unit;
    unit.run([&] {
        start(loop["init"]);
        const Value calls = loop["calls"], snapshots = loop["snapshots"];
        for (std::size_t i = 0; i < calls.size() && !testing::Test::HasFailure(); ++i) {
            SCOPED_TRACE("call " + std::to_string(i));
            const double R_new = loopCall(calls[i]);
            const Value after = loop["after"][i];
            if (!after.is_null()) loopAfter(calls[i][0].get<std::string>(), R_new, after);
            const std::string at = std::to_string(i);
            if (snapshots.contains(at)) loopSnapshot(snapshots[at]);
        }
    });
}

}  // namespace

TEST(RegulatorCheckValues, ClosedLoops)
{
    const std::vector<std::string> files = vectors::files("o02_closed");
    EXPECT_FALSE(files.empty());
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        vectors::Document document(file);
        const Value loop = document.root();
        closedLoop(loop);
    }
}
