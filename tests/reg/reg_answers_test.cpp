// What the regulator answers the main processor, what it tells the other unit and the reports.
#include "reg/support/measure_bench.h"

#include "reg/kvd_reg_jump.h"
#include "sig/ref_types.h"
#include "unit/kvd_gps_state.h"

#include <cmath>
#include <limits>

using regtest::MeasureBench;

TEST(NodeTime, AnswersCarryTheTimeOfTheFrame)
{
    MeasureBench bench;
    bench.connect();
    bench.settle();
    // Frame 0 was at 2020-02-29 12:00:00; the counter wrapped once since the last sample.
    bench.dispatch(KVD_TUIIF_SET_SFN_INIT_TIME_IND, KvdTuiifSetSfnInitTimeInd{0, {2020, 2, 29, 12, 0, 0}});
    bench.in([] {
        KvdLoz6TuReg_setOffset(0.0, 0.0);
        KvdLoz6TuReg_setLastTime(2048.0, 1020.0);
    });
    bench.run(7.5);
    bench.dispatch(KVD_TUIIF_GET_RNT_FOR_SFN_REQ, KvdTuiifGetRntForSfnReq{0, 77, 5});
    const auto cfm = bench.received<KvdTuiifGetRntForSfnCfm>(KVD_TUIIF_GET_RNT_FOR_SFN_CFM);
    ASSERT_EQ(cfm.size(), 1u);
    EXPECT_EQ(cfm[0].clientPid, 77u);
    EXPECT_EQ(cfm[0].sfn, 750);
    // 3 x 1024 s + 7.5 s after noon, less the 19 s of the epoch that the count begins with.
    EXPECT_EQ(cfm[0].year, 2020);
    EXPECT_EQ(cfm[0].month, 2);
    EXPECT_EQ(cfm[0].day, 29);
    EXPECT_EQ(cfm[0].hour, 12);
    EXPECT_EQ(cfm[0].minute, 51);
    EXPECT_EQ(cfm[0].second, 0);
    EXPECT_NEAR(cfm[0].decimalSecond / 4294967296.0, 0.5, 1e-5);

    bench.dispatch(KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ, KvdTuiifGetRntToSfcDiffReq{0, 78});
    const auto diff = bench.received<KvdTuiifGetRntToSfcDiffCfm>(KVD_TUIIF_GET_RNT_TO_SFC_DIFF_CFM);
    ASSERT_EQ(diff.size(), 1u);
    EXPECT_EQ(diff[0].clientPid, 78u);
    EXPECT_EQ(diff[0].diff, 0);

    bench.failRun();
    bench.dispatch(KVD_TUIIF_GET_RNT_FOR_SFN_REQ, KvdTuiifGetRntForSfnReq{0, 79, 5});
    const auto rej = bench.received<KvdTuiifGetRntForSfnRej>(KVD_TUIIF_GET_RNT_FOR_SFN_REJ);
    ASSERT_EQ(rej.size(), 1u);
    EXPECT_EQ(rej[0].clientPid, 79u);
    EXPECT_EQ(rej[0].rejectCause, 5u);
}

TEST(OtherUnit, TimeDataGoesUnlessTheCounterIsMoving)
{
    struct Case { const char* what; u8 master; double t_f; bool jump; std::size_t sent; };
    for (const Case& c : std::to_array<Case>({
             {"master",                        1, 500.0,  false, 1},
             {"master, 1.1 s before the wrap", 1, 1022.9, false, 1},
             {"master, 0.9 s before the wrap", 1, 1023.1, false, 0},
             {"master, 0.9 s after the wrap",  1, 0.9,    false, 0},
             {"master, 1.1 s after the wrap",  1, 1.1,    false, 1},
             {"master in a jump",              1, 500.0,  true,  0},
             {"slave near the wrap",           0, 1023.9, false, 1},
             {"slave in a jump",               0, 500.0,  true,  1}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.connect();
        bench.settle();
        bench.run(c.t_f);
        bench.in([&] {
            regulator::state().masterSlaveMode = c.master;
            KvdLoz6TuReg_setPortSupervised(1, 0);
            if (c.jump) KvdLoz6TuReg_setJumpIdl1();
            KvdLoz6TuReg_setOffset(-5.0, 0.25);
            KvdLoz6TuGps_storeGpsState(GPS_OPERATIONAL);
            KvdLoz6TuReg_setLastTime(3072.0, 499.0);
            estimator::state().var.x_est = {1e-6, 2e-9, 0, 0, 0, 0};
            KvdLoz6TuReg_sendTimeData();
        });
        const auto sent = bench.received<KvdTuiif10TimeDataInd>(KVD_TUIIF10_TIME_DATA_IND);
        ASSERT_EQ(sent.size(), c.sent);
        if (sent.empty()) continue;
        EXPECT_EQ(sent[0].data.t_c, 3072.0);
        EXPECT_EQ(sent[0].data.delta0_c, -5.0);
        EXPECT_EQ(sent[0].data.delta0_f, 0.25);
        EXPECT_EQ(sent[0].data.x_est_1, 1e-6);
        EXPECT_EQ(sent[0].data.x_est_2, 2e-9);
        EXPECT_EQ(sent[0].data.P_est_1_1, 1e-20);
        EXPECT_EQ(sent[0].data.regState, FREQLOCKED);
        EXPECT_EQ(sent[0].data.gpsState, GPS_OPERATIONAL);
    }
}

TEST(OtherUnit, UnreadableCounterDropsTheTimeData)
{
    MeasureBench bench;
    bench.connect();
    bench.settle();
    bench.failRun();
    bench.in([] { KvdLoz6TuReg_sendTimeData(); });
    EXPECT_EQ(bench.bus.countOf("HALI_readTime failed"), 1u);
    EXPECT_TRUE(bench.received<KvdTuiif10TimeDataInd>(KVD_TUIIF10_TIME_DATA_IND).empty());
}

TEST(RegState, ReportGoesToTheClockUnlessALoopReports)
{
    struct Case { const char* what; u32 selectedRef; u8 to; u8 reported; };
    for (const Case& c : std::to_array<Case>({
             {"a line",              TU_SR_PDH_REF1,   FREQDRIFTING, KVD_TUIIF_FREQUENCY_DRIFTING},
             {"nothing selected",    TU_SR_NO_REF,     FREQLOCKED,   KVD_TUIIF_FREQUENCY_LOCKED},
             {"sync link",           TU_SR_GPSOSL_REF, FREQDRIFTING, KVD_TUIIF_UNKNOWN},
             {"SoCPRI",              TU_SR_SOCPRI_REF, FREQLOCKED,   KVD_TUIIF_UNKNOWN},
             {"inter-unit link",     TU_SR_IDL1_REF,   FREQLOCKED,   KVD_TUIIF_UNKNOWN},
             {"inter-unit link 2",   TU_SR_IDL2_REF,   FREQLOCKED,   KVD_TUIIF_UNKNOWN},
             {"a loop, but warm-up", TU_SR_GPSOSL_REF, WARMUP,       KVD_TUIIF_WARMUP}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.settle();
        bench.in([&] {
            tuiif::state().savedBvqStatusData.masterSlaveMode = KVD_TUIIF_MASTER_TU;
            KvdLoz6TuReg_setSelectedRef(c.selectedRef);
            KvdLoz6TuReg_forceRegState(SYNCH3);
            KvdLoz6TuReg_setRegState(c.to);
            EXPECT_EQ(tuiif::state().savedBvqStatusData.lastRegulatorState, c.reported);
        });
    }
}

TEST(RegState, LeavingTimeLockEndsAPendingJump)
{
    struct Case { u8 from, to; u32 before, after; };
    for (const Case& c : std::to_array<Case>({{TIMELOCKED, FREQLOCKED, JUMP_NEEDED, 0},
                                              {TIMELOCKED, FREQLOCKED, JUMP_REQUESTED, 0},
                                              {TIMELOCKED, TRUETIME, JUMP_NEEDED, 0},
                                              {FREQLOCKED, TIMELOCKED, JUMP_REQUESTED, 1},
                                              {FREQLOCKED, TIMELOCKED, JUMP_NEEDED, 2}})) {
        MeasureBench bench;
        bench.settle();
        bench.in([&] {
            KvdLoz6TuReg_setJumpState(c.before);
            KvdLoz6TuReg_regStateChanged(c.from, c.to);
            EXPECT_EQ(KvdLoz6TuReg_jumpState(), c.after) << int{c.from} << " to " << int{c.to};
        });
    }
}

TEST(Dispatch, ForeignAndShortSignals)
{
    MeasureBench bench;
    bench.settle();
    bench.in([] {
        Signal* sig = ose::alloc(sizeof(Signal), 0x9C6FF);
        EXPECT_EQ(KvdLoz6TuReg_dispatch(sig), 0);
        ose::free_buf(&sig);
    });
    for (const SIGSELECT sigNo : {KVD_TUIIF10_TIME_DATA_IND, KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ,
                                  KVD_TUIIF_GET_RNT_FOR_SFN_REQ, KVD_TUIIF_SET_SFN_INIT_TIME_IND,
                                  KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, KVD_TUHWIF_REF_INTERRUPT})
        bench.dispatch(sigNo);            // the number alone: ours, refused, nothing read beyond it
    for (double TuiifTimeData::* const field : {&TuiifTimeData::t_c, &TuiifTimeData::x_est_2})
        for (const double value : {std::numeric_limits<double>::quiet_NaN(), HUGE_VAL}) {
            KvdTuiif10TimeDataInd ind{};
            ind.data.*field = value;
            bench.dispatch(KVD_TUIIF10_TIME_DATA_IND, ind);
        }
    bench.in([] { EXPECT_EQ(regulator::state().receivedTimeDataInd, 0u); });
}
