// The unit's GPS output in a whole unit: what goes out at which time, and what makes it better or worse.
#include "gps/kvd_gps_out_int.h"
#include "gps/kvd_gps_serial.h"
#include "hw/hali.h"
#include "hw/kvd_hwif.h"
#include "hw/kvd_hwif_regs.h"
#include "node/mmio.h"
#include "reg/kvd_reg_control.h"
#include "reg/kvd_reg_int.h"
#include "reg/kvd_reg_measure.h"
#include "reg/kvd_reg_pll.h"
#include "reg/kvd_reg_pll_int.h"
#include "sig/hwif_sig.h"
#include "sig/ref_types.h"
#include "sig/tuiif_sig.h"
#include "store/kvd_mgr_mem.h"
#include "tests/support/idle_node.h"
#include "tests/support/unit_bench.h"

#include <cmath>

namespace {

/// The output alone in a process of a node; the test gives the pulses.
struct OutUnit : IdleNode {
    struct Heard { ose::Time at; std::string text; };
    std::vector<Heard> heard;

    explicit OutUnit(u8 masterSlaveMode = 1)
    {
        bench::failOnMisuse(world);
        node.serial().onHeard([this](const std::vector<u8>& bytes) {
            heard.push_back({world.now(), std::string(bytes.begin(), bytes.end())});
        });
        node.system().launch(*node.program(), "output", 16, [] {
            bench::serve([](Signal* sig) { KvdLoz6GpsOut_dispatch(sig); return false; });
        });
        ms(1);
        call([=] {
            regulator::state().masterSlaveMode = masterSlaveMode;
            KvdLoz6TuReg_forceRegState(WARMUP);
        });
    }
    void ms(i64 span) { world.runFor(span * ose::MS); }
    template <typename T>
    void inject(const T& layout) { bench::injectInto(node.system(), output(), layout); }
    void call(const std::function<void()>& body) { bench::runIn(node.system(), output(), body); }
    PROCESS output() { return node.system().find("output"); }
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
    bool isOn()
    {
        bool on = false;
        call([&] { on = tuHwIf_isGpsOutEnabled() != 0; });
        return on;
    }
    bool isInterruptEnabled()
    {
        constexpr u32 OUTPUT_INTERRUPT = 1;              // in the enable word of board type 2
        u32 enabled = 0;
        call([&] { enabled = node::mmioRead(tuHwIf_lookupRegister(REG_INT_ENABLE)) & OUTPUT_INTERRUPT; });
        return enabled != 0;
    }
    gpsout::State look() { return node.inProgram([] { return gpsout::state(); }); }
    u32 state() { return look().gpsOutState; }
    void regulator(u8 regState)
    {
        call([=] {
            KvdLoz6TuReg_forceRegState(regState);
            KvdLoz6GpsOut_regStateChanged();
        });
    }
    void master(u8 regState, u8 rcState, u8 selectedRef)
    {
        KvdTuiif10TimeDataInd ind{};
        ind.sigNo = KVD_TUIIF10_TIME_DATA_IND;
        ind.data.regState = regState;
        ind.data.rcState = rcState;
        ind.data.selectedRef = selectedRef;
        inject(ind);
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
        EXPECT_TRUE(unit.isOn() && unit.isInterruptEnabled());
        unit.pulse();                         // arms
        EXPECT_EQ(unit.state(), 5u);
        EXPECT_EQ(unit.look().pp1sAligned, 0u);
        unit.pulse();
        EXPECT_EQ(unit.state(), 6u);
        EXPECT_EQ(unit.look().pp1sAligned, 1u);
        const auto time = [](double sfcGpsOffset, TimePair delta0, TimePair last) {
            regulator::state().sfcGpsOffset = sfcGpsOffset;
            KvdLoz6TuReg_setOffset(delta0.c, delta0.f);
            KvdLoz6TuReg_setLastTime(last.c, last.f);
        };
        double period = 0, now = 0;
        unit.call([&] {
            time(0.0, {0.0, 0.0}, {0.0, 0.0});
            HALI_readTime(period, now);
        });
        unit.pulse();
        const u64 before = unit.look().gpsTime;
        EXPECT_EQ(before, static_cast<u64>(std::lround(now)) + 1) << "the next second";
        unit.call([&] { time(5'000.0, {2.0, 0.75}, {2'048.0, 0.0}); });
        unit.pulse();
        EXPECT_EQ(unit.look().gpsTime, static_cast<u64>(std::lround(now + 2 - 2.75 + 5'000 + 2'048)));
        unit.call([&] { time(0.0, {0.0, 0.0}, {0.0, 1'000.0}); });     // the counter has wrapped since
        unit.pulse();
        EXPECT_EQ(unit.look().gpsTime, before + 2 + 1'024);
        unit.call([&] { time(0.0, {0.0, 0.0}, {0.0, 0.0}); });
        unit.regulator(FREQDRIFTING);
        EXPECT_EQ(unit.state(), 3u);
        EXPECT_FALSE(unit.isOn());
        EXPECT_EQ(unit.look().pp1sAligned, 0u);
        unit.heard.clear();
        unit.pulse();                         // dropped: no time, but its clock state is told
        ASSERT_EQ(unit.heard.size(), 1u);
        EXPECT_EQ(unit.heard[0].text.substr(0, 12), "$PNVX,GPout,");
    }
}

TEST(GpsOut, ALockedFrequencyAlignsItAndHoldsIt)
{
    struct Step { u8 regState; u32 pulses, state; };
    OutUnit unit;
    unit.start(1);
    unit.ms(5'100);
    for (const Step& step : std::to_array<Step>(
             {{FREQDRIFTING, 2, 3}, {FREQLOCKED, 1, 3}, {FREQLOCKED, 1, 4}, {TIMELOCKED, 1, 4},
              {FREQLOCKED, 1, 4}, {FREQDRIFTING, 1, 3}, {FREQLOCKED, 2, 4}})) {
        SCOPED_TRACE(int{step.regState});
        unit.regulator(step.regState);
        unit.heard.clear();
        unit.pulse(step.pulses);
        EXPECT_EQ(unit.state(), step.state);
        EXPECT_EQ(unit.isOn(), step.state == 4);
        if (step.state == 4) { EXPECT_EQ(unit.heard.back().text.substr(30, 7), ",00,1,0"); }
    }
}

TEST(GpsOut, ItsEndEndsAllOfIt)
{
    OutUnit unit;
    unit.start(1);
    unit.regulator(TRUETIME);
    unit.pulse(3);
    unit.inject(SIGSELECT{KVD_TUGPS_OUT_INTERRUPT});
    unit.ms(151);                             // GPout is on its way, GPppr is to come
    unit.call([] { KvdLoz6GpsOut_stop(); });
    EXPECT_FALSE(unit.isOn() || unit.isInterruptEnabled());
    const gpsout::State ended = unit.look();
    EXPECT_EQ(ended.gpsOutState, 1u);
    EXPECT_EQ(ended.gpsTimeLocked + ended.pp1sAligned + ended.driverBusy, 0u);
    EXPECT_EQ(ended.counters.numberOfHwInterrupts, 0u);
    EXPECT_FALSE(ended.simIntTmoRef.runs());
    unit.heard.clear();
    unit.ms(61'000);
    EXPECT_TRUE(unit.heard.empty());
    unit.regulator(FREQDRIFTING);
    unit.start(1);                            // waits, until its end
    unit.call([] { KvdLoz6GpsOut_stop(); });
    unit.ms(6'000);
    EXPECT_EQ(unit.state(), 1u);
    unit.regulator(FREQLOCKED);
    unit.start(1);
    EXPECT_EQ(unit.state(), 3u) << "a frequency without a time";
}

TEST(GpsOut, TimeOfItsCounterGoesOnOverThePeriod)
{
    OutUnit unit;
    double period = 0, first = 0, time = 0;
    unit.in([&] {
        HALI_init();
        KvdLoz6TuMem_initiate();
        KvdLoz6TuMem_allocate(MEM_GPS_OUT, 0);
        while (Signal* sig = ose::receive_w_tmo(1, ose::ANY_SIGNAL)) {
            KvdLoz6TuMem_dispatch(sig);
            ose::free_buf(&sig);
        }
        EXPECT_EQ(tuHwIf_readGpsOutTime(period, first), 0);
    });
    for (u32 n = 1; n <= 5; ++n) {            // a wrap between the second and the third
        unit.ms(400'000);
        unit.in([&] { EXPECT_EQ(tuHwIf_readGpsOutTime(period, time), 0); });
        EXPECT_NEAR(time - first, 400.0 * n, 0.1) << n;
    }
}

TEST(GpsOut, TheOtherProtocolSendsTwoFramesASecond)
{
    OutUnit unit;
    unit.start(2);
    unit.ms(5'100);
    unit.pulse(3);
    ASSERT_EQ(unit.heard.size(), 6u);
    EXPECT_EQ((unit.heard[1].at - unit.heard[0].at) / ose::MS, 199);
    EXPECT_EQ(unit.look().counters.numberOfBytesSent, 6u * 23);
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

TEST(GpsOut, ACounterThatCantBeReadIsToldAndTheOutputGoesOn)
{
    constexpr const char *READ = "Unable to read register", *ADJUST = "Failed to adjust GPS OUT counter";
    OutUnit unit;
    unit.start(1);
    unit.node.board().faults.outputMfn = 25;
    unit.call([] { KvdLoz6GpsOut_timeStepped(); });
    EXPECT_EQ(unit.node.traces().count({ADJUST}), 0u) << "nothing is known of the time yet";
    unit.regulator(TRUETIME);
    unit.pulse();                             // arms
    EXPECT_TRUE(unit.heard.empty());
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
                          Case{2, 2, {"CMCC TOD timer failed", "CMCC TOD state timer failed"}}}) {
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

// Without a loop it gives nothing; where the master follows the link, nothing goes back.
TEST(GpsOut, ASlaveFollowsWhatTheMasterSaysWhileItsLoopHolds)
{
    constexpr u32 ANY = 9;
    struct Step { const char* what; u32 loop; u8 regState, selectedRef; u32 state, isOn, enabled; };
    OutUnit unit(0);
    unit.start(1);
    unit.ms(5'100);
    for (const Step& step : std::to_array<Step>({
             {"no loop",           SLAVE_PLL_Unlocked, TRUETIME,   GPS_REF,    3, ANY, ANY},
             {"true time",         SLAVE_PLL_Locked,   TRUETIME,   GPS_REF,    5, ANY, ANY},
             {"lost, not aligned", SLAVE_PLL_Locked,   TIMELOCKED, GPS_REF,    3, ANY, ANY},
             {"loop lost",         SLAVE_PLL_Unlocked, TRUETIME,   GPS_REF,    3, ANY, ANY},
             {"again",             SLAVE_PLL_Locked,   TRUETIME,   GPS_REF,    5, 1, 1},
             {"by the link",       SLAVE_PLL_Locked,   TRUETIME,   GPSOSL_REF, 5, 0, 0},
             {"no more",           SLAVE_PLL_Locked,   TRUETIME,   GPS_REF,    5, 0, 1}})) {
        SCOPED_TRACE(step.what);
        unit.call([&] { pll::vars().currSlaveState = step.loop; });
        unit.master(step.regState, 10, step.selectedRef);
        EXPECT_EQ(unit.state(), step.state);
        if (step.isOn == ANY) continue;
        EXPECT_EQ(unit.isOn(), step.isOn != 0);
        EXPECT_EQ(unit.isInterruptEnabled(), step.enabled != 0);
    }
    unit.regulator(FREQDRIFTING);                      // its own regulator doesn't count
    EXPECT_EQ(unit.state(), 5u);
    for (const u32 jump : {0u, 1u}) {
        unit.call([=] { gpsout::state().master.jumpIndication = jump; });
        unit.heard.clear();
        unit.pulse();
        ASSERT_FALSE(unit.heard.empty());
        EXPECT_EQ(unit.heard[0].text.substr(0, 22), "$PNVX,GPout,10," + std::to_string(jump) + ",1,0,1");
    }
    unit.call([] { gpsout::remoteStateOf(14); });
    EXPECT_TRUE(unit.node.traces().has("radioClockState= 14"));
    for (const auto& [regState, state] :
         {std::pair{TIMELOCKED, 4u}, {WARMUP, 3u}, {TRUETIME, 5u}, {WARMUP, 3u}}) {
        unit.master(regState, 1, GPS_REF);               // aligned by the pulses before
        EXPECT_EQ(unit.state(), state);
    }
}

}  // namespace
