// Replay of check values: history record, flash files and their conversion, choice, recovery.
#include "node/bytes.h"
#include "reg/kvd_reg_imprec.h"
#include "reg/support/history_bench.h"
#include "support/vectors.h"

using regtest::HistoryBench;
using vectors::bytes;
using vectors::Value;

namespace {

constexpr double ROOM_TEMPERATURE_V = 2.0;

// ---- the record -------------------------------------------------------------------------------------------

/// Where a record keeps the doubles of a name.
std::span<double> doubles(HistRecord& h, const std::string& name)
{
    const std::map<std::string, std::span<double>> places = {
        {"U", h.U}, {"x_est", h.x_est}, {"P_est", h.P_est}, {"delta0_c", {&h.delta0_c, 1}},
        {"delta0_f", {&h.delta0_f, 1}}, {"t_mod", {&h.t_mod, 1}}, {"T", {&h.T, 1}},
        {"t_c_last", {&h.t_c_last, 1}}, {"t_f_last", {&h.t_f_last, 1}}};
    const auto found = places.find(name);
    return found != places.end() ? found->second : std::span<double>{};
}
const std::vector<vectors::Field<HistRecord>> WHOLE_NUMBERS = {
    vectors::field("freqWriteTime", &HistRecord::freqWriteTime),
    vectors::field("timeMode", &HistRecord::timeMode),
    vectors::field("selectedRef", &HistRecord::selectedRef),
    vectors::field("prevSelectedRef", &HistRecord::prevSelectedRef),
    vectors::field("word448", &HistRecord::cold),
};
/// What the record has no member for, and its place.
const std::map<std::string, u32> FIXED = {{"version", 0}, {"word4", 4}, {"word8", 8}, {"writeTimeAgain", 16},
                                          {"byte39", 39}, {"word452", 452}};

using Record = std::array<u8, HIST_RECORD_SIZE>;

Record pack(const HistRecord& h)
{
    Record record;
    KvdLoz6TuReg_packHistory(h, record.data());
    return record;
}

HistRecord recordOf(const Value& fields)
{
    HistRecord h;
    for (const auto& [name, value] : fields.items()) {
        const std::span<double> places = doubles(h, name);
        if (name == "serial") std::strncpy(h.serial, value.get<std::string>().c_str(), sizeof h.serial - 1);
        else if (places.size() == 1) places[0] = vectors::number(value);
        else if (!places.empty())
            for (std::size_t i = 0; i < places.size(); ++i) places[i] = vectors::number(value[i]);
        else if (FIXED.contains(name)) value.read();
        else if (!vectors::write(WHOLE_NUMBERS, h, name, value)) ADD_FAILURE() << "no field \"" << name << "\"";
    }
    return h;
}

void expectFields(const std::vector<u8>& record, const Value& fields)
{
    HistRecord h = KvdLoz6TuReg_unpackHistory(record.data());
    for (const auto& [name, value] : fields.items()) {
        const std::span<double> places = doubles(h, name);
        if (name == "serial") EXPECT_EQ(value, std::string(h.serial));
        else if (places.size() == 1) vectors::expectNear(name, places[0], vectors::number(value), {});
        else if (!places.empty())
            for (std::size_t i = 0; i < places.size(); ++i)
                vectors::expectNear(name, places[i], vectors::number(value[i]), {});
        else if (name == "byte39") EXPECT_EQ(value, record[39]);
        else if (FIXED.contains(name)) EXPECT_EQ(value, node::be32(record.data() + FIXED.at(name))) << name;
        else EXPECT_TRUE(vectors::compare(WHOLE_NUMBERS, h, name, value)) << "no field \"" << name << "\"";
    }
}

/// Compares all but the ranges, of offset and length, that `ignore` lists.
void expectBytes(std::span<const u8> got, const Value& wanted, const std::vector<std::pair<u32, u32>>& ignore = {})
{
    std::vector<u8> left(got.begin(), got.end()), right = bytes(wanted);
    ASSERT_EQ(right.size(), left.size());
    for (const auto& [from, length] : ignore)
        for (u32 i = from; i < from + length; ++i) left.at(i) = right.at(i) = 0;
    EXPECT_EQ(left, right);
}
std::vector<std::pair<u32, u32>> ignored(const Value& out)
{
    return out["ignore"].get<std::vector<std::pair<u32, u32>>>();
}

void encode(HistoryBench&, const Value& vector)
{
    const Record record = pack(recordOf(vector["in"]["fields"]));
    expectBytes(record, vector["out"]["hex"]);
    expectBytes(pack(KvdLoz6TuReg_unpackHistory(record.data())), vector["out"]["hex"]);
}

void decode(HistoryBench&, const Value& vector)
{
    const std::vector<u8> record = bytes(vector["in"]["hex"]);
    ASSERT_EQ(record.size(), HIST_RECORD_SIZE);
    expectFields(record, vector["out"]["fields"]);
}

/// Where each field stands: the records that are encoded and decoded hold it to the byte.
void layout(HistoryBench&, const Value& vector)
{
    vector["in"].read();
    EXPECT_EQ(vector["out"]["size"], HIST_RECORD_SIZE);
    vector["out"]["fields"].read();
}

void validate(HistoryBench& bench, const Value& vector)
{
    bench.node.traces().clear();
    int valid = -1;
    bench.in([&] { valid = KvdLoz6TuReg_validateHistory(bytes(vector["in"]["hex"]).data()); });
    vectors::expectOut(vector, "valid", valid);
    const Value trace = vector["out"]["trace"];
    if (!trace.is_null() && vector["out"]["valid"] == valid) {
        EXPECT_TRUE(bench.traced(trace.get<std::string>())) << trace;
    }
}

// ---- flash files ------------------------------------------------------------------------------------------

struct Coefficients {
    double coeff[3];
    explicit Coefficients(const Value& in)
    {
        for (u32 i = 0; i < 3; ++i) coeff[i] = vectors::number(in["eeprom"][i]);
    }
};

void putFiles(HistoryBench& bench, const Value& in)
{
    bench.node.volumes().clear();
    for (const auto& [key, path] : {std::pair{"data_1", HIST_FILE}, {"data", HIST_FILE_OLD}})
        if (in.contains(key) && !in[key].is_null())
            bench.node.volumes().write(path, regtest::asFile(bytes(in[key])));
}

void convert(HistoryBench& bench, const Value& vector)
{
    const Value in = vector["in"], out = vector["out"];
    in["version"].read();                // it stands in the file too
    bench.node.traces().clear();
    std::vector<u8> record(HIST_RECORD_SIZE);
    int done = 0;
    bench.in([&] {
        done = flashfile::convert(regtest::asFile(bytes(in["file"])), Coefficients(in).coeff, record.data());
    });
    EXPECT_EQ(done != 0, !out["record_hex"].is_null());
    const auto ignore = ignored(out);
    if (done != 0 && !out["record_hex"].is_null()) expectBytes(record, out["record_hex"], ignore);
    if (out.contains("fields") && done != 0) expectFields(record, out["fields"]);
    if (out.contains("trace") && !out["trace"].is_null()) {
        EXPECT_TRUE(bench.traced(out["trace"].get<std::string>())) << out["trace"];
    }
}

void choice(HistoryBench& bench, const Value& vector)
{
    const Value in = vector["in"], out = vector["out"];
    putFiles(bench, in);
    bench.node.traces().clear();
    vectors::json file;
    int converted = 0;
    std::vector<u8> record(HIST_RECORD_SIZE);
    const Coefficients coefficients(in);
    bench.in([&] {
        std::string content;
        const char* const path = flashfile::choose(content);
        if (path == nullptr) return;
        file = path;
        converted = flashfile::convert(content, coefficients.coeff, record.data());
    });
    vectors::expectOut(vector, "file", file);
    const auto ignore = ignored(out);
    if (file != out["file"].read()) {
        out.read();
        return;
    }
    EXPECT_EQ(converted != 0, !out["record_hex"].is_null());
    if (!out["record_hex"].is_null()) expectBytes(record, out["record_hex"], ignore);
    if (!out["trace"].is_null()) {
        EXPECT_TRUE(bench.traced(out["trace"].get<std::string>())) << out["trace"];
    }
}

void noPersistentRecord(HistoryBench& bench)
{
    const u8 nothing[HIST_RECORD_SIZE] = {};
    bench.node.msi().put("TuRegHistData", nothing);
}

void readHistData(HistoryBench& bench, const Value& vector)
{
    const Value in = vector["in"], out = vector["out"];
    putFiles(bench, in);
    in["eeprom"].read();                 // files of the present version hold the polynomial
    bench.restart();
    bench.node.setCalendar(in["now"].get<i64>());
    noPersistentRecord(bench);
    bench.in([&] {
        if (!in["msi"].is_null()) {
            ASSERT_EQ(KvdLoz6TuMem_write(MEM_REG_HIST, bytes(in["msi"]).data(), 456), 1);
        }
        u8 record[HIST_RECORD_SIZE];
        u32 fromMsi = 0;
        const int result = KvdLoz6TuReg_readHistData(record, fromMsi);
        vectors::expectOut(vector, "result", result);
        if (result != 0 && out.contains("fromMsi")) vectors::expectOut(vector, "fromMsi", fromMsi);
        EXPECT_EQ(regulator::state().msiUsed + regulator::state().flashUsed,
                  out["msiUsed"].get<u32>() + out["flashUsed"].get<u32>());
        if (result == 0 || out["fromMsi"] != fromMsi) return;
        EXPECT_EQ(regulator::state().msiUsed, out["msiUsed"].get<u32>());
        expectBytes(record, out["record_hex"], {{4, 8}});
    });
}

void writeOld(HistoryBench& bench, const Value& vector)
{
    const Value in = vector["in"], out = vector["out"];
    bench.node.volumes().clear();
    const bool existed = !in["before"].is_null();
    const std::string before = existed ? regtest::asFile(bytes(in["before"])) : "";
    if (existed) bench.node.volumes().write(HIST_FILE_OLD, before);
    u8 revision[4] = {};
    bench.in([&] {
        EXPECT_EQ(KvdLoz6TuReg_writeFlashFile(bytes(in["record"]).data()), 1);
        node::putBe32(revision, tuHwIf_readFpgaRev());
    });
    const std::string content = bench.file(HIST_FILE_OLD);
    EXPECT_EQ(!content.empty(), vectors::number(out["exists"]) != 0);
    EXPECT_EQ(content != before, vectors::number(out["changed"]) != 0);
    if (out.contains("size") && !out["size"].is_null()) {
        EXPECT_EQ(content.size(), out["size"].get<std::size_t>());
    }
    if (out.contains("checks"))
        for (const Value check : out["checks"]) {
            const std::string wanted = regtest::asFile(bytes(check[1]));
            EXPECT_EQ(content.substr(check[0].get<std::size_t>(), wanted.size()), wanted) << check[0];
        }
    // The revision behind the data is this board's, not the vector's.
    in["fpgaRev"].read();
    const std::string made = bench.file(HIST_FILE);
    EXPECT_EQ(made.substr(0, HIST_RECORD_SIZE), regtest::asFile(bytes(out["data_1"])).substr(0, HIST_RECORD_SIZE));
    EXPECT_EQ(made.substr(HIST_RECORD_SIZE), regtest::asFile({revision, revision + 4}));
}

// ---- when it is written, and how old it may be ------------------------------------------------------------

void writeGate(HistoryBench&, const Value& vector)
{
    constexpr double UNTOUCHED = 12345.0;
    const Value in = vector["in"], out = vector["out"];
    sim::NodeConfig config;
    if (vectors::number(in["serial_ok"]) == 0) config.board.eeprom.serial = std::string(16, '\x01');
    HistoryBench bench(config);
    noPersistentRecord(bench);
    bench.lock();
    const double lookAhead = vectors::number(in["lookAhead"]);
    bench.in([&] {
        regulator::state().masterSlaveMode = in["master"].get<u8>();
        estimator::state().var.fixFreqMode = in["fixFreqMode"].get<u8>();
        control::state().var.f_ix = in["f_ix"].get<u8>();
        measure::state().var.histCountDown = UNTOUCHED;
        if (lookAhead == 0.0) estimator::state().var.P_est[7] = 1e-14;     // leaves its grade at once
        const double holds = KvdLoz6TuReg_lookAheadHistory();
        ASSERT_EQ(holds > 0.0, lookAhead > 0.0 || estimator::state().var.fixFreqMode != 0);
        KvdLoz6TuReg_writeHistory(vectors::number(in["toFlash"]) != 0);
        // A filter holds for hours that double, not for any time of a vector: the share counts.
        double wanted = out["histCountDown"].is_null() ? UNTOUCHED : vectors::number(out["histCountDown"]);
        if (lookAhead > 0.0 && !out["histCountDown"].is_null()) wanted = wanted / lookAhead * holds;
        EXPECT_EQ(measure::state().var.histCountDown, wanted);
        u8 record[HIST_RECORD_SIZE];
        const bool inMsi = KvdLoz6TuMem_read(MEM_REG_HIST, record, sizeof record) != 0;
        EXPECT_EQ(inMsi, out["written"] == "msi");
    });
    EXPECT_EQ(!bench.file(HIST_FILE).empty(), out["written"] == "flash");
}

/// Each of the two ways to start judged alone, on a record that it can read.
void initiateAge(HistoryBench&, const Value& vector)
{
    const Value in = vector["in"], out = vector["out"];
    constexpr u32 SERIAL_AT = 20;
    for (const bool fromFlash : {false, true}) {
        HistoryBench bench;
        bench.lock();
        bench.in([] { KvdLoz6TuReg_writeHistory(true); });
        std::string content = bench.file(HIST_FILE);
        ASSERT_EQ(content.size(), HIST_RECORD_SIZE + 4);
        if (vectors::number(in["serial_matches"]) == 0) content[SERIAL_AT] ^= 1;
        const bool good = vectors::number(in["record_good"]) != 0;
        if (!good) content.replace(HIST_U_AT, 8, "\x7F\xF8\0\0\0\0\0\0", 8);     // not a number
        bench.node.volumes().clear();
        bench.restart();
        noPersistentRecord(bench);
        bench.node.setCalendar(regtest::NOW + in["now_minus_freqWriteTime"].get<i64>());
        int result = -1;
        if (fromFlash) bench.node.volumes().write(HIST_FILE, content);
        bench.in([&] {
            if (!fromFlash && good)
                KvdLoz6TuMem_write(MEM_REG_HIST, reinterpret_cast<const u8*>(content.data()), HIST_RECORD_SIZE);
            result = fromFlash ? KvdLoz6TuReg_initiateWithFlash(ROOM_TEMPERATURE_V)
                               : KvdLoz6TuReg_initiateWithMsi(ROOM_TEMPERATURE_V);
        });
        EXPECT_EQ(result, out[fromFlash ? "initiate_with_flash" : "initiate_with_msi"].get<int>()) << fromFlash;
    }
}

// ---- recovery ---------------------------------------------------------------------------------------------

/// One step: ["z", z, x_est[0], regState, selectedRef] or ["e", event, selectedRef]; reference 6 if left out.
void recoveryStep(const Value& step)
{
    const bool isEvent = step[0] == "e";
    if (!isEvent && step[0] != "z") throw std::runtime_error("no replay of the step " + step[0].dump());
    const std::size_t refAt = isEvent ? 2 : 4;
    measure::state().var.selectedRef = step.size() > refAt ? step[refAt].get<u32>() : 6;
    if (isEvent) {
        KvdLoz6TuReg_recoveryEvent(step[1].get<u32>());
        return;
    }
    estimator::state().var.x_est[0] = vectors::number(step[2]);
    control::state().var.regState = step[3].get<u8>();
    KvdLoz6TuReg_recoveryWatch(vectors::number(step[1]));
}

void recovery(HistoryBench& bench, const Value& vector)
{
    static const std::map<std::string, double (*)()> STATE = {
        {"mode", [] { return static_cast<double>(KvdLoz6TuReg_recovery().recoveryModeState); }},
        {"counter", [] { return static_cast<double>(KvdLoz6TuReg_recovery().steps); }},
        {"P00", [] { return estimator::state().var.P_est[0]; }},
        {"f_lim_high", [] { return control::state().var.f_lim_high; }},
        {"f_lim_low", [] { return control::state().var.f_lim_low; }},
        {"xf_limit", [] { return control::state().var.xf_limit; }},
    };
    const Value in = vector["in"];
    if (in.contains("step_form")) in["step_form"].read();
    bench.restart();
    bench.in([&] {
        for (std::size_t i = 0; i < in["steps"].size(); ++i) {
            recoveryStep(in["steps"][i]);
            for (const auto& [key, wanted] : vector["out"]["after"][i].items())
                if (!wanted.is_null()) {
                    EXPECT_EQ(STATE.at(key)(), vectors::number(wanted)) << "step " << i << " " << key;
                }
        }
    });
}

}  // namespace

TEST(HistoryCheckValues, Replay)
{
    HistoryBench bench;
    const auto row = [&bench](void (*replay)(HistoryBench&, const Value&)) {
        return [&bench, replay](const Value& vector) { replay(bench, vector); };
    };
    const vectors::Kinds kinds = {
        {"encode", row(encode)}, {"decode", row(decode)}, {"layout", row(layout)},
        {"convert", row(convert)}, {"validate", row(validate)}, {"choice", row(choice)},
        {"readHistData", row(readHistData)}, {"writeOld", row(writeOld)}, {"writeGate", row(writeGate)},
        {"initiateAge", row(initiateAge)}, {"imprec", row(recovery)}};
    vectors::Document document("o05_history.json");
    vectors::each(document["vectors"], [&](const Value& vector) {
        vectors::dispatch(kinds, vector["kind"].get<std::string>(), vector);
    });
}
