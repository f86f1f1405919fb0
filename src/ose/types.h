// types.h - The integer and handle types that every layer uses.
#pragma once
#include <cstdint>

using u8  = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;
using u64 = std::uint64_t;
using i8  = std::int8_t;
using i16 = std::int16_t;
using i32 = std::int32_t;
using i64 = std::int64_t;

using SIGSELECT = u32;   // signal number, the first word of every signal
using PROCESS   = u32;   // process id, 0 is none
using BLOCK     = u32;   // id of a loaded program, 0 is none
using OSTIME    = u32;   // ms of kernel time
using TimerRef  = u32;   // a running timer, 0 while none runs
using AttachRef = u32;   // a supervision of a process, 0 is none

/// A signal as a program sees it: the buffer's first word is its number, its layout follows.
struct Signal {
    SIGSELECT sigNo;
};
