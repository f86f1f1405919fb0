// counter_phase.h - Exact phase of a counter that runs from a clock of changing rate.
//
// Phase in increments of 1/122.88 MHz, fixed point with 40 fraction bits in 128-bit integers: the
// nominal part is exact, the deviation is added a stretch at a time, so that a month stays exact to
// far below 1 ps.
#pragma once
#include "ose/world.h"

namespace sim {

__extension__ typedef __int128 i128;

constexpr u32 PHASE_FRACTION_BITS = 40;
constexpr i128 PHASE_ONE = static_cast<i128>(1) << PHASE_FRACTION_BITS;
constexpr double INCREMENTS_PER_SECOND = 122'880'000.0;

/// Phase of a perfect counter at `now`, begun with the world.
constexpr i128 nominalPhase(ose::Time now)
{
    // 122.88e6 increments a second of 1e12 ps: 12288 increments in 1e8 ps.
    return (static_cast<i128>(now) * 12288 << PHASE_FRACTION_BITS) / 100'000'000;
}

class CounterPhase {
public:
    /// Deviation gathered over a stretch at relative frequency y.
    void run(ose::Time stretch, double y);
    void step(i128 phase) { deviation_ += phase; }
    i128 at(ose::Time now) const { return nominalPhase(now) + deviation_; }
    /// Deviation from a perfect counter, positive when ahead.
    i128 deviation() const { return deviation_; }
    static double seconds(i128 phase);

private:
    i128 deviation_ = 0;
};

}  // namespace sim
