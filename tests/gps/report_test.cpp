// What the main processor is told of a GPS reference: status and text, when they are held back, the
// self-test, quality level, attributes.
#include "gps_unit.h"

#include "gps/kvd_gps.h"
#include "gps/kvd_gps_norvane.h"

namespace {

using namespace bench;
using Texts = std::vector<std::string>;

constexpr const char* NO_MESSAGES = "2 No messages received from the GPS antenna";
constexpr const char* UNEXPECTED = "2 Unexpected messages received from the GPS antenna";
constexpr const char* NO_TIME = "2 No usable time received from the GPS antenna";

TEST(GpsReport, SilentReceiverIsNoFaultForThirtySeconds)
{
    GpsUnit unit;
    EXPECT_EQ(unit.statuses(), Texts{"0 OK"});       // supervision began: forced
    unit.ms(29'900);
    EXPECT_EQ(unit.statuses(), Texts{"0 OK"});
    unit.ms(200);
    EXPECT_EQ(unit.statuses(), (Texts{"0 OK", NO_MESSAGES}));
}

TEST(GpsReport, ChangedTextWaitsSixteenSeconds)
{
    GpsUnit unit;
    unit.ms(30'100);
    unit.say("$\r", 10'000);                         // another text, and its delay starts
    unit.say(gpppr(1));
    unit.say(GPSTS_HOLD);                            // and another: it starts over
    unit.ms(15'900);
    EXPECT_EQ(unit.statuses().back(), NO_MESSAGES);
    unit.ms(200);
    EXPECT_EQ(unit.statuses().back(), NO_TIME);
    EXPECT_EQ(unit.statuses().size(), 3u);
    unit.say(gpppr(2));
    EXPECT_EQ(unit.statuses().back(), "1 OK");       // the good news doesn't wait
    unit.ms(121'000);
    EXPECT_EQ(unit.statuses().back(), NO_TIME);      // nor a fault after it
}

TEST(GpsReport, PendingReceiverIsNotReported)
{
    GpsUnit unit;
    unit.say("$\r");
    unit.say(gpppr(1));
    ASSERT_EQ(unit.gpssType(), 3u);
    unit.ms(31'000);
    EXPECT_EQ(unit.statuses(), Texts{"0 OK"});
    for (u32 i = 0; i < 7; ++i) unit.say(gpppr(i));
    EXPECT_EQ(unit.statuses(), Texts{"0 OK"});
    unit.say(gpppr(9));
    EXPECT_EQ(unit.statuses(), (Texts{"0 OK", NO_TIME}));
}

TEST(GpsReport, TimingSentencesEndTheSuppression)
{
    GpsUnit unit;
    unit.becomeOperational();
    EXPECT_EQ(unit.statuses(), (Texts{"0 OK", "1 OK"}));
    unit.supervise(GPS_REF, false);
    unit.supervise(GPS_REF, true);
    unit.ms(5);
    unit.typeAsCombined();
    EXPECT_EQ(unit.statuses().back(), "0 OK");
    unit.say(gpppr(1, 3));                           // timing, but no time: told from here on
    EXPECT_EQ(unit.statuses().back(), NO_TIME);
    unit.ms(76'200);                                 // nothing more comes, and the text's 16 s
    EXPECT_EQ(unit.statuses().back(), NO_MESSAGES);
}

TEST(GpsReport, LossOfSignalGoesBeforeAllElse)
{
    GpsUnit unit;
    unit.becomeOperational();
    unit.toggles(0);
    unit.talk(85);
    EXPECT_EQ(unit.statuses().back(), "1 OK");
    unit.talk(2, 500);
    EXPECT_EQ(unit.statuses().back(), "2 Loss of signal");
    unit.node.mainProcessor().setTestMode(true);
    unit.ms(5);
    EXPECT_EQ(unit.statuses().back(), "2 Loss of signal");
    unit.node.mainProcessor().setTestMode(false);
    unit.toggles(RAW_1PPS);
    unit.ms(9'900);
    EXPECT_EQ(unit.statuses().back(), "2 Loss of signal");
    unit.ms(200);
    EXPECT_EQ(unit.statuses().back(), "1 OK");

    GpsUnit without(0);                // no 1PPS from the start: no suppression either
    EXPECT_EQ(without.statuses(), Texts{"2 Loss of signal"});
}

TEST(GpsReport, TestModeAndTheExternalReferenceAreGood)
{
    GpsUnit unit;
    unit.ms(30'100);
    unit.node.mainProcessor().setTestMode(true);
    unit.ms(5);
    EXPECT_EQ(unit.statuses().back(), "1 OK");
    unit.node.mainProcessor().setTestMode(false);
    unit.ms(5);
    EXPECT_EQ(unit.statuses().back(), NO_MESSAGES);
    unit.supervise(TU_REF, true);
    unit.say("$\r", 16'100);
    EXPECT_EQ(unit.statuses().back(), "1 OK");
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

TEST(GpsQuality, GoesOutAtItsTriggers)
{
    GpsUnit unit;
    EXPECT_EQ(unit.qualities(), std::vector<u32>{1});             // supervision began, type unknown
    unit.becomeOperational();
    const std::vector<u32> locked{1, 0};
    EXPECT_EQ(unit.qualities(), locked);                          // the status became known
    for (const u8 mode : {0, 1, 1, 0, 1}) {
        unit.node.mainProcessor().setSelectionMode(mode);
        unit.ms(5);
    }
    const std::vector<u32> asked{1, 0, 0, 0};
    EXPECT_EQ(unit.qualities(), asked);                           // at each change to 1
    unit.supervise(GPS_REF, false);
    unit.node.mainProcessor().setSelectionMode(0);
    unit.node.mainProcessor().setSelectionMode(1);
    unit.ms(5);
    EXPECT_EQ(unit.qualities(), asked);
}

TEST(GpsQuality, FollowsTheKindOfReceiver)
{
    struct Case { const char* what; std::string says; u32 gpssType; u32 clockQuality; };
    const auto nine = [](const std::string& text) {
        std::string all = "$\r";
        for (int i = 0; i < 9; ++i) all += text;
        return all;
    };
    for (const Case& c : std::to_array<Case>({
             {"combined, locked", "$\r" + gpppr(1, 0) + GPSTS_HOLD, 2, 0},
             {"combined, free running", "$\r" + gpppr(1, 1) + GPSTS_HOLD, 2, 0},
             {"combined, status 2", "$\r" + gpppr(1, 2) + GPSTS_HOLD, 2, 1},
             {"another unit's output", nine(gpppr(1, 3)), 4, 1},
             {"GPS01, own clock", nine(gptps(1, 1)), 1, 1},
             {"GPS01, GPS", nine(gptps(1, 2)), 1, 0},
             {"GPS02, UTC", "$\r" + gptps(1, 3) + GPSTS_HOLD, 6, 0},
             {"pending", "$\r" + gpppr(1, 0), 3, 1}})) {
        SCOPED_TRACE(c.what);
        GpsUnit unit;
        unit.say(c.says, 20);
        ASSERT_EQ(unit.gpssType(), c.gpssType);
        unit.node.mainProcessor().setSelectionMode(1);
        unit.ms(5);
        EXPECT_EQ(unit.qualities().back(), c.clockQuality);
    }
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
    KvdTuiifGpsAttribCfm cfm = ask();
    EXPECT_EQ(cfm.froId, 77u);
    EXPECT_EQ(cfm.gpsCompensationDelay, 65535);
    EXPECT_EQ(cfm.observationMode, 1);
    EXPECT_EQ(cfm.satellitesInView, 1);
    EXPECT_EQ(cfm.satellite[0].svNo, 7);
    EXPECT_EQ(cfm.satellite[0].azimuth, 123);
    EXPECT_EQ(cfm.satellite[0].snr, 41);
    EXPECT_EQ(cfm.satellite[1].svNo, 0);
    EXPECT_EQ(cfm.latitude.deg, 33);
    EXPECT_EQ(cfm.latitude.fractMin, 1234);
    EXPECT_EQ(cfm.latitude.dir, 2);
    EXPECT_EQ(cfm.longitude.deg, 151);
    EXPECT_EQ(cfm.longitude.dir, 3);

    unit.say(GPSTS_SURVEY);                          // on the move: the present position
    cfm = ask();
    EXPECT_EQ(cfm.observationMode, 0);
    EXPECT_EQ(cfm.latitude.deg, 48);
    EXPECT_EQ(cfm.longitude.min, 31);
    double altitude = 0;
    std::memcpy(&altitude, cfm.altitude, sizeof altitude);
    EXPECT_EQ(altitude, 545.5);
}

TEST(GpsPrint, ShowsStateKindAndHistory)
{
    GpsUnit unit;
    unit.becomeOperational();
    unit.say(nmea("PNVX,GPver,GPS02,1,R1A,120510"));
    std::string text;
    EXPECT_EQ(unit.node.shell().run("kvdinfo tugps", text), 0);
    for (const char* part : {"1PPS present", "Norvane Combined (2)", "120510",
                             "waitForOperationalTmoRef", "] Wait for valid messages\n",
                             "RECOVERY_STATE_", "GPS Locked"})
        EXPECT_NE(text.find(part), std::string::npos) << part;

    text.clear();
    EXPECT_EQ(unit.node.shell().run("gpsstatus 2", text), 0);
    EXPECT_NE(text.find("] 1PPS present\n"), std::string::npos) << text;
    EXPECT_NE(text.find("] 1PPS not present\n"), std::string::npos);
    EXPECT_EQ(text.find("] Wait for valid messages\n"), std::string::npos);
}

}  // namespace
