// temperature.h - Temperature of the oscillator's oven as its sensor gives it, in volts over time.
#pragma once
#include "ose/world.h"
#include "sim/clock/series.h"

#include <utility>

namespace sim {

enum class TemperatureShape : u8 { Constant, Step, Day, Ramp, Series };

struct TemperatureConfig {
    TemperatureShape shape = TemperatureShape::Constant;
    double base_V = 2.0;
    double amplitude_V = 0.0;       // Day: of the sine; Step: its height
    double period_s = 86400.0;      // Day
    double stepAt_s = 0.0;          // Step
    double slope_V_per_h = 0.0;     // Ramp
    EndlessSeries series;           // Series: volts = seriesOffset_V + seriesScale_V * value
    double seriesInterval_s = 60.0;
    double seriesOffset_V = 0.0;
    double seriesScale_V = 1.0;
    // A cold oven starts away from its temperature and settles exponentially.
    double coldStart_V = 0.5;
    double warmUpTau_s = 60.0;
};

class Temperature {
public:
    explicit Temperature(TemperatureConfig config) : config_(std::move(config)) {}

    /// Power comes back: the oven is cold again.
    void coldStart(ose::Time now) { coldSince_ = now; }
    /// A lasting step from now on, in volts.
    void addStep(double step_V) { step_V_ += step_V; }
    double volts(ose::Time now) const;
    /// What is left of the warm-up: 1 at the cold start, falling to 0.
    double coldness(ose::Time now) const;

private:
    double settled(double t) const;

    TemperatureConfig config_;
    double step_V_ = 0.0;
    ose::Time coldSince_ = -1;      // -1: warm from the beginning
};

}  // namespace sim
