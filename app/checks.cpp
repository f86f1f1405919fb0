#include "app/checks.h"

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

struct Outcome { bool pass; std::string detail; };

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

Outcome gpsStatusAt(const UnitRecording& u, const sim::CheckSpec& c)
{
    const GpsStatus* const told = at(u.gpsStatuses, c.from_s);
    const std::string is = told != nullptr ? told->name : "nothing told";
    return {
        told != nullptr && told->name == c.text,
        format("'%s' at %s, wanted '%s'", is.c_str(), clockText(c.from_s).c_str(), c.text.c_str())};
}

Outcome gpsTold(const UnitRecording& u, const sim::CheckSpec& c)
{
    u64 count = 0;
    for (const GpsStatus& told : u.gpsStatuses)
        if (told.t >= c.from_s && told.t <= c.to_s && told.name == c.text) ++count;
    return {count >= c.least && count <= c.most,
            format("%llu times from %s to %s", static_cast<unsigned long long>(count),
                   clockText(c.from_s).c_str(), clockText(c.to_s).c_str())};
}

Outcome gpsReaches(const UnitRecording& u, const sim::CheckSpec& c)
{
    for (const StateChange& change : u.gpsStates)
        if (change.state == c.states[0] && change.t >= c.from_s && change.t <= c.to_s)
            return {true, format("at %s", clockText(change.t).c_str())};
    return {false, format("%s not entered between %s and %s", sim::gpsStateName(c.states[0]),
                          clockText(c.from_s).c_str(), clockText(c.to_s).c_str())};
}

/// What a report has to be for a check to count it; what the check doesn't name may be anything.
bool isMeant(const SocpriReport& r, const sim::CheckSpec& c)
{
    return r.t >= c.from_s && r.t <= c.to_s && r.sigNo == c.socpriSigNo && (!c.port || *c.port == r.port) &&
           (!c.status || *c.status == r.status);
}

Outcome socpriTold(const UnitRecording& u, const sim::CheckSpec& c)
{
    const auto count = static_cast<u64>(
        std::count_if(u.socpriReports.begin(), u.socpriReports.end(),
                      [&](const SocpriReport& r) { return isMeant(r, c); }));
    return {count >= c.least && count <= c.most,
            format("%llu times from %s to %s", static_cast<unsigned long long>(count),
                   clockText(c.from_s).c_str(), clockText(c.to_s).c_str())};
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

/// What the command printed holds the text often enough, or the texts in their order.
Outcome printed(const UnitRecording& u, const sim::CheckSpec& c)
{
    for (const CommandOutput& o : u.outputs) {
        if (o.line != c.line || std::abs(o.t - c.from_s) > 1e-9) continue;
        if (!c.texts.empty()) return inOrder(o.output, c.texts);
        u64 count = 0;
        for (std::size_t i = o.output.find(c.text); i != std::string::npos;
             i = o.output.find(c.text, i + 1))
            ++count;
        return {count >= c.least && count <= c.most,
                format("result %d, '%s' %llu times", o.result, c.text.c_str(),
                       static_cast<unsigned long long>(count))};
    }
    return {false, "the command didn't end"};
}

/// So many entries with that text in one of their fields between two times.
template <typename Entry>
Outcome entries(const std::vector<Entry>& all, std::string Entry::*field, const sim::CheckSpec& c)
{
    const auto count = static_cast<u64>(std::count_if(all.begin(), all.end(), [&](const Entry& e) {
        return e.t >= c.from_s && e.t <= c.to_s && e.*field == c.text;
    }));
    return {count >= c.least && count <= c.most,
            format("%llu times from %s to %s", static_cast<unsigned long long>(count),
                   clockText(c.from_s).c_str(), clockText(c.to_s).c_str())};
}

Outcome reaches(const UnitRecording& u, const sim::CheckSpec& c)
{
    for (const StateChange& change : u.states)
        if (change.state == c.states[0] && change.t >= c.from_s && change.t <= c.to_s)
            return {true, format("at %s", clockText(change.t).c_str())};
    return {false, format("%s not entered between %s and %s", sim::clockStateName(c.states[0]),
                          clockText(c.from_s).c_str(), clockText(c.to_s).c_str())};
}

Outcome sequence(const UnitRecording& u, const sim::CheckSpec& c)
{
    std::string was;
    for (const StateChange& change : u.states) was += (was.empty() ? "" : ", ") + change.name;
    const bool same =
        std::equal(u.states.begin(), u.states.end(), c.states.begin(), c.states.end(),
                   [](const StateChange& change, u8 state) { return change.state == state; });
    return {same, was};
}

Outcome largestError(const UnitRecording& u, const sim::CheckSpec& c, bool time)
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
    return {any && largest <= c.limit,
            format("%.4g %s from %s to %s, at most %g", largest, unit, clockText(c.from_s).c_str(),
                   clockText(c.to_s).c_str(), c.limit)};
}

Outcome against(double Sample::*error, const char* missing, const UnitRecording& u,
                const sim::CheckSpec& c)
{
    double largest = 0.0;
    std::size_t count = 0;
    for (const Sample& s : u.samples) {
        if (s.t < c.from_s || s.t > c.to_s || std::isnan(s.*error)) continue;
        largest = std::max(largest, std::abs(s.*error));
        ++count;
    }
    return {count > 0 && largest <= c.limit,
            count > 0 ? format("%.4g ns from %s to %s, at most %g", largest, clockText(c.from_s).c_str(),
                               clockText(c.to_s).c_str(), c.limit)
                      : missing};
}

Outcome errorAboutMean(const UnitRecording& u, const sim::CheckSpec& c)
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
    return {count > 0 && largest <= c.limit,
            format("%.4g ns about the mean from %s to %s, at most %g", largest,
                   clockText(c.from_s).c_str(), clockText(c.to_s).c_str(), c.limit)};
}

Outcome underMask(const UnitRecording& u, const Recording& recording, const sim::CheckSpec& c)
{
    const Mask* const mask = maskByName(c.text);
    if (mask == nullptr) return {false, "there is no mask '" + c.text + "'"};
    UnitRecording within = u;
    std::erase_if(within.samples, [&](const Sample& s) { return s.t < c.from_s || s.t > c.to_s; });
    const Scores scores = score(within, recording.interval_s);
    if (scores.mtie_ns.empty()) return {false, "no locked stretch to score"};
    const TauValue* const above = aboveMask(scores.mtie_ns, mask->mtie);
    if (above == nullptr) return {true, "MTIE within " + c.text};
    return {false, format("MTIE %.1f ns at %g s, limit %.1f", above->value, above->tau,
                          maskLimit(mask->mtie, above->tau))};
}

Outcome dividerKept(const UnitRecording& u, const sim::CheckSpec& c)
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

Outcome evaluate(const sim::CheckSpec& c, const UnitRecording& u, const Recording& recording,
                 const TraceCount& traces)
{
    switch (c.kind) {
    case sim::CheckKind::Clock:
        return isAt(u.states, &StateChange::state, c.from_s, c.states[0],
                    sim::clockStateName(c.states[0]));
    case sim::CheckKind::RegState:
        return isAt(u.regStates, &StateChange::state, c.from_s, c.states[0],
                    KvdLoz6TuReg_regStateText(c.states[0]));
    case sim::CheckKind::Selected:
        return isAt(u.selected, &Selection::refType, c.from_s, c.states[0],
                    sim::refTypeName(c.states[0]));
    case sim::CheckKind::GpsState:
        return isAt(u.gpsStates, &StateChange::state, c.from_s, c.states[0],
                    sim::gpsStateName(c.states[0]));
    case sim::CheckKind::GpsType:
        return isAt(u.gpsTypes, &StateChange::state, c.from_s, c.states[0],
                    sim::gpssTypeName(c.states[0]));
    case sim::CheckKind::Quality:
        return isAt(u.qualities, &StateChange::state, c.from_s, c.states[0],
                    qualityLevelName(c.states[0]).c_str());
    case sim::CheckKind::PduMissing:
        return isAt(u.pduAlarms, &StateChange::state, c.from_s, c.states[0],
                    c.states[0] != 0 ? "raised" : "cleared");
    case sim::CheckKind::GpsStatus: return gpsStatusAt(u, c);
    case sim::CheckKind::GpsTold:   return gpsTold(u, c);
    case sim::CheckKind::GpsReaches: return gpsReaches(u, c);
    case sim::CheckKind::PmPeriods: {
        const PmVerdict verdict = pmPeriods(u, c);
        return {verdict.pass, verdict.detail};
    }
    case sim::CheckKind::Command:   return printed(u, c);
    case sim::CheckKind::SocpriTold: return socpriTold(u, c);
    case sim::CheckKind::ErrorLog:   return entries(u.errors, &ErrorEntry::code, c);
    case sim::CheckKind::TestFailed: return entries(u.failedTests, &FailedTest::name, c);
    case sim::CheckKind::AboutMean: return errorAboutMean(u, c);
    case sim::CheckKind::GpsTime:
        return against(&Sample::gpsTimeError_ns, "the unit has no receiver", u, c);
    case sim::CheckKind::Following:
        return against(&Sample::followError_ns, "the unit follows none", u, c);
    case sim::CheckKind::Reaches:   return reaches(u, c);
    case sim::CheckKind::Sequence:  return sequence(u, c);
    case sim::CheckKind::TimeError: return largestError(u, c, true);
    case sim::CheckKind::FreqError: return largestError(u, c, false);
    case sim::CheckKind::Mask:      return underMask(u, recording, c);
    case sim::CheckKind::Divider:   return dividerKept(u, c);
    case sim::CheckKind::Trace: {
        const u64 count = traces(c.unit, c.text);
        return {count >= c.least && count <= c.most,
                format("%llu times", static_cast<unsigned long long>(count))};
    }
    }
    return {false, "unknown check"};
}

}  // namespace

std::vector<CheckResult> evaluateChecks(const sim::Scenario& scenario, const Recording& recording,
                                        const TraceCount& traces)
{
    std::vector<CheckResult> results;
    for (const sim::CheckSpec& c : scenario.checks) {
        const auto unit = std::find_if(recording.units.begin(), recording.units.end(),
                                       [&](const UnitRecording& u) { return u.name == c.unit; });
        const Outcome outcome = evaluate(c, *unit, recording, traces);
        results.push_back({c.unit, c.name, outcome.pass, outcome.detail});
    }
    return results;
}

}  // namespace app
