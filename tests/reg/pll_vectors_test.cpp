// Replay of check values: the loops' filter, their states with what they tell, holdover, and the
// two loops of a slave.
#include "tests/support/idle_node.h"
#include "tests/support/vectors.h"

#include "base/tu_common.h"
#include "iif/kvd_biraiifadm.h"
#include "refs/kvd_slave.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_pll_int.h"
#include "sig/ref_types.h"
#include "unit/kvd_unit_link.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

namespace {

using vectors::expectNear;
using vectors::Field;
using vectors::field;
using vectors::json;
using vectors::Value;

/// What the neighbours are asked and told, in order.
struct Neighbours {
    json events = json::array();
    std::optional<double> y;
    u32 action = 0, startType = 0, event = 0, idlMode = 0;
    u16 logIndex = 0;
    int idpi = 0;                                // 1: the port server isn't there
    double currentFreqOffset = 0;
    bool isMaster = true, timeDataEqual = true, isTimeSyncAsked = false;
    std::optional<std::string> history;
    bool forced = false;                         // the next status
};
Neighbours* now = nullptr;

/// The log is looked at before each event, so that its entries stand at their place.
void pushLog()
{
    const pll::Pll& p = pll::vars();
    for (; now->logIndex != p.logIndex; now->logIndex = static_cast<u16>((now->logIndex + 1) % 50))
        now->events.push_back({"log", p.log[now->logIndex].state, p.log[now->logIndex].mode});
}
void push(json event)
{
    pushLog();
    now->events.push_back(std::move(event));
}

u32 clockOfPll(u32 state)
{
    constexpr u32 CLOCK[] = {7, 7, 7, 3, 8, 10, 4, 9, 11};
    return CLOCK[state];
}

const pll::Needs NEEDS = {
    .selectedRef = KvdLoz6TuReg_selectedRef,
    .isMaster = [] { return now->isMaster; },
    .idlMode = [] { return now->idlMode; },
    .currentFreqOffset = [] { return now->currentFreqOffset; },
    .adjustFrequency = [](double y) { now->y = y; },
    .adjustOffset = [](double c, double f) {
        push({"adjustOffset", c, f, KvdLoz6TuReg_adjustOffset(c, f)});
    },
    .offset = KvdLoz6TuReg_getOffset,
    .clearOffset = [] { KvdLoz6TuReg_setOffset(0, 0); },
    .adjustSlaveOffset = [](double c, double f) {
        push({"adjustSlaveOffset", c, f});
        KvdLoz6TuReg_adjustSlaveOffset(c, f);
    },
    .slaveOffset = KvdLoz6TuReg_getSlaveOffset,
    .clearSlaveOffset = KvdLoz6TuReg_clearSlaveOffset,
    .adjustTime = [](double c, double f) { push({"adjustTime", c, f}); },
    .clearMod = [] {},
    .writeHistory = [](bool toFlash, double) {
        now->history = toFlash ? "flash" : "msi";
        push({"history", *now->history});
    },
    .retryJump = [] {},
    .forceStatus = [] { now->forced = true; },
    .lastRegulatorState = [](u32 state) { push({"lastRegulatorState", clockOfPll(state)}); },
    .lastSlaveRegulatorState = [](u32 state) { push({"lastRegulatorState", state == 0 ? 7 : 14 + state}); },
    .setFreqLocked = [] { push({"regState", 5}); },
    .report = [](u8 clockState) { push({"report", clockState}); },
    .timeAccuracy = [] { push({"timeAccuracy", 50}); },
    .tellGpsOut = [](u32 state) {
        if (now->isMaster) push({"tell5.1"});
        else               push({"tell5.1", state});
    },
    .action = [] { return now->action; },
    .timeDataEqual = [] { return now->timeDataEqual; },
    .answerContinuation = [](u32 status) { push({"inrsiAnswerContinuation", status}); },
    .armContinuation = [] { push({"setContinuationOfSync", 1}); },
    .timeSyncSucceeded = [] { push({"inrsiTimeSyncSucceeded"}); },
    .timeSyncFailed = [] { push({"timeSyncFailed"}); },
    .storeYi = [](double yi) { EXPECT_EQ(yi, pll::vars().yi); },
    .slaveEvent = [](u32 event) { now->event = event; },
    .tellIdl1Locked = [](bool) { push({"tell10.2"}); },
    .unableToTimeLock = [] {
        push({"unableToTimeLock"});
        return 0;
    },
    .sendClkStatus = [](u8 clkStatus) {
        push({"idpi", clkStatus});
        return now->idpi;
    },
    .storeClkStatus = [](u32 clkStatus, const char*) { push({"storeIdpiClkStatus", clkStatus}); },
    .startType = [] { return static_cast<u8>(now->startType); },
    .isTimeSyncAsked = [] { return now->isTimeSyncAsked; },
    .tellFineTime = [] { push({"tell10.1"}); },
};

/// The file's events that are more than a trace, in the words of the bench.
json told(const json& events)
{
    static const std::set<std::string> TRACES = {"vector", "faultyState", "windowRejected"};
    static const std::set<std::string> KNOWN = {
        "log", "adjustOffset", "adjustSlaveOffset", "adjustTime", "history", "lastRegulatorState", "regState",
        "report", "timeAccuracy", "tell5.1", "tell10.1", "tell10.2", "inrsiAnswerContinuation",
        "setContinuationOfSync", "inrsiTimeSyncSucceeded", "timeSyncFailed", "unableToTimeLock", "idpi",
        "storeIdpiClkStatus"};
    const bool toldAbility = std::any_of(events.begin(), events.end(),
                                         [](const json& e) { return e.at(0) == "unableToTimeLock"; });
    json out = json::array();
    for (const json& e : events) {
        if (TRACES.contains(e.at(0)) || e == json{"anomaly", 1}) continue;
        if (e.at(0) == "anomaly") {              // the second one: the order comes with it
            if (!toldAbility) out.push_back({"unableToTimeLock"});
            continue;
        }
        if (!KNOWN.contains(e.at(0))) ADD_FAILURE() << "no replay of the event " << e;
        out.push_back(e);
    }
    return out;
}

void select(const std::string& role)
{
    static const std::map<std::string, u32> REFERENCE = {{"GPSOSL", TU_SR_GPSOSL_REF}, {"SOCPRI", TU_SR_SOCPRI_REF},
                                                         {"IDL1", TU_SR_NO_REF}, {"IDL2", TU_SR_NO_REF},
                                                         {"OTHER", TU_SR_NO_REF}};
    now->isMaster = role != "IDL1" && role != "IDL2";
    now->idlMode = role == "IDL2" ? KVD_BIRAIIF_IDL_MODE_2 : KVD_BIRAIIF_IDL_MODE_1;
    measure::state().var.selectedRef = REFERENCE.at(role);
}

const std::vector<Field<pll::Pll>> PLL = {
    field("state", &pll::Pll::currState),
    field("prevState", &pll::Pll::prevState),
    field("stateChangedMark", &pll::Pll::stateChanged),
    field("yi", &pll::Pll::yi),
    field("Kp", &pll::Pll::Kp),
    field("Ki", &pll::Pll::Ki),
    field("targetDiff", &pll::Pll::targetDiff),
    field("extAccFreqOffset", &pll::Pll::extAccFreqOffset),
    field("holdOverVectorFull", &pll::Pll::holdOverVectorFull),
    field("holdOverVectorIndex", &pll::Pll::holdOverVectorIndex),
    field("emptyHOVector", &pll::Pll::emptyHOVector),
    field("timeAccuracyIndSent", &pll::Pll::timeAccuracyIndSent),
    field("histPllCountDown", &pll::Pll::histPllCountDown),
    field("regulationMode", &pll::Pll::regulationMode),
};

/// Sets one name of an init, or of a command between the samples. False for one that isn't known.
bool setOne(const std::string& name, const Value& value)
{
    pll::Pll& p = pll::vars();
    if (name == "ref") select(value.get<std::string>());
    else if (name == "delta0") KvdLoz6TuReg_setOffset(vectors::number(value[0]), vectors::number(value[1]));
    else if (name == "holdoverVector") {
        if (value.is_array()) p.vector = value.get<std::array<double, 60>>();
        else EXPECT_EQ(value, "zeros");
    } else if (name == "currAction") now->action = value.get<u32>();
    else if (name == "socpriTimeDataEqual") now->timeDataEqual = value.get<bool>();
    else if (name == "startType") now->startType = value.get<u32>();
    else if (name == "timeSyncAskedFor") now->isTimeSyncAsked = vectors::number(value) != 0;
    else if (name == "fineTimeReached") EXPECT_EQ(value, 0) << "the loop's own, cleared at its first run";
    else return vectors::write(PLL, p, name, value);
    return true;
}

void begin(const Value& init)
{
    pll::vars() = {};
    for (const auto& [name, value] : init.items())
        if (!setOne(name, value)) ADD_FAILURE() << "no field \"" << name << "\" to set";
    if (now->isMaster) return;
    pll::vars().currSlaveState = pll::vars().currState;
    pll::vars().currState = 0;
}

void nextStep()
{
    now->events = json::array();
    now->y.reset();
    now->history.reset();
    now->event = 0;
    now->forced = false;
    now->logIndex = pll::vars().logIndex;
}

/// Loops and order of reports give doubles to a relative error of 1e-12.
void expectClose(const char* what, double is, const Value& wanted)
{
    const double w = vectors::number(wanted);
    expectNear(what, is, w, {0.0, std::fmax(1e-18, std::fabs(w) * 1e-12)});
}
void expectY(const Value& wanted)
{
    EXPECT_EQ(now->y.has_value(), !wanted.is_null());
    if (now->y && !wanted.is_null()) expectClose("y", *now->y, wanted);
}
bool isNear(const json& a, const json& b)
{
    if (a.is_number() && b.is_number())
        return std::fabs(a.get<double>() - b.get<double>()) <= 1e-15 + 1e-12 * std::fabs(b.get<double>());
    if (!a.is_array() || !b.is_array()) return a == b;
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), isNear);
}
void expectEvents(const Value& wanted)
{
    pushLog();
    const json events = told(wanted.read());
    EXPECT_TRUE(isNear(now->events, events)) << now->events << "\nwanted " << events;
}

void inNode(const std::function<void()>& body)
{
    IdleNode b;
    Neighbours neighbours;
    now = &neighbours;
    b.in([&body] {
        pll::setNeeds(&NEEDS);
        body();
    });
    now = nullptr;
}

/// A sample, or a command by its name.
void perform(const Value& input, void (*control)(double))
{
    static const std::map<std::string, std::string> SHORT = {
        {"equal", "socpriTimeDataEqual"}, {"regMode", "regulationMode"}, {"action", "currAction"},
        {"emptyHO", "emptyHOVector"}, {"extAcc", "extAccFreqOffset"}, {"tsAsked", "timeSyncAskedFor"}};
    if (!input.is_array()) return control(vectors::number(input));
    const std::string what = input[0].get<std::string>();
    if (what == "hold") KvdLoz6TuReg_pll_toHoldover();
    else if (what == "postpone") KvdLoz6TuReg_pll_soCpriPostponeRegulation();
    else if (what == "force" || what == "state") {
        if (now->isMaster) KvdLoz6TuReg_pll_setState(input[1].get<u32>());
        else               KvdLoz6TuReg_slavePll_setState(input[1].get<u32>());
    } else if (what == "delta0")
        KvdLoz6TuReg_setOffset(vectors::number(input[1]), vectors::number(input[2]));
    else if (what == "init") {
        now->currentFreqOffset = vectors::number(input[2]);
        KvdLoz6TuReg_pll_init(input[1].get<u32>());
    } else if (!setOne(SHORT.contains(what) ? SHORT.at(what) : what, input[1]))
        throw std::runtime_error("no replay of the step " + input.dump());
}

void masterStep(const Value& step, void (*control)(double))
{
    perform(step[0], control);
    const pll::Pll& p = pll::vars();
    EXPECT_EQ(p.currState, step[1].get<u32>());
    expectClose("targetDiff", p.targetDiff, step[2]);
    expectY(step[3]);
    expectClose("yi", p.yi, step[4]);
    EXPECT_EQ(p.holdOverVectorIndex, step[5].get<u32>());
    EXPECT_EQ(p.holdOverVectorFull, step[6].get<u32>());
    expectNear("delta0_c", KvdLoz6TuReg_getOffset().c, vectors::number(step[7]), {0.0, 1e-15});
    expectNear("delta0_f", KvdLoz6TuReg_getOffset().f, vectors::number(step[8]), {0.0, 1e-15});
    expectEvents(step[9]);
}

void slaveStep(const Value& step, void (*control)(double))
{
    perform(step[0], control);
    const pll::Pll& p = pll::vars();
    EXPECT_EQ(p.currSlaveState, step[1].get<u32>());
    expectClose("targetDiff", p.targetDiff, step[2]);
    expectY(step[3]);
    expectClose("yi", p.yi, step[4]);
    expectClose("extAccFreqOffset", p.extAccFreqOffset, step[5]);
    EXPECT_EQ(now->event, step[6].get<u32>());
    expectNear("delta0_slave_c", KvdLoz6TuReg_getSlaveOffset().c, vectors::number(step[7]), {0.0, 1e-15});
    expectNear("delta0_slave_f", KvdLoz6TuReg_getSlaveOffset().f, vectors::number(step[8]), {0.0, 1e-15});
    expectEvents(step[9]);
}

/// An alternative told in words alone.
void skipAlternative(const Value& c)
{
    if (c.contains("alt")) c["alt"].read();
}

/// A slave's counts begin anew after a jump within locked, as its notes say; random runs kept them, which shows in
/// the next far sample. What follows there isn't held.
bool keepsCounts(const Value& step, const Value& next)
{
    constexpr double FAR_s = 6.4e-8;
    return step[6] == EV_SLAVE_PLL_JUMP_WITHIN_LOCKED && next[0].is_number() && std::fabs(next[0].get<double>()) > FAR_s;
}

void replay(const char* file, void (*step)(const Value&, void (*)(double)), void (*control)(double))
{
    vectors::Document document(file);
    vectors::each(document["cases"], [&](const Value& c) {
        inNode([&] {
            begin(c["init"]);
            KvdLoz6TuReg_clearSlaveOffset();
            const Value steps = c["steps"];
            bool isOpen = false;
            for (std::size_t i = 0; i < steps.size(); ++i) {
                SCOPED_TRACE("step " + std::to_string(i));
                if (isOpen) {
                    steps[i].read();
                    continue;
                }
                nextStep();
                step(steps[i], control);
                isOpen = step == slaveStep && i + 1 < steps.size() && keepsCounts(steps[i], steps[i + 1]);
            }
        });
        skipAlternative(c);
    });
}

TEST(PllCheckValues, Filter)
{
    vectors::Document document("o03_pll_filter.json");
    vectors::each(document["cases"], [](const Value& c) {
        inNode([&] {
            select(c["role"].get<std::string>());
            begin(c["init"]);
            for (const Value step : c["steps"]) {
                nextStep();
                pll::filter(vectors::number(step[0]), step[1].get<u32>());
                const pll::Pll& p = pll::vars();
                expectY(step[2]);
                expectClose("yi", p.yi, step[3]);
                EXPECT_EQ(p.holdOverVectorIndex, step[4].get<u32>());
                EXPECT_EQ(p.holdOverVectorFull, step[5].get<u32>());
                EXPECT_EQ(p.histPllCountDown, step[6].get<u32>());
                EXPECT_EQ(now->history.value_or(""), step[7].is_null() ? "" : step[7].get<std::string>());
            }
            EXPECT_EQ(pll::vars().Kp, vectors::number(c["Kp"]));
            EXPECT_EQ(pll::vars().Ki, vectors::number(c["Ki"]));
            if (!c.contains("holdoverVectorAtEnd")) return;
            for (u32 i = 0; i < 60; ++i) expectClose("vector", pll::vars().vector[i], c["holdoverVectorAtEnd"][i]);
        });
        skipAlternative(c);
    });
}

TEST(PllCheckValues, GpsOutSyncLink) { replay("o03_pll_gpsosl.json", masterStep, KvdLoz6TuReg_pll_control); }
TEST(PllCheckValues, SoCpri) { replay("o03_pll_socpri.json", masterStep, KvdLoz6TuReg_soCpriPll_control); }
TEST(PllCheckValues, Idl1Slave) { replay("o03_slave_idl1.json", slaveStep, KvdLoz6TuReg_slavePll_control); }
TEST(PllCheckValues, Idl2Slave) { replay("o03_slave_idl2.json", slaveStep, KvdLoz6TuReg_slavePll_control); }

TEST(PllSlaveIdl2, LocksWithoutAPortServerAndStoresNoStatus)
{
    inNode([] {
        select("IDL2");
        now->idpi = 1;
        KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Unlocked);
        nextStep();
        for (u32 i = 0; i < 20; ++i) KvdLoz6TuReg_slavePll_control(1e-9);
        EXPECT_EQ(KvdLoz6TuReg_slavePllState(), u32{SLAVE_PLL_Locked});
        constexpr u32 FINE = 4;
        EXPECT_NE(std::find(now->events.begin(), now->events.end(), json{"idpi", FINE}), now->events.end());
        for (const json& event : now->events) EXPECT_NE(event.at(0), "storeIdpiClkStatus");
    });
}

TEST(PllCheckValues, ToHoldover)
{
    vectors::Document document("o03_pll_holdover.json");
    const auto vector = document["v"].get<std::array<double, 60>>();
    vectors::each(document["cases"], [&](const Value& c) {
        inNode([&] {
            select(c["ref"].get<std::string>());
            EXPECT_EQ(c["vector"], "v");
            pll::Pll& p = pll::vars();
            p = {};
            p.currState = c["state"].get<u32>();
            p.targetDiff = vectors::number(c["targetDiff"]);
            p.vector = vector;
            const Value fill = c["fill"];                                  // 0 to 60, or "full, index 33"
            const bool isFull = fill.is_string() || fill == 60;
            p.holdOverVectorFull = isFull ? 1 : 0;
            const std::string text = fill.is_string() ? fill.get<std::string>() : "full, index " + fill.dump();
            p.holdOverVectorIndex = static_cast<u32>(std::stoul(text.substr(text.rfind(' ') + 1))) % 60;
            nextStep();
            KvdLoz6TuReg_pll_toHoldover();
            EXPECT_EQ(p.currState, c["newState"].get<u32>());
            expectY(c["y"]);
            EXPECT_EQ(p.targetDiff, vectors::number(c["targetDiff"]));
            expectEvents(c["events"]);
        });
    });
}

TEST(PllCheckValues, StateChange)
{
    vectors::Document document("o03_pll_state_change.json");
    vectors::each(document["cases"], [](const Value& c) {
        inNode([&] {
            const bool isSlave = c.value("slave", 0) != 0;
            select(c["ref"].get<std::string>());
            pll::Pll& p = pll::vars();
            p = {};
            (isSlave ? p.currSlaveState : p.currState) = c["from"].get<u32>();
            p.emptyHOVector = c.value("emptyHOVector", 0u);
            p.holdOverVectorFull = 1;
            p.holdOverVectorIndex = 9;
            p.timeAccuracyIndSent = 1;
            now->action = c.value("currAction", 0u);
            nextStep();
            if (isSlave) KvdLoz6TuReg_slavePll_setState(c["to"].get<u32>());
            else         KvdLoz6TuReg_pll_setState(c["to"].get<u32>());
            EXPECT_EQ(now->forced, !(c["from"] == c["to"]));
            pll::Pll after = p;
            if (isSlave) after.currState = p.currSlaveState, after.prevState = p.prevSlaveState;
            for (const auto& [name, wanted] : c["after"].items())
                EXPECT_TRUE(vectors::compare(PLL, after, name, wanted)) << "nothing to compare " << name << " with";
            expectEvents(c["events"]);
        });
        skipAlternative(c);
    });
}

}  // namespace
