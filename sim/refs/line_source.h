// line_source.h - A 1PPS or a line (PDH, SDH, external frequency, Ethernet) as the phase detector
// sees it: edges at a fixed rate with phase, frequency offset, noise, and faults that come and go.
//
// Edge n comes at n periods of true time plus the phase. A positive phase is late, a positive
// frequency makes the edges come ever earlier. An edge costs nothing while the reference isn't
// selected.
#pragma once
#include "ose/world.h"
#include "sim/board/edge_source.h"
#include "sim/clock/noise.h"
#include "sim/clock/series.h"

#include <string>

namespace sim {

constexpr u32 PPS_RATE_Hz = 1;
constexpr u32 LINE_RATE_Hz = 8;      // lines reach the detector divided down

/// Sinusoidal wander, as tolerance and transfer are tested with (ITU-T G.8262).
struct Wander {
    double peakToPeak_s = 0;
    double period_s = 1.0;
};

struct LineConfig {
    bool present = true;             // toggles from the beginning
    double phase_s = 0;              // edges later than true time by this, taken modulo the period
    double frequency_ppb = 0;        // positive: the reference runs fast
    Wander wander = {};              // begins with the run, at phase 0 and becoming late
    PhaseNoiseLevels noise = {};
    EndlessSeries series = {};       // recorded phase, s; added to the noise
    double seriesInterval_s = 1.0;
};

class LineSource : public EdgeSource {
public:
    LineSource(ose::World& world, const LineConfig& config, u32 rate_Hz, u64 seed, const std::string& name);

    // ---- script: each takes effect at once, without a call to the board -------------------------
    void setPresent(bool present);
    /// Toggles, but its edges never reach the detector.
    void setStuck(bool stuck);
    /// All edges to come are later by this, modulo the period.
    void addPhase(double step_s);
    /// Phase runs on from where it is. Positive: runs fast.
    void setFrequency(double frequency_ppb);
    void addFrequency(double step_ppb) { setFrequency(frequency_ppb_ + step_ppb); }
    /// Phase runs on from where it is; the new wander begins at 0.
    void setWander(const Wander& wander);
    /// The next edge alone comes later by this, at most half a period either way.
    void moveNextEdge(double move_s);

    // ---- EdgeSource -----------------------------------------------------------------------------
    bool present() const override { return present_; }
    ose::Time nextEdge(ose::Time now) override;

private:
    double drift(ose::Time at) const;
    double wanderAt(ose::Time at) const;
    double slowPhase(ose::Time at) const { return drift(at) + wanderAt(at); }
    double withinPeriod(double phase_s) const;
    double noise(i64 edge);
    ose::Time dueOf(i64 edge);
    i64 firstAfter(ose::Time now);
    void tell();

    ose::World& world_;
    LineConfig config_;
    ose::Time period_;
    PhaseNoise noise_;
    bool present_;
    bool stuck_ = false;
    double phase_s_;                 // at `since_`
    double frequency_ppb_;
    ose::Time since_ = 0;
    Wander wander_;
    ose::Time wanderSince_ = 0;
    i64 movedEdge_ = -1;             // the one that move_s_ moves
    double move_s_ = 0;
    i64 past_ = -1;                  // number of the last edge that lies behind
    i64 noiseOf_ = -1;               // edge whose noise stands in noise_s_
    double noise_s_ = 0;
};

}  // namespace sim
