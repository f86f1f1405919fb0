// mmio.h - Register access: one aligned 32-bit word at a time.
#pragma once
#include "node/platform.h"

namespace node {

inline u32  mmioRead(u32 address) { return platform().mmioRead(address); }
inline void mmioWrite(u32 address, u32 value) { platform().mmioWrite(address, value); }
/// Orders the writes before it against those after it on their way to the hardware.
inline void ioBarrier() { platform().ioBarrier(); }

}  // namespace node
