// Replay of the check values of registers: what their words mean, what is written.
#include "tests/hw/values_bench.h"

using namespace hwtest;

namespace {

json registerOf(Board&, const Value& in, const Value&)
{
    const u64 found = tuHwIf_lookupRegister(u(in["id"]));
    const bool failed = found >> 32 == 1;
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
    vectors::rowOf(OPERATIONS, in["op"].get<std::string>())(u(in["value"]));
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

json checkedWrite(Board& b, const Value& in, const Value&)
{
    const u32 at = addressOf(75), good = in["goodRead"].is_null() ? 99 : u(in["goodRead"]);
    b.bus.onRead[at] = [&b, at, good](u32 stored) { return b.bus.reads[at] >= good ? stored : 0; };
    const ose::Time before = b.world.now();
    tuHwIf_writeNominalDivisor(705);
    EXPECT_EQ((b.world.now() - before) % (10 * ose::MS), 0u);
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
    EXPECT_EQ(got["sfn"], frame);
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
    return tuHwIf_adjustSfc({u16Of(in["mfn"]), u16Of(in["sfn"]), u(in["inc"])}), NOTHING;
}
json extSfcLoad(const Value& in) { return tuHwIf_adjustExtSfc(u(in["e"])), NOTHING; }
json loadSfc(const Value&) { return {{"result", tuHwIf_loadSfc() ? 0 : 1}}; }
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
