#include "sim/scenario/scenario.h"

#include <toml++/toml.h>

#include <algorithm>
#include <filesystem>

namespace sim {
namespace {

template <typename Read>
void forEach(const toml::array* tables, Read read)
{
    if (tables == nullptr) return;
    for (const toml::node& table : *tables) read(*table.as_table());
}

void readHead(TableReader& top, Scenario& s)
{
    s.name = top.text("name", std::filesystem::path(s.file).stem().string());
    s.title = top.text("title", "");
    s.duration_s = top.seconds("duration");
    if (!(s.duration_s > 0.0)) top.fail("duration", "a run takes some time");
    constexpr double LONGEST_s = 100.0 * 86400.0;   // virtual time ends at 106 days
    if (s.duration_s > LONGEST_s) top.fail("duration", "100 days at most");
    s.seed = static_cast<u64>(top.integer("seed", 0, INT64_MAX, 1));
    s.interval_s = top.seconds("record_interval", 1.0);
    if (!(s.interval_s >= 0.1)) top.fail("record_interval", "0.1 s at least");
    s.pagesEvery_s = top.seconds("record_pages", 0.0);
    if (s.pagesEvery_s != 0.0 && !(s.pagesEvery_s >= 10.0)) top.fail("record_pages", "10 s at least");
}

/// A unit told to follow GPS with nothing at its serial line would wait for ever without a word.
void checkReceivers(const toml::array& units, const Scenario& s)
{
    for (std::size_t i = 0; i < s.units.size(); ++i) {
        const UnitSpec& u = s.units[i];
        const bool hasSource = u.gps || u.cmcc || std::ranges::any_of(s.links, [&u](const LinkSpec& l) {
            return l.to == u.node.name && (l.kind == LinkKind::GpsOut || l.kind == LinkKind::Hptsi);
        });
        if (hasSource) continue;
        const toml::table& unit = *units[i].as_table();
        forEach(unit["reference"].as_array(), [&s, &u](const toml::table& table) {
            const toml::node* const type = table.get("type");
            if (type != nullptr && type->value<std::string>() == "GPS_REF")
                throw ScenarioError(s.file, static_cast<u32>(type->source().begin.line),
                                    "reference: type: '" + u.node.name +
                                        "' has no [unit.gps], and no [[link]] "
                                        "of type gps_out leads to it");
        });
    }
}

Scenario readTop(toml::table&& parsed, const std::string& path)
{
    Scenario s;
    s.file = path;
    s.document = std::make_shared<const toml::table>(std::move(parsed));
    TableReader top(*s.document, path, "scenario");
    readHead(top, s);
    // A heading that nobody knows is told before what it leaves without its object.
    const toml::array* const units = top.tables("unit");
    const toml::array* const links = top.tables("link");
    const toml::array* const masters = top.tables("master");
    const toml::array* const paths = top.tables("path");
    const toml::array* const events = top.tables("event");
    top.tables("check");
    top.finish();
    if (units == nullptr) top.fail("a scenario has at least one [[unit]]");
    forEach(units, [&](const toml::table& t) { s.units.push_back(readUnit(t, path, s)); });
    forEach(links, [&](const toml::table& t) { s.links.push_back(readLink(t, path, s)); });
    checkReceivers(*units, s);
    forEach(masters, [&](const toml::table& t) { s.masters.push_back(readMaster(t, path, s)); });
    forEach(paths, [&](const toml::table& t) { s.paths.push_back(readPath(t, path, s)); });
    forEach(events, [&](const toml::table& t) { s.events.push_back(readEvent(t, path, s)); });
    std::ranges::stable_sort(s.events, {}, &EventSpec::at_s);
    return s;
}

}  // namespace

Scenario readScenario(const std::string& path)
{
    if (!std::filesystem::is_regular_file(path)) throw ScenarioError(path, 0, "there is no such file");
    try {
        return readTop(toml::parse_file(path), path);
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
    const auto [file, form] = parseSeriesForm(what);
    const EndlessSeries series(readFrequencies(file, form));
    for (UnitSpec& unit : scenario.units) unit.node.board.oscillator.series = series;
}

void replaceReferenceNoise(Scenario& scenario, const std::string& what)
{
    const auto [file, form] = parseSeriesForm(what);
    const EndlessSeries series(readPhases(file, form));
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

}  // namespace sim
