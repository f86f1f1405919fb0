// Replay of the check values: registers.
#include "hw/check_values.h"

#include <gtest/gtest.h>

using namespace hwtest;

namespace {

void registerTable(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    u64 found = 0;
    bench.in([&] { found = tuHwIf_lookupRegister(u(v["in"]["id"])); });
    const Value address = v["out"]["address"];
    EXPECT_EQ(found >> 32 != 0, address.is_null());
    if (!address.is_null()) {
        EXPECT_EQ(static_cast<u32>(found), u(address));
    }
}

void registerLookupFailures(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    u64 found = 0;
    bench.in([&] { found = tuHwIf_lookupRegister(u(v["in"]["id"])); });
    EXPECT_EQ(found >> 32 != 0, v["out"]["failed"].get<bool>());
    EXPECT_EQ(bench.bus.countOf("Unable to look up register=") != 0,
              v["out"]["trace"].get<bool>());
}

void gpsOutOffset(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    int result = -1;
    bench.in(
        [&] { result = tuHwIf_adjustGpsOutOffset(u(v["in"]["frames"]), u(v["in"]["inc"])); });
    EXPECT_EQ(result != 0, v["out"]["failed"].get<bool>());
    const Value word = v["out"]["word"];
    EXPECT_EQ(bench.bus.writes.empty(), word.is_null());
    if (!word.is_null()) {
        EXPECT_EQ(bench.get(27), u(word));
    }
    if (!v["out"]["trace"].is_null()) {
        EXPECT_EQ(bench.bus.countOf(v["out"]["trace"].get<std::string>()), 1u);
    }
}

void stepLoad(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    bench.in([&] {
        tuHwIf_adjustSfc(static_cast<u16>(u(v["in"]["mfn"])),
                         static_cast<u16>(u(v["in"]["sfn"])), u(v["in"]["inc"]));
    });
    EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
}

void extSfcLoad(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    bench.in([&] { tuHwIf_adjustExtSfc(u(v["in"]["e"])); });
    EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
}

void loadSfc(const Value& v, const Value&)
{
    Bench bench(2);
    setRegisters(bench, v["in"]);
    int result = -1;
    bench.in([&] { result = tuHwIf_loadSfc(); });
    EXPECT_EQ(result, v["out"]["result"].get<int>());
    EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
    for (const Value text : v["out"]["traces"])
        EXPECT_EQ(bench.bus.countOf(text.get<std::string>()), 1u);
}

void resetSfcLoadRegisters(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    bench.in([] { tuHwIf_resetSfcLoadRegisters(); });
    EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
    EXPECT_EQ(bench.bus.countOf("unsupported hw") != 0, v["out"]["trace"].get<bool>());
}

void bfnOut(const Value& v, const Value&)
{
    const Value in = v["in"];
    const BfnOutWords w = packBfnExtended({u(in["inc_diff"]), u(in["e_sfc"]), u(in["rc_state"]),
                                           u(in["cold"]), u(in["jump"]), u(in["ms_flag"])});
    const std::vector<std::vector<u32>> writes = {{6, w.word1}, {7, w.word2}};
    EXPECT_EQ(v["out"]["writes"], writes);
}

void bfnIn(const Value& v, const Value&)
{
    const Value out = v["out"];
    const BfnInWords w = unpackBfnIn(u(v["in"]["board"]), u(v["in"]["2"]), u(v["in"]["3"]));
    EXPECT_EQ(w.valid, u(out["valid"]));
    EXPECT_EQ(w.parityError, u(out["parity"]));
    EXPECT_EQ(w.extended, u(out["extended"]));
    EXPECT_EQ(w.local.mfn, u(out["l_mfn"]));
    EXPECT_EQ(w.local.sfn, u(out["l_sfn"]));
    EXPECT_EQ(w.local.inc, u(out["l_inc"]));
    EXPECT_EQ(w.remoteMfn, u(out["r_mfn"]));
    EXPECT_EQ(w.remoteSfn, u(out["r_sfn"]));
}

void bfnExt(const Value& v, const Value&)
{
    const Value out = v["out"];
    const BfnExtended e = unpackBfnExtended(u(v["in"]["4"]), u(v["in"]["5"]));
    EXPECT_EQ(e.inc_diff, u(out["inc_diff"]));
    EXPECT_EQ(e.e_sfc, u(out["e_sfc"]));
    EXPECT_EQ(e.rc_state, u(out["rc_state"]));
    EXPECT_EQ(e.coldRestartFlag_tmp, u(out["cold"]));
    EXPECT_EQ(e.jump, u(out["jump"]));
    EXPECT_EQ(e.ms_flag, u(out["ms_flag"]));
}

void toggleStatus(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    const u32 raw = u(v["in"]["raw"]);
    if (u(v["in"]["board"]) != 0) bench.set(50, raw);
    u32 word = 9;
    bench.in([&] { word = HALI_readToggleStatus(); });
    EXPECT_EQ(word, u(v["out"]["word"]));
}

void isrEnable(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    bench.set(10, u(v["in"]["10"]));
    bench.in([&] { tuHwIf_enableIsr(u(v["in"]["mask"])); });
    EXPECT_EQ(bench.get(10), u(v["out"]["enabled"]));
    bench.set(10, u(v["in"]["10"]));
    bench.in([&] { tuHwIf_disableIsr(u(v["in"]["mask"])); });
    EXPECT_EQ(bench.get(10), u(v["out"]["disabled"]));
}

void isrPending(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    setRegisters(bench, v["in"]);
    u32 pending = 9;
    bench.in([&] { pending = tuHwIf_readPendingIsr(); });
    EXPECT_EQ(pending, u(v["out"]["pending"]));
    const Value back = v["out"]["writeBack"];
    std::vector<std::pair<u32, u32>> writes;
    if (!back.is_null()) writes.emplace_back(bench.address(11), u(back));
    EXPECT_EQ(bench.takeWrites(), writes);
}

void selectRef(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    bench.set(52, u(v["in"]["52"]));
    int result = -1;
    bench.in([&] { result = tuHwIf_selectSynchRef(u(v["in"]["selector"])); });
    EXPECT_EQ(result != 0, v["out"]["failed"].get<bool>());
    const Value word = v["out"]["word"];
    EXPECT_EQ(bench.get(52), word.is_null() ? u(v["in"]["52"]) : u(word));
}

void gpsOutEnable(const Value& v, const Value&)
{
    Bench bench(2);
    const auto after = [&](const std::function<void()>& change) {
        bench.set(52, u(v["in"]["52"]));
        bench.in(change);
        return bench.get(52);
    };
    u32 enabled = 9;
    after([&] { enabled = tuHwIf_isGpsOutEnabled(); });
    EXPECT_EQ(enabled, u(v["out"]["isEnabled"]));
    EXPECT_EQ(after([] { tuHwIf_enableGpsOut(1); }), u(v["out"]["on"]));
    EXPECT_EQ(after([] { tuHwIf_enableGpsOut(0); }), u(v["out"]["off"]));
    EXPECT_EQ(after([] { enableExternalPll(); }), u(v["out"]["externalPllOn"]));
}

void frameSync(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    setRegisters(bench, v["in"]);
    const std::string op = v["in"]["op"].get<std::string>();
    const u32 value = u(v["in"]["value"]);
    bench.in([&] {
        if (op == "setFsync") tuHwIf_setFsync(value);
        else if (op == "setFsyncInterval") tuHwIf_setFsyncInterval(value);
        else if (op == "setFsyncPattern") tuHwIf_setFsyncPattern(value);
        else tuHwIf_setFsyncAlignment(value);
    });
    EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
    EXPECT_EQ(bench.bus.countOf("should only be used for BVQ3 boards.") != 0,
              v["out"]["trace"].get<bool>());
}

void deltaSigma64(const Value& v, const Value&)
{
    EXPECT_EQ(deltaSigmaValue(u(v["in"]["high"]), u(v["in"]["low"])),
              v["out"]["value"].get<i64>());
}

void deltaSigmaWrite(const Value& v, const Value&)
{
    Bench bench(1);
    bench.in([&] { tuHwIf_writeDeltaSigmaK(v["in"]["value"].get<i64>()); });
    EXPECT_EQ(bench.get(78), u(v["out"]["high"]));
    EXPECT_EQ(bench.get(79), u(v["out"]["low"]));
    EXPECT_EQ(bench.bus.countOf("writeDeltaSigmaK failed for value") == 0,
              v["out"]["readsBack"].get<bool>());
}

void nominalDivisor(const Value& v, const Value&)
{
    Bench bench(1);
    if (v["in"].contains("write")) {
        bench.in([&] { tuHwIf_writeNominalDivisor(u(v["in"]["write"])); });
        EXPECT_EQ(bench.get(75), u(v["out"]["word"]));
        return;
    }
    bench.set(75, u(v["in"]["word"]));
    u32 read = 0;
    bench.in([&] { read = tuHwIf_readNominalDivisor(); });
    EXPECT_EQ(read, u(v["out"]["read"]));
}

void checkedWrite(const Value& v, const Value&)
{
    Bench bench(1);
    const u32 at = bench.address(75);
    const u32 good = v["in"]["goodRead"].is_null() ? 99 : u(v["in"]["goodRead"]);
    bench.bus.onRead[at] = [&, at](u32 stored) {
        return bench.bus.reads[at] >= good ? stored : 0;
    };
    const ose::Time before = bench.world.now();
    bench.in([] { tuHwIf_writeNominalDivisor(705); });
    EXPECT_EQ(bench.takeWrites().size(), u(v["out"]["writes"]));
    EXPECT_EQ(bench.bus.reads[at], u(v["out"]["reads"]));
    EXPECT_EQ(bench.world.now() - before, u(v["out"]["delays"]) * 10 * ose::MS);
    for (const Value n : v["out"]["failedTraces"])
        EXPECT_EQ(bench.bus.countOf("writeNominalDivisor failed " + n.dump() + " times"), 1u);
    EXPECT_EQ(bench.bus.countOf("writeNominalDivisor failed for value") != 0,
              v["out"]["levelOneTrace"].get<bool>());
}

void deltaSigmaEnable(const Value& v, const Value&)
{
    Bench bench(1);
    setRegisters(bench, v["in"]);
    bench.in([] { tuHwIf_enableDeltaSigma(); });
    EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
}

void synthesiserStatus(const Value& v, const Value&)
{
    EXPECT_EQ(hwif::synthStatus(u(v["in"]["74"])), u(v["out"]["status"]));
}

void isEepromLoaded(const Value& v, const Value&)
{
    Bench bench(1);
    setRegisters(bench, v["in"]);
    u32 loaded = 9;
    bench.in([&] { loaded = tuHwIf_isEepromLoaded(); });
    EXPECT_EQ(loaded, u(v["out"]["loaded"]));
}

void revision(const Value& v, const Value&)
{
    EXPECT_EQ(isRevision3(u(v["in"]["word"])), v["out"]["isRev3"].get<int>() == 1);
    EXPECT_EQ(hasMultiplicatorReadBack(u(v["in"]["word"])),
              v["out"]["checkedSequence"].get<int>() == 1);
}

void phaseDetectorOfTheBoard(const Value& v, const Value&)
{
    Bench bench(u(v["in"]["board"]));
    for (const char* name : {"bvqmodule", "productnumber", "productrevision"}) {
        if (v["in"][name].is_null()) bench.bus.parameters.erase(name);
        else bench.bus.parameters[name] = v["in"][name].get<std::string>();
    }
    u32 flag = 9;
    bench.in([&] { flag = tuHwIf_checkExtPhaseDetector(); });
    if (v.contains("alt")) v["alt"].read();      // what is told when the revision can't be read
    EXPECT_EQ(flag, u(v["out"]["flag"]));
}

enum class Counter { Running, Latched, Output };

void counterAsRead(const Value& v, Counter counter)
{
    const Value out = v["out"];
    Bench bench(u(v["in"]["board"]));
    setRegisters(bench, v["in"]);
    v["in"].read();
    u16 mfn = 9, sfn = 9, frame = 9;
    u32 inc = 9;
    double period = 9, time = 9, frameTime = 9;
    int result = -1;
    bench.in([&] {
        switch (counter) {
        case Counter::Running:
            result = tuHwIf_readSfc(mfn, sfn, inc);
            tuHwIf_readTime(period, time);
            tuHwIf_getSfnAndCorrespondingTime(frame, period, frameTime);
            break;
        case Counter::Latched:
            result = tuHwIf_readGpsFc(mfn, sfn, inc);
            tuHwIf_readLatchedRefClock(period, time);
            break;
        case Counter::Output: result = tuHwIf_readGpsOutSfc(mfn, sfn, inc); break;
        }
    });
    EXPECT_EQ(result, out["result"].get<int>());
    EXPECT_EQ(mfn, uOrZero(out["mfn"]));
    EXPECT_EQ(sfn, uOrZero(out["sfn"]));
    EXPECT_EQ(inc, uOrZero(out["inc"]));
    if (out.contains("time")) {
        EXPECT_EQ(time, numberOrZero(out["time"]));
    }
    if (out.contains("period")) {
        EXPECT_EQ(period, numberOrZero(out["period"]));
    }
    if (out.contains("sfnTime")) {
        EXPECT_EQ(frameTime, numberOrZero(out["sfnTime"]));
    }
    const Value fault = out["fault"];
    EXPECT_EQ(bench.bus.countOf("out of range") > 0, !fault.is_null());
    if (!fault.is_null()) {
        EXPECT_GE(bench.bus.countOf(fault.get<std::string>() + " value out of range"), 1u);
    }
}

}  // namespace

TEST(CheckValues, Registers)
{
    const auto read = [](Counter counter) {
        return [counter](const Value& v, const Value&) { counterAsRead(v, counter); };
    };
    vectors::Document document("o01_registers.json");
    vectors::eachGroup(document["groups"],
        {{"registerTable", registerTable}, {"registerLookupFailures", registerLookupFailures},
         {"gpsOutOffset", gpsOutOffset}, {"stepLoad", stepLoad}, {"extSfcLoad", extSfcLoad},
         {"loadSfc", loadSfc}, {"resetSfcLoadRegisters", resetSfcLoadRegisters}, {"bfnOut", bfnOut},
         {"bfnIn", bfnIn}, {"bfnExt", bfnExt}, {"toggleStatus", toggleStatus}, {"isrEnable", isrEnable},
         {"isrPending", isrPending}, {"selectRef", selectRef}, {"gpsOutEnable", gpsOutEnable},
         {"fsync", frameSync}, {"deltaSigma64", deltaSigma64}, {"deltaSigmaWrite", deltaSigmaWrite},
         {"nominalDivisor", nominalDivisor}, {"checkedWrite", checkedWrite},
         {"deltaSigmaEnable", deltaSigmaEnable}, {"synthStatus", synthesiserStatus},
         {"isEepromLoaded", isEepromLoaded}, {"revision", revision},
         {"extPhaseDetector", phaseDetectorOfTheBoard},
         {"runningCounter", read(Counter::Running)}, {"latch1pps", read(Counter::Latched)},
         {"gpsOutCounter", read(Counter::Output)}});
}
