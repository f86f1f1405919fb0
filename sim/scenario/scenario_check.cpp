// Reading a [[check]]: what must hold at the end of a run.
#include "iif/kvd_pm.h"
#include "sig/tuiif_sig.h"
#include "sim/scenario/scenario.h"

#include <algorithm>

namespace sim {
namespace {

constexpr const char* GPS_STATES[] = {"ILLEGAL_STATE",        "UN_INIT",
                                      "INIT_SERIAL_PORT",     "WAIT_FOR_ANY_MSG",
                                      "WAIT_FOR_VALID_MSG",   "WAIT_FOR_OPERATIONAL",
                                      "OPERATIONAL",          "OPERATIONAL_WITH_VALID_TIME"};
constexpr const char* GPSS_TYPES[] = {"NONE",    "FURUNO",         "NORVANE_COMBINED", "PENDING",
                                      "NORVANE", "PENDING_FURUNO", "FURUNO_GPS02"};

template <std::size_t N>
std::optional<u8> indexOf(const char* const (&names)[N], const std::string& name)
{
    for (std::size_t i = 0; i < N; ++i)
        if (name == names[i]) return static_cast<u8>(i);
    return std::nullopt;
}
std::optional<u8> gpsStateByName(const std::string& name) { return indexOf(GPS_STATES, name); }
std::optional<u8> gpssTypeByName(const std::string& name) { return indexOf(GPSS_TYPES, name); }

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

void readCounts(TableReader& t, CheckSpec& c)
{
    c.least = static_cast<u64>(t.integer("least", 0, INT64_MAX, 1));
    c.most = static_cast<u64>(t.integer("most", 0, INT64_MAX, INT64_MAX));
}

void readGpsKind(TableReader& t, CheckSpec& c, const Scenario& scenario)
{
    switch (c.kind) {
    case CheckKind::GpsState:
        readMoment(t, c);
        c.states = {stateOf(t, "is", t.text("is"), gpsStateByName)};
        break;
    case CheckKind::GpsReaches:
        readSpan(t, c, scenario);
        c.states = {stateOf(t, "state", t.text("state"), gpsStateByName)};
        break;
    case CheckKind::GpsType:
        readMoment(t, c);
        c.states = {stateOf(t, "is", t.text("is"), gpssTypeByName)};
        break;
    case CheckKind::GpsStatus:
        readMoment(t, c);
        c.text = t.text("is");
        break;
    case CheckKind::GpsTold:
        readSpan(t, c, scenario);
        c.text = t.text("text");
        readCounts(t, c);
        break;
    default:
        break;
    }
}

struct SocpriAnswer { const char* word; SIGSELECT sigNo; };
constexpr SocpriAnswer SOCPRI_ANSWERS[] = {
    {"start", KVD_TUIIF_SOCPRI_START_RSP},
    {"scan", KVD_TUIIF_SOCPRI_SCAN_LINK_RSP},
    {"select", KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_RSP},
    {"sync", KVD_TUIIF_SOCPRI_LINK_SYNC_STATUS_IND},
    {"align", KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_RSP},
    {"holdover", KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_RSP},
    {"supervision", KVD_TUIIF_SOCPRI_SUPERVISION_STATUS_IND},
    {"link", KVD_TUIIF_SOCPRI_LINK_STATUS_FWD},
    {"already_selected", KVD_TUIIF_SOCPRI_ALREADY_SELECTED_IND},
};

void readSocpriTold(TableReader& t, CheckSpec& c, const Scenario& scenario)
{
    const std::string word = t.text("answer");
    for (const SocpriAnswer& a : SOCPRI_ANSWERS)
        if (word == a.word) c.socpriSigNo = a.sigNo;
    if (c.socpriSigNo == 0) t.fail("answer", "'" + word + "' is no answer about radio links");
    if (t.has("port")) c.port = static_cast<u8>(t.integer("port", 1, 7));
    if (t.has("status")) c.status = static_cast<u32>(t.integer("status", 0, 7));
    readSpan(t, c, scenario);
    readCounts(t, c);
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
        readSpan(t, c, scenario);
        c.text = t.text("mask");
        break;
    case CheckKind::Divider:
        readSpan(t, c, scenario);
        c.limit = t.number("tolerance");
        break;
    case CheckKind::AboutMean:
    case CheckKind::GpsTime:
    case CheckKind::Following:
        readSpan(t, c, scenario);
        c.limit = t.number("max_ns");
        break;
    case CheckKind::Trace:
        c.text = t.text("text");
        readCounts(t, c);
        break;
    case CheckKind::PmPeriods:
        readSpan(t, c, scenario);
        c.pmSet = t.choice<u32>("set", {{"sync", SYNC_PM_FROTYPE}, {"gps", GPSSYNCREF_PM_FROTYPE}});
        readCounts(t, c);
        break;
    case CheckKind::ErrorLog:
        readSpan(t, c, scenario);
        c.text = t.text("code");
        readCounts(t, c);
        break;
    case CheckKind::TestFailed:
        readSpan(t, c, scenario);
        c.text = t.text("test");
        readCounts(t, c);
        break;
    case CheckKind::Quality:
        readMoment(t, c);
        c.states = {static_cast<u8>(t.integer("is", 0, 255))};
        break;
    case CheckKind::PduMissing:
        readMoment(t, c);
        c.states = {t.boolean("is", true) ? u8{1} : u8{0}};
        break;
    case CheckKind::Command:
        readMoment(t, c);
        c.line = t.text("line");
        c.texts = t.texts("in_order");
        if (!c.texts.empty()) break;
        c.text = t.text("text");
        readCounts(t, c);
        break;
    case CheckKind::SocpriTold:
        readSocpriTold(t, c, scenario);
        break;
    case CheckKind::GpsState:
    case CheckKind::GpsReaches:
    case CheckKind::GpsType:
    case CheckKind::GpsStatus:
    case CheckKind::GpsTold:
        readGpsKind(t, c, scenario);
        break;
    }
}

}  // namespace

const char* gpsStateName(u8 gpsState)
{
    return gpsState < std::size(GPS_STATES) ? GPS_STATES[gpsState] : "UNKNOWN";
}
const char* gpssTypeName(u8 gpssType)
{
    return gpssType < std::size(GPSS_TYPES) ? GPSS_TYPES[gpssType] : "UNKNOWN";
}

const char* socpriAnswerName(u32 sigNo)
{
    for (const SocpriAnswer& a : SOCPRI_ANSWERS)
        if (a.sigNo == sigNo) return a.word;
    return "UNKNOWN";
}

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
                                           {"trace", CheckKind::Trace},
                                           {"time_error_about_mean", CheckKind::AboutMean},
                                           {"gps_time", CheckKind::GpsTime},
                                           {"following", CheckKind::Following},
                                           {"gps_state", CheckKind::GpsState},
                                           {"gps_reaches", CheckKind::GpsReaches},
                                           {"gps_type", CheckKind::GpsType},
                                           {"gps_status", CheckKind::GpsStatus},
                                           {"gps_told", CheckKind::GpsTold},
                                           {"pm_periods", CheckKind::PmPeriods},
                                           {"error_log", CheckKind::ErrorLog},
                                           {"test_failed", CheckKind::TestFailed},
                                           {"quality", CheckKind::Quality},
                                           {"pdu_missing", CheckKind::PduMissing},
                                           {"command", CheckKind::Command},
                                           {"socpri_told", CheckKind::SocpriTold}});
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
