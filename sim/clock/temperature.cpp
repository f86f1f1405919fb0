#include "sim/clock/temperature.h"

#include "sim/clock/portable_math.h"

namespace sim {
namespace {

double seconds(ose::Time t) { return static_cast<double>(t) / static_cast<double>(ose::SEC); }

}  // namespace

double Temperature::settled(double t) const
{
    const TemperatureConfig& c = config_;
    switch (c.shape) {
    case TemperatureShape::Constant: break;
    case TemperatureShape::Step: return c.base_V + (t >= c.stepAt_s ? c.amplitude_V : 0.0);
    case TemperatureShape::Day: return c.base_V + c.amplitude_V * portable::sineOfTurns(t / c.period_s);
    case TemperatureShape::Ramp: return c.base_V + c.slope_V_per_h * t / 3600.0;
    case TemperatureShape::Series:
        if (c.series.empty()) break;
        return c.seriesOffset_V + c.seriesScale_V * c.series.at(static_cast<u64>(t / c.seriesInterval_s));
    }
    return c.base_V;
}

double Temperature::coldness(ose::Time now) const
{
    if (coldSince_ < 0 || config_.warmUpTau_s <= 0.0) return 0.0;
    constexpr double SETTLED = 40.0;   // time constants: 4e-18 is left
    const double constants = seconds(now - coldSince_) / config_.warmUpTau_s;
    return constants > SETTLED ? 0.0 : portable::exp(-constants);
}

double Temperature::volts(ose::Time now) const
{
    const double warm = settled(seconds(now)) + step_V_;
    return warm + (config_.coldStart_V - warm) * coldness(now);
}

}  // namespace sim
