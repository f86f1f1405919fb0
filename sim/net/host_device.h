// host_device.h - What a run that keeps the host's time reads from the machine beside its interfaces.
#pragma once
#include <functional>
#include <poll.h>
#include <string>
#include <vector>

namespace sim {

class HostDevice {
public:
    virtual ~HostDevice() = default;
    /// Takes what has come into the world, and never waits.
    virtual void take() = 0;
    virtual void waitFor(std::vector<pollfd>& fds) const = 0;
};

/// The calls of the machine that a device takes, as open(2) and ioctl(2) answer.
struct DeviceCalls {
    std::function<int(const std::string& device)> open;
    std::function<int(int fd, unsigned long request, void* data)> control;
    static DeviceCalls kernel();
};

}  // namespace sim
