#include "app/report.h"

#include "app/report_page.h"
#include "app/summary.h"
#include "iif/kvd_pm.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace app {
namespace {

std::string seriesCsv(const UnitRecording& unit)
{
    std::ostringstream csv;
    csv.precision(15);
    csv << "t_s,time_error_ns,gps_time_error_ns,follow_error_ns,freq_error_ppb,divider,temperature_V,"
           "radioClockState,regState,degraded,estimate_time_ns,estimate_time_deviation_ns,estimate_freq_ppb,"
           "estimate_freq_deviation_ppb,pdv_down_ns,pdv_up_ns,pdv_limit_ns,loop_phase_ns,loop_divider_ppb,"
           "estimate_time_band_ns,estimate_freq_band_ppb,estimate_time_bound_ns,estimate_freq_bound_ppb\n";
    for (const Sample& s : unit.samples)
        csv << s.t << ',' << s.timeError_ns << ',' << s.gpsTimeError_ns << ',' << s.followError_ns << ','
            << s.freqError_ppb << ',' << s.div << ',' << s.temperature_V << ','
            << static_cast<int>(s.radioClockState) << ',' << static_cast<int>(s.regState) << ','
            << (s.isDegraded ? 1 : 0) << ',' << s.estimate.time_ns << ',' << s.estimate.timeDeviation_ns
            << ',' << s.estimate.freq_ppb << ',' << s.estimate.freqDeviation_ppb << ',' << s.pdv.down_ns
            << ',' << s.pdv.up_ns << ',' << s.pdv.limit_ns << ',' << s.loop.phase_ns << ','
            << s.loop.divider_ppb << ',' << s.estimate.timeBand_ns << ',' << s.estimate.freqBand_ppb << ','
            << s.estimate.timeBound_ns << ',' << s.estimate.freqBound_ppb << '\n';
    return csv.str();
}

std::string statesCsv(const UnitRecording& unit)
{
    struct Row { double t; std::string text; };
    std::vector<Row> rows;
    const auto row = [&](double t, const char* kind, int value, const std::string& name) {
        rows.push_back({t, std::string(kind) + ',' + std::to_string(value) + ',' + name});
    };
    for (const StateChange& c : unit.states) row(c.t, "radioClockState", c.state, c.name);
    for (const StateChange& c : unit.regStates) row(c.t, "regState", c.state, c.name);
    for (const StateChange& c : unit.loops) row(c.t, "loop", c.state, c.name);
    for (const Selection& s : unit.selected) row(s.t, "selected", s.refType, s.name);
    for (const StateChange& c : unit.gpsStates) row(c.t, "gpsState", c.state, c.name);
    for (const StateChange& c : unit.gpsTypes) row(c.t, "gpssType", c.state, c.name);
    for (const GpsStatus& g : unit.gpsStatuses) row(g.t, "gpsStatus", g.status, g.name);
    for (const StateChange& c : unit.qualities) row(c.t, "qualityLevel", c.state, c.name);
    for (const StateChange& c : unit.pduAlarms) row(c.t, "pduMissing", c.state, c.name);
    for (const PmPeriod& p : unit.pmPeriods) {
        std::string values;
        for (const i32 v : p.values) values += (values.empty() ? "" : " ") + std::to_string(v);
        row(p.t, p.froType == SYNC_PM_FROTYPE ? "pmSync" : "pmGps", p.suspect ? 1 : 0, values);
    }
    std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) { return a.t < b.t; });
    std::ostringstream csv;
    csv.precision(15);
    csv << "t_s,kind,value,name\n";
    for (const Row& r : rows) csv << r.t << ',' << r.text << '\n';
    return csv.str();
}

/// Texts stand in quotes, since they hold commas.
std::string eventsCsv(const UnitRecording& unit)
{
    std::ostringstream csv;
    csv.precision(15);
    csv << "t_s,kind,text\n";
    for (const UnitEvent& e : unit.events) {
        csv << e.t << ',' << e.kind << ",\"";
        for (const char c : e.text) csv << (c == '"' ? "\"\"" : std::string(1, c));
        csv << "\"\n";
    }
    return csv.str();
}

}  // namespace

std::string writeFile(const std::string& path, const std::string& content)
{
    std::ofstream out(path, std::ios::binary);
    out << content;
    out.close();
    return out ? "" : path + ": can't be written";
}

std::string writeReport(const Recording& recording, const std::string& directory)
{
    std::string wrong = writeFile(directory + "/summary.json", summaryJson(recording));
    for (const UnitRecording& unit : recording.units) {
        if (wrong.empty()) wrong = writeFile(directory + "/series-" + unit.name + ".csv", seriesCsv(unit));
        if (wrong.empty()) wrong = writeFile(directory + "/states-" + unit.name + ".csv", statesCsv(unit));
        if (wrong.empty()) wrong = writeFile(directory + "/events-" + unit.name + ".csv", eventsCsv(unit));
    }
    if (wrong.empty()) wrong = writeFile(directory + "/report.html", reportPage(recording));
    return wrong;
}

}  // namespace app
