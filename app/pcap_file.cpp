#include "app/pcap_file.h"

#include <zlib.h>

#include <algorithm>
#include <memory>

namespace app {
namespace {

constexpr u32 LINK_ETHERNET = 1;
constexpr u32 PACKET_MAX = 262'144;    // octets; more is no packet but garbage
constexpr i64 SECOND_ns = 1'000'000'000;

/// The file's words, in its byte order.
class Words {
public:
    Words(std::span<const u8> bytes, bool isBig) : bytes_(bytes), isBig_(isBig) {}

    u32 u32At(std::size_t at) const
    {
        const u32 a = bytes_[at], b = bytes_[at + 1], c = bytes_[at + 2], d = bytes_[at + 3];
        return isBig_ ? a << 24 | b << 16 | c << 8 | d : d << 24 | c << 16 | b << 8 | a;
    }
    u16 u16At(std::size_t at) const
    {
        return static_cast<u16>(isBig_ ? bytes_[at] << 8 | bytes_[at + 1] : bytes_[at + 1] << 8 | bytes_[at]);
    }
    u64 u64At(std::size_t at) const
    {
        const u64 first = u32At(at), second = u32At(at + 4);
        return isBig_ ? first << 32 | second : second << 32 | first;
    }
    std::size_t size() const { return bytes_.size(); }
    std::vector<u8> cut(std::size_t at, std::size_t count) const
    {
        const auto begin = bytes_.begin() + static_cast<std::ptrdiff_t>(at);
        return {begin, begin + static_cast<std::ptrdiff_t>(count)};
    }

private:
    std::span<const u8> bytes_;
    bool isBig_;
};

u32 bigWordAt(std::span<const u8> b, std::size_t at) { return Words(b, true).u32At(at); }

[[noreturn]] void failCut(const std::string& name, std::size_t packets)
{
    throw PcapError(name + ": cut off in the middle, behind packet " + std::to_string(packets));
}

void requireEthernet(u32 linkType, const std::string& name)
{
    if (linkType != LINK_ETHERNET)
        throw PcapError(name + ": link type " + std::to_string(linkType) + " isn't Ethernet");
}

void requireLength(u32 length, const std::string& name, std::size_t packets)
{
    if (length > PACKET_MAX)
        throw PcapError(name + ": behind packet " + std::to_string(packets) + " one of "
                        + std::to_string(length) + " octets: not a capture any more");
}

// ---- pcap ---------------------------------------------------------------------------------------

struct Magic { u32 asBig; bool isBig, isNano; };
constexpr Magic MAGICS[] = {{0xA1B2C3D4, true, false},
                            {0xD4C3B2A1, false, false},
                            {0xA1B23C4D, true, true},
                            {0x4D3CB2A1, false, true}};

std::vector<PcapPacket> parseClassic(std::span<const u8> file, const Magic& magic, const std::string& name)
{
    constexpr std::size_t FILE_HEADER = 24, LINK_AT = 20, RECORD_HEADER = 16;
    const Words w(file, magic.isBig);
    std::vector<PcapPacket> packets;
    if (w.size() < FILE_HEADER) failCut(name, 0);
    // Above the type itself stands how long a frame check sequence is.
    requireEthernet(w.u32At(LINK_AT) & 0xFFFF, name);
    for (std::size_t at = FILE_HEADER; at < w.size();) {
        if (w.size() - at < RECORD_HEADER) failCut(name, packets.size());
        const u32 length = w.u32At(at + 8);
        requireLength(length, name, packets.size());
        if (w.size() - at - RECORD_HEADER < length) failCut(name, packets.size());
        const i64 fraction = w.u32At(at + 4);
        packets.push_back({w.u32At(at) * SECOND_ns + (magic.isNano ? fraction : fraction * 1000),
                           w.u32At(at + 12), w.cut(at + RECORD_HEADER, length)});
        at += RECORD_HEADER + length;
    }
    return packets;
}

// ---- pcapng -------------------------------------------------------------------------------------

constexpr u32 SECTION = 0x0A0D0D0A, INTERFACE = 1, OLD_PACKET = 2, SIMPLE_PACKET = 3, ENHANCED_PACKET = 6;

struct Interface {
    u32 snapLength = 0;                // 0: none
    u8  resolution = 6;                // power of ten, or with the top bit of two, below a second
    i64 offset_s = 0;
};

/// A stamp that no clock tells wraps; who follows the times leaves such steps out.
i64 timeOf(const Interface& i, u64 stamp)
{
    const u32 power = i.resolution & 0x7F;
    u64 unit = 1;                      // parts of a second
    if ((i.resolution & 0x80) != 0) unit <<= std::min(power, 63u);
    else
        for (u32 n = 0; n < std::min(power, 19u); ++n) unit *= 10;
    const long double part = static_cast<long double>(stamp % unit) / static_cast<long double>(unit);
    const u64 seconds = stamp / unit + static_cast<u64>(i.offset_s);
    return static_cast<i64>(seconds * u64{SECOND_ns} + static_cast<u64>(part * SECOND_ns + 0.5L));
}

class NgReader {
public:
    NgReader(std::span<const u8> file, const std::string& name) : file_(file), name_(name) {}

    std::vector<PcapPacket> read()
    {
        for (std::size_t at = 0; at < file_.size();) at += block(at);
        return std::move(packets_);
    }

private:
    static constexpr std::size_t BLOCK_HEADER = 8, BLOCK_MIN = 12;

    [[noreturn]] void fail(const std::string& what) const
    {
        throw PcapError(name_ + ": behind packet " + std::to_string(packets_.size()) + " " + what);
    }

    /// Takes the block at `at`; its length.
    std::size_t block(std::size_t at)
    {
        const std::span<const u8> rest = file_.subspan(at);
        if (rest.size() < BLOCK_MIN) failCut(name_, packets_.size());
        const bool isSection = bigWordAt(rest, 0) == SECTION;
        if (isSection) {
            constexpr u32 ORDER = 0x1A2B3C4D, OTHER_ORDER = 0x4D3C2B1A;
            const u32 order = bigWordAt(rest, BLOCK_HEADER);
            if (order != ORDER && order != OTHER_ORDER) fail("a section of no byte order");
            isBig_ = order == ORDER;
            interfaces_.clear();
        }
        const u32 size = Words(rest, isBig_).u32At(4);
        if (size < BLOCK_MIN || size % 4 != 0) fail("a block of " + std::to_string(size) + " octets");
        if (size > rest.size()) failCut(name_, packets_.size());
        const Words body(rest.subspan(BLOCK_HEADER, size - BLOCK_MIN), isBig_);
        switch (isSection ? SECTION : Words(rest, isBig_).u32At(0)) {
        case INTERFACE:       onInterface(body); break;
        case ENHANCED_PACKET: onPacket(body, body.size() >= 4 ? body.u32At(0) : 0); break;
        case OLD_PACKET:      onPacket(body, body.size() >= 4 ? body.u16At(0) : 0); break;
        case SIMPLE_PACKET:   onSimplePacket(body); break;
        default:              break;
        }
        return size;
    }

    void onInterface(const Words& b)
    {
        constexpr std::size_t OPTIONS_AT = 8;
        constexpr u16 END = 0, RESOLUTION = 9, OFFSET = 14;
        if (b.size() < OPTIONS_AT) fail("an interface that is too short");
        requireEthernet(b.u16At(0), name_);
        Interface i;
        i.snapLength = b.u32At(4);
        for (std::size_t at = OPTIONS_AT; at + 4 <= b.size();) {
            const u16 code = b.u16At(at);
            const std::size_t length = b.u16At(at + 2);
            if (code == END || length > b.size() - at - 4) break;
            if (code == RESOLUTION && length == 1) i.resolution = b.cut(at + 4, 1)[0];
            if (code == OFFSET && length == 8) i.offset_s = static_cast<i64>(b.u64At(at + 4));
            at += 4 + (length + 3) / 4 * 4;
        }
        interfaces_.push_back(i);
    }

    void onPacket(const Words& b, u32 interface)
    {
        constexpr std::size_t BYTES_AT = 20;
        if (b.size() < BYTES_AT) fail("a packet that is too short");
        if (interface >= interfaces_.size()) fail("a packet of an interface that isn't told");
        const u64 stamp = u64{b.u32At(4)} << 32 | b.u32At(8);
        take(b, BYTES_AT, b.u32At(12), b.u32At(16), timeOf(interfaces_[interface], stamp));
    }

    void onSimplePacket(const Words& b)
    {
        constexpr std::size_t BYTES_AT = 4;
        if (b.size() < BYTES_AT) fail("a packet that is too short");
        if (interfaces_.empty()) fail("a packet of an interface that isn't told");
        const u32 length = b.u32At(0), snap = interfaces_[0].snapLength;
        take(b, BYTES_AT, snap != 0 ? std::min(length, snap) : length, length,
             packets_.empty() ? 0 : packets_.back().time_ns);
    }

    void take(const Words& b, std::size_t at, u32 length, u32 wireLength, i64 time_ns)
    {
        requireLength(length, name_, packets_.size());
        if (length > b.size() - at) fail("a packet longer than its block");
        packets_.push_back({time_ns, wireLength, b.cut(at, length)});
    }

    std::span<const u8> file_;
    const std::string& name_;
    bool isBig_ = false;
    std::vector<Interface> interfaces_;
    std::vector<PcapPacket> packets_;
};

// ---- what a frame carries -----------------------------------------------------------------------

constexpr u16 TYPE_PTP = 0x88F7, TYPE_VLAN = 0x8100, TYPE_IPV4 = 0x0800, TYPE_IPV6 = 0x86DD;
constexpr u16 TYPE_SERVICE_TAG = 0x88A8, TYPE_OLD_TAG = 0x9100;     // IEEE 802.1ad, and before it
constexpr u16 TYPE_MPLS = 0x8847, TYPE_MPLS_UPSTREAM = 0x8848;      // RFC 5332
constexpr u8 PROTOCOL_UDP = 17;

/// The datagram behind the IP header `length` octets long.
std::optional<UdpCarrier> datagramOf(const Words& ip, std::size_t length, u32 family)
{
    constexpr std::size_t UDP_HEADER = 8;
    if (ip.size() < length + UDP_HEADER) return std::nullopt;
    UdpCarrier c;
    c.fromPort = ip.u16At(length);
    c.toPort = ip.u16At(length + 2);
    const std::size_t told = ip.u16At(length + 4);
    if (told < UDP_HEADER) return std::nullopt;
    c.bytes = ip.cut(length + UDP_HEADER, std::min(told, ip.size() - length) - UDP_HEADER);
    const std::size_t octets = family == 4 ? 4 : 16, at = family == 4 ? 12 : 8;
    c.from.family = c.to.family = family;
    std::ranges::copy(ip.cut(at, octets), c.from.octets.begin());
    std::ranges::copy(ip.cut(at + octets, octets), c.to.octets.begin());
    return c;
}

/// PTP's, nothing unless it is.
std::optional<PtpCarrier> ptpOf(std::optional<UdpCarrier> udp)
{
    if (!udp || (udp->toPort != 319 && udp->toPort != 320)) return std::nullopt;
    PtpCarrier c;
    c.packet.isFrame = false;
    c.packet.fromPort = udp->fromPort;
    c.packet.toPort = udp->toPort;
    c.packet.from = udp->from;
    c.packet.to = udp->to;
    c.packet.bytes = std::move(udp->bytes);
    return c;
}

bool isTag(u16 type) { return type == TYPE_VLAN || type == TYPE_SERVICE_TAG || type == TYPE_OLD_TAG; }

/// What stands behind a frame's headers: EtherType and place, and the headers that the node doesn't read.
struct Payload {
    u16 type = 0;
    std::size_t at = 0;
    std::string behind;
};

/// Over the label stack at `at`: to an IP packet, or to the frame in a pseudowire, whose EtherType's place is
/// left in `typeAt`. False when the stack has no end, or something else below it.
bool passLabels(const Words& f, std::size_t& at, u16& type, std::size_t& typeAt)
{
    constexpr std::size_t LABEL = 4, ETHERTYPE_AT = 12, CONTROL_WORD = 4;
    bool isLast = false;
    while (!isLast) {
        if (f.size() < at + LABEL + 1) return false;
        isLast = (f.u16At(at + 2) & 0x0100) != 0;
        at += LABEL;
    }
    typeAt = 0;
    switch (f.cut(at, 1)[0] >> 4) {
    case 4:  type = TYPE_IPV4; return true;
    case 6:  type = TYPE_IPV6; return true;
    case 0: {
        // Without a control word: a group's address begins with 0 too.
        const std::size_t plain = at + ETHERTYPE_AT;
        const u16 inner = f.size() >= plain + 2 ? f.u16At(plain) : u16{0};
        typeAt = inner == TYPE_PTP || isTag(inner) ? plain : plain + CONTROL_WORD;
        return true;
    }
    default: return false;
    }
}

std::optional<Payload> payloadOf(std::span<const u8> frame)
{
    const Words f(frame, true);
    Payload p;
    u32 tags = 0;
    u16 tag = TYPE_VLAN;
    bool isLabelled = false;
    for (std::size_t typeAt = 12; typeAt != 0;) {
        p.at = typeAt + 2;
        if (f.size() < p.at) return std::nullopt;
        p.type = f.u16At(typeAt);
        typeAt = 0;
        if (isTag(p.type)) {
            ++tags;
            tag = p.type;
            typeAt = p.at + 2;
        } else if (p.type == TYPE_MPLS || p.type == TYPE_MPLS_UPSTREAM) {
            isLabelled = true;
            if (!passLabels(f, p.at, p.type, typeAt)) return std::nullopt;
        }
    }
    if (tags > 1) p.behind = std::to_string(tags) + " VLAN tags";
    else if (tags == 1 && tag == TYPE_SERVICE_TAG) p.behind = "a tag of 802.1ad";
    else if (tags == 1 && tag == TYPE_OLD_TAG) p.behind = "a tag of 0x9100";
    if (isLabelled) p.behind += p.behind.empty() ? "MPLS" : " and MPLS";
    return p;
}

std::optional<UdpCarrier> datagramIn(std::span<const u8> frame, const Payload& p)
{
    constexpr std::size_t IPV4_MIN = 20, IPV6_HEADER = 40;
    const std::span<const u8> bytes = frame.subspan(p.at);
    const Words ip(bytes, true);
    if (p.type == TYPE_IPV4 && ip.size() >= IPV4_MIN) {
        const bool isFragment = (ip.u16At(6) & 0x3FFF) != 0;
        const std::size_t header = (bytes[0] & 0xFu) * 4;
        if (isFragment || bytes[9] != PROTOCOL_UDP || header < IPV4_MIN) return std::nullopt;
        return datagramOf(ip, header, 4);
    }
    if (p.type == TYPE_IPV6 && ip.size() >= IPV6_HEADER && bytes[6] == PROTOCOL_UDP)
        return datagramOf(ip, IPV6_HEADER, 6);
    return std::nullopt;
}

}  // namespace

std::vector<PcapPacket> parsePcap(std::span<const u8> file, const std::string& name)
{
    if (file.size() >= 4) {
        const u32 first = bigWordAt(file, 0);
        if (first == SECTION) return NgReader(file, name).read();
        for (const Magic& m : MAGICS)
            if (first == m.asBig) return parseClassic(file, m, name);
    }
    throw PcapError(name + ": not a capture, neither pcap nor pcapng");
}

std::vector<PcapPacket> readPcap(const std::string& path)
{
    const std::unique_ptr<gzFile_s, int (*)(gzFile)> in(gzopen(path.c_str(), "rb"), gzclose);
    if (!in) throw PcapError(path + ": can't be read");
    std::vector<u8> bytes;
    std::vector<u8> piece(65'536);
    for (;;) {
        const int got = gzread(in.get(), piece.data(), static_cast<unsigned>(piece.size()));
        if (got < 0) throw PcapError(path + ": can't be read");
        if (got == 0) break;
        bytes.insert(bytes.end(), piece.begin(), piece.begin() + got);
    }
    int error = Z_OK;
    gzerror(in.get(), &error);
    if (error != Z_OK) throw PcapError(path + ": the gzip file is cut off in the middle");
    return parsePcap(bytes, path);
}

std::optional<UdpCarrier> udpOf(const PcapPacket& packet)
{
    const std::optional<Payload> payload = payloadOf(packet.frame);
    return payload ? datagramIn(packet.frame, *payload) : std::nullopt;
}

std::optional<PtpCarrier> ptpOf(const PcapPacket& packet)
{
    const std::optional<Payload> payload = payloadOf(packet.frame);
    if (!payload) return std::nullopt;
    std::optional<PtpCarrier> c;
    if (payload->type == TYPE_PTP) {
        c.emplace();
        c->packet.bytes = packet.frame;
        c->messageAt = payload->at;
    } else {
        c = ptpOf(datagramIn(packet.frame, *payload));
    }
    if (!c) return c;
    c->behind = payload->behind;
    constexpr std::size_t LENGTH_END = 4;            // of messageLength (IEEE 1588-2008 13.3.2.4)
    const std::span<const u8> m = c->message();
    const bool isWhole = m.size() >= LENGTH_END && m.size() >= static_cast<std::size_t>(m[2] << 8 | m[3]);
    c->isCut = packet.wireLength > packet.frame.size() && !isWhole;
    return c;
}

}  // namespace app
