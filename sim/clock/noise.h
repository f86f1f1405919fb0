// noise.h - Noise of clocks, levels given as Allan deviations. A generator draws only from its own
// stream.
#pragma once
#include "sim/clock/random.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <string>
#include <string_view>

namespace sim {

/// 1/f noise as a sum of first-order processes of variance 1, one an octave from 2 to 2^20 samples.
class Flicker {
public:
    Flicker(u64 seed, std::string_view source) : random_(seed, source)
    {
        double pole = 2.0;   // in samples
        for (std::size_t i = 0; i < STAGES; ++i, pole *= 2.0) {
            keep_[i] = (pole - 0.5) / (pole + 0.5);
            feed_[i] = std::sqrt(1.0 - keep_[i] * keep_[i]);
            value_[i] = random_.gaussian();   // begins in its steady state
        }
    }
    double next()
    {
        double sum = 0.0;
        for (std::size_t i = 0; i < STAGES; ++i) {
            value_[i] = keep_[i] * value_[i] + feed_[i] * random_.gaussian();
            sum += value_[i];
        }
        return sum;
    }

private:
    static constexpr std::size_t STAGES = 20;
    Random random_;
    std::array<double, STAGES> keep_{};
    std::array<double, STAGES> feed_{};
    std::array<double, STAGES> value_{};
};

/// Levels of an oscillator's noise in relative frequency.
struct FrequencyNoiseLevels {
    double white = 0;        // Allan deviation at 1 s
    double flicker = 0;      // Allan deviation of the floor
    double randomWalk = 0;   // Allan deviation at 1 s of the random walk alone
};

/// Relative frequency, a value a segment of `segment_s`.
class FrequencyNoise {
public:
    FrequencyNoise(const FrequencyNoiseLevels& levels, double segment_s, u64 seed, const std::string& source)
        : white_(levels.white / std::sqrt(segment_s)),
          flicker_(levels.flicker / FLICKER_FLOOR),
          step_(levels.randomWalk * std::sqrt(3.0 * segment_s)),
          whiteStream_(seed, source + ".white"), flickerStream_(seed, source + ".flicker"),
          walkStream_(seed, source + ".walk")
    {
    }
    double next()
    {
        double y = 0.0;
        if (white_ > 0.0) y += white_ * whiteStream_.gaussian();
        if (flicker_ > 0.0) y += flicker_ * flickerStream_.next();
        if (step_ > 0.0) walk_ += step_ * walkStream_.gaussian();
        return y + walk_;
    }

private:
    // Allan deviation of the sum of unit octaves, 30 to 1000 samples: measured, flat within 4 %.
    static constexpr double FLICKER_FLOOR = 1.40;

    double white_;
    double flicker_;
    double step_;            // steps s give the Allan deviation s * sqrt(n / 3) over n of them
    Random whiteStream_;
    Flicker flickerStream_;
    Random walkStream_;
    double walk_ = 0.0;
};

/// Levels of the phase noise of a pulse, one value an edge.
struct PhaseNoiseLevels {
    double white_s = 0;          // deviation of each edge
    double flicker_s = 0;        // deviation of each octave of 1/f noise
    double sawTooth_s = 0;       // peak to peak of a receiver clock's saw-tooth
    double sawToothPeriod_s = 47.0;
};

class PhaseNoise {
public:
    PhaseNoise(const PhaseNoiseLevels& levels, u64 seed, const std::string& source)
        : levels_(levels), whiteStream_(seed, source + ".white"), flickerStream_(seed, source + ".flicker")
    {
    }
    /// Of the next edge, which comes at t seconds.
    double next(double t)
    {
        double x = 0.0;
        if (levels_.white_s > 0.0) x += levels_.white_s * whiteStream_.gaussian();
        if (levels_.flicker_s > 0.0) x += levels_.flicker_s * flickerStream_.next();
        if (levels_.sawTooth_s > 0.0) {
            const double turn = t / levels_.sawToothPeriod_s;
            x += levels_.sawTooth_s * (turn - std::floor(turn) - 0.5);
        }
        return x;
    }

private:
    PhaseNoiseLevels levels_;
    Random whiteStream_;
    Flicker flickerStream_;
};

}  // namespace sim
