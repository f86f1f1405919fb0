// console.h - The operator's console: line editing, history, completion over the unit's commands and the
// scenario's events, help. It reads lines on a thread of its own; all that they do is posted to the world.
#pragma once
#include "app/recorder.h"
#include "app/run_control.h"
#include "sim/scenario/scenario.h"

#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace app {

/// What a console works on. All of it outlives the console and belongs to the world's thread, but for the
/// scenario, which nobody changes.
struct ConsoleRun {
    ose::World& world;
    RunControl& control;
    const sim::Scenario& scenario;
    std::vector<Recorder*> units;
    bool hasSpeed = true;                                    // false where the world keeps the host's time
    std::function<void(const sim::EventSpec&)> happen;       // lets an event happen now
    std::function<std::string()> heard;                      // masters on the machine's interfaces
};

class Console {
public:
    explicit Console(ConsoleRun run);
    /// The run is over: lines that are still typed are answered with nothing.
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Begins to read lines.
    void start();
    /// Events are shown as they happen while the operator wants it.
    void show(const std::string& unit, const UnitEvent& event);
    void tell(const std::string& line);

private:
    struct State;   // outlives the console with the thread, which may wait for a terminal
    std::shared_ptr<State> state_;
};

}  // namespace app
