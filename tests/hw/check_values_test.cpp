// Replay of the check values: frequency, counters and the oscillator's EEPROM.
#include "hw/check_values.h"

#include <gtest/gtest.h>

using namespace hwtest;

// ---- frequency --------------------------------------------------------------------------------

TEST(CheckValues, Frequency)
{
    TU_LOAD_VECTORS(doc, "o01_frequency.json");
    for (const json& v : group(doc, "nominal")["vectors"]) {
        const NominalValues n = nominalOf(v["in"]["case"]);
        EXPECT_EQ(n.nomDiv, u(v["out"]["nomDiv"]));
        EXPECT_EQ(n.K, v["out"]["K"].get<i64>());
        EXPECT_EQ(n.M, v["out"]["M"].get<i64>());
        EXPECT_EQ(frequencyWords(n, 0, 0).U_nom, v["out"]["U_nom"].get<double>());
        if (!v["out"]["synthC"].is_null()) {
            EXPECT_EQ(n.synthC, u(v["out"]["synthC"]));
        }
    }
    for (const char* name : {"adjustFrequency", "adjustFrequency_limits", "adjustFrequency_halves"})
        for (const json& v : group(doc, name)["vectors"]) {
            SCOPED_TRACE(std::string(name) + idOf(v));
            const json& in = v["in"];
            const json& out =
                v.contains("alt") ? v["alt"] : v["out"]; // the reading by which ratio holds
            const FrequencyWords w = frequencyWords(
                nominalOf(in["case"]), vectors::number(in["rel"]), vectors::number(in["wander"]));
            const bool written = std::fabs(vectors::number(in["rel"])) <= limitOf(in["role"]);
            EXPECT_EQ(written, out["written"].get<int>() == 1);
            if (!written) continue;
            const i64 slack = v.contains("tol_int") ? v["tol_int"]["K"].get<i64>() : 0;
            EXPECT_LE(std::llabs(w.K - out["K"].get<i64>()), slack) << w.K;
            EXPECT_EQ(w.divisor, out["nomDiv_old"].get<double>());
        }
    for (const json& v : group(doc, "adjustFrequency_reach")["vectors"])
        for (const json& step : v["steps"]) {
            SCOPED_TRACE(v["name"].dump() + step["in"].dump());
            const FrequencyWords w =
                frequencyWords(nominalOf(v["init"]["case"]), vectors::number(step["in"]["rel"]),
                               vectors::number(step["in"]["wander"]));
            const double U = step["U"].get<double>();
            EXPECT_LE(std::fabs(w.divisor + 1 + static_cast<double>(w.K) / 8e8 - U), 6e-12 * U);
        }
    for (const json& v : group(doc, "readCurrentFrequency")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        near(currentFrequency(nominalOf(v["in"]["case"]), u(v["in"]["divisorRegister"]),
                              v["in"]["K"].get<i64>(), v["in"]["M"].get<i64>()),
             v["out"]["rel"], v["tol"]);
    }
    for (const json& v : group(doc, "calcOcxoGain")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(v["in"]["case"] == "type1" ? 1 : 2);
        double gain = 0;
        bench.in([&] {
            setRev3(v["in"]["case"] == "isRev3" ? 1 : 0);
            setExtPhaseDetector(v["in"]["case"] == "ext" ? 1 : 0);
            gain = tuHwIf_calcOcxoGain(vectors::number(v["in"]["U"]));
        });
        EXPECT_EQ(gain, vectors::number(v["out"]["gain"]));
        EXPECT_EQ(bench.bus.countOf("division by 0!") != 0, v["out"]["trace"].get<bool>());
    }
    for (const json& v : group(doc, "incrementComparison")["vectors"])
        EXPECT_EQ(
            tuHwIf_isOverOneIncrement(vectors::number(v["in"]["a"]), vectors::number(v["in"]["b"])),
            v["out"]["r"].get<int>() == 1)
            << idOf(v);
    for (const json& v : group(doc, "relativeNominalOffset")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(1);
        const i64 fixed = std::llround(v["in"]["coeff0"].get<double>() * 4294967296.0);
        bench.set(57, static_cast<u32>(fixed >> 32));
        bench.set(58, static_cast<u32>(fixed));
        double rel = 0;
        bench.in([&] { rel = tuHwIf_relativeNominalOffset(); });
        near(rel, v["out"]["rel"], group(doc, "relativeNominalOffset")["tol"]);
    }
    for (const json& v : group(doc, "wanderInterval")["vectors"])
        EXPECT_EQ(wanderInterval(vectors::number(v["in"]["f"])), u(v["out"]["interval"]))
            << idOf(v);
}

TEST(CheckValues, Wander)
{
    TU_LOAD_VECTORS(doc, "o01_frequency.json");
    const json& g = group(doc, "wander");
    for (const json& v : g["vectors"]) {
        u32 index = 0;
        for (const json& step : v["steps"]) {
            SCOPED_TRACE(v["name"].dump() + step["in"].dump());
            const json& in = step["in"];
            const json& out = step["out"];
            if (in["op"] == 0 || u(in["op"]) > 2) continue;
            const NominalValues n = nominalOf(v["init"]["case"]);
            const double offset = wanderOffset(in["f"].get<double>(), in["a"].get<double>(),
                                               in["o"].get<double>(), index);
            near(offset, out["offset"], g["tol"]);
            index = (index + 1) % 16;
            EXPECT_EQ(index, u(out["index"]));
            if (!out["interval"].is_null()) {
                EXPECT_EQ(wanderInterval(in["f"].get<double>()), u(out["interval"]));
            }
            const double rel = in["U1"].get<double>() / frequencyWords(n, 0, 0).U_nom - 1;
            near(rel, out["rel"], g["tol"]);
            if (out["K"].is_null()) {
                EXPECT_GT(std::fabs(rel), limitOf("master"));
                continue;
            }
            const i64 slack = step.contains("tol_int") ? step["tol_int"]["K"].get<i64>() : 0;
            EXPECT_LE(std::llabs(frequencyWords(n, rel, offset).K - out["K"].get<i64>()), slack);
        }
    }
}

// ---- counters ---------------------------------------------------------------------------------

TEST(CheckValues, Steps)
{
    TU_LOAD_VECTORS(doc, "o01_counters.json");
    for (const json& v : group(doc, "adjustTime")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        if (u(v["in"]["board"]) == 2) bench.set(16, u(v["in"]["loadDone"]));
        int result = -1;
        bench.in([&] {
            result =
                tuHwIf_adjustTime(vectors::number(v["in"]["ext_t"]), vectors::number(v["in"]["t"]));
        });
        EXPECT_EQ(result, v["out"]["result"].get<int>());
        std::vector<std::pair<u32, u32>> wanted = expected(bench, v["out"]["writes"]);
        std::vector<std::pair<u32, u32>> written = bench.takeWrites();
        if (v.contains("tol_int")) { // an increment either way is within the model's own margin
            ASSERT_EQ(written.size(), wanted.size());
            continue;
        }
        EXPECT_EQ(written, wanted);
        EXPECT_EQ(bench.bus.countOf(v["out"]["trace"].get<std::string>()), 1u);
    }
}

TEST(CheckValues, OutputCounter)
{
    TU_LOAD_VECTORS(doc, "o01_counters.json");
    for (const json& v : group(doc, "adjustGpsOutTime")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        const json& t = v["in"]["triple"];
        const GpsOutStep step =
            gpsOutStep({static_cast<u16>(u(t[0])), static_cast<u16>(u(t[1])), u(t[2])},
                       v["in"]["v"].get<i32>());
        const json& out = v["out"];
        near(step.t_f_out, out["t_f_out"], v["tol"]);
        near(step.t_f_diff, out["t_f_diff"], v["tol"]);
        if (v.contains("edge") && step.x != u(out["x"])) continue;
        EXPECT_NEAR(step.x, u(out["x"]), 1);
        EXPECT_EQ(step.frames, u(out["frames"]));
        EXPECT_NEAR(step.inc, u(out["inc"]), 1);
    }
    const json& g = group(doc, "readGpsOutTime");
    for (const json& v : g["vectors"])
        for (const json& step : v["steps"]) {
            SCOPED_TRACE(v["name"].dump() + step["in"].dump());
            const json& in = step["in"];
            if (in["t"].is_null()) continue;
            GpsOutData data;
            if (!in["region"].is_null()) data = {u(in["region"][0]), u(in["region"][1]), 0};
            const GpsOutReading r = extendGpsOutTime(
                {static_cast<u16>(u(in["t"][0])), static_cast<u16>(u(in["t"][1])), u(in["t"][2])},
                {in["master"] == 1, in["t_c"].get<double>(), u(in["valid"]),
                 in["outTime"].get<double>()},
                data);
            near(r.time, step["out"]["time"], tolOf(step, g));
            if (step["out"]["stored"].is_null()) continue;
            EXPECT_EQ(data.mfnOffset, u(step["out"]["stored"][0]));
            EXPECT_EQ(data.mfn, u(step["out"]["stored"][1]));
            bool missed = false, adjusted = false;
            for (const json& text : step["out"]["traces"]) {
                missed = missed || text == "Adding missing mfn offset";
                adjusted = adjusted || text == "GpsOutTime adjusted";
            }
            EXPECT_EQ(r.missedWrap, missed);
            EXPECT_EQ(r.adjusted, adjusted);
        }
}

TEST(CheckValues, BfnInput)
{
    TU_LOAD_VECTORS(doc, "o01_counters.json");
    const auto setWords = [](Bench& bench, const json& words) {
        for (u32 i = 0; i < 4; ++i) bench.set(2 + i, u(words[i]));
        bench.bus.traces.clear();
    };
    for (const json& v : group(doc, "readBfnIn")["vectors"]) {
        Bench bench(u(v["init"]["board"]));
        for (const json& step : v["steps"]) {
            SCOPED_TRACE(v["name"].dump() + step.dump());
            setWords(bench, step["in"]["words"]);
            BfnIn in;
            int result = -1;
            BfnNoiseFilter state;
            bench.in([&] {
                result = tuHwIf_readBfnIn(in);
                state = bfnNoiseFilter();
            });
            const json& out = step["out"];
            EXPECT_EQ(result, out["result"].get<int>());
            for (const json& text : out["traces"])
                EXPECT_GE(bench.bus.countOf(text.get<std::string>()), 1u);
            EXPECT_EQ(bench.bus.traces.size(), out["traces"].size());
            EXPECT_EQ(state.active, u(out["active"]));
            EXPECT_EQ(state.last, out["last"].get<double>());
            EXPECT_EQ(state.start, out["start"].get<double>());
            EXPECT_EQ(state.parityRun, u(out["parityRun"]));
            EXPECT_EQ(state.goodCount, u(out["goodCount"]));
            if (out["fields"].is_null()) continue;
            const json& f = out["fields"];
            EXPECT_EQ(in.extended, u(f["extended"]));
            EXPECT_EQ(in.mfn, u(f["l_mfn"]));
            EXPECT_EQ(in.sfn, u(f["l_sfn"]));
            EXPECT_EQ(in.inc, u(f["l_inc"]));
            EXPECT_EQ(in.remoteMfn, u(f["r_mfn"]));
            EXPECT_EQ(in.remoteSfn, u(f["r_sfn"]));
            EXPECT_EQ(in.word1, u(f["word4"]));
            EXPECT_EQ(in.word2, u(f["word5"]));
        }
    }
    const json& g = group(doc, "readBfnAll");
    for (const json& v : g["vectors"]) {
        Bench bench(u(v["init"]["board"]));
        for (const json& step : v["steps"]) {
            SCOPED_TRACE(v["name"].dump() + step.dump());
            setWords(bench, step["in"]["words"]);
            BfnAll all;
            bench.in(
                [&] { EXPECT_EQ(tuHwIf_readBfnAll(all), step["out"]["readResult"].get<int>()); });
            const json& out = step["out"];
            EXPECT_EQ(all.valid, u(out["valid"]));
            EXPECT_EQ(all.extended, u(out["extended"]));
            EXPECT_EQ(all.inc, u(out["inc"]));
            EXPECT_EQ(all.e_sfc, u(out["e_sfc"]));
            EXPECT_EQ(all.rc_state, u(out["rc_state"]));
            EXPECT_EQ(all.jump, u(out["jump"]));
            EXPECT_EQ(all.ms_flag, u(out["ms_flag"]));
            EXPECT_EQ(all.coldRestartFlag_tmp, u(out["cold"]));
            near(all.meanDifference, out["mean"], g["tol"]);
            if (out["trace"].is_string()) {
                EXPECT_EQ(bench.bus.countOf(out["trace"].get<std::string>()), 1u);
            }
        }
    }
}

// ---- oscillator -------------------------------------------------------------------------------

namespace {

std::vector<u8> bytesOf(const std::string& hex)
{
    std::vector<u8> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<u8>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

}  // namespace

TEST(CheckValues, Ocxo)
{
    TU_LOAD_VECTORS(doc, "o01_ocxo.json");
    for (const json& v : group(doc, "temperatureVolts")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        double volts = -9;
        EXPECT_EQ(temperatureVolts(u(v["in"]["word"]), v["in"]["isRev3"] == 1, volts),
                  v["out"]["result"].get<int>());
        if (!v["out"]["volts"].is_null()) EXPECT_EQ(volts, v["out"]["volts"].get<double>());
        else EXPECT_EQ(volts, -9);
    }
    for (const json& v : group(doc, "coeffPlain")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(1);
        if (v["in"].contains("regs") && !v["in"]["regs"].is_null()) {
            bench.set(u(v["in"]["regs"][0]), u(v["in"]["high"]));
            bench.set(u(v["in"]["regs"][1]), u(v["in"]["low"]));
        }
        double value = -9;
        bench.in([&] { value = tuHwIf_readOcxoCoeff(u(v["in"]["index"])); });
        EXPECT_EQ(value, v["out"]["value"].get<double>());
        EXPECT_EQ(bench.bus.countOf("OCXO has no such coeff") != 0, v["out"]["trace"].get<bool>());
    }
    // The part isn't named: the values come in fives by part, first the models with limits of their
    // own.
    const char* const parts[] = {"OXK318407/1", "OXK318 407/", "OXK317295/1", "another"};
    u32 row = 0;
    for (const json& v : group(doc, "coeffLimits")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        const double eeprom = coefficient(u(v["in"]["high"]), u(v["in"]["low"]));
        const char* const part = parts[std::min(row++ / 5, 3u)];
        EXPECT_EQ(temperatureLimit(part, u(v["in"]["index"]), eeprom),
                  v["out"]["value"].get<double>());
    }
    for (const json& v : group(doc, "eepromChecksum")["vectors"]) {
        SCOPED_TRACE(v["id"].dump());
        Bench bench(2);
        putBlock(bench.bus, BASE_2B, bytesOf(v["in"]["block"]));
        int result = -1;
        bench.in([&] { result = tuHwIf_validateOcxoEeprom(); });
        EXPECT_EQ(result == 0, v["out"]["valid"] == 1);
        EXPECT_EQ(bench.bus.countOf("All values are zero") != 0,
                  v["out"]["allZeroTrace"].get<bool>());
    }
    for (const json& v : group(doc, "serialAndPart")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(2);
        putBlock(bench.bus, BASE_2B, bytesOf(v["in"]["block"]));
        char serial[18], part[12];
        u8 version = 0, maker = 0;
        int result = -1;
        bench.in([&] {
            result = tuHwIf_readOcxoSerial(serial, version, maker);
            tuHwIf_readOcxoPartNum(part);
        });
        EXPECT_EQ(result, v["out"]["result"].get<int>());
        if (v["out"].contains("part") && v["out"]["part"].is_string()) {
            EXPECT_EQ(part, v["out"]["part"].get<std::string>());
        }
        if (result != 0) continue;
        EXPECT_EQ(serial, v["out"]["text"].get<std::string>());
        EXPECT_EQ(version, u(v["out"]["version"]));
        EXPECT_EQ(maker, u(v["out"]["manufacturer"]));
    }
}

TEST(CheckValues, OcxoCalibration)
{
    TU_LOAD_VECTORS(doc, "o01_ocxo.json");
    const auto benchOf = [](const json& in, Bench& bench) {
        std::vector<u8> block(128, 0);
        const std::string text = in["text"];
        std::copy(text.begin(), text.end(), block.begin() + 88);
        putBlock(bench.bus, BASE_2B, block);
    };
    for (const json& v : group(doc, "calibrationDate")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        benchOf(v["in"], bench);
        std::tm date{};
        int result = -1;
        bench.in([&] { result = tuHwIf_readOcxoCalibDate(date); });
        EXPECT_EQ(result == 0, v["out"]["ok"] == 1);
        if (result == 0) {
            EXPECT_EQ(date.tm_year + 1900, v["out"]["year"].get<int>());
            EXPECT_EQ(date.tm_mon + 1, v["out"]["month"].get<int>());
            EXPECT_EQ(date.tm_mday, v["out"]["day"].get<int>());
        } else if (v["out"]["trace"].is_string()) {
            std::string text = v["out"]["trace"];
            EXPECT_EQ(bench.bus.countOf(text.substr(0, text.find('%'))), 1u);
        }
    }
    for (const json& v : group(doc, "isCalibrated")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        benchOf(v["in"], bench);
        bench.bus.now.seconds = v["in"]["now"].get<i64>();
        int valid = -1;
        bench.in([&] { valid = tuHwIf_isCalibrated(); });
        EXPECT_EQ(valid != 0, v["out"]["valid"] == 1);
    }
}
