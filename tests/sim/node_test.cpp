// Life of a program in the simulated node: how it starts, ends, is loaded again, what goes under its hands.
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "sim/board/board.h"
#include "sim/refs/line_source.h"
#include "support/idle_node.h"
#include "support/unit_bench.h"

#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <string>

namespace {

struct State {
    int counter = 5;                   // load-time value
};
ose::ModuleData<State> s;

TEST(ProgramLife, TellsTheRestartTypeAndStartsFromLoadTimeValues)
{
    IdleNode b;
    struct Case { const char* when; void (*act)(sim::Node&); u32 restartType; };
    u32 starts = 1;
    for (const Case& c : std::to_array<Case>({
             {"hot", [](sim::Node& n) { n.restart(5); }, 5},
             {"power", [](sim::Node& n) { n.powerOff(); n.powerOn(); }, 0},
             {"killed, then warm", [](sim::Node& n) { n.kill(); n.restartWarm(); }, 4}})) {
        SCOPED_TRACE(c.when);
        b.in([] { s->counter = 77; });
        EXPECT_EQ(b.node.inProgram([] { return s->counter; }), 77);
        c.act(b.node);
        b.world.runFor(ose::MS);
        EXPECT_EQ(b.node.programStarts(), ++starts);
        EXPECT_EQ(b.node.temi().restartType, c.restartType);
        EXPECT_EQ(b.node.inProgram([] { return s->counter; }), 5);
    }
    b.node.powerOff();
    b.world.runFor(ose::SEC);
    EXPECT_EQ(b.node.program(), nullptr);
    EXPECT_TRUE(b.node.programEnds().empty()) << "none of these was the program's own doing";
}

TEST(ProgramLife, AnEndOfItsOwnIsRecordedAndReloadedAsConfigured)
{
    const auto faulty = [] { ose::error(0x1234); };
    const auto tired = [] { ose::kill_proc(ose::get_bid(ose::current_process())); };
    struct Case { const char* when; void (*end)(); u32 code; i64 reload_ms, run_ms; u32 starts; };
    for (const Case& c : std::to_array<Case>({{"never", faulty, 0x1234, -1, 10'000, 1},
                                              {"not yet", faulty, 0x1234, 500, 499, 1},
                                              {"now", faulty, 0x1234, 500, 501, 2},
                                              {"at once", faulty, 0x1234, 0, 1, 2},
                                              {"kills its block", tired, 0, -1, 1, 1}})) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config;
        config.reloadAfter_ms = c.reload_ms;
        IdleNode b{config};
        u32 told = 99;
        b.node.onProgramEnd([&](const sim::ProgramEnd& end) { told = end.code; });
        b.node.system().launch(*b.node.program(), "ends", 10, c.end);
        b.world.runFor(c.run_ms * ose::MS);
        ASSERT_EQ(b.node.programEnds().size(), 1u);
        EXPECT_EQ(b.node.programEnds()[0].code, c.code);
        EXPECT_EQ(told, c.code);
        EXPECT_EQ(b.node.programStarts(), c.starts);
        EXPECT_EQ(b.node.program() != nullptr, c.starts == 2);
        EXPECT_EQ(b.node.temi().restartType, c.starts == 2 ? 3u : 0u);
        EXPECT_NE(b.node.system().find("ose_ns"), 0u) << "the node goes on";
    }
}

TEST(Node, CostsNothingWhileNothingHappens)
{
    IdleNode b;
    b.world.setSpinLimit(10);                    // and nobody works at one instant without end
    for (int day = 0; day < 90; ++day) b.world.runFor(86'400 * ose::SEC);
    EXPECT_EQ(b.node.calendar().seconds, 1'704'067'200 + 90 * 86'400);
    EXPECT_EQ(b.node.traces().written(), 0u);
}

TEST(Node, MayGoWhileItsAnswersAreUnderWay)
{
    ose::World world{1};
    {
        sim::Node node{world, IdleNode::withIdleProgram({})};
        node.powerOn();
        node.errorLog().delay_ms = 100;
        node.system().call(*node.program(), [] {
            node::platform().elgiWrite("MC0", 0, 1, "text", 0);
            node::platform().registerCommand({"wait", "", "", [](int, char**) {
                                                  ose::delay(1000);
                                                  return 0;
                                              }});
        });
        node.mainProcessor().restart(200 * ose::MS);
        node.shell().submit("wait", nullptr);
        world.runFor(50 * ose::MS);
    }
    world.runFor(2 * ose::SEC);
    EXPECT_EQ(world.now(), 2050 * ose::MS);
}

TEST(TraceSink, GoesToFileAndKeepsTheNewest)
{
    IdleNode b;
    const std::string path = testing::TempDir() + "tu_trace_test.txt";
    ASSERT_TRUE(b.node.traces().toFile(path));
    EXPECT_FALSE(sim::TraceSink("x").toFile("/nowhere/at/all"));
    b.node.traces().setCapacity(2);
    b.in([] {
        for (int i = 1; i <= 3; ++i) KVD_TRACE(0, TRACE_ERROR, "line %d", i);
    }, "writer");
    EXPECT_EQ(b.node.traces().lines().size(), 2u);
    EXPECT_EQ(b.node.traces().written(), 3u);
    EXPECT_EQ(b.node.traces().find({"line"}).front().text, "line 2");
    b.node.traces().toFile("");
    std::string first;
    std::getline(std::ifstream(path), first);
    std::remove(path.c_str());
    EXPECT_EQ(first.substr(0, 25), "0.001000 tu1 1  writer no");
}

// ---- the unit's own program, seen from the main processor ---------------------------------------

constexpr u8 LOCKED = 3;
constexpr SIGSELECT INITIATE_REQ = 0x9C000;

struct PpsUnit : bench::Unit {
    sim::LineSource pps{world, {}, sim::PPS_RATE_Hz, 1, "pps"};
    sim::MainProcessor& mp = node.mainProcessor();

    PpsUnit() : bench::Unit(withPps())
    {
        node.board().connect(sim::ReferenceInput::Pps, &pps);
        node.powerOn();
    }
    static sim::NodeConfig withPps()
    {
        sim::NodeConfig config;
        config.boardType = 2;
        const sim::MpReference reference{.name = "pps", .refType = 2, .froId = 20, .froClassNo = 2};
        config.mainProcessor.references = {reference};
        return config;
    }
};

TEST(WholeUnit, WaitsForTheServicesThatComeLateAndShutsDownInGoodOrder)
{
    PpsUnit u;
    u.node.pri().die();
    u.node.nameServer().die();
    u.run(5);
    u.node.nameServer().start();
    u.run(7);
    EXPECT_EQ(u.mp.count(INITIATE_REQ), 0u);
    EXPECT_EQ(u.traces("WARNING: TarsoPri_initiateService() did not succeed, retrying ..."), 3u);
    u.node.pri().start();
    u.run(300);
    EXPECT_EQ(u.mp.count(INITIATE_REQ), 1u);
    EXPECT_EQ(u.mp.clockState(), LOCKED);
    EXPECT_TRUE(u.node.interruptEnabled(166));
    u.node.shutdown();
    u.run(1);
    EXPECT_EQ(u.node.program(), nullptr);
    EXPECT_FALSE(u.node.board().interruptPending());
    EXPECT_FALSE(u.mp.connected());
    u.node.restartWarm();
    u.run(300);
    EXPECT_EQ(u.mp.clockState(), LOCKED);
}

}  // namespace
