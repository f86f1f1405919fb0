#include "sim/scenario/packet_net.h"

#include "sim/scenario/unit.h"

namespace sim {

PacketNet::PacketNet(ose::World& world, const Scenario& scenario,
                     const std::vector<std::unique_ptr<Unit>>& units)
    : network_(world), units_(units)
{
    for (const PtpMasterConfig& config : scenario.masters)
        masters_.emplace(config.name, std::make_unique<PtpMaster>(world, network_, config));
    for (const auto& unit : units) {
        network_.attach(unit->node().packetPort());
        unit->node().packetPort().plug(&network_);
    }
    for (const PathSpec& p : scenario.paths)
        network_.connect(*network_.host(p.from), *network_.host(p.to), p.forward, p.back);
}

PacketNet::~PacketNet()
{
    for (const auto& unit : units_) unit->node().packetPort().plug(nullptr);
}

}  // namespace sim
