// Timers of a packet time reference: what a time-out means, and when it means nothing.
#include "node/sig.h"
#include "reg/kvd_reg_packet_int.h"
#include "tests/support/idle_node.h"

#include <gtest/gtest.h>

TEST(PacketTimers, ATimeOutDegradesOnceUnlessTheTimerWasStoppedInTime)
{
    static u32 degraded;
    struct Case { u32 timer; u32 ms; };
    for (const Case& c : {Case{packet::HIGH_PDV_TIMER, 60'000}, {packet::LOCK_1588J3_TIMER, 5'400'000},
                          {packet::LOCK_G82751_TIMER, 120'000}}) {
        SCOPED_TRACE(c.timer);
        IdleNode b;
        b.in([&c] {
            packet::Needs needs = packet::needs();
            needs.setRefState = [](u8 state) { degraded += state == 2 ? 1 : 0; };
            packet::setNeeds(&needs);
            const auto degradedWithin = [](u32 ms) {
                degraded = 0;
                while (Signal* sig = ose::receive_w_tmo(ms, ose::ANY_SIGNAL)) {
                    KvdLoz6TuReg_packetDispatch(sig);
                    ose::free_buf(&sig);
                }
                return degraded;
            };
            EXPECT_TRUE(packet::startPdvTimer(c.timer));
            EXPECT_FALSE(packet::startPdvTimer(c.timer));    // it runs on
            EXPECT_EQ(degradedWithin(c.ms - 10), 0u);
            EXPECT_EQ(degradedWithin(20), 1u);
            EXPECT_EQ(packet::pdvLevel(c.timer), TRACE_3) << "its next end is no news";
            EXPECT_TRUE(packet::startPdvTimer(c.timer));
            packet::stopPdvTimer(c.timer);
            EXPECT_EQ(degradedWithin(c.ms + 10), 0u);
            packet::setNeeds(nullptr);
        });
    }
}
