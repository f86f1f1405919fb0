// Physical ports: what the port service announces, what the main processor is told, which line a reference
// has.
#include "node/phyport.h"
#include "ref/kvd_phyadm.h"
#include "ref/kvd_ref.h"
#include "sig/tuiif_sig.h"
#include "ref_unit.h"
#include "unit/kvd_ref_table.h"

#include <vector>

namespace {

constexpr u32 NONE = 0xFFFFFFFF;

struct PhyUnit : bench::RefUnit {
    explicit PhyUnit(std::vector<sim::PhyPort> ports = {}) : RefUnit(config(std::move(ports)))
    {
        node.mainProcessor().clearLog();
    }
    static sim::NodeConfig config(std::vector<sim::PhyPort> ports)
    {
        sim::NodeConfig c = bench::refConfig();
        c.ports = std::move(ports);
        return c;
    }
    void announce(u32 line, u32 froId, u32 stateControl, u16 opState = 1, u16 adState = 1)
    {
        toManager(PhyportPortInfoInd{PHYPORT_PORT_INFO_IND, 1, line, froId, stateControl, opState, adState});
        ms(1);
    }
    void syncState(u32 line, u32 state)
    {
        toManager(PhyportSyncStateInd{PHYPORT_SYNC_STATE_IND, line, state});
        ms(1);
    }
    void supervise(u32 froId, bool on) { RefUnit::supervise(PDH_SDH_REF, on, froId, 1), ms(1); }
    /// froIds reported with that status control, in order.
    std::vector<std::vector<u32>> reports()
    {
        std::vector<std::vector<u32>> list;
        for (const sim::MpRecord& r : node.mainProcessor().all(KVD_TUIIF_ET_FROID_IND)) {
            const auto ind = *r.as<KvdTuiifEtFroidInd>();
            list.push_back({ind.lineNum, ind.froId, ind.statusControl});
        }
        node.mainProcessor().clearLog();
        return list;
    }
    std::size_t stateReports() { return node.mainProcessor().count(KVD_TUIIF_REF_STATUS_CHANGE_IND); }
    u32 lineOf(u32 froId)
    {
        u32 line = 0;
        node.system().call(*node.program(), [&] { line = KvdLoz6TuPhyAdm_lineOfFroId(froId); });
        return line;
    }
    PhyPortInfo port(u32 n) { return node.inProgram([n] { return KvdLoz6TuPhyAdm_row(n); }); }
};

using Reports = std::vector<std::vector<u32>>;

TEST(PhyPorts, AreReportedAsTheServiceAnnouncesThemAndFillFiveRows)
{
    struct Step { u32 line, froId, control; Reports reports; const char* trace; };
    PhyUnit unit;
    EXPECT_TRUE(unit.traced("Successfully registered to PHYPORTINFO IF"));
    EXPECT_TRUE(unit.traced("Connected to PHY_PORTINFO (cepId=1)"));
    EXPECT_EQ(unit.lineOf(NONE), 65535u);                    // a free row's
    for (const Step& s : {
             Step{2, 30, 0, {{2, 30, 1}}, ""},
             Step{2, 30, 2, {{2, 30, 0}, {2, 30, 1}}, ""},   // the same again: gone and added
             Step{3, 30, 2, {{2, 30, 0}, {3, 30, 1}}, ""},   // moves to another line
             Step{1, 31, 0, {{1, 31, 1}}, ""},               // whose line the first one takes
             Step{1, 30, 2, {{3, 30, 0}, {1, 31, 0}, {1, 30, 1}}, ""},
             Step{3, 30, 2, {{1, 30, 0}, {3, 30, 1}}, ""},
             Step{3, 21, 1, {}, "Failed to delete entry in portInfoTable (lineNo=3, froId=21 not found)"},
             Step{2, 30, 1, {}, "Failed to delete entry in portInfoTable (lineNo=2, froId=30 not found)"},
             Step{3, 30, 3, {}, "Received unknown stateControl value"},
             Step{0, 40, 0, {{0, 40, 1}}, ""}, Step{1, 41, 0, {{1, 41, 1}}, ""},
             Step{2, 42, 0, {{2, 42, 1}}, ""}, Step{4, 44, 0, {{4, 44, 1}}, ""},
             Step{5, 45, 0, {}, "Failed to insert new entry in portInfoTable (no space left)"},
             Step{1, 41, 1, {{1, 41, 0}}, ""}, Step{5, 45, 0, {{5, 45, 1}}, ""}}) {
        SCOPED_TRACE(std::to_string(s.line) + " " + std::to_string(s.froId));
        unit.announce(s.line, s.froId, s.control);
        EXPECT_EQ(unit.reports(), s.reports);
        EXPECT_TRUE(unit.traced(s.trace));
    }
    struct Short { SIGSELECT sigNo; u32 cepId, line; };
    unit.toManager(Short{PHYPORT_PORT_INFO_IND, 1, 3});
    EXPECT_EQ(unit.lineOf(30), 3u);
    EXPECT_EQ(unit.lineOf(45), 5u);
    EXPECT_EQ(unit.lineOf(41), 0u);
    EXPECT_TRUE(unit.traced("Failed to return port line number (froId 41 not found in portInfoTable)"));
    EXPECT_EQ(unit.lineOf(NONE), 0u);                        // no row is free
}

TEST(PhyPorts, UnderSupervisionChangeInPlace)
{
    PhyUnit unit;
    unit.announce(1, 20, 0);
    unit.announce(2, 30, 0);
    unit.supervise(20, true);
    EXPECT_EQ(unit.stateReports(), 1u);
    unit.reports();

    unit.announce(4, 20, 2, 0, 2);                           // another line, the last
    EXPECT_TRUE(unit.traced("Changing port info in portInfoTable (lineNo=1->4, froId=20->20)"));
    EXPECT_EQ(unit.row(4).supervisionStatus, 1u);
    const auto change =
        *unit.node.mainProcessor().last(KVD_TUIIF_REF_STATUS_CHANGE_IND)->as<KvdTuiifRefStatusChangeInd>();
    EXPECT_TRUE(change.froId == 20 && change.operState == 0 && change.admState == 2);
    EXPECT_EQ(change.syncState, 2u);                         // nothing was said of it yet: DEAD
    unit.announce(4, 21, 2);                                 // another froId

    unit.announce(2, 21, 2);
    EXPECT_TRUE(unit.traced("lineNo: 2 is not available, used by froId=30 "));
    unit.announce(4, 30, 2);
    EXPECT_TRUE(unit.traced("froId: 30 is not available, used by lineNo=2"));
    EXPECT_EQ(unit.lineOf(21), 4u);
    EXPECT_EQ(unit.lineOf(30), 2u);
    EXPECT_EQ(unit.reports().size(), 0u);   // its place as a reference was never given up
}

TEST(PhyPorts, SyncStatesOfSupervisedLinesAreReported)
{
    PhyUnit unit;
    unit.announce(1, 20, 0);
    struct Case { u32 state; u8 stored; };
    for (const Case& c : {Case{0, 0}, Case{1, 1}, Case{2, 2}, Case{3, 2}}) {
        unit.syncState(1, c.state);
        EXPECT_EQ(unit.port(0).syncState, c.stored) << c.state;
    }
    EXPECT_TRUE(unit.traced("Unexpected syncState=3 received for froId=20"));
    unit.syncState(9, 1);
    EXPECT_TRUE(unit.traced("Failed to update entry in portInfoTable (lineNo 9 not found)"));
    EXPECT_EQ(unit.stateReports(), 0u);
    unit.supervise(20, true);
    unit.supervise(20, true);
    EXPECT_TRUE(unit.traced("For froId=20 the isSupervised flag is already set to 1"));
    EXPECT_EQ(unit.stateReports(), 1u);
    unit.syncState(1, 0);
    EXPECT_EQ(unit.stateReports(), 2u);
    unit.supervise(20, false);
    EXPECT_EQ(unit.stateReports(), 2u);
    unit.supervise(99, true);
    EXPECT_TRUE(unit.traced("Failed to set syncRef flag (froId 99 not found in portInfoTable)"));
    EXPECT_TRUE(unit.traced("SyncRefNo out of range =0. syncPathSupInd ignored"));
    EXPECT_EQ(unit.row(0).supervisionStatus, 0u) << "not line 0";
}

TEST(PhyPorts, DeletedLineEndsItsPathsSupervision)
{
    PhyUnit unit;
    unit.announce(1, 20, 0);
    unit.supervise(20, true);
    EXPECT_EQ(unit.row(1).supervisionStatus, 1u);
    unit.announce(1, 20, 1);
    EXPECT_EQ(unit.row(1).supervisionStatus, 0u);
    EXPECT_EQ(unit.refStatus(1), REF_STATUS_UNK);
}

TEST(PhyService, ThatDiesTakesItsSupervisedPortsAndIsFoundAgain)
{
    PhyUnit unit({{0, 10, 1, 1, 0}, {1, 11, 1, 1, 0}});
    EXPECT_EQ(unit.port(0).syncState, 0u);
    unit.supervise(11, true);
    unit.reports();
    unit.node.phyPorts().die();
    unit.run(0.1);
    EXPECT_TRUE(unit.traced("Disonnected from PHY_PORTINFO (cepId=1)"));
    EXPECT_EQ(unit.reports(), (Reports{{1, 11, 0}}));
    unit.node.phyPorts().start();
    unit.run(0.1);
    EXPECT_EQ(unit.lineOf(11), 1u);
    EXPECT_EQ(unit.lineOf(10), 0u);
}

TEST(PhyPorts, SurviveAPeerRestartUnsupervised)
{
    PhyUnit unit({{4, 14, 1, 1, 0}});
    unit.supervise(14, true);
    unit.node.mainProcessor().restart(100 * ose::MS);
    unit.run(2);
    ASSERT_TRUE(unit.node.mainProcessor().connected());
    EXPECT_EQ(unit.port(0).isSupervised, 0u);
    EXPECT_EQ(unit.lineOf(14), 4u);
    EXPECT_EQ(unit.reports().back(), (std::vector<u32>{4, 14, 1}));
}

}  // namespace
