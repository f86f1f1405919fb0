// The time input: what a frame that is none does, the way of the state up and down, what the main processor
// is told, the measurement.
#include "tests/refs/hptsi_line.h"

#include "reg/support/measure_bench.h"
#include "sig/tuiif_sig.h"

#include <functional>

namespace {

using namespace hptsi;
using bench::Bytes;
using bench::HptsiUnit;
using bench::infoFrame;
using bench::RAW_1PPS;
using bench::stateFrame;
using Statuses = std::vector<std::string>;

Bytes first(const Bytes& bytes, std::size_t count)
{
    return Bytes(bytes.begin(), bytes.begin() + static_cast<long>(count));
}

/// Straight to the manager, as a serial process might.
void frameSignal(HptsiUnit& unit, const Bytes& bytes, u32 length, u32 buffer)
{
    std::vector<std::byte> sig(buffer);
    const SIGSELECT number = KVD_TUHPTSI_CMCC_FRAME_REC;
    std::memcpy(sig.data(), &number, 4);
    if (buffer >= 8) std::memcpy(sig.data() + 4, &length, 4);
    for (std::size_t i = 0; i < bytes.size() && 8 + i < buffer; ++i) sig[8 + i] = std::byte{bytes[i]};
    unit.node.system().inject(sig, unit.manager(), 0);
    unit.ms(1);
}

TEST(HptsiFrame, ARejectedOneDoesNothingAndTheNextIsTaken)
{
    HptsiUnit unit;
    unit.feed(infoFrame(1), 5);                         // the first of a pair
    frameSignal(unit, stateFrame(), 25, 33);
    frameSignal(unit, stateFrame(), 7, 16);
    frameSignal(unit, stateFrame(), 1000, 28);          // no frame's length, and more than its signal has
    EXPECT_EQ(unit.traces("Recv cmcc of len="), 3u);
    EXPECT_EQ(unit.traces("Invalid frame received"), 3u);
    frameSignal(unit, stateFrame(), 20, 27);            // one byte more than its signal has
    EXPECT_EQ(unit.traces("frame longer than its signal"), 1u);
    for (const u32 length : {8u, 24u}) EXPECT_TRUE(KvdLoz6TuHptsi_isFrameLength(length));
    frameSignal(unit, {}, 0, 8);                        // shorter than its layout
    Bytes unknown = stateFrame();
    unknown[3] = 4;
    unit.feed(unknown, 5);
    EXPECT_EQ(unit.traces("unexpected state"), 1u);
    const State before = unit.state();
    EXPECT_EQ(before.hptsiState, WAIT_FOR_FRAMES);
    EXPECT_EQ(before.numberOfTimeStateMsg, 0u);
    EXPECT_EQ(before.nextFrame, NEXT_INFO_CAME);
    unit.feed(stateFrame(), 5);
    EXPECT_EQ(unit.hptsiState(), OPERATIONAL);
}

TEST(HptsiFrame, TwoOfAKindAreOneFirst)
{
    struct Case { const char* what; std::vector<std::pair<bool, i64>> frames; u32 state; };   // info, then ms
    const Case cases[] = {
        {"two infos", {{true, 1000}, {true, 1000}}, WAIT_FOR_FRAMES},
        {"two states", {{false, 1000}, {false, 1000}}, WAIT_FOR_FRAMES},
        {"the second of them begins the wait anew", {{true, 1000}, {true, 1000}, {false, 1}}, OPERATIONAL},
        {"state first", {{false, 800}, {true, 1}}, OPERATIONAL},
        {"within 1.1 s", {{true, 1099}, {false, 1}}, OPERATIONAL},
        {"not within", {{true, 1101}, {false, 1}}, WAIT_FOR_FRAMES},
        {"the late one is a first", {{true, 1101}, {false, 500}, {true, 1}}, OPERATIONAL},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        HptsiUnit unit;
        for (const auto& [isInfo, then_ms] : c.frames)
            unit.feed(isInfo ? infoFrame(++unit.tow) : stateFrame(), then_ms);
        EXPECT_EQ(unit.hptsiState(), c.state);
    }
}

// ---- states, timers, status ---------------------------------------------------------------------

TEST(HptsiState, FallsAndTellsWhy)
{
    constexpr const char* SILENT = "2 No time state nor time info messages received";
    const auto unusableInfo = [](HptsiUnit& u) { u.pp1sState = 2, u.seconds(5); };
    const auto unusableState = [](HptsiUnit& u) { u.sourceState = 0x80, u.seconds(4); };
    const auto infosAlone = [](HptsiUnit& u) { for (int i = 0; i < 6; ++i) u.feed(infoFrame(++u.tow), 999); };
    const auto noPulse = [](HptsiUnit& u) { u.toggles(0), u.seconds(6); };
    const auto silence = [](HptsiUnit&) {};
    struct Case {
        const char* what;
        std::function<void(HptsiUnit&)> fault;
        i64 more_ms;
        u32 state;
        const char* status;
    };
    const Case cases[] = {
        // The last good info lies 999 ms back, the last state 799 ms.
        {"time info unusable, 6.05 s", unusableInfo, 55, OPERATIONAL, "1 OK"},
        {"and beyond", unusableInfo, 60, OPERATIONAL, "2 No usable time received"},
        {"time state unusable, 5.1 s", unusableState, 300, OPERATIONAL, "1 OK"},
        {"and beyond", unusableState, 310, OPERATIONAL, "2 Monitor alarm"},
        {"silence, 5 s", silence, 4'200, OPERATIONAL, "1 OK"},
        {"and beyond", silence, 4'205, WAIT_FOR_FRAMES, SILENT},
        {"infos alone", infosAlone, 0, WAIT_FOR_FRAMES, SILENT},
        {"no pulse", noPulse, 0, OPERATIONAL_WITH_VALID_TIME, "2 Loss of signal"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        HptsiUnit unit;
        unit.seconds(6);
        ASSERT_EQ(unit.hptsiState(), OPERATIONAL_WITH_VALID_TIME);
        ASSERT_EQ(unit.status(), "1 OK");
        c.fault(unit);
        unit.ms(c.more_ms);
        EXPECT_EQ(unit.hptsiState(), c.state);
        EXPECT_EQ(unit.status(), c.status);
        unit.toggles(RAW_1PPS);
        unit.pp1sState = 0;
        unit.sourceState = 5;
        unit.seconds(13);                               // a path takes ten seconds to come back
        EXPECT_EQ(unit.hptsiState(), OPERATIONAL_WITH_VALID_TIME);
        EXPECT_EQ(unit.status(), "1 OK");
    }
}

TEST(HptsiState, TheTimeEndsASecondAfterTheLastInfo)
{
    HptsiUnit unit;
    unit.seconds(2);
    unit.feed(infoFrame(500), 999);
    EXPECT_EQ(unit.hptsiState(), OPERATIONAL_WITH_VALID_TIME);
    unit.ms(2);
    EXPECT_EQ(unit.hptsiState(), OPERATIONAL);
    EXPECT_EQ(unit.state().hptsiCurrentTime, 0.0);
    EXPECT_EQ(unit.traces("HPTSI STATE OPERATIONAL"), 0u) << "each second, at a level of its own";
}

TEST(HptsiState, AlarmsWaitFourSecondsAtTheStart)
{
    HptsiUnit unit;
    EXPECT_EQ(unit.statuses(), (Statuses{"1 OK"}));     // forced, so that the main processor hears something
    unit.ms(3'980);
    EXPECT_EQ(unit.statuses().size(), 1u);
    unit.ms(20);
    EXPECT_EQ(unit.status(), "2 No time state nor time info messages received");

    HptsiUnit dark(0);
    EXPECT_EQ(dark.status(), "2 Loss of signal");       // that one doesn't
}

TEST(HptsiState, GoesOnWithoutTimersAndNamesThem)
{
    HptsiUnit unit(RAW_1PPS, false);
    const auto refuse = [&](u32 count) { unit.node.system().faults().refuseTimers = count; };
    refuse(1);
    unit.supervise(HPTSI_REF, true);
    unit.ms(1);
    EXPECT_EQ(unit.traces("Timer alarmSupression failed to start!"), 1u);
    unit.feed(infoFrame(1), 5);
    refuse(3);
    unit.feed(stateFrame(), 5);
    EXPECT_EQ(unit.hptsiState(), OPERATIONAL);
    for (const char* name : {"hptsiNoValid", "hptsiMonitor", "Hptsi Operational"})
        EXPECT_EQ(unit.traces(std::string("Timer ") + name + " failed to start!"), 1u) << name;
    refuse(2);
    unit.feed(infoFrame(2), 5);
    EXPECT_EQ(unit.hptsiState(), OPERATIONAL_WITH_VALID_TIME);
    EXPECT_EQ(unit.traces("Timer hptsiValid failed to start!"), 1u);
}

// ---- supervision --------------------------------------------------------------------------------

TEST(HptsiSupervision, OpensTheLineOnceAndEndsAllOfIt)
{
    HptsiUnit unit;
    std::vector<std::pair<u32, u32>> settings;
    for (const node::SerialSetting& s : unit.node.serial().settings()) settings.emplace_back(s.key, s.value);
    EXPECT_EQ(settings, (std::vector<std::pair<u32, u32>>{{0x1000, 9600}, {0x1001, 3000}, {0x1002, 5},
                                                          {0x1003, 8}, {0x1004, 1}, {0x1005, 'N'},
                                                          {0x1006, 0xFFFFFFFF}}));
    EXPECT_NE(unit.node.system().find("TuHptsiInt_proc"), 0u);
    unit.supervise(HPTSI_REF, true);
    EXPECT_EQ(unit.traces("reference already supervised"), 1u);
    unit.seconds(3);
    unit.feed(first(infoFrame(9), 10), 5);              // what was begun isn't continued
    EXPECT_NE(unit.tuiifRefState() & 0x200, 0u);
    unit.node.serial().closeResult = 0x17;
    unit.supervise(HPTSI_REF, false);
    unit.ms(5);
    EXPECT_EQ(unit.traces("err = 0x17"), 1u);
    EXPECT_EQ(unit.hptsiState(), UN_INIT);
    EXPECT_EQ(unit.refStatus(7), REF_STATUS_UNK);
    EXPECT_EQ(unit.tuiifRefState() & 0x200, 0u);
    EXPECT_EQ(unit.node.mainProcessor().status().refState & 0x200, 0u);
    EXPECT_FALSE(unit.node.serial().isOpen());
    for (const KvdTimer& t : unit.state().timers) EXPECT_FALSE(t.runs());
    const Statuses told = unit.statuses();
    unit.ms(10'000);
    EXPECT_EQ(unit.statuses(), told);
}

TEST(HptsiSupervision, ANewMainProcessorFindsTheInputRunning)
{
    HptsiUnit unit;
    unit.seconds(3);
    unit.node.mainProcessor().restart(2 * ose::SEC);
    unit.seconds(6);
    ASSERT_TRUE(unit.node.mainProcessor().connected());
    EXPECT_EQ(unit.hptsiState(), OPERATIONAL_WITH_VALID_TIME);
    unit.node.mainProcessor().clearLog();
    unit.seconds(2);
    EXPECT_EQ(unit.statuses(), Statuses{});             // not supervised any more
    unit.supervise(HPTSI_REF, true);
    unit.ms(5);
    EXPECT_EQ(unit.statuses(), (Statuses{"1 OK"}));
    EXPECT_EQ(unit.qualities(), (std::vector<u32>{1}));
}

// ---- the main processor and the operator --------------------------------------------------------

TEST(HptsiClient, AttributesAndDelay)
{
    HptsiUnit unit;
    unit.toManager(KvdTuiifSetDelayInd{KVD_TUIIF_SET_HPTSI_DELAY_IND, 65'535});
    unit.feed(infoFrame(77, 2245, 1, -3, 200), 5);
    unit.feed(stateFrame(5, 2, 0x0442), 5);
    unit.toManager(KvdTuiifGpsAttribReq{0x9C041, 21});
    unit.ms(1);
    const auto cfm = unit.node.mainProcessor().last(0x9C042)->as<KvdTuiifHptsiAttribCfm>();
    ASSERT_TRUE(cfm);
    const std::vector<i64> got = {cfm->froId, cfm->hptsiCompensationDelay, cfm->leapSec, cfm->ppsState,
                                  cfm->stateOfClockSource, cfm->monitorAlarm, cfm->jitterLevel,
                                  cfm->clockSource};
    EXPECT_EQ(got, (std::vector<i64>{21, 65'535, -3, 1, 5, 0x0442, 200, 2}));
}

TEST(HptsiClient, TheOperatorsClockSourceActsFromTheNextFrame)
{
    HptsiUnit unit;
    std::string output;
    unit.feed(stateFrame(5, 1, 0x21), 5);
    EXPECT_EQ(unit.node.shell().run("genhptsisource 0x04", output), 0);
    EXPECT_EQ(unit.qualities(), (std::vector<u32>{99, 1}));
    unit.feed(stateFrame(5, 1, 0x21), 5);
    unit.feed(stateFrame(5, 1, 0x21), 5);
    EXPECT_EQ(unit.qualities(), (std::vector<u32>{99, 1, 4}));
    output.clear();
    unit.node.shell().run("kvdinfo tuhptsi", output);
    for (const char* text : {"clkSource override     : 4", "numberOfBytesRec       : 69"})
        EXPECT_NE(output.find(text), std::string::npos) << text << "\n" << output;
    EXPECT_EQ(unit.node.shell().run("genhptsisource stop", output), 0);
    unit.feed(stateFrame(5, 0), 5);
    EXPECT_EQ(unit.qualities(), (std::vector<u32>{99, 1, 4, 0}));
}

// ---- measurement --------------------------------------------------------------------------------

/// Pulses by hand, with the source's time for each.
struct Measure : regtest::MeasureBench {
    double edgeTime = 200.0;
    double sourceTime = 1'357'776'000.0;

    Measure()
    {
        settle();
        select(TU_SR_HPTSI_REF);
        put([](State& s) { s.hptsiState = OPERATIONAL_WITH_VALID_TIME; });
    }
    void put(const std::function<void(State&)>& change) { in([&] { change(hptsi::state()); }); }
    void second(double off = 0.0)
    {
        edgeTime += 1.0;
        sourceTime += 1.0;
        put([&](State& s) { s.hptsiCurrentTime = sourceTime + off; });
        edge(edgeTime);
    }
};

TEST(HptsiMeasurement, DelaysNoiseAndZero)
{
    Measure bench;
    bench.in([] { regulator::state().sfcGpsOffset = 1'000'000'000.0; });
    for (int i = 0; i < 4; ++i) bench.second();
    EXPECT_NEAR(bench.meas().delta0_c + bench.meas().delta0_f, 204.0 - 357'776'004.0, 1e-6);
    // The latch is 32 ns behind the connector and reads in the middle of an increment, 4.069 ns.
    EXPECT_NEAR(bench.meas().measRefData.z, -27.931e-9, 1e-7);
    bench.in([] { hptsi::setCompensationDelay(60'000); });
    bench.second();
    EXPECT_NEAR(bench.meas().measRefData.z, -60.027931e-6, 1e-7);
    const double m = bench.meas().m[Z_HPTSI_REF];
    bench.in([] { hptsi::setCompensationDelay(60'000); });
    EXPECT_EQ(bench.meas().m[Z_HPTSI_REF], m) << "no step";
    EXPECT_GT(m, 0.0);
    bench.put([](State& s) { s.hptsiState = OPERATIONAL; });
    bench.second(5.0);                                  // no time: within the second
    EXPECT_NEAR(bench.meas().measRefData.z, -60e-6, 1e-6);
    bench.put([](State& s) { s.hptsiState = OPERATIONAL_WITH_VALID_TIME; });
    bench.select(TU_SR_PDH_REF1);                       // after another reference the time counts at once
    bench.select(TU_SR_HPTSI_REF);
    bench.second();
    EXPECT_EQ(bench.meas().t_mod_old, 4294967296.0);
    struct Case { double stored, used; };
    for (const Case& c : std::to_array<Case>({{1.1e-14, 1e-14}, {3e-15, 3e-15}, {9e-16, 1e-15}})) {
        bench.edit([&](measure::State& s) { s.var.R_all[18] = c.stored; });
        bench.second();
        EXPECT_EQ(bench.meas().measRefData.R, c.used) << c.stored;
    }
}

}  // namespace
