// A steady load of signals, timers and interrupts lives on what it has: no heap.
#include "program.h"

#include <atomic>
#include <cstdlib>
#include <new>

using namespace ose;

namespace {
std::atomic<u64> allocations{0};
}

// The global operators for the whole test program: they count and do what the default ones do.
void* operator new(std::size_t size)
{
    ++allocations;
    void* at = std::malloc(size);
    if (at == nullptr) throw std::bad_alloc();
    return at;
}
void* operator new(std::size_t size, std::align_val_t align)
{
    ++allocations;
    const std::size_t a = static_cast<std::size_t>(align);
    void* at = std::aligned_alloc(a, (size + a - 1) / a * a);
    if (at == nullptr) throw std::bad_alloc();
    return at;
}
void operator delete(void* at) noexcept { std::free(at); }
void operator delete(void* at, std::size_t) noexcept { std::free(at); }
void operator delete(void* at, std::align_val_t) noexcept { std::free(at); }
void operator delete(void* at, std::size_t, std::align_val_t) noexcept { std::free(at); }

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
    far.spawn("echo", 15, echo);
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
        startIsr([] { sendNumber(manager, 9); }, 1);
    });
    std::function<void()> pulse;
    pulse = [&] {
        world.after(100 * MS, [&pulse] { pulse(); });
        system.raise(1);
    };
    world.after(1 * MS, [&pulse] { pulse(); });
    world.runFor(1 * SEC);
    taken = 0;
    const u64 before = allocations;
    world.runFor(30 * SEC);
    EXPECT_EQ(allocations - before, 0u);
    EXPECT_EQ(taken, 30u * (100 + 100 + 10) + 1000);   // ticks, their echoes, pulses, beats
}

}  // namespace
}  // namespace tests
