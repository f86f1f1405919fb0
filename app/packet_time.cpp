#include "app/packet_time.h"

#include "sig/ref_types.h"

#include <algorithm>
#include <numbers>

namespace app {
namespace {

constexpr u8 RNT_TIME_LOCKED = 10;
constexpr double CONSTANT_OVER_s = 1000.0;

/// True where the counter is that of a packet time reference and can be held against the truth.
std::vector<bool> isPacketTime(const UnitRecording& unit)
{
    std::vector<bool> is(unit.samples.size());
    std::size_t next = 0;
    u8 selected = NO_REF;
    for (std::size_t i = 0; i < unit.samples.size(); ++i) {
        const Sample& s = unit.samples[i];
        for (; next < unit.selected.size() && unit.selected[next].t <= s.t; ++next)
            selected = unit.selected[next].refType;
        is[i] = selected == PACKET_TIME_REF && s.radioClockState == RNT_TIME_LOCKED
                && !std::isnan(s.gpsTimeError_ns);
    }
    return is;
}

/// The settled spans cut down to where the time is the reference's.
std::vector<LockedSpan> packetSpans(const UnitRecording& unit, double interval_s)
{
    const std::vector<bool> is = isPacketTime(unit);
    std::vector<LockedSpan> spans;
    for (const LockedSpan& span : score(unit, interval_s).spans) {
        bool inside = false;
        for (std::size_t i = span.first; i <= span.last; ++i) {
            if (is[i] && !inside) spans.push_back({i, i});
            if (is[i]) spans.back().last = i;
            inside = is[i];
        }
    }
    std::erase_if(spans, [](const LockedSpan& s) { return s.first == s.last; });
    return spans;
}

double largest(const std::vector<double>& x)
{
    double most = 0.0;
    for (const double value : x) most = std::max(most, std::abs(value));
    return most;
}

void takeConstant(std::optional<double>& cTe_ns, const std::vector<double>& x, double interval_s)
{
    const auto count = static_cast<std::size_t>(std::llround(CONSTANT_OVER_s / interval_s));
    for (std::size_t begin = 0; count > 0 && begin + count <= x.size(); begin += count) {
        double sum = 0.0;
        for (std::size_t i = begin; i < begin + count; ++i) sum += x[i];
        const double mean = sum / static_cast<double>(count);
        if (!cTe_ns || std::abs(mean) > std::abs(*cTe_ns)) cTe_ns = mean;
    }
}

std::optional<bool> within(double value, double limit)
{
    if (limit <= 0.0) return {};
    return value <= limit;
}

std::optional<bool> within(std::span<const TauValue> values, std::span<const MaskSegment> mask)
{
    if (values.empty() || mask.empty()) return {};
    return aboveMask(values, mask) == nullptr;
}

}  // namespace

std::vector<double> lowPass(const std::vector<double>& x, double interval_s)
{
    constexpr double BANDWIDTH_Hz = 0.1;
    const double kept = std::exp(-2.0 * std::numbers::pi * BANDWIDTH_Hz * interval_s);
    std::vector<double> y;
    y.reserve(x.size());
    for (const double value : x) y.push_back(y.empty() ? value : kept * y.back() + (1.0 - kept) * value);
    return y;
}

std::vector<double> timeErrors(const UnitRecording& unit, const LockedSpan& span)
{
    std::vector<double> x;
    for (std::size_t i = span.first; i <= span.last; ++i) x.push_back(unit.samples[i].gpsTimeError_ns);
    return x;
}

PacketTime packetTime(const UnitRecording& unit, double interval_s)
{
    PacketTime p;
    p.spans = packetSpans(unit, interval_s);
    std::size_t longest = 0;
    for (const LockedSpan& span : p.spans) {
        const std::vector<double> x = timeErrors(unit, span);
        const std::vector<double> filtered = lowPass(x, interval_s);
        p.scored_s += static_cast<double>(x.size()) * interval_s;
        p.maxTe_ns = std::max(p.maxTe_ns, largest(x));
        p.maxTeFiltered_ns = std::max(p.maxTeFiltered_ns, largest(filtered));
        takeConstant(p.cTe_ns, x, interval_s);
        if (x.size() <= longest) continue;
        longest = x.size();
        p.mtieFrom_s = unit.samples[span.first].t;
        p.mtieTo_s = unit.samples[span.last].t;
        const std::vector<double> taus = observationIntervals(x.size(), interval_s);
        p.mtie_ns = mtie(filtered, interval_s, taus);
        p.tdev_ns = tdev(filtered, interval_s, taus);
    }
    return p;
}

bool ClassVerdict::holds() const
{
    return maxTe.value_or(true) && maxTeFiltered.value_or(true) && cTe.value_or(true) && mtie.value_or(true)
           && tdev.value_or(true);
}

ClassVerdict judge(const PacketTime& p, const TimeClass& c)
{
    ClassVerdict v;
    v.maxTe = within(p.maxTe_ns, c.maxTe_ns);
    v.maxTeFiltered = within(p.maxTeFiltered_ns, c.maxTeFiltered_ns);
    if (p.cTe_ns) v.cTe = within(std::abs(*p.cTe_ns), c.cTe_ns);
    v.mtie = within(p.mtie_ns, c.dynamic.mtie);
    v.tdev = within(p.tdev_ns, c.dynamic.tdev);
    return v;
}

}  // namespace app
