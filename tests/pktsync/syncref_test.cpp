// Syncref control: changes, identities, services that are missing, audits, attributes.
#include "tests/pktsync/syncref_bench.h"

namespace {

using namespace bench;
using syncref::state;

using Bench = SyncrefBench;

TEST(Syncref, AChangeTakesWhatItsKindAllows)
{
    Bench b;
    b.in([] {
        syncrefReady();
        syncrefSeen().realClocks = true;
        create(pktRef(1, 4, 0, 24), 0);
        create(pktRef(2, 5, 3, 4), 1);
    });
    TuiifPktRefConfig change = pktRef(1, 4, 0, 99);
    change.pbit = 5;
    change.dscp = 46;
    change.asymmetryCompensation = -120;
    change.ptpProfile = ITU_T_G_8275_1;
    change.serverIpAddress.address[3] = 77;
    b.step([&change] {
        give(setReq(change));
        EXPECT_EQ(events(), (Events{{CHANGE_CLOCK, 0, static_cast<u32>(-120), 5, 0, ITU_T_G_8275_1},
                                    {SENT, KVD_TUIIF_SET_PKT_REF_RO_CFM, 1, 4}}));
        const PtpClockSetup& s = ptpClockOf(0)->setup;   // a domain stays what it was made with
        EXPECT_EQ((std::vector<i32>{s.pbit, s.dscp, s.delayAsymmetry, s.ptpProfile, s.domainNumber}),
                  (std::vector<i32>{5, 0, -120, ITU_T_G_8275_1, 24}));
        EXPECT_EQ(state().table[0]->serverIpAddress, PktIpAddress{});
    });
    // Another class of service leaves the clock as it runs; another server makes it anew, supervised.
    change.froId = 2;
    change.froClassNo = 5;
    change.serverIpAddress.address[3] = 9;
    b.step([&change] {
        give(setReq(change));
        EXPECT_EQ(events(), (Events{{CHANGE_CLOCK, 1, 0, 0, 46, IEEE_1588_J3},
                                    {SENT, KVD_TUIIF_SET_PKT_REF_RO_CFM, 2, 5}}));
        EXPECT_EQ(ptpClockOf(1)->setup.dscp, 46);
        EXPECT_EQ(ptpClockOf(1)->setup.delayAsymmetry, 0);
        EXPECT_FALSE(ptpClockOf(1)->enabled);
    });
    change.serverIpAddress.address[3] = 10;
    change.serverIpAddress.address[4] = 99;         // beyond an IPv4 address
    b.step([&change] {
        TuPktsync_SyncrefCtrl_selectionInd(2, 5, PKTSYNC_SELECT);
        syncrefSeen().events.clear();
        give(setReq(change));
        EXPECT_EQ(events(), (Events{{DRV_CHANGE, 1},
                                    {DELETE_CLOCK, 1},
                                    {NEW_CLOCK, 1, UDP_UC},
                                    {SUPERVISE_CLOCK, 1, 1},
                                    {SELECTED, 1, 1},
                                    {SENT, KVD_TUIIF_SET_PKT_REF_RO_CFM, 2, 5}}));
        EXPECT_EQ(ptpClockOf(1)->setup.serverIpAddress, (PktIpAddress{4, {192, 168, 0, 10}}));
        EXPECT_TRUE(ptpClockOf(1)->enabled);
    });
    EXPECT_EQ(b.traced("Restarted protocol handler for syncrefId 1 to effect change of serverIpAddress"), 1u);
    b.step([&change] {
        give(createReq(pktRef(3, 4, 0, 25)));
        change.froId = 3;
        change.froClassNo = 4;
        give(setReq(change));                       // not until it stands
        change.froId = 8;
        give(setReq(change));
        EXPECT_EQ(events(), (Events{{MC_ADD, 0}, {DRV_SET, 2}}));
        for (const u32 id : {0, 1}) TuPktsync_delete_ptp_clock(id);
    });
    EXPECT_EQ(b.traced("Set request received from FRO when in state=CREATE_PENDING"), 1u);
    EXPECT_EQ(b.traced("Set request received for non-existing froId(8) and froClassNo(4)"), 1u);
}

TEST(Syncref, IdentitiesAreDistinctAndTheStandardOneIsGivenBack)
{
    Bench b;
    b.in([] {
        syncrefReady();
        const auto identity = [](u32 id) { return hexOf(state().table[id]->port.clockIdentity.data(), 8); };
        for (u8 i = 0; i < 3; ++i) create(pktRef(i, 4, 0, i), i);
        give(deleteReq(0, 4));
        give(deleteReq(2, 4));
        TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(2);
        syncrefSeen().eventSocket = -1;
        give(createReq(pktRef(5, 5, 3, 5)));         // one that fails gives it back, too
        syncrefSeen().eventSocket = 0;
        create(pktRef(6, 4, 0, 6), 2);               // place 0 isn't free yet: this one takes 2
        EXPECT_EQ(identity(2), "020000fffe000001");
        TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(0);
        create(pktRef(7, 5, 3, 4), 0);               // place 0 has no other octet to take
        EXPECT_EQ(identity(0), "c0a800fffe010000");
        TuiifPktRefConfig v6 = pktRef(8, 5, 3, 4);
        v6.ownIpAddress = {6, {}, {0x20, 1, 0xD, 0xB8, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6}};
        create(v6, 3);
        EXPECT_EQ(identity(3), "010203ff02040506");
    });
}

TEST(Syncref, CreationsThatFailLeaveTheirPlaceFree)
{
    struct Case {
        u8 type;
        u32 mcResult, driver, result;
        i32 eventSocket, generalSocket;
        Events before;                               // of the answer
    };
    const Case CASES[] = {
        {1, 0, 1, 2, 0, 1, {}},                      // not there yet: 1, 2 and 4
        {2, 0, 1, 2, 0, 1, {}},
        {4, 0, 1, 2, 0, 1, {}},
        {5, 0, 1, 2, 0, 1, {}},
        {3, 0, 1, 1, -2, 1, {{SOCKET, 2}}},          // host not available
        {3, 0, 1, 2, -1, 1, {{SOCKET, 2}}},
        {3, 0, 1, 1, 4, -2, {{SOCKET, 2}, {SOCKET, 1}, {SOCKET_GIVEN_BACK, 4}}},
        {3, 0, 1, 2, 0, -1, {{SOCKET, 2}, {SOCKET, 1}, {SOCKET_GIVEN_BACK, 0}}},
        {0, 2, 1, 2, 0, 1, {{MC_ADD, 0}}},           // no frame service
        {0, 0, 0, 2, 0, 1, {{MC_ADD, 0}, {DRV_SET, 0}, {MC_REMOVE, 0}}},
        {3, 0, 0, 2, 0, 1,
         {{SOCKET, 2}, {SOCKET, 1}, {DRV_SET, 0}, {SOCKET_GIVEN_BACK, 0}, {SOCKET_GIVEN_BACK, 1}}},
    };
    for (const bool isAudit : {false, true}) {
        for (const Case& c : CASES) {
            SCOPED_TRACE(testing::Message() << "type " << int{c.type} << " driver " << c.driver << isAudit);
            Bench b;
            b.in([&] { isAudit ? syncrefBegin() : syncrefReady(); });
            b.step([&] {
                syncrefSeen().mcResult = c.mcResult;
                syncrefSeen().driver = c.driver;
                syncrefSeen().eventSocket = c.eventSocket;
                syncrefSeen().generalSocket = c.generalSocket;
                const TuiifPktRefConfig ref = pktRef(1, 4, c.type, 24);
                if (isAudit) giveAudit({ref}, 1);
                else give(createReq(ref));
                Events wanted = c.before;
                wanted.push_back({SENT, isAudit ? KVD_TUIIF_AUDIT_PKT_REF_RO_RESULT_IND
                                                : KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 1, 4, c.result});
                EXPECT_EQ(events(), wanted);
                EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), READY);
                EXPECT_EQ(TuPktsync_SyncrefCtrl_syncrefIdOf(1, 4), -1);
                // The next good one takes the place and the standard identity.
                syncrefSeen().mcResult = 0;
                syncrefSeen().driver = 1;
                create(pktRef(2, 4, 0, 24), 0);
                EXPECT_EQ(state().table[0]->syncRefIndivState, syncref::CREATED);
                EXPECT_EQ(state().table[0]->port.clockIdentity[4], 0xFE);
            });
        }
    }
}

TEST(Syncref, AClockThatCantBeMadeLeavesNothingBehind)
{
    Bench b;
    b.in([] { syncrefReady(); });
    b.step([] {
        syncrefSeen().realClocks = true;
        TuiifPktRefConfig ref = pktRef(1, 4, 0, 24);
        ref.peerDelayMechanism = 1;
        create(ref, 0);
        // The driver would go on stamping its messages.
        EXPECT_EQ(events(), (Events{{MC_ADD, 0},
                                    {DRV_SET, 0},
                                    {NEW_CLOCK, 0, 0},
                                    {DRV_DELETE, 0},
                                    {SENT, KVD_TUIIF_CREATE_PKT_REF_RO_CFM, 1, 4, 2},
                                    {MC_REMOVE, 0}}));
        EXPECT_FALSE(state().table[0]);
    });
    EXPECT_EQ(b.traced("Peer Delay Mechanism not implemented yet"), 1u);
    EXPECT_EQ(b.traced("Failed to start protcol instance"), 1u);
    EXPECT_EQ(b.traced("Removing unsuccessful partial setup"), 1u);
}

TEST(Syncref, AnAuditThatEndsWithoutTheMainProcessorIsUndone)
{
    for (const bool isBackInTime : {false, true}) {
        Bench b;
        b.in([] { syncrefBegin(); });
        b.step([isBackInTime] {
            const auto audit = [] { giveAudit({pktRef(1, 4, 0, 24)}, 1); };
            const auto back = [] { give(TuPktsyncTuiifUpInd{TUPKTSYNC_TUIIF_UP_IND, 1}); };
            audit();
            give(SIGSELECT{TUPKTSYNC_TUIIF_DOWN_IND});
            EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), AUDIT_CREATE_PENDING);
            TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0);
            EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), AUDIT_DELETE_PENDING);
            if (isBackInTime) back();
            TuPktsync_SyncrefCtrl_PktSyncDrvDeleteCfm(0);
            EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), isBackInTime ? AUDIT_PENDING : READY);
            if (!isBackInTime) back();
            audit();                                 // it lists the reference again: one of it, not two
            TuPktsync_SyncrefCtrl_PktSyncDrvSetCfm(0);
            EXPECT_TRUE(state().table[0] && !state().table[1]);
            EXPECT_EQ(TuPktsync_SyncrefCtrl_state(), READY);
        });
    }
}

TEST(Syncref, AttributesComeFromTheClockOrAreZero)
{
    Bench b;
    b.in([] { syncrefBegin(); });
    const KvdTuiifGetPktRefRoAttribReq req{KVD_TUIIF_GET_PKT_REF_RO_ATTRIB_REQ, 1, 4};
    b.step([&req] {
        giveAudit({}, 0);
        syncrefSeen().sent.clear();
        give(req);                                   // of no reference
        ASSERT_EQ(syncrefSeen().sent.size(), 1u);
        const std::vector<u8>& sent = syncrefSeen().sent[0];
        ASSERT_EQ(sent.size(), 208u);
        EXPECT_EQ(std::count(sent.begin() + 12, sent.end(), 0), 196);
    });
    b.step([&req] {
        syncrefSeen().realClocks = true;
        create(pktRef(1, 4, 0, 24), 0);
        PtpClock& c = *ptpClockOf(0);
        TuPktsyncPTP_handleRegInd(0, -0x1234567890, 4711);
        c.stepsRemoved = 2;
        c.parent.parentPortIdentity = {identityOf("001b19fffe000001"), 7};
        c.parent.grandmasterIdentity = identityOf("001b19fffe000002");
        c.parent.grandmasterClockQuality = {6, 0x21, 0x4E5D};
        c.parent.grandmasterPriority1 = 127;
        c.parent.grandmasterPriority2 = 126;
        constexpr u8 FLAGS = PTP_UTC_OFFSET_VALID | PTP_TIMESCALE | PTP_FREQUENCY_TRACEABLE | PTP_LEAP59;
        c.timeProperties = {37, FLAGS, 0x20};
        c.logAnnounceInterval = -3;
        c.logSyncInterval = -4;
        syncrefSeen().sent.clear();
        give(req);
        KvdTuiifGetPktRefRoAttribCfm a;
        ASSERT_EQ(syncrefSeen().sent[0].size(), sizeof a);
        std::memcpy(&a, syncrefSeen().sent[0].data(), sizeof a);
        EXPECT_EQ(hexOf(a.clockIdentity, 8), "020000fffe000001");
        EXPECT_EQ(hexOf(a.parentClockIdentity, 8), "001b19fffe000001");
        EXPECT_EQ(hexOf(a.grandmasterIdentity, 8), "001b19fffe000002");
        const std::vector<i64> numbers = {
            a.twoStepFlag, a.slaveOnly, a.numberPorts, a.clockClass, a.domainNumber, a.stepsRemoved,
            a.offsetFromMaster, a.meanPathDelay, a.parentPortNumber, a.grandmasterClockClass,
            a.grandmasterClockAccuracy, a.grandmasterOffsetScaledLogVariance, a.grandmasterPriority1,
            a.grandmasterPriority2, a.currentUtcOffset, a.currentUtcOffsetValid, a.leap59, a.leap61,
            a.timeTraceable, a.frequencyTraceable, a.ptpTimescale, a.timeSource, a.portState,
            a.logAnnounceInterval, a.logSyncInterval, a.logMinDelayReqInterval, a.priority1, a.priority2,
            a.clockAccuracy, a.offsetScaledLogVariance, a.portNumber, a.announceReceiptTimeout,
            a.delayMechanism, a.versionNumber};
        EXPECT_EQ(numbers, (std::vector<i64>{1, 1, 1, 255, 24, 2, -0x1234567890, 4711, 7, 6, 0x21, 0x4E5D,
                                             127, 126, 37, 1, 1, 0, 0, 1, 1, 0x20, LISTENING, -3, -4, 3,
                                             0, 0, 0xFE, 0xFFFF, 1, 3, 1, 2}));
        TuPktsync_delete_ptp_clock(0);
    });
}

}  // namespace
