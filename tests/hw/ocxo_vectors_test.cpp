// Replay of the check values of the oscillator's EEPROM.
#include "tests/hw/values_bench.h"

using namespace hwtest;

namespace {

json voltsOfTemperature(Board&, const Value& in, const Value&)
{
    double volts = -9;
    const int result = temperatureVolts(u(in["word"]), in["isRev3"] == 1, volts);
    return {{"result", result}, {"volts", volts == -9 ? json() : json(volts)}};
}

json coeffPlain(Board& b, const Value& in, const Value&)
{
    for (u32 i = 0; i < in["regs"].size(); ++i) reg(b, u(in["regs"][i])) = u(in[i == 0 ? "high" : "low"]);
    for (const char* key : {"regs", "high", "low"}) in[key].read();    // without a register, too
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
    u32 provided = 0, calculated = 0;
    for (const auto& [level, text] : b.bus.traces)
        std::sscanf(text.c_str(), "EEPROM checksum: provided=%Xh, calculated=%Xh", &provided, &calculated);
    return {{"valid", result == 0 ? 1 : 0}, {"result", result == 1 ? json("nonzero") : json(result)},
            {"calculated", calculated}, {"provided", provided},
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
    const ose::Time before = b.world.now();
    const int result = startOcxo() ? 0 : 1;
    // Each takes 50 ms and up to 5 s of polls, and 10 ms until the next after a bad sum.
    const auto count = [&](const char* how) { return static_cast<u32>(std::ranges::count(reads, how)); };
    EXPECT_EQ(b.world.now() - before,
              (50 * attempts + 10 * count("sum") + 5000 * count("timeout")) * ose::MS);
    return {{"result", result},
            {"attempts", attempts},
            {"failedTraces", numbersTraced(b, "after reading OCXO data ", " times")}};
}

json serialAndPart(Board& b, const Value& in, const Value& v)
{
    putBlock(b.bus, BASE_2B, vectors::bytes(in["block"]));
    char serial[18], part[12];
    u8 version = 0, maker = 0;
    const int result = tuHwIf_readOcxoSerial(serial, version, maker);
    tuHwIf_readOcxoPartNum(part);
    json got = {{"result", result}, {"part", UNSEEN}, {"text", {}}, {"version", {}}, {"manufacturer", {}}};
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
    json got = {{"ok", 0}, {"year", {}}, {"month", {}}, {"day", {}}};
    const int result = tuHwIf_readOcxoCalibDate(date);
    EXPECT_LE(result, 1);
    if (result == 0)
        got = {{"ok", 1}, {"year", date.tm_year + 1900}, {"month", date.tm_mon + 1}, {"day", date.tm_mday}};
    return got;
}

json isCalibrated(Board& b, const Value& in, const Value&)
{
    putDate(b, in);
    b.bus.now.seconds = in["now"].get<i64>();
    std::tm date{};
    const bool isKnown = tuHwIf_readOcxoCalibDate(date) == 0;
    return {{"valid", tuHwIf_isCalibrated() != 0 ? 1 : 0},
            {"days", isKnown ? json(daysSince(date, b.bus.now.seconds)) : json()}};
}

}  // namespace

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
