// A unit on an interface of the machine: the host's clocks against the world's time, what the sockets bring
// and refuse. How a unit follows another host's master, and leads its slave, is seen in scripts/lab.
#include "sim/net/host_net.h"
#include "sim/net/heard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using sim::HostClock;
using sim::HostError;

constexpr i64 S = 1'000'000'000, MS = 1'000'000, US = 1'000;

// ---- clocks -------------------------------------------------------------------------------------

/// The host's clocks, moved by hand; each reading of the time of day takes a while.
struct HandClocks {
    i64 monotonic = 500 * S, offset = 1'700'000'000 * S + 250 * MS;
    i64 readingTakes = 100;
    u32 slowReadings = 0;            // the next so many take 80 us
    HostClock::Source source()
    {
        return {[this] { return monotonic; },
                [this] {
                    const i64 takes = slowReadings > 0 ? 80 * US : readingTakes;
                    if (slowReadings > 0) --slowReadings;
                    const i64 now = monotonic + takes + offset;   // at the far end of the reading
                    monotonic += takes;
                    return now;
                }};
    }
};

TEST(PacedClock, TheWorldBeginsAtAWholeSecondAndAnInterruptedReadingIsNoStep)
{
    HandClocks host;
    HostClock clock(host.source());
    EXPECT_EQ(clock.taiAtBeginning(), 1'700'000'501 + 37);
    const i64 before_ns = 750 * MS - (host.monotonic - 500 * S);
    EXPECT_NEAR(static_cast<double>(clock.now()) / 1e3, static_cast<double>(-before_ns), 200);
    for (const u32 slow : {1u, 9u, 10u}) {   // ten are tried at a time
        host.slowReadings = slow;
        clock.follow();
        EXPECT_EQ(clock.steps(), 0u) << slow;
    }
}

TEST(PacedClock, StampsBecomeTimesOfTheWorldAcrossSteps)
{
    HandClocks host;
    HostClock clock(host.source());
    host.monotonic = 510 * S;
    struct Case { const char* what; i64 step_ns; u32 steps; };
    constexpr Case CASES[] = {{"none", 0, 0}, {"2 s ahead", 2 * S, 1}, {"7 ms back", -7 * MS, 2},
                              {"less than a reading can tell", 2 * US, 2}};
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        host.offset += c.step_ns;
        clock.follow();
        EXPECT_EQ(clock.steps(), c.steps);
        const i64 before = host.monotonic + host.offset - c.step_ns - 300 * US;
        EXPECT_EQ(clock.ofStamp(before).has_value(), std::abs(c.step_ns) < 5 * US);
        host.monotonic += MS;
        const i64 stamp = host.monotonic + host.offset - 300 * US;
        const auto at = clock.ofStamp(stamp);
        ASSERT_TRUE(at);
        EXPECT_NEAR(static_cast<double>(*at - clock.now()) / 1e3, -300e3, 2300);
    }
    host.monotonic += 20 * S;
    const i64 now = host.monotonic + host.offset;
    EXPECT_TRUE(clock.ofStamp(now - 10 * S + 10 * US));
    EXPECT_FALSE(clock.ofStamp(now - 10 * S - 10 * US));
    EXPECT_FALSE(clock.ofStamp(now + 20 * US));
}

// ---- interfaces ---------------------------------------------------------------------------------

/// The test in a network namespace of its own; back in the former when it ends.
class Namespace {
public:
    Namespace()
    {
        former_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        if (std::system("ip -V >/dev/null 2>&1") != 0) why_ = "there is no ip (iproute2)";
        else if (unshare(CLONE_NEWNET) != 0) why_ = "no network namespace can be made here, not root?";
        else entered_ = true;
    }
    ~Namespace()
    {
        if (entered_) { EXPECT_EQ(setns(former_, CLONE_NEWNET), 0); }
        close(former_);
    }
    /// Why the test can't be done; empty when it can.
    const std::string& why() const { return why_; }
    void ip(const std::string& words)
    {
        if (why_.empty() && std::system(("ip " + words + " 2>&1").c_str()) != 0)
            why_ = "ip refuses '" + words + "'";
    }

private:
    int former_ = -1;
    bool entered_ = false;
    std::string why_;
};

struct Host : sim::NetHost {
    std::string name = "host";
    sim::NetAddress address{4, {192, 168, 0, 1}};
    std::vector<sim::NetPacket> packets;
    void onPacket(const sim::NetPacket& packet) override { packets.push_back(packet); }
    sim::NetAddress netAddress() const override { return address; }
    const std::string& netName() const override { return name; }
};

TEST(PacedPort, AnInterfaceThatCantBeUsedIsTold)
{
    ose::World world;
    sim::Network network(world);
    HostClock clock;
    sim::HostNet net(world, network, clock);
    Host host;
    const auto refusal = [&](const char* interface) -> std::string {
        try {
            net.add(host, interface);
        } catch (const HostError& e) {
            return e.what();
        }
        return "taken";
    };
    EXPECT_EQ(refusal("nowhere0"), "nowhere0: there is no such network interface");
    const uid_t own = geteuid();
    constexpr uid_t NOBODY = 65534;
    ASSERT_EQ(seteuid(own == 0 ? NOBODY : own), 0);
    EXPECT_EQ(refusal("lo"), "lo: a raw packet socket takes root, or CAP_NET_RAW: Operation not permitted");
    ASSERT_EQ(seteuid(own), 0);
    EXPECT_TRUE(net.ports().empty());
}

/// A host on one end of a cable, the test with a socket at the other.
struct Cable : testing::Test {
    Namespace ns;
    ose::World world;
    sim::Network network{world};
    Host host;
    std::optional<HostClock> clock;
    std::unique_ptr<sim::HostNet> net;
    sim::HostPort* port = nullptr;
    int far = -1;

    void SetUp() override
    {
        ns.ip("link add near0 type veth peer name far0");
        ns.ip("link set near0 mtu 4000 up");
        ns.ip("link set far0 mtu 4000 up");
        ns.ip("address add 192.168.0.1/24 dev near0");
        if (!ns.why().empty()) GTEST_SKIP() << ns.why();
        clock.emplace();
        net = std::make_unique<sim::HostNet>(world, network, *clock);
        port = &net->add(host, "near0");
        openFar();
        run(50);                     // until the kernel's stamps are on
    }
    void openFar()
    {
        far = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        sockaddr_ll to{};
        to.sll_family = AF_PACKET;
        to.sll_ifindex = static_cast<int>(if_nametoindex("far0"));
        ASSERT_EQ(bind(far, reinterpret_cast<sockaddr*>(&to), sizeof to), 0);
    }
    void sendNear()
    {
        sim::NetPacket packet;
        packet.bytes = frame(44);
        network.send(host, packet);
    }
    void TearDown() override { close(far); }
    void run(i64 ms) { net->runUntil(std::max<ose::Time>(clock->now(), 0) + ms * ose::MS); }
    void sendFar(const std::vector<u8>& frame)
    {
        ASSERT_EQ(::send(far, frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
    }
    static std::vector<u8> frame(std::size_t payload, u8 type = 0, sim::MacAddress to = {1, 0x1B, 0x19})
    {
        std::vector<u8> message(payload, 0);
        if (payload > 0) message[0] = type;
        return sim::ptp::frame(to, {2, 0, 0, 0, 0, 9}, 0, message);
    }
};

TEST_F(Cable, TakesWhatIsAFrameForTheHost)
{
    struct Case { const char* what; std::vector<u8> frame; u32 received, unusable; };
    std::vector<u8> other = frame(44);
    other[13] = 0xF8;
    const Case cases[] = {
        {"a message", frame(44), 1, 0},
        {"the other group", frame(44, 0, {0x01, 0x80, 0xC2, 0, 0, 0x0E}), 1, 0},
        {"no message behind the header", frame(0), 1, 0},      // for the unit to refuse
        {"the longest", frame(1586), 1, 0},
        {"longer than any", frame(1587), 0, 1},
        {"another protocol", other, 0, 0},
        {"for another host", frame(44, 0, {2, 0, 0, 0, 0, 8}), 0, 0},
        {"a good one after all", frame(44), 1, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto before = port->counts();
        host.packets.clear();
        sendFar(c.frame);
        const ose::Time sent = clock->now();
        run(20);
        EXPECT_EQ(port->counts().received - before.received, c.received);
        EXPECT_EQ(port->counts().unusable - before.unusable, c.unusable);
        ASSERT_EQ(host.packets.size(), c.received);
        if (c.received == 0) continue;
        EXPECT_EQ(host.packets[0].bytes, c.frame);
        EXPECT_GE(host.packets[0].age, 0);
        EXPECT_LT(host.packets[0].age, world.now() - sent + ose::MS);
    }
    EXPECT_EQ(port->counts().unstamped, 0u);
}

TEST_F(Cable, TellsWhenAPacketLeftOrNothing)
{
    sim::NetPacket packet;
    packet.bytes = frame(44);
    std::vector<ose::Time> left;
    const auto send = [&] { network.send(host, packet, [&](ose::Time at) { left.push_back(at); }); };
    const ose::Time before = clock->now();
    send();
    const ose::Time after = clock->now();
    network.send(host, packet);      // nobody asks for the time of this one
    run(20);
    ASSERT_EQ(left.size(), 1u);
    constexpr ose::Time READING = 10 * ose::US;
    EXPECT_GT(left[0], before - READING);
    EXPECT_LT(left[0], after + READING);
    EXPECT_EQ(port->counts().sent, 2u);

    ns.ip("link set far0 down");     // no carrier: the frame goes nowhere
    send();
    run(1500);
    EXPECT_EQ(left.size(), 1u);
    EXPECT_EQ(port->counts().lostStamps, 1u);
    ns.ip("link set near0 down");
    send();
    run(20);
    EXPECT_EQ(port->counts().failed, 1u);
    EXPECT_GE(port->counts().errors, 1u);
    ns.ip("link set far0 up");
    ns.ip("link set near0 up");
    ASSERT_EQ(ns.why(), "");
    run(100);
    send();
    run(20);
    EXPECT_EQ(left.size(), 2u);
    host.packets.clear();
    sendFar(frame(44));
    run(20);
    EXPECT_EQ(host.packets.size(), 1u);
}

TEST_F(Cable, AnInterfaceThatIsRemovedComesBackAsAnother)
{
    ns.ip("link delete near0");
    run(1100);
    sendNear();
    EXPECT_EQ(port->counts().failed, 1u);
    close(far);
    ns.ip("link add near0 type veth peer name far0");
    ns.ip("link set near0 up");
    ns.ip("link set far0 up");
    ASSERT_EQ(ns.why(), "");
    openFar();
    run(1100);
    EXPECT_FALSE(port->carriesDatagrams());
    sendFar(frame(44));
    run(50);
    EXPECT_EQ(host.packets.size(), 1u);
    // Its address comes later than it did itself.
    ns.ip("address add 192.168.0.1/24 dev near0");
    run(1100);
    EXPECT_TRUE(port->carriesDatagrams());
}

TEST_F(Cable, SocketsThatSomebodyElseClosesAreOpenedAgain)
{
    std::vector<std::string> told;
    net->onHeard(nullptr, [&](const std::string&, const std::string& text) { told.push_back(text); });
    const auto isOthers = [this](int fd) {
        struct stat s;
        return fd == far || fstat(fd, &s) != 0 || !S_ISSOCK(s.st_mode);
    };
    for (int fd = 3; fd < 64; ++fd)
        if (!isOthers(fd)) close(fd);
    run(1100);
    EXPECT_EQ(told, std::vector<std::string>{"a socket was closed, and is opened again"});
    EXPECT_TRUE(port->carriesDatagrams());
    sendFar(frame(44));
    sendNear();
    run(50);
    EXPECT_EQ(host.packets.size(), 1u);
    EXPECT_EQ(port->counts().sent, 1u);
}

TEST_F(Cable, APauseIsMadeUpFor)
{
    run(10);
    usleep(700'000);                 // nobody runs the world
    for (int i = 0; i < 200; ++i) sendFar(frame(44));
    usleep(300'000);
    run(1);
    EXPECT_LT(clock->now() - world.now(), 100 * ose::MS);
    run(100);
    EXPECT_EQ(host.packets.size(), 200u);
    EXPECT_EQ(port->counts().unstamped, 0u);
    EXPECT_GE(net->lateness().count, 1u);
}

TEST_F(Cable, DatagramsNeedTheHostsAddress)
{
    EXPECT_TRUE(network.carriesDatagrams(host));
    Host stranger;
    stranger.name = "stranger";
    stranger.address = {4, {192, 168, 0, 77}};
    const sim::HostPort& other = net->add(stranger, "near0");
    EXPECT_FALSE(other.carriesDatagrams());
    EXPECT_EQ(other.noDatagrams(), "UDP port 319 of 192.168.0.77: Cannot assign requested address");
    sim::NetPacket packet;
    packet.isFrame = false;
    packet.bytes = {1, 2, 3};
    packet.fromPort = packet.toPort = 319;
    network.send(stranger, packet);
    EXPECT_EQ(other.counts().failed, 1u);
}

/// The far end in a second namespace: a host with both addresses and its own port 319 at each.
struct FarHost {
    Namespace space;
    int v4 = -1, v6 = -1;
    explicit FarHost(int near)
    {
        const std::string self = std::to_string(getpid());
        EXPECT_EQ(std::system(("nsenter --net=/proc/" + self + "/fd/" + std::to_string(near) +
                               " ip link set far0 netns " + self).c_str()), 0);
        space.ip("link set far0 up");
        space.ip("address add 192.168.0.9/24 dev far0");
        space.ip("address add fd00::9/64 dev far0 nodad");
        v4 = socket(AF_INET, SOCK_DGRAM, 0);
        v6 = socket(AF_INET6, SOCK_DGRAM, 0);
        const int only = 1;
        setsockopt(v6, IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof only);
        sockaddr_in any4{AF_INET, htons(319), {}, {}};
        sockaddr_in6 any6{AF_INET6, htons(319), 0, in6addr_any, 0};
        EXPECT_EQ(bind(v4, reinterpret_cast<sockaddr*>(&any4), sizeof any4), 0);
        EXPECT_EQ(bind(v6, reinterpret_cast<sockaddr*>(&any6), sizeof any6), 0);
    }
    ~FarHost() { close(v4), close(v6); }
};

TEST_F(Cable, DatagramsGoBothWaysInEitherFamily)
{
    ns.ip("address add fd00::1/64 dev near0 nodad");
    const int near = open("/proc/self/ns/net", O_RDONLY);
    std::optional<FarHost> peer(near);
    ASSERT_EQ(setns(near, CLONE_NEWNET), 0);
    ASSERT_EQ(peer->space.why(), "");
    Host host6;
    host6.name = "host6";
    host6.address = {6, {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};
    net->add(host6, "near0");
    struct Case { Host& own; sim::NetAddress peer; int socket; };
    const Case cases[] = {{host, {4, {192, 168, 0, 9}}, peer->v4},
                          {host6, {6, {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9}}, peer->v6}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.own.name);
        sim::NetPacket packet;
        packet.isFrame = false;
        packet.to = c.peer;
        packet.fromPort = packet.toPort = 319;
        packet.bytes.assign(44, 0x55);
        int left = 0;
        network.send(c.own, packet, [&](ose::Time) { ++left; });
        run(100);
        EXPECT_EQ(left, 1);
        u8 got[100];
        sockaddr_storage from{};
        socklen_t size = sizeof from;
        auto* const address = reinterpret_cast<sockaddr*>(&from);
        ASSERT_EQ(recvfrom(c.socket, got, sizeof got, MSG_DONTWAIT, address, &size), 44);
        ASSERT_EQ(sendto(c.socket, got, 44, 0, address, size), 44);
        run(50);
        ASSERT_EQ(c.own.packets.size(), 1u);
        EXPECT_EQ(c.own.packets[0].bytes, packet.bytes);
        EXPECT_EQ(c.own.packets[0].from, c.peer);
        EXPECT_EQ(c.own.packets[0].fromPort, 319);
    }
    close(near);
}

TEST_F(Cable, WithoutAStampAnEventMessageIsLeftOut)
{
    HostClock::Source wrong = HostClock::kernel();   // no stamp can be of its time
    wrong.realtime_ns = [real = wrong.realtime_ns] { return real() + 3600 * S; };
    HostClock clockOfOther(wrong);
    sim::HostNet otherNet(world, network, clockOfOther);
    Host other;
    const sim::HostPort& otherPort = otherNet.add(other, "near0");
    constexpr u8 ANNOUNCE = 0xB, PDELAY_RESP = 0x3;
    sendFar(frame(44));
    sendFar(frame(54, PDELAY_RESP));
    sendFar(frame(64, ANNOUNCE));
    sim::NetPacket packet;
    packet.bytes = frame(44);
    bool told = false;
    network.send(other, packet, [&](ose::Time) { told = true; });
    otherNet.runUntil(std::max<ose::Time>(clockOfOther.now(), 0) + 1500 * ose::MS);
    EXPECT_EQ(otherPort.counts().unstamped, 2u);
    ASSERT_EQ(other.packets.size(), 1u);
    EXPECT_EQ(other.packets[0].bytes[14], ANNOUNCE);
    EXPECT_FALSE(told);
    EXPECT_EQ(otherPort.counts().lostStamps, 1u);
}

}  // namespace
