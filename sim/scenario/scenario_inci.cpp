// Reading a node's sync group logic, [unit.sync_group], and what can happen to it.
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

constexpr i64 PRIORITY_LAST = 0xFFFF;

Answer answerOf(TableReader& t)
{
    return t.choice<Answer>("answer", {{"accept", Answer::Accept},
                                       {"reject", Answer::Reject},
                                       {"silent", Answer::Silent}});
}

}  // namespace

void readSyncGroup(TableReader& unit, const std::string& file, NodeConfig& node)
{
    const toml::table* const table = unit.table("sync_group");
    if (table == nullptr) return;
    TableReader t(*table, file, "sync_group");
    SyncGroupConfig& c = node.syncGroup;
    c.present = t.boolean("present", true);
    c.nodeIdentifier = static_cast<u32>(t.integer("node", 0, UINT32_MAX, 0));
    c.priority = static_cast<u16>(t.integer("priority", 0, PRIORITY_LAST, c.priority));
    c.period_ms = static_cast<i64>(t.seconds("period", 1.0) * 1e3);
    if (c.period_ms < 1) t.fail("period", "a millisecond at least");
    t.finish();
}

Action readSyncGroupEvent(const EventWord& word, TableReader& t)
{
    if (word == "sync_group.start") return [](Unit& u) { u.node().ngpduhif().start(); };
    if (word == "sync_group.die") return [](Unit& u) { u.node().ngpduhif().die(); };
    if (word == "sync_group.answer")
        return [answer = answerOf(t)](Unit& u) { u.node().ngpduhif().setAnswer(answer); };
    if (word == "sync_group.handshake")
        return [answer = answerOf(t)](Unit& u) { u.node().ngpduhif().handshakeAnswer = answer; };
    if (word == "sync_group.priority") {
        const u16 priority = static_cast<u16>(t.integer("priority", 0, PRIORITY_LAST));
        return [priority](Unit& u) { u.node().ngpduhif().setPriority(priority); };
    }
    if (word == "sync_group.broadcasts")
        return [on = t.boolean("on", true)](Unit& u) { u.node().ngpduhif().broadcasts = on; };
    return {};
}

}  // namespace sim
