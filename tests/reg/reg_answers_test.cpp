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
    EXPECT_TRUE(cfm[0].clientPid == 77 && cfm[0].sfn == 750);
    // 3 x 1024 s + 7.5 s after noon, less the 19 s of the epoch that the count begins with.
    EXPECT_TRUE(cfm[0].year == 2020 && cfm[0].month == 2 && cfm[0].day == 29);
    EXPECT_TRUE(cfm[0].hour == 12 && cfm[0].minute == 51 && cfm[0].second == 0);
    EXPECT_NEAR(cfm[0].decimalSecond / 4294967296.0, 0.5, 1e-5);

    bench.dispatch(KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ, KvdTuiifGetRntToSfcDiffReq{0, 78});
    const auto diff = bench.received<KvdTuiifGetRntToSfcDiffCfm>(KVD_TUIIF_GET_RNT_TO_SFC_DIFF_CFM);
    ASSERT_EQ(diff.size(), 1u);
    EXPECT_TRUE(diff[0].clientPid == 78 && diff[0].diff == 0);

    bench.failRun();
    bench.dispatch(KVD_TUIIF_GET_RNT_FOR_SFN_REQ, KvdTuiifGetRntForSfnReq{0, 79, 5});
    const auto rej = bench.received<KvdTuiifGetRntForSfnRej>(KVD_TUIIF_GET_RNT_FOR_SFN_REJ);
    ASSERT_EQ(rej.size(), 1u);
    EXPECT_TRUE(rej[0].clientPid == 79 && rej[0].rejectCause == 5);
}

TEST(OtherUnit, TimeDataGoesUnlessTheCounterIsMoving)
{
    constexpr double UNREADABLE = -1.0;
    struct Case { const char* what; u8 master; double t_f; bool jump; std::size_t sent; };
    for (const Case& c : std::to_array<Case>({
             {"master",                        1, 500.0,  false, 1},
             {"master, 1.1 s before the wrap", 1, 1022.9, false, 1},
             {"master, 0.9 s before the wrap", 1, 1023.1, false, 0},
             {"master, 0.9 s after the wrap",  1, 0.9,    false, 0},
             {"master, 1.1 s after the wrap",  1, 1.1,    false, 1},
             {"master in a jump",              1, 500.0,  true,  0},
             {"slave near the wrap",           0, 1023.9, false, 1},
             {"slave in a jump",               0, 500.0,  true,  1},
             {"counter that can't be read",    0, UNREADABLE, false, 0}})) {
        SCOPED_TRACE(c.what);
        MeasureBench bench;
        bench.connect();
        bench.settle();
        bench.run(c.t_f);
        if (c.t_f == UNREADABLE) bench.failRun();
        bench.in([&] {
            regulator::state().masterSlaveMode = c.master;
            KvdLoz6TuReg_setPortSupervised(1, 0);
            if (c.jump) KvdLoz6TuReg_setJumpIdl1();
            KvdLoz6TuReg_setOffset(-5.0, 0.25);
            KvdLoz6TuGps_storeGpsState(GPS_OPERATIONAL);
            KvdLoz6TuReg_setLastTime(3072.0, 499.0);
            KvdLoz6TuReg_setJumpState(JUMP_REQUESTED);
            tuiif::state().ownPiuHwAddr_r = {7, 3};
            tuiif::state().savedBvqStatusData.selectedRef = GPS_REF;
            tuiif::state().savedBvqStatusData.radioClockState = KVD_TUIIF_TIME_OFFSET_LOCKED;
            estimator::state().var.x_est = {1e-6, 2e-9, 0, 0, 0, 0};
            KvdLoz6TuReg_sendTimeData();
        });
        const auto sent = bench.received<KvdTuiif10TimeDataInd>(KVD_TUIIF10_TIME_DATA_IND);
        ASSERT_EQ(sent.size(), c.sent);
        if (sent.empty()) continue;
        const TuiifTimeData& d = sent[0].data;
        EXPECT_TRUE(d.t_c == 3072.0 && d.delta0_c == -5.0 && d.delta0_f == 0.25);
        EXPECT_TRUE(d.x_est_1 == 1e-6 && d.x_est_2 == 2e-9 && d.P_est_1_1 == 1e-20);
        EXPECT_TRUE(d.regState == FREQLOCKED && d.gpsState == GPS_OPERATIONAL);
        EXPECT_TRUE(d.smn == 7 && d.apn == 3 && d.jumpIndication == 1);
        EXPECT_TRUE(d.selectedRef == GPS_REF && d.rcState == KVD_TUIIF_TIME_OFFSET_LOCKED);
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
    for (const SIGSELECT sigNo :
         {KVD_TUIIF10_TIME_DATA_IND, KVD_TUIIF_GET_RNT_TO_SFC_DIFF_REQ, KVD_TUIIF_GET_RNT_FOR_SFN_REQ,
          KVD_TUIIF_SET_SFN_INIT_TIME_IND, KVD_TUIIF_SOCPRI_COARSE_TIME_DATA_IND, KVD_TUHWIF_REF_INTERRUPT})
        bench.dispatch(sigNo);            // the number alone: ours, refused, nothing read beyond it
    for (double TuiifTimeData::* const field : {&TuiifTimeData::t_c, &TuiifTimeData::x_est_2})
        for (const double value : {std::numeric_limits<double>::quiet_NaN(), HUGE_VAL}) {
            KvdTuiif10TimeDataInd ind{};
            ind.data.*field = value;
            bench.dispatch(KVD_TUIIF10_TIME_DATA_IND, ind);
        }
    bench.in([] { EXPECT_EQ(regulator::state().receivedTimeDataInd, 0u); });
}
