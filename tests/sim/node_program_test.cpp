// The timing unit's own program in its simulated node, seen from the main processor.
#include "sim/board/board.h"
#include "sim/refs/line_source.h"
#include "support/unit_bench.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

constexpr u8 LOCKED = 3, UNKNOWN = 7;
constexpr SIGSELECT INITIATE_REQ = 0x9C000, STATUS = 0x9C00D;

const sim::MpReference PPS{.name = "pps", .refType = 2, .froId = 20, .froClassNo = 2};

sim::NodeConfig withPps()
{
    sim::NodeConfig config;
    config.boardType = 2;
    config.mainProcessor.references = {PPS};
    return config;
}

struct PpsUnit : bench::Unit {
    sim::LineSource pps{world, {}, sim::PPS_RATE_Hz, 1, "pps"};
    explicit PpsUnit(const sim::NodeConfig& config = withPps()) : Unit(config)
    {
        node.board().connect(sim::ReferenceInput::Pps, &pps);
        node.powerOn();
    }
    u8 clock() { return node.mainProcessor().clockState(); }
};

}  // namespace

TEST(WholeUnit, WithoutAConfirmationSaysNothing)
{
    struct Case { const char* when; sim::Answer answer; u32 pv; };
    for (const Case& c : std::to_array<Case>({{"suspended", sim::Answer::Suspend, 22},
                                              {"rejected", sim::Answer::Reject, 22},
                                              {"silent", sim::Answer::Silent, 22},
                                              {"other version", sim::Answer::Accept, 21}})) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config = withPps();
        config.mainProcessor.selectedPv = c.pv;
        PpsUnit u{config};
        u.node.mainProcessor().setAnswer(c.answer);
        u.run(300);
        EXPECT_EQ(u.node.mainProcessor().count(INITIATE_REQ), 1u);
        EXPECT_EQ(u.node.mainProcessor().count(STATUS), 0u);
        EXPECT_EQ(u.clock(), UNKNOWN);

        u.node.mainProcessor().setAnswer(sim::Answer::Accept);
        u.node.mainProcessor().config.selectedPv = 22;
        u.node.mainProcessor().restart(5 * ose::SEC);
        u.run(300);
        EXPECT_TRUE(u.node.mainProcessor().connected());
        EXPECT_EQ(u.traces("COLD RESTART of KVD on BVQ LOZ6"), 1u);   // the first start, whatever came before
        u.node.restartWarm();
        u.run(300);
        EXPECT_EQ(u.clock(), LOCKED);
    }
}

TEST(WholeUnit, WaitsForTheServicesThatComeLate)
{
    PpsUnit u;
    u.node.pri().die();
    u.node.nameServer().die();
    u.run(5);
    EXPECT_EQ(u.node.mainProcessor().count(INITIATE_REQ), 0u);
    u.node.nameServer().start();
    u.run(7);
    EXPECT_EQ(u.node.mainProcessor().count(INITIATE_REQ), 0u);
    EXPECT_EQ(u.traces("WARNING: TarsoPri_initiateService() did not succeed, retrying ..."), 3u);
    u.node.pri().start();
    u.run(3);
    EXPECT_EQ(u.node.mainProcessor().count(INITIATE_REQ), 1u);

    PpsUnit slow;
    slow.node.mainProcessor().die();
    slow.run(30);
    slow.node.mainProcessor().start();
    slow.run(10);
    EXPECT_TRUE(slow.node.mainProcessor().connected());
}

TEST(WholeUnit, ShutsDownInGoodOrder)
{
    PpsUnit u;
    u.run(300);
    EXPECT_TRUE(u.node.interruptEnabled(166));
    u.node.shutdown();
    u.run(1);
    EXPECT_EQ(u.node.program(), nullptr);
    EXPECT_FALSE(u.node.board().interruptPending());
    EXPECT_FALSE(u.node.mainProcessor().connected());
    u.node.restartWarm();
    u.run(300);
    EXPECT_EQ(u.clock(), LOCKED);
}
