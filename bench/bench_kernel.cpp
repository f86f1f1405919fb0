// bench_kernel.cpp - What a signal, a switch, a timer and an interrupt cost, per round.
//
// Each benchmark prepares a world, then counts how often its processes do one round while it runs.
// "round" is CPU time. A switch is half of what signalWithSwitch costs beyond signalToSelf. The argument
// says how many processes or timers stand beside.
#include "ose/world.h"

#include <benchmark/benchmark.h>

#include <array>
#include <string>

namespace {

using namespace ose;

constexpr std::array<ConfigLine, 2> CONFIG{{
    {"OSE_LM_POOL_SIZE", "300000"},
    {"OSE_LM_SIGNAL_SIZES", "31,63,127,255,1023,4095,16383,65535"},
}};

void idleMain()
{
    for (;;) {
        Signal* sig = receive(ANY_SIGNAL);
        free_buf(&sig);
    }
}

const Program PROGRAM{"bench", idleMain, CONFIG};

void sendNumber(PROCESS to, SIGSELECT sigNo)
{
    Signal* sig = alloc(8, sigNo);
    send(&sig, to);
}

struct Bench {
    World world{1};
    System& system = world.createSystem("tu");
    Block& block = system.load(PROGRAM);
    u64 rounds = 0;

    /// A process that takes whatever comes.
    PROCESS taker(u32 priority)
    {
        return system.launch(block, "taker", priority, [this] {
            for (;;) {
                Signal* sig = receive(ANY_SIGNAL);
                ++rounds;
                free_buf(&sig);
            }
        });
    }
    /// Runs `span` of virtual time an iteration and counts what was done in it.
    void measure(benchmark::State& state, Time span)
    {
        world.setSpinLimit(UINT32_MAX);
        world.runFor(1 * MS);
        rounds = 0;
        for (auto _ : state) world.runFor(span);
        state.counters["round"] = benchmark::Counter(static_cast<double>(rounds),
                                                     benchmark::Counter::kIsRate
                                                         | benchmark::Counter::kInvert);
    }
};

/// A process sends to itself: no switch, no event.
void signalToSelf(benchmark::State& state)
{
    Bench b;
    b.system.launch(b.block, "self", 20, [&b] {
        for (;;) {
            for (int i = 0; i < 10'000; ++i) {
                sendNumber(current_process(), 1);
                Signal* sig = receive(ANY_SIGNAL);
                ++b.rounds;
                free_buf(&sig);
            }
            delay(1);
        }
    });
    b.measure(state, 1 * MS);
}
BENCHMARK(signalToSelf)->MeasureProcessCPUTime();

/// There and back between two processes: two switches a round.
void signalWithSwitch(benchmark::State& state)
{
    Bench b;
    for (i64 i = 0; i < state.range(0); ++i)
        b.system.spawn("idle" + std::to_string(i), 25, [] { receive(ANY_SIGNAL); });
    const PROCESS echo = b.system.launch(b.block, "echo", 10, [] {
        for (;;) {
            Signal* sig = receive(ANY_SIGNAL);
            const PROCESS from = sender(&sig);
            send(&sig, from);
        }
    });
    b.system.launch(b.block, "asker", 20, [&b, echo] {
        for (;;) {
            for (int i = 0; i < 1000; ++i) {
                sendNumber(echo, 1);
                Signal* sig = receive(ANY_SIGNAL);
                ++b.rounds;
                free_buf(&sig);
            }
            delay(1);
        }
    });
    b.measure(state, 1 * MS);
}
BENCHMARK(signalWithSwitch)->Arg(0)->Arg(100)->Arg(1000)->MeasureProcessCPUTime();

/// An interrupt process sends to the process that blocked last.
void interruptToProcess(benchmark::State& state)
{
    static PROCESS target;
    Bench b;
    target = b.taker(16);
    b.system.launch(b.block, "starter", 10, [] {
        start(create_process(KIND_INTERRUPT, "isr", [] { sendNumber(target, 1); }, 2048, 10, 0, 1));
    });
    std::function<void()> edge;
    edge = [&b, &edge] {
        b.world.after(1 * US, [&edge] { edge(); });
        b.system.raise(1);
    };
    b.world.after(2 * MS, [&edge] { edge(); });
    b.measure(state, 10 * MS);
}
BENCHMARK(interruptToProcess)->MeasureProcessCPUTime();

/// The same for a timer interrupt of 1 ms.
void timerInterruptToProcess(benchmark::State& state)
{
    static PROCESS target;
    Bench b;
    target = b.taker(16);
    b.system.launch(b.block, "starter", 10, [] {
        const auto tick = [] { sendNumber(target, 1); };
        start(create_process(KIND_TIMER_INTERRUPT, "ticker", tick, 2048, 10, 1, 0));
    });
    b.measure(state, 10 * SEC);
}
BENCHMARK(timerInterruptToProcess)->MeasureProcessCPUTime();

/// A timer asked for, run out and received.
void timeOut(benchmark::State& state)
{
    Bench b;
    b.system.launch(b.block, "clock", 20, [&b] {
        for (;;) {
            request_tmo(1, 1);
            Signal* sig = receive(ANY_SIGNAL);
            ++b.rounds;
            free_buf(&sig);
        }
    });
    b.measure(state, 10 * SEC);
}
BENCHMARK(timeOut)->MeasureProcessCPUTime();

/// A timer asked for and cancelled among others.
void timerCancelled(benchmark::State& state)
{
    Bench b;
    b.system.launch(b.block, "clock", 20, [&b, others = static_cast<u32>(state.range(0))] {
        for (u32 i = 0; i < others; ++i) request_tmo(1'000'000'000 + i * 7919 % 1000, 2);
        for (;;) {
            for (u32 i = 0; i < 10'000; ++i) {
                TimerRef ref = request_tmo(1000 + i % 97, 1);
                cancel_tmo(&ref);
                ++b.rounds;
            }
            delay(1);
        }
    });
    b.measure(state, 1 * MS);
}
BENCHMARK(timerCancelled)->Arg(0)->Arg(50)->Arg(250)->MeasureProcessCPUTime();

/// A process from its start to its end.
void processLife(benchmark::State& state)
{
    Bench b;
    b.system.launch(b.block, "parent", 20, [&b] {
        for (;;) {
            for (int i = 0; i < 1000; ++i) {
                start(create_process(KIND_PRIORITISED, "child", [] {}, 2000, 10, 0, 0));
                ++b.rounds;
            }
            delay(1);
        }
    });
    b.measure(state, 1 * MS);
}
BENCHMARK(processLife)->MeasureProcessCPUTime();

}  // namespace
