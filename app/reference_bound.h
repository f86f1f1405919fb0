// reference_bound.h - What a unit's estimate may be off by because its references are, which no filter sees
// from one end. From what an operator could know of a real unit alone: what the giver of a reference
// promises, what the standards ask of its kind, of a path of packets the round trip that the unit measures.
// Never from the world's truth.
#pragma once
#include "app/recording.h"
#include "sim/node/main_processor_config.h"

#include <optional>
#include <string>

namespace app {

/// Of one reference at one moment; nothing where it gives none, or nobody knows.
struct ReferenceClaim {
    std::optional<double> time_ns, freq_ppb;
    std::optional<double> pathDelay_ns;   // half of the round trip of its packets
    bool isKnown() const { return time_ns || freq_ppb; }
};

/// Inside the unit's program; nullptr for no reference.
ReferenceClaim claimOf(const sim::MpReference* reference);
/// Where it is from, in words: "100 ns of time (ITU-T G.8272 class A)".
std::string claimText(const sim::MpReference* reference);

/// What all references so far have left in the estimate.
class ReferenceBound {
public:
    /// On by `interval_s`, inside the unit's program. `reference` is the one that the filter hears, nullptr
    /// for none. Fills the bounds of `estimate`, where it has an estimate.
    void step(const sim::MpReference* reference, double interval_s, Estimate& estimate);

    /// Of the filter, 1/s, as of the last step.
    double turnover() const { return turnover_; }

private:
    double pathChange_ns(double pathDelay_ns, u32 froId, double interval_s, double turnover);

    double turnover_ = 0;
    std::optional<double> time_ns_, freq_ppb_;
    u32 pathOf_ = 0;                             // froId
    double blockSum_ns_ = 0, block_s_ = 0;       // mean path delay of the last minute
    std::optional<double> least_ns_, most_ns_;   // of those minutes that the filter remembers
};

}  // namespace app
