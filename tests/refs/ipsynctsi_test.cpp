// The client of the node's IP sync service: negotiation, selection, which packets reach the regulator
// and the counters, and what it does about a service that refuses, stops or dies.
#include "iif/kvd_pm.h"
#include "iif/kvd_pm_synch.h"
#include "node/ipsynctsi.h"
#include "node/ipsynctsi_sig.h"
#include "node/trace.h"
#include "refs/kvd_ipsynctsiadm.h"
#include "reg/kvd_reg_measure_int.h"
#include "reg/kvd_reg_packet_int.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "tests/support/unit_bench.h"

#include <functional>

namespace {

constexpr u32 NTP_FRO = 7;
constexpr u32 NONE = 0xFFFFFFFF;

struct IpSyncUnit : bench::Unit {
    explicit IpSyncUnit(bool hasService = true) : bench::Unit(config(hasService)) { node.powerOn(); }

    static sim::NodeConfig config(bool hasService)
    {
        sim::NodeConfig c;
        c.mainProcessor.selects = false;
        c.ntp.present = hasService;
        c.ntp.froId = NTP_FRO;
        c.ntp.answers = false;           // the test sends its own packets
        return c;
    }
    /// Connected to its main processor and past its warm-up, all traces on.
    void warmUp()
    {
        run(200);
        ASSERT_TRUE(node.mainProcessor().connected());
        node.inProgram([] { node::traceSetProgramMask(0xFFFFFFFF); });
        run(1);
        node.traces().clear();
    }
    sim::IpsynctsiServer& server() { return node.ipsync(); }
    u32 state() { return node.inProgram(KvdLoz6TuIpSyncTsiAdm_state); }
    u32 selected() { return node.inProgram(KvdLoz6TuIpSyncTsiAdm_selectedSynchRef); }
    IpSyncTsiCounts counts() { return node.inProgram(KvdLoz6TuIpSyncTsiAdm_counts); }
    double measurements() { return node.inProgram([] { return measure::state().var.m[Z_NTP_REF]; }); }
    void select(u8 refType, u32 froId)
    {
        node.mainProcessor().select(refType, froId, 2);
        world.runFor(ose::MS);
    }
    template <typename T>
    void inject(const T& layout)
    {
        bench::injectInto(node.system(), manager(), layout, server().alive() ? server().pid() : 0);
        world.runFor(ose::MS);
    }
    void packet(u32 froId, u64 T1 = 100ull << 32, u64 T2 = 100ull << 32, u64 T3 = 100ull << 32,
                u64 T4 = 100ull << 32)
    {
        inject(IpsynctsiNtpPacketInd{IPSYNCTSI_NTP_PACKET_IND, froId, {}, T1, T2, T3, T4});
    }
    void in(const std::function<void()>& body) { node.system().call(*node.program(), body); }
};

// ---- negotiation --------------------------------------------------------------------------------

TEST(IpSyncService, IsAskedForVersionOneAndFollowsItsAnswer)
{
    using sim::Answer;
    struct Case { Answer answer; u32 highestPv, state; };
    for (const Case& c : std::to_array<Case>({{Answer::Accept, 1, STATE_AVAILABLE},
                                              {Answer::Accept, 3, STATE_AVAILABLE},
                                              {Answer::Accept, 0, STATE_REJECTED},
                                              {Answer::Reject, 1, STATE_REJECTED},
                                              {Answer::Suspend, 1, STATE_SUSPENDED},
                                              {Answer::Silent, 1, STATE_INITIATING}})) {
        SCOPED_TRACE(c.state);
        IpSyncUnit u;
        u.server().setAnswer(c.answer);
        u.server().highestPv = c.highestPv;
        u.run(5);
        EXPECT_EQ(u.state(), c.state);
        EXPECT_EQ(u.server().received(IPSYNCTSI_INITIATE_SERVICE_REQ), 1u);
        EXPECT_TRUE(u.traced("tuIpSyncTsiAdmState: STATE_INITIATING"));
        EXPECT_EQ(u.traced("IPSYNCTSI_INITIATE_SERVICE_CFM received. selectedPV=1"),
                  c.state == STATE_AVAILABLE);
        EXPECT_TRUE(u.node.mainProcessor().connected());
    }
}

TEST(IpSyncService, IsAskedAgainAfterItsDeathOrWhenItGoesOn)
{
    IpSyncUnit u;
    u.run(5);
    const auto after = [&](auto event) {
        event(u.server());
        u.run(0.1);
        return u.state();
    };
    const auto suspend = [](auto& s) { s.serve(sim::Answer::Suspend); };
    for (int round = 0; round < 3; ++round) {          // as often as it likes
        EXPECT_EQ(after([](auto& s) { s.die(); }), STATE_UNAVAILABLE);
        EXPECT_EQ(after([](auto& s) { s.start(); }), STATE_AVAILABLE);
    }
    EXPECT_EQ(u.server().received(IPSYNCTSI_INITIATE_SERVICE_REQ), 4u);
    EXPECT_EQ(after(suspend), STATE_SUSPENDED);
    EXPECT_EQ(after([](auto& s) { s.serve(sim::Answer::Accept); }), STATE_AVAILABLE);
    EXPECT_EQ(after(suspend), STATE_SUSPENDED);
    u.server().die();                                  // while it is suspended
    u.server().setAnswer(sim::Answer::Accept);
    EXPECT_EQ(after([](auto& s) { s.start(); }), STATE_AVAILABLE);
    EXPECT_FALSE(u.traced("Uenxpected result"));
}

TEST(IpSyncService, AnswersThatNobodyAwaitsAreTraced)
{
    IpSyncUnit u(false);
    u.run(5);
    u.inject(IpsynctsiInitiateServiceCfm{IPSYNCTSI_INITIATE_SERVICE_CFM, 1});
    EXPECT_TRUE(u.traced("IPSYNCTSI_INITIATE_SERVICE_CFM when state = 0"));
    EXPECT_TRUE(u.traced("Uenxpected result of initiateServiceCfm, returned 4"));
    EXPECT_EQ(u.state(), STATE_UNAVAILABLE);
    u.server().start();
    u.run(0.1);
    EXPECT_EQ(u.state(), STATE_AVAILABLE);
    u.inject(IpsynctsiInitiateServiceCfm{IPSYNCTSI_INITIATE_SERVICE_CFM, 1});
    EXPECT_TRUE(u.traced("IPSYNCTSI_INITIATE_SERVICE_CFM when state = 2"));
    u.inject(Signal{IPSYNCTSI_INITIATE_SERVICE_REJ});  // too short to be one
    EXPECT_EQ(u.state(), STATE_AVAILABLE);
    u.inject(IpsynctsiInitiateServiceRej{IPSYNCTSI_INITIATE_SERVICE_REJ, 9});
    EXPECT_EQ(u.state(), STATE_REJECTED);
}

/// The program's only proxy, taken away for a while.
node::IpsynctsiProxy* taken = nullptr;

TEST(IpSyncService, IsGivenUpAfterThreeTriesHalfASecondApart)
{
    const auto at = [](IpSyncUnit& u, const char* text) {
        const sim::TraceLine* const line = u.node.traces().last({text});
        return line != nullptr ? line->at : ose::Time{-1};
    };
    constexpr const char* BEFORE = "COLD RESTART of KVD on BVQ LOZ6";
    constexpr const char* AFTER = "Successfully registered to PHYPORTINFO IF";
    IpSyncUnit plain;
    plain.run(5);
    const ose::Time begin = at(plain, BEFORE);
    ASSERT_EQ(at(plain, AFTER), begin);

    struct Case { const char* what; i64 freeAfter_ms; u32 state; i64 startsLater_ms; };
    for (const Case& c : std::to_array<Case>({
             {"before the second try", 400,  STATE_AVAILABLE,   500},
             {"before the third",      900,  STATE_AVAILABLE,   1000},
             {"after the third",       1100, STATE_UNAVAILABLE, 1500}})) {
        SCOPED_TRACE(c.what);
        IpSyncUnit u;
        u.in([] { ASSERT_EQ(node::Ipsynctsi_createProxy(taken), node::IPSYNCTSI_DONE); });
        u.world.runUntil(begin + c.freeAfter_ms * ose::MS);
        u.in([] { EXPECT_EQ(node::Ipsynctsi_freeProxy(taken), node::IPSYNCTSI_DONE); });
        u.run(5);
        EXPECT_EQ(at(u, AFTER) - begin, c.startsLater_ms * ose::MS);
        EXPECT_EQ(u.state(), c.state);
        EXPECT_EQ(u.traces("Unable to complete createProxy, returned 1"),
                  c.state == STATE_AVAILABLE ? 0u : 1u);
        EXPECT_TRUE(u.node.mainProcessor().connected());
    }
}

// ---- selection and packets ----------------------------------------------------------------------

TEST(NtpPackets, CountWhileTheirReferenceIsSelectedAndTheServiceIsAvailable)
{
    IpSyncUnit u;
    u.warmUp();
    EXPECT_EQ(u.selected(), NONE);
    u.packet(NTP_FRO);
    EXPECT_EQ(u.counts().numberOfIgnoredNtpPackets, 1u);
    EXPECT_TRUE(u.traced("ntpPacketInd ignored. Expected ipSyncRefFroId=4294967295, received 7"));

    u.select(NTP_REF, NTP_FRO);
    EXPECT_EQ(u.selected(), NTP_FRO);
    u.packet(NTP_FRO);
    u.packet(NTP_FRO);
    u.packet(8);
    EXPECT_TRUE(u.traced("ntpPacketInd ignored. Expected ipSyncRefFroId=7, received 8"));
    EXPECT_EQ(u.counts().numberOfNtpPackets, 2u);
    EXPECT_EQ(u.counts().numberOfIgnoredNtpPackets, 2u);
    EXPECT_EQ(u.measurements(), 2.0);

    u.inject(Signal{IPSYNCTSI_NTP_PACKET_IND});           // too short to be one
    u.packet(NTP_FRO);
    EXPECT_EQ(u.counts().numberOfNtpPackets, 3u);

    u.server().serve(sim::Answer::Suspend);
    u.run(0.1);
    u.packet(NTP_FRO);                                    // neither taken nor ignored
    EXPECT_TRUE(u.traced("IPSYNCTSI_NTP_PACKET_IND when state = 3"));
    EXPECT_EQ(u.counts().numberOfNtpPackets, 3u);
    EXPECT_EQ(u.counts().numberOfIgnoredNtpPackets, 2u);
    EXPECT_EQ(u.measurements(), 3.0);
    u.server().serve(sim::Answer::Accept);
    u.run(0.1);
    u.packet(NTP_FRO);
    EXPECT_EQ(u.counts().numberOfNtpPackets, 4u);

    const u32 ignored = u.counts().numberOfIgnoredNtpPackets;
    u.select(PACKET_FREQ_REF, NTP_FRO);                   // the same froId in another's name
    EXPECT_EQ(u.selected(), NONE);
    u.packet(NTP_FRO);
    EXPECT_EQ(u.counts().numberOfNtpPackets, 0u);
    EXPECT_EQ(u.counts().numberOfIgnoredNtpPackets, ignored + 1);
}

TEST(NtpPackets, GiveTheirStampsToTheRegulatorAndTheCounters)
{
    IpSyncUnit u;
    u.warmUp();
    u.node.mainProcessor().sendLayout(
        KvdTuiifSubscribePmReq{KVD_TUIIF_SUBSCRIBE_PM_REQ, 900, SYNC_PM_FROTYPE, 1});
    u.select(NTP_REF, NTP_FRO);
    constexpr u64 SECOND = 1ull << 32, QUARTER = 1ull << 30;
    u.packet(NTP_FRO, 900 * SECOND, 7 * SECOND, 500 * SECOND + QUARTER, 501 * SECOND + QUARTER / 2);
    EXPECT_EQ(u.node.inProgram([] { return packet::state().supervision.lastPhase; }), 0.875);

    // Ninety-nine more make a window. On the way there 2000 us and 2 us more each time, none back:
    // half of it is the delay. The first one's is the highest, in us: (7 - 900 + 0.875) s / 2 is the
    // lowest.
    for (u64 i = 0; i < 99; ++i) {
        const u64 up = (2000 + 2 * i) * SECOND / 1'000'000;
        u.packet(NTP_FRO, 500 * SECOND, 500 * SECOND + up, 600 * SECOND, 600 * SECOND);
    }
    const PmSynchCounters& c = u.node.inProgram(
        []() -> const PmSynchCounters& { return KvdLoz6PmSynch_counters(); });
    EXPECT_NEAR(c.lowestDelay_us, -446'062'500.0, 1e-3);
    EXPECT_EQ(c.PmHighestDelayVarBest1Array[0], 446'062'500 + 1000);
    EXPECT_EQ(c.PmHighestDelayVarBest10Array[0], 446'062'500 + 1009);
    EXPECT_EQ(c.PmHighestDelayVarBest50Array[0], 446'062'500 + 1049);
    EXPECT_EQ(c.PmMaxDelayVariationArray[0], 446'062'500 + 1098);
}

}  // namespace
