// The toggle filter and the common input against check values.
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_select.h"
#include "ref_bench.h"
#include "sig/tuiif_sig.h"
#include "support/vectors.h"
#include "unit/kvd_ref_table.h"

namespace {

using bench::RefBench;
using vectors::json;
using vectors::Value;

struct Replay {
    RefBench bench;
    u32 hardware = 0;      // toggle word as the hardware stands
    u32 openBits = 0;      // of refStatusBits: whether an end of supervision takes a row's bits out is open

    void supervise(u32 row, bool on)
    {
        RefDesc& desc = KvdLoz6TuRef_table().refDescTable[row];
        if (on) {
            // The start step alone: a filter that runs already goes on here.
            desc.supervisionStatus = 1;
            KvdLoz6TuRef_startWithStatus(row, hardware);
            return;
        }
        openBits |= KvdLoz6TuRef_toggleMask(row);
        KvdTuiifSynchPathSupInd off{KVD_TUIIF_SYNCH_PATH_SUP_IND, desc.refType, 0, desc.froId,
                                    desc.froClassNo};
        if (desc.refType != PDH_SDH_REF) return KvdLoz6TuRef_onPathSupervision(&off);
        KvdLoz6TuRef_lineEnd(row);   // no line is announced here: the port's end ends its row the same way
    }

    void apply(const Value& op)
    {
        const std::string name = op[0].get<std::string>();
        const u32 argument = op.size() > 1 ? op[1].get<u32>() : 0;
        if (name == "advance") return bench.runTo(argument);
        if (name == "hw" || name == "status") hardware = argument;
        if (name == "hw") return;
        bench.inManager([&] {
            if (name == "supOn") supervise(argument, true);
            else if (name == "supOff") supervise(argument, false);
            else if (name == "select") KvdLoz6TuRef_selectSynchRef(static_cast<u8>(argument), 0, 0);
            else if (name == "status" || name == "ind") KvdLoz6TuRef_filterToggles(hardware);
            else throw std::runtime_error("no replay of the step \"" + name + "\"");
        });
    }

    /// `openState`: bits of tuiifRefState that an open reading leaves aside.
    void compare(const Value& step, bool oneSharedRow, u32 openState)
    {
        static const std::set<std::string> KNOWN = {"timer",  "expired", "cancel",
                                                    "report", "notSent", "ownerStatus"};
        for (const json& e : step["events"].read()) vectors::expectKnown(e, KNOWN);
        bench.node.inProgram([&] {
            json refStatus, filterType;
            for (u32 row = 0; row < REF_ROWS; ++row) {
                const RefDesc& desc = KvdLoz6TuRef_row(row);
                refStatus.push_back(desc.refStatus), filterType.push_back(desc.filterType);
                EXPECT_EQ(desc.filterTimer.runs(), step["timers"].contains(std::to_string(row))) << row;
                step["timers"].skip({std::to_string(row).c_str()});
            }
            vectors::expectAll({{"refStatus", refStatus}, {"filterType", filterType},
                                {"lastToggleStatus", KvdLoz6TuRef_lastToggleStatus()},
                                {"noChangeCounter", KvdLoz6TuRef_noChangeCounter()},
                                {"gpsExtToggle", KvdLoz6TuRef_gpsExtToggle()}}, step);
            const u32 bits = step["refStatusBits"], state = step["tuiifRefState"];
            const u32 before = step["prevGpsToggle"];
            EXPECT_EQ(KvdLoz6TuRef_refStatusBits() & ~openBits, bits & ~openBits);
            EXPECT_EQ(KvdLoz6TuIifAdm_tuiifRefState() & ~openState, state & ~openState);
            EXPECT_TRUE(!oneSharedRow || KvdLoz6TuRef_prevGpsToggle() == before);
            return 0;
        });
    }
};

u32 sharedRowsUsed(const Value& steps)
{
    std::set<u32> used;
    for (const Value step : steps)
        for (u32 row : {5u, 6u, 7u, 11u})
            if (step["op"][0] == "supOn" && step["op"][1] == row) used.insert(row);
    return static_cast<u32>(used.size());
}

/// Whether the link's bit goes out of the state with its filter is told in two ways.
u32 openStateOf(const Value& testCase)
{
    constexpr u32 GPSOSL_BIT = 0x2000;
    if (!testCase.contains("alt")) return 0;
    EXPECT_EQ(testCase["alt"], "tuiifRefState keeps 0x2000 at HO end");
    return GPSOSL_BIT;
}

TEST(ToggleCheckValues, AreMetAtEveryStep)
{
    vectors::replay("o03_toggle.json", "cases", [](const Value& testCase) {
        Replay replay;
        replay.bench.firstStart();
        const bool oneSharedRow = sharedRowsUsed(testCase["steps"]) == 1;
        const u32 openState = openStateOf(testCase);
        vectors::eachStep(testCase["steps"], [&](const Value& step) {
            replay.apply(step["op"]);
            replay.compare(step, oneSharedRow, openState);
        });
    });
}

}  // namespace
