// report_page.h - A run as one HTML page that needs nothing beside itself: what failed, the plots, the
// events.
#pragma once
#include "app/recording.h"

#include <string>

namespace app {

/// With plots that can be zoomed and read where the plotting library is installed (libjs-dygraphs), else with
/// pictures by gnuplot.
std::string reportPage(const Recording& recording);

// Pieces of the page.
std::string htmlText(const std::string& text);
/// Pictures of each unit's series, as inline SVG.
void appendPictures(std::string& page, const Recording& recording);
/// Everything that the plots are drawn from, as JSON.
std::string reportData(const Recording& recording);
/// app/report.js
extern const char* const REPORT_SCRIPT;

}  // namespace app
