// assert.h - What can't be unless this program is wrong. A wrong index would write over a neighbour's state
// and be seen hours later, elsewhere; so it ends the program at its place, and the node starts it again.
#pragma once
#include "ose/ose.h"

constexpr u32 ERROR_ASSERT = 0x00DC'0001;   // code of the program's end

/// Ends the program, with file and line of the caller, unless it holds. Not for what others send.
constexpr void tuAssert(bool holds, const ose::Place& place = ose::Place::current())
{
    if (!holds) ose::error(ERROR_ASSERT, place);
}
