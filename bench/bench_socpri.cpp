// Synchronisation over radio links: a node's two units with six links each, one of them measured every
// 100 ms, the others supervised. Virtual seconds a wall second.
#include "sig/tuiif_sig.h"
#include "sim/scenario/link.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <benchmark/benchmark.h>

namespace {

constexpr u8 RNT_TIME_LOCKED = 10;
constexpr u32 PORTS = 6;

std::string unitText(const std::string& name, u32 firstId, const std::string& rest)
{
    std::string text = "[[unit]]\nname = \"" + name + "\"\ntime_mode = \"time\"\n" + rest + "[unit.inrsi]\n";
    for (u32 port = 1; port <= PORTS; ++port)
        text += "[[unit.inrsi.link]]\nport = " + std::to_string(port)
                + "\nid = " + std::to_string(firstId + port) + "\n";
    return text;
}

constexpr const char* MASTER = R"(
[unit.gps]
type = "gps02"
firmware = "120510"
[[unit.reference]]
name = "gps"
type = "GPS_REF"
fro_id = 0
fro_class = 3
[[unit.reference]]
name = "sdu"
type = "IDL1_REF"
fro_id = 1
)";
constexpr const char* SLAVE = R"(
apn = 2
role = "slave"
[[unit.reference]]
name = "mdu"
type = "IDL1_REF"
fro_id = 0
)";
constexpr const char* LINKS = R"(
[[link]]
type = "idl1"
from = "mdu"
to = "sdu"
delay_ns = 60
[[link]]
type = "sdu"
name = "node"
from = "mdu"
to = "sdu"
)";

std::string event(const std::string& at, const std::string& unit, const std::string& words)
{
    return "[[event]]\nat = \"" + at + "\"\n" + (unit.empty() ? "" : "unit = \"" + unit + "\"\n") + words
           + "\n";
}

std::string orders(const std::string& port)
{
    const std::string onPort = "\nport = " + port;
    return event("5m", "mdu", "do = \"mp.select_none\"") + event("5m1s", "mdu", "do = \"mp.socpri_start\"")
           + event("5m1s", "sdu", "do = \"mp.socpri_start\"")
           + event("5m2s", "mdu", "do = \"mp.socpri_supervise\"\nports = \"ABCDEF\"")
           + event("5m2s", "sdu", "do = \"mp.socpri_supervise\"\nports = \"ABCDEF\"")
           + event("5m3s", "", "do = \"link.focus\"\nlink = \"node\"\nport = 1")
           + event("5m30s", "mdu", "do = \"mp.socpri_align\"" + onPort)
           + event("5m43s", "mdu", "do = \"mp.socpri_coarse_time\"" + onPort)
           + event("5m50s", "mdu", "do = \"mp.socpri_coarse_time\"" + onPort)
           + event("5m51s", "mdu", "do = \"mp.socpri_select\"" + onPort);
}

/// The master in the radio network's time by that port, 7 for the slave's first.
struct TwoUnits {
    ose::World world{1};
    sim::Scenario scenario;
    std::vector<std::unique_ptr<sim::Unit>> units;
    std::vector<std::unique_ptr<sim::Link>> links;

    explicit TwoUnits(const std::string& port)
        : scenario(sim::readScenarioText("duration = \"1h\"\n" + unitText("mdu", 10, MASTER)
                                             + unitText("sdu", 20, SLAVE) + LINKS + orders(port),
                                         "bench"))
    {
        for (const sim::UnitSpec& spec : scenario.units) {
            units.push_back(std::make_unique<sim::Unit>(world, spec));
            units.back()->node().traces().setCapacity(0);
        }
        links = sim::makeLinks(world, scenario, units);
        for (const sim::EventSpec& e : scenario.events)
            world.at(static_cast<ose::Time>(e.at_s * 1e12), [this, &e] {
                if (e.linkAction) return e.linkAction(*links.back());
                e.action(*units[e.unit == "mdu" ? 0 : 1]);
            });
        world.runUntil(400 * ose::SEC);
    }
    sim::Node& node(u32 i) { return units[i]->node(); }
    u32 phases() const
    {
        u32 all = 0;
        for (u32 i = 0; i < 2; ++i)
            for (u32 port = 1; port <= PORTS; ++port)
                all += units[i]->node().inrsi().phaseRequests(10 * (i + 1) + port);
        return all;
    }
};

void run(benchmark::State& state, const char* port)
{
    TwoUnits node(port);
    if (node.node(0).mainProcessor().clockState() != RNT_TIME_LOCKED)
        return state.SkipWithError("the master isn't in the radio network's time");
    constexpr i64 STRETCH_s = 60;                // a round of the supervision
    const u32 before = node.phases();
    for (auto _ : state) node.world.runFor(STRETCH_s * ose::SEC);
    const double seconds = static_cast<double>(state.iterations() * STRETCH_s);
    state.counters["virtual_s_per_s"] = benchmark::Counter(seconds, benchmark::Counter::kIsRate);
    state.counters["phases_per_virtual_s"] = (node.phases() - before) / seconds;
}

void BM_SocpriOwnPort(benchmark::State& state) { run(state, "1"); }
void BM_SocpriPortX(benchmark::State& state) { run(state, "7"); }
BENCHMARK(BM_SocpriOwnPort)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();
BENCHMARK(BM_SocpriPortX)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime();

}  // namespace
