// estimate_lag.h - How far a filter's measurements lie off its estimate in the mean: an oven that settles, a
// jump that fell beside a pulse or a reference that turns pull a filter for longer than its covariance says,
// and the means of its own residuals tell.
#pragma once
#include "ose/types.h"

namespace app {

class EstimateLag {
public:
    /// A residual, s, `interval_s` behind the one before; `turnover` of the filter, 1/s.
    void take(double residual_s, double interval_s, double turnover);
    void restart() { *this = EstimateLag{}; }
    double time_ns() const;
    double freq_ppb() const;

private:
    u32 count_ = 0;
    double slowness_s_ = 0, turnover_ = 0;
    double mean_s_ = 0, meanOfMean_s_ = 0;   // one lags a ramp by the slowness, the other by twice that
};

}  // namespace app
