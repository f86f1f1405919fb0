#include "app/summary.h"

#include "app/packet_time.h"
#include "app/score.h"
#include "app/unit_status.h"
#include "iif/kvd_pm.h"
#include "sim/scenario/scenario.h"

#include <nlohmann/json.hpp>

namespace app {
namespace {

using Json = nlohmann::ordered_json;

Json toJson(const StateChange& change, const char* key)
{
    return {{"t", change.t}, {key, change.state}, {"name", change.name}};
}

Json toJson(const Selection& selection)
{
    return {{"t", selection.t}, {"refType", selection.refType}, {"name", selection.name}};
}

Json toJson(const std::vector<TauValue>& values)
{
    Json pairs = Json::array();
    for (const TauValue& v : values) pairs.push_back({v.tau, v.value});
    return pairs;
}

Json toJson(const CheckResult& check)
{
    return {{"name", check.name}, {"pass", check.pass}, {"detail", check.detail}};
}

/// With the numbers behind the verdict.
Json inFull(const CheckResult& check)
{
    Json json = toJson(check);
    json["check"] = check.kind;
    json["unit"] = check.unit;
    json["from_s"] = check.from_s;
    json["to_s"] = check.to_s;
    if (check.value) json["value"] = *check.value;
    if (check.least) json["least"] = *check.least;
    if (check.most) json["most"] = *check.most;
    if (check.value || check.least || check.most) json["of"] = check.of;
    return json;
}

/// Whether the values keep under a mask; where they come nearest to it, or exceed it first.
Json verdictOf(const std::vector<TauValue>& values, std::span<const MaskSegment> mask)
{
    const TauValue* const above = aboveMask(values, mask);
    const TauValue& worst = above != nullptr ? *above : nearestToMask(values, mask);
    Json json = {{"within", above == nullptr}, {"tau_s", worst.tau}, {"value_ns", worst.value}};
    if (const double limit = maskLimit(mask, worst.tau); limit >= 0.0) json["limit_ns"] = limit;
    return json;
}

Json masksOf(const Scores& scores)
{
    Json json = Json::object();
    for (const Mask& mask : masks()) {
        if (!scores.mtie_ns.empty()) json[mask.name]["mtie"] = verdictOf(scores.mtie_ns, mask.mtie);
        if (!scores.tdev_ns.empty()) json[mask.name]["tdev"] = verdictOf(scores.tdev_ns, mask.tdev);
    }
    return json;
}

/// What the scenario did to the unit, and what it reported beside its states.
void addHappenings(Json& json, const UnitRecording& unit)
{
    json["events"] = Json::array();
    for (const UnitEvent& e : unit.events)
        json["events"].push_back({{"t", e.t}, {"kind", e.kind}, {"text", e.text}});
    if (!unit.socpriReports.empty()) json["radio_links"] = Json::array();
    for (const SocpriReport& r : unit.socpriReports)
        json["radio_links"].push_back(
            {{"t", r.t}, {"answer", sim::socpriAnswerName(r.sigNo)}, {"port", r.port}, {"status", r.status}});
    if (!unit.pmPeriods.empty()) json["pm_reports"] = Json::array();
    for (const PmPeriod& p : unit.pmPeriods)
        json["pm_reports"].push_back({{"t", p.t}, {"set", p.froType == SYNC_PM_FROTYPE ? "sync" : "gps"},
                                      {"suspect", p.suspect}, {"values", p.values}});
}

Json toJson(const Extremes& e) { return {{"max", e.max}, {"rms", e.rms}}; }

Json toJson(const GpsStatus& status)
{
    return {{"t", status.t}, {"status", status.status}, {"text", status.name}};
}

Json holdoversOf(const UnitRecording& unit)
{
    Json rows = Json::array();
    for (const Holdover& h : holdovers(unit)) {
        Json row = {{"from_s", unit.samples[h.first].t}, {"seconds", h.seconds}, {"drift_ns", h.drift_ns}};
        for (const double mark_s : HOLDOVER_MARKS_s)
            if (const std::optional<double> error = holdoverError_ns(unit, h, mark_s))
                row["max_ns_" + std::to_string(std::lround(mark_s / 3600.0)) + "h"] = *error;
        rows.push_back(row);
    }
    return rows;
}

Json degradationsOf(const UnitRecording& unit)
{
    Json rows = Json::array();
    for (const Degradation& d : degradations(unit)) {
        Json row = {{"from_s", d.from_s}, {"to_s", d.to_s}, {"reference", d.reference}};
        if (!std::isnan(d.pdv.limit_ns)) {
            row["pdv_down_ns"] = d.pdv.down_ns;
            row["pdv_up_ns"] = d.pdv.up_ns;
            row["pdv_limit_ns"] = d.pdv.limit_ns;
        }
        rows.push_back(row);
    }
    return rows;
}

Json restartsOf(const UnitRecording& unit)
{
    Json rows = Json::array();
    for (const Restart& r : unit.restarts) {
        Json row = {{"stopped_s", r.stopped_s}, {"started_s", r.started_s}, {"type", r.type},
                    {"formerState", r.formerState}, {"used", r.used}, {"used_s", r.used_s}};
        if (const auto seconds = timeToFormerState_s(unit, r)) row["to_former_state_s"] = *seconds;
        if (const auto error = errorAcrossGap_ns(unit, r)) row["error_across_gap_ns"] = *error;
        rows.push_back(row);
    }
    return rows;
}

Json finalOf(const UnitRecording& unit)
{
    Json last = Json::object();
    if (!unit.states.empty()) {
        last["t"] = unit.states.back().t;
        last["radioClockState"] = unit.states.back().state;
        last["name"] = unit.states.back().name;
    }
    if (!unit.regStates.empty()) {
        last["regState"] = unit.regStates.back().state;
        last["regStateName"] = unit.regStates.back().name;
    }
    if (!unit.selected.empty()) last["refType"] = unit.selected.back().refType;
    return last;
}

Json toJson(const PacketTime& p)
{
    Json json = {
        {"seconds", p.scored_s}, {"max_te_ns", p.maxTe_ns}, {"max_te_filtered_ns", p.maxTeFiltered_ns}};
    if (p.cTe_ns) json["cte_ns"] = *p.cTe_ns;
    json["mtie_ns"] = toJson(p.mtie_ns);
    json["tdev_ns"] = toJson(p.tdev_ns);
    for (const TimeClass& c : timeClasses()) json["within"][c.name] = judge(p, c).holds();
    json["within"][packetNetworkMask().name] = aboveMask(p.mtie_ns, packetNetworkMask().mtie) == nullptr;
    return json;
}

/// What was told of clock, regulator, selection, receiver and lines, each with its time.
void addStates(Json& json, const UnitRecording& unit)
{
    json["states"] = Json::array();
    for (const StateChange& c : unit.states) json["states"].push_back(toJson(c, "radioClockState"));
    json["regStates"] = Json::array();
    for (const StateChange& c : unit.regStates) json["regStates"].push_back(toJson(c, "regState"));
    json["selected"] = Json::array();
    for (const Selection& s : unit.selected) json["selected"].push_back(toJson(s));
    if (!unit.gpsStates.empty()) {
        json["gps_states"] = Json::array();
        for (const StateChange& c : unit.gpsStates) json["gps_states"].push_back(toJson(c, "gpsState"));
        json["gps_types"] = Json::array();
        for (const StateChange& c : unit.gpsTypes) json["gps_types"].push_back(toJson(c, "gpssType"));
        json["gps_statuses"] = Json::array();
        for (const GpsStatus& g : unit.gpsStatuses) json["gps_statuses"].push_back(toJson(g));
    }
    if (!unit.qualities.empty()) {
        json["quality_levels"] = Json::array();
        for (const StateChange& c : unit.qualities)
            json["quality_levels"].push_back(toJson(c, "clockQuality"));
    }
    if (!unit.pduAlarms.empty()) {
        json["pdu_missing"] = Json::array();
        for (const StateChange& c : unit.pduAlarms) json["pdu_missing"].push_back(toJson(c, "pduMissing"));
    }
}

void addFaults(Json& json, const UnitRecording& unit)
{
    if (!unit.errors.empty()) {
        json["error_log"] = Json::array();
        for (const ErrorEntry& e : unit.errors)
            json["error_log"].push_back({{"t", e.t}, {"code", e.code}, {"text", e.text}});
    }
    if (!unit.failedTests.empty()) {
        json["failed_tests"] = Json::array();
        for (const FailedTest& f : unit.failedTests)
            json["failed_tests"].push_back({{"t", f.t}, {"name", f.name}, {"message", f.message}});
    }
}

std::string digestText(u64 digest)
{
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(digest));
    return text;
}

Json toJson(const UnitRecording& unit, const Recording& recording)
{
    const Scores scores = score(unit, recording.interval_s);
    Json json;
    json["name"] = unit.name;
    addStates(json, unit);
    json["told"] = {{"signals", unit.toldSignals}, {"digest", digestText(unit.toldDigest)}};
    json["sent"] = {{"signals", unit.sentSignals}, {"digest", digestText(unit.sentDigest)}};
    json["driven"] = {{"calls", unit.drivenCalls}, {"digest", digestText(unit.drivenDigest)}};
    json["waits"] = {{"number", unit.waits}, {"digest", digestText(unit.waitsDigest)}};
    json["traced"] = {{"lines", unit.tracedLines}, {"digest", digestText(unit.tracedDigest)}};
    json["files"] = digestText(unit.filesDigest);
    json["pages"] = digestText(unit.pagesDigest);
    json["final"] = finalOf(unit);
    json["time_to_lock_s"] = scores.timeToLock_s;
    json["scored_seconds"] = scores.scored_s;
    json["scored_from_to_s"] = Json::array();
    for (const LockedSpan& span : scores.spans)
        json["scored_from_to_s"].push_back({unit.samples[span.first].t, unit.samples[span.last].t});
    json["time_error_ns"] = toJson(scores.timeError_ns);
    json["time_error_about_mean_ns"] = toJson(scores.aboutMean_ns);
    json["holdovers"] = holdoversOf(unit);
    if (Json rows = degradationsOf(unit); !rows.empty()) json["degradations"] = std::move(rows);
    addFaults(json, unit);
    if (!unit.restarts.empty()) json["restarts"] = restartsOf(unit);
    json["freq_error_ppb"] = toJson(scores.freqError_ppb);
    if (!unit.leader.empty()) {
        json["leader"] = unit.leader;
        json["following_seconds"] = scores.followed_s;
        json["following_error_ns"] = toJson(scores.following_ns);
    }
    json["mtie_ns"] = toJson(scores.mtie_ns);
    json["tdev_ns"] = toJson(scores.tdev_ns);
    if (const PacketTime p = packetTime(unit, recording.interval_s); !p.spans.empty())
        json["packet_time"] = toJson(p);
    json["checks"] = Json::array();
    for (const CheckResult& c : recording.checks)
        if (c.unit == unit.name) json["checks"].push_back(toJson(c));
    json["masks"] = masksOf(scores);
    addHappenings(json, unit);
    return json;
}

void printMasks(const Scores& scores, std::FILE* out)
{
    for (const Mask& mask : masks()) {
        const TauValue* const m = aboveMask(scores.mtie_ns, mask.mtie);
        const TauValue* const d = aboveMask(scores.tdev_ns, mask.tdev);
        std::fprintf(out, "    %-10s MTIE %s", mask.name, m == nullptr ? "within" : "above");
        if (m != nullptr)
            std::fprintf(out, " at %g s (%.1f ns, limit %.1f)", m->tau, m->value,
                         maskLimit(mask.mtie, m->tau));
        std::fprintf(out, ", TDEV %s", d == nullptr ? "within" : "above");
        if (d != nullptr)
            std::fprintf(out, " at %g s (%.2f ns, limit %.2f)", d->tau, d->value,
                         maskLimit(mask.tdev, d->tau));
        std::fprintf(out, "\n");
    }
}

/// "max|TE| within 30 ns, " where there is a verdict.
void printVerdict(const char* what, const std::optional<bool>& is, double limit_ns, std::string& line)
{
    if (!is) return;
    char text[64];
    std::snprintf(text, sizeof text, "%s%s %s %g ns", line.empty() ? "" : ", ", what,
                  *is ? "within" : "above", limit_ns);
    line += text;
}

/// A class's limit at the interval where it is exceeded, or at the longest that was measured.
double limitOf(std::span<const TauValue> values, std::span<const MaskSegment> mask)
{
    const TauValue* const above = aboveMask(values, mask);
    if (above != nullptr) return maskLimit(mask, above->tau);
    double limit = 0.0;
    for (const TauValue& v : values) limit = std::max(limit, maskLimit(mask, v.tau));
    return limit;
}

void printPacketTime(const UnitRecording& unit, double interval_s, std::FILE* out)
{
    const PacketTime p = packetTime(unit, interval_s);
    if (p.spans.empty()) return;
    std::fprintf(out, "  packet time    %.0f s in %zu stretch%s: max|TE| %.1f ns, filtered %.1f ns",
                 p.scored_s, p.spans.size(), p.spans.size() == 1 ? "" : "es", p.maxTe_ns, p.maxTeFiltered_ns);
    if (p.cTe_ns) std::fprintf(out, ", cTE %+.2f ns", *p.cTe_ns);
    std::fprintf(out, "\n");
    for (const TimeClass& c : timeClasses()) {
        const ClassVerdict v = judge(p, c);
        std::string line;
        printVerdict("max|TE|", v.maxTe, c.maxTe_ns, line);
        printVerdict("filtered max|TE|", v.maxTeFiltered, c.maxTeFiltered_ns, line);
        printVerdict("cTE", v.cTe, c.cTe_ns, line);
        printVerdict("MTIE", v.mtie, limitOf(p.mtie_ns, c.dynamic.mtie), line);
        printVerdict("TDEV", v.tdev, limitOf(p.tdev_ns, c.dynamic.tdev), line);
        std::fprintf(out, "    %-10s %s\n", c.name, line.c_str());
    }
    const Mask& network = packetNetworkMask();
    const TauValue* const above = aboveMask(p.mtie_ns, network.mtie);
    std::fprintf(out, "    %-10s MTIE %s the unit's own mask", network.name,
                 above == nullptr ? "within" : "above");
    if (above != nullptr)
        std::fprintf(out, " at %g s (%.1f ns, limit %.1f)", above->tau, above->value,
                     maskLimit(network.mtie, above->tau));
    std::fprintf(out, "\n");
}

void printHoldovers(const UnitRecording& unit, std::FILE* out)
{
    for (const Holdover& h : holdovers(unit)) {
        std::fprintf(
            out,
            "  holdover       %s for %.0f s: time error %+.1f ns, frequency %+.4f ppb at end\n",
            clockText(unit.samples[h.first].t).c_str(), h.seconds, h.drift_ns,
            unit.samples[h.last].freqError_ppb);
        for (const double mark_s : HOLDOVER_MARKS_s)
            if (const std::optional<double> error = holdoverError_ns(unit, h, mark_s))
                std::fprintf(out, "    within %2.0f h  max %.1f ns, %s %.0f ns\n", mark_s / 3600.0, *error,
                             *error <= HOLDOVER_LIMIT_ns ? "within" : "above", HOLDOVER_LIMIT_ns);
    }
}

void printDegradations(const UnitRecording& unit, std::FILE* out)
{
    constexpr std::size_t SHOWN = 10;
    const std::vector<Degradation> all = degradations(unit);
    for (std::size_t i = 0; i < std::min(all.size(), SHOWN); ++i) {
        const Degradation& d = all[i];
        const std::string pdv = pdvText(d.pdv);
        std::fprintf(out, "  degraded       %s to %s: %s%s%s\n", clockText(d.from_s).c_str(),
                     clockText(d.to_s).c_str(), d.reference.c_str(), pdv.empty() ? "" : ", at most ",
                     pdv.c_str());
    }
    if (all.size() > SHOWN) std::fprintf(out, "                 and %zu times more\n", all.size() - SHOWN);
}

void printRestarts(const UnitRecording& unit, std::FILE* out)
{
    for (const Restart& r : unit.restarts) {
        std::fprintf(out, "  restart        %s type %u, after %.0f s away: began with %s",
                     clockText(r.started_s).c_str(), r.type, r.started_s - r.stopped_s,
                     r.used.empty() ? "nothing at all" : r.used.c_str());
        if (r.used_s >= 0) std::fprintf(out, " %.0f s later", r.used_s - r.started_s);
        if (const auto seconds = timeToFormerState_s(unit, r))
            std::fprintf(out, ", as before after %.0f s", *seconds);
        else
            std::fprintf(out, ", never as before");
        if (const auto error = errorAcrossGap_ns(unit, r))
            std::fprintf(out, ", time moved by %+.1f ns", *error);
        std::fprintf(out, "\n");
    }
}

void printUnit(const UnitRecording& unit, double interval_s, std::FILE* out)
{
    const Scores scores = score(unit, interval_s);
    std::fprintf(out, "unit %s\n", unit.name.c_str());
    if (scores.timeToLock_s < 0)
        std::fprintf(out, "  time to lock   never locked\n");
    else
        std::fprintf(out, "  time to lock   %s\n", clockText(scores.timeToLock_s).c_str());
    if (!unit.states.empty()) std::fprintf(out, "  ends in        %s\n", unit.states.back().name.c_str());
    if (scores.spans.empty()) {
        std::fprintf(out, "  no locked time to score\n");
    } else {
        std::fprintf(
            out, "  locked, scored %.0f s in %zu stretches, the first %.0f s of each left out\n",
            scores.scored_s, scores.spans.size(), SETTLING_s);
        std::fprintf(
            out, "  time error     max %.1f ns, rms %.1f ns, from the beginning of each stretch\n",
            scores.timeError_ns.max, scores.timeError_ns.rms);
        const double max_ns = scores.aboutMean_ns.max;
        std::fprintf(
            out,
            "  about its mean max %.1f ns, rms %.1f ns; PRTC-A %s %.0f ns, PRTC-B %s %.0f ns\n",
            max_ns, scores.aboutMean_ns.rms, max_ns <= PRTC_A_MAX_TE_ns ? "within" : "above",
            PRTC_A_MAX_TE_ns, max_ns <= PRTC_B_MAX_TE_ns ? "within" : "above", PRTC_B_MAX_TE_ns);
        std::fprintf(out, "  frequency      max %.4f ppb, rms %.4f ppb\n", scores.freqError_ppb.max,
                     scores.freqError_ppb.rms);
    }
    if (!unit.leader.empty() && scores.followed_s > 0)
        std::fprintf(out, "  behind %-7s max %.1f ns, rms %.1f ns over %.0f s of locked time\n",
                     unit.leader.c_str(), scores.following_ns.max, scores.following_ns.rms,
                     scores.followed_s);
    printHoldovers(unit, out);
    printDegradations(unit, out);
    printRestarts(unit, out);
    for (const ErrorEntry& e : unit.errors)
        std::fprintf(out, "  error log      %s %s %s\n", clockText(e.t).c_str(), e.code.c_str(),
                     e.text.c_str());
    for (const FailedTest& f : unit.failedTests)
        std::fprintf(out, "  test failed    %s %s: %s\n", clockText(f.t).c_str(), f.name.c_str(),
                     f.message.c_str());
    if (!scores.mtie_ns.empty()) {
        std::fprintf(out, "  masks, from %s to %s\n", clockText(scores.mtieFrom_s).c_str(),
                     clockText(scores.mtieTo_s).c_str());
        printMasks(scores, out);
    }
    printPacketTime(unit, interval_s, out);
}

}  // namespace

std::string clockText(double seconds)
{
    const long long whole = static_cast<long long>(seconds);
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    return text;
}

nlohmann::ordered_json summaryOf(const Recording& recording)
{
    Json json;
    json["version"] = SUMMARY_VERSION;
    json["scenario"] = recording.scenario;
    json["title"] = recording.title;
    json["complete"] = recording.complete;
    json["passed"] = recording.complete && recording.passed();
    json["seed"] = recording.seed;
    json["virtual_seconds"] = recording.virtual_s;
    json["wall_seconds"] = recording.wall_s;
    json["units"] = Json::array();
    for (const UnitRecording& unit : recording.units) json["units"].push_back(toJson(unit, recording));
    json["checks"] = Json::array();
    for (const CheckResult& c : recording.checks) json["checks"].push_back(inFull(c));
    json["misuses"] = recording.misuses;
    if (recording.host) json["host"] = toJson(*recording.host);
    return json;
}

std::string summaryJson(const Recording& recording) { return summaryOf(recording).dump(1) + "\n"; }

void printSummary(const Recording& recording, std::FILE* out)
{
    std::fprintf(out, "\n%s: %s of virtual time in %.1f s, %.0f times real time, seed %llu\n",
                 recording.scenario.c_str(), clockText(recording.virtual_s).c_str(), recording.wall_s,
                 recording.virtual_s / std::max(recording.wall_s, 1e-9),
                 static_cast<unsigned long long>(recording.seed));
    for (const UnitRecording& unit : recording.units) printUnit(unit, recording.interval_s, out);
    if (recording.host) printHost(*recording.host, out);
    for (const std::string& misuse : recording.misuses)
        std::fprintf(out, "kernel misuse: %s\n", misuse.c_str());
    if (recording.checks.empty()) return;
    std::fprintf(out, "checks\n");
    for (const CheckResult& c : recording.checks)
        std::fprintf(out, "  %s  %s: %s\n", c.pass ? "ok  " : "FAIL", c.name.c_str(), c.detail.c_str());
}

}  // namespace app
