// digest.h - FNV-1a of whatever is given, to hold two runs against each other.
#pragma once
#include "ose/types.h"

#include <cstddef>
#include <cstring>
#include <span>
#include <string>

namespace sim {

class Digest {
public:
    void addBytes(std::span<const std::byte> bytes)
    {
        for (const std::byte b : bytes) hash_ = (hash_ ^ static_cast<u8>(b)) * 0x100000001B3;
    }
    template <typename T>
    void add(const T& value)
    {
        addBytes(std::as_bytes(std::span<const T, 1>(&value, 1)));
    }
    void add(const std::string& text) { addBytes(std::as_bytes(std::span(text))); }
    u64 value() const { return hash_; }

private:
    u64 hash_ = 0xCBF29CE484222325;
};

}  // namespace sim
