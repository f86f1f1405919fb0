// What the plots of a report are drawn from: the series on one time axis, changes of state, events,
// holdovers.
#include "app/packet_time.h"
#include "app/report_page.h"
#include "app/score.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <limits>

namespace app {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t STRETCHES_MAX = 4000;   // two rows each: a page stays quick and its extremes true

/// Some digits say as much and take half the room.
Json number(double value)
{
    if (!std::isfinite(value)) return nullptr;
    char text[32];
    std::snprintf(text, sizeof text, "%.9g", value);
    return std::strtod(text, nullptr);
}

/// The rows of the plots: a sample each, or two of a stretch of samples.
class Axis {
public:
    explicit Axis(const std::vector<Sample>& samples)
        : count_(samples.size()),
          stretch_(std::max<std::size_t>(1, (count_ + STRETCHES_MAX - 1) / STRETCHES_MAX))
    {
        for (std::size_t begin = 0; begin < count_; begin += stretch_) {
            times.push_back(number(samples[begin].t));
            if (stretch_ > 1 && begin + 1 < count_) times.push_back(number(samples[middle(begin)].t));
        }
    }

    /// A value for each row: of a stretch its lowest and its highest, in their order.
    template <typename Value>
    Json column(Value value) const
    {
        Json rows = Json::array();
        for (std::size_t begin = 0; begin < count_; begin += stretch_) {
            const std::size_t end = std::min(begin + stretch_, count_);
            std::size_t low = begin, high = begin;
            bool any = false;
            for (std::size_t i = begin; i < end; ++i) {
                const double v = value(i);
                if (std::isnan(v)) continue;
                if (!any || v < value(low)) low = i;
                if (!any || v > value(high)) high = i;
                any = true;
            }
            rows.push_back(any ? number(value(std::min(low, high))) : Json(nullptr));
            if (stretch_ > 1 && begin + 1 < count_)
                rows.push_back(any ? number(value(std::max(low, high))) : Json(nullptr));
        }
        return rows;
    }

    Json times = Json::array();

private:
    std::size_t middle(std::size_t begin) const { return std::min(begin + stretch_ / 2, count_ - 1); }

    std::size_t count_, stretch_;
};

template <typename Change>
void addLane(Json& lanes, const char* name, const std::vector<Change>& changes)
{
    if (changes.empty()) return;
    Json rows = Json::array();
    for (const Change& c : changes) rows.push_back({number(c.t), c.name});
    lanes.push_back({{"name", name}, {"changes", rows}});
}

Json lanesOf(const UnitRecording& unit)
{
    Json lanes = Json::array();
    addLane(lanes, "clock", unit.states);
    addLane(lanes, "regulator", unit.regStates);
    addLane(lanes, "loop", unit.loops);
    addLane(lanes, "reference", unit.selected);
    std::vector<StateChange> degraded;
    for (const Sample& s : unit.samples)
        if (degraded.empty() || s.isDegraded != (degraded.back().state != 0))
            degraded.push_back({s.t, s.isDegraded ? u8{1} : u8{0}, s.isDegraded ? "DEGRADED" : "good"});
    if (degraded.size() > 1 || (!degraded.empty() && degraded.front().state != 0))
        addLane(lanes, "quality", degraded);
    addLane(lanes, "receiver", unit.gpsStates);
    addLane(lanes, "GPS told", unit.gpsStatuses);
    addLane(lanes, "level told", unit.qualities);
    addLane(lanes, "PDU alarm", unit.pduAlarms);
    return lanes;
}

/// The time error since the first lock, with the counter's steps taken out, which would hide everything else.
std::vector<double> withoutSteps(const UnitRecording& unit, bool& isStepped)
{
    std::vector<double> x;
    double stepped_ns = 0.0;
    bool isLocked = false;
    for (std::size_t i = 0; i < unit.samples.size(); ++i) {
        if (i > 0 && isStep(unit.samples[i - 1], unit.samples[i])) {
            stepped_ns += unit.samples[i].timeError_ns - unit.samples[i - 1].timeError_ns;
            isStepped = true;
        }
        if (!isLocked && isLockedState(unit.samples[i].radioClockState)) {
            isLocked = true;
            for (double& before : x) before += stepped_ns - unit.samples[i].timeError_ns;
            stepped_ns = unit.samples[i].timeError_ns;
        }
        x.push_back(unit.samples[i].timeError_ns - stepped_ns);
    }
    return x;
}

bool isTrusted(u8 radioClockState)
{
    constexpr u8 FREQUENCY_HOLDOVER = 4, TIME_OFFSET_HOLDOVER = 9, RNT_TIME_HOLDOVER = 11;
    return isLockedState(radioClockState) || radioClockState == FREQUENCY_HOLDOVER
           || radioClockState == TIME_OFFSET_HOLDOVER || radioClockState == RNT_TIME_HOLDOVER;
}

/// Farther from GPS time, or from its leader, a counter just counts from elsewhere.
double nearby(double error_ns)
{
    constexpr double FARTHEST_ns = 1e6;
    return std::abs(error_ns) <= FARTHEST_ns ? error_ns : std::numeric_limits<double>::quiet_NaN();
}

/// NaN outside of the stretches that are scored.
std::vector<double> aboutMean(const UnitRecording& unit, double interval_s)
{
    std::vector<double> x(unit.samples.size(), std::numeric_limits<double>::quiet_NaN());
    for (const LockedSpan& span : score(unit, interval_s).spans) {
        double sum_ns = 0.0;
        for (std::size_t i = span.first; i <= span.last; ++i) sum_ns += unit.samples[i].timeError_ns;
        const double mean_ns = sum_ns / static_cast<double>(span.last - span.first + 1);
        for (std::size_t i = span.first; i <= span.last; ++i) x[i] = unit.samples[i].timeError_ns - mean_ns;
    }
    return x;
}

Json columnsOf(const UnitRecording& unit, const Axis& axis, double interval_s, bool& isStepped)
{
    const std::vector<Sample>& s = unit.samples;
    const std::vector<double> smooth = withoutSteps(unit, isStepped);
    const std::vector<double> scored = aboutMean(unit, interval_s);
    const double end = s.empty() ? 0.0 : s.back().div;
    Json c;
    c["time_error"] = axis.column([&](std::size_t i) { return smooth[i]; });
    c["about_mean"] = axis.column([&](std::size_t i) { return scored[i]; });
    c["gps_time_error"] = axis.column([&](std::size_t i) { return nearby(s[i].gpsTimeError_ns); });
    c["estimated_time"] = axis.column([&](std::size_t i) { return nearby(s[i].estimate.time_ns); });
    c["time_band"] = axis.column([&](std::size_t i) { return s[i].estimate.timeBand_ns; });
    c["time_bound"] = axis.column([&](std::size_t i) { return s[i].estimate.timeBound_ns; });
    c["follow_error"] = axis.column([&](std::size_t i) { return nearby(s[i].followError_ns); });
    c["freq_error"] = axis.column([&](std::size_t i) { return s[i].freqError_ppb; });
    c["estimated_freq"] = axis.column([&](std::size_t i) { return s[i].estimate.freq_ppb; });
    c["freq_band"] = axis.column([&](std::size_t i) { return s[i].estimate.freqBand_ppb; });
    c["freq_bound"] = axis.column([&](std::size_t i) { return s[i].estimate.freqBound_ppb; });
    c["pdv_down"] = axis.column([&](std::size_t i) { return s[i].pdv.down_ns; });
    c["pdv_up"] = axis.column([&](std::size_t i) { return s[i].pdv.up_ns; });
    c["pdv_limit"] = axis.column([&](std::size_t i) { return s[i].pdv.limit_ns; });
    c["loop_phase"] = axis.column([&](std::size_t i) { return s[i].loop.phase_ns; });
    c["divider"] = axis.column([&](std::size_t i) { return end > 0.0 ? (s[i].div / end - 1.0) * 1e9 : 0.0; });
    c["temperature"] = axis.column([&](std::size_t i) { return s[i].temperature_V; });
    c["good"] = axis.column([&](std::size_t i) { return isTrusted(s[i].radioClockState) ? 1.0 : 0.0; });
    c["time_locked"] = axis.column(
        [&](std::size_t i) { return isTimeLockedState(s[i].radioClockState) ? 1.0 : 0.0; });
    return c;
}

Json holdoversOf(const UnitRecording& unit)
{
    Json list = Json::array();
    for (const Holdover& h : holdovers(unit)) {
        const Sample& begin = unit.samples[h.first];
        const std::size_t step = std::max<std::size_t>(1, (h.last - h.first) / 1000);
        Json rows = Json::array();
        for (std::size_t i = h.first; i <= h.last; i += step)
            rows.push_back({number(unit.samples[i].t - begin.t),
                            number(unit.samples[i].timeError_ns - begin.timeError_ns)});
        list.push_back({{"span", {begin.t, unit.samples[h.last].t}}, {"rows", rows}});
    }
    return list;
}

Json curveOf(const char* name, const std::vector<TauValue>& values)
{
    Json points = Json::array();
    for (const TauValue& v : values)
        if (v.value > 0.0) points.push_back({v.tau, number(v.value)});
    return {{"name", name}, {"points", points}};
}

void addDeviation(Json& list, const char* title, const std::vector<TauValue>& values,
                  std::span<const MaskSegment> Mask::*segments, std::span<const Mask> limits)
{
    if (values.empty()) return;
    Json curves = Json::array();
    curves.push_back(curveOf("measured", values));
    for (const Mask& mask : limits) {
        std::vector<TauValue> limit;
        for (const TauValue& v : values)
            if (const double at = maskLimit(mask.*segments, v.tau); at >= 0.0) limit.push_back({v.tau, at});
        curves.push_back(curveOf(mask.name, limit));
    }
    list.push_back({{"title", title}, {"curves", curves}});
}

Json deviationsOf(const UnitRecording& unit, double interval_s)
{
    Json list = Json::array();
    const Scores scores = score(unit, interval_s);
    addDeviation(list, "MTIE of the longest locked stretch", scores.mtie_ns, &Mask::mtie, masks());
    addDeviation(list, "TDEV of the longest locked stretch", scores.tdev_ns, &Mask::tdev, masks());
    const PacketTime p = packetTime(unit, interval_s);
    std::vector<Mask> classes;
    for (const TimeClass& c : timeClasses())
        if (!c.dynamic.mtie.empty()) classes.push_back(c.dynamic);
    std::vector<Mask> all = classes;
    all.push_back(packetNetworkMask());
    addDeviation(list, "MTIE of the time from packets, filtered with 0.1 Hz", p.mtie_ns, &Mask::mtie, all);
    addDeviation(list, "TDEV of the time from packets, filtered with 0.1 Hz", p.tdev_ns, &Mask::tdev,
                 classes);
    return list;
}

Json eventsOf(const UnitRecording& unit)
{
    Json list = Json::array();
    u32 number = 0;                    // of the scenario's own, by which the plots mark them
    for (const UnitEvent& e : unit.events) {
        const std::string mark = e.kind == "event" ? std::to_string(++number) : "";
        list.push_back({e.t, e.kind, e.text, mark});
    }
    return list;
}

Json delaysOf(const UnitRecording& unit, const Axis& axis)
{
    Json list = Json::array();
    for (const PacketDelays& d : unit.delays)
        list.push_back(
            {{"peer", d.peer},
             {"down", axis.column([&](std::size_t i) { return static_cast<double>(d.down_us[i]); })},
             {"up", axis.column([&](std::size_t i) { return static_cast<double>(d.up_us[i]); })}});
    return list;
}

Json toJson(const UnitRecording& unit, const Axis& axis, double interval_s)
{
    Json json;
    bool isStepped = false;
    json["name"] = unit.name;
    json["leader"] = unit.leader;
    json["columns"] = columnsOf(unit, axis, interval_s, isStepped);
    json["isStepped"] = isStepped;
    json["lanes"] = lanesOf(unit);
    json["delays"] = delaysOf(unit, axis);
    json["events"] = eventsOf(unit);
    json["holdovers"] = holdoversOf(unit);
    json["deviations"] = deviationsOf(unit, interval_s);
    return json;
}

}  // namespace

std::string reportData(const Recording& recording)
{
    Json json;
    const Axis axis(recording.units.empty() ? std::vector<Sample>{} : recording.units.front().samples);
    json["t"] = axis.times;
    json["span"] = {0.0, recording.virtual_s};
    json["holdoverLimit_ns"] = HOLDOVER_LIMIT_ns;
    json["failed"] = Json::array();
    for (const CheckResult& c : recording.checks)
        if (!c.pass && c.to_s > 0.0)
            json["failed"].push_back(
                {{"unit", c.unit}, {"name", c.name}, {"from", c.from_s}, {"to", c.to_s}});
    json["units"] = Json::array();
    for (const UnitRecording& unit : recording.units)
        json["units"].push_back(toJson(unit, axis, recording.interval_s));
    std::string text;
    for (const char c : json.dump()) {
        if (c == '/' && !text.empty() && text.back() == '<')
            text += '\\'; // no text may end the page's script
        text += c;
    }
    return text;
}

}  // namespace app
