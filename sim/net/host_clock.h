// host_clock.h - The clocks of the host beside the time of a world that runs along with them. The world goes
// on with CLOCK_MONOTONIC; the kernel stamps packets by CLOCK_REALTIME, whose steps are followed.
// Units   ns of the host's clocks, ps of the world's time.
#pragma once
#include "ose/world.h"

#include <functional>
#include <optional>

namespace sim {

/// Ahead of UTC since 2017, s.
constexpr i64 TAI_AHEAD_OF_UTC = 37;

class HostClock {
public:
    struct Source { std::function<i64()> monotonic_ns, realtime_ns; };
    static Source kernel();

    /// The world begins at the next whole second of the host's time of day.
    explicit HostClock(Source source = kernel());

    /// What the world's time is to be now; negative before it begins.
    ose::Time now() const;
    /// The world's time of a stamp by CLOCK_REALTIME; nothing for one that lies ahead, more than 10 s back,
    /// or before the latest step was seen, when nobody knows which time of day it is of.
    std::optional<ose::Time> ofStamp(i64 realtime_ns) const;
    /// CLOCK_REALTIME at a time of the world.
    i64 realtimeOf(ose::Time at) const { return beginning_ns_ + offset_ns_ + at / ose::NS; }
    /// The world's time of the first whole second of the host's time of day behind `after`.
    ose::Time nextSecond(ose::Time after) const;
    /// TAI at the world's beginning, s since 1970.
    i64 taiAtBeginning() const { return tai_s_; }
    /// Looks whether the time of day has been stepped; to be called now and then.
    void follow();
    u32 steps() const { return steps_; }
    i64 lastStep_ns() const { return lastStep_ns_; }

private:
    struct Offset { i64 offset_ns, width_ns; };
    Offset measure() const;

    Source source_;
    i64 offset_ns_ = 0;              // CLOCK_REALTIME less CLOCK_MONOTONIC
    i64 beginning_ns_ = 0;           // of CLOCK_MONOTONIC
    i64 tai_s_ = 0;
    u32 steps_ = 0;
    i64 lastStep_ns_ = 0;
    i64 steppedAt_ns_ = INT64_MIN;   // of CLOCK_MONOTONIC
};

}  // namespace sim
