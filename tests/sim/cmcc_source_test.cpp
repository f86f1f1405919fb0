// The simulated source of the time of day: bytes and times of its frames, what faults do to them.
#include "sim/refs/cmcc_source.h"

#include "support/idle_node.h"

#include <gtest/gtest.h>

namespace {

using ose::MS;
using ose::SEC;
using sim::CmccFault;

struct Frame { double at_s; std::vector<u8> bytes; };

struct Bench : IdleNode {
    sim::CmccSource source;
    std::vector<Frame> frames;

    explicit Bench(const sim::CmccSourceConfig& config = {})
        : source(world, node.serial(), config, 1, "source")
    {
        const node::SerialSetting none{0xFFFFFFFF, 0};
        EXPECT_EQ(node.serial().open(node.serial().device().c_str(), 44, &none, 0), 0);
    }
    /// Frames that came by `to_s`, read at once.
    std::vector<Frame> by(double to_s)
    {
        frames.clear();
        while (world.now() < static_cast<ose::Time>(to_s * 1e12)) {
            world.runFor(MS);
            u8 bytes[64];
            const std::size_t count =
                node.serial().read(node.serial().device().c_str(), bytes, sizeof bytes);
            const double now_s = static_cast<double>(world.now()) * 1e-12;
            if (count > 0) frames.push_back({now_s, {bytes, bytes + count}});
        }
        return frames;
    }
};

TEST(CmccSource, SaysAnotherWeekAfterTheLastSecond)
{
    sim::CmccSourceConfig config;
    config.start = 1'704'067'200 + 5 * 604'800 + 518'380;   // so many seconds before the week's end: 2
    config.pps.noise = {};
    Bench bench(config);
    const auto frames = bench.by(3.1);
    ASSERT_EQ(frames.size(), 5u);
    const auto towAndWeek = [&](std::size_t i) {
        const auto& b = frames[i].bytes;
        return std::pair<u32, u32>{b[6] << 24 | b[7] << 16 | b[8] << 8 | b[9], b[14] << 8 | b[15]};
    };
    EXPECT_EQ(towAndWeek(0), (std::pair<u32, u32>{604'799, 2300}));
    EXPECT_EQ(towAndWeek(2), (std::pair<u32, u32>{0, 2301}));
}

TEST(CmccSource, Faults)
{
    Bench bench;
    const auto checksumOf = [](const Frame& f) { return f.bytes.at(22); };
    const auto second = [&](CmccFault fault, double amount) {
        bench.source.setFault(fault, true, amount);
        const double now = static_cast<double>(bench.world.now()) * 1e-12;
        const auto frames = bench.by(now + 1.0);
        bench.source.setFault(fault, false);
        return frames;
    };
    bench.by(1.9);
    const auto good = second(CmccFault::StuckPps, 0);        // frames go on
    ASSERT_EQ(good.size(), 2u);
    const auto wrong = second(CmccFault::WrongChecksum, 0);
    EXPECT_EQ(checksumOf(wrong.at(1)), static_cast<u8>(~checksumOf(good[1])));
    EXPECT_TRUE(second(CmccFault::Silence, 0).empty());
    EXPECT_EQ(second(CmccFault::NoInfo, 0).at(0).bytes.at(3), 3);
    EXPECT_EQ(second(CmccFault::NoState, 0).at(0).bytes.at(3), 0x20);
    EXPECT_EQ(second(CmccFault::WrongSecond, -3).at(0).bytes.at(9),
              static_cast<u8>(good[0].bytes[9] + 5 - 3));
    const auto late = second(CmccFault::Late, 500);
    EXPECT_NEAR(late.at(0).at_s - good[0].at_s, 6.5, 1e-9);
    const auto garbled = second(CmccFault::Garbled, 1.0);
    u32 turned = 0;
    for (std::size_t i = 0; i < 23; ++i)
        turned += static_cast<u32>(__builtin_popcount(garbled.at(1).bytes[i] ^ good[1].bytes[i]));
    EXPECT_EQ(turned, 23u);                                  // a bit a byte
    EXPECT_TRUE(bench.source.present());
    bench.source.setFault(CmccFault::StuckPps, true);
    EXPECT_TRUE(bench.source.present());
    EXPECT_EQ(bench.source.nextEdge(bench.world.now()), -1);
    bench.source.setFault(CmccFault::NoPps, true);
    EXPECT_FALSE(bench.source.present());
}

}  // namespace
