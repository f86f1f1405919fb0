// The clock state that the main processor is shown: from the regulator's reports, the selection, the
// tracking, the time mode, the holdover thresholds.
#include "tests/mp/mp_bench.h"

#include "reg/kvd_reg.h"
#include "reg/kvd_reg_estimate.h"
#include "reg/kvd_reg_jump.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "sig/reg_sig.h"

namespace {

using bench::Connected;
using bench::Negotiated;

// ---- the table of shown states ----

/// Reported states that aren't always shown as they are: with no reference selected, with one selected after
/// none, and with one selected otherwise; each with time and with frequency only.
constexpr u8 SHOWN[][7] = {
    {0, 7, 7, 0, 0, 0, 0},  {3, 4, 4, 3, 3, 3, 3},     {4, 4, 4, 3, 3, 4, 4},     {8, 9, 4, 8, 3, 8, 3},
    {9, 9, 4, 8, 3, 9, 4},  {10, 11, 4, 10, 3, 10, 3}, {11, 11, 4, 10, 3, 11, 4}, {18, 7, 7, 18, 18, 18, 18},
};
u8 shown(u8 reported, std::size_t column)
{
    for (const auto& row : SHOWN)
        if (row[0] == reported) return row[column];
    return reported;
}

TEST(ShownState, FollowsSelectionTrackingAndTimeMode)
{
    struct Case { std::vector<u8> selected; std::size_t column; };
    for (const Negotiated& n : {Negotiated{3, 1}, Negotiated{1, 1}, Negotiated{3, 0}, Negotiated{1, 0}})
        for (const Case& c : {Case{{NO_REF}, 1}, Case{{GPS_REF}, 3}, Case{{TU_REF, GPS_REF}, 5},
                              Case{{GPSOSL_REF}, 5}, Case{{SOCPRI_REF}, 5}}) {
            Connected b{n, c.selected};
            const std::size_t column = c.column + (n.timeMode == 1 && n.masterSlaveMode == 1 ? 1 : 0);
            SCOPED_TRACE(testing::Message() << int{n.timeMode} << int{n.masterSlaveMode} << " " << column);
            for (u8 reported = 0; reported <= 18; ++reported) {
                b.update(reported);
                EXPECT_EQ(b.clock(), shown(reported, column)) << int{reported};
            }
            b.in([] { KvdLoz6TuIifAdm_updateLtr(1); });
            for (u8 reported = 0; reported <= 18; ++reported) {
                b.update(reported);
                EXPECT_EQ(b.clock(), 5) << int{reported};
            }
        }
}

TEST(ClientView, OfSocpriClearsTheMarker)
{
    Connected b;
    b.in([] { KvdLoz6TuIifAdm_setSocpriMarker(1); });
    b.report(FREQLOCKED);
    EXPECT_EQ(b.clock(), 2) << "not shown as holdover";
    b.report(TRUETIME);
    EXPECT_EQ(b.clock(), 2);
    b.report(WARMUP);
    EXPECT_EQ(b.clock(), 1);
    b.select(SOCPRI_REF, 0, 9);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_socpriMarker), 1u) << "a fresh start of it, not its return";
    b.select(NO_REF);
    b.report(TIMELOCKED);
    EXPECT_EQ(b.clock(), 9) << "but for its own loop";
    b.select(SOCPRI_REF, 0, 9);
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_socpriMarker), 0u);
    b.select(NO_REF);
    b.report(FREQLOCKED);
    EXPECT_EQ(b.clock(), 4);
}

// ---- reports ----

TEST(RegulatorReport, IsTranslatedByRole)
{
    struct Case { u8 regState, master, slave; };
    for (const Case& c : {Case{1, 1, 1}, Case{2, 2, 7}, Case{3, 2, 7}, Case{4, 2, 7}, Case{5, 3, 15},
                          Case{6, 2, 14}, Case{8, 6, 6}, Case{9, 7, 7}, Case{10, 8, 7}, Case{11, 10, 16},
                          Case{12, 8, 7}, Case{13, 12, 7}, Case{14, 13, 7}, Case{0, 7, 7}})
        for (const u8 isMaster : {u8{1}, u8{0}}) {
            SCOPED_TRACE(int{c.regState});
            Connected b{Negotiated{3, isMaster}};
            b.report(c.regState);
            const u8 wanted = isMaster ? c.master : c.slave;
            EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), wanted);
            EXPECT_EQ(b.traced("Strange regState =" + std::to_string(c.regState)), !isMaster && wanted == 7);
        }
}

TEST(LoopReport, StoresTheWordAndReportsNothing)
{
    Connected b{GPSOSL_REF};
    b.update(KVD_TUIIF_FREQUENCY_LOCKED);
    const auto stored = [&b](void (*report)(u32), u32 state) {
        b.in([=] { report(state); });
        EXPECT_EQ(b.clock(), KVD_TUIIF_FREQUENCY_LOCKED);
        return b.look(KvdLoz6TuIifAdm_lastRegulatorState);
    };
    constexpr u8 BY_PLL[] = {7, 7, 7, 3, 8, 10, 4, 9, 11, 7}, BY_SLAVE_PLL[] = {7, 15, 16};
    for (u32 pll = 0; pll < 10; ++pll)
        EXPECT_EQ(stored(KvdLoz6TuIifAdm_reportPllState, pll), BY_PLL[pll]) << pll;
    for (u32 pll = 0; pll < 3; ++pll)
        EXPECT_EQ(stored(KvdLoz6TuIifAdm_reportSlavePllState, pll), BY_SLAVE_PLL[pll]) << pll;
    EXPECT_EQ(b.statuses(), 1u);
}

TEST(LoopReport, ChangeSendsTheNextStatusEvenIfItIsTheLastOnes)
{
    Connected b{GPSOSL_REF};
    const auto sentAgain = [&b] {
        const std::size_t before = b.statuses();
        b.update(KVD_TUIIF_UNKNOWN);              // never sent
        b.update(KVD_TUIIF_FREQUENCY_HOLDOVER);
        return b.statuses() - before;
    };
    EXPECT_EQ(sentAgain(), 1u);
    EXPECT_EQ(sentAgain(), 0u);                   // the main processor has it
    for (const std::size_t sent : {1u, 0u}) {     // a change, and none
        b.in([] { KvdLoz6TuReg_pll_setState(PLL_Unlocked); });
        EXPECT_EQ(sentAgain(), sent);
        EXPECT_EQ(sentAgain(), 0u);
    }
}

TEST(Relaxation, LetsSynchronisingCountAsLockedForADay)
{
    Connected b{GPS_REF};
    const auto clockAt = [&b](u8 regState) { return b.report(regState), b.clock(); };
    EXPECT_EQ(clockAt(SYNCH2), 2);
    b.in(KvdLoz6TuIifAdm_startForceLockedTimer);
    for (const u8 regState : {SYNCH1, SYNCH2, SYNCH3}) EXPECT_EQ(clockAt(regState), 3);
    EXPECT_EQ(clockAt(FREQDRIFTING), 2);
    b.threshold(HOLDOVER_FREQ, 1);
    EXPECT_EQ(clockAt(SYNCH3), 2) << "not beside a frequency threshold";
    b.threshold(HOLDOVER_FREQ, 0);

    b.run(3600);
    b.in(KvdLoz6TuIifAdm_startForceLockedTimer);   // runs already: no second day
    b.run(86400 - 3600 - 1);
    EXPECT_TRUE(b.look(KvdLoz6TuIifAdm_forceLockedTimerRuns));
    b.run(1);
    EXPECT_FALSE(b.look(KvdLoz6TuIifAdm_forceLockedTimerRuns));
    EXPECT_EQ(clockAt(SYNCH3), 2);
    b.in(KvdLoz6TuIifAdm_startForceLockedTimer);
    EXPECT_EQ(clockAt(SYNCH3), 3);
    b.inject(Signal{KVD_FORCED_LOCKED_TIMEOUT_IND});
    EXPECT_EQ(b.look(KvdLoz6TuIifAdm_lastRegulatorState), 7)   // state 9, reset by the switch to master
        << "the regulator's present state, whatever was reported before";
}

// ---- holdover thresholds ----

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
        Connected b;
        b.threshold(c.holdoverClass, 2);
        b.update(c.clock);
        EXPECT_EQ(b.look([&c] { return KvdLoz6TuIifAdm_holdoverThreshold(c.holdoverClass); }), 2u);
        b.run(119.999);
        EXPECT_EQ(b.traces(c.trace), 0u);
        b.run(0.002);
        EXPECT_EQ(b.traces(c.trace), 1u);
        // How far, read off the estimate's own numbers.
        const double pushed = b.look([&c] {
            const auto& P = KvdLoz6TuReg_estimateStateVar().P_est;
            if (c.holdoverClass == HOLDOVER_RNT) return KvdLoz6TuReg_getOffset().f;
            return c.holdoverClass == HOLDOVER_TO ? P[0] : P[7];
        });
        EXPECT_DOUBLE_EQ(pushed, c.clock == 11 ? 1e-6 : c.clock == 9 ? 87381.33333333333 : 1e-14);
        b.run(300);
        EXPECT_EQ(b.traces(c.trace), 1u) << "once";
    }
}

TEST(HoldoverThreshold, RunsOnlyInItsOwnHoldover)
{
    for (const ThresholdCase& c : THRESHOLDS)
        for (const u8 left : {u8{2}, u8{3}, u8{4}, u8{9}, u8{11}}) {
            SCOPED_TRACE(testing::Message() << c.trace << " left for " << int{left});
            Connected b{TU_REF, GPS_REF};         // states are shown as they are
            b.threshold(c.holdoverClass, 1);
            b.update(c.clock);
            b.run(30);
            b.update(left);
            b.run(120);
            EXPECT_EQ(b.traces(c.trace), left == c.clock ? 1u : 0u);
        }
}

TEST(HoldoverThreshold, IsLookedAtEvenWhenTheStateStays)
{
    for (const bool isRefused : {false, true}) {  // a timer that couldn't be had
        Connected b;
        if (!isRefused) b.update(11);
        b.threshold(HOLDOVER_RNT, 1);
        if (isRefused) b.node.system().faults().refuseTimers = 1, b.update(11);
        b.run(120);
        EXPECT_EQ(b.traces(THRESHOLDS[0].trace), 0u);
        b.update(11);
        b.run(60.1);
        EXPECT_EQ(b.traces(THRESHOLDS[0].trace), 1u);
    }
}

}  // namespace
