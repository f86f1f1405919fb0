// Replay of the check values: registers.
#include "hw/check_values.h"

#include <gtest/gtest.h>

using namespace hwtest;

TEST(CheckValues, RegisterTable)
{
    TU_LOAD_VECTORS(doc, "o01_registers.json");
    for (const json& v : group(doc, "registerTable")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        u64 found = 0;
        bench.in([&] { found = tuHwIf_lookupRegister(u(v["in"]["id"])); });
        const json& address = v["out"]["address"];
        EXPECT_EQ(found >> 32 != 0, address.is_null());
        if (!address.is_null()) {
            EXPECT_EQ(static_cast<u32>(found), u(address));
        }
    }
    for (const json& v : group(doc, "registerLookupFailures")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        u64 found = 0;
        bench.in([&] { found = tuHwIf_lookupRegister(u(v["in"]["id"])); });
        EXPECT_NE(found >> 32, 0u);
        EXPECT_EQ(bench.bus.countOf("Unable to look up register=") != 0,
                  v["out"]["trace"].get<bool>());
    }
}

TEST(CheckValues, CountersAsRead)
{
    TU_LOAD_VECTORS(doc, "o01_registers.json");
    for (const char* name : {"runningCounter", "latch1pps", "gpsOutCounter"})
        for (const json& v : group(doc, name)["vectors"]) {
            SCOPED_TRACE(std::string(name) + idOf(v));
            Bench bench(u(v["in"]["board"]));
            setRegisters(bench, v["in"]);
            const json& out = v["out"];
            u16 mfn = 9, sfn = 9, frame = 9;
            u32 inc = 9;
            double period = 9, time = 9, frameTime = 9;
            bench.in([&] {
                if (name[0] == 'r') {
                    EXPECT_EQ(tuHwIf_readSfc(mfn, sfn, inc), out["result"].get<int>());
                    tuHwIf_readTime(period, time);
                    tuHwIf_getSfnAndCorrespondingTime(frame, period, frameTime);
                } else if (name[0] == 'l') {
                    EXPECT_EQ(tuHwIf_readGpsFc(mfn, sfn, inc), out["result"].get<int>());
                    tuHwIf_readLatchedRefClock(period, time);
                } else {
                    EXPECT_EQ(tuHwIf_readGpsOutSfc(mfn, sfn, inc), out["result"].get<int>());
                }
            });
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
            if (out["fault"].is_string())
                EXPECT_GE(
                    bench.bus.countOf(out["fault"].get<std::string>() + " value out of range"), 1u);
            else EXPECT_EQ(bench.bus.countOf("out of range"), 0u);
        }
}

TEST(CheckValues, CounterLoads)
{
    TU_LOAD_VECTORS(doc, "o01_registers.json");
    for (const json& v : group(doc, "gpsOutOffset")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        int result = -1;
        bench.in(
            [&] { result = tuHwIf_adjustGpsOutOffset(u(v["in"]["frames"]), u(v["in"]["inc"])); });
        EXPECT_EQ(result != 0, v["out"]["failed"].get<bool>());
        if (v["out"]["word"].is_null()) EXPECT_TRUE(bench.bus.writes.empty());
        else EXPECT_EQ(bench.get(27), u(v["out"]["word"]));
        if (v["out"]["trace"].is_string()) {
            EXPECT_EQ(bench.bus.countOf(v["out"]["trace"].get<std::string>()), 1u);
        }
    }
    for (const json& v : group(doc, "stepLoad")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        bench.in([&] {
            tuHwIf_adjustSfc(static_cast<u16>(u(v["in"]["mfn"])),
                             static_cast<u16>(u(v["in"]["sfn"])), u(v["in"]["inc"]));
        });
        EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
    }
    for (const json& v : group(doc, "extSfcLoad")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(2);
        bench.in([&] { tuHwIf_adjustExtSfc(u(v["in"]["e"])); });
        EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
    }
    for (const json& v : group(doc, "loadSfc")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(2);
        setRegisters(bench, v["in"]);
        int result = -1;
        bench.in([&] { result = tuHwIf_loadSfc(); });
        EXPECT_EQ(result, v["out"]["result"].get<int>());
        EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
        for (const json& text : v["out"]["traces"])
            EXPECT_EQ(bench.bus.countOf(text.get<std::string>()), 1u);
    }
    for (const json& v : group(doc, "resetSfcLoadRegisters")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        bench.in([] { tuHwIf_resetSfcLoadRegisters(); });
        EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
        EXPECT_EQ(bench.bus.countOf("unsupported hw") != 0, v["out"]["trace"].get<bool>());
    }
}

TEST(CheckValues, BfnWords)
{
    TU_LOAD_VECTORS(doc, "o01_registers.json");
    for (const json& v : group(doc, "bfnOut")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        const json& in = v["in"];
        const BfnOutWords w = packBfnExtended({u(in["inc_diff"]), u(in["e_sfc"]), u(in["rc_state"]),
                                               u(in["cold"]), u(in["jump"]), u(in["ms_flag"])});
        EXPECT_EQ(w.word1, u(v["out"]["writes"][0][1]));
        EXPECT_EQ(w.word2, u(v["out"]["writes"][1][1]));
    }
    for (const json& v : group(doc, "bfnIn")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        const json& out = v["out"];
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
    for (const json& v : group(doc, "bfnExt")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        const json& out = v["out"];
        const BfnExtended e = unpackBfnExtended(u(v["in"]["4"]), u(v["in"]["5"]));
        EXPECT_EQ(e.inc_diff, u(out["inc_diff"]));
        EXPECT_EQ(e.e_sfc, u(out["e_sfc"]));
        EXPECT_EQ(e.rc_state, u(out["rc_state"]));
        EXPECT_EQ(e.coldRestartFlag_tmp, u(out["cold"]));
        EXPECT_EQ(e.jump, u(out["jump"]));
        EXPECT_EQ(e.ms_flag, u(out["ms_flag"]));
    }
}

TEST(CheckValues, ReferencesAndInterrupts)
{
    TU_LOAD_VECTORS(doc, "o01_registers.json");
    for (const json& v : group(doc, "toggleStatus")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        if (u(v["in"]["board"]) != 0) bench.set(50, u(v["in"]["raw"]));
        u32 word = 9;
        bench.in([&] { word = HALI_readToggleStatus(); });
        EXPECT_EQ(word, u(v["out"]["word"]));
    }
    for (const json& v : group(doc, "isrEnable")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        bench.set(10, u(v["in"]["10"]));
        bench.in([&] { tuHwIf_enableIsr(u(v["in"]["mask"])); });
        EXPECT_EQ(bench.get(10), u(v["out"]["enabled"]));
        bench.set(10, u(v["in"]["10"]));
        bench.in([&] { tuHwIf_disableIsr(u(v["in"]["mask"])); });
        EXPECT_EQ(bench.get(10), u(v["out"]["disabled"]));
    }
    for (const json& v : group(doc, "isrPending")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        setRegisters(bench, v["in"]);
        u32 pending = 9;
        bench.in([&] { pending = tuHwIf_readPendingIsr(); });
        EXPECT_EQ(pending, u(v["out"]["pending"]));
        const json& back = v["out"]["writeBack"];
        std::vector<std::pair<u32, u32>> writes;
        if (!back.is_null()) writes.emplace_back(bench.address(11), u(back));
        EXPECT_EQ(bench.takeWrites(), writes);
    }
    for (const json& v : group(doc, "selectRef")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        bench.set(52, u(v["in"]["52"]));
        int result = -1;
        bench.in([&] { result = tuHwIf_selectSynchRef(u(v["in"]["selector"])); });
        EXPECT_EQ(result != 0, v["out"]["failed"].get<bool>());
        const json& word = v["out"]["word"];
        EXPECT_EQ(bench.get(52), word.is_null() ? u(v["in"]["52"]) : u(word));
    }
    for (const json& v : group(doc, "gpsOutEnable")["vectors"]) {
        SCOPED_TRACE(idOf(v));
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
    for (const json& v : group(doc, "fsync")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        setRegisters(bench, v["in"]);
        const std::string op = v["in"]["op"];
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
}

TEST(CheckValues, OscillatorRegisters)
{
    TU_LOAD_VECTORS(doc, "o01_registers.json");
    for (const json& v : group(doc, "deltaSigma64")["vectors"])
        EXPECT_EQ(deltaSigmaValue(u(v["in"]["high"]), u(v["in"]["low"])),
                  v["out"]["value"].get<i64>());
    for (const json& v : group(doc, "deltaSigmaWrite")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(1);
        bench.in([&] { tuHwIf_writeDeltaSigmaK(v["in"]["value"].get<i64>()); });
        EXPECT_EQ(bench.get(78), u(v["out"]["high"]));
        EXPECT_EQ(bench.get(79), u(v["out"]["low"]));
        EXPECT_EQ(bench.bus.countOf("writeDeltaSigmaK failed for value") == 0,
                  v["out"]["readsBack"].get<bool>());
    }
    for (const json& v : group(doc, "nominalDivisor")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(1);
        if (v["in"].contains("write")) {
            bench.in([&] { tuHwIf_writeNominalDivisor(u(v["in"]["write"])); });
            EXPECT_EQ(bench.get(75), u(v["out"]["word"]));
            continue;
        }
        bench.set(75, u(v["in"]["word"]));
        u32 read = 0;
        bench.in([&] { read = tuHwIf_readNominalDivisor(); });
        EXPECT_EQ(read, u(v["out"]["read"]));
    }
    for (const json& v : group(doc, "checkedWrite")["vectors"]) {
        SCOPED_TRACE(idOf(v));
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
        for (const json& n : v["out"]["failedTraces"])
            EXPECT_EQ(bench.bus.countOf("writeNominalDivisor failed " + n.dump() + " times"), 1u);
        EXPECT_EQ(bench.bus.countOf("writeNominalDivisor failed for value") != 0,
                  v["out"]["levelOneTrace"].get<bool>());
    }
    for (const json& v : group(doc, "deltaSigmaEnable")["vectors"]) {
        Bench bench(1);
        setRegisters(bench, v["in"]);
        bench.in([] { tuHwIf_enableDeltaSigma(); });
        EXPECT_EQ(bench.takeWrites(), expected(bench, v["out"]["writes"]));
    }
    for (const json& v : group(doc, "synthStatus")["vectors"])
        EXPECT_EQ(synthStatus(u(v["in"]["74"])), u(v["out"]["status"]));
    for (const json& v : group(doc, "isEepromLoaded")["vectors"]) {
        Bench bench(1);
        setRegisters(bench, v["in"]);
        u32 loaded = 9;
        bench.in([&] { loaded = tuHwIf_isEepromLoaded(); });
        EXPECT_EQ(loaded, u(v["out"]["loaded"]));
    }
    for (const json& v : group(doc, "revision")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        EXPECT_EQ(isRevision3(u(v["in"]["word"])), v["out"]["isRev3"].get<int>() == 1);
        EXPECT_EQ(hasMultiplicatorReadBack(u(v["in"]["word"])),
                  v["out"]["checkedSequence"].get<int>() == 1);
    }
    for (const json& v : group(doc, "extPhaseDetector")["vectors"]) {
        SCOPED_TRACE(idOf(v));
        Bench bench(u(v["in"]["board"]));
        for (const char* name : {"bvqmodule", "productnumber", "productrevision"}) {
            if (v["in"][name].is_null()) bench.bus.parameters.erase(name);
            else bench.bus.parameters[name] = v["in"][name].get<std::string>();
        }
        u32 flag = 9;
        bench.in([&] { flag = tuHwIf_checkExtPhaseDetector(); });
        EXPECT_EQ(flag, u(v["out"]["flag"]));
    }
}
