// Replay of the check values of registers, frequency, counters and the oscillator's EEPROM: a row is a call
// and what came of it, under the words of the file.
#include "base/kvd_math.h"
#include "hw/fake_bus.h"
#include "hw/kvd_hwif_mult_words.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_jump.h"
#include "sig/ref_types.h"
#include "socpri/kvd_socpri_inrsi_master_int.h"
#include "support/vectors.h"

using namespace hwtest;
using namespace hwif;
using nlohmann::json;
using vectors::Tolerance;
using vectors::Value;

namespace {

u32 u(const Value& v) { return static_cast<u32>(v.get<i64>()); }
u16 u16Of(const Value& v) { return static_cast<u16>(u(v)); }
double num(const Value& v) { return vectors::number(v); }

const json UNSEEN = "unseen";            // a result of the file that shows elsewhere, or nowhere
const json NOTHING = json::object();     // of a call whose effects alone are compared

/// A board; "case" of the file names one by its nominal values.
struct Board : Bench {
    NominalValues nominal{};

    Board(const std::string& name, u32 type) : Bench(name.empty() ? type : name == "type1" ? 1 : 2)
    {
        static const std::map<std::string, NominalValues> NOMINALS = {
            {"", {}}, {"isRev3", NOMINAL_REV3}, {"ext", NOMINAL_EXT_PHASE}, {"type2", NOMINAL_TYPE2},
            {"type1", NOMINAL_TYPE1}};
        nominal = NOMINALS.at(name);
        if (name.empty()) return;
        in([&] { setRev3(name == "isRev3" ? 1 : 0); });
        in([&] { setExtPhaseDetector(name == "ext" ? 1 : 0); });
    }
    FrequencyWords words(double rel, double wander = 0) const { return frequencyWords(nominal, rel, wander); }
};

u32 addressOf(u32 id) { return static_cast<u32>(tuHwIf_lookupRegister(id)); }
/// What a register holds; within the program.
u32& reg(Bench& b, u32 id) { return b.bus.memory[addressOf(id)]; }

/// The word that went to that register and nowhere else, null when nothing was written.
json written(Bench& b, u32 id)
{
    if (b.bus.writes.empty()) return nullptr;
    const auto& [address, word] = b.bus.writes[0];
    return b.bus.writes.size() > 1 || address != addressOf(id) ? json("other") : json(word);
}

/// The word of increments holds their double.
void expectWrites(Bench& b, const Value& wanted, u32 slack)
{
    const auto writes = b.takeWrites();
    ASSERT_EQ(writes.size(), wanted.size());
    for (std::size_t i = 0; i < writes.size(); ++i) {
        const u32 id = u(wanted[i][0]);
        EXPECT_EQ(writes[i].first, addressOf(id));
        EXPECT_NEAR(writes[i].second, u(wanted[i][1]), id == 14 ? 2 * slack : 0);
    }
}

std::string upTo(const std::string& text, char end) { return text.substr(0, text.find(end)); }

/// A text of the file, up to its first number, was traced as often as it stands there; a flag tells whether
/// the row's own text was.
void expectTrace(Bench& b, const Value& wanted, const char* own)
{
    if (wanted.is_boolean()) { EXPECT_EQ(b.bus.countOf(own) != 0, wanted.get<bool>()); }
    const json texts = wanted.is_array() ? wanted.read() : json::array({wanted.read()});
    for (const json& text : texts)
        if (text.is_string()) {
            EXPECT_EQ(b.bus.countOf(upTo(text, '%')), std::ranges::count(texts, text)) << text;
        }
}

void compare(Bench& b, const json& got, const Value& wanted, const json& slack, Tolerance tolerance,
             const char* own)
{
    for (const auto& [key, value] : wanted.items()) {
        SCOPED_TRACE(key);
        const json is = got.value(key, json("not told"));
        if (is == UNSEEN) value.read();
        else if (got.contains(key))
            vectors::expect(key, is, value, slack.contains(key) ? Tolerance{0, slack[key]} : tolerance);
        else if (key == "writes") expectWrites(b, value, slack.value("inc", 0u));
        else if (key.starts_with("trace")) expectTrace(b, value, own);
        else ADD_FAILURE() << "no such result";
    }
}

/// Of two readings of the file the one that is nearer; both count as read.
Value readingOf(const Value& step, const json& got)
{
    const Value out = step["out"];
    if (!step.contains("alt") || !step["alt"].is_object()) return out;
    bool isNearer = true;
    for (const auto& [key, value] : step["alt"].items()) {
        const json is = got.value(key, UNSEEN), here = value.read(), there = out.read().value(key, UNSEEN);
        if (!is.is_number() || !here.is_number() || !there.is_number()) continue;
        const double x = is;
        isNearer = isNearer && std::fabs(x - here.get<double>()) <= std::fabs(x - there.get<double>());
    }
    return isNearer ? step["alt"] : out;
}

using Call = std::function<json(Board&, const Value& in, const Value& step)>;
using Row = std::function<void(const Value&, const Value&)>;

/// Runs the call on a board, for one input or for a row of steps. `type` is of files that name no board.
Row on(u32 type, Call call, const char* ownTrace = "")
{
    return [=](const Value& v, const Value& g) {
        const Value init = v[v.contains("steps") ? "init" : "in"];
        const bool isNamed = init.contains("case") && !init["case"].is_null();
        Board board(isNamed ? init["case"].get<std::string>() : "",
                    init.contains("board") ? u(init["board"]) : type);
        if (v.contains("steps")) init.read();
        const auto run = [&](const Value& step) {
            SCOPED_TRACE(testing::Message() << step["in"]);
            for (const auto& [key, value] : step["in"].items())
                if (std::isdigit(static_cast<unsigned char>(key[0])) != 0 && !value.is_null())
                    reg(board, static_cast<u32>(std::stoul(key))) = u(value);
            board.bus.traces.clear();
            const json got = call(board, step["in"], step);
            for (const char* key : {"alt", "margin", "exact", "exact_half", "edge"})   // words on the vector
                if (step.contains(key)) step[key].read();
            const json slack = step.contains("tol_int") ? step["tol_int"].read() : json::object();
            compare(board, got, readingOf(step, got), slack, vectors::toleranceOf({step, v, g}), ownTrace);
        };
        board.in([&] {
            if (!v.contains("steps")) return run(v);
            for (const Value step : v["steps"]) run(step);
        });
    };
}

// ---- registers --------------------------------------------------------------------------------------------

json registerOf(Board&, const Value& in, const Value&)
{
    const u64 found = tuHwIf_lookupRegister(u(in["id"]));
    const bool failed = found >> 32 != 0;
    return {{"failed", failed}, {"address", failed ? json() : json(static_cast<u32>(found))}};
}

json bfnIn(Board&, const Value& in, const Value&)
{
    const BfnInWords w = unpackBfnIn(u(in["board"]), u(in["2"]), u(in["3"]));
    return {{"valid", w.valid}, {"parity", w.parityError}, {"extended", w.extended}, {"l_mfn", w.local.mfn},
            {"l_sfn", w.local.sfn}, {"l_inc", w.local.inc}, {"r_mfn", w.remoteMfn}, {"r_sfn", w.remoteSfn}};
}

json bfnExt(Board&, const Value& in, const Value&)
{
    const BfnExtended e = unpackBfnExtended(u(in["4"]), u(in["5"]));
    return {{"inc_diff", e.inc_diff}, {"e_sfc", e.e_sfc}, {"rc_state", e.rc_state}, {"jump", e.jump},
            {"cold", e.coldRestartFlag_tmp}, {"ms_flag", e.ms_flag}};
}

/// What each change makes of the register's first word.
json changes(Bench& b, u32 id, const std::map<std::string, std::function<void()>>& all)
{
    const u32 before = reg(b, id);
    json got = json::object();
    for (const auto& [name, change] : all) {
        reg(b, id) = before;
        change();
        got[name] = reg(b, id);
    }
    return got;
}

json gpsOutEnable(Board& b, const Value&, const Value&)
{
    const u32 enabled = tuHwIf_isGpsOutEnabled();
    json got = changes(b, 52, {{"on", [] { tuHwIf_enableGpsOut(1); }},
                               {"off", [] { tuHwIf_enableGpsOut(0); }},
                               {"externalPllOn", [] { enableExternalPll(); }}});
    got["isEnabled"] = enabled;
    return got;
}

json selectRef(Board& b, const Value& in, const Value&)
{
    const bool failed = tuHwIf_selectSynchRef(u(in["selector"])) != 0;
    return {{"failed", failed}, {"word", failed && reg(b, 52) == u(in["52"]) ? json() : json(reg(b, 52))}};
}

json frameSync(Board&, const Value& in, const Value&)
{
    static const std::map<std::string, void (*)(u32)> OPERATIONS = {
        {"setFsync", [](u32 v) { tuHwIf_setFsync(v); }},
        {"setFsyncInterval", [](u32 v) { tuHwIf_setFsyncInterval(v); }},
        {"setFsyncPattern", [](u32 v) { tuHwIf_setFsyncPattern(v); }},
        {"setFsyncAlignment", [](u32 v) { tuHwIf_setFsyncAlignment(v); }}};
    OPERATIONS.at(in["op"].get<std::string>())(u(in["value"]));
    return NOTHING;
}

json deltaSigmaWrite(Board& b, const Value& in, const Value&)
{
    tuHwIf_writeDeltaSigmaK(in["value"].get<i64>());
    return {{"high", reg(b, 78)}, {"low", reg(b, 79)},
            {"readsBack", b.bus.countOf("writeDeltaSigmaK failed for value") == 0}};
}

json nominalDivisor(Board& b, const Value& in, const Value&)
{
    if (in.contains("write")) tuHwIf_writeNominalDivisor(u(in["write"]));
    else                      reg(b, 75) = u(in["word"]);
    return {{"word", reg(b, 75)}, {"read", tuHwIf_readNominalDivisor()}};
}

/// The numbers from 1 to 4 of which a trace tells.
json numbersTraced(Bench& b, const std::string& before, const std::string& after)
{
    json all = json::array();
    for (u32 n = 1; n <= 4; ++n)
        if (b.bus.countOf(before + std::to_string(n) + after) == 1) all.push_back(n);
    return all;
}

json checkedWrite(Board& b, const Value& in, const Value&)
{
    const u32 at = addressOf(75), good = in["goodRead"].is_null() ? 99 : u(in["goodRead"]);
    b.bus.onRead[at] = [&b, at, good](u32 stored) { return b.bus.reads[at] >= good ? stored : 0; };
    const ose::Time before = b.world.now();
    tuHwIf_writeNominalDivisor(705);
    return {{"writes", b.bus.writes.size()}, {"reads", b.bus.reads[at]},
            {"delays", (b.world.now() - before) / (10 * ose::MS)},
            {"failedTraces", numbersTraced(b, "writeNominalDivisor failed ", " times")},
            {"levelOneTrace", b.bus.levelOf("writeNominalDivisor failed for value") == 1}};
}

json phaseDetectorOfTheBoard(Board& b, const Value& in, const Value&)
{
    for (const char* name : {"bvqmodule", "productnumber", "productrevision"}) {
        if (in[name].is_null()) b.bus.parameters.erase(name);
        else                    b.bus.parameters[name] = in[name].get<std::string>();
    }
    return {{"flag", tuHwIf_checkExtPhaseDetector()}};
}

/// A counter as one of the readings gives it, with the fault that was traced.
json counter(Bench& b, int (*read)(u16&, u16&, u32&), bool isNullAfterFault = false)
{
    u16 mfn = 9, sfn = 9;
    u32 inc = 9;
    const int result = read(mfn, sfn, inc);
    json got = {{"result", result}, {"fault", nullptr}, {"mfn", mfn}, {"sfn", sfn}, {"inc", inc}};
    for (const char* field : {"MFC", "Increment"})
        if (b.bus.countOf(std::string(field) + " value out of range") > 0) got["fault"] = field;
    const bool isNull = result != 0 && isNullAfterFault && mfn + sfn + inc == 0;
    if (isNull) got["mfn"] = got["sfn"] = got["inc"] = nullptr;
    return got;
}

json runningCounter(Board& b, const Value&, const Value&)
{
    json got = counter(b, tuHwIf_readSfc);
    u16 frame = 9;
    double period = 9, time = 9, frameTime = 9;
    tuHwIf_readTime(period, time);
    tuHwIf_getSfnAndCorrespondingTime(frame, period, frameTime);
    got.update({{"period", period}, {"time", time}, {"sfnTime", frameTime}});
    if (got["result"] != 0 && frameTime == 0.0) got["sfnTime"] = nullptr;
    return got;
}

json latchedCounter(Board& b, const Value&, const Value&)
{
    json got = counter(b, tuHwIf_readGpsFc);
    double period = 9, time = 9;
    tuHwIf_readLatchedRefClock(period, time);
    got.update({{"period", period}, {"time", time}});
    return got;
}

// ---- frequency --------------------------------------------------------------------------------------------

double limitOf(const std::string& role)
{
    static const std::map<std::string, double> LIMITS = {
        {"master", frequencyLimit(1, TU_REF, 0)}, {"master SOCPRI", frequencyLimit(1, SOCPRI_REF, 0)},
        {"slave IDL 2", frequencyLimit(0, TU_REF, 1)}, {"slave IDL 1", frequencyLimit(0, TU_REF, 0)}};
    return LIMITS.at(role);
}

json nominal(Board& b, const Value&, const Value&)
{
    const NominalValues& n = b.nominal;
    return {{"nomDiv", n.nomDiv}, {"K", n.K}, {"M", n.M}, {"U_nom", b.words(0).U_nom},
            {"synthC", n.synthC != 0 ? json(n.synthC) : json()},
            {"divisorRegister", UNSEEN}};                            // of a cold start, see start_test.cpp
}

json adjustFrequency(Board& b, const Value& in, const Value&)
{
    in["nomDiv_old"].read();                     // the words don't hang on the ones before
    const FrequencyWords w = b.words(num(in["rel"]), num(in["wander"]));
    const bool isWritten = std::fabs(num(in["rel"])) <= limitOf(in["role"].get<std::string>());
    return {{"written", isWritten ? 1 : 0}, {"nomDivWrite", UNSEEN}, {"K", isWritten ? json(w.K) : UNSEEN},
            {"nomDiv_old", isWritten ? json(w.divisor) : UNSEEN}};
}

/// Of four readings one holds the ratio in every step: it is the ratio that is held.
void adjustFrequencyReach(const Value& v, const Value&)
{
    const Board b(v["init"]["case"].get<std::string>(), 2);
    v["init"].read();
    for (const Value step : v["steps"]) {
        const FrequencyWords w = b.words(num(step["in"]["rel"]), num(step["in"]["wander"]));
        const double U = num(step["U"]);
        EXPECT_LE(std::fabs(w.divisor + 1 + static_cast<double>(w.K) / 8e8 - U), 6e-12 * U) << step["in"];
        for (const char* key : {"out", "alt", "margin"})
            if (step.contains(key)) step[key].read();
    }
}

json readCurrentFrequency(Board& b, const Value& in, const Value&)
{
    const i64 K = in["K"].get<i64>(), M = in["M"].get<i64>();
    return {{"rel", currentFrequency(b.nominal, u(in["divisorRegister"]), K, M)}};
}

json relativeNominalOffset(Board& b, const Value& in, const Value&)
{
    const i64 fixed = std::llround(num(in["coeff0"]) * 4294967296.0);
    reg(b, 57) = static_cast<u32>(fixed >> 32);
    reg(b, 58) = static_cast<u32>(fixed);
    return {{"rel", tuHwIf_relativeNominalOffset()}};
}

/// Of the words that a link had left to those that it found.
json deltaFrequency(Board&, const Value& in, const Value&)
{
    const auto words = [&](const std::string& n) {
        inrsi::master::SynthesiserCopy c{};
        c.integerPart = u(in["a" + n]) - 1;      // as the register holds it
        c.numerator = in["b" + n].get<i64>();
        c.denominator = in["c" + n].get<i64>();
        return c;
    };
    auto unread = words("0");
    unread.denominator = 0;
    EXPECT_EQ(inrsi::master::relativeChange(unread, words("1")), 0.0);
    EXPECT_EQ(inrsi::master::relativeChange(words("1"), unread), 0.0);
    return {{"deltaFreq", inrsi::master::relativeChange(words("1"), words("0"))}};
}

/// A step is the generator's own timer, which is waited for; the others are orders.
json wander(Board& b, const Value& in, const Value& step)
{
    constexpr u32 STEP = 2;
    constexpr OSTIME LONGER_THAN_ANY_ms = 1'000'000;
    in["time"].read();
    control::state().var.U[1] = num(in["U1"]);
    if (in["op"] != STEP) orderWander(u(in["op"]), num(in["f"]), num(in["a"]), num(in["o"]));
    else {
        Signal* sig = ose::receive_w_tmo(LONGER_THAN_ANY_ms, ose::ANY_SIGNAL);
        if (sig == nullptr) throw std::runtime_error("no timer runs");
        EXPECT_EQ(tuHwIf_dispatch(sig), 1);
        ose::free_buf(&sig);
        for (const char* key : {"f", "a", "o"}) in[key].read();
    }
    const double rel = num(in["U1"]) / b.words(0).U_nom - 1;
    const bool isRelTold = !step["out"]["rel"].is_null();
    json K = isRelTold ? json() : UNSEEN;
    if (isRelTold && std::fabs(rel) <= limitOf("master")) K = reg(b, 79);
    const Value interval = step["out"]["interval"];
    const bool runs = wanderState().timerRuns != 0 && !interval.is_null();
    const u32 running = runs ? wanderInterval(num(in["f"])) : 0;
    return {{"offset", tuHwIf_wanderOffset()}, {"index", wanderState().index},
            {"active", wanderState().active}, {"interval", interval.is_null() ? UNSEEN : json(running)},
            {"rel", isRelTold ? json(rel) : UNSEEN}, {"K", K}};
}

/// A run to the generator's own end, which takes longer than a call may.
void wanderEnd(const Value& v, const Value&)
{
    const Value in = v["in"];
    const double f = num(in["f"]), a = num(in["a"]), o = num(in["o"]);
    const u32 interval = wanderInterval(f);
    EXPECT_EQ(interval, u(in["interval"]));
    u32 adjustments = 1, lastStep_ms = 0;
    bool isDone = false;
    Bench bench(1);
    bench.system.launch(*bench.block, "wander", 15, [&] {
        orderWander(1, f, a, o);
        while (Signal* sig = ose::receive_w_tmo(2 * interval, ose::ANY_SIGNAL)) {
            EXPECT_EQ(tuHwIf_dispatch(sig), 1);
            ose::free_buf(&sig);
            ++adjustments;
            lastStep_ms = ose::get_ticks();
        }
        vectors::expectAll({{"adjustments", adjustments}, {"lastTime", lastStep_ms / 1000},
                            {"index", wanderState().index}}, v["out"]);
        isDone = true;
    });
    EXPECT_TRUE(bench.world.runUntilTrue([&] { return isDone; }, 900'000 * ose::SEC));
}

// ---- counters ---------------------------------------------------------------------------------------------

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
    if (!in["region"].is_null()) data = {u(in["region"][0]), u(in["region"][1]), 0};
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

// ---- oscillator -------------------------------------------------------------------------------------------

json voltsOfTemperature(Board&, const Value& in, const Value&)
{
    double volts = -9;
    const int result = temperatureVolts(u(in["word"]), in["isRev3"] == 1, volts);
    return {{"result", result}, {"volts", volts == -9 ? json() : json(volts)}};
}

json coeffPlain(Board& b, const Value& in, const Value&)
{
    for (u32 i = 0; i < in["regs"].size(); ++i) reg(b, u(in["regs"][i])) = u(in[i == 0 ? "high" : "low"]);
    in.read();
    return {{"value", tuHwIf_readOcxoCoeff(u(in["index"]))}};
}

json coeffLimits(Board&, const Value& in, const Value&)
{
    in["regs"].read();                           // as in coeffPlain
    return {{"value", temperatureLimit(in["part"].get<std::string>().c_str(), u(in["index"]),
                                       coefficient(u(in["high"]), u(in["low"])))}};
}

json eepromChecksum(Board& b, const Value& in, const Value&)
{
    putBlock(b.bus, BASE_2B, vectors::bytes(in["block"]));
    const int result = tuHwIf_validateOcxoEeprom();
    return {{"valid", result == 0 ? 1 : 0}, {"result", result == 0 ? json(0) : json("nonzero")},
            {"calculated", UNSEEN}, {"provided", UNSEEN},
            {"allZeroTrace", b.bus.countOf("All values are zero") != 0}};
}

/// Each read of the EEPROM block is done at once, has a bad checksum, or never ends.
json eepromRetries(Board& b, const Value& in, const Value&)
{
    constexpr u32 COPY_DONE = 2, CONTROL = BASE_2B + 0x14;
    const auto reads = in["reads"].get<std::vector<std::string>>();
    u32 attempts = 0;
    b.bus.onWrite[CONTROL] = [&](u32) {
        const std::string how = reads.at(std::min<std::size_t>(attempts++, reads.size() - 1));
        if (how != "sum" && how != "good" && how != "timeout") throw std::runtime_error("no read " + how);
        std::vector<u8> block(128, 0);
        block[0] = 3, block[127] = how == "sum" ? 2 : 3;             // version 3 and its sum
        putBlock(b.bus, BASE_2B, block);
        b.bus.memory[CONTROL] = how == "timeout" ? 0 : COPY_DONE;
    };
    const int result = startOcxo();
    return {{"result", result}, {"attempts", attempts},
            {"failedTraces", numbersTraced(b, "after reading OCXO data ", " times")}};
}

json serialAndPart(Board& b, const Value& in, const Value& v)
{
    putBlock(b.bus, BASE_2B, vectors::bytes(in["block"]));
    char serial[18], part[12];
    u8 version = 0, maker = 0;
    const int result = tuHwIf_readOcxoSerial(serial, version, maker);
    tuHwIf_readOcxoPartNum(part);
    json got = {{"result", result}, {"part", UNSEEN}, {"text", UNSEEN}, {"version", UNSEEN},
                {"manufacturer", UNSEEN}};
    if (v["out"].contains("part") && v["out"]["part"].is_string()) got["part"] = part;
    if (result == 0) got.update({{"text", serial}, {"version", version}, {"manufacturer", maker}});
    return got;
}

void putDate(Bench& b, const Value& in)
{
    constexpr std::ptrdiff_t DATE_AT = 88;
    std::vector<u8> block(128, 0);
    std::ranges::copy(in["text"].get<std::string>(), block.begin() + DATE_AT);
    putBlock(b.bus, BASE_2B, block);
}

json calibrationDate(Board& b, const Value& in, const Value&)
{
    putDate(b, in);
    std::tm date{};
    json got = {{"ok", 0}, {"year", UNSEEN}, {"month", UNSEEN}, {"day", UNSEEN}};
    if (tuHwIf_readOcxoCalibDate(date) == 0)
        got = {{"ok", 1}, {"year", date.tm_year + 1900}, {"month", date.tm_mon + 1}, {"day", date.tm_mday}};
    return got;
}

json isCalibrated(Board& b, const Value& in, const Value&)
{
    putDate(b, in);
    b.bus.now.seconds = in["now"].get<i64>();
    return {{"valid", tuHwIf_isCalibrated() != 0 ? 1 : 0}, {"days", UNSEEN}};    // valid for 365
}

/// A call that needs no more than its input.
Call of(json (*call)(const Value& in))
{
    return [call](Board&, const Value& in, const Value&) { return call(in); };
}

void replay(const char* file, const vectors::Groups& rows, const std::set<std::string>& elsewhere = {})
{
    vectors::Document document(file);
    vectors::eachGroup(document["groups"], rows, elsewhere);
}

json gpsOutCounter(Board& b, const Value&, const Value&) { return counter(b, tuHwIf_readGpsOutSfc, true); }
json gpsOutOffset(Board& b, const Value& in, const Value&)
{
    const int result = tuHwIf_adjustGpsOutOffset(u(in["frames"]), u(in["inc"]));
    return {{"failed", result != 0}, {"word", written(b, 27)}};
}
json isrEnable(Board& b, const Value& in, const Value&)
{
    const u32 mask = u(in["mask"]);
    return changes(b, 10, {{"enabled", [=] { EXPECT_EQ(tuHwIf_enableIsr(mask), 0); }},
                           {"disabled", [=] { tuHwIf_disableIsr(mask); }}});
}
json isrPending(Board& b, const Value&, const Value&)
{
    const u32 word = tuHwIf_readPendingIsr();
    return {{"pending", word}, {"writeBack", written(b, 11)}};
}
json toggleStatus(Board& b, const Value& in, const Value&)
{
    reg(b, 50) = u(in["raw"]);
    return {{"word", HALI_readToggleStatus()}};
}
json bfnOut(const Value& in)
{
    tuHwIf_writeBfnOutPacked(u(in["inc_diff"]), u(in["e_sfc"]), u(in["rc_state"]), u(in["jump"]),
                             u(in["cold"]), u(in["ms_flag"]));
    return NOTHING;
}
json stepLoad(const Value& in)
{
    return tuHwIf_adjustSfc(u16Of(in["mfn"]), u16Of(in["sfn"]), u(in["inc"])), NOTHING;
}
json extSfcLoad(const Value& in) { return tuHwIf_adjustExtSfc(u(in["e"])), NOTHING; }
json loadSfc(const Value&) { return {{"result", tuHwIf_loadSfc()}}; }
json resetSfcLoad(const Value&) { return tuHwIf_resetSfcLoadRegisters(), NOTHING; }
json deltaSigma(const Value& in) { return {{"value", deltaSigmaValue(u(in["high"]), u(in["low"]))}}; }
json deltaSigmaEnable(const Value&) { return tuHwIf_enableDeltaSigma(), NOTHING; }
json status(const Value& in) { return {{"status", synthStatus(u(in["74"]))}}; }
json isLoaded(const Value&) { return {{"loaded", tuHwIf_isEepromLoaded()}}; }
json revision(const Value& in)
{
    const u32 word = u(in["word"]);
    return {{"isRev3", isRevision3(word)}, {"checkedSequence", hasMultiplicatorReadBack(word)}};
}
json gain(const Value& in) { return {{"gain", tuHwIf_calcOcxoGain(num(in["U"]))}}; }
json nearest(const Value& in) { return {{"n", KvdLoz6Math_roundHalfDown(num(in["x"]))}}; }
json isOver(const Value& in) { return {{"r", tuHwIf_isOverOneIncrement(num(in["a"]), num(in["b"]))}}; }
json interval(const Value& in) { return {{"interval", wanderInterval(num(in["f"]))}}; }

}  // namespace

TEST(CheckValues, Registers)
{
    replay("o01_registers.json",
        {{"registerTable", on(0, registerOf)},
         {"registerLookupFailures", on(0, registerOf, "Unable to look up register=")},
         {"runningCounter", on(0, runningCounter)}, {"latch1pps", on(0, latchedCounter)},
         {"gpsOutCounter", on(0, gpsOutCounter)}, {"gpsOutOffset", on(0, gpsOutOffset)},
         {"stepLoad", on(0, of(stepLoad))}, {"extSfcLoad", on(0, of(extSfcLoad))},
         {"loadSfc", on(2, of(loadSfc))},
         {"resetSfcLoadRegisters", on(0, of(resetSfcLoad), "unsupported hw")},
         {"bfnOut", on(1, of(bfnOut))}, {"bfnIn", on(0, bfnIn)}, {"bfnExt", on(1, bfnExt)},
         {"toggleStatus", on(0, toggleStatus)}, {"isrEnable", on(0, isrEnable)},
         {"isrPending", on(0, isrPending)}, {"selectRef", on(0, selectRef)},
         {"gpsOutEnable", on(2, gpsOutEnable)}, {"deltaSigma64", on(1, of(deltaSigma))},
         {"fsync", on(0, frameSync, "should only be used for BVQ3 boards.")},
         {"deltaSigmaWrite", on(1, deltaSigmaWrite)}, {"nominalDivisor", on(1, nominalDivisor)},
         {"checkedWrite", on(1, checkedWrite)}, {"deltaSigmaEnable", on(1, of(deltaSigmaEnable))},
         {"synthStatus", on(1, of(status))}, {"isEepromLoaded", on(1, of(isLoaded))},
         {"revision", on(1, of(revision))}, {"extPhaseDetector", on(0, phaseDetectorOfTheBoard)}});
}

TEST(CheckValues, Frequency)
{
    replay("o01_frequency.json",
        {{"nominal", on(2, nominal)}, {"adjustFrequency", on(2, adjustFrequency)},
         {"adjustFrequency_limits", on(2, adjustFrequency)}, {"nearest", on(2, of(nearest))},
         {"adjustFrequency_halves", on(2, adjustFrequency)},
         {"adjustFrequency_reach", adjustFrequencyReach},
         {"readCurrentFrequency", on(2, readCurrentFrequency)}, {"incrementComparison", on(2, of(isOver))},
         {"calcOcxoGain", on(2, of(gain), "division by 0!")},
         {"relativeNominalOffset", on(1, relativeNominalOffset)}, {"wander", on(2, wander)},
         {"wanderEnd", wanderEnd}, {"wanderInterval", on(2, of(interval))},
         {"deltaFreq", on(2, deltaFrequency)}});
}

TEST(CheckValues, Counters)
{
    replay("o01_counters.json",
        {{"adjustTime", on(0, adjustTime)}, {"adjustTimeChain", on(0, adjustTimeChain)},
         {"adjustGpsOutTime", on(0, adjustGpsOutTime)}, {"readGpsOutTime", on(2, readGpsOutTime)},
         {"resetGpsOutMsiMem", on(2, resetGpsOutMemory)}, {"readBfnIn", on(1, readBfnIn)},
         {"readBfnAll", on(1, readBfnAll)}});
}

TEST(CheckValues, Oscillator)
{
    replay("o01_ocxo.json",
        {{"temperatureVolts", on(2, voltsOfTemperature)}, {"coeffLimits", on(1, coeffLimits)},
         {"coeffPlain", on(1, coeffPlain, "OCXO has no such coeff")},
         {"eepromChecksum", on(2, eepromChecksum)}, {"eepromRetries", on(2, eepromRetries)},
         {"serialAndPart", on(2, serialAndPart)}, {"calibrationDate", on(2, calibrationDate)},
         {"isCalibrated", on(2, isCalibrated)}},
        {"readOcxoTemp_sequence", "temperatureLimits", "tempCoefficients", "coldDivider"});    // another's
}

/// FNV-1a over the two low bytes of each word: what the ICs are programmed with is a matter of their data
/// sheets, and a digit that slips shows nowhere else.
static u32 digest(std::span<const u32> words)
{
    u32 hash = 2166136261u;
    for (const u32 word : words)
        for (const u32 byte : {word >> 8 & 0xFF, word & 0xFF}) hash = (hash ^ byte) * 16777619u;
    return hash;
}

// No check values hold these.
TEST(Words, OfTheIcsAndWhichOfThemAreCompared)
{
    EXPECT_EQ(multiplicatorWords(0).size(), 112u);
    EXPECT_EQ(multiplicatorWords(1).size(), 53u);
    EXPECT_EQ(digest(multiplicatorWords(0)), 0xb2c9876u);
    EXPECT_EQ(digest(multiplicatorWords(1)), 0x14e5876eu);
    EXPECT_EQ(digest(PLL_IC_WORDS), 0x5eedd032u);
    for (const u32 index : {4u, 53u, 56u, 111u}) EXPECT_TRUE(isCheckedIndex(0, index)) << index;
    for (const u32 index : {3u, 54u, 55u, 112u}) EXPECT_FALSE(isCheckedIndex(0, index)) << index;
    for (const u32 index : {4u, 33u}) EXPECT_TRUE(isCheckedIndex(1, index)) << index;
    for (const u32 index : {6u, 34u}) EXPECT_FALSE(isCheckedIndex(1, index)) << index;
}

TEST(Words, HardwareMonitorTakesThreeBitsADetector)
{
    struct Case { u32 detector, value, before, after; };             // after 0: refused
    for (const Case& c : std::to_array<Case>({{0, 4, 0xFFFFFFFF, 0xFFFFFFFD}, {5, 2, 0, 0x00010000},
                                              {6, 3, 0, 0x00100000}, {6, 2, 0, 0}, {6, 5, 0, 0}, {7, 0, 0, 0},
                                              {0, 6, 0, 0}})) {
        u32 word = 0;
        EXPECT_EQ(hmWord(c.detector, c.value, c.before, word), c.after != 0) << c.detector << " " << c.value;
        if (c.after != 0) { EXPECT_EQ(word, c.after); }
    }
}
