// What a run reads from the machine beside packets: masters that are only heard, a network card's clock, and
// a receiver on a serial line, here a pty.
#include "sim/net/heard.h"
#include "sim/net/host_stamps.h"
#include "sim/net/ptp_master.h"
#include "sim/node/node.h"
#include "sim/refs/host_gps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/net_tstamp.h>
#include <linux/pps.h>
#include <linux/ptp_clock.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <termios.h>
#include <unistd.h>

namespace {

using testing::HasSubstr;

// ---- masters ------------------------------------------------------------------------------------

struct Ear {
    ose::World world;
    std::vector<std::string> told;
    std::vector<sim::Listening> refs{
        {sim::PtpWay::Frame, 24, "01-80-C2-00-00-0E", "ITU_T_G_8275_1", 1.1, 0.063, false, true}};
    sim::HeardMasters heard{world, [this] { return std::optional(refs); },
                            [this](const std::string& text) { told.push_back(text); }};

    static sim::ptp::Message announce(u8 domain, i8 log = -3, u8 flags = 0x3C)
    {
        sim::ptp::Message m;
        m.type = sim::ptp::ANNOUNCE;
        m.domain = domain;
        m.flags1 = flags;
        m.logInterval = log;
        m.clockClass = 6;
        m.accuracy = 0x21;
        m.source.clock = {0x3C, 0xEC, 0xEF, 0xFF, 0xFE, 0, 0, 1};
        return m;
    }
    void hear(const sim::ptp::Message& m, sim::PtpWay way, const std::string& to, int times = 4)
    {
        const std::vector<u8> octets = sim::ptp::write(m);
        for (int i = 0; i < times; ++i)
            heard.take(way, to, way == sim::PtpWay::Frame ? "02-00" : "192.168.0.9", octets.data(),
                       octets.size());
    }
};

TEST(HeardMasters, AreToldOnceWithWhatKeepsTheUnitFromThem)
{
    constexpr const char* LOCAL = "01-80-C2-00-00-0E";
    constexpr const char* NOT_TAKEN = "; this unit listens to domain 24, Ethernet group 01-80-C2-00-00-0E";
    struct Case { sim::ptp::Message m; sim::PtpWay way; const char* to; const char* told; bool isTaken; };
    const Case cases[] = {
        {Ear::announce(24), sim::PtpWay::Frame, LOCAL, "Announce every 125 ms", true},
        {Ear::announce(0), sim::PtpWay::Frame, LOCAL, "domain 0, Ethernet group 01-80-C2-00-00-0E", false},
        {Ear::announce(24), sim::PtpWay::Frame, "01-1B-19-00-00-00", "Ethernet group 01-1B-19", false},
        {Ear::announce(24), sim::PtpWay::IpGroup, "224.0.1.129", "UDP group 224.0.1.129", false},
        {Ear::announce(24), sim::PtpWay::Unicast, "192.168.0.1", "UDP to 192.168.0.1", false},
        {Ear::announce(24, 1), sim::PtpWay::Frame, LOCAL, "gives a master up that is silent for 1.1 s", true},
        {Ear::announce(24, -3, 0), sim::PtpWay::Frame, LOCAL, "not TAI (no ptpTimescale)", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.told);
        Ear ear;
        ear.hear(c.m, c.way, c.to, 2);
        EXPECT_TRUE(ear.told.empty());                  // two may be a mistake
        ear.hear(c.m, c.way, c.to, 100);
        ASSERT_EQ(ear.told.size(), 1u);
        EXPECT_THAT(ear.told[0], HasSubstr("Announce from 3cecef.fffe.000001-1"));
        EXPECT_THAT(ear.told[0], HasSubstr(c.told));
        EXPECT_THAT(ear.told[0], HasSubstr(c.isTaken ? "" : NOT_TAKEN));
        EXPECT_EQ(ear.told[0].find("this unit listens") == std::string::npos, c.isTaken);
        EXPECT_EQ(ear.heard.isTaken(ear.heard.masters()[0]), c.isTaken);
    }
}

TEST(HeardMasters, ChangesAreToldAndFloodsAreNot)
{
    Ear ear;
    const std::string group = "01-80-C2-00-00-0E";
    ear.hear(Ear::announce(24), sim::PtpWay::Frame, group);
    sim::ptp::Message worse = Ear::announce(24);
    worse.clockClass = 7;
    ear.hear(worse, sim::PtpWay::Frame, group);
    EXPECT_EQ(ear.told.size(), 1u);                     // not so soon
    ear.world.runFor(11 * ose::SEC);
    ear.refs[0].classWithin = 6;
    ear.refs[0].classesToo = {80, 84};
    ear.hear(worse, sim::PtpWay::Frame, group);
    ASSERT_EQ(ear.told.size(), 2u);
    EXPECT_THAT(ear.told[1], HasSubstr("class 7"));
    EXPECT_THAT(ear.told[1], HasSubstr("; ITU_T_G_8275_1 wants class 6 or less or 80, 84"));
    for (u16 port = 2; port < 1000; ++port) {
        worse.source.number = port;
        ear.hear(worse, sim::PtpWay::Frame, group, 1);
    }
    EXPECT_EQ(ear.heard.masters().size(), 64u);
    EXPECT_EQ(ear.heard.beyond(), 998u - 63u);
    std::vector<u8> octets = sim::ptp::write(worse);    // cut anywhere, it is left aside
    for (std::size_t count = 0; count < octets.size(); ++count)
        ear.heard.take(sim::PtpWay::Frame, group, "02-00", octets.data(), count);
    EXPECT_EQ(ear.told.size(), 2u);
}

// ---- a card's clock -----------------------------------------------------------------------------

TEST(CardClock, IsFollowedThroughItsRateAndItsSteps)
{
    constexpr i64 S = 1'000'000'000;
    i64 realtime = 1'700'000'000 * S, card = 37 * S;
    bool answers = true;
    const auto pass = [&](i64 ns, double ppm) {
        realtime += ns;
        card += ns + std::llround(static_cast<double>(ns) * ppm * 1e-6);
    };
    sim::CardClock clock([&]() -> std::optional<sim::CardClock::Reading> {
        if (!answers) return std::nullopt;
        return sim::CardClock::Reading{card, realtime};
    });
    struct Case { const char* what; double ppm; i64 step; bool answers; i64 within_ns; u32 steps; };
    constexpr Case CASES[] = {{"even", 0, 0, true, 1, 0},
                              {"20 ppm fast", 20, 0, true, 1, 0},
                              {"slow", -50, 0, true, 1, 0},
                              {"silent for a second", -50, 0, false, 1, 0},
                              {"stepped", -50, 5 * S, true, 1, 1}};
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        answers = c.answers;
        card += c.step;
        for (int i = 0; i < 2; ++i) {
            pass(S, c.ppm);
            clock.follow();
        }
        pass(S / 2, c.ppm);                             // the stamp comes between two readings
        EXPECT_NEAR(static_cast<double>(*clock.realtimeOf(card) - realtime), 0.0,
                    static_cast<double>(c.within_ns));
        EXPECT_EQ(clock.steps(), c.steps);
    }
    realtime += 5'000'000;                              // too little to be seen by a reading
    clock.onHostStep();
    EXPECT_EQ(clock.realtimeOf(card), realtime);
}

/// A card's driver and clock, asked as the kernel's would be.
struct Card {
    u32 stamping = SOF_TIMESTAMPING_TX_HARDWARE | SOF_TIMESTAMPING_RX_HARDWARE
                   | SOF_TIMESTAMPING_RAW_HARDWARE;
    u32 txTypes = 1 << HWTSTAMP_TX_OFF | 1 << HWTSTAMP_TX_ON;
    u32 filters = 1 << HWTSTAMP_FILTER_PTP_V2_EVENT;
    int clock = 3;                   // its number
    i64 off_s = 37;                  // of its clock from the host's
    int refuses = 0;                 // errno
    const char* device = "/dev/null";
    hwtstamp_config set{};

    sim::DeviceCalls calls()
    {
        return {[this](const std::string& name) {
                    EXPECT_EQ(name, "/dev/ptp3");
                    return open(device, O_RDWR | O_CLOEXEC);
                },
                [this](int, unsigned long request, void* data) { return answer(request, data); }};
    }
    int answer(unsigned long request, void* data)
    {
        if (request == PTP_SYS_OFFSET_EXTENDED) return read(*static_cast<ptp_sys_offset_extended*>(data));
        void* const asked = static_cast<ifreq*>(data)->ifr_data;
        if (request == SIOCSHWTSTAMP) {
            std::memcpy(&set, asked, sizeof set);
            errno = refuses;
            return refuses != 0 ? -1 : 0;
        }
        auto* const info = static_cast<ethtool_ts_info*>(asked);
        if (info->cmd == ETHTOOL_GDRVINFO) {
            std::strcpy(static_cast<ethtool_drvinfo*>(asked)->driver, "card");
        } else {
            info->so_timestamping = stamping;
            info->tx_types = txTypes;
            info->rx_filters = filters;
            info->phc_index = clock;
        }
        return 0;
    }
    /// The third of the readings is the narrowest; the others are far off.
    int read(ptp_sys_offset_extended& o) const
    {
        for (unsigned i = 0; i < o.n_samples; ++i) {
            const u32 width = i == 2 ? 200 : 90'000;
            o.ts[i][0] = {1'700'000'000, 1000, 0};
            o.ts[i][1] = {1'700'000'000 + off_s, i == 2 ? 1100u : 1001u, 0};
            o.ts[i][2] = {1'700'000'000, 1000 + width, 0};
        }
        return 0;
    }
};

TEST(CardClock, IsTakenWhereItStampsPtpAndPutsTheTimeInWhereItCan)
{
    constexpr u32 INSERTS = 1 << HWTSTAMP_TX_ONESTEP_SYNC | 1 << HWTSTAMP_TX_ON;
    constexpr const char* BEFORE = "it tells the time before it is sent";
    struct Case {
        Card card;
        bool oneStep, isTaken, inserts;
        const char *text, *oneStepText;
    };
    const auto with = [](auto change) {
        Card card;
        change(card);
        return card;
    };
    Case cases[] = {
        {Card{}, false, true, false, "eth9 stamps itself, its clock is /dev/ptp3", BEFORE},
        {Card{}, true, true, false, "eth9 stamps itself",
         "(driver card): it tells the time before it is sent"},
        {with([](Card& c) { c.txTypes = INSERTS; }), true, true, true, "eth9 stamps itself",
         "eth9's card puts the time into each Sync as it leaves"},
        {with([](Card& c) { c.txTypes = INSERTS; }), false, true, false, "eth9 stamps itself", BEFORE},
        {with([](Card& c) { c.txTypes = INSERTS, c.off_s = -90'000; }), true, true, false,
         "eth9 stamps itself", "/dev/ptp3 is more than a day off the host's time"},
        {with([](Card& c) { c.stamping &= ~u32{SOF_TIMESTAMPING_TX_HARDWARE}; }), true, false, false,
         "eth9 has no stamps of its own (driver card)", BEFORE},
        {with([](Card& c) { c.clock = -1; }), true, false, false, "(driver card)", BEFORE},
        {with([](Card& c) { c.filters = 1 << HWTSTAMP_FILTER_PTP_V1_L4_EVENT; }), true, false, false,
         "driver card stamps no PTP", BEFORE},
        {with([](Card& c) { c.filters |= 1 << HWTSTAMP_FILTER_ALL; }), true, true, false,
         "eth9 stamps itself", BEFORE},
        {with([](Card& c) { c.refuses = EPERM; }), true, false, false, "Operation not permitted", BEFORE},
        {with([](Card& c) { c.device = "/none"; }), true, false, false, "/dev/ptp3: No such file", BEFORE},
    };
    for (Case& c : cases) {
        SCOPED_TRACE(c.text + std::string(", ") + c.oneStepText);
        const sim::InterfaceStamps stamps = sim::openStamps("eth9", c.oneStep, c.card.calls());
        EXPECT_THAT(stamps.text, HasSubstr(c.text));
        EXPECT_THAT(stamps.oneStep, HasSubstr(c.oneStepText));
        ASSERT_EQ(stamps.card != nullptr, c.isTaken);
        if (!c.isTaken) continue;
        EXPECT_EQ(stamps.card->inserts(), c.inserts);
        EXPECT_EQ(c.card.set.tx_type, c.inserts ? HWTSTAMP_TX_ONESTEP_SYNC : HWTSTAMP_TX_ON);
        EXPECT_NE(c.card.filters & 1u << c.card.set.rx_filter, 0u);
        EXPECT_EQ(stamps.card->difference_ns(), c.card.off_s * 1'000'000'000);
    }
    EXPECT_THAT(sim::openStamps("lo", true).text, HasSubstr("lo has no stamps of its own (driver "));
}

/// What a slave makes of a Sync whose origin the card writes by its own clock is the master's time.
TEST(CardClock, ASyncOfOneStepTellsTheMastersTimeThroughTheCardsClock)
{
    struct Cable : sim::Wire {
        sim::Leaving now;
        std::vector<u8> sent;
        void send(const sim::NetPacket& packet, sim::Left) override { sent = packet.bytes; }
        bool carriesDatagrams() const override { return false; }
        sim::Leaving leaving() const override { return now; }
    };
    constexpr i64 S = 1'000'000'000, TAI = 1'704'067'237;
    struct Case { const char* what; i64 ahead_ns; bool isTooBig; };
    constexpr Case CASES[] = {{"as the host's UTC", -37 * S, false}, {"ahead", 1234, false},
                              {"near the field's end", -140'000 * S, false}, {"since 1970", -TAI * S, true}};
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        ose::World world;
        sim::Network network(world);
        sim::PtpMasterConfig config;
        config.twoStep = false;
        config.announces = false;
        config.correction_ns = 250;
        config.stampResolution_ns = 1;
        sim::PtpMaster master(world, network, config);
        Cable cable;
        network.putOn(master, &cable);
        // It leaves half a second later than the world's time is.
        const ose::Time leaves = 500 * ose::MS;
        const i64 card_ns = TAI * S + leaves / ose::NS + c.ahead_ns;
        cable.now = {leaves, card_ns};
        world.runFor(ose::SEC / 16);
        const std::size_t at = sim::ptp::messageAt(cable.sent);
        ASSERT_NE(at, 0u);
        const auto m = sim::ptp::read(cable.sent.data() + at, cable.sent.size() - at);
        ASSERT_TRUE(m && m->type == sim::ptp::SYNC);
        EXPECT_EQ(m->stamp.seconds, 0u);
        EXPECT_EQ(m->flags0 & 2, 0);
        if (c.isTooBig) EXPECT_EQ(m->correction, INT64_MAX);
        else            EXPECT_EQ(card_ns + m->correction / 65536, TAI * S + leaves / ose::NS);
        network.putOn(master, nullptr);
    }
}

// ---- a receiver on a line -----------------------------------------------------------------------

/// A pty, the test at the receiver's end of it; the host's clock is moved by hand.
struct Line : testing::Test {
    i64 host_ns = 0;
    int receiver = -1;
    std::string tty;
    ose::World world;
    sim::Node node{world, sim::NodeConfig{}};
    sim::HostClock clock{
        sim::HostClock::Source{[this] { return host_ns; }, [this] { return host_ns + 250'000'000; }}};
    std::unique_ptr<sim::HostGps> gps;
    std::vector<std::string> words;

    void SetUp() override
    {
        openLine();
        gps = std::make_unique<sim::HostGps>(world, clock, node.serial(), tty, "");
        gps->onWord([this](const std::string& text) { words.push_back(text); });
    }
    void TearDown() override { close(receiver); }
    void openLine()
    {
        receiver = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
        ASSERT_GE(receiver, 0);
        ASSERT_EQ(grantpt(receiver), 0);
        ASSERT_EQ(unlockpt(receiver), 0);
        tty = ptsname(receiver);
    }
    void pass(i64 ms)
    {
        host_ns += ms * 1'000'000;
        gps->take();
        world.runUntil(std::max(world.now(), clock.now()));
    }
    void say(const std::string& text)
    {
        ASSERT_EQ(write(receiver, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
};

constexpr const char* SENTENCE = "$GPZDA,120000.00,01,05,2024,00,00*65\r\n";

TEST_F(Line, SentencesReachTheUnitAndBringThePulse)
{
    pass(1000);
    EXPECT_FALSE(gps->present());
    say(SENTENCE);
    pass(100);
    EXPECT_EQ(gps->counts().sentences, 1u);
    EXPECT_EQ(node.serial().lost(), std::string(SENTENCE).size());   // nobody has opened the port
    ASSERT_TRUE(gps->present());
    // The host's seconds: the world began at one of them.
    EXPECT_EQ(gps->nextEdge(0), ose::SEC);
    EXPECT_EQ(gps->nextEdge(ose::SEC - 1), ose::SEC);
    EXPECT_EQ(gps->nextEdge(ose::SEC), 2 * ose::SEC);
    pass(2600);
    EXPECT_FALSE(gps->present());
    EXPECT_EQ(gps->nextEdge(world.now()), -1);
}

TEST_F(Line, AFloodAnotherSpeedAndAHangUpAreTold)
{
    pass(1000);
    const std::string garbage(3000, '\x5A');
    for (int i = 0; i < 20; ++i) {                      // 60'000 bytes in two seconds
        say(garbage);
        pass(100);
    }
    EXPECT_EQ(gps->counts().bytes, 60'000u);
    EXPECT_GT(gps->counts().flooded, 50'000u);
    pass(10'000);
    ASSERT_EQ(words.size(), 1u);
    EXPECT_THAT(words[0], HasSubstr("and no sentence; does the receiver speak at 9600 bit/s?"));
    say(SENTENCE);
    pass(100);
    EXPECT_EQ(gps->counts().sentences, 1u);
    close(receiver);
    pass(100);
    ASSERT_EQ(words.size(), 2u);
    EXPECT_THAT(words[1], HasSubstr("hung up"));
    EXPECT_EQ(gps->counts().hangups, 1u);
    for (int i = 0; i < 5; ++i) pass(1000);             // it is tried again, and said once
    EXPECT_EQ(words.size(), 2u);
    const std::string former = tty;
    openLine();
    if (tty != former) GTEST_SKIP() << "another pty took the name " << former;
    pass(1100);
    ASSERT_EQ(words.size(), 3u);
    say(SENTENCE);
    pass(100);
    EXPECT_EQ(gps->counts().sentences, 2u);
}

TEST_F(Line, ThePulseIsTheDevicesWhereThereIsOne)
{
    bool isThere = true;
    u32 pulses = 0;
    i64 at_ns = 0;                                      // of the last, by the host's time of day
    const auto control = [&](int, unsigned long request, void* data) {
        errno = ENODEV;
        if (request == PPS_FETCH)
            static_cast<pps_fdata*>(data)->info = {
                pulses, 0, {at_ns / 1'000'000'000, static_cast<i32>(at_ns % 1'000'000'000), 0}, {}, 0};
        return isThere ? 0 : -1;
    };
    const auto open = [&](const std::string&) { return isThere ? ::open("/dev/null", O_RDWR) : -1; };
    const auto pulse = [&](i64 ahead_ns) {              // of the world, which is a little behind the host
        ++pulses;
        at_ns = host_ns + 250'000'000 + ahead_ns;
        const ose::Time at = clock.now() + ahead_ns * ose::NS;
        host_ns += ahead_ns + 50'000;
        gps->take();
        return at;
    };
    gps.reset();
    gps = std::make_unique<sim::HostGps>(world, clock, node.serial(), tty, "/dev/pps0",
                                         sim::DeviceCalls{open, control});
    gps->onWord([this](const std::string& text) { words.push_back(text); });
    for (int i = 0; i < 11; ++i) {
        say(SENTENCE);
        pass(1000);
    }
    EXPECT_FALSE(gps->present());                       // a sentence is no pulse here
    ASSERT_EQ(words.size(), 1u);
    EXPECT_THAT(words[0], HasSubstr("/dev/pps0: sentences and no pulse"));
    const ose::Time first = pulse(20'000);
    ASSERT_TRUE(gps->present());
    EXPECT_EQ(gps->nextEdge(world.now()), first);
    EXPECT_EQ(gps->nextEdge(first), first + ose::SEC);
    pass(1000);                                         // past the edge, a pulse later than foretold
    ASSERT_GE(world.now(), first + ose::SEC);
    at_ns += 1'000'000'300;
    ++pulses;
    gps->take();
    EXPECT_EQ(gps->nextEdge(first + ose::SEC), first + 2 * ose::SEC + 300 * ose::NS);
    isThere = false;
    for (int i = 0; i < 4; ++i) pass(1000);
    EXPECT_FALSE(gps->present());
    isThere = true;
    pass(1100);
    const ose::Time again = pulse(20'000);
    ASSERT_EQ(words.size(), 3u);
    EXPECT_EQ(words[1], "/dev/pps0 is gone (No such device)");
    EXPECT_EQ(words[2], "/dev/pps0 is back");
    EXPECT_EQ(gps->nextEdge(world.now()), again);
    EXPECT_EQ(gps->counts().pulses, 3u);
}

TEST_F(Line, WhatIsNoLineIsRefused)
{
    struct Case { const char* tty; const char* pps; const char* why; };
    const Case cases[] = {{"/none", "", "/none: No such file"},
                          {"/dev/null", "", "/dev/null: not a serial line"},
                          {tty.c_str(), "/none", "/none: No such file"},
                          {tty.c_str(), "/dev/null", "/dev/null: no pulses of the kernel (PPS)"}};
    for (const Case& c : cases) {
        try {
            sim::HostGps refused(world, clock, node.serial(), c.tty, c.pps);
            ADD_FAILURE() << c.why;
        } catch (const sim::HostError& e) {
            EXPECT_THAT(e.what(), HasSubstr(c.why));
        }
    }
}

}  // namespace
