// Replay of check values: prediction, estimate steps, grading, steering, look-aheads, repair, closed loops.
#include "reg/kvd_reg_matrix.h"
#include "reg/support/regulator_fields.h"
#include "reg/support/regulator_unit.h"
#include "support/vectors.h"

#include <gtest/gtest.h>

#include <cmath>
#include <regex>

using regtest::CLOSE;
using regtest::RegulatorUnit;
using regtest::STEP;
using vectors::expectNear;
using vectors::Tolerance;
using vectors::Value;

namespace {

constexpr Vec6 H = {1, 0, 0, 0, 0, 0};

double num(const Value& v) { return vectors::number(v); }

/// The board whose nominal divider is the wanted one.
void beBoard(const Value& factory)
{
    hwif::setRev3(factory["nomDiv"] == 1250 ? 1 : 0);
    hwif::setExtPhaseDetector(factory["nomDiv"] == 110 ? 1 : 0);
    vectors::expectAll({{"nomDiv", tuHwIf_readNomDiv()}, {"K", tuHwIf_readInitDeltaSigmaK()},
                        {"M", tuHwIf_readInitDeltaSigmaM()}}, factory);
}

void start(const Value& init)
{
    const Value e = init["estimator"];
    const std::array<double, 2> u = e["u"];
    KvdLoz6TuReg_estimateInitiate(e["x"], e["P"], e["T"], u.data(), e["b"]);
    beBoard(init["factory"]);
    regtest::write(init["hardware"], "hw_");
    control::state().var = ControlStateVar{};
    measure::state().var.histCountDown = 1.0;
    measure::state().var.calibrationCountDown = 1.0;
    for (const char* group : {"control", "estimator", "meas", "unit"})
        if (init.contains(group)) regtest::write(init[group]);
}

// ---- comparison -------------------------------------------------------------------------------------------

/// What a step hands back, by the names in the files.
struct Result { double value; Tolerance tolerance; };
using Results = std::map<std::string, Result>;

struct Compare {
    const Value& after;
    bool exactK = false;           // K is held to the unit

    double factor(const std::string& name) const
    {
        if (!after.contains("tol_factor") || !after["tol_factor"].contains(name)) return 1.0;
        return after["tol_factor"][name];
    }
    void state(const std::string& name, const Vec6& x) const
    {
        constexpr double FLOOR[6] = {1e-15, 1e-18, 1e-22, 1e-18, 1e-18, 1e-18};
        constexpr double ROOT[6] = {1e-12, 1e-17, 1e-21, 1e-16, 1e-16, 1e-16};
        const Vec6 e = after[name];
        for (u32 i = 0; i < 6; ++i) {
            double root = 0.0;
            if (after.contains("P") && !after["P"].is_null())
                root = std::min(1e-9 * std::sqrt(std::fabs(num(after["P"][i * 7]))), ROOT[i]);
            expectNear(name + std::to_string(i), x[i], e[i], {1e-9, root + FLOOR[i]}, factor(name));
        }
    }
    void covariance(const Mat6& P) const
    {
        const Mat6 e = after["P"];
        const double extra = after.contains("P_abs_tol") ? num(after["P_abs_tol"]) : 0.0;
        for (u32 at = 0; at < 36; ++at) {
            const double scale = std::sqrt(std::fabs(e[at / 6 * 7] * e[at % 6 * 7]));
            expectNear("P" + std::to_string(at), P[at], e[at],
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
            expectNear(name, result->second.value, num(wanted), result->second.tolerance, factor(name));
        else if (name == "x") state(name, e.x_est);
        else if (name == "xprev") state(name, e.prev_x_est);
        else if (name == "P") covariance(e.P_est);
        else if (name == "u") {
            EXPECT_EQ(e.u_tf[0], num(wanted[0]));
            expectNear("u[1]", e.u_tf[1], num(wanted[1]), STEP, factor(name));
        } else if (name == "delta0_c")        // the pair's parts may move against each other
            expectNear("delta0", m.delta0_c + m.delta0_f, num(wanted) + num(after["delta0_f"]), {0.0, 1e-12},
                       factor(name));
        else if (name == "histCountDown_is_0") EXPECT_EQ(m.histCountDown == 0.0, bool{wanted});
        else if (name == "calibrationCountDown_is_0") EXPECT_EQ(m.calibrationCountDown == 0.0, bool{wanted});
        else if (name == "filter") {
            for (const auto& [key, value] : wanted.items()) EXPECT_TRUE(regtest::compare(key, value)) << key;
        } else if (name != "delta0_f")
            return regtest::compare(name, wanted, name == "K" && exactK ? 0.0 : factor(name));
        return true;
    }
};

/// Numbers that a trace tells behind `text`, as often as it came.
std::vector<double> tracedNumbers(const RegulatorUnit& unit, const std::string& text)
{
    std::vector<double> numbers;
    for (const auto& [level, t] : unit.bus.traces)
        if (const std::size_t at = t.find(text); at != std::string::npos)
            numbers.push_back(std::strtod(t.c_str() + at + text.size(), nullptr));
    return numbers;
}

/// What the step did on its way: what has a trace as often as it came, the grade of time by where it ended.
void expectEvents(const RegulatorUnit& unit, const Value& events)
{
    static const std::map<std::string, std::string> TOLD = {{"phaseJump", "phase jump !!"},
                                                            {"t_mod0", "Set t_mod = 0."},
                                                            {"repair", "The matrix is non-negative"},
                                                            {"R_kept", "Measurement not used to update R"},
                                                            {"negP_pred", "Negative variance in P_pred"}};
    static const std::set<std::string> SHOWN = {"fold", "sameSign", "fixFreqEnd"};        // in the numbers
    std::map<std::string, std::size_t> wanted, came;
    for (const auto& [name, text] : TOLD) wanted[text] = 0;
    for (const Value e : events) {
        const std::string name = e[0].get<std::string>();
        if (name == "t_ix") { EXPECT_EQ(e[1], KvdLoz6TuReg_controlStateVar().t_ix); }
        const u8 from = e.size() > 2 ? u8{e[1]} : u8{0}, to = e.size() > 2 ? u8{e[2]} : u8{0};
        if (name == "regState")
            ++wanted[std::string("Report regState ") + KvdLoz6TuReg_regStateText(from) + " -> "
                     + KvdLoz6TuReg_regStateText(to)];
        else if (name == "degrState") ++wanted[to == KVD_TUIIF_REF_DEGRADED ? "-> KVD_TUIIF_REF_DEGRADED"
                                                                            : "-> KVD_TUIIF_REF_OK"];
        else if (!SHOWN.contains(name) && name != "t_ix") ++wanted[vectors::rowOf(TOLD, name)];
        e.read();
    }
    for (const auto& [text, count] : wanted) EXPECT_EQ(tracedNumbers(unit, text).size(), count) << text;
}

/// What of a step's words another comparison has looked at, or that say how the model came to its result.
bool isExplanation(const std::string& name)
{
    static const std::set<std::string> WORDS = {"doControl", "P_abs_tol", "soon", "history_f_ix"};
    return WORDS.contains(name);
}

void compareState(const RegulatorUnit& unit, const Value& after, const Results& results, bool exactK)
{
    static const std::regex BRANCH("none|freq|(same|differ)_(deadbeat|limit)(_wide)?");
    const Compare compare{after, exactK};
    for (const auto& [name, wanted] : after.items()) {
        if (name == "tol_factor") {
            for (const auto& [of, factor] : wanted.items())
                if (after.contains(of) || (of == "x0" && after.contains("x"))) factor.read();
        } else if (name == "events") expectEvents(unit, wanted);
        else if (name == "branch") {
            EXPECT_TRUE(std::regex_match(wanted.get<std::string>(), BRANCH)) << wanted;
        } else if (name == "repair_lambdas") {  // those of the last laps are rounding
            std::vector<double> lambdas = tracedNumbers(unit, "Negative eigenvalue!! lambda = ");
            lambdas.resize(wanted.size());
            vectors::expect(name, lambdas, wanted, {1e-6, 0.0});
        }
        else if (name == "why") EXPECT_EQ(wanted == "", after["used"] == 1) << wanted;
        else if (isExplanation(name)) wanted.read();
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
    results = {{"z_pred", {p.x_pred[0], STEP}}, {"resid", {r.resid, STEP}}, {"HPH", {r.HPH, CLOSE}},
               {"S", {r.S, CLOSE}}};
    if (after.contains("repair_laps"))
        results["repair_laps"] = {
            static_cast<double>(estimator::completeUpdate(H, p.x_pred, p.P_pred, r.S, r.resid).laps), {}};
}

/// The time step of the state as the controller met it.
void expectTimeStep(double x0, const Vec6& x, const Mat6& P, double b, Results& results)
{
    const control::TimeSteering t = control::timeStep(x0, x[1], x[2], P[7], b,
                                                      KvdLoz6TuReg_controlStateVar().xf_limit);
    results["du_t"] = {t.du_t, STEP};
    results["du_l"] = {t.du_l, STEP};
}

Results estimate(RegulatorUnit& unit, const Value& call, const Value& after)
{
    Results results;
    const MeasRefData o{call["z"], call["z_i"], call["t_s"], call["m"], call["R"]};
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
    const Vec6 x = call["x"];
    const Mat6 P = call["P"];
    const ControlResult r = KvdLoz6TuReg_controller(x, P, call["doControl"], call["z_i"]);
    results = {{"u1", {r.u[1], STEP}}, {"b", {r.b, CLOSE}}, {"x0", {r.x0, {1e-9, 1e-15}}}};
    expectTimeStep(r.x0, x, P, r.b, results);
    return results;
}

Results grade(const Value& call)
{
    Vec6 x{};
    Mat6 P{};
    x[1] = call["x1"];
    P[7] = call["P11"];
    ControlStateVar& c = control::state().var;
    const u8 result = KvdLoz6TuReg_computeFix(x, P, call["update"]);
    const double log_f_dev = control::logFrequencyDeviation(x[1], P[7]);
    const double d = control::fixDistance(c.fix, log_f_dev, c.f_ix, c.f_lim_low, c.f_lim_high);
    if (call.value("store", 0) != 0) c.f_ix = result;
    return {{"result", {static_cast<double>(result), {}}}, {"log_f_dev", {log_f_dev, CLOSE}},
            {"d", {d, {1e-9, 1e-12}}}};
}

Results look(RegulatorUnit& unit, const Value& call, Value after)
{
    Results results;
    unit.bus.traces.clear();
    results["history_h"] = {KvdLoz6TuReg_lookAheadHistory(), {1e-9, 0.0}};
    std::vector<int> grades;
    for (const auto& [level, t] : unit.bus.traces) {
        const std::size_t at = t.find("f_ix = ");
        if (t.starts_with("Predicting state") && at != std::string::npos)
            grades.push_back(std::stoi(t.substr(at + 7)));
        const std::string hours = "Hours history is valid from now: ";
        if (t.starts_with(hours)) results["history_hours"] = {std::stod(t.substr(hours.size())), {1e-9, 0.0}};
    }
    EXPECT_EQ(grades, after["history_f_ix"].get<std::vector<int>>());
    results["calibration_days"] = {KvdLoz6TuReg_lookAheadCalibration(), {0.0, 1e-9}};
    std::map<double, int> soon;
    for (const Value day : after["soon"]) soon[day[0]] = day[1];
    for (const Value day : call["days"])
        EXPECT_EQ(KvdLoz6TuReg_lookAheadSoonToExpire(num(day)) ? 1 : 0, soon.at(num(day))) << day;
    return results;
}

/// The oscillator's three coefficients, whatever the call names them.
std::array<double, 3> coefficients(const Value& call)
{
    for (const auto& [name, value] : call.items())
        if (value.is_array() && value.size() == 3) return value;
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
    if (op == "set") regtest::write(call);
    else if (op == "initCnt") KvdLoz6TuReg_setInitialFrequencyDrift(call["n"]);
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
        const bool exactK = s["name"].get<std::string>().find("writing Div") != std::string::npos;
        vectors::eachStep(s["steps"], [&](const Value& one) {
            const Results results = step(unit, one["call"], one["after"]);
            compareState(unit, one["after"], results, exactK);
        });
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
        const Vec6 x = in["x"];
        const Mat6 P = in["P"];
        const std::array<double, 2> u = in["u"];
        const double t_s = in["t_s"], b = in["b"], T0 = in["T_old"], T1 = in["T_new"];
        const double test = in["testMode"], master = in["master"];
        const bool isTest = test != 0 && master != 0;
        const Prediction p = estimator::predict(
            x, P, b, u.data(), T0, T1, t_s, {in["var_G"], in["var_F"], in["initialFrequencyDrift"], isTest});
        const Vec6 xWanted = c["out"]["x_pred"];
        const Mat6 PWanted = c["out"]["P_pred"], QWanted = c["out"]["Q"];

        // The sizes of the terms whose sums are compared.
        const double d2 = (T1 * T1) - (T0 * T0);
        const double d3 = (T1 * T1 * T1 - 0.6 * T1) - (T0 * T0 * T0 - 0.6 * T0);
        Mat6 A = matrix::identity<6>();
        const double rows[12] = {1, t_s, t_s * t_s / 2, (T1 - T0) * t_s, d2 * t_s, d3 * t_s,
                                 0, 1,   t_s,           T1 - T0,         d2,       d3};
        for (u32 j = 0; j < 12; ++j) A[j] = std::fabs(rows[j]);
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
            expectNear("x_pred", p.x_pred[i], xWanted[i], {0.0, 1e-12 * xSize[i] + 1e-30});
            negative = negative || p.P_pred[i * 7] < 0.0;
        }
        for (u32 at = 0; at < 36; ++at) {
            const std::string place = std::to_string(at);
            expectNear("P_pred " + place, p.P_pred[at], PWanted[at],
                       {0.0, 1e-12 * (PSize[at] + std::fabs(QWanted[at])) + 1e-60});
            expectNear("Q " + place, p.Q[at], QWanted[at],
                       {0.0, 1e-12 * std::sqrt(QWanted[at / 6 * 7] * QWanted[at % 6 * 7]) + 1e-60});
        }
        vectors::expectAll({{"negativeDiagonal", negative}}, c["out"]);
    });
}

TEST(RegulatorCheckValues, InitialFrequencyDrift)
{
    vectors::Document document("o02_lookahead.json");
    double drift = 3e-21;
    vectors::each(document["initialFrequencyDrift_table"], [&](const Value& row) {
        drift = estimator::initialFrequencyDrift(row[0], drift);
        vectors::expect("drift", drift, row[1], {1e-10, 0.0});
    });
}

TEST(RegulatorCheckValues, CovarianceRepair)
{
    vectors::Document document("o02_repair.json");
    vectors::each(document["direct"], [](const Value& c) {
        const Value in = c["in"], out = c["out"];
        const estimator::Update u = estimator::completeUpdate(H, in["x_pred"], in["P_pred"], in["S"],
                                                              in["resid"]);
        const Mat6 P = out["P_est"];
        double largest = 0.0;
        for (u32 i = 0; i < 6; ++i) largest = std::max(largest, std::fabs(P[i * 7]));
        vectors::expect("x_est", u.x_est, out["x_est"], {1e-12, 0.0});
        vectors::expect("P_est", u.P_est, out["P_est"], {0.0, 1e-8 * largest});
        vectors::expectAll({{"repaired", u.laps != 0}, {"laps", u.laps}}, out);
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
            vectors::expect("b", tuHwIf_calcOcxoGain(c["U1"]), c["b"], CLOSE);
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
            regtest::write(in["hardware"], "hw_");
            for (const char* name : {"master", "idlMode"}) regtest::numbers().at(name).set(in[name]);
            KvdLoz6TuReg_forceRegState(in["regState_before"]);
            double U[2] = {0.0, in["U1"]};
            KvdLoz6TuReg_controlInitiate(bool{in["coldRestart"]}, U);
            for (const auto& [name, wanted] : out.items())
                EXPECT_TRUE(name == "written" || regtest::compare(name, wanted, name == "K" ? 0.0 : 1.0))
                    << name;
            vectors::expectAll({{"nomDiv", tuHwIf_readNominalDivisor()}, {"K", tuHwIf_readDeltaSigmaK()},
                                {"M", tuHwIf_readDeltaSigmaM()}}, out["written"]);
        });
    });
}

// ---- closed loops -----------------------------------------------------------------------------------------

namespace {

/// One call of a closed loop; the result of an estimate step.
double loopCall(const Value& call)
{
    const std::string form = call[0].get<std::string>();
    if (form == "T") return KvdLoz6TuReg_estimate({call[1], Z_TEMP_REF, call[2], 10.0, 1e-6});
    if (form == "M") return KvdLoz6TuReg_estimate({call[1], call[2], call[3], call[4], call[5]});
    if (form == "I") KvdLoz6TuReg_setInitialFrequencyDrift(call[1]);
    else if (form == "S") regtest::write(call[1]);
    else if (form == "C") KvdLoz6TuReg_clearDegradationCounter();
    else throw std::runtime_error("no replay of the call \"" + form + "\"");
    return 0.0;
}

void loopAfter(const std::string& form, double R_new, const Value& after)
{
    const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
    const ControlStateVar& c = KvdLoz6TuReg_controlStateVar();
    const bool used = form == "M" && e.prev_x_est != KvdLoz6TuReg_estimatePar().x_pred;
    const struct { const char* name; double is; Tolerance tolerance; } PLACES[] = {
        {"R_new", R_new, {1e-8, 0.0}}, {"used", used ? 1.0 : 0.0, {}}, {"x0", e.x_est[0], {1e-9, 2e-14}},
        {"x1", e.x_est[1], {1e-9, 1e-17}}, {"U1", c.U[1], {0.0, 1e-9}}, {"f_ix", c.f_ix * 1.0, {}},
        {"t_ix", c.t_ix * 1.0, {}}, {"regState", c.regState * 1.0, {}}};
    std::size_t at = 0;
    for (const auto& place : PLACES) {
        const Value wanted = after[at++];
        if (!wanted.is_null()) expectNear(place.name, place.is, num(wanted), place.tolerance);
    }
}

void loopSnapshot(const Value& s)
{
    const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
    const ControlStateVar& c = KvdLoz6TuReg_controlStateVar();
    const MeasStateVar& m = KvdLoz6TuReg_measStateVar();
    constexpr Tolerance X[6] = {{1e-9, 2e-14}, {1e-9, 1e-17}, {1e-8, 2e-21},
                                {1e-9, 1e-17}, {1e-9, 1e-17}, {1e-9, 1e-17}};
    for (u32 k = 0; k < 6; ++k) {
        vectors::expect("x" + std::to_string(k), e.x_est[k], s["x"][k], X[k]);
        vectors::expect("Pdiag" + std::to_string(k), e.P_est[k * 7], s["Pdiag"][k], {1e-8, 0.0});
    }
    expectNear("delta0", m.delta0_c + m.delta0_f, num(s["delta0_c"]) + num(s["delta0_f"]), {0.0, 2e-13});
    vectors::expect("hyst", c.fix.hyst, s["hyst"], {0.0, 1e-9});
    vectors::expectAll({{"f_acc", c.f_acc_report}, {"t_acc", c.t_acc_report}}, s, {0.0, 1.0});
    if (s.contains("t")) s["t"].read();              // for the reader
    const std::set<std::string> done = {"x", "Pdiag", "delta0_c", "delta0_f", "hyst", "f_acc", "t_acc", "t"};
    for (const auto& [name, wanted] : s.items())
        EXPECT_TRUE(done.contains(name) || regtest::compare(name, wanted)) << "nothing to compare " << name;
}

int failures() { return testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count(); }

/// To the first call that differs: what follows would only repeat it.
void closedLoop(const Value& loop)
{
    for (const char* words : {"plant", "tolerance"})
        if (loop.contains(words)) loop[words].read();
    RegulatorUnit unit;
    unit.run([&] {
        start(loop["init"]);
        const Value calls = loop["calls"], snapshots = loop["snapshots"];
        const int before = failures();
        for (std::size_t i = 0; i < calls.size(); ++i) {
            if (failures() != before) return void(loop.read());
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
        vectors::Document document(file);
        vectors::runOne(file, document.root(), closedLoop);
    }
}
