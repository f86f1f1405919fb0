// console.h - The operator's console: line editing, history, completion over the unit's commands, help.
#pragma once
#include "ose/world.h"
#include "sim/node/node.h"

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace app {

class Console {
public:
    /// `hasSpeed` is false where the world keeps the host's time.
    Console(ose::World& world, std::vector<sim::Node*> nodes, bool hasSpeed = true);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Begins to read lines; each runs in the world as it goes on.
    void start();
    /// The operator has left, by "quit" or the end of the input.
    bool ended() const { return ended_; }

private:
    void readLines();
    bool takeLine(const std::string& line);
    void runCommand(const std::string& line);
    std::string onWorld(std::function<std::string()> question);
    void help(const std::string& name);

    ose::World& world_;
    std::vector<sim::Node*> nodes_;
    bool hasSpeed_;
    std::size_t unit_ = 0;                 // whose commands are typed
    std::thread reader_;
    std::atomic<bool> ended_ = false;
};

}  // namespace app
