#include "sim/scenario/scenario.h"

#include "reg/kvd_reg.h"
#include "sim/node/main_processor.h"

#include <algorithm>
#include <filesystem>

namespace sim {
namespace {

Scenario readTop(const toml::table& table, const std::string& path)
{
    TableReader top(table, path, "scenario");
    Scenario s;
    s.file = path;
    s.name = top.text("name", std::filesystem::path(path).stem().string());
    s.title = top.text("title", "");
    s.duration_s = top.seconds("duration");
    if (!(s.duration_s > 0.0)) top.fail("duration", "a run takes some time");
    constexpr double LONGEST_s = 100.0 * 86400.0;   // virtual time ends at 106 days
    if (s.duration_s > LONGEST_s) top.fail("duration", "100 days at most");
    s.seed = static_cast<u64>(top.integer("seed", 0, INT64_MAX, 1));
    s.interval_s = top.seconds("record_interval", 1.0);
    if (!(s.interval_s >= 0.1)) top.fail("record_interval", "0.1 s at least");
    const toml::array* const units = top.tables("unit");
    if (units == nullptr) top.fail("a scenario has at least one [[unit]]");
    for (const toml::node& unit : *units) s.units.push_back(readUnit(*unit.as_table(), path));
    if (const toml::array* const links = top.tables("link"))
        for (const toml::node& link : *links) s.links.push_back(readLink(*link.as_table(), path, s));
    if (const toml::array* const masters = top.tables("master"))
        for (const toml::node& m : *masters) s.masters.push_back(readMaster(*m.as_table(), path, s));
    if (const toml::array* const paths = top.tables("path"))
        for (const toml::node& p : *paths) s.paths.push_back(readPath(*p.as_table(), path, s));
    if (const toml::array* const events = top.tables("event"))
        for (const toml::node& event : *events) s.events.push_back(readEvent(*event.as_table(), path, s));
    if (const toml::array* const checks = top.tables("check"))
        for (const toml::node& check : *checks) s.checks.push_back(readCheck(*check.as_table(), path, s));
    top.finish();
    std::stable_sort(s.events.begin(), s.events.end(),
                     [](const EventSpec& a, const EventSpec& b) { return a.at_s < b.at_s; });
    return s;
}

template <typename NameOf>
std::optional<u8> byName(const std::string& name, u8 last, NameOf nameOf)
{
    for (u8 value = 1; value <= last; ++value)
        if (name == nameOf(value)) return value;
    return std::nullopt;
}

struct Recorded {
    std::vector<double> values;
    std::optional<SeriesKind> kind;
};

/// FILE or FILE:kind.
Recorded readRecorded(const std::string& what)
{
    constexpr std::pair<const char*, SeriesKind> KINDS[] = {
        {":hz", SeriesKind::FrequencyHz}, {":frequency", SeriesKind::Frequency}, {":phase", SeriesKind::Phase}};
    for (const auto& [suffix, kind] : KINDS)
        if (what.ends_with(suffix)) return {readSeries(what.substr(0, what.rfind(':'))), kind};
    return {readSeries(what), std::nullopt};
}

}  // namespace

Scenario readScenario(const std::string& path)
{
    if (!std::filesystem::is_regular_file(path)) throw ScenarioError(path, 0, "there is no such file");
    try {
        const toml::table table = toml::parse_file(path);
        return readTop(table, path);
    } catch (const toml::parse_error& e) {
        throw ScenarioError(path, static_cast<u32>(e.source().begin.line), std::string(e.description()));
    }
}

Scenario readScenarioText(const std::string& text, const std::string& name)
{
    try {
        return readTop(toml::parse(text, name), name);
    } catch (const toml::parse_error& e) {
        throw ScenarioError(name, static_cast<u32>(e.source().begin.line), std::string(e.description()));
    }
}

void replaceOscillator(Scenario& scenario, const std::string& what)
{
    const Recorded recorded = readRecorded(what);
    constexpr double LARGEST_RELATIVE = 1e3;   // a file of hertz holds millions
    const SeriesKind kind = recorded.kind.value_or(
        recorded.values.front() > LARGEST_RELATIVE ? SeriesKind::FrequencyHz : SeriesKind::Frequency);
    for (UnitSpec& unit : scenario.units)
        unit.node.board.oscillator.series = EndlessSeries(asFrequency(recorded.values, kind, 1.0));
}

void replaceReferenceNoise(Scenario& scenario, const std::string& what)
{
    const Recorded recorded = readRecorded(what);
    const EndlessSeries series(asPhase(recorded.values, recorded.kind.value_or(SeriesKind::Phase), 1.0));
    for (UnitSpec& unit : scenario.units) {
        for (auto& [input, line] : unit.inputs) {
            line.series = series;
            line.noise = {};
        }
        if (unit.gps) {
            unit.gps->pps.series = series;
            unit.gps->pps.noise = {};
        }
    }
}

std::optional<u8> clockStateByName(const std::string& name) { return byName(name, 17, clockStateName); }
std::optional<u8> regStateByName(const std::string& name)
{
    return byName(name, 14, KvdLoz6TuReg_regStateText);
}
std::optional<u8> refTypeByName(const std::string& name) { return byName(name, 15, refTypeName); }

}  // namespace sim
