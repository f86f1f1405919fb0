// References and the forms of a broadcast, by hand and against an independent model's check values.
#include "hw/kvd_hwif_words.h"
#include "mp/kvd_iifadm.h"
#include "socpri/kvd_socpri_inci_bcm.h"
#include "socpri/kvd_socpri_inci_ref.h"
#include "socpri/kvd_socpri_inci_server.h"
#include "tests/socpri/inci_bench.h"
#include "tests/support/hex.h"
#include "tests/support/vectors.h"

#include <numeric>

namespace {

using namespace bench;
using vectors::json;
using vectors::Value;

// ---- layouts as bytes ---------------------------------------------------------------------------

/// Widths of a layout's fields in order, 0 for a byte of padding. Check values are big-endian.
using Widths = std::vector<u8>;
const Widths MESSAGE = {4, 4, 4, 4, 4, 4, 4, 2, 2, 2, 0, 0, 2, 2, 2, 0, 0, 4, 2, 1, 1};
const Widths MESSAGE2 = {4, 4, 4, 4, 4, 4, 4, 4, 2, 2, 2, 0, 0, 2, 2, 2, 0, 0, 4, 2, 1, 1};
const Widths RECEIVED = {4, 4, 4, 4, 2, 2, 2, 2, 2, 2, 4, 2, 2, 1, 0, 0, 0, 4, 4, 2, 0, 0, 4, 4, 4, 4};
const Widths SENT = {4, 4, 4, 4, 2, 2, 2, 2, 2, 2, 4, 2, 0, 0, 4, 4, 4, 2, 2, 2, 0, 0, 4, 4};

/// Turns every field over, from the wire's order to the machine's or back.
std::vector<u8> turned(std::vector<u8> bytes, const Widths& widths)
{
    std::size_t at = 0;
    for (const u8 width : widths) {
        if (width == 0) bytes.at(at++) = 0;
        else if (std::endian::native == std::endian::little)
            std::reverse(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                         bytes.begin() + static_cast<std::ptrdiff_t>(at + width));
        at += width;
    }
    EXPECT_EQ(at, bytes.size());
    return bytes;
}
template <typename T>
T layoutOf(const std::vector<u8>& wire, const Widths& widths)
{
    const auto bytes = turned(wire, widths);
    T layout{};
    EXPECT_EQ(bytes.size(), sizeof layout);
    std::memcpy(static_cast<void*>(&layout), bytes.data(), std::min(bytes.size(), sizeof layout));
    return layout;
}
std::string wireOf(std::span<const std::byte> layout, const Widths& widths)
{
    const auto* first = reinterpret_cast<const u8*>(layout.data());
    const auto bytes = turned({first, first + layout.size()}, widths);
    return hexOf(bytes.data(), bytes.size());
}
/// A message of words.
Widths words(std::size_t size) { return Widths(size / 4, 4); }

/// Each field has its own octets in the first, is at its limit in the second.
TEST(InciBroadcast, GoesOutInBothForms)
{
    std::vector<u8> octets(64);
    std::iota(octets.begin(), octets.end(), 0x40);
    const auto expectForms = [](const std::vector<u8>& in, const std::string& one, const std::string& two) {
        const auto data = layoutOf<KvdNgpduhifSendBcmDataInd>(in, SENT);
        EXPECT_EQ(wireOf(asBytes(inciMessage(data, 0x01020304)), MESSAGE), one);
        EXPECT_EQ(wireOf(asBytes(inciMessage2(data, 0x01020304)), MESSAGE2), two);
    };
    expectForms(octets,
                "017003060000000000000000010203046d71f28878797a7b7c7d7e7f505152535455"
                "0000565758595a5b00005c5d5e5f00016100",
                "017003090000000000000000010203048dae3e510000727378797a7b7c7d7e7f505152535455"
                "0000565758595a5b00005c5d5e5f00016100");
    expectForms(std::vector<u8>(64, 0xFF),
                "017003060000000000000000010203040007fef8ffffffffffffffffffffffffffff"
                "0000ffffffffffff0000ffffffff0001ff00",
                "017003090000000000000000010203040000ffdf0000ffffffffffffffffffffffffffffffff"
                "0000ffffffffffff0000ffffffff0001ff00");
}

TEST(InciBroadcast, ClockStatesAreTranslatedWhenAskedFor)
{
    constexpr u16 WANTED[] = {0, 0, 1, 3, 2, 0, 0, 0, 5, 4, 7, 6, 0, 0};
    for (u16 state = 0; state < std::size(WANTED); ++state) {
        EXPECT_EQ(inciSyncState(state, 1), WANTED[state]) << state;
        EXPECT_EQ(inciSyncState(state, 2), state);
    }
    EXPECT_EQ(inciSyncState(0xFFFF, 1), 0u);
}

// ---- check values -------------------------------------------------------------------------------

u32 wordAt(const Inbox::Taken& signal, std::size_t at)
{
    u32 word;
    std::memcpy(&word, signal.bytes.data() + at, sizeof word);
    return word;
}
std::string hexOfWord(u32 word)
{
    char text[9];
    std::snprintf(text, sizeof text, "%08x", word);
    return text;
}
/// References that a side makes of its own stand for those of the file.
std::string withWord(std::string hex, std::size_t at, u32 word)
{
    return hex.replace(2 * at, 8, hexOfWord(word));
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
    return refs;
}

json received(const Value& in)
{
    const std::vector<u8> wire = vectors::bytes(in["broadcast"]);
    const InciOrigin origin{inside(in, "cpriPortNo"), inside(in, "sharedId"), inside(in, "apn")};
    const bool isFirst = wire.at(3) == (PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND & 0xFF);
    KvdNgpduhifReceiveBcmDataInd got =
        isFirst ? inciReceived(layoutOf<InciBroadcastMessageInd>(wire, MESSAGE), origin)
                : inciReceived2(layoutOf<InciBroadcastMessage2Ind>(wire, MESSAGE2), origin);
    got.clientRef = inside(in, "clientRef");
    got.serverRef = inside(in, "serverRef");
    return {{"hex", wireOf(asBytes(got), RECEIVED)}, {"esfc", got.esfc}, {"mfn", got.mfn}};
}

json counters(const Value& in)
{
    InciBroadcastMessageInd one{};
    InciBroadcastMessage2Ind two{};
    one.extendedCbfnCounter = two.extendedCbfnCounter = in["extendedCbfnCounter"];
    const auto counter = [](const auto& r) { return json{{"esfc", r.esfc}, {"mfn", r.mfn}}; };
    return {{"form1", counter(inciReceived(one, {}))}, {"form2", counter(inciReceived2(two, {}))}};
}

json revision(const Value& in)
{
    InciBench b;
    b.peer.start();
    const auto connect = [&b](const std::vector<u32>& offered, u32 ref) {
        std::vector<u32> req{PSX_IW_NGSC_INCI_CONN_ESTABLISH_REQ, 1, ref, static_cast<u32>(offered.size())};
        req.insert(req.end(), offered.begin(), offered.end());
        b.peer.sendBytes(std::as_bytes(std::span(req)));
        return b.peer.inbox.taken.back();
    };
    for (u32 i = 0; i < in["records_used"].get<u32>(); ++i) connect({1}, 100 + i);
    const Inbox::Taken answer = connect(in["offered"].get<std::vector<u32>>(), 50);
    const u32 word = wordAt(answer, 12);
    json out = {{"answer", "REJ"}, {"revision", {}}, {"errorCode", word & 0xFF},
                {"connectionRef", wordAt(answer, 8)}};
    if (answer.sigNo() == PSX_IW_NGSC_INCI_CONN_ESTABLISH_CFM)
        out["answer"] = "CFM", out["revision"] = word, out["errorCode"] = {};
    return out;
}

json confirmed(const Value& in)
{
    InciBench b;
    b.peer.start();
    std::vector<u8> req = vectors::bytes(in["req"]);
    req = turned(req, words(req.size()));
    b.peer.sendBytes(std::as_bytes(std::span(req)));
    const Inbox::Taken& cfm = b.peer.inbox.taken.at(0);
    EXPECT_NE(wordAt(cfm, 8), 0u);
    return {{"cfm", withWord(wireOf(cfm.bytes, words(cfm.bytes.size())), 8, in["serverConnectionRef"])}};
}

json requested(const Value& in)
{
    InciBench b;
    b.peer.start();
    b.unit.establish("peer", 3, 5);
    const Inbox::Taken& req = b.peer.inbox.taken.at(0);
    EXPECT_EQ(wordAt(req, 4), wordAt(req, 8));
    const std::string hex = wireOf(req.bytes, words(req.bytes.size()));
    return {{"hex", withWord(withWord(hex, 4, in["clientRef"]), 8, in["clientRef"])}};
}

json translated(const Value& in)
{
    json mapped = json::array();
    for (const Value state : in["s"]) mapped.push_back(inciSyncState(state, in["translation_flag"]));
    return {{"mapped", mapped}};
}

json idl1Word(const Value& in)
{
    const hwif::BfnOutWords w = hwif::packBfnExtended(
        {in["inc_diff"], in["e_sfc"], in["rc_state"], in["coldRestartFlag"], in["jump"], in["ms_flag"]});
    return {{"high", hexOfWord(w.word1)}, {"low", hexOfWord(w.word2)}};
}

/// Bytes without a meaning are those of padding, which are 0 here.
json wantedOf(const Value& out)
{
    json wanted = out.read();
    for (const json& pad : wanted.value("pad", json::array())) {
        const std::size_t at = 2 * pad[0].get<std::size_t>(), count = 2 * pad[1].get<std::size_t>();
        wanted["hex"].get_ref<std::string&>().replace(at, count, count, '0');
    }
    wanted.erase("pad");
    return wanted;
}

/// A vector's "out", or an alternative's where it is open.
void expectLike(const Value& v, const json& got)
{
    const json out = wantedOf(v["out"]);
    for (const auto& [key, wanted] : out.items()) {
        bool isIt = got.at(key) == wanted;
        if (v.contains("open") && v.contains("alternatives"))
            for (const Value other : v["alternatives"])
                isIt = isIt || (other.contains(key) && other[key] == got.at(key));
        EXPECT_TRUE(isIt) << key << ": " << got.at(key) << " is not " << wanted;
    }
}

/// What `replay` makes of a vector's "in".
vectors::Kinds::mapped_type against(const std::function<json(const Value&)>& replay)
{
    return [replay](const Value& v) { expectLike(v, replay(v["in"])); };
}

/// What goes out to a client. Its references and the node are put in by whoever sends it: they stand in the
/// vector under the names of the records that they come from.
void sent(const Value& v)
{
    static constexpr std::initializer_list<const char*> NAMES = {"procedureRef",
                                                                 "connectionRef",
                                                                 "serverConnectionRef",
                                                                 "clientConnectionRef",
                                                                 "clientRef",
                                                                 "serverRef",
                                                                 "protocolRev",
                                                                 "revision",
                                                                 "nodeIdentifier",
                                                                 "ngsmNodeIdentifier",
                                                                 "apn"};
    v["in"].skip(NAMES);
    for (const auto& [name, record] : v["in"].items()) record.skip(NAMES);
    const std::vector<u8> wanted = vectors::bytes(v["out"]["hex"]);
    const auto data = layoutOf<KvdNgpduhifSendBcmDataInd>(vectors::bytes(v["in"]["send"]), SENT);
    const auto expectWire = [&](auto message, const Widths& widths) {
        const auto like = layoutOf<decltype(message)>(wanted, widths);
        message.procedureRef = like.procedureRef, message.connectionRef = like.connectionRef;
        message.ngsmNodeIdentifier = like.ngsmNodeIdentifier;
        expectLike(v, {{"hex", wireOf(asBytes(message), widths)}});
    };
    const bool isFirst = wanted.at(3) == (PSX_IW_NGSC_INCI_BROADCAST_MESSAGE_IND & 0xFF);
    if (isFirst) expectWire(inciMessage(data, 0), MESSAGE);
    else         expectWire(inciMessage2(data, 0), MESSAGE2);
}

TEST(InciCheckValues, AllOfThem)
{
    vectors::Document document("o05_inci.json");
    vectors::eachKind(document["vectors"], {
        {"hash", against(hashed)}, {"broadcast", sent}, {"receive", against(received)},
        {"counter", against(counters)}, {"revision", against(revision)}, {"connCfm", against(confirmed)},
        {"connReq", against(requested)}, {"syncStateMap", against(translated)}, {"idl1", against(idl1Word)},
        {"refs", [](const Value& v) {
             EXPECT_EQ(v["out"]["refs"], references(v["in"], v["out"]["refs"].size()));
         }},
    });
}

}  // namespace
