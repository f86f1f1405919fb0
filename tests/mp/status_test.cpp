// What the main processor is told, and what it is spared: clock status, calibration, texts of references.
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

// ---- texts of references ----

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

}  // namespace
