// estimate_doubt.h - What a unit's filter can't know of its own estimate, from what the unit itself sees.
// The covariance is right for white noise, a reference that is true and an oscillator that drifts as the
// model says. Beside it stand: what the latest measurements say against the estimate, a packet path's
// possible asymmetry, and the oscillator's short-term noise. No truth of the simulation goes in.
// Units   s of virtual time, ns, ppb where a name says so; else SI.
#pragma once
#include "app/recording.h"

#include <array>
#include <cstddef>
#include <optional>

namespace app {

/// The largest value that was noted in the last hour in which anything was, to a minute.
class HourMax {
public:
    void note(double value);
    double value() const;

private:
    static constexpr u32 NOTES_A_MINUTE = 60;   // one a second
    std::array<double, 60> minutes_{};
    std::size_t minute_ = 0;
    u32 notes_ = 0;
};

class EstimateDoubt {
public:
    /// The filter's last step on a reference, and the selected packet clock's path.
    struct Seen {
        double z = 0, predicted = 0;            // s, measured and expected time offset
        double P0 = 0, R = 0;                   // s^2, variance of the expectation and of the measurement
        bool   used = true;                     // not refused as an outlier
        u32    steps = 0;                       // of the filter, with those on a temperature
        std::optional<i64> pathDelay_ns;        // mean path delay
        u32    path = 0;                        // which packet clock
        double compensation_ns = 0;             // for unequal delay variation, as the unit applies it
    };
    /// A sample; adds to `e` what stands beside three deviations.
    void take(double now_s, const Seen& seen, Estimate& e);

private:
    void takeResidual(double now_s, const Seen& seen);
    void takePath(const Seen& seen);

    static constexpr std::size_t RESIDUALS = 100;
    std::array<double, RESIDUALS> residuals_{}; // in deviations that the filter expects of them
    std::size_t count_ = 0;
    double lastZ_ = 0, lastPredicted_ = 0;
    HourMax disagreement_;                      // mean residual, in deviations
    double timeBound_s_ = 0, freqBound_ = 0;    // of the last measurement
    double last_s_ = -1;                        // when that was
    u32    lastSteps_ = 0;
    double rate_ = 1;                           // measurements a second
    u32    path_ = 0;
    i64    leastDelay_ns_ = 0;
    double detour_ns_ = 0;                      // mean path delay above the least
    HourMax compensation_ns_;
};

/// Inside the unit's program.
EstimateDoubt::Seen readDoubt();

}  // namespace app
