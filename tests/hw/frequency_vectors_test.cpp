// Replay of the check values of frequency: the divider's words, their limits, the wander generator.
#include "base/kvd_math.h"
#include "reg/kvd_reg_control_int.h"
#include "sig/ref_types.h"
#include "socpri/kvd_socpri_inrsi_master_int.h"
#include "tests/hw/values_bench.h"

using namespace hwtest;

namespace {

double limitOf(const std::string& role)
{
    static const std::map<std::string, double> LIMITS = {
        {"master", frequencyLimit(1, TU_REF, 0)}, {"master SOCPRI", frequencyLimit(1, SOCPRI_REF, 0)},
        {"slave IDL 2", frequencyLimit(0, TU_REF, 1)}, {"slave IDL 1", frequencyLimit(0, TU_REF, 0)}};
    return vectors::rowOf(LIMITS, role);
}

json nominal(Board& b, const Value&, const Value&)
{
    const NominalValues& n = b.nominal;
    return {{"nomDiv", n.nomDiv}, {"K", n.K}, {"M", n.M}, {"U_nom", b.words(0).U_nom},
            {"synthC", n.synthC != 0 ? json(n.synthC) : json()},
            {"divisorRegister", n.synthC != 0 ? json(n.nomDiv - 1) : json()}};
}

json adjustFrequency(Board& b, const Value& in, const Value&)
{
    const double before = num(in["nomDiv_old"]);
    const FrequencyWords w = b.words(num(in["rel"]), num(in["wander"]));
    const bool isWritten = std::fabs(num(in["rel"])) <= limitOf(in["role"].get<std::string>());
    const bool isOther = isWritten && w.divisor != before;
    return {{"written", isWritten ? 1 : 0},
            {"nomDivWrite", isOther ? json(w.divisor) : json()},
            {"K", isWritten ? json(w.K) : json()},
            {"nomDiv_old", isWritten ? json(w.divisor) : json(before)}};
}

/// Of four readings one holds the ratio in every step: it is the ratio that is held.
void adjustFrequencyReach(const Value& v, const Value&)
{
    const Board b(v["init"]["case"].get<std::string>(), 2);
    v["init"].skip({"nomDiv_old", "role"});
    for (const Value step : v["steps"]) {
        const FrequencyWords w = b.words(num(step["in"]["rel"]), num(step["in"]["wander"]));
        const double U = num(step["U"]);
        EXPECT_LE(std::fabs(w.divisor + 1 + static_cast<double>(w.K) / 8e8 - U), 6e-12 * U) << step["in"];
        step.skip({"margin"});
        static constexpr std::initializer_list<const char*> WORDS = {"K", "nomDivWrite", "nomDiv_old",
                                                                     "written", "reading"};
        step["out"].skip(WORDS);
        if (step.contains("alt"))
            for (const Value other : step["alt"]) other.skip(WORDS);
    }
}

json readCurrentFrequency(Board& b, const Value& in, const Value&)
{
    const i64 K = in["K"].get<i64>(), M = in["M"].get<i64>();
    return {{"rel", currentFrequency(b.nominal, u(in["divisorRegister"]), K, M)}};
}

json relativeNominalOffset(Board& b, const Value& in, const Value&)
{
    const i64 fixed = std::llround(num(in["coeff0"]) * 4294967296.0);
    reg(b, 57) = static_cast<u32>(fixed >> 32);
    reg(b, 58) = static_cast<u32>(fixed);
    return {{"rel", tuHwIf_relativeNominalOffset()}};
}

/// Of the words that a link had left to those that it found.
json deltaFrequency(Board&, const Value& in, const Value&)
{
    const auto words = [&](const std::string& n) {
        inrsi::master::SynthesiserCopy c{};
        c.integerPart = u(in["a" + n]) - 1;      // as the register holds it
        c.numerator = in["b" + n].get<i64>();
        c.denominator = in["c" + n].get<i64>();
        return c;
    };
    auto unread = words("0");
    unread.denominator = 0;
    EXPECT_EQ(inrsi::master::relativeChange(unread, words("1")), 0.0);
    EXPECT_EQ(inrsi::master::relativeChange(words("1"), unread), 0.0);
    return {{"deltaFreq", inrsi::master::relativeChange(words("1"), words("0"))}};
}

/// A step is the generator's own timer, which is waited for; the others are orders.
json wander(Board& b, const Value& in, const Value& step)
{
    constexpr u32 STEP = 2;
    constexpr OSTIME LONGER_THAN_ANY_ms = 1'000'000;
    in["time"].read();
    control::state().var.U[1] = num(in["U1"]);
    if (in["op"] != STEP) orderWander(u(in["op"]), num(in["f"]), num(in["a"]), num(in["o"]));
    else {
        Signal* sig = ose::receive_w_tmo(LONGER_THAN_ANY_ms, ose::ANY_SIGNAL);
        if (sig == nullptr) throw std::runtime_error("no timer runs");
        EXPECT_EQ(tuHwIf_dispatch(sig), 1);
        ose::free_buf(&sig);
        for (const char* key : {"f", "a", "o"}) in[key].read();
    }
    const double rel = num(in["U1"]) / b.words(0).U_nom - 1;
    const bool isRelTold = !step["out"]["rel"].is_null();
    json K = isRelTold ? json() : UNSEEN;
    if (isRelTold && std::fabs(rel) <= limitOf("master")) K = reg(b, 79);
    const Value interval = step["out"]["interval"];
    const bool runs = wanderState().timerRuns != 0 && !interval.is_null();
    const u32 running = runs ? wanderInterval(num(in["f"])) : 0;
    return {{"offset", tuHwIf_wanderOffset()}, {"index", wanderState().index},
            {"active", wanderState().active}, {"interval", interval.is_null() ? UNSEEN : json(running)},
            {"rel", isRelTold ? json(rel) : UNSEEN}, {"K", K}};
}

/// A run to the generator's own end, which takes longer than a call may.
json wanderRun(double f, double a, double o)
{
    const u32 interval = wanderInterval(f);
    u32 adjustments = 1, lastStep_ms = 0, index = 0;
    bool isDone = false;
    Bench bench(1);
    bench.world.runFor(5000 * ose::SEC);         // the run's length isn't the unit's
    bench.system.launch(*bench.block, "wander", 15, [&] {
        const u32 begin_ms = ose::get_ticks();
        orderWander(1, f, a, o);
        while (Signal* sig = ose::receive_w_tmo(2 * interval, ose::ANY_SIGNAL)) {
            EXPECT_EQ(tuHwIf_dispatch(sig), 1);
            ose::free_buf(&sig);
            ++adjustments;
            lastStep_ms = ose::get_ticks() - begin_ms;
        }
        index = wanderState().index;
        EXPECT_EQ(wanderState().active, 0u);
        isDone = true;
    });
    EXPECT_TRUE(bench.world.runUntilTrue([&] { return isDone; }, 900'000 * ose::SEC));
    return {{"adjustments", adjustments}, {"lastTime", lastStep_ms / 1000}, {"index", index}};
}
void wanderEnd(const Value& v, const Value&)
{
    const Value in = v["in"];
    EXPECT_EQ(wanderInterval(num(in["f"])), u(in["interval"]));
    vectors::expectAll(wanderRun(num(in["f"]), num(in["a"]), num(in["o"])), v["out"]);
}

json gain(const Value& in) { return {{"gain", tuHwIf_calcOcxoGain(num(in["U"]))}}; }
json nearest(const Value& in) { return {{"n", KvdLoz6Math_roundHalfDown(num(in["x"]))}}; }
json isOver(const Value& in) { return {{"r", tuHwIf_isOverOneIncrement(num(in["a"]), num(in["b"]))}}; }
json interval(const Value& in) { return {{"interval", wanderInterval(num(in["f"]))}}; }

}  // namespace

TEST(CheckValues, Frequency)
{
    replay("o01_frequency.json",
        {{"nominal", on(2, nominal)}, {"adjustFrequency", on(2, adjustFrequency)},
         {"adjustFrequency_limits", on(2, adjustFrequency)}, {"nearest", on(2, of(nearest))},
         {"adjustFrequency_halves", on(2, adjustFrequency)},
         {"adjustFrequency_reach", adjustFrequencyReach},
         {"readCurrentFrequency", on(2, readCurrentFrequency)}, {"incrementComparison", on(2, of(isOver))},
         {"calcOcxoGain", on(2, of(gain), "division by 0!")},
         {"relativeNominalOffset", on(1, relativeNominalOffset)}, {"wander", on(2, wander)},
         {"wanderEnd", wanderEnd}, {"wanderInterval", on(2, of(interval))},
         {"deltaFreq", on(2, deltaFrequency)}});
}

TEST(Wander, GoesOnWithTheEndOfTheSecondDay)
{
    EXPECT_EQ(wanderRun(1e6 / 8 / 11520010, 0, 0)["adjustments"], 32);
}
