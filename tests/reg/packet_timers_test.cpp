// Timers of a packet time reference: what a time-out means, and when it means nothing.
#include "node/sig.h"
#include "reg/kvd_reg_packet_int.h"
#include "sig/reg_sig.h"
#include "tests/support/idle_node.h"

#include <gtest/gtest.h>

namespace {

u32 degraded;

/// Hands the regulator what comes within that time.
void serve(u32 ms)
{
    while (Signal* sig = ose::receive_w_tmo(ms, ose::ANY_SIGNAL)) {
        EXPECT_EQ(KvdLoz6TuReg_packetDispatch(sig), 1);
        ose::free_buf(&sig);
    }
}

TEST(PacketTimers, ATimeoutQueuedBeforeARestartDoesntCount)
{
    struct Case { u32 timer; u32 ms; };
    constexpr Case CASES[] = {
        {packet::HIGH_PDV_TIMER, 60'000},
        {packet::LOCK_1588J3_TIMER, 5'400'000},
        {packet::LOCK_G82751_TIMER, 120'000},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.timer);
        IdleNode b;
        b.in([&c] {
            packet::Needs needs = packet::needs();
            needs.setRefState = [](u8 state) { degraded += state == 2 ? 1 : 0; };
            packet::setNeeds(&needs);
            degraded = 0;
            EXPECT_TRUE(packet::startPdvTimer(c.timer));
            EXPECT_FALSE(packet::startPdvTimer(c.timer));    // it runs on
            ose::delay(c.ms + 1);                            // it runs out and waits in the queue
            packet::stopPdvTimer(c.timer);
            EXPECT_TRUE(packet::startPdvTimer(c.timer));
            serve(c.ms - 10);
            EXPECT_EQ(degraded, 0u);
            EXPECT_TRUE(packet::pdvTimerRuns(c.timer));
            serve(20);
            EXPECT_EQ(degraded, 1u);
            EXPECT_FALSE(packet::pdvTimerRuns(c.timer));
            EXPECT_TRUE(packet::startPdvTimer(c.timer));     // stopped in time it tells nothing
            packet::stopPdvTimer(c.timer);
            serve(c.ms + 10);
            EXPECT_EQ(degraded, 1u);
            packet::setNeeds(nullptr);
        });
    }
}

}  // namespace
