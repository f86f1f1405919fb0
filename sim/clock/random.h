// random.h - Random streams of the simulation: one a noise source, seeded from the run's seed and
// the source's name, so that a new source shifts no other. The same numbers on every host and in
// every build.
#pragma once
#include "ose/types.h"
#include "sim/clock/portable_math.h"

#include <cmath>
#include <string_view>

namespace sim {

/// xoshiro256** (Blackman, Vigna), seeded through splitmix64.
class Random {
public:
    Random(u64 seed, std::string_view source)
    {
        u64 mix = seed;
        for (const char c : source) mix = (mix ^ static_cast<u8>(c)) * 0x100000001B3;   // FNV-1a
        for (u64& word : state_) word = splitmix(mix);
    }

    u64 bits()
    {
        const u64 result = rotate(state_[1] * 5, 7) * 9;
        const u64 t = state_[1] << 17;
        state_[2] ^= state_[0];
        state_[3] ^= state_[1];
        state_[1] ^= state_[2];
        state_[0] ^= state_[3];
        state_[2] ^= t;
        state_[3] = rotate(state_[3], 45);
        return result;
    }
    /// 0 up to 1.
    double uniform() { return static_cast<double>(bits() >> 11) * 0x1.0p-53; }
    /// Mean 0, deviation 1 (polar method).
    double gaussian()
    {
        if (spareReady_) {
            spareReady_ = false;
            return spare_;
        }
        double a = 0.0;
        double b = 0.0;
        double square = 0.0;
        do {
            a = 2.0 * uniform() - 1.0;
            b = 2.0 * uniform() - 1.0;
            square = a * a + b * b;
        } while (square >= 1.0 || square == 0.0);
        const double scale = std::sqrt(-2.0 * portable::ln(square) / square);
        spare_ = b * scale;
        spareReady_ = true;
        return a * scale;
    }

private:
    static u64 rotate(u64 x, int k) { return (x << k) | (x >> (64 - k)); }
    static u64 splitmix(u64& x)
    {
        x += 0x9E3779B97F4A7C15;
        u64 z = x;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EB;
        return z ^ (z >> 31);
    }

    u64 state_[4];
    double spare_ = 0.0;
    bool spareReady_ = false;
};

}  // namespace sim
