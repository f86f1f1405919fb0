// host_net.h - Hosts of the packet network on interfaces of the machine, and the world run along with the
// host's time: always a little behind it, so that what comes at a time reaches the world at that time or
// hardly later, and what the world sends leaves later than it meant to. The stamps tell when it was.
#pragma once
#include "sim/net/host_port.h"

#include <memory>

namespace sim {

class HostNet {
public:
    HostNet(ose::World& world, Network& network, HostClock& clock)
        : world_(world), network_(network), clock_(clock)
    {
    }
    ~HostNet();
    HostNet(const HostNet&) = delete;
    HostNet& operator=(const HostNet&) = delete;

    /// Takes the host off its paths and puts it on the interface. Throws HostError.
    HostPort& add(NetHost& host, const std::string& interface);
    /// Runs the world until its time is `end`, one second a second.
    void runUntil(ose::Time end);
    const std::vector<std::unique_ptr<HostPort>>& ports() const { return ports_; }

private:
    void waitUntil(ose::Time due);

    ose::World& world_;
    Network& network_;
    HostClock& clock_;
    std::vector<std::unique_ptr<HostPort>> ports_;
};

}  // namespace sim
