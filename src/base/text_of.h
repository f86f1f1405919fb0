// text_of.h - The text of a numbered value, from a table whose rows are the numbers.
#pragma once
#include "ose/types.h"

#include <cstddef>

template <std::size_t N>
constexpr const char* textOf(const char* const (&texts)[N], u32 value, const char* otherwise = "UNKNOWN")
{
    return value < N ? texts[value] : otherwise;
}
