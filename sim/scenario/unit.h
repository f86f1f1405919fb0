// unit.h - A unit of a scenario in its world: its node and the sources at its inputs.
#pragma once
#include "sim/node/node.h"
#include "sim/refs/cmcc_source.h"
#include "sim/refs/gps_receiver.h"
#include "sim/refs/line_source.h"
#include "sim/scenario/scenario.h"

#include <map>
#include <memory>

namespace sim {

class Unit {
public:
    Unit(ose::World& world, const UnitSpec& spec);

    Node& node() { return node_; }
    const std::string& name() const { return node_.name(); }
    /// A source that the scenario gave the unit; the scenario's reader has made sure that it is there.
    LineSource& input(ReferenceInput input) { return *sources_.at(input); }
    GpsReceiver& gps() { return *gps_; }
    EsmcPeer& esmc(u32 port) { return *esmc_.at(port); }
    CmccSource& cmcc() { return *cmcc_; }
    /// What the port server measures on a port that a link is at.
    void onDelay(u16 port, std::function<std::optional<IdpiDelay>()> measure)
    {
        delays_[port] = std::move(measure);
    }
    /// Another unit behind a port of the radio links, and what the server measures of it.
    struct RadioEnd {
        u32 id = 0;
        Unit* far = nullptr;
        std::function<std::optional<InrsiFrequency>()> frequency;
        std::function<std::optional<InrsiPhase>()> phase;
    };
    void onRadio(u16 port, RadioEnd end) { radioEnds_[port] = std::move(end); }
    /// The unit behind a port; none where the far end keeps true time.
    Unit* radioFar(u16 port) const
    {
        const auto end = radioEnds_.find(port);
        return end != radioEnds_.end() ? end->second.far : nullptr;
    }
    /// A unit behind a radio link, which keeps true time: its frequency less this unit's, and this unit's
    /// counter less its own.
    std::optional<InrsiFrequency> farFrequency(u32 unit);
    /// What becomes of the server's answers about a unit.
    enum class RadioAnswer : u8 { Measured, Invalid, Rejected, Silent };
    void setRadioAnswer(u32 unit, RadioAnswer answer);
    std::optional<InrsiPhase> farPhase(u32 unit);
    /// Frame counter against true GPS time as the node's date of frame zero places it, within half a
    /// turn of 1024 s, positive when ahead; nothing without a receiver, a source of the time of day or a
    /// packet time reference.
    std::optional<double> counterAgainstGps_s();

private:
    /// True TAI at the world's beginning, s since 1970, for a unit that can know it.
    std::optional<i64> taiAtStart() const;
    const RadioEnd* radioEnd(u32 unit) const;
    RadioAnswer radioAnswer(u32 unit) const;
    template <typename T>
    std::optional<T> answered(u32 unit, std::optional<T> measured) const;

    ose::World& world_;
    i64 masterEpoch_;
    Node node_;
    std::map<ReferenceInput, std::unique_ptr<LineSource>> sources_;
    std::unique_ptr<GpsReceiver> gps_;
    std::map<u32, std::unique_ptr<EsmcPeer>> esmc_;
    std::unique_ptr<CmccSource> cmcc_;
    std::map<u16, std::function<std::optional<IdpiDelay>()>> delays_;
    std::map<u16, RadioEnd> radioEnds_;
    std::map<u32, RadioAnswer> radioAnswers_;
};

}  // namespace sim
