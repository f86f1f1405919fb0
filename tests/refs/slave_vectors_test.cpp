// Replay of check values: words and phases of IDL1, delays, stages and flow of IDL2.
#include "slave_bench.h"
#include "support/vectors.h"

using bench::SlaveBench;
using vectors::json;

namespace {

bool isNear(double is, double should, double relative, double absolute)
{
    const double off = std::fabs(is - should);
    return off <= absolute || off <= relative * std::fabs(should);
}

regtest::Triple triple(const json& t) { return {t[0], t[1], t[2]}; }

slave::DelayWords words(const json& c, const std::string& unit)
{
    const json& t = c["T1C1_" + unit];
    const json& f = c["C4T1_" + unit];
    return {t[0], t[1], f[0], f[1]};
}

/// Delay words of a single measurement of `seconds`.
slave::DelayWords wordsOf(double seconds)
{
    const u64 ps = static_cast<u64>(std::llround(std::fabs(seconds) * 1e12));
    const u32 high = static_cast<u32>(ps >> 32), low = static_cast<u32>(ps);
    return seconds < 0 ? slave::DelayWords{0, 0, high, low} : slave::DelayWords{high, low, 0, 0};
}

}  // namespace

TEST(Idl1Vectors, WordBothWays)
{
    TU_LOAD_VECTORS(doc, "o03_idl1_word.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c.dump());
        const hwif::BfnExtended e{c["inc_diff"], c["e_sfc"],
                                  c["rc_state"], c["coldRestartFlag_tmp"],
                                  c["jump"],     c["ms_flag"]};
        const hwif::BfnOutWords w = hwif::packBfnExtended(e);
        EXPECT_EQ(w.word1, std::stoul(c["high"].get<std::string>(), nullptr, 16));
        EXPECT_EQ(w.word2, std::stoul(c["low"].get<std::string>(), nullptr, 16));
        const hwif::BfnExtended back = hwif::unpackBfnExtended(w.word1, w.word2);
        EXPECT_TRUE(back.inc_diff == e.inc_diff && back.e_sfc == e.e_sfc &&
                    back.rc_state == e.rc_state && back.jump == e.jump &&
                    back.ms_flag == e.ms_flag &&
                    back.coldRestartFlag_tmp == e.coldRestartFlag_tmp);
    }
}

TEST(Idl1Vectors, PhaseDifference)
{
    TU_LOAD_VECTORS(doc, "o03_idl1_diff.json");
    SlaveBench b;
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c.dump());
        b.bfnIn(triple(c["local"]), c["remote"][0], c["remote"][1], {c["inc_diff"], 0, 0, 0, 0, 1});
        BfnAll all{};
        b.in([&] { tuHwIf_readBfnInAll(all); });
        EXPECT_TRUE(isNear(all.meanDifference, c["mean_int_diff"], 1e-12, 1e-18));
        EXPECT_TRUE(isNear(all.meanDifference / 122880000.0, c["z"], 1e-12, 1e-18));
    }
}

TEST(Idl1Vectors, SideOfTheWrap)
{
    TU_LOAD_VECTORS(doc, "o03_idl1_slave_wrap.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c.dump());
        const regtest::Triple t = triple(c["counter"]);
        const double counter = tuHwIf_sfcToIncrements(static_cast<u16>(t.mfn),
                                                      static_cast<u16>(t.sfn), t.inc) /
                               122880000.0;
        EXPECT_TRUE(isNear(slave::neutralizeWraparound(c["z"], counter, 1024.0), c["zAfter"], 1e-12,
                           1e-18));
    }
}

TEST(Idl1Vectors, MasterEchoesAndRepeats)
{
    TU_LOAD_VECTORS(doc, "o03_idl1_master.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        SlaveBench b(1);
        b.edit([&](measure::State& m) {
            m.var.jump_idl1 = c["init"]["jump_idl1"];
            m.coldRestartFlag = c["init"]["cold"];
        });
        for (const json& s : c["steps"]) {
            SCOPED_TRACE(s.dump());
            const json& in = s["received"];
            const u32 flags = in.value("ok", 1) == 1 ? SlaveBench::VALID_WORD : 0;
            b.bfnIn({0, 5, 1000}, 0, 5, {77, 0, 7, in["cold"], in["jump"], 0}, flags);
            b.edit([&](measure::State&) { control::state().var.f_ix = in.value("f_ix", u8{5}); });
            b.set(7, 0xFFFFFFFF);
            b.interrupt();
            if (s["sent"].is_null()) {
                EXPECT_EQ(b.get(7), 0xFFFFFFFF);
            } else {
                EXPECT_EQ(b.sentWord().inc_diff, 1000u);
                EXPECT_EQ(b.sentWord().ms_flag, 1u);
                EXPECT_EQ(b.sentWord().jump, s["sent"]["jump"]);
                EXPECT_EQ(b.sentWord().coldRestartFlag_tmp, s["sent"]["coldRestartFlag_tmp"]);
            }
            EXPECT_EQ(b.meas().jump_idl1, s["jump_idl1"]);
            b.edit([&](measure::State& m) { EXPECT_EQ(m.coldRestartFlag, s["coldRestartFlag"]); });
        }
    }
}

TEST(Idl1Vectors, TurnsThatAreSent)
{
    TU_LOAD_VECTORS(doc, "o03_idl1_esfc_send.json");
    SlaveBench b(1);
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        slave::EsfcSend state;
        for (const json& s : c["steps"]) {
            u32 sent = 0;
            b.in([&] {
                sent = slave::esfcToSend(state, slave::turns(s[0]), s[2] == 1, s[1].get<u16>());
            });
            EXPECT_EQ(sent, s[3]) << s.dump();
        }
    }
}

TEST(Idl1Vectors, TurnsThatAreFollowed)
{
    TU_LOAD_VECTORS(doc, "o03_idl1_esfc_follow.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        SlaveBench b;
        b.manager([&] { slave::esfcFollowState().lastEsfc = c["lastEsfc"]; });
        for (const json& s : c["steps"]) {
            SCOPED_TRACE(s.dump());
            b.manager([&] { KvdLoz6TuReg_setLastTime(s["t_c_last"], 0.0); });
            b.bfnIn({0, 5, 1000}, 0, 5, {0, s["e_sfc"], 3, 0, 0, 1});
            b.interrupt();
            const double moved = b.meas().t_c_last - s["t_c_last"].get<double>();
            const json& adjust = s["adjustTime"];
            EXPECT_EQ(moved, adjust.is_null() ? 0.0 : adjust[0].get<double>());
            const auto follow = b.get<slave::EsfcFollow>([] { return slave::esfcFollowState(); });
            EXPECT_EQ(follow.lastEsfc, s["lastEsfc"]);
            EXPECT_EQ(follow.updateEsfc, s["updateEsfc"]);
        }
    }
}

TEST(Idl2Vectors, PhaseFromTheDelays)
{
    TU_LOAD_VECTORS(doc, "o03_idl2_phase.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c.dump());
        const slave::DelayWords master = words(c, "masterDu"), own = words(c, "slaveDu");
        EXPECT_TRUE(isNear(slave::singleMeasurement(master), c["singleMeasMasterDu"], 1e-12, 1e-14));
        EXPECT_TRUE(isNear(slave::singleMeasurement(own), c["singleMeasSlaveDu"], 1e-12, 1e-14));
        EXPECT_TRUE(isNear(slave::phaseDifference(master, own), c["phaseDiff"], 1e-12, 1e-14));
    }
}

TEST(Idl2Vectors, CoarseStage)
{
    TU_LOAD_VECTORS(doc, "o03_idl2_coarse.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c.dump());
        SlaveBench b;
        b.putRun(triple(c["counter"]));
        b.manager([&] { KvdLoz6TuReg_setLastTime(c["t_c_last"], 0.0); });
        KvdTuiifIdl2SyncDataInd ind = bench::stableData();
        const double phaseDiff = c["phaseDiff"];
        const slave::DelayWords master = wordsOf(-phaseDiff);
        b.own.delay = wordsOf(phaseDiff);
        ind.delayT1C1High = master.T1C1High, ind.delayT1C1Low = master.T1C1Low;
        ind.delayC4T1High = master.C4T1High, ind.delayC4T1Low = master.C4T1Low;
        ind.esfc = c["esfc"], ind.mfc = c["mfc"];
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
        const json& adjust = c["adjustTime"];
        EXPECT_NEAR(t_c + t_f, adjust[0].get<double>() + adjust[1].get<double>(), 1e-9);
        EXPECT_EQ(b.idl2().idl2FineTuning, 1u);
        EXPECT_EQ(b.meas().delta0_slave_c + b.meas().delta0_slave_f, 0.0);
    }
}

namespace {

/// What of the file's events shows at the bench's neighbours; the others show in the state.
json shown(const json& events, std::size_t& records)
{
    json kept = json::array();
    records = 0;
    for (const json& e : events) {
        if (e[0] == "idpi" || e[0] == "slavePll" || e[0] == "unableToTimeLock" || e[0] == "report")
            kept.push_back(e);
        records += e[0] == "history" ? 1 : 0;
    }
    return kept;
}

}  // namespace

TEST(Idl2Vectors, Flow)
{
    TU_LOAD_VECTORS(doc, "o03_idl2_flow.json");
    for (const json& c : doc["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        SlaveBench b;
        b.manager([] { KvdLoz6SlaveWarm_setIdpiClkStatus(2); });
        for (const json& s : c["steps"]) {
            SCOPED_TRACE(s.dump());
            const json& in = s["in"];
            b.events = json::array();
            b.sent.clear();
            u32 recordsBefore = 0;
            b.manager([&] {
                if (in.contains("set_idpi")) KvdLoz6SlaveWarm_setIdpiClkStatus(in["set_idpi"]);
                if (in.contains("set_restartFlag")) regulator::state().idl2LinkRestart = 1;
                if (in.contains("set_cntr")) KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(in["set_cntr"]);
                KvdLoz6TuRef_startIdl2SyncDataTimer();
                recordsBefore = slave::history().idl2.next;
            });
            KvdTuiifIdl2SyncDataInd ind = bench::stableData();
            ind.jumpPend = in.value("jumpPend", 0u);
            ind.jumpInd = in.value("jumpInd", 0u);
            ind.directConn = in.value("direct", 1u);
            ind.intermediaryDuFineTimeSynching = in.value("interFine", 0u);
            ind.linkStability = in.value("feStable", u8{1});
            b.own.linkStability = in.value("neStable", u8{1});
            EXPECT_EQ(b.syncData(ind), s["result"]);
            for (const auto& r : b.reports()) b.events.push_back({"report", r.fineTimeSync});
            std::size_t records = 0;
            EXPECT_EQ(b.events, shown(s["events"], records));
            const slave::Idl2State is = b.idl2();
            EXPECT_EQ(is.idl2FineTuning, s["idl2FineTuning"]);
            EXPECT_EQ(is.repeatFineSyncIndDueTojump, s["repeatFineSyncIndDueTojump"]);
            EXPECT_EQ(is.postponeTimeTuning, s["postponeTimeTuning"]);
            EXPECT_EQ(is.instabilityCntFe, s["instabilityCntFe"]);
            EXPECT_EQ(is.instabilityCntNe, s["instabilityCntNe"]);
            EXPECT_EQ(is.idl2SyncDataStopped, s["stopped"]);
            EXPECT_EQ(b.meas().m[Z_IDL2_LOZ6], s["m"]);
            EXPECT_EQ(b.clkStatus(), s["idpiClkStatus"]);
            b.manager([&] {
                EXPECT_EQ(KvdLoz6TuRef_idl2SyncDataIndTmoCntr(), s["tmoCntr"]);
                EXPECT_FALSE(KvdLoz6TuRef_idl2SyncDataTimerRuns());
                EXPECT_EQ(slave::history().idl2.next - recordsBefore, records);
            });
        }
    }
}
