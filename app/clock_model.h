// clock_model.h - What a unit's clock state has to be, by what its regulator, its loop and the main
// processor's orders are: a second answer to the question that the interface to the main processor answers,
// made of nothing of it.
#pragma once
#include "ose/types.h"

namespace app {

struct ClockFacts {
    bool master = true, timeMode = true;
    u8  selected = 1;                  // reference type; 1 is none
    u8  before = 1;                    // the one selected before
    u8  regState = 7;
    u32 pllState = 0;                  // of a loop on the output or radio link of another unit
    u32 slavePllState = 0;             // of a slave's loop
    bool tracksNothing = false;        // a synthesiser has no lock
    bool isRelaxed = false;            // the first day: locked a little earlier
    bool awaitsRadio = false;          // a radio link was followed before this start and isn't selected yet
};

/// Radio clock state; 7 (unknown) where none is due.
u8 expectedClock(const ClockFacts& facts);

}  // namespace app
