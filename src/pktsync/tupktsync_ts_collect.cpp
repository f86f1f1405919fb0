#include "pktsync/tupktsync_ts_collect.h"

#include "base/trace_groups.h"
#include "node/trace.h"

#include <algorithm>
#include <bit>

void TuPktsync_new_TS_buffer(TsBuffer& buffer, u32 userReference, u16 size, u16 TSperSet,
                             void (*TSready_cb)(u32, const TsPosition&))
{
    buffer = {};
    buffer.userReference = userReference;
    buffer.size = static_cast<u16>(std::clamp<u32>(std::bit_ceil(u32{size}), 2, TS_POSITIONS_MAX));
    if (buffer.size != size)
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_2, "Requested buffer size of %u changed to %u", size,
                  buffer.size);
    buffer.TSperSet = TSperSet;
    buffer.TSready_cb = TSready_cb;
    buffer.completeMask = static_cast<u16>((1u << TSperSet) - 1);
}

namespace {

bool isPlace(const TsBuffer& buffer, u32 tsIndex)
{
    if (buffer.size == 0)
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_ERROR, "TuPktsync_save_TS: no such timestamp buffer 0x%x",
                  buffer.userReference);
    else if (tsIndex >= buffer.TSperSet)
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_ERROR, "TuPktsync_save_TS: invalid tsIndex %u, max is %u",
                  tsIndex, buffer.TSperSet - 1u);
    else
        return true;
    return false;
}

TsPosition& positionOf(TsBuffer& buffer, u16 sequenceId, u32 shift)
{
    constexpr u32 SEQUENCE_BITS = 16;
    return buffer.positions[(u32{sequenceId} >> std::min(shift, SEQUENCE_BITS)) & (buffer.size - 1u)];
}

/// A free position is taken; one that another sequence holds loses what that one has stored.
void occupy(TsBuffer& buffer, TsPosition& at, u16 sequenceId)
{
    if (at.mask == 0) {
        ++buffer.occupancy;
        buffer.max_occupancy = std::max(buffer.max_occupancy, buffer.occupancy);
        buffer.mostRecentSeqId = sequenceId;
    } else if (at.sequenceId != sequenceId) {
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_2,
                  "TuPktsync_save_TS: userReference %u, sequenceId %u needs position already in use "
                  "by seqId %u; discarding old timestamps",
                  buffer.userReference, sequenceId, at.sequenceId);
        at.mask = 0;
        ++buffer.discardedSeqIds;
    }
    at.sequenceId = sequenceId;
}

void store(TsBuffer& buffer, TsPosition& at, u32 tsIndex, const PtpStamp& stamp)
{
    const u16 bit = static_cast<u16>(1u << tsIndex);
    if ((at.mask & bit) != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_2,
                  "TuPktsync_save_TS: userReference %u, sequenceId %u, tsIndex %u already saved; "
                  "writing over previous timestamp",
                  buffer.userReference, at.sequenceId, tsIndex);
        ++buffer.TSoverwrites;
    }
    at.mask |= bit;
    at.stamps[tsIndex] = stamp;
}

void complete(TsBuffer& buffer, TsPosition& at)
{
    buffer.TSready_cb(buffer.userReference, at);
    at.sequenceId = 0;
    at.mask = 0;
    --buffer.occupancy;
}

}  // namespace

bool TuPktsync_save_TS(TsBuffer& buffer, u16 sequenceId, u32 shift, u32 tsIndex, const PtpStamp& stamp)
{
    if (!isPlace(buffer, tsIndex)) return false;
    TsPosition& at = positionOf(buffer, sequenceId, shift);
    occupy(buffer, at, sequenceId);
    store(buffer, at, tsIndex, stamp);
    if (at.mask == buffer.completeMask) complete(buffer, at);
    return true;
}

void TuPktsync_clear_TS_buffer(TsBuffer& buffer)
{
    for (TsPosition& at : buffer.positions) at = {};
    buffer.occupancy = 0;
}
