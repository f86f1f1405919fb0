// Replay of the check values of counters: steps, the output's time, the BFN link.
#include "reg/kvd_reg_jump_int.h"
#include "tests/hw/values_bench.h"

using namespace hwtest;

namespace {

/// A step of `t` s as it was made, or as it would have been.
json stepped(Bench& b, u32 board, int result, double t)
{
    const Sfc step = stepOf(t);
    const u32 inc = b.bus.writes.empty() ? step.inc : reg(b, 14) >> (board == 2 ? 1 : 0);
    return {{"result", result}, {"mfn", step.mfn}, {"sfn", step.sfn}, {"inc", inc}};
}

json adjustTime(Board& b, const Value& in, const Value&)
{
    if (u(in["board"]) == 2) reg(b, 16) = u(in["loadDone"]);
    in["loadDone"].read();
    const int result = tuHwIf_adjustTime(num(in["ext_t"]), num(in["t"]));
    json got = stepped(b, u(in["board"]), result, num(in["t"]));
    if (u(in["board"]) == 0) got["mfn"] = got["sfn"] = got["inc"] = nullptr;
    return got;
}

/// The same from the pair by which local time moves.
json adjustTimeChain(Board& b, const Value& in, const Value&)
{
    if (u(in["board"]) == 2) reg(b, 16) = 1;
    KvdLoz6TuReg_adjust_time(num(in["d_c"]), num(in["d_f"]));
    const TimePair turns = jump::turnsOf(num(in["d_c"]), num(in["d_f"]));
    json got = stepped(b, u(in["board"]), b.bus.writes.empty() ? 0 : 1, turns.f);
    got["e"] = turns.c, got["f1024"] = turns.f;
    return got;
}

/// The output's counter stands there.
void putGpsOut(Bench& b, const Sfc& c, u32 board)
{
    reg(b, 25) = static_cast<u32>(c.mfn << 5 | c.sfn >> 7);
    reg(b, 26) = ((c.sfn & 0x7Fu) << 21 | c.inc) << (board == 2 ? 1 : 0);
}

json adjustGpsOutTime(Board& b, const Value& in, const Value& v)
{
    const Value t = in["triple"], x = v["out"]["x"];
    const Sfc counter{u16Of(t[0]), u16Of(t[1]), u(t[2])};
    const GpsOutStep step = gpsOutStep(counter, in["v"].get<i32>());
    putGpsOut(b, counter, u(in["board"]));
    EXPECT_EQ(tuHwIf_adjustGpsOutTime(in["v"].get<i32>()), 0);
    EXPECT_NEAR(step.x, u(x), 1);
    const bool isFlipped = v.contains("edge") && step.x != u(x);     // a frame or all of it
    if (!isFlipped) { EXPECT_NEAR(step.inc, u(v["out"]["inc"]), 1); }
    json got = {{"t_f_out", step.t_f_out}, {"t_f_diff", step.t_f_diff}, {"x", UNSEEN}, {"word", UNSEEN},
                {"frames", isFlipped ? UNSEEN : json(step.frames)}, {"inc", UNSEEN}};
    if (isFlipped) got["trace"] = UNSEEN;
    else           got["word"] = written(b, 27);
    return got;
}

json readGpsOutTime(Board& b, const Value& in, const Value& s)
{
    constexpr Sfc NONE{31, 0, 0};
    const bool isRead = !in["t"].is_null();
    putGpsOut(b, isRead ? Sfc{} : NONE, 2);
    double period = 0, time = 0;
    json got = {{"failed", tuHwIf_readGpsOutTime(period, time)}, {"period", period}};
    if (!isRead) {
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
    const json failed = numbersTraced(b, "attempt to read bfnIn failed ", " times");
    return {{"readResult", result}, {"valid", all.valid}, {"extended", all.extended}, {"inc", all.inc},
            {"e_sfc", all.e_sfc}, {"rc_state", all.rc_state}, {"jump", all.jump}, {"ms_flag", all.ms_flag},
            {"cold", all.coldRestartFlag_tmp}, {"mean", all.meanDifference},
            {"failCount", failed.empty() ? json(0) : failed[0]}};
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
