// unit_status_text.h - A status as JSON for programs, and that JSON as text for people, so that a console and
// a client at the other end of a socket show the same.
#pragma once
#include "app/unit_status.h"

#include <nlohmann/json.hpp>

namespace app {

using StatusJson = nlohmann::ordered_json;

/// Keys in a fixed order; null where there is no value.
StatusJson toJson(const UnitStatus& status);
/// One line.
std::string lineOf(const StatusJson& json);
/// The answers to `why` and `sources`. Both throw nlohmann::json::exception for what isn't such a status.
std::string whyText(const StatusJson& unit);
std::string sourcesText(const StatusJson& unit);

}  // namespace app
