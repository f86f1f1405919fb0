// Syncref control, the requirement on clocks and the manager's side against an independent model's check
// values.
#include "frame/kvd_mgr_proc.h"
#include "pktsync/tupktsyncadm.h"
#include "sig/ref_types.h"
#include "tests/iif/iif_bench.h"
#include "tests/pktsync/replay.h"
#include "tests/pktsync/syncref_bench.h"
#include "unit/kvd_unit_process.h"

namespace {

using namespace bench;
using vectors::field;

// ---- tables -----------------------------------------------------------------------------------------------

void intervals(const Value& c)
{
    for (const Value row : c["table"]) {
        const u32 ms = row[1];
        const i32 log = row[0];
        EXPECT_EQ(ptpLogToMs(static_cast<i8>(log)), ms) << row;
        if (log < -10 || log > 13) continue;
        EXPECT_EQ(ptpMsToLog(ms), log);
        EXPECT_EQ(ptpMsToLog(ms - 1), std::max(-10, log - 1));
    }
}

void logarithms(const Value& c)
{
    for (const Value row : c["table"]) EXPECT_EQ(row[1], ptpMsToLog(row[0])) << row;
}

/// Identities by the order in which the clocks are made, each row from a fresh start.
void identities(const Value& c)
{
    for (const Value row : c["rows"]) {
        syncref::state().standardIdentityTaken = false;
        std::array<u8, 6> own{};
        std::ranges::copy(vectors::bytes(row["mac"]), own.begin());
        for (const Value id : row["creationOrder"]) {
            syncref::Syncref r{};
            syncref::formIdentity(r, id, own);
            const bool isIt = id == row["syncrefId"];
            EXPECT_TRUE(!isIt || row["clockIdentity"] == hexOf(r.port.clockIdentity.data(), 8)) << row;
        }
    }
}

/// Board, code of the link's speed, port word; ingress, egress, what the two come to.
void latencies(const Value& c)
{
    for (const Value row : c["rows"]) {
        syncref::state().board = row[0];
        syncref::resetTimestampLatency();
        syncref::setTimestampLatency(row[1], row[2]);
        EXPECT_EQ(row[5], syncref::state().latencyAsymmetry) << row;
        EXPECT_EQ(row[5], row[4].get<i32>() - row[3].get<i32>()) << row;
    }
}

/// Class of the reference (5 when it isn't there), clock class; the quality that is told.
void qualities(const Value& c)
{
    bench::IifBench b;
    b.connect();
    for (const Value row : c[c.contains("rows") ? "rows" : "table"]) {
        const std::size_t last = row.size() - 1;
        if (last != 1 && last != 2) noReplay(row);
        const u32 froClassNo = last == 2 ? row[0].get<u32>() : PACKET_FREQ_FRO_CLASS;
        b.in([&] { TuPktsyncAdm_clockClassValid(1, froClassNo, row[last - 1]); });
        const auto told = b.take<KvdTuiifQualityLevelInd>(KVD_TUIIF_QUALITY_LEVEL_IND);
        ASSERT_TRUE(told) << row;
        EXPECT_EQ(row[last], told->clockQuality) << row;
    }
}

TEST(PtpQuality, OfAFrequencyIsTheClassWhenItIsRequiredOrKnown)
{
    const json limits = {{"rows", {{14, 14}, {15, 98}, {79, 98}, {80, 80}, {81, 98}, {110, 110}, {255, 255},
                                   {PACKET_TIME_FRO_CLASS, 52, 52}}}};
    Value::Read read;
    qualities({limits, read});
}

TEST(PtpCheckValues, Tables)
{
    const vectors::Kinds inProcess = {{"logToMs", intervals}, {"msToLog", logarithms},
                                      {"clockIdentity", identities}, {"latency", latencies}};
    vectors::Document document("o03_ptp_tables.json");
    vectors::each(document["cases"], [&](const Value& c) {
        if (c["name"] == "clockClassValid") return qualities(c);
        IdleNode b;
        b.in([&] { vectors::dispatch(inProcess, text(c["name"]), c); });
    });
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

TuiifPktRefConfig configOf(const Value& j)
{
    TuiifPktRefConfig c = pktRef(j.at("fro"), j.at("cls"), j.at("type"), j.at("domain"));
    c.ptpMulticastAddress = j.value("mc", u8{0});
    if (j.contains("server")) setServer(c, j["server"].read());
    return c;
}

void setEnvironment(const Value& op)
{
    static const std::map<std::string, i32> FAILED = {{"host", -2}, {"fail", -1}};
    const auto socket = [&op](i32 good) {
        const std::string how = text(op[2]);
        return how == "ok" ? good : vectors::rowOf(FAILED, how);
    };
    const std::string what = text(op[1]);
    if (what == "mcWait") syncrefSeen().mcResult = op.at(2);
    else if (what == "sock1") syncrefSeen().eventSocket = socket(0);
    else if (what == "sock2") syncrefSeen().generalSocket = socket(1);
    else if (what == "clock") syncrefSeen().clockStands = op.at(2) == 1;
    else throw std::runtime_error("nothing to set \"" + what + "\"");
}

void apply(const Value& op, bool interfaceUp)
{
    const std::string name = text(op[0]);
    if (name == "start") syncrefBegin(1, interfaceUp);
    else if (name == "init") TuPktsync_SyncrefCtrl_init();
    else if (name == "env") setEnvironment(op);
    else if (name == "create") give(createReq(configOf(op[1])));
    else if (name == "delete") give(deleteReq(op.at(1), op.at(2)));
    else if (name == "set") {
        TuiifPktRefConfig c = pktRef(op.at(1), op.at(2), 0, 24);
        if (!op.at(3).is_null()) setServer(c, op[3].read());
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
        for (const Value row : op[1]) rows.push_back(configOf(row));
        giveAudit(rows, static_cast<u32>(rows.size()));
    } else throw std::runtime_error("no replay of the operation " + op.dump());
}

/// The words of a list from one on; those of lists in it one after the other.
void addWords(std::vector<u32>& event, const json& list, std::size_t from = 0)
{
    for (std::size_t i = from; i < list.size(); ++i)
        if (list[i].is_array()) addWords(event, list[i]);
        else                    event.push_back(list[i]);
}

/// One of the model's events.
std::vector<u32> eventOf(const json& e)
{
    static const std::map<std::string, u32> SIGNALS = {
        {"createCfm", KVD_TUIIF_CREATE_PKT_REF_RO_CFM}, {"deleteCfm", KVD_TUIIF_DELETE_PKT_REF_RO_CFM},
        {"setCfm", KVD_TUIIF_SET_PKT_REF_RO_CFM}, {"auditReq", KVD_TUIIF_AUDIT_PKT_REF_RO_REQ},
        {"auditResult", KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND},
        {"unavailableInd", KVD_TUIIF_PKT_REF_RO_UNAVAILABLE_IND},
    };
    static const std::map<std::string, u32> NAMES = {
        {"mcAdd", MC_ADD}, {"mcRemove", MC_REMOVE}, {"drvSet", DRV_SET}, {"drvDelete", DRV_DELETE},
        {"drvChange", DRV_CHANGE}, {"changeClock", CHANGE_CLOCK}, {"pathSupervision", SUPERVISE_CLOCK},
        {"deleteClock", DELETE_CLOCK}, {"selectedMark", SELECTED}, {"send", SENT},
        {"resetClients", RESET_CLIENTS}, {"reInit", RE_INIT}, {"initReady", INIT_READY}, {"socket", SOCKET},
        {"newClock", NEW_CLOCK},
    };
    const std::string name = e[0];
    std::vector<u32> event{vectors::rowOf(NAMES, name)};
    if (name == "send") event.push_back(vectors::rowOf(SIGNALS, e[1]));
    if (name == "socket")
        event.push_back(vectors::rowOf<u32>({{"event", SOCKET_EVENT}, {"general", SOCKET_GENERAL}}, e[1]));
    addWords(event, e, event.size());
    return event;
}

/// All of them; what is expected to be traced goes to `traces`, but for traces that the model tells by a word
/// of its own: all that counts is that no signal goes with them. Closed sockets are two that are given back.
Events eventsOf(const json& list, std::vector<std::string>& traces)
{
    Events events;
    for (const json& e : list)
        if (e[0] == "closeSockets") events.insert(events.end(), 2, {SOCKET_GIVEN_BACK});
        else if (e[0] != "trace") events.push_back(eventOf(e));
        else if (e[1].get<std::string>().find(' ') != std::string::npos) traces.push_back(e[1]);
    return events;
}

/// What a failed creation gives back on the way isn't the model's matter; nor is, in files that don't tell
/// it, what the driver hears of a change and which sockets are given back. Of a changed or supervised clock
/// as many words count as stand there: whose, and perhaps what.
Events seenEvents(bool isFailure, const Events& wanted)
{
    const auto tells = [&wanted](u32 ev) {
        return std::any_of(wanted.begin(), wanted.end(), [ev](const auto& e) { return e[0] == ev; });
    };
    const bool tellsSockets = tells(SOCKET_GIVEN_BACK), tellsChange = tells(DRV_CHANGE);
    Events events = syncrefSeen().events;
    std::erase_if(events, [&](const std::vector<u32>& e) {
        return (e[0] == SOCKET_GIVEN_BACK && !tellsSockets) || (e[0] == DRV_CHANGE && !tellsChange)
               || (isFailure && (e[0] == MC_REMOVE || e[0] == DRV_DELETE));
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
    for (u32 id = 0; id < PTP_CLOCKS; ++id)
        if (const auto& r = syncref::state().table[id])
            all.push_back({id, r->syncRefIndivState, r->pendingFlags, r->froId, r->froClassNo,
                           r->typeOfPktStruct, r->port.clockIdentity[4]});
    return all;
}

TEST(SyncrefCheckValues, Control)
{
    vectors::Document document("o03_syncref.json");
    vectors::each(document["cases"], [](const Value& c) {
        SyncrefBench b;
        const std::string name = text(c["name"]);
        // What becomes of references that nobody has asked for in the end is open there.
        const bool isOpen = name == "down during AUDIT_CREATE_PENDING and staying down";
        for (std::size_t i = 0; i < c["steps"].size(); ++i) {
            const Value step = c["steps"][i];
            SCOPED_TRACE(step);
            if (isOpen && i + 1 == c["steps"].size()) return void(step.read());
            std::vector<std::string> traces;
            const Events wanted = eventsOf(step["events"].read(), traces);
            b.step([&] {
                apply(step["op"], c["interfaceUp"] == 1);
                EXPECT_EQ(seenEvents(!syncrefSeen().clockStands, wanted), wanted);
                const syncref::State& s = syncref::state();
                expectSame(step, {{"ctrl", s.syncRefCtrlState}, {"selected", s.selected_syncrefId},
                                  {"recs", records()}});
                EXPECT_EQ(s.requestAudit ? 1 : 0, step.value("requestAudit", 0));
            });
            for (const std::string& wantedTrace : traces) EXPECT_EQ(b.traced(wantedTrace), 1u) << wantedTrace;
        }
    });
}

// ---- requirement ----------------------------------------------------------------------------------

using Rqmt = TuPktsyncClockRqmt;
const std::vector<vectors::Field<Rqmt>> RQMT = {
    field("minPktInterval", &Rqmt::minPktInterval), field("maxPktInterval", &Rqmt::maxPktInterval),
    field("freqClockClass", &Rqmt::freqClockClass), field("freqClockAccuracy", &Rqmt::freqClockAccuracy),
    field("timeClockClass", &Rqmt::timeClockClass), field("timeClockAccuracy", &Rqmt::timeClockAccuracy),
    field("stratumLevel", &Rqmt::stratumLevel),
};

Rqmt rqmtOf(const Value& f)
{
    Rqmt r{};
    for (const auto& [name, value] : f.items())
        if (name == "classes") r.freqClockClassG8265_1 = classesOf(value);
        else if (!vectors::write(RQMT, r, name, value)) noReplay(f);
    return r;
}

/// Another number in one of the fields: whose clocks are told of it.
void told(const Rqmt& fixed, const Value& row)
{
    constexpr u8 MARK = 0xAB;                        // a clock that is told loses it
    const auto rqmtOfClock = [](u32 id) -> PtpClockRqmt& { return ptpClockOf(id)->setup.rqmt; };
    syncrefReady();
    syncrefSeen().realClocks = true;
    TuPktsync_SyncrefCtrl_clockRqmtInd(fixed);
    create(pktRef(1, 4, 0, 24), 0);
    create(pktRef(2, 5, 3, 4), 1);
    EXPECT_EQ(rqmtOfClock(0).clockClass, fixed.timeClockClass);
    EXPECT_EQ(rqmtOfClock(0).clockAccuracy, fixed.timeClockAccuracy);
    EXPECT_EQ(rqmtOfClock(1).clockClass, fixed.freqClockClass);
    EXPECT_EQ(rqmtOfClock(1).freqClockClassG8265_1, fixed.freqClockClassG8265_1);
    for (const u32 id : {0, 1}) rqmtOfClock(id).clockClass = MARK;
    Rqmt changed = fixed;
    const auto* const other = vectors::find(RQMT, text(row["change"]));
    if (other == nullptr) noReplay(row);
    other->set(changed, static_cast<u32>(other->get(fixed)) ^ 1);
    TuPktsync_SyncrefCtrl_clockRqmtInd(changed);
    EXPECT_EQ(rqmtOfClock(0).clockClass != MARK, row["typeBelow3"] == 1);
    EXPECT_EQ(rqmtOfClock(1).clockClass != MARK, row["type3"] == 1);
    for (const u32 id : {0, 1}) TuPktsync_delete_ptp_clock(id);
}

TEST(SyncrefCheckValues, RequirementAndWhomItConcerns)
{
    vectors::Document document("o03_clock_rqmt.json");
    const Rqmt fixed = rqmtOf(document["fixed"]);
    replay("o03_clock_rqmt.json", [&](const Value& row) { told(fixed, row); }, "told");
    replay("o03_clock_rqmt.json", [&](const Value& c) {
        syncrefReady();
        TuPktsync_SyncrefCtrl_clockRqmtInd(fixed);
        Rqmt r = fixed;
        r.minPktInterval = c["minPktInterval"];
        r.maxPktInterval = c["maxPktInterval"];
        r.stratumLevel = 9;
        TuPktsync_SyncrefCtrl_clockRqmtInd(r);
        EXPECT_EQ(syncref::state().clockRqmt->stratumLevel, c["accepted"] == 1 ? 9 : fixed.stratumLevel);
    });
}

// ---- manager's side -------------------------------------------------------------------------------

/// In a manager that selects what the row says; the packet process takes one signal.
void selectInManager(IdleNode& b, const Value& row, const std::function<void(Signal*)>& packetProcess)
{
    const PROCESS pktsync = b.node.system().spawn("pktsync", 18, [&packetProcess] {
        Signal* sig = ose::receive(ose::ANY_SIGNAL);
        packetProcess(sig);
        ose::free_buf(&sig);
    });
    b.in([&] {
        node::traceSetProgramMask(0xFFFFFFFF);
        KvdLoz6TuMgr_setPids(77, 78, pktsync);
        auto* ind = node::make<KvdTuiifSelectSynchRefInd>(KVD_TUIIF_SELECT_SYNCH_REF_IND);
        ind->refType = row["refType"];
        ind->froId = row["froId"];
        ind->froClassNo = row["froClassNo"];
        Signal* sig = reinterpret_cast<Signal*>(ind);
        EXPECT_EQ(TuPktsyncAdm_dispatch(sig), 1);
        ose::free_buf(&sig);
    });
    EXPECT_FALSE(b.node.system().alive(pktsync));       // it has seen it
}

template <typename Packet>
void packetComes(IdleNode& b, SIGSELECT sigNo, const Value& ref)
{
    b.in([&] {
        node::traceAttachProcess();
        Signal* sig = ose::alloc(sizeof(Packet), sigNo);
        auto* ind = reinterpret_cast<Packet*>(sig);
        ind->froId = ref[0], ind->froClassNo = ref[1];
        EXPECT_EQ(TuPktsyncAdm_dispatch(sig), 1);
        ose::free_buf(&sig);
    });
}

TEST(SyncrefCheckValues, WhatPassesTheManager)
{
    vectors::Document document("o03_pktsync_adm.json");
    vectors::each(document["fractions"],
                  [](const Value& row) { EXPECT_EQ(row[1], TuPktsyncAdm_fractionOf(row[0])); });
    vectors::each(document["selection"], [](const Value& row) {
        IdleNode b;
        selectInManager(b, row, [&row](Signal* sig) {
            const auto* ind = as<TuPktsyncRefSelectionInd>(sig);
            ASSERT_NE(ind, nullptr);
            EXPECT_EQ(ind->sigNo, TUPKTSYNC_REF_SELECTION_IND);
            EXPECT_EQ(row["selection"], json({ind->froId, ind->froClassNo, ind->selectOperation}));
            EXPECT_EQ(ind->timestampConsumerPid, 77u);
        });
    });
    vectors::each(document["cases"], [](const Value& c) {
        IdleNode b;
        selectInManager(b, c["selected"], [](Signal*) {});
        packetComes<TuPktsyncPtpPacketInd>(b, TUPKTSYNC_PTP_PACKET_IND, c["packet"]);
        // An idle program's regulator is cold: it says so of each exchange that it is given.
        EXPECT_EQ(c["passes"], b.node.traces().count({"not passed WARM Up state yet"}));
        if (c["to"] != "time" && c["to"] != "freq" && !c["to"].is_null()) noReplay(c["to"]);
        EXPECT_EQ(b.node.traces().count({"PTP packet received"}), c["to"] == "time" ? 1u : 0u);
        // Packets of the other two kinds pass the same way; a peer's delay goes nowhere.
        b.node.traces().clear();
        packetComes<TuPktsyncNtpPacketInd>(b, TUPKTSYNC_NTP_PACKET_IND, c["packet"]);
        packetComes<TuPktsyncPtpPacketPeerdelayInd>(b, TUPKTSYNC_PTP_PACKET_PEERDELAY_IND, c["packet"]);
        EXPECT_EQ(c["passes"], b.node.traces().count({"NTP packet received"}));
        EXPECT_EQ(c["passes"], b.node.traces().count({"PTP peer delay packet received"}));
        EXPECT_EQ(c["passes"], b.node.traces().count({"not passed WARM Up state yet"}));
    });
}

}  // namespace
