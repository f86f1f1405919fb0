// Replay of check values: steps of the counters, jumps from order to end, SoCPRI's stages.
#include "reg/support/manager_bench.h"
#include "support/vectors.h"

#include "iif/tuiif_sig.h"
#include "iif/tuiif_socpri_sig.h"
#include "reg/kvd_reg_jump_int.h"
#include "reg/kvd_reg_pll.h"
#include "socpri/kvd_socpri.h"

using regtest::ManagerBench;
using vectors::json;

namespace {

constexpr double COUNTER_TURN = 125829120000.0;   // increments in 1024 s
constexpr ose::Time POSTPONED = 5 * ose::SEC;
struct JumpBench;
JumpBench* self = nullptr;              // of the running test, for the operations that it plays

/// The regulator with a manager process of its own, a counter that the load registers step, and
/// the loops and the link client played by the test. What happens becomes a list of events.
struct JumpBench : ManagerBench {
    json events = json::array();
    double count = 0;                  // of the running counter, increments
    u32 pllState = 0, action = 0;
    double targetDiff = 0;
    u32 jumpState = 0;
    ose::Time postponedUntil = 0;
    const u32 bfnOut1 = address(6), loadFrames = address(13), loadInc = address(14);

    explicit JumpBench(u32 boardType) : ManagerBench(boardType)
    {
        self = this;
        bus.memory[address(16)] = 1;   // a load is done at once
        bus.onWrite[address(boardType == 1 ? 14 : 15)] = [this](u32 value) {
            if (board == 1 || (value & 5) == 5) step();
        };
        bus.onWrite[address(7)] = [this](u32 word2) {
            push({"writeBfnOut", bus.memory[bfnOut1], word2});
        };
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
        ManagerBench::inject(layout);
        noteJumpState();
    }
    void inManager(const std::function<void()>& body)
    {
        ManagerBench::inManager(body);
        noteJumpState();
    }
    void runTo(double ms)
    {
        world.runUntil(start + static_cast<ose::Time>(ms) * ose::MS);
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

/// The file's events in the bench's words. Timers show in when they end, and what the loops and
/// SoCPRI's measurements do of their own isn't looked at here.
json wantedEvents(const json& events)
{
    constexpr const char* OTHERS[] = {"timer", "cancel", "expired", "confirm", "vector",
                                      "lastRegulatorState", "regState", "report"};
    json wanted = json::array();
    for (const json& e : events) {
        const std::string what = e[0];
        if (std::find(std::begin(OTHERS), std::end(OTHERS), what) != std::end(OTHERS)) continue;
        if (what.starts_with("tell")) continue;
        if (what == "socpriLog" && (e[1] == 24 || e[1] == 25)) continue;
        if (what == "adjustTime") {
            const json& hw = e[3];
            if (hw["stepped"] == 1) wanted.push_back({"step", hw["mfn"], hw["sfn"], hw["inc"]});
        } else if (what == "log") {
            wanted.push_back({"pll", e[1]});
        } else {
            wanted.push_back(e);
        }
    }
    return wanted;
}

bool isNear(const json& a, const json& b)
{
    if (a.is_number() && b.is_number()) return std::fabs(a.get<double>() - b.get<double>()) <= 1e-9;
    if (!a.is_array() || !b.is_array()) return a == b;
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), isNear);
}

void begin(JumpBench& b, const json& init)
{
    b.pllState = 0;
    b.setCount(tuHwIf_sfcToIncrements(init["counter"][0], init["counter"][1], init["counter"][2]));
    b.inManager([&] {
        jump::setNeeds(&NEEDS);
        KvdLoz6TuReg_SoCpriCoarseTimeData(init["ref_esfc"], init["ref_mfn"]);
        MeasStateVar& v = measure::state().var;
        const std::string selected = init["selectedRef"];
        v.selectedRef = selected == "GPSOSL" ? 17 : selected == "SOCPRI" ? 18 : 6;
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

void perform(JumpBench& b, const json& op)
{
    const std::string what = op[0];
    if (what == "advance") return b.runTo(op[1]);
    if (what == "request")
        return b.inject(
            KvdTuiifJumpRntToSfcDiffZeroReq{KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_REQ, 77});
    if (what == "coarseData")
        return b.inject(
            KvdTuiifSocpriCoarseTimeDataInd{KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, op[1], op[2]});
    b.inManager([&] {
        if (what == "env") {
            measure::state().var.t_mod_old = op[1] == 1 ? 4294967296.0 : 0.0;
            estimator::state().var.degrd = op[2];
        } else if (what == "controlStep") {
            controlStep(op[1]);
        } else if (what == "clientState") {
            tuiif::state().savedBvqStatusData.radioClockState = op[1];
            tuiif::sendBvqStatus();
        } else if (what == "jump") {
            KvdLoz6TuReg_Jump();
        } else if (what == "bfnAlign") {
            KvdLoz6TuReg_SoCpriJumpBfnAlignmentAction();
        } else if (what == "abort") {
            KvdLoz6TuReg_SoCpriJumpAborted();
        } else if (what == "readFlags") {
            const u32 requested = KvdLoz6TuReg_takeJumpRequested();
            b.push({"flags", requested, KvdLoz6TuReg_takeJumpPerformed()});
        } else {
            ADD_FAILURE() << "unknown operation " << what;
        }
    });
}

void expectState(JumpBench& b, const json& wanted)
{
    const MeasStateVar m = b.meas();
    const regtest::Triple t = b.triple();
    json pll = b.pllState;
    if (wanted["pllState"].is_null()) pll = nullptr;
    ose::DataScope scope(*b.block);
    const json is = {b.jumpState, {m.delta0_c, m.delta0_f}, m.histCountDown,
                     {KvdLoz6TuReg_SoCpriJumpRunning(), KvdLoz6TuReg_SoCpriBfnAdjustmentRunning(),
                      KvdLoz6TuReg_SoCpriRetries()},
                     pll, b.targetDiff, {t.mfn, t.sfn, t.inc}, {m.t_c_last, m.t_f_last}};
    json should = json::array();
    for (const char* key : {"jumpState", "delta0", "histCountDown", "running", "pllState",
                            "targetDiff", "counter", "t_last"})
        should.push_back(wanted[key]);
    EXPECT_TRUE(isNear(is, should)) << "state " << is << "\nwanted " << should;
}

}  // namespace

TEST(JumpVectors, FromTheOrderToTheEnd)
{
    TU_LOAD_VECTORS(doc, "o03_jumps.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        JumpBench b(c["init"]["board"]);
        begin(b, c["init"]);
        std::size_t confirms = 0;
        for (const json& s : c["steps"]) {
            SCOPED_TRACE(s["op"].dump());
            b.events = json::array();
            perform(b, s["op"]);
            const json wanted = wantedEvents(s["events"]);
            EXPECT_TRUE(isNear(b.events, wanted)) << "events " << b.events << "\nwanted " << wanted;
            expectState(b, s);
            for (const json& e : s["events"]) confirms += e[0] == "confirm" ? 1 : 0;
        }
        const auto confirmed =
            b.received<KvdTuiifJumpRntToSfcDiffZeroCfm>(KVD_TUIIF_JUMP_RNT_TO_SFC_DIFF_ZERO_CFM);
        EXPECT_EQ(confirmed.size(), confirms);
        for (const auto& cfm : confirmed) EXPECT_EQ(cfm.clientPid, 77u);
    }
}

TEST(JumpVectors, OffsetOfTheLink)
{
    TU_LOAD_VECTORS(doc, "o03_jumps.json");
    regtest::MeasureBench b;
    b.settle();
    for (const json& row : doc["rto"]["rows"]) {
        SCOPED_TRACE(row.dump());
        b.in([&] {
            measure::state().var.delta0_c = row["delta0_c"];
            measure::state().var.delta0_f = row["delta0_f"];
            u32 seconds = 0, nanoseconds = 0;
            KvdLoz6TuReg_calcSoCpriRTO(seconds, nanoseconds);
            EXPECT_EQ(seconds, row["seconds"].get<u32>());
            EXPECT_EQ(nanoseconds, row["nanoseconds"].get<u32>());
        });
    }
}

TEST(JumpVectors, StepOfTheCounters)
{
    TU_LOAD_VECTORS(doc, "o03_adjust_time.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c.dump());
        const u32 board = c["board"];
        const json& hw = c["hw"];
        JumpBench b(board);
        b.in([&] {
            KvdLoz6TuReg_setLastTime(c["t_c_last"], c["t_f_last"]);
            KvdLoz6TuReg_adjust_time(c["d_c"], c["d_f"]);
            EXPECT_EQ(KvdLoz6TuReg_getLastTime().c, c["new_t_c_last"].get<double>());
            EXPECT_NEAR(KvdLoz6TuReg_getLastTime().f, c["new_t_f_last"].get<double>(), 1e-9);
        });
        json wanted = json::array();
        if (hw["stepped"] == 1) wanted.push_back({"step", hw["mfn"], hw["sfn"], hw["inc"]});
        EXPECT_EQ(b.events, wanted);
        if (board == 2 && hw["stepped"] == 1) {
            const i64 ext = static_cast<i64>(hw["ext"].get<double>());
            EXPECT_EQ(b.bus.memory[b.address(12)], static_cast<u32>(ext) & 0xFFFFFF);
        }
    }
}

TEST(SocpriJump, ALoopThatHasLeftItsOffsetAtTheRepeatIsNotForcedToLock)
{
    JumpBench b(1);
    begin(b, json::parse(R"({"selectedRef": "SOCPRI", "pllState": 4, "counter": [17, 368, 0],
        "t_last": [10240.0, 700.0], "delta0": [0.0, 0.0], "jumpState": 0, "currAction": 4,
        "targetDiff": 0.0, "degrd": 0, "knowsTime": 1, "ref_esfc": 10, "ref_mfn": 17})"));
    perform(b, {"request"});
    perform(b, {"advance", 4000});
    b.pllState = PLL_Unlocked;
    perform(b, {"coarseData", 11, 17});
    b.events = json::array();
    perform(b, {"coarseData", 11, 17});
    EXPECT_EQ(b.events, json::parse(R"([["socpriLog", 2], ["socpriLog", 4],
        ["noMoreBfnJumpsExpected", 0], ["jumpState", 1, 0], ["socpriLog", 11]])"));
    b.events = json::array();
    perform(b, {"advance", 20000});
    EXPECT_EQ(b.events, json::array()) << "the monitor has gone with the jump";
}
