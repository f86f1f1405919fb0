// checks.h - Holds a run against what its scenario says must hold.
#pragma once
#include "app/recording.h"
#include "sim/scenario/scenario.h"

#include <functional>

namespace app {

/// Counts the traces of a unit that hold a text.
using TraceCount = std::function<u64(const std::string& unit, const std::string& text)>;

std::vector<CheckResult> evaluateChecks(const sim::Scenario& scenario, const Recording& recording,
                                        const TraceCount& traces);

}  // namespace app
