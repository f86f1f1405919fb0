// Syncref control: requests, confirmations and selections in every wrong state, that contradict the table,
// that are cut short.
#include "tests/pktsync/syncref_bench.h"

namespace {

using namespace bench;
using Bench = SyncrefBench;

TEST(SyncrefRequests, ARequestInTheWrongStateIsToldAndNotAnswered)
{
    constexpr void (*REQUESTS[])() = {
        [] { give(createReq(pktRef(9, 4, 0, 9))); }, [] { give(deleteReq(1, 4)); },
        [] { give(setReq(pktRef(1, 4, 0, 24))); },
        [] { give(KvdTuiifGetPktRefRoAttribReq{KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ, 1, 4}); },
    };
    struct Control { u32 state; const char* text; u8 level; void (*reach)(); };
    static constexpr auto WITH_ONE = [] { syncrefReady(), create(pktRef(1, 4, 0, 24), 0); };
    constexpr Control CONTROLS[] = {
        {AUDIT_PENDING, "AUDIT_PENDING", TRACE_ERROR, [] { syncrefBegin(); }},
        {AUDIT_CREATE_PENDING, "AUDIT_CREATE_PENDING", TRACE_ERROR,
         [] { syncrefBegin(), giveAudit({pktRef(1, 4, 0, 24)}, 1); }},
        {AUDIT_DELETE_PENDING, "AUDIT_DELETE_PENDING", TRACE_ERROR,
         [] { WITH_ONE(), give(SIGSELECT{TUPKTSYNC_TUIIF_DOWN_IND}); }},
        {REINIT, "REINIT", TRACE_2, [] { WITH_ONE(), TuPktsync_SyncrefCtrl_handleServerDownInd(); }},
    };
    for (const Control& control : CONTROLS) {
        SCOPED_TRACE(control.text);
        Bench b;
        b.in(control.reach);
        const std::string state = std::string("when not READY: state=") + control.text;
        for (const auto request : REQUESTS) {
            b.step([&] {
                request();
                EXPECT_EQ(events(), Events{});
                EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), control.state);
            });
            EXPECT_EQ(b.node.traces().count({state, "", control.level}), 1u);
        }
        // A selection counts but in REINIT, and finds nothing there that it could select.
        b.step([] { TuPktsync_SyncrefCtrl_selectionInd(8, 4, PKTSYNC_SELECT); });
        EXPECT_EQ(b.traced("Select request for non-existing syncref"), control.state == REINIT ? 0u : 1u);
        b.step([] { giveAudit({}, 0); });
        EXPECT_EQ(b.traced("AuditCfm received in wrong state"), control.state == AUDIT_PENDING ? 0u : 1u);
    }
}

TEST(SyncrefRequests, RequestsThatContradictTheTableAreToldAndNotAnswered)
{
    struct Case { const char* what; void (*make)(); };
    constexpr Case CASES[] = {
        {"there already", [] { give(createReq(pktRef(1, 4, 0, 99))); }},
        {"the same domain", [] { give(createReq(pktRef(9, 4, 0, 24))); }},
        {"the same domain, another type", [] { give(createReq(pktRef(9, 4, 1, 24))); }},
        {"delete another class", [] { give(deleteReq(1, 5)); }},
        {"delete what is being made", [] { give(deleteReq(3, 4)); }},
        {"set what is being made", [] { give(setReq(pktRef(3, 4, 0, 26))); }},
        {"set confirmed twice", [] { TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0); }},
        {"set confirmed for nobody", [] { TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(7); }},
        {"set confirmed beyond the table", [] { TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0xFFFFFFFF); }},
        {"delete not asked for", [] { TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(2); }},
        {"delete beyond the table", [] { TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(8); }},
        {"select what is being made", [] { TuPktsync_SyncrefCtrl_selectionInd(3, 4, PKTSYNC_SELECT); }},
        {"deselect it", [] { TuPktsync_SyncrefCtrl_selectionInd(3, 4, PKTSYNC_DESELECT); }},
        {"deselect another", [] { TuPktsync_SyncrefCtrl_selectionInd(2, 5, PKTSYNC_DESELECT); }},
        {"select the selected", [] { TuPktsync_SyncrefCtrl_selectionInd(1, 4, PKTSYNC_SELECT); }},
        {"an operation that is none", [] { TuPktsync_SyncrefCtrl_selectionInd(1, 4, 3); }},
        {"limits the wrong way round",
         [] {
             TuPktsync_SyncrefCtrl_clockRqmtInd({126, 125, 14, 0xFF, 7, 0x22, 1, {80, 82, 84, 86, 90}});
         }},
    };
    Bench b;
    b.in([] {
        syncrefReady();
        create(pktRef(1, 4, 0, 24), 0);
        create(pktRef(2, 5, 3, 24), 1);              // a unicast one in the same domain
        give(createReq(pktRef(3, 4, 0, 26)));
        TuPktsync_SyncrefCtrl_selectionInd(1, 4, PKTSYNC_SELECT);
    });
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.what);
        b.step([&c] {
            c.make();
            EXPECT_EQ(events(), Events{});
            EXPECT_EQ(TuPktsync_SyncrefCtrl_selectedSyncrefId(), 0);
            EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), READY);
        });
        EXPECT_FALSE(b.node.traces().lines().empty());
    }
    b.step([] {
        TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(2);
        EXPECT_EQ(events(), (Events{{NEW_CLOCK, 2, 0}, {SENT, KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 3, 4, 0}}));
        for (u32 id = 3; id < 8; ++id) create(pktRef(10 + id, 4, 0, static_cast<u8>(id)), id);
        syncrefSeen().events.clear();
        give(createReq(pktRef(9, 4, 0, 99)));        // the table is full
        EXPECT_EQ(events(), (Events{{SENT, KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 9, 4, 2}}));
    });
}

TEST(SyncrefRequests, AShortSignalIsTracedAndTheNextIsTaken)
{
    Bench b;
    b.in([] { syncrefReady(); });
    constexpr SIGSELECT NUMBERS[] = {
        KVD_TUIIF_CREATE_PKT_REF_RO_REQ, KVD_TUIIF_DELETE_PKT_REF_RO_REQ, KVD_TUIIF_SET_PKT_REF_RO_REQ,
        KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ, KVD_TUIIF_SYNCH_PATH_SUP_IND, TUPKTSYNC_TMO_IND,
    };
    for (const SIGSELECT number : NUMBERS) {
        b.step([number] {
            give(number);                            // its number and nothing else
            EXPECT_EQ(events(), Events{});
        });
        EXPECT_EQ(b.node.traces().lines().size(), 1u) << std::hex << number;
    }
    b.step([] {
        create(pktRef(1, 4, 0, 24), 0);
        EXPECT_EQ(events().back(), (std::vector<u32>{SENT, KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 1, 4, 0}));
    });
    Bench audited;
    audited.in([] { syncrefBegin(); });
    audited.step([] {
        give(SIGSELECT{KVD_TUIIF_AUDIT_PKT_REF_RO_CFM});
        EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), AUDIT_PENDING);
        giveAudit({pktRef(1, 4, 0, 24)}, 2);         // says two and brings one
        EXPECT_EQ(events().back(), (std::vector<u32>{DRV_SET, 0}));
        TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0);
        EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), READY);
    });
    constexpr std::size_t TWO = sizeof(KvdTuiifAuditPktRefRoCfm) + 2 * sizeof(TuiifPktRefConfig);
    EXPECT_EQ(audited.traced("too short"), 2u);
    EXPECT_EQ(audited.traced(" wanted=" + std::to_string(TWO)), 1u);
}

}  // namespace
