// The inter-unit link machines and their history against check values.
#include "iif/kvd_biraiifadm_int.h"
#include "iif/kvd_iifadm_orders.h"
#include "node/sig.h"
#include "ref/kvd_ref_int.h"
#include "ref/kvd_ref_select.h"
#include "tests/ref/ref_bench.h"
#include "refs/kvd_ref_history.h"
#include "refs/kvd_ref_idl_int.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_pll_int.h"
#include "sig/tuiif_sig.h"
#include "support/vectors.h"
#include "unit/kvd_ref_table.h"
#include "unit/kvd_unit_link.h"

namespace {

using bench::RefBench;
using vectors::json;
using vectors::Value;

/// What a step may do to its neighbours, each set aside before it.
constexpr u32 COUNTED = 5;             // sync data time-outs

struct Replay {
    RefBench bench;
    u32 loopState = SLAVE_PLL_Uninitialized;     // before each step

    explicit Replay(const Value& testCase)
    {
        const bool slave = vectors::number(testCase["slave"]) != 0;
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
            KvdUnit_link().fromSlaveMsi = testCase["initiatedFromSlaveMsi"].get<u32>();
        });
        // A loop that is told to unlock shows it only when it is locked.
        if (testCase["slavePllState"] != SLAVE_PLL_Uninitialized) loopState = SLAVE_PLL_Locked;
    }

    void interrupt(u32 port) { bench.inManager([port] { KvdLoz6TuRef_idlInterrupt(port); }); }

    static u32 port(const Value& value)
    {
        return value.get<u32>() <= 1 ? value.get<u32>() : throw std::runtime_error("there is no such port");
    }

    void apply(const Value& op)
    {
        const std::string name = op[0].get<std::string>();
        if (name == "advance") return bench.runTo(op.at(1).get<i64>());
        if (name == "int") return interrupt(port(op.at(1)));
        if (name == "train") {
            const i64 period = op.at(2).get<i64>(), until = op.at(3).get<i64>();
            for (i64 at = (bench.world.now() - bench.start) / ose::MS + period; at <= until; at += period) {
                bench.runTo(at);
                interrupt(port(op.at(1)));
            }
            return bench.runTo(until);
        }
        bench.inManager([&] {
            if (name == "sup") KvdLoz6TuRef_idlSupervision(port(op.at(1)), op.at(2).get<u32>());
            else if (name == "request") KvdLoz6TuRef_idl2Supervise();
            else if (name == "mpDown") KvdLoz6TuRef_idlReset();
            else throw std::runtime_error("no replay of the step \"" + name + "\"");
        });
    }

    void setAside()
    {
        bench.node.inProgram([&] {
            pll::vars().currSlaveState = loopState;
            regulator::state().dualConfiguration = 1;
            KvdLoz6TuRef_setIdl2SyncDataIndTmoCntr(COUNTED);
            return 0;
        });
    }

    void compare(const Value& step)
    {
        static const std::set<std::string> KNOWN = {
            "start", "cancel", "expired", "report", "enableInterrupt", "disableInterrupt", "select",
            "singleLink", "clearSyncDataCounter", "forceSlavePll"};
        bench.node.inProgram([&] {
            std::set<std::string> running;
            for (const u32 port : {0u, 1u})
                for (u32 id = 0; id < idl::PORT_TIMERS; ++id)
                    if (idl::portOf(port).timer[id].runs())
                        running.insert(std::array{"HO ", "WTR ", "SUP "}[id] + std::to_string(port));
            for (const auto& [timer, end_ms] : step["timers"].items()) {
                end_ms.read();                                       // shows in the steps behind it
                const u32 port = static_cast<u32>(timer.back() - '0');
                if (timer.starts_with("SUP ") && KvdLoz6TuRef_idlState(port) == IDL_UNKNOWN)
                    continue;  // ends
                const bool runs = timer.starts_with("SLAVE_HO ") ? idl::slaveHoldoverRuns()
                                                                 : running.erase(timer) == 1;
                EXPECT_TRUE(runs) << timer << " doesn't run";
            }
            EXPECT_EQ(running, std::set<std::string>()) << "run";
            vectors::expectAll({{"idlState", {KvdLoz6TuRef_idlState(0), KvdLoz6TuRef_idlState(1)}},
                                {"tuiifRefState", KvdLoz6TuIifAdm_tuiifRefState()}}, step);
            u32 wantedLoop = loopState, wantedDual = 1, wantedCount = COUNTED;
            for (const json& event : step["events"].read()) {
                const std::string name = event.at(0);
                vectors::expectKnown(event, KNOWN);
                if (name == "report") { EXPECT_EQ(KvdLoz6TuIifAdm_tuiifRefState(), event.at(1)); }
                if (name == "select") { EXPECT_EQ(KvdLoz6TuRef_selectedRef(), event.at(1).get<u8>()); }
                if (name == "forceSlavePll") wantedLoop = event.at(1);
                if (name == "singleLink") wantedDual = 0;
                if (name == "clearSyncDataCounter") wantedCount = 0;
            }
            EXPECT_EQ(KvdLoz6TuReg_slavePllState(), wantedLoop);
            EXPECT_EQ(regulator::state().dualConfiguration, wantedDual);
            EXPECT_EQ(KvdLoz6TuRef_idl2SyncDataIndTmoCntr(), wantedCount);
            return 0;
        });
    }
};

TEST(IdlCheckValues, AreMetAtEveryStepOfTheMachine)
{
    vectors::Document document("o03_idl_machine.json");
    vectors::each(document["cases"], [](const Value& testCase) {
        Replay replay(testCase);
        u32 index = 0;
        for (const Value step : testCase["steps"]) {
            SCOPED_TRACE(testing::Message() << step["op"] << " is step " << index++);
            replay.setAside();
            replay.apply(step["op"]);
            replay.compare(step);
        }
    });
}

TEST(IdlCheckValues, AreMetByTheHistory)
{
    vectors::Document document("o03_idl_history.json");
    vectors::each(document["cases"], [](const Value& testCase) {
        IdlHistory history;
        for (const Value e : testCase["events"])
            history.offer({e[0].get<u32>(), 0, e[1].get<u8>(), e[2].get<u8>(), {}});
        json ring = json::array();
        for (u32 i = 0; i < history.ring.count; ++i) {
            const IdlHistoryRecord& r = history.ring.oldest(i);
            ring.push_back({r.idlState, r.timerType, r.timerStatus});
        }
        EXPECT_EQ(testCase["ring"], ring);
        const IdlHistory::Port& port = history.port[0];
        json held;
        if (port.hasHeld) held = {port.held.idlState, port.held.timerType, port.held.timerStatus};
        EXPECT_EQ(testCase["heldAtEnd"], held);
    });
}

}  // namespace
