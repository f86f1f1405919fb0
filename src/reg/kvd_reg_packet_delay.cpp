// From the stamps of packets to delays, floors and phase errors.
#include "base/kvd_math.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_packet_int.h"

#include <cmath>

namespace packet {

namespace {

constexpr double MASTER_SECONDS_TAKEN = 1389000000.0;   // January 2014
constexpr double NODE_SECONDS_TAKEN = 1000000000.0;
constexpr double NS = 1e-09;

double reduced(i64 seconds, double taken)
{
    const double s = static_cast<double>(seconds);
    return s > taken ? s - taken : s;
}

// Stamps come from the network: sums and differences of any two wrap.
i64 wrappingSum(i64 a, i64 b) { return static_cast<i64>(static_cast<u64>(a) + static_cast<u64>(b)); }
i64 wrappingDiff(i64 a, i64 b) { return static_cast<i64>(static_cast<u64>(a) - static_cast<u64>(b)); }

}  // namespace

TimePair moved(TimePair t, double by)
{
    const double f = t.f + by, whole = std::trunc(f);
    return {t.c + whole, f - whole};
}

TimePair delay21(const PktTimeMsg& p)
{
    return {reduced(p.T2_s, NODE_SECONDS_TAKEN) - reduced(p.T1_s, MASTER_SECONDS_TAKEN),
            (static_cast<double>(p.T2_ns) - p.T1_ns) * NS};
}

TimePair delay43(const PktTimeMsg& p)
{
    return {reduced(p.T3_s, NODE_SECONDS_TAKEN) - reduced(p.T4_s, MASTER_SECONDS_TAKEN),
            (static_cast<double>(p.T3_ns) - p.T4_ns) * NS};
}

double meanPathDelay(const PktTimeMsg& down, const PktTimeMsg& up)
{
    const double seconds = static_cast<double>(wrappingDiff(down.T2_s, down.T1_s))
                           + static_cast<double>(wrappingDiff(up.T4_s, up.T3_s));
    const double ns = (static_cast<double>(down.T2_ns) - down.T1_ns)
                      + (static_cast<double>(up.T4_ns) - up.T3_ns);
    return seconds / 2 + ns * NS / 2;
}

u16 packetRate(u32 syncIntervalMs)
{
    return syncIntervalMs == 0 ? u16{256} : nearestRate(1000.0 / syncIntervalMs);
}

u16 nearestRate(double perSecond)
{
    constexpr u16 RATES[] = {8, 16, 32, 64, 128};
    for (const u16 rate : RATES)
        if (perSecond < rate * 1.5) return rate;         // halfway to the next one
    return 256;
}

bool trackDelay(TimePair x, Floor& floor)
{
    constexpr double CLOSE = 2.5e-07;    // s
    bool keep = false;
    if (isBelow(x, floor.min)) {
        floor.min = x;
        keep = true;
    }
    if (isBelow(floor.min, floor.minMin)) floor.minMin = floor.min;
    if (isBelow(x, {floor.minMin.c, floor.minMin.f + CLOSE})) {
        floor.close = 1;
        keep = true;
    }
    return keep;
}

TimesOfPair timesOfPair(const PktTimeMsg& a, const PktTimeMsg& b, TimePair diff, double sfcPtpOffset)
{
    TimesOfPair t;
    t.local[0] = static_cast<double>(wrappingSum(a.T2_s, b.T3_s)) / 2 + diff.c;
    t.local[1] = (static_cast<double>(a.T2_ns) + b.T3_ns) * NS / 2 + diff.f;
    t.reference[0] = static_cast<double>(wrappingSum(a.T1_s, b.T4_s)) / 2 - sfcPtpOffset;
    t.reference[1] = (static_cast<double>(a.T1_ns) + b.T4_ns) * NS / 2;
    return t;
}

double phaseError(const PktTimeMsg& a, const PktTimeMsg& b, double t_mod)
{
    const TimesOfPair t = timesOfPair(a, b, needs().packetCounterDiff(), needs().sfcPtpOffset());
    if (t_mod > KvdLoz6TuReg_getMod()) KvdLoz6TuReg_updateOffsetForNewMod(t.local, t.reference, t_mod);
    const TimePair delta0 = KvdLoz6TuReg_getOffset();
    const TimePair z = KvdLoz6Math_ldMod(t.local[0] - t.reference[0] - delta0.c,
                                         t.local[1] - t.reference[1] - delta0.f, t_mod);
    return z.c + z.f;
}

}  // namespace packet
