// edge_source.h - A signal at one of the board's reference inputs.
#pragma once
#include "ose/world.h"

#include <functional>

namespace sim {

/// Inputs of the reference multiplexer. The external frequency and the 1PPS share one connector.
enum class ReferenceInput : u8 {
    Pdh1, Pdh2, Pdh3, Pdh4, Sdh, ExternalFrequency, Pps, EthernetA, EthernetB, EthernetC,
};
constexpr u32 REFERENCE_INPUTS = 10;

class EdgeSource {
public:
    EdgeSource() = default;
    virtual ~EdgeSource() { if (gone) gone(); }
    EdgeSource(const EdgeSource&) = delete;
    EdgeSource& operator=(const EdgeSource&) = delete;

    /// True while the detector sees it toggle.
    virtual bool present() const = 0;
    /// First edge that the phase detector sees after `now`, -1 when none comes. Asked for in order
    /// of time and only while the reference is selected.
    virtual ose::Time nextEdge(ose::Time now) = 0;

    /// Set by the board that it is connected to. Called when the next edge may be another one, and
    /// when the source ends.
    std::function<void()> changed;
    std::function<void()> gone;
};

}  // namespace sim
