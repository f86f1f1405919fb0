// Reading a [[link]] between two units, and what can happen to it.
#include "sig/ref_types.h"
#include "sim/scenario/link.h"
#include "sim/scenario/link_sdu.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/table_reader.h"

#include <toml++/toml.h>

#include <algorithm>

namespace sim {
namespace {

std::string unitOf(TableReader& t, const char* key, const Scenario& scenario)
{
    const std::string name = t.text(key);
    if (std::none_of(scenario.units.begin(), scenario.units.end(),
                     [&](const UnitSpec& u) { return u.node.name == name; }))
        t.fail(key, "there is no unit '" + name + "'");
    return name;
}

/// A unit listens to a link only when it is told to supervise it, the leader as well as the follower.
void checkListens(TableReader& t, const char* key, const std::string& name, const LinkSpec& l,
                  const Scenario& scenario)
{
    const bool isIdl1 = l.kind == LinkKind::Idl1;
    const u8 refType = isIdl1 ? IDL1_REF : IDL2_REF;
    for (const UnitSpec& u : scenario.units) {
        const auto& refs = u.node.mainProcessor.references;
        if (u.node.name == name && std::none_of(refs.begin(), refs.end(), [refType](const MpReference& r) {
                return r.refType == refType;
            }))
            t.fail(key, "'" + name + "' wouldn't listen to it without a reference of type "
                            + (isIdl1 ? "IDL1_REF" : "IDL2_REF"));
    }
}

}  // namespace

LinkSpec readLink(const toml::table& table, const std::string& file, const Scenario& scenario)
{
    constexpr double NS = 1e-9;
    TableReader t(table, file, "link");
    LinkSpec l;
    l.kind = t.choice<LinkKind>("type", {{"gps_out", LinkKind::GpsOut}, {"hptsi", LinkKind::Hptsi},
                                          {"idl1", LinkKind::Idl1}, {"idl2", LinkKind::Idl2},
                                          {"inci", LinkKind::Inci}, {"cpri", LinkKind::Cpri},
                                          {"sdu", LinkKind::Sdu}});
    l.from = unitOf(t, "from", scenario);
    l.to = unitOf(t, "to", scenario);
    if (l.from == l.to) t.fail("to", "a link has two ends");
    l.name = t.text("name", l.from + "-" + l.to);
    for (const LinkSpec& other : scenario.links)
        if (other.name == l.name) t.fail("name", "there is another link '" + l.name + "'");
    l.delay_s = t.notNegative("delay_ns", 0.0) * NS;
    l.noise.white_s = t.notNegative("white_ns", 0.0) * NS;
    l.noise.flicker_s = t.notNegative("flicker_ns", 0.0) * NS;
    l.up = t.boolean("up", true);
    if (l.kind == LinkKind::Cpri || l.kind == LinkKind::Sdu)
        for (const UnitSpec& u : scenario.units)
            if ((u.node.name == l.from || u.node.name == l.to) && !u.node.inrsi.present)
                t.fail("type", "'" + u.node.name + "' has no [unit.inrsi]");
    if (l.kind == LinkKind::Idl1 || l.kind == LinkKind::Idl2) {
        checkListens(t, "from", l.from, l, scenario);
        checkListens(t, "to", l.to, l, scenario);
    }
    if (l.kind == LinkKind::Idl2 || l.kind == LinkKind::Cpri) {
        l.fromPort = static_cast<u16>(t.integer("from_port", 1, 6, 1));
        l.toPort = static_cast<u16>(t.integer("to_port", 1, 6, 1));
    }
    if (l.kind == LinkKind::GpsOut || l.kind == LinkKind::Hptsi) {
        const auto to = std::find_if(scenario.units.begin(), scenario.units.end(),
                                     [&](const UnitSpec& u) { return u.node.name == l.to; });
        if (to->gps || to->cmcc || to->inputs.contains(ReferenceInput::Pps))
            t.fail("to", "the input 'pps' of '" + l.to + "' has another signal");
    }
    t.finish();
    return l;
}

namespace {

/// What can happen to a link of that kind; a fault that it doesn't know would pass without a trace.
bool suits(LinkFault fault, LinkKind kind)
{
    const bool isOutput = kind == LinkKind::GpsOut || kind == LinkKind::Hptsi;
    switch (fault) {
    case LinkFault::Garbled:      return isOutput || kind == LinkKind::Idl1;
    case LinkFault::Parity:
    case LinkFault::Noise:        return kind == LinkKind::Idl1;
    case LinkFault::NoPulse:
    case LinkFault::NoText:       return isOutput;
    case LinkFault::Late:         return isOutput || kind == LinkKind::Idl1;
    case LinkFault::Jitter:       return kind == LinkKind::Idl1 || kind == LinkKind::Idl2;
    case LinkFault::UnstableFrom:
    case LinkFault::UnstableTo:   return kind == LinkKind::Idl2 || kind == LinkKind::Cpri;
    }
    return false;
}

}  // namespace

std::function<void(Link&)> readLinkEvent(const EventWord& word, TableReader& t, const LinkSpec& link)
{
    if (word == "link.up") return [](Link& l) { l.setUp(true); };
    if (word == "link.down") return [](Link& l) { l.setUp(false); };
    if (word == "link.turn") return [](Link& l) { l.turn(); };
    if (word == "link.focus")
        return [port = static_cast<u8>(t.integer("port", 0, 6, 0))](Link& l) {
            dynamic_cast<SduLink&>(l).setFocus(port);
        };
    if (word != "link.fault") return {};
    const LinkFault fault = t.choice<LinkFault>("fault", {{"garbled", LinkFault::Garbled},
                                                          {"parity", LinkFault::Parity},
                                                          {"no_pulse", LinkFault::NoPulse},
                                                          {"no_text", LinkFault::NoText},
                                                          {"late", LinkFault::Late},
                                                          {"unstable_from", LinkFault::UnstableFrom},
                                                          {"unstable_to", LinkFault::UnstableTo},
                                                          {"jitter", LinkFault::Jitter},
                                                          {"noise", LinkFault::Noise}});
    if (!suits(fault, link.kind))
        t.fail("fault", "the link '" + link.name + "' is of a type that doesn't have this fault");
    const double amount = t.number("amount", 1.0);
    constexpr double AMOUNT_MAX = 1e9;               // ns: a second
    constexpr double NOISE_MAX = 100.0;              // words between two
    if (!(amount >= 0.0 && amount <= (fault == LinkFault::Noise ? NOISE_MAX : AMOUNT_MAX)))
        t.fail("amount", "out of range");
    const bool on = t.boolean("on", true);
    return [fault, amount = on ? amount : 0.0](Link& l) { l.setFault(fault, amount); };
}

}  // namespace sim
