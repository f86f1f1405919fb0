// The global operators for the whole test program: they count and do what the default ones do.
#include "counted_new.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<u64> allocations{0};
}

u64 tests::heapAllocations() { return allocations; }

void* operator new(std::size_t size)
{
    ++allocations;
    void* at = std::malloc(size);
    if (at == nullptr) throw std::bad_alloc();
    return at;
}
void* operator new(std::size_t size, std::align_val_t align)
{
    ++allocations;
    const std::size_t a = static_cast<std::size_t>(align);
    void* at = std::aligned_alloc(a, (size + a - 1) / a * a);
    if (at == nullptr) throw std::bad_alloc();
    return at;
}
void operator delete(void* at) noexcept { std::free(at); }
void operator delete(void* at, std::size_t) noexcept { std::free(at); }
void operator delete(void* at, std::align_val_t) noexcept { std::free(at); }
void operator delete(void* at, std::size_t, std::align_val_t) noexcept { std::free(at); }
