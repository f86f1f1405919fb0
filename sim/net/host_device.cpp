#include "sim/net/host_device.h"

#include <fcntl.h>
#include <sys/ioctl.h>

namespace sim {

DeviceCalls DeviceCalls::kernel()
{
    return {[](const std::string& device) { return ::open(device.c_str(), O_RDWR | O_CLOEXEC); },
            [](int fd, unsigned long request, void* data) { return ioctl(fd, request, data); }};
}

}  // namespace sim
