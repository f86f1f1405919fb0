#include "sim/node/main_processor.h"

#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

using sim::Answer;

namespace {

constexpr u32 SERVER_DEAD = 0x90E02, SERVER_UP = 0x90E03, INITIATE_REQ = 0x9C000, CFM = 0x9C001,
              SUP_IND = 0x9C00A, SELECT = 0x9C00C, STATUS = 0x9C00D, GPS_STATUS = 0x9C021, ET_FROID = 0x9C010,
              REF_STATE = 0x9C03D, CREATE_CFM = 0x9C02F;

/// The unit's end of the interface, byte by byte, in a process of the program.
struct Unit {
    PROCESS mp = 0;
    std::vector<std::vector<u8>> received;      // since the last clear

    void take(OSTIME wait = 5)
    {
        while (Signal* sig = ose::receive_w_tmo(wait, ose::ANY_SIGNAL)) {
            const auto* bytes = reinterpret_cast<const u8*>(sig);
            received.emplace_back(bytes, bytes + ose::sigsize(&sig));
            if (sig->sigNo == SERVER_UP) {
                mp = ose::sender(&sig);
                Signal* dead = ose::alloc(4, SERVER_DEAD);
                ose::attach(&dead, mp);
            }
            ose::free_buf(&sig);
        }
    }
    void ask()
    {
        const std::string name = "KvdTuIIfServiceName";
        Signal* sig = ose::alloc(static_cast<u32>(name.size()) + 24, 0x7B81);
        auto* bytes = reinterpret_cast<u8*>(sig);
        const u32 length = static_cast<u32>(name.size()), answer = SERVER_UP;
        std::memcpy(bytes + 8, &length, 4);
        std::memcpy(bytes + 16, name.data(), name.size());
        std::memcpy(bytes + 16 + name.size(), &answer, 4);
        PROCESS ns = ose::hunt("ose_ns", 0, nullptr, nullptr);
        ose::send(&sig, ns);
    }
    void connect()
    {
        ask();
        take();
        send({INITIATE_REQ, 2, 22, 22, 22, 1, 2, 3, 0});
        received.clear();
        take();
    }
    void send(const std::vector<u32>& words)
    {
        Signal* sig = ose::alloc(static_cast<u32>(words.size() * 4), words[0]);
        std::memcpy(reinterpret_cast<u8*>(sig), words.data(), words.size() * 4);
        ose::send(&sig, mp);
    }
    void status(u8 clock, u32 refState) { send({STATUS, 1, 2, clock, refState, 0, 7, 8}); }
    /// Selections since the last clear, as types.
    std::vector<u8> selections()
    {
        std::vector<u8> types;
        for (const std::vector<u8>& s : received)
            if (number(s) == SELECT) types.push_back(s[4]);
        return types;
    }
    static u32 number(const std::vector<u8>& s) { return word(s, 0); }
    static u32 word(const std::vector<u8>& s, std::size_t at)
    {
        u32 w;
        std::memcpy(&w, s.data() + at, 4);
        return w;
    }
    std::vector<u32> numbers()
    {
        std::vector<u32> all;
        for (const std::vector<u8>& s : received) all.push_back(number(s));
        return all;
    }
};

sim::NodeConfig configOf(std::vector<sim::MpReference> references)
{
    sim::NodeConfig config;
    config.mainProcessor.references = std::move(references);
    return config;
}

const sim::MpReference EXT{.name = "ext", .refType = 2, .froId = 20, .froClassNo = 2};
const sim::MpReference PDH1{.name = "pdh1", .refType = 4, .froId = 41, .froClassNo = 1};
const sim::MpReference GPS{.name = "gps", .refType = 6, .froId = 60, .froClassNo = 3};
const sim::MpReference ETHB{.name = "ethb", .refType = 12, .froId = 120, .froClassNo = 7};
const sim::MpReference PTP{.name = "ptp", .refType = 8, .froId = 80, .froClassNo = 5};

}  // namespace

TEST(MainProcessor, ConfirmsAndAsksForSupervision)
{
    sim::NodeConfig config = configOf({GPS, PDH1, EXT, ETHB});
    config.mainProcessor.timeMode = 3;
    config.mainProcessor.masterSlaveMode = 1;
    config.mainProcessor.hptsiOut = 1;
    config.mainProcessor.sfnInitTime = {2012, 3, 4, 5, 6, 7};
    config.mainProcessor.selectionQlMode = 1;
    IdleNode b{config};
    Unit unit;
    b.in([&] { unit.connect(); });
    ASSERT_EQ(unit.numbers(), (std::vector<u32>{CFM, SUP_IND, SUP_IND, SUP_IND}));
    const std::vector<u8>& cfm = unit.received[0];
    ASSERT_GE(cfm.size(), 25u);
    EXPECT_EQ(Unit::word(cfm, 4), 4u);
    EXPECT_EQ(Unit::word(cfm, 8), 22u);
    EXPECT_EQ((std::vector<u8>(cfm.begin() + 12, cfm.begin() + 25)),
              (std::vector<u8>{3, 1, 0, 1, 0xDC, 0x07, 3, 4, 5, 6, 7, 0, 1}));
    const std::vector<u8>& sup = unit.received[1];
    EXPECT_EQ(sup[4], 6);
    EXPECT_EQ(Unit::word(sup, 8), 1u);
    EXPECT_EQ(Unit::word(sup, 12), 60u);
    EXPECT_EQ(Unit::word(sup, 16), 3u);
    EXPECT_EQ(unit.received[3].size(), 28u) << "Ethernet carries the port's address";
    EXPECT_EQ(unit.received[3][20], 2);
    EXPECT_EQ(b.node.mainProcessor().connections(), 1u);
    EXPECT_EQ(b.node.mainProcessor().count(INITIATE_REQ), 1u);
}

TEST(MainProcessor, ThatDoesntConfirmAsksForNothing)
{
    struct Case { const char* when; Answer answer; u32 revision, pv; std::vector<u32> signals; };
    for (const Case& c : std::to_array<Case>({
             {"suspends", Answer::Suspend, 4, 22, {0x9C002}},
             {"rejects", Answer::Reject, 4, 22, {0x9C003}},
             {"silent", Answer::Silent, 4, 22, {}},
             {"other version", Answer::Accept, 4, 21, {CFM}},
             {"other revision", Answer::Accept, 3, 22, {CFM}}})) {
        SCOPED_TRACE(c.when);
        sim::NodeConfig config = configOf({EXT});
        config.mainProcessor.signalRevision = c.revision;
        config.mainProcessor.selectedPv = c.pv;
        config.mainProcessor.highestAvailablePv = 23;
        IdleNode b{config};
        b.node.mainProcessor().setAnswer(c.answer);
        Unit unit;
        b.in([&] { unit.connect(); });
        EXPECT_EQ(unit.numbers(), c.signals);
        EXPECT_EQ(b.node.mainProcessor().connections(), 0u);
        if (c.answer == Answer::Reject) {
            EXPECT_EQ(Unit::word(unit.received.at(0), 8), 23u);
        }
    }
}

TEST(MainProcessor, SelectsTheFirstUsableReference)
{
    IdleNode b{configOf({GPS, EXT})};
    b.in([&] {
        Unit unit;
        unit.connect();
        // A receiver's status of 1 says that it works.
        struct Case { const char* when; u32 refState; std::vector<u8> selections; u8 gps = 0; };
        for (const Case& c : std::to_array<Case>({
                 {"none there", 0x00, {}},
                 {"second there", 0x20, {2}},
                 {"nothing new", 0x20, {}},
                 {"first there, not said to work", 0xA0, {}},
                 {"first works", 0xA0, {6}, 1},
                 {"others' bits", 0xBF, {}},
                 {"first in alarm", 0xA0, {2}, 2},
                 {"alarm over, bit not yet set", 0x20, {6}, 1},
                 {"bit alone lost", 0x00, {}},
                 {"both lost", 0x00, {1}, 2},
                 {"still lost", 0x00, {}},
                 {"first back", 0x80, {6}, 1}})) {
            SCOPED_TRACE(c.when);
            unit.received.clear();
            if (c.gps != 0) {
                std::vector<u32> words(136 / 4);
                words[0] = GPS_STATUS;
                words[1] = c.gps;
                unit.send(words);
            }
            unit.status(2, c.refState);
            unit.take();
            EXPECT_EQ(unit.selections(), c.selections);
        }
        EXPECT_EQ(Unit::word(unit.received.back(), 8), 60u);
        EXPECT_EQ(Unit::word(unit.received.back(), 12), 3u);
    });
    EXPECT_EQ(b.node.mainProcessor().selectedRefType(), 6);
    EXPECT_EQ(b.node.mainProcessor().statuses().size(), 12u);
    EXPECT_EQ(b.node.mainProcessor().clockState(), 2);
    EXPECT_EQ(b.node.mainProcessor().status().froClassNo, 8u);
}

TEST(MainProcessor, SupervisesALineOnceItIsAnnounced)
{
    IdleNode b{configOf({PDH1})};
    b.in([&] {
        Unit unit;
        unit.connect();
        EXPECT_EQ(unit.numbers(), (std::vector<u32>{CFM}));
        unit.received.clear();
        unit.send({ET_FROID, 1, 2, 3, 99, 1});              // another line
        unit.send({ET_FROID, 1, 2, 4, 41, 1});              // its froId is line 4
        unit.take();
        EXPECT_EQ(unit.numbers(), (std::vector<u32>{SUP_IND}));
        unit.received.clear();
        unit.status(2, 0x0F);                               // lines 0 to 3
        unit.take();
        EXPECT_TRUE(unit.selections().empty());
        unit.status(2, 0x10);
        unit.take();
        EXPECT_EQ(unit.selections(), (std::vector<u8>{4}));
        unit.received.clear();
        unit.send({ET_FROID, 1, 2, 4, 41, 0});              // the line is gone
        unit.take();
        EXPECT_EQ(unit.selections(), (std::vector<u8>{1}));
    });
}

TEST(MainProcessor, TakesPacketAndEthernetReferencesByTheirReports)
{
    struct Case {
        const char* when;
        bool ethernet;
        u32 refState, info;
        std::vector<u8> selections;
    };
    for (const Case& c : std::to_array<Case>({{"packet good", false, 16384, 0, {8}},
                                              {"packet degraded", false, 4096, 0x2, {8}},
                                              {"packet faulty", false, 8192, 0x1, {}},
                                              {"Ethernet present", true, 0, 0x2, {12}},
                                              {"Ethernet absent", true, 0, 0x1, {}}})) {
        SCOPED_TRACE(c.when);
        IdleNode b{configOf({PTP, ETHB})};
        b.in([&] {
            Unit unit;
            unit.connect();
            if (!c.ethernet) unit.send({CREATE_CFM, 80, 5, 1, 0});
            unit.take();
            unit.received.clear();
            unit.send({REF_STATE, 1, 1, 2, c.ethernet ? 120u : 80u, c.ethernet ? 7u : 5u,
                       c.refState, c.info});
            unit.take();
            EXPECT_EQ(unit.selections(), c.selections);
        });
    }
}

TEST(MainProcessor, LeavesTheSelectionToWhoTookItOver)
{
    IdleNode b{configOf({GPS, EXT})};
    sim::MainProcessor& mp = b.node.mainProcessor();
    b.world.after(20 * ose::MS, [&] { mp.selectByName("ext"); });
    b.world.after(30 * ose::MS, [&] { mp.select(9, 5, 6); });
    b.world.after(40 * ose::MS, [&] { mp.selectNone(); });
    b.world.after(50 * ose::MS, [&] { mp.superviseByName("gps", false); });
    b.world.after(60 * ose::MS, [&] { mp.changeMaster(3, 0); });
    b.world.after(200 * ose::MS, [&] { mp.setSelects(true); });
    Unit unit;
    std::vector<u8> own, after;
    b.in([&] {
        unit.connect();
        mp.setSelects(false);
        unit.status(2, 0xA0);
        unit.received.clear();
        unit.take(100);
        own = unit.selections();
        after = unit.received.back();
        unit.received.clear();
        unit.take(200);
    });
    EXPECT_EQ(own, (std::vector<u8>{2, 9, 1}));
    EXPECT_EQ(Unit::number(after), 0x9C023u);
    EXPECT_EQ(after[4], 3);
    EXPECT_EQ(after[5], 0);
    EXPECT_EQ(unit.selections(), (std::vector<u8>{2})) << "the first isn't supervised any more";
}

TEST(MainProcessor, SelectsWhatSuitsTheRoleAndRemembersIt)
{
    const sim::MpReference idl1{.name = "tu2", .refType = 5, .froId = 50, .froClassNo = 1};
    IdleNode b{configOf({idl1, EXT})};
    sim::MainProcessor& mp = b.node.mainProcessor();
    constexpr u32 BOTH = 0x60;
    b.world.after(50 * ose::MS, [&] { mp.changeMaster(3, 0); });
    Unit unit;
    std::vector<u8> asMaster, asSlave;
    b.in([&] {
        unit.connect();
        unit.received.clear();
        unit.status(2, BOTH);
        unit.take();
        asMaster = unit.selections();
        unit.received.clear();
        unit.take(100);                    // the new role, and what suits it
        unit.status(14, BOTH);
        unit.take();
        asSlave = unit.selections();
        unit.received.clear();
        unit.connect();
    });
    EXPECT_EQ(asMaster, std::vector<u8>{2}) << "never its slave's link";
    EXPECT_EQ(asSlave, std::vector<u8>{5});
    ASSERT_EQ(Unit::number(unit.received.at(0)), CFM);
    EXPECT_EQ(unit.received[0][12], 3);
    EXPECT_EQ(unit.received[0][13], 0) << "the next connection has the new role";
}

TEST(MainProcessor, DiesAndComesBackWithoutMemoryOfTheConnection)
{
    IdleNode b{configOf({EXT})};
    sim::MainProcessor& mp = b.node.mainProcessor();
    b.world.after(100 * ose::MS, [&] { mp.restart(300 * ose::MS); });
    Unit unit;
    b.in([&] {
        unit.connect();
        unit.status(3, 0x20);
        unit.take();
        EXPECT_EQ(unit.selections(), (std::vector<u8>{2}));
        unit.received.clear();
        unit.take(150);
        EXPECT_EQ(unit.numbers(), (std::vector<u32>{SERVER_DEAD}));
        EXPECT_FALSE(mp.connected());
        mp.selectNone();                                     // said to nobody
        unit.received.clear();
        unit.ask();
        unit.take(100);
        EXPECT_TRUE(unit.received.empty()) << "the service isn't there";
        const PROCESS before = unit.mp;
        unit.take(300);
        EXPECT_EQ(unit.numbers(), (std::vector<u32>{SERVER_UP}));
        EXPECT_NE(unit.mp, before);
        unit.connect();
        EXPECT_EQ(unit.numbers(), (std::vector<u32>{CFM, SUP_IND}));
        EXPECT_TRUE(mp.connected());
        unit.received.clear();
        unit.status(3, 0x20);
        unit.take();
        EXPECT_EQ(unit.selections(), (std::vector<u8>{2})) << "selected anew";
    });
    EXPECT_FALSE(mp.connected()) << "the unit's process has ended";
    EXPECT_EQ(mp.connections(), 2u);
}

TEST(MainProcessor, KeepsAndTellsWhatItReceived)
{
    IdleNode b{configOf({})};
    sim::MainProcessor& mp = b.node.mainProcessor();
    b.in([&] {
        Unit unit;
        unit.connect();
        unit.status(3, 0x20);
        unit.status(4, 0x00);
        unit.send({STATUS, 1});                              // too short to be one
        unit.send({0x12345, 6});
        unit.take();
    });
    EXPECT_EQ(mp.count(STATUS), 3u);
    EXPECT_EQ(mp.statuses().size(), 2u);
    EXPECT_EQ(mp.clockState(), 4);
    ASSERT_NE(mp.last(0x12345), nullptr);
    EXPECT_EQ(mp.last(0x12345)->bytes.size(), 8u);
    EXPECT_EQ(mp.last(STATUS)->bytes.size(), 8u);
    EXPECT_EQ(
        sim::MainProcessor::describe(mp.all(STATUS).at(0)),
        "KVD_TUIIF_BVQ_STATUS_IND radioClockState=3 FREQUENCY_LOCKED refState=0x20 ltr=0 degr=0 "
        "froId=7 froClassNo=8");
    EXPECT_EQ(sim::MainProcessor::describe(*mp.last(0x12345)), "signal 0x12345 size=8");
    EXPECT_STREQ(sim::clockStateName(11), "RNT_TIME_HOLDOVER");
    EXPECT_STREQ(sim::clockStateName(18), "UNKNOWN");
    EXPECT_STREQ(sim::refTypeName(15), "SOCPRI_REF");
    EXPECT_STREQ(sim::refTypeName(16), "<Unknown>");
}
