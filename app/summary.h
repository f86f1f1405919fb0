// summary.h - A run's summary: JSON for programs, a page of text for people.
#pragma once
#include "app/recording.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdio>
#include <string>

namespace app {

/// The layout of the JSON; docs/summary.schema.json describes it.
constexpr int SUMMARY_VERSION = 1;
/// The summary as JSON text; doubles are written so that equal runs give equal bytes.
std::string summaryJson(const Recording& recording);
nlohmann::ordered_json summaryOf(const Recording& recording);
void printSummary(const Recording& recording, std::FILE* out);
/// "3:02:11" of virtual seconds.
std::string clockText(double seconds);

}  // namespace app
