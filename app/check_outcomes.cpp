#include "app/check_outcomes.h"

#include "app/pm_periods.h"
#include "app/score.h"
#include "app/summary.h"
#include "reg/kvd_reg.h"
#include "sim/node/main_processor.h"

#include <algorithm>
#include <cstdarg>

namespace app {
namespace {

std::string format(const char* text, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* text, ...)
{
    char line[256];
    va_list arguments;
    va_start(arguments, text);
    std::vsnprintf(line, sizeof line, text, arguments);
    va_end(arguments);
    return line;
}

/// A count between the check's bounds.
Outcome counted(u64 count, const CheckSpec& c, std::string detail)
{
    Outcome o{count >= c.least && count <= c.most, std::move(detail), static_cast<double>(count)};
    o.least = static_cast<double>(c.least);
    if (c.most < static_cast<u64>(INT64_MAX)) o.most = static_cast<double>(c.most);
    o.of = "times";
    return o;
}

std::string timesBetween(u64 count, const CheckSpec& c)
{
    return format("%llu times from %s to %s", static_cast<unsigned long long>(count),
                  clockText(c.from_s).c_str(), clockText(c.to_s).c_str());
}

/// A measured value that mustn't exceed the check's limit.
Outcome within(double value, const char* of, const CheckSpec& c, std::string detail, bool any = true)
{
    Outcome o{any && value <= c.limit, std::move(detail)};
    if (any) o.value = value;
    o.most = c.limit;
    o.of = of;
    return o;
}

/// The last change at or before `t`; nullptr before the first.
template <typename Change>
const Change* at(const std::vector<Change>& changes, double t)
{
    const Change* last = nullptr;
    for (const Change& c : changes)
        if (c.t <= t) last = &c;
    return last;
}

template <typename Change>
Outcome isAt(const std::vector<Change>& changes, u8 Change::*value, double t, u8 wanted,
             const char* wantedName)
{
    const Change* const c = at(changes, t);
    const std::string is = c != nullptr ? c->name : "nothing";
    return {c != nullptr && c->*value == wanted,
            format("%s at %s, wanted %s", is.c_str(), clockText(t).c_str(), wantedName)};
}

/// What a report has to be for a check to count it; what the check doesn't name may be anything.
bool isMeant(const SocpriReport& r, const CheckSpec& c)
{
    return r.t >= c.from_s && r.t <= c.to_s && r.sigNo == c.socpriSigNo && (!c.port || *c.port == r.port)
           && (!c.status || *c.status == r.status);
}

/// Each text behind the one before it.
Outcome inOrder(const std::string& output, const std::vector<std::string>& texts)
{
    std::size_t from = 0;
    for (const std::string& text : texts) {
        const std::size_t found = output.find(text, from);
        if (found == std::string::npos) return {false, "'" + text + "' doesn't follow"};
        from = found + text.size();
    }
    return {true, format("all %zu in order", texts.size())};
}

/// So many entries with that text in one of their fields between two times.
template <typename Entry>
Outcome entries(const std::vector<Entry>& all, std::string Entry::*field, const CheckSpec& c)
{
    const auto count = static_cast<u64>(std::count_if(all.begin(), all.end(), [&](const Entry& e) {
        return e.t >= c.from_s && e.t <= c.to_s && e.*field == c.text;
    }));
    return counted(count, c, timesBetween(count, c));
}

Outcome largestError(const UnitRecording& u, const CheckSpec& c, bool time)
{
    double largest = 0.0;
    double origin = 0.0;
    bool any = false;
    for (const Sample& s : u.samples) {
        if (s.t < c.from_s || s.t > c.to_s) continue;
        if (!any) origin = time ? s.timeError_ns : 0.0;
        any = true;
        largest = std::max(largest, std::abs((time ? s.timeError_ns : s.freqError_ppb) - origin));
    }
    const char* const unit = time ? "ns" : "ppb";
    return within(largest, unit, c,
                  format("%.4g %s from %s to %s, at most %g", largest, unit, clockText(c.from_s).c_str(),
                         clockText(c.to_s).c_str(), c.limit), any);
}

Outcome against(double Sample::*error, const char* missing, const UnitRecording& u, const CheckSpec& c)
{
    double largest = 0.0;
    std::size_t count = 0;
    for (const Sample& s : u.samples) {
        if (s.t < c.from_s || s.t > c.to_s || std::isnan(s.*error)) continue;
        largest = std::max(largest, std::abs(s.*error));
        ++count;
    }
    return within(largest, "ns", c,
                  count > 0 ? format("%.4g ns from %s to %s, at most %g", largest,
                                     clockText(c.from_s).c_str(), clockText(c.to_s).c_str(), c.limit)
                            : missing,
                  count > 0);
}

}  // namespace

Outcome gpsStatusAt(const UnitRecording& u, const CheckSpec& c)
{
    const GpsStatus* const told = at(u.gpsStatuses, c.from_s);
    const std::string is = told != nullptr ? told->name : "nothing told";
    return {
        told != nullptr && told->name == c.text,
        format("'%s' at %s, wanted '%s'", is.c_str(), clockText(c.from_s).c_str(), c.text.c_str())};
}

Outcome gpsTold(const UnitRecording& u, const CheckSpec& c)
{
    u64 count = 0;
    for (const GpsStatus& told : u.gpsStatuses)
        if (told.t >= c.from_s && told.t <= c.to_s && told.name == c.text) ++count;
    return counted(count, c, timesBetween(count, c));
}

Outcome gpsReaches(const UnitRecording& u, const CheckSpec& c)
{
    for (const StateChange& change : u.gpsStates)
        if (change.state == c.states[0] && change.t >= c.from_s && change.t <= c.to_s)
            return {true, format("at %s", clockText(change.t).c_str())};
    return {false, format("%s not entered between %s and %s", sim::gpsStateName(c.states[0]),
                          clockText(c.from_s).c_str(), clockText(c.to_s).c_str())};
}

Outcome socpriTold(const UnitRecording& u, const CheckSpec& c)
{
    const auto count = static_cast<u64>(
        std::count_if(u.socpriReports.begin(), u.socpriReports.end(),
                      [&](const SocpriReport& r) { return isMeant(r, c); }));
    return counted(count, c, timesBetween(count, c));
}

/// What the command printed holds the text often enough, or the texts in their order.
Outcome printed(const UnitRecording& u, const CheckSpec& c)
{
    for (const CommandOutput& o : u.outputs) {
        if (o.line != c.command || std::abs(o.t - c.from_s) > 1e-9) continue;
        if (!c.texts.empty()) return inOrder(o.output, c.texts);
        u64 count = 0;
        for (std::size_t i = o.output.find(c.text); i != std::string::npos; i = o.output.find(c.text, i + 1))
            ++count;
        return counted(count, c, format("result %d, '%s' %llu times", o.result, c.text.c_str(),
                                        static_cast<unsigned long long>(count)));
    }
    return {false, "the command didn't end"};
}

Outcome reaches(const UnitRecording& u, const CheckSpec& c)
{
    for (const StateChange& change : u.states)
        if (change.state == c.states[0] && change.t >= c.from_s && change.t <= c.to_s)
            return {true, format("at %s", clockText(change.t).c_str())};
    return {false, format("%s not entered between %s and %s", sim::clockStateName(c.states[0]),
                          clockText(c.from_s).c_str(), clockText(c.to_s).c_str())};
}

Outcome sequence(const UnitRecording& u, const CheckSpec& c)
{
    std::string was;
    for (const StateChange& change : u.states) was += (was.empty() ? "" : ", ") + change.name;
    const bool same =
        std::equal(u.states.begin(), u.states.end(), c.states.begin(), c.states.end(),
                   [](const StateChange& change, u8 state) { return change.state == state; });
    return {same, was};
}

Outcome errorAboutMean(const UnitRecording& u, const CheckSpec& c)
{
    double sum = 0.0;
    std::size_t count = 0;
    double lowest = 0.0;
    double highest = 0.0;
    for (const Sample& s : u.samples) {
        if (s.t < c.from_s || s.t > c.to_s) continue;
        lowest = count == 0 ? s.timeError_ns : std::min(lowest, s.timeError_ns);
        highest = count == 0 ? s.timeError_ns : std::max(highest, s.timeError_ns);
        sum += s.timeError_ns;
        ++count;
    }
    const double mean = count > 0 ? sum / static_cast<double>(count) : 0.0;
    const double largest = std::max(highest - mean, mean - lowest);
    return within(largest, "ns", c,
                  format("%.4g ns about the mean from %s to %s, at most %g", largest,
                         clockText(c.from_s).c_str(), clockText(c.to_s).c_str(), c.limit), count > 0);
}

Outcome underMask(const UnitRecording& u, const CheckSpec& c)
{
    const Mask& mask = *maskByName(c.text);
    const std::vector<TauValue> values = mtieBetween(u, c.interval_s, c.from_s, c.to_s);
    if (values.empty()) return {false, "no locked stretch to score"};
    const TauValue* const above = aboveMask(values, mask.mtie);
    const TauValue& worst = above != nullptr ? *above : nearestToMask(values, mask.mtie);
    const double limit = maskLimit(mask.mtie, worst.tau);
    Outcome o{above == nullptr, "MTIE within " + c.text, worst.value};
    if (above != nullptr)
        o.detail = format("MTIE %.1f ns at %g s, limit %.1f", worst.value, worst.tau, limit);
    if (limit >= 0.0) o.most = limit;
    o.of = "ns";
    return o;
}

Outcome dividerKept(const UnitRecording& u, const CheckSpec& c)
{
    const auto sampleAt = [&](double t) -> const Sample* {
        for (const Sample& s : u.samples)
            if (s.t >= t) return &s;
        return nullptr;
    };
    const Sample* const a = sampleAt(c.from_s);
    const Sample* const b = sampleAt(c.to_s);
    if (a == nullptr || b == nullptr) return {false, "no sample then"};
    const double moved = std::abs(b->div - a->div);
    return {moved <= c.limit, format("moved by %.3g, at most %g", moved, c.limit)};
}

Outcome clockAt(const UnitRecording& u, const CheckSpec& c)
{
    return isAt(u.states, &StateChange::state, c.from_s, c.states[0], sim::clockStateName(c.states[0]));
}
Outcome regStateAt(const UnitRecording& u, const CheckSpec& c)
{
    return isAt(u.regStates, &StateChange::state, c.from_s, c.states[0],
                KvdLoz6TuReg_regStateText(c.states[0]));
}
Outcome selectedAt(const UnitRecording& u, const CheckSpec& c)
{
    return isAt(u.selected, &Selection::refType, c.from_s, c.states[0], sim::refTypeName(c.states[0]));
}
Outcome gpsStateAt(const UnitRecording& u, const CheckSpec& c)
{
    return isAt(u.gpsStates, &StateChange::state, c.from_s, c.states[0], sim::gpsStateName(c.states[0]));
}
Outcome gpsTypeAt(const UnitRecording& u, const CheckSpec& c)
{
    return isAt(u.gpsTypes, &StateChange::state, c.from_s, c.states[0], sim::gpssTypeName(c.states[0]));
}
Outcome qualityAt(const UnitRecording& u, const CheckSpec& c)
{
    return isAt(u.qualities, &StateChange::state, c.from_s, c.states[0],
                qualityLevelName(c.states[0]).c_str());
}
Outcome pduMissingAt(const UnitRecording& u, const CheckSpec& c)
{
    return isAt(u.pduAlarms, &StateChange::state, c.from_s, c.states[0],
                c.states[0] != 0 ? "raised" : "cleared");
}

Outcome timeError(const UnitRecording& u, const CheckSpec& c) { return largestError(u, c, true); }
Outcome freqError(const UnitRecording& u, const CheckSpec& c) { return largestError(u, c, false); }
/// The counter against true GPS time, where somebody at the unit can know it.
Outcome gpsTimeError(const UnitRecording& u, const CheckSpec& c)
{
    return against(&Sample::gpsTimeError_ns, "the unit has no receiver", u, c);
}
Outcome followError(const UnitRecording& u, const CheckSpec& c)
{
    return against(&Sample::followError_ns, "the unit follows none", u, c);
}

Outcome errorsLogged(const UnitRecording& u, const CheckSpec& c)
{
    return entries(u.errors, &ErrorEntry::code, c);
}
Outcome testsFailed(const UnitRecording& u, const CheckSpec& c)
{
    return entries(u.failedTests, &FailedTest::name, c);
}

Outcome traced(const UnitRecording& u, const CheckSpec& c)
{
    const auto found = u.traceCounts.find(c.trace);
    const u64 count = found != u.traceCounts.end() ? found->second : 0;
    return counted(count, c, format("%llu times", static_cast<unsigned long long>(count)));
}

Outcome periodsReported(const UnitRecording& u, const CheckSpec& c)
{
    const PmVerdict verdict = pmPeriods(u, c);
    return {verdict.pass, verdict.detail};
}

}  // namespace app
