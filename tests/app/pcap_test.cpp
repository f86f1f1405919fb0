// Captures on a unit's packet port: what of a file is read, which messages are taken, that all are told.
#include "app/pcap.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

using app::PcapVerdict;
using Bytes = std::vector<u8>;

/// Writes words in either byte order.
struct File {
    bool isBig = false;
    Bytes bytes{};
    File& word(u64 value, int octets = 4)
    {
        for (int i = 0; i < octets; ++i)
            bytes.push_back(static_cast<u8>(value >> (8 * (isBig ? octets - 1 - i : i))));
        return *this;
    }
    File& raw(const Bytes& b)
    {
        bytes.insert(bytes.end(), b.begin(), b.end());
        return *this;
    }
    File& block(u32 type, const Bytes& body)
    {
        const u64 size = 12 + body.size();
        return word(type).word(size).raw(body).word(size);
    }
};

Bytes classic(bool isBig, u32 magic, u32 link, u32 fraction, const Bytes& frame)
{
    File f{isBig};
    f.word(magic).word(2, 2).word(4, 2).word(0).word(0).word(65535).word(link);
    return f.word(7).word(fraction).word(frame.size()).word(frame.size()).raw(frame).bytes;
}

/// One interface with a resolution and an offset of 3 s, one packet of stamp 5 s.
Bytes ng(bool isBig, u8 resolution, u64 stamp, const Bytes& frame, u16 link = 1)
{
    File f{isBig}, section{isBig}, interface{isBig}, packet{isBig};
    section.word(0x1A2B3C4D).word(1, 2).word(0, 2).word(~u64{0}, 8);
    interface.word(link, 2).word(0, 2).word(0).word(9, 2).word(1, 2).raw({resolution, 0, 0, 0});
    interface.word(14, 2).word(8, 2).word(3, 8).word(0);
    packet.word(0).word(stamp >> 32).word(stamp).word(frame.size()).word(frame.size()).raw(frame);
    return f.block(0x0A0D0D0A, section.bytes).block(1, interface.bytes).block(6, packet.bytes).bytes;
}

TEST(PcapFile, IsReadInEveryOrderAndResolution)
{
    const Bytes frame(16, 0x55);
    struct Case { const char* what; Bytes file; i64 time_ns; };
    const Case cases[] = {
        {"us, little", classic(false, 0xA1B2C3D4, 1, 250, frame), 7'000'250'000},
        {"us, big", classic(true, 0xA1B2C3D4, 1, 250, frame), 7'000'250'000},
        {"ns, little", classic(false, 0xA1B23C4D, 1, 250, frame), 7'000'000'250},
        {"ns, big", classic(true, 0xA1B23C4D, 1, 250, frame), 7'000'000'250},
        {"with check sequence", classic(true, 0xA1B2C3D4, 0x44000001, 0, frame), 7'000'000'000},
        {"ng us, little", ng(false, 6, 5'000'001, frame), 8'000'001'000},
        {"ng ns, big", ng(true, 9, 5'000'000'001, frame), 8'000'000'001},
        {"ng power of two", ng(true, 0x80 | 32, (u64{5} << 32) | 0x80000000u, frame), 8'500'000'000},
        {"ng coarse", ng(false, 0, 5, frame), 8'000'000'000},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const auto packets = app::parsePcap(c.file, "f");
        ASSERT_EQ(packets.size(), 1u);
        EXPECT_EQ(packets[0].time_ns, c.time_ns);
        EXPECT_EQ(packets[0].frame, frame);
        // Cut anywhere behind what says what it is, a file is refused, or holds less by whole blocks.
        for (std::size_t cut = 0; cut < c.file.size(); ++cut) {
            try {
                EXPECT_TRUE(app::parsePcap(std::span(c.file).first(cut), "f").empty()) << cut;
            } catch (const app::PcapError& e) {
                EXPECT_TRUE(std::string(e.what()).starts_with("f: ")) << e.what();
            }
        }
    }
    Bytes lies = ng(false, 6, 0, frame);
    lies[lies.size() - 28 + 3] = 0x7F;              // how long its packet is
    Bytes huge = classic(false, 0xA1B2C3D4, 1, 0, frame);
    huge[24 + 8 + 3] = 0x7F;
    struct Wrong { Bytes file; const char* line; };
    const Wrong wrong[] = {
        {{}, "not a capture"},
        {Bytes(100, 'x'), "not a capture"},
        {classic(false, 0xA1B2C3D4, 113, 0, frame), "link type 113 isn't Ethernet"},
        {ng(true, 6, 0, frame, 113), "link type 113 isn't Ethernet"},
        {huge, "not a capture any more"},
        {lies, "behind packet 0"},
        {File{}.block(0x0A0D0D0A, Bytes(16, 0)).bytes, "no byte order"},
    };
    for (const Wrong& w : wrong) {
        try {
            app::parsePcap(w.file, "f");
            ADD_FAILURE() << w.line;
        } catch (const app::PcapError& e) {
            EXPECT_THAT(e.what(), testing::HasSubstr(w.line));
        }
    }
    EXPECT_THROW(app::readPcap("/none/none.pcap"), app::PcapError);
}

Bytes message(u8 type, u16 length, u8 domain, u16 sequence, u8 version = 2)
{
    Bytes m(length, 0);
    m[0] = type;
    m[1] = version;
    m[2] = static_cast<u8>(length >> 8);
    m[3] = static_cast<u8>(length);
    m[4] = domain;
    m[20] = 0x77;                                    // of its port identity
    m[29] = 1;
    m[30] = static_cast<u8>(sequence >> 8);
    m[31] = static_cast<u8>(sequence);
    if (type == 11) {
        m[47] = 100;
        m[48] = 6;
        m[49] = 0x21;
        m[53] = 0x77;
    }
    return m;
}

/// With `tags` VLAN tags, or behind what is given between addresses and EtherType.
Bytes frameOf(const Bytes& m, int tags = 0, bool isLocal = false, const Bytes& between = {})
{
    Bytes f = isLocal ? Bytes{1, 0x80, 0xC2, 0, 0, 0x0E} : Bytes{1, 0x1B, 0x19, 0, 0, 0};
    f.insert(f.end(), {2, 0, 0, 0, 0, 9});
    f.insert(f.end(), between.begin(), between.end());
    for (int i = 0; i < tags; ++i) f.insert(f.end(), {0x81, 0, 0x20, 0});
    f.insert(f.end(), {0x88, 0xF7});
    f.insert(f.end(), m.begin(), m.end());
    return f;
}

Bytes datagramOf(const Bytes& m, u8 host, u16 port, u8 fragment = 0)
{
    File f{true};
    f.raw(Bytes(12, 2)).word(0x0800, 2).word(0x45, 1).word(0, 1).word(28 + m.size(), 2).word(0, 2);
    f.word(fragment, 2).word(64, 1).word(17, 1).word(0, 2).raw({10, 0, 0, host, 224, 0, 1, 129});
    return f.word(port, 2).word(port, 2).word(8 + m.size(), 2).word(0, 2).raw(m).bytes;
}

TEST(PcapBench, TellsWhatBecameOfEachMessage)
{
    constexpr i64 SECOND_ns = 1'000'000'000;
    struct Case { Bytes frame; const char* type; PcapVerdict verdict; const char* reason; };
    const Bytes sync = message(0, 44, 0, 1);
    const Case cases[] = {
        {frameOf(sync), "Sync", PcapVerdict::Refused, "Sync received from unknown clock"},
        {frameOf(message(11, 64, 0, 1)), "Announce", PcapVerdict::Waits, "its sender isn't followed (yet)"},
        {frameOf(message(11, 64, 0, 2), 1), "Announce", PcapVerdict::Waits, "isn't followed (yet)"},
        {frameOf(message(11, 64, 0, 3)), "Announce", PcapVerdict::Taken, ""},
        {frameOf(message(0, 44, 0, 2)), "Sync", PcapVerdict::Taken, ""},
        {frameOf(message(0, 44, 0, 3, 1)), "PTP version 1", PcapVerdict::Refused, "Nonconformant PTP"},
        {frameOf(message(9, 44, 0, 4)), "Delay_Resp", PcapVerdict::Refused, "in too short frame"},
        {frameOf(message(1, 44, 0, 4)), "Delay_Req", PcapVerdict::Ignored, "nothing that a slave reads"},
        {frameOf(message(2, 54, 0, 4), 0, true), "Pdelay_Req", PcapVerdict::NotHanded,
         "no reference of its group"},
        {frameOf({0, 2, 0, 44, 0}), "too short", PcapVerdict::Refused, "not even enough"},
        {datagramOf(message(11, 64, 0, 1), 5, 320), "Announce", PcapVerdict::Taken, ""},
        {datagramOf(message(1, 44, 0, 1), 6, 319), "Delay_Req", PcapVerdict::Refused, "(10.0.0.6)"},
    };
    std::vector<app::PcapPacket> capture;
    for (std::size_t i = 0; i < std::size(cases); ++i)
        capture.push_back({static_cast<i64>(i) * SECOND_ns / 2, 0, cases[i].frame});
    // No PTP: other traffic, a fragment, another port. Times that go back, or by years, are no trouble.
    capture.push_back({-SECOND_ns, 0, Bytes(20, 1)});
    capture.push_back({INT64_MAX, 0, datagramOf(sync, 5, 319, 1)});
    capture.push_back({INT64_MIN, 0, datagramOf(sync, 5, 321)});
    app::PcapBench unit(capture);
    std::vector<app::PcapMessage> heard;
    unit.onMessage([&](const app::PcapMessage& m) { heard.push_back(m); });
    const app::PcapResult r = unit.run();
    ASSERT_EQ(heard.size(), std::size(cases));
    for (std::size_t i = 0; i < heard.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(heard[i].type, cases[i].type);
        EXPECT_EQ(heard[i].verdict, cases[i].verdict);
        EXPECT_THAT(heard[i].reason, testing::HasSubstr(cases[i].reason));
        EXPECT_EQ(heard[i].reason.empty(), heard[i].verdict == PcapVerdict::Taken);
    }
    EXPECT_EQ(r.other, 3u);
    EXPECT_THAT(r.misuses, testing::IsEmpty());
    ASSERT_EQ(r.references.size(), 2u);
    EXPECT_EQ(r.references[0].portState, "SLAVE");
    EXPECT_EQ(r.masters.size(), 2u);
}

TEST(PcapFile, FindsPtpBehindTagsAndLabelsAndSaysWhatTheyAre)
{
    const Bytes announce = message(11, 64, 24, 1);
    // Two labels, control word, an Ethernet frame in it: addresses, then tags and EtherType of frameOf.
    Bytes wire{0x88, 0x47, 0, 0x01, 0, 64, 0, 0x02, 0x01, 64, 0, 0, 0, 0};
    wire.insert(wire.end(), 12, 5);
    Bytes ipUnderMpls = datagramOf(announce, 5, 320);
    const Bytes label{0x88, 0x48, 0, 0x01, 0x01, 64};
    ipUnderMpls.erase(ipUnderMpls.begin() + 12, ipUnderMpls.begin() + 14);
    ipUnderMpls.insert(ipUnderMpls.begin() + 12, label.begin(), label.end());
    struct Case { Bytes frame; const char* behind; };
    const Case cases[] = {
        {frameOf(announce), ""},
        {frameOf(announce, 1), ""},
        {frameOf(announce, 2), "2 VLAN tags"},
        {frameOf(announce, 3), "3 VLAN tags"},
        {frameOf(announce, 4), "4 VLAN tags"},
        {frameOf(announce, 1, false, {0x88, 0xA8, 0, 7}), "2 VLAN tags"},
        {frameOf(announce, 0, false, {0x88, 0xA8, 0, 7}), "a tag of 802.1ad"},
        {frameOf(announce, 0, false, wire), "MPLS"},
        {frameOf(announce, 2, false, wire), "2 VLAN tags and MPLS"},
        {ipUnderMpls, "MPLS"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.behind);
        const u32 length = static_cast<u32>(c.frame.size());
        const auto found = app::ptpOf({0, length, c.frame});
        ASSERT_TRUE(found);
        EXPECT_EQ(found->behind, c.behind);
        EXPECT_FALSE(found->isCut);
        EXPECT_TRUE(std::ranges::equal(found->message(), announce));
        // Cut anywhere it is told to be, or isn't found any more.
        for (u32 cut = 0; cut < length; ++cut) {
            const auto rest = app::ptpOf({0, length, Bytes(c.frame.begin(), c.frame.begin() + cut)});
            EXPECT_TRUE(!rest || rest->isCut) << cut;
        }
    }
    EXPECT_FALSE(app::ptpOf({0, 18, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 0x88, 0x47, 0, 0, 0, 0}}));
}

TEST(PcapBench, ReferencesGoToTheMastersThatAnnounceMost)
{
    std::vector<app::PcapPacket> capture;
    const auto add = [&capture](const Bytes& frame, u32 wireLength = 0) {
        capture.push_back({static_cast<i64>(capture.size()) * 100'000'000, wireLength, frame});
    };
    // Nine domains of strangers, each with one Announce that is too short, before the one master.
    for (u8 domain = 1; domain <= 9; ++domain) add(frameOf(message(11, 60, domain, 1)));
    for (u16 i = 0; i < 3; ++i) add(frameOf(message(11, 64, 30, i), 0, true));
    add(frameOf(message(11, 64, 30, 9), 2));
    add(frameOf(message(11, 64, 30, 9), 0, false,
                {0x88, 0x47, 0, 1, 1, 9, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    const Bytes whole = frameOf(message(11, 64, 30, 9), 0, true);
    add(Bytes(whole.begin(), whole.begin() + 60), static_cast<u32>(whole.size()));
    app::PcapBench unit(capture);
    const app::PcapResult r = unit.run();
    EXPECT_EQ(r.other, 0u);
    EXPECT_EQ(r.leftOut, 2u);
    ASSERT_FALSE(r.references.empty());
    EXPECT_EQ(r.references[0].what, "L2 domain 30");
    EXPECT_NE(r.references[0].parent, "none");
    EXPECT_EQ(r.reasons.at("behind 2 VLAN tags, where a unit doesn't look"), 1u);
    EXPECT_EQ(r.reasons.at("behind MPLS, where a unit doesn't look"), 1u);
    EXPECT_EQ(r.reasons.at("the recorder cut it"), 1u);
    // A stranger's refused Announce is one.
    const auto any = std::find_if(r.masters.begin(), r.masters.end(),
                                  [](const auto& m) { return m.second.refusedAnnounces > 0; });
    ASSERT_NE(any, r.masters.end());
    EXPECT_EQ(any->second.announces, 1u);
    EXPECT_FALSE(any->second.isRead);
}

}  // namespace
