// Frames and datagrams as they come in, the time stamp server.
#include "base/trace_groups.h"
#include "pktsync/tupktsync_grandmasters.h"
#include "pktsync/tupktsync_pdu.h"
#include "pktsync/tupktsync_timestamp_server.h"
#include "sig/tupktsync_sig.h"
#include "sim/net/ptp_wire.h"
#include "tests/pktsync/ptp_bench.h"

namespace {

using namespace bench;

using Bench = PacketBench;

PtpClockSetup timeClock(u32 id, u8 domain)
{
    PtpClockSetup setup;
    setup.syncrefId = id;
    setup.froClassNo = PACKET_TIME_FRO_CLASS;
    setup.domainNumber = domain;
    return setup;
}

/// An Announce of domain 4 behind a header and a receive stamp.
std::vector<u8> announceFrame(u8 priority, u16 etherType = sim::ptp::ETHERTYPE)
{
    sim::ptp::Message m;
    m.type = sim::ptp::ANNOUNCE;
    m.domain = 4;
    m.source.clock = {0, 0x1B, 0x19, 0xFF, 0xFE, 0, 0, 1};
    m.clockClass = 6;
    std::vector<u8> frame = sim::ptp::frame({1, 0x1B, 0x19, 0, 0, 0}, {2, 0, 0, 0, 1, 1}, priority,
                                            sim::ptp::write(m));
    const std::size_t at = sim::ptp::messageAt(frame);
    frame[at - 2] = static_cast<u8>(etherType >> 8);
    frame[at - 1] = static_cast<u8>(etherType);
    frame.insert(frame.begin() + static_cast<std::ptrdiff_t>(at), 8, 0x11);
    return frame;
}

TEST(PtpFrame, ThatIsNoneIsDroppedWithItsCodeAndTheNextIsTaken)
{
    constexpr u32 WHOLE = 14 + 8 + 64, WHOLE_TAGGED = 18 + 8 + 64;
    struct Case {
        const char* what;
        u8 priority;
        u16 etherType;
        u32 length, metadata, code;                  // code 0: the Announce comes through
    };
    constexpr u16 PTP = 0x88F7, IP = 0x0800;
    constexpr Case CASES[] = {
        {"untagged", 0, PTP, WHOLE, 8, 0},
        {"tagged", 3, PTP, WHOLE_TAGGED, 8, 0},
        {"no stamp", 0, PTP, WHOLE, 0, 1},
        {"a stamp of seven octets", 0, PTP, WHOLE, 7, 1},
        {"metadata beyond any frame", 0, PTP, WHOLE, 0xFFFFFFF8, 1 | 4},
        {"no octet", 0, PTP, 0, 8, 2 | 4 | 8},
        {"a header one octet short", 0, PTP, 13, 8, 2 | 4 | 8},
        {"a stamp one octet short", 0, PTP, 21, 8, 4},
        {"another protocol", 0, IP, WHOLE, 8, 8},
        {"a header alone", 0, PTP, 14, 8, 4},
        {"a tag alone", 3, PTP, 14, 0, 1 | 4 | 8},
        {"a tagged header one octet short", 3, PTP, 17, 8, 4 | 8},
        {"a tagged frame's stamp one octet short", 3, PTP, 25, 8, 4},
        {"another protocol under a tag", 3, IP, WHOLE_TAGGED, 8, 8},
        {"a message one octet short of any", 0, PTP, 22 + 39, 8, 0xFF},
        {"an Announce one octet short", 0, PTP, WHOLE - 1, 8, 0xFF},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        Bench b;
        b.step([&c] {
            ptpBegin();
            ASSERT_EQ(TuPktsync_new_ptp_clock(timeClock(0, 4)), 1u);
            std::vector<u8> frame = announceFrame(c.priority, c.etherType);
            frame.resize(c.length);
            frame.shrink_to_fit();                   // a reader that goes beyond is caught
            TuPktsync_PDU_CfiRcvFrame(c.length, c.metadata, frame.data());
            EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, c.code == 0 ? 1u : 0u);
            const std::vector<u8> good = announceFrame(0);
            TuPktsync_PDU_CfiRcvFrame(static_cast<u32>(good.size()), 8, good.data());
            EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 1u);
            TuPktsync_delete_ptp_clock(0);
        });
        const std::string text = "Unrecognized MC frame received; frame_len " + std::to_string(c.length)
                                 + " bytes, metadata_len " + std::to_string(c.metadata)
                                 + " bytes; code=" + std::to_string(c.code) + ", ";
        EXPECT_EQ(b.node.traces().count({text, "", TRACE_2}), c.code == 0 || c.code == 0xFF ? 0u : 1u);
        EXPECT_EQ(b.traced("in too short frame"), c.code == 0xFF ? 1u : 0u);
    }
}

TEST(PtpDatagram, GoesByPortServerAndDomain)
{
    Bench b;
    PktIpAddress server{4, {192, 168, 0, 9}}, other{4, {192, 168, 0, 10}}, v6{6, {192, 168, 0, 9}};
    b.step([&] {
        ptpBegin();
        PtpClockSetup setup = timeClock(2, 4);
        setup.froClassNo = PACKET_FREQ_FRO_CLASS;
        setup.ptpMapping = UDP_UC;
        setup.serverIpAddress = server;
        ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
        const std::vector<u8> frame = announceFrame(0);
        const u8* const m = frame.data() + 22;
        const u32 length = static_cast<u32>(frame.size()) - 22;
        TuPktsync_PDU_SockiRcvPacket(321, m, length, {}, &server);
        TuPktsync_PDU_SockiRcvPacket(320, m, length, {}, &other);
        TuPktsync_PDU_SockiRcvPacket(320, m, length, {}, &v6);
        TuPktsync_PDU_CfiRcvFrame(static_cast<u32>(frame.size()), 8, frame.data());
        EXPECT_EQ(ptpClockOf(2)->foreignMasterCount, 0u);
        TuPktsync_delete_ptp_clock(2);
    });
    EXPECT_EQ(b.traced("Socki packet received for unknown port number (321)"), 1u);
    EXPECT_EQ(b.traced("unknown server IP address (192.168.0.10) and/or domainId (4)"), 1u);
    EXPECT_EQ(b.traced("unknown server IP address (c0a80009000000000000000000000000)"), 1u);
    EXPECT_EQ(b.traced("PTP message received for unknown domainId (4)"), 1u);
}

TEST(PtpStampServer, SendsToTheConsumerThatTheSelectionNames)
{
    Bench b;
    std::vector<TuPktsyncPtpPacketInd> got;
    std::vector<SIGSELECT> others;
    const PROCESS consumer = b.node.system().spawn("consumer", 20, [&got, &others] {
        serve([&got, &others](Signal* sig) {
            if (sig->sigNo != TUPKTSYNC_PTP_PACKET_IND) others.push_back(sig->sigNo);
            else if (const auto* ind = as<TuPktsyncPtpPacketInd>(sig)) got.push_back(*ind);
            return false;
        });
    });
    PtpExchange e;
    e.froId = 3, e.interval_ms = 62, e.T1s = 0x100000001, e.T4f = 999'999'999, e.asymComp = -5;
    b.step([&] { TuPktsync_Timestamp_server_handle_ts_ptp(e); });
    EXPECT_EQ(b.traced("attempt to send timestamp indication when no receiver registered"), 1u);
    b.step([&] {
        auto* ind = node::make<TuPktsyncRefSelectionInd>(TUPKTSYNC_REF_SELECTION_IND);
        *ind = {TUPKTSYNC_REF_SELECTION_IND, 9, 9, PKTSYNC_DESELECT_ALL, consumer};
        Signal* sig = reinterpret_cast<Signal*>(ind);
        EXPECT_EQ(TuPktsync_Timestamp_server_dispatch(sig), 1);
        ose::free_buf(&sig);
        TuPktsync_Timestamp_server_handle_ts_ptp(e);
        TuPktsync_Timestamp_server_handle_ts_ptpPeerDelay(3, 4, 1, 2, 3, 4);
        TuPktsync_Timestamp_server_handle_ts_ntp(3, 4, {});
    });
    b.world.runFor(ose::MS);
    EXPECT_EQ(others, (std::vector{TUPKTSYNC_PTP_PACKET_PEERDELAY_IND, TUPKTSYNC_NTP_PACKET_IND}));
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(std::tuple(got[0].froId, got[0].logSyncInterval, got[0].T1s, got[0].T4f, got[0].asymComp),
              std::tuple(e.froId, e.interval_ms, e.T1s, e.T4f, e.asymComp));
    // A chain that begins anew keeps the consumer, once.
    b.step([consumer] {
        TuPktsync_Timestamp_reInit();
        TuPktsync_Timestamp_server_init();
        EXPECT_EQ(TuPktsync_Timestamp_server_consumer(), consumer);
        TuPktsync_Timestamp_server_init();
        EXPECT_EQ(TuPktsync_Timestamp_server_consumer(), 0u);
    });
    for (const SIGSELECT number :
         {TUPKTSYNC_REF_SELECTION_IND, TUPKTSYNC_REG_IND, TUPKTSYNC_CLOCK_RQMT_IND}) {
        b.step([number] {
            Signal* sig = ose::alloc(sizeof(SIGSELECT) + 4, number);
            EXPECT_EQ(TuPktsync_Timestamp_server_dispatch(sig), 1);
            ose::free_buf(&sig);
        });
        EXPECT_EQ(b.node.traces().lines().size(), 1u) << "a short signal " << number;
    }
}

TEST(PtpGrandmasters, TheLastTwentyAreToldFromTheOldestOn)
{
    Bench b;
    std::string text;
    b.step([&text] {
        for (u8 i = 1; i <= 22; ++i)
            for (u32 twice = 0; twice < 2; ++twice) TuPktsync_addGrandmaster(1, {i});
        char all[4096];
        text.assign(all, TuPktsync_grandmastersText(all, sizeof all));
        EXPECT_EQ(TuPktsync_grandmastersText(all, 64), 63u);
        EXPECT_EQ(TuPktsync_grandmastersText(all, 0), 0u);
    });
    EXPECT_EQ(std::ranges::count(text, '\n'), 21);
    EXPECT_EQ(text.find("syncref 1  03"), text.find("syncref 1"));
    EXPECT_EQ(text.find("syncref 1  16"), text.rfind("syncref 1"));
}

}  // namespace
