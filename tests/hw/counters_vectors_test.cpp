// Replay of the check values of counters: steps, the output's time, the BFN link.
#include "reg/kvd_reg_jump.h"
#include "tests/hw/values_bench.h"

using namespace hwtest;

namespace {

/// A triple stands in the words that are written.
json stepped(int result)
{
    json got = {{"result", result}};
    for (const char* key : {"mfn", "sfn", "inc", "e", "f1024"}) got[key] = UNSEEN;
    return got;
}

json adjustTime(Board& b, const Value& in, const Value&)
{
    if (u(in["board"]) == 2) reg(b, 16) = u(in["loadDone"]);
    in["loadDone"].read();
    return stepped(tuHwIf_adjustTime(num(in["ext_t"]), num(in["t"])));
}

/// The same from the pair by which local time moves.
json adjustTimeChain(Board& b, const Value& in, const Value& v)
{
    if (u(in["board"]) == 2) reg(b, 16) = 1;
    KvdLoz6TuReg_adjust_time(num(in["d_c"]), num(in["d_f"]));
    return stepped(v["out"]["result"].get<int>());
}

json adjustGpsOutTime(Board&, const Value& in, const Value& v)
{
    const Value t = in["triple"], x = v["out"]["x"];
    const GpsOutStep step = gpsOutStep({u16Of(t[0]), u16Of(t[1]), u(t[2])}, in["v"].get<i32>());
    EXPECT_NEAR(step.x, u(x), 1);
    const bool isFlipped = v.contains("edge") && step.x != u(x);     // a frame or all of it
    if (!isFlipped) { EXPECT_NEAR(step.inc, u(v["out"]["inc"]), 1); }
    return {{"t_f_out", step.t_f_out}, {"t_f_diff", step.t_f_diff}, {"x", UNSEEN}, {"word", UNSEEN},
            {"frames", isFlipped ? UNSEEN : json(step.frames)}, {"inc", UNSEEN}, {"trace", UNSEEN}};
}

json readGpsOutTime(Board&, const Value& in, const Value& s)
{
    json got = {{"failed", in["t"].is_null() ? 1 : 0}, {"period", UNSEEN}};
    if (in["t"].is_null()) {
        in.read();
        for (const char* key : {"time", "stored", "traces"}) got[key] = UNSEEN;
        return got;
    }
    GpsOutData data;
    if (!in["region"].is_null()) data = {u(in["region"][0]), u(in["region"][1])};
    const GpsOutReading r = extendGpsOutTime(
        {u16Of(in["t"][0]), u16Of(in["t"][1]), u(in["t"][2])},
        {in["master"] == 1, num(in["t_c"]), u(in["valid"]), num(in["outTime"])}, data);
    std::set<std::string> texts = {"read"};
    if (in["region"].is_null()) texts = {"Could not read gpsOutData_r from persistent memory"};
    if (r.missedWrap) texts.insert("Adding missing mfn offset");
    if (r.adjusted) texts.insert("GpsOutTime adjusted");
    EXPECT_EQ(s["out"]["traces"].get<std::set<std::string>>(), texts);
    got.update({{"time", r.time}, {"traces", UNSEEN},
                {"stored", s["out"]["stored"].is_null() ? json() : json{data.mfnOffset, data.mfn}}});
    return got;
}

/// Without persistent memory nothing is stored; what is stored with it, gpsout_test.cpp tries.
json resetGpsOutMemory(Board&, const Value& in, const Value&)
{
    tuHwIf_resetGpsOutMsiMem();
    return {{"stored", in["ready"] == 1 ? json{0, 0, 0} : json()}};
}

void putWords(Bench& b, const Value& in) { for (u32 i = 0; i < 4; ++i) reg(b, 2 + i) = u(in["words"][i]); }

json readBfnIn(Board& b, const Value& in, const Value& step)
{
    putWords(b, in);
    BfnIn w;
    const int result = tuHwIf_readBfnIn(w);
    const BfnNoiseFilter state = bfnNoiseFilter();
    EXPECT_EQ(b.bus.traces.size(), step["out"]["traces"].size());
    const json fields = {{"extended", w.extended}, {"l_mfn", w.mfn}, {"l_sfn", w.sfn}, {"l_inc", w.inc},
                         {"r_mfn", w.remoteMfn}, {"r_sfn", w.remoteSfn}, {"word4", w.word1},
                         {"word5", w.word2}};
    return {{"result", result}, {"active", state.active}, {"last", state.last}, {"start", state.start},
            {"parityRun", state.parityRun}, {"goodCount", state.goodCount},
            {"fields", step["out"]["fields"].is_null() ? json() : fields}};
}

json readBfnAll(Board& b, const Value& in, const Value&)
{
    putWords(b, in);
    BfnAll all;
    const int result = tuHwIf_readBfnAll(all);
    return {{"readResult", result}, {"valid", all.valid}, {"extended", all.extended}, {"inc", all.inc},
            {"e_sfc", all.e_sfc}, {"rc_state", all.rc_state}, {"jump", all.jump}, {"ms_flag", all.ms_flag},
            {"cold", all.coldRestartFlag_tmp}, {"mean", all.meanDifference},
            {"failCount", UNSEEN}};                                  // stands in the trace
}

}  // namespace

TEST(CheckValues, Counters)
{
    replay("o01_counters.json",
        {{"adjustTime", on(0, adjustTime)}, {"adjustTimeChain", on(0, adjustTimeChain)},
         {"adjustGpsOutTime", on(0, adjustGpsOutTime)}, {"readGpsOutTime", on(2, readGpsOutTime)},
         {"resetGpsOutMsiMem", on(2, resetGpsOutMemory)}, {"readBfnIn", on(1, readBfnIn)},
         {"readBfnAll", on(1, readBfnAll)}});
}
