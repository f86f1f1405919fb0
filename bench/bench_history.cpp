// The regulator's history record: packed and written to persistent memory and flash, read and judged.
#include "tests/reg/support/history_bench.h"

#include <benchmark/benchmark.h>

namespace {

/// Runs the timed loop inside a process of a locked unit whose services stand.
void runOnUnit(benchmark::State& state, const std::function<void()>& step)
{
    regtest::HistoryBench unit;
    unit.node.traces().setCapacity(0);
    unit.lock();
    unit.in([&] {
        KvdLoz6TuReg_forceWriteHistory(true);
        KvdLoz6TuReg_forceWriteHistory(false);
        for (auto _ : state) step();
    });
}

void BM_History_writeMsi(benchmark::State& state)
{
    runOnUnit(state, [] { KvdLoz6TuReg_forceWriteHistory(false); });
}
BENCHMARK(BM_History_writeMsi);

void BM_History_writeFlash(benchmark::State& state)
{
    runOnUnit(state, [] { KvdLoz6TuReg_forceWriteHistory(true); });
}
BENCHMARK(BM_History_writeFlash);

void BM_History_read(benchmark::State& state)
{
    runOnUnit(state, [] {
        u8 record[HIST_RECORD_SIZE];
        u32 fromMsi = 0;
        KvdLoz6TuReg_readHistData(record, fromMsi);
        benchmark::DoNotOptimize(KvdLoz6TuReg_validateHistory(record));
    });
}
BENCHMARK(BM_History_read);

}  // namespace
