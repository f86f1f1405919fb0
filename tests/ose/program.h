// program.h - A program that does nothing by itself, for bodies that a test launches in it, and
// small helpers of those bodies.
#pragma once
#include "support/kernel_fixture.h"

#include <array>
#include <string>

namespace tests {

inline void idleMain()
{
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        ose::free_buf(&sig);
    }
}

inline constexpr std::array<ose::ConfigLine, 4> IDLE_CONFIG{{
    {"OSE_LM_POOL_SIZE", "2000"},
    {"OSE_LM_SIGNAL_SIZES", "31,127,1023"},
    {"OSE_LM_MAIN_NAME", "idle_lm"},
    {"OSE_LM_MAIN_PRIORITY", "30"},
}};
inline const ose::Program IDLE{"idle", idleMain, IDLE_CONFIG};

inline void sendNumber(PROCESS to, SIGSELECT sigNo)
{
    Signal* sig = ose::alloc(sizeof(Signal), sigNo);
    ose::send(&sig, to);
}

/// Receives and frees one signal of that selection; its number.
inline SIGSELECT takeNumber(const SIGSELECT* selection = ose::ANY_SIGNAL)
{
    Signal* sig = ose::receive(selection);
    const SIGSELECT sigNo = sig->sigNo;
    ose::free_buf(&sig);
    return sigNo;
}

/// Sends back what it gets.
[[noreturn]] inline void echo()
{
    for (;;) {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        const PROCESS from = ose::sender(&sig);
        ose::send(&sig, from);
    }
}

/// Begins an interrupt process named "isr".
inline PROCESS startIsr(ose::Entry entry, u16 line)
{
    const PROCESS isr = ose::create_process(ose::KIND_INTERRUPT, "isr", entry, 2048, 19, 0, line);
    ose::start(isr);
    return isr;
}

class Kernel : public KernelFixture {
protected:
    Kernel() : block(system.load(IDLE)) { world.runFor(0); }

    PROCESS launch(const std::string& name, u32 priority, std::function<void()> body)
    {
        return system.launch(block, name, priority, std::move(body));
    }

    ose::Block& block;
    std::string said;   // what bodies did, in order
};

}  // namespace tests
