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
    buffer.size = static_cast<u16>(
        std::clamp<u32>(std::bit_ceil(u32{size}), 2, TS_POSITIONS_MAX));
    if (buffer.size != size)
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_2, "Requested buffer size of %u changed to %u", size,
                  buffer.size);
    buffer.TSperSet = TSperSet;
    buffer.TSready_cb = TSready_cb;
    buffer.completeMask = static_cast<u16>((1u << TSperSet) - 1);
}

u32 TuPktsync_save_TS(TsBuffer& buffer, u16 sequenceId, u32 shift, u32 tsIndex,
                      const PtpStamp& stamp)
{
    if (buffer.size == 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_ERROR,
                  "TuPktsync_save_TS: no such timestamp buffer 0x%x", buffer.userReference);
        return 0;
    }
    if (tsIndex >= buffer.TSperSet) {
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_ERROR,
                  "TuPktsync_save_TS: invalid tsIndex %u, max is %u", tsIndex, buffer.TSperSet - 1u);
        return 0;
    }
    constexpr u32 SEQUENCE_BITS = 16;
    TsPosition& at =
        buffer.positions[(u32{sequenceId} >> std::min(shift, SEQUENCE_BITS)) & (buffer.size - 1u)];
    const bool isNew = at.mask == 0;
    if (!isNew && at.sequenceId != sequenceId) {
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_2,
                  "TuPktsync_save_TS: userReference %u, sequenceId %u needs position already in use "
                  "by seqId %u; discarding old timestamps",
                  buffer.userReference, sequenceId, at.sequenceId);
        at.mask = 0;
        ++buffer.discardedSeqIds;
    }
    at.sequenceId = sequenceId;
    const u16 bit = static_cast<u16>(1u << tsIndex);
    if ((at.mask & bit) != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_TS_COLLECT, TRACE_2,
                  "TuPktsync_save_TS: userReference %u, sequenceId %u, tsIndex %u already saved; "
                  "writing over previous timestamp",
                  buffer.userReference, sequenceId, tsIndex);
        ++buffer.TSoverwrites;
    }
    at.mask |= bit;
    at.stamps[tsIndex] = stamp;
    if (isNew) {
        ++buffer.occupancy;
        buffer.max_occupancy = std::max(buffer.max_occupancy, buffer.occupancy);
        buffer.mostRecentSeqId = sequenceId;
    }
    if (at.mask != buffer.completeMask) return 1;
    buffer.TSready_cb(buffer.userReference, at);
    at.sequenceId = 0;
    at.mask = 0;
    --buffer.occupancy;
    return 1;
}

void TuPktsync_clear_TS_buffer(TsBuffer& buffer)
{
    for (TsPosition& at : buffer.positions) at = {};
    buffer.occupancy = 0;
}
