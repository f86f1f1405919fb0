// soak.h - Long runs that a seed draws: units with random references, faults, restarts, commands and
// main processor behaviour, watched all the time by what must hold whatever happens.
#pragma once
#include "app/soak_watch.h"
#include "ose/types.h"

#include <string>
#include <vector>

namespace app {

struct SoakOptions {
    double hours = 1;
    u64 seed = 1;
    bool quiet = false;
};

struct SoakResult {
    double hours = 0;                  // that were run: a violation ends the run
    double wall_s = 0;
    u64 digest = 0;                    // of all that the units told and did
    u64 events = 0, restarts = 0, clockChanges = 0;
    std::vector<Violation> violations;
    std::vector<std::string> lastEvents;   // before the end, oldest first
};

/// The scenario that a seed draws, as `tu run` reads it.
std::string drawScenario(double hours, u64 seed);
SoakResult runSoak(const SoakOptions& options);
/// The result for a reader; 0 when all held, 1 otherwise.
int printSoak(const SoakOptions& options, const SoakResult& result);

}  // namespace app
