#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

namespace {

struct State {
    int counter = 5;                   // load-time value
};
ose::ModuleData<State> s;

sim::NodeConfig reloading(i64 after_ms)
{
    sim::NodeConfig config;
    config.reloadAfter_ms = after_ms;
    return config;
}

}  // namespace

TEST(ProgramLife, TellsTheRestartTypeAndStartsFromLoadTimeValues)
{
    IdleNode b;
    struct Case { const char* when; void (*act)(sim::Node&); u32 restartType; };
    u32 starts = 1;
    EXPECT_EQ(b.node.temi().restartType, 0u);
    for (const Case& c : std::to_array<Case>({
             {"warm", [](sim::Node& n) { n.restartWarm(); }, 4},
             {"cold", [](sim::Node& n) { n.restartCold(); }, 2},
             {"hot", [](sim::Node& n) { n.restart(5); }, 5},
             {"power", [](sim::Node& n) { n.powerOff(); n.powerOn(); }, 0},
             {"killed, then warm", [](sim::Node& n) { n.kill(); n.restartWarm(); }, 4}})) {
        SCOPED_TRACE(c.when);
        b.in([] { s->counter = 77; });
        EXPECT_EQ(b.node.inProgram([] { return s->counter; }), 77);
        c.act(b.node);
        b.world.runFor(ose::MS);
        ++starts;
        EXPECT_EQ(b.node.programStarts(), starts);
        EXPECT_EQ(b.node.temi().restartType, c.restartType);
        EXPECT_EQ(b.node.inProgram([] { return s->counter; }), 5);
    }
    b.node.powerOff();
    EXPECT_EQ(b.node.program(), nullptr);
    b.world.runFor(ose::SEC);
    EXPECT_TRUE(b.node.programEnds().empty()) << "none of these was the program's own doing";
}

TEST(ProgramLife, FatalErrorIsRecordedAndReloadedAsConfigured)
{
    struct Case { const char* when; i64 reload_ms; i64 run_ms; u32 starts; };
    for (const Case& c : std::to_array<Case>({{"never", -1, 10'000, 1},
                                              {"not yet", 500, 499, 1},
                                              {"now", 500, 501, 2},
                                              {"at once", 0, 1, 2}})) {
        SCOPED_TRACE(c.when);
        IdleNode b{reloading(c.reload_ms)};
        u32 told = 0;
        b.node.onProgramEnd([&](const sim::ProgramEnd& end) { told = end.code; });
        b.node.system().launch(*b.node.program(), "faulty", 10, [] { ose::error(0x1234); });
        b.world.runFor(c.run_ms * ose::MS);
        ASSERT_EQ(b.node.programEnds().size(), 1u);
        EXPECT_EQ(b.node.programEnds()[0].code, 0x1234u);
        EXPECT_EQ(told, 0x1234u);
        EXPECT_EQ(b.node.programStarts(), c.starts);
        EXPECT_EQ(b.node.program() != nullptr, c.starts == 2);
        if (c.starts == 2) {
            EXPECT_EQ(b.node.temi().restartType, 3u);
        }
        EXPECT_NE(b.node.system().find("ose_ns"), 0u) << "the node goes on";
    }
}

TEST(ProgramLife, AProgramThatKillsItsBlockHasEnded)
{
    IdleNode b;
    b.node.system().launch(*b.node.program(), "tired", 10,
                           [] { ose::kill_proc(ose::get_bid(ose::current_process())); });
    b.world.runFor(ose::MS);
    ASSERT_EQ(b.node.programEnds().size(), 1u);
    EXPECT_EQ(b.node.programEnds()[0].code, 0u);
    EXPECT_EQ(b.node.program(), nullptr);
    b.node.restartWarm();
    EXPECT_EQ(b.node.programStarts(), 2u);
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
    EXPECT_FALSE(b.node.traces().has("line 1"));
    EXPECT_EQ(b.node.traces().written(), 3u);
    EXPECT_EQ(b.node.traces().find({"line"}).front().text, "line 2");
    b.node.traces().toFile("");
    std::FILE* in = std::fopen(path.c_str(), "r");
    ASSERT_NE(in, nullptr);
    char first[200] = "";
    EXPECT_NE(std::fgets(first, sizeof first, in), nullptr);
    std::fclose(in);
    std::remove(path.c_str());
    EXPECT_EQ(std::string(first).substr(0, 25), "0.001000 tu1 1  writer no");
}
