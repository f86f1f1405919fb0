#include "sim/clock/oscillator.h"

#include <cmath>

namespace sim {
namespace {

constexpr double PPB = 1e-9;
constexpr double DAY_s = 86400.0;
constexpr double SLOPE_CENTRE_V = 2.0;
constexpr double NOMINAL_Hz = 10e6;

}  // namespace

Oscillator::Oscillator(const OscillatorConfig& config, u64 seed, const std::string& name)
    : config_(config), segment_(std::llround(config.segment_s * 1e12)),
      noise_(config.noise, config.segment_s, seed, name)
{
}

/// Mean of the record over the segment that begins at t.
double Oscillator::recorded(double t) const
{
    const u64 first = static_cast<u64>(t / config_.seriesInterval_s + 1e-9);
    const u64 count = static_cast<u64>(config_.segment_s / config_.seriesInterval_s + 1e-9);
    if (count <= 1) return config_.series.at(first);
    double sum = 0.0;
    for (u64 i = 0; i < count; ++i) sum += config_.series.at(first + i);
    return sum / static_cast<double>(count);
}

double Oscillator::frequency(u64 number, double volts, double coldness)
{
    const OscillatorConfig& c = config_;
    const double t = static_cast<double>(number) * c.segment_s;
    const double eeprom_ppb = c.a[0] + volts * (c.a[1] + volts * (c.a[2] + volts * c.a[3]));
    double ppb = eeprom_ppb + c.offset_ppb + step_ppb_ + c.ageing_ppb_per_day * t / DAY_s
                 + c.slope_ppb_per_V * (volts - SLOPE_CENTRE_V) + c.warmUp_ppb * coldness;
    if (coldSince_ >= 0 && c.retrace_ppb != 0.0) {
        const double since = t - static_cast<double>(coldSince_) / static_cast<double>(ose::SEC);
        ppb += c.retrace_ppb * portable::exp(-std::fmax(since, 0.0) / c.retraceTau_s);
    }
    const double noise = c.series.empty() ? noise_.next() : recorded(t);
    return (c.nominal_Hz - NOMINAL_Hz) / NOMINAL_Hz + ppb * PPB + noise;
}

}  // namespace sim
