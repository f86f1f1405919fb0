// Variances of packet delays: from second differences, and running.
#include "base/trace_groups.h"
#include "node/trace.h"
#include "reg/kvd_reg_packet_int.h"

#include <algorithm>
#include <cmath>

namespace packet {

void takeSample(SecondDifference& v, double x0)
{
    v.x0 = x0;
    if (v.skip != 0) {
        v.skip = 0;
    } else {
        const double d = v.x0 - 2 * v.x1 + v.x2;
        if (std::fabs(d) < v.limit) {
            v.ring[v.idx] = d * d;
            if (++v.idx == v.size) {
                v.full = 1;
                v.idx = 0;
            }
        } else {
            v.skip = 1;                  // the sample after a jump sees it too
        }
    }
    v.x2 = v.x1;
    v.x1 = v.x0;

    constexpr u32 ENTRIES_MIN = 4;
    const u32 entries = v.full != 0 ? v.size : v.idx;
    if (v.full == 0 && entries < ENTRIES_MIN) return;
    double sum = 0.0;
    for (u32 i = 0; i < entries; ++i) sum += v.ring[i];
    v.var = sum / (6.0 * (entries - 2));     // a second difference has six times the variance
}

bool varianceJumpCheck(SecondDifference& v, double* ratio)
{
    constexpr u32 LATEST = 20;
    if (v.full == 0) return false;
    double sum = 0.0;
    for (u32 i = 1; i <= LATEST; ++i) sum += v.ring[(v.idx + v.size - i) % v.size];
    const double mean = sum / 108.0;         // 6 x (20 - 2)
    if (mean == 0.0) return false;
    const double change = std::log10(v.var / mean);
    if (!(change > 4.0 || change < -1.0)) return false;
    KVD_TRACE(TRACE_PTPTIME_REF, TRACE_3, "Major change in variance, %f", change);
    if (ratio != nullptr) *ratio = change;
    v.idx = 0;
    v.full = 0;
    return true;
}

void startLong(SecondDifference& v)
{
    v = {};
    v.var = 2e-11 / std::sqrt(2.0);
    v.ring[0] = 6 * v.var;
    v.ring[1] = 6 * v.var;
    v.idx = 2;
}

namespace {

void take(RunningVariance::Accumulator& a, TimePair x)
{
    if (++a.n == 1) {
        a.mean = x;
        return;
    }
    const double fromBefore = difference(x, a.mean);
    a.mean = moved(a.mean, fromBefore / static_cast<double>(a.n));
    a.sum += fromBefore * difference(x, a.mean);
}

}  // namespace

const double* runningVariance(RunningVariance* v, TimePair x)
{
    if (v == nullptr) {
        KVD_TRACE(TRACE_PTPTIME_REF, TRACE_ERROR, "Check: handle is NULL pointer");
        return nullptr;
    }
    RunningVariance::Accumulator& older = v->accumulators[v->older];
    const u64 window = static_cast<u64>(std::max(v->window, 0));
    if (window > 0 && older.n >= window / 2) take(v->accumulators[1 - v->older], x);
    take(older, x);
    v->variance = older.n == 1 ? 0.0 : older.sum / static_cast<double>(older.n - 1);
    if (window > 0 && older.n >= window) {
        older = {};
        v->older = 1 - v->older;
    }
    return &v->variance;
}

void resetRunningVariance(RunningVariance* v)
{
    if (v == nullptr) return;
    v->accumulators = {};
    v->older = 0;
    v->variance = 0;
}

}  // namespace packet
