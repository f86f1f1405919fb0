// Reading a [[check]]: what must hold at the end of a run.
#include "sim/scenario/scenario.h"

#include <algorithm>

namespace sim {
namespace {

u8 stateOf(TableReader& t, const char* key, const std::string& name,
           std::optional<u8> (*byName)(const std::string&))
{
    const std::optional<u8> state = byName(name);
    if (!state) t.fail(key, "'" + name + "' is no known name");
    return *state;
}

void readMoment(TableReader& t, CheckSpec& c)
{
    c.from_s = t.seconds("at");
    c.to_s = c.from_s;
}

void readSpan(TableReader& t, CheckSpec& c, const Scenario& scenario)
{
    c.from_s = t.seconds("from", 0.0);
    c.to_s = t.seconds("to", scenario.duration_s);
    if (!(c.from_s < c.to_s)) t.fail("from", "it lies before 'to'");
}

void readKind(TableReader& t, CheckSpec& c, const Scenario& scenario)
{
    switch (c.kind) {
    case CheckKind::Clock:
        readMoment(t, c);
        c.states = {stateOf(t, "is", t.text("is"), clockStateByName)};
        break;
    case CheckKind::RegState:
        readMoment(t, c);
        c.states = {stateOf(t, "is", t.text("is"), regStateByName)};
        break;
    case CheckKind::Selected:
        readMoment(t, c);
        c.states = {stateOf(t, "is", t.text("is"), refTypeByName)};
        break;
    case CheckKind::Reaches:
        readSpan(t, c, scenario);
        c.states = {stateOf(t, "state", t.text("state"), clockStateByName)};
        break;
    case CheckKind::Sequence:
        for (const std::string& name : t.texts("states"))
            c.states.push_back(stateOf(t, "states", name, clockStateByName));
        if (c.states.empty()) t.fail("'states' is missing or empty");
        break;
    case CheckKind::TimeError:
        readSpan(t, c, scenario);
        c.limit = t.number("max_ns");
        break;
    case CheckKind::FreqError:
        readSpan(t, c, scenario);
        c.limit = t.number("max_ppb");
        break;
    case CheckKind::Mask:
        c.text = t.text("mask");
        break;
    case CheckKind::Divider:
        readSpan(t, c, scenario);
        c.limit = t.number("tolerance");
        break;
    case CheckKind::Trace:
        c.text = t.text("text");
        c.least = static_cast<u64>(t.integer("least", 0, INT64_MAX, 1));
        c.most = static_cast<u64>(t.integer("most", 0, INT64_MAX, INT64_MAX));
        break;
    }
}

}  // namespace

CheckSpec readCheck(const toml::table& table, const std::string& file, const Scenario& scenario)
{
    TableReader t(table, file, "check");
    CheckSpec c;
    const std::string word = t.text("check");
    c.kind = t.choice<CheckKind>("check", {{"clock", CheckKind::Clock},
                                           {"reaches", CheckKind::Reaches},
                                           {"sequence", CheckKind::Sequence},
                                           {"regulator", CheckKind::RegState},
                                           {"selected", CheckKind::Selected},
                                           {"time_error", CheckKind::TimeError},
                                           {"freq_error", CheckKind::FreqError},
                                           {"mask", CheckKind::Mask},
                                           {"divider", CheckKind::Divider},
                                           {"trace", CheckKind::Trace}});
    c.unit = t.text("unit", scenario.units.front().node.name);
    if (std::none_of(scenario.units.begin(), scenario.units.end(),
                     [&](const UnitSpec& u) { return u.node.name == c.unit; }))
        t.fail("unit", "there is no unit '" + c.unit + "'");
    c.name = t.text("name", word);
    readKind(t, c, scenario);
    if (c.to_s > scenario.duration_s) t.fail("the run is over by then");
    t.finish();
    return c;
}

}  // namespace sim
