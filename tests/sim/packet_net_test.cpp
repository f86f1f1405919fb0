// The packet network: how paths lose, double and reorder; what the scenario's reader refuses.
#include "sim/scenario/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using namespace sim;
using testing::HasSubstr;

struct Listener : NetHost {
    Listener(Network& network, std::string hostName, NetAddress own)
        : name(std::move(hostName)), address(own)
    {
        network.attach(*this);
    }
    void onPacket(const NetPacket& packet) override { packets.push_back(packet); }
    NetAddress netAddress() const override { return address; }
    const std::string& netName() const override { return name; }
    std::string name;
    NetAddress address;
    std::vector<NetPacket> packets;
};

struct Net : testing::Test {
    ose::World world{5};
    Network network{world};
    Listener a{network, "a", {4, {192, 168, 0, 1}}}, b{network, "b", {4, {192, 168, 0, 2}}};

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

}  // namespace
