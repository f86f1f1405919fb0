// Syncref control: requests, confirmations and selections in every wrong state, that contradict the table,
// that are cut short.
#include "tests/pktsync/syncref_bench.h"

namespace {

using namespace bench;
using Bench = SyncrefBench;

TEST(SyncrefRequests, ARequestInTheWrongStateIsToldAndNotAnswered)
{
    struct Request { const char* name; void (*make)(); };
    constexpr Request REQUESTS[] = {
        {"Create", [] { give(createReq(pktRef(9, 4, 0, 9))); }},
        {"Delete", [] { give(deleteReq(1, 4)); }},
        {"Set", [] { give(setReq(pktRef(1, 4, 0, 24))); }},
        {"Get Attributes",
         [] { give(KvdTuiifGetPktRefRoAttribReq{KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ, 1, 4}); }},
    };
    struct Control { u32 state; const char* text; u8 level; void (*reach)(); };
    constexpr Control CONTROLS[] = {
        {AUDIT_PENDING, "AUDIT_PENDING", TRACE_ERROR, [] { syncrefBegin(); }},
        {AUDIT_CREATE_PENDING, "AUDIT_CREATE_PENDING", TRACE_ERROR,
         [] {
             syncrefBegin();
             giveAudit({pktRef(1, 4, 0, 24)}, 1);
         }},
        {AUDIT_DELETE_PENDING, "AUDIT_DELETE_PENDING", TRACE_ERROR,
         [] {
             syncrefReady();
             create(pktRef(1, 4, 0, 24), 0);
             give(SIGSELECT{TUPKTSYNC_TUIIF_DOWN_IND});
         }},
        {REINIT, "REINIT", TRACE_2,
         [] {
             syncrefReady();
             create(pktRef(1, 4, 0, 24), 0);
             TuPktsync_SyncrefCtrl_handleServerDownInd();
         }},
    };
    for (const Control& control : CONTROLS) {
        Bench b;
        b.in(control.reach);
        for (const Request& request : REQUESTS) {
            SCOPED_TRACE(testing::Message() << request.name << " in " << control.text);
            b.step([&] {
                request.make();
                EXPECT_EQ(events(), Events{});
                EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), control.state);
            });
            const std::string text = std::string(request.name) +
                                     " request received from FRO when not READY: state=" + control.text;
            EXPECT_EQ(b.node.traces().count({text, "", control.level}), 1u);
        }
        // A selection counts but in REINIT, and finds nothing there that it could select.
        b.step([] { TuPktsync_SyncrefCtrl_selectionInd(8, 4, PKTSYNC_SELECT); });
        EXPECT_EQ(b.traced("Select request for non-existing syncref (froId/froClassNo 8/4)"),
                  control.state == REINIT ? 0u : 1u);
        b.step([&control] {
            giveAudit({}, 0);
            if (control.state == AUDIT_PENDING) give(SIGSELECT{TUPKTSYNC_TUIIF_DOWN_IND});
        });
        EXPECT_EQ(b.traced("AuditCfm received in wrong state (" + std::string(control.text) + ")"),
                  control.state == AUDIT_PENDING ? 0u : 1u);
    }
}

TEST(SyncrefRequests, RequestsThatContradictTheTableAreToldAndNotAnswered)
{
    struct Case { void (*make)(); const char* trace; };
    constexpr Case CASES[] = {
        {[] { give(createReq(pktRef(1, 4, 0, 99))); },
         "Create request received with already existing froId(1) and froClassNo(4)"},
        {[] { give(createReq(pktRef(9, 4, 0, 24))); },
         "Attempt to create new syncref for froId 9, froClassNo 4, ptpDomain 24, when syncrefId 0 froId 1, "
         "froClassNo 4 already configured with same ptpDomain"},
        {[] { give(createReq(pktRef(9, 4, 1, 24))); }, "already configured with same ptpDomain"},
        {[] { give(deleteReq(1, 5)); },
         "Delete request received for non-existing froId(1) and froClassNo(5)"},
        {[] { give(deleteReq(3, 4)); }, "Delete request received when in state=CREATE_PENDING"},
        {[] { give(setReq(pktRef(3, 4, 0, 26))); },
         "Set request received from FRO when in state=CREATE_PENDING"},
        {[] { TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0); },
         "PktSyncDrvSetCfm for syncrefId(0) not expecting it IndivState=CREATED"},
        {[] { TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(7); }, "PktSyncDrvSetCfm for non-existing syncrefId(7)"},
        {[] { TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0xFFFFFFFF); },
         "PktSyncDrvSetCfm for non-existing syncrefId(4294967295)"},
        {[] { TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(2); },
         "PktSyncDrvDeleteCfm for syncrefId(2) not expecting it IndivState=CREATE_PENDING"},
        {[] { TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(8); },
         "PktSyncDrvDeleteCfm for non-existing syncrefId(8)"},
        {[] { TuPktsync_SyncrefCtrl_selectionInd(3, 4, PKTSYNC_SELECT); },
         "Select request for syncrefId 2 (froId/froClassNo 3/4), still in state CREATE_PENDING"},
        {[] { TuPktsync_SyncrefCtrl_selectionInd(3, 4, PKTSYNC_DESELECT); },
         "Deselect request for syncrefId 2 (froId/froClassNo 3/4), still in state CREATE_PENDING"},
        {[] { TuPktsync_SyncrefCtrl_selectionInd(2, 5, PKTSYNC_DESELECT); },
         "Deselect request received for non-selected syncrefId 1 (froId/froClassNo 2/5)"},
        {[] { TuPktsync_SyncrefCtrl_selectionInd(1, 4, PKTSYNC_SELECT); },
         "Select request for already selected syncrefId 0 (froId/froClassNo 1/4)"},
        {[] { TuPktsync_SyncrefCtrl_selectionInd(1, 4, 3); },
         "Selection request with undefined operation code 3"},
        {[] {
             TuPktsyncClockRqmt rqmt{126, 125, 14, 0xFF, 7, 0x22, 1, {80, 82, 84, 86, 90}};
             TuPktsync_SyncrefCtrl_clockRqmtInd(rqmt);
         },
         "minPktInterval=126, maxPktInterval=125, freqClockClass=14, freqClockAccuracy=0xff, "
         "timeClockClass=7, timeClockAccuracy=0x22, stratumLevel=1, freqClockClassG8265_1=80,82,84,86,90"},
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
        SCOPED_TRACE(c.trace);
        b.step([&c] {
            c.make();
            EXPECT_EQ(events(), Events{});
            EXPECT_EQ(TuPktsync_SyncrefCtrl_selectedSyncrefId(), 0);
            EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), READY);
        });
        EXPECT_EQ(b.traced(c.trace), 1u);
    }
    b.step([] {
        TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(2);
        EXPECT_EQ(events(), (Events{{NEW_CLOCK, 2, 0}, {SENT, KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 3, 4, 0}}));
        for (u32 id = 3; id < 8; ++id) create(pktRef(10 + id, 4, 0, static_cast<u8>(id)), id);
        syncrefSeen().events.clear();
        give(createReq(pktRef(9, 4, 0, 99)));
        EXPECT_EQ(events(), (Events{{SENT, KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 9, 4, 2}}));
    });
    EXPECT_EQ(b.traced("new_syncref_entry: max syncrefs already exist"), 1u);
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
        giveAudit({}, 0);
        EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), READY);
    });
}

}  // namespace
