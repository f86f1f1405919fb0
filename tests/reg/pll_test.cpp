// The loops at their edges: what is forgiven, what is counted, what the holdover holds, and what a loop does when
// a neighbour fails.
#include "iif/kvd_biraiifadm.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll_int.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "tests/support/idle_node.h"
#include "unit/kvd_unit_link.h"

#include <gtest/gtest.h>

namespace {

/// What the neighbours were told last, and what they answer.
struct Told {
    double y = -1;                           // -1: nothing
    u32 histories = 0, flashes = 0;
    u32 accuracies = 0, drifting = 0, jumpRetries = 0;
    u32 selectedRef = TU_SR_GPSOSL_REF;
    u32 idlMode = KVD_BIRAIIF_IDL_MODE_1;
    bool isMaster = true;
    u8 startType = KVD_BIRAIIF_RESTART_NOT_AVAILABLE;
    int idpi = 0;                            // 1: the server isn't there
    u32 sent = 0, stored = 0;
};
Told* told = nullptr;

/// The program's own operations, but for what needs a regulator, hardware and servers.
pll::Needs withoutNeighbours(pll::Needs n)
{
    n.selectedRef = [] { return told->selectedRef; };
    n.isMaster = [] { return told->isMaster; };
    n.idlMode = [] { return told->idlMode; };
    n.adjustFrequency = [](double y) { told->y = y; };
    n.adjustTime = [](double, double) {};
    n.writeHistory = [](bool toFlash, double) {
        ++told->histories;
        told->flashes += toFlash ? 1 : 0;
    };
    n.retryJump = [] { ++told->jumpRetries; };
    n.lastRegulatorState = [](u32) {};
    n.lastSlaveRegulatorState = [](u32) {};
    n.setFreqLocked = [] {};
    n.report = [](u8 clock) { told->drifting += clock == KVD_TUIIF_FREQUENCY_DRIFTING ? 1 : 0; };
    n.timeAccuracy = [] { ++told->accuracies; };
    n.tellGpsOut = [](u32) {};
    n.action = [] { return 0u; };
    n.answerContinuation = [](u32) {};
    n.storeYi = [](double) {};
    n.sendClkStatus = [](u8 clkStatus) {
        told->sent = clkStatus;
        return told->idpi;
    };
    n.storeClkStatus = [](u32 clkStatus, const char*) { told->stored = clkStatus; };
    n.startType = [] { return told->startType; };
    return n;
}

struct Loop : IdleNode {
    Told t;

    Loop() { told = &t; }
    ~Loop() { told = nullptr; }
    void run(const std::function<void()>& body)
    {
        in([&body] {
            const pll::Needs needs = withoutNeighbours(pll::needs());
            pll::setNeeds(&needs);
            body();
            pll::setNeeds(nullptr);
        });
    }
    std::size_t traced(const std::string& text) { return node.traces().count({text}); }
};

void feed(double phase, u32 samples, void (*control)(double) = KvdLoz6TuReg_pll_control)
{
    for (; samples > 0; --samples) control(phase);
}
u32 state() { return KvdLoz6TuReg_pllState(); }

/// A loop that has just locked to zero.
void lock()
{
    KvdLoz6TuReg_pll_setState(PLL_Unlocked);
    feed(0.0, 8);                            // two that don't count, six near
    ASSERT_EQ(state(), u32{PLL_Locked});
}

TEST(PllLocked, TwoSamplesOutsideAreForgivenAndAStepThatStaysBecomesAnOffset)
{
    Loop loop;
    loop.run([&] {
        lock();
        feed(1e-9, 1);
        feed(2e-7, 2);
        feed(1e-7, 1);                       // at the limit: inside
        feed(2e-7, 7);                       // two forgiven, five counted
        EXPECT_EQ(state(), u32{PLL_Locked});
        EXPECT_EQ(KvdLoz6TuReg_getOffset().f, 0.0);
        feed(2e-7, 1);
        EXPECT_EQ(state(), u32{PLL_OffsetLocked});
        EXPECT_DOUBLE_EQ(KvdLoz6TuReg_getOffset().f, 2e-7);
        EXPECT_EQ(KvdLoz6TuReg_pll_targetDiff(), 0.0);
        feed(6e-8, 5);                       // far from the target, five times
        EXPECT_EQ(loop.t.jumpRetries, 0u);
        feed(0.0, 1);
        EXPECT_EQ(loop.t.jumpRetries, 1u) << "a jump that waits is tried with a good sample";
        feed(-6e-8, 5);
        EXPECT_EQ(state(), u32{PLL_OffsetLocked});
        feed(-6e-8, 1);
        EXPECT_EQ(state(), u32{PLL_Unlocked});
        EXPECT_EQ(loop.t.accuracies, 1u);
    });
    EXPECT_EQ(loop.traced("*** Transiting from OffsetLocked to Unlocked! ***"), 1u);
}

TEST(PllLocked, AnUnsteadyPhaseUnlocks)
{
    Loop loop;
    loop.run([&] {
        lock();
        feed(0.0, 1);
        for (u32 i = 0; i < 8; ++i) feed(i % 2 == 0 ? 2e-7 : 4e-7, 1);
        EXPECT_EQ(state(), u32{PLL_Unlocked});
    });
}

TEST(PllUnlocked, SamplesBetweenTheBandsCountDownByOne)
{
    Loop loop;
    loop.run([&] {
        KvdLoz6TuReg_pll_setState(PLL_Unlocked);
        feed(0.0, 7);                        // five near
        feed(5e-8, 1);                       // at the band: down to four
        feed(0.0, 1);
        EXPECT_EQ(state(), u32{PLL_Unlocked});
        feed(5.1e-7, 1);                     // a new target clears the count
        EXPECT_EQ(KvdLoz6TuReg_pll_targetDiff(), 5.1e-7);
        feed(5.1e-7, 5);
        EXPECT_EQ(state(), u32{PLL_Unlocked});
        feed(5.1e-7, 1);
        EXPECT_EQ(state(), u32{PLL_OffsetLocked});
        EXPECT_DOUBLE_EQ(KvdLoz6TuReg_getOffset().f, 5.1e-7);
    });
}

TEST(PllUnlocked, DriftIsToldAfterAHundredSamplesAndTheIntegratorStopsAtItsLimit)
{
    Loop loop;
    loop.run([&] {
        KvdLoz6TuReg_pll_setState(PLL_Unlocked);
        feed(4e-7, 101);                     // never near, never a new target
        EXPECT_EQ(loop.t.drifting, 0u);
        feed(4e-7, 2);
        EXPECT_EQ(loop.t.drifting, 2u);
        for (u32 i = 0; i < 5; ++i) pll::filter(1.0);
        EXPECT_EQ(pll::vars().yi, 1e-5);
        for (u32 i = 0; i < 5; ++i) pll::filter(-1.0);
        EXPECT_EQ(pll::vars().yi, -1e-5);
    });
}

TEST(PllHoldover, HoldsTheMeanOfWhatItHas)
{
    struct Case { const char* what; u32 filled; u32 locked, held; double y; };
    for (const Case& c : std::to_array<Case>({{"nothing", 0, PLL_Locked, PLL_Freq_Holdover, 0.0},
                                              {"a part", 4, PLL_Locked, PLL_Freq_Holdover, 1.5},
                                              {"all but one", 59, PLL_OffsetLocked, PLL_Freq_Holdover, 29.0},
                                              {"all, of zero", 60, PLL_Locked, PLL_Locked_Holdover, 29.5},
                                              {"all, of an offset", 60, PLL_OffsetLocked, PLL_Offset_Holdover, 29.5},
                                              {"more than all", 61, PLL_Locked, PLL_Locked_Holdover, 30.5},
                                              {"not locked", 60, PLL_Unlocked, PLL_Freq_Holdover, 29.5}})) {
        SCOPED_TRACE(c.what);
        Loop loop;
        loop.run([&] {
            pll::Pll& p = pll::vars();
            p.currState = c.locked;
            for (u32 i = 0; i < c.filled; ++i) {       // outputs 0, 1, 2, ...
                p.yi = i;
                p.vector[i % pll::HO_VECTOR] = i;
                p.holdOverVectorIndex = (i + 1) % pll::HO_VECTOR;
                p.holdOverVectorFull = i + 1 >= pll::HO_VECTOR ? 1 : p.holdOverVectorFull;
            }
            KvdLoz6TuReg_pll_toHoldover();
            EXPECT_EQ(state(), c.held);
            EXPECT_DOUBLE_EQ(loop.t.y, c.y);
            loop.t.y = -1;
            KvdLoz6TuReg_pll_toHoldover();             // there already
            EXPECT_EQ(loop.t.y, -1);
        });
    }
}

TEST(PllHoldover, TheVectorOutlivesOneLockAfterAPeersRestart)
{
    Loop loop;
    loop.run([&] {
        pll::Pll& p = pll::vars();
        p.currState = PLL_Locked_Holdover;
        p.holdOverVectorFull = 1;
        KvdLoz6TuReg_pll_clearEmptyHOVector();
        feed(0.0, 6);
        EXPECT_EQ(state(), u32{PLL_Locked});
        EXPECT_EQ(p.holdOverVectorFull, 1u);
        KvdLoz6TuReg_pll_toHoldover();
        EXPECT_EQ(state(), u32{PLL_Locked_Holdover});
        loop.t.y = -1;
        for (u32 i = 0; i < 11; ++i) feed(i * 1e-7, 1);   // none steady: no filter runs
        EXPECT_EQ(state(), u32{PLL_Locked_Holdover});
        EXPECT_EQ(loop.t.y, -1);
        feed(0.0, 1);
        EXPECT_EQ(state(), u32{PLL_Unlocked});
        p.currState = PLL_Locked_Holdover;
        p.stateChanged = 1;
        feed(0.0, 6);
        EXPECT_EQ(state(), u32{PLL_Locked});
        EXPECT_EQ(p.holdOverVectorFull, 0u);
    });
    EXPECT_EQ(loop.traced("Holdover vector is not emptied."), 1u);
    EXPECT_EQ(loop.traced("MP restart is not reason for state change."), 1u);
}

TEST(PllHistory, GoesToFlashAtALockAndEveryTwoDays)
{
    constexpr u32 TWO_DAYS = 172'800;
    Loop loop;
    loop.run([&] {
        lock();
        loop.t.histories = loop.t.flashes = 0;
        feed(0.0, 1);
        EXPECT_EQ(loop.t.flashes, 1u);
        feed(0.0, TWO_DAYS - 1);
        EXPECT_EQ(loop.t.flashes, 1u);
        feed(0.0, 1);
        EXPECT_EQ(loop.t.flashes, 2u);
        EXPECT_EQ(loop.t.histories, TWO_DAYS + 1);
    });
}

TEST(PllLog, TurnsAfterFiftyChangesAndTakesThoseWithoutAReference)
{
    Loop loop;
    loop.run([&] {
        for (u32 i = 0; i < 30; ++i) {
            KvdLoz6TuReg_pll_setState(PLL_Unlocked);
            KvdLoz6TuReg_pll_setState(PLL_PreJumpStart);
        }
        EXPECT_EQ(pll::vars().logIndex, 10u);
        loop.t.selectedRef = TU_SR_NO_REF;
        KvdLoz6TuReg_pll_setState(PLL_Uninitialized);
        EXPECT_EQ(pll::vars().log[10].state, u32{PLL_Uninitialized});
        EXPECT_EQ(pll::vars().log[10].mode, u32{pll::MODE_NONE});
        EXPECT_EQ(pll::vars().log[11].mode, u32{pll::MODE_GPSOSL});
    });
}

TEST(Pll, AStateWithoutHandlerIsTracedAndTheSampleDropped)
{
    Loop loop;
    loop.run([&] {
        feed(1e-7, 1);
        KvdLoz6TuReg_pll_toHoldover();
        loop.t.selectedRef = TU_SR_SOCPRI_REF;
        KvdLoz6TuReg_pll_setState(PLL_PreJumpHist);
        feed(1e-7, 1, KvdLoz6TuReg_soCpriPll_control);
        loop.t.isMaster = false;
        feed(1e-7, 1, KvdLoz6TuReg_slavePll_control);
        EXPECT_EQ(loop.t.y, -1);
    });
    constexpr const char* FAULTY = "() - Controlling PLL while in faulty state (";
    EXPECT_EQ(loop.traced(std::string("KvdLoz6TuReg_pll_control") + FAULTY + "0)"), 1u);
    EXPECT_EQ(loop.traced(std::string("KvdLoz6TuReg_soCpriPll_control") + FAULTY + "2)"), 1u);
    EXPECT_EQ(loop.traced(std::string("KvdLoz6TuReg_slavePll_control") + FAULTY + "0)"), 1u);
    EXPECT_EQ(loop.traced("PLL is unitialized. Cannot set PLL to holdover."), 1u);
}

TEST(SlavePllIdl1, AJumpWithinLockedBeginsTheCountsAnew)
{
    Loop loop;
    loop.run([&] {
        loop.t.isMaster = false;
        KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Locked);
        feed(1e-6, 8, KvdLoz6TuReg_slavePll_control);         // two forgiven, the sixth jumps
        for (u32 i = 0; i < 8; ++i)                           // unsteady after it: nothing to jump to
            feed(i % 2 == 0 ? 2e-7 : 4e-7, 1, KvdLoz6TuReg_slavePll_control);
        EXPECT_EQ(KvdLoz6TuReg_slavePllState(), u32{SLAVE_PLL_Unlocked});
    });
}

TEST(SlavePllIdl2, FarSamplesAfterAWarmStartUnlockWhereTheyCantGiveUp)
{
    Loop loop;
    loop.run([&] {
        loop.t.isMaster = false;
        loop.t.idlMode = KVD_BIRAIIF_IDL_MODE_2;
        loop.t.startType = KVD_BIRAIIF_RESTART_WARM;
        KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Locked);
        feed(2e-7, 5, KvdLoz6TuReg_slavePll_control);
        EXPECT_EQ(KvdLoz6TuReg_slavePllState(), u32{SLAVE_PLL_Locked});
        feed(2e-7, 1, KvdLoz6TuReg_slavePll_control);
        EXPECT_EQ(KvdLoz6TuReg_slavePllState(), u32{SLAVE_PLL_Unlocked});
    });
}

TEST(SlavePllIdl2, LocksOnAWindowThatEndsBelowItsMeanWithOrWithoutAPortServer)
{
    constexpr u32 FINE = 4;
    for (const int idpi : {0, 1}) {
        SCOPED_TRACE(idpi);
        Loop loop;
        loop.run([&] {
            loop.t.isMaster = false;
            loop.t.idlMode = KVD_BIRAIIF_IDL_MODE_2;
            loop.t.idpi = idpi;
            KvdLoz6TuReg_slavePll_setState(SLAVE_PLL_Unlocked);
            feed(1e-9, 19, KvdLoz6TuReg_slavePll_control);
            feed(1.9e-8, 1, KvdLoz6TuReg_slavePll_control);   // near, but the window ends above its mean
            EXPECT_EQ(KvdLoz6TuReg_slavePllState(), u32{SLAVE_PLL_Unlocked});
            feed(1e-9, 19, KvdLoz6TuReg_slavePll_control);
            feed(2e-8, 1, KvdLoz6TuReg_slavePll_control);     // at the limit: begins anew
            feed(1e-9, 19, KvdLoz6TuReg_slavePll_control);
            EXPECT_EQ(KvdLoz6TuReg_slavePllState(), u32{SLAVE_PLL_Unlocked});
            feed(1e-9, 1, KvdLoz6TuReg_slavePll_control);
            EXPECT_EQ(KvdLoz6TuReg_slavePllState(), u32{SLAVE_PLL_Locked});
            EXPECT_EQ(loop.t.sent, FINE);
            EXPECT_EQ(loop.t.stored, idpi == 0 ? FINE : 0u);
        });
        EXPECT_EQ(loop.traced("KvdLoz6TuReg_slavePll_control(): Unable to send "
                              "IDPI_CLK_STATUS_FINE_TIME_SYNCED - IDPI Server is not available."),
                  idpi == 0 ? 0u : 1u);
    }
}

}  // namespace
