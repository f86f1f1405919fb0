// oscillator.h - A free-running oven oscillator: its true relative frequency, one value a segment.
#pragma once
#include "ose/world.h"
#include "sim/clock/noise.h"
#include "sim/clock/series.h"
#include "sim/clock/temperature.h"

#include <string>

namespace sim {

struct OscillatorConfig {
    double nominal_Hz = 10e6;              // as its EEPROM says
    double a[4] = {0, 0, 0, 0};            // EEPROM polynomial a0..a3, ppb against sensor volts
    double offset_ppb = 0;                 // true frequency less what the EEPROM says
    double ageing_ppb_per_day = 0;         // since the world began
    double slope_ppb_per_V = 0;            // that the EEPROM doesn't know, about 2 V
    double retrace_ppb = 0;                // at a cold start, settling with
    double retraceTau_s = 1800;
    double warmUp_ppb = 0;                 // while the oven is cold
    FrequencyNoiseLevels noise;
    EndlessSeries series;                  // recorded relative frequency in place of the noise
    double seriesInterval_s = 1.0;
    double segment_s = 1.0;                // the frequency stands still for so long; 0.001 to 1000
};

/// Everything additive: an oscillator is a rate. Segments are asked for in order, each once.
class Oscillator {
public:
    Oscillator(const OscillatorConfig& config, u64 seed, const std::string& name);

    ose::Time segment() const { return segment_; }
    /// Relative frequency against 10 MHz during the segment of that number since the world began,
    /// at those volts and that coldness of the oven.
    double frequency(u64 number, double volts, double coldness);
    void coldStart(ose::Time now) { coldSince_ = now; }
    /// A lasting step, from the next segment on.
    void addStep(double step_ppb) { step_ppb_ += step_ppb; }
    const OscillatorConfig& config() const { return config_; }

private:
    double recorded(double t) const;

    OscillatorConfig config_;
    ose::Time segment_;
    FrequencyNoise noise_;
    double step_ppb_ = 0;
    ose::Time coldSince_ = -1;
};

}  // namespace sim
