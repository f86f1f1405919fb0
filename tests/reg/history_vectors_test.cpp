// Replay of check values: history record, flash files and their conversion, choice, recovery.
#include "node/bytes.h"
#include "reg/kvd_reg_imprec.h"
#include "reg/support/history_bench.h"
#include "support/vectors.h"

using regtest::HistoryBench;
using vectors::bytes;
using vectors::json;
using vectors::Value;

namespace {

constexpr double ROOM_TEMPERATURE_V = 2.0;

// ---- the record -------------------------------------------------------------------------------------------

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
    const std::map<std::string, std::span<double>> places = {
        {"U", h.U}, {"x_est", h.x_est}, {"P_est", h.P_est}, {"delta0_c", {&h.delta0_c, 1}},
        {"delta0_f", {&h.delta0_f, 1}}, {"t_mod", {&h.t_mod, 1}}, {"T", {&h.T, 1}},
        {"t_c_last", {&h.t_c_last, 1}}, {"t_f_last", {&h.t_f_last, 1}}};
    const std::vector<vectors::Field<HistRecord>> numbers = {
        vectors::field("freqWriteTime", &HistRecord::freqWriteTime),
        vectors::field("timeMode", &HistRecord::timeMode),
        vectors::field("selectedRef", &HistRecord::selectedRef),
        vectors::field("prevSelectedRef", &HistRecord::prevSelectedRef),
        vectors::field("word448", &HistRecord::cold)};
    for (const auto& [name, value] : fields.items()) {
        const auto place = places.find(name);
        if (name == "serial") std::strncpy(h.serial, value.get<std::string>().c_str(), sizeof h.serial - 1);
        else if (place != places.end())
            for (std::size_t i = 0; i < place->second.size(); ++i)
                place->second[i] = value.is_array() ? value[i] : value;
        else vectors::write(numbers, h, name, value);
    }
    // What the record has no member for stands at its place all the same: the bytes are compared.
    for (const char* fixed : {"version", "word4", "word8", "writeTimeAgain", "byte39", "word452"})
        if (fields.contains(fixed)) fields[fixed].read();
    return h;
}

json fieldsOf(const std::vector<u8>& record)
{
    const HistRecord h = KvdLoz6TuReg_unpackHistory(record.data());
    const auto word = [&](u32 at) { return node::be32(record.data() + at); };
    return {
        {"version", word(0)}, {"word4", word(4)}, {"word8", word(8)}, {"freqWriteTime", h.freqWriteTime},
        {"writeTimeAgain", word(16)}, {"serial", std::string(h.serial)}, {"timeMode", h.timeMode},
        {"byte39", record[39]}, {"selectedRef", h.selectedRef}, {"prevSelectedRef", h.prevSelectedRef},
        {"U", h.U}, {"x_est", h.x_est}, {"P_est", h.P_est}, {"delta0_c", h.delta0_c},
        {"delta0_f", h.delta0_f}, {"t_mod", h.t_mod}, {"T", h.T}, {"t_c_last", h.t_c_last},
        {"t_f_last", h.t_f_last}, {"word448", h.cold}, {"word452", word(452)}};
}
void expectFields(const std::vector<u8>& record, const Value& fields)
{
    vectors::expectWanted(fieldsOf(record), fields);
}

/// Compares all but the ranges, of offset and length, that `ignore` lists.
void expectBytes(std::span<const u8> got, const Value& wanted,
                 const std::vector<std::pair<u32, u32>>& ignore = {})
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

/// Where each field stands: what is put there is read as that field and as no other.
void layout(HistoryBench&, const Value& vector)
{
    vector["in"].read();
    EXPECT_EQ(vector["out"]["size"], HIST_RECORD_SIZE);
    for (const Value field : vector["out"]["fields"]) {
        std::vector<u8> record(HIST_RECORD_SIZE);
        const json empty = fieldsOf(record);
        const auto width = vectors::widthOf(field["type"].get<std::string>());
        std::fill_n(record.begin() + field["offset"].get<int>(), width, u8{1});
        std::set<std::string> set;
        const json filled = fieldsOf(record);
        for (const auto& [name, value] : filled.items())
            if (value != empty[name]) set.insert(name);
        EXPECT_EQ(set, std::set<std::string>{field["name"].get<std::string>()}) << field;
    }
}

// ---- flash files ------------------------------------------------------------------------------------------

void putFiles(HistoryBench& bench, const Value& in)
{
    bench.node.volumes().clear();
    for (const auto& [key, path] : {std::pair{"data_1", HIST_FILE}, {"data", HIST_FILE_OLD}})
        if (in.contains(key) && !in[key].is_null())
            bench.node.volumes().write(path, regtest::asFile(bytes(in[key])));
}

/// A trace that the file has a text for.
void expectTrace(HistoryBench& bench, const Value& out)
{
    if (!out.contains("trace") || out["trace"].is_null()) return;
    EXPECT_TRUE(bench.traced(out["trace"].get<std::string>())) << out["trace"];
}

void validate(HistoryBench& bench, const Value& vector)
{
    bench.node.traces().clear();
    int valid = -1;
    bench.in([&] { valid = KvdLoz6TuReg_validateHistory(bytes(vector["in"]["hex"]).data()); });
    vectors::expectOut(vector, "valid", valid);
    vector["out"]["trace"].read();
    if (vector["out"]["valid"] == valid) expectTrace(bench, vector["out"]);
}

void convert(HistoryBench& bench, const Value& vector)
{
    const Value in = vector["in"], out = vector["out"];
    in["version"].read();                // it stands in the file too
    bench.node.traces().clear();
    std::vector<u8> record(HIST_RECORD_SIZE);
    const std::array<double, 3> coefficients = in["eeprom"];
    int done = 0;
    bench.in([&] {
        done = flashfile::convert(regtest::asFile(bytes(in["file"])), coefficients.data(), record.data());
    });
    EXPECT_EQ(done != 0, !out["record_hex"].is_null());
    const auto ignore = ignored(out);
    if (done != 0 && !out["record_hex"].is_null()) expectBytes(record, out["record_hex"], ignore);
    if (out.contains("fields") && done != 0) expectFields(record, out["fields"]);
    expectTrace(bench, out);
}

void choice(HistoryBench& bench, const Value& vector)
{
    const Value in = vector["in"], out = vector["out"];
    putFiles(bench, in);
    bench.node.traces().clear();
    json file;
    int converted = 0;
    std::vector<u8> record(HIST_RECORD_SIZE);
    const std::array<double, 3> coefficients = in["eeprom"];
    bench.in([&] {
        std::string content;
        const char* const path = flashfile::choose(content);
        if (path == nullptr) return;
        file = path;
        converted = flashfile::convert(content, coefficients.data(), record.data());
    });
    vectors::expectOut(vector, "file", file);
    const auto ignore = ignored(out);
    if (file != out["file"].read()) {
        out.read();
        return;
    }
    EXPECT_EQ(converted != 0, !out["record_hex"].is_null());
    if (!out["record_hex"].is_null()) expectBytes(record, out["record_hex"], ignore);
    expectTrace(bench, out);
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
        const u32 msiUsed = out["msiUsed"], flashUsed = out["flashUsed"];
        EXPECT_EQ(regulator::state().msiUsed + regulator::state().flashUsed, msiUsed + flashUsed);
        if (result == 0 || out["fromMsi"] != fromMsi) return;
        EXPECT_EQ(regulator::state().msiUsed, msiUsed);
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
    vectors::expectAll({{"exists", !content.empty()}, {"changed", content != before}}, out);
    if (out.contains("size")) vectors::expectAll({{"size", content.size()}}, out);
    if (out.contains("checks"))
        for (const Value check : out["checks"]) {
            const std::string wanted = regtest::asFile(bytes(check[1]));
            EXPECT_EQ(content.substr(check[0].get<std::size_t>(), wanted.size()), wanted) << check[0];
        }
    // The revision behind the data is this board's, not the vector's.
    in["fpgaRev"].read();
    const std::string made = bench.file(HIST_FILE);
    const std::string wanted = regtest::asFile(bytes(out["data_1"])).substr(0, HIST_RECORD_SIZE);
    EXPECT_EQ(made, wanted + regtest::asFile({revision, revision + 4}));
}

// ---- when it is written, and how old it may be ------------------------------------------------------------

void writeGate(HistoryBench&, const Value& vector)
{
    constexpr double UNTOUCHED = 12345.0;
    const Value in = vector["in"], out = vector["out"];
    sim::NodeConfig config;
    if (!bool{in["serial_ok"]}) config.board.eeprom.serial = std::string(16, '\x01');
    HistoryBench bench(config);
    noPersistentRecord(bench);
    bench.lock();
    const double lookAhead = in["lookAhead"];
    std::string written = "none";
    bench.in([&] {
        regulator::state().masterSlaveMode = in["master"];
        estimator::state().var.fixFreqMode = in["fixFreqMode"];
        control::state().var.f_ix = in["f_ix"];
        measure::state().var.histCountDown = UNTOUCHED;
        if (lookAhead == 0.0) estimator::state().var.P_est[7] = 1e-14;     // leaves its grade at once
        const double holds = KvdLoz6TuReg_lookAheadHistory();
        ASSERT_EQ(holds > 0.0, lookAhead > 0.0 || estimator::state().var.fixFreqMode != 0);
        KvdLoz6TuReg_writeHistory(bool{in["toFlash"]});
        // A filter holds for hours that double, not for any time of a vector: the share counts.
        const bool isKept = out["histCountDown"].is_null();
        double wanted = isKept ? UNTOUCHED : double{out["histCountDown"]};
        if (lookAhead > 0.0 && !isKept) wanted = wanted / lookAhead * holds;
        EXPECT_EQ(measure::state().var.histCountDown, wanted);
        u8 record[HIST_RECORD_SIZE];
        if (KvdLoz6TuMem_read(MEM_REG_HIST, record, sizeof record) != 0) written = "msi";
    });
    if (!bench.file(HIST_FILE).empty()) written = written == "none" ? "flash" : "both";
    EXPECT_EQ(out["written"], written);
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
        if (!bool{in["serial_matches"]}) content[SERIAL_AT] ^= 1;
        const bool good = in["record_good"];
        if (!good) content.replace(HIST_U_AT, 8, "\x7F\xF8\0\0\0\0\0\0", 8);     // not a number
        bench.node.volumes().clear();
        bench.restart();
        noPersistentRecord(bench);
        bench.node.setCalendar(regtest::NOW + in["now_minus_freqWriteTime"].get<i64>());
        int result = -1;
        if (fromFlash) bench.node.volumes().write(HIST_FILE, content);
        bench.in([&] {
            if (!fromFlash && good)
                KvdLoz6TuMem_write(MEM_REG_HIST, regtest::bytesOf(content).data(), HIST_RECORD_SIZE);
            result = fromFlash ? KvdLoz6TuReg_initiateWithFlash(ROOM_TEMPERATURE_V)
                               : KvdLoz6TuReg_initiateWithMsi(ROOM_TEMPERATURE_V);
        });
        const char* const name = fromFlash ? "initiate_with_flash" : "initiate_with_msi";
        vectors::expect(name, result, out[name]);
    }
}

// ---- recovery ---------------------------------------------------------------------------------------------

/// One step: ["z", z, x_est[0], regState, selectedRef] or ["e", event, selectedRef]; reference 6 if left out.
void recoveryStep(const Value& step)
{
    const bool isEvent = step[0] == "e";
    if (!isEvent && step[0] != "z") throw std::runtime_error("no replay of the step " + step[0].dump());
    const std::size_t refAt = isEvent ? 2 : 4;
    measure::state().var.selectedRef = step.size() > refAt ? u32{step[refAt]} : 6;
    if (isEvent) return KvdLoz6TuReg_recoveryEvent(step[1]);
    estimator::state().var.x_est[0] = step[2];
    control::state().var.regState = step[3];
    KvdLoz6TuReg_recoveryWatch(step[1]);
}

void recovery(HistoryBench& bench, const Value& vector)
{
    const Value in = vector["in"];
    if (in.contains("step_form")) in["step_form"].read();
    bench.restart();
    bench.in([&] {
        std::size_t i = 0;
        vectors::eachStep(in["steps"], [&](const Value& step) {
            recoveryStep(step);
            const auto& r = KvdLoz6TuReg_recovery();
            const ControlStateVar& c = control::state().var;
            vectors::expectWanted({{"mode", r.recoveryModeState}, {"counter", r.steps},
                                   {"xf_limit", c.xf_limit},
                                   {"P00", estimator::state().var.P_est[0]}, {"f_lim_high", c.f_lim_high},
                                   {"f_lim_low", c.f_lim_low}}, vector["out"]["after"][i++]);
        });
    });
}

}  // namespace

TEST(HistoryCheckValues, Replay)
{
    HistoryBench bench;
    const auto row = [&bench](void (*replay)(HistoryBench&, const Value&)) {
        return [&bench, replay](const Value& vector) { replay(bench, vector); };
    };
    vectors::Document document("o05_history.json");
    vectors::eachKind(document["vectors"],
                      {{"encode", row(encode)}, {"decode", row(decode)}, {"layout", row(layout)},
                       {"convert", row(convert)}, {"validate", row(validate)}, {"choice", row(choice)},
                       {"readHistData", row(readHistData)}, {"writeOld", row(writeOld)},
                       {"writeGate", row(writeGate)}, {"initiateAge", row(initiateAge)},
                       {"imprec", row(recovery)}});
}
