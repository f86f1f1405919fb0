// A component's timer: time-outs that lay in the queue when it was cancelled or started over.
#include "base/kvd_answer.h"
#include "ose/program.h"
#include "support/idle_node.h"

using namespace ose;

namespace tests {
namespace {

class Timer : public Kernel {
protected:
    /// The next signal, as its handler would take it; the ms at which it came, 0 when it didn't act.
    u32 next()
    {
        Signal* sig = receive_w_tmo(10'000, ANY_SIGNAL);
        if (sig == nullptr) return UINT32_MAX;
        free_buf(&sig);
        return KvdTimer_expired(timer) ? get_ticks() : 0;
    }
    KvdTimer timer;
};

TEST_F(Timer, QueuedTimeOutOfAFormerRunNeitherActsNorEndsThePresentOne)
{
    system.call(block, [&] {
        EXPECT_TRUE(KvdTimer_start(timer, 10, 1));
        delay(20);                                    // in the queue by now
        EXPECT_TRUE(KvdTimer_restart(timer, 30, 1));
        delay(40);                                    // and so is the second
        EXPECT_TRUE(KvdTimer_restart(timer, 50, 1));
        EXPECT_EQ(next(), 0u);
        EXPECT_EQ(next(), 0u);
        EXPECT_TRUE(timer.runs());
        EXPECT_EQ(next(), 110u);
        EXPECT_FALSE(timer.runs());

        EXPECT_TRUE(KvdTimer_start(timer, 10, 1));
        delay(10);
        KvdTimer_cancel(timer);
        EXPECT_FALSE(timer.runs());
        KvdTimer_cancel(timer);                       // again: nothing more is owed
        EXPECT_EQ(next(), 0u);
        EXPECT_EQ(next(), UINT32_MAX);
    });
    EXPECT_EQ(block.poolUsed(), 0u);
}

TEST(Answer, IsLateOnlyForTheWaitThatStands)
{
    IdleNode().in([] {
        KvdTimer timer;
        constexpr KvdAnswerOf ANSWER{0, "aService", 1};
        const auto isLate = [&] {
            Signal* sig = receive_w_tmo(10'000, ANY_SIGNAL);
            if (sig != nullptr) free_buf(&sig);
            return KvdAnswer_isLate(timer, ANSWER);
        };
        KvdAnswer_await(timer, ANSWER, 10);
        delay(20);
        KvdAnswer_await(timer, ANSWER, 30);           // asked anew before the time-out was taken
        EXPECT_FALSE(isLate());
        EXPECT_TRUE(isLate());
        EXPECT_FALSE(isLate()) << "nobody waits";
    });
}

TEST_F(Timer, StartKeepsARunAndARefusalLeavesNothing)
{
    system.call(block, [&] {
        EXPECT_TRUE(KvdTimer_startSig(timer, 10, alloc(8, 1)));
        EXPECT_TRUE(KvdTimer_startSig(timer, 100, alloc(8, 1)));   // its signal isn't needed
        EXPECT_EQ(next(), 10u);
        system.faults().refuseTimers = 2;
        EXPECT_FALSE(KvdTimer_restartSig(timer, 10, alloc(8, 1)));
        EXPECT_FALSE(KvdTimer_start(timer, 10, 1));
        EXPECT_EQ(next(), UINT32_MAX);
    });
    EXPECT_EQ(block.poolUsed(), 0u);
}

}  // namespace
}  // namespace tests
