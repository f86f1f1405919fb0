// The kinds of checks: the word, the keys that are read, how a recording is judged.
#include "app/check_outcomes.h"
#include "app/score.h"
#include "iif/kvd_pm.h"

#include <toml++/toml.h>

#include <algorithm>

namespace app {

using sim::TableReader;

/// A row of the one table in which a kind of check stands.
struct CheckKind {
    const char* word;
    void (*read)(TableReader& t, CheckSpec& c, const sim::Scenario& scenario);
    Outcome (*evaluate)(const UnitRecording& u, const CheckSpec& c);
};

namespace {

void readMoment(TableReader& t, CheckSpec& c)
{
    c.from_s = t.seconds("at");
    c.to_s = c.from_s;
}

void readSpan(TableReader& t, CheckSpec& c, const sim::Scenario& scenario)
{
    c.from_s = t.seconds("from", 0.0);
    c.to_s = t.seconds("to", scenario.duration_s);
    if (!(c.from_s < c.to_s)) t.fail("from", "it doesn't lie before 'to'");
}

void readCounts(TableReader& t, CheckSpec& c)
{
    c.least = static_cast<u64>(t.integer("least", 0, INT64_MAX, 1));
    c.most = static_cast<u64>(t.integer("most", 0, INT64_MAX, INT64_MAX));
    if (c.least > c.most) t.fail("least", "it is more than 'most'");
}

using ByName = std::optional<u8> (*)(const std::string&);

u8 stateOf(TableReader& t, const char* key, const std::string& name, ByName byName)
{
    const std::optional<u8> state = byName(name);
    if (!state) t.fail(key, "'" + name + "' is no known name");
    return *state;
}

/// A state at a moment.
template <ByName BY_NAME>
void readStateAt(TableReader& t, CheckSpec& c, const sim::Scenario&)
{
    readMoment(t, c);
    c.states = {stateOf(t, "is", t.text("is"), BY_NAME)};
}

/// A state that is to be entered.
template <ByName BY_NAME>
void readStateReached(TableReader& t, CheckSpec& c, const sim::Scenario& scenario)
{
    readSpan(t, c, scenario);
    c.states = {stateOf(t, "state", t.text("state"), BY_NAME)};
}

void readSequence(TableReader& t, CheckSpec& c, const sim::Scenario&)
{
    for (const std::string& name : t.texts("states"))
        c.states.push_back(stateOf(t, "states", name, sim::clockStateByName));
    if (c.states.empty()) t.fail("'states' is missing or empty");
}

void readLimit(TableReader& t, CheckSpec& c, const sim::Scenario& scenario, const char* key)
{
    readSpan(t, c, scenario);
    c.limit = t.number(key);
    if (!(c.limit >= 0.0)) t.fail(key, "a limit is not negative");
}
void readLimit_ns(TableReader& t, CheckSpec& c, const sim::Scenario& s) { readLimit(t, c, s, "max_ns"); }
void readLimit_ppb(TableReader& t, CheckSpec& c, const sim::Scenario& s) { readLimit(t, c, s, "max_ppb"); }
void readTolerance(TableReader& t, CheckSpec& c, const sim::Scenario& s) { readLimit(t, c, s, "tolerance"); }

/// A unit leads nobody's counter unless a link says so, or is turned to say so.
void readFollowing(TableReader& t, CheckSpec& c, const sim::Scenario& scenario)
{
    const bool follows = std::ranges::any_of(scenario.links, [&](const sim::LinkSpec& l) {
        const bool isTurned = std::ranges::any_of(scenario.events, [&l](const sim::EventSpec& e) {
            return e.link == l.name && e.what.starts_with("link.turn");
        });
        return l.kind != sim::LinkKind::Inci && (l.to == c.unit || (isTurned && l.from == c.unit));
    });
    if (!follows) t.fail("'" + c.unit + "' follows no other unit: no [[link]] leads to it");
    readLimit_ns(t, c, scenario);
}

void readMask(TableReader& t, CheckSpec& c, const sim::Scenario& scenario)
{
    readSpan(t, c, scenario);
    c.interval_s = scenario.interval_s;
    c.text = t.text("mask");
    if (maskByName(c.text) == nullptr) t.fail("mask", "there is no mask '" + c.text + "'; " + maskNames());
}

/// So many times between two moments, of a text that `key` names.
void readTimes(TableReader& t, CheckSpec& c, const sim::Scenario& scenario, const char* key)
{
    readSpan(t, c, scenario);
    c.text = t.text(key);
    readCounts(t, c);
}
void readText(TableReader& t, CheckSpec& c, const sim::Scenario& s) { readTimes(t, c, s, "text"); }
void readCode(TableReader& t, CheckSpec& c, const sim::Scenario& s) { readTimes(t, c, s, "code"); }
void readTest(TableReader& t, CheckSpec& c, const sim::Scenario& s) { readTimes(t, c, s, "test"); }

void readTrace(TableReader& t, CheckSpec& c, const sim::Scenario&)
{
    c.trace = t.text("text");
    readCounts(t, c);
}

void readGpsStatus(TableReader& t, CheckSpec& c, const sim::Scenario&)
{
    readMoment(t, c);
    c.text = t.text("is");
}

void readQuality(TableReader& t, CheckSpec& c, const sim::Scenario&)
{
    readMoment(t, c);
    c.states = {static_cast<u8>(t.integer("is", 0, 255))};
}

void readPduMissing(TableReader& t, CheckSpec& c, const sim::Scenario&)
{
    readMoment(t, c);
    c.states = {t.boolean("is", true) ? u8{1} : u8{0}};
}

void readPmPeriods(TableReader& t, CheckSpec& c, const sim::Scenario& scenario)
{
    readSpan(t, c, scenario);
    c.pmSet = t.choice<u32>("set", {{"sync", SYNC_PM_FROTYPE}, {"gps", GPSSYNCREF_PM_FROTYPE}});
    readCounts(t, c);
}

void readCommand(TableReader& t, CheckSpec& c, const sim::Scenario&)
{
    readMoment(t, c);
    c.command = t.text("line");
    c.texts = t.texts("in_order");
    if (!c.texts.empty()) return;
    c.text = t.text("text");
    readCounts(t, c);
}

void readSocpriTold(TableReader& t, CheckSpec& c, const sim::Scenario& scenario)
{
    const std::string word = t.text("answer");
    const std::optional<u32> sigNo = sim::socpriAnswerByName(word);
    if (!sigNo) t.fail("answer", "'" + word + "' is no answer about radio links");
    c.socpriSigNo = *sigNo;
    if (t.has("port")) c.port = static_cast<u8>(t.integer("port", 1, 7));
    if (t.has("status")) c.status = static_cast<u32>(t.integer("status", 0, 7));
    readSpan(t, c, scenario);
    readCounts(t, c);
}

constexpr CheckKind KINDS[] = {
    {"clock",                 readStateAt<sim::clockStateByName>,      clockAt},
    {"regulator",             readStateAt<sim::regStateByName>,        regStateAt},
    {"selected",              readStateAt<sim::refTypeByName>,         selectedAt},
    {"gps_state",             readStateAt<sim::gpsStateByName>,        gpsStateAt},
    {"gps_type",              readStateAt<sim::gpssTypeByName>,        gpsTypeAt},
    {"reaches",               readStateReached<sim::clockStateByName>, reaches},
    {"gps_reaches",           readStateReached<sim::gpsStateByName>,   gpsReaches},
    {"sequence",              readSequence,                            sequence},
    {"time_error",            readLimit_ns,                            timeError},
    {"time_error_about_mean", readLimit_ns,                            errorAboutMean},
    {"gps_time",              readLimit_ns,                            gpsTimeError},
    {"following",             readFollowing,                           followError},
    {"freq_error",            readLimit_ppb,                           freqError},
    {"divider",               readTolerance,                           dividerKept},
    {"mask",                  readMask,                                underMask},
    {"trace",                 readTrace,                               traced},
    {"gps_status",            readGpsStatus,                           gpsStatusAt},
    {"quality",               readQuality,                             qualityAt},
    {"pdu_missing",           readPduMissing,                          pduMissingAt},
    {"gps_told",              readText,                                gpsTold},
    {"error_log",             readCode,                                errorsLogged},
    {"test_failed",           readTest,                                testsFailed},
    {"pm_periods",            readPmPeriods,                           periodsReported},
    {"command",               readCommand,                             printed},
    {"socpri_told",           readSocpriTold,                          socpriTold},
};

const CheckKind& kindOf(TableReader& t, const std::string& word)
{
    std::string known;
    for (const CheckKind& k : KINDS) {
        if (word == k.word) return k;
        known += (known.empty() ? "" : ", ") + std::string(k.word);
    }
    t.fail("check", "'" + word + "' is none of " + known);
}

CheckSpec readCheck(const toml::table& table, const sim::Scenario& scenario)
{
    TableReader t(table, scenario.file, "check");
    CheckSpec c;
    const std::string word = t.text("check");
    c.kind = &kindOf(t, word);
    c.unit = t.text("unit", scenario.units.front().node.name);
    if (std::ranges::none_of(scenario.units, [&](const sim::UnitSpec& u) { return u.node.name == c.unit; }))
        t.fail("unit", "there is no unit '" + c.unit + "'");
    c.name = t.text("name", word);
    c.kind->read(t, c, scenario);
    if (c.to_s > scenario.duration_s) t.fail("the run is over by then");
    t.finish();
    return c;
}

}  // namespace

std::vector<CheckSpec> readChecks(const sim::Scenario& scenario)
{
    std::vector<CheckSpec> checks;
    if (const toml::array* const tables = scenario.document->get_as<toml::array>("check"))
        for (const toml::node& table : *tables) checks.push_back(readCheck(*table.as_table(), scenario));
    return checks;
}

std::vector<CheckResult> evaluateChecks(const std::vector<CheckSpec>& checks, const Recording& recording)
{
    std::vector<CheckResult> results;
    for (const CheckSpec& c : checks) {
        const auto unit = std::ranges::find(recording.units, c.unit, &UnitRecording::name);
        const Outcome outcome = c.kind->evaluate(*unit, c);
        results.push_back({c.unit, c.name, outcome.pass, outcome.detail, c.kind->word, outcome.value,
                           outcome.least, outcome.most, outcome.of, c.from_s, c.to_s});
    }
    return results;
}

}  // namespace app
