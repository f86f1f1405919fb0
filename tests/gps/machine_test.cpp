// A receiver on a unit's line, from silence to a time at each pulse and back: what ends it, what refused
// timers leave, what the main processor is told, recovery at its edges; the line's settings and its end, the
// pacing of what is sent.
#include "gps/kvd_gps_hrv_supervision.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_recovery.h"
#include "gps/kvd_gps_send.h"
#include "gps/kvd_gps_serial.h"
#include "sig/gps_sig.h"
#include "tests/gps/gps_unit.h"

#include <sstream>

namespace {

using namespace bench;

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

    unit.node.inProgram([] {                         // ten changes are kept, whichever row is asked for
        for (u32 state = 3; state < 15; ++state) KvdLoz6TuGps_storeGpsState(state % 2 + 3);
        EXPECT_EQ(KvdLoz6TuGps_stateHistoryCount(), GPS_STATE_HISTORY);
        for (u8 row = 0; row < GPS_STATE_HISTORY; ++row)       // it ends with 14 % 2 + 3
            EXPECT_EQ(KvdLoz6TuGps_stateHistory(row).state, row % 2 + 3u);
        EXPECT_EQ(&KvdLoz6TuGps_stateHistory(99), &KvdLoz6TuGps_stateHistory(GPS_STATE_HISTORY - 1));
        EXPECT_NE(&KvdLoz6TuGps_stateHistory(9), &KvdLoz6TuGps_stateHistory(8));
        return 0;
    });
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
        unit.toManager(KvdTuiifSetTestModeInd{KVD_TUIIF_SET_TEST_MODE_IND, 1});
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
    for (const int result : {5, 0}) {
        unit.node.serial().openResult = result;
        unit.supervise(GPS_REF, true);
        unit.ms(5);
        EXPECT_EQ(unit.gpsState(), result == 0 ? 3u : 1u);
        if (result == 0) break;
        EXPECT_EQ(unit.statuses().back(), "2 Unknown error");
        EXPECT_EQ(unit.traces("Unhandled combination(gps1,ref6)"), 1u);
        unit.supervise(GPS_REF, false);
    }
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

TEST(GpsMode, IsSetUpAnewAtTheSixthReportOfAUsableTimeInAnother)
{
    constexpr u32 NO_TIME = 3;                       // the pulse isn't synchronised
    GpsUnit unit;
    const auto setUps = [&] { return unit.traces("not in Fixed Observation Point mode, resending setup"); };
    unit.typeAsCombined();
    unit.say(GPSTS_SURVEY);
    for (u32 i = 0; i < 7; ++i) unit.say(gpppr(++unit.tow, NO_TIME));
    for (u32 i = 0; i < 5; ++i) unit.say(gpppr(++unit.tow));
    EXPECT_EQ(setUps(), 0u) << "a receiver without time surveys for good reason";
    unit.say(gpppr(++unit.tow));
    EXPECT_EQ(setUps(), 1u);
}

TEST(GpsMode, HeldPositionIsToldOnceAHold)
{
    GpsUnit unit;
    const auto told = [&] { return unit.node.mainProcessor().count(KVD_TUIIF_FIXED_POSITION_IND); };
    unit.becomeOperational();
    unit.talk(3);
    EXPECT_EQ(told(), 0u) << "held, but nobody knows where";
    unit.say(nmea("PNVX,GPavp,0000.0000,N,00031.0000,E,00545.4,00"));   // on the equator
    unit.talk(3);
    ASSERT_EQ(told(), 1u);
    const sim::MpRecord* const record = unit.node.mainProcessor().last(KVD_TUIIF_FIXED_POSITION_IND);
    const auto ind = record->as<KvdTuiifFixedPositionInd>();
    EXPECT_TRUE(ind->froId == 0 && ind->longitude.deg == 0 && ind->longitude.min == 31);
    double altitude_m = 0;
    std::memcpy(&altitude_m, ind->altitude, sizeof altitude_m);
    EXPECT_EQ(altitude_m, 545.4);
    unit.say(GPSTS_SURVEY);
    unit.talk(1);
    unit.say(GPSTS_HOLD);
    unit.talk(3);
    EXPECT_EQ(told(), 2u);
    unit.node.mainProcessor().restart(100 * ose::MS);
    unit.ms(50);
    unit.node.mainProcessor().clearLog();
    unit.talk(8);
    EXPECT_EQ(told(), 1u) << "and to each main processor";
}

TEST(GpsReport, SelfTestOfAFurunoUnit)
{
    GpsUnit unit;
    const auto test = [&](u8 code, u8 gppprCount) {
        unit.node.inProgram([&] {
            KvdLoz6TuGps_selfTestRecord().code = code;
            KvdLoz6TuGps_selfTestRecord().gppprCount = gppprCount;
        });
        // Past the next check and the delay of a changed text.
        for (u32 i = 0; i < 45; ++i) unit.say(gptps(++unit.tow), 800);
        return unit.statuses().back();
    };
    unit.say("$\r" + gptps(1) + GPSTS_HOLD);
    ASSERT_EQ(unit.gpssType(), 6u);
    struct Case { u8 code, gppprCount; const char* status; };
    for (const Case& c : std::to_array<Case>({{0x00, 0, "1 OK"},
                                              {0x02, 0, "1 OK"},                 // never tested
                                              {0x01, 1, "2 GPSS self-test failed (0x1)"},
                                              {0x05, 1, "2 GPSS self-test failed (0x5)"},
                                              {0x04, 1, "1 GPSS self-test result: OK"},
                                              {0xFB, 9, "2 GPSS self-test failed (0xFB)"},
                                              {0x00, 9, "1 GPSS self-test result: OK"}})) {
        SCOPED_TRACE(int{c.code});
        EXPECT_EQ(test(c.code, c.gppprCount), c.status);
    }
    unit.say(gpppr(1));                              // another protocol: no such test
    EXPECT_EQ(test(0x01, 1), "1 GPSS self-test result: OK");
}

TEST(GpsAttributes, AnswerWithThePositionOfTheMode)
{
    GpsUnit unit;
    unit.becomeOperational();
    unit.say(nmea("GPGGA,123519,4807.0380,N,01131.0000,E,1,08,000.9,000545.5,M,0046.9,M,,"));
    unit.say(nmea("PNVX,GPavp,3352.1234,S,15112.5678,W,000100,0000"));
    unit.say(nmea("GPGSV,1,1,01,07,45,123,41,,,,,,,,,,,,"));
    unit.toManager(KvdTuiifSetDelayInd{KVD_TUIIF_SET_DELAY_IND, 65535});
    const auto ask = [&] {
        unit.toManager(KvdTuiifGpsAttribReq{KVD_TUIIF_GPS_ATTRIB_REQ, 77});
        unit.ms(5);
        const sim::MpRecord* record = unit.node.mainProcessor().last(KVD_TUIIF_GPS_ATTRIB_CFM);
        return record->as<KvdTuiifGpsAttribCfm>().value();
    };
    using Values = std::vector<u32>;
    KvdTuiifGpsAttribCfm cfm = ask();
    EXPECT_EQ((Values{cfm.froId, cfm.gpsCompensationDelay, cfm.observationMode, cfm.satellitesInView}),
              (Values{77, 65535, 1, 1}));
    const auto& first = cfm.satellite[0];
    EXPECT_EQ((Values{first.svNo, first.azimuth, first.snr, cfm.satellite[1].svNo}), (Values{7, 123, 41, 0}));
    EXPECT_EQ((Values{cfm.latitude.deg, cfm.latitude.fractMin, cfm.latitude.dir}), (Values{33, 1234, 2}));
    EXPECT_EQ((Values{cfm.longitude.deg, cfm.longitude.dir}), (Values{151, 3}));

    unit.say(GPSTS_SURVEY);                          // on the move: the present position
    cfm = ask();
    double altitude = 0;
    std::memcpy(&altitude, cfm.altitude, sizeof altitude);
    EXPECT_EQ((Values{cfm.observationMode, cfm.latitude.deg, cfm.longitude.min}), (Values{0, 48, 31}));
    EXPECT_EQ(altitude, 545.5);
}

/// A typed receiver without a 1PPS.
struct SickUnit : GpsUnit {
    SickUnit() : GpsUnit(0)
    {
        typeAsCombined();
        EXPECT_EQ(state(), 1u);
    }
    u32 state() { return node.inProgram(KvdLoz6TuGps_recoveryState); }
    u32 unitState() { return node.inProgram(KvdLoz6TuGps_hrvState); }
    u32 attempts()
    {
        return node.inProgram([] { return KvdLoz6TuGps_recoveryCounters().totalAttemptedRecoveries; });
    }
    void firmware(const std::string& number) { say(nmea("PNVX,GPver,GRM,NUMBER,R1A," + number)); }
    void badPulse() { say(nmea("PNVX,GPsts,0,2,0,00001")); }
};

TEST(GpsRecovery, SeriesThatAreJudgedAgainDontRestartTheWaitForAGoodOne)
{
    SickUnit unit;
    unit.firmware("110624");
    for (u32 n = 0; n < 8; ++n) {
        unit.say(nmea("GPGSV,1,1,04,01,40,083,46,02,17,308,41,12,07,344,40,14,22,228,45"));
        unit.badPulse();
        unit.talk(11, 1000);
    }
    EXPECT_EQ(unit.state(), 2u);
    unit.talk(2, 1000);
    EXPECT_EQ(unit.state(), 5u);
}

TEST(GpsRecovery, LivesThroughAStopOfSupervisionAndOfATimer)
{
    for (const bool timerStarts : {true, false}) {
        SickUnit unit;
        unit.firmware("110624");
        unit.talk(91, 1000);
        ASSERT_EQ(unit.state(), 5u);                 // no satellites
        unit.node.system().faults().refuseTimers = timerStarts ? 0 : 1;
        unit.badPulse();
        EXPECT_EQ(unit.traces("Timer recoveryTimer didn't start properly."), timerStarts ? 0u : 1u);
        unit.supervise(GPS_REF, false);
        EXPECT_EQ(unit.state(), 3u);
        EXPECT_EQ(unit.attempts(), 1u);
        unit.ms(360'100);
        EXPECT_EQ(unit.state(), timerStarts ? 6u : 3u);
        unit.ms(4'000);
        EXPECT_EQ(unit.state(), timerStarts ? 0u : 3u);
        unit.node.restartWarm();
        unit.ms(5'000);
        EXPECT_EQ(unit.attempts(), 0u);
    }
}

TEST(GpsUnitSupervision, ATimerThatDoesntStartLeavesItWaiting)
{
    SickUnit unit;
    unit.toggles(RAW_1PPS);
    unit.talk(11, 1000);
    ASSERT_EQ(unit.unitState(), 0u);
    unit.toggles(0);
    unit.talk(59, 1000);
    unit.node.system().faults().refuseTimers = 5;    // whatever else starts one in this second
    unit.ms(2'000);
    unit.node.system().faults().refuseTimers = 0;
    EXPECT_EQ(unit.traces("Timer supervisionTimer didn't start properly."), 1u);
    unit.talk(2'000, 1000);
    EXPECT_EQ(unit.unitState(), 1u);
    unit.say(gptps(1) + nmea("PTNLRBA,1,1") + nmea("GPGSV,1,1,01,07,45,123,41,,,,,,,,,,,,"));
    unit.supervise(GPS_REF, false);
    EXPECT_EQ(unit.unitState(), 0u);
    std::string print;
    unit.node.shell().run("kvdinfo tugps", print);
    EXPECT_NE(print.find("      None"), std::string::npos) << "history of the unit's states";
    std::istringstream lines(print);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("   numberOf")) { EXPECT_TRUE(line.ends_with(": 0")) << line; }
}

// ---- the line ---------------------------------------------------------------------------------

using Writes = std::vector<std::string>;

int queue(bench::GpsLine& unit, const std::string& text)
{
    int result = -1;
    const auto length = static_cast<u32>(text.size());
    unit.in([&] { result = KvdLoz6TuGps_queueSentence(text.data(), length); });
    return result;
}

TEST(Sending, LetsTheWholeQueueGoOnceASecondInOneWrite)
{
    bench::GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    queue(unit, "$A\r\n");
    queue(unit, "$BC\r\n");
    EXPECT_EQ(unit.sent, Writes{});
    unit.run(1.0);
    EXPECT_EQ(unit.takeSent(), Writes{"$A\r\n$BC\r\n"});
    queue(unit, "$D\r\n");
    unit.run(3.0);
    EXPECT_EQ(unit.takeSent(), Writes{"$D\r\n"});
    const GpsSendCounters counted = unit.node.inProgram([] { return KvdLoz6TuGps_sendCounters(); });
    EXPECT_TRUE(counted.numberOfBytesQueued == 13 && counted.numberOfBytesSent == 13);

    queue(unit, "$lost\r\n");                  // the end of supervision empties the queue
    unit.supervise(GPS_REF, false);
    EXPECT_EQ(unit.node.inProgram([] { return KvdLoz6TuGps_sendCounters(); }).numberOfBytesSent, 0u);
    unit.toManager(Signal{0x9C608});           // on its way when supervision ended
    unit.run(0.5);
    unit.supervise(GPS_REF, true);
    queue(unit, "$E\r\n");
    unit.run(0.9);
    EXPECT_EQ(unit.sent, Writes{});
    unit.run(1.1);
    EXPECT_EQ(unit.takeSent(), Writes{"$E\r\n"});
}

TEST(Sending, LosesWhatTheLineRefusesAndGoesOn)
{
    bench::GpsLine unit(GPSS_FURUNO_GPS02, "120510");
    unit.node.serial().writeResult = 5;
    queue(unit, "$A\r\n");
    unit.run(3.0);
    EXPECT_EQ(unit.traces("Failed to send \"$A\r\n\" to GPS"), 1u);
    unit.node.serial().writeResult = 0;
    queue(unit, "$B\r\n");
    unit.run(1.0);
    EXPECT_EQ(unit.sent, Writes{"$B\r\n"});
    unit.in([] { KvdLoz6TuGps_startGps02Reset(GPS02_CLEAR, false); });
    EXPECT_EQ(queue(unit, std::string(939, 'x')), 1);
    EXPECT_EQ(queue(unit, "y"), 0) << "the reset goes first";
}

TEST(Line, IsOpenedOnceWithItsSettingsWhileTheReferenceIsSupervised)
{
    bench::GpsUnit unit;
    std::vector<std::pair<u32, u32>> settings;
    for (const node::SerialSetting& s : unit.node.serial().settings())
        settings.emplace_back(s.key, s.value);
    EXPECT_EQ(settings, (std::vector<std::pair<u32, u32>>{
                            {0x1000, 9600}, {0x1001, 3000}, {0x1002, 254}, {0x1003, 8},
                            {0x1004, 1}, {0x1005, 0x4E}, {0x1006, 10}}));
    EXPECT_NE(unit.node.system().find("TuGpsInt_proc"), 0u);
    unit.say("$A");
    unit.node.system().call(*unit.node.program(), [] { EXPECT_EQ(KvdLoz6TuGps_openSerial(), 4); });
    EXPECT_TRUE(unit.node.traces().has("UART device UART already started"));
    unit.say("\r\n$B");
    EXPECT_EQ(unit.gpsState(), GPS_WAIT_FOR_VALID_MSG);
    unit.node.serial().closeResult = 0x17;
    unit.supervise(GPS_REF, false);
    unit.ms(5);
    EXPECT_TRUE(unit.node.traces().has("Error from serial port (err = 0x17)"));
    EXPECT_FALSE(unit.node.serial().isOpen());
    EXPECT_EQ(unit.node.system().find("TuGpsInt_proc"), 0u);

    unit.node.serial().openResult = 8;
    unit.supervise(GPS_REF, true);
    unit.ms(5);
    EXPECT_TRUE(unit.node.traces().has("Unsuccessful call to HALI_subscribeSerialPort"));
    EXPECT_FALSE(unit.node.serial().isOpen());
    unit.node.serial().openResult = 0;
    unit.supervise(GPS_REF, false);
    unit.supervise(GPS_REF, true);
    unit.ms(5);
    unit.say("\r");                        // doesn't end the sentence of before
    EXPECT_EQ(unit.gpsState(), GPS_WAIT_FOR_ANY_MSG);
}

}  // namespace
