#include "app/pcap_report.h"

#include "app/plot.h"
#include "app/recording.h"
#include "app/report.h"
#include "app/summary.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace app {
namespace {

using Json = nlohmann::ordered_json;

unsigned long long count(u64 n) { return static_cast<unsigned long long>(n); }

// ---- text ---------------------------------------------------------------------------------------

/// "1.234 us", in the unit that fits; beyond a second to the ns.
std::string timeText(double ns)
{
    struct Unit { double ns; const char* name; };
    constexpr Unit UNITS[] = {{1e6, "ms"}, {1e3, "us"}};
    constexpr double SECOND = 1e9;
    char text[48];
    if (std::fabs(ns) >= SECOND) {
        std::snprintf(text, sizeof text, "%.9f s", ns / SECOND);
        return text;
    }
    for (const Unit& u : UNITS)
        if (std::fabs(ns) >= u.ns) {
            std::snprintf(text, sizeof text, "%.6g %s", ns / u.ns, u.name);
            return text;
        }
    std::snprintf(text, sizeof text, "%.0f ns", ns);
    return text;
}

std::string intervalText(double s)
{
    char text[32];
    std::snprintf(text, sizeof text, s < 1 ? "%.5g ms" : "%.5g s", s < 1 ? s * 1e3 : s);
    return text;
}

void printSpread(const char* what, const PcapSeries& series, std::FILE* out)
{
    const PcapSpread s = spreadOf(series);
    if (s.count == 0) return;
    if (s.count == 1) {
        std::fprintf(out, "    %-12s %s\n", what, timeText(s.mean_ns).c_str());
        return;
    }
    std::fprintf(out, "    %-12s mean %s, from %s to %s; varies by %s (deviation), %s (peak to peak)", what,
                 timeText(s.mean_ns).c_str(), timeText(s.min_ns).c_str(), timeText(s.max_ns).c_str(),
                 timeText(s.deviation_ns).c_str(), timeText(s.peak_ns).c_str());
    if (s.count > 2 && std::fabs(s.slope_ppb) >= 0.1) std::fprintf(out, ", drifts by %.1f ppb", s.slope_ppb);
    std::fprintf(out, "\n");
}

bool hasAny(const PcapSeries& correction)
{
    return std::ranges::any_of(correction.points, [&](const auto& p) {
        return static_cast<double>(correction.base_ns) + p.second != 0;
    });
}

void printFlows(const PcapAnalysis& a, std::FILE* out)
{
    if (!a.flows.empty()) std::fprintf(out, "how regularly they speak\n");
    for (const auto& [name, f] : a.flows) {
        std::fprintf(out, "  %s: %llu", name.c_str(), count(f.count));
        if (f.count > 1) std::fprintf(out, ", every %s", intervalText(f.mean_s()).c_str());
        if (f.told_s) std::fprintf(out, " (says %s)", intervalText(*f.told_s).c_str());
        if (f.longest_s > 0)
            std::fprintf(out, ", longest %s at %s", intervalText(f.longest_s).c_str(),
                         clockText(f.longestAt_s).c_str());
        if (f.gaps > 0) std::fprintf(out, ", %llu gaps", count(f.gaps));
        if (f.lost > 0) std::fprintf(out, ", %llu lost", count(f.lost));
        if (f.repeated > 0) std::fprintf(out, ", %llu repeated", count(f.repeated));
        std::fprintf(out, "\n");
    }
}

void printBeside(const PcapAnalysis& a, std::FILE* out)
{
    for (const auto& [sender, e] : a.esmc) {
        std::fprintf(out, "  ESMC of %s: %llu, %llu of them events, %llu silences; level", sender.c_str(),
                     count(e.count), count(e.events), count(e.gaps));
        for (const auto& [t_s, level] : e.levels)
            std::fprintf(out, " %s from %s", qualityLevelName(level).c_str(), clockText(t_s).c_str());
        std::fprintf(out, "\n");
    }
    for (const auto& [way, n] : a.ntp) {
        std::fprintf(out, "  NTP of %s: %llu requests, %llu answers, stratum %u\n", way.c_str(),
                     count(n.requests), count(n.answers), n.stratum);
        printSpread("path delay", n.path, out);
        printSpread("offset", n.offset, out);
    }
}

// ---- JSON ---------------------------------------------------------------------------------------

Json toJson(const PcapSeries& series)
{
    const PcapSpread s = spreadOf(series);
    return {{"count", s.count}, {"mean_ns", s.mean_ns}, {"min_ns", s.min_ns}, {"max_ns", s.max_ns},
            {"drift_ppb", s.slope_ppb}, {"deviation_ns", s.deviation_ns}, {"peak_ns", s.peak_ns}};
}

Json toJson(const PcapFlow& f)
{
    Json json = {{"count", f.count},         {"from_s", f.first_s},
                 {"to_s", f.last_s},         {"gaps", f.gaps},
                 {"lost", f.lost},           {"repeated", f.repeated},
                 {"longest_s", f.longest_s}, {"longest_at_s", f.longestAt_s}};
    if (f.count > 1) json["mean_s"] = f.mean_s();
    if (f.told_s) json["told_s"] = *f.told_s;
    return json;
}

Json verdictsOf(const std::array<u64, PCAP_VERDICTS>& n)
{
    return {{"taken", n[0]}, {"refused", n[1]}, {"waits", n[2]}, {"ignored", n[3]}, {"not_handed", n[4]}};
}

Json mastersOf(const PcapResult& r)
{
    Json json = Json::object();
    for (const auto& [port, m] : r.masters) {
        Json row = {
            {"announces", m.announces}, {"refused_announces", m.refusedAnnounces}, {"syncs", m.syncs}};
        if (m.isRead) {
            row["grandmaster"] = m.grandmaster;
            row["priority1"] = m.priority1;
            row["priority2"] = m.priority2;
            row["class"] = m.clockClass;
            row["accuracy"] = m.clockAccuracy;
            row["steps_removed"] = m.stepsRemoved;
        }
        json[port] = row;
    }
    return json;
}

Json esmcOf(const PcapAnalysis& a)
{
    Json json = Json::object();
    for (const auto& [sender, e] : a.esmc) {
        Json levels = Json::array();
        for (const auto& [t_s, level] : e.levels)
            levels.push_back({{"t", t_s}, {"ssm", level}, {"name", qualityLevelName(level)}});
        json[sender] = {{"count", e.count}, {"events", e.events}, {"silences", e.gaps}, {"levels", levels}};
    }
    return json;
}

// ---- plots --------------------------------------------------------------------------------------

constexpr std::size_t POINTS_MOST = 4000;

/// Beside its mean, in ns.
Curve curveOf(const std::string& title, const PcapSeries& series, const char* color)
{
    const double mean = spreadOf(series).mean_ns - static_cast<double>(series.base_ns);
    Curve c{title, std::string("lines lc rgb '") + color + "'", thinned(series.points, POINTS_MOST)};
    for (auto& [t_s, ns] : c.points) ns -= mean;
    return c;
}

std::string fileNameOf(std::string name)
{
    for (char& c : name)
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '.' && c != '-') c = '_';
    return name;
}

void writeSeries(const PcapExchanges& e, const std::string& file)
{
    std::ofstream out(file);
    out.precision(15);
    out << "t_s,path_delay_ns,offset_ns\n";
    for (std::size_t i = 0; i < e.path.points.size(); ++i)
        out << e.path.points[i].first << "," << static_cast<double>(e.path.base_ns) + e.path.points[i].second
            << "," << static_cast<double>(e.offset.base_ns) + e.offset.points[i].second << "\n";
}

}  // namespace

void printPcapAnalysis(const PcapAnalysis& a, std::FILE* out)
{
    printFlows(a, out);
    if (!a.masters.empty()) std::fprintf(out, "from the masters to the recorder, offset and delay in one\n");
    for (const auto& [name, m] : a.masters) {
        std::fprintf(out, "  %s\n", name.c_str());
        printSpread("Sync", m.sync, out);
        if (hasAny(m.correction)) printSpread("corrected by", m.correction, out);
    }
    if (!a.exchanges.empty()) std::fprintf(out, "exchanges, the recorder in the slave's place\n");
    for (const auto& [name, e] : a.exchanges) {
        std::fprintf(out, "  %s: %zu\n", name.c_str(), e.path.points.size());
        printSpread("path delay", e.path, out);
        printSpread("offset", e.offset, out);
        if (hasAny(e.correction)) printSpread("corrected by", e.correction, out);
    }
    if (!a.esmc.empty() || !a.ntp.empty()) std::fprintf(out, "beside PTP\n");
    printBeside(a, out);
}

std::string pcapJson(const PcapResult& r, const PcapAnalysis& a, const std::string& name)
{
    Json json = {
        {"capture", name}, {"seconds", a.duration_s}, {"packets", r.packets}, {"ptp", r.packets - r.other}};
    json["messages"] = Json::object();
    for (const auto& [type, n] : r.types) json["messages"][type] = verdictsOf(n);
    json["messages"]["all"] = verdictsOf(r.totals);
    json["not_taken"] = r.reasons;
    json["masters"] = mastersOf(r);
    json["references"] = Json::array();
    for (const PcapReference& ref : r.references)
        json["references"].push_back(
            {{"reference", ref.what}, {"state", ref.portState}, {"parent", ref.parent}});
    json["flows"] = Json::object();
    for (const auto& [flow, f] : a.flows) json["flows"][flow] = toJson(f);
    json["sync"] = Json::object();
    for (const auto& [master, m] : a.masters)
        json["sync"][master] = {{"offset_and_delay", toJson(m.sync)}, {"correction", toJson(m.correction)}};
    json["exchanges"] = Json::object();
    for (const auto& [pair, e] : a.exchanges)
        json["exchanges"][pair] = {{"path_delay", toJson(e.path)}, {"offset", toJson(e.offset)},
                                   {"correction", toJson(e.correction)}};
    json["esmc"] = esmcOf(a);
    json["ntp"] = Json::object();
    for (const auto& [way, n] : a.ntp)
        json["ntp"][way] = {{"requests", n.requests}, {"answers", n.answers}, {"stratum", n.stratum},
                            {"path_delay", toJson(n.path)}, {"offset", toJson(n.offset)}};
    json["misuses"] = r.misuses;
    // Names from the network may be no text at all.
    return json.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string writePcapReport(const PcapResult& r, const PcapAnalysis& a, const std::string& name,
                            const std::string& folder)
{
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) return folder + ": " + error.message();
    std::string plots;
    const auto draw = [&plots](const std::string& title, std::vector<Curve> curves) {
        std::string reason;
        const std::string svg = drawSvg({title, "s", "ns beside the mean", false, {}, std::move(curves)},
                                        reason);
        plots += svg.empty() ? "<p>" + title + ": " + reason + "</p>\n" : svg + "\n";
    };
    for (const auto& [pair, e] : a.exchanges) {
        draw(pair + ": path delay", {curveOf("path delay", e.path, "#1f77b4")});
        draw(pair + ": offset of the recorder's clock", {curveOf("offset", e.offset, "#d62728")});
        writeSeries(e, folder + "/" + fileNameOf(pair) + ".csv");
    }
    for (const auto& [master, m] : a.masters)
        draw(master + ": Sync, offset and delay in one", {curveOf("Sync", m.sync, "#2ca02c")});
    std::string text;
    if (std::FILE* const words = std::tmpfile()) {
        printPcapResult(r, name, words);
        printPcapAnalysis(a, words);
        std::rewind(words);
        for (int c = std::fgetc(words); c != EOF; c = std::fgetc(words))
            text += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, static_cast<char>(c));
        std::fclose(words);
    }
    return writeFile(folder + "/report.html", "<!doctype html>\n<meta charset=\"utf-8\">\n<title>"
                                                  + fileNameOf(name) + "</title>\n<pre>\n" + text + "</pre>\n"
                                                  + plots);
}

}  // namespace app
