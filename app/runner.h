// runner.h - Runs a scenario: builds its world, lets things happen, records, shows how it goes.
#pragma once
#include "app/checks.h"
#include "app/recording.h"
#include "app/status_feed.h"
#include "sim/scenario/scenario.h"

#include <optional>
#include <string>
#include <vector>

namespace app {

/// A unit or a master of the scenario on a network interface of the machine.
struct HostInterface {
    std::string host;              // "" for the first unit
    std::string interface;
};

/// A real receiver at a unit: the device of its serial line, and of its pulse where it has one.
struct HostReceiver {
    std::string unit;              // "" for the first
    std::string tty, pps;
};

struct RunOptions {
    bool quiet = false;            // no progress, no lines, no summary
    bool shell = false;            // the operator types while the unit runs
    bool traceAll = false;         // the units trace every level
    bool stacks = false;           // tell how much of their stacks the processes have used
    double speed = 0;              // times real time; 0 as fast as it goes
    std::string out;               // folder for traces and volumes, "" for none
    FeedOptions feed;              // status socket and metrics while it runs
    // The run keeps the host's time when there is one of these.
    std::vector<HostInterface> interfaces;
    std::optional<HostReceiver> receiver;
    bool oneStep = false;          // masters on interfaces tell the time in Sync itself
    bool hostTimeIsUtc = false;    // true time of such a run is the host's UTC as it stands, not TAI
    bool onHost() const { return !interfaces.empty() || receiver; }
};

/// Throws sim::HostError for an interface or a line that can't be used, StatusError for a status that can't
/// be served.
Recording runScenario(const sim::Scenario& scenario, const std::vector<CheckSpec>& checks,
                      const RunOptions& options);

}  // namespace app
