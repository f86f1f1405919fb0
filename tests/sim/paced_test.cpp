// A unit on an interface of the machine: the host's clocks against the world's time, what the sockets bring
// and refuse, and a unit that follows the master of another `tu`, each in a network namespace of its own.
#include "sim/clock/random.h"
#include "sim/net/host_net.h"
#include "tests/pktsync/packet_unit.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace bench;
using sim::HostClock;
using sim::HostError;
using testing::HasSubstr;

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
        const i64 stamp = host.monotonic + host.offset - 300 * US;
        const auto at = clock.ofStamp(stamp);
        ASSERT_TRUE(at);
        EXPECT_NEAR(static_cast<double>(*at - clock.now()) / 1e3, -300e3, 2300);
    }
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
        if (entered_) {
            EXPECT_EQ(setns(former_, CLONE_NEWNET), 0);
        }
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

TEST_F(Cable, HostileFramesReachNobodyButTheHost)
{
    std::vector<std::string> told;
    sim::HeardMasters heard(world, [] { return std::optional(std::vector<sim::Listening>{}); },
                            [&](const std::string& text) { told.push_back(text); });
    port->reportTo(heard, true);
    sim::Random random(7, "hostile");
    constexpr u32 FRAMES = 3000;
    const auto before = port->counts();
    for (u32 i = 0; i < FRAMES; ++i) {
        std::vector<u8> f = frame(1 + random.bits() % 1600, static_cast<u8>(random.bits()));
        for (int turns = 0; turns < 40; ++turns)
            f[14 + random.bits() % (f.size() - 14)] = static_cast<u8>(random.bits());
        sendFar(f);
        if (i % 100 == 0) run(2);
    }
    run(50);
    const auto& after = port->counts();
    EXPECT_EQ(after.received - before.received + after.unusable - before.unusable, FRAMES);
    EXPECT_EQ(after.unstamped, before.unstamped);
    EXPECT_LE(heard.masters().size(), 64u);
    host.packets.clear();
    sendFar(frame(44));
    run(20);
    EXPECT_EQ(host.packets.size(), 1u);
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

// ---- a unit and its masters ---------------------------------------------------------------------

constexpr const char* MASTER = R"(
name = "master"
duration = "5m"
[[unit]]
name = "idle"
start = "1h"
[[master]]
name = "gm"
unicast = true
domain = 4
class = 80
address = "fd00:0:0:0:0:0:0:9"
)";

/// `tu` with a master over IPv6 in another namespace, at the far end of near0.
class FarMaster {
public:
    explicit FarMaster(Namespace& ns)
    {
        file_ = std::filesystem::temp_directory_path() / ("master-" + std::to_string(getpid()) + ".toml");
        std::ofstream(file_) << MASTER;
        int ready[2], go[2];
        if (pipe(ready) != 0 || pipe(go) != 0) std::abort();
        child_ = fork();
        if (child_ == 0) begin(ready[1], go[0]);
        close(ready[1]);
        close(go[0]);
        char there = 0;
        if (read(ready[0], &there, 1) != 1) ADD_FAILURE() << "no second namespace";
        ns.ip("link add near0 type veth peer name far0 netns " + std::to_string(child_));
        ns.ip("link set near0 up");
        ns.ip("address add fd00::1/64 dev near0 nodad");
        EXPECT_EQ(write(go[1], "\n", 1), 1);
        close(ready[0]);
        close(go[1]);
    }
    ~FarMaster()
    {
        kill(child_, SIGTERM);
        waitpid(child_, nullptr, 0);
        std::filesystem::remove(file_);
    }

private:
    [[noreturn]] void begin(int ready, int go) const
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (unshare(CLONE_NEWNET) != 0 || write(ready, "r", 1) != 1 || dup2(go, STDIN_FILENO) < 0) _exit(1);
        const std::string line =
            "read go && ip link set far0 up && ip address add fd00::9/64 dev far0 nodad && exec '" TU_PROGRAM
            "' run '" + file_.string() + "' --quiet --ptp-if gm=far0";
        execl("/bin/sh", "sh", "-c", line.c_str(), static_cast<char*>(nullptr));
        _exit(1);
    }
    std::filesystem::path file_;
    pid_t child_ = -1;
};

constexpr sim::NetAddress OWN{6, {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}};

/// A unit whose exchanges go to a process beside it, on a host that has time for the world a fifth of the
/// time: what tells when a packet came or left can be the stamps alone.
struct PacedUnit : PacketUnit {
    HostClock hostClock;
    sim::HostNet hostNet{world, net, hostClock};
    std::vector<TuPktsyncPtpPacketInd> exchanges;

    static sim::NodeConfig config()
    {
        sim::NodeConfig c;
        c.boardType = 2;
        c.packetPort.address = OWN;
        return c;
    }
    PacedUnit() : PacketUnit(config())
    {
        hostNet.add(node.packetPort(), "near0");
        node.powerOn();
        stall();
    }
    void stall()
    {
        world.after(10 * ose::MS, [this] {
            if (hostClock.now() - world.now() < 50 * ose::MS) usleep(8000);   // it must be able to catch up
            stall();
        });
    }
    template <typename Done>
    bool until(double seconds, Done done)
    {
        const ose::Time end = world.now() + static_cast<ose::Time>(seconds * 1e12);
        while (world.now() < end && !done()) hostNet.runUntil(std::min(end, world.now() + 100 * ose::MS));
        return done();
    }
    void consume(const sim::MpPacketRef& ref)
    {
        const PROCESS consumer = node.system().spawn("consumer", 25, [this] {
            serve([this](Signal* sig) {
                if (sig->sigNo == TUPKTSYNC_PTP_PACKET_IND)
                    exchanges.push_back(*as<TuPktsyncPtpPacketInd>(sig));
                return false;
            });
        });
        const TuPktsyncRefSelectionInd ind{TUPKTSYNC_REF_SELECTION_IND, ref.froId, ref.froClassNo, 0,
                                           consumer};
        node.system().inject(asBytes(ind), pid(), manager());
    }
};

TEST(Paced, AUnitFollowsTheMasterOfAnotherHostOverIpVersionSix)
{
    Namespace space;
    if (!space.why().empty()) GTEST_SKIP() << space.why();
    FarMaster master(space);
    if (!space.why().empty()) GTEST_SKIP() << space.why();
    sim::MpPacketRef ref = unicastRef(1, {0xFD, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9});
    ref.family = 6;
    ref.own = OWN.octets;
    PacedUnit u;
    ASSERT_TRUE(u.until(5, [&] { return u.pid() != 0 && u.root() == ROOT_STARTED; }));
    u.node.mainProcessor().createPacketRef(ref);
    ASSERT_TRUE(u.until(3, [&] { return u.created(ref.froId, ref.froClassNo); }));
    u.consume(ref);
    const bool follows = u.until(25, [&] { return u.exchanges.size() >= 40; });
    const sim::HostPort::Counts& counts = u.hostNet.ports()[0]->counts();
    ASSERT_TRUE(follows) << u.exchanges.size() << " exchanges, " << counts.received << " packets, "
                         << counts.sent << " sent, " << counts.lostStamps << " without their stamp";
    EXPECT_EQ(u.clock(0).portState, u32{SLAVE});
    EXPECT_EQ(u.clock(0).delay.status, u32{DRM_OK});
    EXPECT_EQ(counts.lostStamps + counts.unstamped + counts.failed + counts.errors + counts.unusable, 0u);

    const sim::PacketTime now = u.node.board().packetTime(0, 1);
    const auto ns = [](u64 s, u32 f) { return static_cast<i64>(s) * S + f; };
    const i64 tai = u.hostClock.taiAtBeginning() * S + u.world.now() / ose::NS;
    const i64 ahead = ns(now.seconds, 0) + static_cast<i64>((u64{now.fraction} * 1'000'000'000) >> 32) - tai;
    std::vector<i64> delays, errors;
    for (const TuPktsyncPtpPacketInd& e : u.exchanges) {
        const i64 down = ns(e.T2s, e.T2f) - ns(e.T1s, e.T1f), up = ns(e.T4s, e.T4f) - ns(e.T3s, e.T3f);
        delays.push_back((down + up) / 2);
        errors.push_back((down - up) / 2 - ahead);
    }
    std::ranges::sort(delays);
    std::ranges::sort(errors);
    EXPECT_GT(delays[delays.size() / 2], 0);
    EXPECT_LT(delays[delays.size() / 2], 200 * US);
    EXPECT_LT(std::abs(errors[errors.size() / 2]), 200 * US);
}

}  // namespace
