#include "app/recording.h"

#include "app/score.h"

#include <algorithm>

namespace app {
namespace {

/// Spans in which every sample is locked and no step lies, the first SETTLING_s of each left out.
std::vector<LockedSpan> lockedSpans(const UnitRecording& unit, double interval_s)
{
    const std::size_t settling = static_cast<std::size_t>(std::ceil(SETTLING_s / interval_s));
    std::vector<LockedSpan> spans;
    std::size_t begin = 0;
    bool inside = false;
    for (std::size_t i = 0; i <= unit.samples.size(); ++i) {
        const bool locked = i < unit.samples.size() && isLockedState(unit.samples[i].radioClockState);
        const bool begins = locked && (!inside || isStep(unit.samples[i - 1], unit.samples[i]));
        if (inside && (!locked || begins) && i - begin > settling + 1)
            spans.push_back({begin + settling, i - 1});
        if (begins) begin = i;
        inside = locked;
    }
    return spans;
}

void add(Extremes& e, double value)
{
    e.max = std::max(e.max, std::abs(value));
    e.rms += value * value;
}

void finish(Extremes& e, std::size_t count)
{
    if (count > 0) e.rms = std::sqrt(e.rms / static_cast<double>(count));
}

double meanTimeError_ns(const UnitRecording& unit, const LockedSpan& span)
{
    const double origin_ns = unit.samples[span.first].timeError_ns;
    double sum = 0.0;
    for (std::size_t i = span.first; i <= span.last; ++i) sum += unit.samples[i].timeError_ns - origin_ns;
    return origin_ns + sum / static_cast<double>(span.last - span.first + 1);
}

bool isHoldoverState(u8 radioClockState)
{
    constexpr u8 FREQUENCY_HOLDOVER = 4, TIME_OFFSET_HOLDOVER = 9, RNT_TIME_HOLDOVER = 11;
    return radioClockState == FREQUENCY_HOLDOVER || radioClockState == TIME_OFFSET_HOLDOVER
           || radioClockState == RNT_TIME_HOLDOVER;
}

/// nullptr when there is none.
const LockedSpan* longestOf(const std::vector<LockedSpan>& spans)
{
    const auto longest = std::ranges::max_element(spans, {},
                                                  [](const LockedSpan& s) { return s.last - s.first; });
    return longest != spans.end() ? &*longest : nullptr;
}

std::vector<double> timeErrorsOf(const UnitRecording& unit, const LockedSpan& span)
{
    std::vector<double> x;
    for (std::size_t i = span.first; i <= span.last; ++i) x.push_back(unit.samples[i].timeError_ns);
    return x;
}

void scoreLongestSpan(const UnitRecording& unit, double interval_s, Scores& scores)
{
    const LockedSpan* const longest = longestOf(scores.spans);
    if (longest == nullptr) return;
    const std::vector<double> x = timeErrorsOf(unit, *longest);
    const std::vector<double> taus = observationIntervals(x.size(), interval_s);
    scores.mtieFrom_s = unit.samples[longest->first].t;
    scores.mtieTo_s = unit.samples[longest->last].t;
    scores.mtie_ns = mtie(x, interval_s, taus);
    scores.tdev_ns = tdev(x, interval_s, taus);
}

}  // namespace

std::string qualityLevelName(u8 ssm)
{
    struct Level { u8 ssm; const char* name; };
    constexpr Level LEVELS[] = {{2, "QL-PRC"}, {4, "QL-SSU-A"}, {8, "QL-SSU-B"}, {11, "QL-EEC1"},
                                {15, "QL-DNU"}, {255, "none"}};
    for (const Level& l : LEVELS)
        if (l.ssm == ssm) return std::string(l.name) + " (" + std::to_string(ssm) + ")";
    return "code (" + std::to_string(ssm) + ")";
}

bool isStep(const Sample& before, const Sample& after)
{
    constexpr double SMALLEST_ns = 1000.0;   // a smaller one counts as time error
    const double rate_ppb = std::abs(before.freqError_ppb) + std::abs(after.freqError_ppb);
    return std::abs(after.timeError_ns - before.timeError_ns) > rate_ppb * (after.t - before.t) + SMALLEST_ns;
}

bool isLockedState(u8 radioClockState)
{
    constexpr u8 FREQUENCY_LOCKED = 3, TIME_OFFSET_LOCKED = 8, RNT_TIME_LOCKED = 10, SLAVE_FRAME_LOCKED = 16;
    return radioClockState == FREQUENCY_LOCKED || radioClockState == TIME_OFFSET_LOCKED
           || radioClockState == RNT_TIME_LOCKED || radioClockState == SLAVE_FRAME_LOCKED;
}

bool isTimeLockedState(u8 radioClockState)
{
    constexpr u8 RNT_TIME_LOCKED = 10, SLAVE_FRAME_LOCKED = 16;
    return radioClockState == RNT_TIME_LOCKED || radioClockState == SLAVE_FRAME_LOCKED;
}

std::vector<Holdover> holdovers(const UnitRecording& unit)
{
    std::vector<Holdover> found;
    bool inside = false;
    for (std::size_t i = 0; i < unit.samples.size(); ++i) {
        const bool holdover = isHoldoverState(unit.samples[i].radioClockState);
        if (holdover && !inside) found.push_back({i, i, 0.0, 0.0});
        if (holdover) {
            Holdover& h = found.back();
            h.last = i;
            h.seconds = unit.samples[i].t - unit.samples[h.first].t;
            h.drift_ns = unit.samples[i].timeError_ns - unit.samples[h.first].timeError_ns;
        }
        inside = holdover;
    }
    return found;
}

bool isHigh(const PdvSample& pdv) { return std::max(pdv.down_ns, pdv.up_ns) > pdv.limit_ns; }

std::vector<Degradation> degradations(const UnitRecording& unit)
{
    std::vector<Degradation> found;
    std::size_t selected = 0;
    bool inside = false;
    for (const Sample& s : unit.samples) {
        while (selected < unit.selected.size() && unit.selected[selected].t <= s.t) ++selected;
        if (s.isDegraded && !inside)
            found.push_back({s.t, s.t, selected > 0 ? unit.selected[selected - 1].name : "NO_REF", {}});
        inside = s.isDegraded;
        if (!inside) continue;
        Degradation& d = found.back();
        d.to_s = s.t;
        d.pdv.down_ns = std::fmax(d.pdv.down_ns, s.pdv.down_ns);   // a number, where one of them is
        d.pdv.up_ns = std::fmax(d.pdv.up_ns, s.pdv.up_ns);
        d.pdv.limit_ns = std::fmax(d.pdv.limit_ns, s.pdv.limit_ns);
    }
    return found;
}

std::optional<double> holdoverError_ns(const UnitRecording& unit, const Holdover& holdover, double seconds)
{
    if (holdover.seconds < seconds) return std::nullopt;
    const Sample& begin = unit.samples[holdover.first];
    double largest = 0.0;
    for (std::size_t i = holdover.first; i <= holdover.last; ++i) {
        const Sample& s = unit.samples[i];
        if (s.t - begin.t > seconds) break;
        largest = std::max(largest, std::abs(s.timeError_ns - begin.timeError_ns));
    }
    return largest;
}

bool Recording::passed() const
{
    return misuses.empty()
           && std::all_of(checks.begin(), checks.end(), [](const CheckResult& c) { return c.pass; });
}

Scores score(const UnitRecording& unit, double interval_s)
{
    Scores scores;
    for (const StateChange& change : unit.states) {
        if (!isLockedState(change.state)) continue;
        scores.timeToLock_s = change.t;
        break;
    }
    scores.spans = lockedSpans(unit, interval_s);
    std::size_t count = 0;
    std::size_t followed = 0;
    for (const LockedSpan& span : scores.spans) {
        const double origin_ns = unit.samples[span.first].timeError_ns;
        const double mean_ns = meanTimeError_ns(unit, span);
        for (std::size_t i = span.first; i <= span.last; ++i, ++count) {
            add(scores.timeError_ns, unit.samples[i].timeError_ns - origin_ns);
            add(scores.aboutMean_ns, unit.samples[i].timeError_ns - mean_ns);
            add(scores.freqError_ppb, unit.samples[i].freqError_ppb);
            const Sample& s = unit.samples[i];
            if (std::isnan(s.followError_ns) || !isTimeLockedState(s.radioClockState)) continue;
            add(scores.following_ns, s.followError_ns);
            ++followed;
        }
    }
    finish(scores.timeError_ns, count);
    finish(scores.aboutMean_ns, count);
    finish(scores.freqError_ppb, count);
    finish(scores.following_ns, followed);
    scores.followed_s = static_cast<double>(followed) * interval_s;
    scores.scored_s = static_cast<double>(count) * interval_s;
    scoreLongestSpan(unit, interval_s, scores);
    return scores;
}

std::vector<TauValue> mtieBetween(const UnitRecording& unit, double interval_s, double from_s, double to_s)
{
    std::vector<LockedSpan> spans;
    for (LockedSpan span : lockedSpans(unit, interval_s)) {
        while (span.first < span.last && unit.samples[span.first].t < from_s) ++span.first;
        while (span.first < span.last && unit.samples[span.last].t > to_s) --span.last;
        if (span.first < span.last) spans.push_back(span);
    }
    const LockedSpan* const longest = longestOf(spans);
    if (longest == nullptr) return {};
    const std::vector<double> x = timeErrorsOf(unit, *longest);
    return mtie(x, interval_s, observationIntervals(x.size(), interval_s));
}

std::optional<double> timeToFormerState_s(const UnitRecording& unit, const Restart& restart)
{
    double end_s = std::numeric_limits<double>::infinity();   // the next restart
    for (const Restart& r : unit.restarts)
        if (r.started_s > restart.started_s) end_s = std::min(end_s, r.started_s);
    for (const StateChange& c : unit.states)
        if (c.t > restart.started_s && c.t <= end_s && c.state == restart.formerState)
            return c.t - restart.started_s;
    return {};
}

std::optional<double> errorAcrossGap_ns(const UnitRecording& unit, const Restart& restart)
{
    if (restart.used != FROM_PERSISTENT_MEMORY) return {};
    const Sample* before = nullptr;
    for (const Sample& s : unit.samples) {
        if (s.t <= restart.stopped_s) before = &s;
        else if (s.t > restart.used_s && before != nullptr) return s.timeError_ns - before->timeError_ns;
    }
    return {};
}

}  // namespace app
