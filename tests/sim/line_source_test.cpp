// 1PPS and line references: when their edges come, and what scripts do to them.
#include "sim/refs/line_source.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace {

using ose::NS;
using ose::PS;
using ose::SEC;
using ose::US;

/// A source whose edges are taken as they come, as a board does.
struct Bench {
    ose::World world{1};
    sim::LineSource source;
    std::vector<ose::Time> edges;
    ose::EventId event = 0;

    explicit Bench(const sim::LineConfig& config = {}, u32 rate_Hz = 1)
        : source(world, config, rate_Hz, 1, "ref")
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

TEST(LineSource, EdgesComeAtTheirRateAndPhase)
{
    struct Case {
        const char* what;
        u32 rate_Hz;
        double phase_s, frequency_ppb;
        std::vector<ose::Time> edges;
    };
    for (const Case& c : std::vector<Case>{
             {"1PPS", 1, 0.0, 0.0, {SEC, 2 * SEC, 3 * SEC}},
             {"late", 1, 0.25, 0.0, {SEC / 4, SEC / 4 * 5, SEC / 4 * 9, SEC / 4 * 13}},
             {"early", 1, -1e-6, 0.0, {SEC - US, 2 * SEC - US, 3 * SEC - US}},
             {"beyond a period", 1, 7.25, 0.0, {SEC / 4, SEC / 4 * 5, SEC / 4 * 9, SEC / 4 * 13}},
             {"fast by 1 ppm", 1, 0.0, 1000.0, {SEC - US, 2 * SEC - 2 * US, 3 * SEC - 3 * US}},
             {"slow by 1 ppb", 1, 0.0, -1.0, {SEC + NS, 2 * SEC + 2 * NS, 3 * SEC + 3 * NS}}}) {
        SCOPED_TRACE(c.what);
        Bench b({.phase_s = c.phase_s, .frequency_ppb = c.frequency_ppb}, c.rate_Hz);
        b.runTo(3.4);
        EXPECT_EQ(b.edges, c.edges);
    }
    Bench line({}, sim::LINE_RATE_Hz);
    line.runTo(10.0);
    EXPECT_EQ(line.edges.size(), 80u);
    EXPECT_EQ(line.edges[2], 375 * ose::MS);
}

TEST(LineSource, ScriptsActAtOnce)
{
    using Script = std::function<void(sim::LineSource&)>;
    // The script comes at 5.7 s.
    struct Case { const char* what; Script script; std::vector<double> edges_s; };
    for (const Case& c : std::vector<Case>{
             {"phase later", [](auto& s) { s.addPhase(0.2); }, {6.2, 7.2, 8.2}},
             {"phase earlier", [](auto& s) { s.addPhase(-0.2); }, {5.8, 6.8, 7.8, 8.8}},
             {"earlier than now", [](auto& s) { s.addPhase(-0.4); }, {6.6, 7.6, 8.6}},
             {"nearly a period is the other way", [](auto& s) { s.addPhase(0.9); },
              {5.9, 6.9, 7.9, 8.9}},
             {"many periods", [](auto& s) { s.addPhase(100.0); }, {6.0, 7.0, 8.0, 9.0}},
             {"steps beyond a period",
              [](auto& s) { s.addPhase(0.4); s.addPhase(0.4); s.addPhase(0.4); },
              {7.2, 8.2}},
             {"frequency", [](auto& s) { s.setFrequency(1e6); }, {5.9997, 6.9987, 7.9977, 8.9967}},
             {"frequency and back", [](auto& s) { s.addFrequency(1e6); s.addFrequency(-1e6); },
              {6.0, 7.0, 8.0, 9.0}},
             {"one bad pulse", [](auto& s) { s.moveNextEdge(0.01); }, {6.01, 7.0, 8.0, 9.0}},
             {"one early pulse", [](auto& s) { s.moveNextEdge(-0.01); }, {5.99, 7.0, 8.0, 9.0}},
             {"half a period at most", [](auto& s) { s.moveNextEdge(3.0); }, {6.5, 7.0, 8.0, 9.0}},
             {"off", [](auto& s) { s.setPresent(false); }, {}},
             {"stuck", [](auto& s) { s.setStuck(true); }, {}},
             {"off and on", [](auto& s) { s.setPresent(false); s.setPresent(true); },
              {6.0, 7.0, 8.0, 9.0}}}) {
        SCOPED_TRACE(c.what);
        Bench b;
        b.runTo(5.7);
        b.edges.clear();
        c.script(b.source);
        b.runTo(9.0);
        ASSERT_EQ(b.edges.size(), c.edges_s.size());
        for (std::size_t i = 0; i < b.edges.size(); ++i)
            EXPECT_NEAR(static_cast<double>(b.edges[i]) * 1e-12, c.edges_s[i], 1e-9);
    }
}

TEST(LineSource, EdgesOfAMonthUnlistenedCostNothing)
{
    ose::World world{1};
    const sim::LineConfig config{.phase_s = 0.03, .noise = {.white_s = 1e-9}};
    sim::LineSource source(world, config, 8, 1, "line");
    EXPECT_NEAR(static_cast<double>(source.nextEdge(0)), 0.03e12, 1e4);
    const ose::Time month = 2'592'000 * SEC + SEC / 2;
    EXPECT_NEAR(static_cast<double>(source.nextEdge(month) - month), 0.03e12, 1e4);
}

TEST(LineSource, NoiseIsOfTheEdgeAndNotOfTheAsking)
{
    const sim::LineConfig config{.phase_s = 0.4, .noise = {.white_s = 20e-9, .flicker_s = 1e-9}};
    Bench once(config);
    once.runTo(99.9);
    Bench often(config);
    for (int i = 0; i < 999; ++i) {
        often.runTo(0.1 * (i + 1));
        often.arm();
    }
    EXPECT_EQ(once.edges, often.edges);
    EXPECT_EQ(once.edges.size(), 100u);
    double square = 0.0;
    for (std::size_t i = 0; i < 100; ++i) {
        const ose::Time quiet = static_cast<ose::Time>(i) * SEC + 400 * ose::MS;
        const double x = static_cast<double>(once.edges[i] - quiet) * 1e-12;
        square += x * x;
    }
    EXPECT_NEAR(std::sqrt(square / 100), 20e-9, 4e-9);
}

}  // namespace
