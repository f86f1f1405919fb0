// Reading what a node has of radio links to other units, [unit.inrsi], and what can happen to them. A unit
// behind a link keeps true time, but for the offset that the scenario gives it.
#include "base/frame_counter.h"
#include "sig/tuiif_sig.h"
#include "sim/board/board.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/unit.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

using Action = std::function<void(Unit&)>;

constexpr i64 PORT_LAST = 6, PORT_X = 7;
constexpr u8 AVAILABLE = 2;
constexpr u32 MFN_TURNS = 25;                    // turns of the frame number in one of the counter

InrsiLinkConfig readLink(TableReader& t)
{
    InrsiLinkConfig link;
    link.port = static_cast<u16>(t.integer("port", 1, PORT_LAST));
    link.unit = static_cast<u32>(t.integer("id", 1, 0xFFFFFFFE));
    link.status = t.choice<u8>("status", {{"none", u8{0}}, {"present", u8{1}}, {"available", AVAILABLE}},
                               AVAILABLE);
    link.huntPath = t.text("hunt_path", link.huntPath);
    link.offset_ns = t.number("offset_ns", 0.0);
    return link;
}

Action orderOfPort(TableReader& t, SIGSELECT sigNo)
{
    const KvdTuiifSocpriScanLinkReq req{sigNo, 0, static_cast<u8>(t.integer("port", 1, PORT_X))};
    return [req](Unit& u) { u.node().mainProcessor().sendLayout(req); };
}

Action orderPlain(SIGSELECT sigNo)
{
    return [sigNo](Unit& u) { u.node().mainProcessor().sendLayout(sigNo); };
}

/// Ports as a word, "ACF".
Action orderSupervision(TableReader& t)
{
    const std::string ports = t.text("ports", "");
    KvdTuiifSocpriSupInd ind{KVD_TUIIF_SOCPRI_SUP_IND, ports.empty() ? 0u : 1u, 0, {}};
    if (ports.size() > std::size(ind.syncRiPortNo)) t.fail("ports", "six at most");
    for (std::size_t i = 0; i < ports.size(); ++i) {
        if (ports[i] < 'A' || ports[i] > 'F') t.fail("ports", "letters A to F are meant");
        ind.syncRiPortNo[i] = static_cast<u8>(ports[i] - 'A' + 1);
    }
    return [ind](Unit& u) { u.node().mainProcessor().sendLayout(ind); };
}

Action orderDeselect(TableReader& t)
{
    const KvdTuiifSocpriDeselectSyncLinkInd ind{KVD_TUIIF_SOCPRI_DESELECT_SYNC_LINK_IND, {}, 0,
                                                static_cast<u8>(t.integer("port", 1, PORT_X))};
    return [ind](Unit& u) { u.node().mainProcessor().sendLayout(ind); };
}

/// The far unit's count: that of the unit at the link's other end, else one that runs with true time since
/// the power-on.
struct FarCount { u32 esfc; u16 mfn; };
FarCount farCount(Unit& u, u16 port)
{
    if (Unit* const far = u.radioFar(port)) {
        Board& board = far->node().board();
        return {board.externalCounter(), static_cast<u16>(board.counterTime_s() / SFN_PERIOD_s)};
    }
    Board& board = u.node().board();
    const double turns = (board.counterTime_s() - board.timeError_s()) / PERIOD_s;
    const double within_s = (turns - std::floor(turns)) * PERIOD_s;
    const u32 esfc = static_cast<u32>(static_cast<double>(u.node().world().now()) * 1e-12 / PERIOD_s);
    return {esfc, static_cast<u16>(within_s / SFN_PERIOD_s)};
}

/// What the sync group logic knows of its provider; nothing while it knows none.
std::optional<FarCount> groupCount(Unit& u)
{
    const std::optional<SyncProvider> provider = u.node().ngpduhif().provider();
    if (!provider) return std::nullopt;
    return FarCount{provider->esfc, provider->mfn};
}

/// `turns_ahead` turns of the frame number more than the unit at the other end counts.
struct Count {
    u8 port;
    bool ofGroup;
    u16 turnsAhead;

    std::optional<FarCount> at(Unit& u) const
    {
        const std::optional<FarCount> far = ofGroup ? groupCount(u) : farCount(u, port);
        if (!far) return std::nullopt;
        const u32 turns = far->mfn + turnsAhead;
        return FarCount{far->esfc + turns / MFN_TURNS, static_cast<u16>(turns % MFN_TURNS)};
    }
};

Count readCount(TableReader& t, u8 port)
{
    return {port, t.boolean("group", false), static_cast<u16>(t.integer("turns_ahead", 0, MFN_TURNS - 1, 0))};
}

Action orderAlign(TableReader& t)
{
    const u8 port = static_cast<u8>(t.integer("port", 1, PORT_X));
    return [count = readCount(t, port)](Unit& u) {
        if (const auto far = count.at(u))
            u.node().mainProcessor().sendLayout(KvdTuiifSocpriBfnAlignToGroupReq{
                KVD_TUIIF_SOCPRI_BFN_ALIGN_TO_GROUP_REQ, 0, count.port, far->esfc, far->mfn});
    };
}

Action tellCoarseTime(TableReader& t)
{
    const u8 port = static_cast<u8>(t.integer("port", 1, PORT_X, 1));
    return [count = readCount(t, port)](Unit& u) {
        if (const auto far = count.at(u))
            u.node().mainProcessor().sendLayout(
                KvdTuiifSocpriCoarseTimeDataInd{KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, far->esfc, far->mfn});
    };
}

Action tellSpJump(TableReader& t)
{
    const KvdTuiifSocpriSpJumpInd ind{KVD_TUIIF_SOCPRI_SP_JUMP_IND, t.boolean("on", true) ? 1u : 0u};
    return [ind](Unit& u) { u.node().mainProcessor().sendLayout(ind); };
}

Action answerOfUnit(TableReader& t)
{
    using RadioAnswer = Unit::RadioAnswer;
    const u32 id = static_cast<u32>(t.integer("id", 1, 0xFFFFFFFE));
    const RadioAnswer answer = t.choice<RadioAnswer>("answers", {{"measured", RadioAnswer::Measured},
                                                                {"invalid", RadioAnswer::Invalid},
                                                                {"rejected", RadioAnswer::Rejected},
                                                                {"silent", RadioAnswer::Silent}});
    return [id, answer](Unit& u) { u.setRadioAnswer(id, answer); };
}

}  // namespace

void readInrsi(TableReader& unit, const std::string& file, InrsiConfig& c)
{
    const toml::table* const table = unit.table("inrsi");
    if (table == nullptr) return;
    TableReader t(*table, file, "inrsi");
    c.present = t.boolean("present", true);
    if (const toml::array* const links = t.tables("link"))
        for (const toml::node& entry : *links) {
            TableReader l(*entry.as_table(), file, "link");
            const InrsiLinkConfig link = readLink(l);
            for (const InrsiLinkConfig& other : c.links)
                if (other.unit == link.unit) l.fail("id", "the same unit twice");
            c.links.push_back(link);
            l.finish();
        }
    t.finish();
}

std::function<void(Unit&)> readSocpriEvent(const EventWord& word, TableReader& t)
{
    if (word == "inrsi.start") return [](Unit& u) { u.node().inrsi().start(); };
    if (word == "inrsi.die") return [](Unit& u) { u.node().inrsi().die(); };
    if (word == "inrsi.link") return [link = readLink(t)](Unit& u) { u.node().inrsi().setLink(link); };
    if (word == "inrsi.measure") return answerOfUnit(t);
    if (word == "mp.socpri_sp_jump") return tellSpJump(t);
    if (word == "mp.socpri_start") return orderPlain(KVD_TUIIF_SOCPRI_START_REQ);
    if (word == "mp.socpri_stop") return orderPlain(KVD_TUIIF_SOCPRI_STOP_REQ);
    if (word == "mp.socpri_supervise") return orderSupervision(t);
    if (word == "mp.socpri_scan") return orderOfPort(t, KVD_TUIIF_SOCPRI_SCAN_LINK_REQ);
    if (word == "mp.socpri_select") return orderOfPort(t, KVD_TUIIF_SOCPRI_SELECT_SYNC_LINK_REQ);
    if (word == "mp.socpri_deselect") return orderDeselect(t);
    if (word == "mp.socpri_holdover") return orderPlain(KVD_TUIIF_SOCPRI_GO_TO_TIME_HOLDOVER_REQ);
    if (word == "mp.socpri_align") return orderAlign(t);
    if (word == "mp.socpri_coarse_time") return tellCoarseTime(t);
    return {};
}

}  // namespace sim
