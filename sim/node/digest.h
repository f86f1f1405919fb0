// digest.h - FNV-1a of whatever is given, to hold two runs against each other.
#pragma once
#include "ose/types.h"

#include <cstddef>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>

namespace sim {

/// Added as it lies in memory. Other types have bytes of their own: an address, a gap between members.
template <typename T>
concept Plain = std::is_arithmetic_v<T> || std::is_enum_v<T>;

class Digest {
public:
    void addBytes(std::span<const std::byte> bytes)
    {
        for (const std::byte b : bytes) hash_ = (hash_ ^ static_cast<u8>(b)) * 0x100000001B3;
    }
    void add(const Plain auto& value) { addBytes(std::as_bytes(std::span(&value, 1))); }
    void add(std::string_view text) { addBytes(std::as_bytes(std::span(text))); }
    u64 value() const { return hash_; }

private:
    u64 hash_ = 0xCBF29CE484222325;
};

}  // namespace sim
