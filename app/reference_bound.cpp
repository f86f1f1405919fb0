#include "app/reference_bound.h"

#include "app/unit_status.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_syncref_ctrl.h"
#include "reg/kvd_reg_estimate.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace app {
namespace {

constexpr double RECEIVER_ns = 100;   // ITU-T G.8272 class A, against the standard's time
constexpr double LINE_ppb = 50;       // 3GPP TS 36.104 6.5.1: a wide area base station at its antenna

/// IEEE 1588-2008 table 6; nothing for a clock that doesn't know, or that is off by more than 10 s.
std::optional<double> clockAccuracy_ns(u8 accuracy)
{
    constexpr u8 FIRST = 0x20;
    constexpr double WITHIN_ns[] = {25, 100, 250, 1e3, 2.5e3, 10e3, 25e3, 100e3, 250e3,
                                    1e6, 2.5e6, 10e6, 25e6, 100e6, 250e6, 1e9, 10e9};
    if (accuracy < FIRST || accuracy - FIRST >= static_cast<int>(std::size(WITHIN_ns))) return {};
    return WITHIN_ns[accuracy - FIRST];
}

const PtpClock* clockOf(const sim::MpReference& r)
{
    const i32 id = TuPktsync_SyncrefCtrl_syncrefIdOf(r.froId, r.froClassNo);
    return id >= 0 ? ptpClockOf(static_cast<u32>(id)) : nullptr;
}

/// Neither way is shorter than nothing: their difference, halved, is at most half of their sum.
void claimOfPath(const sim::MpReference& r, ReferenceClaim& claim)
{
    const PtpClock* const clock = clockOf(r);
    if (clock == nullptr || clock->meanPathDelay <= 0) return;
    claim.pathDelay_ns = static_cast<double>(clock->meanPathDelay);
    const auto master_ns = clockAccuracy_ns(clock->parent.grandmasterClockQuality.clockAccuracy);
    if (master_ns) claim.time_ns = *claim.pathDelay_ns + *master_ns;
}

bool isLine(u8 refType)
{
    return refType == PDH_SDH_REF || refType == TU_REF || refType == ETHA_REF || refType == ETHB_REF
           || refType == ETHC_REF;
}

/// Share of an old error that is left in an estimate, on the careful side of how a filter forgets it.
double keptFor(double s, double turnover)
{
    constexpr double SLOWNESS = 4;
    return std::exp(-turnover * s / SLOWNESS);
}

bool isReceiver(u8 refType) { return refType == GPS_REF || refType == GPSOSL_REF || refType == HPTSI_REF; }

}  // namespace

ReferenceClaim claimOf(const sim::MpReference* reference)
{
    ReferenceClaim claim;
    if (reference == nullptr) return claim;
    if (isReceiver(reference->refType)) claim.time_ns = RECEIVER_ns;
    if (isLine(reference->refType)) claim.freq_ppb = LINE_ppb;
    if (reference->refType == PACKET_TIME_REF) claimOfPath(*reference, claim);
    if (reference->timeBound_ns) claim.time_ns = reference->timeBound_ns;
    if (reference->frequencyBound_ppb) claim.freq_ppb = reference->frequencyBound_ppb;
    return claim;
}

std::string claimText(const sim::MpReference* reference)
{
    if (reference == nullptr) return "what was left by the last reference";
    const ReferenceClaim claim = claimOf(reference);
    if (reference->timeBound_ns || reference->frequencyBound_ppb) return "as its giver promises";
    if (isReceiver(reference->refType)) return "100 ns of a receiver (ITU-T G.8272 class A)";
    if (isLine(reference->refType)) return "50 ppb of a base station's line (3GPP TS 36.104)";
    if (!claim.time_ns) return "nobody knows";
    return "half of a round trip of " + timeText(2 * *claim.pathDelay_ns) + ", and its master's accuracy of "
           + timeText(*claim.time_ns - *claim.pathDelay_ns);
}

/// What an error of the path may have changed by while the filter remembers, each way from its middle: one
/// way that becomes longer lengthens the round trip as well.
double ReferenceBound::pathChange_ns(double pathDelay_ns, u32 froId, double interval_s, double turnover)
{
    constexpr double BLOCK_s = 60;
    if (pathOf_ != froId) {
        pathOf_ = froId;
        least_ns_.reset();
        most_ns_.reset();
        blockSum_ns_ = block_s_ = 0;
    }
    blockSum_ns_ += pathDelay_ns * interval_s;
    block_s_ += interval_s;
    if (block_s_ >= BLOCK_s) {
        const double mean_ns = blockSum_ns_ / block_s_, kept = keptFor(block_s_, turnover);
        least_ns_ = std::min(mean_ns, mean_ns - (mean_ns - least_ns_.value_or(mean_ns)) * kept);
        most_ns_ = std::max(mean_ns, mean_ns + (most_ns_.value_or(mean_ns) - mean_ns) * kept);
        blockSum_ns_ = block_s_ = 0;
    }
    return least_ns_ ? (*most_ns_ - *least_ns_) / 2 : 0.0;
}

void ReferenceBound::step(const sim::MpReference* reference, double interval_s, Estimate& estimate)
{
    const EstimateStateVar& v = KvdLoz6TuReg_estimateStateVar();
    // How fast the filter turns over: as a loop in its steady state, and by the root of 3 over the time since
    // its beginning when it is fresh, where a phase error within +-B makes 3 B / t of frequency at most.
    turnover_ = v.P_est[0] > 0 ? std::sqrt(std::max(0.0, v.P_est[7]) / v.P_est[0]) : 0.0;
    constexpr double ROOT_OF_3 = 1.7320508;
    const double kept = keptFor(interval_s, turnover_);
    const ReferenceClaim claim = claimOf(reference);
    const auto atLeast = [kept](std::optional<double> before, double now) {
        return before ? std::max(*before * kept, now) : now;
    };
    if (reference != nullptr && !claim.isKnown()) {
        time_ns_.reset();
        freq_ppb_.reset();
    } else if (reference != nullptr) {
        double freq_ppb = claim.freq_ppb.value_or(0.0);
        if (claim.pathDelay_ns && !claim.freq_ppb)
            freq_ppb = ROOT_OF_3 * turnover_
                       * pathChange_ns(*claim.pathDelay_ns, reference->froId, interval_s, turnover_);
        freq_ppb_ = atLeast(freq_ppb_, freq_ppb);
        if (claim.time_ns) time_ns_ = atLeast(time_ns_, *claim.time_ns);
    }
    // Without a time to follow, time goes off with the frequency.
    if (!claim.time_ns && time_ns_ && freq_ppb_) *time_ns_ += *freq_ppb_ * interval_s;
    if (!std::isnan(estimate.time_ns) && time_ns_) estimate.timeBound_ns = *time_ns_;
    if (!std::isnan(estimate.freq_ppb) && freq_ppb_) estimate.freqBound_ppb = *freq_ppb_;
}

}  // namespace app
