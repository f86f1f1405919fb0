// ref_ring.h - Ring of the last records, for printouts.
#pragma once
#include "base/assert.h"

#include <array>

/// A push into a full ring drops the oldest.
template <typename Record, u32 CAPACITY>
struct RefRing {
    std::array<Record, CAPACITY> slot{};
    u32 next = 0;
    u32 count = 0;
    void push(const Record& r)
    {
        slot[next] = r;
        next = (next + 1) % CAPACITY;
        if (count < CAPACITY) ++count;
    }
    const Record& oldest(u32 i) const
    {
        tuAssert(i < count);
        return slot[(next + CAPACITY - count + i) % CAPACITY];
    }
};
