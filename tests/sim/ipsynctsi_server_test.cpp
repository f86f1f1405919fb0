// The node's IP sync service and what lies behind it: an NTP server over a network of random delays.
#include "node/ipsynctsi.h"
#include "node/ipsynctsi_sig.h"
#include "node/sig.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "tests/support/idle_node.h"
#include "tests/support/unit_bench.h"

#include <cmath>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

/// One exchange as a client gets it, differences in us.
struct Got { double up_us, down_us, atServer_us; };

double us(u64 later, u64 earlier)
{
    return static_cast<double>(static_cast<i64>(later - earlier)) / 4294967296.0 * 1e6;
}

sim::NodeConfig config()
{
    sim::NodeConfig c;
    c.board.oscillator.offset_ppb = 0.0;
    c.ntp.present = true;
    c.ntp.froId = 7;
    c.ntp.interval_ms = 100;
    c.ntp.up.delay_s = 0.003;
    c.ntp.down.delay_s = 0.002;
    return c;
}

/// A client of its own in place of the program.
struct Client : IdleNode {
    explicit Client(const sim::NodeConfig& c) : IdleNode(c) {}

    std::vector<Got> take(u32 count)
    {
        std::vector<Got> got;
        in([&] {
            auto* req = node::make<IpsynctsiInitiateServiceReq>(IPSYNCTSI_INITIATE_SERVICE_REQ);
            req->pvFirstWanted = 1;
            node::sendTo(node.ipsync().pid(), req);
            constexpr SIGSELECT PACKET[] = {1, IPSYNCTSI_NTP_PACKET_IND};
            for (u32 i = 0; i < count; ++i) {
                Signal* sig = ose::receive_w_tmo(60'000, PACKET);
                ASSERT_NE(sig, nullptr);
                const auto* ind = as<IpsynctsiNtpPacketInd>(sig);
                EXPECT_EQ(ind->froId, 7u);
                got.push_back({us(ind->T2, ind->T1), us(ind->T4, ind->T3), us(ind->T3, ind->T2)});
                last = *ind;
                ose::free_buf(&sig);
            }
        });
        return got;
    }
    IpsynctsiNtpPacketInd last{};
};

TEST(NtpExchange, HasStampsOfTwoClocksAndTheNetworkBetween)
{
    struct Case { const char* what; double server_us, node_us, up_us, down_us; };
    for (const Case& c : std::to_array<Case>({
             {"right clocks",      0.0,   0.0,     3000.0,  2000.0},
             {"server ahead",      400.0, 0.0,     3400.0,  1600.0},
             {"node ahead",        0.0,   500e3,   -497e3,  502e3},
             {"node far behind",   0.0,   -1500e3, 1503e3,  -1498e3}})) {
        SCOPED_TRACE(c.what);
        sim::NodeConfig n = config();
        n.ntp.serverOffset_s = c.server_us * 1e-6;
        n.ntp.nodeOffset_s = c.node_us * 1e-6;
        Client client(n);
        for (const Got& g : client.take(3)) {
            EXPECT_NEAR(g.up_us, c.up_us, 0.01);
            EXPECT_NEAR(g.down_us, c.down_us, 0.01);
            EXPECT_NEAR(g.atServer_us, 50.0, 0.001);
        }
        // 2024-01-01 is 3913056000 s after 1900-01-01.
        EXPECT_NEAR(static_cast<double>(client.last.T2 >> 32), 3'913'056'000.0, 1.0);
    }
}

TEST(NtpExchange, TellsAServerThatStepsOrRunsFastAndABoardThatDoes)
{
    Client client(config());
    sim::IpsynctsiServer& server = client.node.ipsync();
    server.setServerFrequency(1000.0);
    client.world.runFor(100 * ose::SEC);
    EXPECT_NEAR(client.take(1)[0].up_us, 3100.0, 0.2);
    server.setServerFrequency(0.0);
    server.stepServer(-50e-6);
    client.world.runFor(100 * ose::SEC);
    EXPECT_NEAR(client.take(1)[0].up_us, 3050.0, 0.3);

    sim::NodeConfig fast = config();
    fast.board.oscillator.offset_ppb = 2000.0;
    Client other(fast);
    other.world.runFor(100 * ose::SEC);
    EXPECT_NEAR(other.take(1)[0].down_us, 2200.0, 1.0);
}

TEST(NtpNetwork, HasTheNoiseThatItWasGivenEachWayOnItsOwn)
{
    struct Case { const char* what; sim::DelayNoise noise; double mean_us, deviation_us, lowest_us; };
    for (const Case& c : std::to_array<Case>({
             {"gaussian",    sim::DelayNoise::Gaussian,    2000.0, 100.0, 1500.0},
             {"exponential", sim::DelayNoise::Exponential, 2100.0, 100.0, 1999.99}})) {
        SCOPED_TRACE(c.what);
        sim::NodeConfig n = config();
        n.ntp.noise = c.noise;
        n.ntp.down.noise_s = 100e-6;
        Client client(n);
        const std::vector<Got> got = client.take(2000);
        double sum = 0, squares = 0, lowest = 1e9;
        for (const Got& g : got) {
            sum += g.down_us;
            squares += (g.down_us - c.mean_us) * (g.down_us - c.mean_us);
            lowest = std::min(lowest, g.down_us);
            EXPECT_NEAR(g.up_us, 3000.0, 0.01);
        }
        EXPECT_NEAR(sum / 2000.0, c.mean_us, 10.0);
        EXPECT_NEAR(std::sqrt(squares / 2000.0), c.deviation_us, 15.0);
        EXPECT_GE(lowest, c.lowest_us);
        n.ntp.up.noise_s = 500e-6;                     // shifts nothing on the way back
        Client noisy(n);
        EXPECT_NEAR(noisy.take(20)[19].down_us, got[19].down_us, 0.01);
    }
    sim::NodeConfig wide = config();
    wide.ntp.noise = sim::DelayNoise::Gaussian;
    wide.ntp.down.noise_s = 0.1;
    Client client(wide);
    const std::vector<Got> got = client.take(100);
    EXPECT_GE(std::min_element(got.begin(), got.end(), [](const Got& a, const Got& b) {
                  return a.down_us < b.down_us;
              })->down_us, -0.01);
}

// ---- with the program and the main processor ----------------------------------------------------

struct NtpUnit : bench::Unit {
    NtpUnit() : Unit(withReferences())
    {
        node.powerOn();
        run(20);
    }
    static sim::NodeConfig withReferences()
    {
        sim::NodeConfig c = config();
        c.mainProcessor.references = {
            {.name = "other", .refType = NTP_REF, .froId = 8, .froClassNo = 2},
            {.name = "ntp", .refType = NTP_REF, .froId = 7, .froClassNo = 2}};
        return c;
    }
    u8 refType() { return node.mainProcessor().selectedRefType(); }
    u64 inSeconds(double s)
    {
        const u64 before = node.ipsync().exchanges();
        run(s);
        return node.ipsync().exchanges() - before;
    }
};

TEST(NtpReference, IsSelectedByTheMainProcessorWhileItsServerAnswers)
{
    NtpUnit u;
    EXPECT_EQ(u.refType(), NTP_REF);
    EXPECT_EQ(u.node.mainProcessor().selectedFroId(), 7u);
    u.node.ipsync().config.answers = false;
    u.run(9);
    EXPECT_EQ(u.refType(), NTP_REF);
    u.run(3);
    EXPECT_EQ(u.refType(), NO_REF);
    u.node.ipsync().config.answers = true;
    u.run(1);
    EXPECT_EQ(u.refType(), NTP_REF);
    u.node.ipsync().die();
    u.run(0.1);
    EXPECT_EQ(u.refType(), NO_REF);
    u.node.ipsync().start();
    u.run(1);
    EXPECT_EQ(u.refType(), NTP_REF);
    u.node.restart(sim::RESTART_WARM);                 // the program asks for the service anew
    u.run(20);
    EXPECT_EQ(u.refType(), NTP_REF);
    EXPECT_TRUE(u.node.ipsync().connected());
    u.node.mainProcessor().setSelects(false);
    u.node.mainProcessor().selectByName("other");
    EXPECT_EQ(u.node.mainProcessor().selectedFroId(), 8u);
}

TEST(NtpReference, IsAskedAsOftenAsTheUnitWants)
{
    NtpUnit u;                                         // not locked yet: ten a second
    EXPECT_EQ(u.node.ipsync().interval_ms(), 100);
    EXPECT_NEAR(static_cast<double>(u.inSeconds(10)), 100.0, 1.0);
    for (const u32 rate : {1u, 10u}) {
        u.node.ipsync().setRate(rate);
        u.run(1);
        EXPECT_NEAR(static_cast<double>(u.inSeconds(10)), rate * 10.0, 1.0);
    }
    u.node.ipsync().config.followsRate = false;
    u.node.ipsync().setRate(1);
    EXPECT_NEAR(static_cast<double>(u.inSeconds(10)), 100.0, 1.0);
    u.node.kill();
    EXPECT_EQ(u.inSeconds(10), 0u);
}

}  // namespace
