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

/// One process of a fresh idle program, every trace on.
struct Bench : IdleNode {
    void run(const std::function<void()>& body)
    {
        in([&body] {
            node::traceAttachProcess();
            node::traceSetProgramMask(0xFFFFFFFF);
            ptpBegin();
            body();
            for (u32 id = 0; id < PTP_CLOCKS; ++id) TuPktsync_delete_ptp_clock(id);
        });
    }
    std::size_t traced(const std::string& text) { return node.traces().count({text}); }
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
}

TEST(PtpBadMessage, LeavesAClockFollowing)
{
    struct Case {
        const char* what;
        u8 type;
        void (*spoil)(ptp::Message&);
        const char* trace;                           // "" for what is dropped without a word
    };
    static constexpr Case CASES[] = {
        {"a Sync of another clock", ptp::SYNC, [](ptp::Message& m) { m.source.clock[7] = 2; },
         "Sync received from unknown clock"},
        {"a Sync of the master's other port", ptp::SYNC, [](ptp::Message& m) { m.source.number = 2; },
         "Sync received from unknown clock"},
        {"a Sync in 64 s", ptp::SYNC, [](ptp::Message& m) { m.logInterval = 6; },
         "Sync received for syncrefId 0 with unusable logMessageInterval (6)"},
        {"256 Syncs a second", ptp::SYNC, [](ptp::Message& m) { m.logInterval = -8; },
         "Sync received for syncrefId 0 with unusable logMessageInterval (-8)"},
        {"a Sync of no interval", ptp::SYNC, [](ptp::Message& m) { m.logInterval = 127; },
         "with unusable logMessageInterval (127)"},
        {"a Follow_Up of another clock", ptp::FOLLOW_UP, [](ptp::Message& m) { m.source.clock[0] = 1; },
         "Follow_Up received from unknown clock"},
        {"a Delay_Resp to another clock", ptp::DELAY_RESP, [](ptp::Message& m) { m.requesting.clock[7] = 4; },
         "Delay_Resp received - not our PortIdentity"},
        {"a Delay_Resp to another port", ptp::DELAY_RESP, [](ptp::Message& m) { m.requesting.number = 2; },
         "Delay_Resp received - not our PortIdentity"},
        {"a Delay_Resp in 64 s", ptp::DELAY_RESP, [](ptp::Message& m) { m.logInterval = 6; },
         "Delay_Resp received for syncrefId 0 with unusable logMessageInterval (6)"},
        {"256 Delay_Resps a second", ptp::DELAY_RESP, [](ptp::Message& m) { m.logInterval = -8; },
         "Delay_Resp received for syncrefId 0 with unusable logMessageInterval (-8)"},
        {"an alternate master's Announce", ptp::ANNOUNCE, [](ptp::Message& m) { m.flags0 = 1; },
         "Announce received from ALTERNATE_MASTER clock"},
        {"an Announce 255 steps away", ptp::ANNOUNCE, [](ptp::Message& m) { m.steps = 255; },
         "Announce received stepRemoved = 255 field not accepted."},
        {"an Announce 65535 steps away", ptp::ANNOUNCE, [](ptp::Message& m) { m.steps = 65535; },
         "Announce received stepRemoved = 65535 field not accepted."},
        {"an Announce of nobody", ptp::ANNOUNCE, [](ptp::Message& m) { m.source.clock = {}; }, ""},
        {"a better master's first Announce", ptp::ANNOUNCE,
         [](ptp::Message& m) { m.source.clock[7] = 2, m.priority1 = 1; },
         "Announce received from unknown GM, foreignMasterId= 1"},
        {"version 1", ptp::SYNC, [](ptp::Message& m) { m.version = 1; },
         "Nonconformant PTP frame received; msg_len 44 octets"},
        {"version 3", ptp::ANNOUNCE, [](ptp::Message& m) { m.version = 3; },
         "Nonconformant PTP frame received; msg_len 64 octets"},
        {"a length below the header's", ptp::SYNC, [](ptp::Message& m) { m.length = 33; },
         "Nonconformant PTP frame received; msg_len 33 octets"},
        {"no version, and the longest length", ptp::FOLLOW_UP,
         [](ptp::Message& m) { m.length = 0xFFFF, m.version = 0; },
         "Nonconformant PTP frame received; msg_len 65535 octets"},
        {"another domain", ptp::SYNC, [](ptp::Message& m) { m.domain = 5; },
         "PTP message received for unknown domainId (5)"},
        {"Signaling", ptp::SIGNALING, [](ptp::Message&) {},
         "PTP Signaling message received for syncref(id=0) not mapped to unicast bearer"},
        {"a request for delays", ptp::DELAY_REQ, [](ptp::Message&) {}, ""},
        {"a peer's answer", ptp::PDELAY_RESP, [](ptp::Message&) {}, ""},
        {"management", ptp::MANAGEMENT, [](ptp::Message&) {}, ""},
        {"a type that is none", 0xF, [](ptp::Message&) {}, ""},
    };
    Bench b;
    b.run([&b] {
        ASSERT_NO_FATAL_FAILURE(follow());
        u16 sequence = 200;
        for (const Case& c : CASES) {
            SCOPED_TRACE(c.what);
            b.node.traces().clear();
            const std::size_t before = ptpSeen().exchanges.size();
            const PtpClock was = *ptpClockOf(0);
            ptp::Message m = from(c.type, ++sequence);
            c.spoil(m);
            std::vector<u8> octets = octetsOf(m);
            octets.resize(std::max<std::size_t>(octets.size(), 64));     // any frame's padding
            receive(octets);
            if (*c.trace != '\0') {
                EXPECT_EQ(b.traced(c.trace), 1u);
            } else {
                EXPECT_EQ(b.node.traces().lines().size(), 0u);
            }
            const PtpClock& is = *ptpClockOf(0);
            EXPECT_EQ(is.portState, u32{SLAVE});
            EXPECT_EQ(is.parent.parentPortIdentity, was.parent.parentPortIdentity);
            EXPECT_EQ(is.stepsRemoved, was.stepsRemoved);
            EXPECT_EQ(is.logSyncInterval, was.logSyncInterval);
            EXPECT_EQ(is.logMinDelayReqInterval, was.logMinDelayReqInterval);
            EXPECT_EQ(is.syncStamps.occupancy, was.syncStamps.occupancy);
            EXPECT_EQ(is.delay.stamps.occupancy, was.delay.stamps.occupancy);
            goodSync(++sequence);
            EXPECT_EQ(ptpSeen().exchanges.size(), before + 1);
        }
    });
}

TEST(PtpBadMessage, OneOctetShortIsToldAndAtItsLimitTaken)
{
    struct Case { u8 type; std::size_t limit; const char* name; };
    constexpr Case CASES[] = {
        {ptp::SYNC, 44, "Sync"}, {ptp::FOLLOW_UP, 44, "Follow_Up"}, {ptp::DELAY_RESP, 54, "Delay_Resp"},
        {ptp::ANNOUNCE, 64, "Announce"},
    };
    Bench b;
    b.run([&] {
        ASSERT_NO_FATAL_FAILURE(follow());
        for (const Case& c : CASES) {
            SCOPED_TRACE(c.name);
            std::vector<u8> octets = ptp::write(from(c.type, 300));
            ASSERT_EQ(octets.size(), c.limit);
            b.node.traces().clear();
            receive(octets);
            EXPECT_EQ(b.traced("in too short frame"), 0u);
            for (std::size_t length = c.limit - 1; length >= 40; --length) {
                octets.resize(length);
                receive(octets);
                EXPECT_EQ(b.traced("PTP " + std::string(c.name) + " received in too short frame; only " +
                                   std::to_string(length - 34) + " bytes left"), 1u);
            }
            octets.resize(39);
            receive(octets);
            EXPECT_EQ(b.traced("PTP received in too short frame, 39 bytes; not even enough for common "
                               "message header"), 1u);
        }
        EXPECT_EQ(ptpClockOf(0)->portState, u32{SLAVE});
    });
}

TEST(PtpBadMessage, StampsOfOneSetAloneMakeAnExchange)
{
    Bench b;
    b.run([&b] {
        ASSERT_NO_FATAL_FAILURE(follow());
        const auto exchanges = [] { return ptpSeen().exchanges.size(); };
        receive(ptp::write(from(ptp::FOLLOW_UP, 400)));          // overtakes its Sync
        EXPECT_EQ(exchanges(), 1u);
        receive(ptp::write(from(ptp::SYNC, 400)));
        EXPECT_EQ(exchanges(), 2u);
        receive(ptp::write(from(ptp::SYNC, 401)));               // its Follow_Up is lost
        receive(ptp::write(from(ptp::SYNC, 402)));
        receive(ptp::write(from(ptp::SYNC, 402)));               // twice
        EXPECT_EQ(b.traced("tsIndex 2 already saved; writing over previous timestamp"), 1u);
        receive(ptp::write(from(ptp::FOLLOW_UP, 402)));
        EXPECT_EQ(exchanges(), 3u);
        goodSync(401 + 32);                                      // needs the place of the lost one
        EXPECT_EQ(b.traced("sequenceId 433 needs position already in use by seqId 401; discarding old"), 1u);
        EXPECT_EQ(exchanges(), 4u);
        goodSync(65535);
        goodSync(0);
        EXPECT_EQ(exchanges(), 6u);
        // An egress stamp of another clock leaves this one's answer waiting.
        receive(ptp::write(from(ptp::DELAY_RESP, 7)));
        const u8 other[8] = {0, 7, 0, 1, PTP_DELAY_REQ, 0, 0, 0};
        const u8 own[8] = {0, 7, 0, 0, PTP_DELAY_REQ, 0, 0, 0};
        TuPktsync_PTP_egressTimestamp(other, {1000, 0});
        EXPECT_EQ(b.traced("PktSyncDrvTimestampInd for non-existing syncrefId(1)"), 1u);
        EXPECT_EQ(ptpClockOf(0)->delay.sample.sequenceId, 0u);
        TuPktsync_PTP_egressTimestamp(own, {1000, 0});
        EXPECT_EQ(ptpClockOf(0)->delay.sample.sequenceId, 7u);
    });
}

TEST(PtpBadMessage, ASixthMasterIsntStoredUntilAPlaceIsFree)
{
    Bench b;
    b.run([&b] {
        ASSERT_EQ(TuPktsync_new_ptp_clock(setupOf(PACKET_TIME_FRO_CLASS, PTP_ETHERNET)), 1u);
        const u32 begin = ptpNow_ms();
        const auto announce = [](u8 clock) {
            ptp::Message m = from(ptp::ANNOUNCE);
            m.source.clock[7] = clock;
            receive(ptp::write(m));
        };
        for (u8 clock = 1; clock <= 6; ++clock) announce(clock);
        EXPECT_EQ(b.traced("Maximum number of stored foreignMasters reached (5)"), 1u);
        EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 5u);
        ptpRunTo(begin + 15'000);                    // four intervals of 2 s and a timer's turn
        EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 0u);
        announce(6);
        EXPECT_EQ(ptpClockOf(0)->foreignMasterCount, 1u);
        EXPECT_EQ(b.traced("Maximum number of stored foreignMasters reached"), 1u);
    });
}

TEST(PtpExchanges, SecondsOfT1AreSixtyFourBitsWide)
{
    struct Case { u32 seconds, ns; i32 asymmetry, latency; u64 wantedSeconds; u32 wanted_ns; };
    static constexpr Case CASES[] = {
        {1000, 500, 0, -920, 1000, 1420},
        {1000, 999'999'999, 1, 0, 1001, 0},
        {0, 100, -200, 0, 0xFFFF'FFFF'FFFF'FFFF, 999'999'900},   // a master's clock that has just begun
        {0xFFFF'FFFF, 999'999'999, 0, -1, 0x1'0000'0000, 0},
    };
    Bench b;
    b.run([] {
        ASSERT_NO_FATAL_FAILURE(follow());
        u16 sequence = 500;
        for (const Case& c : CASES) {
            SCOPED_TRACE(c.seconds);
            TuPktsync_change_ptp_clock(0, c.asymmetry, 0, 0, IEEE_1588_J3);
            ptpSeen().latency = c.latency;
            ptp::Message m = from(ptp::FOLLOW_UP, ++sequence);
            m.stamp = {c.seconds, c.ns};
            receive(ptp::write(from(ptp::SYNC, sequence)));
            receive(ptp::write(m));
            EXPECT_EQ(ptpSeen().exchanges.back().T1s, c.wantedSeconds);
            EXPECT_EQ(ptpSeen().exchanges.back().T1f, c.wanted_ns);
            EXPECT_EQ(ptpSeen().exchanges.back().asymComp, c.asymmetry);
        }
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
             static_cast<u8>(duration_s >> 16), static_cast<u8>(duration_s >> 8),
             static_cast<u8>(duration_s), 0, 1}};
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
    struct Case {
        const char* what;
        std::vector<ptp::Message::Tlv> tlvs;
        void (*spoil)(ptp::Message&);
        int cut;                                     // octets of the message's end
        const char* trace;
    };
    const ptp::Message::Tlv good = grant(ptp::ANNOUNCE, 1, 300);
    const auto as = [](const ptp::Message::Tlv& tlv, std::size_t length) {
        ptp::Message::Tlv changed = tlv;
        changed.value.resize(length);
        return changed;
    };
    constexpr auto AS_IT_IS = [](ptp::Message&) {};
    const Case CASES[] = {
        {"to another clock", {good}, [](ptp::Message& m) { m.target.clock[0] = 1; }, 0,
         "PTP Signaling message received for unknown targetPortIdentity"},
        {"to another port", {good}, [](ptp::Message& m) { m.target.number = 2; }, 0,
         "unknown targetPortIdentity"},
        {"to another port of any clock", {good},
         [](ptp::Message& m) { m.target.clock.fill(0xFF), m.target.number = 2; }, 0,
         "unknown targetPortIdentity"},
        {"to all ports of this clock", {good}, [](ptp::Message& m) { m.target.number = 0xFFFF; }, 0,
         "unknown targetPortIdentity"},
        {"longer than its datagram", {good}, [](ptp::Message& m) { m.length = 57; }, 0,
         "PTP Signaling received in too short frame; only 22 bytes left"},
        {"shorter than its target", {good}, [](ptp::Message& m) { m.length = 43; }, 0,
         "PTP Signaling received in too short frame"},
        {"without a TLV, two octets left", {}, [](ptp::Message& m) { m.length = 44; }, 2,
         "PTP Signaling received in too short frame; only 8 bytes left"},
        {"a TLV beyond the end", {good}, [](ptp::Message& m) { m.length = 55; }, 0,
         "Signaling message received with 11 residual octets "},
        {"half a TLV's header", {good}, [](ptp::Message& m) { m.length = 47; }, 0,
         "Signaling message received with 3 residual octets "},
        {"a grant one octet short", {as(good, 7)}, AS_IT_IS, 0,
         "Signaling TLV of unsupported type (5) received "},
        {"a grant of nothing", {as(good, 0)}, AS_IT_IS, 0,
         "Signaling TLV of unsupported type (5) received "},
        {"a cancel one octet short", {{ptp::TLV_CANCEL, {0xB0}}}, AS_IT_IS, 0,
         "Signaling TLV of unsupported type (6) received "},
        {"an acknowledgement one octet short", {{ptp::TLV_ACK_CANCEL, {0xB0}}}, AS_IT_IS, 0,
         "Signaling TLV of unsupported type (7) received "},
        {"a request", {{ptp::TLV_REQUEST, {0xB0, 1, 0, 0, 1, 44}}}, AS_IT_IS, 0,
         "Signaling TLV of unsupported type (4) received "},
        {"a TLV of no type", {{0xFFFF, {1, 2}}}, AS_IT_IS, 0,
         "Signaling TLV of unsupported type (65535) received "},
        {"a grant of another flow", {grant(ptp::SYNC, 0, 300)}, AS_IT_IS, 0,
         "Unexpected Unicast_Grant for messageType Sync received for syncrefId 0 in state "
         "UC_NEG_WAIT_ANNOUNCE_GRANT"},
        {"a grant of no flow", {grant(5, 0, 300)}, AS_IT_IS, 0,
         "Unexpected Unicast_Grant for messageType unknown received"},
        {"a cancel before any grant", {{ptp::TLV_CANCEL, {0xB0, 0}}}, AS_IT_IS, 0,
         "Unexpected Unicast_Cancel for messageType Announce received for syncrefId 0"},
        {"a cancel of no flow", {{ptp::TLV_CANCEL, {0x50, 0}}}, AS_IT_IS, 0,
         "Unexpected Unicast_Cancel for messageType unknown received"},
        {"an acknowledgement of nothing", {{ptp::TLV_ACK_CANCEL, {0x90, 0}}}, AS_IT_IS, 0,
         "Unicast_Cancel_Acknowledge for messageType Delay_Resp received for syncrefId 0"},
        {"another domain", {good}, [](ptp::Message& m) { m.domain = 9; }, 0,
         "unknown server IP address (192.168.0.9) and/or domainId (9)"},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        Bench b;
        b.run([&] {
            ASSERT_NO_FATAL_FAILURE(ask());
            b.node.traces().clear();
            ptp::Message m = signaling(c.tlvs);
            c.spoil(m);
            std::vector<u8> octets = octetsOf(m);
            octets.resize(octets.size() - static_cast<std::size_t>(c.cut));
            receive(octets, &SERVER);
            EXPECT_EQ(b.traced(c.trace), 1u);
            EXPECT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_GRANT});
            EXPECT_EQ(ptpSeen().sent.size(), 1u);
            // What is wrong leaves the message's other TLVs good.
            const bool isWhole = c.cut == 0 && m.length == 0 && m.target.clock == OWN &&
                                 m.target.number == 1 && m.domain == DOMAIN;
            if (isWhole) m.tlvs.push_back(good);
            give(isWhole ? m : signaling({good}));
            EXPECT_EQ(ptpUcNegState(0), u32{UC_NEG_WAIT_ANNOUNCE_MSG});
        });
    }
}

TEST(PtpSignaling, AnyPortOfAnyClockIsThisOneToo)
{
    for (const u16 number : {1, 0xFFFF}) {
        Bench b;
        b.run([number] {
            ASSERT_NO_FATAL_FAILURE(ask());
            ptp::Message m = signaling({grant(ptp::ANNOUNCE, 1, 300)});
            m.target.clock.fill(0xFF);
            m.target.number = number;
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
        {60, 4'294'978, 0xFFFF'FFFF, 50'000},                    {0xFFFF'FFFF, 0xFFFF'FFFF, 60, 50'000},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(testing::Message() << c.announce << " " << c.sync << " " << c.delayResp);
        Bench b;
        b.run([&c] {
            ASSERT_NO_FATAL_FAILURE(ask());
            const u32 granted = ptpNow_ms();
            giveGrant(ptp::ANNOUNCE, 1, c.announce);
            give(from(ptp::ANNOUNCE));
            giveGrant(ptp::SYNC, 0, c.sync);
            giveGrant(ptp::DELAY_RESP, 0, c.delayResp);
            ASSERT_EQ(ptpUcNegState(0), u32{UC_NEG_READY});
            ptpRunTo(granted + c.renewal - 2);
            EXPECT_EQ(ptpUcNegState(0), u32{UC_NEG_READY});
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
    });
}

}  // namespace
