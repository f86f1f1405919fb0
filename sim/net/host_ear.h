// host_ear.h - Listens on an interface of the machine to what its hosts can't hear: PTP's groups of IP, whose
// masters are only told of, and followed by nobody.
#pragma once
#include "sim/net/heard.h"

#include <poll.h>

namespace sim {

class HostEar {
public:
    /// A group that can't be joined (no IP version 6, say) stays unheard.
    HostEar(const std::string& interface, unsigned index, HeardMasters& heard);
    ~HostEar();
    HostEar(const HostEar&) = delete;
    HostEar& operator=(const HostEar&) = delete;

    void take();
    void waitFor(std::vector<pollfd>& fds) const;
    /// A socket, by somebody else.
    bool wasClosed() const { return wasClosed_; }

private:
    struct Group { int fd = -1; std::string address; };
    HeardMasters& heard_;
    std::vector<Group> groups_;
    bool wasClosed_ = false;
};

}  // namespace sim
