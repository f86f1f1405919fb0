// unit_bench.h - A whole timing unit in its simulated node, for tests that look from outside.
// Any misuse of the kernel fails the test.
#pragma once
#include "ose/world.h"
#include "sim/node/node.h"
#include "tests/support/manager.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace bench {

inline void failOnMisuse(ose::World& world)
{
    world.onMisuse([](const ose::Misuse& misuse) { ADD_FAILURE() << "kernel misuse: " << misuse.text(); });
}

/// "2 Loss of signal" for each status of that number that the main processor was told.
template <typename Layout, typename Status>
std::vector<std::string> statusTexts(sim::MainProcessor& mp, SIGSELECT sigNo, Status Layout::*status)
{
    std::vector<std::string> texts;
    for (const sim::MpRecord& record : mp.all(sigNo))
        if (const auto ind = record.as<Layout>())
            texts.push_back(std::to_string((*ind).*status) + " " + ind->text);
    return texts;
}

/// A unit that isn't powered yet, in a node or in one whose hardware a test plays in part.
template <typename Node>
struct UnitIn {
    ose::World world{1};
    Node node;

    explicit UnitIn(const sim::NodeConfig& config = {}) : node(world, config) { failOnMisuse(world); }

    void run(double seconds)
    {
        world.runFor(static_cast<ose::Time>(seconds * static_cast<double>(ose::SEC)));
    }
    bool traced(const std::string& text) const { return const_cast<UnitIn*>(this)->node.traces().has(text); }
    std::size_t traces(const std::string& text) { return node.traces().count({text}); }

    /// A process beside the unit that sends one signal to the manager and keeps what comes back.
    template <typename T>
    PROCESS sendFrom(const std::string& name, const T& layout)
    {
        const PROCESS from = node.system().spawn(name, 20, serveNothing);
        node.system().inject(asBytes(layout), manager(), from);
        return from;
    }
    PROCESS manager() { return node.system().find("Kvd_loz6_tumgr_proc"); }

    int command(const std::string& line, std::string& output)
    {
        output.clear();
        return node.shell().run(line, output);
    }
};
using Unit = UnitIn<sim::Node>;

}  // namespace bench
