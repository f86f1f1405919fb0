#include "sim/net/host_port.h"

#include "sim/net/ptp_wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <linux/errqueue.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/net_tstamp.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sim {

namespace {

constexpr MacAddress GROUPS[] = {{0x01, 0x1B, 0x19, 0, 0, 0}, {0x01, 0x80, 0xC2, 0, 0, 0x0E}};
constexpr std::size_t FRAME_HEADER = 14;
constexpr std::size_t LONGEST = 1600;            // a frame of the largest usual payload, or its datagram
constexpr u8 FIRST_GENERAL_TYPE = 8;             // lower message types are stamped (IEEE 1588-2008 13.3.2.2)
constexpr std::size_t AT_ONCE = 8192;            // packets taken from a socket before the world goes on
constexpr int ROOM = 8 << 20;                    // octets that may wait while the program doesn't run
constexpr ose::Time STAMP_WITHIN = ose::SEC;

template <typename T>
int setOption(int fd, int level, int option, const T& value)
{
    return setsockopt(fd, level, option, &value, sizeof value);
}

/// Beyond the system's limit where the rights allow it.
void makeRoom(int fd)
{
    if (setOption(fd, SOL_SOCKET, SO_RCVBUFFORCE, ROOM) != 0) setOption(fd, SOL_SOCKET, SO_RCVBUF, ROOM);
}

bool isLinkLocal(const NetAddress& a) { return a.octets[0] == 0xFE && (a.octets[1] & 0xC0) == 0x80; }

/// Into the system's form; its length.
socklen_t toSockaddr(const NetAddress& address, u16 port, unsigned interface, sockaddr_storage& out)
{
    out = {};
    if (address.family == 4) {
        sockaddr_in in{};
        in.sin_family = AF_INET;
        in.sin_port = htons(port);
        std::memcpy(&in.sin_addr, address.octets.data(), sizeof in.sin_addr);
        std::memcpy(&out, &in, sizeof in);
        return sizeof in;
    }
    sockaddr_in6 in{};
    in.sin6_family = AF_INET6;
    in.sin6_port = htons(port);
    std::memcpy(&in.sin6_addr, address.octets.data(), sizeof in.sin6_addr);
    if (isLinkLocal(address)) in.sin6_scope_id = interface;
    std::memcpy(&out, &in, sizeof in);
    return sizeof in;
}

void fromSockaddr(const sockaddr_storage& from, NetAddress& address, u16& port)
{
    if (from.ss_family == AF_INET) {
        sockaddr_in in;
        std::memcpy(&in, &from, sizeof in);
        address.family = 4;
        std::memcpy(address.octets.data(), &in.sin_addr, sizeof in.sin_addr);
        port = ntohs(in.sin_port);
    } else if (from.ss_family == AF_INET6) {
        sockaddr_in6 in;
        std::memcpy(&in, &from, sizeof in);
        address.family = 6;
        std::memcpy(address.octets.data(), &in.sin6_addr, sizeof in.sin6_addr);
        port = ntohs(in.sin6_port);
    }
}

std::size_t messageAt(const NetPacket& packet) { return packet.isFrame ? ptp::messageAt(packet.bytes) : 0; }

bool isEvent(const NetPacket& packet)
{
    const std::size_t at = messageAt(packet);
    return at < packet.bytes.size() && (packet.bytes[at] & 0x0F) < FIRST_GENERAL_TYPE;
}

bool isOneStepSync(const NetPacket& packet)
{
    constexpr std::size_t FLAGS_AT = 6;
    constexpr u8 TWO_STEP = 0x02;
    const std::size_t at = messageAt(packet);
    return at + ptp::HEADER <= packet.bytes.size() && (packet.bytes[at] & 0x0F) == ptp::SYNC
           && (packet.bytes[at + FLAGS_AT] & TWO_STEP) == 0;
}

/// The kernel's own stamp, of CLOCK_REALTIME in ns, or the card's.
std::optional<i64> stampOf(msghdr& m, bool ofCard)
{
    const std::size_t which = ofCard ? 2 : 0;
    for (cmsghdr* c = CMSG_FIRSTHDR(&m); c != nullptr; c = CMSG_NXTHDR(&m, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_TIMESTAMPING) continue;
        scm_timestamping s{};
        std::memcpy(&s, CMSG_DATA(c), sizeof s);
        if (s.ts[which].tv_sec != 0) return s.ts[which].tv_sec * 1'000'000'000LL + s.ts[which].tv_nsec;
    }
    return std::nullopt;
}

}  // namespace

struct HostPort::Received {
    std::array<u8, LONGEST> bytes;
    std::size_t count = 0;
    bool isWhole = true;
    sockaddr_storage from{};
    std::optional<i64> stamp_ns;
};

void HostPort::fail(const std::string& what) const
{
    throw HostError(interface_ + ": " + what + ": " + std::strerror(errno));
}

HostPort::HostPort(ose::World& world, HostClock& clock, NetHost& host, const std::string& interface,
                   const CardClock* card)
    : world_(world), clock_(clock), host_(host), interface_(interface), card_(card)
{
    index_ = if_nametoindex(interface.c_str());
    open();
}

HostPort::~HostPort() { closeAll(); }

// ---- opening ------------------------------------------------------------------------------------

void HostPort::open()
{
    openFrames();
    openBothDatagrams();
}

void HostPort::openBothDatagrams()
{
    noDatagrams_ = openDatagrams(event_, ptp::EVENT_PORT);
    if (noDatagrams_.empty()) noDatagrams_ = openDatagrams(general_, ptp::GENERAL_PORT);
    if (noDatagrams_.empty()) return;
    for (Socket* const s : {&event_, &general_})
        if (s->fd >= 0) close(std::exchange(s->fd, -1));
}

void HostPort::closeAll()
{
    for (Socket* const s : {&frames_, &event_, &general_}) {
        if (s->fd >= 0) close(std::exchange(s->fd, -1));
        counts_.lostStamps += static_cast<u32>(s->waiting.size());
        s->waiting.clear();
        s->tos = 0;
    }
}

bool HostPort::lookAgain()
{
    if (std::exchange(wasClosed_, false)) {
        reopen(index_, card_);
        return frames_.fd >= 0;
    }
    if (frames_.fd >= 0 && event_.fd < 0) openBothDatagrams();
    return false;
}

/// One that can't be opened is tried again when the next change of the interface is seen.
void HostPort::reopen(unsigned index, const CardClock* card)
{
    closeAll();
    card_ = card;
    ++counts_.errors;
    index_ = index;
    if (index == 0) return;
    try {
        open();
    } catch (const HostError&) {
        closeAll();
    }
}

int HostPort::stampFlags() const
{
    return card_ != nullptr ? SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE
                            : SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
}

/// The world's time of its stamp.
std::optional<ose::Time> HostPort::timeOf(const Received& r) const
{
    const auto realtime_ns = r.stamp_ns && card_ != nullptr ? card_->realtimeOf(*r.stamp_ns) : r.stamp_ns;
    return realtime_ns ? clock_.ofStamp(*realtime_ns) : std::nullopt;
}

void HostPort::openFrames()
{
    frames_.fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (frames_.fd < 0) fail("a raw packet socket takes root, or CAP_NET_RAW");
    const auto orClose = [this](int result, const char* what) {
        if (result == 0) return;
        const int why = errno;
        close(std::exchange(frames_.fd, -1));
        errno = why;
        fail(what);
    };
    for (const MacAddress& group : GROUPS) {
        packet_mreq join{};
        join.mr_ifindex = static_cast<int>(index_);
        join.mr_type = PACKET_MR_MULTICAST;
        join.mr_alen = static_cast<unsigned short>(group.size());
        std::copy(group.begin(), group.end(), join.mr_address);
        orClose(setOption(frames_.fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, join), "joining PTP's groups");
    }
    makeRoom(frames_.fd);
    orClose(setOption(frames_.fd, SOL_SOCKET, SO_TIMESTAMPING, stampFlags()), "asking for stamps");
    sockaddr_ll own{};
    own.sll_family = AF_PACKET;
    own.sll_protocol = htons(ptp::ETHERTYPE);
    own.sll_ifindex = static_cast<int>(index_);
    orClose(bind(frames_.fd, reinterpret_cast<const sockaddr*>(&own), sizeof own), "taking PTP's frames");
}

/// Why it can't be, in words; empty when it is open.
std::string HostPort::openDatagrams(Socket& s, u16 port)
{
    const NetAddress own = host_.netAddress();
    s.port = port;
    s.fd = socket(own.family == 4 ? AF_INET : AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const std::string what = "UDP port " + std::to_string(port) + " of " + textOf(own) + ": ";
    if (s.fd < 0) return what + std::strerror(errno);
    sockaddr_storage address;
    const socklen_t size = toSockaddr(own, port, index_, address);
    if (setsockopt(s.fd, SOL_SOCKET, SO_BINDTODEVICE, interface_.c_str(),
                   static_cast<socklen_t>(interface_.size())) != 0 ||
        setOption(s.fd, SOL_SOCKET, SO_TIMESTAMPING, stampFlags()) != 0 ||
        bind(s.fd, reinterpret_cast<const sockaddr*>(&address), size) != 0)
        return what + std::strerror(errno);
    makeRoom(s.fd);
    return {};
}

// ---- sending ------------------------------------------------------------------------------------

bool HostPort::sendOn(Socket& s, const NetPacket& packet, bool wantsStamp)
{
    if (!packet.isFrame && s.tos != packet.tos) {
        const int tos = packet.tos;
        const bool is4 = packet.to.family == 4;
        const int level = is4 ? IPPROTO_IP : IPPROTO_IPV6;
        if (setOption(s.fd, level, is4 ? IP_TOS : IPV6_TCLASS, tos) == 0) s.tos = tos;
    }
    iovec part{const_cast<u8*>(packet.bytes.data()), packet.bytes.size()};
    msghdr m{};
    m.msg_iov = &part;
    m.msg_iovlen = 1;
    sockaddr_storage to;
    if (!packet.isFrame) {
        m.msg_namelen = toSockaddr(packet.to, packet.toPort, index_, to);
        m.msg_name = &to;
    }
    // The stamp of this very packet: nothing piles up for those whose time of leaving nobody asks for.
    alignas(cmsghdr) std::array<u8, CMSG_SPACE(sizeof(u32))> control{};
    if (wantsStamp) {
        m.msg_control = control.data();
        m.msg_controllen = control.size();
        cmsghdr* const c = CMSG_FIRSTHDR(&m);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SO_TIMESTAMPING;
        c->cmsg_len = CMSG_LEN(sizeof(u32));
        const u32 flags = card_ != nullptr ? SOF_TIMESTAMPING_TX_HARDWARE : SOF_TIMESTAMPING_TX_SOFTWARE;
        std::memcpy(CMSG_DATA(c), &flags, sizeof flags);
    }
    return sendmsg(s.fd, &m, 0) == static_cast<ssize_t>(packet.bytes.size());
}

Leaving HostPort::leaving() const
{
    const ose::Time now = clock_.now();
    if (card_ == nullptr || !card_->inserts()) return {now, std::nullopt};
    return {now, card_->cardTimeOf(clock_.realtimeOf(now))};
}

/// A card that puts the time into a Sync is asked for it as for a stamp, and gives none.
void HostPort::send(const NetPacket& packet, Left left)
{
    Socket& s = packet.isFrame ? frames_ : packet.fromPort == ptp::EVENT_PORT ? event_ : general_;
    const bool wantsStamp = left != nullptr;
    const bool isInserted = card_ != nullptr && card_->inserts() && isOneStepSync(packet);
    if (s.fd < 0 || !sendOn(s, packet, wantsStamp || isInserted)) {
        ++counts_.failed;
        return;
    }
    ++counts_.sent;
    if (!wantsStamp) return;
    const auto begin = packet.bytes.begin() + static_cast<std::ptrdiff_t>(messageAt(packet));
    s.waiting.push_back({{begin, packet.bytes.end()}, clock_.now(), std::move(left)});
}

// ---- what has come ------------------------------------------------------------------------------

bool HostPort::receive(Socket& s, Received& r, int flags)
{
    alignas(cmsghdr) std::array<u8, 512> control;
    for (;;) {
        iovec part{r.bytes.data(), r.bytes.size()};
        msghdr m{};
        m.msg_name = &r.from;
        m.msg_namelen = sizeof r.from;
        m.msg_iov = &part;
        m.msg_iovlen = 1;
        m.msg_control = control.data();
        m.msg_controllen = control.size();
        const ssize_t count = recvmsg(s.fd, &m, flags | MSG_DONTWAIT);
        if (count >= 0) {
            r.count = static_cast<std::size_t>(count);
            r.isWhole = (m.msg_flags & MSG_TRUNC) == 0;
            r.stamp_ns = stampOf(m, card_ != nullptr);
            return true;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK) return false;
        if (errno == EINTR) continue;
        ++counts_.errors;            // the kernel tells each but once, as ENETDOWN
        if (errno == EBADF) {        // not to be closed again: the number may be another's soon
            s.fd = -1;
            wasClosed_ = true;
        }
        return false;
    }
}

void HostPort::takePacket(const Socket& s, const Received& r)
{
    NetPacket packet;
    packet.isFrame = s.port == 0;
    if (packet.isFrame) {
        sockaddr_ll link;
        std::memcpy(&link, &r.from, sizeof link);
        if (link.sll_pkttype == PACKET_OUTGOING || link.sll_pkttype == PACKET_OTHERHOST) return;
    }
    if (!r.isWhole || r.count < (packet.isFrame ? FRAME_HEADER : 1)) {
        ++counts_.unusable;
        return;
    }
    packet.bytes.assign(r.bytes.begin(), r.bytes.begin() + static_cast<std::ptrdiff_t>(r.count));
    if (!packet.isFrame) {
        fromSockaddr(r.from, packet.from, packet.fromPort);
        packet.to = host_.netAddress();
        packet.toPort = s.port;
    }
    report(packet);
    const std::optional<ose::Time> came = timeOf(r);
    if (!came && isEvent(packet)) {
        ++counts_.unstamped;
        return;
    }
    ++counts_.received;
    const ose::Time at = came.value_or(world_.now());
    world_.at(std::max(at, world_.now()), [&world = world_, &host = host_, at, packet]() mutable {
        packet.age = world.now() - at;
        host.onPacket(packet);
    });
}

void HostPort::report(const NetPacket& packet) const
{
    if (heard_ == nullptr) return;
    const u8* const bytes = packet.bytes.data();
    if (!packet.isFrame)
        return heard_->take(PtpWay::Unicast, textOf(packet.to), textOf(packet.from), bytes,
                            packet.bytes.size());
    const std::size_t at = ptp::messageAt(packet.bytes);
    constexpr std::size_t SENDER_AT = 6;
    if (at != 0 && reportsGroups_)
        heard_->take(PtpWay::Frame, textOf(bytes), textOf(bytes + SENDER_AT), bytes + at,
                     packet.bytes.size() - at);
}

void HostPort::takePackets(Socket& s)
{
    Received r;
    for (std::size_t i = 0; i < AT_ONCE && receive(s, r, 0); ++i) takePacket(s, r);
}

/// The kernel hands back the whole packet with its stamp, whatever it has put in front of it.
void HostPort::takeStamps(Socket& s)
{
    Received r;
    for (std::size_t i = 0; i < AT_ONCE && receive(s, r, MSG_ERRQUEUE); ++i) {
        const auto end = r.bytes.begin() + static_cast<std::ptrdiff_t>(r.count);
        const auto found = std::find_if(s.waiting.begin(), s.waiting.end(), [&](const Unstamped& u) {
            return std::search(r.bytes.begin(), end, u.message.begin(), u.message.end()) != end;
        });
        const auto at = timeOf(r);
        if (found == s.waiting.end() || !at) continue;
        world_.at(std::max(*at, world_.now()), [left = std::move(found->left), at = *at] { left(at); });
        s.waiting.erase(found);
    }
    while (!s.waiting.empty() && clock_.now() - s.waiting.front().sent > STAMP_WITHIN) {
        s.waiting.pop_front();
        ++counts_.lostStamps;
    }
}

void HostPort::take()
{
    for (Socket* const s : {&frames_, &event_, &general_}) {
        if (s->fd < 0) continue;
        takeStamps(*s);
        takePackets(*s);
    }
}

void HostPort::waitFor(std::vector<pollfd>& fds) const
{
    for (const Socket* const s : {&frames_, &event_, &general_})
        if (s->fd >= 0) fds.push_back({s->fd, POLLIN, 0});
}

}  // namespace sim
