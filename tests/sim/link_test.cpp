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

// Board type 2, BFN input: flags, counters; base C of the address map.
struct Bfn { bool valid, parity, extended; i64 local, remote; };
Bfn bfnOf(Board& board)
{
    const u32 base = board.config().baseC;
    const u32 counters = board.read(base + 0xD4), flags = board.read(base + 0xD0);
    const auto increments = [](i64 mfn, i64 sfn, i64 inc) {
        return (mfn * 4096 + sfn) * 1'228'800 + inc;
    };
    return {flags >> 31 != 0, (flags >> 30 & 1) != 0, (flags >> 29 & 1) != 0,
            increments(counters >> 5 & 0x1F, flags >> 12 & 0xFFF, counters >> 11),
            increments(counters & 0x1F, flags & 0xFFF, 0)};
}

TEST(BfnLink, BothEndsTogetherGiveDifferenceAndDelay)
{
    Pair p;
    const auto link = p.link(LinkKind::Idl1, 250e-9);
    p.world.runFor(3 * ose::SEC);
    const Bfn at1 = bfnOf(p.from.node().board()), at2 = bfnOf(p.to.node().board());
    ASSERT_TRUE(at1.valid && at2.valid);
    const double there = static_cast<double>(at2.local - at2.remote) / 122.88e6;
    const double back = static_cast<double>(at1.local - at1.remote) / 122.88e6;
    EXPECT_NEAR((there - back) / 2, counterDifference_s(p.to, p.from), 10e-9);   // an increment is 8 ns
    EXPECT_NEAR((there - back) / 2, 7.2, 1e-6);
    EXPECT_NEAR((there + back) / 2, 250e-9, 10e-9);

    link->setUp(false);
    p.world.runFor(ose::SEC);
    EXPECT_EQ(bfnOf(p.to.node().board()).remote, at2.remote);   // nothing arrives any more
    link->setUp(true);
    link->setFault(LinkFault::Parity, 1.0);
    p.world.runFor(ose::SEC);
    EXPECT_TRUE(bfnOf(p.to.node().board()).parity);
}

TEST(BfnLink, WordsArriveOnceAndAFrameWithoutThemIsNone)
{
    Pair p;
    const auto link = p.link(LinkKind::Idl1, 250e-9);
    Board &from = p.from.node().board(), &to = p.to.node().board();
    p.world.runFor(ose::SEC);
    EXPECT_FALSE(bfnOf(to).extended);
    const u32 base = to.config().baseC;
    from.write(base + 0xE0, 0x3FFFFF);
    from.write(base + 0xE4, 0x1F654321);
    p.world.runFor(100 * ose::MS);
    EXPECT_TRUE(bfnOf(to).extended);
    EXPECT_EQ(to.read(base + 0xD8), 0x3FFFFFu);
    EXPECT_EQ(to.read(base + 0xDC), 0x1F654321u);
    p.world.runFor(100 * ose::MS);
    EXPECT_TRUE(bfnOf(to).valid);
    EXPECT_FALSE(bfnOf(to).extended);
    EXPECT_FALSE(bfnOf(from).extended);
}

TEST(BfnLink, NoiseComesBetweenTheFramesAndALongerWayMovesTheDifference)
{
    Pair p;
    const auto link = p.link(LinkKind::Idl1, 250e-9);
    Board &from = p.from.node().board(), &to = p.to.node().board();
    link->setFault(LinkFault::Noise, 3);
    struct Moment { ose::Time at; bool parity; };               // frames leave at 150 ms, 250 ms, ...
    for (const Moment& m : {Moment{151, false}, Moment{176, true}, Moment{226, true}, Moment{251, false}}) {
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

TEST(Link, ATurnChangesThePartsAndLeavesTheEnds)
{
    for (const LinkKind kind : {LinkKind::Idl1, LinkKind::Idl2}) {
        Pair p;
        const auto link = p.link(kind, 0.0);
        EXPECT_EQ(&link->leader(), &p.from);
        EXPECT_EQ(&link->follower(), &p.to);
        link->turn();
        EXPECT_EQ(&link->leader(), &p.to);
        EXPECT_EQ(&link->follower(), &p.from);
        EXPECT_EQ(&link->from(), &p.from);
        link->turn();
        EXPECT_EQ(&link->leader(), &p.from);
    }
}

TEST(RadioLink, EachEndMeasuresTheOtherUnitAndNothingWhileItIsDown)
{
    Pair p;
    const auto link = p.link(LinkKind::Cpri, 0.0);
    p.world.runFor(3 * ose::SEC);
    EXPECT_EQ(p.to.radioFar(1), &p.from);
    EXPECT_EQ(p.to.radioFar(2), nullptr);
    const u32 id = p.from.node().config().apn;
    const auto frequency = p.to.farFrequency(id);
    const auto phase = p.to.farPhase(id), back = p.from.farPhase(id);
    ASSERT_TRUE(frequency && phase && back);
    EXPECT_EQ(frequency->diff_ppb, 8);                          // 5 ppb against -3
    EXPECT_NEAR(static_cast<double>(phase->diff_ps) * 1e-12, 7.2, 1e-6);
    EXPECT_NEAR(static_cast<double>(back->diff_ps) * 1e-12, 40.96 - 7.2, 1e-6);   // modulo a turn
    link->setFault(LinkFault::UnstableTo, 1.0);                 // of that end alone
    EXPECT_FALSE(p.to.farFrequency(id)->valid || p.to.farPhase(id)->valid);
    EXPECT_TRUE(p.from.farFrequency(id)->valid && p.from.farPhase(id)->valid);
    link->setFault(LinkFault::UnstableTo, 0.0);
    EXPECT_TRUE(p.to.farPhase(id)->valid);
    link->setUp(false);
    EXPECT_FALSE(p.to.farFrequency(id) || p.to.farPhase(id));
    EXPECT_EQ(p.to.node().inrsi().config.links.front().status, 0);
    link->setUp(true);
    EXPECT_TRUE(p.to.farPhase(id));
    EXPECT_EQ(p.to.node().inrsi().config.links.front().status, 2);
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
            if (const ose::Time at = edges.nextEdge(p.world.now()); at >= 0) seen.push_back(at - p.world.now());
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
