// bench_board.cpp - What the simulated board costs: a register access, a second of its clock, a 1PPS
// from the source to its latch and interrupt.
#include "sim/board/board.h"
#include "sim/refs/line_source.h"

#include <benchmark/benchmark.h>

namespace {

using namespace sim;
constexpr u32 SHARED = 0xE1070000, TIMING = 0xE2010000;

struct BoardBench {
    ose::World world{1};
    Board board;
    u64 interrupts = 0;

    explicit BoardBench(const BoardConfig& config = {}) : board(world, config)
    {
        world.setSpinLimit(UINT32_MAX);
        board.irq = [this] { ++interrupts; };
        board.powerOn(false);
    }
};

BoardConfig noisy()
{
    BoardConfig config;
    config.oscillator.noise = {2e-12, 3e-12, 1e-14};
    config.oscillator.retrace_ppb = 3.0;
    config.temperature.shape = TemperatureShape::Day;
    config.temperature.amplitude_V = 0.02;
    return config;
}

/// A register that only stores.
void registerAccess(benchmark::State& state)
{
    BoardBench b;
    for (auto _ : state) {
        b.board.write(SHARED + 0x58, 69'791'666);
        benchmark::DoNotOptimize(b.board.read(SHARED + 0x58));
    }
}
BENCHMARK(registerAccess);

/// The running counter's pair.
void readCounter(benchmark::State& state)
{
    BoardBench b(noisy());
    for (auto _ : state) {
        benchmark::DoNotOptimize(b.board.read(TIMING + 0xC8));
        benchmark::DoNotOptimize(b.board.read(TIMING + 0xCC));
    }
}
BENCHMARK(readCounter);

/// One second of oscillator with all its noise.
void oscillatorSecond(benchmark::State& state)
{
    BoardBench b(noisy());
    for (auto _ : state) {
        b.world.runFor(ose::SEC);
        benchmark::DoNotOptimize(b.board.frequencyError());
    }
}
BENCHMARK(oscillatorSecond);

/// One second with a 1PPS and ten ticks, each answered as the interrupt process does.
void secondWithPpsAndTicks(benchmark::State& state)
{
    BoardBench b(noisy());
    LineConfig line;
    line.noise = {.white_s = 6e-9, .flicker_s = 1e-9, .sawTooth_s = 12e-9};
    LineSource pps(b.world, line, PPS_RATE_Hz, 1, "pps");
    b.board.connect(ReferenceInput::Pps, &pps);
    b.board.irq = [&b] {
        ++b.interrupts;
        b.board.write(TIMING + 0x04, b.board.read(TIMING + 0x04));
        benchmark::DoNotOptimize(b.board.read(TIMING + 0xB8));
        benchmark::DoNotOptimize(b.board.read(TIMING + 0xBC));
    };
    b.board.write(SHARED + 0x20, 0x800);
    b.board.write(TIMING + 0x08, 0x4 | 0x8);
    for (auto _ : state) b.world.runFor(ose::SEC);
    state.counters["interrupts"] = benchmark::Counter(static_cast<double>(b.interrupts),
                                                      benchmark::Counter::kAvgIterations);
}
BENCHMARK(secondWithPpsAndTicks);

}  // namespace
