// counted_new.h - How often this test program has asked the heap for memory.
#pragma once
#include "ose/types.h"

namespace tests {

u64 heapAllocations();

}  // namespace tests
