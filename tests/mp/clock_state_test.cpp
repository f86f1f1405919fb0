// The clock state that the main processor is shown: from the regulator's reports, the selection, the
// tracking, the time mode, the holdover thresholds.
#include "tests/iif/iif_bench.h"

#include "reg/kvd_reg.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/reg_sig.h"

namespace {

using bench::IifBench;

// ---- the table of shown states ----

/// How the reference came to be selected.
enum Selection : std::size_t { NONE_SELECTED, AFTER_NONE, AFTER_OTHER, GPSOSL_AFTER_NONE, SOCPRI_AFTER_NONE };

void choose(IifBench& b, Selection selection)
{
    switch (selection) {
    case NONE_SELECTED:     b.select(NO_REF);                                   break;
    case AFTER_NONE:        b.select(GPS_REF);                                  break;
    case AFTER_OTHER:       b.select(TU_REF); b.select(GPS_REF);                break;
    case GPSOSL_AFTER_NONE: b.select(GPSOSL_REF);                               break;
    case SOCPRI_AFTER_NONE: b.select(SOCPRI_REF);                               break;
    }
}

/// Reported state, and the shown one: with no reference selected, with one selected after none, and with
/// one selected otherwise; each with time and with frequency only.
struct ShownRow { u8 reported; u8 none, noneFreq, afterNone, afterNoneFreq, other, otherFreq; };
constexpr ShownRow MASTER_ROWS[] = {
    {0, 7, 7, 0, 0, 0, 0},     {1, 1, 1, 1, 1, 1, 1},     {2, 2, 2, 2, 2, 2, 2},     {3, 4, 4, 3, 3, 3, 3},
    {4, 4, 4, 3, 3, 4, 4},     {5, 5, 5, 5, 5, 5, 5},     {6, 6, 6, 6, 6, 6, 6},     {7, 7, 7, 7, 7, 7, 7},
    {8, 9, 4, 8, 3, 8, 3},     {9, 9, 4, 8, 3, 9, 4},     {10, 11, 4, 10, 3, 10, 3}, {11, 11, 4, 10, 3, 11, 4},
    {12, 12, 12, 12, 12, 12, 12}, {13, 13, 13, 13, 13, 13, 13}, {14, 14, 14, 14, 14, 14, 14},
    {15, 15, 15, 15, 15, 15, 15}, {16, 16, 16, 16, 16, 16, 16}, {17, 17, 17, 17, 17, 17, 17},
    {18, 7, 7, 18, 18, 18, 18},
};

u8 expected(const ShownRow& row, Selection selection, bool frequencyOnly)
{
    if (selection == NONE_SELECTED) return frequencyOnly ? row.noneFreq : row.none;
    if (selection == AFTER_NONE) return frequencyOnly ? row.afterNoneFreq : row.afterNone;
    return frequencyOnly ? row.otherFreq : row.other;
}

TEST(ShownState, FollowsSelectionTrackingAndTimeMode)
{
    struct Case { u8 timeMode, masterSlaveMode; };
    for (const Case& c : {Case{3, 1}, Case{1, 1}, Case{3, 0}, Case{1, 0}}) {
        for (const Selection selection : {NONE_SELECTED, AFTER_NONE, AFTER_OTHER, GPSOSL_AFTER_NONE,
                                          SOCPRI_AFTER_NONE}) {
            IifBench b{bench::Negotiated{c.timeMode, c.masterSlaveMode}};
            b.connect();
            choose(b, selection);
            for (const ShownRow& row : MASTER_ROWS) {
                SCOPED_TRACE(testing::Message() << "mode " << int{c.timeMode} << int{c.masterSlaveMode}
                                                << " selection " << selection << " reported "
                                                << int{row.reported});
                const bool frequencyOnly = c.timeMode == 1 && c.masterSlaveMode == 1;
                b.update(row.reported);
                EXPECT_EQ(b.clock(), expected(row, selection, frequencyOnly));
            }
            b.in([] { KvdLoz6TuIifAdm_updateLtr(1); });
            for (const ShownRow& row : MASTER_ROWS) {
                b.update(row.reported);
                EXPECT_EQ(b.clock(), 5) << int{row.reported};
            }
        }
    }
}

TEST(ClientView, OfSocpriClearsTheMarker)
{
    IifBench b;
    b.connect();
    b.in([] { KvdLoz6TuIifAdm_setSocpriMarker(1); });
    b.report(FREQLOCKED);
    EXPECT_EQ(b.clock(), 2) << "not shown as holdover";
    b.report(WARMUP);
    EXPECT_EQ(b.clock(), 1);
    b.select(SOCPRI_REF, 0, 9);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_socpriMarker), 1u) << "a fresh start of it, not its return";
    b.select(NO_REF);
    b.select(SOCPRI_REF, 0, 9);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_socpriMarker), 0u);
    b.select(NO_REF);
    b.report(FREQLOCKED);
    EXPECT_EQ(b.clock(), 4);
}

TEST(ClientView, MarksTheStatusUnlessSocpriReturns)
{
    IifBench b;
    b.connect();                                  // a first start
    const auto marks = [&](u8 refType) {
        b.in([] { KvdLoz6TuIifAdm_updateRefState(KvdLoz6TuIifAdm_tuiifRefState()); });
        b.select(refType);
        const auto before = b.sent(KVD_TUIIF_BVQ_STATUS_IND);
        b.in([] { KvdLoz6TuIifAdm_updateRefState(KvdLoz6TuIifAdm_tuiifRefState()); });
        return b.sent(KVD_TUIIF_BVQ_STATUS_IND) != before;
    };
    b.select(GPS_REF);
    EXPECT_TRUE(marks(SOCPRI_REF));               // from another reference
    EXPECT_TRUE(marks(NO_REF));                   // it goes away
    EXPECT_FALSE(marks(SOCPRI_REF));              // and comes back: its loop goes on
}

TEST(ClientView, LeavesSocpriForAnotherReferenceAsHoldover)
{
    IifBench b;
    b.connect();                                  // a first start
    b.select(SOCPRI_REF, 0, 9);
    b.update(KVD_TUIIF_RNT_TIME_LOCKED);
    b.select(GPS_REF);
    EXPECT_EQ(b.clock(), 4);
}

// ---- reports ----

TEST(RegulatorReport, IsTranslatedByRole)
{
    struct Case { u8 regState, master, slave; };
    for (const Case& c : {Case{1, 1, 1}, Case{2, 2, 7}, Case{3, 2, 7}, Case{4, 2, 7}, Case{5, 3, 15},
                          Case{6, 2, 14}, Case{8, 6, 6}, Case{9, 7, 7}, Case{10, 8, 7}, Case{11, 10, 16},
                          Case{12, 8, 7}, Case{13, 12, 7}, Case{14, 13, 7}, Case{0, 7, 7}}) {
        SCOPED_TRACE(int{c.regState});
        for (const u8 isMaster : {u8{1}, u8{0}}) {
            IifBench b{bench::Negotiated{3, isMaster}};
            b.connect();
            b.report(c.regState);
            const u8 wanted = isMaster ? c.master : c.slave;
            EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), wanted);
            const bool strange = !isMaster && wanted == 7;
            EXPECT_EQ(b.traced("Strange regState =" + std::to_string(c.regState)), strange);
        }
    }
}

TEST(LoopReport, StoresTheWordAndReportsNothing)
{
    IifBench b;
    b.connect();
    b.select(GPSOSL_REF);
    b.update(KVD_TUIIF_FREQUENCY_LOCKED);
    const u8 byPll[] = {7, 7, 7, 3, 8, 10, 4, 9, 11};
    for (u32 pll = 0; pll < 9; ++pll) {
        b.in([pll] { KvdLoz6TuIifAdm_reportPllState(pll); });
        EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), byPll[pll]) << pll;
        EXPECT_EQ(b.clock(), KVD_TUIIF_FREQUENCY_LOCKED);
    }
    const u8 bySlavePll[] = {7, 15, 16};
    for (u32 pll = 0; pll < 3; ++pll) {
        b.in([pll] { KvdLoz6TuIifAdm_reportSlavePllState(pll); });
        EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), bySlavePll[pll]) << pll;
    }
    EXPECT_EQ(b.sent(KVD_TUIIF_BVQ_STATUS_IND), 1u);
}

TEST(LoopReport, ChangeSendsTheNextStatusEvenIfItIsTheLastOnes)
{
    IifBench b;
    b.connect();
    b.select(GPSOSL_REF);
    const auto sentAgain = [&b] {
        const std::size_t before = b.sent(KVD_TUIIF_BVQ_STATUS_IND);
        b.update(KVD_TUIIF_UNKNOWN);              // never sent
        b.update(KVD_TUIIF_FREQUENCY_HOLDOVER);
        return b.sent(KVD_TUIIF_BVQ_STATUS_IND) - before;
    };
    EXPECT_EQ(sentAgain(), 1u);
    EXPECT_EQ(sentAgain(), 0u);                   // the main processor has it
    b.in([] { KvdLoz6TuReg_pll_setState(PLL_Unlocked); });
    EXPECT_EQ(sentAgain(), 1u);
    EXPECT_EQ(sentAgain(), 0u);
    b.in([] { KvdLoz6TuReg_pll_setState(PLL_Unlocked); });   // no change
    EXPECT_EQ(sentAgain(), 0u);
}

TEST(Relaxation, LetsSynchronisingCountAsLockedForADay)
{
    IifBench b;
    b.connect();
    b.select(GPS_REF);
    b.report(SYNCH2);
    EXPECT_EQ(b.clock(), 2);
    b.in(KvdLoz6TuIifAdm_startForceLockedTimer);
    for (const u8 regState : {SYNCH1, SYNCH2, SYNCH3}) {
        b.report(regState);
        EXPECT_EQ(b.clock(), 3);
    }
    b.report(FREQDRIFTING);
    EXPECT_EQ(b.clock(), 2);

    b.in([] { KvdLoz6TuIifAdm_setHoldoverThreshold(HOLDOVER_FREQ, 1); });
    b.report(SYNCH3);
    EXPECT_EQ(b.clock(), 2) << "not beside a frequency threshold";
    b.in([] { KvdLoz6TuIifAdm_setHoldoverThreshold(HOLDOVER_FREQ, 0); });

    b.run(3600);
    b.in(KvdLoz6TuIifAdm_startForceLockedTimer);   // runs already: no second day
    b.run(86400 - 3600 - 1);
    EXPECT_TRUE(b.look(KvdLoz6TuIifAdm_forceLockedTimerRuns));
    b.run(1);
    EXPECT_FALSE(b.look(KvdLoz6TuIifAdm_forceLockedTimerRuns));
    b.report(SYNCH3);
    EXPECT_EQ(b.clock(), 2);
}

TEST(Relaxation, EndsWithAReportOfTheRegulatorAsItIs)
{
    IifBench b;
    b.connect();                                   // the regulator stands in its warm-up
    b.select(GPS_REF);
    b.in(KvdLoz6TuIifAdm_startForceLockedTimer);
    b.report(SYNCH3);
    b.inject(Signal{KVD_FORCED_LOCKED_TIMEOUT_IND});
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), 7)   // state 9, reset by the switch to master
        << "the regulator's present state, whatever was reported before";
}

// ---- holdover thresholds ----

/// How far an expiry has pushed the estimate down, read off its own numbers.
struct Estimate { double delta0_f, P00, P11; };
Estimate estimate(IifBench& b)
{
    return b.look([] {
        const auto& var = KvdLoz6TuReg_estimateStateVar();
        return Estimate{KvdLoz6TuReg_getOffset().f, var.P_est[0], var.P_est[7]};
    });
}

struct ThresholdCase { u32 holdoverClass; u8 clock; const char* trace; };
constexpr ThresholdCase THRESHOLDS[] = {
    {HOLDOVER_RNT, 11, "Setting delta0 to achieve timeOffset Holdover"},
    {HOLDOVER_TO, 9, "Setting P_est to achieve frequency Holdover"},
    {HOLDOVER_FREQ, 4, "Setting P_est to achieve frequency drifting"},
};

TEST(HoldoverThreshold, PushesTheEstimateDownAGradeAtItsEnd)
{
    for (const ThresholdCase& c : THRESHOLDS) {
        SCOPED_TRACE(c.trace);
        IifBench b;
        b.connect();
        b.in([&c] { KvdLoz6TuIifAdm_setHoldoverThreshold(c.holdoverClass, 2); });
        b.update(c.clock);
        b.run(119.9);
        EXPECT_EQ(b.traces(c.trace), 0u);
        b.run(0.2);
        EXPECT_EQ(b.traces(c.trace), 1u);
        const Estimate now = estimate(b);
        if (c.holdoverClass == HOLDOVER_RNT) {
            EXPECT_EQ(now.delta0_f, 1e-6);
        }
        if (c.holdoverClass == HOLDOVER_TO) {
            EXPECT_DOUBLE_EQ(now.P00, 87381.33333333333);
        }
        if (c.holdoverClass == HOLDOVER_FREQ) {
            EXPECT_EQ(now.P11, 1e-14);
        }
        b.run(300);
        EXPECT_EQ(b.traces(c.trace), 1u) << "once";
    }
}

TEST(HoldoverThreshold, RunsOnlyInItsOwnHoldover)
{
    for (const ThresholdCase& c : THRESHOLDS) {
        for (const u8 left : {u8{2}, u8{3}, u8{4}, u8{9}, u8{11}}) {
            SCOPED_TRACE(testing::Message() << c.trace << " left for " << int{left});
            IifBench b;
            b.connect();
            b.select(TU_REF);
            b.select(GPS_REF);   // states are shown as they are
            b.in([&c] { KvdLoz6TuIifAdm_setHoldoverThreshold(c.holdoverClass, 1); });
            b.update(c.clock);
            b.run(30);
            b.update(left);
            b.run(120);
            EXPECT_EQ(b.traces(c.trace), left == c.clock ? 1u : 0u);
        }
    }
}

TEST(HoldoverThreshold, IsLookedAtEvenWhenTheStateStays)
{
    IifBench b;
    b.connect();
    b.update(11);
    b.in([] { KvdLoz6TuIifAdm_setHoldoverThreshold(HOLDOVER_RNT, 1); });
    b.run(120);
    EXPECT_EQ(b.traces(THRESHOLDS[0].trace), 0u);
    b.update(11);
    b.run(60.1);
    EXPECT_EQ(b.traces(THRESHOLDS[0].trace), 1u);
}

TEST(HoldoverThreshold, IsTriedAgainAfterARefusedTimer)
{
    IifBench b;
    b.connect();
    b.in([] { KvdLoz6TuIifAdm_setHoldoverThreshold(HOLDOVER_RNT, 1); });
    b.node.system().faults().refuseTimers = 1;
    b.update(11);
    b.run(61);
    EXPECT_EQ(b.traces(THRESHOLDS[0].trace), 0u);
    b.update(11);
    b.run(61);
    EXPECT_EQ(b.traces(THRESHOLDS[0].trace), 1u);
}

}  // namespace
