#include "sim/refs/line_source.h"

#include "sim/clock/portable_math.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

constexpr double PPB = 1e-9;

double seconds(ose::Time t) { return static_cast<double>(t) / static_cast<double>(ose::SEC); }
ose::Time picoseconds(double s) { return std::llround(s * 1e12); }

}  // namespace

LineSource::LineSource(ose::World& world, const LineConfig& config, u32 rate_Hz, u64 seed,
                       const std::string& name)
    : world_(world), config_(config), period_(ose::SEC / rate_Hz), noise_(config.noise, seed, name),
      present_(config.present), phase_s_(withinPeriod(config.phase_s)),
      frequency_ppb_(config.frequency_ppb), since_(world.now()),
      wander_(config.wander), wanderSince_(world.now())
{
}

void LineSource::tell()
{
    if (changed) changed();
}

void LineSource::setPresent(bool present)
{
    present_ = present;
    tell();
}

void LineSource::setStuck(bool stuck)
{
    stuck_ = stuck;
    tell();
}

void LineSource::addPhase(double step_s)
{
    phase_s_ += withinPeriod(step_s);
    tell();
}

void LineSource::setFrequency(double frequency_ppb)
{
    phase_s_ = drift(world_.now());
    since_ = world_.now();
    frequency_ppb_ = frequency_ppb;
    tell();
}

void LineSource::setWander(const Wander& wander)
{
    phase_s_ += wanderAt(world_.now());
    wander_ = wander;
    wanderSince_ = world_.now();
    tell();
}

void LineSource::moveNextEdge(double move_s)
{
    movedEdge_ = firstAfter(world_.now());
    move_s_ = std::clamp(move_s, -seconds(period_) / 2, seconds(period_) / 2);
    tell();
}

/// Edges are alike: half a period at most tells them from a step of the other sign.
double LineSource::withinPeriod(double phase_s) const
{
    const double period_s = seconds(period_);
    return phase_s - period_s * std::floor(phase_s / period_s + 0.5);
}

double LineSource::drift(ose::Time at) const
{
    return phase_s_ - frequency_ppb_ * PPB * seconds(at - since_);
}

double LineSource::wanderAt(ose::Time at) const
{
    if (!(wander_.peakToPeak_s > 0.0)) return 0.0;
    return wander_.peakToPeak_s / 2 * portable::sineOfTurns(seconds(at - wanderSince_) / wander_.period_s);
}

double LineSource::noise(i64 edge)
{
    if (edge == noiseOf_) return noise_s_;
    noiseOf_ = edge;
    const double t = static_cast<double>(edge) * seconds(period_);
    noise_s_ = noise_.next(t);
    if (!config_.series.empty())
        noise_s_ += config_.series.at(static_cast<u64>(t / config_.seriesInterval_s + 1e-9));
    return noise_s_;
}

/// Its slow phase is that of its own nominal time, so that the answer doesn't depend on when it is
/// asked.
ose::Time LineSource::dueOf(i64 edge)
{
    const ose::Time nominal = edge * period_;
    const double move = edge == movedEdge_ ? move_s_ : 0.0;
    return nominal + picoseconds(slowPhase(nominal) + noise(edge) + move);
}

/// An edge that lies behind doesn't come twice, whatever steps.
i64 LineSource::firstAfter(ose::Time now)
{
    i64 edge = std::max<i64>((now - picoseconds(slowPhase(now))) / period_ - 1, 0);
    for (edge = std::max(edge, past_ + 1); dueOf(edge) <= now; ++edge) past_ = edge;
    return edge;
}

ose::Time LineSource::nextEdge(ose::Time now)
{
    if (!present_ || stuck_) return -1;
    return dueOf(firstAfter(now));
}

}  // namespace sim
