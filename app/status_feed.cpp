#include "app/status_feed.h"

namespace app {

StatusFeed::StatusFeed(std::string scenario, const FeedOptions& options) : scenario_(std::move(scenario))
{
    if (!options.socket.empty()) socket_ = std::make_unique<StatusServer>(options.socket);
    if (!options.metrics.empty()) metrics_ = std::make_unique<MetricsServer>(options.metrics);
}

/// Virtual seconds a second, over the last second or so.
double StatusFeed::speed(double now_s)
{
    const double wall_s = std::chrono::duration<double>(Clock::now() - measured_).count();
    if (wall_s < 1.0 && speed_ > 0) return speed_;
    speed_ = (now_s - measuredAt_s_) / std::max(wall_s, 1e-3);
    measured_ = Clock::now();
    measuredAt_s_ = now_s;
    return speed_;
}

void StatusFeed::look(double now_s, bool paused)
{
    if (!socket_ && !metrics_) return;
    constexpr std::chrono::milliseconds SHORTEST(5), LONGEST(1000);
    const auto since = Clock::now() - published_;
    const bool isDue = (changed_ || paused != paused_) ? since >= SHORTEST : since >= LONGEST;
    if (isDue) publish(now_s, paused, false);
}

void StatusFeed::end(double now_s)
{
    if (socket_ || metrics_) publish(now_s, false, true);
}

void StatusFeed::publish(double now_s, bool paused, bool ended)
{
    StatusJson run = {{"scenario", scenario_}, {"t", now_s},         {"speed", speed(now_s)},
                      {"paused", paused},      {"ended", ended},     {"units", StatusJson::array()}};
    for (Recorder* const r : recorders_)
        run["units"].push_back(toJson(readUnitStatus(r->unit(), r->recording, now_s)));
    if (host_) run["host"] = host_();
    if (socket_) socket_->publish(lineOf(run));
    if (metrics_) metrics_->publish(metricsPage(run));
    changed_ = false;
    paused_ = paused;
    published_ = Clock::now();
}

namespace {

using Json = StatusJson;

/// One metric: what a unit's value is, "" for a value that the unit hasn't.
struct Metric {
    const char* name;
    const char* type;
    const char* help;
    Json (*value)(const Json& unit);
};

Json scaled(const Json& value, double by) { return value.is_null() ? value : Json(value.get<double>() * by); }
Json flag(const Json& value) { return value.get<bool>() ? 1 : 0; }
Json ofHoldover(const Json& unit, const char* key)
{
    const Json& h = unit.at("holdover");
    return h.is_null() ? Json(nullptr) : h.at(key);
}
Json trueTime(const Json& unit)
{
    const Json& truth = unit.at("truth");
    const Json& against = truth.at("against_reference_time_ns");
    return scaled(against.is_null() ? truth.at("time_ns") : against, 1e-9);
}

constexpr Metric METRICS[] = {
    {"tu_clock_state", "gauge", "Clock state as its main processor is told, 1 to 16; 7 unknown.",
     [](const Json& u) { return u.at("clock_state"); }},
    {"tu_clock_state_since_seconds", "gauge", "Virtual time at which the clock state was entered.",
     [](const Json& u) { return u.at("since_s"); }},
    {"tu_estimate_time_seconds", "gauge", "Time offset that the unit estimates, positive when ahead.",
     [](const Json& u) { return scaled(u.at("estimate").at("time_ns"), 1e-9); }},
    {"tu_estimate_time_deviation_seconds", "gauge", "One deviation of that estimate.",
     [](const Json& u) { return scaled(u.at("estimate").at("time_deviation_ns"), 1e-9); }},
    {"tu_estimate_time_band_seconds", "gauge", "Three of them, and what the filter can't know.",
     [](const Json& u) { return scaled(u.at("estimate").at("time_band_ns"), 1e-9); }},
    {"tu_estimate_time_bound_seconds", "gauge", "What its references may be off by, beside the band.",
     [](const Json& u) { return scaled(u.at("estimate").at("time_bound_ns"), 1e-9); }},
    {"tu_estimate_frequency_ratio", "gauge", "Relative frequency offset that the unit estimates.",
     [](const Json& u) { return scaled(u.at("estimate").at("freq_ppb"), 1e-9); }},
    {"tu_estimate_frequency_deviation_ratio", "gauge", "One deviation of that estimate.",
     [](const Json& u) { return scaled(u.at("estimate").at("freq_deviation_ppb"), 1e-9); }},
    {"tu_estimate_frequency_band_ratio", "gauge", "Three of them, and what the filter can't know.",
     [](const Json& u) { return scaled(u.at("estimate").at("freq_band_ppb"), 1e-9); }},
    {"tu_estimate_frequency_bound_ratio", "gauge", "What its references may be off by, beside the band.",
     [](const Json& u) { return scaled(u.at("estimate").at("freq_bound_ppb"), 1e-9); }},
    {"tu_true_time_error_seconds", "gauge",
     "True time error: against the reference's time where the scenario has one, else since the start.",
     trueTime},
    {"tu_true_frequency_error_ratio", "gauge", "True relative frequency error.",
     [](const Json& u) { return scaled(u.at("truth").at("freq_ppb"), 1e-9); }},
    {"tu_holdover_seconds", "gauge", "How long the clock has been in holdover, 0 outside of it.",
     [](const Json& u) {
         const Json s = ofHoldover(u, "seconds");
         return s.is_null() ? Json(0) : s;
     }},
    {"tu_holdover_left_seconds", "gauge", "What is left of the operator's holdover threshold.",
     [](const Json& u) { return ofHoldover(u, "left_s"); }},
    {"tu_degraded", "gauge", "1 while the selected reference is degraded.",
     [](const Json& u) { return flag(u.at("degraded")); }},
    {"tu_pdv_limit_seconds", "gauge", "Limit of the selected packet reference's delay variation.",
     [](const Json& u) {
         return u.at("pdv").is_null() ? Json(nullptr) : scaled(u.at("pdv").at("limit_ns"), 1e-9);
     }},
    {"tu_alarms", "gauge", "Alarms that stand.", [](const Json& u) { return Json(u.at("alarms").size()); }},
    {"tu_events_total", "counter", "Events of the run.", [](const Json& u) { return u.at("events_total"); }},
    {"tu_restarts_total", "counter", "Starts of the program after the first.",
     [](const Json& u) { return Json(std::max<i64>(0, u.at("starts").get<i64>() - 1)); }},
    {"tu_pool_used_bytes", "gauge", "Signal pool in use.",
     [](const Json& u) { return u.at("pool").at("used"); }},
    {"tu_pool_peak_bytes", "gauge", "Largest use of the signal pool.",
     [](const Json& u) { return u.at("pool").at("peak"); }},
};

/// A label's value may hold anything but these three unescaped.
std::string label(const std::string& key, const std::string& value)
{
    std::string out = key + "=\"";
    for (const char c : value) {
        if (c == '\\' || c == '"') out += '\\';
        if (c == '\n') out += "\\n";
        else           out += c;
    }
    return out + "\"";
}

std::string unitLabel(const Json& unit) { return label("unit", unit.at("unit").get<std::string>()); }

void head(std::string& page, const char* name, const char* type, const char* help)
{
    page += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

void row(std::string& page, const char* name, const std::string& labels, const Json& value)
{
    if (!value.is_null()) page += std::string(name) + "{" + labels + "} " + value.dump() + "\n";
}

void addInfo(std::string& page, const Json& units)
{
    head(page, "tu_clock_info", "gauge",
         "Names of the clock's and the regulator's state and of the reference.");
    for (const Json& u : units) {
        std::string labels = unitLabel(u);
        for (const char* const key : {"clock", "regulator", "reference", "reference_type"})
            labels += "," + label(key, u.at(key).get<std::string>());
        row(page, "tu_clock_info", labels, 1);
    }
}

void addSources(std::string& page, const Json& units)
{
    struct Flag { const char* name; const char* key; const char* help; };
    for (const Flag& f : {Flag{"tu_source_usable", "usable", "1 while a reference can be selected."},
                          Flag{"tu_source_selected", "selected", "1 while a reference is selected."}}) {
        head(page, f.name, "gauge", f.help);
        for (const Json& u : units)
            for (const Json& s : u.at("sources"))
                row(page, f.name,
                    unitLabel(u) + "," + label("source", s.at("name").get<std::string>()) + ","
                        + label("type", s.at("type").get<std::string>()),
                    flag(s.at(f.key)));
    }
}

void addPackets(std::string& page, const Json& units)
{
    head(page, "tu_pdv_seconds", "gauge", "Delay variation of the selected packet reference.");
    for (const Json& u : units) {
        if (u.at("pdv").is_null()) continue;
        row(page, "tu_pdv_seconds", unitLabel(u) + ",direction=\"down\"",
            scaled(u.at("pdv").at("down_ns"), 1e-9));
        row(page, "tu_pdv_seconds", unitLabel(u) + ",direction=\"up\"",
            scaled(u.at("pdv").at("up_ns"), 1e-9));
    }
    head(page, "tu_packets_total", "counter", "PTP messages that served, by clock and type.");
    for (const Json& u : units)
        for (const Json& p : u.at("packets"))
            row(page, "tu_packets_total",
                unitLabel(u) + "," + label("fro_id", p.at("fro_id").dump()) + ","
                    + label("type", p.at("type").get<std::string>()),
                p.at("taken"));
}

/// Of a run that keeps the machine's time.
void addHost(std::string& page, const Json& host)
{
    const Json& late = host.at("lateness");
    const auto one = [&page](const char* name, const char* type, const char* help, const Json& value) {
        head(page, name, type, help);
        page += std::string(name) + " " + value.dump() + "\n";
    };
    one("tu_host_real_time", "gauge", "1 where the kernel runs the program first (SCHED_FIFO).",
        flag(host.at("real_time")));
    one("tu_host_late_max_seconds", "gauge", "How late the machine let the run be, at most.",
        late.at("max_s"));
    one("tu_host_late_mean_seconds", "gauge", "How late it is in the mean.", late.at("mean_s"));
    one("tu_host_clock_steps_total", "counter", "Steps of the machine's time of day.",
        host.at("clock_steps"));
    head(page, "tu_host_late_total", "counter", "Times that the run was later than a limit.");
    for (const char* const limit : {"1ms", "10ms", "100ms"})
        row(page, "tu_host_late_total", label("over", limit), late.at(std::string("over_") + limit));
    head(page, "tu_interface_packets_total", "counter", "Packets of an interface, by what became of them.");
    for (const Json& i : host.at("interfaces"))
        for (const char* const what :
             {"received", "sent", "unstamped", "stamps_lost", "not_sent", "unusable", "errors"})
            row(page, "tu_interface_packets_total",
                label("interface", i.at("interface").get<std::string>()) + ","
                    + label("host", i.at("host").get<std::string>()) + "," + label("what", what),
                i.at(what));
}

}  // namespace

std::string metricsPage(const StatusJson& run)
{
    std::string page;
    head(page, "tu_virtual_time_seconds", "gauge", "Virtual time of the run.");
    page += "tu_virtual_time_seconds " + run.at("t").dump() + "\n";
    head(page, "tu_speed_ratio", "gauge", "Virtual seconds a second of wall-clock time.");
    page += "tu_speed_ratio " + run.at("speed").dump() + "\n";
    const Json& units = run.at("units");
    for (const Metric& m : METRICS) {
        head(page, m.name, m.type, m.help);
        for (const Json& u : units) row(page, m.name, unitLabel(u), m.value(u));
    }
    addInfo(page, units);
    addSources(page, units);
    addPackets(page, units);
    if (run.contains("host")) addHost(page, run.at("host"));
    return page;
}

}  // namespace app
