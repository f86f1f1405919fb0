// packet_net.h - The packet network of a scenario: its masters, the paths between them and the units.
// The world must outlive it, it the units' last packet.
#pragma once
#include "sim/net/network.h"
#include "sim/net/ptp_master.h"
#include "sim/scenario/scenario.h"

#include <map>
#include <memory>

namespace sim {

class PacketNet {
public:
    PacketNet(ose::World& world, const Scenario& scenario, const std::vector<std::unique_ptr<Unit>>& units);
    ~PacketNet();
    PacketNet(const PacketNet&) = delete;
    PacketNet& operator=(const PacketNet&) = delete;

    Network& network() { return network_; }
    /// The scenario's reader has made sure that it is there.
    PtpMaster& master(const std::string& name) { return *masters_.at(name); }

private:
    Network network_;
    std::map<std::string, std::unique_ptr<PtpMaster>> masters_;
    const std::vector<std::unique_ptr<Unit>>& units_;
};

}  // namespace sim
