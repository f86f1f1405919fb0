// input.h - A random input: a stream a number, so that one can be had alone, the same each time.
#pragma once
#include "sim/clock/random.h"

#include <string>
#include <vector>

namespace fuzz {

inline std::vector<unsigned char> inputOf(u64 seed, u64 number)
{
    constexpr u64 LONGEST = 400;
    sim::Random random(seed, "fuzz" + std::to_string(number));
    std::vector<unsigned char> bytes(random.bits() % LONGEST);
    for (unsigned char& b : bytes) b = static_cast<unsigned char>(random.bits());
    return bytes;
}

}  // namespace fuzz
