// ref_bench.h - Reference management by itself in a simulated node: a manager process that hands
// each signal to it and runs what the test wants run in its context. Nothing is connected to it, so
// what it reports is looked at where it is stored.
#pragma once
#include "base/trace_groups.h"
#include "frame/kvd_mgr_proc.h"
#include "hw/hali.h"
#include "mp/kvd_iifadm.h"
#include "node/trace.h"
#include "ref/kvd_ref.h"
#include "sim/node/node.h"
#include "tests/support/unit_bench.h"
#include "unit/kvd_unit_process.h"

#include <functional>

namespace bench {

constexpr SIGSELECT RUN_BODY = 0x7F000001;
struct RunBody {
    SIGSELECT sigNo;
    u32 reserved;
    const std::function<void()>* body;
};

inline void refManager()
{
    node::traceAttachProcess();
    HALI_init();
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        if (sig->sigNo == RUN_BODY)
            (*reinterpret_cast<RunBody*>(sig)->body)();
        else
            KvdLoz6TuRef_dispatch(sig);
        ose::free_buf(&sig);
    }
}

inline void refMain()
{
    for (const char* group : TRACE_GROUP_NAMES) node::traceRegisterGroup(group);
    const PROCESS manager = ose::create_process(ose::KIND_PRIORITISED, "Kvd_loz6_tumgr_proc",
                                                refManager, 16384, 16, 0, 0);
    KvdLoz6TuMgr_setPids(manager, manager, manager);
    ose::start(manager);
    constexpr SIGSELECT NEVER[] = {1, 1};
    ose::receive(NEVER);
}

inline const ose::Program& refProgram()
{
    static constexpr ose::ConfigLine CONFIG[] = {{"OSE_LM_POOL_SIZE", "300000"},
                                                 {"OSE_LM_MAIN_NAME", "ref_main"},
                                                 {"OSE_LM_MAIN_PRIORITY", "30"}};
    static const ose::Program program{"ref", refMain, CONFIG};
    return program;
}

struct RefBench {
    ose::World world{1};
    sim::Node node;
    ose::Time start = 0;        // time 0 of the test's steps

    RefBench() : node(world, config())
    {
        failOnMisuse(world);
        node.powerOn();
        world.runFor(ose::MS);
        start = world.now();
    }
    /// First start; the toggle monitor is taken out, so that indications come when the test says.
    void firstStart()
    {
        inManager([] { KvdLoz6TuRef_restart(1); });
        node.system().kill(node.system().find("Kvd_loz6_turefmon_proc"));
    }
    /// Runs `body` in the manager process at this instant.
    void inManager(const std::function<void()>& body)
    {
        const RunBody run{RUN_BODY, 0, &body};
        node.system().inject(std::as_bytes(std::span<const RunBody, 1>(&run, 1)),
                             node.system().find("Kvd_loz6_tumgr_proc"), 0);
        world.runUntil(world.now());
    }
    /// To `ms` after the start, with all that falls due until then.
    void runTo(i64 ms) { world.runUntil(start + ms * ose::MS); }

private:
    static sim::NodeConfig config()
    {
        sim::NodeConfig c;
        c.program = &refProgram();
        c.mainProcessor.present = false;
        return c;
    }
};

}  // namespace bench
