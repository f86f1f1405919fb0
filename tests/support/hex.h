// hex.h - Octets as hexadecimal text and back.
#pragma once
#include "ose/types.h"

#include <string>
#include <vector>

namespace bench {

inline std::string hexOf(const u8* bytes, std::size_t count)
{
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += DIGITS[bytes[i] >> 4];
        text += DIGITS[bytes[i] & 15];
    }
    return text;
}
inline std::vector<u8> bytesOf(const std::string& hex)
{
    std::vector<u8> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<u8>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

}  // namespace bench
