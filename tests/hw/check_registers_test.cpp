// Replay of the check values: registers. A row is a call and what came of it, under the words of the file.
#include "hw/check_values.h"

#include <gtest/gtest.h>

using namespace hwtest;
using nlohmann::json;

namespace {

using Call = std::function<json(Bench&, const Value& in)>;
using Row = std::function<void(const Value&, const Value&)>;

/// What a register holds; within the program.
u32& reg(Bench& b, u32 id) { return b.bus.memory[static_cast<u32>(tuHwIf_lookupRegister(id))]; }

/// The word that went to that register and nowhere else, null when nothing was written.
json written(Bench& b, u32 id)
{
    if (b.bus.writes.empty()) return nullptr;
    const auto& [address, word] = b.bus.writes[0];
    if (b.bus.writes.size() > 1 || address != static_cast<u32>(tuHwIf_lookupRegister(id))) return "other";
    return word;
}

/// Runs the call on a board with the registers that the vector has. "trace" of a call that names one tells
/// whether it was said; else traces are texts of the file.
Row on(u32 board, Call call, const char* trace = nullptr)
{
    return [=](const Value& v, const Value&) {
        const Value in = v["in"];
        Bench bench(in.contains("board") ? u(in["board"]) : board);
        setRegisters(bench, in);
        if (v.contains("alt")) v["alt"].read();      // another reading, where the text leaves it open
        json got;
        bench.in([&] { got = call(bench, in); });
        for (const auto& [key, wanted] : v["out"].items()) {
            SCOPED_TRACE(key);
            if (key == "writes" && wanted.is_array()) {
                EXPECT_EQ(bench.takeWrites(), expected(bench, wanted));
            } else if (key == "traces") {
                for (const Value text : wanted) expectTraced(bench, text);
            } else if (key == "trace" && trace != nullptr) {
                EXPECT_EQ(bench.bus.countOf(trace) != 0, wanted.get<bool>());
            } else if (key == "trace") {
                if (!wanted.is_null()) expectTraced(bench, wanted);
            } else {
                EXPECT_EQ(got.value(key, json("not told")), wanted.read());
            }
        }
    };
}

json registerOf(Bench&, const Value& in)
{
    const u64 found = tuHwIf_lookupRegister(u(in["id"]));
    const bool failed = found >> 32 != 0;
    return {{"failed", failed}, {"address", failed ? json() : json(static_cast<u32>(found))}};
}

json bfnIn(Bench&, const Value& in)
{
    const BfnInWords w = unpackBfnIn(u(in["board"]), u(in["2"]), u(in["3"]));
    return {{"valid", w.valid},         {"parity", w.parityError},  {"extended", w.extended},
            {"l_mfn", w.local.mfn},     {"l_sfn", w.local.sfn},     {"l_inc", w.local.inc},
            {"r_mfn", w.remoteMfn},     {"r_sfn", w.remoteSfn}};
}

json bfnExt(Bench&, const Value& in)
{
    const BfnExtended e = unpackBfnExtended(u(in["4"]), u(in["5"]));
    return {{"inc_diff", e.inc_diff}, {"e_sfc", e.e_sfc}, {"rc_state", e.rc_state},
            {"cold", e.coldRestartFlag_tmp}, {"jump", e.jump}, {"ms_flag", e.ms_flag}};
}

json gpsOutOffset(Bench& b, const Value& in)
{
    const int result = tuHwIf_adjustGpsOutOffset(u(in["frames"]), u(in["inc"]));
    return {{"failed", result != 0}, {"word", written(b, 27)}};
}

json isrPending(Bench& b, const Value&)
{
    const u32 pending = tuHwIf_readPendingIsr();
    return {{"pending", pending}, {"writeBack", written(b, 11)}};
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

json isrEnable(Bench& b, const Value& in)
{
    const u32 mask = u(in["mask"]);
    return changes(b, 10, {{"enabled", [=] { tuHwIf_enableIsr(mask); }},
                           {"disabled", [=] { tuHwIf_disableIsr(mask); }}});
}

json gpsOutEnable(Bench& b, const Value&)
{
    const u32 enabled = tuHwIf_isGpsOutEnabled();
    json got = changes(b, 52, {{"on", [] { tuHwIf_enableGpsOut(1); }},
                               {"off", [] { tuHwIf_enableGpsOut(0); }},
                               {"externalPllOn", [] { enableExternalPll(); }}});
    got["isEnabled"] = enabled;
    return got;
}

json selectRef(Bench& b, const Value& in)
{
    const bool failed = tuHwIf_selectSynchRef(u(in["selector"])) != 0;
    const bool isAsBefore = reg(b, 52) == u(in["52"]);
    return {{"failed", failed}, {"word", failed && isAsBefore ? json() : json(reg(b, 52))}};
}

json frameSync(Bench&, const Value& in)
{
    const std::string op = in["op"].get<std::string>();
    const u32 value = u(in["value"]);
    if (op == "setFsync") tuHwIf_setFsync(value);
    else if (op == "setFsyncInterval") tuHwIf_setFsyncInterval(value);
    else if (op == "setFsyncPattern") tuHwIf_setFsyncPattern(value);
    else tuHwIf_setFsyncAlignment(value);
    return json::object();
}

json deltaSigmaWrite(Bench& b, const Value& in)
{
    tuHwIf_writeDeltaSigmaK(in["value"].get<i64>());
    return {{"high", reg(b, 78)}, {"low", reg(b, 79)},
            {"readsBack", b.bus.countOf("writeDeltaSigmaK failed for value") == 0}};
}

json nominalDivisor(Bench& b, const Value& in)
{
    if (in.contains("write")) tuHwIf_writeNominalDivisor(u(in["write"]));
    else                      reg(b, 75) = u(in["word"]);
    return {{"word", reg(b, 75)}, {"read", tuHwIf_readNominalDivisor()}};
}

json checkedWrite(Bench& b, const Value& in)
{
    const u32 at = static_cast<u32>(tuHwIf_lookupRegister(75));
    const u32 good = in["goodRead"].is_null() ? 99 : u(in["goodRead"]);
    b.bus.onRead[at] = [&b, at, good](u32 stored) { return b.bus.reads[at] >= good ? stored : 0; };
    const ose::Time before = b.world.now();
    tuHwIf_writeNominalDivisor(705);
    json failed = json::array();
    for (u32 n = 1; n <= 4; ++n)
        if (b.bus.countOf("writeNominalDivisor failed " + std::to_string(n) + " times") == 1)
            failed.push_back(n);
    return {{"writes", b.bus.writes.size()}, {"reads", b.bus.reads[at]},
            {"delays", (b.world.now() - before) / (10 * ose::MS)}, {"failedTraces", failed},
            {"levelOneTrace", b.bus.levelOf("writeNominalDivisor failed for value") == 1}};
}

json phaseDetectorOfTheBoard(Bench& b, const Value& in)
{
    for (const char* name : {"bvqmodule", "productnumber", "productrevision"}) {
        if (in[name].is_null()) b.bus.parameters.erase(name);
        else b.bus.parameters[name] = in[name].get<std::string>();
    }
    return {{"flag", tuHwIf_checkExtPhaseDetector()}};
}

/// A counter with the fault that was traced; where `isNull`, what a failed operation leaves isn't told.
json counterOf(Bench& b, int result, u16 mfn, u16 sfn, u32 inc, bool isNull = false)
{
    json fault;
    for (const char* field : {"MFC", "Increment"})
        if (b.bus.countOf(std::string(field) + " value out of range") > 0) fault = field;
    if (result != 0 && isNull && mfn + sfn + inc == 0)
        return {{"result", result}, {"fault", fault}, {"mfn", nullptr}, {"sfn", nullptr}, {"inc", nullptr}};
    return {{"result", result}, {"fault", fault}, {"mfn", mfn}, {"sfn", sfn}, {"inc", inc}};
}

json runningCounter(Bench& b, const Value&)
{
    u16 mfn = 9, sfn = 9, frame = 9;
    u32 inc = 9;
    double period = 9, time = 9, frameTime = 9;
    const int result = tuHwIf_readSfc(mfn, sfn, inc);
    json got = counterOf(b, result, mfn, sfn, inc);
    tuHwIf_readTime(period, time);
    tuHwIf_getSfnAndCorrespondingTime(frame, period, frameTime);
    got.update({{"period", period}, {"time", time}, {"sfnTime", frameTime}});
    if (result != 0 && frameTime == 0.0) got["sfnTime"] = nullptr;
    return got;
}

json latchedCounter(Bench& b, const Value&)
{
    u16 mfn = 9, sfn = 9;
    u32 inc = 9;
    double period = 9, time = 9;
    const int result = tuHwIf_readGpsFc(mfn, sfn, inc);
    json got = counterOf(b, result, mfn, sfn, inc);
    tuHwIf_readLatchedRefClock(period, time);
    got.update({{"period", period}, {"time", time}});
    return got;
}

json outputCounter(Bench& b, const Value&)
{
    u16 mfn = 9, sfn = 9;
    u32 inc = 9;
    const int result = tuHwIf_readGpsOutSfc(mfn, sfn, inc);
    return counterOf(b, result, mfn, sfn, inc, true);
}

}  // namespace

TEST(CheckValues, Registers)
{
    const json nothing = json::object();
    const vectors::Groups rows = {
        {"registerTable", on(0, registerOf)},
        {"registerLookupFailures", on(0, registerOf, "Unable to look up register=")},
        {"runningCounter", on(0, runningCounter)},
        {"latch1pps", on(0, latchedCounter)},
        {"gpsOutCounter", on(0, outputCounter)},
        {"gpsOutOffset", on(0, gpsOutOffset)},
        {"stepLoad", on(0, [=](Bench&, const Value& in) {
             tuHwIf_adjustSfc(static_cast<u16>(u(in["mfn"])), static_cast<u16>(u(in["sfn"])), u(in["inc"]));
             return nothing;
         })},
        {"extSfcLoad",
         on(0, [=](Bench&, const Value& in) { return tuHwIf_adjustExtSfc(u(in["e"])), nothing; })},
        {"loadSfc", on(2, [](Bench&, const Value&) { return json{{"result", tuHwIf_loadSfc()}}; })},
        {"resetSfcLoadRegisters",
         on(0, [=](Bench&, const Value&) { return tuHwIf_resetSfcLoadRegisters(), nothing; },
            "unsupported hw")},
        {"bfnOut", on(1, [=](Bench&, const Value& in) {
             tuHwIf_writeBfnOutPacked(u(in["inc_diff"]), u(in["e_sfc"]), u(in["rc_state"]), u(in["jump"]),
                                      u(in["cold"]), u(in["ms_flag"]));
             return nothing;
         })},
        {"bfnIn", on(0, bfnIn)},
        {"bfnExt", on(1, bfnExt)},
        {"toggleStatus", on(0, [](Bench& b, const Value& in) {
             reg(b, 50) = u(in["raw"]);
             return json{{"word", HALI_readToggleStatus()}};
         })},
        {"isrEnable", on(0, isrEnable)},
        {"isrPending", on(0, isrPending)},
        {"selectRef", on(0, selectRef)},
        {"gpsOutEnable", on(2, gpsOutEnable)},
        {"fsync", on(0, frameSync, "should only be used for BVQ3 boards.")},
        {"deltaSigma64", on(1, [](Bench&, const Value& in) {
             return json{{"value", deltaSigmaValue(u(in["high"]), u(in["low"]))}};
         })},
        {"deltaSigmaWrite", on(1, deltaSigmaWrite)},
        {"nominalDivisor", on(1, nominalDivisor)},
        {"checkedWrite", on(1, checkedWrite)},
        {"deltaSigmaEnable",
         on(1, [=](Bench&, const Value&) { return tuHwIf_enableDeltaSigma(), nothing; })},
        {"synthStatus", on(1, [](Bench&, const Value& in) {
             return json{{"status", hwif::synthStatus(u(in["74"]))}};
         })},
        {"isEepromLoaded",
         on(1, [](Bench&, const Value&) { return json{{"loaded", tuHwIf_isEepromLoaded()}}; })},
        {"revision", on(1, [](Bench&, const Value& in) {
             return json{{"isRev3", isRevision3(u(in["word"])) ? 1 : 0},
                         {"checkedSequence", hasMultiplicatorReadBack(u(in["word"])) ? 1 : 0}};
         })},
        {"extPhaseDetector", on(0, phaseDetectorOfTheBoard)}};
    vectors::Document document("o01_registers.json");
    vectors::eachGroup(document["groups"], rows);
}
