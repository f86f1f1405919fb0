// From silence on the line to a time at each pulse, and back: detection, states, timers, history,
// observation mode, end of supervision.
#include "gps_unit.h"

#include "sig/gps_sig.h"
#include "sig/tuiif_sig.h"

namespace {

using namespace bench;

std::string repeat(const std::string& text, u32 times)
{
    std::string all;
    while (times-- > 0) all += text;
    return all;
}

TEST(GpsDetection, SettlesTheKindOfReceiver)
{
    const std::string gga =
        nmea("GPGGA,123519,4807.0380,N,01131.0000,E,1,08,000.9,000545.4,M,0046.9,M,,");
    struct Case { const char* what; std::string says; u32 gpssType; u32 gpsState; };
    for (const Case& c : std::to_array<Case>({
             {"silence", "", 0, 3},
             {"the first isn't looked at", GPSTS_HOLD, 0, 4},
             {"position alone", "$\r" + repeat(gga, 12), 0, 4},
             {"not valid", "$\r$PNVX,GPppr,000001*00\r\n", 0, 4},
             {"GPppr, then GPsts", "$\r" + gpppr(1) + GPSTS_HOLD, 2, 5},
             {"GPsts first", "$\r" + GPSTS_HOLD + gpppr(1), 2, 5},
             {"GPppr eight times", "$\r" + repeat(gpppr(1), 8), 3, 4},
             {"GPppr nine times", "$\r" + repeat(gpppr(1), 9), 4, 5},
             {"GPsts as the ninth", "$\r" + repeat(gpppr(1), 8) + GPSTS_HOLD, 2, 5},
             {"GPtps eight times", "$\r" + repeat(gptps(1), 8), 5, 4},
             {"GPtps nine times", "$\r" + repeat(gptps(1), 9), 1, 5},
             {"GPtps and GPsts", "$\r" + gptps(1) + GPSTS_HOLD, 6, 5},
             {"eight others count too", "$\r" + repeat(gga, 8) + gpppr(1), 4, 5}})) {
        SCOPED_TRACE(c.what);
        GpsUnit unit;
        unit.say(c.says, 20);
        EXPECT_EQ(unit.gpssType(), c.gpssType);
        EXPECT_EQ(unit.gpsState(), c.gpsState);
    }
}

TEST(GpsMachine, FallsBackWhenTheReceiverFallsSilent)
{
    GpsUnit unit;
    unit.typeAsCombined();
    unit.ms(59'900);
    EXPECT_EQ(unit.gpsState(), 5u);
    unit.ms(200);
    EXPECT_EQ(unit.gpsState(), 3u);                  // typed, but no timing sentence came
    EXPECT_EQ(unit.gpssType(), 0u);
    EXPECT_EQ(unit.receiver().gpssType_backup, 2u);

    unit.say("$\r");
    unit.ms(59'900);
    EXPECT_EQ(unit.gpsState(), 4u);
    unit.ms(200);
    EXPECT_EQ(unit.gpsState(), 3u);                  // one string of no use

    unit.becomeOperational();
    EXPECT_EQ(unit.gpsState(), 6u);
    unit.say(gpppr(200), 790);
    EXPECT_EQ(unit.gpsState(), 7u);
    EXPECT_EQ(unit.receiver().gpsCurrentTime, 1357776200.0);   // 2245 weeks and 200 s
    unit.ms(20);
    EXPECT_EQ(unit.gpsState(), 6u);
    EXPECT_EQ(unit.receiver().gpsCurrentTime, 0.0);
    unit.ms(119'100);
    EXPECT_EQ(unit.gpsState(), 6u);
    unit.ms(200);
    EXPECT_EQ(unit.gpsState(), 5u);
    unit.ms(59'800);
    EXPECT_EQ(unit.gpsState(), 5u);
    unit.ms(300);
    EXPECT_EQ(unit.gpsState(), 3u);
}

TEST(GpsMachine, WithoutUsableTimeHoldsBelowOperational)
{
    GpsUnit unit;
    unit.typeAsCombined();
    for (u32 i = 0; i < 200; ++i) unit.say(gpppr(i, 3), 1000);
    EXPECT_EQ(unit.gpsState(), 5u);
    unit.say(gpppr(201, 1));                         // free running: its pulses count
    unit.say(gpppr(202, 1));
    EXPECT_EQ(unit.gpsState(), 7u);
    unit.say(gpppr(203, 0, 1), 100);                 // faulty: taken, but keeps nothing alive
    unit.ms(800);
    EXPECT_EQ(unit.gpsState(), 6u);
}

TEST(GpsMachine, LateSentencesLeaveOneRowOfHistory)
{
    GpsUnit unit;
    unit.becomeOperational();
    unit.talk(5);
    unit.talk(20, 1000);                             // drops back each second
    EXPECT_EQ(unit.gpsState(), 6u);
    unit.say(gpppr(++unit.tow));
    const std::vector<u32> up{7, 6, 5, 4, 3, 2};
    EXPECT_EQ(unit.history(), up);
    const auto times = unit.node.inProgram([] {
        return std::pair<std::string, std::string>{KvdLoz6TuGps_stateHistory(0).time,
                                                   KvdLoz6TuGps_stateHistory(1).time};
    });
    EXPECT_LT(times.second, times.first);            // both of the last drop, 0.2 s apart
    EXPECT_EQ(times.first.substr(0, 17), times.second.substr(0, 17));

    unit.ms(121'000);                  // the last drop gets its row before what follows
    const std::vector<u32> down{5, 6, 7, 6, 5, 4, 3, 2};
    EXPECT_EQ(unit.history(), down);
    unit.supervise(GPS_REF, false);
    unit.supervise(GPS_REF, true);
    unit.ms(5);
    const std::vector<u32> full{3, 2, 1, 5, 6, 7, 6, 5, 4, 3};   // the oldest fell out
    EXPECT_EQ(unit.history(), full);
}

TEST(GpsMachine, FollowsAChangeOfProtocol)
{
    GpsUnit unit;
    unit.becomeOperational();
    unit.talk(2);
    const std::string gpver = nmea("PNVX,GPver,GPS02,1,R1A,110624");
    struct Case { std::string says; u32 gpssType; };
    for (const Case& c : std::to_array<Case>({{gptps(300), 1}, {gpver, 6}, {gpppr(301), 2}})) {
        unit.say(c.says);
        EXPECT_EQ(unit.gpssType(), c.gpssType);
        EXPECT_EQ(unit.gpsState(), 7u);
    }
}

TEST(GpsMachine, EndOfSupervisionStopsAllOfIt)
{
    const std::string steps[] = {"", "$\r", gpppr(1), GPSTS_HOLD, gpppr(2), gpppr(3)};
    const u32 states[] = {3, 4, 4, 5, 6, 7};
    for (std::size_t last = 0; last < std::size(steps); ++last) {
        SCOPED_TRACE(last);
        GpsUnit unit;
        for (std::size_t i = 0; i <= last; ++i) unit.say(steps[i]);
        ASSERT_EQ(unit.gpsState(), states[last]);
        unit.supervise(GPS_REF, false);
        EXPECT_EQ(unit.gpsState(), 1u);
        EXPECT_FALSE(unit.node.serial().isOpen());
        EXPECT_EQ(unit.gpssType(), 0u);
        const std::size_t told = unit.statuses().size();
        unit.say(gpppr(4), 200'000);
        EXPECT_EQ(unit.gpsState(), 1u);
        EXPECT_EQ(unit.statuses().size(), told);
        // A time-out that was on its way when supervision ended.
        for (const SIGSELECT late : {0x9C600u, 0x9C601u, 0x9C602u, 0x9C603u, 0x9C605u, 0x9C606u})
            unit.toManager(Signal{late});
        EXPECT_EQ(unit.gpsState(), 1u);
        unit.supervise(GPS_REF, false);
        EXPECT_EQ(unit.traces("reference already supervised"), 1u);
        unit.supervise(GPS_REF, true);
        unit.ms(5);
        EXPECT_EQ(unit.gpsState(), 3u);
    }
}

TEST(GpsMachine, StaysWithoutALineAndGoesOnWithoutTimers)
{
    GpsUnit unit;
    unit.supervise(GPS_REF, false);
    unit.node.serial().openResult = 5;
    unit.supervise(GPS_REF, true);
    EXPECT_EQ(unit.gpsState(), 1u);
    EXPECT_EQ(unit.traces("Unsuccessful call to HALI_subscribeSerialPort"), 1u);
    EXPECT_EQ(unit.statuses().back(), "2 Unknown error");
    EXPECT_EQ(unit.traces("Unhandled combination(gps1,ref6)"), 1u);

    unit.supervise(GPS_REF, false);
    unit.node.serial().openResult = 0;
    unit.supervise(GPS_REF, true);
    unit.ms(5);
    EXPECT_EQ(unit.gpsState(), 3u);
    unit.node.system().faults().refuseTimers = 2;    // of the alarm's text, of the state
    unit.say("$\r");
    EXPECT_EQ(unit.traces("Timer waitForValidTmoRef failed to start!"), 1u);
    unit.ms(70'000);
    EXPECT_EQ(unit.gpsState(), 4u);
    unit.say(gpppr(1));
    unit.node.system().faults().refuseTimers = 2;
    unit.say(GPSTS_HOLD);
    EXPECT_EQ(unit.traces("Timer additionalInfoSuprTmoRef failed to start!"), 2u);
    EXPECT_EQ(unit.traces("Timer waitForOperationalTmoRef failed to start!"), 1u);
    EXPECT_EQ(unit.gpsState(), 5u);
}

TEST(GpsMachine, RefusesAMadeUpSentence)
{
    GpsUnit unit;
    for (const u32 length : {4u, 0xFFFFFFFFu, 0x7FFFFFFFu})       // beyond the buffer
        unit.toManager(KvdTugpsNmeaMsgRec{KVD_TUGPS_NMEA_MSG_REC, length, {'x'}});
    unit.toManager(Signal{KVD_TUGPS_NMEA_MSG_REC});
    EXPECT_EQ(unit.gpsState(), 3u);
    unit.toManager(KvdTugpsNmeaMsgRec{KVD_TUGPS_NMEA_MSG_REC, 0, {'\0'}});
    EXPECT_EQ(unit.gpsState(), 4u);
}

TEST(GpsMode, IsAskedForAgainAfterSixTimingSentences)
{
    struct Case {
        const char* what;
        std::string status;
        bool fixed;
        u32 timing;              // sentences until the setup goes out, 0 never
        std::string setup;
    };
    for (const Case& c : std::to_array<Case>({
             {"holds as wanted", GPSTS_HOLD, true, 0, ""},
             {"surveys against the wish", GPSTS_SURVEY, true, 6, "$PNVX,GPmod,1*50\r\n"},
             {"is on its way to holding", nmea("PNVX,GPsts,1,0,0,00001"), true, 0, ""},
             {"surveys as wanted", GPSTS_SURVEY, false, 0, ""},
             {"holds against the wish", GPSTS_HOLD, false, 6, "$PNVX,GPmod,2*53\r\n"}})) {
        SCOPED_TRACE(c.what);
        GpsUnit unit;
        unit.becomeOperational();
        unit.toManager(
            KvdTuiifSetFixedPositionInd{KVD_TUIIF_SET_FIXED_POSITION_IND, c.fixed ? 1u : 0u});
        unit.say((c.fixed ? GPSTS_HOLD : GPSTS_SURVEY) + gpppr(++unit.tow));
        unit.say(c.status, 3000);
        unit.written.clear();
        for (u32 i = 0; i + 1 < (c.timing != 0 ? c.timing : 10); ++i) unit.say(gpppr(++unit.tow));
        unit.ms(2000);
        EXPECT_EQ(unit.written, "");
        unit.say(gpppr(++unit.tow), 2000);
        EXPECT_EQ(unit.written, c.setup);
    }
}

TEST(GpsMode, HeldPositionIsToldOnceAHold)
{
    GpsUnit unit;
    const auto told = [&] { return unit.node.mainProcessor().count(KVD_TUIIF_FIXED_POSITION_IND); };
    unit.becomeOperational();
    unit.talk(3);
    EXPECT_EQ(told(), 0u) << "held, but nobody knows where";
    unit.say(nmea("PNVX,GPavp,4807.0380,N,01131.0000,E,00545.4,00"));
    unit.talk(3);
    ASSERT_EQ(told(), 1u);
    const auto ind = unit.node.mainProcessor().last(KVD_TUIIF_FIXED_POSITION_IND)->as<KvdTuiifFixedPositionInd>();
    EXPECT_EQ(ind->froId, 0u);
    EXPECT_EQ(ind->latitude.deg, 48);
    EXPECT_EQ(ind->longitude.min, 31);
    double altitude_m = 0;
    std::memcpy(&altitude_m, ind->altitude, sizeof altitude_m);
    EXPECT_EQ(altitude_m, 545.4);
    unit.say(GPSTS_SURVEY);
    unit.talk(1);
    unit.say(GPSTS_HOLD);
    unit.talk(3);
    EXPECT_EQ(told(), 2u);
}

TEST(GpsMode, WishNeedsALineAndAReceiverThatUnderstands)
{
    GpsUnit unit;
    const KvdTuiifSetFixedPositionInd survey{KVD_TUIIF_SET_FIXED_POSITION_IND, 0};
    unit.say("$\r");
    for (u32 i = 0; i < 9; ++i) unit.say(gptps(i));
    ASSERT_EQ(unit.gpssType(), 1u);
    unit.toManager(survey);
    unit.ms(2000);
    EXPECT_EQ(unit.written, "");
    for (u32 i = 0; i < 10; ++i) unit.say(gptps(i));   // holds: the wish wasn't stored
    EXPECT_EQ(unit.traces("GPSS not in Survey mode, resending setup"), 0u);
    unit.supervise(GPS_REF, false);
    unit.toManager(survey);
    EXPECT_EQ(unit.traces("Serial port unitialised, no data sent to GPSS."), 1u);
}

}  // namespace
