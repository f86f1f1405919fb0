// Paths: hold-off, wait-to-restore, the common input, start and end of supervision, as the main
// processor and the detectors bring them about.
#include "node/trace.h"
#include "ref/kvd_phyadm.h"
#include "ref_unit.h"
#include "unit/kvd_ref_table.h"

#include <array>

namespace {

using namespace bench;

/// A path of each kind and what its detector shows.
struct Path {
    const char* name;
    u8 refType;
    u32 row, froId, raw, stateBit;
};
constexpr Path PATHS[] = {
    {"PDH line 1",         PDH_SDH_REF, 1,  LINE_FRO + 1, RAW_PDH2, 0x2},
    {"SDH line",           PDH_SDH_REF, 4,  LINE_FRO + 4, RAW_SDH,  0x10},
    {"external frequency", TU_REF,      5,  7,            RAW_EXT,  0x20},
    {"external 1PPS",      TU_REF,      5,  7,            RAW_1PPS, 0x20},
    {"GPS",                GPS_REF,     6,  7,            RAW_1PPS, 0x80},
    {"HPTSI",              HPTSI_REF,   7,  7,            RAW_1PPS, 0x200},
    {"Ethernet A",         ETHA_REF,    8,  7,            RAW_ETHA, 0},
    {"Ethernet C",         ETHC_REF,    10, 7,            RAW_ETHC, 0},
    {"GPS out sync link",  GPSOSL_REF,  11, 7,            RAW_1PPS, 0x2000},
};

TEST(Path, OfNoRowOrNoTypeIsTheFirst)
{
    RefUnit unit;
    EXPECT_TRUE(unit.node.inProgram([] { return &KvdLoz6TuRef_row(REF_ROWS) == &KvdLoz6TuRef_row(0); }));
    EXPECT_EQ(unit.node.inProgram([] { return KvdLoz6TuRef_rowOfRefType(99); }), 0u);
}

TEST(Path, IsOnFromTheStartAndItsEndStopsTheFilterAndIsMostlyNotSent)
{
    for (const Path& path : PATHS) {
        SCOPED_TRACE(path.name);
        RefUnit unit;
        unit.node.rawToggles = path.raw;
        unit.supervise(path.refType, true, path.froId);
        EXPECT_EQ(unit.refStatus(path.row), REF_STATUS_ON);      // no waiting at the start
        EXPECT_EQ(unit.tuiifRefState(), path.stateBit);
        unit.toggles(0);                                   // the hold-off runs
        unit.ms(100);
        const std::size_t before = unit.node.mainProcessor().count(KVD_TUIIF_BVQ_STATUS_IND);
        unit.supervise(path.refType, false, path.froId);
        const RefDesc row = unit.row(path.row);
        EXPECT_EQ(row.supervisionStatus, 0u);
        EXPECT_EQ(row.refStatus, REF_STATUS_UNK);
        EXPECT_EQ(row.filterType, NO_FILTER);
        EXPECT_FALSE(row.filterTimer.runs());
        EXPECT_EQ(unit.tuiifRefState(), 0u);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6TuRef_refStatusBits), 0u);
        unit.ms(70'000);
        EXPECT_EQ(unit.refStatus(path.row), REF_STATUS_UNK);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6TuRef_gpsExtToggle), NO_TOGGLE);
        const std::size_t reports = path.refType == HPTSI_REF ? 1 : 0;   // the time input tells its end
        EXPECT_EQ(unit.node.mainProcessor().count(KVD_TUIIF_BVQ_STATUS_IND), before + reports);
    }
}

TEST(Path, WithARefusedTimerKeepsItsStatusUntilTheNextChange)
{
    RefUnit unit;
    unit.node.rawToggles = RAW_PDH1;
    unit.supervise(PDH_SDH_REF, true, LINE_FRO);
    unit.node.system().faults().refuseTimers = 1;
    unit.toggles(0);
    EXPECT_EQ(unit.traces("1 timer failed to start for ref path #0"), 1u);
    EXPECT_EQ(unit.row(0).filterType, HO_FILTER);
    EXPECT_FALSE(unit.row(0).filterTimer.runs());
    unit.ms(60'000);
    EXPECT_EQ(unit.refStatus(0), REF_STATUS_ON);
    unit.toggles(RAW_PDH1);                                // tries again, with a timer this time
    EXPECT_EQ(unit.refStatus(0), REF_STATUS_OFF);
    unit.ms(10'000);
    EXPECT_EQ(unit.refStatus(0), REF_STATUS_ON);
}

TEST(Path, OfAnUnknownLineIsRefused)
{
    sim::NodeConfig config = refConfig();
    config.ports[4].line = REF_ROWS;                       // a port's line that no row stands for
    RefUnit unit(config);
    unit.node.phyPorts().remove(3);                        // a row of the port table is free now
    unit.ms(1);
    for (const u32 froId : {0xFFFFFFFFu, LINE_FRO + 4, 4711u})      // none has the last: not the first line's
        unit.supervise(PDH_SDH_REF, true, froId);
    for (const char* row : {"=65535", "=12", ""})
        EXPECT_EQ(unit.traces("SyncRefNo out of range " + std::string(row)), row[0] == 0 ? 3u : 1u) << row;
    for (u32 n = 0; n < REF_ROWS; ++n) EXPECT_EQ(unit.row(n).supervisionStatus, 0u) << n;
}

TEST(Path, TimeOutsThatFitNoFilterChangeNothing)
{
    RefUnit unit;
    unit.node.rawToggles = RAW_PDH1;
    unit.supervise(PDH_SDH_REF, true, LINE_FRO);
    unit.toManager(KvdTurefTimeoutInd{KVD_TUREF_TIMEOUT_IND, 0});
    EXPECT_EQ(unit.traces("timeOutInd with filterType: NO_FILTER not allowed for synchRefNo 0"), 1u);
    EXPECT_EQ(unit.refStatus(0), REF_STATUS_ON);
    unit.toManager(KvdTurefTimeoutInd{KVD_TUREF_TIMEOUT_IND, 11});
    EXPECT_EQ(unit.refStatus(11), REF_STATUS_UNK);
    EXPECT_EQ(unit.traces("SyncRefNo out of range"), 0u);
    unit.toManager(KvdTurefTimeoutInd{KVD_TUREF_TIMEOUT_IND, 12});
    EXPECT_EQ(unit.traces("SyncRefNo out of range =12. timeOutInd ignored"), 1u);
    struct Short { SIGSELECT sigNo; };
    unit.toManager(Short{KVD_TUREF_TIMEOUT_IND});          // no row in it: refused
    EXPECT_EQ(unit.refStatus(0), REF_STATUS_ON);
}

TEST(CommonInput, FollowsWhatIsOnIt)
{
    struct Step { u32 raw; u32 toggle; u32 regulator; };
    RefUnit unit;
    unit.node.rawToggles = RAW_EXT;
    unit.supervise(TU_REF, true);
    unit.select(TU_REF);
    EXPECT_EQ(unit.regulatorRef(), TU_SR_EXT_REF);
    for (const Step& step : {Step{RAW_1PPS, GPS_TOGGLE, TU_SR_EXT_1PPS_REF},
                             Step{0, NO_TOGGLE, TU_SR_EXT_1PPS_REF},           // the route stays
                             Step{RAW_EXT, EXT_TOGGLE, TU_SR_EXT_REF},
                             Step{RAW_EXT | RAW_PDH1, EXT_TOGGLE, TU_SR_EXT_REF}}) {
        SCOPED_TRACE(step.raw);
        unit.toggles(step.raw);
        EXPECT_EQ(unit.node.inProgram(KvdLoz6TuRef_gpsExtToggle), step.toggle);
        EXPECT_EQ(unit.regulatorRef(), step.regulator);
    }
    EXPECT_EQ(unit.traces("Unexpected EXT Toggle in state 1 "), 1u);
}

TEST(CommonInput, ReceiverCountsOnlyWithItsOwn1pps)
{
    RefUnit unit;
    unit.node.rawToggles = RAW_EXT;
    unit.supervise(GPS_REF, true);
    EXPECT_EQ(unit.refStatus(6), REF_STATUS_ON);
    EXPECT_EQ(unit.tuiifRefState(), 0u);
    unit.supervise(GPS_REF, true);
    EXPECT_EQ(unit.traces("reference already supervised"), 1u);
}

TEST(EthernetPath, IsReportedWhenItsStateChangesOrSupervisionStartsAnew)
{
    RefUnit unit;
    auto& mp = unit.node.mainProcessor();
    unit.node.rawToggles = RAW_ETHB;
    unit.supervise(ETHB_REF, true, 21, 7);
    ASSERT_EQ(mp.count(KVD_TUIIF6_BVQ_REF_STATE_IND), 1u);
    auto state = *mp.last(KVD_TUIIF6_BVQ_REF_STATE_IND)->as<KvdTuiif6BvqRefStateInd>();
    EXPECT_TRUE(state.froId == 21 && state.froClassNo == 7 && state.refState == 9);      // its row
    EXPECT_EQ(state.additionalRefStateInfo, 0x2u);
    unit.toggles(0);
    unit.ms(2'500);
    ASSERT_EQ(mp.count(KVD_TUIIF6_BVQ_REF_STATE_IND), 2u);
    state = *mp.last(KVD_TUIIF6_BVQ_REF_STATE_IND)->as<KvdTuiif6BvqRefStateInd>();
    EXPECT_EQ(state.additionalRefStateInfo, 0u);
    unit.supervise(ETHC_REF, true, 22, 7);   // no signal: OFF as it stands, told all the same
    EXPECT_EQ(mp.count(KVD_TUIIF6_BVQ_REF_STATE_IND), 3u);
    unit.node.rawToggles = RAW_ETHC | RAW_ETHB;
    unit.node.inProgram([] { node::traceSetProgramMask(0xFFFFFFFF); });
    unit.ms(1);
    unit.supervise(ETHC_REF, false, 22, 7);
    EXPECT_EQ(mp.count(KVD_TUIIF6_BVQ_REF_STATE_IND), 3u);
    unit.toManager(KvdTurefTimeoutInd{KVD_TUREF_TIMEOUT_IND, 10});
    constexpr const char* GROUP = "KVD_BVQ_LOZ6_TUETH";
    EXPECT_EQ(unit.node.traces().count({"stopped supervision of synch ref. #10", GROUP, 8}), 1u);
    EXPECT_EQ(unit.node.traces().count(
                  {"timeOutInd with filterType: NO_FILTER not allowed for synchRefNo 10", GROUP, 1}), 1u);
}

TEST(ToggleMonitor, TellsAChangeWithinASecondAndOnlyAChange)
{
    RefUnit unit(refConfig(), true);
    unit.supervise(PDH_SDH_REF, true, LINE_FRO);
    unit.node.rawToggles = RAW_PDH1;
    unit.ms(1'000);
    EXPECT_EQ(unit.node.inProgram(KvdLoz6TuRef_lastToggleStatus), 0x1u);
    unit.ms(10'000);
    EXPECT_EQ(unit.refStatus(0), REF_STATUS_ON);
    EXPECT_EQ(unit.node.inProgram(KvdLoz6TuRef_noChangeCounter), 0u);
    EXPECT_EQ(unit.traces("TI PROCESS Kvd_loz6_turefmon_proc created"), 1u);
}

}  // namespace
