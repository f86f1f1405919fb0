// element_of.h - A place of an array that may not be there.
// Owner   stateless.
#pragma once
#include <cstddef>
#include <iterator>

/// nullptr beyond the end.
template <typename Array>
constexpr auto* elementOf(Array& array, std::size_t index)
{
    return index < std::size(array) ? &array[index] : nullptr;
}
