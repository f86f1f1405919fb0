// Reading the far ends of the Ethernet ports, [[unit.esmc]], and what can happen to them and to the node's
// slow protocol service.
#include "node/slowpi.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

#include <algorithm>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

constexpr std::initializer_list<std::pair<const char*, u32>> PORTS = {
    {"eth_a", 0u}, {"eth_b", 1u}, {"eth_c", 2u}};

EsmcPeerConfig readPeer(TableReader& t)
{
    EsmcPeerConfig c;
    c.port = t.choice<u32>("at", PORTS);
    c.ssm = static_cast<u8>(t.integer("quality", 0, 15, c.ssm));
    c.present = t.boolean("present", true);
    c.vlan = t.boolean("vlan", false);
    c.tcu = t.boolean("tcu", false);
    c.phase_s = t.seconds("phase", c.phase_s);
    return c;
}

u32 peerOf(TableReader& t, const UnitSpec& unit)
{
    const u32 port = t.choice<u32>("port", PORTS);   // 'at' is the event's time
    if (std::none_of(unit.esmc.begin(), unit.esmc.end(),
                     [port](const EsmcPeerConfig& c) { return c.port == port; }))
        t.fail("port", "the unit has no [[unit.esmc]] there");
    return port;
}

Action esmcQuality(TableReader& t, const UnitSpec& unit)
{
    const u8 ssm = static_cast<u8>(t.integer("quality", 0, 15));
    return [port = peerOf(t, unit), ssm, tells = t.boolean("event", true)](Unit& u) {
        u.esmc(port).setQuality(ssm, tells);
    };
}
Action esmcSilent(TableReader& t, const UnitSpec& unit)
{
    return [port = peerOf(t, unit), on = t.boolean("on", true)](Unit& u) { u.esmc(port).setSilent(on); };
}
Action esmcVlan(TableReader& t, const UnitSpec& unit)
{
    return [port = peerOf(t, unit), on = t.boolean("on", true)](Unit& u) { u.esmc(port).setVlan(on); };
}
Action esmcFault(TableReader& t, const UnitSpec& unit)
{
    const EsmcFault fault = t.choice<EsmcFault>("fault", {{"empty", EsmcFault::Empty},
                                                          {"no_ether_type", EsmcFault::NoEtherType},
                                                          {"ether_type", EsmcFault::EtherType},
                                                          {"slow_subtype", EsmcFault::SlowSubtype},
                                                          {"oui", EsmcFault::Oui},
                                                          {"one_short", EsmcFault::OneShort},
                                                          {"itu_subtype", EsmcFault::ItuSubtype},
                                                          {"tlv_type", EsmcFault::TlvType},
                                                          {"tlv_length", EsmcFault::TlvLength},
                                                          {"unpadded", EsmcFault::Unpadded}});
    const bool on = t.boolean("on", true);
    return
        [port = peerOf(t, unit), now = on ? fault : EsmcFault::None](Unit& u) { u.esmc(port).setFault(now); };
}

Action slowpiAnswer(TableReader& t)
{
    const Answer answer = t.choice<Answer>("answer", {{"accept", Answer::Accept},
                                                      {"suspend", Answer::Suspend},
                                                      {"reject", Answer::Reject},
                                                      {"busy", Answer::Busy},
                                                      {"silent", Answer::Silent}});
    return [answer](Unit& u) { u.node().slowpi().setAnswer(answer); };
}
/// Results of the subscriptions to come.
Action slowpiResults(TableReader& t)
{
    const u8 subscribe = static_cast<u8>(t.integer("subscribe", 0, 255, 0));
    const u8 unsubscribe = static_cast<u8>(t.integer("unsubscribe", 0, 255, 0));
    const bool answers = t.boolean("answers", true);
    return [subscribe, unsubscribe, answers](Unit& u) {
        SlowpiServer& server = u.node().slowpi();
        server.subscribeResult = subscribe;
        server.unsubscribeResult = unsubscribe;
        server.answersSubscriptions = answers;
    };
}
/// An answer that nobody has asked for.
Action slowpiTell(TableReader& t)
{
    const SIGSELECT answer = t.choice<SIGSELECT>("answer", {{"cfm", SLOWPI_INITIATE_SERVICE_CFM},
                                                            {"sus", SLOWPI_INITIATE_SERVICE_SUS},
                                                            {"rej", SLOWPI_INITIATE_SERVICE_REJ},
                                                            {"subscribe", SLOWPI_SUBSCRIBE_RSP},
                                                            {"unsubscribe", SLOWPI_UNSUBSCRIBE_RSP}});
    const u8 result = static_cast<u8>(t.integer("result", 0, 255, 0));
    if (answer <= SLOWPI_INITIATE_SERVICE_REJ)
        return [answer](Unit& u) { u.node().slowpi().tellInitiated(answer); };
    return [answer, result](Unit& u) { u.node().slowpi().tellResult(answer, result); };
}

}  // namespace

void readEsmc(TableReader& t, const std::string& file, UnitSpec& unit)
{
    const toml::array* const peers = t.tables("esmc");
    if (peers == nullptr) return;
    for (const toml::node& entry : *peers) {
        TableReader p(*entry.as_table(), file, "esmc");
        const EsmcPeerConfig peer = readPeer(p);
        for (const EsmcPeerConfig& other : unit.esmc)
            if (other.port == peer.port) p.fail("at", "the same port twice");
        unit.esmc.push_back(peer);
        p.finish();
    }
}

Action readEsmcEvent(const EventWord& word, TableReader& t, const UnitSpec& unit)
{
    if (word == "esmc.quality") return esmcQuality(t, unit);
    if (word == "esmc.silent") return esmcSilent(t, unit);
    if (word == "esmc.vlan") return esmcVlan(t, unit);
    if (word == "esmc.fault") return esmcFault(t, unit);
    if (word == "slowpi.start") return [](Unit& u) { u.node().slowpi().start(); };
    if (word == "slowpi.die") return [](Unit& u) { u.node().slowpi().die(); };
    if (word == "slowpi.answer") return slowpiAnswer(t);
    if (word == "slowpi.results") return slowpiResults(t);
    if (word == "slowpi.tell") return slowpiTell(t);
    return {};
}

}  // namespace sim
