// The packet network: how paths delay, lose, double and reorder; what a master says and grants; what the
// scenario's reader refuses of them.
#include "sim/net/ptp_master.h"
#include "sim/scenario/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace sim;
using testing::HasSubstr;

struct Listener : NetHost {
    Listener(ose::World& w, Network& network, std::string hostName, NetAddress own = {4, {192, 168, 0, 1}})
        : world(w), name(std::move(hostName)), address(own)
    {
        network.attach(*this);
    }
    void onPacket(const NetPacket& packet) override
    {
        at.push_back(static_cast<double>(world.now()) * 1e-12);
        packets.push_back(packet);
        const std::size_t begin = packet.isFrame ? ptp::messageAt(packet.bytes) : 0;
        if (auto m = ptp::read(packet.bytes.data() + begin, packet.bytes.size() - begin))
            messages.push_back(*m);
    }
    NetAddress netAddress() const override { return address; }
    const std::string& netName() const override { return name; }
    std::vector<ptp::Message> of(u8 type) const
    {
        std::vector<ptp::Message> found;
        for (const ptp::Message& m : messages)
            if (m.type == type) found.push_back(m);
        return found;
    }

    ose::World& world;
    std::string name;
    NetAddress address;
    std::vector<double> at;
    std::vector<NetPacket> packets;
    std::vector<ptp::Message> messages;
};

struct Net : testing::Test {
    ose::World world{5};
    Network network{world};
    Listener a{world, network, "a"}, b{world, network, "b", {4, {192, 168, 0, 2}}};

    /// Numbered frames from a to b, one a millisecond.
    void sendFrames(u32 count)
    {
        for (u32 i = 0; i < count; ++i) {
            NetPacket p;
            p.bytes = {static_cast<u8>(i >> 8), static_cast<u8>(i)};
            network.send(a, p);
            world.runFor(ose::MS);
        }
        world.runFor(ose::SEC);
    }
    u32 overtaken() const
    {
        u32 count = 0;
        for (std::size_t i = 1; i < b.packets.size(); ++i)
            if (b.packets[i].bytes < b.packets[i - 1].bytes) ++count;
        return count;
    }
};

TEST_F(Net, PathsDelayAsTheyAreTold)
{
    DelayConfig d;
    d.constant_s = 200e-6;
    d.gaussian_s = 10e-6;
    network.connect(a, b, d, {});
    sendFrames(2000);
    ASSERT_EQ(b.at.size(), 2000u);
    double sum = 0, square = 0;
    for (std::size_t i = 0; i < b.at.size(); ++i) {
        const double delay = b.at[i] - static_cast<double>(i) * 1e-3;
        sum += delay;
        square += delay * delay;
    }
    const double mean = sum / 2000.0;
    EXPECT_NEAR(mean, 200e-6, 1e-6);
    EXPECT_NEAR(std::sqrt(square / 2000.0 - mean * mean), 10e-6, 1e-6);
    EXPECT_EQ(overtaken(), 0u);
}

TEST_F(Net, PathsLoseDoubleAndReorderTheirShares)
{
    DelayConfig d;
    d.constant_s = 1e-4;
    d.loss = 0.1;
    d.duplicates = 0.05;
    network.connect(a, b, d, {});
    sendFrames(2000);
    EXPECT_NEAR(static_cast<double>(b.packets.size()), 2000 * 0.9 * 1.05, 60);
    b.packets.clear();
    EXPECT_TRUE(network.change("a", "b", [](DelayConfig& c) {
        c = {};
        c.reordered = 0.1;
        c.reorderedBy_s = 5e-3;
    }));
    sendFrames(2000);
    EXPECT_EQ(b.packets.size(), 2000u);
    EXPECT_NEAR(overtaken(), 200, 40);
    b.packets.clear();
    EXPECT_TRUE(network.setUp("a", "b", false));
    sendFrames(5);
    EXPECT_TRUE(b.packets.empty());
    EXPECT_FALSE(network.setUp("a", "c", false));
}

TEST_F(Net, AMasterTellsTheTruthUnlessItIsToldOtherwise)
{
    PtpMasterConfig c;
    c.stampResolution_ns = 1;
    c.correction_ns = 350.5;
    PtpMaster master(world, network, c);
    DelayConfig d;
    d.constant_s = 5e-6;
    network.connect(master, a, d, d);
    world.runFor(10 * ose::SEC + ose::MS);
    EXPECT_EQ(a.of(ptp::ANNOUNCE).size(), 80u);
    const auto syncs = a.of(ptp::SYNC);
    const auto follows = a.of(ptp::FOLLOW_UP);
    ASSERT_EQ(syncs.size(), 160u);
    ASSERT_EQ(follows.size(), 160u);
    EXPECT_EQ(syncs[15].flags0 & 0x02, 0x02);
    EXPECT_EQ(syncs[15].correction, std::llround(350.5 * 65536));
    // The 16th Sync leaves after a second; what the correction says has passed since its origin.
    EXPECT_EQ(follows[15].sequence, 15);
    EXPECT_EQ(follows[15].stamp.seconds, static_cast<u64>(c.epoch));
    EXPECT_EQ(follows[15].stamp.ns, 999'999'649u);

    master.config.correction_ns = 0;
    master.config.twoStep = false;
    master.stepTime(2.5);
    a.messages.clear();
    world.runFor(ose::SEC);
    EXPECT_TRUE(a.of(ptp::FOLLOW_UP).empty());
    const ptp::Stamp stamp = a.of(ptp::SYNC).back().stamp;
    EXPECT_EQ(stamp.seconds, static_cast<u64>(c.epoch) + 13);
    EXPECT_EQ(stamp.ns, 500'000'000u);
}

TEST_F(Net, AUnicastMasterGrantsAsFarAsItWill)
{
    PtpMasterConfig c;
    c.unicast = true;
    c.address = {4, {192, 168, 0, 101}};
    c.fastest = -4;
    c.longest_s = 10;
    PtpMaster master(world, network, c);
    network.connect(master, a, {}, {});
    const auto ask = [&](u8 type, i8 log, u32 duration) {
        ptp::Message m;
        m.type = ptp::SIGNALING;
        m.domain = c.domain;
        m.tlvs.push_back({ptp::TLV_REQUEST,
                          {static_cast<u8>(type << 4), static_cast<u8>(log), 0, 0,
                           static_cast<u8>(duration >> 8), static_cast<u8>(duration)}});
        NetPacket p;
        p.isFrame = false;
        p.bytes = ptp::write(m);
        p.from = a.address;
        p.to = c.address;
        network.send(a, p);
        world.runFor(100 * ose::MS);
    };
    ask(ptp::SYNC, -7, 300);
    auto grants = a.of(ptp::SIGNALING);
    ASSERT_EQ(grants.size(), 1u);
    const std::vector<u8> granted = {0x00, 0xFC, 0, 0, 0, 10, 0, 1};   // -4, ten seconds, renewable
    EXPECT_EQ(grants[0].tlvs[0].type, ptp::TLV_GRANT);
    EXPECT_EQ(grants[0].tlvs[0].value, granted);
    world.runFor(20 * ose::SEC);
    EXPECT_NEAR(static_cast<double>(a.of(ptp::SYNC).size()), 160, 2);
    EXPECT_TRUE(a.of(ptp::ANNOUNCE).empty());

    master.config.grants = false;
    ask(ptp::ANNOUNCE, 1, 60);
    EXPECT_EQ(a.of(ptp::SIGNALING).back().tlvs[0].value[5], 0);
    master.config.answers = false;
    const std::size_t before = a.messages.size();
    ask(ptp::ANNOUNCE, 1, 60);
    EXPECT_EQ(a.messages.size(), before);
}

TEST(PacketScenario, WhatCantBeUnderstoodIsRefused)
{
    constexpr const char* BEGIN = "duration = \"1m\"\n[[unit]]\nname = \"tu1\"\n";
    struct Case { const char* text; const char* reason; };
    constexpr Case CASES[] = {
        {"[unit.packet_port]\nmac = \"02:00\"\n", "six octets"},
        {"[unit.packet_port]\naddress = \"192.168.0\"\n", "an address of IP version 4, or of 6 in full"},
        {"[[unit.packet_reference]]\nfro_id = 1\ntype = \"ethernet\"\n", "is none of ethernet_time"},
        {"[[master]]\nname = \"gm1\"\n[[master]]\nname = \"gm1\"\n", "there is another master 'gm1'"},
        {"[[path]]\nfrom = \"gm1\"\nto = \"tu1\"\n", "there is no unit or master 'gm1'"},
        {"[[master]]\nname = \"gm1\"\n[[path]]\nfrom = \"gm1\"\nto = \"tu1\"\nloss = 1.5\n",
         "a share lies between 0 and 1"},
        {"[[event]]\nat = \"1s\"\ndo = \"master.set\"\nclass = 7\n", "there is no master"},
        {"[[master]]\nname = \"gm1\"\n[[event]]\nat = \"1s\"\ndo = \"master.set\"\n",
         "nothing of 'gm1' is named that changes"},
        {"[[master]]\nname = \"gm1\"\n[[event]]\nat = \"1s\"\ndo = \"path.sideways\"\n",
         "'path.sideways' is nothing that can happen"},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.text);
        try {
            readScenarioText(std::string(BEGIN) + c.text, "s.toml");
            ADD_FAILURE() << "taken";
        } catch (const ScenarioError& e) {
            EXPECT_THAT(e.what(), HasSubstr(c.reason));
        }
    }
}

}  // namespace
