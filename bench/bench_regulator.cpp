// One estimate step and one control step of a unit whose registers are plain memory.
#include "tests/reg/support/regulator_unit.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<u64> allocations{0};

/// Runs the timed loop inside a process of a settled unit; counts what it took from the heap.
template <typename Step>
void runOnUnit(benchmark::State& state, Step step)
{
    regtest::RegulatorUnit unit;
    unit.run([&] {
        regtest::settle(11, 1.0);
        step();
        const u64 before = allocations.load();
        for (auto _ : state) step();
        state.counters["allocations"] = static_cast<double>(allocations.load() - before);
    });
}

void BM_Estimate_reference(benchmark::State& state)
{
    runOnUnit(state, [] {
        benchmark::DoNotOptimize(KvdLoz6TuReg_estimate({1e-9, Z_EXT_1PPS_REF, 1.0, 1000.0, 1e-14}));
    });
}
BENCHMARK(BM_Estimate_reference);

void BM_Estimate_temperature(benchmark::State& state)
{
    runOnUnit(state, [] {
        benchmark::DoNotOptimize(KvdLoz6TuReg_estimate({0.01, Z_TEMP_REF, 2.1, 10.0, 1e-6}));
    });
}
BENCHMARK(BM_Estimate_temperature);

void BM_Control(benchmark::State& state)
{
    runOnUnit(state, [] {
        const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
        benchmark::DoNotOptimize(KvdLoz6TuReg_controller(v.x_est, v.P_est, 1, Z_EXT_1PPS_REF));
    });
}
BENCHMARK(BM_Control);

void BM_Predict(benchmark::State& state)
{
    const Vec6 x = {1e-9, 1e-10, 1e-15, 2e-9, -7e-10, 3e-10};
    Mat6 P{};
    for (u32 i = 0; i < 6; ++i) P[i * 7] = 1e-14;
    const double u[2] = {0.0, 1e-6};
    for (auto _ : state) benchmark::DoNotOptimize(estimator::predict(x, P, -8e-4, u, 0.1, 0.1, 1.0, {}));
}
BENCHMARK(BM_Predict);

}  // namespace

__attribute__((noinline)) void* operator new(std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size)) return p;
    throw std::bad_alloc();
}
__attribute__((noinline)) void operator delete(void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept { std::free(p); }
