// wire_inputs.h - What inputs become on the wire: PTP of any content, frames of any, for those who hand them
// to a unit and who put them on a cable.
#pragma once
#include "fuzz/fuzz.h"
#include "sim/net/ptp_wire.h"

#include <array>
#include <vector>

namespace fuzz {

namespace ptp = sim::ptp;

/// A message of any content; mostly of a type, version, domain and length that pass.
inline std::vector<u8> message(Input& rest, u8 domain)
{
    constexpr u8 TYPES[] = {ptp::SYNC, ptp::FOLLOW_UP, ptp::DELAY_RESP, ptp::ANNOUNCE, ptp::SIGNALING};
    const u8 kind = take<u8>(rest), type = take<u8>(rest);
    std::vector<u8> m = takeOctets(rest, 44 + take<u8>(rest) % 40);
    if (kind >= 220 || m.size() < 40) return m;
    m[0] = TYPES[type % 5];
    m[1] = 2;
    m[2] = 0;
    m[3] = static_cast<u8>(m.size() - (kind < 200 ? 0 : kind % 3));
    m[4] = domain;
    m[6] &= 0x06;
    const std::array<u8, 8> master{0, 0x1B, 0x19, 0xFF, 0xFE, 0, 0, static_cast<u8>(type % 3)};
    std::copy(master.begin(), master.end(), m.begin() + 20);
    m[28] = 0;
    m[29] = 1;
    m[30] = 0;                           // few sequence numbers: stamps meet
    m[31] &= 0x0F;
    m[33] = static_cast<u8>(kind < 180 ? -(kind % 8) : m[33]);
    return m;
}

/// Negotiation as a master would speak it, to any port, TLVs of any kind and length.
inline std::vector<u8> signaling(Input& rest, u8 domain)
{
    ptp::Message m;
    m.type = ptp::SIGNALING;
    m.domain = domain;
    m.source.clock = {0, 0x1B, 0x19, 0xFF, 0xFE, 0, 0, 1};
    m.target.clock.fill(0xFF);
    m.target.number = 0xFFFF;
    const u8 count = take<u8>(rest) % 5;
    for (u8 i = 0; i < count; ++i) {
        const u8 kind = take<u8>(rest);
        const std::size_t length = kind % 4 != 0 ? 8 : take<u8>(rest) % 20;
        ptp::Message::Tlv tlv{static_cast<u16>(kind % 9), takeOctets(rest, length)};
        if (kind % 2 != 0 && tlv.value.size() == 8) {
            constexpr u8 FLOWS[] = {ptp::ANNOUNCE, ptp::SYNC, ptp::DELAY_RESP, 0x5};
            tlv.value[0] = static_cast<u8>(FLOWS[kind / 4 % 4] << 4);
            tlv.value[2] = tlv.value[3] = 0;
        }
        m.tlvs.push_back(tlv);
    }
    std::vector<u8> octets = ptp::write(m);
    const u8 cut = take<u8>(rest);
    if (cut >= 200) octets.resize(octets.size() - std::min<std::size_t>(cut - 199u, octets.size()));
    return octets;
}

/// A frame as it is but for its type (PTP, VLAN, IP, IPv6) and, where that is one, UDP as its protocol.
inline std::vector<u8> frameOf(std::vector<u8> octets, unsigned kind)
{
    constexpr u8 TYPES[][2] = {{0x88, 0xF7}, {0x81, 0x00}, {0x08, 0x00}, {0x86, 0xDD}};
    constexpr std::size_t TYPE_AT = 12, IP_AT = 14, PROTOCOL_AT = 23, PROTOCOL6_AT = 20, SHORTEST = 25;
    constexpr u8 UDP = 17;
    if (octets.size() < SHORTEST) return octets;
    std::copy_n(TYPES[kind], 2, octets.begin() + TYPE_AT);
    octets[IP_AT] = static_cast<u8>(0x40 | (octets[IP_AT] & 0xF));
    octets[kind == 3 ? PROTOCOL6_AT : PROTOCOL_AT] = UDP;
    return octets;
}

}  // namespace fuzz
