// Performance counters against an independent model's check values.
#include "iif/kvd_pm_gps.h"
#include "iif/kvd_pm_synch.h"
#include "sim/board/board.h"
#include "tests/iif/pm_bench.h"
#include "tests/support/vectors.h"

#include <algorithm>
#include <map>

namespace {

using vectors::json;

/// The file begins at a program's load, a replay behind the connection: a first clock state has
/// been told and no reference is selected. So the first accounting's trace and the arrays before
/// the first selection aren't compared.
struct Replay : bench::PmBench {
    Replay()
    {
        // Steps lie months apart; without ticks nothing happens between them.
        node.system().kill(node.system().find("Kvd_loz6_turefmon_proc"));
        node.board().powerOff();
    }
    void step(const json& step)
    {
        mp().clearLog();
        node.traces().clear();
        reportsBefore = agent().records().size();
        if (step.value("t", i64{0}) > world.now() / ose::SEC) until(step["t"].get<double>());
        ev = step["ev"];
        selected = selected || ev == "select";
        const u32 froType = step.value("froType", "SYNC") == "GPS" ? GPSSYNCREF_PM_FROTYPE
                                                                   : SYNC_PM_FROTYPE;
        if (ev == "subscribe") subscribe(froType, step["granularity"]);
        else if (ev == "unsubscribe") unsubscribe(froType);
        else if (ev == "current") askCurrent(froType);
        else if (ev == "push") inject(TmvPmaiPushInd{TMV_PMAI_PUSH_IND, step["seqNo"]});
        else if (ev == "clock") clockState(step["state"]);
        else if (ev == "gps") gpsStatus(step["status"]);
        else if (ev == "select") selectRegulatorRef(step["z"]);
        else if (ev == "samples") samples(step);
        else FAIL() << "unknown step " << ev;
        world.runUntil(world.now());
    }

    void samples(const json& step)
    {
        const u64 T1 = step["T1"], T3 = step["T3"];
        in([&] {
            for (const json& pair : step["pairs"])
                KvdLoz6TuPm_delaySample(T1, T1 + pair[0].get<i64>(), T3, T3 + pair[1].get<i64>());
        });
    }

    static json report(u32 froType, u32 suspect, const std::vector<i32>& values)
    {
        return {{"froType", froType}, {"suspect", suspect}, {"noOfPmAttr", values.size()},
                {"attr", values}};
    }
    json reports()
    {
        json list = json::array();
        for (const sim::MpRecord& r : mp().log()) {
            if (r.sigNo == KVD_TUIIF_SUBSCRIBE_PM_CFM || r.sigNo == KVD_TUIIF_UNSUBSCRIBE_PM_CFM)
                list.push_back("CFM");
            if (r.sigNo != KVD_TUIIF_GET_CURRENT_PM_CFM) continue;
            const std::vector<i32> values = current();
            list.push_back(report(r.as<KvdTuiifGetCurrentPmCfm>()->froType,
                                  static_cast<u32>(values[0]), {values.begin() + 1, values.end()}));
        }
        for (std::size_t i = reportsBefore; i < agent().records().size(); ++i) {
            const sim::PmRecord& r = agent().records()[i];
            list.push_back(report(r.froType, r.suspectFlag, r.values));
        }
        return list;
    }
    json traced()
    {
        json list = json::array();
        for (const char* text : {"Don't count this state!", "Wrong seqNo!", "Wrong froType!",
                                 "Unknown state!", "Illegal granularity period on SynchMo 299",
                                 "Illegal granularity period on SGpshMo 299"})
            for (std::size_t n = traces(text); n > 0; --n) list.push_back(text);
        return list;
    }
    /// An array as the file has it: its entries up to the index.
    static json array(const PmWindows& windows, u32 index)
    {
        if (std::count(windows.begin(), windows.end(), -1) == 36) return "all -1";
        return std::vector<i32>(windows.begin(), windows.begin() + index);
    }

    void expect(const json& out)
    {
        EXPECT_EQ(reports(), out["reports"]);
        if (accounted) {
            EXPECT_EQ(traced(), out["traces"]);
        }
        accounted = accounted || ev == "clock" || ev == "push" || ev == "current";
        const PmSynchCounters c = look(KvdLoz6PmSynch_counters);
        EXPECT_EQ(json(c.timeCounter), out["timeCounters"]);
        EXPECT_EQ(c.arrayIndex, out["index"].get<u32>());
        EXPECT_EQ(c.lowestDelay_us, vectors::number(out["lowest_us"]));
        const json arrays = {array(c.PmHighestDelayVarBest1Array, c.arrayIndex),
                             array(c.PmHighestDelayVarBest10Array, c.arrayIndex),
                             array(c.PmHighestDelayVarBest50Array, c.arrayIndex),
                             array(c.PmMaxDelayVariationArray, c.arrayIndex)};
        if (selected) {
            EXPECT_EQ(arrays, out["arrays"]);
        }
        std::vector<i32> gps;
        for (u32 i = 0; i < 11; ++i) gps.push_back(look([i] { return KvdLoz6PmGps_count(i); }));
        EXPECT_EQ(json(gps), out["gps"]);
    }

    std::string ev;
    std::size_t reportsBefore = 0;
    bool accounted = false, selected = false;
};

u64 stamp(const json& text) { return std::stoull(text.get<std::string>(), nullptr, 16); }

TEST(PmCheckValues, AreReproduced)
{
    TU_LOAD_VECTORS(document, "o05_pm.json");
    std::map<std::string, int> replayed;
    for (const json& v : document["vectors"]) {
        SCOPED_TRACE(v["id"].get<std::string>());
        const std::string kind = v["kind"];
        ++replayed[kind];
        if (kind == "delay") {
            const json& T = v["in"]["T"];
            EXPECT_EQ(KvdLoz6PmSynch_delay(stamp(T[0]), stamp(T[1]), stamp(T[2]), stamp(T[3])),
                      vectors::number(v["out"]["delay"]));
        } else if (kind == "bins") {
            const json& bin = v["out"]["bin"];
            EXPECT_EQ(KvdLoz6PmGps_counterOf(v["in"]["elapsed_s"]),
                      bin.is_null() ? -1 : bin.get<i32>());
        } else {
            Replay replay;
            const json& steps = v["in"]["steps"];
            for (std::size_t i = 0; i < steps.size(); ++i) {
                SCOPED_TRACE("step " + std::to_string(i) + " " + steps[i]["ev"].get<std::string>());
                replay.step(steps[i]);
                replay.expect(v["out"]["after"][i]);
            }
        }
    }
    for (const auto& [kind, count] : replayed) RecordProperty(kind, count);
    EXPECT_EQ(replayed["sequence"], 33);
}

}  // namespace
