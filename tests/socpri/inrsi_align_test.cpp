// Alignment to a group and jumps on a radio link, and the pause after a step.
#include "tests/socpri/socpri_bench.h"

namespace {

using bench::MASTER;
using bench::SocpriUnit;
using bench::UNIT_A;
using bench::UNIT_C;
using sim::InrsiFrequency;
using sim::InrsiPhase;

constexpr InrsiFrequency GOOD{2, true}, FAR{40, true};

// ---- alignment to a group -------------------------------------------------------------------------

struct AlignUnit : SocpriUnit {
    AlignUnit() : SocpriUnit(MASTER) { frequencyIs(GOOD); }
    void align(u8 port, Count group)
    {
        send(KvdTuiifSocpriBfnAlignToGroupReq{KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, 1, port, group.esfc,
                                              group.mfn});
    }
    void otherEndSays(Count c)
    {
        send(KvdTuiifSocpriCoarseTimeDataInd{KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, c.esfc, c.mfn});
    }
};

// The group's count goes on while the phase settles: what is told last before the step is what it steps to.
TEST(InrsiAlignment, StepsToTheCountThatIsToldLast)
{
    AlignUnit u;
    const AlignUnit::Count before = u.count();
    u.align(1, {before.esfc, static_cast<u16>((before.mfn + 7) % 25)});
    u.run(8.0);
    const AlignUnit::Count next{before.esfc, static_cast<u16>((before.mfn + 8) % 25)};
    u.otherEndSays(next);
    u.run(4.5);
    EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1}));
    EXPECT_EQ(u.mp().count(KVD_TUIIF_INRSI_BFN_JUMP_INFO_REQ_FWD), 1u);
    EXPECT_EQ(u.count().mfn, next.mfn);
    u.otherEndSays(next);
    EXPECT_EQ(u.aligned(), 1u);
    u.run(1.1);
    EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1, 0}));
}

TEST(InrsiAlignment, FailsByWhatTheLinkGives)
{
    struct Case {
        const char* what;
        std::function<void(AlignUnit&)> trouble;
        double after, within;
    };
    for (const Case& c : std::to_array<Case>({
             {"never a good frequency", [](AlignUnit& u) { u.frequencyIs(FAR); }, 0.0, 2.0},
             {"frequency rejected", [](AlignUnit& u) { u.frequencyIs(std::nullopt); }, 0.0, 0.3},
             {"link down while nothing is measured", [](AlignUnit& u) { u.inrsi().setStatus(UNIT_A, 0); }, 0.0, 0.05},
             {"phase not answered", [](AlignUnit& u) { u.inrsi().silentUnits = {UNIT_A}; }, 2.0, 1.0},
             {"phase rejected", [](AlignUnit& u) { u.phaseIs(std::nullopt); }, 2.0, 0.2},
             {"phase never valid", [](AlignUnit& u) { u.phaseIs(InrsiPhase{0, false}); }, 2.0, 2.0},
             {"the other end never agrees", [](AlignUnit&) {}, 12.0, 5.0}})) {
        SCOPED_TRACE(c.what);
        AlignUnit u;
        u.align(1, {5, 3});
        u.run(c.after);
        c.trouble(u);
        EXPECT_EQ(u.aligned(), std::nullopt);
        u.run(c.within);
        EXPECT_EQ(u.aligned(), 0u);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// Five seconds after a step no phase is used; a selection waits for their end.
TEST(InrsiSelection, WaitsForTheEndOfAPause)
{
    for (const bool dropped : {false, true}) {
        SCOPED_TRACE(dropped);
        AlignUnit u;
        u.align(1, u.count());
        u.run(12.5);
        u.otherEndSays(u.count());
        ASSERT_EQ(u.aligned(), 1u);
        const u32 before = u.inrsi().frequencyRequests(UNIT_C);
        u.select(3);
        u.run(1.0);
        EXPECT_EQ(u.selected(), "");
        EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C), before);
        if (dropped) u.mp().selectNone();
        u.run(5.0);
        EXPECT_EQ(u.selected(), dropped ? "" : "3:1");
        EXPECT_EQ(u.traced("SoCPRI is no longer selected reference, abort new selection request."), dropped);
        EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C) > before, !dropped);
    }
}

// What comes after it in the pause takes its place: it doesn't cut in when the pause is over.
TEST(InrsiSelection, ThatWaitsIsGivenUpForALaterOrder)
{
    for (const bool deselected : {false, true}) {
        SCOPED_TRACE(deselected);
        AlignUnit u;
        u.align(1, u.count());
        u.run(12.5);
        u.otherEndSays(u.count());
        ASSERT_EQ(u.aligned(), 1u);
        u.select(3);
        if (deselected) u.deselect(3);
        u.frequencyIs(FAR);
        if (!deselected) u.scan(1);
        u.run(6.0);
        EXPECT_EQ(u.scanned(), deselected ? "" : "1:4") << "after all its attempts";
        EXPECT_EQ(u.inrsi().frequencyRequests(UNIT_C), 0u);
        EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
    }
}

// The far end agrees while a phase is asked for: that its answer comes when the order is over is no fault. One
// that never comes is told once, and takes no later sample's place.
TEST(InrsiAlignment, AnAnswerAfterItsEndIsNotMissing)
{
    for (const bool answered : {true, false}) {
        SCOPED_TRACE(answered);
        AlignUnit u;
        u.supervise({1});
        u.inrsi().answer_ms = 60;
        u.align(1, u.count());
        u.run(19.0);                             // a hundred phases, 160 ms apart, and the step
        u.toMeasurement(false);
        if (!answered) u.inrsi().silentUnits = {UNIT_A};
        u.toMeasurement(true);
        u.otherEndSays(u.count());
        ASSERT_EQ(u.aligned(), 1u);
        u.inrsi().silentUnits.clear();
        u.run(55.0);
        EXPECT_EQ(u.supervised(), answered ? "" : "1:7");
        u.run(7.0);
        EXPECT_EQ(u.supervised(), "1:2");
    }
}

// The order to step the counters reaches the links 70 ms ahead; a link lost meanwhile ends the step.
TEST(InrsiJump, IsToldToTheLinksAndEndsWithTheLink)
{
    for (const bool lost : {false, true}) {
        SCOPED_TRACE(lost);
        AlignUnit u;
        u.phaseIs(InrsiPhase{1'000'000'000, true});      // 1 ms ahead: locked to an offset
        u.lock(1);
        ASSERT_EQ(u.get(KvdLoz6TuReg_pllState), u32{PLL_OffsetLocked});
        u.mp().orderJump();
        u.run(3.9);
        EXPECT_TRUE(u.inrsi().jumpInfos().empty());
        u.run(0.2);
        EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1}));
        EXPECT_EQ(u.get(KvdLoz6TuReg_SoCpriJumpRunning), 1u);
        u.mp().clearLog();
        if (lost) {
            u.inrsi().setStatus(UNIT_A, 0);
            u.run(0.7);
            EXPECT_EQ(u.synced(), "1:3");
            EXPECT_EQ(u.action(), u32{INRSI_CLIENT_IDLE});
        } else {
            u.otherEndSays(u.count());
            u.run(1.0);
        }
        EXPECT_EQ(u.get(KvdLoz6TuReg_SoCpriJumpRunning), 0u);
        EXPECT_EQ(u.get(KvdLoz6TuReg_pllState), lost ? u32{PLL_Unlocked} : u32{PLL_Locked});
        u.run(0.1);
        EXPECT_EQ(u.inrsi().jumpInfos(), (std::vector<u32>{1, 0}));
    }
}

}  // namespace
