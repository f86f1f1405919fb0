// Divider and delta-sigma: steering, its limits and reach, checked writes, the wander generator.
#include "hw/fake_bus.h"
#include "reg/kvd_reg_control.h"
#include "sig/hwif_sig.h"
#include "sig/ref_types.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace hwtest;
using namespace hwif;

namespace {

/// A board in running order: registers at their nominal values.
struct Running : Bench {
    explicit Running(u32 board, u32 divisor = 705) : Bench(board)
    {
        in([=] {
            tuHwIf_writeDeltaSigmaM(800000000);
            tuHwIf_writeNominalDivisor(divisor);
        });
        bus.writes.clear();
        bus.traces.clear();
        bus.order.clear();
    }
    i64 K()
    {
        i64 value = 0;
        in([&] { value = tuHwIf_readDeltaSigmaK(); });
        return value;
    }
    /// Ratio that the registers make.
    double ratio() { return get(75) + 1.0 + static_cast<double>(K()) / 800000000.0; }
};

}  // namespace

TEST(Steering, WritesKAndTheEnableEdgeAlone)
{
    Running board(2);
    board.in([] { tuHwIf_adjustFrequency(1e-9); });
    // 706.0872395825 * 1e-9 * 8e8 is 564.87; 69791666 + 565.
    EXPECT_EQ(board.takeWrites(), (std::vector<std::pair<u32, u32>>{{BASE_2B + 0x54, 0},
                                                                    {BASE_2B + 0x58, 69792231},
                                                                    {BASE_2B + 0x5c, 0},
                                                                    {BASE_2B + 0x5c, 0x80000000}}));
    EXPECT_EQ(board.bus.order, (std::vector<std::string>{"w", "w", "w", "b", "w"}));
    EXPECT_EQ(board.bus.countOf("Writing to D/S: nomDiv = 705, K = 69792231 , M = 800000000"), 1u);
}

TEST(Steering, MakesTheWantedRatioOnEveryBoard)
{
    for (const NominalValues& n : {NOMINAL_REV3, NOMINAL_EXT_PHASE, NOMINAL_TYPE2, NOMINAL_TYPE1}) {
        const double U_nom = n.nomDiv + static_cast<double>(n.K) / 800000000.0;
        for (const double rel : {0.0, 1e-12, -1e-12, 1e-9, -1e-9, 1.04e-5, -1.04e-5})
            for (const double wander : {0.0, 0.002, -0.002, 0.05, -0.05}) {
                const FrequencyWords w = frequencyWords(n, rel, wander);
                SCOPED_TRACE(testing::Message() << n.nomDiv << " " << rel << " " << wander);
                ASSERT_TRUE(w.inRange);
                const double ratio = w.divisor + 1 + static_cast<double>(w.K) / 800000000.0;
                EXPECT_NEAR(ratio, U_nom * (1 + rel + wander), 0.63e-9);     // half a unit of K
                EXPECT_LT(std::llabs(w.K), 4294967296);                      // 33 bits
            }
    }
}

TEST(Steering, OfRevision3GoesBelowNominalWithANegativeK)
{
    // The band of the divisor is open at its lower end, so each negative offset picks the nearest
    // one.
    struct Case { double rel; double divisor; i64 K; };
    for (const Case& c : std::to_array<Case>({{0.0, 1249, 0},
                                              {1e-9, 1249, 1000},
                                              {-1e-9, 1249, -1000},
                                              {-1.04e-5, 1249, -10400000}})) {
        const FrequencyWords w = frequencyWords(NOMINAL_REV3, c.rel, 0);
        EXPECT_EQ(w.divisor, c.divisor);
        EXPECT_EQ(w.K, c.K);
    }
}

TEST(Steering, WritesTheNominalDivisorBackWhenTheRatioIsWithinReachAgain)
{
    Running board(1);
    board.in([] { tuHwIf_writeNominalDivisor(740); });       // where a far offset had left it
    board.in([] { tuHwIf_adjustFrequency(0.0); });
    EXPECT_EQ(board.get(75), 705u);
    EXPECT_NEAR(board.ratio(), 706.0872395825, 1e-9);
    board.takeWrites();
    board.in([] { tuHwIf_adjustFrequency(0.0); });
    for (const auto& [address, value] : board.takeWrites()) EXPECT_NE(address, BASE_1 + 0x48);
}

TEST(Steering, AnExactHalfOfKGoesDown)
{
    // 2^-12 above 1250 is K = 195312.5.
    const double rel = 1.9531249995097255e-07;
    ASSERT_EQ(1250.0 * (1 + rel + 0.0), 1250.000244140625);
    EXPECT_EQ(frequencyWords(NOMINAL_REV3, rel, 0.0).K, 195312);
}

TEST(Steering, LimitsDependOnTheRole)
{
    EXPECT_EQ(frequencyLimit(1, TU_REF, 0), 1.05e-5);
    EXPECT_EQ(frequencyLimit(1, SOCPRI_REF, 1), 1.01e-5);
    EXPECT_EQ(frequencyLimit(0, SOCPRI_REF, 1), 1.02e-5);
    EXPECT_EQ(frequencyLimit(0, TU_REF, 0), 1.0096e-5);
}

TEST(Steering, RefusesAnOffsetOutsideItsLimit)
{
    for (const double rel : {1.06e-5, -1.06e-5, 1.0, std::nan("")}) {
        SCOPED_TRACE(rel);
        Running board(2);
        board.in([=] { tuHwIf_adjustFrequency(rel); });
        EXPECT_TRUE(board.takeWrites().empty());
        EXPECT_EQ(board.bus.levelOf("Warning - anomaly detected"), 4);
    }
    EXPECT_FALSE(frequencyWords(NOMINAL_TYPE1, 0, 25.0).inRange); // no 14-bit divisor gives that
    EXPECT_FALSE(frequencyWords(NOMINAL_TYPE1, 0, -2.0).inRange);
}

TEST(Steering, ReadsTheFrequencyBack)
{
    Running board(2);
    double zero = 9, offset = 9, other = 9;
    board.in([&] {
        tuHwIf_adjustFrequency(0.0);
        zero = tuHwIf_readCurrentFrequency();
        tuHwIf_adjustFrequency(-7.5e-6);
        offset = tuHwIf_readCurrentFrequency();
        other = tuHwIf_getCurrentFreqOffset();
    });
    EXPECT_EQ(zero, 0.0);
    EXPECT_NEAR(offset, -7.5e-6, 1e-12);
    EXPECT_EQ(other, offset);
}

TEST(Gain, IsMinusOneOverTheDividerAndSurvivesZero)
{
    Bench board(1);
    board.in([] {
        EXPECT_EQ(tuHwIf_calcOcxoGain(0.0), -1.0 / 706.0872395825);
        EXPECT_EQ(tuHwIf_calcOcxoGain(-2.0), 0.5);
    });
    EXPECT_EQ(board.bus.levelOf("KvdLoz6TuReg_calcOcxoGain: division by 0!"), 1);
}

TEST(CheckedWrite, ReadsBackUpToFourTimesAndNeverWritesTwice)
{
    struct Case { const char* what; u32 goodRead; u32 reads; i64 delays; bool failed; };
    for (const Case& c : std::to_array<Case>({{"at once", 1, 1, 0, false},
                                              {"at the fourth", 4, 4, 3, false},
                                              {"never", 99, 4, 4, true}})) {
        SCOPED_TRACE(c.what);
        Bench board(1);
        const u32 at = board.address(75);
        board.bus.onRead[at] = [&, at](u32 stored) {
            return board.bus.reads[at] >= c.goodRead ? stored : 0;
        };
        const ose::Time before = board.world.now();
        board.in([] { tuHwIf_writeNominalDivisor(0x4000 | 705); });     // above 14 bits
        EXPECT_EQ(board.takeWrites(), (std::vector<std::pair<u32, u32>>{{at, 705}}));
        EXPECT_EQ(board.bus.reads[at], c.reads);
        EXPECT_EQ(board.world.now() - before, c.delays * 10 * ose::MS);
        EXPECT_EQ(board.bus.countOf("writeNominalDivisor failed 4 times"), c.failed ? 1u : 0u);
        EXPECT_EQ(board.bus.levelOf("writeNominalDivisor failed for value :"), c.failed ? 1 : -1);
    }
}

TEST(CheckedWrite, TellsA64BitValueAsText)
{
    Bench board(1);
    board.bus.onRead[board.address(79)] = [](u32) { return 7u; };
    board.bus.onRead[board.address(77)] = [](u32) { return 7u; };
    board.in([] {
        tuHwIf_writeDeltaSigmaK(-69791666);
        tuHwIf_writeDeltaSigmaM(800000000);
    });
    EXPECT_EQ(board.bus.countOf("writeDeltaSigmaK failed 4 times"), 1u);
    EXPECT_EQ(board.bus.countOf("writeDeltaSigmaK failed for value :-69791666"), 1u);
    EXPECT_EQ(board.bus.countOf("writeDeltaSigmaM failed for value :800000000"), 1u);
}

// ---- wander generator -------------------------------------------------------------------------

namespace {

void order(u32 operation, double f = 0, double a = 0, double o = 0)
{
    auto* req = reinterpret_cast<KvdTuhwifGenWanderReq*>(
        ose::alloc(sizeof(KvdTuhwifGenWanderReq), KVD_TUHWIF_GEN_WANDER_REQ));
    req->operation = operation;
    req->frequency = f;
    req->amplitude = a;
    req->offset = o;
    Signal* sig = reinterpret_cast<Signal*>(req);
    EXPECT_EQ(tuHwIf_dispatch(sig), 1);
    ose::free_buf(&sig);
}

/// Serves the generator's own timer; answers how many steps came within `ms`.
u32 serve(OSTIME ms)
{
    const u32 begin = ose::get_ticks();
    u32 steps = 0;
    for (;;) {
        const u32 passed = static_cast<u32>(static_cast<u64>(ose::get_ticks() - begin)
                                            * ose::system_tick() / 1000);
        if (passed >= ms) return steps;
        Signal* sig = ose::receive_w_tmo(ms - passed, ose::ANY_SIGNAL);
        if (sig == nullptr) return steps;
        EXPECT_EQ(tuHwIf_dispatch(sig), 1);
        ose::free_buf(&sig);
        ++steps;
    }
}

}  // namespace

TEST(Wander, RunsASineInSixteenStepsAPeriod)
{
    Running board(1);
    board.in([] {
        order(1, 10, 1000);               // 10 mHz: a step each 12.5 s
        EXPECT_NEAR(tuHwIf_wanderOffset(), 2 * 1000 * 3.14159265 * 10 * 0.3826834324 * 1e-12,
                    1e-22);
        EXPECT_EQ(serve(12'499), 0u);
        EXPECT_EQ(serve(2), 1u);
        EXPECT_EQ(serve(25'000), 2u);
        EXPECT_NEAR(tuHwIf_wanderOffset(), 6.2831853e-8, 1e-20);       // the top of the sine
        EXPECT_EQ(serve(100'000), 8u);
        EXPECT_NEAR(tuHwIf_wanderOffset(), -6.2831853e-8, 1e-20);
        order(0);
        EXPECT_EQ(tuHwIf_wanderOffset(), 0.0);
        EXPECT_EQ(serve(60'000), 0u);
    });
    EXPECT_EQ(
        board.bus.countOf("Starting wander generation, frequency= 10, amplitude= 1000, offset= 0"),
        1u);
    EXPECT_EQ(board.bus.countOf("Wander generation stopped."), 1u);
}

TEST(Wander, ANewStartReplacesTheTimerAndKeepsTheIndex)
{
    Running board(1);
    board.in([] {
        order(1, 10, 1000);
        serve(25'001);
        order(1, 20, 1000, 1e-7);         // fourth step: the top
        EXPECT_NEAR(tuHwIf_wanderOffset(), 1.25663706e-7 + 1e-7, 1e-19);
        EXPECT_EQ(serve(6'249), 0u);
        EXPECT_EQ(serve(12'502), 3u);     // one stream of steps, 6.25 s apart
    });
    EXPECT_EQ(
        board.bus.countOf("Previous wander generation is stopped. Starting new wander generation: "
                          "frequency= 20"),
        1u);
}

TEST(Wander, AStepThatWasQueuedBeforeAStopDoesNothing)
{
    Running board(1);
    board.in([] {
        order(1, 10, 1000);
        ose::delay(12'600);               // the step is in the queue, its timer has run out
        order(0);
        EXPECT_EQ(serve(60'000), 1u);
        EXPECT_EQ(tuHwIf_wanderOffset(), 0.0);
        EXPECT_EQ(wanderState().timerRuns, 0u);
        order(1, 10, 1000);
        EXPECT_EQ(serve(12'600), 1u);
    });
}

namespace {

bool twoDaysDone = false;

/// A process of its own: the days outlast what a call may take.
void runTwoDays()
{
    order(1, 1, 100);                 // 125 s a step, 2000 s a period
    EXPECT_EQ(serve(173'874'000), 1390u);
    EXPECT_EQ(wanderState().active, 1u);
    EXPECT_EQ(serve(2'000), 1u);      // the end of the period past 172800 s
    EXPECT_EQ(wanderState().active, 0u);
    EXPECT_EQ(serve(1'000'000), 0u);
    twoDaysDone = true;
    ose::kill_proc(ose::current_process());
}

}  // namespace

TEST(Wander, EndsByItselfAfterTwoDays)
{
    Running board(1);
    twoDaysDone = false;
    board.in([] {
        ose::start(ose::create_process(ose::KIND_PRIORITISED, "two_days", runTwoDays, 4096, 15, 0,
                                       0));
    });
    EXPECT_TRUE(board.world.runUntilTrue([] { return twoDaysDone; }, 200'000 * ose::SEC));
    EXPECT_EQ(board.bus.countOf("stopping wander generation after 2 days"), 1u);
}

TEST(Wander, RefusesWhatItCannotRun)
{
    Running board(1);
    board.in([] {
        order(3, 10, 10);
        order(1, 0, 10);
        order(1, std::nan(""), 10);
        EXPECT_EQ(wanderState().active, 0u);
        Signal* brief = ose::alloc(8, KVD_TUHWIF_GEN_WANDER_REQ);
        EXPECT_EQ(tuHwIf_dispatch(brief), 1);
        ose::free_buf(&brief);
        Signal* other = ose::alloc(8, KVD_TUHWIF_GEN_WANDER_REQ + 1);
        EXPECT_EQ(tuHwIf_dispatch(other), 0);
        ose::free_buf(&other);
    });
    board.system.faults().refuseTimers = 1;
    board.in([] {
        order(1, 10, 10);
        EXPECT_EQ(wanderState().active, 0u);
        EXPECT_EQ(tuHwIf_wanderOffset(), 0.0);
    });
    EXPECT_EQ(board.bus.levelOf("Unknown Wander Generation Operation"), 1);
    EXPECT_TRUE(board.takeWrites().empty());
}
