// Reading an [[event]]: what can happen in a run, by name.
#include "iif/kvd_pm.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

#include <algorithm>
#include <sstream>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

/// What an event's table gives its maker.
struct Context {
    TableReader& table;
    const UnitSpec& unit;
};
using Maker = Action (*)(Context&);

constexpr const char* TOLD_OTHERWISE[] = {"at", "do", "unit", "link", "input", "fault"};

struct InputWord { const char* word; ReferenceInput input; };
constexpr InputWord INPUT_WORDS[] = {
    {"pps", ReferenceInput::Pps}, {"external", ReferenceInput::ExternalFrequency},
    {"pdh1", ReferenceInput::Pdh1}, {"pdh2", ReferenceInput::Pdh2}, {"pdh3", ReferenceInput::Pdh3},
    {"pdh4", ReferenceInput::Pdh4}, {"sdh", ReferenceInput::Sdh}, {"eth_a", ReferenceInput::EthernetA},
    {"eth_b", ReferenceInput::EthernetB}, {"eth_c", ReferenceInput::EthernetC},
};

ReferenceInput inputOf(Context& c)
{
    const InputWord& w = c.table.row("input", INPUT_WORDS, "input");
    if (!c.unit.inputs.contains(w.input))
        c.table.fail("input", std::string("the unit has no input '") + w.word + "'");
    return w.input;
}

Action inputPresent(Context& c, bool present)
{
    return [input = inputOf(c), present](Unit& u) { u.input(input).setPresent(present); };
}
Action inputOn(Context& c) { return inputPresent(c, true); }
Action inputOff(Context& c) { return inputPresent(c, false); }
Action inputStuck(Context& c)
{
    return [input = inputOf(c), on = c.table.boolean("on", true)](Unit& u) { u.input(input).setStuck(on); };
}
Action inputPhaseStep(Context& c)
{
    return [input = inputOf(c), s = c.table.number("ns") * 1e-9](Unit& u) { u.input(input).addPhase(s); };
}
Action inputFrequency(Context& c)
{
    return [input = inputOf(c), ppb = c.table.number("ppb")](Unit& u) { u.input(input).setFrequency(ppb); };
}
Action inputWander(Context& c)
{
    return [input = inputOf(c), w = readWander(c.table)](Unit& u) { u.input(input).setWander(w); };
}
Action inputBadPulse(Context& c)
{
    return [input = inputOf(c), s = c.table.number("ns") * 1e-9](Unit& u) { u.input(input).moveNextEdge(s); };
}

Action oscillatorStep(Context& c)
{
    return [ppb = c.table.number("ppb")](Unit& u) { u.node().board().oscillator().addStep(ppb); };
}
Action temperatureStep(Context& c)
{
    return [volts = c.table.number("volts")](Unit& u) { u.node().board().temperature().addStep(volts); };
}

std::string referenceOf(Context& c)
{
    const std::string name = c.table.text("reference");
    const auto& known = c.unit.node.mainProcessor.references;
    if (std::none_of(known.begin(), known.end(), [&](const MpReference& r) { return r.name == name; }))
        c.table.fail("reference", "the unit has no reference '" + name + "'");
    return name;
}
Action mpSelect(Context& c)
{
    return [name = referenceOf(c)](Unit& u) {
        u.node().mainProcessor().setSelects(false);
        u.node().mainProcessor().selectByName(name);
    };
}
Action mpSelectNone(Context&)
{
    return [](Unit& u) {
        u.node().mainProcessor().setSelects(false);
        u.node().mainProcessor().selectNone();
    };
}
Action mpSelectsItself(Context&)
{
    return [](Unit& u) { u.node().mainProcessor().setSelects(true); };
}
Action mpSupervise(Context& c)
{
    return [name = referenceOf(c), on = c.table.boolean("on", true)](Unit& u) {
        u.node().mainProcessor().superviseByName(name, on);
    };
}
Action mpDie(Context&)
{
    return [](Unit& u) { u.node().mainProcessor().die(); };
}
Action mpStart(Context&)
{
    return [](Unit& u) { u.node().mainProcessor().start(); };
}
Action mpRestart(Context& c)
{
    const auto gone = static_cast<ose::Time>(c.table.seconds("gone") * 1e12);
    return [gone](Unit& u) { u.node().mainProcessor().restart(gone); };
}
Action mpSetGpsDelay(Context& c)
{
    const u16 delay = static_cast<u16>(c.table.integer("ns", 0, 0xFFFF));
    return [delay](Unit& u) { u.node().mainProcessor().setGpsDelay(delay); };
}
Action mpFixedPosition(Context& c)
{
    return [on = c.table.boolean("on", true)](Unit& u) { u.node().mainProcessor().setFixedPosition(on); };
}
Action mpAudits(Context& c)
{
    return [on = c.table.boolean("on", true)](Unit& u) { u.node().mainProcessor().config.answersAudit = on; };
}
Action mpGpsAttributes(Context&)
{
    return [](Unit& u) { u.node().mainProcessor().askGpsAttributes(); };
}
struct Question { const char* word; void (*ask)(MainProcessor& mp, u32 number); };
constexpr Question QUESTIONS[] = {
    {"gpsosl_attributes", [](MainProcessor& mp, u32) { mp.askGpsOslAttributes(); }},
    {"rnt_to_sfc",        [](MainProcessor& mp, u32) { mp.askRntToSfc(); }},
    {"rnt_for_sfn",       [](MainProcessor& mp, u32 sfn) { mp.askRntForSfn(sfn); }},
    {"sync_info",         [](MainProcessor& mp, u32 option) { mp.askSyncInfo(static_cast<u8>(option)); }},
};
Action mpAsk(Context& c)
{
    const Question& question = c.table.row("what", QUESTIONS, "question");
    const u32 number = static_cast<u32>(c.table.integer("number", 0, 0xFFFF, 1));
    return [&question, number](Unit& u) { question.ask(u.node().mainProcessor(), number); };
}
Action mpRegister(Context& c)
{
    return [name = referenceOf(c), on = c.table.boolean("on", true)](Unit& u) {
        u.node().mainProcessor().registerByName(name, on);
    };
}
Action mpJump(Context&)
{
    return [](Unit& u) { u.node().mainProcessor().orderJump(); };
}
Action mpGpsOut(Context& c)
{
    return [on = c.table.boolean("on", true)](Unit& u) { u.node().mainProcessor().setGpsOut(on); };
}
Action mpHptsiOut(Context& c)
{
    return [on = c.table.boolean("on", true)](Unit& u) { u.node().mainProcessor().setHptsiOut(on); };
}
Action mpSetGpsOslDelay(Context& c)
{
    const u16 delay = static_cast<u16>(c.table.integer("ns", 0, 0xFFFF));
    return [delay](Unit& u) { u.node().mainProcessor().setGpsOslDelay(delay); };
}
Action mpChangeMaster(Context& c)
{
    const u8 timeMode = c.table.choice<u8>("time_mode", {{"frequency", u8{1}}, {"time", u8{3}}});
    const u8 role = c.table.choice<u8>("role", {{"master", u8{1}}, {"slave", u8{0}}});
    return [timeMode, role](Unit& u) { u.node().mainProcessor().changeMaster(timeMode, role); };
}
Action mpSelectionMode(Context& c)
{
    const u8 mode = static_cast<u8>(c.table.integer("mode", 0, 1));
    return [mode](Unit& u) { u.node().mainProcessor().setSelectionMode(mode); };
}
Answer answerOf(Context& c)
{
    return c.table.choice<Answer>("answer", {{"accept", Answer::Accept},
                                             {"suspend", Answer::Suspend},
                                             {"reject", Answer::Reject},
                                             {"busy", Answer::Busy},
                                             {"silent", Answer::Silent}});
}
Action mpAnswer(Context& c)
{
    return [answer = answerOf(c)](Unit& u) { u.node().mainProcessor().setAnswer(answer); };
}

Action nodeMsi(Context& c)
{
    const Answer answer = c.table.has("answer") ? answerOf(c) : Answer::Accept;
    const u32 delay_ms = static_cast<u32>(c.table.integer("delay_ms", 0, 3'600'000, 0));
    return [answer, delay_ms](Unit& u) {
        u.node().msi().delay_ms = delay_ms;
        u.node().msi().setAnswer(answer);
        u.node().msi().start();
    };
}
Action nodePmAgent(Context& c)
{
    const Answer answer = c.table.has("answer") ? answerOf(c) : Answer::Accept;
    const bool confirms = c.table.boolean("confirms", true);
    return [answer, confirms](Unit& u) {
        u.node().pmAgent().setAnswer(answer);
        u.node().pmAgent().confirms = confirms;
        u.node().pmAgent().start();
    };
}
Action nodePmAgentDie(Context&)
{
    return [](Unit& u) { u.node().pmAgent().die(); };
}
u32 pmSetOf(Context& c)
{
    return c.table.choice<u32>("set", {{"sync", SYNC_PM_FROTYPE}, {"gps", GPSSYNCREF_PM_FROTYPE}});
}
u32 froIdOf(Context& c) { return static_cast<u32>(c.table.integer("fro_id", 0, UINT32_MAX, 0)); }
Action mpSubscribePm(Context& c)
{
    const double period_s = c.table.seconds("period");
    if (period_s > UINT32_MAX) c.table.fail("period", "it is too long");
    const KvdTuiifSubscribePmReq req{KVD_TUIIF_SUBSCRIBE_PM_REQ, static_cast<u32>(period_s), pmSetOf(c),
                                     froIdOf(c)};
    return [req](Unit& u) { u.node().mainProcessor().sendLayout(req); };
}
Action pmOrder(Context& c, SIGSELECT sigNo)
{
    const KvdTuiifGetCurrentPmReq req{sigNo, pmSetOf(c), froIdOf(c)};
    return [req](Unit& u) { u.node().mainProcessor().sendLayout(req); };
}
Action mpUnsubscribePm(Context& c) { return pmOrder(c, KVD_TUIIF_UNSUBSCRIBE_PM_REQ); }
Action mpCurrentPm(Context& c) { return pmOrder(c, KVD_TUIIF_GET_CURRENT_PM_REQ); }

Action nodeMsiDie(Context&)
{
    return [](Unit& u) { u.node().msi().die(); };
}
Action nodeMsiFlip(Context& c)
{
    const u32 size = c.table.choice<u32>("region", {{"TuRegHistData", 456}, {"GpsOutMfnOffset", 8},
                                                    {"GpsOutV1", 4}, {"TuRegNfDataV0", 16},
                                                    {"SlaveWarmData", 40}});
    const u32 byte = static_cast<u32>(c.table.integer("byte", 0, size - 1));
    return [region = c.table.text("region"), byte](Unit& u) { u.node().msi().flip(region, byte); };
}

/// A physical line comes, goes, or stands for another reference.
Action nodePort(Context& c)
{
    const u32 line = static_cast<u32>(c.table.integer("line", 0, 4));
    if (!c.table.boolean("on", true)) return [line](Unit& u) { u.node().phyPorts().remove(line); };
    return [port = PhyPort{line, static_cast<u32>(c.table.integer("fro_id", 0, UINT32_MAX))}](Unit& u) {
        u.node().phyPorts().put(port);
    };
}

/// The file volumes take no writes, or can't be read either.
Action nodeVolume(Context& c)
{
    const bool writes = c.table.boolean("writes", true), reads = c.table.boolean("reads", true);
    return [writes, reads](Unit& u) {
        u.node().volumes().writeFails = !writes;
        u.node().volumes().readFails = !reads;
    };
}

struct ServiceWord { const char* word; Server& (*of)(Node&); };
constexpr ServiceWord SERVICES[] = {
    {"name_server", [](Node& n) -> Server& { return n.nameServer(); }},
    {"temi",        [](Node& n) -> Server& { return n.temi(); }},
    {"pri",         [](Node& n) -> Server& { return n.pri(); }},
    {"msi",         [](Node& n) -> Server& { return n.msi(); }},
    {"phy",         [](Node& n) -> Server& { return n.phyPorts(); }},
    {"pm_agent",    [](Node& n) -> Server& { return n.pmAgent(); }},
    {"bira",        [](Node& n) -> Server& { return n.bira(); }},
    {"idpi",        [](Node& n) -> Server& { return n.idpi(); }},
    {"inrsi",       [](Node& n) -> Server& { return n.inrsi(); }},
    {"ngpduhif",    [](Node& n) -> Server& { return n.ngpduhif(); }},
    {"ipsync",      [](Node& n) -> Server& { return n.ipsync(); }},
    {"slowpi",      [](Node& n) -> Server& { return n.slowpi(); }},
    {"cfi",         [](Node& n) -> Server& { return n.cfi(); }},
    {"driver",      [](Node& n) -> Server& { return n.pktsyncDrv(); }},
    {"socket",      [](Node& n) -> Server& { return n.ipsocki(); }},
};
Action nodeService(Context& c)
{
    const ServiceWord& service = c.table.row("service", SERVICES, "service of the node");
    using Deed = void (*)(Server&);
    const std::initializer_list<std::pair<const char*, Deed>> deeds = {
        {"die", [](Server& s) { s.die(); }},
        {"start", [](Server& s) { s.start(); }},
        {"mute", [](Server& s) { s.setMute(true); }},
        {"speak", [](Server& s) { s.setMute(false); }},
        {"hold", [](Server& s) { s.setAnswer(Answer::Busy); }},
        {"answer", [](Server& s) { s.setAnswer(Answer::Accept); }},
    };
    const Deed deed = c.table.choice<Deed>("does", deeds);
    return [of = service.of, deed](Unit& u) { deed(of(u.node())); };
}

Action unitPowerOff(Context&)
{
    return [](Unit& u) { u.node().powerOff(); };
}
Action unitPowerOn(Context&)
{
    return [](Unit& u) { u.node().powerOn(); };
}
Action unitCommand(Context& c)
{
    return [line = c.table.text("line")](Unit& u) {
        u.node().shell().submit(line, [](int, const std::string&) {});
    };
}

struct FaultWord { const char* word; void (*set)(BoardFaults&, bool on); };
constexpr FaultWord FAULTS[] = {
    {"latch_invalid",        [](BoardFaults& f, bool on) { f.latchInvalid = on; }},
    {"temperature_invalid",  [](BoardFaults& f, bool on) { f.temperatureInvalid = on; }},
    {"no_feedback",          [](BoardFaults& f, bool on) { f.synthStatusAnd = on ? 0x7 : 0xF; }},
    {"synth_c_unlocked",     [](BoardFaults& f, bool on) { f.synthStatusAnd = on ? 0xB : 0xF; }},
    {"synth_b_unlocked",     [](BoardFaults& f, bool on) { f.synthStatusAnd = on ? 0xE : 0xF; }},
    {"counter_out_of_range", [](BoardFaults& f, bool on) { f.counterMfn = on ? 25 : -1; }},
    {"latch_out_of_range",   [](BoardFaults& f, bool on) { f.latchMfn = on ? 25 : -1; }},
    {"eeprom_bad_sum",       [](BoardFaults& f, bool on) { f.eepromBadSum = on; }},
    {"eeprom_never_loads",   [](BoardFaults& f, bool on) { f.eepromNeverLoads = on; }},
    {"load_never_done",      [](BoardFaults& f, bool on) { f.loadNeverDone = on; }},
    {"multiplicator_timeout",
     [](BoardFaults& f, bool on) { f.multiplicatorTimeoutAt = on ? 0 : 0xFFFFFFFF; }},
    {"multiplicator_crc",    [](BoardFaults& f, bool on) { f.multiplicatorCrc = on; }},
    {"pll_ic_timeout",       [](BoardFaults& f, bool on) { f.pllIcTimeout = on; }},
};
Action boardFault(Context& c)
{
    const FaultWord& fault = c.table.row("fault", FAULTS, "fault of the board");
    return [set = fault.set, on = c.table.boolean("on", true)](Unit& u) { set(u.node().board().faults, on); };
}
Action boardSpuriousInterrupt(Context&)
{
    return [](Unit& u) { u.node().boardInterrupt(); };
}

struct EventName { const char* word; Maker make; };
constexpr EventName EVENTS[] = {
    {"input.on", inputOn},
    {"input.off", inputOff},
    {"input.stuck", inputStuck},
    {"input.phase_step", inputPhaseStep},
    {"input.frequency", inputFrequency},
    {"input.bad_pulse", inputBadPulse},
    {"input.wander", inputWander},
    {"oscillator.step", oscillatorStep},
    {"temperature.step", temperatureStep},
    {"mp.select", mpSelect},
    {"mp.select_none", mpSelectNone},
    {"mp.selects_itself", mpSelectsItself},
    {"mp.supervise", mpSupervise},
    {"mp.die", mpDie},
    {"mp.start", mpStart},
    {"mp.restart", mpRestart},
    {"mp.answer", mpAnswer},
    {"mp.set_gps_delay", mpSetGpsDelay},
    {"mp.fixed_position", mpFixedPosition},
    {"mp.audits", mpAudits},
    {"mp.gps_attributes", mpGpsAttributes},
    {"mp.ask", mpAsk},
    {"mp.register", mpRegister},
    {"mp.selection_mode", mpSelectionMode},
    {"mp.jump", mpJump},
    {"mp.gps_out", mpGpsOut},
    {"mp.hptsi_out", mpHptsiOut},
    {"mp.set_gpsosl_delay", mpSetGpsOslDelay},
    {"mp.change_master", mpChangeMaster},
    {"mp.subscribe_pm", mpSubscribePm},
    {"mp.unsubscribe_pm", mpUnsubscribePm},
    {"mp.current_pm", mpCurrentPm},
    {"node.pm_agent", nodePmAgent},
    {"node.pm_agent_die", nodePmAgentDie},
    {"node.msi", nodeMsi},
    {"node.msi_die", nodeMsiDie},
    {"node.msi_flip", nodeMsiFlip},
    {"node.service", nodeService},
    {"node.port", nodePort},
    {"node.volume", nodeVolume},
    {"unit.power_off", unitPowerOff},
    {"unit.power_on", unitPowerOn},
    {"unit.command", unitCommand},
    {"board.fault", boardFault},
    {"board.spurious_interrupt", boardSpuriousInterrupt},
};

void readOfLink(TableReader& t, const EventWord& word, EventSpec& e, const Scenario& scenario)
{
    e.link = t.text("link", scenario.links.empty() ? "" : scenario.links.front().name);
    const auto link = std::find_if(scenario.links.begin(), scenario.links.end(),
                                   [&](const LinkSpec& l) { return l.name == e.link; });
    if (link == scenario.links.end()) t.fail("link", "there is no link '" + e.link + "'");
    if (e.what == "link.turn" && link->kind != LinkKind::Idl1 && link->kind != LinkKind::Idl2)
        t.fail("link", "only a link of type idl1 or idl2 can turn");
    if (e.what == "link.focus" && link->kind != LinkKind::Sdu)
        t.fail("link", "'" + e.link + "' is no link of type sdu");
    e.linkAction = readLinkEvent(word, t, *link);
    if (!e.linkAction) t.fail("do", "'" + e.what + "' is nothing that can happen");
    e.what += " " + e.link;
}

/// " antenna_open for=10s": what is peculiar to it, for the reader of events.
std::string detailsOf(const toml::table& table)
{
    std::ostringstream said;
    for (const char* const bare : {"input", "fault"})
        if (table.contains(bare)) said << ' ' << table[bare].value_or("");
    for (const auto& [key, value] : table) {
        const std::string_view name = key.str();
        if (name == "on") {
            said << (table["on"].value_or(true) ? "" : " off");
        } else if (std::ranges::none_of(TOLD_OTHERWISE, [&](const char* k) { return name == k; })) {
            said << ' ' << name << '=';
            if (const auto text = value.value<std::string>()) said << *text;
            else value.visit([&](const auto& node) { said << node; });
        }
    }
    return said.str();
}

}  // namespace

Action readUnitEvent(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    for (const EventName& known : EVENTS) {
        if (!(word == known.word)) continue;
        Context context{t, unit};
        return known.make(context);
    }
    Action action = readRestartEvent(word, t, unit);
    if (!action) action = readIdlEvent(word, t);
    if (!action) action = readPacketEvent(word, t, unit);
    if (!action) action = readNtpEvent(word, t, unit);
    if (!action) action = readEsmcEvent(word, t, unit);
    if (!action) action = readSyncGroupEvent(word, t);
    if (!action) action = readSocpriEvent(word, t);
    if (!action) action = readGpsEvent(word, t, unit);
    if (!action) action = readHptsiEvent(word, t, unit);
    return action;
}

EventSpec readEvent(const toml::table& table, const std::string& file, const Scenario& scenario)
{
    TableReader t(table, file, "event");
    EventSpec e;
    e.at_s = t.seconds("at");
    if (e.at_s > scenario.duration_s) t.fail("at", "the run is over by then");
    const std::string text = t.text("do");
    const EventWord word(text);
    e.what = text;
    if (word.starts_with("link.")) {
        readOfLink(t, word, e, scenario);
        e.what += detailsOf(table);
        t.finish();
        return e;
    }
    if (word.starts_with("master.") || word.starts_with("path.")) {
        e.what += detailsOf(table);
        e.netAction = readNetEvent(word, t, scenario);
        if (!e.netAction) t.fail("do", "'" + text + "' is nothing that can happen");
        t.finish();
        return e;
    }
    e.unit = t.text("unit", scenario.units.front().node.name);
    const auto unit = std::find_if(scenario.units.begin(), scenario.units.end(),
                                   [&](const UnitSpec& u) { return u.node.name == e.unit; });
    if (unit == scenario.units.end()) t.fail("unit", "there is no unit '" + e.unit + "'");
    e.what += detailsOf(table);
    e.action = readUnitEvent(word, t, *unit);
    if (!e.action) t.fail("do", "'" + text + "' is nothing that can happen");
    t.finish();
    return e;
}

}  // namespace sim
