// A long run of units that a seed draws, in virtual hours a wall minute.
#include "app/soak.h"

#include <benchmark/benchmark.h>

namespace {

void BM_Soak(benchmark::State& state)
{
    constexpr double HOURS = 5.0;
    u64 seed = 1;
    double hours = 0;
    for (auto _ : state) {
        const app::SoakResult result = app::runSoak({.hours = HOURS, .seed = seed++});
        if (!result.violations.empty()) state.SkipWithError("a violation");
        hours += result.hours;
    }
    state.counters["virtual_hours_a_minute"] = benchmark::Counter(hours * 60.0, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Soak)->Unit(benchmark::kMillisecond);

}  // namespace
