// References and the forms of a broadcast, by hand and against an independent model's check values.
#include "hw/kvd_hwif_words.h"
#include "mp/kvd_iifadm.h"
#include "socpri/kvd_socpri_inci_bcm.h"
#include "socpri/kvd_socpri_inci_ref.h"
#include "socpri/kvd_socpri_inci_server.h"
#include "tests/socpri/inci_bench.h"
#include "tests/support/vectors.h"

namespace {

using namespace bench;
using vectors::json;
using vectors::Value;

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

std::vector<std::byte> bytesOf(const Value& hex)
{
    const std::vector<u8> bytes = vectors::bytes(hex);
    const auto* first = reinterpret_cast<const std::byte*>(bytes.data());
    return {first, first + bytes.size()};
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
T layoutOf(const Value& hex, const Widths& widths)
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
    const auto bytes = asBytes(layout);
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

const Widths SENT = {4, 4, 4, 4, 2, 2, 2, 2, 2, 2, 4, 2, 0, 0, 4, 4, 4, 2, 2, 2, 0, 0, 4, 4};

std::string hexOf(std::span<const std::byte> bytes)
{
    std::string hex;
    char text[3];
    for (const std::byte b : bytes) std::snprintf(text, sizeof text, "%02x", std::to_integer<unsigned>(b)), hex += text;
    return hex;
}
/// Words of the machine from those of the wire, or back.
std::vector<std::byte> words(const std::vector<std::byte>& bytes) { return turned(bytes, Widths(bytes.size() / 4, 4)); }
u32 wordAt(std::span<const std::byte> bytes, std::size_t at)
{
    u32 word;
    std::memcpy(&word, bytes.data() + at, sizeof word);
    return word;
}
std::string withWord(std::string hex, std::size_t at, u32 word)
{
    char text[9];
    std::snprintf(text, sizeof text, "%08x", word);
    return hex.replace(2 * at, 8, text);
}
/// The value of that name, in the object or in one of those in it.
Value inside(const Value& object, const std::string& key)
{
    for (const auto& [name, child] : object.items())
        if (child.contains(key)) return child[key];
    return object[key];
}

json hashed(const Value& in)
{
    const std::vector<u8> data = vectors::bytes(in["data"]);
    return {{"ref", inciReferenceHash(data.data(), static_cast<u32>(data.size()), in["seed"])}};
}

json references(const Value& in, std::size_t count)
{
    json refs = json::array();
    i32 key = in["first_key"];
    while (refs.size() < count) {
        const InciReference got = inciNextReference(key, in["apn"], in["nodeIdentifier"]);
        refs.push_back({{"text", std::to_string(got.key)}, {"key_after", key}, {"ref", got.reference}});
    }
    return {{"refs", refs}};
}

json sent(const Value& in)
{
    const auto data = layoutOf<KvdNgpduhifSendBcmDataInd>(in["send"], SENT);
    const auto wire = [&](auto message, const Widths& widths) {
        message.procedureRef = inside(in, "serverConnectionRef");
        message.connectionRef = inside(in, "clientConnectionRef");
        return json{{"hex", hexOf(wireOf(message, widths))}};
    };
    const u32 node = inside(in, "nodeIdentifier");
    return inside(in, "protocolRev") == 1 ? wire(inciMessage(data, node), MESSAGE) : wire(inciMessage2(data, node), MESSAGE2);
}

json received(const Value& in)
{
    const Value hex = in["broadcast"];
    const InciOrigin origin{inside(in, "cpriPortNo"), inside(in, "sharedId"), inside(in, "apn")};
    KvdNgpduhifReceiveBcmDataInd got = hex.get<std::string>().starts_with("01700306")
                                           ? inciReceived(layoutOf<InciBroadcastMessageInd>(hex, MESSAGE), origin)
                                           : inciReceived2(layoutOf<InciBroadcastMessage2Ind>(hex, MESSAGE2), origin);
    got.clientRef = inside(in, "clientRef");
    got.serverRef = inside(in, "serverRef");
    return {{"hex", hexOf(wireOf(got, RECEIVED))}, {"esfc", got.esfc}, {"mfn", got.mfn}};
}

json counters(const Value& in)
{
    InciBroadcastMessageInd one{};
    InciBroadcastMessage2Ind two{};
    one.extendedCbfnCounter = two.extendedCbfnCounter = in["extendedCbfnCounter"];
    const auto r1 = inciReceived(one, {});
    const auto r2 = inciReceived2(two, {});
    return {{"form1", {{"esfc", r1.esfc}, {"mfn", r1.mfn}}}, {"form2", {{"esfc", r2.esfc}, {"mfn", r2.mfn}}}};
}

json revision(const Value& in)
{
    InciBench b;
    b.peer.start();
    const auto connect = [&b](const std::vector<u32>& offered, u32 ref) {
        std::vector<u32> req{PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ, 1, ref, static_cast<u32>(offered.size())};
        req.insert(req.end(), offered.begin(), offered.end());
        b.peer.sendBytes(std::as_bytes(std::span(req)));
    };
    for (u32 i = 0; i < in["records_used"].get<u32>(); ++i) connect({1}, 100 + i);
    connect(in["offered"].get<std::vector<u32>>(), 50);
    const auto& answer = b.peer.inbox.taken.at(in["records_used"].get<std::size_t>()).bytes;
    const bool isConfirmed = wordAt(answer, 0) == PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM;
    json out = {{"answer", isConfirmed ? "CFM" : "REJ"}, {"revision", {}}, {"errorCode", {}}, {"connectionRef", wordAt(answer, 8)}};
    if (isConfirmed) out["revision"] = wordAt(answer, 12);
    else             out["errorCode"] = std::to_integer<u32>(answer.at(12));
    return out;
}

/// The server's reference is its own: the answer's stands for the one of the file.
json confirmed(const Value& in)
{
    InciBench b;
    b.peer.start();
    b.peer.sendBytes(words(bytesOf(in["req"])));
    const auto& cfm = b.peer.inbox.taken.at(0).bytes;
    EXPECT_NE(wordAt(cfm, 8), 0u);
    return {{"cfm", withWord(hexOf(words(cfm)), 8, in["serverConnectionRef"])}};
}

/// And so does the client's.
json requested(const Value& in)
{
    InciBench b;
    b.peer.start();
    b.unit.establish("peer", 3, 5);
    const auto& req = b.peer.inbox.taken.at(0).bytes;
    EXPECT_EQ(wordAt(req, 4), wordAt(req, 8));
    return {{"hex", withWord(withWord(hexOf(words(req)), 4, in["clientRef"]), 8, in["clientRef"])}};
}

json translated(const Value& in)
{
    json mapped = json::array();
    for (const Value state : in["s"]) mapped.push_back(inciSyncState(state, in["translation_flag"]));
    return {{"mapped", mapped}};
}

json idl1Word(const Value& in)
{
    const hwif::BfnOutWords w = hwif::packBfnExtended({in["inc_diff"], in["e_sfc"], in["rc_state"],
                                                       in["coldRestartFlag"], in["jump"], in["ms_flag"]});
    char high[9], low[9];
    std::snprintf(high, sizeof high, "%08x", w.word1);
    std::snprintf(low, sizeof low, "%08x", w.word2);
    return {{"high", high}, {"low", low}};
}

/// Bytes without a meaning are those of padding, which are 0 here.
json wantedOf(const Value& out)
{
    json wanted = out.read();
    for (const json& pad : wanted.value("pad", json::array()))
        for (std::size_t i = 0; i < 2 * pad[1].get<std::size_t>(); ++i)
            wanted["hex"].get_ref<std::string&>()[2 * pad[0].get<std::size_t>() + i] = '0';
    wanted.erase("pad");
    return wanted;
}

/// What `replay` makes of a vector's "in" against its "out", or an alternative's where it is open.
vectors::Kinds::mapped_type against(const std::function<json(const Value&)>& replay)
{
    return [replay](const Value& v) {
        const json got = replay(v["in"]), out = wantedOf(v["out"]);
        for (const auto& [key, wanted] : out.items()) {
            bool isIt = got.at(key) == wanted;
            if (v.contains("open") && v.contains("alternatives"))
                for (const Value other : v["alternatives"])
                    isIt = isIt || (other.contains(key) && other[key] == got.at(key));
            EXPECT_TRUE(isIt) << key << ": " << got.at(key) << " is not " << wanted;
        }
    };
}

TEST(InciCheckValues, AllOfThem)
{
    vectors::Document document("o05_inci.json");
    vectors::eachKind(document["vectors"], {
        {"hash", against(hashed)}, {"broadcast", against(sent)}, {"receive", against(received)},
        {"counter", against(counters)}, {"revision", against(revision)}, {"connCfm", against(confirmed)},
        {"connReq", against(requested)}, {"syncStateMap", against(translated)}, {"idl1", against(idl1Word)},
        {"refs", [](const Value& v) {
             EXPECT_EQ(references(v["in"], v["out"]["refs"].size())["refs"], v["out"]["refs"].read());
         }},
    });
}

}  // namespace
