// A whole unit with the node's slow protocol service and peers at its Ethernet ports: what the service's
// answers lead to, what goes out on the line, what outlives a service, a main processor, a program.
#include "node/slowpi_sig.h"
#include "refs/kvd_slowpi.h"
#include "refs/kvd_slowpi_int.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "sim/refs/esmc_peer.h"
#include "tests/support/unit_bench.h"

namespace {

using namespace slowpi;

struct EsmcUnit : bench::Unit {
    sim::EsmcPeer a{node, {.port = 0, .ssm = 2}}, b{node, {.port = 1, .ssm = 4, .vlan = true}};

    explicit EsmcUnit(const std::function<void(sim::SlowpiServer&)>& script = {}, u8 qlMode = 1)
        : Unit(config(qlMode))
    {
        if (script) script(slowpi());
        node.powerOn();
        run(8);
    }
    static sim::NodeConfig config(u8 qlMode)
    {
        sim::NodeConfig c;
        c.mainProcessor.selectionQlMode = qlMode;
        c.mainProcessor.references = {
            {.name = "a", .refType = ETHA_REF, .froId = 21, .froClassNo = 7},
            {.name = "b", .refType = ETHB_REF, .froId = 22, .froClassNo = 7, .supervise = false}};
        return c;
    }
    sim::SlowpiServer& slowpi() { return node.slowpi(); }
    sim::MainProcessor& mp() { return node.mainProcessor(); }
    u32 state() { return now().slowpiState; }
    slowpi::State now()
    {
        return node.inProgram([] { return slowpi::state(); });
    }
    /// Levels told since the last call, with their references.
    std::vector<std::pair<u32, u32>> levels()
    {
        std::vector<std::pair<u32, u32>> all;
        for (const sim::MpRecord& r : mp().all(KVD_TUIIF_QUALITY_LEVEL_IND)) {
            const auto ind = *r.as<KvdTuiifQualityLevelInd>();
            if (ind.froClassNo == 7) all.emplace_back(ind.froId, ind.clockQuality);
        }
        mp().clearLog();
        return all;
    }
    using Levels = std::vector<std::pair<u32, u32>>;
};
using Levels = EsmcUnit::Levels;

TEST(EsmcUnit, WaitsForAServiceThatRefusesUntilItsNextServer)
{
    struct Case { const char* what; std::function<void(sim::SlowpiServer&)> script; u32 state; };
    for (const Case& c : std::vector<Case>{
             {"suspended", [](auto& s) { s.setAnswer(sim::Answer::Suspend); }, IF_DOWN},
             {"rejected", [](auto& s) { s.setAnswer(sim::Answer::Reject); }, IF_DOWN},
             {"of an older version", [](auto& s) { s.highestPv = 0; }, IF_DOWN},
             {"silent", [](auto& s) { s.setAnswer(sim::Answer::Silent); }, IF_INITIATING},
             {"not there yet", [](auto& s) { s.die(); }, IF_INITIATING}}) {
        SCOPED_TRACE(c.what);
        EsmcUnit unit{c.script};
        EXPECT_EQ(unit.state(), c.state);
        EXPECT_EQ(unit.a.received(), 0u);
        unit.slowpi().setAnswer(sim::Answer::Accept);
        unit.slowpi().highestPv = 1;
        unit.run(5);
        EXPECT_EQ(unit.state(), c.state);              // nobody asks again by himself
        unit.slowpi().die();
        unit.run(1);
        unit.slowpi().start();
        unit.run(3);
        EXPECT_EQ(unit.state(), IF_QL_RECEIVED);
        EXPECT_EQ(unit.slowpi().connections(), 1u);
    }
}

TEST(EsmcUnit, ARefusedSubscriptionWaitsForTheNextOrder)
{
    EsmcUnit unit{[](auto& s) { s.subscribeResult = 5; }};
    EXPECT_EQ(unit.state(), IF_UP);
    EXPECT_EQ(unit.traces("Negative result in subscription rsp (res = 5)"), 1u);
    unit.slowpi().subscribeResult = 0;
    unit.run(10);
    EXPECT_EQ(unit.state(), IF_UP);
    unit.mp().superviseByName("a", true);
    unit.run(2);
    EXPECT_EQ(unit.state(), IF_QL_RECEIVED);

    unit.slowpi().unsubscribeResult = 6;
    unit.mp().superviseByName("a", false);
    unit.run(0.1);
    EXPECT_EQ(unit.traces("Negative result in unsubscription rsp (res = 6)"), 1u);
    EXPECT_EQ(unit.state(), IF_QL_RECEIVED);
    EXPECT_TRUE(unit.slowpi().subscribed());
}

TEST(EsmcUnit, ADeadServiceRaisesTheAlarmAndTheNextOneEndsIt)
{
    EsmcUnit unit;
    unit.levels();
    unit.slowpi().die();
    unit.run(20);
    EXPECT_EQ(unit.state(), IF_INITIATING);
    EXPECT_EQ(unit.mp().count(KVD_TUIIF_PDU_MISSING_IND), 1u);
    EXPECT_EQ(unit.levels(), (Levels{{21, 255}}));
    unit.slowpi().start();
    unit.run(2);
    EXPECT_EQ(unit.mp().count(KVD_TUIIF_PDU_MISSING_IND), 1u);
    EXPECT_EQ(unit.levels(), (Levels{{21, 2}}));
    EXPECT_EQ(unit.now().pduMissingAlarmRaised, 0u);
    EXPECT_EQ(unit.a.eventsReceived(), 2u);
}

/// Both buffers idle, armed, or with the service away: none is a leak, and the next load begins anew.
TEST(EsmcUnit, RestartsLeaveNothingBehind)
{
    EsmcUnit unit;
    unit.node.restartWarm();
    unit.run(8);
    EXPECT_EQ(unit.state(), IF_QL_RECEIVED);
    EXPECT_EQ(unit.slowpi().connections(), 2u);
    unit.mp().superviseByName("a", false);
    unit.run(1);
    EXPECT_FALSE(unit.now().heartBeat.timer.runs());
    unit.node.restartWarm();
    unit.slowpi().die();
    unit.run(8);
    EXPECT_EQ(unit.state(), IF_INITIATING);
    unit.node.restartCold();
    unit.slowpi().start();
    unit.run(8);
    EXPECT_EQ(unit.state(), IF_QL_RECEIVED);
}

}  // namespace
