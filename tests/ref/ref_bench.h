// ref_bench.h - Reference management by itself in a simulated node: a manager process that hands
// each signal to it and runs what the test wants run in its context. Nothing is connected to it, so
// what it reports is looked at where it is stored.
#pragma once
#include "frame/kvd_mgr_proc.h"
#include "hw/hali.h"
#include "mp/kvd_iifadm.h"
#include "ref/kvd_ref.h"
#include "tests/support/unit_bench.h"
#include "unit/kvd_unit_process.h"

namespace bench {

inline void refMain()
{
    for (const char* group : TRACE_GROUP_NAMES) node::traceRegisterGroup(group);
    const PROCESS manager = ose::create_process(ose::KIND_PRIORITISED, "Kvd_loz6_tumgr_proc", [] {
        node::traceAttachProcess();
        HALI_init();
        serve([](Signal* sig) { KvdLoz6TuRef_dispatch(sig); return false; });
    }, 16384, 16, 0, 0);
    KvdLoz6TuMgr_setPids(manager, manager, manager);
    ose::start(manager);
    waitForEver();
}

struct RefBench : Unit {
    ose::Time start = 0;        // time 0 of the test's steps

    explicit RefBench(u32 boardType = 2) : Unit(config(boardType))
    {
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
    void inManager(const std::function<void()>& body) { runIn(node.system(), manager(), body); }
    /// To `ms` after the start, with all that falls due until then.
    void runTo(i64 ms) { world.runUntil(start + ms * ose::MS); }

private:
    static sim::NodeConfig config(u32 boardType)
    {
        sim::NodeConfig c;
        c.boardType = boardType;
        static const ose::Program program = programOf("ref", refMain);
        c.program = &program;
        c.mainProcessor.present = false;
        return c;
    }
};

}  // namespace bench
