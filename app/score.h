// score.h - Scores of a clock from its true time error: MTIE, TDEV, masks.
// Stateless. Time error in ns, intervals in s.
#pragma once
#include <span>
#include <string>
#include <vector>

namespace app {

struct TauValue {
    double tau;     // s
    double value;   // ns
};

/// Observation intervals for a series of `count` samples at `interval` seconds: about six a decade, whole
/// multiples of the interval, up to a quarter of the series.
std::vector<double> observationIntervals(std::size_t count, double interval);

/// Maximum time interval error over each observation interval (ITU-T G.810 II.5).
std::vector<TauValue> mtie(std::span<const double> timeError_ns, double interval,
                           std::span<const double> taus);
/// Time deviation, standard estimator (ITU-T G.810 II.3). Intervals longer than a third of the series are
/// left out.
std::vector<TauValue> tdev(std::span<const double> timeError_ns, double interval,
                           std::span<const double> taus);

/// A limit over observation interval: value = factor * tau^exponent + offset from `from` to `to`.
struct MaskSegment { double from, to, factor, exponent, offset; };
struct Mask {
    const char* name;
    std::span<const MaskSegment> mtie;   // ns
    std::span<const MaskSegment> tdev;   // ns
};
/// Largest time error that ITU-T G.8272 (11/2018) clause 6.1 lets a PRTC have while it is locked.
constexpr double PRTC_A_MAX_TE_ns = 100.0, PRTC_B_MAX_TE_ns = 40.0;

/// Masks of ITU-T G.811, G.812 type III, G.8272 (PRTC-A) and G.8272-B (PRTC-B).
std::span<const Mask> masks();
/// One of these, or of the classes and the network's below.
const Mask* maskByName(const std::string& name);
/// "G.811, G.812-III, ...": all that maskByName knows.
std::string maskNames();
/// A class of clocks that take time from packets (ITU-T G.8273.2 (10/2020) clause 7.1): limits of the error
/// that the clock adds by itself. 0, or an empty mask, where the class sets none.
struct TimeClass {
    const char* name;
    double maxTe_ns;             // |TE|
    double maxTeFiltered_ns;     // |TE| behind a low-pass of 0.1 Hz
    double cTe_ns;               // mean of 1000 s
    Mask dynamic;                // of the filtered error
};
std::span<const TimeClass> timeClasses();
/// What the unit itself holds its packet reference against: the network limit of ITU-T G.8271.1 (03/2020)
/// clause 7.3 for MTIE, up to 275 s.
const Mask& packetNetworkMask();

/// Limit at tau; negative where the mask says nothing.
double maskLimit(std::span<const MaskSegment> mask, double tau);
/// First interval at which a value lies above its limit; nullptr when none does.
const TauValue* aboveMask(std::span<const TauValue> values, std::span<const MaskSegment> mask);
/// The value that takes the largest share of its limit. There is one value at least.
const TauValue& nearestToMask(std::span<const TauValue> values, std::span<const MaskSegment> mask);

}  // namespace app
