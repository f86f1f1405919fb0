#include "app/estimate_doubt.h"

#include "pktsync/tupktsync_ptp_clock.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace app {
namespace {

constexpr double NS = 1e9, PPB = 1e9;
constexpr double TEMPERATURE_TICK_s = 2.1;      // each is a step of the filter too
// What data sheets of ovens give as Allan deviation at 1 s at most; the filter's model has none.
constexpr double SHORT_TERM_ppb = 0.01;

}  // namespace

void HourMax::note(double value)
{
    minutes_[minute_] = std::max(minutes_[minute_], value);
    if (++notes_ < NOTES_A_MINUTE) return;
    notes_ = 0;
    minute_ = (minute_ + 1) % minutes_.size();
    minutes_[minute_] = 0;
}

double HourMax::value() const { return *std::ranges::max_element(minutes_); }

/// White noise leaves a tenth of a deviation in the mean of a hundred. More is a lag of the filter, or a
/// reference that isn't what it was: which of the two can't be told, so it stands for an hour.
void EstimateDoubt::takeResidual(double now_s, const Seen& seen)
{
    if (seen.z == lastZ_ && seen.predicted == lastPredicted_) return;
    lastZ_ = seen.z;
    lastPredicted_ = seen.predicted;
    const double S = seen.P0 + seen.R;
    if (!seen.used || !(S > 0.0)) return;
    residuals_[count_++ % RESIDUALS] = (seen.z - seen.predicted) / std::sqrt(S);
    const double n = static_cast<double>(std::min(count_, RESIDUALS));
    disagreement_.note(std::abs(std::accumulate(residuals_.begin(), residuals_.end(), 0.0)) / n);

    if (last_s_ >= 0.0 && now_s > last_s_ && seen.steps > lastSteps_) {
        constexpr double KEPT = 0.95;
        const double steps_a_second = static_cast<double>(seen.steps - lastSteps_) / (now_s - last_s_);
        rate_ = KEPT * rate_ + (1.0 - KEPT) * std::max(0.0, steps_a_second - 1.0 / TEMPERATURE_TICK_s);
    }
    last_s_ = now_s;
    lastSteps_ = seen.steps;
    timeBound_s_ = disagreement_.value() * std::sqrt(S);
    // A frequency that is off by y is balanced where each measurement takes back what it adds.
    freqBound_ = timeBound_s_ * (seen.P0 / S) * rate_;
}

/// What a network adds to the least delay may lie on one way alone, and moves the time by as much as the
/// mean.
void EstimateDoubt::takePath(const Seen& seen)
{
    if (!seen.pathDelay_ns) {
        leastDelay_ns_ = 0;
        detour_ns_ = 0;
        return;
    }
    const i64 delay_ns = *seen.pathDelay_ns;
    if (delay_ns <= 0) return;                  // none measured yet
    if (leastDelay_ns_ == 0 || seen.path != path_ || delay_ns < leastDelay_ns_) leastDelay_ns_ = delay_ns;
    path_ = seen.path;
    detour_ns_ = static_cast<double>(delay_ns - leastDelay_ns_);
    compensation_ns_.note(std::abs(seen.compensation_ns));
}

void EstimateDoubt::take(double now_s, const Seen& seen, Estimate& e)
{
    if (std::isnan(e.freq_ppb)) return;
    takeResidual(now_s, seen);
    takePath(seen);
    const double without_s = last_s_ >= 0.0 ? now_s - last_s_ : 0.0;
    const double path_ns = seen.pathDelay_ns ? detour_ns_ + compensation_ns_.value() : 0.0;
    e.freqBand_ppb = SIGMAS * std::hypot(e.freqDeviation_ppb, SHORT_TERM_ppb) + freqBound_ * PPB;
    e.timeBand_ns = SIGMAS * e.timeDeviation_ns + (timeBound_s_ + freqBound_ * without_s) * NS + path_ns;
}

EstimateDoubt::Seen readDoubt()
{
    const EstimatePar& step = KvdLoz6TuReg_estimatePar();
    const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
    const MeasRefData& m = KvdLoz6TuReg_measStateVar().measRefData;
    // Outliers of one side are followed on lines alone.
    const bool isLine =
        (m.z_i >= Z_EXT_REF && m.z_i <= Z_SDH_REF) || m.z_i == Z_ETH_REF || m.z_i == Z_EXT_1PPS_REF;
    EstimateDoubt::Seen seen;
    seen.z = m.z;
    seen.predicted = step.x_pred[0];
    seen.P0 = step.P_pred[0];
    seen.R = m.R;
    seen.used = v.degrd == 0 || isLine;
    seen.steps = v.measCount;
    for (u32 i = 0; i < PTP_CLOCKS; ++i) {
        const PtpClock* const c = ptpClockOf(i);
        if (c == nullptr || !c->selected) continue;
        seen.pathDelay_ns = c->meanPathDelay;
        seen.path = i;
        seen.compensation_ns = KvdLoz6TuReg_packetCompensation() * NS;
    }
    return seen;
}

}  // namespace app
