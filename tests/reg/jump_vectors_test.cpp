// Replay of check values: steps of the counters, jumps from order to end, SoCPRI's stages.
#include "reg/support/measure_bench.h"
#include "reg/support/regulator_fields.h"
#include "support/vectors.h"

#include "reg/kvd_reg_jump_int.h"
#include "reg/kvd_reg_pll.h"
#include "sig/tuiif_sig.h"
#include "sig/tuiif_socpri_sig.h"
#include "socpri/kvd_socpri.h"

using regtest::MeasureBench;
using vectors::json;
using vectors::Value;

namespace {

constexpr double COUNTER_TURN = 125829120000.0;   // increments in 1024 s
constexpr ose::Time POSTPONED = 5 * ose::SEC;
struct JumpBench;
JumpBench* self = nullptr;              // of the running test, for the operations that it plays

/// The regulator with a manager process of its own, a counter that the load registers step, and
/// the loops and the link client played by the test. What happens becomes a list of events.
struct JumpBench : MeasureBench {
    json events = json::array();
    double count = 0;                  // of the running counter, increments
    u32 pllState = 0, action = 0;
    double targetDiff = 0;
    u32 jumpState = 0;
    ose::Time postponedUntil = 0;
    const u32 bfnOut1 = address(6), loadFrames = address(13), loadInc = address(14);

    explicit JumpBench(u32 boardType) : MeasureBench(boardType)
    {
        self = this;
        connect();
        settle();
        bus.memory[address(16)] = 1;   // a load is done at once
        bus.onWrite[address(boardType == 1 ? 14 : 15)] = [this](u32 value) {
            if (board == 1 || (value & 5) == 5) step();
        };
        bus.onWrite[address(7)] = [this](u32 word2) { push({"writeBfnOut", bus.memory[bfnOut1], word2}); };
        launch();
    }

    void push(json event)
    {
        noteJumpState();
        events.push_back(std::move(event));
    }
    void noteJumpState()
    {
        ose::DataScope scope(*block);
        const u32 now = KvdLoz6TuReg_jumpState();
        if (now != jumpState) events.push_back({"jumpState", jumpState, now});
        jumpState = now;
    }
    void step()
    {
        const u32 frames = bus.memory[loadFrames];
        const u32 inc = bus.memory[loadInc] >> (board == 1 ? 0 : 1);
        push({"step", frames >> 12, frames & 0xFFF, inc});
        setCount(count + tuHwIf_sfcToIncrements(static_cast<u16>(frames >> 12),
                                                static_cast<u16>(frames & 0xFFF), inc));
    }
    void setCount(double increments)
    {
        count = std::fmod(increments, COUNTER_TURN);
        putRun(triple());
    }
    regtest::Triple triple() const { return regtest::tripleOf(count / 122880000.0); }

    template <typename T>
    void inject(const T& layout)
    {
        MeasureBench::inject(layout);
        noteJumpState();
    }
    void inManager(const std::function<void()>& body)
    {
        MeasureBench::inManager(body);
        noteJumpState();
    }
    void runTo(double ms)
    {
        world.runUntil(launchedAt + static_cast<ose::Time>(ms) * ose::MS);
        if (board == 2) world.runFor(20 * ose::MS);      // the load's own time
        noteJumpState();
    }
};

const jump::Needs NEEDS = {
    [] { return self->pllState; },
    [](u32 state) { self->push({"pll", state}), self->pllState = state; },
    [] { return self->targetDiff; },
    [](double diff) { self->targetDiff = diff; },
    [] { return self->action; },
    [](u32 enabled) { self->push({"inrsiSendBfnJumpInfo", enabled}); },
    [](u32 isLong) { self->push({"noMoreBfnJumpsExpected", isLong}); },
    [] { self->push({"restartPhaseTimer", 100}); },
    [](u32 status) { self->push({"inrsiBfnAlignCompleted", status}); },
    [] {
        if (self->world.now() < self->postponedUntil) return;
        self->postponedUntil = self->world.now() + POSTPONED;
        self->push({"postponeRegulation"});
    },
    [](u32 event) { self->push({"socpriLog", event}); },
    [](double c, double f) { self->push({"followSfcAdj", c, f}); },
};

constexpr vectors::Tolerance NEAR{0.0, 1e-9};

/// The step of the counters by `d`, if it was large enough for one.
void addStep(json& events, TimePair d, const json& hw)
{
    static const std::set<std::string> KNOWN = {"ext", "t", "mfn", "sfn", "inc", "stepped"};
    for (const auto& [key, value] : hw.items())
        if (!KNOWN.contains(key)) ADD_FAILURE() << "no replay of the step's \"" << key << "\"";
    const TimePair turns = jump::turnsOf(d.c, d.f);
    EXPECT_TRUE(vectors::isNear({turns.c, turns.f}, {hw.at("ext"), hw.at("t")}, NEAR)) << hw;
    if (hw.at("stepped") == 1) events.push_back({"step", hw.at("mfn"), hw.at("sfn"), hw.at("inc")});
}

/// The file's events in the bench's words. Timers show in when they end, and what the loops and
/// SoCPRI's measurements do of their own isn't looked at here.
json wantedEvents(const json& events)
{
    static const std::set<std::string> OTHERS = {"timer", "cancel", "expired", "confirm", "vector", "report",
                                                 "lastRegulatorState", "regState", "tell5.1", "tell10.1"};
    json wanted = json::array();
    for (const json& e : events) {
        const std::string what = e.at(0);
        if (OTHERS.contains(what)) continue;
        if (what == "socpriLog" && (e[1] == 24 || e[1] == 25)) continue;
        if (what == "adjustTime") addStep(wanted, {e.at(1), e.at(2)}, e.at(3));
        else if (what == "log") wanted.push_back({"pll", e.at(1)});
        else wanted.push_back(e);
    }
    return wanted;
}

void begin(JumpBench& b, const Value& init)
{
    static const std::map<std::string, u32> REFERENCES = {{"GPSOSL", 17}, {"SOCPRI", 18}, {"OTHER", 6}};
    b.pllState = 0;
    const Value counter = init["counter"];
    b.setCount(tuHwIf_sfcToIncrements(counter[0], counter[1], counter[2]));
    b.inManager([&] {
        jump::setNeeds(&NEEDS);
        KvdLoz6TuReg_SoCpriCoarseTimeData(init["ref_esfc"], init["ref_mfn"]);
        MeasStateVar& v = measure::state().var;
        v.selectedRef = vectors::rowOf(REFERENCES, init["selectedRef"].get<std::string>());
        v.t_mod_old = init["knowsTime"] == 1 ? 4294967296.0 : 0.0;
        v.delta0_c = init["delta0"][0], v.delta0_f = init["delta0"][1];
        v.histCountDown = 17.0;
        estimator::state().var.degrd = init["degrd"];
        KvdLoz6TuReg_setLastTime(init["t_last"][0], init["t_last"][1]);
        KvdLoz6TuReg_setJumpState(init["jumpState"]);
    });
    if (!init["pllState"].is_null()) b.pllState = init["pllState"];
    b.action = init["currAction"];
    b.targetDiff = init["targetDiff"];
    b.events = json::array();
}

/// A step of the control law in TIMELOCKED; in another state it doesn't come to a jump.
void controlStep(u8 regState)
{
    if (regState != TIMELOCKED) return;
    control::State& c = control::state();
    c.var.regState = TIMELOCKED;
    c.var.f_ix = 5;
    c.var.t_ix = 2;
    const EstimateStateVar& e = KvdLoz6TuReg_estimateStateVar();
    KvdLoz6TuReg_controller(e.x_est, e.P_est, 0, Z_TEMP_REF);
}

void perform(JumpBench& b, const Value& op)
{
    const std::string what = op[0].get<std::string>();
    if (what == "advance") return b.runTo(op.at(1));
    if (what == "request")
        return b.inject(KvdTuiifJumpRntToSfcDiffZeroReq{KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_REQ, 77});
    if (what == "coarseData")
        return b.inject(
            KvdTuiifSocpriCoarseTimeDataInd{KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, op.at(1), op.at(2)});
    b.inManager([&] {
        MeasStateVar& m = measure::state().var;
        if (what == "env") {
            m.t_mod_old = op.at(1) == 1 ? 4294967296.0 : 0.0;
            estimator::state().var.degrd = op.at(2);
        } else if (what == "delta0") m.delta0_c = op.at(1), m.delta0_f = op.at(2);
        else if (what == "controlStep") controlStep(op.at(1));
        else if (what == "leaveTimelocked") {
            KvdLoz6TuReg_forceRegState(TIMELOCKED);
            KvdLoz6TuReg_setRegState(FREQLOCKED);
        } else if (what == "clientState") {
            tuiif::state().savedBvqStatusData.radioClockState = op.at(1);
            tuiif::sendBvqStatus();
        } else if (what == "jump") KvdLoz6TuReg_Jump();
        else if (what == "bfnAlign") KvdLoz6TuReg_SoCpriJumpBfnAlignmentAction();
        else if (what == "abort") KvdLoz6TuReg_SoCpriJumpAborted();
        else if (what == "readFlags") {
            const u32 requested = KvdLoz6TuReg_takeJumpRequested();
            b.push({"flags", requested, KvdLoz6TuReg_takeJumpPerformed()});
        } else throw std::runtime_error("no replay of the operation \"" + what + "\"");
    });
}

void expectState(JumpBench& b, const Value& step)
{
    const MeasStateVar m = b.meas();
    const regtest::Triple t = b.triple();
    ose::DataScope scope(*b.block);
    const json is = {
        {"jumpState", b.jumpState},
        {"delta0", {m.delta0_c, m.delta0_f}},
        {"histCountDown", m.histCountDown},
        {"running", {KvdLoz6TuReg_SoCpriJumpRunning(), KvdLoz6TuReg_SoCpriBfnAdjustmentRunning(),
                     KvdLoz6TuReg_SoCpriRetries()}},
        {"pllState", b.pllState},
        {"targetDiff", b.targetDiff},
        {"counter", {t.mfn, t.sfn, t.inc}},
        {"t_last", {m.t_c_last, m.t_f_last}},
    };
    if (step.contains("timers"))                             // seen when they end
        step["timers"].skip({"jumpIndication", "continuePostponed", "sfcAdjMonitor", "bfnJumpWarning"});
    for (const auto& [key, wanted] : step.items())
        if (is.contains(key) && !wanted.is_null()) vectors::expect(key, is[key], wanted, NEAR);
}

void replayJump(const Value& c)
{
    JumpBench b(c["init"]["board"]);
    begin(b, c["init"]);
    std::size_t confirms = 0;
    for (const Value s : c["steps"]) {
        SCOPED_TRACE(s["op"]);
        b.events = json::array();
        perform(b, s["op"]);
        const json wanted = wantedEvents(s["events"].read());
        EXPECT_TRUE(vectors::isNear(b.events, wanted, NEAR)) << b.events << "\nwanted " << wanted;
        expectState(b, s);
        for (const Value e : s["events"]) confirms += e[0] == "confirm" ? 1 : 0;
    }
    const auto confirmed = b.received<KvdTuiifJumpRntToSfcDiffZeroCfm>(
        KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_CFM);
    EXPECT_EQ(confirmed.size(), confirms);
    for (const auto& cfm : confirmed) EXPECT_EQ(cfm.clientPid, 77u);
    if (c.contains("alt")) c["alt"].read();          // of an indication that isn't looked at here
}

}  // namespace

TEST(JumpVectors, FromTheOrderToTheEnd)
{
    vectors::replay("o03_jumps.json", "cases", replayJump);
    vectors::Document document("o03_jumps.json");
    MeasureBench b;
    b.settle();
    vectors::each(document["rto"]["rows"], [&](const Value& row) {
        b.in([&] {
            regtest::write(row);
            u32 seconds = 0, nanoseconds = 0;
            KvdLoz6TuReg_calcSoCpriRTO(seconds, nanoseconds);
            vectors::expectAll({{"seconds", seconds}, {"nanoseconds", nanoseconds}}, row);
        });
    });
}

TEST(JumpVectors, StepOfTheCounters)
{
    vectors::replay("o03_adjust_time.json", "cases", [](const Value& c) {
        json hw;
        for (const char* key : {"ext", "t", "mfn", "sfn", "inc", "stepped"}) hw[key] = c["hw"][key].read();
        JumpBench b(c["board"]);
        b.in([&] {
            KvdLoz6TuReg_setLastTime(c["t_c_last"], c["t_f_last"]);
            KvdLoz6TuReg_adjust_time(c["d_c"], c["d_f"]);
            vectors::expect("t_c_last", KvdLoz6TuReg_getLastTime().c, c["new_t_c_last"]);
            vectors::expect("t_f_last", KvdLoz6TuReg_getLastTime().f, c["new_t_f_last"], NEAR);
        });
        json wanted = json::array();
        addStep(wanted, {c["d_c"], c["d_f"]}, hw);
        EXPECT_EQ(b.events, wanted);
        if (b.board == 2 && hw.at("stepped") == 1) {
            const i64 ext = static_cast<i64>(hw.at("ext").get<double>());
            EXPECT_EQ(b.bus.memory[b.address(12)], static_cast<u32>(ext) & 0xFFFFFF);
        }
    });
}

TEST(SocpriJump, ALoopThatHasLeftItsOffsetAtTheRepeatIsNotForcedToLock)
{
    JumpBench b(1);
    const json init = json::parse(R"({"selectedRef": "SOCPRI", "pllState": 4, "counter": [17, 368, 0],
        "t_last": [10240.0, 700.0], "delta0": [0.0, 0.0], "jumpState": 0, "currAction": 4,
        "targetDiff": 0.0, "degrd": 0, "knowsTime": 1, "ref_esfc": 10, "ref_mfn": 17})");
    Value::Read read;
    begin(b, Value{init, read});
    const json ops = {{"request"}, {"advance", 4000}, {"coarseData", 11, 17}, {"advance", 20000}};
    const Value op{ops, read};
    perform(b, op[0]);
    perform(b, op[1]);
    b.pllState = PLL_Unlocked;
    perform(b, op[2]);
    b.events = json::array();
    perform(b, op[2]);
    EXPECT_EQ(b.events, json::parse(R"([["socpriLog", 2], ["socpriLog", 4],
        ["noMoreBfnJumpsExpected", 0], ["jumpState", 1, 0], ["socpriLog", 11]])"));
    b.events = json::array();
    perform(b, op[3]);
    EXPECT_EQ(b.events, json::array()) << "the monitor has gone with the jump";
}
