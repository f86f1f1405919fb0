// Reading what a node has of the inter-unit links' servers, [unit.bira] and [unit.idpi], and what can
// happen to them.
#include "sig/tuiif_sig.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

constexpr std::initializer_list<std::pair<const char*, u8>> LINK_TYPES = {{"idl1", u8{0}}, {"idl2", u8{1}}};
constexpr i64 PORT_LAST = 6;
constexpr u16 AVAILABLE = 3;

u8 portOf(TableReader& t, const char* key, i64 fallback, i64 last)
{
    return static_cast<u8>(t.integer(key, 0, last, fallback));
}

Answer answerOf(TableReader& t)
{
    return t.choice<Answer>("answer", {{"accept", Answer::Accept},
                                       {"suspend", Answer::Suspend},
                                       {"reject", Answer::Reject},
                                       {"busy", Answer::Busy},
                                       {"silent", Answer::Silent}});
}

void readBira(const toml::table& table, const std::string& file, BiraConfig& c)
{
    TableReader t(table, file, "bira");
    c.present = t.boolean("present", true);
    c.linkType = t.choice<u8>("link", LINK_TYPES, u8{0});
    c.holdover = t.boolean("holdover", false);
    c.synchPortNo = portOf(t, "synch_port", 0, PORT_LAST - 1);
    if (t.has("cold")) c.cold = t.boolean("cold", true);
    c.lock_ms = static_cast<i64>(t.seconds("lock", 20.0) * 1e3);
    c.lockError_ppb = t.number("lock_error_ppb", c.lockError_ppb);
    if (!t.boolean("locks", true)) c.lock_ms = -1;
    t.finish();
}

IdpiPortConfig readPort(TableReader& t)
{
    IdpiPortConfig p;
    p.port = static_cast<u16>(t.integer("port", 1, PORT_LAST));
    p.farPort = static_cast<u16>(t.integer("far_port", 1, PORT_LAST, 1));
    p.nearDu = static_cast<u16>(t.integer("near_du", 1, 255, 1));
    p.farDu = static_cast<u16>(t.integer("far_du", 1, 255, 2));
    p.status = t.boolean("up", true) ? AVAILABLE : u16{0};
    return p;
}

void readIdpi(const toml::table& table, const std::string& file, IdpiConfig& c)
{
    TableReader t(table, file, "idpi");
    c.present = t.boolean("present", true);
    c.measuresDelay = t.boolean("measures_delay", true);
    if (const toml::array* const ports = t.tables("port"))
        for (const toml::node& entry : *ports) {
            TableReader p(*entry.as_table(), file, "port");
            const IdpiPortConfig port = readPort(p);
            for (const IdpiPortConfig& other : c.ports)
                if (other.port == port.port) p.fail("port", "the same port twice");
            c.ports.push_back(port);
            p.finish();
        }
    t.finish();
}

Action biraAnswer(TableReader& t)
{
    return [answer = answerOf(t), link = t.boolean("tells_link", true)](Unit& u) {
        u.node().bira().tellsLink = link;
        u.node().bira().setAnswer(answer);
    };
}
Action biraLink(TableReader& t)
{
    const u8 type = t.choice<u8>("link", LINK_TYPES);
    const bool holdover = t.boolean("holdover", false);
    const u8 port = portOf(t, "synch_port", 0, PORT_LAST - 1);
    return [type, holdover, port](Unit& u) {
        BiraServer& bira = u.node().bira();
        bira.config.linkType = type;
        bira.config.holdover = holdover;
        bira.config.synchPortNo = port;
        bira.tellLink();
    };
}
/// State of the server's clock that the next start of the program is told.
Action biraHoldover(TableReader& t)
{
    return [on = t.boolean("on", true)](Unit& u) { u.node().bira().config.holdover = on; };
}

Action idpiPort(TableReader& t)
{
    const IdpiPortConfig port = readPort(t);
    return [port](Unit& u) { u.node().idpi().setPort(port); };
}

Action orderLinkType(TableReader& t)
{
    const KvdTuiifIdl2SelectIdlTypeReq req{KVD_TUIIF_IDL2_SELECT_IDL_TYPE_REQ,
                                           t.choice<u8>("link", LINK_TYPES),
                                           portOf(t, "synch_port", 0, PORT_LAST - 1)};
    return [req](Unit& u) { u.node().mainProcessor().sendLayout(req); };
}
/// Whether the unit leads the links.
Action masterServer(TableReader& t)
{
    const KvdTuiifIdl2SetMasterServerCfm cfm{KVD_TUIIF_IDL2_SET_MASTER_SERVER_CFM,
                                             t.boolean("on", true) ? 1u : 0u};
    return [cfm](Unit& u) { u.node().mainProcessor().sendLayout(cfm); };
}
Action orderFreqLock(TableReader& t)
{
    const KvdTuiifIdl2TogglePersistentFreqLockReq req{
        KVD_TUIIF_IDL2_TOGGLE_PERSISTENT_FREQ_LOCK_REQ, t.boolean("on", true) ? 1u : 0u,
        portOf(t, "synch_port", 0, PORT_LAST - 1)};
    return [req](Unit& u) { u.node().mainProcessor().sendLayout(req); };
}

}  // namespace

void readIdlServers(TableReader& t, const std::string& file, NodeConfig& node)
{
    if (const toml::table* const bira = t.table("bira")) readBira(*bira, file, node.bira);
    if (const toml::table* const idpi = t.table("idpi")) readIdpi(*idpi, file, node.idpi);
}

Action readIdlEvent(const EventWord& word, TableReader& t)
{
    if (word == "bira.start") return [](Unit& u) { u.node().bira().start(); };
    if (word == "bira.die") return [](Unit& u) { u.node().bira().die(); };
    if (word == "bira.answer") return biraAnswer(t);
    if (word == "bira.link") return biraLink(t);
    if (word == "bira.holdover") return biraHoldover(t);
    if (word == "bira.freq_locked") return [](Unit& u) { u.node().bira().tellFreqLocked(); };
    if (word == "idpi.start") return [](Unit& u) { u.node().idpi().start(); };
    if (word == "idpi.die") return [](Unit& u) { u.node().idpi().die(); };
    if (word == "idpi.answer") return [answer = answerOf(t)](Unit& u) { u.node().idpi().setAnswer(answer); };
    if (word == "idpi.port") return idpiPort(t);
    if (word == "mp.select_idl_type") return orderLinkType(t);
    if (word == "mp.master_server") return masterServer(t);
    if (word == "mp.persistent_freq_lock") return orderFreqLock(t);
    return {};
}

}  // namespace sim
