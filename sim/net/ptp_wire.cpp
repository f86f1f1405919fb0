#include "sim/net/ptp_wire.h"

#include <cmath>
#include <cstring>

namespace sim::ptp {

namespace {

constexpr std::size_t MAC_HEADER = 14, VLAN_HEADER = 18, CORRECTION_AT = 8, BODY_STAMP = 10;

/// Octets of a whole message of that type, without TLVs.
std::size_t lengthOf(u8 type)
{
    switch (type) {
    case SYNC: case DELAY_REQ: case FOLLOW_UP: return 44;
    case DELAY_RESP: case PDELAY_REQ: case PDELAY_RESP: case PDELAY_RESP_FOLLOW_UP: return 54;
    case ANNOUNCE:   return 64;
    case SIGNALING:  return 44;
    default:         return HEADER;
    }
}

struct Writer {
    std::vector<u8>& out;
    void u(u64 value, int octets)
    {
        for (int i = octets - 1; i >= 0; --i) out.push_back(static_cast<u8>(value >> (8 * i)));
    }
    void stamp(const Stamp& s)
    {
        u(s.seconds, 6);
        u(s.ns, 4);
    }
    void port(const Port& p)
    {
        out.insert(out.end(), p.clock.begin(), p.clock.end());
        u(p.number, 2);
    }
};

struct Reader {
    const u8* at;
    u64 u(int octets)
    {
        u64 value = 0;
        for (int i = 0; i < octets; ++i) value = value << 8 | *at++;
        return value;
    }
    Stamp stamp()
    {
        const u64 seconds = u(6);
        return {seconds, static_cast<u32>(u(4))};
    }
    Port port()
    {
        Port p;
        for (u8& octet : p.clock) octet = *at++;
        p.number = static_cast<u16>(u(2));
        return p;
    }
};

void writeBody(Writer& w, const Message& m)
{
    switch (m.type) {
    case SIGNALING:
        w.port(m.target);
        for (const Message::Tlv& tlv : m.tlvs) {
            w.u(tlv.type, 2);
            w.u(tlv.value.size(), 2);
            w.out.insert(w.out.end(), tlv.value.begin(), tlv.value.end());
        }
        return;
    case ANNOUNCE:
        w.stamp(m.stamp);
        w.u(static_cast<u16>(m.utcOffset), 2);
        w.u(0, 1);
        w.u(m.priority1, 1);
        w.u(m.clockClass, 1);
        w.u(m.accuracy, 1);
        w.u(m.variance, 2);
        w.u(m.priority2, 1);
        w.out.insert(w.out.end(), m.grandmaster.begin(), m.grandmaster.end());
        w.u(m.steps, 2);
        w.u(m.timeSource, 1);
        return;
    case DELAY_RESP:
        w.stamp(m.stamp);
        w.port(m.requesting);
        return;
    default: w.stamp(m.stamp);
    }
}

bool readTlvs(Message& m, Reader& r, const u8* end)
{
    while (r.at < end) {
        if (end - r.at < 4) return false;
        Message::Tlv tlv;
        tlv.type = static_cast<u16>(r.u(2));
        const std::size_t length = r.u(2);
        if (static_cast<std::size_t>(end - r.at) < length) return false;
        tlv.value.assign(r.at, r.at + length);
        r.at += length;
        m.tlvs.push_back(std::move(tlv));
    }
    return true;
}

void readAnnounce(Message& m, Reader& r)
{
    m.stamp = r.stamp();
    m.utcOffset = static_cast<i16>(r.u(2));
    r.u(1);
    m.priority1 = static_cast<u8>(r.u(1));
    m.clockClass = static_cast<u8>(r.u(1));
    m.accuracy = static_cast<u8>(r.u(1));
    m.variance = static_cast<u16>(r.u(2));
    m.priority2 = static_cast<u8>(r.u(1));
    for (u8& octet : m.grandmaster) octet = *r.at++;
    m.steps = static_cast<u16>(r.u(2));
    m.timeSource = static_cast<u8>(r.u(1));
}

std::optional<Message> refuse(std::string* why, const char* reason)
{
    if (why != nullptr) *why = reason;
    return std::nullopt;
}

}  // namespace

std::vector<u8> write(const Message& m)
{
    constexpr std::size_t USUAL = 128;   // all but the longest management messages
    std::vector<u8> out;
    out.reserve(USUAL);
    Writer w{out};
    w.u(static_cast<u8>(m.transport << 4 | m.type), 1);
    w.u(m.version, 1);
    w.u(0, 2);                       // length, below
    w.u(m.domain, 1);
    w.u(0, 1);
    w.u(m.flags0, 1);
    w.u(m.flags1, 1);
    w.u(static_cast<u64>(m.correction), 8);
    w.u(0, 4);
    w.port(m.source);
    w.u(m.sequence, 2);
    w.u(m.control, 1);
    w.u(static_cast<u8>(m.logInterval), 1);
    writeBody(w, m);
    out[2] = static_cast<u8>(out.size() >> 8);
    out[3] = static_cast<u8>(out.size());
    return out;
}

std::optional<Message> read(const u8* octets, std::size_t count, std::string* why)
{
    if (count < HEADER) return refuse(why, "shorter than a header");
    Message m;
    Reader r{octets};
    const u8 first = static_cast<u8>(r.u(1));
    m.type = first & 0xF;
    m.transport = first >> 4;
    m.version = static_cast<u8>(r.u(1)) & 0xF;
    m.length = static_cast<u16>(r.u(2));
    m.domain = static_cast<u8>(r.u(1));
    if (r.u(1) != 0) return refuse(why, "octet 5 isn't 0");
    m.flags0 = static_cast<u8>(r.u(1));
    m.flags1 = static_cast<u8>(r.u(1));
    m.correction = static_cast<i64>(r.u(8));
    if (r.u(4) != 0) return refuse(why, "octets 16 to 19 aren't 0");
    m.source = r.port();
    m.sequence = static_cast<u16>(r.u(2));
    m.control = static_cast<u8>(r.u(1));
    m.logInterval = static_cast<i8>(r.u(1));
    if (m.version != 2) return refuse(why, "not of version 2");
    if (m.length > count) return refuse(why, "longer than its frame");
    if (m.length < lengthOf(m.type)) return refuse(why, "shorter than its type");
    switch (m.type) {
    case ANNOUNCE: readAnnounce(m, r); break;
    case SIGNALING:
        m.target = r.port();
        if (!readTlvs(m, r, octets + m.length)) return refuse(why, "a TLV beyond its end");
        break;
    case SYNC: case DELAY_REQ: case FOLLOW_UP: m.stamp = r.stamp(); break;
    case DELAY_RESP:
        m.stamp = r.stamp();
        m.requesting = r.port();
        break;
    default: break;
    }
    return m;
}

std::vector<u8> frame(const std::array<u8, 6>& to, const std::array<u8, 6>& from, u8 priority,
                      const std::vector<u8>& message)
{
    constexpr std::size_t LONGEST_HEADER = 18;   // with a tag
    std::vector<u8> out;
    out.reserve(LONGEST_HEADER + message.size());
    out.insert(out.end(), to.begin(), to.end());
    out.insert(out.end(), from.begin(), from.end());
    Writer w{out};
    if (priority != 0) {
        w.u(0x8100, 2);
        w.u(static_cast<u64>(priority) << 13, 2);
    }
    w.u(ETHERTYPE, 2);
    out.insert(out.end(), message.begin(), message.end());
    return out;
}

std::size_t messageAt(const std::vector<u8>& f)
{
    const auto typeAt = [&f](std::size_t at) { return f.size() >= at + 2 ? f[at] << 8 | f[at + 1] : 0; };
    if (typeAt(12) == ETHERTYPE) return MAC_HEADER;
    if (typeAt(12) == 0x8100 && typeAt(16) == ETHERTYPE) return VLAN_HEADER;
    return 0;
}

void addResidence(std::vector<u8>& bytes, bool isFrame, double residence_s)
{
    const std::size_t at = isFrame ? messageAt(bytes) : 0;
    if ((isFrame && at == 0) || bytes.size() < at + HEADER + BODY_STAMP) return;
    const u8 type = bytes[at] & 0xF;
    if (type != SYNC && type != DELAY_REQ) return;
    Reader r{bytes.data() + at + CORRECTION_AT};
    const u64 correction = r.u(8) + static_cast<u64>(std::llround(residence_s * 1e9 * 65536.0));
    for (std::size_t i = 0; i < 8; ++i)
        bytes[at + CORRECTION_AT + i] = static_cast<u8>(correction >> (8 * (7 - i)));
}

const char* typeName(u8 type)
{
    switch (type) {
    case SYNC:                  return "Sync";
    case DELAY_REQ:             return "Delay_Req";
    case PDELAY_REQ:            return "Pdelay_Req";
    case PDELAY_RESP:           return "Pdelay_Resp";
    case FOLLOW_UP:             return "Follow_Up";
    case DELAY_RESP:            return "Delay_Resp";
    case PDELAY_RESP_FOLLOW_UP: return "Pdelay_Resp_Follow_Up";
    case ANNOUNCE:              return "Announce";
    case SIGNALING:             return "Signaling";
    case MANAGEMENT:            return "Management";
    default:                    return "reserved";
    }
}

}  // namespace sim::ptp
