#include "app/estimate_lag.h"

#include <algorithm>
#include <cmath>

namespace app {

void EstimateLag::take(double residual_s, double interval_s, double turnover)
{
    constexpr double SHORTEST_s = 30, LONGEST_s = 3600;
    turnover_ = turnover;
    slowness_s_ = turnover > 0 ? std::clamp(0.5 / turnover, SHORTEST_s, LONGEST_s) : LONGEST_s;
    const double share = std::clamp(interval_s / slowness_s_, 1.0 / ++count_, 1.0);
    mean_s_ += share * (residual_s - mean_s_);
    meanOfMean_s_ += share * (mean_s_ - meanOfMean_s_);
}

double EstimateLag::time_ns() const { return std::abs(2 * mean_s_ - meanOfMean_s_) * 1e9; }

/// The error of time moves with that of frequency, less what the filter takes back: sqrt(2) of its turnover
/// in its steady state.
double EstimateLag::freq_ppb() const
{
    if (count_ == 0) return 0;
    constexpr double ROOT_OF_2 = 1.4142136;
    const double slope = (mean_s_ - meanOfMean_s_) / slowness_s_;
    return std::abs(slope + ROOT_OF_2 * turnover_ * (2 * mean_s_ - meanOfMean_s_)) * 1e9;
}

}  // namespace app
