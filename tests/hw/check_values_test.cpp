// Replay of the check values: frequency, counters and the oscillator's EEPROM.
#include "base/kvd_math.h"
#include "hw/check_values.h"
#include "hw/kvd_hwif_mult_words.h"
#include "reg/kvd_reg_control_int.h"
#include "reg/kvd_reg_jump.h"
#include "socpri/kvd_socpri_inrsi_master_int.h"

#include <gtest/gtest.h>

using namespace hwtest;

namespace {

// ---- frequency --------------------------------------------------------------------------------------------

void beBoardOf(const std::string& name)
{
    setRev3(name == "isRev3" ? 1 : 0);
    setExtPhaseDetector(name == "ext" ? 1 : 0);
}
u32 boardTypeOf(const std::string& name) { return name == "type1" ? 1 : 2; }

void nominal(const Value& v, const Value&)
{
    const NominalValues n = nominalOf(v["in"]["case"].get<std::string>());
    EXPECT_EQ(n.nomDiv, u(v["out"]["nomDiv"]));
    EXPECT_EQ(n.K, v["out"]["K"].get<i64>());
    EXPECT_EQ(n.M, v["out"]["M"].get<i64>());
    EXPECT_EQ(frequencyWords(n, 0, 0).U_nom, v["out"]["U_nom"].get<double>());
    v["out"]["divisorRegister"].read();      // written at a cold start, see start_test.cpp
    if (!v["out"]["synthC"].is_null()) {
        EXPECT_EQ(n.synthC, u(v["out"]["synthC"]));
    }
}

void adjustFrequency(const Value& v, const Value&)
{
    const Value in = v["in"];
    // Of two readings of K, the one by which the ratio holds.
    const Value out = v.contains("alt") ? v["alt"] : v["out"];
    for (const char* key : {"out", "margin", "exact_half"})
        if (v.contains(key)) v[key].read();
    const FrequencyWords w = frequencyWords(nominalOf(in["case"].get<std::string>()), num(in["rel"]),
                                            num(in["wander"]));
    const bool written = std::fabs(num(in["rel"])) <= limitOf(in["role"].get<std::string>());
    in["nomDiv_old"].read();                 // the words don't hang on the ones before
    EXPECT_EQ(written, out["written"] == 1);
    out.read();
    if (!written) return;
    const i64 slack = v.contains("tol_int") ? v["tol_int"]["K"].get<i64>() : 0;
    EXPECT_LE(std::llabs(w.K - out["K"].get<i64>()), slack) << w.K;
    EXPECT_EQ(w.divisor, num(out["nomDiv_old"]));
}

/// Of four readings one holds the ratio in every step: it is the ratio that is held.
void adjustFrequencyReach(const Value& v, const Value&)
{
    v["init"].read();
    for (const Value step : v["steps"]) {
        SCOPED_TRACE(step["in"].dump());
        const FrequencyWords w = frequencyWords(nominalOf(v["init"]["case"].get<std::string>()),
                                                num(step["in"]["rel"]), num(step["in"]["wander"]));
        const double U = num(step["U"]);
        EXPECT_LE(std::fabs(w.divisor + 1 + static_cast<double>(w.K) / 8e8 - U), 6e-12 * U);
        step.read();
    }
}

void nearest(const Value& v, const Value&)
{
    const double n = KvdLoz6Math_roundHalfDown(num(v["in"]["x"]));
    if (v.contains("alt") && n == num(v["alt"]["n"])) v["out"].read();
    else EXPECT_EQ(n, num(v["out"]["n"]));
    if (v.contains("alt")) v["alt"].read();
}

void readCurrentFrequency(const Value& v, const Value& g)
{
    near(currentFrequency(nominalOf(v["in"]["case"].get<std::string>()), u(v["in"]["divisorRegister"]),
                          v["in"]["K"].get<i64>(), v["in"]["M"].get<i64>()),
         v["out"]["rel"], toleranceOf({v, g}));
}

void calcOcxoGain(const Value& v, const Value&)
{
    const std::string name = v["in"]["case"].get<std::string>();
    Bench bench(boardTypeOf(name));
    double gain = 0;
    bench.in([&] {
        beBoardOf(name);
        gain = tuHwIf_calcOcxoGain(num(v["in"]["U"]));
    });
    EXPECT_EQ(gain, num(v["out"]["gain"]));
    EXPECT_EQ(bench.bus.countOf("division by 0!") != 0, v["out"]["trace"].get<bool>());
}

void incrementComparison(const Value& v, const Value&)
{
    EXPECT_EQ(
        tuHwIf_isOverOneIncrement(vectors::number(v["in"]["a"]), vectors::number(v["in"]["b"])),
        v["out"]["r"].get<int>() == 1);
}

void relativeNominalOffset(const Value& v, const Value& g)
{
    Bench bench(1);
    const i64 fixed = std::llround(v["in"]["coeff0"].get<double>() * 4294967296.0);
    bench.set(57, static_cast<u32>(fixed >> 32));
    bench.set(58, static_cast<u32>(fixed));
    double rel = 0;
    bench.in([&] { rel = tuHwIf_relativeNominalOffset(); });
    near(rel, v["out"]["rel"], toleranceOf({v, g}));
}

void intervalOfWander(const Value& v, const Value&)
{
    EXPECT_EQ(hwif::wanderInterval(vectors::number(v["in"]["f"])), u(v["out"]["interval"]));
}

/// Of the words that a link had left to those that it found.
void deltaFrequency(const Value& v, const Value& g)
{
    const Value in = v["in"];
    const auto words = [&](const std::string& n) {
        inrsi::master::SynthesiserCopy c{};
        c.integerPart = u(in["a" + n]) - 1;        // as the register holds it
        c.numerator = in["b" + n].get<i64>();
        c.denominator = in["c" + n].get<i64>();
        return c;
    };
    in["case"].read();
    near(inrsi::master::relativeChange(words("1"), words("0")), v["out"]["deltaFreq"], toleranceOf({v, g}));
}

// ---- wander -----------------------------------------------------------------------------------------------

constexpr u32 WANDER_STOP = 0, WANDER_START = 1, WANDER_STEP = 2;

/// A step is the generator's own timer, which is waited for; the others are orders.
void wanderEvent(const Value& in)
{
    const u32 op = in["op"].get<u32>();
    if (op != WANDER_STEP) return orderWander(op, num(in["f"]), num(in["a"]), num(in["o"]));
    constexpr OSTIME LONGER_THAN_ANY_ms = 1'000'000;
    Signal* sig = ose::receive_w_tmo(LONGER_THAN_ANY_ms, ose::ANY_SIGNAL);
    if (sig == nullptr) throw std::runtime_error("no timer runs");
    EXPECT_EQ(tuHwIf_dispatch(sig), 1);
    ose::free_buf(&sig);
}

void wander(const Value& v, const Value& g)
{
    const std::string name = v["init"]["case"].get<std::string>();
    const vectors::Tolerance tolerance = toleranceOf({v, g});
    v["init"].read();
    Bench bench(boardTypeOf(name));
    bench.in([&] {
        beBoardOf(name);
        for (const Value step : v["steps"]) {
            SCOPED_TRACE(step["in"].dump());
            const Value in = step["in"], out = step["out"];
            in["time"].read();
            control::state().var.U[1] = num(in["U1"]);
            bench.bus.traces.clear();
            wanderEvent(in);
            near(tuHwIf_wanderOffset(), out["offset"], tolerance);
            EXPECT_EQ(wanderState().index, u(out["index"]));
            EXPECT_EQ(wanderState().active, u(out["active"]));
            if (!out["interval"].is_null()) {
                EXPECT_EQ(hwif::wanderInterval(num(in["f"])), u(out["interval"]));
                EXPECT_EQ(wanderState().timerRuns, 1u);
            }
            for (const Value text : out["traces"]) expectTraced(bench, text);
            if (out["rel"].is_null()) continue;
            const double rel = num(in["U1"]) / frequencyWords(nominalOf(name), 0, 0).U_nom - 1;
            near(rel, out["rel"], tolerance);
            if (out["K"].is_null()) {
                EXPECT_GT(std::fabs(rel), limitOf("master"));
                continue;
            }
            const i64 slack = step.contains("tol_int") ? step["tol_int"]["K"].get<i64>() : 0;
            const i64 K = frequencyWords(nominalOf(name), rel, tuHwIf_wanderOffset()).K;
            EXPECT_LE(std::llabs(K - out["K"].get<i64>()), slack);
        }
        orderWander(WANDER_STOP, 0, 0, 0);
    });
}

/// A run to the generator's own end.
void wanderEnd(const Value& v, const Value&)
{
    const Value in = v["in"], out = v["out"];
    const double f = num(in["f"]), a = num(in["a"]), o = num(in["o"]);
    const u32 interval = hwif::wanderInterval(f);
    EXPECT_EQ(interval, u(in["interval"]));
    u32 adjustments = 1, lastStep_ms = 0;
    bool done = false;
    Bench bench(1);
    bench.system.launch(*bench.block, "wander", 15, [&] {
        orderWander(WANDER_START, f, a, o);
        while (Signal* sig = ose::receive_w_tmo(2 * interval, ose::ANY_SIGNAL)) {
            EXPECT_EQ(tuHwIf_dispatch(sig), 1);
            ose::free_buf(&sig);
            ++adjustments;
            lastStep_ms = ose::get_ticks();
        }
        expectFields(out, {{"adjustments", adjustments}, {"lastTime", lastStep_ms / 1000},
                           {"index", wanderState().index}});
        done = true;
    });
    EXPECT_TRUE(bench.world.runUntilTrue([&] { return done; }, 900'000 * ose::SEC));
}

// ---- counters ---------------------------------------------------------------------------------------------

/// Writes of a step of the counters; an increment either way where the vector grants it.
void expectStep(Bench& bench, const Value& v)
{
    const std::vector<std::pair<u32, u32>> wanted = expected(bench, v["out"]["writes"]);
    const std::vector<std::pair<u32, u32>> written = bench.takeWrites();
    const u32 slack = v.contains("tol_int") ? v["tol_int"]["inc"].get<u32>() : 0;
    ASSERT_EQ(written.size(), wanted.size());
    for (std::size_t i = 0; i < written.size(); ++i) {
        EXPECT_EQ(written[i].first, wanted[i].first);
        const i64 off = static_cast<i64>(written[i].second) - wanted[i].second;
        const bool isIncrement = wanted[i].first == bench.address(14);
        EXPECT_LE(std::llabs(off), isIncrement ? 2 * slack : 0) << std::hex << written[i].second;
    }
    expectTraced(bench, v["out"]["trace"]);
}

void adjustTime(const Value& v, const Value&)
{
    const Value in = v["in"], out = v["out"];
    Bench bench(u(in["board"]));
    if (u(in["board"]) == 2) bench.set(16, u(in["loadDone"]));
    in["loadDone"].read();
    if (v.contains("margin")) v["margin"].read();
    int result = -1;
    bench.in([&] { result = tuHwIf_adjustTime(num(in["ext_t"]), num(in["t"])); });
    EXPECT_EQ(result, out["result"].get<int>());
    for (const char* key : {"mfn", "sfn", "inc"}) out[key].read();       // in the words
    expectStep(bench, v);
}

/// The same from the pair by which local time moves.
void adjustTimeChain(const Value& v, const Value&)
{
    const Value in = v["in"], out = v["out"];
    Bench bench(u(in["board"]));
    if (u(in["board"]) == 2) bench.set(16, 1);
    bench.in([&] { KvdLoz6TuReg_adjust_time(num(in["d_c"]), num(in["d_f"])); });
    for (const char* key : {"e", "f1024", "result", "mfn", "sfn", "inc"}) out[key].read();
    expectStep(bench, v);
}

void adjustGpsOutTime(const Value& v, const Value&)
{
    const Value t = v["in"]["triple"];
    const GpsOutStep step = gpsOutStep({static_cast<u16>(u(t[0])), static_cast<u16>(u(t[1])), u(t[2])},
                                       v["in"]["v"].get<i32>());
    for (const char* key : {"alt", "exact", "edge", "tol_int"})
        if (v.contains(key)) v[key].read();
    const Value out = v["out"];
    v["in"]["board"].read();
    out["word"].read();                      // packed by gpsOutOffset
    out["trace"].read();
    near(step.t_f_out, out["t_f_out"], toleranceOf({v}));
    near(step.t_f_diff, out["t_f_diff"], toleranceOf({v}));
    const bool isAtEdge = v.contains("edge") && step.x != u(out["x"]);
    EXPECT_NEAR(step.x, u(out["x"]), 1);
    const u32 frames = u(out["frames"]), inc = u(out["inc"]);
    if (isAtEdge) return;                    // a frame or all of it flips there
    EXPECT_EQ(step.frames, frames);
    EXPECT_NEAR(step.inc, inc, 1);
}

void readGpsOutTime(const Value& v, const Value& g)
{
    v["init"].read();
    for (const Value step : v["steps"]) {
        SCOPED_TRACE(step["in"].dump());
        const Value in = step["in"], out = step["out"];
        out["failed"].read(), out["period"].read(), in.read();
        if (in["t"].is_null()) {
            EXPECT_EQ(out["failed"], 1);
            out.read();
            continue;
        }
        EXPECT_EQ(out["failed"], 0);
        GpsOutData data;
        if (!in["region"].is_null()) data = {u(in["region"][0]), u(in["region"][1]), 0};
        const GpsOutReading r = extendGpsOutTime(
            {static_cast<u16>(u(in["t"][0])), static_cast<u16>(u(in["t"][1])), u(in["t"][2])},
            {in["master"] == 1, num(in["t_c"]), u(in["valid"]), num(in["outTime"])}, data);
        near(r.time, out["time"], toleranceOf({step, v, g}));
        static const std::set<std::string> TEXTS = {
            "read", "Could not read gpsOutData_r from persistent memory", "Adding missing mfn offset",
            "GpsOutTime adjusted"};
        const auto texts = out["traces"].get<std::set<std::string>>();
        for (const std::string& text : texts)
            if (!TEXTS.contains(text)) ADD_FAILURE() << "no replay of the trace \"" << text << "\"";
        EXPECT_EQ(r.missedWrap, texts.contains("Adding missing mfn offset"));
        EXPECT_EQ(r.adjusted, texts.contains("GpsOutTime adjusted"));
        if (out["stored"].is_null()) continue;
        EXPECT_EQ(data.mfnOffset, u(out["stored"][0]));
        EXPECT_EQ(data.mfn, u(out["stored"][1]));
    }
}

/// Without persistent memory nothing is stored; what is stored with it, gpsout_test.cpp tries.
void resetGpsOutMemory(const Value& v, const Value&)
{
    Bench bench(2);
    bench.in([] { tuHwIf_resetGpsOutMsiMem(); });
    expectTraced(bench, v["out"]["trace"]);
    if (v["in"]["ready"] == 1) EXPECT_EQ(v["out"]["stored"], (std::vector<u32>{0, 0, 0}));
    else                       EXPECT_TRUE(v["out"]["stored"].is_null());
}

void setWords(Bench& bench, const Value& words)
{
    for (u32 i = 0; i < 4; ++i) bench.set(2 + i, u(words[i]));
    bench.bus.traces.clear();
}

void readBfnIn(const Value& v, const Value&)
{
    Bench bench(u(v["init"]["board"]));
    for (const Value step : v["steps"]) {
        SCOPED_TRACE(step.dump());
        setWords(bench, step["in"]["words"]);
        BfnIn in;
        int result = -1;
        BfnNoiseFilter state;
        bench.in([&] {
            result = tuHwIf_readBfnIn(in);
            state = bfnNoiseFilter();
        });
        const Value out = step["out"];
        EXPECT_EQ(result, out["result"].get<int>());
        for (const Value text : out["traces"]) EXPECT_GE(bench.bus.countOf(text.get<std::string>()), 1u);
        EXPECT_EQ(bench.bus.traces.size(), out["traces"].size());
        expectFields(out, {{"active", state.active}, {"last", state.last}, {"start", state.start},
                           {"parityRun", state.parityRun}, {"goodCount", state.goodCount}});
        if (out["fields"].is_null()) continue;
        expectFields(out["fields"],
                     {{"extended", in.extended}, {"l_mfn", in.mfn}, {"l_sfn", in.sfn}, {"l_inc", in.inc},
                      {"r_mfn", in.remoteMfn}, {"r_sfn", in.remoteSfn}, {"word4", in.word1},
                      {"word5", in.word2}});
    }
}

void readBfnAll(const Value& v, const Value& g)
{
    Bench bench(u(v["init"]["board"]));
    for (const Value step : v["steps"]) {
        SCOPED_TRACE(step.dump());
        setWords(bench, step["in"]["words"]);
        const Value out = step["out"];
        BfnAll all;
        bench.in([&] { EXPECT_EQ(tuHwIf_readBfnAll(all), out["readResult"].get<int>()); });
        expectFields(out, {{"valid", all.valid}, {"extended", all.extended}, {"inc", all.inc},
                           {"e_sfc", all.e_sfc}, {"rc_state", all.rc_state}, {"jump", all.jump},
                           {"ms_flag", all.ms_flag}, {"cold", all.coldRestartFlag_tmp}});
        near(all.meanDifference, out["mean"], toleranceOf({step, v, g}));
        out["failCount"].read();             // stands in the trace
        if (out["trace"].is_string()) expectTraced(bench, out["trace"]);
    }
}

// ---- oscillator -------------------------------------------------------------------------------------------

void voltsOfTemperature(const Value& v, const Value&)
{
    double volts = -9;
    EXPECT_EQ(hwif::temperatureVolts(u(v["in"]["word"]), v["in"]["isRev3"] == 1, volts),
              v["out"]["result"].get<int>());
    EXPECT_EQ(volts, v["out"]["volts"].is_null() ? -9 : num(v["out"]["volts"]));
}

void coeffPlain(const Value& v, const Value&)
{
    const Value in = v["in"];
    Bench bench(1);
    in.read();
    if (!in["regs"].is_null()) {
        bench.set(u(in["regs"][0]), u(in["high"]));
        bench.set(u(in["regs"][1]), u(in["low"]));
    }
    double value = -9;
    bench.in([&] { value = tuHwIf_readOcxoCoeff(u(in["index"])); });
    EXPECT_EQ(value, num(v["out"]["value"]));
    EXPECT_EQ(bench.bus.countOf("OCXO has no such coeff") != 0, v["out"]["trace"].get<bool>());
}

void coeffLimits(const Value& v, const Value&)
{
    const Value in = v["in"];
    in["regs"].read();                       // as in coeffPlain
    const double limit = temperatureLimit(in["part"].get<std::string>().c_str(), u(in["index"]),
                                          coefficient(u(in["high"]), u(in["low"])));
    if (v.contains("alt") && limit == num(v["alt"]["value"])) v["out"].read();
    else EXPECT_EQ(limit, num(v["out"]["value"]));
    if (v.contains("alt")) v["alt"].read();
}

void eepromChecksum(const Value& v, const Value&)
{
    const Value out = v["out"];
    Bench bench(2);
    putBlock(bench.bus, BASE_2B, vectors::bytes(v["in"]["block"]));
    int result = -1;
    bench.in([&] { result = tuHwIf_validateOcxoEeprom(); });
    EXPECT_EQ(result == 0, out["valid"] == 1);
    EXPECT_EQ(result == 0, out["result"] == 0);
    const bool isAllZero = out["allZeroTrace"].get<bool>();
    EXPECT_EQ(u(out["calculated"]) == u(out["provided"]) && !isAllZero, out["valid"] == 1);
    EXPECT_EQ(bench.bus.countOf("All values are zero") != 0, isAllZero);
}

constexpr u32 COPY_DONE = 2;             // of the EEPROM's control word

/// Each read of the EEPROM block is done at once, has a bad checksum, or never ends.
void eepromRetries(const Value& v, const Value&)
{
    const Value out = v["out"];
    const auto reads = v["in"]["reads"].get<std::vector<std::string>>();
    std::vector<u8> good(128, 0);
    good[0] = 3, good[127] = 3;              // version 3 and its sum
    Bench bench(2);
    u32 attempts = 0;
    const u32 control = BASE_2B + 0x14;
    bench.bus.onWrite[control] = [&](u32) {
        const std::string how = reads.at(std::min<std::size_t>(attempts++, reads.size() - 1));
        std::vector<u8> block = good;
        if (how == "sum") block[127] ^= 1;
        else if (how != "good" && how != "timeout") throw std::runtime_error("no replay of the read " + how);
        putBlock(bench.bus, BASE_2B, block);
        bench.bus.memory[control] = how == "timeout" ? 0 : COPY_DONE;
    };
    int result = -1;
    bench.in([&] { result = startOcxo(); });
    EXPECT_EQ(result, out["result"].get<int>());
    EXPECT_EQ(attempts, u(out["attempts"]));
    const auto failed = out["failedTraces"].get<std::set<u32>>();
    for (u32 n = 1; n <= 4; ++n)
        EXPECT_EQ(bench.bus.countOf("after reading OCXO data " + std::to_string(n) + " times"),
                  failed.contains(n) ? 1u : 0u);
}

void serialAndPart(const Value& v, const Value&)
{
    const Value out = v["out"];
    Bench bench(2);
    putBlock(bench.bus, BASE_2B, vectors::bytes(v["in"]["block"]));
    char serial[18], part[12];
    u8 version = 0, maker = 0;
    int result = -1;
    bench.in([&] {
        result = tuHwIf_readOcxoSerial(serial, version, maker);
        tuHwIf_readOcxoPartNum(part);
    });
    EXPECT_EQ(result, out["result"].get<int>());
    if (out.contains("part") && out["part"].is_string()) {
        EXPECT_EQ(part, out["part"].get<std::string>());
    }
    out.read();
    if (result != 0) return;
    EXPECT_EQ(serial, out["text"].get<std::string>());
    EXPECT_EQ(version, u(out["version"]));
    EXPECT_EQ(maker, u(out["manufacturer"]));
}

void putDate(Bench& bench, const Value& in)
{
    constexpr std::ptrdiff_t DATE_AT = 88;
    std::vector<u8> block(128, 0);
    const std::string text = in["text"].get<std::string>();
    std::copy(text.begin(), text.end(), block.begin() + DATE_AT);
    putBlock(bench.bus, BASE_2B, block);
}

void calibrationDate(const Value& v, const Value&)
{
    const Value out = v["out"];
    Bench bench(u(v["in"]["board"]));
    putDate(bench, v["in"]);
    std::tm date{};
    int result = -1;
    bench.in([&] { result = tuHwIf_readOcxoCalibDate(date); });
    EXPECT_EQ(result == 0, out["ok"] == 1);
    out.read();
    if (result == 0) {
        EXPECT_EQ(date.tm_year + 1900, out["year"].get<int>());
        EXPECT_EQ(date.tm_mon + 1, out["month"].get<int>());
        EXPECT_EQ(date.tm_mday, out["day"].get<int>());
    } else if (out["trace"].is_string()) {
        const std::string text = out["trace"].get<std::string>();
        EXPECT_EQ(bench.bus.countOf(text.substr(0, text.find('%'))), 1u);
    }
}

void isCalibrated(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    putDate(bench, v["in"]);
    bench.bus.now.seconds = v["in"]["now"].get<i64>();
    int valid = -1;
    bench.in([&] { valid = tuHwIf_isCalibrated(); });
    EXPECT_EQ(valid != 0, v["out"]["valid"] == 1);
    if (v.contains("tol")) v["tol"].read();
    v["out"]["days"].read();                 // 0 up to 365 of them are valid
}

}  // namespace

TEST(CheckValues, Frequency)
{
    vectors::Document document("o01_frequency.json");
    vectors::eachGroup(document["groups"],
        {{"nominal", nominal}, {"adjustFrequency", adjustFrequency},
         {"adjustFrequency_limits", adjustFrequency}, {"adjustFrequency_halves", adjustFrequency},
         {"nearest", nearest},
         {"adjustFrequency_reach", adjustFrequencyReach}, {"readCurrentFrequency", readCurrentFrequency},
         {"calcOcxoGain", calcOcxoGain}, {"incrementComparison", incrementComparison},
         {"relativeNominalOffset", relativeNominalOffset}, {"wander", wander}, {"wanderEnd", wanderEnd},
         {"wanderInterval", intervalOfWander}, {"deltaFreq", deltaFrequency}});
}

TEST(CheckValues, Counters)
{
    vectors::Document document("o01_counters.json");
    vectors::eachGroup(document["groups"],
        {{"adjustTime", adjustTime}, {"adjustTimeChain", adjustTimeChain},
         {"adjustGpsOutTime", adjustGpsOutTime}, {"readGpsOutTime", readGpsOutTime},
         {"resetGpsOutMsiMem", resetGpsOutMemory}, {"readBfnIn", readBfnIn}, {"readBfnAll", readBfnAll}});
}

TEST(CheckValues, Oscillator)
{
    vectors::Document document("o01_ocxo.json");
    vectors::eachGroup(document["groups"],
        {{"temperatureVolts", voltsOfTemperature}, {"coeffPlain", coeffPlain}, {"coeffLimits", coeffLimits},
         {"eepromChecksum", eepromChecksum}, {"eepromRetries", eepromRetries},
         {"serialAndPart", serialAndPart}, {"calibrationDate", calibrationDate},
         {"isCalibrated", isCalibrated}},                                          // the regulator's:
        {"readOcxoTemp_sequence", "temperatureLimits", "tempCoefficients", "coldDivider"});
}

namespace {

/// FNV-1a over the two low bytes of each word: what the ICs are programmed with is a matter of their data
/// sheets, and a digit that slips shows nowhere else.
u32 digest(std::span<const u32> words)
{
    u32 hash = 2166136261u;
    for (const u32 word : words)
        for (const u32 byte : {word >> 8 & 0xFF, word & 0xFF}) hash = (hash ^ byte) * 16777619u;
    return hash;
}

}  // namespace

TEST(CheckValues, WordsOfTheIcs)
{
    EXPECT_EQ(multiplicatorWords(0).size(), 112u);
    EXPECT_EQ(multiplicatorWords(1).size(), 53u);
    EXPECT_EQ(digest(multiplicatorWords(0)), 0xb2c9876u);
    EXPECT_EQ(digest(multiplicatorWords(1)), 0x14e5876eu);
    EXPECT_EQ(digest(PLL_IC_WORDS), 0x5eedd032u);
}
