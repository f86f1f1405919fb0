// What a running unit sends to PTP masters, octet by octet; stamps that come twice.
#include "base/trace_groups.h"
#include "tests/pktsync/packet_unit.h"

namespace {

using namespace bench;
namespace ptp = sim::ptp;

sim::PtpMasterConfig calmMaster(i8 log = 0)
{
    sim::PtpMasterConfig c;
    c.logAnnounce = c.logSync = c.logDelayReq = log;
    return c;
}

/// A unit with an Ethernet reference in domain 24 that follows its master.
struct Following : PacketUnit {
    sim::PtpMaster master;
    explicit Following(const sim::MpPacketRef& ref = ethernetRef(1, 24),
                       const sim::PtpMasterConfig& config = calmMaster())
        : master(world, net, config)
    {
        net.connect(node.packetPort(), master, {}, {});
        on();
        node.mainProcessor().createPacketRef(ref);
        run(12);
    }
};

/// The messages that the unit sent, read by the other reader; each is what that one's writer makes of it.
std::vector<ptp::Message> messages(const std::vector<sim::NetPacket>& sent)
{
    std::vector<ptp::Message> all;
    for (const sim::NetPacket& p : sent) {
        const std::size_t at = p.isFrame ? ptp::messageAt(p.bytes) : 0;
        std::string why;
        const auto m = ptp::read(p.bytes.data() + at, p.bytes.size() - at, &why);
        EXPECT_TRUE(m) << why;
        if (!m) continue;
        const std::vector<u8> whole(p.bytes.begin() + static_cast<std::ptrdiff_t>(at), p.bytes.end());
        EXPECT_EQ(ptp::write(*m), whole);
        // IEEE 1588-2008 13.3.2, tables 23 and 24; nothing beyond the message, no time of origin.
        EXPECT_EQ(m->length, whole.size());
        EXPECT_EQ(m->transport, 0);
        EXPECT_EQ(m->control, m->type == ptp::DELAY_REQ ? 1 : 5);
        EXPECT_EQ(m->logInterval, 0x7F);
        EXPECT_EQ(m->flags0, p.isFrame ? 0 : 0x04);
        EXPECT_EQ(m->stamp.seconds + m->stamp.ns, 0u);
        EXPECT_EQ(m->source.number, 1);
        all.push_back(*m);
    }
    return all;
}
std::string hex(const sim::NetPacket& p) { return hexOf(p.bytes.data(), p.bytes.size()); }

TEST(PtpWire, DelayReqOnEthernet)
{
    struct Case { u8 pbit, group; i32 asymmetry_ns; u8 profile; const char* header; const char* correction; };
    constexpr Case CASES[] = {
        {0, 0, 0, 0, "011b1900000002000000000188f7", "0000000000000000"},
        {0, 1, 250, 0, "0180c200000e02000000000188f7", "ffffffffff060000"},
        {3, 0, -120, 0, "011b190000000200000000018100600088f7", "0000000000780000"},
        {7, 1, 0, 1, "0180c200000e0200000000018100e00088f7", "0000000000000000"},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.header);
        sim::MpPacketRef ref = ethernetRef(1, 24, c.pbit);
        ref.multicastAddress = c.group;
        ref.asymmetry_ns = c.asymmetry_ns;
        ref.profile = c.profile;
        sim::PtpMasterConfig gm = calmMaster(-3);
        gm.nonForwardable = c.group == 1;
        Following u(ref, gm);
        ASSERT_GE(u.sent.size(), 10u);
        EXPECT_EQ(hex(u.sent[0]), std::string(c.header) + "0102002c1800003c" + c.correction
                                      + "00000000020000fffe00000100010000017f00000000000000000000");
        u16 sequence = 0;
        for (const ptp::Message& m : messages(u.sent)) {
            EXPECT_EQ(m.type, ptp::DELAY_REQ);
            EXPECT_EQ(m.sequence, sequence++);
        }
        EXPECT_EQ(u.clock(0).portState, u32{SLAVE});
        EXPECT_EQ(u.clock(0).delay.status, u32{DRM_OK});
    }
}

TEST(PtpWire, UnicastNegotiationAndDelayReqOverUdp)
{
    sim::PtpMasterConfig gm = calmMaster(-3);
    gm.unicast = true;
    gm.address = {4, {192, 168, 0, 9}};
    gm.domain = 4;
    Following u(unicastRef(2), gm);
    const std::string FROM_UNIT = "000000000000000000000000c0a800fffe0100000001";
    const std::string ANY = "ffffffffffffffffffff", SERVER = "001b19fffe0000010001";
    ASSERT_GE(u.sent.size(), 4u);
    EXPECT_EQ(hex(u.sent[0]), "0c02003604000400" + FROM_UNIT + "0000057f" + ANY + "00040006b0010000012c");
    EXPECT_EQ(hex(u.sent[1]), "0c0200360400043c" + FROM_UNIT + "0001057f" + SERVER + "0004000600fd0000012c");
    std::vector<std::string> signaling, delayReq;
    for (const sim::NetPacket& p : u.sent) {
        EXPECT_EQ(p.to, gm.address);
        EXPECT_EQ(p.toPort, p.fromPort);
        (p.bytes[0] == 0x0C ? signaling : delayReq).push_back(hex(p));
        EXPECT_EQ(p.toPort, p.bytes[0] == 0x0C ? 320 : 319);
    }
    messages(u.sent);
    ASSERT_EQ(signaling.size(), 3u);
    EXPECT_EQ(signaling[2], "0c0200360400043c" + FROM_UNIT + "0002057f" + SERVER + "0004000690fd0000012c");
    ASSERT_FALSE(delayReq.empty());
    EXPECT_EQ(delayReq[0], "0102002c0400043c" + FROM_UNIT + "0000017f00000000000000000000");
    EXPECT_EQ(u.node.ipsocki().tos(u.socket(0).socketId), 184);

    u.sent.clear();
    u.master.cancelContracts();
    u.run(0.5);
    std::vector<std::string> acknowledged;
    for (const ptp::Message& m : messages(u.sent))
        for (const auto& tlv : m.tlvs)
            acknowledged.push_back(std::to_string(tlv.type) + ":"
                                   + hexOf(tlv.value.data(), tlv.value.size()));
    std::sort(acknowledged.begin(), acknowledged.end());
    EXPECT_EQ(acknowledged, (std::vector<std::string>{"7:0000", "7:9000", "7:b000"}));

    u.run(20);                                       // it asks anew, and is granted
    u.sent.clear();
    EXPECT_EQ(u.master.contracts(), 3u);
    u.node.mainProcessor().deletePacketRef(2, 5);
    u.run(0.5);
    std::vector<std::string> cancelled;
    for (const ptp::Message& m : messages(u.sent)) {
        if (m.type != ptp::SIGNALING) continue;
        ASSERT_EQ(m.tlvs.size(), 1u);
        EXPECT_EQ(m.tlvs[0].type, ptp::TLV_CANCEL);
        EXPECT_EQ(m.length, 50);
        cancelled.push_back(hexOf(m.tlvs[0].value.data(), m.tlvs[0].value.size()));
    }
    EXPECT_EQ(cancelled, (std::vector<std::string>{"b000", "0000", "9000"}));
    EXPECT_EQ(u.master.contracts(), 0u);
    EXPECT_EQ(u.node.ipsocki().sockets(), 0u);
}

TEST(PtpStamps, ThatComeTwiceOrForNobody)
{
    Following u;
    u.node.pktsyncDrv().doubledStamps = 1000;
    const u32 before = u.clock(0).delay.stamps.TSoverwrites;
    u.run(30);
    EXPECT_EQ(u.clock(0).delay.status, u32{DRM_OK});
    EXPECT_GT(u.clock(0).delay.stamps.TSoverwrites, before);
    // Of a reference that isn't, and cut short.
    u.inject(PktsyncDrvTimestampInd{PKTSYNCDRV_TIMESTAMP_IND, 0x00010007, 0x01000000, 1, 2});
    EXPECT_EQ(u.traces("PktSyncDrvTimestampInd for non-existing syncrefId(7)"), 1u);
}

}  // namespace
