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

}  // namespace
