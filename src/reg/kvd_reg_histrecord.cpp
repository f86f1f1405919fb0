#include "reg/kvd_reg_histrecord.h"

#include "mgr/trace_groups.h"
#include "mgr/tu_common.h"
#include "node/bytes.h"
#include "node/trace.h"

#include <cmath>

namespace {
constexpr u32 WRITE_TIME_AT = 12;
constexpr u32 DOUBLES_FROM = 48;         // U[0]
constexpr u32 DOUBLES_TO = 432;          // behind T
}  // namespace

int KvdLoz6TuReg_validateHistory(const u8* record)
{
    const u32 version = node::be32(record);
    KVD_TRACE(TRACE_HIST, TRACE_INFO, " Flash file version = %x, accepts %x", version,
              HIST_RECORD_VERSION);
    if (version != HIST_RECORD_VERSION) {
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "New or old flash file version ");
        return 0;
    }
    KVD_TRACE(TRACE_HIST, TRACE_INFO, "Version OK ");
    for (u32 at = DOUBLES_FROM; at < DOUBLES_TO; at += 8) {
        if (!std::isnan(node::beDouble(record + at))) continue;
        const DateTime t = TuCommon_secondsToDate(node::be32(record + WRITE_TIME_AT));
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Reading data from flash memory with NaN values");
        KVD_TRACE(TRACE_HIST, TRACE_INFO, "Flash data: freqWriteTime=%d-%02d-%02d %02d:%02d:%02d",
                  t.year, t.month, t.day, t.hour, t.minute, t.second);
        return 0;
    }
    return 1;
}
