// The unit's GPS output in a whole unit: what goes out at which time, and what makes it better or worse.
#include "gps/kvd_gps_out_int.h"
#include "gps/kvd_gps_serial.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_regs.h"
#include "node/mmio.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_pll_int.h"
#include "sig/hwif_sig.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "tests/support/idle_node.h"
#include "tests/support/unit_bench.h"

#include <gtest/gtest.h>

namespace {

/// The output alone in a process of a node; the test gives the pulses.
struct OutUnit : IdleNode {
    struct Heard { ose::Time at; std::string text; };
    static constexpr SIGSELECT RUN_BODY = 0x7F000003;
    struct RunBody {
        SIGSELECT sigNo;
        u32 reserved;
        const std::function<void()>* body;
    };
    std::vector<Heard> heard;

    explicit OutUnit(u8 masterSlaveMode = 1)
    {
        bench::failOnMisuse(world);
        node.serial().onHeard([this](const std::vector<u8>& bytes) {
            heard.push_back({world.now(), std::string(bytes.begin(), bytes.end())});
        });
        node.system().launch(*node.program(), "output", 16, [] {
            for (;;) {
                Signal* sig = ose::receive(ose::ANY_SIGNAL);
                if (sig->sigNo == RUN_BODY) (*reinterpret_cast<RunBody*>(sig)->body)();
                else                        KvdLoz6GpsOut_dispatch(sig);
                ose::free_buf(&sig);
            }
        });
        ms(1);
        call([=] {
            regulator::state().masterSlaveMode = masterSlaveMode;
            KvdLoz6TuReg_forceRegState(WARMUP);
        });
    }
    void ms(i64 span) { world.runFor(span * ose::MS); }
    template <typename T>
    void inject(const T& layout)
    {
        node.system().inject(std::as_bytes(std::span<const T, 1>(&layout, 1)),
                             node.system().find("output"), 0);
        world.runUntil(world.now());
    }
    void call(const std::function<void()>& body) { inject(RunBody{RUN_BODY, 0, &body}); }
    void start(u8 mode)
    {
        call([=] {
            HALI_init();
            KvdLoz6GpsOut_start(mode);
        });
    }
    /// A pulse of the output, and the second after it.
    void pulse(u32 count = 1)
    {
        for (; count > 0; --count) {
            inject(SIGSELECT{KVD_TUGPS_OUT_INTERRUPT});
            ms(1'000);
        }
    }
    gpsout::State look()
    {
        return node.inProgram([] { return gpsout::state(); });
    }
    u32 state() { return look().gpsOutState; }
    void regulator(u8 regState)
    {
        call([=] {
            KvdLoz6TuReg_forceRegState(regState);
            KvdLoz6GpsOut_regStateChanged();
        });
    }
    void slaveLoop(u32 slavePllState)
    {
        call([=] { pll::vars().currSlaveState = slavePllState; });
    }
    void master(u8 regState, u8 rcState, u8 selectedRef, double t_c = 0)
    {
        KvdTuiif10TimeDataInd ind{};
        ind.sigNo = KVD_TUIIF10_TIME_DATA_IND;
        ind.data.regState = regState;
        ind.data.rcState = rcState;
        ind.data.selectedRef = selectedRef;
        ind.data.t_c = t_c;
        inject(ind);
    }
    u32 timeData()
    {
        return node.inProgram([] {
            double t_c = 0;
            return KvdLoz6GpsOut_time(t_c) == 1 && t_c == 1024.0 ? 1u : 0u;
        });
    }
};

TEST(GpsOut, WaitsFiveSecondsForTheRegulatorAndThenSaysThatNothingIsAligned)
{
    OutUnit unit;
    unit.start(1);
    unit.ms(4'900);
    EXPECT_EQ(unit.state(), 2u);
    unit.pulse();
    EXPECT_EQ(unit.state(), 3u);
    EXPECT_TRUE(unit.heard.empty());
    const ose::Time pulse = unit.world.now();
    unit.pulse();
    ASSERT_EQ(unit.heard.size(), 2u);
    EXPECT_EQ(unit.heard[0].text, "$PNVX,GPout,10,0,0,0,0*68\r\n");
    EXPECT_EQ((unit.heard[0].at - pulse) / ose::MS, 150);
    EXPECT_EQ(unit.heard[1].text.substr(0, 12), "$PNVX,GPppr,");
    EXPECT_EQ(unit.heard[1].text.substr(30, 7), ",00,3,0");      // not aligned
    EXPECT_EQ((unit.heard[1].at - pulse) / ose::MS, 400);
}

TEST(GpsOut, AlignsOnTheSecondPulseAfterTheTimeIsKnownAndAnewAfterADrop)
{
    OutUnit unit;
    unit.start(1);
    for (u32 round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        unit.regulator(TRUETIME);
        EXPECT_EQ(unit.state(), 5u);
        unit.pulse();                         // arms
        EXPECT_EQ(unit.state(), 5u);
        EXPECT_EQ(unit.look().pp1sAligned, 0u);
        unit.pulse();
        EXPECT_EQ(unit.state(), 6u);
        EXPECT_EQ(unit.look().pp1sAligned, 1u);
        unit.regulator(FREQDRIFTING);
        EXPECT_EQ(unit.state(), 3u);
        EXPECT_EQ(unit.look().pp1sAligned, 0u);
        unit.heard.clear();
        unit.pulse();                         // dropped: no time, but its clock state is told
        ASSERT_EQ(unit.heard.size(), 1u);
        EXPECT_EQ(unit.heard[0].text.substr(0, 12), "$PNVX,GPout,");
    }
}

TEST(GpsOut, GpggaGoesOnceAMinuteAndStopEndsAll)
{
    OutUnit unit;
    unit.start(1);
    unit.regulator(TIMELOCKED);
    unit.ms(125'000);
    ASSERT_EQ(unit.heard.size(), 2u);
    EXPECT_EQ(unit.heard[1].text.substr(0, 7), "$GPGGA,");
    unit.inject(SIGSELECT{KVD_TUGPS_OUT_INTERRUPT});
    unit.call([] { KvdLoz6GpsOut_stop(); });
    EXPECT_EQ(unit.state(), 1u);
    unit.ms(70'000);
    EXPECT_EQ(unit.heard.size(), 2u);
    unit.start(1);                            // the port was given back
    EXPECT_EQ(unit.look().gpsOutDriver, 2u);
}

TEST(GpsOut, ATakenPortLeavesItFailedAndSilent)
{
    OutUnit unit;
    unit.call([] { KvdLoz6TuGps_openSerial(); });
    unit.start(1);
    EXPECT_EQ(unit.look().gpsOutDriver, 3u);
    EXPECT_EQ(unit.state(), 1u);
    unit.pulse(3);
    EXPECT_TRUE(unit.heard.empty());
}

TEST(GpsOut, TheOtherProtocolSendsTwoFramesASecond)
{
    OutUnit unit;
    unit.start(2);
    unit.ms(5'100);
    unit.pulse(3);
    ASSERT_EQ(unit.heard.size(), 6u);
    for (std::size_t i = 0; i < 6; i += 2) {
        const std::string &time = unit.heard[i].text, &state = unit.heard[i + 1].text;
        EXPECT_EQ(time.size(), 23u);
        EXPECT_EQ(time.substr(0, 6), std::string("CM\1\x20\0\x10", 6));
        EXPECT_EQ(state.size(), 23u);
        EXPECT_EQ(state.substr(0, 9), std::string("CM\1\3\0\x10\3\0\5", 9));
        EXPECT_EQ((unit.heard[i + 1].at - unit.heard[i].at) / ose::MS, 199);
    }
}

TEST(GpsOut, ASlaveFollowsWhatTheMasterSaysWhileItsLoopHolds)
{
    struct Step { const char* what; u32 loop; u8 regState, rcState, selectedRef; u32 state; };
    OutUnit unit(0);
    unit.start(1);
    unit.ms(5'100);
    ASSERT_EQ(unit.state(), 3u);
    EXPECT_EQ(unit.timeData(), 0u);
    for (const Step& step : std::to_array<Step>({
             {"no loop",           SLAVE_PLL_Unlocked, TRUETIME,   10, GPS_REF, 3},
             {"true time",         SLAVE_PLL_Locked,   TRUETIME,   10, GPS_REF, 5},
             {"still",             SLAVE_PLL_Locked,   TRUETIME,   10, GPS_REF, 5},
             {"lost, not aligned", SLAVE_PLL_Locked,   TIMELOCKED, 10, GPS_REF, 3},
             {"again",             SLAVE_PLL_Locked,   TRUETIME,   10, GPS_REF, 5},
             {"loop lost",         SLAVE_PLL_Unlocked, TRUETIME,   10, GPS_REF, 3}})) {
        SCOPED_TRACE(step.what);
        unit.slaveLoop(step.loop);
        unit.master(step.regState, step.rcState, step.selectedRef, 1024.0);
        EXPECT_EQ(unit.state(), step.state);
    }
    EXPECT_EQ(unit.timeData(), 1u);
    unit.regulator(TRUETIME);                 // its own regulator doesn't count
    EXPECT_EQ(unit.state(), 3u);
}

TEST(GpsOut, ACounterThatCantBeReadIsToldAndTheOutputGoesOn)
{
    constexpr const char *READ = "Unable to read register for GPS OUT", *ADJUST = "Failed to adjust GPS OUT counter";
    OutUnit unit;
    unit.start(1);
    unit.regulator(TRUETIME);
    unit.pulse();                             // arms
    EXPECT_EQ(unit.node.traces().count({READ}), 0u);
    unit.node.board().faults.outputMfn = 25;
    unit.node.traces().clear();
    unit.pulse();
    EXPECT_EQ(unit.state(), 6u);
    EXPECT_EQ(unit.node.traces().count({READ}), 2u);
    EXPECT_EQ(unit.node.traces().count({ADJUST}), 1u);
    unit.call([] { KvdLoz6GpsOut_timeStepped(); });
    EXPECT_EQ(unit.node.traces().count({ADJUST}), 2u);
    unit.node.board().faults.outputMfn = -1;
    unit.call([] { KvdLoz6GpsOut_timeStepped(); });
    EXPECT_EQ(unit.node.traces().count({ADJUST}), 2u);
    for (const i32 counterMfn : {25, -1}) {   // the counter that the time comes from
        unit.node.board().faults.counterMfn = counterMfn;
        unit.heard.clear();
        unit.pulse();
        EXPECT_EQ(unit.heard.size(), counterMfn == 25 ? 0u : 2u) << "a second without a word";
    }
}

TEST(GpsOut, AChangeOfProtocolEndsWhatTheOneBeforeHadToSay)
{
    OutUnit unit;
    unit.start(1);
    unit.ms(5'100);
    for (const u8 mode : {2, 1}) {
        unit.inject(SIGSELECT{KVD_TUGPS_OUT_INTERRUPT});
        unit.call([=] { KvdLoz6GpsOut_start(mode); });
        unit.heard.clear();
        unit.ms(1'000);
        EXPECT_TRUE(unit.heard.empty()) << u32{mode};
        unit.pulse();
        ASSERT_EQ(unit.heard.size(), 2u);
        EXPECT_EQ(unit.heard[0].text[0], mode == 2 ? 'C' : '$');
    }
    unit.heard.clear();
    unit.ms(60'000);
    EXPECT_EQ(unit.heard.size(), 1u) << "GPGGA alone";
}

TEST(GpsOut, ATimerThatDoesntStartCostsTheSentencesOfThatSecond)
{
    struct Case { u8 mode; std::size_t sentences; std::vector<const char*> traces; };
    for (const Case& c : {Case{1, 2, {"GPppr timer failed to start!"}},
                          Case{2, 2, {"CMCC TOD timer failed to start!", "CMCC TOD state timer failed to start!"}}}) {
        SCOPED_TRACE(c.mode);
        OutUnit unit;
        unit.start(c.mode);
        unit.ms(5'100);
        unit.node.system().faults().refuseTimers = 2;        // GPout and GPppr, or both frames'
        unit.pulse();
        EXPECT_TRUE(unit.heard.empty());
        for (const char* trace : c.traces) EXPECT_EQ(unit.node.traces().count({trace}), 1u) << trace;
        unit.pulse();
        EXPECT_EQ(unit.heard.size(), c.sentences);
    }
}

TEST(GpsOut, ASlaveOfANodeThatFollowsTheSyncLinkGivesNothingBack)
{
    constexpr u32 OUTPUT_INTERRUPT = 1;       // in the enable word of board type 2
    OutUnit unit(0);
    u32 isOn = 0, enabled = 0;
    const auto look = [&] {
        unit.call([&] {
            isOn = static_cast<u32>(tuHwIf_isGpsOutEnabled());
            enabled = node::mmioRead(tuHwIf_lookupRegister(REG_INT_ENABLE)) & OUTPUT_INTERRUPT;
        });
    };
    unit.start(1);
    unit.ms(5'100);
    unit.slaveLoop(SLAVE_PLL_Locked);
    struct Step { u8 selectedRef; u32 isOn, enabled; };
    for (const Step& step : std::to_array<Step>({{GPS_REF, 1, 1}, {GPSOSL_REF, 0, 0}, {GPS_REF, 0, 1}})) {
        unit.master(TRUETIME, 10, step.selectedRef);
        look();
        EXPECT_EQ(unit.state(), 5u);
        EXPECT_EQ(isOn, step.isOn);
        EXPECT_EQ(enabled, step.enabled);
    }
}

}  // namespace
