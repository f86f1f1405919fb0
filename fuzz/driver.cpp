// driver.cpp - Feeds a fuzz target with random inputs from a seed: the same inputs at each run.
//     fuzz_signals --inputs 100000 --seed 7
#include "sim/clock/random.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

int main(int argc, char** argv)
{
    u64 inputs = 2000;
    u64 seed = 1;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--inputs") == 0) inputs = std::strtoull(argv[i + 1], nullptr, 10);
        if (std::strcmp(argv[i], "--seed") == 0) seed = std::strtoull(argv[i + 1], nullptr, 10);
    }
    constexpr u64 LONGEST = 400;
    for (u64 n = 0; n < inputs; ++n) {
        // A stream an input, so that a failing one can be run alone.
        sim::Random random(seed, "fuzz" + std::to_string(n));
        std::vector<unsigned char> bytes(random.bits() % LONGEST);
        for (unsigned char& b : bytes) b = static_cast<unsigned char>(random.bits());
        std::fprintf(stderr, "\rinput %llu", static_cast<unsigned long long>(n));
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::fprintf(stderr, "\n%llu inputs, seed %llu: none failed\n", static_cast<unsigned long long>(inputs),
                 static_cast<unsigned long long>(seed));
    return 0;
}
