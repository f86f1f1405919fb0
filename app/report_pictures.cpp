#include "app/report_page.h"

#include "app/packet_time.h"
#include "app/plot.h"
#include "app/score.h"
#include "app/summary.h"

#include <algorithm>
#include <cmath>
#include <map>

namespace app {
namespace {

constexpr std::size_t POINTS_MAX = 3000;   // of one curve; a page stays readable and small
constexpr const char* BLUE = "lines lw 1.2 lc rgb '#2458a6'";
constexpr const char* DARK = "linespoints pt 7 ps 0.4 lw 1.4 lc rgb '#222222'";
constexpr const char* MASK_STYLES[] = {"lines lw 1.6 dt 2 lc rgb '#b03a2e'",
                                       "lines lw 1.6 dt 4 lc rgb '#1e8449'",
                                       "lines lw 1.6 dt 3 lc rgb '#7d3c98'",
                                       "lines lw 1.6 dt 5 lc rgb '#b9770e'",
                                       "lines lw 1.6 dt 6 lc rgb '#2e6f8e'"};

std::vector<std::pair<double, double>> series(const UnitRecording& unit, double Sample::*field, double from_s)
{
    std::vector<std::pair<double, double>> points;
    points.reserve(unit.samples.size());
    for (const Sample& s : unit.samples)
        if (s.t >= from_s) points.emplace_back(s.t / 3600.0, s.*field);
    return thinned(points, POINTS_MAX);
}

Plot overTime(const UnitRecording& unit, const char* title, const char* yLabel, double Sample::*field,
              double from_s = 0.0)
{
    return {title, "time, h", yLabel, false, {}, {{"", BLUE, series(unit, field, from_s)}}};
}

/// The divider moves by parts in a thousand million, so it is shown against where it ends.
Plot dividerPlot(const UnitRecording& unit, double from_s)
{
    std::vector<std::pair<double, double>> points = series(unit, &Sample::div, from_s);
    const double end = points.empty() ? 0.0 : points.back().second;
    for (auto& [t, value] : points) value = end > 0.0 ? (value / end - 1.0) * 1e9 : 0.0;
    char title[96];
    std::snprintf(title, sizeof title, "Divider, from the first lock on, against %.9f at the end", end);
    return {title, "time, h", "ppb", false, {}, {{"", BLUE, points}}};
}

/// Steps of one kind of state; names on the axis in the order of their first appearance.
template <typename Change>
Plot statePlot(const char* title, const std::vector<Change>& changes, double end_s)
{
    Plot plot{title, "time, h", "", false, {}, {}};
    Curve curve{"", "steps lw 2 lc rgb '#2458a6'", {}};
    std::map<std::string, double> level;
    for (const Change& c : changes) {
        if (!level.contains(c.name)) {
            const double next = static_cast<double>(level.size());
            level[c.name] = next;
            plot.yTics.emplace_back(c.name, next);
        }
        if (!curve.points.empty()) curve.points.emplace_back(c.t / 3600.0, curve.points.back().second);
        curve.points.emplace_back(c.t / 3600.0, level[c.name]);
    }
    if (!curve.points.empty()) curve.points.emplace_back(end_s / 3600.0, curve.points.back().second);
    curve.style = "lines lw 2 lc rgb '#2458a6'";
    plot.curves.push_back(std::move(curve));
    return plot;
}

Plot deviationPlot(const char* title, const std::vector<TauValue>& values,
                   std::span<const MaskSegment> Mask::*segments, std::span<const Mask> limits)
{
    Plot plot{title, "observation interval, s", "ns", true, {}, {}};
    Curve measured{"measured", DARK, {}};
    for (const TauValue& v : values)
        if (v.value > 0.0) measured.points.emplace_back(v.tau, v.value);
    if (measured.points.empty()) return plot;
    const double lastTau = values.back().tau;
    plot.curves.push_back(std::move(measured));
    std::size_t style = 0;
    for (const Mask& mask : limits) {
        Curve limit{mask.name, MASK_STYLES[style++ % std::size(MASK_STYLES)], {}};
        for (double tau = 1.0; tau <= lastTau * 1.0001; tau *= 1.12) {
            const double value = maskLimit(mask.*segments, tau);
            if (value >= 0.0) limit.points.emplace_back(tau, value);
        }
        plot.curves.push_back(std::move(limit));
    }
    return plot;
}

/// Time error of each holdover from its beginning, with the limit that a node's clock has.
Plot holdoverPlot(const UnitRecording& unit)
{
    Plot plot{"Time error in holdover, from its beginning",
              "time since the reference was lost, h",
              "ns",
              false,
              {},
              {}};
    constexpr const char* STYLES[] = {"lines lw 1.4 lc rgb '#2458a6'", "lines lw 1.4 lc rgb '#1e8449'",
                                      "lines lw 1.4 lc rgb '#7d3c98'"};
    double longest_h = 0.0;
    for (const Holdover& h : holdovers(unit)) {
        const Sample& begin = unit.samples[h.first];
        std::vector<std::pair<double, double>> points;
        for (std::size_t i = h.first; i <= h.last; ++i)
            points.emplace_back((unit.samples[i].t - begin.t) / 3600.0,
                                unit.samples[i].timeError_ns - begin.timeError_ns);
        longest_h = std::max(longest_h, h.seconds / 3600.0);
        plot.curves.push_back({"from " + clockText(begin.t), STYLES[plot.curves.size() % std::size(STYLES)],
                               thinned(points, POINTS_MAX)});
    }
    if (plot.curves.empty()) return plot;
    for (const double limit : {HOLDOVER_LIMIT_ns, -HOLDOVER_LIMIT_ns})
        plot.curves.push_back(
            {limit > 0 ? "1.5 us" : "", MASK_STYLES[0], {{0.0, limit}, {longest_h, limit}}});
    return plot;
}

void appendPlot(std::string& page, const Plot& plot)
{
    std::string reason;
    const std::string svg = drawSvg(plot, reason);
    if (svg.empty())
        page += "<p class=none>" + htmlText(plot.title) + ": " + htmlText(reason) + "</p>\n";
    else
        page += "<figure>" + svg + "</figure>\n";
}

/// What is scored: the time error of each locked stretch about its mean.
Plot scoredPlot(const UnitRecording& unit, const Scores& scores)
{
    Plot plot{"Time error, true, of each scored stretch about its mean", "time, h", "ns", false, {}, {}};
    for (const LockedSpan& span : scores.spans) {
        double mean_ns = 0.0;
        const double count = static_cast<double>(span.last - span.first + 1);
        for (std::size_t i = span.first; i <= span.last; ++i) mean_ns += unit.samples[i].timeError_ns / count;
        std::vector<std::pair<double, double>> points;
        for (std::size_t i = span.first; i <= span.last; ++i)
            points.emplace_back(unit.samples[i].t / 3600.0, unit.samples[i].timeError_ns - mean_ns);
        plot.curves.push_back({"", BLUE, thinned(points, POINTS_MAX)});
    }
    return plot;
}

/// From the first lock of the time on. A counter that hasn't been stepped to the leader's yet would hide
/// the rest.
Plot followingPlot(const UnitRecording& unit)
{
    constexpr double FARTHEST_ns = 1e5;
    Plot plot{
        "Counter against that of " + unit.leader + ", where within 100 us", "time, h", "ns", false, {}, {}};
    const auto locked = std::find_if(unit.states.begin(), unit.states.end(),
                                     [](const auto& c) { return isTimeLockedState(c.state); });
    if (locked == unit.states.end()) return plot;
    bool isOpen = false;
    for (const Sample& s : unit.samples) {           // no line over what is left out, NaN too
        const bool shown = s.t >= locked->t && std::abs(s.followError_ns) <= FARTHEST_ns;
        if (shown && !isOpen) plot.curves.push_back({"", BLUE, {}});
        if (shown) plot.curves.back().points.emplace_back(s.t / 3600.0, s.followError_ns);
        isOpen = shown;
    }
    for (Curve& c : plot.curves) c.points = thinned(c.points, POINTS_MAX);
    return plot;
}

/// Time error with the counters' steps taken out, and against GPS time from the last step on.
void appendTimeErrors(std::string& page, const UnitRecording& unit)
{
    UnitRecording smooth = unit;
    double stepped_ns = 0.0;
    double lastStep_s = -1.0;
    for (std::size_t i = 1; i < unit.samples.size(); ++i) {
        const Sample& before = unit.samples[i - 1];
        const Sample& after = unit.samples[i];
        if (isStep(before, after)) {
            stepped_ns += after.timeError_ns - before.timeError_ns;
            lastStep_s = after.t;
        }
        smooth.samples[i].timeError_ns -= stepped_ns;
    }
    const bool isStepped = lastStep_s >= 0.0;
    appendPlot(page, overTime(smooth,
                              isStepped ? "Time error, true, from the beginning, steps taken out"
                                        : "Time error, true, from the beginning",
                              "ns", &Sample::timeError_ns));
    constexpr double ALIGNED_ns = 1e9;               // others count frames from elsewhere
    if (isStepped && std::abs(unit.samples.back().gpsTimeError_ns) < ALIGNED_ns)
        appendPlot(page, overTime(unit, "Counter against GPS time, true, from the last step on", "ns",
                                  &Sample::gpsTimeError_ns, lastStep_s));
}

/// The limits that the error comes near to or exceeds: those within it, and the next one.
std::vector<double> limitsAbout(const PacketTime& p)
{
    std::vector<double> limits;
    for (const TimeClass& c : timeClasses())
        if (c.maxTe_ns > 0.0) limits.push_back(c.maxTe_ns);
    std::sort(limits.begin(), limits.end());
    const auto held = std::find_if(limits.begin(), limits.end(),
                                   [&p](double limit) { return limit >= p.maxTe_ns; });
    if (held != limits.end()) limits.erase(held + 1, limits.end());
    return limits;
}

Plot packetErrorPlot(const UnitRecording& unit, const PacketTime& p)
{
    Plot plot{"Time error while the time is a packet reference's", "time, h", "ns", false, {}, {}};
    for (const LockedSpan& span : p.spans) {
        std::vector<std::pair<double, double>> points;
        const std::vector<double> errors = timeErrors(unit, span);
        for (std::size_t i = span.first; i <= span.last; ++i)
            points.emplace_back(unit.samples[i].t / 3600.0, errors[i - span.first]);
        plot.curves.push_back({plot.curves.empty() ? "true" : "", BLUE, thinned(points, POINTS_MAX)});
    }
    const double begin_h = unit.samples[p.spans.front().first].t / 3600.0;
    const double end_h = unit.samples[p.spans.back().last].t / 3600.0;
    std::size_t style = 0;
    for (const double limit : limitsAbout(p)) {
        const char* const look = MASK_STYLES[style++ % std::size(MASK_STYLES)];
        std::string title;
        for (const TimeClass& c : timeClasses())
            if (c.maxTe_ns == limit) title = c.name;
        plot.curves.push_back({title, look, {{begin_h, limit}, {end_h, limit}}});
        plot.curves.push_back({"", look, {{begin_h, -limit}, {end_h, -limit}}});
    }
    return plot;
}

Mask named(const char* name, const Mask& mask) { return {name, mask.mtie, mask.tdev}; }

void appendPacketTime(std::string& page, const UnitRecording& unit, double interval_s)
{
    const PacketTime p = packetTime(unit, interval_s);
    if (p.spans.empty()) return;
    const Mask limits[] = {named("G.8273.2-A, B", *maskByName("G.8273.2-A")), *maskByName("G.8273.2-C"),
                           named("unit's mask", packetNetworkMask())};
    appendPlot(page, packetErrorPlot(unit, p));
    appendPlot(page, deviationPlot("MTIE of the time from packets, filtered with 0.1 Hz", p.mtie_ns,
                                   &Mask::mtie, limits));
    appendPlot(page, deviationPlot("TDEV of the time from packets, filtered with 0.1 Hz", p.tdev_ns,
                                   &Mask::tdev, limits));
}

void appendUnit(std::string& page, const UnitRecording& unit, const Recording& recording)
{
    const Scores scores = score(unit, recording.interval_s);
    page += "<h2>" + htmlText(unit.name) + "</h2>\n";
    appendPlot(page, statePlot("Radio clock state", unit.states, recording.virtual_s));
    appendPlot(page, statePlot("Regulator state", unit.regStates, recording.virtual_s));
    appendPlot(page, statePlot("Selected reference", unit.selected, recording.virtual_s));
    if (!unit.gpsStates.empty()) {
        appendPlot(page, statePlot("GPS receiver, as the unit sees it", unit.gpsStates, recording.virtual_s));
        appendPlot(page,
                   statePlot("GPS, as the main processor is told", unit.gpsStatuses, recording.virtual_s));
    }
    if (!unit.qualities.empty())
        appendPlot(page, statePlot("Quality level of the Ethernet reference, as the main processor is told",
                                   unit.qualities, recording.virtual_s));
    appendTimeErrors(page, unit);
    const Plot scored = scoredPlot(unit, scores);
    if (!scored.curves.empty()) appendPlot(page, scored);
    const Plot following = followingPlot(unit);
    if (!following.curves.empty()) appendPlot(page, following);
    // The warm-up would hide everything after it.
    const double lock_s = std::max(scores.timeToLock_s, 0.0);
    appendPlot(page, overTime(unit, "Frequency error, true, from the first lock on", "ppb",
                              &Sample::freqError_ppb, lock_s));
    appendPlot(page, dividerPlot(unit, lock_s));
    appendPlot(page, overTime(unit, "Oscillator temperature", "sensor, V", &Sample::temperature_V));
    const Plot inHoldover = holdoverPlot(unit);
    if (!inHoldover.curves.empty()) appendPlot(page, inHoldover);
    appendPlot(page,
               deviationPlot("MTIE of the longest locked stretch", scores.mtie_ns, &Mask::mtie, masks()));
    appendPlot(page,
               deviationPlot("TDEV of the longest locked stretch", scores.tdev_ns, &Mask::tdev, masks()));
    appendPacketTime(page, unit, recording.interval_s);
}

}  // namespace

void appendPictures(std::string& page, const Recording& recording)
{
    for (const UnitRecording& unit : recording.units) appendUnit(page, unit, recording);
}

}  // namespace app
