// runner.h - Runs a scenario: builds its world, lets things happen, records, shows how it goes.
#pragma once
#include "app/recording.h"
#include "sim/scenario/scenario.h"

#include <string>

namespace app {

struct RunOptions {
    bool quiet = false;            // no progress, no lines, no summary
    bool shell = false;            // the operator types while the unit runs
    double speed = 0;              // times real time; 0 as fast as it goes
    std::string out;               // folder for traces and volumes, "" for none
};

Recording runScenario(const sim::Scenario& scenario, const RunOptions& options);

}  // namespace app
