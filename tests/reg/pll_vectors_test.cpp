// Replay of check values: the loops' filter, their states with what they tell, holdover, and the
// two loops of a slave.
#include "tests/support/idle_node.h"
#include "tests/support/vectors.h"

#include "iif/kvd_biraiifadm.h"
#include "mgr/tu_common.h"
#include "ref/ref_types.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_pll_int.h"
#include "refs/kvd_slave.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>

namespace {

using vectors::json;

/// What the neighbours are asked and told, in order.
struct Neighbours {
    json events = json::array();
    std::optional<double> y;
    u32 action = 0, startType = 0, event = 0, idlMode = 0;
    u16 logIndex = 0;
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
    .adjustOffset =
        [](double c, double f) {
            push({"adjustOffset", c, f, KvdLoz6TuReg_adjustOffset(c, f)});
        },
    .offset = KvdLoz6TuReg_getOffset,
    .clearOffset = [] { KvdLoz6TuReg_setOffset(0, 0); },
    .adjustSlaveOffset =
        [](double c, double f) {
            push({"adjustSlaveOffset", c, f});
            KvdLoz6TuReg_adjustSlaveOffset(c, f);
        },
    .slaveOffset = KvdLoz6TuReg_getSlaveOffset,
    .clearSlaveOffset = KvdLoz6TuReg_clearSlaveOffset,
    .adjustTime = [](double c, double f) { push({"adjustTime", c, f}); },
    .clearMod = [] {},
    .writeHistory =
        [](bool toFlash, double) {
            now->history = toFlash ? "flash" : "msi";
            push({"history", *now->history});
        },
    .retryJump = [] {},
    .forceStatus = [] { now->forced = true; },
    .lastRegulatorState = [](u32 state) { push({"lastRegulatorState", clockOfPll(state)}); },
    .lastSlaveRegulatorState =
        [](u32 state) { push({"lastRegulatorState", state == 0 ? 7 : 14 + state}); },
    .setFreqLocked = [] { push({"regState", 5}); },
    .report = [](u8 clockState) { push({"report", clockState}); },
    .timeAccuracy = [] { push({"timeAccuracy", 50}); },
    .tellGpsOut =
        [](u32 state) {
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
    .unableToTimeLock =
        [] {
            push({"anomaly", 2});
            return 0;
        },
    .sendClkStatus =
        [](u8 clkStatus) {
            push({"idpi", clkStatus});
            return 0;
        },
    .storeClkStatus = [](u32 clkStatus, const char*) { push({"storeIdpiClkStatus", clkStatus}); },
    .startType = [] { return static_cast<u8>(now->startType); },
    .isTimeSyncAsked = [] { return now->isTimeSyncAsked; },
    .tellFineTime = [] { push({"tell10.1"}); },
};

/// The file's events that are more than a trace.
json told(const json& events)
{
    json out = json::array();
    for (const json& e : events) {
        if (e[0] == "vector" || e[0] == "faultyState" || e[0] == "windowRejected") continue;
        if (e[0] == "anomaly" && e[1] == 1) continue;
        out.push_back(e);
    }
    return out;
}

void select(const std::string& role)
{
    now->isMaster = role != "IDL1" && role != "IDL2";
    now->idlMode = role == "IDL2" ? KVD_BIRAIIF_IDL_MODE_2 : KVD_BIRAIIF_IDL_MODE_1;
    measure::state().var.selectedRef = role == "GPSOSL"   ? TU_SR_GPSOSL_REF
                                       : role == "SOCPRI" ? TU_SR_SOCPRI_REF
                                                          : TU_SR_NO_REF;
}

void begin(const json& init)
{
    pll::Pll& p = pll::vars();
    p = {};
    p.currState = init.value("state", 0u);
    p.stateChanged = init.value("stateChangedMark", 0u);
    p.yi = init.value("yi", 0.0);
    p.Kp = init.value("Kp", 0.0), p.Ki = init.value("Ki", 0.0);
    p.targetDiff = init.value("targetDiff", 0.0);
    p.extAccFreqOffset = init.value("extAccFreqOffset", 0.0);
    p.holdOverVectorFull = init.value("holdOverVectorFull", 0u);
    p.holdOverVectorIndex = init.value("holdOverVectorIndex", 0u);
    p.emptyHOVector = init.value("emptyHOVector", 1u);
    p.timeAccuracyIndSent = init.value("timeAccuracyIndSent", 0u);
    p.histPllCountDown = init.value("histPllCountDown", 0xFFFFFFFFu);
    p.regulationMode = init.value("regulationMode", u8{0});
    if (init.contains("holdoverVector") && init["holdoverVector"].is_array())
        p.vector = init["holdoverVector"].get<std::array<double, 60>>();
    if (init.contains("delta0")) KvdLoz6TuReg_setOffset(init["delta0"][0], init["delta0"][1]);
    now->action = init.value("currAction", 0u);
    now->timeDataEqual = init.value("socpriTimeDataEqual", true);
    now->startType = init.value("startType", 0u);
    now->isTimeSyncAsked = init.value("timeSyncAskedFor", 0) != 0;
}

void beginSlave(const json& init)
{
    begin(init);
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
void expectNear(const char* what, double is, const json& wanted)
{
    const double w = wanted.get<double>();
    EXPECT_NEAR(is, w, std::fmax(1e-18, std::fabs(w) * 1e-12)) << what;
}
void expectY(const json& wanted)
{
    ASSERT_EQ(now->y.has_value(), !wanted.is_null());
    if (now->y) expectNear("y", *now->y, wanted);
}
bool isNear(const json& a, const json& b)
{
    if (a.is_number() && b.is_number())
        return std::fabs(a.get<double>() - b.get<double>()) <= 1e-15 + 1e-12 * std::fabs(b.get<double>());
    if (!a.is_array() || !b.is_array()) return a == b;
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), isNear);
}
void expectEvents(const json& wanted)
{
    pushLog();
    EXPECT_TRUE(isNear(now->events, told(wanted))) << now->events << "\nwanted " << told(wanted);
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

void perform(const json& input, void (*control)(double))
{
    if (input.is_number()) return control(input.get<double>());
    const std::string what = input[0];
    if (what == "hold") return KvdLoz6TuReg_pll_toHoldover();
    if (what == "postpone") return KvdLoz6TuReg_pll_soCpriPostponeRegulation();
    if (what == "force") return KvdLoz6TuReg_pll_setState(input[1]);
    if (what == "equal") {
        now->timeDataEqual = input[1];
        return;
    }
    if (what == "delta0") return KvdLoz6TuReg_setOffset(input[1], input[2]);
    ASSERT_EQ(what, "init");
    now->currentFreqOffset = input[2];
    KvdLoz6TuReg_pll_init(input[1]);
}

void replayMaster(const char* file, const char* role, void (*control)(double))
{
    TU_LOAD_VECTORS(document, file);
    inNode([&] {
        select(role);
        for (const json& c : document["cases"]) {
            begin(c["init"]);
            for (u32 i = 0; i < c["steps"].size(); ++i) {
                const json& step = c["steps"][i];
                SCOPED_TRACE(c["name"].get<std::string>() + " step " + std::to_string(i));
                nextStep();
                perform(step[0], control);
                const pll::Pll& p = pll::vars();
                EXPECT_EQ(p.currState, step[1].get<u32>());
                expectNear("targetDiff", p.targetDiff, step[2]);
                expectY(step[3]);
                expectNear("yi", p.yi, step[4]);
                EXPECT_EQ(p.holdOverVectorIndex, step[5].get<u32>());
                EXPECT_EQ(p.holdOverVectorFull, step[6].get<u32>());
                EXPECT_NEAR(KvdLoz6TuReg_getOffset().c, step[7].get<double>(), 1e-15);
                EXPECT_NEAR(KvdLoz6TuReg_getOffset().f, step[8].get<double>(), 1e-15);
                expectEvents(step[9]);
                if (::testing::Test::HasFailure()) return;
            }
        }
    });
}

void replaySlave(const char* file, const char* role)
{
    TU_LOAD_VECTORS(document, file);
    inNode([&] {
        select(role);
        for (const json& c : document["cases"]) {
            beginSlave(c["init"]);
            KvdLoz6TuReg_clearSlaveOffset();
            for (u32 i = 0; i < c["steps"].size(); ++i) {
                const json& step = c["steps"][i];
                SCOPED_TRACE(c["name"].get<std::string>() + " step " + std::to_string(i));
                nextStep();
                KvdLoz6TuReg_slavePll_control(step[0]);
                const pll::Pll& p = pll::vars();
                EXPECT_EQ(p.currSlaveState, step[1].get<u32>());
                expectNear("targetDiff", p.targetDiff, step[2]);
                expectY(step[3]);
                expectNear("yi", p.yi, step[4]);
                expectNear("extAccFreqOffset", p.extAccFreqOffset, step[5]);
                EXPECT_EQ(now->event, step[6].get<u32>());
                EXPECT_NEAR(KvdLoz6TuReg_getSlaveOffset().f, step[8].get<double>(), 1e-15);
                expectEvents(step[9]);
                if (::testing::Test::HasFailure()) return;
                // The counts begin anew after a jump within locked; the given values keep them.
                if (step[6] != EV_SLAVE_PLL_JUMP_WITHIN_LOCKED || i + 1 == c["steps"].size()) continue;
                if (std::fabs(c["steps"][i + 1][0].get<double>()) > 6.4e-8) break;
            }
        }
    });
}

TEST(PllCheckValues, Filter)
{
    TU_LOAD_VECTORS(document, "o03_pll_filter.json");
    inNode([&] {
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c["name"].get<std::string>());
            select(c["role"]);
            begin(c["init"]);
            for (const json& step : c["steps"]) {
                nextStep();
                pll::filter(step[0], step[1]);
                const pll::Pll& p = pll::vars();
                expectY(step[2]);
                expectNear("yi", p.yi, step[3]);
                EXPECT_EQ(p.holdOverVectorIndex, step[4].get<u32>());
                EXPECT_EQ(p.holdOverVectorFull, step[5].get<u32>());
                EXPECT_EQ(p.histPllCountDown, step[6].get<u32>());
                EXPECT_EQ(now->history.value_or(""), step[7].is_null() ? "" : step[7]);
            }
            EXPECT_EQ(pll::vars().Kp, c["Kp"].get<double>());
            EXPECT_EQ(pll::vars().Ki, c["Ki"].get<double>());
            for (u32 i = 0; i < 60 && now->isMaster; ++i)
                expectNear("vector", pll::vars().vector[i], c["holdoverVectorAtEnd"][i]);
        }
    });
}

TEST(PllCheckValues, GpsOutSyncLink)
{
    replayMaster("o03_pll_gpsosl.json", "GPSOSL", KvdLoz6TuReg_pll_control);
}
TEST(PllCheckValues, SoCpri)
{
    replayMaster("o03_pll_socpri.json", "SOCPRI", KvdLoz6TuReg_soCpriPll_control);
}
TEST(PllCheckValues, Idl1Slave) { replaySlave("o03_slave_idl1.json", "IDL1"); }
TEST(PllCheckValues, Idl2Slave) { replaySlave("o03_slave_idl2.json", "IDL2"); }

TEST(PllCheckValues, ToHoldover)
{
    TU_LOAD_VECTORS(document, "o03_pll_holdover.json");
    inNode([&] {
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c.dump());
            const json& events = c["events"];
            select(!events.empty() && events.back()[2] == 4 ? "SOCPRI" : "GPSOSL");
            const bool isFull = c["fill"].is_string() || c["fill"] == 60;   // "full, index 33"
            const u32 index = c["fill"].is_string() ? 33 : c["fill"].get<u32>() % 60;
            begin({{"state", c["state"]}, {"targetDiff", c["targetDiff"]},
                   {"holdOverVectorFull", isFull ? 1 : 0},
                   {"holdOverVectorIndex", index}, {"holdoverVector", document["v"]}});
            nextStep();
            KvdLoz6TuReg_pll_toHoldover();
            EXPECT_EQ(pll::vars().currState, c["newState"].get<u32>());
            expectY(c["y"]);
            EXPECT_EQ(pll::vars().targetDiff, c["targetDiff"].get<double>());
            expectEvents(events);
        }
    });
}

TEST(PllCheckValues, StateChange)
{
    TU_LOAD_VECTORS(document, "o03_pll_state_change.json");
    inNode([&] {
        std::string role = "GPSOSL";
        for (const json& c : document["cases"]) {
            SCOPED_TRACE(c.dump());
            const bool isSlave = c.contains("slave");
            for (const json& e : c["events"])
                if (e[0] == "log") {
                    constexpr const char* ROLE[] = {"", "GPSOSL", "IDL1", "IDL2", "SOCPRI"};
                    role = ROLE[e[2].get<u32>()];
                }
            if (isSlave && role != "IDL2") role = "IDL1";
            select(role);
            const json init = {{"state", c["from"]}, {"emptyHOVector", c.value("emptyHOVector", 0)},
                               {"holdOverVectorFull", 1}, {"holdOverVectorIndex", 9},
                               {"timeAccuracyIndSent", 1}, {"currAction", c.value("currAction", 0)}};
            if (isSlave) beginSlave(init);
            else         begin(init);
            nextStep();
            if (isSlave) KvdLoz6TuReg_slavePll_setState(c["to"]);
            else         KvdLoz6TuReg_pll_setState(c["to"]);
            const pll::Pll& p = pll::vars();
            const json& after = c["after"];
            EXPECT_EQ(isSlave ? p.currSlaveState : p.currState, after["state"].get<u32>());
            EXPECT_EQ(isSlave ? p.prevSlaveState : p.prevState, after["prevState"].get<u32>());
            EXPECT_EQ(p.stateChanged, after["stateChangedMark"].get<u32>());
            EXPECT_EQ(now->forced, c["from"] != c["to"]);
            if (!isSlave) {
                EXPECT_EQ(p.holdOverVectorFull, after["holdOverVectorFull"].get<u32>());
                EXPECT_EQ(p.holdOverVectorIndex, after["holdOverVectorIndex"].get<u32>());
                EXPECT_EQ(p.emptyHOVector, after["emptyHOVector"].get<u32>());
                EXPECT_EQ(p.timeAccuracyIndSent, after["timeAccuracyIndSent"].get<u32>());
            }
            expectEvents(c["events"]);
        }
    });
}

}  // namespace
