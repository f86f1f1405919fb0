// packet_time.h - Scores of a clock while its time is that of a packet reference, held against the classes
// of ITU-T G.8273.2.
// Stateless. Time error in ns, times in s.
#pragma once
#include "app/recording.h"

#include <optional>

namespace app {

/// Over the stretches of locked time that a score takes, a packet time reference selected.
struct PacketTime {
    std::vector<LockedSpan> spans;
    double scored_s = 0;
    double maxTe_ns = 0;                  // largest |TE|
    double maxTeFiltered_ns = 0;          // the same behind the low-pass of 0.1 Hz
    std::optional<double> cTe_ns;         // the largest mean of 1000 s; nothing when no stretch is that long
    // Of the filtered error in the longest stretch.
    double mtieFrom_s = 0, mtieTo_s = 0;
    std::vector<TauValue> mtie_ns, tdev_ns;
};
/// The error against true time over a stretch, ns.
std::vector<double> timeErrors(const UnitRecording& unit, const LockedSpan& span);
PacketTime packetTime(const UnitRecording& unit, double interval_s);

/// What of a class's limits is kept; nothing where the class sets none, or there is nothing to judge.
struct ClassVerdict {
    std::optional<bool> maxTe, maxTeFiltered, cTe, mtie, tdev;
    bool holds() const;
};
ClassVerdict judge(const PacketTime& p, const TimeClass& c);

/// First-order low-pass of 0.1 Hz bandwidth (ITU-T G.8273.2 clause 7.1), begun at the first value.
std::vector<double> lowPass(const std::vector<double>& x, double interval_s);

}  // namespace app
