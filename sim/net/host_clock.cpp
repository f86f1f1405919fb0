#include "sim/net/host_clock.h"

#include <cstdlib>
#include <ctime>

namespace sim {

namespace {

constexpr i64 NS_PER_s = 1'000'000'000;

i64 read(clockid_t clock)
{
    timespec t{};
    clock_gettime(clock, &t);
    return t.tv_sec * NS_PER_s + t.tv_nsec;
}

ose::Time worldTime(i64 ns) { return ns * ose::NS; }

}  // namespace

HostClock::Source HostClock::kernel()
{
    return {[] { return read(CLOCK_MONOTONIC); }, [] { return read(CLOCK_REALTIME); }};
}

HostClock::HostClock(Source source) : source_(std::move(source))
{
    offset_ns_ = measure().offset_ns;
    const i64 second = (source_.monotonic_ns() + offset_ns_) / NS_PER_s + 1;
    beginning_ns_ = second * NS_PER_s - offset_ns_;
    tai_s_ = second + TAI_AHEAD_OF_UTC;
}

/// The two clocks can't be read at once: the narrowest of some tries counts.
HostClock::Offset HostClock::measure() const
{
    constexpr int TRIES = 10;
    constexpr i64 NARROW_ns = 200;
    Offset best{0, INT64_MAX};
    for (int i = 0; i < TRIES && best.width_ns > NARROW_ns; ++i) {
        const i64 before = source_.monotonic_ns();
        const i64 real = source_.realtime_ns();
        const i64 width = source_.monotonic_ns() - before;
        if (width < best.width_ns) best = {real - before - width / 2, width};
    }
    return best;
}

ose::Time HostClock::now() const { return worldTime(source_.monotonic_ns() - beginning_ns_); }

std::optional<ose::Time> HostClock::ofStamp(i64 realtime_ns) const
{
    const i64 monotonic_ns = realtime_ns - offset_ns_;
    const i64 age_ns = source_.monotonic_ns() - monotonic_ns;
    constexpr i64 READING_ns = 10'000;   // what the offset may be wrong by
    constexpr i64 LONGEST_ns = 10 * NS_PER_s;
    if (age_ns < -READING_ns || age_ns > LONGEST_ns || monotonic_ns < steppedAt_ns_) return std::nullopt;
    return worldTime(monotonic_ns - beginning_ns_);
}

ose::Time HostClock::nextSecond(ose::Time after) const
{
    return worldTime((realtimeOf(after) / NS_PER_s + 1) * NS_PER_s - offset_ns_ - beginning_ns_);
}

/// Between steps the two clocks run at one rate, so that only what is surely no error of reading counts.
void HostClock::follow()
{
    constexpr i64 SURE_ns = 5'000;
    const Offset seen = measure();
    if (std::abs(seen.offset_ns - offset_ns_) <= SURE_ns + seen.width_ns) return;
    lastStep_ns_ = seen.offset_ns - offset_ns_;
    offset_ns_ = seen.offset_ns;
    steppedAt_ns_ = source_.monotonic_ns();
    ++steps_;
}

}  // namespace sim
