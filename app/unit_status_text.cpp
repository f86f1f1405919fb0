#include "app/unit_status_text.h"

#include "app/summary.h"

#include <cmath>
#include <cstdio>

namespace app {
namespace {

using Json = StatusJson;

template <typename... Values>
std::string text(const char* format, Values... values)
{
    char line[320];
    std::snprintf(line, sizeof line, format, values...);
    return line;
}

Json number(double value) { return std::isfinite(value) ? Json(value) : Json(nullptr); }
Json number(const std::optional<double>& value) { return value ? number(*value) : Json(nullptr); }

Json sourceJson(const SourceStatus& s)
{
    return {{"name", s.name}, {"type", s.type}, {"fro_id", s.froId}, {"fro_class", s.froClassNo},
            {"supervised", s.supervised}, {"state", s.state}, {"age_s", number(s.age_s)},
            {"noise_ns", number(s.noise_ns)}, {"offset_ns", number(s.offset_ns)}, {"usable", s.usable},
            {"selected", s.selected}, {"faults", s.faults}, {"why", s.why}};
}

Json estimateJson(const UnitStatus& s)
{
    return {{"at_s", s.estimateAt_s},
            {"time_ns", number(s.estimate.time_ns)},
            {"time_deviation_ns", number(s.estimate.timeDeviation_ns)},
            {"time_band_ns", number(s.estimate.timeBand_ns)},
            {"time_bound_ns", number(s.estimate.timeBound_ns)},
            {"freq_ppb", number(s.estimate.freq_ppb)},
            {"freq_deviation_ppb", number(s.estimate.freqDeviation_ppb)},
            {"freq_band_ppb", number(s.estimate.freqBand_ppb)},
            {"freq_bound_ppb", number(s.estimate.freqBound_ppb)},
            {"bound_from", s.boundFrom},
            {"told_time_accuracy_ns", s.timeAccuracy_ns},
            {"told_freq_accuracy_ppb", s.frequencyAccuracy_ppb}};
}

Json loopJson(const LoopStatus& l)
{
    return {{"phase_ns", number(l.values.phase_ns)}, {"held_ns", l.held_ns},
            {"divider_ppb", number(l.values.divider_ppb)}, {"age_s", number(l.age_s)}};
}

Json holdoverJson(const HoldoverStatus& h)
{
    return {{"seconds", h.seconds}, {"threshold_s", number(h.threshold_s)}, {"left_s", number(h.left_s)},
            {"next", h.next}, {"next_in_s", number(h.nextIn_s)}, {"limit_ns", h.limit_ns},
            {"limit_in_s", number(h.limitIn_s)}};
}

/// Of the text side.
std::string str(const Json& json, const char* key) { return json.at(key).get<std::string>(); }
std::string clockOf(const Json& json, const char* key) { return clockText(json.at(key).get<double>()); }

std::string orDash(const Json& value, const char* format)
{
    return value.is_null() ? "-" : text(format, value.get<double>());
}

std::string ppbText(double ppb) { return text("%.4g ppb", ppb); }

/// "12.1 ns, deviation 3.33 ns, band 15 ns and 100 ns of references"
std::string deviated(const Json& estimate, const std::string& kind, const std::string& of,
                     std::string (*shown)(double))
{
    const Json &value = estimate.at(kind + "_" + of), &bound = estimate.at(kind + "_bound_" + of);
    if (value.is_null()) return "none";
    return shown(value.get<double>()) + ", deviation "
           + shown(estimate.at(kind + "_deviation_" + of).get<double>()) + ", band "
           + shown(estimate.at(kind + "_band_" + of).get<double>()) + " and "
           + (bound.is_null() ? "nobody knows how much" : shown(bound.get<double>())) + " of references";
}

/// ", 70 ns from it" where the two numbers don't show it, as with an offset of minutes.
std::string errorText(const Json& estimated_ns, double true_ns)
{
    constexpr double TURN_ns = 1024e9, SHOWN_ns = 1e3;
    if (estimated_ns.is_null() || std::abs(true_ns) < SHOWN_ns) return "";
    return ", " + timeText(std::abs(std::remainder(estimated_ns.get<double>() - true_ns, TURN_ns)))
           + " from it";
}

std::string estimateText(const Json& unit)
{
    const Json& e = unit.at("estimate");
    const Json& truth = unit.at("truth");
    std::string out = "  estimate   time      " + deviated(e, "time", "ns", timeText);
    if (const Json& time = truth.at("against_reference_time_ns"); !time.is_null())
        out += "; true " + timeText(time.get<double>()) + errorText(e.at("time_ns"), time.get<double>());
    out += "\n             frequency " + deviated(e, "freq", "ppb", ppbText);
    out += "; true " + ppbText(truth.at("freq_ppb").get<double>()) + "\n";
    if (!e.at("freq_ppb").is_null()) out += "             references " + str(e, "bound_from") + "\n";
    return out;
}

/// "PLL_Locked: phase 3.2 ns, held at 0 ns, divider 12.5 ppb, last sample 1 s ago"
std::string loopText(const Json& unit)
{
    const Json& l = unit.at("loop_values");
    if (l.is_null()) return "";
    std::string out = "  loop       " + str(unit, "loop");
    if (l.at("age_s").is_null() || l.at("phase_ns").is_null()) return out + ": no sample yet\n";
    return out + ": phase " + timeText(l.at("phase_ns").get<double>()) + ", held at "
           + timeText(l.at("held_ns").get<double>()) + ", divider "
           + ppbText(l.at("divider_ppb").get<double>()) + ", last sample "
           + text("%.0f s ago\n", l.at("age_s").get<double>());
}

std::string referenceText(const Json& unit)
{
    std::string out = "  reference  " + str(unit, "reference");
    const bool isNone = str(unit, "reference_type") == "NO_REF";
    if (!isNone) out += " " + str(unit, "reference_type");
    if (!unit.at("selected_since_s").is_null()) out += ", since " + clockOf(unit, "selected_since_s");
    if (!isNone) out += unit.at("degraded").get<bool>() ? ", degraded" : ", not degraded";
    if (const Json& pdv = unit.at("pdv"); !pdv.is_null())
        out += "; " + pdvText({pdv.at("down_ns").get<double>(), pdv.at("up_ns").get<double>(),
                               pdv.at("limit_ns").get<double>()});
    return out + "\n";
}

/// State and why it isn't selected, which are the same text for one that the unit can't use.
std::string sourceState(const Json& source)
{
    const std::string state = str(source, "state"), why = str(source, "why");
    if (why.empty() || why == state) return state;
    return state.empty() ? why : state + "; " + why;
}

}  // namespace

std::string timeText(double ns)
{
    const double size = std::abs(ns);
    // As long as it isn't rounded up to the next unit.
    if (size < 999.5) return text("%.3g ns", ns);
    if (size < 999.95e3) return text("%.4g us", ns * 1e-3);
    if (size < 999.95e6) return text("%.4g ms", ns * 1e-6);
    return text("%.6f s", ns * 1e-9);
}

std::string pdvText(const PdvSample& pdv)
{
    if (std::isnan(pdv.limit_ns)) return "";
    return "PDV " + timeText(pdv.down_ns) + " down, " + timeText(pdv.up_ns) + " up, limit "
           + timeText(pdv.limit_ns);
}

StatusJson toJson(const UnitStatus& s)
{
    Json json = {{"unit", s.unit},
                 {"t", s.t},
                 {"clock", s.clock},
                 {"clock_state", s.clockState},
                 {"since_s", s.since_s},
                 {"why", s.why},
                 {"change", s.change},
                 {"runs", s.runs},
                 {"connected", s.connected},
                 {"master", s.isMaster},
                 {"regulator", s.regulator},
                 {"loop", s.loop},
                 {"reference", s.reference},
                 {"reference_type", s.referenceType},
                 {"selected_since_s", number(s.selectedSince_s)},
                 {"degraded", s.isDegraded}};
    json["pdv"] = std::isnan(s.pdv.limit_ns)
                      ? Json(nullptr)
                      : Json{{"high", isHigh(s.pdv)}, {"down_ns", s.pdv.down_ns}, {"up_ns", s.pdv.up_ns},
                             {"limit_ns", s.pdv.limit_ns}};
    json["loop_values"] = s.loopStatus ? loopJson(*s.loopStatus) : Json(nullptr);
    json["estimate"] = estimateJson(s);
    json["truth"] = {{"time_ns", s.timeError_ns}, {"against_reference_time_ns", number(s.gpsTimeError_ns)},
                     {"freq_ppb", s.freqError_ppb}};
    json["holdover"] = s.holdover ? holdoverJson(*s.holdover) : Json(nullptr);
    json["sources"] = Json::array();
    for (const SourceStatus& source : s.sources) json["sources"].push_back(sourceJson(source));
    json["alarms"] = Json::array();
    for (const Alarm& a : s.alarms)
        json["alarms"].push_back({{"source", a.source}, {"text", a.text}, {"since_s", a.since_s}});
    json["events"] = Json::array();
    for (const UnitEvent& e : s.events)
        json["events"].push_back({{"t", e.t}, {"kind", e.kind}, {"text", e.text}});
    json["events_total"] = s.eventsTotal;
    json["packets"] = Json::array();
    for (const auto& p : s.packets)
        json["packets"].push_back({{"fro_id", p.froId}, {"type", p.type}, {"taken", p.taken}});
    json["starts"] = s.starts;
    json["pool"] = {{"used", s.poolUsed}, {"peak", s.poolPeak}};
    return json;
}

// A unit's texts may hold any byte that a receiver sent.
std::string lineOf(const StatusJson& json)
{
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string whyText(const StatusJson& unit)
{
    const double for_s = std::max(0.0, unit.at("t").get<double>() - unit.at("since_s").get<double>());
    std::string out = str(unit, "unit") + " at " + clockOf(unit, "t") + "\n" + str(unit, "clock") + " for "
                      + clockText(for_s) + ": " + str(unit, "why") + "\n  next       " + str(unit, "change")
                      + "\n";
    out += referenceText(unit) + estimateText(unit);
    out += "  regulator  " + str(unit, "regulator") + (unit.at("master").get<bool>() ? "" : ", slave")
           + (unit.at("connected").get<bool>() ? "" : ", no main processor") + "\n" + loopText(unit);
    if (unit.at("alarms").empty()) out += "  alarms     none\n";
    for (const Json& a : unit.at("alarms"))
        out += "  alarm      " + str(a, "source") + ": " + str(a, "text") + ", since " + clockOf(a, "since_s")
               + "\n";
    for (const Json& e : unit.at("events"))
        out += text("  %10s %-11s", clockOf(e, "t").c_str(), str(e, "kind").c_str()) + " " + str(e, "text")
               + "\n";
    return out;
}

std::string sourcesText(const StatusJson& unit)
{
    if (unit.at("sources").empty()) return "no reference is configured\n";
    constexpr const char* HEAD = "  %-12s %-16s %-4s %8s %10s %10s %-6s ";
    std::string out = text(HEAD, "name", "type", "sup", "age s", "noise ns", "offset ns", "usable")
                      + "state\n";
    constexpr const char* ROW = "%c %-12s %-16s %-4s %8s %10s %10s %-6s ";
    const auto yes = [](const Json& flag) { return flag.get<bool>() ? "yes" : "no"; };
    for (const Json& s : unit.at("sources"))
        out += text(ROW, s.at("selected").get<bool>() ? '*' : ' ', str(s, "name").c_str(),
                    str(s, "type").c_str(), yes(s.at("supervised")), orDash(s.at("age_s"), "%.0f").c_str(),
                    orDash(s.at("noise_ns"), "%.4g").c_str(), orDash(s.at("offset_ns"), "%.4g").c_str(),
                    yes(s.at("usable")))
               + sourceState(s) + "\n";
    return out;
}

}  // namespace app
