// Syncref control, the requirement on clocks and the manager's side against an independent model's check
// values.
#include "frame/kvd_mgr_proc.h"
#include "pktsync/tupktsyncadm.h"
#include "sig/ref_types.h"
#include "tests/iif/iif_bench.h"
#include "tests/pktsync/syncref_bench.h"
#include "tests/support/vectors.h"
#include "unit/kvd_unit_process.h"

#include <map>

namespace {

using namespace bench;
using vectors::json;
using vectors::Value;

std::string text(const Value& v) { return v.get<std::string>(); }

// ---- tables -----------------------------------------------------------------------------------------------

void intervals(const Value& c)
{
    for (const Value row : c["table"]) {
        const u32 ms = row[1].get<u32>();
        const i32 log = row[0].get<i32>();
        EXPECT_EQ(ptpLogToMs(static_cast<i8>(log)), ms) << row;
        if (log < -10 || log > 13) continue;
        EXPECT_EQ(ptpMsToLog(ms), log);
        EXPECT_EQ(ptpMsToLog(ms - 1), std::max(-10, log - 1));
    }
}

void logarithms(const Value& c)
{
    for (const Value row : c["table"]) EXPECT_EQ(ptpMsToLog(row[0].get<u32>()), row[1].get<i32>()) << row;
}

/// Identities by the order in which the clocks are made, each row from a fresh start.
void identities(const Value& c)
{
    IdleNode b;
    b.in([&] {
        for (const Value row : c["rows"]) {
            SCOPED_TRACE(row.dump());
            syncref::state().standardIdentityTaken = false;
            const std::vector<u8> mac = vectors::bytes(row["mac"]);
            std::array<u8, 6> own{};
            std::copy_n(mac.begin(), own.size(), own.begin());
            for (const Value id : row["creationOrder"]) {
                syncref::Syncref r{};
                syncref::formIdentity(r, id.get<u32>(), own);
                if (id == row["syncrefId"].get<u32>()) {
                    EXPECT_EQ(r.port.clockIdentity, identityOf(text(row["clockIdentity"])));
                }
            }
        }
    });
}

/// Board, code of the link's speed, port word; ingress, egress, what the two come to.
void latencies(const Value& c)
{
    IdleNode b;
    b.in([&] {
        for (const Value row : c["rows"]) {
            SCOPED_TRACE(row.dump());
            syncref::state().board = row[0].get<u32>();
            syncref::resetTimestampLatency();
            syncref::setTimestampLatency(row[1].get<u32>(), row[2].get<u32>());
            EXPECT_EQ(syncref::state().latencyAsymmetry, row[5].get<i32>());
            EXPECT_EQ(row[4].get<i32>() - row[3].get<i32>(), row[5].get<i32>());
        }
    });
}

/// Class of the reference (5 when it isn't there), clock class; the quality that is told.
void qualities(const Value& c)
{
    bench::IifBench b;
    b.connect();
    for (const Value row : c[c.contains("rows") ? "rows" : "table"]) {
        const std::size_t last = row.size() - 1;
        const u32 froClassNo = last == 2 ? row[0].get<u32>() : PACKET_FREQ_FRO_CLASS;
        if (last != 1 && last != 2) throw std::runtime_error("no replay of the row " + row.dump());
        b.mp().clearLog();
        b.in([&] { TuPktsyncAdm_clockClassValid(1, froClassNo, row[last - 1].get<u8>()); });
        b.world.runUntil(b.world.now());
        const auto told = b.mp().all(KVD_TUIIF_QUALITY_LEVEL_IND);
        ASSERT_EQ(told.size(), 1u) << row;
        EXPECT_EQ(told[0].as<KvdTuiifQualityLevelInd>()->clockQuality, row[last].get<u32>()) << row;
    }
}

TEST(PtpCheckValues, Tables)
{
    const vectors::Kinds rows = {{"logToMs", intervals}, {"msToLog", logarithms}, {"clockIdentity", identities},
                                 {"latency", latencies}, {"clockClassValid", qualities}};
    vectors::Document document("o03_ptp_tables.json");
    vectors::each(document["cases"], [&](const Value& c) { vectors::dispatch(rows, text(c["name"]), c); });
}

// ---- syncref control --------------------------------------------------------------------------------------

/// A server by its address, or by the last number of one.
void setServer(TuiifPktRefConfig& c, const json& server)
{
    u32 octets[4] = {192, 168, 0, 0};
    if (server.is_number()) octets[3] = server;
    else if (std::sscanf(server.get<std::string>().c_str(), "%u.%u.%u.%u", &octets[0], &octets[1], &octets[2],
                         &octets[3]) != 4)
        throw std::runtime_error("no address of a server: " + server.dump());
    for (std::size_t i = 0; i < 4; ++i) c.serverIpAddress.address[i] = static_cast<u8>(octets[i]);
}

TuiifPktRefConfig configOf(const json& j)
{
    static const std::set<std::string> KEYS = {"fro", "cls", "type", "domain", "mc", "server"};
    for (const auto& [key, value] : j.items())
        if (!KEYS.contains(key)) ADD_FAILURE() << "no replay of the field \"" << key << "\"";
    TuiifPktRefConfig c = pktRef(j.at("fro"), j.at("cls"), j.at("type"), j.at("domain"));
    c.ptpMulticastAddress = j.value("mc", u8{0});
    if (j.contains("server")) setServer(c, j["server"]);
    return c;
}

void setEnvironment(const json& op)
{
    static const std::map<std::string, i32> FAILED = {{"host", -2}, {"fail", -1}};
    const auto socket = [&op](i32 good) { return op.at(2) == "ok" ? good : FAILED.at(op.at(2)); };
    const std::string what = op.at(1);
    if (what == "mcWait") syncrefSeen().mcResult = op.at(2);
    else if (what == "sock1") syncrefSeen().eventSocket = socket(0);
    else if (what == "sock2") syncrefSeen().generalSocket = socket(1);
    else if (what == "clock") syncrefSeen().clockStands = op.at(2) == 1;
    else throw std::runtime_error("nothing to set \"" + what + "\"");
}

void apply(const json& op, bool interfaceUp)
{
    const std::string name = op.at(0);
    if (name == "start") syncrefBegin(1, interfaceUp);
    else if (name == "init") TuPktsync_SyncrefCtrl_init();
    else if (name == "env") setEnvironment(op);
    else if (name == "create") give(createReq(configOf(op.at(1))));
    else if (name == "delete") give(deleteReq(op.at(1), op.at(2)));
    else if (name == "set") {
        TuiifPktRefConfig c = pktRef(op.at(1), op.at(2), 0, 24);
        if (!op.at(3).is_null()) setServer(c, op[3]);
        give(setReq(c));
    } else if (name == "up") give(TuPktsyncTuiifUpInd{TUPKTSYNC_TUIIF_UP_IND, 1});
    else if (name == "down") give(SIGSELECT{TUPKTSYNC_TUIIF_DOWN_IND});
    else if (name == "drvSetCfm") TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(op.at(1));
    else if (name == "drvDelCfm") TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(op.at(1));
    else if (name == "mcJoined") TuPktsync_SyncrefCtrl_CfiSetupReady(op.at(1));
    else if (name == "mcLeft") TuPktsync_SyncrefCtrl_CfiRemoveReady(op.at(1));
    else if (name == "serverDown") TuPktsync_SyncrefCtrl_handleServerDownInd();
    else if (name == "select") TuPktsync_SyncrefCtrl_selectionInd(op.at(1), op.at(2), op.at(3));
    else if (name == "pathSupervision") {
        const u8 refType = op.at(2) == PACKET_FREQ_FRO_CLASS ? PACKET_FREQ_REF : PACKET_TIME_REF;
        KvdTuiifSynchPathSupInd ind{};
        ind.sigNo = KVD_TUIIF_SYNCH_PATH_SUP_IND;
        ind.on = op.at(3), ind.refType = refType, ind.froId = op.at(1), ind.froClassNo = op.at(2);
        give(ind);
    } else if (name == "audit") {
        std::vector<TuiifPktRefConfig> rows;
        for (const json& row : op.at(1)) rows.push_back(configOf(row));
        giveAudit(rows, static_cast<u32>(rows.size()));
    } else throw std::runtime_error("no replay of the operation " + op.dump());
}

std::vector<u32> sentEvent(const json& e)
{
    static const std::map<std::string, u32> NUMBERS = {
        {"createCfm", KVD_TUIIF_CREATE_PKT_REF_RO_CFM},
        {"deleteCfm", KVD_TUIIF_DELETE_PKT_REF_RO_CFM},
        {"setCfm", KVD_TUIIF_SET_PKT_REF_RO_CFM},
        {"auditReq", KVD_TUIIF_AUDIT_PKT_REF_RO_REQ},
        {"auditResult", KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND},
        {"unavailableInd", KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND},
    };
    std::vector<u32> event{SENT, NUMBERS.at(e[1])};
    for (std::size_t i = 2; i < e.size(); ++i) {
        if (!e[i].is_array()) {
            event.push_back(e[i]);
            continue;
        }
        for (const json& row : e[i])
            for (const json& word : row) event.push_back(word);
    }
    return event;
}

/// A trace that the model tells by a word of its own: all that counts is that no signal goes with it.
bool isWord(const std::string& text) { return text.find(' ') == std::string::npos; }

/// The model's events; what it expects to be traced goes to `traces`. Closed sockets are two that are given back.
Events eventsOf(const json& list, std::vector<std::string>& traces)
{
    static const std::map<std::string, u32> NAMES = {
        {"mcAdd", MC_ADD}, {"mcRemove", MC_REMOVE}, {"drvSet", DRV_SET}, {"drvDelete", DRV_DELETE},
        {"drvChange", DRV_CHANGE},
        {"changeClock", CHANGE_CLOCK}, {"pathSupervision", SUPERVISE_CLOCK},
        {"deleteClock", DELETE_CLOCK}, {"selectedMark", SELECTED}, {"resetClients", RESET_CLIENTS},
        {"reInit", RE_INIT}, {"initReady", INIT_READY}, {"newClock", NEW_CLOCK},
    };
    Events events;
    for (const json& e : list) {
        const std::string name = e[0];
        if (name == "trace") {
            const std::string text = e[1];
            if (!isWord(text)) traces.push_back(text);
        } else if (name == "send") {
            events.push_back(sentEvent(e));
        } else if (name == "closeSockets") {
            events.insert(events.end(), 2, {SOCKET_GIVEN_BACK});
        } else if (name == "socket") {
            events.push_back({SOCKET, e[1] == "event" ? SOCKET_EVENT : SOCKET_GENERAL});
        } else if (!NAMES.contains(name)) {
            throw std::runtime_error("no replay of " + name);
        } else {
            std::vector<u32> event{NAMES.at(name)};
            for (std::size_t i = 1; i < e.size(); ++i) event.push_back(e[i]);
            events.push_back(event);
        }
    }
    return events;
}

/// What a failed creation gives back on the way isn't the model's matter; nor is, in files that don't tell it,
/// what the driver hears of a change and which sockets are given back. Of a changed or supervised clock as many
/// words count as stand there: whose, and perhaps what.
Events seenEvents(bool isFailure, const Events& wanted)
{
    const auto tells = [&wanted](u32 ev) {
        return std::any_of(wanted.begin(), wanted.end(), [ev](const auto& e) { return e[0] == ev; });
    };
    const bool tellsSockets = tells(SOCKET_GIVEN_BACK), tellsChange = tells(DRV_CHANGE);
    Events events = syncrefSeen().events;
    std::erase_if(events, [&](const std::vector<u32>& e) {
        return (e[0] == SOCKET_GIVEN_BACK && !tellsSockets) || (e[0] == DRV_CHANGE && !tellsChange) ||
               (isFailure && (e[0] == MC_REMOVE || e[0] == DRV_DELETE));
    });
    for (std::size_t i = 0; i < events.size(); ++i) {
        std::vector<u32>& e = events[i];
        if (e[0] == SOCKET_GIVEN_BACK) e.resize(1);
        const bool isOfClock = e[0] == CHANGE_CLOCK || e[0] == SUPERVISE_CLOCK;
        if (isOfClock && i < wanted.size()) e.resize(std::clamp<std::size_t>(wanted[i].size(), 2, e.size()));
    }
    return events;
}

json records()
{
    json all = json::array();
    for (u32 id = 0; id < PTP_CLOCKS; ++id) {
        const auto& r = syncref::state().table[id];
        if (!r) continue;
        all.push_back({id, r->syncRefIndivState, r->pendingFlags, r->froId, r->froClassNo,
                       r->typeOfPktStruct, r->port.clockIdentity[4]});
    }
    return all;
}

void controlStep(IdleNode& b, const Value& step, bool interfaceUp, bool isFailure)
{
    b.node.traces().clear();
    std::vector<std::string> traces;
    const Events wanted = eventsOf(step["events"].read(), traces);
    b.in([&] {
        node::traceAttachProcess();
        syncrefSeen().events.clear();
        apply(step["op"].read(), interfaceUp);
        EXPECT_EQ(seenEvents(isFailure, wanted), wanted);
        const syncref::State& s = syncref::state();
        EXPECT_EQ(s.syncRefCtrlState, step["ctrl"].get<u32>());
        EXPECT_EQ(s.selected_syncrefId, step["selected"].get<i32>());
        EXPECT_EQ(s.requestAudit ? 1 : 0, step.value("requestAudit", 0));
        EXPECT_EQ(step["recs"], records());
    });
    for (const std::string& text : traces) EXPECT_EQ(b.node.traces().count({text}), 1u) << text;
}

TEST(SyncrefCheckValues, Control)
{
    vectors::Document document("o03_syncref.json");
    vectors::each(document["cases"], [](const Value& c) {
        IdleNode b;
        const std::string name = text(c["name"]);
        const bool isFailure = name.find("can't be made") != std::string::npos;
        // What becomes of references that nobody has asked for in the end is open there.
        const bool isOpen = name == "down during AUDIT_CREATE_PENDING and staying down";
        const bool interfaceUp = c["interfaceUp"] == 1;
        for (u32 i = 0; i < c["steps"].size(); ++i) {
            const Value step = c["steps"][i];
            SCOPED_TRACE(step.dump());
            if (isOpen && i + 1 == c["steps"].size()) break;
            controlStep(b, step, interfaceUp, isFailure);
        }
    });
}

// ---- requirement ----------------------------------------------------------------------------------

/// The numbers of a requirement by their names, and what a change of one is.
struct RqmtField { void (*set)(TuPktsyncClockRqmt&, u32); void (*change)(TuPktsyncClockRqmt&); };
const std::map<std::string, RqmtField> RQMT = {
    {"minPktInterval", {[](auto& r, u32 v) { r.minPktInterval = v; }, [](auto& r) { ++r.minPktInterval; }}},
    {"maxPktInterval", {[](auto& r, u32 v) { r.maxPktInterval = v; }, [](auto& r) { ++r.maxPktInterval; }}},
    {"freqClockClass",
     {[](auto& r, u32 v) { r.freqClockClass = static_cast<u8>(v); }, [](auto& r) { ++r.freqClockClass; }}},
    {"freqClockAccuracy",
     {[](auto& r, u32 v) { r.freqClockAccuracy = static_cast<u8>(v); }, [](auto& r) { --r.freqClockAccuracy; }}},
    {"timeClockClass",
     {[](auto& r, u32 v) { r.timeClockClass = static_cast<u8>(v); }, [](auto& r) { ++r.timeClockClass; }}},
    {"timeClockAccuracy",
     {[](auto& r, u32 v) { r.timeClockAccuracy = static_cast<u8>(v); }, [](auto& r) { ++r.timeClockAccuracy; }}},
    {"stratumLevel",
     {[](auto& r, u32 v) { r.stratumLevel = static_cast<u8>(v); }, [](auto& r) { ++r.stratumLevel; }}},
};

TuPktsyncClockRqmt fixedRqmt(const Value& f)
{
    TuPktsyncClockRqmt r{};
    for (const auto& [name, value] : f.items()) {
        if (name == "classes")
            for (std::size_t i = 0; i < 5; ++i) r.freqClockClassG8265_1[i] = value[i].get<u8>();
        else RQMT.at(name).set(r, value.get<u32>());
    }
    return r;
}

/// Marks the requirement of a running clock; a clock that is told has lost the mark.
constexpr u8 MARK = 0xAB;
bool wasTold(u32 id) { return ptpClockOf(id)->setup.rqmt.clockClass != MARK; }

void told(const TuPktsyncClockRqmt& fixed, const Value& row)
{
    syncrefReady();
    syncrefSeen().realClocks = true;
    TuPktsync_SyncrefCtrl_clockRqmtInd(fixed);
    give(createReq(pktRef(1, 4, 0, 24)));
    TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0);
    give(createReq(pktRef(2, 5, 3, 4)));
    TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(1);
    EXPECT_EQ(ptpClockOf(0)->setup.rqmt.clockClass, fixed.timeClockClass);
    EXPECT_EQ(ptpClockOf(0)->setup.rqmt.clockAccuracy, fixed.timeClockAccuracy);
    EXPECT_EQ(ptpClockOf(1)->setup.rqmt.clockClass, fixed.freqClockClass);
    EXPECT_EQ(ptpClockOf(1)->setup.rqmt.freqClockClassG8265_1, fixed.freqClockClassG8265_1);
    for (const u32 id : {0, 1}) ptpClockOf(id)->setup.rqmt.clockClass = MARK;
    TuPktsyncClockRqmt changed = fixed;
    RQMT.at(text(row["change"])).change(changed);
    TuPktsync_SyncrefCtrl_clockRqmtInd(changed);
    EXPECT_EQ(wasTold(0), row["typeBelow3"] == 1);
    EXPECT_EQ(wasTold(1), row["type3"] == 1);
    for (const u32 id : {0, 1}) TuPktsync_delete_ptp_clock(id);
}

TEST(SyncrefCheckValues, RequirementAndWhomItConcerns)
{
    vectors::Document document("o03_clock_rqmt.json");
    const TuPktsyncClockRqmt fixed = fixedRqmt(document["fixed"]);
    vectors::each(document["told"], [&](const Value& row) {
        IdleNode b;
        b.in([&] { told(fixed, row); });
    });
    vectors::each(document["cases"], [&](const Value& c) {
        IdleNode b;
        b.in([&] {
            syncrefReady();
            TuPktsync_SyncrefCtrl_clockRqmtInd(fixed);
            TuPktsyncClockRqmt r = fixed;
            r.minPktInterval = c["minPktInterval"].get<u32>();
            r.maxPktInterval = c["maxPktInterval"].get<u32>();
            r.stratumLevel = 9;
            TuPktsync_SyncrefCtrl_clockRqmtInd(r);
            EXPECT_EQ(syncref::state().clockRqmt->stratumLevel, c["accepted"] == 1 ? 9 : fixed.stratumLevel);
        });
    });
}

// ---- manager's side -------------------------------------------------------------------------------

void selectInManager(u8 refType, u32 froId, u32 froClassNo)
{
    auto* ind = node::make<KvdTuiifSelectSynchRefInd>(KVD_TUIIF_SELECT_SYNCH_REF_IND);
    ind->refType = refType;
    ind->froId = froId;
    ind->froClassNo = froClassNo;
    Signal* sig = reinterpret_cast<Signal*>(ind);
    EXPECT_EQ(TuPktsyncAdm_dispatch(sig), 1);
    ose::free_buf(&sig);
}

TEST(SyncrefCheckValues, SelectionAsThePacketProcessIsTold)
{
    vectors::Document document("o03_pktsync_adm.json");
    vectors::each(document["selection"], [](const Value& row) {
        IdleNode b;
        const PROCESS pktsync = b.node.system().spawn("pktsync", 18, [&row] {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            const auto* ind = as<TuPktsyncRefSelectionInd>(sig);
            ASSERT_NE(ind, nullptr);
            EXPECT_EQ(ind->sigNo, TUPKTSYNC_REF_SELECTION_IND);
            EXPECT_EQ(row["selection"], json({ind->froId, ind->froClassNo, ind->selectOperation}));
            EXPECT_EQ(ind->timestampConsumerPid, 77u);
            ose::free_buf(&sig);
        });
        b.in([&] {
            KvdLoz6TuMgr_setPids(77, 78, pktsync);
            selectInManager(row["refType"].get<u8>(), row["froId"].get<u32>(), row["froClassNo"].get<u32>());
        });
        EXPECT_FALSE(b.node.system().alive(pktsync));       // it has seen it
    });
}

TEST(SyncrefCheckValues, ExchangesThatPassTheManager)
{
    vectors::Document document("o03_pktsync_adm.json");
    vectors::each(document["fractions"], [](const Value& row) {
        EXPECT_EQ(TuPktsyncAdm_fractionOf(row[0].get<u32>()), row[1].get<u32>());
    });
    vectors::each(document["cases"], [](const Value& c) {
        SCOPED_TRACE(c.dump());
        IdleNode b;
        const PROCESS pktsync = b.node.system().spawn("pktsync", 18, [] {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            ose::free_buf(&sig);
        });
        b.in([&] {
            node::traceAttachProcess();
            node::traceSetProgramMask(0xFFFFFFFF);
            KvdLoz6TuMgr_setPids(77, 78, pktsync);
            const Value selected = c["selected"];
            selectInManager(selected["refType"].get<u8>(), selected["froId"].get<u32>(), selected["froClassNo"].get<u32>());
            Signal* sig = ose::alloc(sizeof(TuPktsyncPtpPacketInd), TUPKTSYNC_PTP_PACKET_IND);
            auto* ind = reinterpret_cast<TuPktsyncPtpPacketInd*>(sig);
            ind->froId = c["packet"][0].get<u32>();
            ind->froClassNo = c["packet"][1].get<u32>();
            EXPECT_EQ(TuPktsyncAdm_dispatch(sig), 1);
            ose::free_buf(&sig);
        });
        // An idle program's regulator is cold: it says so of each exchange that it is given.
        const bool isTime = c["to"] == "time";
        EXPECT_EQ(b.node.traces().count({"not passed WARM Up state yet"}), c["passes"].get<std::size_t>());
        EXPECT_EQ(b.node.traces().count({"PTP packet received"}), isTime ? 1u : 0u);
    });
}

}  // namespace
