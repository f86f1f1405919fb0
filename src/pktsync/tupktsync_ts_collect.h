// tupktsync_ts_collect.h - Gathers the stamps of one PTP exchange, which arrive in any order and from
// different sources, into sets by sequenceId.
// Owner   Kvd_loz6_tupktsync_proc. A buffer is part of its clock; nothing is allocated.
#pragma once
#include "ose/types.h"

#include <array>

/// Eight bytes as they come: a raw correctionField, seconds and ns, or seconds and 2^-32 s.
struct PtpStamp {
    u32 high = 0;
    u32 low = 0;
};

constexpr u32 TS_POSITIONS_MAX = 32;
constexpr u32 TS_PER_SET_MAX = 3;

struct TsPosition {
    std::array<PtpStamp, TS_PER_SET_MAX> stamps{};
    u16 sequenceId = 0;
    u16 mask = 0;                      // stamps present
};

struct TsBuffer {
    u32 userReference = 0;             // handed to the callback
    u16 size = 0;                      // positions, a power of two
    u16 TSperSet = 0;
    void (*TSready_cb)(u32 userReference, const TsPosition& set) = nullptr;
    std::array<TsPosition, TS_POSITIONS_MAX> positions{};
    u16 completeMask = 0;
    u16 occupancy = 0;
    u16 max_occupancy = 0;
    u16 mostRecentSeqId = 0;
    u32 discardedSeqIds = 0;           // sets thrown away incomplete
    u32 TSoverwrites = 0;
};

/// Sets a buffer up. A size that isn't a power of two is rounded up, at least to 2, at most to
/// TS_POSITIONS_MAX.
void TuPktsync_new_TS_buffer(TsBuffer& buffer, u32 userReference, u16 size, u16 TSperSet,
                             void (*TSready_cb)(u32, const TsPosition&));
/// Stores a stamp at position sequenceId >> shift; the callback runs when the set is complete. True
/// stored, false for a buffer that isn't set up or an index beyond the set.
bool TuPktsync_save_TS(TsBuffer& buffer, u16 sequenceId, u32 shift, u32 tsIndex, const PtpStamp& stamp);
void TuPktsync_clear_TS_buffer(TsBuffer& buffer);
