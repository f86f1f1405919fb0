// The program's frame: load, start-up, dispatch, restart kinds, the halted state.
#include "base/trace_groups.h"
#include "base/tsv_if_support.h"
#include "frame/kvd_load.h"
#include "frame/kvd_mgr_proc.h"
#include "node/sig.h"
#include "node/trace.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "tests/support/unit_bench.h"

#include <gmock/gmock.h>

#include <bit>

namespace {

using bench::Unit;

constexpr u8 CLOCK_FAILURE = 6;

struct Started : Unit {
    explicit Started(const sim::NodeConfig& config = {}) : Unit(config)
    {
        node.powerOn();
        run(5);
    }
};

TEST(Load, SetsTheEnvironmentAndTheTraceGroupsAndFitsItsMemory)
{
    Started unit;
    unit.node.system().call(*unit.node.program(), [] {
        const BLOCK own = ose::get_bid(ose::current_process());
        EXPECT_STREQ(ose::get_env(own, "OSE_INET"), "ose_sock_client");
        EXPECT_STREQ(ose::get_env(own, "MALLOC_RETURN_ONLY_ON_SUCCESS"), "TRUE");
        EXPECT_STREQ(ose::get_env(own, "TARSO_TEMI_NO_EQ_RESOURCES"), "1");
        EXPECT_STREQ(node::traceGroupName(0), "KVD_BVQ_LOZ6_TUMGR_PROC");
        EXPECT_STREQ(node::traceGroupName(48), "IPET_SLOWPI_IF");
        EXPECT_STREQ(node::traceGroupName(49), "");
    });
    EXPECT_LT(unit.node.program()->dataSize(), 12u << 20);   // half of it the histories of radio links
    EXPECT_LT(unit.node.program()->poolPeak(), 300'000u);
}

TEST(Load, MainThreadEndsTheModuleOnItsKillSignalOnly)
{
    struct Case { SIGSELECT sigNo; bool byError; };
    for (const Case& c : {Case{252, false}, Case{0x12345, true}}) {
        SCOPED_TRACE(c.sigNo);
        Started unit;
        unit.node.system().inject(bench::asBytes(c.sigNo), unit.node.system().find("kvdloz6_lm"), 0);
        unit.run(1);
        EXPECT_EQ(unit.manager(), 0u);
        ASSERT_EQ(unit.node.programEnds().size(), 1u);
        EXPECT_EQ(unit.node.programEnds()[0].code != 0, c.byError);
    }
}

TEST(Manager, ReportsAForeignSignalWithItsSenderAndGoesOn)
{
    Started unit;
    unit.sendFrom("stranger", SIGSELECT{0x7777});
    unit.run(1);
    EXPECT_TRUE(unit.traced("Unexpected signal 30583 received from stranger"));
    const PROCESS gone = unit.sendFrom("passer", SIGSELECT{0x7776});
    unit.node.system().kill(gone);
    unit.run(1);
    EXPECT_TRUE(unit.traced("Unexpected signal 30582 received from an unknown process"));
    EXPECT_NE(unit.node.mainProcessor().clockState(), 7);
    std::string text;
    EXPECT_EQ(unit.command("kvdinfo tumgr", text), 0);
}

TEST(Manager, RefusesSignalsShorterThanTheirLayout)
{
    Started unit;
    for (const SIGSELECT sigNo :
         {KVD_TUIIF_SYNCINFO_REQ, KVD_TUIIF_BOARD_FAILURE_RECOVERY_IND, KVD_TUIIF_SET_GPSOUT_IND,
          KVD_TUIIF_SYNCH_PATH_SUP_IND, KVD_TUIIF_SELECT_SYNCH_REF_IND, KVD_TUIIF_CHANGE_MASTER_TU_IND})
        unit.sendFrom("short", sigNo);
    unit.run(1);
    EXPECT_EQ(unit.node.ledRequests(), 0u);
    EXPECT_NE(unit.manager(), 0u);
}

/// Asks for synchronisation info; the text that the asker got, and the answer's size.
std::string syncInfo(Unit& unit, u8 option, u32 clientRef, u32& size)
{
    std::string text = "no answer";
    const PROCESS manager = unit.manager();
    unit.node.system().spawn("client", 20, [&, manager] {
        Signal* req = ose::alloc(sizeof(KvdTuiifSyncinfoReq), KVD_TUIIF_SYNCINFO_REQ);
        reinterpret_cast<KvdTuiifSyncinfoReq*>(req)->option = option;
        reinterpret_cast<KvdTuiifSyncinfoReq*>(req)->clientRef = clientRef;
        ose::send(&req, manager);
        Signal* cfm = ose::receive(ose::ANY_SIGNAL);
        if (cfm->sigNo == KVD_TUIIF_SYNCINFO_CFM
            && reinterpret_cast<KvdTuiifSyncinfoCfm*>(cfm)->clientRef == clientRef) {
            size = ose::sigsize(&cfm);
            text = reinterpret_cast<const char*>(cfm) + 8;
        }
        ose::free_buf(&cfm);
        ose::receive(ose::ANY_SIGNAL);
    });
    unit.run(0.1);
    return text;
}

TEST(Manager, AnswersSynchronisationInfoToWhoeverAsked)
{
    Started unit;
    u32 size = 0;
    EXPECT_EQ(syncInfo(unit, 5, 77, size), "");
    EXPECT_EQ(size, 13u);
    EXPECT_TRUE(unit.traced("Unexpected syncinfo option received"));
    EXPECT_THAT(syncInfo(unit, 3, 78, size),
                testing::HasSubstr("Switches between references and phase offset difference beween them"));
    EXPECT_EQ(syncInfo(unit, 2, 80, size), "\n***** Reference PDV measurements *****\n");
    EXPECT_EQ(syncInfo(unit, 4, 81, size), "***** History of grandmasters *****\n");
    const std::string all = syncInfo(unit, 1, 79, size);
    EXPECT_THAT(all, testing::HasSubstr("Switches between references"));
    EXPECT_TRUE(all.ends_with("\n\n"));
    EXPECT_EQ(size, all.size() + 13);
    EXPECT_EQ(unit.node.mainProcessor().count(KVD_TUIIF_SYNCINFO_CFM), 0u);
}

TEST(Manager, SwitchesTheRedLedWithTheBoardFailureAlarm)
{
    Started unit;
    unit.node.mainProcessor().boardFailure(true);
    unit.run(1);
    EXPECT_EQ(unit.node.led(), sim::Led::RedOn);
    unit.node.mainProcessor().boardFailure(false);
    unit.run(1);
    EXPECT_EQ(unit.node.led(), sim::Led::RedOff);
    unit.node.ledResult = 3;
    unit.node.mainProcessor().boardFailure(true);
    unit.run(1);
    EXPECT_TRUE(unit.traced("Switch on red LED failed. TarsoVii_visualIndRequest returned =3"));
    EXPECT_EQ(unit.traces("red LED failed"), 1u);
}

TEST(Manager, RepeatsAStoredFsyncSettingAndRemovesOthers)
{
    struct Case { const char* content; bool kept; u32 word; };
    for (const Case& c : {Case{"kvdsetfsyncreg on true ", true, 0x80},
                          Case{"kvdsetfsyncreg on 60 BFN rising true", true, 0x160},
                          Case{"kvdsetfsyncreg on false ", false, 0}, Case{"true b c d e f g h ", false, 0},
                          Case{"true kvdsetfsyncreg_1", false, 0}}) {
        SCOPED_TRACE(c.content);
        Unit unit;
        unit.node.volumes().write("/d/kvdsetfsyncreg.txt", c.content);
        unit.node.powerOn();
        unit.run(10);
        EXPECT_EQ(unit.node.volumes().exists("/d/kvdsetfsyncreg.txt") == 1, c.kept);
        EXPECT_EQ(unit.node.board().fsyncWord() & 0x3E0, c.word);
    }
}

/// Watches the board's interrupt line at the node.
struct LineNode : sim::Node {
    using Node::Node;
    int adiEnableExtInt(u32 vector) override { return isOpen = true, Node::adiEnableExtInt(vector); }
    int adiDisableExtInt(u32 vector) override { return isOpen = false, Node::adiDisableExtInt(vector); }
    bool isOpen = false;
};

TEST(Shutdown, LeavesNoInterruptEnabled)
{
    bench::UnitIn<LineNode> unit;
    unit.node.powerOn();
    unit.run(5);
    EXPECT_TRUE(unit.node.isOpen);
    unit.node.shutdown();
    unit.run(1);
    EXPECT_FALSE(unit.node.isOpen);
    EXPECT_FALSE(unit.node.board().interruptPending());
}

TEST(HaltedState, OnlyRaisesTheAlarm)
{
    Unit unit;
    unit.node.parameters().adiResult = 1;          // no board type: the hardware can't be initiated
    unit.node.powerOn();
    unit.run(20);
    unit.node.mainProcessor().boardFailure(false);
    unit.run(1);
    EXPECT_EQ(unit.node.ledRequests(), 0u);
    unit.node.mainProcessor().boardFailure(true);
    unit.run(1);
    EXPECT_EQ(unit.node.led(), sim::Led::RedOn);
}

// Out of running, too: the sensor fails, and neither a tick nor an interrupt moves the unit any more.
TEST(HaltedState, OfAUnitThatRanIsToldToEachMainProcessor)
{
    Started unit;
    unit.node.board().faults.temperatureInvalid = true;
    unit.run(30);
    ASSERT_TRUE(unit.traced("WARNING: LOZ6 HW diagnostic failed, halting process"));
    unit.node.board().faults.temperatureInvalid = false;
    for (u32 round = 0; round < 3; ++round) {
        unit.node.mainProcessor().restart(60 * ose::SEC);
        unit.run(30);
        const u64 divider = std::bit_cast<u64>(unit.node.board().divider());
        unit.run(60);
        EXPECT_EQ(unit.node.mainProcessor().clockState(), CLOCK_FAILURE);
        EXPECT_EQ(std::bit_cast<u64>(unit.node.board().divider()), divider);
    }
    EXPECT_EQ(unit.traces("WARNING: LOZ6 HW diagnostic failed, halting process"), 4u);
}

TEST(Directory, LooksServicesUpAndForgetsTheDead)
{
    Started unit;
    ose::System& system = unit.node.system();
    const PROCESS server = system.spawn("aService", 20, [] { ose::receive(ose::ANY_SIGNAL); });
    const PROCESS directory = system.find("Tsv_IfSupport_proc");
    const auto lookUp = [&](const char* name) {
        TsvIfLookup answer{};
        system.spawn("proxy", 21, [&, name] {
            TsvIfLookup* lookup = node::make<TsvIfLookup>(TSV_IF_LOOKUP_REQ);
            std::snprintf(lookup->service, sizeof lookup->service, "%s", name);
            node::sendTo(directory, lookup);
            Signal* back = ose::receive(ose::ANY_SIGNAL);
            answer = *reinterpret_cast<TsvIfLookup*>(back);
            ose::free_buf(&back);
        });
        unit.run(0.1);
        return answer;
    };
    EXPECT_EQ(lookUp("nobody").attached, 0u);
    EXPECT_EQ(lookUp("aService").serverPid, server);
    EXPECT_EQ(lookUp("aService").attached, 1u);
    system.kill(server);
    unit.run(0.1);
    EXPECT_EQ(lookUp("aService").attached, 0u);
    const std::string longest(sizeof(TsvIfLookup::service) - 1, 'x');
    system.spawn(longest, 20, [] { ose::receive(ose::ANY_SIGNAL); });
    EXPECT_EQ(lookUp(longest.c_str()).attached, 1u);
    for (int i = 0; i < 40; ++i)         // more than it has room for
        EXPECT_EQ(lookUp(("nobody" + std::to_string(i)).c_str()).attached, 0u);
    EXPECT_EQ(lookUp(longest.c_str()).attached, 1u);
}

}  // namespace
