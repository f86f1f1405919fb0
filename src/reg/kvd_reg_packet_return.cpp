// The way back of a packet time reference that stays degraded though its path is quiet.
// The running variances of the delays have no window, and the clock's own course is in them: a long
// load is forgotten slowly, and a clock that locked while its oven still drifted would never be
// measured again. A window of the round trip holds neither, so it tells whether there is a load still.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/ose.h"
#include "reg/kvd_reg_packet_int.h"
#include "sig/tuiif_sig.h"

#include <cmath>

namespace {

constexpr u32 PATIENCE_ms = 900'000;             // degraded on a quiet path

u32 now_ms() { return static_cast<u32>(u64{ose::get_ticks()} * ose::system_tick() / 1000); }

/// The round trip's variance is that of both directions together.
bool isPathQuiet(packet::QuietPath& q, const PktTimeMsg& msg, double limit_s)
{
    const double meanDelay = packet::meanPathDelay(msg, msg);
    if (!packet::isRoundTripOk(meanDelay)) return false;
    const u64 seen = q.roundTrip.accumulators[q.roundTrip.older].n;
    const double variance = *packet::runningVariance(&q.roundTrip, {0.0, 2 * meanDelay});
    if (seen < packet::QUIET_WINDOW / 2) return false;   // few packets tell nothing
    return isUpTo(packet::PDV_SIGMAS * std::sqrt(variance), limit_s);
}

}  // namespace

packet::WayBack packet::watchQuietPath(QuietPath& q, const PktTimeMsg& msg, double limit_s)
{
    const u32 now = now_ms();
    const bool isDegraded = needs().refState() == KVD_TUIIF_REF_DEGRADED;
    const bool isQuiet = isPathQuiet(q, msg, limit_s);
    if (!isDegraded && now - q.resumedAt_ms > PATIENCE_ms) q.isResumed = false;
    if (!isDegraded || !isQuiet) q.since_ms = now;
    if (now - q.since_ms < PATIENCE_ms) return WayBack::None;

    const WayBack way = q.isResumed ? WayBack::Estimate : WayBack::Variances;
    KVD_TRACE(TRACE_PTPTIME_REF, TRACE_INFO, "PTP time sync ref degraded on a quiet path: %s",
              q.isResumed ? "the estimate begins anew" : "its delays are judged anew");
    q.isResumed = true;
    q.since_ms = q.resumedAt_ms = now;
    return way;
}
