// Reading [unit.cmcc], a source of the time of day at the time input, and its events.
#include "sim/node/main_processor.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

#include <algorithm>
#include <iterator>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

void readWords(TableReader& t, CmccWords& w)
{
    w.clkSource = static_cast<u8>(t.integer("clk_source", 0, 255, w.clkSource));
    w.state = static_cast<u16>(t.integer("state", 0, 65535, w.state));
    w.alarm = static_cast<u16>(t.integer("alarm", 0, 65535, w.alarm));
    w.pp1sState = static_cast<u8>(t.integer("pp1s_state", 0, 255, w.pp1sState));
    w.leapSec = static_cast<i8>(t.integer("leap_sec", -128, 127, w.leapSec));
    w.tacc = static_cast<u8>(t.integer("tacc", 0, 255, w.tacc));
}

/// Those that the event names; the others stay as the source has them.
Action tellEvent(TableReader& t)
{
    CmccWords given;
    readWords(t, given);
    const bool clkSource = t.has("clk_source"), state = t.has("state"), alarm = t.has("alarm"),
               pp1sState = t.has("pp1s_state"), leapSec = t.has("leap_sec"), tacc = t.has("tacc");
    return [=](Unit& u) {
        CmccWords& w = u.cmcc().words;
        if (clkSource) w.clkSource = given.clkSource;
        if (state)     w.state = given.state;
        if (alarm)     w.alarm = given.alarm;
        if (pp1sState) w.pp1sState = given.pp1sState;
        if (leapSec)   w.leapSec = given.leapSec;
        if (tacc)      w.tacc = given.tacc;
    };
}

struct FaultWord { const char* word; CmccFault fault; double usual, least, most; };
constexpr FaultWord FAULTS[] = {
    {"wrong_checksum", CmccFault::WrongChecksum, 0.0, 0.0, 0.0},
    {"garbled",        CmccFault::Garbled,       0.01, 0.0, 1.0},
    {"silence",        CmccFault::Silence,       0.0, 0.0, 0.0},
    {"no_info",        CmccFault::NoInfo,        0.0, 0.0, 0.0},
    {"no_state",       CmccFault::NoState,       0.0, 0.0, 0.0},
    {"late",           CmccFault::Late,          500.0, 0.0, 1999.0},
    {"wrong_second",   CmccFault::WrongSecond,   1.0, -1e6, 1e6},
    {"no_pps",         CmccFault::NoPps,         0.0, 0.0, 0.0},
    {"stuck_pps",      CmccFault::StuckPps,      0.0, 0.0, 0.0},
};
static_assert(std::size(FAULTS) == CMCC_FAULTS);

Action faultEvent(TableReader& t)
{
    const FaultWord& known = t.row("fault", FAULTS, "fault of a time source");
    if (t.has("amount") && known.usual == 0.0) t.fail("amount", "this fault has none");
    const double amount = t.number("amount", known.usual);
    if (!(amount >= known.least && amount <= known.most)) t.fail("amount", "out of range");
    const bool on = t.boolean("on", true);
    return [fault = known.fault, on, amount](Unit& u) { u.cmcc().setFault(fault, on, amount); };
}

}  // namespace

CmccSourceConfig readCmcc(const toml::table& table, const std::string& file)
{
    TableReader t(table, file, "cmcc");
    CmccSourceConfig c;
    c.start = readStart(t);
    c.leapSeconds = static_cast<i32>(t.integer("leap_seconds", 0, 99, c.leapSeconds));
    c.words.leapSec = static_cast<i8>(c.leapSeconds);
    readWords(t, c.words);
    const auto delay = [&](const char* key, ose::Time fallback) {
        const double s = t.seconds(key, static_cast<double>(fallback) * 1e-12);
        if (!(s < 1.0)) t.fail(key, "less than a second");
        return static_cast<ose::Time>(s * 1e12 + 0.5);
    };
    c.infoDelay = delay("info_delay", c.infoDelay);
    c.stateDelay = delay("state_delay", c.stateDelay);
    readPhase(t, c.pps);
    t.finish();
    return c;
}

std::function<void(Unit&)> readHptsiEvent(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    if (word == "mp.set_hptsi_delay")
        return [delay = static_cast<u16>(t.integer("ns", 0, 0xFFFF))](Unit& u) {
            u.node().mainProcessor().setHptsiDelay(delay);
        };
    if (word == "mp.hptsi_attributes") return [](Unit& u) { u.node().mainProcessor().askHptsiAttributes(); };
    if (!word.starts_with("cmcc.")) return {};
    if (!unit.cmcc) t.fail("do", "the unit has no [unit.cmcc]");
    if (word == "cmcc.tell") return tellEvent(t);
    if (word == "cmcc.fault") return faultEvent(t);
    return {};
}

}  // namespace sim
