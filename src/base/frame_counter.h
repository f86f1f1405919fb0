// frame_counter.h - The unit's frame counter: radio frames of 10 ms in increments, turns of 4096 frames, 25
// turns.
#pragma once
#include "ose/types.h"

constexpr double INCREMENTS_PER_SECOND = 122880000.0;
constexpr double INCREMENTS_PER_FRAME = 1228800.0;
constexpr double SFN_PERIOD_s = 40.96;                     // a turn of the frame number, 4096 frames
constexpr double INCREMENTS_PER_PERIOD = 125829120000.0;   // of the counter's period
constexpr double PERIOD_s = 1024.0;

/// A counter that read `then` and reads `now` has begun a new turn since; both in the units of its period.
constexpr bool hasTurned(double now, double then, double period) { return now - then < -period / 2; }

constexpr u32 MFN_LAST = 24, SFN_LAST = 4095, INC_LAST = 1228799;
