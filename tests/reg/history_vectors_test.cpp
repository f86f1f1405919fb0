// Replay of check values: history record, flash files and their conversion, choice, recovery.
#include "reg/kvd_reg_imprec.h"
#include "reg/support/history_bench.h"
#include "support/vectors.h"

using regtest::HistoryBench;
using vectors::json;

namespace {

std::vector<u8> hex(const json& v)
{
    const std::string text = v.get<std::string>();
    std::vector<u8> bytes;
    for (std::size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<u8>(std::stoul(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

HistRecord recordOf(const json& f)
{
    const auto number = [&](const char* key) { return vectors::number(f[key]); };
    HistRecord h;
    h.freqWriteTime = f["freqWriteTime"];
    std::strncpy(h.serial, f["serial"].get<std::string>().c_str(), sizeof h.serial - 1);
    h.timeMode = f["timeMode"];
    h.selectedRef = f["selectedRef"];
    h.prevSelectedRef = f["prevSelectedRef"];
    for (u32 i = 0; i < 2; ++i) h.U[i] = vectors::number(f["U"][i]);
    for (u32 i = 0; i < 6; ++i) h.x_est[i] = vectors::number(f["x_est"][i]);
    for (u32 i = 0; i < 36; ++i) h.P_est[i] = vectors::number(f["P_est"][i]);
    h.delta0_c = number("delta0_c"), h.delta0_f = number("delta0_f"), h.t_mod = number("t_mod");
    h.T = number("T"), h.t_c_last = number("t_c_last"), h.t_f_last = number("t_f_last");
    return h;
}

/// Compares all but what `ignore` leaves out.
void expectBytes(const u8* got, const json& wanted, const json& ignore)
{
    std::vector<u8> left(got, got + HIST_RECORD_SIZE), right = hex(wanted);
    ASSERT_EQ(right.size(), left.size());
    for (const json& range : ignore)
        for (u32 i = range[0]; i < range[0].get<u32>() + range[1].get<u32>(); ++i)
            left[i] = right[i] = 0;
    EXPECT_EQ(left, right);
}

struct Coefficients {
    double coeff[3];
    explicit Coefficients(const json& in)
    {
        for (u32 i = 0; i < 3; ++i) coeff[i] = vectors::number(in["eeprom"][i]);
    }
};

void putFiles(HistoryBench& bench, const json& in)
{
    bench.node.volumes().clear();
    for (const auto& [key, path] : {std::pair{"data_1", HIST_FILE}, {"data", HIST_FILE_OLD}})
        if (in.contains(key) && !in[key].is_null())
            bench.node.volumes().write(path, regtest::asFile(hex(in[key])));
}

void encode(HistoryBench&, const json& in, const json& out, const json&)
{
    u8 record[HIST_RECORD_SIZE], again[HIST_RECORD_SIZE];
    KvdLoz6TuReg_packHistory(recordOf(in["fields"]), record);
    expectBytes(record, out["hex"], json::array());
    KvdLoz6TuReg_packHistory(KvdLoz6TuReg_unpackHistory(record), again);
    expectBytes(again, out["hex"], json::array());
}

void convert(HistoryBench& bench, const json& in, const json& out, const json&)
{
    u8 record[HIST_RECORD_SIZE];
    int done = 0;
    bench.in([&] {
        done = flashfile::convert(regtest::asFile(hex(in["file"])), Coefficients(in).coeff, record);
    });
    ASSERT_EQ(done != 0, !out["record_hex"].is_null());
    if (done != 0) expectBytes(record, out["record_hex"], out["ignore"]);
}

void validate(HistoryBench& bench, const json& in, const json& out, const json&)
{
    int valid = -1;
    bench.in([&] { valid = KvdLoz6TuReg_validateHistory(hex(in["hex"]).data()); });
    EXPECT_EQ(valid, out["valid"].get<int>());
}

void choice(HistoryBench& bench, const json& in, const json& out, const json& vector)
{
    putFiles(bench, in);
    json file;
    u8 record[HIST_RECORD_SIZE];
    bench.in([&] {
        std::string content;
        const char* const path = flashfile::choose(content);
        if (path == nullptr) return;
        file = path;
        EXPECT_EQ(flashfile::convert(content, Coefficients(in).coeff, record), 1);
    });
    if (vector.value("open", false) && file != out["file"]) {
        EXPECT_EQ(file, vector["alternatives"][0]["file"]);
        return;
    }
    ASSERT_EQ(file, out["file"]);
    if (!out["record_hex"].is_null()) expectBytes(record, out["record_hex"], out["ignore"]);
}

void readHistData(HistoryBench& bench, const json& in, const json& out, const json&)
{
    putFiles(bench, in);
    bench.restart();
    bench.node.setCalendar(in["now"].get<i64>());
    const u8 nothing[HIST_RECORD_SIZE] = {};
    bench.node.msi().put("TuRegHistData", nothing);
    bench.in([&] {
        if (!in["msi"].is_null()) {
            ASSERT_EQ(KvdLoz6TuMem_write(MEM_REG_HIST, hex(in["msi"]).data(), 456), 1);
        }
        u8 record[HIST_RECORD_SIZE];
        u32 fromMsi = 0;
        EXPECT_EQ(KvdLoz6TuReg_readHistData(record, fromMsi), out["result"].get<int>());
        EXPECT_EQ(regulator::state().msiUsed, out["msiUsed"].get<u32>());
        EXPECT_EQ(regulator::state().flashUsed, out["flashUsed"].get<u32>());
        if (out["result"] == 0) return;
        EXPECT_EQ(fromMsi, out["fromMsi"].get<u32>());
        expectBytes(record, out["record_hex"], json::array({{4, 8}}));
    });
}

void writeOld(HistoryBench& bench, const json& in, const json& out, const json&)
{
    bench.node.volumes().clear();
    bench.node.volumes().write(HIST_FILE_OLD, regtest::asFile(hex(in["before"])));
    bench.in([&] { EXPECT_EQ(KvdLoz6TuReg_writeFlashFile(hex(in["record"]).data()), 1); });
    const std::vector<u8> after = regtest::bytesOf(bench.file(HIST_FILE_OLD));
    ASSERT_EQ(after.size(), out["size"].get<std::size_t>());
    for (const json& check : out["checks"]) {
        const std::vector<u8> wanted = hex(check[1]);
        const auto at = after.begin() + check[0].get<int>();
        EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), at)) << check[0];
    }
    EXPECT_EQ(bench.file(HIST_FILE).substr(0, 456),
              regtest::asFile(hex(out["data_1"])).substr(0, 456));
}

void writeGate(HistoryBench& bench, const json& in, const json& out, const json&)
{
    if (in["serial_ok"] == 0) return;    // the board's serial number can't be taken away here
    bench.restart();
    bench.node.volumes().clear();
    bench.lock();
    bench.in([&] {
        regulator::state().masterSlaveMode = in["master"];
        estimator::state().var.fixFreqMode = in["fixFreqMode"];
        control::state().var.f_ix = in["f_ix"];
        KvdLoz6TuReg_writeHistory(in["toFlash"] == 1);
    });
    EXPECT_EQ(!bench.file(HIST_FILE).empty(), out["written"] == "flash");
}

void recovery(HistoryBench& bench, const json& in, const json& out, const json&)
{
    bench.restart();
    bench.in([&] {
        for (std::size_t i = 0; i < in["steps"].size(); ++i) {
            const json& step = in["steps"][i];
            const bool isEvent = step[0] == "e";
            const std::size_t refAt = isEvent ? 2 : 4;
            measure::state().var.selectedRef = step.size() > refAt ? step[refAt].get<u32>() : 6;
            EstimateStateVar& v = estimator::state().var;
            if (isEvent) {
                KvdLoz6TuReg_recoveryEvent(step[1]);
            } else {
                v.x_est[0] = vectors::number(step[2]);
                control::state().var.regState = step[3];
                KvdLoz6TuReg_recoveryWatch(vectors::number(step[1]));
            }
            const json& after = out["after"][i];
            EXPECT_EQ(KvdLoz6TuReg_recovery().recoveryModeState, after["mode"]) << i;
            EXPECT_EQ(KvdLoz6TuReg_recovery().steps, after["counter"]) << i;
            const ControlStateVar& c = control::state().var;
            const auto same = [&](const char* key, double value) {
                if (after[key].is_null()) return;
                EXPECT_EQ(value, vectors::number(after[key])) << i << key;
            };
            same("P00", v.P_est[0]);
            same("f_lim_high", c.f_lim_high);
            same("f_lim_low", c.f_lim_low);
            same("xf_limit", c.xf_limit);
        }
    });
}

struct Kind {
    const char* word;
    void (*replay)(HistoryBench&, const json& in, const json& out, const json& vector);
};
constexpr Kind KINDS[] = {{"encode", encode},     {"convert", convert},   {"validate", validate},
                          {"choice", choice},     {"readHistData", readHistData},
                          {"writeOld", writeOld}, {"writeGate", writeGate}, {"imprec", recovery}};

}  // namespace

TEST(HistoryCheckValues, Replay)
{
    TU_LOAD_VECTORS(document, "o05_history.json");
    HistoryBench bench;
    u32 replayed = 0;
    for (const json& vector : document["vectors"]) {
        SCOPED_TRACE(vector["id"].get<std::string>());
        for (const Kind& kind : KINDS) {
            if (vector["kind"] != kind.word) continue;
            kind.replay(bench, vector["in"], vector["out"], vector);
            ++replayed;
        }
    }
    EXPECT_EQ(replayed, 114u);           // the rest lists offsets, and ages that history_test.cpp tries
}
