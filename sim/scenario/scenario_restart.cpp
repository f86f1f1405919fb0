// What can happen to a unit between two runs of its program: it stays away for a while, comes back to
// another oscillator, to files of its history that are damaged or old, to a calendar that isn't set.
#include "sim/board/board.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <cstring>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

ose::Time worldTime(double s) { return static_cast<ose::Time>(s * 1e12); }

/// The program ends and is loaded again after `gap`; the board and the persistent memory go on.
Action unitRestart(TableReader& t)
{
    const u32 type = static_cast<u32>(t.integer("type", 0, 5));
    const ose::Time gap = worldTime(t.seconds("gap", 0.0));
    return [type, gap](Unit& u) {
        if (gap == 0) return u.node().restart(type);
        u.node().kill();
        u.node().after(gap, [&u, type] { u.node().restart(type); });
    };
}

/// The board gets another oscillator, with an EEPROM of its own. It is read at the next start.
Action replaceOscillator(TableReader& t, const UnitSpec& unit)
{
    EepromConfig eeprom = unit.node.board.eeprom;
    eeprom.serial = t.text("serial");
    eeprom.calibrationDate = t.text("calibration_date", "");
    if (eeprom.serial.size() != 16) t.fail("serial", "16 characters");
    return [eeprom, step_ppb = t.number("ppb", 0.0)](Unit& u) {
        u.node().board().setEeprom(eeprom);
        u.node().board().oscillator().addStep(step_ppb);
    };
}

/// The node's calendar, as it would be after a start without a time server, or set again.
Action setCalendar(TableReader& t)
{
    if (!t.boolean("set", true)) return [](Unit& u) { u.node().setCalendar(0); };
    return [](Unit& u) { u.node().setCalendarTrue(); };
}

// ---- files of the history -----------------------------------------------------------------------

// Layouts of the records that programs before this one wrote; all numbers big-endian.
constexpr std::size_t RECORD = 456, REVISION = 4;           // the present record, and what follows it
constexpr std::size_t TIME_AT = 12, SERIAL_AT = 20, U_AT = 48, X_AT = 64, P_AT = 112, P_SIZE = 288;
constexpr std::size_t DELTA0_AT = 400, T_AT = 424;

void put32(std::string& bytes, std::size_t at, u32 value)
{
    for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> (24 - 8 * i));
}

/// The first six fields of every older record: version, time of the write, serial number, U.
std::string oldRecord(const std::string& now, u32 version, std::size_t size)
{
    std::string old(size + REVISION, '\0');
    put32(old, 0, version);
    old.replace(4, 4, now, TIME_AT, 4);
    old.replace(12, 18, now, SERIAL_AT, 18);
    old.replace(40, 16, now, U_AT, 16);
    old.replace(size, REVISION, now, RECORD, REVISION);
    return old;
}

/// As 0x40006 has it: the present states, eight bytes lower.
std::string asSixStates(const std::string& now)
{
    constexpr std::size_t LOWER = 8;
    std::string old = oldRecord(now, 0x40006, 432);
    old.replace(X_AT - LOWER, 48, now, X_AT, 48);
    old.replace(P_AT - LOWER, P_SIZE, now, P_AT, P_SIZE);
    old.replace(DELTA0_AT - LOWER, 24, now, DELTA0_AT, 24);
    old.replace(T_AT - LOWER, 8, now, T_AT, 8);
    return old;
}

/// Five states: time, frequency, one that is gone, drift, one that is gone.
std::string asFiveStates(const std::string& now, u32 version, std::size_t size)
{
    constexpr std::size_t X5_AT = 56, P5_AT = 96, T5_AT = 320, STATES = 5;
    std::string old = oldRecord(now, version, size);
    old.replace(X5_AT, 16, now, X_AT, 16);
    old.replace(X5_AT + 24, 8, now, X_AT + 16, 8);
    old.replace(P5_AT + 8 * (STATES + 1), 8, now, P_AT + 8 * 7, 8);
    old.replace(P5_AT + 8 * (3 * STATES + 3), 8, now, P_AT + 8 * 14, 8);
    old.replace(T5_AT, 8, now, T_AT, 8);
    return old;
}

constexpr const char* PRESENT_FILE = "/d/kvd_loz_data_1";
constexpr const char* OLDER_FILE = "/d/kvd_loz_data";

struct Damage {
    const char* word;
    void (*apply)(Volumes& volumes, const std::string& content);
};
/// An older program has written last: its file takes the present one's place.
void leaveAs(Volumes& volumes, const std::string& old)
{
    volumes.write(OLDER_FILE, old);
    volumes.remove(PRESENT_FILE);
}
constexpr Damage DAMAGES[] = {
    {"gone", [](Volumes& v, const std::string&) { v.remove(PRESENT_FILE); }},
    {"cut", [](Volumes& v, const std::string& c) { v.write(PRESENT_FILE, c.substr(0, RECORD / 2)); }},
    {"long", [](Volumes& v, const std::string& c) { v.write(PRESENT_FILE, c + "x"); }},
    {"nan",
     [](Volumes& v, const std::string& c) {
         std::string bad = c;
         bad.replace(X_AT + 8, 8, "\x7f\xf8\0\0\0\0\0\0", 8);
         v.write(PRESENT_FILE, bad);
     }},
    {"version_30003", [](Volumes& v, const std::string& c) { leaveAs(v, asFiveStates(c, 0x30003, 352)); }},
    {"version_30005", [](Volumes& v, const std::string& c) { leaveAs(v, asFiveStates(c, 0x30005, 360)); }},
    {"version_40006", [](Volumes& v, const std::string& c) { leaveAs(v, asSixStates(c)); }},
    {"renamed", [](Volumes& v, const std::string& c) { leaveAs(v, c); }},
};

/// Its first bytes alone, as of a write that power cut short.
void shorten(Volumes& volumes, const char* path, std::size_t bytes)
{
    const auto file = volumes.files().find(path);
    if (file != volumes.files().end()) volumes.write(path, file->second.substr(0, bytes));
}

Action damageHistory(TableReader& t)
{
    const Damage& damage = t.row("file", DAMAGES, "damage to the history");
    const auto bytes = static_cast<std::size_t>(t.integer("bytes", 0, RECORD + REVISION, RECORD + REVISION));
    return [apply = damage.apply, bytes](Unit& u) {
        const auto& files = u.node().volumes().files();
        const auto file = files.find(PRESENT_FILE);
        if (file == files.end() || file->second.size() != RECORD + REVISION) return;
        const std::string content = file->second;
        apply(u.node().volumes(), content);
        shorten(u.node().volumes(), OLDER_FILE, bytes);
    };
}

}  // namespace

Action readRestartEvent(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    if (word == "unit.restart") return unitRestart(t);
    if (word == "unit.replace_oscillator") return replaceOscillator(t, unit);
    if (word == "node.calendar") return setCalendar(t);
    if (word == "node.history") return damageHistory(t);
    return {};
}

}  // namespace sim
