// References and the forms of a broadcast, by hand and against an independent model's check values.
#include "iif/kvd_iifadm.h"
#include "socpri/kvd_socpri_inci_bcm.h"
#include "socpri/kvd_socpri_inci_ref.h"
#include "socpri/kvd_socpri_inci_server.h"
#include "tests/socpri/inci_bench.h"
#include "tests/support/vectors.h"

namespace {

using namespace bench;
using vectors::json;

TEST(InciReference, IsTheHashOfTheKey)
{
    struct Case { const char* text; u32 seed, hash; };
    // The published algorithm, checked with its own known values, with the two changes.
    for (const Case& c : std::to_array<Case>({
             {"", 0, 0},                     {"", 1, 0x914ee8b7},
             {"1", 0, 0xd416ec93},           {"12", 0, 0xb9d2af15},
             {"123", 0, 0x5eb4b1eb},         {"1234", 0, 0x3104d636},
             {"1234", 0xDEADBEEF, 0xfc59db7b}, {"31415926", 7, 0xf74fec78},
             {"-2147483648", 0, 0x9d92f6cf},
         }))
        EXPECT_EQ(inciReferenceHash(c.text, static_cast<u32>(std::strlen(c.text)), c.seed), c.hash) << c.text;
}

TEST(InciReference, KeysGoUpAndWrap)
{
    i32 key = INCI_FIRST_KEY;
    EXPECT_EQ(inciNextReference(key, 1, 0).reference, 0x3104d636u);
    EXPECT_EQ(inciNextReference(key, 1, 0).key, 1235);
    for (int i = 0; i < 40; ++i) inciNextReference(key, 2, 0);
    EXPECT_EQ(key, -1);                          // an even number's keys end here
    EXPECT_EQ(inciNextReference(key, 2, 0).reference, 0x0aa64fb7u);
}

TEST(InciBroadcast, CarriesEachFieldToItsLimits)
{
    KvdNgpduhifSendBcmDataInd in{};
    in.syncNodePriority = in.syncRefCandidate = in.lockedTo = in.syncProviderNodePriority = 0xFFFF;
    in.syncProviderSelectedReference = in.syncProviderSyncState = in.hopCounter = 0xFFFF;
    in.syncProviderTimeAccuracy = in.esfc = 0xFFFFFFFF;
    in.mfn = 24, in.sfn = 4095, in.syncProviderCbfnJumpIndication = 0xFFFF;
    in.realTimeOffsetSeconds = in.realTimeOffsetNanoSeconds = 0xFFFFFFFF;
    const InciBroadcastMessageInd one = inciMessage(in, 0xFFFFFFFF);
    EXPECT_EQ(one.extendedCbfnCounter, 0xFFFFFFC0u);     // the upper eight bits of esfc don't fit
    EXPECT_EQ(one.hopCounter, 255u);
    EXPECT_EQ(one.syncProviderCbfnJumpIndication, 1u);
    EXPECT_EQ(one.ituTQualityLevel, 0u);
    const InciBroadcastMessage2Ind two = inciMessage2(in, 0xFFFFFFFF);
    EXPECT_EQ(two.extendedCbfnCounter, 0xFFFFFFF8u);     // nor the upper five
    EXPECT_EQ(two.extendedCbfnBfn, 4095u);
    EXPECT_EQ(two.syncProviderSyncState, 0xFFFFu);
    in.hopCounter = 256;
    EXPECT_EQ(inciMessage(in, 0).hopCounter, 0u);

    struct Case { u32 esfc; u16 mfn; u32 esfcOf1, esfcOf2; };
    for (const Case& c : std::to_array<Case>({{0, 0, 0, 0},
                                              {0x00FFFFFF, 24, 0x00FFFFFF, 0x00FFFFFF},
                                              {0x01000000, 24, 0, 0x01000000},
                                              {0x07FFFFFF, 1, 0x00FFFFFF, 0x07FFFFFF},
                                              {0x08000000, 24, 0, 0}})) {
        in.esfc = c.esfc, in.mfn = c.mfn;
        const auto r1 = inciReceived(inciMessage(in, 1), {255, 0xFFFFFFFF, 2});
        const auto r2 = inciReceived2(inciMessage2(in, 1), {0, 0, 2});
        EXPECT_EQ(r1.esfc, c.esfcOf1);
        EXPECT_EQ(r2.esfc, c.esfcOf2);
        EXPECT_EQ(r1.mfn, c.mfn);
        EXPECT_EQ(r2.mfn, c.mfn);
        EXPECT_EQ(r1.riPortNo, 255u);
        EXPECT_EQ(r1.sharedId, 0xFFFFFFFFu);
        EXPECT_EQ(r2.dataRTONanoseconds, 0xFFFFFFFFu);
        EXPECT_EQ(r2.syncProviderBfnJumpIndication, 1u);
    }
}

TEST(InciBroadcast, ClockStatesAreTranslatedWhenAskedFor)
{
    constexpr u16 WANTED[] = {0, 0, 1, 3, 2, 0, 0, 0, 5, 4, 7, 6, 0, 0};
    for (u16 state = 0; state < std::size(WANTED); ++state) {
        EXPECT_EQ(inciSyncState(state, 1), WANTED[state]) << state;
        EXPECT_EQ(inciSyncState(state, 0), state);
        EXPECT_EQ(inciSyncState(state, 2), state);
    }
    EXPECT_EQ(inciSyncState(0xFFFF, 1), 0u);
}

// ---- layouts as bytes ---------------------------------------------------------------------------

/// Widths of a layout's fields in order, 0 for a byte of padding. Check values are big-endian.
using Widths = std::vector<u8>;
const Widths MESSAGE = {4, 4, 4, 4, 4, 4, 4, 2, 2, 2, 0, 0, 2, 2, 2, 0, 0, 4, 2, 1, 1};
const Widths MESSAGE2 = {4, 4, 4, 4, 4, 4, 4, 4, 2, 2, 2, 0, 0, 2, 2, 2, 0, 0, 4, 2, 1, 1};
const Widths RECEIVED = {4, 4, 4, 4, 2, 2, 2, 2, 2, 2, 4, 2, 2, 1, 0, 0, 0, 4, 4, 2, 0, 0, 4, 4, 4, 4};

std::vector<std::byte> bytesOf(const std::string& hex)
{
    std::vector<std::byte> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<std::byte>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}
/// Turns every field over, from the wire's order to the machine's or back.
std::vector<std::byte> turned(std::vector<std::byte> bytes, const Widths& widths)
{
    std::size_t at = 0;
    for (const u8 width : widths) {
        if (std::endian::native == std::endian::little && width > 1)
            std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                         bytes.begin() + static_cast<std::ptrdiff_t>(at + width));
        if (width == 0) bytes[at] = {};
        at += std::max<std::size_t>(width, 1);
    }
    EXPECT_EQ(at, bytes.size());
    return bytes;
}
template <typename T>
T layoutOf(const std::string& hex, const Widths& widths)
{
    const auto bytes = turned(bytesOf(hex), widths);
    T layout{};
    EXPECT_EQ(bytes.size(), sizeof layout);
    std::memcpy(static_cast<void*>(&layout), bytes.data(), std::min(bytes.size(), sizeof layout));
    return layout;
}
template <typename T>
std::vector<std::byte> wireOf(const T& layout, const Widths& widths)
{
    const auto bytes = bytesOfLayout(layout);
    return turned({bytes.begin(), bytes.end()}, widths);
}

// A field alone at its limit arrives alone, in both forms.
TEST(InciBroadcast, NoFieldReachesAnother)
{
    using In = KvdNgpduhifSendBcmDataInd;
    using Out = KvdNgpduhifReceiveBcmDataInd;
    struct Short { const char* name; u16 In::*in; u16 Out::*out; u16 value, arrives; };
    struct Long { const char* name; u32 In::*in; u32 Out::*out; u32 of1, of2; };
    constexpr u32 ALL = 0xFFFFFFFF;
    const auto check = [](const char* name, const In& in, Out wanted1, Out wanted2) {
        SCOPED_TRACE(name);
        wanted1.sigNo = wanted2.sigNo = KVD_NGPDUHIF_RECEIVE_BCM_DATA_IND;
        const Out got1 = inciReceived(inciMessage(in, 0), {}), got2 = inciReceived2(inciMessage2(in, 0), {});
        EXPECT_EQ(wireOf(got1, RECEIVED), wireOf(wanted1, RECEIVED));
        EXPECT_EQ(wireOf(got2, RECEIVED), wireOf(wanted2, RECEIVED));
    };
    for (const Short& f : std::to_array<Short>({
             {"syncNodePriority", &In::syncNodePriority, &Out::syncNodePriority, 0xFFFF, 0xFFFF},
             {"syncRefCandidate", &In::syncRefCandidate, &Out::syncRefCandidate, 0xFFFF, 0xFFFF},
             {"lockedTo", &In::lockedTo, &Out::lockedTo, 0xFFFF, 0xFFFF},
             {"provider's priority", &In::syncProviderNodePriority, &Out::syncProviderNodePriority, 0xFFFF, 0xFFFF},
             {"selected reference", &In::syncProviderSelectedReference, &Out::nodeGroupSyncRefSelected, 0xFFFF, 0xFFFF},
             {"syncProviderSyncState", &In::syncProviderSyncState, &Out::syncProviderSyncState, 0xFFFF, 0xFFFF},
             {"jump indication", &In::syncProviderCbfnJumpIndication, &Out::syncProviderBfnJumpIndication, 0xFFFF, 1},
             {"hopCounter", &In::hopCounter, &Out::hopCounter, 0xFFFF, 0xFF},
             {"mfn", &In::mfn, &Out::mfn, 31, 31}})) {
        In in{};
        Out out{};
        in.*f.in = f.value;
        out.*f.out = f.arrives;
        check(f.name, in, out, out);
    }
    for (const Long& f : std::to_array<Long>({
             {"syncProviderTimeAccuracy", &In::syncProviderTimeAccuracy, &Out::syncProviderTimeAccuracy, ALL, ALL},
             {"seconds", &In::realTimeOffsetSeconds, &Out::dataRTOSeconds, ALL, ALL},
             {"nanoseconds", &In::realTimeOffsetNanoSeconds, &Out::dataRTONanoseconds, ALL, ALL},
             {"esfc", &In::esfc, &Out::esfc, 0x00FFFFFF, 0x07FFFFFF}})) {
        In in{};
        Out out1{}, out2{};
        in.*f.in = ALL;
        out1.*f.out = f.of1;
        out2.*f.out = f.of2;
        check(f.name, in, out1, out2);
    }
}

// ---- check values -------------------------------------------------------------------------------

void replayReceive(const json& v)
{
    const std::string hex = v["in"]["broadcast"];
    const json& record = v["in"]["client_record"];
    const json& connection = v["in"]["ngpduhif"];
    const InciOrigin origin{record["cpriPortNo"], record["sharedId"], connection["apn"]};
    KvdNgpduhifReceiveBcmDataInd got =
        hex.substr(0, 8) == "01700306"
            ? inciReceived(layoutOf<InciBroadcastMessageInd>(hex, MESSAGE), origin)
            : inciReceived2(layoutOf<InciBroadcastMessage2Ind>(hex, MESSAGE2), origin);
    got.clientRef = connection["clientRef"];
    got.serverRef = connection["serverRef"];
    EXPECT_EQ(wireOf(got, RECEIVED), turned(turned(bytesOf(v["out"]["hex"]), RECEIVED), RECEIVED));
    EXPECT_EQ(got.esfc, v["out"]["esfc"].get<u32>());
    EXPECT_EQ(got.mfn, v["out"]["mfn"].get<u16>());
}

void replayReferences(const json& v)
{
    i32 key = v["in"]["first_key"];
    for (const json& ref : v["out"]["refs"]) {
        const InciReference got = inciNextReference(key, v["in"]["apn"], v["in"]["nodeIdentifier"]);
        EXPECT_EQ(std::to_string(got.key), ref["text"].get<std::string>());
        EXPECT_EQ(key, ref["key_after"].get<i32>());
        if (ref.contains("ref")) { EXPECT_EQ(got.reference, ref["ref"].get<u32>()); }
    }
}

void replayCounter(const json& v)
{
    InciBroadcastMessageInd one{};
    InciBroadcastMessage2Ind two{};
    one.extendedCbfnCounter = two.extendedCbfnCounter = v["in"]["extendedCbfnCounter"];
    const auto r1 = inciReceived(one, {});
    const auto r2 = inciReceived2(two, {});
    EXPECT_EQ(json({{"form1", {{"esfc", r1.esfc}, {"mfn", r1.mfn}}},
                    {"form2", {{"esfc", r2.esfc}, {"mfn", r2.mfn}}}}),
              v["out"]);
}

void replayRevision(const json& v)
{
    InciBench b;
    b.peer.start();
    const auto connect = [&b](const std::vector<u32>& offered, u32 ref) {
        std::vector<u32> words{PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ, 1, ref, static_cast<u32>(offered.size())};
        words.insert(words.end(), offered.begin(), offered.end());
        b.peer.sendBytes(std::as_bytes(std::span(words)));
    };
    for (u32 i = 0; i < v["in"]["records_used"].get<u32>(); ++i) connect({1}, 100 + i);
    connect(v["in"]["offered"], 50);
    ASSERT_FALSE(b.peer.inbox.taken.empty());
    u32 words[4];
    std::memcpy(words, b.peer.inbox.taken.back().bytes.data(), sizeof words);
    if (v["out"]["answer"] == "CFM") {
        EXPECT_EQ(words[0], PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM);
        EXPECT_EQ(words[3], v["out"]["revision"].get<u32>());
        if (v["out"].contains("connectionRef")) { EXPECT_EQ(words[2], v["out"]["connectionRef"].get<u32>()); }
    } else {
        EXPECT_EQ(words[0], PSX_IW_NGSC_INCI_CONN_ESTABLISH_REJ);
        EXPECT_EQ(words[3] & 0xFF, v["out"]["errorCode"].get<u32>());
    }
}

TEST(InciCheckValues, AllOfThem)
{
    TU_LOAD_VECTORS(document, "o05_inci.json");
    std::map<std::string, u32> replayed;
    for (const json& v : document["vectors"]) {
        SCOPED_TRACE(v["id"].get<std::string>());
        const std::string kind = v["kind"];
        ++replayed[kind];
        if (kind == "receive") replayReceive(v);
        else if (kind == "refs") replayReferences(v);
        else if (kind == "counter") replayCounter(v);
        else if (kind == "revision") replayRevision(v);
        else if (kind == "hash" && v["out"].contains("ref")) {
            const auto data = bytesOf(v["in"]["data"]);
            EXPECT_EQ(inciReferenceHash(data.data(), static_cast<u32>(data.size()), v["in"]["seed"]),
                      v["out"]["ref"].get<u32>());
        } else if (kind == "syncStateMap") {
            for (std::size_t i = 0; i < v["in"]["s"].size(); ++i)
                EXPECT_EQ(inciSyncState(v["in"]["s"][i], v["in"]["translation_flag"]),
                          v["out"]["mapped"][i].get<u16>());
        } else {
            --replayed[kind];
        }
    }
    EXPECT_EQ(replayed["receive"], 62u);
    EXPECT_EQ(replayed["refs"], 11u);
    EXPECT_EQ(replayed["revision"], 8u);
    EXPECT_EQ(replayed["counter"], 6u);
}

}  // namespace
