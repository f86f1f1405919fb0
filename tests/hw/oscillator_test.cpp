// Divider and delta-sigma: steering, its limits and reach, checked writes, the wander generator.
#include "hw/fake_bus.h"
#include "sig/hwif_sig.h"

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
    }
};

TEST(Steering, WritesKAndTheEnableEdgeAlone)
{
    Running board(2);
    board.in([] { tuHwIf_adjustFrequency(1e-9); });
    // 706.0872395825 * 1e-9 * 8e8 is 564.87; 69791666 + 565.
    EXPECT_EQ(board.takeWrites(), (std::vector<std::pair<u32, u32>>{{BASE_2B + 0x54, 0},
                                                                    {BASE_2B + 0x58, 69792231},
                                                                    {BASE_2B + 0x5c, 0},
                                                                    {BASE_2B + 0x5c, 0x80000000}}));
    EXPECT_EQ(board.bus.countOf("Writing to D/S: nomDiv = 705, K = 69792231 , M = 800000000"), 1u);
}

TEST(Steering, WritesTheNominalDivisorBackWhenTheRatioIsWithinReachAgain)
{
    Running board(1);
    board.in([] { tuHwIf_writeNominalDivisor(740); });       // where a far offset had left it
    board.in([] { tuHwIf_adjustFrequency(0.0); });
    EXPECT_EQ(board.get(75), 705u);
    EXPECT_EQ(board.get(79), 69791666u);
    board.takeWrites();
    board.in([] { tuHwIf_adjustFrequency(0.0); });
    for (const auto& [address, value] : board.takeWrites()) EXPECT_NE(address, BASE_1 + 0x48);
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
    for (const auto& [ratio, isIn] : {std::pair{0.4, false}, {1.0, true}, {16384.0, true}, {16385.0, false}})
        EXPECT_EQ(frequencyWords(NOMINAL_TYPE1, 0, ratio / nominalRatio(NOMINAL_TYPE1) - 1).inRange, isIn)
            << "a divisor of 14 bits for " << ratio;
    EXPECT_EQ(frequencyWords(NOMINAL_TYPE1, 0, 706.75 / nominalRatio(NOMINAL_TYPE1) - 1).divisor, 705);
}

// ---- wander generator -------------------------------------------------------------------------

/// Serves the generator's own timer; answers how many steps came within `ms`.
u32 serve(OSTIME ms)
{
    const u32 begin = ose::get_ticks();
    u32 steps = 0;
    for (;;) {
        const u32 passed = static_cast<u32>(static_cast<u64>(ose::get_ticks() - begin) * ose::system_tick()
                                            / 1000);
        if (passed >= ms) return steps;
        Signal* sig = ose::receive_w_tmo(ms - passed, ose::ANY_SIGNAL);
        if (sig == nullptr) return steps;
        EXPECT_EQ(tuHwIf_dispatch(sig), 1);
        ose::free_buf(&sig);
        ++steps;
    }
}

TEST(Wander, AStepThatWasQueuedBeforeAStopDoesNothing)
{
    Running board(1);
    board.in([] {
        orderWander(1, 10, 1000);
        ose::delay(12'600);               // the step is in the queue, its timer has run out
        orderWander(0);
        EXPECT_EQ(wanderState().timerRuns, 0u);
        EXPECT_EQ(serve(60'000), 1u);
        EXPECT_EQ(tuHwIf_wanderOffset(), 0.0);
        orderWander(1, 10, 1000);
        EXPECT_EQ(serve(12'600), 1u);
        ose::delay(12'600), orderWander(1, 10, 1000);      // nor before another start
        EXPECT_EQ(serve(100), 1u);
        EXPECT_EQ(wanderState().index, 4u);
    });
}

TEST(Wander, RefusesWhatItCannotRun)
{
    Running board(1);
    board.in([] {
        orderWander(3, 10, 10);
        orderWander(2, 10, 10);           // a step, while it doesn't run
        orderWander(1, 0, 10);
        orderWander(1, std::nan(""), 10);
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
        orderWander(1, 10, 10);
        EXPECT_EQ(wanderState().active, 0u);
        EXPECT_EQ(tuHwIf_wanderOffset(), 0.0);
    });
    EXPECT_EQ(board.bus.levelOf("Unknown Wander Generation Operation"), 1);
    EXPECT_TRUE(board.takeWrites().empty());
}

}  // namespace
