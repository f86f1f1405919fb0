#include "sim/net/host_net.h"

#include <algorithm>

namespace sim {

HostNet::~HostNet()
{
    for (const auto& port : ports_) network_.putOn(port->host(), nullptr);
}

HostPort& HostNet::add(NetHost& host, const std::string& interface)
{
    ports_.push_back(std::make_unique<HostPort>(world_, clock_, host, interface));
    network_.putOn(host, ports_.back().get());
    return *ports_.back();
}

/// Until the time has come or a socket has something, at most so long that an operator doesn't notice.
void HostNet::waitUntil(ose::Time due)
{
    constexpr ose::Time LONGEST = 20 * ose::MS;
    const ose::Time now = clock_.now();
    if (due <= now) return;
    const ose::Time wait = std::min(due - now, LONGEST);
    const timespec span{0, static_cast<long>(wait / ose::NS)};
    std::vector<pollfd> fds;
    for (const auto& port : ports_) port->waitFor(fds);
    ppoll(fds.data(), fds.size(), &span, nullptr);
}

void HostNet::runUntil(ose::Time end)
{
    while (world_.now() < end) {
        clock_.follow();
        for (const auto& port : ports_) port->take();
        const ose::Time wall = clock_.now();
        if (wall >= world_.now()) world_.runUntil(std::min(wall, end));
        waitUntil(std::min(wall < 0 ? 0 : world_.nextDue(), end));
    }
}

}  // namespace sim
