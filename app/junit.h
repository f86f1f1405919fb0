// junit.h - What held and what didn't, in the XML that build servers read.
#pragma once
#include "app/recording.h"

namespace app {

/// A suite a run, a case a check; a misuse of the kernel is an error of its own.
std::string junitXml(const std::vector<Recording>& runs);

}  // namespace app
