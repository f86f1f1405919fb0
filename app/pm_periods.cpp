#include "app/pm_periods.h"

#include "app/summary.h"
#include "iif/kvd_pm.h"
#include "sig/ref_types.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <sstream>

namespace app {
namespace {

using Values = std::vector<i32>;

constexpr u8 GPS_FAULT = 2;
/// Bounds of the outages' classes, minutes.
constexpr std::array<double, 10> OUTAGES_min{3, 6, 12, 30, 60, 120, 240, 480, 1440, 4320};

/// The unit counts by whole seconds of its clock.
double whole(double t) { return std::floor(t + 1e-9); }

i32 secondsIn(const UnitRecording& u, std::initializer_list<u8> states, double from, double to)
{
    double sum = 0;
    for (std::size_t i = 0; i < u.states.size(); ++i) {
        if (std::find(states.begin(), states.end(), u.states[i].state) == states.end()) continue;
        const double begin = std::max(whole(u.states[i].t), whole(from));
        const double next = i + 1 < u.states.size() ? u.states[i + 1].t : to;
        sum += std::max(0.0, whole(std::min(next, to)) - begin);
    }
    return static_cast<i32>(sum);
}

u8 selectedAt(const UnitRecording& u, double t)
{
    u8 refType = NO_REF;
    for (const Selection& s : u.selected)
        if (s.t <= t) refType = s.refType;
    return refType;
}

/// Delay variations that an NTP reference can have: each share of the packets lies within the next.
bool areDelayVariations(const Values& v)
{
    return v.size() >= 4 && v[1] >= -2 && v[1] <= v[2] && v[2] <= v[3] && v[3] <= v[0];
}

Values synchValues(const UnitRecording& u, double from, const PmPeriod& p)
{
    if (p.suspect) return Values(8, -2);
    const bool measured = selectedAt(u, p.t) == NTP_REF && areDelayVariations(p.values);
    const Values none{-2, -2, -2, -2};
    const Values& v = measured ? p.values : none;
    return {v[0], v[1], v[2], v[3], secondsIn(u, {9, 11}, from, p.t), secondsIn(u, {3, 4}, from, p.t),
            secondsIn(u, {4}, from, p.t), secondsIn(u, {2, 5, 6}, from, p.t)};
}

/// Outages by length since the last subscription; one that ran already counts from there.
Values gpsValues(const UnitRecording& u, const PmPeriod& p)
{
    double since = 0;
    for (const PmSubscription& s : u.pmSubscriptions)
        if (s.froType == p.froType && s.t <= p.t) since = s.t;
    Values counts(OUTAGES_min.size() + 1, 0);
    u8 last = 0;
    double began = 0;
    for (const GpsStatus& told : u.gpsStatuses) {
        if (told.t > p.t || told.status == last) continue;
        const double elapsed_min = (whole(told.t) - whole(std::max(began, since))) / 60.0;
        if (last == GPS_FAULT && told.t >= since && elapsed_min > 0)
            ++counts[static_cast<std::size_t>(
                std::lower_bound(OUTAGES_min.begin(), OUTAGES_min.end(), elapsed_min) - OUTAGES_min.begin())];
        if (told.status == GPS_FAULT) began = told.t;
        last = told.status;
    }
    return counts;
}

std::string listed(const Values& values)
{
    std::ostringstream text;
    for (const i32 v : values) text << (text.tellp() > 0 ? " " : "") << v;
    return text.str();
}

}  // namespace

PmVerdict pmPeriods(const UnitRecording& unit, const CheckSpec& check)
{
    u64 wholePeriods = 0;
    double last = 0;
    i64 outages = 0;
    for (const PmPeriod& p : unit.pmPeriods) {
        if (p.froType != check.pmSet) continue;
        const double from = last;
        last = p.t;
        if (p.t < check.from_s || p.t > check.to_s) continue;
        const bool synch = p.froType == SYNC_PM_FROTYPE;
        const Values wanted = synch ? synchValues(unit, from, p) : gpsValues(unit, p);
        if (p.values != wanted)
            return {false,
                    "at " + clockText(p.t) + " " + listed(p.values) + ", the states say " + listed(wanted)};
        if (!p.suspect) ++wholePeriods;
        outages = 0;
        for (const i32 count : synch ? Values{} : wanted) outages += count;
    }
    std::string detail = std::to_string(wholePeriods) + " whole periods";
    if (check.pmSet == GPSSYNCREF_PM_FROTYPE)
        detail += ", " + std::to_string(outages) + " outages at the end";
    return {wholePeriods >= check.least && wholePeriods <= check.most, detail};
}

}  // namespace app
