// hex.h - Octets as hexadecimal text and back.
#pragma once
#include "ose/types.h"

#include <stdexcept>
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
/// The number that all of a text is.
inline u64 hexNumber(const std::string& text)
{
    std::size_t end = 0;
    const u64 value = std::stoull(text, &end, 16);
    if (end != text.size()) throw std::runtime_error("not hexadecimal: \"" + text + "\"");
    return value;
}
inline std::vector<u8> bytesOf(const std::string& hex)
{
    if (hex.size() % 2 != 0) throw std::runtime_error("half a byte");
    std::vector<u8> bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<u8>(hexNumber(hex.substr(i, 2))));
    return bytes;
}

}  // namespace bench
