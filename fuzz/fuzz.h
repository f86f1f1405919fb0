// fuzz.h - What the fuzz targets share: a unit that serves many inputs, input taken piece by piece, signals
// made of it.
#pragma once
#include "sim/node/node.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <vector>

namespace fuzz {

using Input = std::span<const unsigned char>;

/// What must hold, or the input is a find.
inline void require(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "\n%s\n", what);
    std::abort();
}

/// Misuse of the kernel is a find; traces are made and not kept.
inline void watch(ose::World& world, sim::Node& node)
{
    world.onMisuse([](const ose::Misuse& misuse) {
        std::fprintf(stderr, "\nkernel misuse: %s\n", misuse.text().c_str());
        std::abort();
    });
    node.traces().setCapacity(0);
}

/// A target that serves `inputs` inputs; then it begins anew.
template <typename Target>
Target& serving(u32 inputs)
{
    static std::unique_ptr<Target> target;
    static u32 served = 0;
    if (!target || served == inputs) {
        target = std::make_unique<Target>();
        served = 0;
    }
    ++served;
    return *target;
}

// ---- input ----------------------------------------------------------------------------------------

/// The next bytes of the input, zeros behind its end.
template <typename T>
T take(Input& rest)
{
    T value{};
    const std::size_t count = std::min(sizeof value, rest.size());
    if (count > 0) std::memcpy(&value, rest.data(), count);
    rest = rest.subspan(count);
    return value;
}

/// So many octets, fewer at the input's end.
inline std::vector<u8> takeOctets(Input& rest, std::size_t count)
{
    count = std::min(count, rest.size());
    std::vector<u8> octets(rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(count));
    rest = rest.subspan(count);
    return octets;
}

// ---- signals --------------------------------------------------------------------------------------

using Bytes = std::vector<std::byte>;

/// A signal: its layout, or its number alone, and octets behind it.
template <typename Head>
Bytes signalOf(const Head& head, std::span<const u8> octets = {})
{
    Bytes signal(sizeof head + octets.size());
    std::memcpy(signal.data(), &head, sizeof head);
    if (!octets.empty()) std::memcpy(signal.data() + sizeof head, octets.data(), octets.size());
    return signal;
}

/// To a process of the unit, which must be there.
inline void inject(sim::Node& node, const char* process, std::span<const std::byte> signal, PROCESS from)
{
    const PROCESS pid = node.system().find(process);
    require(pid != 0, "the process is gone");
    node.system().inject(signal, pid, from);
}
constexpr const char* MANAGER = "Kvd_loz6_tumgr_proc";

}  // namespace fuzz
