// batch.h - Many runs of one call: several scenarios, several seeds, some side by side.
#pragma once
#include "app/checks.h"
#include "app/recording.h"
#include "sim/scenario/scenario.h"

#include <nlohmann/json.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace app {

/// A scenario that has been read, and what must hold in it.
struct Prepared {
    std::string file;
    sim::Scenario scenario;
    std::vector<CheckSpec> checks;
};

struct BatchOptions {
    std::vector<u64> seeds;        // of each scenario; empty: its own
    unsigned jobs = 1;             // runs side by side
    bool quiet = false;            // failures alone are told
    std::string out;               // folder with one of its own for each run, "" for none
};

/// "7", "1..50" or "1,5,9..12"; empty when it is none of these, or asks for more than a million runs.
std::vector<u64> parseSeeds(const std::string& text);

/// A run with its units dropped, and the summary that was made of them.
struct BatchRun {
    Recording recording;
    nlohmann::ordered_json summary;
};

/// Runs them all and tells each in order; `wrong` is the first thing that couldn't be written. After a signal
/// that ends the process no other is begun, and those on their way are cut.
std::vector<BatchRun> runBatch(const std::vector<Prepared>& scenarios, const BatchOptions& options,
                               std::string& wrong);

/// What the runs of one scenario have in common: percentiles of the time to lock, the errors, each holdover.
struct Spread {
    std::string scenario, unit, what;
    std::size_t count = 0;
    double p10 = 0, p50 = 0, p90 = 0, p99 = 0, most = 0;
};
std::vector<Spread> spreadOf(const std::vector<BatchRun>& runs);
void printSpread(const std::vector<Spread>& spread, std::FILE* out);

/// All summaries and the spread as JSON text.
std::string batchJson(const std::vector<BatchRun>& runs);

}  // namespace app
