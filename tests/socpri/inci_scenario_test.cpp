// A scenario's words for units that exchange sync data, on whole units whose manager starts the process.
#include "sim/scenario/link.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"
#include "socpri/inci_sig.h"
#include "socpri/kvd_ngpduh_proc.h"
#include "tests/socpri/inci_bench.h"

#include <algorithm>

namespace {

using namespace bench;

constexpr const char* TEXT = R"(
title = "two units and the path between them"
duration = "100s"
[[unit]]
name = "near"
apn = 1
[unit.sync_group]
node = 0x101
priority = 10
period = "500ms"
[[unit]]
name = "far"
apn = 3
[unit.sync_group]
priority = 20
[[link]]
type = "inci"
from = "near"
to = "far"
[[event]]
at = "20s"
do = "link.down"
[[event]]
at = "30s"
do = "link.up"
[[event]]
at = "40s"
unit = "near"
do = "sync_group.die"
[[event]]
at = "50s"
unit = "near"
do = "sync_group.start"
[[event]]
at = "60s"
unit = "near"
do = "sync_group.broadcasts"
on = false
[[event]]
at = "70s"
unit = "near"
do = "sync_group.priority"
priority = 30
[[event]]
at = "71s"
unit = "near"
do = "sync_group.broadcasts"
)";

struct TwoUnits {
    ose::World world{1};
    sim::Scenario scenario = sim::readScenarioText(TEXT, "inci");
    std::vector<std::unique_ptr<sim::Unit>> units;
    std::vector<std::unique_ptr<sim::Link>> links;

    TwoUnits()
    {
        failOnMisuse(world);
        for (const sim::UnitSpec& spec : scenario.units) {
            units.push_back(std::make_unique<sim::Unit>(world, spec));
            units.back()->node().powerOn();
        }
        links = sim::makeLinks(world, scenario, units);
        for (const sim::EventSpec& e : scenario.events)
            world.at(static_cast<ose::Time>(e.at_s * 1e12), [this, &e] {
                if (e.linkAction) return e.linkAction(*links.front());
                const u32 unit = e.unit == "near" ? 0 : 1;
                e.action(*units[unit]);
            });
        to(5);
        for (u32 i = 0; i < 2; ++i) node(i).system().call(*node(i).program(), KvdLoz6NgPduh_start);
        to(6);
        for (u32 i = 0; i < 2; ++i) establish(i, node(1 - i).name());
    }
    sim::Node& node(u32 i) { return units[i]->node(); }
    sim::NgpduhifServer& group(u32 i) { return node(i).ngpduhif(); }
    void to(double second) { world.runUntil(static_cast<ose::Time>(second * 1e12)); }
    void establish(u32 i, const std::string& prefix)
    {
        KvdTuSocpriInciEstablishReq req{KVD_TUSOCPRI_INCI_ESTABLISH_REQ, {}, 1, 7, INCI_NO_UNIT};
        prefix.copy(req.huntPathPrefix, INCI_PATH_SIZE - 1);
        node(i).system().inject(bytesOfLayout(req), node(i).system().find(INCI_PROCESS),
                                node(i).system().find("Kvd_loz6_tumgr_proc"));
    }
    /// Broadcasts that a unit's group hears in the next ten seconds, short of their end.
    u32 heardIn10s(u32 i)
    {
        const u32 before = group(i).received(KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND);
        world.runFor(9'900 * ose::MS);
        return group(i).received(KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND) - before;
    }
};

TEST(InciScenario, UnitsExchangeBroadcastsOverTheirPathAndItsEventsAreSeen)
{
    TwoUnits run;
    run.to(10.001);
    EXPECT_NEAR(run.heardIn10s(0), 9.5, 0.6);    // of far, each second
    EXPECT_EQ(run.group(1).lastBcm().ngsmNodeIdentifier, 0x101u);
    EXPECT_EQ(run.group(1).lastBcm().syncNodePriority, 10u);
    EXPECT_EQ(run.group(0).lastBcm().ngsmNodeIdentifier, 3u);
    run.to(20.001);                              // the path goes down
    EXPECT_EQ(run.heardIn10s(1), 0u);
    for (u32 i = 0; i < 2; ++i) {
        EXPECT_TRUE(run.group(i).served().empty());
        EXPECT_EQ(run.group(i).clientReleases().size(), 1u);
    }
    run.to(30.001);
    EXPECT_NEAR(run.heardIn10s(1), 19.0, 1.0);
    run.to(40.001);
    EXPECT_LE(run.heardIn10s(1), 1u);            // near's group is gone, its process stays
    EXPECT_EQ(run.group(0).served().size(), 0u);
    run.to(50.001);
    EXPECT_NEAR(run.heardIn10s(1), 19.0, 1.0);
    run.to(60.001);
    EXPECT_EQ(run.heardIn10s(1), 0u);
    run.to(75.0);
    EXPECT_EQ(run.group(1).lastBcm().syncNodePriority, 30u);
    for (u32 i = 0; i < 2; ++i) EXPECT_TRUE(run.node(i).programEnds().empty());
}

TEST(InciScenario, BadWordsAreRefused)
{
    for (const char* const words :
         {"[[unit]]\nname = \"a\"\n[unit.sync_group]\npriority = 70000\n",
          "[[unit]]\nname = \"a\"\n[unit.sync_group]\nperiod = \"0s\"\n",
          "[[unit]]\nname = \"a\"\n[unit.sync_group]\nrank = 1\n",
          "[[unit]]\nname = \"a\"\n[[event]]\nat = \"1s\"\ndo = \"sync_group.answer\"\nanswer = \"busy\"\n"}) {
        SCOPED_TRACE(words);
        const std::string text = std::string("duration = \"10s\"\n") + words;
        EXPECT_THROW(sim::readScenarioText(text, "bad"), sim::ScenarioError);
    }
}

}  // namespace
