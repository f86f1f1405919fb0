// Links between two units, without programs: what leaves one board arrives at the other.
#include "sim/scenario/link.h"
#include "sim/board/board.h"
#include "sim/scenario/unit.h"
#include "tests/support/idle_node.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

using namespace sim;

struct Pair {
    ose::World world{1};
    Unit from, to;
    Pair() : from(world, spec("tu1", 0.35, 5.0)), to(world, spec("tu2", 7.55, -3.0)) {}

    static UnitSpec spec(const char* name, double counterStart_s, double offset_ppb)
    {
        UnitSpec s;
        s.node = IdleNode::withIdleProgram({});
        s.node.name = name;
        s.node.board.name = name;
        s.node.board.counterStart_s = counterStart_s;
        s.node.board.oscillator.offset_ppb = offset_ppb;
        s.node.mainProcessor.present = false;
        return s;
    }
    std::unique_ptr<Link> link(LinkKind kind, double delay_s)
    {
        LinkSpec l;
        l.kind = kind;
        l.name = "l";
        l.delay_s = delay_s;
        return makeLink(world, l, from, to);
    }
};

// Board type 2, BFN input: counters, in increments.
struct Bfn { bool parity; i64 local, remote; };
Bfn bfnOf(Board& board)
{
    const u32 base = board.config().baseC;
    const u32 counters = board.read(base + 0xD4), flags = board.read(base + 0xD0);
    const auto increments = [](i64 mfn, i64 sfn, i64 inc) {
        return (mfn * 4096 + sfn) * 1'228'800 + inc;
    };
    return {(flags >> 30 & 1) != 0, increments(counters >> 5 & 0x1F, flags >> 12 & 0xFFF, counters >> 11),
            increments(counters & 0x1F, flags & 0xFFF, 0)};
}

TEST(BfnLink, NoiseComesBetweenTheFramesAndALongerWayMovesTheDifference)
{
    Pair p;
    const auto link = p.link(LinkKind::Idl1, 250e-9);
    Board &from = p.from.node().board(), &to = p.to.node().board();
    link->setFault(LinkFault::Noise, 3);
    struct Moment { ose::Time at; bool parity; };               // frames leave at 150 ms, 250 ms, ...
    constexpr Moment MOMENTS[] = {{151, false}, {176, true}, {226, true}, {251, false}};
    for (const Moment& m : MOMENTS) {
        p.world.runUntil(m.at * ose::MS);
        EXPECT_EQ(bfnOf(to).parity, m.parity) << m.at;
    }
    link->setFault(LinkFault::Noise, 0);
    const auto difference_s = [&] {
        p.world.runFor(200 * ose::MS);
        const Bfn at1 = bfnOf(from), at2 = bfnOf(to);
        return static_cast<double>(at2.local - at2.remote - at1.local + at1.remote) / 122.88e6 / 2;
    };
    EXPECT_NEAR(difference_s(), 7.2, 20e-9);
    link->setFault(LinkFault::Late, 5000);
    EXPECT_NEAR(difference_s(), 7.2 + 2500e-9, 20e-9);
    link->setFault(LinkFault::Late, 0);
    link->setFault(LinkFault::Jitter, 200);
    double most_s = 0;
    for (int i = 0; i < 20; ++i) most_s = std::max(most_s, std::abs(difference_s() - 7.2));
    EXPECT_GT(most_s, 150e-9);
    EXPECT_LT(most_s, 1000e-9);
}

TEST(OutputLink, PulseAndBytesArriveOfAnOutputThatIsOn)
{
    for (const LinkKind kind : {LinkKind::GpsOut, LinkKind::Hptsi}) {
        Pair p;
        const auto link = p.link(kind, 100e-9);
        auto& edges = dynamic_cast<EdgeSource&>(*link);
        p.world.runFor(3 * ose::SEC);
        EXPECT_FALSE(edges.present());                              // the output is off
        Board& board = p.from.node().board();
        board.write(board.config().baseB + 0x20, 0x48);             // no reference, output on
        std::vector<ose::Time> seen;
        edges.changed = [&] {
            const ose::Time at = edges.nextEdge(p.world.now());
            if (at >= 0) seen.push_back(at - p.world.now());
        };
        p.world.runFor(5 * ose::SEC);
        EXPECT_TRUE(edges.present());
        ASSERT_EQ(seen.size(), 5u);
        for (const ose::Time way : seen) EXPECT_EQ(way, 140'000);   // 40 ns to the connector, 100 ns of cable
        link->setFault(LinkFault::NoPulse, 1);
        p.world.runFor(3 * ose::SEC);
        EXPECT_FALSE(edges.present());
        EXPECT_EQ(seen.size(), 5u);
    }
}

}  // namespace
