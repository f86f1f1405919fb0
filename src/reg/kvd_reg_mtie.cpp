#include "reg/kvd_reg_mtie.h"

#include "base/trace_groups.h"
#include "node/trace.h"
#include "ose/module_data.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr u32 roomOf(u32 interval) { return static_cast<u32>(mtie::TAU[interval] * MTIE_RATE_MAX); }
constexpr u32 totalRoom()
{
    u32 sum = 0;
    for (u32 i = 0; i < mtie::INTERVALS; ++i) sum += roomOf(i);
    return sum;
}

struct State {
    MtieMask mask;
    std::array<double, mtie::WINDOW_MAX> samples{};
    std::array<double, totalRoom()> minPlaces{};   // the intervals' rooms, one after the other
    std::array<double, totalRoom()> maxPlaces{};
};
ose::ModuleData<State> s;

void mask_init(MtieMask& mask, u16 rate)
{
    mask = {};
    mask.rate = rate;
    const double* tau = mtie::TAU.data();
    for (mtie::TauRecord& record : mask.tauRecord) {
        record.rate = rate;
        record.tau = *tau++;
    }
}

/// The sample that the window of `count` samples began with.
double oldestOf(const MtieMask& mask, u32 count)
{
    return s->samples[(mask.next + mtie::WINDOW_MAX - count) % mtie::WINDOW_MAX];
}

u32 mask_add(MtieMask& mask, double z, u16 rate)
{
    if (rate != mask.rate) {
        mask_init(mask, rate);
        mask.filtered = z;
    } else if (mask.tauRecord.back().samples == 0) {
        mask.filtered = z;
    } else {
        mask.filtered = mtie::filter(mask.filtered, z, rate);
    }
    u32 exceeded = 0, offset = 0;
    for (u32 i = 0; i < mtie::INTERVALS; ++i) {
        mtie::TauRecord& record = mask.tauRecord[i];
        const double leaving = record.samples > 0 ? oldestOf(mask, record.samples) : 0.0;
        const double m = mtie::mtieAdd(record, mask.filtered, leaving, &s->minPlaces[offset],
                                       &s->maxPlaces[offset], roomOf(i));
        if (m > mtie::mtieLimit(record.tau)) exceeded = 1;
        offset += roomOf(i);
    }
    s->samples[mask.next] = mask.filtered;
    mask.next = (mask.next + 1) % mtie::WINDOW_MAX;
    KVD_TRACE(TRACE_TUREG_MTIE, TRACE_3, "%s( obj = 0x%p, z = %.9lf [sec] ) = %s", __func__,
              static_cast<const void*>(&mask), z, exceeded != 0 ? "exceeded" : "not exceeded");
    return exceeded;
}

}  // namespace

// ---- the window ---------------------------------------------------------------------------------

namespace mtie {

double mtieLimit(double tau)
{
    if (tau <= 1.3) return 1.975e-07;
    if (tau <= 2.4) return (75 * tau + 100) * 1e-9;
    return (1.1 * tau + 277) * 1e-9;
}

double filter(double filtered, double z, u16 rate)
{
    if (rate == 0) return z;               // no time passes by which to smooth
    const double w = 0.1 / (2 * static_cast<double>(rate));
    const double a = (1 - w) / (1 + w);
    return a * filtered + (1 - a) * z;
}

u32 windowSize(const TauRecord& record)
{
    const u32 n = static_cast<u32>(record.rate * record.tau);
    return std::min(n, static_cast<u32>(record.tau * MTIE_RATE_MAX));
}

namespace {

double oldest(const Queue& q, const double* places) { return places[q.first]; }

double newest(const Queue& q, const double* places, u32 room)
{
    return places[(q.first + q.count - 1) % room];
}

void dropOldest(Queue& q, u32 room)
{
    q.first = (q.first + 1) % room;
    --q.count;
}

void append(Queue& q, double* places, u32 room, double x)
{
    if (q.count == room) dropOldest(q, room);
    places[(q.first + q.count) % room] = x;
    ++q.count;
}

}  // namespace

double mtieAdd(TauRecord& record, double x, double leaving, double* minPlaces, double* maxPlaces, u32 room)
{
    Queue& lows = record.minList;
    Queue& highs = record.maxList;
    if (record.samples > 0 && record.samples >= windowSize(record)) {
        --record.samples;
        // A window with samples has at least one of them in each list.
        if (oldest(lows, minPlaces) == leaving) dropOldest(lows, room);
        if (oldest(highs, maxPlaces) == leaving) dropOldest(highs, room);
    }
    ++record.samples;
    while (lows.count > 0 && x < newest(lows, minPlaces, room)) --lows.count;
    append(lows, minPlaces, room, x);
    // An equal value takes the older one's place, and leaves with it.
    while (highs.count > 0 && x >= newest(highs, maxPlaces, room)) --highs.count;
    append(highs, maxPlaces, room, x);

    const double range = std::fabs(oldest(highs, maxPlaces) - oldest(lows, minPlaces));
    if (range > record.mtie) {
        record.mtie = range;
        KVD_TRACE(TRACE_TUREG_MTIE, TRACE_3, "MTIE( tau = %.9lf [sec] ) = %.9lf [sec]", record.tau,
                  record.mtie);
    }
    return record.mtie;
}

}  // namespace mtie

// ---- the object ---------------------------------------------------------------------------------

MtieMask* KvdLoz6TuReg_openMtieMask()
{
    mask_init(s->mask, 0);
    return &s->mask;
}

void KvdLoz6TuReg_closeMtieMask(MtieMask* handle)
{
    if (handle == &s->mask) mask_init(s->mask, 0);
}

MtieMask* KvdLoz6TuReg_resetMtieMask(MtieMask* handle)
{
    KvdLoz6TuReg_closeMtieMask(handle);
    return KvdLoz6TuReg_openMtieMask();
}

u32 KvdLoz6TuReg_addMtieMask(MtieMask* handle, double z, u16 rate)
{
    if (handle == nullptr || handle != &s->mask) return 0;
    return mask_add(*handle, z, rate);
}
