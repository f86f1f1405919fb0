// The timing unit's own program in its simulated node, seen from the main processor.
#include "sim/board/board.h"
#include "sim/refs/line_source.h"
#include "support/unit_bench.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

namespace {

constexpr u8 WARMUP = 1, DRIFTING = 2, LOCKED = 3, HOLDOVER = 4, FAILURE = 6, UNKNOWN = 7;
constexpr SIGSELECT INITIATE_REQ = 0x9C000, STATUS = 0x9C00D;

const sim::MpReference PPS{.name = "pps", .refType = 2, .froId = 20, .froClassNo = 2};
const sim::MpReference PDH{.name = "pdh", .refType = 4, .froId = 41, .froClassNo = 1};

sim::NodeConfig with(std::vector<sim::MpReference> references, u32 boardType = 2)
{
    sim::NodeConfig config;
    config.boardType = boardType;
    config.mainProcessor.references = std::move(references);
    return config;
}

struct PpsUnit : bench::Unit {
    sim::LineSource pps{world, {}, sim::PPS_RATE_Hz, 1, "pps"};
    explicit PpsUnit(const sim::NodeConfig& config = with({PPS})) : Unit(config)
    {
        node.board().connect(sim::ReferenceInput::Pps, &pps);
        node.powerOn();
    }
    u8 clock() { return node.mainProcessor().clockState(); }
};

}  // namespace

TEST(WholeUnit, LocksLosesItsReferenceAndLocksAgain)
{
    PpsUnit u;
    u.run(20);
    EXPECT_EQ(u.clock(), WARMUP);
    u.run(580);
    EXPECT_EQ(u.clock(), LOCKED);
    EXPECT_EQ(u.node.mainProcessor().status().froId, 20u);

    u.pps.setPresent(false);
    u.run(29);
    EXPECT_EQ(u.clock(), LOCKED) << "the hold-off of a 1PPS takes 30 s";
    u.run(3);
    EXPECT_EQ(u.clock(), HOLDOVER);
    EXPECT_EQ(u.node.mainProcessor().selectedRefType(), 1);

    u.pps.setPresent(true);
    u.run(9);
    EXPECT_EQ(u.node.mainProcessor().selectedRefType(), 1) << "the wait to restore takes 10 s";
    u.run(60);
    EXPECT_EQ(u.node.mainProcessor().selectedRefType(), 2);
    EXPECT_EQ(u.clock(), LOCKED);
    EXPECT_TRUE(u.node.programEnds().empty());
    EXPECT_TRUE(u.node.errorLog().entries().empty());
}

TEST(WholeUnit, ComesBackAfterThePeerWasGone)
{
    PpsUnit u;
    u.run(600);
    ASSERT_EQ(u.clock(), LOCKED);
    const double divider = u.node.board().divider();
    u.node.mainProcessor().restart(20 * ose::SEC);
    u.run(10);
    EXPECT_FALSE(u.node.mainProcessor().connected());
    u.run(15);
    EXPECT_TRUE(u.node.mainProcessor().connected());
    u.run(60);
    EXPECT_EQ(u.clock(), LOCKED);
    EXPECT_EQ(u.node.mainProcessor().connections(), 2u);
    EXPECT_EQ(u.node.programStarts(), 1u);
    EXPECT_NEAR(u.node.board().divider() / divider, 1.0, 1e-7);
    EXPECT_EQ(u.traces("COLD RESTART of KVD on BVQ LOZ6"), 1u) << "no second start of the program";
}

TEST(WholeUnit, WarmRestartKeepsTheHardwareAPowerOnDoesnt)
{
    struct Case { const char* when; u32 restartType; const char* banner; bool initiated; };
    for (const Case& c : std::to_array<Case>({
             {"power on", 0, "COLD RESTART of KVD on BVQ LOZ6", true},
             {"cold", 2, "COLD RESTART of KVD on BVQ LOZ6", false},
             {"warm", 4, "WARM RESTART of KVD on BVQ LOZ6", false}})) {
        SCOPED_TRACE(c.when);
        PpsUnit u;
        u.run(300);
        const double divider = u.node.board().divider();
        u.node.traces().clear();
        u.node.restart(c.restartType);
        if (!c.initiated) {
            EXPECT_EQ(u.node.board().divider(), divider);
        }
        u.run(10);
        EXPECT_EQ(u.traces(c.banner), 1u);
        EXPECT_EQ(u.traces("Init delta sigma values"), c.initiated ? 1u : 0u);
        EXPECT_TRUE(u.node.mainProcessor().connected());
        EXPECT_EQ(u.node.mainProcessor().connections(), 2u);
        u.run(590);
        EXPECT_EQ(u.clock(), LOCKED);
    }
}

TEST(WholeUnit, WithoutAConfirmationSaysNothing)
{
    struct Case { const char* when; sim::Answer answer; u32 pv; };
    for (const Case& c : std::to_array<Case>({{"suspended", sim::Answer::Suspend, 22},
                                              {"rejected", sim::Answer::Reject, 22},
                                              {"silent", sim::Answer::Silent, 22},
                                              {"other version", sim::Answer::Accept, 21}})) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config = with({PPS});
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

TEST(WholeUnit, TestServiceThatRejectsOrFindsAFault)
{
    PpsUnit rejected;
    rejected.node.temi().setAnswer(sim::Answer::Reject);
    rejected.run(10);
    EXPECT_TRUE(rejected.traced("No restartType received from TEMI, assuming Power-on"));
    EXPECT_TRUE(rejected.node.mainProcessor().connected());

    PpsUnit faulty;
    faulty.node.board().faults.toggleStuckOn = 0x2;          // the detector of PDH 2
    faulty.run(10);
    EXPECT_EQ(faulty.node.errorLog().count("MC1"), 1u);
    ASSERT_EQ(faulty.node.temi().failures(), 1u);
    EXPECT_EQ(faulty.node.temi().results().back().name, "LOZ6 PDH2 Test");
    EXPECT_EQ(faulty.clock(), FAILURE);
    faulty.node.mainProcessor().boardFailure(true);
    faulty.run(1);
    EXPECT_EQ(faulty.node.led(), sim::Led::RedOn);
    faulty.node.mainProcessor().boardFailure(false);
    faulty.run(1);
    EXPECT_EQ(faulty.node.led(), sim::Led::RedOn) << "the halted unit doesn't take it back";
}

TEST(WholeUnit, FollowsALineOfTheFirstBoardType)
{
    sim::NodeConfig config = with({PDH, PPS}, 1);
    config.ports = {{.line = 0, .froId = 41}};
    bench::Unit u{config};
    sim::LineSource line{u.world, {}, sim::LINE_RATE_Hz, 2, "pdh"};
    u.node.board().connect(sim::ReferenceInput::Pdh1, &line);
    u.node.powerOn();
    u.run(20);
    EXPECT_EQ(u.node.mainProcessor().selectedRefType(), 4);
    EXPECT_EQ(u.node.mainProcessor().selectedFroId(), 41u);
    u.run(3580);
    EXPECT_EQ(u.node.mainProcessor().clockState(), LOCKED);
    u.node.phyPorts().remove(0);
    u.run(5);
    EXPECT_EQ(u.node.mainProcessor().selectedRefType(), 1);
    EXPECT_EQ(u.node.mainProcessor().clockState(), HOLDOVER);
}

TEST(WholeUnit, HasItsCommandsInTheShell)
{
    PpsUnit u;
    u.run(10);
    EXPECT_EQ(u.node.shell().commands().size(), 34u);
    EXPECT_STREQ(u.node.shell().commands().front().name, "kvdinfo");
    EXPECT_STREQ(u.node.shell().commands().back().name, "genann");
    std::string output;
    EXPECT_EQ(u.command("kvdinfo", output), 20);
    EXPECT_EQ(u.command("kvdinfo tumgr", output), 0);
    EXPECT_NE(output.find("   temiRestartType    : COLDWTEST_POWERON (0)\r\n"), std::string::npos);
    EXPECT_NE(output.find("\n***** END *****\n"), std::string::npos);
    EXPECT_EQ(u.command("kvdfreerunning", output), sim::SHELL_UNKNOWN_COMMAND);
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
