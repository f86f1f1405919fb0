#include "socpri/kvd_socpri_inci_ref.h"

#include "node/bytes.h"

#include <bit>
#include <string>

namespace {

u32 mixed(u32 k) { return std::rotl(k * 0xCC9E2D51u, 15) * 0x1B873593u; }

u32 finalMix(u32 h)
{
    h ^= h >> 16;
    h *= 0x85EBCA6Bu;
    h ^= h >> 13;
    h *= 0x02B2AE35u;
    return h ^ h >> 16;
}

}  // namespace

u32 inciReferenceHash(const void* data, u32 len, u32 seed)
{
    const u8* const bytes = static_cast<const u8*>(data);
    const u32 blocksEnd = len & ~3u;
    u32 h = seed;
    for (u32 at = 0; at < blocksEnd; at += 4)
        h = std::rotl(h ^ mixed(node::be32(bytes + at)), 13) * 5 + 0xE6546B64u;
    u32 tail = 0;
    for (u32 at = len; at > blocksEnd; --at) tail = tail << 8 | bytes[at - 1];
    if (blocksEnd != len) h ^= mixed(tail);
    return finalMix(h ^ len);
}

InciReference inciNextReference(i32& key, u32 apn, u32 nodeIdentifier)
{
    const u32 product = static_cast<u32>(key) * apn;
    const i32 hashed = static_cast<i32>(product);
    const std::string text = std::to_string(hashed);
    key = static_cast<i32>(product + 1);
    return {hashed, inciReferenceHash(text.data(), static_cast<u32>(text.size()), nodeIdentifier)};
}
