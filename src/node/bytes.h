// bytes.h - Numbers in bytes, most significant first: what outlives the program or leaves it.
#pragma once
#include "ose/types.h"

#include <bit>

namespace node {

inline u16 be16(const u8* at) { return static_cast<u16>(at[0] << 8 | at[1]); }
inline void putBe16(u8* at, u16 value)
{
    at[0] = static_cast<u8>(value >> 8);
    at[1] = static_cast<u8>(value);
}
inline u32 be32(const u8* at) { return u32{at[0]} << 24 | u32{at[1]} << 16 | u32{at[2]} << 8 | u32{at[3]}; }
inline void putBe32(u8* at, u32 value)
{
    for (u32 i = 0; i < 4; ++i) at[i] = static_cast<u8>(value >> (24 - 8 * i));
}
/// IEEE 754 binary64.
inline double beDouble(const u8* at) { return std::bit_cast<double>(u64{be32(at)} << 32 | be32(at + 4)); }
inline void putBeDouble(u8* at, double value)
{
    const u64 bits = std::bit_cast<u64>(value);
    putBe32(at, static_cast<u32>(bits >> 32));
    putBe32(at + 4, static_cast<u32>(bits));
}

}  // namespace node
