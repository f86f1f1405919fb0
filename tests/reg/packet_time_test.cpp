// A packet time reference: which packets end an interval, which are outliers, what delay variation does.
#include "reg/support/packet_bench.h"

#include <gmock/gmock.h>

#include <cmath>

using regtest::PacketBench;
using testing::ElementsAre;

namespace {

constexpr u8 J3 = 0, G82751 = 1;
constexpr i64 TODAY_s = 1'795'000'000;           // TAI, autumn of 2026

/// Sixteen packets a second on a locked clock without an offset.
struct Link : PacketBench {
    u32 packets = 0;
    std::vector<u32> measured;           // numbers of the packets that ended in a measurement
    i32 asymComp = 0;

    explicit Link(u8 profile_) : PacketBench(Z_PKT_TIME_REF)
    {
        profile = profile_;
        inManager([] {
            KvdLoz6TuReg_onPktTimeRefInit();
            KvdLoz6TuReg_restartPdvHistory(2, 1);
        });
    }
    void send(double down_us, double up_us, u8 regState = TIMELOCKED, u32 intervalMs = 63)
    {
        world.runUntil(start + packets * 62'500 * ose::US);
        run(1.0 + packets / 16.0);
        ++packets;
        PktTimeMsg m{};
        m.syncIntervalMs = intervalMs;
        m.T1_s = m.T4_s = TODAY_s + packets / 16;
        m.T2_s = m.T3_s = 1000 + packets / 16;       // the node counts from its start
        m.T1_ns = m.T3_ns = static_cast<i32>(packets % 16 * 62'500'000);
        m.T2_ns = m.T1_ns + static_cast<i32>(std::lround(down_us * 1000));
        m.T4_ns = m.T3_ns + static_cast<i32>(std::lround(up_us * 1000));
        m.asymComp = asymComp;
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
    double offset_ns()
    {
        double ns = 0;
        inManager([&] { ns = (KvdLoz6TuReg_getOffset().c + KvdLoz6TuReg_getOffset().f) * 1e9; });
        return ns;
    }
};

TEST(PacketTime, TheFloorRisesUntilPacketsAreCloseAndIntervalsShort)
{
    Link link(J3);
    link.sendMany(440, 20.0);
    // 10 us below the first delay, 20 % of the rest up and then 60 %: within 250 ns after five intervals of 5 s.
    EXPECT_THAT(link.measured, ElementsAre(80, 160, 240, 320, 400, 408, 416, 424, 432, 440));
    // No packet near the floor: the interval is a long one again.
    link.measured.clear();
    for (u32 i = 0; i < 80; ++i) link.send(20.4, 20.4);
    EXPECT_THAT(link.measured, ElementsAre(520));
}

TEST(PacketTime, AnotherRouteIsTakenAfterASecondOfOutliers)
{
    for (const u32 outliers : {15u, 16u}) {
        Link link(J3);
        link.sendMany(32, 20.0);
        link.bus.traces.clear();
        for (u32 i = 0; i < outliers; ++i) link.send(90.0, 20.0);
        link.send(outliers < 16 ? 20.0 : 90.0, 20.0);
        EXPECT_EQ(link.traced("new mean found: "), outliers < 16 ? 0u : 1u);
        // An outlier alone moves no deviation.
        link.inManager([&] {
            EXPECT_LT(packet::state().filter.stdDev21, 1e-9);
            EXPECT_EQ(packet::state().filter.jumpCount21, 0);
        });
    }
}

TEST(PacketTime, TenNanosecondsOfJitterAreTenNanosecondsYearsFromTheMaster)
{
    Link link(G82751);
    for (u32 i = 0; i < 64; ++i) link.send(i % 2 == 0 ? 5.0 : 5.01, i % 2 == 0 ? 5.01 : 5.0);
    link.inManager([] {
        EXPECT_NEAR(packet::state().filter.stdDev21, 5e-9, 1e-10);
        EXPECT_NEAR(packet::state().filter.stdDev43, 5e-9, 1e-10);
        const packet::Floor& down = packet::state().filter.down;
        EXPECT_NEAR(packet::difference(packet::delay21(packet::state().filter.syncPacket), down.minMin), 0.0, 1e-7);
    });
}

TEST(PacketTime, AnAsymmetryThatIsToldActsAtOnceAboveAHundredNanoseconds)
{
    Link link(J3);
    link.sendMany(10, 20.0);
    const double before = link.offset_ns();
    link.asymComp = 100;
    link.sendMany(1, 20.0);
    EXPECT_NEAR(link.offset_ns(), before, 1e-3);
    link.asymComp = 201;
    link.sendMany(1, 20.0);
    EXPECT_NEAR(link.offset_ns(), before - 101.0, 1e-3);
}

TEST(PacketTime, HighDelayVariationHoldsMeasurementsBackAndDegradesAfterAMinute)
{
    Link link(G82751);
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

TEST(PacketTime, FewPacketsWithSomeVariationArentReliedOn)
{
    struct Case { u32 intervalMs; bool isFew; };
    for (const Case& c : {Case{31, true}, {16, false}}) {          // 32 and 64 packets a second
        SCOPED_TRACE(c.intervalMs);
        Link link(J3);
        for (u32 i = 0; i < 64; ++i) link.send(20.0, i % 2 == 0 ? 20.0 : 20.2, TIMELOCKED, c.intervalMs);
        EXPECT_EQ(link.traced("Not Reliable criteria for 1588J3 profile entered"), c.isFew ? 1u : 0u);
        EXPECT_EQ(link.traced("High PDV criteria"), 0u);
    }
}

TEST(PacketTime, APacketWhoseClockIsGoneOrUnknownIsDroppedAndTheNextTaken)
{
    Link link(G82751);
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
