#include "sim/node/main_processor.h"

#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr u32 SERVER_UP = 0x90E03, INITIATE_REQ = 0x9C000, SELECT = 0x9C00C, STATUS = 0x9C00D,
              GPS_STATUS = 0x9C021;

/// The unit's end of the interface, byte by byte, in a process of the program.
struct Unit {
    PROCESS mp = 0;
    std::vector<std::vector<u8>> received;      // since the last clear

    void take(OSTIME wait = 5)
    {
        while (Signal* sig = ose::receive_w_tmo(wait, ose::ANY_SIGNAL)) {
            const auto* bytes = reinterpret_cast<const u8*>(sig);
            received.emplace_back(bytes, bytes + ose::sigsize(&sig));
            if (sig->sigNo == SERVER_UP) mp = ose::sender(&sig);
            ose::free_buf(&sig);
        }
    }
    void connect()
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
};

sim::NodeConfig configOf(std::vector<sim::MpReference> references)
{
    sim::NodeConfig config;
    config.mainProcessor.references = std::move(references);
    return config;
}

const sim::MpReference EXT{.name = "ext", .refType = 2, .froId = 20, .froClassNo = 2};
const sim::MpReference GPS{.name = "gps", .refType = 6, .froId = 60, .froClassNo = 3};

}  // namespace

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
