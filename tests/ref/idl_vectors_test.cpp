// The inter-unit link machines and their history against check values.
#include "iif/tuiif_sig.h"
#include "node/sig.h"
#include "ref/kvd_ref_history.h"
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_select.h"
#include "ref_bench.h"
#include "support/vectors.h"

namespace {

using bench::RefBench;
using vectors::json;

struct Replay {
    RefBench bench;

    explicit Replay(bool slave)
    {
        bench.firstStart();
        bench.inManager([&] {
            auto* ind = node::make<KvdTuiifChangeMasterTuInd>(KVD_TUIIF_CHANGE_MASTER_TU_IND);
            ind->timeMode = 1;
            ind->masterSlaveMode = slave ? 0 : 1;
            Signal* sig = reinterpret_cast<Signal*>(ind);
            KvdLoz6TuIifAdm_dispatch(sig);
            ose::free_buf(&sig);
            // The change of role selects a link on a slave; the steps begin without.
            KvdLoz6TuRef_selectSynchRef(NO_REF, FRO_NONE, FRO_NONE);
        });
    }

    void interrupt(u32 port)
    {
        bench.inManager([port] { KvdLoz6TuRef_idlInterrupt(port); });
    }

    void apply(const json& op)
    {
        const std::string name = op[0];
        if (name == "advance") return bench.runTo(op[1].get<i64>());
        if (name == "int") return interrupt(op[1].get<u32>());
        if (name == "train") {
            const i64 period = op[2].get<i64>(), until = op[3].get<i64>();
            for (i64 at = (bench.world.now() - bench.start) / ose::MS + period; at <= until;
                 at += period) {
                bench.runTo(at);
                interrupt(op[1].get<u32>());
            }
            return bench.runTo(until);
        }
        bench.inManager([&] {
            if (name == "sup") KvdLoz6TuRef_idlSupervision(op[1].get<u32>(), op[2].get<u32>());
            else if (name == "request") KvdLoz6TuRef_idl2Supervise();
            else if (name == "mpDown") KvdLoz6TuRef_idlReset();
            else FAIL() << "unknown step " << name;
        });
    }

    void compare(const json& step)
    {
        bench.node.inProgram([&] {
            for (u32 port : {0u, 1u})
                EXPECT_EQ(KvdLoz6TuRef_idlState(port), step["idlState"][port].get<u32>())
                    << "port " << port;
            EXPECT_EQ(KvdLoz6TuIifAdm_tuiifRefState(), step["tuiifRefState"].get<u32>());
            for (const json& event : step["events"])
                if (event[0] == "select") {
                    EXPECT_EQ(KvdLoz6TuRef_selectedRef(), event[1].get<u8>());
                }
            return 0;
        });
    }
};

TEST(IdlCheckValues, AreMetAtEveryStepOfTheMachine)
{
    TU_LOAD_VECTORS(doc, "o03_idl_machine.json");
    u32 steps = 0;
    for (const json& testCase : doc["cases"]) {
        SCOPED_TRACE(testCase["name"].get<std::string>());
        if (testCase["initiatedFromSlaveMsi"].get<u32>() != 0)
            continue;   // no such start in this load
        Replay replay(testCase["slave"].get<u32>() != 0);
        for (const json& step : testCase["steps"]) {
            SCOPED_TRACE(step["op"].dump() + " is step " + std::to_string(steps));
            replay.apply(step["op"]);
            replay.compare(step);
            ++steps;
            if (testing::Test::HasFailure()) return;
        }
    }
    EXPECT_GT(steps, 300u);
}

TEST(IdlCheckValues, AreMetByTheHistory)
{
    TU_LOAD_VECTORS(doc, "o03_idl_history.json");
    for (const json& testCase : doc["cases"]) {
        SCOPED_TRACE(testCase["name"].get<std::string>());
        IdlHistory history;
        for (const json& e : testCase["events"])
            history.offer({e[0].get<u32>(), 0, e[1].get<u8>(), e[2].get<u8>(), {}});
        const json& ring = testCase["ring"];
        ASSERT_EQ(history.ring.count, ring.size());
        for (u32 i = 0; i < history.ring.count; ++i) {
            const IdlHistoryRecord& r = history.ring.oldest(i);
            EXPECT_EQ(json::array({r.idlState, r.timerType, r.timerStatus}), ring[i]) << i;
        }
        const IdlHistory::Port& port = history.port[0];
        ASSERT_EQ(port.hasHeld, !testCase["heldAtEnd"].is_null());
        if (port.hasHeld) {
            EXPECT_EQ(json::array({port.held.idlState, port.held.timerType, port.held.timerStatus}),
                      testCase["heldAtEnd"]);
        }
    }
}

}  // namespace
