// syncref_bench.h - Syncref control by itself in a process of an idle program: what it reaches outside is
// written down in order, and answered as the test says.
#pragma once
#include "base/trace_groups.h"
#include "pktsync/tupktsync_ipsocki_client.h"
#include "pktsync/tupktsync_syncref_int.h"
#include "pktsync/tupktsync_timer.h"
#include "tests/pktsync/ptp_bench.h"

#include <cstring>

namespace bench {

using Events = std::vector<std::vector<u32>>;
/// First word of an event.
enum Ev : u32 {
    MC_ADD, MC_REMOVE, SOCKET, SOCKET_GIVEN_BACK, DRV_SET, DRV_CHANGE, DRV_DELETE, NEW_CLOCK, DELETE_CLOCK,
    CHANGE_CLOCK, SUPERVISE_CLOCK, SELECTED, RESET_CLIENTS, RE_INIT, INIT_READY, SENT,
};

struct SyncrefSeen {
    Events events;
    std::vector<std::vector<u8>> sent;             // to the main processor, whole
    u32 mcResult = 0;                              // of a join or leave
    i32 eventSocket = 0, generalSocket = 1;
    u32 driver = 1;
    bool clockStands = true, realClocks = false;
};
inline SyncrefSeen& syncrefSeen()
{
    static SyncrefSeen seen;
    return seen;
}

inline void keep(std::initializer_list<u32> event) { syncrefSeen().events.emplace_back(event); }

/// Number of the signal, and the words behind it; apn isn't kept.
inline void keepSignal(Signal** sig)
{
    const u32 size = ose::sigsize(sig);
    const auto* const words = reinterpret_cast<const u32*>(*sig);
    const auto* const bytes = reinterpret_cast<const u8*>(*sig);
    syncrefSeen().sent.emplace_back(bytes, bytes + size);
    std::vector<u32> event{SENT, words[0]};
    switch (words[0]) {
    case KVD_TUIIF_CREATE_PKT_REF_RO_CFM: event.insert(event.end(), {words[1], words[2], words[4]}); break;
    case KVD_TUIIF_DELETE_PKT_REF_RO_CFM:
    case KVD_TUIIF_SET_PKT_REF_RO_CFM:
    case KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_CFM: event.insert(event.end(), {words[1], words[2]}); break;
    case KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND: event.insert(event.end(), words + 3, words + size / 4); break;
    default: break;
    }
    syncrefSeen().events.push_back(event);
    ose::free_buf(sig);
}

inline const syncref::Needs& syncrefNeeds()
{
    static constexpr syncref::Needs NEEDS = {
        .addMCgroupUser = [](u32 group) { return keep({MC_ADD, group}), syncrefSeen().mcResult; },
        .removeMCgroupUser = [](u32 group) { return keep({MC_REMOVE, group}), syncrefSeen().mcResult; },
        .createSocketAndBind = [](const PktIpAddress&, u32 kind) {
            keep({SOCKET, kind});
            return kind == SOCKET_EVENT ? syncrefSeen().eventSocket : syncrefSeen().generalSocket;
        },
        .removeResourceUser = [](i32 resource) { keep({SOCKET_GIVEN_BACK, static_cast<u32>(resource)}); },
        .setSyncRef = [](u32, const PktsyncDrvRef& ref) {
            return keep({DRV_SET, ref.syncrefId}), syncrefSeen().driver;
        },
        .changeSyncRef = [](u32, const PktsyncDrvRef& ref) {
            return keep({DRV_CHANGE, ref.syncrefId}), syncrefSeen().driver;
        },
        .deleteSyncRef = [](u32, u32 id) { return keep({DRV_DELETE, id}), syncrefSeen().driver; },
        .newClock = [](const PtpClockSetup& setup) -> bool {
            keep({NEW_CLOCK, setup.syncrefId, setup.ptpMapping});
            return syncrefSeen().realClocks ? TuPktsync_new_ptp_clock(setup) : syncrefSeen().clockStands;
        },
        .deleteClock = [](u32 id) {
            keep({DELETE_CLOCK, id});
            if (syncrefSeen().realClocks) TuPktsync_delete_ptp_clock(id);
        },
        .changeClock = [](u32 id, i32 asymmetry, u8 pbit, u8 dscp, u8 profile) {
            keep({CHANGE_CLOCK, id, static_cast<u32>(asymmetry), pbit, dscp, profile});
            TuPktsync_change_ptp_clock(id, asymmetry, pbit, dscp, profile);
        },
        .superviseClock = [](u32 id, u32 on) {
            keep({SUPERVISE_CLOCK, id, on});
            TuPktsync_set_ptp_path_supervision(id, on);
        },
        .selectClock = [](u32 id, u32 selected) { keep({SELECTED, id, selected}); },
        .sendToMainProcessor = keepSignal,
        .awaitAudit = [](bool) {},
        .resetClients = [] { keep({RESET_CLIENTS}); },
        .reInit = [] { keep({RE_INIT}); },
        .ready = [] { keep({INIT_READY}); },
    };
    return NEEDS;
}

/// Gives a signal to syncref control as its process would.
inline void giveBytes(std::span<const std::byte> bytes)
{
    SIGSELECT sigNo;
    std::memcpy(&sigNo, bytes.data(), sizeof sigNo);
    Signal* sig = ose::alloc(static_cast<u32>(bytes.size()), sigNo);
    std::memcpy(static_cast<void*>(sig), bytes.data(), bytes.size());
    EXPECT_EQ(TuPktsync_SyncrefCtrl_dispatch(sig), 1);
    ose::free_buf(&sig);
}
template <typename T>
void give(const T& layout)
{
    giveBytes(asBytes(layout));
}
inline void giveAudit(const std::vector<TuiifPktRefConfig>& rows, u32 count)
{
    const KvdTuiifAuditPktRefRoCfm cfm{KVD_TUIIF_AUDIT_PKT_REF_RO_CFM, count};
    std::vector<std::byte> bytes(asBytes(cfm).begin(), asBytes(cfm).end());
    const auto all = std::as_bytes(std::span(rows));
    bytes.insert(bytes.end(), all.begin(), all.end());
    giveBytes(bytes);
}

inline TuiifPktRefConfig pktRef(u32 froId, u32 froClassNo, u8 type, u8 domain)
{
    TuiifPktRefConfig c{};
    c.froId = froId;
    c.froClassNo = froClassNo;
    c.typeOfPktStruct = type;
    c.ptpDomain = domain;
    c.serverIpAddress = {4, {}, {192, 168, 0, 9}};
    c.ownIpAddress = {4, {}, {192, 168, 0, 1}};
    const u8 mac[6] = {2, 0, 0, 0, 0, 1};
    std::memcpy(c.macAddress, mac, sizeof mac);
    c.linkSpeed = 6;
    return c;
}
inline KvdTuiifCreatePktRefRoReq createReq(const TuiifPktRefConfig& c)
{
    return {KVD_TUIIF_CREATE_PKT_REF_RO_REQ, c};
}
inline KvdTuiifSetPktRefRoReq setReq(const TuiifPktRefConfig& c) { return {KVD_TUIIF_SET_PKT_REF_RO_REQ, c}; }
inline KvdTuiifDeletePktRefRoReq deleteReq(u32 froId, u32 froClassNo)
{
    return {KVD_TUIIF_DELETE_PKT_REF_RO_REQ, froId, froClassNo};
}

/// From a process of the program. With the main processor there the audit is asked for.
inline void syncrefBegin(u32 board = 1, bool hasMainProcessor = true)
{
    syncrefSeen() = {};
    syncref::setNeeds(&syncrefNeeds());
    if (hasMainProcessor) TuPktsync_SyncrefCtrl_started(board);
    TuPktsync_SyncrefCtrl_init();
}
/// To READY, with nothing configured.
inline void syncrefReady(u32 board = 1)
{
    syncrefBegin(board);
    giveAudit({}, 0);
    syncrefSeen().events.clear();
}

/// Of each step the events alone that it brought.
struct SyncrefBench : PacketBench {
    void step(const std::function<void()>& body)
    {
        PacketBench::step([&body] {
            syncrefSeen().events.clear();
            body();
        });
    }
};

inline const Events& events() { return syncrefSeen().events; }

inline void create(const TuiifPktRefConfig& c, u32 syncrefId)
{
    give(createReq(c));
    TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(syncrefId);
}

}  // namespace bench
