// driver.cpp - Feeds a fuzz target with random inputs from a seed: the same inputs at each run.
//     fuzz_signals --inputs 100000 --seed 7
//     fuzz_signals --seed 7 --only 4711
#include "fuzz/input.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);
/// Of the sanitizers, where the target is built with them.
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace {

u64 seed = 1;
u64 current = 0;

void tellInput()
{
    std::fprintf(stderr, "\nfailed: --seed %llu --only %llu\n", static_cast<unsigned long long>(seed),
                 static_cast<unsigned long long>(current));
}

void onDeath(int signal)
{
    tellInput();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void runInput(u64 number)
{
    current = number;
    const std::vector<unsigned char> bytes = fuzz::inputOf(seed, number);
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv)
{
    u64 first = 0;
    u64 inputs = 2000;
    for (int i = 1; i + 1 < argc; i += 2) {
        const u64 value = std::strtoull(argv[i + 1], nullptr, 10);
        if (std::strcmp(argv[i], "--inputs") == 0) inputs = value;
        if (std::strcmp(argv[i], "--seed") == 0) seed = value;
        if (std::strcmp(argv[i], "--only") == 0) {
            first = value;
            inputs = 1;
        }
    }
    if (__sanitizer_set_death_callback != nullptr) __sanitizer_set_death_callback(tellInput);
    else std::signal(SIGSEGV, onDeath);
    std::signal(SIGABRT, onDeath);
    for (u64 n = first; n < first + inputs; ++n) runInput(n);
    std::fprintf(stderr, "%llu inputs, seed %llu: none failed\n", static_cast<unsigned long long>(inputs),
                 static_cast<unsigned long long>(seed));
    return 0;
}
