// A steady load of signals, timers and interrupts lives on what it has: no heap.
#include "counted_new.h"
#include "program.h"

using namespace ose;

namespace tests {
namespace {

class Steady : public Kernel {};

TEST_F(Steady, LoadTakesNothingFromTheHeap)
{
    static PROCESS manager;
    static u32 taken;
    taken = 0;
    System& far = world.createSystem("far");
    world.link(system, "peer", far);
    far.spawn("echo", 15, [] {
        for (;;) {
            Signal* sig = receive(ANY_SIGNAL);
            const PROCESS from = sender(&sig);
            send(&sig, from);
        }
    });
    manager = launch("manager", 16, [] {
        const PROCESS echo = hunt("peer/echo", 0, nullptr, nullptr);
        Signal* beat = alloc(200, 5);
        request_tmo_sig(30, &beat);
        for (;;) {
            Signal* sig = receive(ANY_SIGNAL);
            ++taken;
            if (sig->sigNo == 5) {
                request_tmo_sig(30, &sig);
                continue;
            }
            if (sig->sigNo == 6) {
                TimerRef ref = request_tmo(500, 7);
                cancel_tmo(&ref);
                sendNumber(echo, 8);
            }
            free_buf(&sig);
        }
    });
    launch("starter", 20, [] {
        const auto tick = [] { sendNumber(manager, 6); };
        start(create_process(KIND_TIMER_INTERRUPT, "ticker", tick, 2048, 16, 10, 0));
        start(create_process(
            KIND_INTERRUPT, "isr", [] { sendNumber(manager, 9); }, 2048, 10, 0, 1));
    });
    std::function<void()> pulse;
    pulse = [&] {
        world.after(100 * MS, [&pulse] { pulse(); });
        system.raise(1);
    };
    world.after(1 * MS, [&pulse] { pulse(); });
    world.runFor(1 * SEC);
    taken = 0;
    const u64 before = heapAllocations();
    world.runFor(30 * SEC);
    EXPECT_EQ(heapAllocations() - before, 0u);
    EXPECT_EQ(taken, 30u * (100 + 100 + 10) + 1000);   // ticks, their echoes, pulses, beats
}

}  // namespace
}  // namespace tests
