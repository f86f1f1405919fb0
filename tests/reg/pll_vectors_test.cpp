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

using vectors::expect;
using vectors::Field;
using vectors::field;
using vectors::json;
using vectors::Value;

/// What the neighbours are asked and told, in order.
struct Neighbours {
    json events = json::array();
    json y, history;                             // null: not told
    u32 action = 0, startType = 0, event = 0, idlMode = 0;
    u16 logIndex = 0;
    int idpi = 0;                                // 1: the port server isn't there
    double currentFreqOffset = 0;
    bool isMaster = true, timeDataEqual = true, isTimeSyncAsked = false;
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
    constexpr std::array<u32, 9> CLOCK = {7, 7, 7, 3, 8, 10, 4, 9, 11};
    return CLOCK.at(state);
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
        push({"history", now->history});
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
    const bool toldAbility =
        std::ranges::any_of(events, [](const json& e) { return e.at(0) == "unableToTimeLock"; });
    json out = json::array();
    for (const json& e : events) {
        if (TRACES.contains(e.at(0)) || e == json{"anomaly", 1}) continue;
        if (e == json{"anomaly", 2}) {           // the order comes with it
            if (!toldAbility) out.push_back({"unableToTimeLock"});
            continue;
        }
        vectors::expectKnown(e, KNOWN);
        out.push_back(e);
    }
    return out;
}

void select(const std::string& role)
{
    static const std::map<std::string, u32> REFERENCE = {
        {"GPSOSL", TU_SR_GPSOSL_REF}, {"SOCPRI", TU_SR_SOCPRI_REF}, {"IDL1", TU_SR_NO_REF},
        {"IDL2", TU_SR_NO_REF}, {"OTHER", TU_SR_NO_REF}};
    now->isMaster = role != "IDL1" && role != "IDL2";
    now->idlMode = role == "IDL2" ? KVD_BIRAIIF_IDL_MODE_2 : KVD_BIRAIIF_IDL_MODE_1;
    measure::state().var.selectedRef = vectors::rowOf(REFERENCE, role);
}

using Pll = pll::Pll;
const std::vector<Field<Pll>> PLL = {
    field("state", &Pll::currState), field("prevState", &Pll::prevState),
    field("stateChangedMark", &Pll::stateChanged), field("yi", &Pll::yi), field("Kp", &Pll::Kp),
    field("Ki", &Pll::Ki), field("targetDiff", &Pll::targetDiff),
    field("extAccFreqOffset", &Pll::extAccFreqOffset), field("holdOverVectorFull", &Pll::holdOverVectorFull),
    field("holdOverVectorIndex", &Pll::holdOverVectorIndex), field("emptyHOVector", &Pll::emptyHOVector),
    field("timeAccuracyIndSent", &Pll::timeAccuracyIndSent),
    field("histPllCountDown", &Pll::histPllCountDown), field("regulationMode", &Pll::regulationMode),
};

/// Sets one name of an init, or of a command between the samples. False for one that isn't known.
bool setOne(const std::string& name, const Value& value)
{
    pll::Pll& p = pll::vars();
    if (name == "ref") select(value.get<std::string>());
    else if (name == "delta0") KvdLoz6TuReg_setOffset(value[0], value[1]);
    else if (name == "holdoverVector") {
        if (value.is_array()) p.vector = value;
        else EXPECT_EQ(value, "zeros");
    } else if (name == "currAction") now->action = value;
    else if (name == "socpriTimeDataEqual") now->timeDataEqual = value;
    else if (name == "startType") now->startType = value;
    else if (name == "timeSyncAskedFor") now->isTimeSyncAsked = value;
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
    now->y = now->history = nullptr;
    now->event = 0;
    now->forced = false;
    now->logIndex = pll::vars().logIndex;
}

/// Loops and order of reports give doubles to a relative error of 1e-12.
constexpr vectors::Tolerance CLOSE{1e-12, 1e-18}, OFFSET{0.0, 1e-15};

json pair(TimePair t) { return {t.c, t.f}; }

void expectEvents(const Value& wanted)
{
    pushLog();
    const json events = told(wanted.read());
    EXPECT_TRUE(vectors::isNear(now->events, events, {1e-12, 1e-15})) << now->events << "\nwanted " << events;
}

/// Some places of a row against what they hold.
void expectPlaces(const Value& row, std::size_t at, const json& got, vectors::Tolerance tolerance)
{
    for (const json& g : got) expect("place " + std::to_string(at), g, row[at], tolerance), ++at;
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
    if (!input.is_array()) return control(input);
    const std::string what = input[0].get<std::string>();
    if (what == "hold") KvdLoz6TuReg_pll_toHoldover();
    else if (what == "postpone") KvdLoz6TuReg_pll_soCpriPostponeRegulation();
    else if (what == "force" || what == "state") {
        (now->isMaster ? KvdLoz6TuReg_pll_setState : KvdLoz6TuReg_slavePll_setState)(input[1]);
    } else if (what == "delta0") KvdLoz6TuReg_setOffset(input[1], input[2]);
    else if (what == "init") {
        now->currentFreqOffset = input[2];
        KvdLoz6TuReg_pll_init(input[1]);
    } else if (!setOne(SHORT.contains(what) ? SHORT.at(what) : what, input[1]))
        throw std::runtime_error("no replay of the step " + input.dump());
}

void masterStep(const Value& step, void (*control)(double))
{
    perform(step[0], control);
    const pll::Pll& p = pll::vars();
    expectPlaces(step, 1, {p.currState, p.targetDiff, now->y, p.yi, p.holdOverVectorIndex,
                           p.holdOverVectorFull}, CLOSE);
    expectPlaces(step, 7, pair(KvdLoz6TuReg_getOffset()), OFFSET);
    expectEvents(step[9]);
}

void slaveStep(const Value& step, void (*control)(double))
{
    perform(step[0], control);
    const pll::Pll& p = pll::vars();
    expectPlaces(step, 1, {p.currSlaveState, p.targetDiff, now->y, p.yi, p.extAccFreqOffset, now->event},
                 CLOSE);
    expectPlaces(step, 7, pair(KvdLoz6TuReg_getSlaveOffset()), OFFSET);
    expectEvents(step[9]);
}

/// A slave's counts begin anew after a jump within locked, as its notes say; random runs kept them, which
/// shows in the next far sample. What follows there isn't held.
bool keepsCounts(const Value& step, const Value& next)
{
    constexpr double FAR_s = 6.4e-8;
    return step[6] == EV_SLAVE_PLL_JUMP_WITHIN_LOCKED && next[0].is_number()
           && std::fabs(double{next[0]}) > FAR_s;
}

/// The cases of a file, each in a node of its own.
void replay(const char* file, const std::function<void(const Value&)>& body)
{
    vectors::replay(file, "cases", [&](const Value& c) { inNode([&] { body(c); }); });
}

using Step = void (*)(const Value& step, void (*control)(double));
void replaySteps(const char* file, Step step, void (*control)(double))
{
    replay(file, [&](const Value& c) {
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
}

TEST(PllCheckValues, Filter)
{
    replay("o03_pll_filter.json", [](const Value& c) {
        select(c["role"].get<std::string>());
        begin(c["init"]);
        const pll::Pll& p = pll::vars();
        for (const Value step : c["steps"]) {
            nextStep();
            pll::filter(step[0], step[1]);
            expectPlaces(step, 2, {now->y, p.yi, p.holdOverVectorIndex, p.holdOverVectorFull,
                                   p.histPllCountDown, now->history}, CLOSE);
        }
        vectors::expectAll({{"Kp", p.Kp}, {"Ki", p.Ki}}, c);
        if (c.contains("holdoverVectorAtEnd")) expect("vector", p.vector, c["holdoverVectorAtEnd"], CLOSE);
    });
}

TEST(PllCheckValues, Loops)
{
    replaySteps("o03_pll_gpsosl.json", masterStep, KvdLoz6TuReg_pll_control);
    replaySteps("o03_pll_socpri.json", masterStep, KvdLoz6TuReg_soCpriPll_control);
    replaySteps("o03_slave_idl1.json", slaveStep, KvdLoz6TuReg_slavePll_control);
    replaySteps("o03_slave_idl2.json", slaveStep, KvdLoz6TuReg_slavePll_control);
}

TEST(PllSlave, LocksFromTheBandWithAJumpAndOnIdl2WithoutAPortServer)
{
    inNode([] {
        select("IDL1");
        KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Unlocked);
        for (u32 i = 0; i < 52; ++i) KvdLoz6TuReg_slavePll_control(i < 30 ? 1.5e-7 : 3.2e-8);
        EXPECT_EQ(now->event, u32{EV_SLAVE_PLL_PROCEEDING_TO_LOCKED_W_JUMP});
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
    const std::array<double, 60> vector = document["v"];
    replay("o03_pll_holdover.json", [&](const Value& c) {
        select(c["ref"].get<std::string>());
        EXPECT_EQ(c["vector"], "v");
        pll::Pll& p = pll::vars();
        p = {};
        p.currState = c["state"];
        p.targetDiff = c["targetDiff"];
        p.vector = vector;
        const Value fill = c["fill"];                                  // 0 to 60, or "full, index 33"
        p.holdOverVectorFull = fill.is_string() || fill == 60 ? 1 : 0;
        const std::string text = fill.is_string() ? fill.get<std::string>() : "full, index " + fill.dump();
        p.holdOverVectorIndex = static_cast<u32>(std::stoul(text.substr(text.rfind(' ') + 1))) % 60;
        nextStep();
        KvdLoz6TuReg_pll_toHoldover();
        expect("state", p.currState, c["newState"]);
        expect("targetDiff", p.targetDiff, c["targetDiff"]);
        expect("y", now->y, c["y"], CLOSE);
        expectEvents(c["events"]);
    });
}

TEST(PllCheckValues, StateChange)
{
    replay("o03_pll_state_change.json", [](const Value& c) {
        const bool isSlave = c.value("slave", 0) != 0;
        select(c["ref"].get<std::string>());
        pll::Pll& p = pll::vars();
        p = {};
        (isSlave ? p.currSlaveState : p.currState) = c["from"];
        p.emptyHOVector = c.value("emptyHOVector", 0u);
        p.holdOverVectorFull = 1, p.holdOverVectorIndex = 9, p.timeAccuracyIndSent = 1;
        now->action = c.value("currAction", 0u);
        nextStep();
        (isSlave ? KvdLoz6TuReg_slavePll_setState : KvdLoz6TuReg_pll_setState)(c["to"]);
        EXPECT_EQ(now->forced, !(c["from"] == c["to"]));
        pll::Pll after = p;
        if (isSlave) after.currState = p.currSlaveState, after.prevState = p.prevSlaveState;
        for (const auto& [name, wanted] : c["after"].items())
            EXPECT_TRUE(vectors::compare(PLL, after, name, wanted)) << "nothing to compare " << name;
        expectEvents(c["events"]);
    });
}

}  // namespace
