// host_device.h - What a run that keeps the host's time reads from the machine beside its interfaces.
#pragma once
#include <poll.h>
#include <vector>

namespace sim {

class HostDevice {
public:
    virtual ~HostDevice() = default;
    /// Takes what has come into the world, and never waits.
    virtual void take() = 0;
    virtual void waitFor(std::vector<pollfd>& fds) const = 0;
};

}  // namespace sim
