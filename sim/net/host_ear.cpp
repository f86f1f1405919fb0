#include "sim/net/host_ear.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sim {
namespace {

// IEEE 1588-2008 annexes D.3 and E.3; of version 6 in the scopes of link, site and world.
constexpr const char* GROUP_4 = "224.0.1.129";
constexpr const char* GROUPS_6[] = {"ff02::181", "ff05::181", "ff0e::181"};
constexpr u16 PORTS[] = {ptp::EVENT_PORT, ptp::GENERAL_PORT};
constexpr int AT_ONCE = 256;

int openOn(int family, const std::string& interface)
{
    const int fd = socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    if (fd < 0) return fd;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (setsockopt(fd, SOL_SOCKET, SO_BINDTODEVICE, interface.c_str(),
                   static_cast<socklen_t>(interface.size())) == 0)
        return fd;
    close(fd);
    return -1;
}

bool join4(int fd, unsigned index, const char* group, u16 port)
{
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    inet_pton(AF_INET, group, &at.sin_addr);
    ip_mreqn join{};
    join.imr_multiaddr = at.sin_addr;
    join.imr_ifindex = static_cast<int>(index);
    return bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0
           && setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &join, sizeof join) == 0;
}

bool join6(int fd, unsigned index, const char* group, u16 port)
{
    sockaddr_in6 at{};
    at.sin6_family = AF_INET6;
    at.sin6_port = htons(port);
    at.sin6_scope_id = index;
    inet_pton(AF_INET6, group, &at.sin6_addr);
    ipv6_mreq join{};
    join.ipv6mr_multiaddr = at.sin6_addr;
    join.ipv6mr_interface = index;
    return bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0
           && setsockopt(fd, IPPROTO_IPV6, IPV6_ADD_MEMBERSHIP, &join, sizeof join) == 0;
}

std::string senderOf(const sockaddr_storage& from)
{
    char text[INET6_ADDRSTRLEN] = "";
    const void* const address =
        from.ss_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in&>(from).sin_addr)
            : &reinterpret_cast<const sockaddr_in6&>(from).sin6_addr;
    inet_ntop(from.ss_family, address, text, sizeof text);
    return text;
}

}  // namespace

HostEar::HostEar(const std::string& interface, unsigned index, HeardMasters& heard) : heard_(heard)
{
    const auto listen = [&](int family, const char* group, u16 port) {
        const int fd = openOn(family, interface);
        if (fd < 0) return;
        if (family == AF_INET ? join4(fd, index, group, port) : join6(fd, index, group, port))
            groups_.push_back({fd, group});
        else
            close(fd);
    };
    for (const u16 port : PORTS) {
        listen(AF_INET, GROUP_4, port);
        for (const char* const group : GROUPS_6) listen(AF_INET6, group, port);
    }
}

HostEar::~HostEar()
{
    for (const Group& g : groups_)
        if (g.fd >= 0) close(g.fd);
}

void HostEar::take()
{
    for (Group& g : groups_) {
        std::array<u8, 1600> bytes;
        for (int i = 0; i < AT_ONCE; ++i) {
            sockaddr_storage from{};
            socklen_t size = sizeof from;
            const ssize_t count = recvfrom(g.fd, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                           reinterpret_cast<sockaddr*>(&from), &size);
            if (count < 0) {
                if (g.fd >= 0 && errno == EBADF) {
                    g.fd = -1;
                    wasClosed_ = true;
                }
                break;
            }
            heard_.take(PtpWay::IpGroup, g.address, senderOf(from), bytes.data(),
                        static_cast<std::size_t>(count));
        }
    }
}

void HostEar::waitFor(std::vector<pollfd>& fds) const
{
    for (const Group& g : groups_) fds.push_back({g.fd, POLLIN, 0});
}

}  // namespace sim
