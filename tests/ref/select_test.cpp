// Selections carried out: hardware route, regulator, client view, in their order and when a step
// fails.
#include "iif/kvd_iifadm_orders.h"
#include "node/sig.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref_int.h"
#include "reg/kvd_reg_pll.h"
#include "ref_bench.h"
#include "ref_unit.h"
#include "unit/kvd_ref_table.h"

namespace {

using namespace bench;

/// Route bits of the reference select register.
constexpr u32 ROUTE = 0x318F;

u32 route(RefUnit& unit) { return unit.selectRegister() & ROUTE; }

TEST(Selection, AndSupervisionFollowAPortToItsOtherLineAndEndWithIt)
{
    sim::NodeConfig config = refConfig();
    std::erase_if(config.ports, [](const auto& port) { return port.line == 3; });
    RefUnit unit(config);
    unit.node.rawToggles = 0x18;                           // lines 3 and 4
    unit.supervise(PDH_SDH_REF, true, LINE_FRO + 4);
    unit.select(PDH_SDH_REF, LINE_FRO + 4);
    ASSERT_EQ(unit.regulatorRef(), 5u);
    unit.node.phyPorts().change(4, {3, LINE_FRO + 4, 1, 1, 0});
    unit.ms(1);
    EXPECT_EQ(unit.regulatorRef(), 4u);
    EXPECT_EQ(unit.row(4).supervisionStatus, 0u);
    EXPECT_EQ(unit.refStatus(3), REF_STATUS_ON);
    EXPECT_EQ(unit.tuiifRefState(), 0x8u);
    unit.node.phyPorts().disconnect();
    unit.ms(1);
    EXPECT_EQ(unit.row(3).supervisionStatus, 0u);
    EXPECT_EQ(unit.tuiifRefState(), 0u);
}

TEST(Selection, MovesTheBoardsRouteTheRegulatorAndTheClients)
{
    struct Case { const char* what; u8 refType; u32 froId, route, regulator; };
    RefUnit unit;
    for (const Case& c :
         {Case{"PDH 1", PDH_SDH_REF, LINE_FRO, 0x108, 1}, Case{"PDH 2", PDH_SDH_REF, LINE_FRO + 1, 0x109, 2},
          Case{"PDH 4", PDH_SDH_REF, LINE_FRO + 3, 0x10B, 4},
          Case{"SDH", PDH_SDH_REF, LINE_FRO + 4, 0x10C, 5}, Case{"GPS", GPS_REF, 7, 0, 6},
          Case{"Ethernet A", ETHA_REF, 7, 0x1108, 10}, Case{"Ethernet B", ETHB_REF, 7, 0x2108, 10},
          Case{"Ethernet C", ETHC_REF, 7, 0x3108, 10}, Case{"NTP leaves the route", NTP_REF, 7, 0x3108, 8},
          Case{"packet frequency leaves it", PACKET_FREQ_REF, 7, 0x3108, 12},
          Case{"packet time leaves it", PACKET_TIME_REF, 7, 0x3108, 13},
          Case{"IDL2 leaves it", IDL2_REF, 7, 0x3108, 14},
          Case{"IDL1 comes in by its own interrupt", IDL1_REF, 7, 0x008, 9},
          Case{"the time input shares the pulse", HPTSI_REF, 7, 0, 15},
          Case{"Ethernet B again", ETHB_REF, 7, 0x2108, 10},
          Case{"none", NO_REF, 0xFFFFFFFF, 0x008, TU_SR_NO_REF}}) {
        SCOPED_TRACE(c.what);
        unit.select(c.refType, c.froId, 9);
        EXPECT_EQ(route(unit), c.route);
        EXPECT_EQ(unit.regulatorRef(), c.regulator);
        EXPECT_EQ(unit.selectedRef(), c.refType);
        EXPECT_EQ(unit.clientRef(), c.refType);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6TuIifAdm_activRefFroId), c.froId);
    }
}

TEST(Selection, ThatTheBoardCantRouteStopsBeforeTheRegulator)
{
    RefUnit unit(refConfig(1, 1));                         // board type 1 has no Ethernet port A
    unit.select(PDH_SDH_REF, LINE_FRO);
    unit.select(ETHA_REF);
    EXPECT_EQ(unit.traces("HALI_subscribeRefTime failed with status: 1 for HALI_ETH_REF_A"), 1u);
    EXPECT_EQ(unit.selectedRef(), ETHA_REF);               // the block has moved on all the same
    EXPECT_EQ(unit.node.inProgram(KvdLoz6TuRef_prevSelRef), PDH_SDH_REF);
    EXPECT_EQ(unit.regulatorRef(), TU_SR_PDH_REF1);
    EXPECT_EQ(unit.clientRef(), PDH_SDH_REF);
}

TEST(Selection, OnABoardThatRoutesNothingAndOfNoTypeIsNone)
{
    RefBench bench(0);
    bench.inManager([] {
        KvdLoz6TuRef_setGpsExtToggle(3);
        for (const u8 refType :
             {NO_REF, TU_REF, GPS_REF, PDH_SDH_REF, IDL1_REF, GPSOSL_REF, SOCPRI_REF, RefType{99}})
            EXPECT_FALSE(KvdLoz6TuRef_selectSynchRef(refType, 1, 2)) << int{refType};
    });
}

TEST(Selection, OfTheCommonInputWithoutToggleLeavesHardwareAndRegulator)
{
    RefUnit unit;
    unit.select(PDH_SDH_REF, LINE_FRO);
    const u32 before = route(unit);
    unit.select(TU_REF, 11, 12);
    EXPECT_EQ(unit.traces("Neither GPS nor EXT toggle detected. No reference selected."), 1u);
    EXPECT_EQ(route(unit), before);
    EXPECT_EQ(unit.regulatorRef(), TU_SR_PDH_REF1);
    EXPECT_EQ(unit.selectedRef(), TU_REF);
    EXPECT_EQ(unit.clientRef(), TU_REF);
}

TEST(Selection, OfALineOutOfRange)
{
    struct Case { u32 line; const char* trace; u32 regulator; };
    for (const Case& c :
         {Case{4, "Incorrect lineNo", TU_SR_SDH_REF},
          Case{5, "Incorrect lineNo=5. expected value between 0-4", TU_SR_NO_REF},
          Case{11, "Incorrect lineNo=11. expected value between 0-4", TU_SR_NO_REF},
          Case{12, "port line number out of range =12. selectSynchRef ignored", TU_SR_PDH_REF2}}) {
        SCOPED_TRACE(c.line);
        sim::NodeConfig config = refConfig();
        config.ports[4].line = c.line;
        RefUnit unit(config);
        unit.select(PDH_SDH_REF, LINE_FRO + 1);
        const u32 before = route(unit);
        unit.select(PDH_SDH_REF, LINE_FRO + 4);
        EXPECT_EQ(unit.traces(c.trace), c.line == 4 ? 0u : 1u);
        EXPECT_EQ(unit.regulatorRef(), c.regulator);
        EXPECT_EQ(route(unit) == before, c.line != 4);
    }
    RefUnit unit;
    unit.select(PDH_SDH_REF, LINE_FRO + 1);
    unit.node.phyPorts().remove(3);
    unit.ms(1);
    unit.select(PDH_SDH_REF, 0xFFFFFFFF);                  // a free row of the port table has it
    EXPECT_EQ(unit.traces("port line number out of range =65535. selectSynchRef ignored"), 1u);
    unit.select(PDH_SDH_REF, 4711);                        // no port has it: not the first line's
    EXPECT_EQ(unit.regulatorRef(), TU_SR_PDH_REF2);
}

TEST(Selection, OnASlaveMovesHardwareAndRegulatorButNotTheClients)
{
    RefUnit unit(refConfig(0));
    const u8 client = unit.clientRef();
    const u32 before = route(unit);
    unit.select(ETHB_REF);
    EXPECT_EQ(unit.traces("selectSynchRef (12) received for slave tu. Request ignored"), 1u);
    EXPECT_NE(route(unit), before);
    EXPECT_EQ(unit.regulatorRef(), TU_ETH_REF);
    EXPECT_EQ(unit.clientRef(), client);
    unit.select(GPSOSL_REF);
    EXPECT_EQ(unit.regulatorRef(), TU_SR_GPSOSL_REF);
    EXPECT_EQ(unit.clientRef(), client);
    EXPECT_FALSE(unit.traced("selectedRef (12)") || unit.traced("selectedRef (14)")) << "no update";
    unit.select(IDL2_REF);                                 // links are a slave's own
    EXPECT_EQ(unit.clientRef(), IDL2_REF);
}

TEST(GpsOslHoldover, RunsFiveMinutesUnlessItsLoopIsTakenOver)
{
    RefBench bench;
    bench.firstStart();
    auto runs = [&] { return bench.node.inProgram(KvdLoz6TuRef_gpsOslHoldoverTimerRuns); };
    bench.inManager([] { KvdLoz6TuRef_startGpsOslHoldover(); });
    bench.inManager([] { KvdLoz6TuRef_selectSynchRef(NTP_REF, 1, 2); });
    bench.runTo(299'999);
    EXPECT_TRUE(runs());
    bench.runTo(300'000);
    EXPECT_FALSE(runs());
}

TEST(GpsOslLoop, EndsWithItsReferenceThatGaveNoPhaseYet)
{
    for (const u32 pllState : {PLL_PreJumpStart, PLL_PreJumpHist}) {
        RefBench bench;
        bench.firstStart();
        bench.inManager([&] {
            KvdLoz6TuRef_selectSynchRef(GPSOSL_REF, 1, 2);
            KvdLoz6TuReg_pll_setState(pllState);
            KvdLoz6TuRef_selectSynchRef(NO_REF, 1, 2);
        });
        EXPECT_EQ(bench.node.inProgram(KvdLoz6TuReg_pllState), PLL_Uninitialized);
    }
}

TEST(GpsOslHoldover, EndsWhenItsReferenceIsSelectedAgainOnAMaster)
{
    for (u8 masterSlaveMode : {u8{0}, u8{1}}) {
        SCOPED_TRACE(int{masterSlaveMode});
        RefBench bench;
        bench.firstStart();
        bench.inManager([&] {
            auto* ind = node::make<KvdTuiifChangeMasterTuInd>(KVD_TUIIF_CHANGE_MASTER_TU_IND);
            ind->timeMode = 1;
            ind->masterSlaveMode = masterSlaveMode;
            Signal* sig = reinterpret_cast<Signal*>(ind);
            KvdLoz6TuIifAdm_dispatch(sig);
            ose::free_buf(&sig);
            KvdLoz6TuRef_startGpsOslHoldover();
            KvdLoz6TuRef_selectSynchRef(GPSOSL_REF, 1, 2);
        });
        EXPECT_EQ(bench.node.inProgram(KvdLoz6TuRef_gpsOslHoldoverTimerRuns), masterSlaveMode == 0);
    }
}

}  // namespace
