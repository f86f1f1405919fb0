// pm_periods.h - Holds the reports of performance counters against the states that the main
// processor was told in the meantime.
#pragma once
#include "app/recording.h"
#include "app/checks.h"

#include <string>

namespace app {

struct PmVerdict {
    bool pass = false;
    std::string detail;
};

/// Every report of the set between the check's times: its seconds and outages are those of the
/// recorded states, to the second; a suspect one has no seconds. Whole periods are counted.
PmVerdict pmPeriods(const UnitRecording& unit, const CheckSpec& check);

}  // namespace app
