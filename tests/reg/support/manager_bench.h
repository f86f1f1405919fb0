// manager_bench.h - The measurement bench with a process of the regulator's own, which takes the
// signals and time-outs that the bench's single calls can't.
#pragma once
#include "reg/support/measure_bench.h"

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
            for (;;) {
                Signal* sig = ose::receive(ose::ANY_SIGNAL);
                if (sig->sigNo == RUN_BODY) (*reinterpret_cast<RunBody*>(sig)->body)();
                else                        KvdLoz6TuReg_dispatch(sig);
                ose::free_buf(&sig);
            }
        });
        world.runFor(ose::MS);
        start = world.now();
    }

    /// As the manager: a signal, or a call.
    template <typename T>
    void inject(const T& layout)
    {
        system.inject(std::as_bytes(std::span<const T, 1>(&layout, 1)), system.find("manager"), 0);
        world.runUntil(world.now());
    }
    void inManager(const std::function<void()>& body) { inject(RunBody{RUN_BODY, 0, &body}); }

private:
    static constexpr SIGSELECT RUN_BODY = 0x7F000003;
    struct RunBody {
        SIGSELECT sigNo;
        u32 reserved;
        const std::function<void()>* body;
    };
};

}  // namespace regtest
