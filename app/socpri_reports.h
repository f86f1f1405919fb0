// socpri_reports.h - What a unit tells its main processor about radio links, read from the signals.
#pragma once
#include "app/recording.h"
#include "sim/node/main_processor.h"

namespace app {

/// Nothing when the signal is none of these.
std::optional<SocpriReport> socpriReport(const sim::MpRecord& record);

}  // namespace app
