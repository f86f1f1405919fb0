// Replay of check values: words and phases of IDL1, delays, stages and flow of IDL2.
#include "refs/kvd_ref_idl.h"
#include "reg/kvd_reg_pll_int.h"
#include "slave_bench.h"
#include "support/vectors.h"

using bench::SlaveBench;
using vectors::expectNear;
using vectors::json;
using vectors::Tolerance;
using vectors::Value;

namespace {

double num(const Value& v) { return vectors::number(v); }

/// 1e-12 of the value, and what the file's doubles can't tell of a zero.
void expectClose(const char* what, double is, const Value& wanted, double absolute = 1e-18)
{
    expectNear(what, is, num(wanted), {0.0, std::max(1e-12 * std::fabs(num(wanted)), absolute)});
}

regtest::Triple triple(const Value& t) { return {t[0].get<u32>(), t[1].get<u32>(), t[2].get<u32>()}; }

slave::DelayWords words(const Value& c, const std::string& unit)
{
    const Value t = c["T1C1_" + unit], f = c["C4T1_" + unit];
    return {t[0].get<u32>(), t[1].get<u32>(), f[0].get<u32>(), f[1].get<u32>()};
}

/// Delay words of a single measurement of `seconds`.
slave::DelayWords wordsOf(double seconds)
{
    const u64 ps = static_cast<u64>(std::llround(std::fabs(seconds) * 1e12));
    const u32 high = static_cast<u32>(ps >> 32), low = static_cast<u32>(ps);
    return seconds < 0 ? slave::DelayWords{0, 0, high, low} : slave::DelayWords{high, low, 0, 0};
}

TEST(Idl1Vectors, WordBothWays)
{
    vectors::replay("o03_idl1_word.json", "cases", [](const Value& c) {
        const auto field = [&](const char* name) { return c[name].get<u32>(); };
        const hwif::BfnExtended e{field("inc_diff"), field("e_sfc"), field("rc_state"),
                                  field("coldRestartFlag_tmp"), field("jump"), field("ms_flag")};
        const hwif::BfnOutWords w = hwif::packBfnExtended(e);
        EXPECT_EQ(w.word1, bench::hexNumber(c["high"].get<std::string>()));
        EXPECT_EQ(w.word2, bench::hexNumber(c["low"].get<std::string>()));
        const hwif::BfnExtended back = hwif::unpackBfnExtended(w.word1, w.word2);
        EXPECT_EQ(std::memcmp(&back, &e, sizeof e), 0);
    });
}

TEST(Idl1Vectors, PhaseDifference)
{
    SlaveBench b;
    vectors::replay("o03_idl1_diff.json", "cases", [&](const Value& c) {
        b.bfnIn(triple(c["local"]), c["remote"][0].get<u32>(), c["remote"][1].get<u32>(),
                {c["inc_diff"].get<u32>(), 0, 0, 0, 0, 1});
        BfnAll all{};
        b.in([&] { tuHwIf_readBfnInAll(all); });
        expectClose("mean_int_diff", all.meanDifference, c["mean_int_diff"]);
        expectClose("z", all.meanDifference / 122880000.0, c["z"]);
    });
}

TEST(Idl1Vectors, SideOfTheWrap)
{
    vectors::replay("o03_idl1_slave_wrap.json", "cases", [](const Value& c) {
        const Value t = c["counter"];
        const double counter = tuHwIf_sfcToIncrements(t[0], t[1], t[2]) / 122880000.0;
        expectClose("z", slave::neutralizeWraparound(num(c["z"]), counter, 1024.0), c["zAfter"]);
    });
    for (const double now : {0.5, 1024.5}) EXPECT_EQ(slave::neutralizeWraparound(0.5, now, 1024.0), 0.5);
}

TEST(Idl1Vectors, MasterEchoesAndRepeats)
{
    vectors::replay("o03_idl1_master.json", "cases", [](const Value& c) {
        SlaveBench b(1);
        b.edit([&](measure::State& m) {
            m.var.jump_idl1 = c["init"]["jump_idl1"].get<u32>();
            m.coldRestartFlag = c["init"]["cold"].get<u32>();
        });
        for (const Value s : c["steps"]) {
            SCOPED_TRACE(s);
            const Value in = s["received"];
            const u32 flags = in.value("ok", 1) == 1 ? SlaveBench::VALID_WORD : 0;
            b.bfnIn({0, 5, 1000}, 0, 5, {77, 0, 7, in["cold"].get<u32>(), in["jump"].get<u32>(), 0}, flags);
            b.edit([&](measure::State&) {
                control::state().var.f_ix = in.value("f_ix", u8{5});
                pll::vars().currState = in.value("pll", 0u);
            });
            b.set(7, 0xFFFFFFFF);
            b.interrupt();
            if (s["sent"].is_null()) {
                EXPECT_EQ(b.get(7), 0xFFFFFFFF);
            } else {
                const hwif::BfnExtended sent = b.sentWord();
                EXPECT_EQ(sent.inc_diff, 1000u);
                EXPECT_EQ(sent.ms_flag, 1u);
                vectors::expectAll({{"jump", sent.jump}, {"coldRestartFlag_tmp", sent.coldRestartFlag_tmp}},
                                   s["sent"]);
            }
            b.edit([&](measure::State& m) {
                vectors::expectAll({{"jump_idl1", m.var.jump_idl1}, {"coldRestartFlag", m.coldRestartFlag}},
                                   s);
            });
        }
    });
}

TEST(Idl1Vectors, TurnsThatAreSent)
{
    SlaveBench b(1);
    vectors::replay("o03_idl1_esfc_send.json", "cases", [&](const Value& c) {
        slave::EsfcSend state;
        for (const Value s : c["steps"]) {
            u32 sent = 0;
            b.in([&] {
                sent = slave::esfcToSend(state, slave::turns(num(s[0])), s[2] == 1, s[1].get<u16>());
            });
            EXPECT_EQ(sent, s[3].get<u32>()) << s;
        }
        if (c.contains("alt")) c["alt"].read();      // goes up wherever the last frame wasn't the turn's
    });
}

TEST(Idl1Vectors, TurnsThatAreFollowed)
{
    vectors::replay("o03_idl1_esfc_follow.json", "cases", [](const Value& c) {
        SlaveBench b;
        b.manager([&] { slave::esfcFollowState().lastEsfc = c["lastEsfc"].get<u32>(); });
        for (const Value s : c["steps"]) {
            SCOPED_TRACE(s);
            b.manager([&] { KvdLoz6TuReg_setLastTime(num(s["t_c_last"]), 0.0); });
            b.bfnIn({0, 5, 1000}, 0, 5, {0, s["e_sfc"].get<u32>(), 3, 0, 0, 1});
            b.interrupt();
            const double moved = b.meas().t_c_last - num(s["t_c_last"]);
            const Value adjust = s["adjustTime"];
            adjust.read();
            EXPECT_EQ(moved, adjust.is_null() ? 0.0 : num(adjust[0]));
            const auto follow = b.get<slave::EsfcFollow>([] { return slave::esfcFollowState(); });
            vectors::expectAll({{"lastEsfc", follow.lastEsfc}, {"updateEsfc", follow.updateEsfc}}, s);
        }
    });
}

TEST(Idl2Vectors, PhaseFromTheDelays)
{
    vectors::replay("o03_idl2_phase.json", "cases", [](const Value& c) {
        const slave::DelayWords master = words(c, "masterDu"), own = words(c, "slaveDu");
        expectClose("master's", slave::singleMeasurement(master), c["singleMeasMasterDu"], 1e-14);
        expectClose("slave's", slave::singleMeasurement(own), c["singleMeasSlaveDu"], 1e-14);
        const double phase = slave::phaseDifference(master, own);
        // Of two equal ones either may be taken for the smaller.
        if (c.contains("alt") && phase == num(c["alt"])) c["phaseDiff"].read();
        else expectClose("phase", phase, c["phaseDiff"], 1e-14);
    });
    EXPECT_GT(slave::phaseDifference({0, 0, 0, 9}, {0, 0, 0, 9}), 0.0) << "of two equal ones the slave's";
}

TEST(Idl2Vectors, CoarseStage)
{
    vectors::replay("o03_idl2_coarse.json", "cases", [](const Value& c) {
        SlaveBench b;
        b.putRun(triple(c["counter"]));
        b.manager([&] { KvdLoz6TuReg_setLastTime(num(c["t_c_last"]), 0.0); });
        KvdTuiifIdl2SyncDataInd ind = bench::stableData();
        const double phaseDiff = num(c["phaseDiff"]);
        const slave::DelayWords master = wordsOf(-phaseDiff);
        b.own.delay = wordsOf(phaseDiff);
        ind.delayT1C1High = master.T1C1High, ind.delayT1C1Low = master.T1C1Low;
        ind.delayC4T1High = master.C4T1High, ind.delayC4T1Low = master.C4T1Low;
        ind.esfc = c["esfc"].get<u32>(), ind.mfc = c["mfc"].get<u32>();
        b.bus.traces.clear();
        EXPECT_EQ(b.syncData(ind), 1);
        const std::string what = "adjust_time: t_c, t_f: ";
        const auto line = std::find_if(b.bus.traces.begin(), b.bus.traces.end(), [&](const auto& t) {
            return t.second.find(what) != std::string::npos;
        });
        ASSERT_NE(line, b.bus.traces.end());
        double t_c = 0, t_f = 0;
        const char* numbers = line->second.c_str() + line->second.find(what) + what.size();
        ASSERT_EQ(std::sscanf(numbers, "%lf , %lf", &t_c, &t_f), 2) << numbers;
        expectNear("step", t_c + t_f, num(c["adjustTime"][0]) + num(c["adjustTime"][1]), {0.0, 1e-9});
        const double counter = tuHwIf_sfcToIncrements(0, c["counter"][1], c["counter"][2]) / 122880000.0;
        expectNear("after the wrap", slave::neutralizeWraparound(phaseDiff, counter, 40.96),
                   num(c["phaseDiffAfter"]), {0.0, 1e-9});
        EXPECT_EQ(b.idl2().idl2FineTuning, 1u);
        EXPECT_EQ(b.meas().delta0_slave_c + b.meas().delta0_slave_f, 0.0);
    });
}

/// What of the file's events shows at the bench's neighbours; the others show in the state.
json shown(const json& events, std::size_t& records)
{
    static const std::set<std::string> SHOWN = {"idpi", "slavePll", "unableToTimeLock", "report"};
    static const std::set<std::string> OTHERS = {"cancel", "resetSfcLoad", "coarse", "store", "historyKeep",
                                                 "storeTime", "history", "snapshot", "timer"};
    json kept = json::array();
    records = 0;
    for (const json& e : events) {
        if (SHOWN.contains(e.at(0))) kept.push_back(e);
        else if (!OTHERS.contains(e.at(0))) ADD_FAILURE() << "no replay of the event " << e;
        records += e.at(0) == "history" ? 1 : 0;
    }
    return kept;
}

/// Module state that a step is given before its signal.
void setBefore(SlaveBench& b, const Value& in)
{
    const std::map<std::string, std::function<void(u32)>> SETTERS = {
        {"set_idpi", [](u32 v) { KvdLoz6SlaveWarm_setIdpiClkStatus(static_cast<u8>(v)); }},
        {"set_restartFlag", [](u32 v) { regulator::state().idl2LinkRestart = v; }},
        {"set_cntr", [](u32 v) { KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(v); }},
        {"set_pll", [&](u32 v) { b.loopState = v; }},
        {"set_ongoing", [&](u32 v) { b.timeTuning = v; }},
        {"set_stopped", [](u32 v) { slave::idl2State().idl2SyncDataStopped = v; }}};
    for (const auto& [key, value] : in.items())
        if (key.starts_with("set_")) vectors::rowOf(SETTERS, key)(value.get<u32>());
}

KvdTuiifIdl2SyncDataInd dataOf(SlaveBench& b, const Value& in)
{
    KvdTuiifIdl2SyncDataInd ind = bench::stableData();
    ind.jumpPend = in.value("jumpPend", 0u);
    ind.jumpInd = in.value("jumpInd", 0u);
    ind.directConn = in.value("direct", 1u);
    ind.intermediaryDuFineTimeSynching = in.value("interFine", 0u);
    ind.linkStability = in.value("feStable", u8{1});
    b.own.linkStability = in.value("neStable", u8{1});
    if (in.contains("pll")) b.loopState = in["pll"].get<u32>();
    return ind;
}

void flowStep(SlaveBench& b, const Value& s)
{
    const Value in = s["in"];
    b.events = json::array();
    b.sent.clear();
    u32 recordsBefore = 0;
    b.manager([&] {
        setBefore(b, in);
        KvdLoz6TuRef_startIdl2SyncDataTimer();
        recordsBefore = slave::history().idl2.next;
    });
    EXPECT_EQ(b.syncData(dataOf(b, in)), s["result"].get<int>());
    for (const auto& r : b.reports()) b.events.push_back({"report", r.fineTimeSync});
    std::size_t records = 0;
    EXPECT_EQ(b.events, shown(s["events"].read(), records));
    const slave::Idl2State is = b.idl2();
    vectors::expectAll({{"idl2FineTuning", is.idl2FineTuning}, {"postponeTimeTuning", is.postponeTimeTuning},
                        {"repeatFineSyncIndDueTojump", is.repeatFineSyncIndDueTojump},
                        {"instabilityCntFe", is.instabilityCntFe}, {"instabilityCntNe", is.instabilityCntNe},
                        {"stopped", is.idl2SyncDataStopped}, {"m", b.meas().m[Z_IDL2_LOZ6]},
                        {"idpiClkStatus", b.clkStatus()},
                        {"tmoCntr", b.get<u32>(KvdLoz6TuRef_idl2SyncDataIndTmoCntr)}}, s);
    b.manager([&] {
        EXPECT_FALSE(KvdLoz6TuRef_idl2SyncDataTimerRuns());
        EXPECT_EQ(slave::history().idl2.next - recordsBefore, records);
    });
}

TEST(Idl2Vectors, Flow)
{
    vectors::replay("o03_idl2_flow.json", "cases", [](const Value& c) {
        SlaveBench b;
        b.manager([&] {
            KvdLoz6SlaveWarm_setIdpiClkStatus(2);
            setBefore(b, c["init"]);
        });
        for (const Value s : c["steps"]) {
            SCOPED_TRACE(s);
            flowStep(b, s);
        }
    });
}

}  // namespace
