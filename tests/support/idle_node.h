// idle_node.h - A simulated node whose program does nothing: tests run their own code as its
// processes.
#pragma once
#include "sim/node/node.h"
#include "tests/support/manager.h"

#include <functional>
#include <string>

inline const ose::Program& idleProgram()
{
    static const ose::Program program = bench::programOf("idle", bench::serveNothing);
    return program;
}

struct IdleNode {
    ose::World world{1};
    sim::Node node;

    explicit IdleNode(sim::NodeConfig config = {}) : node(world, withIdleProgram(std::move(config)))
    {
        node.powerOn();
        world.runFor(ose::MS);
    }
    /// Runs `body` as a process of the program, to its end.
    void in(const std::function<void()>& body, const std::string& name = "call")
    {
        node.system().call(*node.program(), body, 15, name);
    }
    static sim::NodeConfig withIdleProgram(sim::NodeConfig config)
    {
        config.program = &idleProgram();
        return config;
    }
};
