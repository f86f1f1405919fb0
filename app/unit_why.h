// unit_why.h - The rule that keeps a clock state, and what would change it, in words.
#pragma once
#include "app/unit_status.h"

namespace app {

/// Fills why, change and holdover of a status whose clock, sources and alarms are read already.
void explain(UnitStatus& status, sim::Unit& unit);

}  // namespace app
