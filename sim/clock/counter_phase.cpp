#include "sim/clock/counter_phase.h"

#include <cmath>

namespace sim {

void CounterPhase::run(ose::Time stretch, double y)
{
    const double increments = static_cast<double>(stretch) * (INCREMENTS_PER_SECOND / 1e12) * y;
    deviation_ += static_cast<i128>(std::round(increments * static_cast<double>(PHASE_ONE)));
}

double CounterPhase::seconds(i128 phase)
{
    return static_cast<double>(phase) / static_cast<double>(PHASE_ONE) / INCREMENTS_PER_SECOND;
}

}  // namespace sim
