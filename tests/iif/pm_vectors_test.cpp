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
using vectors::Value;

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
    void step(const Value& step)
    {
        static const std::map<std::string, u32> FRO_TYPES = {{"SYNC", SYNC_PM_FROTYPE},
                                                             {"GPS", GPSSYNCREF_PM_FROTYPE}};
        mp().clearLog();
        node.traces().clear();
        reportsBefore = agent().records().size();
        if (step.contains("t") && step["t"].get<i64>() > static_cast<i64>(world.now() / ose::SEC))
            until(step["t"].get<double>());
        ev = step["ev"].get<std::string>();
        selected = selected || ev == "select";
        u32 froType = SYNC_PM_FROTYPE;
        if (step.contains("froType")) {
            // One that is neither is a number, or a word of its own.
            const json& word = step["froType"].read();
            constexpr u32 NEITHER = 3;
            if (word.is_number()) froType = word;
            else froType = FRO_TYPES.contains(word) ? FRO_TYPES.at(word) : NEITHER;
        }
        if (ev == "subscribe") {
            granularity = step["granularity"].get<u32>();
            subscribe(froType, granularity);
        } else if (ev == "unsubscribe") unsubscribe(froType);
        else if (ev == "current") askCurrent(froType);
        else if (ev == "push") inject(TmvPmaiPushInd{TMV_PMAI_PUSH_IND, step["seqNo"].get<u32>()});
        else if (ev == "clock") clockState(step["state"].get<u8>());
        else if (ev == "gps") gpsStatus(step["status"].get<u8>());
        else if (ev == "select") selectRegulatorRef(step["z"].get<u32>());
        else if (ev == "samples") samples(step);
        else throw std::runtime_error("no replay of the step \"" + ev + "\"");
        world.runUntil(world.now());
    }

    void samples(const Value& step)
    {
        const u64 T1 = step["T1"].get<u64>(), T3 = step["T3"].get<u64>();
        in([&] {
            for (const Value pair : step["pairs"])
                KvdLoz6TuPm_delaySample(T1, T1 + pair[0].get<i64>(), T3, T3 + pair[1].get<i64>());
        });
    }

    static json report(u32 froType, u32 suspect, const std::vector<i32>& values)
    {
        return {{"froType", froType}, {"suspect", suspect}, {"noOfPmAttr", values.size()}, {"attr", values}};
    }
    json reports()
    {
        json list = json::array();
        for (const sim::MpRecord& r : mp().log()) {
            if (r.sigNo == KVD_TUIIF_SUBSCRIBE_PM_CFM || r.sigNo == KVD_TUIIF_UNSUBSCRIBE_PM_CFM)
                list.push_back("CFM");
            if (r.sigNo != KVD_TUIIF_GET_CURRENT_PM_CFM) continue;
            const std::vector<i32> values = current();
            list.push_back(report(r.as<KvdTuiifGetCurrentPmCfm>()->froType, static_cast<u32>(values[0]),
                                  {values.begin() + 1, values.end()}));
        }
        for (std::size_t i = reportsBefore; i < agent().records().size(); ++i) {
            const sim::PmRecord& r = agent().records()[i];
            list.push_back(report(r.froType, r.suspectFlag, r.values));
        }
        return list;
    }
    /// The traces that the file may tell, and how often each came; the period is the last subscription's.
    json traced()
    {
        const std::string period = std::to_string(granularity);
        json list = json::array();
        const std::vector<std::string> texts = {
            "Don't count this state!", "Wrong seqNo!", "Wrong froType!", "Unknown state!",
            "Illegal granularity period on SynchMo " + period,
            "Illegal granularity period on SGpshMo " + period};
        for (const std::string& text : texts)
            for (std::size_t n = traces(text.c_str()); n > 0; --n) list.push_back(text);
        return list;
    }
    /// An array as the file has it: its entries up to the index, and none behind it.
    static json array(const PmWindows& windows, u32 index)
    {
        if (std::count(windows.begin(), windows.end(), -1) == 36) return "all -1";
        EXPECT_LE(index, windows.size());
        return std::vector<i32>(windows.begin(), windows.begin() + index);
    }

    void expect(const Value& out)
    {
        EXPECT_EQ(out["reports"], reports());
        const json wantedTraces = out["traces"].read();
        if (accounted) { EXPECT_EQ(traced(), wantedTraces); }
        accounted = accounted || ev == "clock" || ev == "push" || ev == "current";
        const PmSynchCounters c = look(KvdLoz6PmSynch_counters);
        EXPECT_EQ(out["timeCounters"], json(c.timeCounter));
        EXPECT_EQ(c.arrayIndex, out["index"].get<u32>());
        EXPECT_EQ(c.lowestDelay_us, vectors::number(out["lowest_us"]));
        const json arrays = {array(c.PmHighestDelayVarBest1Array, c.arrayIndex),
                             array(c.PmHighestDelayVarBest10Array, c.arrayIndex),
                             array(c.PmHighestDelayVarBest50Array, c.arrayIndex),
                             array(c.PmMaxDelayVariationArray, c.arrayIndex)};
        const json wantedArrays = out["arrays"].read();
        if (selected) { EXPECT_EQ(arrays, wantedArrays); }
        std::vector<i32> gps;
        for (u32 i = 0; i < 11; ++i) gps.push_back(look([i] { return KvdLoz6PmGps_count(i); }));
        EXPECT_EQ(out["gps"], gps);
    }

    u32 granularity = 0;
    std::string ev;
    std::size_t reportsBefore = 0;
    bool accounted = false, selected = false;
};

void delay(const Value& v)
{
    const auto T = v["in"]["T"].get<std::vector<std::string>>();
    const auto stamp = [&](std::size_t i) { return bench::hexNumber(T.at(i)); };
    const double delay = KvdLoz6PmSynch_delay(stamp(0), stamp(1), stamp(2), stamp(3));
    EXPECT_EQ(delay, vectors::number(v["out"]["delay"]));
}

void bin(const Value& v)
{
    const i32 got = KvdLoz6PmGps_counterOf(v["in"]["elapsed_s"].get<u32>());
    vectors::expectOut(v, "bin", got < 0 ? json() : json(got));
}

void sequence(const Value& v)
{
    Replay replay;
    const Value steps = v["in"]["steps"];
    for (std::size_t i = 0; i < steps.size(); ++i) {
        SCOPED_TRACE("step " + std::to_string(i) + " " + steps[i]["ev"].get<std::string>());
        replay.step(steps[i]);
        replay.expect(v["out"]["after"][i]);
    }
}

TEST(PmCheckValues, AreReproduced)
{
    const vectors::Kinds kinds = {{"delay", delay}, {"bins", bin}, {"sequence", sequence}};
    vectors::Document document("o05_pm.json");
    vectors::each(document["vectors"],
                  [&](const Value& v) { vectors::dispatch(kinds, v["kind"].get<std::string>(), v); });
}

}  // namespace
