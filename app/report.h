// report.h - What --out leaves: the series as CSV and a page with plots.
#pragma once
#include "app/recording.h"

#include <string>

namespace app {

/// Writes series-<unit>.csv, states-<unit>.csv, summary.json and report.html into `directory`, which
/// exists. Answers "" or what went wrong.
std::string writeReport(const Recording& recording, const std::string& directory);
/// Writes a whole file. Answers "" or what went wrong.
std::string writeFile(const std::string& path, const std::string& content);

}  // namespace app
