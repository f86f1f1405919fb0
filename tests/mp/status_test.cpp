// What the main processor is told, and what it is spared: clock status, calibration, time accuracy,
// states and texts of references.
#include "tests/mp/mp_bench.h"

#include "mp/kvd_iifadm_state.h"
#include "reg/kvd_reg.h"
#include "reg/kvd_reg_jump.h"
#include "unit/kvd_gps_state.h"

namespace {

using bench::Connected;

// ---- clock status ----

TEST(ClockStatus, GoesOnceForEachChange)
{
    Connected b{GPS_REF};
    b.update(10);
    EXPECT_EQ(b.statuses(), 1u);
    struct Step { const char* what; void (*body)(); std::size_t sent; };
    constexpr Step STEPS[] = {
        {"same clock", [] { KvdLoz6TuIifAdm_updateRadioClockState(10); }, 1},
        {"same references", [] { KvdLoz6TuIifAdm_updateRefState(0); }, 1},
        {"other references", [] { KvdLoz6TuIifAdm_updateRefState(0x80); }, 2},
        {"stored only", [] { KvdLoz6TuIifAdm_storeRefState(0xA0); }, 2},
        {"and back", [] { KvdLoz6TuIifAdm_updateRefState(0x80); }, 2},
        {"degraded", [] { KvdLoz6TuIifAdm_updateDegraded(2); }, 3},
        {"still degraded", [] { KvdLoz6TuIifAdm_updateDegraded(2); }, 3},
        {"forced", [] { KvdLoz6TuIifAdm_setForceSend(), KvdLoz6TuIifAdm_updateRefState(0x80); }, 4},
        {"force is used up", [] { KvdLoz6TuIifAdm_updateRefState(0x80); }, 4},
        {"marked", [] { KvdLoz6TuIifAdm_markNotSent(), KvdLoz6TuIifAdm_updateRefState(0x80); }, 5},
        {"bit by bit", [] { KvdLoz6TuIifAdm_setRefStateBits(0x3), KvdLoz6TuIifAdm_clearRefStateBits(0x81),
                            KvdLoz6TuIifAdm_updateRefState(KvdLoz6TuIifAdm_tuiifRefState()); }, 6},
    };
    for (const Step& step : STEPS) {
        b.in(step.body);
        EXPECT_EQ(b.statuses(), step.sent) << step.what;
    }
    EXPECT_EQ(b.lastStatus().refState, 0x2u);
    EXPECT_EQ(b.lastStatus().activRefDegrStatus, 2);
    EXPECT_TRUE(b.traced("Signal BvqStatusInd already sent with: clockState=10, refState=80, ltr=0, degr=2"));
}

TEST(ClockStatus, OfUnknownIsKeptAndNotSentOfAFailureIsLookedAtEachTime)
{
    Connected b;
    b.update(3);
    b.mp().clearLog();
    b.update(7);
    EXPECT_EQ(b.clock(), 7);
    b.in([] { KvdLoz6TuIifAdm_setForceSend(), KvdLoz6TuIifAdm_updateRefState(0x80); });
    EXPECT_EQ(b.statuses(), 0u);
    EXPECT_EQ(b.traces("radioClockState is UNKNOWN, BvqStatusInd not sent"), 2u);
    b.update(3);
    EXPECT_EQ(b.statuses(), 1u);
    for (const auto& [clock, sentAgain] : {std::pair{u8{6}, 1u}, std::pair{u8{2}, 0u}}) {
        b.update(clock);
        b.update(clock);
        const std::size_t before = b.statuses();
        b.in([] { KvdLoz6TuIifAdm_markNotSent(); });
        b.update(clock);
        EXPECT_EQ(b.statuses(), before + sentAgain) << int{clock};
    }
    EXPECT_EQ(b.statuses(), 4u);
}

TEST(ClockStatus, HidesSocprisPassageThroughFrequencyLock)
{
    struct Case { u8 sentBefore, refType; std::size_t hidden; };
    for (const Case& c : {Case{17, SOCPRI_REF, 1}, Case{9, SOCPRI_REF, 1}, Case{11, SOCPRI_REF, 1},
                          Case{10, SOCPRI_REF, 0}, Case{4, SOCPRI_REF, 0}, Case{11, GPSOSL_REF, 0}}) {
        SCOPED_TRACE(testing::Message() << int{c.sentBefore} << " " << int{c.refType});
        Connected b{c.refType};
        b.update(c.sentBefore);
        ASSERT_EQ(b.statuses(), 1u);
        b.update(3);
        EXPECT_EQ(b.statuses(), 2 - c.hidden);
        b.update(8);
        EXPECT_EQ(b.statuses(), 3 - c.hidden);
    }
}

TEST(ClockStatus, OfAnotherStateEndsAWaitingJump)
{
    for (const u8 clock : {u8{8}, u8{10}, u8{9}}) {
        Connected b{TU_REF, GPS_REF};
        b.in([] { KvdLoz6TuReg_setJumpState(JUMP_NEEDED); });
        b.update(clock);
        EXPECT_EQ(b.look(KvdLoz6TuReg_jumpState), clock == 8 ? JUMP_NEEDED : JUMP_NOT_NEEDED) << int{clock};
    }
}

TEST(LossOfTracking, IsShownAndTakenBack)
{
    Connected b{GPS_REF};
    b.report(TRUETIME);
    const auto update = [&b](u32 detected) {
        b.in([detected] { KvdLoz6TuIifAdm_updateLtr(detected); });
        return b.lastStatus().activRefLtrStatus;
    };
    struct Step { u32 detected; u8 clock, ltrStatus; std::size_t sent; };
    for (const Step& step : {Step{0, 10, 0, 1}, Step{1, 5, 3, 2}, Step{1, 5, 3, 2}, Step{0, 10, 1, 3},
                             Step{0, 10, 1, 3}, Step{1, 5, 3, 4}}) {
        EXPECT_EQ(update(step.detected), step.ltrStatus);
        EXPECT_EQ(b.clock(), step.clock);
        EXPECT_EQ(b.statuses(), step.sent);
    }
    b.select(TU_REF, 1, 2);   // a new reference starts without a word on its tracking
    const std::size_t before = b.statuses();
    EXPECT_EQ(update(1), 3);
    EXPECT_EQ(b.statuses(), before + 1);
}

// ---- calibration ----

TEST(Calibration, FollowsTheClock)
{
    struct Step { u8 clock; u32 soonToExpire; u8 status; bool sent; };   // with its date while it's 2
    Connected b{TU_REF, GPS_REF};
    b.in([] { KvdLoz6TuReg_setCalibrationExpiry("2031-05-17"); });
    for (const Step& step : {
             Step{1, 0, 3, false},                // uncalibrated is where everything starts
             Step{2, 0, 3, false}, Step{3, 0, 1, true}, Step{4, 0, 1, false}, Step{9, 1, 2, true},
             Step{11, 1, 2, false}, Step{12, 1, 2, false},            // says nothing about it
             Step{10, 1, 1, true}, Step{4, 1, 2, true}, Step{14, 1, 3, true}, Step{15, 1, 1, true},
             Step{2, 1, 3, true}, Step{16, 1, 1, true}, Step{5, 1, 1, false}, Step{8, 0, 1, false}}) {
        SCOPED_TRACE(testing::Message() << int{step.clock} << " " << step.soonToExpire);
        b.mp().clearLog();
        b.in([&step] { KvdLoz6TuIifAdm_setSoonToExpire(step.soonToExpire); });
        b.update(step.clock);
        const auto ind = b.take<KvdTuiifCalibrationStatusInd>(KVD_TUIIF_CALIBRATION_STATUS_IND);
        ASSERT_EQ(ind.has_value(), step.sent);
        if (!step.sent) continue;
        EXPECT_EQ(ind->signalRevision, 1u);
        EXPECT_EQ(ind->calibrationStatus, step.status);
        EXPECT_STREQ(ind->calibrationExpirationDate, step.status == 2 ? "2031-05-17" : "");
    }
    b.update(9);
    b.in([] { KvdLoz6TuIifAdm_setSoonToExpire(1); });
    const auto ind = b.take<KvdTuiifCalibrationStatusInd>(KVD_TUIIF_CALIBRATION_STATUS_IND);
    EXPECT_TRUE(ind && ind->calibrationStatus == 2) << "without a change of the clock";
}

// ---- time accuracy ----

TEST(TimeAccuracy, IsToldInStepsOf100nsOrByTheShellAlone)
{
    Connected b;
    using Ind = KvdTuiifTimeAccuracyChangeInd;
    const auto taken = [&b] { return b.take<Ind>(KVD_TUIIF_TIME_ACCURACY_CHANGE_IND); };
    struct Step { u32 accuracy; bool sent; };
    for (const Step& step : {Step{99, false}, Step{100, true}, Step{199, false}, Step{1, false},
                             Step{0, true}, Step{0xFFFFFFFF, true}, Step{0xFFFFFFFF - 99, false},
                             Step{5000, true}}) {
        SCOPED_TRACE(step.accuracy);
        b.in([&step] { KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(step.accuracy); });
        const auto ind = taken();
        ASSERT_EQ(ind.has_value(), step.sent);
        if (!step.sent) continue;
        EXPECT_EQ(ind->timeAccuracy, step.accuracy);
        EXPECT_EQ(ind->apn, 1u);
        EXPECT_EQ(ind->smn, 7u);
    }
    b.in([] { KvdLoz6TuIifAdm_sendTimeAccuracyNow(5000); });
    EXPECT_TRUE(taken());
    const auto inMode = [&](u32 manual) {
        b.in([manual] {
            KvdLoz6TuIifAdm_setManualAccuracy(manual);
            KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(1000);
        });
        return taken().has_value();
    };
    EXPECT_FALSE(inMode(1));
    b.node.system().call(*b.node.program(), [] { KvdLoz6TuIifAdm_sendTimeAccuracyChangeInd(2000); });
    EXPECT_EQ(taken()->timeAccuracy, 2000u);
    EXPECT_TRUE(inMode(0));
}

// ---- states of references ----

TEST(PacketReference, StateComesFromItsStatusBits)
{
    struct Case { u32 refStatus, refState, additional; };            // refState 0: not told
    for (const Case& c : {Case{0, 16384, 0}, Case{0x1, 8192, 0x1}, Case{0x8, 8192, 0x8},
                          Case{0x40, 8192, 0x40}, Case{0x100, 8192, 0x100}, Case{0x800, 8192, 0x800},
                          Case{0x2, 4096, 0x2}, Case{0x20, 4096, 0x20}, Case{0x80, 4096, 0x80},
                          Case{0x1000, 4096, 0x1000}, Case{0x4000, 4096, 0x4000}, Case{0x3, 8192, 0x3},
                          Case{0xFFFFFFFF, 8192, 0x7FFF}, Case{0x18004, 4096, 0x4},
                          Case{0x8000, 0, 0}, Case{0xFFFF8000, 0, 0}})
        for (const u32 useActive : {0u, 1u}) {
            SCOPED_TRACE(testing::Message() << std::hex << c.refStatus);
            Connected b;
            b.select(PACKET_TIME_REF, 21, 4);
            b.mp().clearLog();
            b.in([&] { KvdLoz6TuIifAdm_updateTuPktRefStatus(5, 2, c.refStatus, useActive); });
            const auto ind = b.take<KvdTuiif6BvqRefStateInd>(KVD_TUIIF6_BVQ_REF_STATE_IND);
            EXPECT_EQ(b.traced("Received updateTuPktRefStatus - but ignored: froId="), c.refState == 0);
            ASSERT_EQ(ind.has_value(), c.refState != 0);
            if (!ind) continue;
            EXPECT_EQ(ind->signalRevision, 1u);
            EXPECT_EQ(ind->froId, useActive ? 21u : 5u);
            EXPECT_EQ(ind->froClassNo, useActive ? 4u : 2u);
            EXPECT_EQ(ind->refState, c.refState);
            EXPECT_EQ(ind->additionalRefStateInfo, c.additional);
        }
}

TEST(ReferenceState, IsForPacketAndEthernetReferencesOnly)
{
    Connected b;
    for (u8 refType = 0; refType < 17; ++refType) {
        SCOPED_TRACE(int{refType});
        b.node.traces().clear();
        b.in([refType] { KvdLoz6TuIifAdm_sendRefState(refType, 3, 7, 8, 0x12345678); });
        const bool told = refType == 7 || refType == 8 || (refType >= 11 && refType <= 13);
        const auto ind = b.take<KvdTuiif6BvqRefStateInd>(KVD_TUIIF6_BVQ_REF_STATE_IND);
        ASSERT_EQ(ind.has_value(), told);
        EXPECT_EQ(b.traced("Reference not supported"), !told);
        EXPECT_TRUE(!told || ind->additionalRefStateInfo == 0x12345678u);
    }
}

TEST(StatusText, OfAnOperationalReceiverComesBehindTheClockThatItSteers)
{
    for (const bool isOperational : {true, false}) {
        Connected b{GPS_REF};
        b.in([isOperational] {
            if (isOperational) KvdLoz6TuGps_storeGpsState(GPS_OPERATIONAL);
            tuiif::state().savedBvqStatusData.lastRegulatorState = KVD_TUIIF_RNT_TIME_LOCKED;
            KvdLoz6TuIifAdm_sendGpsStatus(1, "OK");
        });
        EXPECT_EQ(b.clock() == KVD_TUIIF_RNT_TIME_LOCKED, isOperational);
    }
}

TEST(RemoteClockState, GoesWhileTheLinkIsTheReference)
{
    struct Case { const char* when; std::vector<u8> selected; bool unknownGoes, otherGoes; };
    for (const Case& c : {Case{"selected", {GPSOSL_REF}, true, true},
                          Case{"just deselected", {GPSOSL_REF, NO_REF}, true, true},
                          Case{"another after it", {GPSOSL_REF, GPS_REF}, true, false},
                          Case{"none at all", {}, true, false},
                          Case{"SoCPRI", {GPSOSL_REF, SOCPRI_REF}, false, false}}) {
        SCOPED_TRACE(c.when);
        Connected b{{}, c.selected};
        b.mp().clearLog();
        const auto goes = [&](u32 remote) {
            b.in([remote] { KvdLoz6TuIifAdm_sendRemoteRcState(remote); });
            const auto ind = b.take<KvdTuiifRemoteRcStateInd>(KVD_TUIIF_REMOTE_RC_STATE_IND);
            EXPECT_EQ(ind ? ind->remoteRCState : remote, remote);
            return ind.has_value();
        };
        EXPECT_EQ(goes(5), c.otherGoes);
        EXPECT_FALSE(goes(5)) << "no change";
        EXPECT_EQ(goes(10), c.unknownGoes);
        EXPECT_EQ(goes(10), c.unknownGoes) << "always";
        EXPECT_EQ(goes(5), c.otherGoes);
        EXPECT_EQ(goes(13), c.otherGoes);
    }
}

}  // namespace
