// manager_bench.h - The measurement bench with a process of the regulator's own, which takes the
// signals and time-outs that the bench's single calls can't.
#pragma once
#include "reg/support/measure_bench.h"
#include "support/manager.h"

namespace regtest {

struct ManagerBench : MeasureBench {
    ose::Time start = 0;

    explicit ManagerBench(u32 boardType) : MeasureBench(boardType)
    {
        connect();
        settle();
    }
    void launch()
    {
        system.launch(*block, "manager", 16, [] {
            bench::serve([](Signal* sig) { KvdLoz6TuReg_dispatch(sig); return false; });
        });
        world.runFor(ose::MS);
        start = world.now();
    }

    /// As the manager: a signal, or a call.
    template <typename T>
    void inject(const T& layout) { bench::injectInto(system, system.find("manager"), layout); }
    void inManager(const std::function<void()>& body) { bench::runIn(system, system.find("manager"), body); }
};

}  // namespace regtest
