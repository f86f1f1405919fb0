// Reading [unit.gps] and the events of a GPS receiver.
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

#include <algorithm>
#include <chrono>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

constexpr double LONGEST_DELAY_s = 1.9;

ose::Time spanOf(double seconds) { return static_cast<ose::Time>(seconds * 1e12 + 0.5); }

ose::Time span(TableReader& t, const char* key, ose::Time fallback)
{
    return spanOf(t.seconds(key, static_cast<double>(fallback) * 1e-12));
}

i64 secondsSince1970(const toml::date_time& at)
{
    using namespace std::chrono;
    const sys_days day{year{at.date.year} / month{at.date.month} / std::chrono::day{at.date.day}};
    return day.time_since_epoch().count() * i64{86400} + at.time.hour * 3600 + at.time.minute * 60
           + at.time.second;
}

/// Model, protocol and firmware, which depend on each other.
void readModel(TableReader& t, GpsReceiverConfig& c)
{
    c.model = t.choice<GpsModel>("type",
                                 {{"gps01", GpsModel::Gps01},
                                  {"gps02", GpsModel::Gps02},
                                  {"gps03", GpsModel::Gps03},
                                  {"combined", GpsModel::Combined},
                                  {"norvane", GpsModel::Norvane}},
                                 c.model);
    const bool both = c.model == GpsModel::Gps02 || c.model == GpsModel::Gps03;
    const GpsProtocol usual = both || c.model == GpsModel::Gps01 ? GpsProtocol::Furuno
                                                                 : GpsProtocol::Combined;
    c.protocol = t.choice<GpsProtocol>(
        "protocol", {{"furuno", GpsProtocol::Furuno}, {"combined", GpsProtocol::Combined}}, usual);
    if (!both && c.protocol != usual) t.fail("protocol", "this type doesn't speak it");
    c.firmware = t.text("firmware", c.model == GpsModel::Gps02 ? "120510" : "131224");
    if (c.firmware.empty() || c.firmware.size() > 16
        || c.firmware.find_first_of(",*$\r\n") != std::string::npos)
        t.fail("firmware", "1 to 16 characters, none of , * $");
    const bool second = c.firmware == "110624" || c.firmware == "120510";
    if (c.model == GpsModel::Gps02 && !second) t.fail("firmware", "a gps02 has 110624 or 120510");
    if (c.model == GpsModel::Gps03 && second) t.fail("firmware", "that is a gps02's");
}

void readPlace(TableReader& t, GpsReceiverConfig& c)
{
    c.latitude = t.number("latitude", c.latitude);
    c.longitude = t.number("longitude", c.longitude);
    c.altitude_m = t.number("altitude", c.altitude_m);
    if (!(c.latitude >= -90.0 && c.latitude <= 90.0)) t.fail("latitude", "-90 to 90");
    if (!(c.longitude >= -180.0 && c.longitude <= 180.0)) t.fail("longitude", "-180 to 180");
    if (!(c.altitude_m >= -500.0 && c.altitude_m <= 9000.0)) t.fail("altitude", "-500 to 9000");
}

ose::Time sentenceDelay(TableReader& t, const char* key, double seconds)
{
    if (!(seconds <= LONGEST_DELAY_s)) t.fail(key, "1.9 s at most");
    return spanOf(seconds);
}

struct FaultWord { const char* word; GpsFault fault; double usual, most; };
constexpr FaultWord FAULTS[] = {
    {"antenna_open",  GpsFault::AntennaOpen,  0.0, 0.0},
    {"antenna_short", GpsFault::AntennaShort, 0.0, 0.0},
    {"jamming",       GpsFault::Jamming,      20.0, 60.0},
    {"no_elevation",  GpsFault::NoElevation,  0.0, 0.0},
    {"status_nok",    GpsFault::StatusNok,    0.0, 0.0},
    {"no_gpgsv",      GpsFault::NoGpgsv,      0.0, 0.0},
    {"faulty",        GpsFault::Faulty,       0.0, 0.0},
    {"no_pps",        GpsFault::NoPps,        0.0, 0.0},
    {"stuck_pps",     GpsFault::StuckPps,     0.0, 0.0},
    {"wrong_second",  GpsFault::WrongSecond,  1.0, 1e6},
    {"bad_pulses",    GpsFault::BadPulses,    1000.0, 5e8},
    {"garbled",       GpsFault::Garbled,      0.01, 1.0},
    {"silence",       GpsFault::Silence,      0.0, 0.0},
    {"deaf",          GpsFault::Deaf,         0.0, 0.0},
};

Action faultEvent(TableReader& t)
{
    const FaultWord& known = t.row("fault", FAULTS, "fault of a receiver");
    GpsFaultOrder order;
    order.fault = known.fault;
    order.on = t.boolean("on", true);
    order.lasts = span(t, "for", 0);
    if (t.has("amount") && known.most == 0.0) t.fail("amount", "this fault has none");
    order.amount = t.number("amount", known.usual);
    const bool bothSigns = order.fault == GpsFault::WrongSecond || order.fault == GpsFault::BadPulses;
    const double least = bothSigns ? -known.most : 0.0;
    if (!(order.amount >= least && order.amount <= known.most)) t.fail("amount", "out of range");
    order.healedBy = t.choice<GpsHealedBy>("healed_by",
                                           {{"nothing", GpsHealedBy::Nothing},
                                            {"module", GpsHealedBy::Module},
                                            {"unit", GpsHealedBy::Unit}},
                                           GpsHealedBy::Nothing);
    order.restarts = static_cast<u32>(t.integer("restarts", 1, 255, 1));
    return [order](Unit& u) { u.gps().setFault(order); };
}

Action restartEvent(TableReader& t)
{
    const GpsRestart kind = t.choice<GpsRestart>("kind", {{"module", GpsRestart::Module},
                                                          {"cold", GpsRestart::ModuleCold},
                                                          {"unit", GpsRestart::Unit}});
    return [kind](Unit& u) { u.gps().restart(kind); };
}

Action protocolEvent(TableReader& t, const UnitSpec& unit)
{
    const GpsModel model = unit.gps->model;
    if (model != GpsModel::Gps02 && model != GpsModel::Gps03)
        t.fail("protocol", "the unit's receiver speaks one alone");
    const GpsProtocol protocol = t.choice<GpsProtocol>("protocol", {{"furuno", GpsProtocol::Furuno},
                                                                    {"combined", GpsProtocol::Combined}});
    return [protocol](Unit& u) { u.gps().setProtocol(protocol); };
}

Action replaceEvent(TableReader& t)
{
    GpsReceiverConfig c;
    readModel(t, c);
    return [model = c.model, protocol = c.protocol, firmware = c.firmware](Unit& u) {
        u.gps().replace(model, protocol, firmware);
    };
}

Action eventOf(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    if (word == "gps.fault") return faultEvent(t);
    if (word == "gps.restart") return restartEvent(t);
    if (word == "gps.protocol") return protocolEvent(t, unit);
    if (word == "gps.replace") return replaceEvent(t);
    if (word == "gps.power") return [on = t.boolean("on", true)](Unit& u) { u.gps().setPowered(on); };
    if (word == "gps.sentence_delay")
        return [delay = sentenceDelay(t, "delay", t.seconds("delay"))](Unit& u) {
            u.gps().setSentenceDelay(delay);
        };
    if (word == "gps.week_base")
        return
            [week = static_cast<i32>(t.integer("week", -1, 65535))](Unit& u) { u.gps().setWeekBase(week); };
    if (word == "gps.bad_pulse") return [s = t.number("ns") * 1e-9](Unit& u) { u.gps().moveNextPulse(s); };
    return {};
}

}  // namespace

i64 readStart(TableReader& t)
{
    const i64 start = secondsSince1970(
        t.dateTime("start", toml::date_time{toml::date{2024, 1, 1}, toml::time{0, 0, 0}}));
    if (start < nmea::GPS_EPOCH) t.fail("start", "GPS time begins at 1980-01-06");
    return start;
}

GpsReceiverConfig readGps(const toml::table& table, const std::string& file)
{
    TableReader t(table, file, "gps");
    GpsReceiverConfig c;
    readModel(t, c);
    readPlace(t, c);
    c.powered = t.boolean("powered", c.powered);
    c.start = readStart(t);
    c.leapSeconds = static_cast<i32>(t.integer("leap_seconds", 0, 99, c.leapSeconds));
    c.weekBase = static_cast<i32>(t.integer("week_base", -1, 65535, c.weekBase));
    if (t.has("sentence_delay"))
        c.sentenceDelay = sentenceDelay(t, "sentence_delay", t.seconds("sentence_delay"));
    c.checksums = t.boolean("checksums", c.checksums);
    c.bootTime = span(t, "boot_time", c.bootTime);
    c.coldFix = span(t, "cold_fix", c.coldFix);
    c.warmFix = span(t, "warm_fix", c.warmFix);
    c.surveyTime = span(t, "survey_time", c.surveyTime);
    c.restartTime = span(t, "restart_time", c.restartTime);
    c.unitResetTime = span(t, "unit_reset_time", c.unitResetTime);
    c.ppsHoldover = span(t, "pps_holdover", c.ppsHoldover);
    c.holdover_ppb = t.number("holdover_ppb", c.holdover_ppb);
    c.glonass = t.boolean("glonass", c.glonass);
    readPhase(t, c.pps);
    t.finish();
    return c;
}

std::function<void(Unit&)> readGpsEvent(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    if (!word.starts_with("gps.")) return {};
    if (!unit.gps) t.fail("do", "the unit has no [unit.gps]");
    return eventOf(word, t, unit);
}

}  // namespace sim
