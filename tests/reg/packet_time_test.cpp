// A packet time reference: what delay variation does, and packets of a clock that is gone.
#include "reg/support/packet_bench.h"

#include <gmock/gmock.h>

#include <cmath>

using regtest::PacketBench;
using testing::ElementsAre;

namespace {

constexpr u8 G82751 = 1;
constexpr i64 TODAY_s = 1'795'000'000;           // TAI, autumn of 2026

/// Sixteen packets a second on a locked clock without an offset.
struct Link : PacketBench {
    u32 packets = 0;
    std::vector<u32> measured;           // numbers of the packets that ended in a measurement

    Link() : PacketBench(Z_PKT_TIME_REF)
    {
        profile = G82751;
        inManager([] {
            KvdLoz6TuReg_onPktTimeRefInit();
            KvdLoz6TuReg_restartPdvHistory(2, 1);
        });
    }
    void send(double down_us, double up_us, u8 regState = TIMELOCKED)
    {
        world.runUntil(start + packets * 62'500 * ose::US);
        run(1.0 + packets / 16.0);
        ++packets;
        PktTimeMsg m{};
        m.syncIntervalMs = 63;
        m.T1_s = m.T4_s = TODAY_s + packets / 16;
        m.T2_s = m.T3_s = 1000 + packets / 16;       // the node counts from its start
        m.T1_ns = m.T3_ns = static_cast<i32>(packets % 16 * 62'500'000);
        m.T2_ns = m.T1_ns + static_cast<i32>(std::lround(down_us * 1000));
        m.T4_ns = m.T3_ns + static_cast<i32>(std::lround(up_us * 1000));
        estimated.reset();
        inManager([&] {
            KvdLoz6TuReg_forceRegState(regState);
            KvdLoz6TuReg_handlePktTimeMsg(m);
        });
        if (estimated) measured.push_back(packets);
    }
    void sendMany(u32 count, double us)
    {
        for (u32 i = 0; i < count; ++i) send(us, us);
    }
};

TEST(PacketTime, HighDelayVariationHoldsMeasurementsBackAndDegradesAfterAMinute)
{
    Link link;
    link.sendMany(16, 5.0);
    EXPECT_FALSE(link.measured.empty());
    link.refStates.clear();
    const auto load = [&link](u32 count) {        // six deviations of 100 ns up, none down
        for (u32 i = 0; i < count; ++i) link.send(5.0, i % 2 == 0 ? 5.0 : 5.2);
    };
    load(16);
    link.measured.clear();
    load(59 * 16);
    EXPECT_TRUE(link.measured.empty());
    EXPECT_TRUE(link.refStates.empty());
    load(3 * 16);
    EXPECT_THAT(link.refStates, ElementsAre(2));
    EXPECT_EQ(link.traced("PTP time sync ref high PDV timer timeout"), 1u);
    // The deviation is of all packets since the clock locked: it falls slowly, or with the next lock.
    link.refStates.clear();
    link.send(5.0, 5.0, SYNCH3);
    link.sendMany(16, 5.0);
    EXPECT_EQ(link.traced("High PDV criteria for G82751 profile left"), 1u);
    EXPECT_THAT(link.refStates, ElementsAre(1));
    EXPECT_FALSE(link.measured.empty());
    // A limit of the operator lets the same load pass.
    link.refStates.clear();
    link.inManager([] { KvdLoz6TuReg_setPdvThreshold(4, 1000); });
    load(70 * 16);
    EXPECT_TRUE(link.refStates.empty());
    EXPECT_EQ(link.traced("High PDV criteria for G82751 profile entered"), 2u);   // the second after the time-out
}

TEST(PacketTime, APacketWhoseClockIsGoneOrUnknownIsDroppedAndTheNextTaken)
{
    Link link;
    link.sendMany(3, 5.0);
    const auto count = [&link] {
        u32 packets = 0;
        link.inManager([&] { packets = packet::state().filter.numberOfPkts; });
        return packets;
    };
    link.hasClock = false;
    link.sendMany(1, 5.0);
    EXPECT_EQ(link.traced("selected profile is NULL pointer"), 1u);
    link.hasClock = true;
    link.profile = 2;
    link.sendMany(1, 5.0);
    EXPECT_EQ(link.traced("Unexpected profile (2)"), 1u);
    link.profile = G82751;
    EXPECT_EQ(count(), 3u);
    link.sendMany(1, 5.0);
    EXPECT_EQ(count(), 4u);
    link.inManager([] { measure::state().var.selectedRef = TU_SR_GPS_REF; });
    link.sendMany(1, 5.0);
    EXPECT_EQ(link.traced("Measurement discarded: No reference selected."), 1u);
    EXPECT_EQ(count(), 4u);
}

}  // namespace
