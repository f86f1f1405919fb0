// Reading a [[unit]]: board, oscillator, oven, references at its inputs, what the main processor knows.
#include "sim/scenario/scenario.h"

#include <toml++/toml.h>

#include <algorithm>
#include <filesystem>

namespace sim {
namespace {

struct InputName { const char* name; ReferenceInput input; };
constexpr InputName INPUTS[] = {
    {"pdh1", ReferenceInput::Pdh1},       {"pdh2", ReferenceInput::Pdh2},
    {"pdh3", ReferenceInput::Pdh3},       {"pdh4", ReferenceInput::Pdh4},
    {"sdh", ReferenceInput::Sdh},         {"external", ReferenceInput::ExternalFrequency},
    {"pps", ReferenceInput::Pps},         {"eth_a", ReferenceInput::EthernetA},
    {"eth_b", ReferenceInput::EthernetB}, {"eth_c", ReferenceInput::EthernetC},
};

/// A file named in a scenario lies beside it, unless its path is absolute.
std::string beside(const std::string& scenario, const std::string& file)
{
    return (std::filesystem::path(scenario).parent_path() / file).string();
}

void readOscillator(const toml::table* table, const std::string& file, OscillatorConfig& c)
{
    if (table == nullptr) return;
    TableReader t(*table, file, "oscillator");
    c.nominal_Hz = t.number("nominal_hz", c.nominal_Hz);
    if (!(c.nominal_Hz > 0.0)) t.fail("nominal_hz", "above 0");
    c.offset_ppb = t.number("offset_ppb", c.offset_ppb);
    c.ageing_ppb_per_day = t.number("ageing_ppb_per_day", c.ageing_ppb_per_day);
    c.slope_ppb_per_V = t.number("slope_ppb_per_volt", c.slope_ppb_per_V);
    c.retrace_ppb = t.number("retrace_ppb", c.retrace_ppb);
    c.retraceTau_s = t.seconds("retrace_time", c.retraceTau_s);
    c.warmUp_ppb = t.number("warm_up_ppb", c.warmUp_ppb);
    c.noise.white = t.notNegative("white_fm", c.noise.white);
    c.noise.flicker = t.notNegative("flicker_fm", c.noise.flicker);
    c.noise.randomWalk = t.notNegative("random_walk_fm", c.noise.randomWalk);
    const std::vector<double> polynomial = t.numbers("polynomial_ppb");
    if (!polynomial.empty() && polynomial.size() != 4)
        t.fail("polynomial_ppb", "four coefficients, a0 to a3");
    for (std::size_t i = 0; i < polynomial.size(); ++i) c.a[i] = polynomial[i];
    if (t.has("series")) c.series = readRecord(t, readFrequencies, {});
    t.finish();
}

void readTemperature(const toml::table* table, const std::string& file, TemperatureConfig& c)
{
    if (table == nullptr) return;
    TableReader t(*table, file, "temperature");
    c.shape = t.choice<TemperatureShape>("shape",
                                         {{"constant", TemperatureShape::Constant},
                                          {"day", TemperatureShape::Day},
                                          {"step", TemperatureShape::Step},
                                          {"ramp", TemperatureShape::Ramp},
                                          {"series", TemperatureShape::Series}},
                                         c.shape);
    c.base_V = t.number("base_volts", c.base_V);
    c.amplitude_V = t.number("amplitude_volts", c.amplitude_V);
    c.period_s = t.seconds("period", c.period_s);
    c.stepAt_s = t.seconds("step_at", c.stepAt_s);
    c.slope_V_per_h = t.number("slope_volts_per_hour", c.slope_V_per_h);
    c.coldStart_V = t.number("cold_volts", c.coldStart_V);
    c.warmUpTau_s = t.seconds("warm_up_time", c.warmUpTau_s);
    if (!(c.period_s > 0.0)) t.fail("period", "longer than nothing");
    if (c.shape == TemperatureShape::Series) {
        c.series = EndlessSeries(readColumn(t));
        c.seriesInterval_s = t.seconds("series_interval", c.seriesInterval_s);
        c.seriesOffset_V = t.number("series_offset_volts", c.seriesOffset_V);
        c.seriesScale_V = t.number("series_scale_volts", c.seriesScale_V);
        if (!(c.seriesInterval_s > 0.0)) t.fail("series_interval", "longer than nothing");
    }
    t.finish();
}

void readEeprom(const toml::table* table, const std::string& file, EepromConfig& c)
{
    if (table == nullptr) return;
    TableReader t(*table, file, "eeprom");
    c.serial = t.text("serial", c.serial);
    c.partNumber = t.text("part_number", c.partNumber);
    c.tempMin_V = t.number("temperature_min_volts", c.tempMin_V);
    c.tempMax_V = t.number("temperature_max_volts", c.tempMax_V);
    c.calibrationDate = t.text("calibration_date", c.calibrationDate);
    if (c.serial.size() != 16) t.fail("serial", "16 characters");
    if (c.partNumber.size() > 11) t.fail("part_number", "11 characters at most");
    t.finish();
}

LineConfig readInput(const toml::table& table, const std::string& file, ReferenceInput& input)
{
    TableReader t(table, file, "input");
    const std::string at = t.text("at");
    bool known = false;
    for (const InputName& n : INPUTS) {
        if (at != n.name) continue;
        input = n.input;
        known = true;
    }
    if (!known) t.fail("at", "'" + at + "' is no input; pps, external, pdh1 to pdh4, sdh, eth_a to eth_c");
    LineConfig c;
    c.present = t.boolean("present", true);
    c.frequency_ppb = t.number("frequency_ppb", 0.0);
    readPhase(t, c);
    t.finish();
    return c;
}

MpReference readReference(const toml::table& table, const std::string& file)
{
    TableReader t(table, file, "reference");
    MpReference r;
    const std::string type = t.text("type");
    const std::optional<u8> refType = refTypeByName(type);
    if (!refType || *refType == 1) t.fail("type", "'" + type + "' is no reference type");
    r.refType = *refType;
    r.name = t.text("name", type);
    r.froId = static_cast<u32>(t.integer("fro_id", 0, 0xFFFFFFFE));
    r.froClassNo = static_cast<u32>(t.integer("fro_class", 0, 0xFFFFFFFE, 1));
    constexpr u8 ETHA = 11, ETHC = 13;
    if (r.refType >= ETHA && r.refType <= ETHC) r.macAddress[5] = r.refType;   // each port has its own
    r.supervise = t.boolean("supervise", true);
    r.alwaysUsable = t.boolean("always_usable", false);
    if (t.has("time_bound_ns")) r.timeBound_ns = t.notNegative("time_bound_ns", 0.0);
    if (t.has("frequency_bound_ppb")) r.frequencyBound_ppb = t.notNegative("frequency_bound_ppb", 0.0);
    t.finish();
    return r;
}

PhyPort readPort(const toml::table& table, const std::string& file)
{
    TableReader t(table, file, "port");
    PhyPort p;
    p.line = static_cast<u32>(t.integer("line", 0, 4));
    p.froId = static_cast<u32>(t.integer("fro_id", 0, 0xFFFFFFFE));
    t.finish();
    return p;
}

void readMainProcessor(TableReader& t, MainProcessorConfig& mp)
{
    mp.timeMode = t.choice<u8>("time_mode", {{"frequency", u8{1}}, {"time", u8{3}}}, u8{1});
    mp.masterSlaveMode = t.choice<u8>("role", {{"master", u8{1}}, {"slave", u8{0}}}, u8{1});
    mp.gpsOut = t.boolean("gps_out", false) ? 1 : 0;
    mp.hptsiOut = t.boolean("hptsi_out", false) ? 1 : 0;
    mp.selectionQlMode = t.boolean("selects_by_quality", false) ? 1 : 0;
    mp.selects = t.boolean("main_processor_selects", true);
    mp.present = t.boolean("main_processor_present", true);
    const toml::date_time zero = t.dateTime(
        "sfn_zero", toml::date_time{toml::date{1980, 1, 6}, toml::time{0, 0, 0}});
    mp.sfnInitTime = {static_cast<u16>(zero.date.year), zero.date.month, zero.date.day,
                      zero.time.hour,                   zero.time.minute, zero.time.second};
}

SeriesKind kindOf(TableReader& t, std::optional<SeriesKind> usual)
{
    if (!t.has("series_kind") && usual) return *usual;
    const std::string word = t.text("series_kind");
    std::string known;
    for (const auto& [name, kind] : SERIES_KINDS) {
        if (word == name) return kind;
        known += (known.empty() ? "" : ", ") + std::string(name);
    }
    t.fail("series_kind", "'" + word + "' is none of " + known);
}

}  // namespace

EndlessSeries readRecord(TableReader& t, std::vector<double> (*read)(const std::string&, const SeriesForm&),
                         std::optional<SeriesKind> usual)
{
    SeriesForm form;
    form.kind = kindOf(t, usual);
    form.column = static_cast<std::size_t>(t.integer("series_column", 0, 99, 0));
    if (form.kind == SeriesKind::Counts) {
        form.nominal = t.number("series_nominal");
        if (!(form.nominal > 0.0)) t.fail("series_nominal", "above 0");
        form.gate_s = static_cast<u32>(t.integer("series_gate", 1, 3600, 1));
    }
    try {
        return EndlessSeries(read(beside(t.file(), t.text("series")), form));
    } catch (const SeriesError& e) {
        t.fail("series", e.what());
    }
}

std::vector<double> readColumn(TableReader& t)
{
    const std::size_t column = static_cast<std::size_t>(t.integer("series_column", 0, 99, 0));
    try {
        return readSeries(beside(t.file(), t.text("series")), column);
    } catch (const SeriesError& e) {
        t.fail("series", e.what());
    }
}

Wander readWander(TableReader& t)
{
    const Wander w{t.number("wander_ns", 0.0) * 1e-9, t.seconds("wander_period", 60.0)};
    if (!(w.peakToPeak_s >= 0.0 && w.peakToPeak_s < 0.01)) t.fail("wander_ns", "0 to less than 10 ms");
    if (!(w.period_s >= 1.0)) t.fail("wander_period", "1 s at least");
    return w;
}

void readPhase(TableReader& t, LineConfig& c)
{
    constexpr double NS = 1e-9;
    c.phase_s = t.number("phase_ns", c.phase_s / NS) * NS;
    c.wander = readWander(t);
    c.noise.white_s = t.notNegative("white_ns", c.noise.white_s / NS) * NS;
    c.noise.flicker_s = t.notNegative("flicker_ns", c.noise.flicker_s / NS) * NS;
    c.noise.sawTooth_s = t.notNegative("saw_tooth_ns", c.noise.sawTooth_s / NS) * NS;
    c.noise.sawToothPeriod_s = t.seconds("saw_tooth_period", c.noise.sawToothPeriod_s);
    if (!(c.noise.sawToothPeriod_s > 0.0)) t.fail("saw_tooth_period", "longer than nothing");
    if (t.has("series")) c.series = readRecord(t, readPhases, SeriesKind::Phase);
}

UnitSpec readUnit(const toml::table& table, const std::string& file, const Scenario& scenario)
{
    TableReader t(table, file, "unit");
    UnitSpec u;
    NodeConfig& n = u.node;
    n.name = t.text("name");
    if (n.name.empty()
        || n.name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_") != std::string::npos)
        t.fail("name", "small letters, digits, '-' and '_'");
    if (std::ranges::any_of(scenario.units,
                            [&n](const UnitSpec& other) { return other.node.name == n.name; }))
        t.fail("name", "there is another unit '" + n.name + "'");
    n.boardType = static_cast<u32>(t.integer("board_type", 1, 2, 2));
    n.smn = static_cast<u32>(t.integer("smn", 0, 0xFFFF, 0));
    n.apn = static_cast<u32>(t.integer("apn", 0, 0xFFFF, 1));
    n.restartType = static_cast<u32>(t.integer("restart_type", 0, 5, 0));
    n.board.revision = t.text("fpga_revision", n.board.revision);
    if (n.board.revision.size() != 4) t.fail("fpga_revision", "four characters");
    u.start_s = t.seconds("start", 0.0);
    readMainProcessor(t, n.mainProcessor);
    readOscillator(t.table("oscillator"), file, n.board.oscillator);
    readTemperature(t.table("temperature"), file, n.board.temperature);
    readEeprom(t.table("eeprom"), file, n.board.eeprom);
    if (const toml::array* const inputs = t.tables("input")) {
        for (const toml::node& entry : *inputs) {
            ReferenceInput input{};
            const LineConfig line = readInput(*entry.as_table(), file, input);
            if (!u.inputs.emplace(input, line).second) t.fail("input", "the same input twice");
        }
    }
    if (const toml::table* const gps = t.table("gps")) {
        u.gps = readGps(*gps, file);
        if (u.inputs.contains(ReferenceInput::Pps))
            t.fail("gps", "its 1PPS takes the input 'pps'; there is another signal");
    }
    if (const toml::table* const cmcc = t.table("cmcc")) {
        u.cmcc = readCmcc(*cmcc, file);
        if (u.gps || u.inputs.contains(ReferenceInput::Pps))
            t.fail("cmcc", "its 1PPS takes the input 'pps'; there is another signal");
    }
    if (const toml::array* const references = t.tables("reference"))
        for (const toml::node& entry : *references)
            n.mainProcessor.references.push_back(readReference(*entry.as_table(), file));
    if (const toml::array* const ports = t.tables("port"))
        for (const toml::node& entry : *ports) n.ports.push_back(readPort(*entry.as_table(), file));
    readIdlServers(t, file, n);
    readPacketPort(t, file, n);
    readNtp(t, file, n.ntp);
    readEsmc(t, file, u);
    readSyncGroup(t, file, n);
    readInrsi(t, file, n.inrsi);
    t.finish();
    return u;
}

}  // namespace sim
