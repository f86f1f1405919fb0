// Packets of a time reference whose clock is gone, unknown, or no longer selected; a variance's
// window.
#include "reg/support/packet_bench.h"

#include "base/element_of.h"

#include <cmath>

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

TEST(RunningVariance, OfAWindowGoesOnWithItsNewerHalf)
{
    packet::RunningVariance v;
    v.window = 4;
    double variance = 0.0;
    for (const double x : {1.0, 1.0, 1.0, 1.0, 3.0}) variance = *packet::runningVariance(&v, {0.0, x});
    EXPECT_NEAR(variance, 4.0 / 3.0, 1e-12);       // of 1, 1, 3
}

// A quarter of an hour each on a quiet path; a short good spell in between doesn't count.
TEST(PacketTime, ThatIsDegradedAgainIsEstimatedAnew)
{
    using packet::WayBack;
    PacketBench b(Z_PKT_TIME_REF);
    packet::QuietPath path;
    const auto watch = [&](u8 state, u32 minutes) {
        WayBack way = WayBack::None;
        b.refStates = {state};
        for (u32 i = 0; i < minutes && way == WayBack::None; ++i) {
            b.world.runFor(60 * ose::SEC);
            b.inManager([&] {
                for (u32 k = 0; k < packet::QUIET_WINDOW && way == WayBack::None; ++k)
                    way = watchQuietPath(path, {}, 1e-6);
            });
        }
        return way;
    };
    EXPECT_EQ(watch(2, 17), WayBack::Variances);
    EXPECT_EQ(watch(1, 2), WayBack::None);
    EXPECT_EQ(watch(2, 14), WayBack::None);
    EXPECT_EQ(watch(2, 2), WayBack::Estimate);
    EXPECT_EQ(watch(1, 16), WayBack::None);
    EXPECT_EQ(watch(2, 17), WayBack::Variances) << "it did well for long enough";
}

TEST(PacketHistory, GoesWithItsReference)
{
    constexpr u32 PACKET_FREQUENCY = 5;              // class of the reference
    PacketBench b(Z_PKT_FREQ_REF);
    b.inManager([] {
        for (const u32 id : {1u, 2u, 3u}) KvdLoz6TuReg_registerPacketRef(PACKET_FREQUENCY, id);
        for (const u32 id : {2u, 2u, 9u}) KvdLoz6TuReg_deregisterPacketRef(PACKET_FREQUENCY, id);
        const auto& places = packet::state().history.places;
        EXPECT_EQ((std::array{places[0].refId, places[1].refId, places[2].used}), (std::array{1u, 3u, 0u}));
    });
}

TEST(PacketReference, WhatStandsAtALimitIsNotBeyondIt)
{
    PacketBench b(Z_PKT_TIME_REF);
    b.inManager([&b] {
        packet::State& s = packet::state();
        KvdLoz6TuReg_onPktTimeRefInit();
        KvdLoz6TuReg_forceRegState(s.filter.lastRegState = TIMELOCKED);
        packet::historyEntry(packet::HISTORY_TIME, false, 0.0, 0.0);
        struct Case { u32 interval_ms; double pdv_s; bool isTold; };
        for (const Case& c : {Case{63, 1e-4, true}, {16, 1e-4, false}, {63, 3.5e-7, false}}) {
            PktTimeMsg m{};
            m.syncIntervalMs = c.interval_ms;
            s.filter.prevZ21 = packet::delay21(m), s.filter.prevZ43 = packet::delay43(m);
            s.filter.variances[0].accumulators[0] = {1, s.filter.prevZ21, std::pow(c.pdv_s / 6, 2)};
            KvdLoz6TuReg_handlePktTimeMsg(m);        // the second sample: that sum is its variance
            EXPECT_EQ(packet::pdvTimerRuns(packet::NOT_RELIABLE_TIMER), c.isTold);
            EXPECT_FALSE(packet::pdvTimerRuns(packet::HIGH_PDV_TIMER));
            EXPECT_EQ(s.history.remembered[packet::HISTORY_TIME].high, 0u);
        }
        measure::state().var.selectedRef = TU_SR_PKT_FREQ_REF;
        b.R_est = std::pow(0.015 / 5.14, 2);
        b.refStates.clear();
        for (u32 i = 0; i < 2; ++i) KvdLoz6TuReg_handlePktFreqMsg({});
        EXPECT_EQ(b.refStates, (std::vector<u8>{1, 1}));
        EXPECT_EQ(s.history.remembered[packet::HISTORY_FREQUENCY].high, 0u);
        s.highPdvCounter = packet::HIGH_PDV_SAMPLES + 1;
        EXPECT_FALSE(KvdLoz6TuReg_pdvIsHigh());
        for (const double var : {1e4, 0.1}) {
            packet::SecondDifference v{.var = var, .full = 1};
            v.ring[v.size - 1] = 108.0;              // its latest samples' mean is 1
            EXPECT_FALSE(packet::varianceJumpCheck(v)) << var;
        }
        for (const double x : {1., -1.}) EXPECT_TRUE(!isWithin(x, 1.) && isUpTo(x, 1.) && !isBeyond(x, 1.));
        EXPECT_EQ(elementOf(s.timers, packet::PDV_TIMERS), nullptr);
        EXPECT_EQ(std::pair(packet::nearestRate(12.0), packet::packetRate(0)), std::pair(u16{16}, u16{256}));
        // A jump spoils the entry before one that has just begun, and a minimum that isn't nearly complete.
        packet::SupervisionRecord& r = s.supervision;
        for (const auto& [sample, spoilt] : {std::pair{49u, 0}, {150u, 1}, {200u, 2}, {201u, 1}}) {
            r = {.currMeas = sample};
            KvdLoz6TuReg_reportPhaseJump(Z_PKT_FREQ_REF, 0.0);
            EXPECT_EQ((r.pdv.back() != 0) + (r.freqDev.back() != 0), spoilt) << sample;
        }
        for (const u8 samples : {28, 29}) {
            r = {.minCurr = {1, 0}, .minCount = samples};
            KvdLoz6TuReg_reportPhaseJump(Z_EXT_REF, 1.0);
            EXPECT_EQ(r.minCurr.c == 1, samples == 29);
            KvdLoz6TuReg_reportPhaseJump(Z_EXT_REF, r.lastPhase = 1.0);
            EXPECT_EQ(r.totalJumps, 1u) << "it stands where it stood";
        }
    });
}

}  // namespace
