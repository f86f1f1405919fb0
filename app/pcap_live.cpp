#include "app/pcap_live.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace app {
namespace {

volatile std::sig_atomic_t interrupted = 0;

struct Socket {
    int fd;
    ~Socket() { if (fd >= 0) close(fd); }
};

bool isWanted(const PcapPacket& p)
{
    constexpr u8 SLOW_PROTOCOLS[] = {0x88, 0x09};
    constexpr std::size_t TYPE_AT = 12;
    constexpr u16 NTP_PORT = 123;
    if (p.frame.size() < TYPE_AT + 2) return false;
    if (std::equal(std::begin(SLOW_PROTOCOLS), std::end(SLOW_PROTOCOLS), p.frame.begin() + TYPE_AT))
        return true;
    if (ptpOf(p)) return true;
    const auto udp = udpOf(p);
    return udp && (udp->fromPort == NTP_PORT || udp->toPort == NTP_PORT);
}

void join(int fd, int index, const std::array<u8, 6>& group)
{
    packet_mreq m{};
    m.mr_ifindex = index;
    m.mr_type = PACKET_MR_MULTICAST;
    m.mr_alen = static_cast<unsigned short>(group.size());
    std::copy(group.begin(), group.end(), m.mr_address);
    setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &m, sizeof m);
}

/// One packet, if there is one.
bool receive(int fd, std::vector<PcapPacket>& packets)
{
    std::array<u8, 2048> bytes;
    alignas(cmsghdr) std::array<u8, 256> control;
    iovec part{bytes.data(), bytes.size()};
    msghdr m{};
    m.msg_iov = &part;
    m.msg_iovlen = 1;
    m.msg_control = control.data();
    m.msg_controllen = control.size();
    const ssize_t got = recvmsg(fd, &m, MSG_DONTWAIT | MSG_TRUNC);
    if (got < 0) return false;
    PcapPacket p;
    p.wireLength = static_cast<u32>(got);
    p.frame.assign(bytes.begin(), bytes.begin() + std::min<ssize_t>(got, static_cast<ssize_t>(bytes.size())));
    for (cmsghdr* c = CMSG_FIRSTHDR(&m); c != nullptr; c = CMSG_NXTHDR(&m, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_TIMESTAMPNS) continue;
        timespec t{};
        std::memcpy(&t, CMSG_DATA(c), sizeof t);
        p.time_ns = t.tv_sec * 1'000'000'000LL + t.tv_nsec;
    }
    if (isWanted(p)) packets.push_back(std::move(p));
    return true;
}

}  // namespace

bool isInterface(const std::string& name) { return if_nametoindex(name.c_str()) != 0; }

std::vector<PcapPacket> recordLive(const std::string& interface, double seconds)
{
    const Socket s{socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL))};
    const auto fail = [&](const char* what) {
        throw PcapError(interface + ": " + what + ": " + std::strerror(errno));
    };
    if (s.fd < 0) fail("a raw packet socket takes root, or CAP_NET_RAW");
    sockaddr_ll at{};
    at.sll_family = AF_PACKET;
    at.sll_protocol = htons(ETH_P_ALL);
    at.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
    const int on = 1, room = 8 << 20;
    setsockopt(s.fd, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    if (setsockopt(s.fd, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0) fail("asking for stamps");
    if (bind(s.fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) fail("listening");
    join(s.fd, at.sll_ifindex, {0x01, 0x1B, 0x19, 0, 0, 0});
    join(s.fd, at.sll_ifindex, {0x01, 0x80, 0xC2, 0, 0, 0x0E});
    join(s.fd, at.sll_ifindex, {0x01, 0x80, 0xC2, 0, 0, 0x02});          // slow protocols
    interrupted = 0;
    const auto before = std::signal(SIGINT, [](int) { interrupted = 1; });
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    std::vector<PcapPacket> packets;
    while (interrupted == 0 && Clock::now() < end) {
        pollfd fd{s.fd, POLLIN, 0};
        constexpr int LOOK_AGAIN_ms = 100;
        if (poll(&fd, 1, LOOK_AGAIN_ms) > 0)
            while (interrupted == 0 && Clock::now() < end && receive(s.fd, packets)) {}
    }
    std::signal(SIGINT, before);
    return packets;
}

}  // namespace app
