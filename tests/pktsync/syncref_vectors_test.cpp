// Syncref control, the requirement on clocks and the manager's side against an independent model's check
// values.
#include "mgr/kvd_mgr_proc.h"
#include "pktsync/tupktsyncadm.h"
#include "ref/ref_types.h"
#include "tests/pktsync/syncref_bench.h"
#include "tests/support/vectors.h"

#include <map>

namespace {

using namespace bench;
using vectors::json;

TuiifPktRefConfig configOf(const json& j)
{
    TuiifPktRefConfig c = pktRef(j["fro"], j["cls"], j["type"], j["domain"]);
    c.ptpMulticastAddress = j.value("mc", u8{0});
    return c;
}

void setEnvironment(const json& op)
{
    const auto socket = [&op](i32 good) { return op[2] == "ok" ? good : op[2] == "host" ? -2 : -1; };
    if (op[1] == "mcWait") syncrefSeen().mcResult = op[2];
    if (op[1] == "sock1") syncrefSeen().eventSocket = socket(0);
    if (op[1] == "sock2") syncrefSeen().generalSocket = socket(1);
    if (op[1] == "clock") syncrefSeen().clockStands = op[2] == 1;
}

void apply(const json& op, bool interfaceUp)
{
    const std::string name = op[0];
    if (name == "start") syncrefBegin(1, interfaceUp);
    else if (name == "init") TuPktsync_SyncrefCtrl_init();
    else if (name == "env") setEnvironment(op);
    else if (name == "create") give(createReq(configOf(op[1])));
    else if (name == "delete") give(deleteReq(op[1], op[2]));
    else if (name == "set") give(setReq(pktRef(op[1], op[2], 0, 24)));
    else if (name == "up") give(TuPktsyncTuiifUpInd{TUPKTSYNC_TUIIF_UP_IND, 1});
    else if (name == "down") give(SIGSELECT{TUPKTSYNC_TUIIF_DOWN_IND});
    else if (name == "drvSetCfm") TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(op[1]);
    else if (name == "drvDelCfm") TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(op[1]);
    else if (name == "mcJoined") TuPktsync_SyncrefCtrl_CfiSetupReady(op[1]);
    else if (name == "mcLeft") TuPktsync_SyncrefCtrl_CfiRemoveReady(op[1]);
    else if (name == "serverDown") TuPktsync_SyncrefCtrl_handleServerDownInd();
    else if (name == "select") TuPktsync_SyncrefCtrl_selectionInd(op[1], op[2], op[3]);
    else if (name == "audit") {
        std::vector<TuiifPktRefConfig> rows;
        for (const json& row : op[1]) rows.push_back(configOf(row));
        giveAudit(rows, static_cast<u32>(rows.size()));
    } else
        ADD_FAILURE() << "unknown operation " << op;
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

/// The model's events; what it expects to be traced goes to `traces`.
Events eventsOf(const json& list, std::vector<std::string>& traces)
{
    static const std::map<std::string, u32> NAMES = {
        {"mcAdd", MC_ADD}, {"mcRemove", MC_REMOVE}, {"drvSet", DRV_SET}, {"drvDelete", DRV_DELETE},
        {"deleteClock", DELETE_CLOCK}, {"selectedMark", SELECTED}, {"resetClients", RESET_CLIENTS},
        {"reInit", RE_INIT}, {"initReady", INIT_READY}, {"newClock", NEW_CLOCK},
    };
    Events events;
    for (const json& e : list) {
        const std::string name = e[0];
        if (name == "trace") {
            const std::string text = e[1];
            if (text != "sameDomain" && text != "refused") traces.push_back(text);
        } else if (name == "send") {
            events.push_back(sentEvent(e));
        } else if (name == "socket") {
            events.push_back({SOCKET, e[1] == "event" ? SOCKET_EVENT : SOCKET_GENERAL});
        } else {
            std::vector<u32> event{NAMES.at(name)};
            for (std::size_t i = 1; i < e.size(); ++i) event.push_back(e[i]);
            events.push_back(event);
        }
    }
    return events;
}

/// What a failed creation gives back on the way isn't the model's matter.
Events seenEvents(bool isFailure)
{
    Events events = syncrefSeen().events;
    std::erase_if(events, [isFailure](const std::vector<u32>& e) {
        return e[0] == SOCKET_GIVEN_BACK || (isFailure && (e[0] == MC_REMOVE || e[0] == DRV_DELETE));
    });
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

TEST(SyncrefCheckValues, Control)
{
    TU_LOAD_VECTORS(document, "o03_syncref.json");
    u32 steps = 0;
    for (const json& c : document["cases"]) {
        SCOPED_TRACE(c["name"].get<std::string>());
        IdleNode b;
        const bool isFailure = c["name"].get<std::string>().find("can't be made") != std::string::npos;
        // What becomes of references that nobody has asked for in the end is open there.
        const bool isOpen = c["name"] == "down during AUDIT_CREATE_PENDING and staying down";
        for (const json& step : c["steps"]) {
            if (isOpen && &step == &c["steps"].back()) break;
            SCOPED_TRACE(step.dump());
            b.node.traces().clear();
            std::vector<std::string> traces;
            const Events wanted = eventsOf(step["events"], traces);
            b.in([&] {
                node::traceAttachProcess();
                syncrefSeen().events.clear();
                apply(step["op"], c["interfaceUp"] == 1);
                EXPECT_EQ(seenEvents(isFailure), wanted);
                const syncref::State& s = syncref::state();
                EXPECT_EQ(s.syncRefCtrlState, step["ctrl"].get<u32>());
                EXPECT_EQ(s.selected_syncrefId, step["selected"].get<i32>());
                EXPECT_EQ(s.requestAudit ? 1 : 0, step.value("requestAudit", 0));
                EXPECT_EQ(records(), step["recs"]);
            });
            for (const std::string& text : traces) EXPECT_EQ(b.node.traces().count({text}), 1u) << text;
            ++steps;
        }
    }
    EXPECT_GT(steps, 100u);
}

// ---- requirement ----------------------------------------------------------------------------------

TuPktsyncClockRqmt fixedRqmt(const json& f)
{
    TuPktsyncClockRqmt r{};
    r.minPktInterval = f["minPktInterval"];
    r.maxPktInterval = f["maxPktInterval"];
    r.freqClockClass = f["freqClockClass"];
    r.freqClockAccuracy = f["freqClockAccuracy"];
    r.timeClockClass = f["timeClockClass"];
    r.timeClockAccuracy = f["timeClockAccuracy"];
    r.stratumLevel = f["stratumLevel"];
    for (std::size_t i = 0; i < 5; ++i) r.freqClockClassG8265_1[i] = f["classes"][i];
    return r;
}

void changeField(TuPktsyncClockRqmt& r, const std::string& name)
{
    if (name == "minPktInterval") ++r.minPktInterval;
    if (name == "maxPktInterval") ++r.maxPktInterval;
    if (name == "freqClockClass") ++r.freqClockClass;
    if (name == "freqClockAccuracy") --r.freqClockAccuracy;
    if (name == "timeClockClass") ++r.timeClockClass;
    if (name == "timeClockAccuracy") ++r.timeClockAccuracy;
    if (name == "stratumLevel") ++r.stratumLevel;
}

/// Marks the requirement of a running clock; a clock that is told has lost the mark.
constexpr u8 MARK = 0xAB;
bool wasTold(u32 id) { return ptpClockOf(id)->setup.rqmt.clockClass != MARK; }

TEST(SyncrefCheckValues, RequirementAndWhomItConcerns)
{
    TU_LOAD_VECTORS(document, "o03_clock_rqmt.json");
    const TuPktsyncClockRqmt fixed = fixedRqmt(document["fixed"]);
    for (const json& row : document["told"]) {
        SCOPED_TRACE(row.dump());
        IdleNode b;
        b.in([&] {
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
            changeField(changed, row["change"]);
            TuPktsync_SyncrefCtrl_clockRqmtInd(changed);
            EXPECT_EQ(wasTold(0), row["typeBelow3"] == 1);
            EXPECT_EQ(wasTold(1), row["type3"] == 1);
            for (const u32 id : {0, 1}) TuPktsync_delete_ptp_clock(id);
        });
    }
    IdleNode b;
    b.in([&] {
        syncrefReady();
        for (const json& c : document["cases"]) {
            TuPktsync_SyncrefCtrl_clockRqmtInd(fixed);
            TuPktsyncClockRqmt r = fixed;
            r.minPktInterval = c["minPktInterval"];
            r.maxPktInterval = c["maxPktInterval"];
            r.stratumLevel = 9;
            TuPktsync_SyncrefCtrl_clockRqmtInd(r);
            EXPECT_EQ(syncref::state().clockRqmt->stratumLevel, c["accepted"] == 1 ? 9 : fixed.stratumLevel);
        }
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
    TU_LOAD_VECTORS(document, "o03_pktsync_adm.json");
    IdleNode b;
    const PROCESS pktsync = b.node.system().spawn("pktsync", 18, [&document] {
        for (const json& row : document["selection"]) {
            Signal* sig = ose::receive(ose::ANY_SIGNAL);
            const auto* ind = as<TuPktsyncRefSelectionInd>(sig);
            ASSERT_NE(ind, nullptr);
            EXPECT_EQ(ind->sigNo, TUPKTSYNC_REF_SELECTION_IND);
            EXPECT_EQ(json({ind->froId, ind->froClassNo, ind->selectOperation}), row["selection"]) << row;
            EXPECT_EQ(ind->timestampConsumerPid, 77u);
            ose::free_buf(&sig);
        }
    });
    b.in([&] {
        KvdLoz6TuMgr_setPids(77, 78, pktsync);
        for (const json& row : document["selection"])
            selectInManager(row["refType"], row["froId"], row["froClassNo"]);
    });
    EXPECT_FALSE(b.node.system().alive(pktsync));       // it has seen them all
}

TEST(SyncrefCheckValues, ExchangesThatPassTheManager)
{
    TU_LOAD_VECTORS(document, "o03_pktsync_adm.json");
    for (const json& row : document["fractions"])
        EXPECT_EQ(TuPktsyncAdm_fractionOf(row[0]), row[1].get<u32>()) << row;
    for (const json& c : document["cases"]) {
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
            const json& selected = c["selected"];
            selectInManager(selected["refType"], selected["froId"], selected["froClassNo"]);
            Signal* sig = ose::alloc(sizeof(TuPktsyncPtpPacketInd), TUPKTSYNC_PTP_PACKET_IND);
            auto* ind = reinterpret_cast<TuPktsyncPtpPacketInd*>(sig);
            ind->froId = c["packet"][0];
            ind->froClassNo = c["packet"][1];
            EXPECT_EQ(TuPktsyncAdm_dispatch(sig), 1);
            ose::free_buf(&sig);
        });
        // An idle program's regulator is cold: it says so of each exchange that it is given.
        const bool isTime = c["to"] == "time";
        EXPECT_EQ(b.node.traces().count({"not passed WARM Up state yet"}), c["passes"].get<std::size_t>());
        EXPECT_EQ(b.node.traces().count({"PTP packet received"}), isTime ? 1u : 0u);
    }
}

}  // namespace
