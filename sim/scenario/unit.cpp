#include "sim/scenario/unit.h"

#include "sim/board/board.h"

namespace sim {

Unit::Unit(ose::World& world, const UnitSpec& spec) : node_(world, spec.node)
{
    for (const auto& [input, config] : spec.inputs) {
        const bool pps = input == ReferenceInput::Pps;
        const std::string name = spec.node.name + ".input" + std::to_string(static_cast<int>(input));
        auto source = std::make_unique<LineSource>(world, config, pps ? PPS_RATE_Hz : LINE_RATE_Hz,
                                                   world.seed(), name);
        node_.board().connect(input, source.get());
        sources_.emplace(input, std::move(source));
    }
    if (spec.gps) {
        gps_ = std::make_unique<GpsReceiver>(world, node_.serial(), *spec.gps, world.seed(),
                                             spec.node.name + ".gps");
        node_.board().connect(ReferenceInput::Pps, gps_.get());
    }
    world.at(static_cast<ose::Time>(spec.start_s * static_cast<double>(ose::SEC)),
             [this] { node_.powerOn(); });
}

}  // namespace sim
