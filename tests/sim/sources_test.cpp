// Clocks and sources of the world: whether noise has the level that it is told, what scripts do to edges, and
// the faults of receivers that no scenario plants.
#include "sim/clock/noise.h"
#include "sim/refs/cmcc_source.h"
#include "sim/refs/gps_receiver.h"
#include "sim/refs/line_source.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <vector>

namespace {

using ose::SEC;

// ---- clocks -------------------------------------------------------------------------------------

/// Overlapping Allan deviation at n samples of relative frequency, interval 1.
double allan(sim::FrequencyNoise noise, std::size_t n)
{
    std::vector<double> x(1, 0.0);
    for (int i = 0; i < 200'000; ++i) x.push_back(x.back() + noise.next());
    double sum = 0.0;
    std::size_t count = 0;
    for (std::size_t i = 0; i + 2 * n < x.size(); ++i, ++count) {
        const double d = x[i + 2 * n] - 2.0 * x[i + n] + x[i];
        sum += d * d;
    }
    return std::sqrt(sum / 2.0 / static_cast<double>(count)) / static_cast<double>(n);
}

TEST(FrequencyNoise, HasTheAllanDeviationThatItIsTold)
{
    struct Case {
        const char* what;
        sim::FrequencyNoiseLevels levels;
        double segment_s;
        std::size_t n;
        double sigma, tolerance;
    };
    for (const Case& c : std::to_array<Case>({
             {"white at 100 s",           {1e-11, 0, 0}, 1.0,  100,  1e-12,    0.05},
             {"white, segments of 10 s",  {1e-11, 0, 0}, 10.0, 10,   1e-12,    0.03},
             {"flicker at 30 s",          {0, 5e-12, 0}, 1.0,  30,   5e-12,    0.05},
             {"flicker at 1000 s",        {0, 5e-12, 0}, 1.0,  1000, 5e-12,    0.15},
             {"walk at 100 s",            {0, 0, 1e-14}, 1.0,  100,  1e-13,    0.05},
             {"walk, segments of 10 s",   {0, 0, 1e-14}, 10.0, 100,  3.16e-13, 0.05}})) {
        SCOPED_TRACE(c.what);
        EXPECT_NEAR(allan({c.levels, c.segment_s, 3, "y"}, c.n) / c.sigma, 1.0, c.tolerance);
    }
}

// ---- lines --------------------------------------------------------------------------------------

/// A source whose edges are taken as they come, as a board does.
struct Line {
    ose::World world{1};
    sim::LineSource source;
    std::vector<ose::Time> edges;
    ose::EventId event = 0;

    explicit Line(const sim::LineConfig& config = {}) : source(world, config, 1, 1, "ref")
    {
        source.changed = [this] { arm(); };
        arm();
    }
    void arm()
    {
        if (event != 0) world.cancel(event);
        const ose::Time due = source.nextEdge(world.now());
        if (due < 0) return;
        event = world.at(due, [this, due] {
            event = 0;
            edges.push_back(due);
            arm();
        });
    }
    void runTo(double t_s) { world.runUntil(static_cast<ose::Time>(t_s * 1e12)); }
};

TEST(LineSource, ScriptsActAtOnce)
{
    // The script comes at 5.7 s.
    using Script = std::function<void(sim::LineSource&)>;
    struct Case { const char* what; Script script; std::vector<double> edges_s; };
    for (const Case& c : std::vector<Case>{
             {"earlier than now", [](auto& s) { s.addPhase(-0.4); }, {6.6, 7.6, 8.6}},
             {"nearly a period is the other way", [](auto& s) { s.addPhase(0.9); }, {5.9, 6.9, 7.9, 8.9}},
             {"many periods", [](auto& s) { s.addPhase(100.0); }, {6.0, 7.0, 8.0, 9.0}},
             {"steps beyond a period", [](auto& s) { for (int i = 0; i < 3; ++i) s.addPhase(0.4); },
              {7.2, 8.2}},
             {"frequency and back", [](auto& s) { s.addFrequency(1e6); s.addFrequency(-1e6); },
              {6.0, 7.0, 8.0, 9.0}},
             {"one early pulse", [](auto& s) { s.moveNextEdge(-0.01); }, {5.99, 7.0, 8.0, 9.0}},
             {"half a period at most", [](auto& s) { s.moveNextEdge(3.0); }, {6.5, 7.0, 8.0, 9.0}},
             {"stuck", [](auto& s) { s.setStuck(true); }, {}},
             {"off and on", [](auto& s) { s.setPresent(false); s.setPresent(true); },
              {6.0, 7.0, 8.0, 9.0}}}) {
        SCOPED_TRACE(c.what);
        Line line;
        line.runTo(5.7);
        line.edges.clear();
        c.script(line.source);
        line.runTo(9.0);
        ASSERT_EQ(line.edges.size(), c.edges_s.size());
        for (std::size_t i = 0; i < line.edges.size(); ++i)
            EXPECT_NEAR(static_cast<double>(line.edges[i]) * 1e-12, c.edges_s[i], 1e-9);
    }
}

TEST(LineSource, NoiseIsOfTheEdgeAndNotOfTheAsking)
{
    const sim::LineConfig config{.phase_s = 0.4, .noise = {.white_s = 20e-9, .flicker_s = 1e-9}};
    Line once(config), often(config);
    once.runTo(99.9);
    for (int i = 0; i < 999; ++i) {
        often.runTo(0.1 * (i + 1));
        often.arm();
    }
    EXPECT_EQ(once.edges, often.edges);
    EXPECT_EQ(once.edges.size(), 100u);
    const ose::Time month = 2'592'000 * SEC;             // unlistened, it costs nothing
    EXPECT_NEAR(static_cast<double>(often.source.nextEdge(month) - month), 0.4e12, 2e5);
}

// ---- receivers ----------------------------------------------------------------------------------

TEST(GpsReceiver, FaultsAreHealedByWhatHealsThem)
{
    using sim::GpsHealedBy, sim::GpsFault;
    IdleNode idle;
    sim::GpsReceiver gps(idle.world, idle.node.serial(), {}, 1, "gps");
    struct Case { GpsHealedBy by; u32 restarts; u32 modules, units; bool healed; };
    for (const Case& c : std::to_array<Case>({{GpsHealedBy::Nothing, 1, 3, 3, false},
                                              {GpsHealedBy::Module, 2, 1, 0, false},
                                              {GpsHealedBy::Module, 2, 2, 0, true},
                                              {GpsHealedBy::Module, 1, 0, 1, true},
                                              {GpsHealedBy::Unit, 1, 5, 0, false},
                                              {GpsHealedBy::Unit, 1, 0, 1, true}})) {
        gps.setFault({.fault = GpsFault::NoGpgsv, .healedBy = c.by, .restarts = c.restarts});
        for (u32 i = 0; i < c.modules; ++i) gps.restart(sim::GpsRestart::Module);
        for (u32 i = 0; i < c.units; ++i) gps.restart(sim::GpsRestart::Unit);
        EXPECT_EQ(gps.faulty(GpsFault::NoGpgsv), !c.healed) << static_cast<int>(c.by) << " " << c.restarts;
        gps.setFault({.fault = GpsFault::NoGpgsv, .on = false});
    }
    idle.world.runFor(300 * SEC);
    EXPECT_TRUE(gps.hasFix());
    gps.setFault({.fault = GpsFault::Jamming, .amount = 8.0});
    EXPECT_TRUE(gps.hasFix());
    gps.setFault({.fault = GpsFault::Jamming, .amount = 30.0});
    EXPECT_FALSE(gps.hasFix());
}

TEST(CmccSource, SaysAnotherWeekAfterTheLastSecondAndHasNoPulseWhenItIsStuck)
{
    IdleNode idle;
    sim::CmccSourceConfig config;
    config.start = 1'704'067'200 + 5 * 604'800 + 518'380;   // so many seconds before the week's end: 2
    config.pps.noise = {};
    sim::CmccSource source(idle.world, idle.node.serial(), config, 1, "source");
    const std::string device = idle.node.serial().device();
    const node::SerialSetting none{0xFFFFFFFF, 0};
    ASSERT_EQ(idle.node.serial().open(device.c_str(), 44, &none, 0), 0);
    constexpr u8 TIME_INFO = 0x20;
    std::vector<std::pair<u32, u32>> times;                 // second of the week, week
    for (int ms = 0; ms < 3100; ++ms) {
        idle.world.runFor(ose::MS);
        u8 b[64];
        if (idle.node.serial().read(device.c_str(), b, sizeof b) > 0 && b[3] == TIME_INFO)
            times.push_back({b[6] << 24 | b[7] << 16 | b[8] << 8 | b[9], b[14] << 8 | b[15]});
    }
    ASSERT_GE(times.size(), 2u);
    EXPECT_EQ(times[0], (std::pair<u32, u32>{604'799, 2300}));
    EXPECT_EQ(times[1], (std::pair<u32, u32>{0, 2301}));
    source.setFault(sim::CmccFault::StuckPps, true);
    EXPECT_TRUE(source.present());
    EXPECT_EQ(source.nextEdge(idle.world.now()), -1);
}

}  // namespace
