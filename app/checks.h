// checks.h - What must hold in a run: the [[check]] tables of a scenario, and how a recording is held
// against them.
#pragma once
#include "app/recording.h"
#include "sim/scenario/scenario.h"

namespace app {

struct CheckKind;

/// One [[check]], read and found possible before the run.
struct CheckSpec {
    const CheckKind* kind = nullptr;
    std::string name;
    std::string unit;
    double from_s = 0, to_s = 0;     // a moment has both equal
    std::vector<u8> states;
    double limit = 0;                // ns, ppb, divider units
    std::string text;                // mask name, text told, printed or logged
    std::string trace;               // text whose traces are to be counted during the run
    std::string command;             // line to be typed at from_s
    std::vector<std::string> texts;  // that it prints in this order
    u32 socpriSigNo = 0;             // which answer, of which port and status; nothing: any
    std::optional<u8> port;
    std::optional<u32> status;
    u32 pmSet = 0;                   // froType of a set of performance counters
    u64 least = 1, most = UINT64_MAX;
    double interval_s = 1.0;         // of the recording's samples, for a mask
};

/// Throws sim::ScenarioError for a check that can't be one: of no kind, of no mask, of a state that isn't.
std::vector<CheckSpec> readChecks(const sim::Scenario& scenario);
std::vector<CheckResult> evaluateChecks(const std::vector<CheckSpec>& checks, const Recording& recording);

}  // namespace app
