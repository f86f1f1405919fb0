// Packets of a time reference whose clock is gone, unknown, or no longer selected.
#include "reg/support/packet_bench.h"

using regtest::PacketBench;

namespace {

constexpr u8 G82751 = 1;

TEST(PacketTime, APacketWhoseClockIsGoneOrUnknownIsDroppedAndTheNextTaken)
{
    PacketBench link(Z_PKT_TIME_REF);
    link.profile = G82751;
    link.inManager(KvdLoz6TuReg_onPktTimeRefInit);
    // Packets that the filter has counted by then.
    const auto countAfter = [&link](u32 packets) {
        PktTimeMsg m{};
        m.syncIntervalMs = 63;
        m.T1_s = m.T4_s = 1'795'000'000;           // TAI, autumn of 2026
        m.T2_s = m.T3_s = 1000;                    // the node counts from its start
        m.T2_ns = m.T4_ns = 5000;
        u32 count = 0;
        link.inManager([&] {
            KvdLoz6TuReg_forceRegState(TIMELOCKED);
            for (u32 i = 0; i < packets; ++i) KvdLoz6TuReg_handlePktTimeMsg(m);
            count = packet::state().filter.numberOfPkts;
        });
        return count;
    };
    EXPECT_EQ(countAfter(3), 3u);
    link.hasClock = false;
    EXPECT_EQ(countAfter(1), 3u);
    EXPECT_EQ(link.traced("selected profile is NULL pointer"), 1u);
    link.hasClock = true;
    link.profile = 2;
    EXPECT_EQ(countAfter(1), 3u);
    EXPECT_EQ(link.traced("Unexpected profile (2)"), 1u);
    link.profile = G82751;
    EXPECT_EQ(countAfter(1), 4u);
    link.inManager([] { measure::state().var.selectedRef = TU_SR_GPS_REF; });
    EXPECT_EQ(countAfter(1), 4u);
    EXPECT_EQ(link.traced("Measurement discarded: No reference selected."), 1u);
}

}  // namespace
