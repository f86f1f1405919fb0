// Messages of a master that are wrong in one field, one length or one TLV: each is told, changes nothing,
// and the next good one is taken.
#include "base/trace_groups.h"
#include "sim/net/ptp_wire.h"
#include "tests/pktsync/ptp_bench.h"

namespace {

using namespace bench;
namespace ptp = sim::ptp;

constexpr u8 DOMAIN = 4;
constexpr std::array<u8, 8> MASTER{0, 0x1B, 0x19, 0xFF, 0xFE, 0, 0, 1};
constexpr std::array<u8, 8> OWN{0xAC, 0xDE, 0x48, 0xFF, 0xFE, 1, 2, 3};
const PktIpAddress SERVER{4, {192, 168, 0, 9}};

ptp::Message from(u8 type, u16 sequence = 0)
{
    ptp::Message m;
    m.type = type;
    m.domain = DOMAIN;
    m.source.clock = m.grandmaster = MASTER;
    m.sequence = sequence;
    m.flags0 = type == ptp::SYNC ? 0x02 : 0;
    m.flags1 = 0x3C;
    m.logInterval = type == ptp::ANNOUNCE ? 1 : 0;
    m.stamp = {1000, 500};
    m.requesting.clock = m.target.clock = OWN;
    m.clockClass = 6;
    m.accuracy = 0x21;
    m.priority1 = 128;
    m.steps = 254;                                   // as far away as a master may be
    return m;
}

/// Its octets, with the length that it says of itself, if it says one.
std::vector<u8> octetsOf(const ptp::Message& m)
{
    std::vector<u8> octets = ptp::write(m);
    if (m.length == 0) return octets;
    octets[2] = static_cast<u8>(m.length >> 8);
    octets[3] = static_cast<u8>(m.length);
    return octets;
}

PtpClockSetup setupOf(u32 froClassNo, u8 mapping)
{
    PtpClockSetup setup;
    setup.froId = 1;
    setup.froClassNo = froClassNo;
    setup.ptpMapping = mapping;
    setup.domainNumber = DOMAIN;
    setup.clockIdentity = OWN;
    if (mapping == UDP_UC) setup.serverIpAddress = SERVER;
    return setup;
}

void receive(const std::vector<u8>& octets, const PktIpAddress* server = nullptr)
{
    std::vector<u8> exact(octets);
    exact.shrink_to_fit();                           // a reader that goes beyond is caught
    TuPktsync_handle_ptp_message(exact.data(), static_cast<u32>(exact.size()), {1000, 0x80000000}, server);
}

struct Bench : PacketBench {
    void run(const std::function<void()>& body)
    {
        step([&body] {
            ptpBegin();
            body();
            for (u32 id = 0; id < PTP_CLOCKS; ++id) TuPktsync_delete_ptp_clock(id);
        });
    }
};

// ---- a clock on Ethernet --------------------------------------------------------------------------

/// A Sync and its Follow_Up: one exchange of a clock that follows.
void goodSync(u16 sequence)
{
    receive(ptp::write(from(ptp::SYNC, sequence)));
    receive(ptp::write(from(ptp::FOLLOW_UP, sequence)));
}

/// Clock 0, selected, in SLAVE, with its first delay sample and one exchange.
void follow()
{
    ASSERT_EQ(TuPktsync_new_ptp_clock(setupOf(PACKET_TIME_FRO_CLASS, PTP_ETHERNET)), 1u);
    TuPktsync_set_ptp_selected(0, 1);
    const u32 begin = ptpNow_ms();
    for (u32 i = 0; i < 3; ++i) {
        ptpRunTo(begin + 2000 * i);
        receive(ptp::write(from(ptp::ANNOUNCE)));
    }
    goodSync(100);                                   // calls for the first Delay_Req
    const u8 metadata[8] = {0, 0, 0, 0, PTP_DELAY_REQ, 0, 0, 0};
    TuPktsync_PTP_egressTimestamp(metadata, {1000, 0x90000000});
    receive(ptp::write(from(ptp::DELAY_RESP, 0)));
    goodSync(101);
    ASSERT_EQ(ptpClockOf(0)->portState, u32{SLAVE});
    ASSERT_EQ(ptpClockOf(0)->delay.status, u32{DRM_OK});
    ASSERT_EQ(ptpSeen().exchanges.size(), 1u);
    ASSERT_EQ(ptpClockOf(0)->used[PTP_ANNOUNCE], 1u);        // two qualify it
}

/// What no bad message may change.
auto stateOf(const PtpClock& c)
{
    return std::tuple(c.parent.parentPortIdentity, c.stepsRemoved, c.logSyncInterval,
                      c.logMinDelayReqInterval, c.syncStamps.occupancy, c.delay.stamps.occupancy, c.used);
}

TEST(PtpBadMessage, LeavesAClockFollowing)
{
    using M = ptp::Message;
    struct Case { const char* what; u8 type; void (*spoil)(M&); bool isTold; };
    static constexpr Case CASES[] = {
        {"a Sync of another clock", ptp::SYNC, [](M& m) { m.source.clock[7] = 2; }, true},
        {"a Sync of the master's other port", ptp::SYNC, [](M& m) { m.source.number = 2; }, true},
        {"a Sync in 64 s", ptp::SYNC, [](M& m) { m.logInterval = 6; }, true},
        {"256 Syncs a second", ptp::SYNC, [](M& m) { m.logInterval = -8; }, true},
        {"a Follow_Up of another clock", ptp::FOLLOW_UP, [](M& m) { m.source.clock[0] = 1; }, true},
        {"a Delay_Resp to another clock", ptp::DELAY_RESP, [](M& m) { m.requesting.clock[7] = 4; }, true},
        {"a Delay_Resp to another port", ptp::DELAY_RESP, [](M& m) { m.requesting.number = 2; }, true},
        {"a Delay_Resp in 64 s", ptp::DELAY_RESP, [](M& m) { m.logInterval = 6; }, true},
        {"256 Delay_Resps a second", ptp::DELAY_RESP, [](M& m) { m.logInterval = -8; }, true},
        {"an alternate master's Announce", ptp::ANNOUNCE, [](M& m) { m.flags0 = 1; }, true},
        {"an Announce 255 steps away", ptp::ANNOUNCE, [](M& m) { m.steps = 255; }, true},
        {"an Announce of nobody", ptp::ANNOUNCE, [](M& m) { m.source.clock = {}; }, true},
        {"a better master's first Announce", ptp::ANNOUNCE,
         [](M& m) { m.source.clock[7] = 2, m.priority1 = 1; }, true},
        {"version 1", ptp::SYNC, [](M& m) { m.version = 1; }, true},
        {"version 3", ptp::ANNOUNCE, [](M& m) { m.version = 3; }, true},
        {"a length below the header's", ptp::SYNC, [](M& m) { m.length = 33; }, true},
        {"no version", ptp::FOLLOW_UP, [](M& m) { m.version = 0; }, true},
        {"another domain", ptp::SYNC, [](M& m) { m.domain = 5; }, true},
        {"Signaling", ptp::SIGNALING, [](M&) {}, true},
        {"a request for delays", ptp::DELAY_REQ, [](M&) {}, false},
        {"a type that is none, a header alone", 0xF, [](M& m) { m.length = 34; }, false},
    };
    Bench b;
    b.run([&b] {
        ASSERT_NO_FATAL_FAILURE(follow());
        u16 sequence = 200;
        for (const Case& c : CASES) {
            SCOPED_TRACE(c.what);
            b.node.traces().clear();
            const std::size_t before = ptpSeen().exchanges.size();
            const auto was = stateOf(*ptpClockOf(0));
            M m = from(c.type, ++sequence);
            c.spoil(m);
            std::vector<u8> octets = octetsOf(m);
            octets.resize(std::max<std::size_t>(octets.size(), 64));     // any frame's padding
            receive(octets);
            EXPECT_EQ(b.node.traces().lines().empty(), !c.isTold);
            EXPECT_TRUE(stateOf(*ptpClockOf(0)) == was);
            EXPECT_EQ(ptpClockOf(0)->portState, u32{SLAVE});
            goodSync(++sequence);
            EXPECT_EQ(ptpSeen().exchanges.size(), before + 1);
            for (const u8 type : {PTP_SYNC, PTP_FOLLOW_UP})
                EXPECT_EQ(ptpClockOf(0)->used[type], std::get<6>(was)[type] + 1);
        }
        // One octet short is told, at the limit a message is taken.
        for (const auto& [type, limit] : {std::pair{ptp::SYNC, 44}, std::pair{ptp::FOLLOW_UP, 44},
                                          std::pair{ptp::DELAY_RESP, 54}, std::pair{ptp::ANNOUNCE, 64}}) {
            SCOPED_TRACE(int{type});
            std::vector<u8> octets = ptp::write(from(type, ++sequence));
            ASSERT_EQ(octets.size(), static_cast<std::size_t>(limit));
            b.node.traces().clear();
            receive(octets);
            EXPECT_EQ(b.traced("in too short frame"), 0u);
            for (const int length : {limit - 1, 40, 39}) {
                octets.resize(static_cast<std::size_t>(length));
                receive(octets);
            }
            EXPECT_EQ(b.traced("in too short frame"), 3u);
            EXPECT_EQ(b.traced("not even enough for common message header"), 1u);
        }
        // A clock that is gone leaves no timer behind.
        TuPktsync_delete_ptp_clock(0);
        ptpRunFor(60'000);
        EXPECT_EQ(b.traced("TuPktsync_PTP_TmoSig for non-existing"), 0u);
    });
}

TEST(PtpRequirement, OnIntervalsHoldsAtOnceAndAStampIsOfADelayReq)
{
    Bench b;
    b.run([&b] {
        ASSERT_NO_FATAL_FAILURE(follow());
        const auto faultsWith = [](u32 longest_ms) {
            TuPktsync_PTP_clockRqmtInd(0, 31, longest_ms, 7, {}, 0x22);
            return ptpClockOf(0)->fault_flags & (FAULT_SYNC_RATE | FAULT_DELAY_REQ_RATE);
        };
        EXPECT_EQ(faultsWith(1000), 0u);             // a message a second is what the master gives
        EXPECT_EQ(faultsWith(999), FAULT_SYNC_RATE | FAULT_DELAY_REQ_RATE);
        EXPECT_EQ(faultsWith(1001), 0u);
        for (const i8 log : {-7, 5}) {               // as often and as seldom as Syncs may come
            ptp::Message m = from(ptp::SYNC, 300);
            m.logInterval = log;
            receive(ptp::write(m));
            EXPECT_EQ(ptpClockOf(0)->logSyncInterval, log);
        }
        b.node.traces().clear();
        for (const u8 type : {PTP_PDELAY_RESP, PTP_PDELAY_RESP_FOLLOW_UP, PTP_SYNC}) {
            const u8 metadata[8] = {0, 9, 0, 0, type, 0, 0, 0};
            TuPktsync_PTP_egressTimestamp(metadata, {1, 2});
        }
        EXPECT_EQ(b.node.traces().lines().size(), 1u);       // a peer's are none of this clock's
        EXPECT_EQ(b.traced("PktSyncDrvTimestampInd with wrong messageType(0)"), 1u);
        EXPECT_EQ(ptpClockOf(0)->delay.stamps.occupancy, 0u);
    });
}

TEST(PtpTimer, ATimeoutOfADeletedClockDoesntCountForTheNextOfItsPlace)
{
    Bench b;
    b.run([&b] {
        const PtpClockSetup setup = setupOf(PACKET_TIME_FRO_CLASS, PTP_ETHERNET);
        ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
        ose::delay(9000);                            // its announce timer runs out and waits in the queue
        TuPktsync_delete_ptp_clock(0);
        ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
        const u32 begin = ptpNow_ms();
        ptpRunTo(begin + 8000);
        EXPECT_EQ(ptpClockOf(0)->fault_flags, 0u);
        ptpRunTo(begin + 8200);
        EXPECT_EQ(ptpClockOf(0)->fault_flags, u32{FAULT_NO_ANNOUNCE});
        EXPECT_EQ(TuPktsync_new_ptp_clock(setup), 0u);       // its place is taken
        // One that comes while there is no clock is told, and doesn't count later either.
        ose::delay(9000);
        TuPktsync_delete_ptp_clock(0);
        ptpRunTo(ptpNow_ms());
        EXPECT_EQ(b.traced("TuPktsync_PTP_TmoSig for non-existing syncrefId(0), specificInfo(0)"), 1u);
        ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
        ptpRunTo(ptpNow_ms() + 8200);
        EXPECT_EQ(ptpClockOf(0)->fault_flags, u32{FAULT_NO_ANNOUNCE});
    });
}

TEST(PtpTimescale, ThatIsntTaiIsToldOnceAndAFaultUnderIeee1588J3)
{
    struct Case { u8 profile; u32 faults; };
    for (const Case& c : {Case{IEEE_1588_J3, FAULT_CLOCK_CLASS}, Case{ITU_T_G_8275_1, 0}}) {
        SCOPED_TRACE(c.profile);
        Bench b;
        b.run([&c] {
            PtpClockSetup setup = setupOf(PACKET_TIME_FRO_CLASS, PTP_ETHERNET);
            setup.ptpProfile = c.profile;
            ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
            const auto hear = [](u8 flags) {
                ptp::Message m = from(ptp::ANNOUNCE);
                m.flags1 = flags;
                receive(ptp::write(m));
                return ptpClockOf(0)->fault_flags & FAULT_CLOCK_CLASS;
            };
            constexpr u8 TRACEABLE = PTP_TIME_TRACEABLE | PTP_FREQUENCY_TRACEABLE;
            for (u32 i = 0; i < 4; ++i) hear(TRACEABLE);
            EXPECT_EQ(hear(TRACEABLE), c.faults);
            EXPECT_EQ(hear(TRACEABLE | PTP_TIMESCALE), 0u);
            EXPECT_EQ(hear(TRACEABLE), c.faults);
        });
        EXPECT_EQ(b.traced("has no ptpTimescale: its time isn't TAI"), 2u);
        EXPECT_EQ(b.traced("has ptpTimescale now"), 1u);
    }
}

TEST(PtpForeignMaster, IsForgottenWhenItsSilenceSpansTheTurnOfTheTicks)
{
    Bench b;
    b.world.runFor(ose::MS * (0x1'0000'0000 - 6'000));       // 49.7 days less 6 s
    b.run([] {
        ASSERT_EQ(TuPktsync_new_ptp_clock(setupOf(PACKET_TIME_FRO_CLASS, PTP_ETHERNET)), 1u);
        for (u32 i = 0; i < 5; ++i) {
            receive(ptp::write(from(ptp::ANNOUNCE)));
            ptpRunFor(2000);
        }
        EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 1u);
        EXPECT_EQ(ptpClockOf(0)->portState, UNCALIBRATED);
        ptpRunFor(20'000);
        EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 0u);
        EXPECT_EQ(ptpClockOf(0)->portState, LISTENING);
    });
}

// ---- unicast negotiation --------------------------------------------------------------------------

ptp::Message signaling(std::vector<ptp::Message::Tlv> tlvs)
{
    ptp::Message m = from(ptp::SIGNALING);
    m.control = 5;
    m.logInterval = 0x7F;
    m.tlvs = std::move(tlvs);
    return m;
}

ptp::Message::Tlv grant(u8 type, i8 log, u32 duration_s)
{
    return {ptp::TLV_GRANT,
            {static_cast<u8>(type << 4), static_cast<u8>(log), static_cast<u8>(duration_s >> 24),
             static_cast<u8>(duration_s >> 16), static_cast<u8>(duration_s >> 8), static_cast<u8>(duration_s),
             0, 1}};
}

void give(const ptp::Message& m) { receive(ptp::write(m), &SERVER); }
void giveGrant(u8 type, i8 log, u32 duration_s) { give(signaling({grant(type, log, duration_s)})); }

/// Clock 0 on UDP, its request for Announce out.
void ask(PtpClockSetup setup = setupOf(PACKET_FREQ_FRO_CLASS, UDP_UC))
{
    ASSERT_EQ(TuPktsync_new_ptp_clock(setup), 1u);
    ptpRunTo(ptpNow_ms() + 1100);
    ASSERT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_GRANT});
    ASSERT_EQ(ptpSeen().sent.size(), 1u);
}

TEST(PtpBadSignaling, ChangesNothingAndTheNextGrantIsTaken)
{
    using M = ptp::Message;
    const ptp::Message::Tlv good = grant(ptp::ANNOUNCE, 1, 300);
    ptp::Message::Tlv shortGrant = good;
    shortGrant.value.resize(7);
    static constexpr std::array<u8, 8> ALL = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    constexpr ptp::Port ANY{ALL}, ANY_PORT{ALL, 0xFFFF};
    constexpr const char* ACKNOWLEDGED = "an acknowledgement of nothing";      // read, and no more
    struct Case { const char* what; std::vector<ptp::Message::Tlv> tlvs; void (*spoil)(M&); };
    const Case CASES[] = {
        {"to another clock", {good}, [](M& m) { m.target.clock[0] = 1; }},
        {"to another port", {good}, [](M& m) { m.target.number = 2; }},
        {"to another port of any clock", {good}, [](M& m) { m.target = {ALL, 2}; }},
        {"to all ports of this clock", {good}, [](M& m) { m.target.number = 0xFFFF; }},
        {"longer than its datagram", {good}, [](M& m) { m.length = 57; }},
        {"shorter than its target", {good}, [](M& m) { m.length = 43; }},
        {"nothing behind its target", {}, [](M& m) { m.length = 44; }},
        {"a TLV of no octets", {{ptp::TLV_REQUEST, {}}}, nullptr},
        {"a TLV beyond the end", {good}, [](M& m) { m.length = 55; }},
        {"half a TLV's header", {good}, [](M& m) { m.length = 47; }},
        {"another domain", {good}, [](M& m) { m.domain = 9; }},
        {"a grant one octet short", {shortGrant}, nullptr},
        {"a cancel one octet short", {{ptp::TLV_CANCEL, {0xB0}}}, nullptr},
        {"an acknowledgement one octet short", {{ptp::TLV_ACK_CANCEL, {0xB0}}}, nullptr},
        {"a request", {{ptp::TLV_REQUEST, {0xB0, 1, 0, 0, 1, 44}}}, nullptr},
        {"a grant of another flow", {grant(ptp::SYNC, 0, 300)}, nullptr},
        {"a grant of no flow", {grant(5, 0, 300)}, nullptr},
        {"a cancel before any grant", {{ptp::TLV_CANCEL, {0xB0, 0}}}, nullptr},
        {"a cancel of no flow", {{ptp::TLV_CANCEL, {0x50, 0}}}, nullptr},
        {ACKNOWLEDGED, {{ptp::TLV_ACK_CANCEL, {0x90, 0}}}, nullptr},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        Bench b;
        b.run([&] {
            ASSERT_NO_FATAL_FAILURE(ask());
            b.node.traces().clear();
            M m = signaling(c.tlvs);
            if (c.spoil != nullptr) c.spoil(m);
            receive(octetsOf(m), &SERVER);
            EXPECT_EQ(b.node.traces().lines().empty(), m.length == 44);
            EXPECT_EQ(b.traced("Signaling message received with 4 residual octets"), 0u);
            EXPECT_EQ(ptpClockOf(0)->used[PTP_SIGNALING], std::string_view(c.what) == ACKNOWLEDGED ? 1u : 0u);
            EXPECT_EQ(b.traced("too short frame; only 22 bytes left"), m.length == 43 || m.length == 57);
            EXPECT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_GRANT});
            EXPECT_EQ(ptpSeen().sent.size(), 1u);
            // What is wrong leaves the message's other TLVs good, and the next message, to any clock.
            if (c.spoil == nullptr) m.tlvs.push_back(good);
            else                    m = signaling({good}), m.target = c.tlvs.empty() ? ANY : ANY_PORT;
            give(m);
            EXPECT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_MSG});
        });
    }
}

TEST(PtpNegotiation, TheEarliestEndOfThreeGrantsRulesHoweverLongTheyAre)
{
    // Granted Announce, Sync and Delay_Resp in s; ms until all is negotiated anew.
    struct Case { u32 announce, sync, delayResp, renewal; };
    constexpr Case CASES[] = {
        {300, 300, 300, 290'000}, {60, 300, 300, 50'000},        {300, 300, 60, 50'000},
        {300, 90, 60, 50'000},    {3'000'000, 60, 300, 50'000},  {4'294'968, 300, 100, 90'000},
        {60, 4'294'978, 0xFFFF'FFFF, 50'000},        {0xFFFF'FFFF, 0xFFFF'FFFF, 60, 50'000},
        {70'000, 0xFFFF'FFFF, 0xFFFF'FFFF, 69'990'000},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(testing::Message() << c.announce << " " << c.sync << " " << c.delayResp);
        Bench b;
        b.run([&] {
            ASSERT_NO_FATAL_FAILURE(ask());
            const u32 granted = ptpNow_ms();
            giveGrant(ptp::ANNOUNCE, 1, c.announce);
            give(from(ptp::ANNOUNCE));
            giveGrant(ptp::SYNC, 0, c.sync);
            giveGrant(ptp::DELAY_RESP, 0, c.delayResp);
            ASSERT_EQ(ptpUcNegState(0), u32{UC_NEG_READY});
            ptpRunTo(granted + c.renewal - 2);
            EXPECT_EQ(ptpUcNegState(0), u32{UC_NEG_READY});
            EXPECT_FALSE(b.node.traces().has("TuPktsyncPTP_UCreply_timeout"));   // nothing is owed
            ptpRunTo(granted + c.renewal + 2);
            EXPECT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_GRANT});
        });
    }
}

TEST(PtpNegotiation, TellsNoQualityWhileItWaitsForAnAnnounce)
{
    Bench b;
    b.run([] {
        ASSERT_NO_FATAL_FAILURE(ask());
        const auto supervise = [] {
            ptpSeen().qualities.clear();
            TuPktsync_set_ptp_path_supervision(0, 1);
            return ptpSeen().qualities;
        };
        EXPECT_EQ(supervise(), std::vector<u32>{255});
        const u32 granted = ptpNow_ms();
        giveGrant(ptp::ANNOUNCE, 1, 60);
        EXPECT_EQ(supervise(), std::vector<u32>{255});
        ptpSeen().qualities.clear();
        give(from(ptp::ANNOUNCE));
        EXPECT_EQ(ptpSeen().qualities, std::vector<u32>{6});     // the class, as soon as it is known
        giveGrant(ptp::SYNC, 0, 300);
        giveGrant(ptp::DELAY_RESP, 0, 300);
        for (u32 ms = 2000; ms <= 50'100; ms += 2000) {
            ptpRunTo(granted + ms);
            give(from(ptp::ANNOUNCE));
        }
        ptpRunTo(granted + 50'200);
        ASSERT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_GRANT});
        EXPECT_EQ(supervise(), std::vector<u32>{6});             // the old grant runs on
        giveGrant(ptp::ANNOUNCE, 1, 60);
        ASSERT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_MSG});
        EXPECT_EQ(supervise(), std::vector<u32>{255});
        give(from(ptp::ANNOUNCE));
        EXPECT_EQ(supervise(), std::vector<u32>{6});
    });
}

TEST(PtpNegotiation, GoesOnWithoutASendBuffer)
{
    Bench b;
    b.run([&b] {
        ASSERT_NO_FATAL_FAILURE(ask());
        ptpSeen().noBuffer = true;
        ptpRunTo(ptpNow_ms() + 1500);
        EXPECT_EQ(b.node.traces().count({"Failed to allocate send buffer", "", TRACE_ERROR}), 1u);
        ptpSeen().noBuffer = false;
        ptpRunTo(ptpNow_ms() + 1500);
        ASSERT_EQ(ptpSeen().sent.size(), 2u);
        const std::vector<u8> octets = bytesOf(ptpSeen().sent[1].hex);
        EXPECT_EQ(ptp::read(octets.data(), octets.size())->sequence, 2u);    // the lost one had its own
        ptpSeen().noBuffer = true;
        TuPktsync_delete_ptp_clock(0);
        EXPECT_EQ(b.node.traces().count({"Failed to allocate send buffer for syncrefId 0!", "", TRACE_1}),
                  3u);
        ptpRunFor(20'000);
        EXPECT_EQ(b.traced("TuPktsync_PTP_TmoSig for non-existing"), 0u);
    });
}

}  // namespace
