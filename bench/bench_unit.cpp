// A whole unit: one edge from latch to divider, virtual seconds a wall second of a locked unit.
#include "fifo/kvd_fifo_proc.h"
#include "reg/kvd_reg_estimate.h"
#include "sim/board/board.h"
#include "sim/node/node.h"
#include "sim/refs/line_source.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

namespace {

/// A reference whose edges come as often as one likes.
class QuickEdges : public sim::EdgeSource {
public:
    explicit QuickEdges(ose::Time period) : period_(period) {}
    bool present() const override { return true; }
    ose::Time nextEdge(ose::Time now) override { return (now / period_ + 1) * period_; }

private:
    ose::Time period_;
};

/// A unit that follows an external 1PPS.
struct PpsUnit {
    sim::Node node;
    sim::LineSource pps;

    static sim::NodeConfig config(const std::string& name)
    {
        sim::NodeConfig c;
        c.name = name;
        c.board.oscillator.offset_ppb = 5.0;
        c.board.oscillator.noise.white = 2e-12;
        c.board.oscillator.noise.flicker = 3e-12;
        sim::MpReference reference;
        reference.name = "1pps";
        reference.refType = 2;
        reference.froId = 5;
        reference.froClassNo = 1;
        c.mainProcessor.references = {reference};
        return c;
    }
    static sim::LineConfig line()
    {
        sim::LineConfig c;
        c.noise.white_s = 5e-9;
        return c;
    }
    explicit PpsUnit(ose::World& world, const std::string& name = "tu")
        : node(world, config(name)), pps(world, line(), sim::PPS_RATE_Hz, 1, name + "-pps")
    {
        node.board().connect(sim::ReferenceInput::Pps, &pps);
        node.traces().setCapacity(0);
        node.powerOn();
    }
};

/// One that is locked.
struct LockedUnit {
    ose::World world{1};
    PpsUnit unit{world};
    sim::Node& node = unit.node;
    LockedUnit() { world.runFor(1200 * ose::SEC); }
};

/// So many units in one world, the power switched on together.
void BM_Units(benchmark::State& state)
{
    ose::World world(1);
    std::vector<std::unique_ptr<PpsUnit>> units;
    for (i64 i = 0; i < state.range(0); ++i)
        units.push_back(std::make_unique<PpsUnit>(world, "tu" + std::to_string(i)));
    world.runFor(1200 * ose::SEC);
    constexpr i64 STRETCH_s = 100;
    for (auto _ : state) world.runFor(STRETCH_s * ose::SEC);
    state.counters["virtual_s_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * STRETCH_s), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_Units)->Arg(1)->Arg(2)->Arg(4)->Arg(8)->Arg(16)->Unit(benchmark::kMillisecond)
    ->MeasureProcessCPUTime();

void BM_LockedUnit(benchmark::State& state)
{
    LockedUnit unit;
    constexpr i64 STRETCH_s = 100;
    if (unit.node.mainProcessor().clockState() != 3) state.SkipWithError("the unit isn't locked");
    for (auto _ : state) unit.world.runFor(STRETCH_s * ose::SEC);
    state.counters["virtual_s_per_s"] =
        benchmark::Counter(static_cast<double>(state.iterations() * STRETCH_s), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LockedUnit)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime();

void BM_EdgeFromLatchToDivider(benchmark::State& state)
{
    LockedUnit unit;
    constexpr ose::Time PERIOD = 5 * ose::MS;
    QuickEdges edges(PERIOD);
    unit.node.board().connect(sim::ReferenceInput::Pps, &edges);
    unit.world.runFor(ose::SEC);
    for (auto _ : state) unit.world.runFor(PERIOD);
    unit.node.board().connect(sim::ReferenceInput::Pps, nullptr);
}
/// The same with the logs of an hour and a half being dumped all the time. Every edge is to come through: one
/// sample for each.
void BM_EdgeBesideADump(benchmark::State& state)
{
    LockedUnit unit;
    unit.world.runFor(5400 * ose::SEC);
    constexpr ose::Time PERIOD = 5 * ose::MS;
    QuickEdges edges(PERIOD);
    unit.node.board().connect(sim::ReferenceInput::Pps, &edges);
    unit.world.runFor(ose::SEC);
    const auto samples = [&unit] {
        return unit.node.inProgram([] { return KvdLoz6TuReg_estimateStateVar().measCount; });
    };
    const u32 before = samples();
    constexpr i64 EDGES = 200;
    for (auto _ : state) {
        unit.node.system().call(*unit.node.program(), KvdLoz6Fifo_dump);
        unit.world.runFor(EDGES * PERIOD);
    }
    state.counters["samples_per_edge"] = static_cast<double>(samples() - before)
                                         / static_cast<double>(state.iterations() * EDGES);
    unit.node.board().connect(sim::ReferenceInput::Pps, nullptr);
}
BENCHMARK(BM_EdgeBesideADump)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK(BM_EdgeFromLatchToDivider)->Unit(benchmark::kMicrosecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
