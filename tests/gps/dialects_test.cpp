// The receivers' own sentences: what each stores, when it is refused, what it tells the main
// processor, and the questions to a receiver's module.
#include "gps/gps_sig.h"
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_state.h"
#include "gps/kvd_gps_trimble.h"
#include "tests/gps/sentence_bench.h"

namespace {

using gpstest::Case;
using gpstest::SentenceBench;
using gpstest::summed;

std::string ppr(u32 status, u32 faulty, const std::string& tow = "123456")
{
    return summed("PNVX,GPppr," + tow + ",01234,00000,00," + std::to_string(status) + "," +
                  std::to_string(faulty));
}

/// GPtps of 73 characters before its checksum.
std::string tps(const std::string& timeStandard = "2", const std::string& pps = "1",
                const std::string& mode = "2", const std::string& seconds = "043200")
{
    return "PFEC,GPtps,230115120000," + timeStandard + "," + pps + "," + mode +
           ",000000000000,18,18,230115120000,2245," + seconds;
}

}  // namespace

// ---- PNVX ---------------------------------------------------------------------------------------

TEST(Gpppr, StatusAndFaultDecideOnTheTime)
{
    constexpr double BEFORE = 5.0, TOLD = 746446656.0;          // 1234 * 604800 + 123456
    struct Row { u32 status, faulty; u8 valid; u32 notValid; double time; u32 clockQuality; };
    for (const Row& r : std::to_array<Row>({{0, 0, 1, 0, TOLD, 0}, {1, 0, 1, 0, TOLD, 0},
                                            {2, 0, 1, 0, BEFORE, 1}, {3, 0, 0, 1, BEFORE, 1},
                                            {4, 0, 1, 0, BEFORE, 1}, {0, 1, 0, 1, BEFORE, 0},
                                            {3, 1, 0, 1, BEFORE, 1}})) {
        SCOPED_TRACE(std::to_string(r.status) + std::to_string(r.faulty));
        SentenceBench b;
        b.in([&] {
            KvdLoz6TuGps_receiver().gpsCurrentTime = BEFORE;
            KvdLoz6TuGps_receiver().timeValid = r.valid == 0;
            KvdLoz6TuGps_receiver().timeNotValid = r.notValid == 0;
        });
        EXPECT_EQ(b.take(ppr(r.status, r.faulty)), 1);
        const GpsReceiver receiver = b.receiver();
        EXPECT_EQ(receiver.timeValid, r.valid);
        EXPECT_EQ(receiver.timeNotValid, r.notValid);
        EXPECT_EQ(receiver.gpsCurrentTime, r.time);
        EXPECT_EQ(receiver.gpsTow, 123456u);
        EXPECT_EQ(receiver.gpsTimeWeek, 1234u);
        EXPECT_EQ(b.told("GPppr time not valid"), r.valid == 0);
        EXPECT_EQ(b.quality().clockQuality, r.clockQuality);
        EXPECT_EQ(b.take(ppr(r.status, r.faulty)), 1);
        EXPECT_EQ(b.quality().count, 0u) << "told once";
    }
}

TEST(Gpppr, OverrideStandsForTheStatus)
{
    SentenceBench b;
    b.in([] { KvdLoz6TuGps_overrideGpssStatus(true, 3); });
    EXPECT_EQ(b.take(ppr(0, 0)), 1);
    EXPECT_TRUE(b.told("QualityLevelInd (GPS) gpssStatus: 255 -> 3"));
    EXPECT_EQ(b.receiver().timeValid, 0);
    b.in([] { KvdLoz6TuGps_overrideGpssStatus(false, 0); });
    EXPECT_EQ(b.take(ppr(0, 0)), 1);
    EXPECT_EQ(b.receiver().timeValid, 1);
    EXPECT_STREQ(KvdLoz6TuGps_gpssStatusText(3), "1PPS not Synchronized");
}

TEST(Gpppr, IsRefusedWithTheReason)
{
    SentenceBench b;
    gpstest::check(b, std::to_array<Case>({
        {"34 characters", ppr(0, 0, "1"), 0, "GPppr: Sentence length error: 34 chars"},
        {"35", ppr(0, 0, "12"), 1},
        {"40", ppr(0, 0, "0123456"), 1},
        {"41", ppr(0, 0, "00123456"), 0, "GPppr: Sentence length error: 41 chars"},
        {"no checksum", "PNVX,GPppr,123456,01234,00000,00,0,0", 0,
         "GPppr: Checksum incorrect or missing"},
        {"wrong checksum", "PNVX,GPppr,123456,01234,00000,00,0,0*5B", 0,
         "GPppr: Checksum incorrect or missing"},
        {"two fields short", summed("PNVX,GPppr,000777,01234,000000000000"), 0,
         "NMEA parse error: End of sentence reached"},
    }));
    EXPECT_EQ(b.receiver().gpsTow, 777u) << "stored before the end was met";
    EXPECT_EQ(b.take(summed("PNVX,GPppr,1,01234,00000,0,0,1,000")), 0) << "a field more";
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_selfTestRecord().gpssFaulty; }), 1);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_selfTestRecord().gppprCount; }), 3);
    EXPECT_EQ(b.take(ppr(0, 0)), 1);
}

TEST(ReceiverType, FollowsTheSentences)
{
    struct Row { const char* what; u32 before; std::string text; u32 after; };
    for (const Row& r : std::to_array<Row>({
             {"Norvane protocol", 6, ppr(0, 0), 2},
             {"even by a bad sentence", 6, "PNVX,GPppr,1*00", 2},
             {"GPppr leaves others", 1, ppr(0, 0), 1},
             {"Furuno protocol", 2, tps(), 1},
             {"even by a bad sentence", 2, "PFEC,GPtps", 1},
             {"GPtps leaves others", 6, tps(), 6},
             {"with a version it's a GPS02", 1, summed("PNVX,GPver,A,B,C,120510"), 6},
             {"but not by a bad sentence", 1, "PNVX,GPver,A,B,C,120510*00", 1},
             {"GPver leaves others", 2, summed("PNVX,GPver,A,B,C,120510"), 2}})) {
        SentenceBench b;
        b.setType(r.before);
        b.take(r.text);
        EXPECT_EQ(b.receiver().gpssType, r.after) << r.what;
        EXPECT_EQ(b.receiver().gpssType_backup, r.after) << r.what;
    }
}

TEST(Gpsts, ObservationModeAndCapabilities)
{
    struct Row { const char* pp1state; u8 mode; const char* told; };
    SentenceBench b;
    for (const Row& r : std::to_array<Row>({{"1", 0, "Observation Point Mode: Survey"},
                                            {"2", 1, "Observation Point Mode: Position Hold"},
                                            {"0", 2, "Observation Point Mode: Unknown"},
                                            {"3", 2, "Observation Point Mode: Unknown"}})) {
        EXPECT_EQ(b.take(summed(std::string("PNVX,GPsts,") + r.pp1state + ",0,7,00000")), 1);
        EXPECT_EQ(b.receiver().observationMode, r.mode) << r.pp1state;
        EXPECT_TRUE(b.told(r.told)) << r.pp1state;
    }
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane().GPsts_positionHoldMode; }), 0);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane().GPsts_antennaPortSts; }), 7);

    struct Capability { const char* text; u8 glonass; };
    for (const Capability& c : std::to_array<Capability>({{"00001", 1}, {"11112", 2}, {"00003", 0},
                                                          {"0000:", 0}, {"0001", 0},
                                                          {"000021", 2}})) {
        EXPECT_EQ(b.take(summed(std::string("PNVX,GPsts,02,1,0,") + c.text)), 1);
        EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane().glonassCapability; }), c.glonass)
            << c.text;
        EXPECT_TRUE(b.told(c.glonass != 0 ? "Glonass supported" : "Glonass not supported"));
    }
    gpstest::check(b, std::to_array<Case>({
        {"23 characters", summed("PNVX,GPsts,1,1,0,000"), 0,
         "GPsts: Sentence length error: 23 chars"},
        {"24", summed("PNVX,GPsts,1,1,0,0000"), 1},
        {"80", summed("PNVX,GPsts,1,1,0," + std::string(60, '0')), 1},
        {"81", summed("PNVX,GPsts,1,1,0," + std::string(61, '0')), 0,
         "GPsts: Sentence length error: 81 chars"},
        {"no checksum", "PNVX,GPsts,1,1,0,00000000", 0, "GPsts: Checksum incorrect or missing"},
    }));
}

TEST(Gpver, TextsOfSixteenFit)
{
    SentenceBench b;
    EXPECT_EQ(b.take(summed("PNVX,GPver,ABCDEFGHIJKLMNOP,NO,R1A,110624")), 1);
    const auto designation = [&] {
        return b.look([] { return std::string(KvdLoz6TuGps_norvane().productDesignation); });
    };
    EXPECT_EQ(designation(), "ABCDEFGHIJKLMNOP");
    EXPECT_TRUE(b.look([] { return KvdLoz6TuGps_isGps02(); }));
    EXPECT_EQ(b.take(summed("PNVX,GPver,ABCDEFGHIJKLMNOPQ,NO2,R2A,120511")), 1);
    EXPECT_TRUE(b.told("NMEA message field too large: 17"));
    EXPECT_EQ(designation(), "GPver")
        << "the field before";
    EXPECT_FALSE(b.look([] { return KvdLoz6TuGps_isGps02(); }));
    EXPECT_EQ(b.take(summed("PNVX,GPver,X,Y")), 0);
    EXPECT_EQ(b.take(summed("PNVX,GPver,SHORT,ONE")), 0) << "two texts are missing";
    EXPECT_EQ(designation(), "SHORT");
    b.in([] { KvdLoz6TuGps_resetVersion(); });
    EXPECT_TRUE(b.look([] { return KvdLoz6TuGps_isFirmware("Unknown"); }));
}

TEST(Gpavp, StoresTheAveragedPosition)
{
    SentenceBench b;
    EXPECT_EQ(b.take(summed("PNVX,GPavp,0001.0002,S,17959.9999,W,-00545.4,0")), 1);
    const GpsPosition p = b.receiver().averaged;
    EXPECT_EQ(p.latitude.deg, 0);
    EXPECT_EQ(p.latitude.min, 1);
    EXPECT_EQ(p.latitude.fractMin, 2);
    EXPECT_EQ(p.latitude.dir, 2);
    EXPECT_EQ(p.longitude.deg, 179);
    EXPECT_EQ(p.longitude.min, 59);
    EXPECT_EQ(p.longitude.fractMin, 9999);
    EXPECT_EQ(p.longitude.dir, 3);
    EXPECT_EQ(p.altitude, -545.4);
    gpstest::check(b, std::to_array<Case>({
        {"48 characters", summed("PNVX,GPavp,4807.0380,N,01131.0000,E,000545.4,"), 0,
         "GPavp: Sentence length error: 48 chars"},
        {"54", summed("PNVX,GPavp,4807.0380,N,01131.0000,E,000545.4,000000"), 0,
         "GPavp: Sentence length error: 54 chars"},
        {"direction", summed("PNVX,GPavp,4807.0380,E,01131.0000,E,000545.4,0"), 0,
         "GPavp: Error in latitude direction value"},
        {"direction", summed("PNVX,GPavp,4807.0380,N,01131.0000,N,000545.4,0"), 0,
         "GPavp: Error in longitude direction value"},
    }));
    EXPECT_EQ(b.receiver().averaged.longitude.deg, 179) << "refused ones change nothing";
    EXPECT_EQ(b.take(summed("PNVX,GPavp,4807.0380,N,01131.0000,E,000545.4,0")), 1);
}

TEST(Gpout, ValuesOutOfRangeAreReplaced)
{
    struct Row { const char* fields; u8 state, jump, time, data, master; const char* told; };
    SentenceBench b;
    for (const Row& r : std::to_array<Row>({
             {"18,1,2,1,1", 18, 1, 2, 1, 1,
              "Remote Radio Clock State changed from UNKNOWN (0) to PRE_JUMP_HIST (18)"},
             {"19,2,3,2,2", 10, 0, 0, 0, 0,
              "Unexpected value for remoteRadioClockState in GPout message : 19"},
             {"19,0,0,0,0", 10, 0, 0, 0, 0,
              "Unexpected value for remoteRadioClockState in GPout message : 19"},
             {"05,2,0,0,0", 5, 0, 0, 0, 0,
              "Unexpected value for remoteJumpIndication in GPout message : 2"},
             {"05,0,3,0,0", 5, 0, 0, 0, 0,
              "Unexpected value for GNSS Time Present in GPout message : 3"},
             {"05,0,0,2,0", 5, 0, 0, 0, 0,
              "Unexpected value for GNSS Data Present in GPout message : 2"},
             {"00,0,0,0,2", 0, 0, 0, 0, 0,
              "Unexpected value for is Master field in GPout message : 2"}})) {
        SCOPED_TRACE(r.fields);
        EXPECT_EQ(b.take(summed(std::string("PNVX,GPout,") + r.fields)), 1);
        EXPECT_TRUE(b.told(r.told)) << b.tellAll();
        const GpsNorvane said = b.look([] { return KvdLoz6TuGps_norvane(); });
        EXPECT_EQ(said.remoteRadioClockState, r.state);
        EXPECT_EQ(said.remoteJumpIndication, r.jump);
        EXPECT_EQ(said.gnssTimePresent, r.time);
        EXPECT_EQ(said.gnssDataPresent, r.data);
        EXPECT_EQ(said.isMaster, r.master);
    }
    gpstest::check(b, std::to_array<Case>({
        {"23 characters", summed("PNVX,GPout,5,0,0,0,0"), 0,
         "GPout: Sentence length error: 23 chars"},
        {"27", summed("PNVX,GPout,005,001,1,0,0"), 1, "GPout: Sentence length: 27 chars"},
        {"28", summed("PNVX,GPout,005,001,01,0,0"), 0, "GPout: Sentence length error: 28 chars"},
    }));
}

// ---- PFEC ---------------------------------------------------------------------------------------

TEST(Gptps, TimeStandardAndPulseDecideOnTheTime)
{
    constexpr double BEFORE = 5.0, TOLD = 1357819200.0;         // 2245 * 604800 + 43200
    struct Row {
        const char* standard;
        const char* pps;
        u32 notValid;
        u8 valid;
        double time;
        u32 quality;
    };
    for (const Row& r : std::to_array<Row>({{"2", "1", 0, 1, TOLD, 0}, {"3", "1", 0, 1, TOLD, 0},
                                            {"1", "1", 1, 1, TOLD, 1}, {"4", "0", 1, 0, BEFORE, 1},
                                            {"2", "0", 0, 0, BEFORE, 0},
                                            {"3", "2", 0, 0, BEFORE, 0}})) {
        SCOPED_TRACE(std::string(r.standard) + r.pps);
        SentenceBench b;
        b.in([&] {
            KvdLoz6TuGps_receiver().gpsCurrentTime = BEFORE;
            KvdLoz6TuGps_receiver().timeValid = r.valid == 0;
            KvdLoz6TuGps_receiver().timeNotValid = r.notValid == 0;
        });
        EXPECT_EQ(b.take(tps(r.standard, r.pps)), 1);
        const GpsReceiver receiver = b.receiver();
        EXPECT_EQ(receiver.timeNotValid, r.notValid);
        EXPECT_EQ(receiver.timeValid, r.valid);
        EXPECT_EQ(receiver.gpsCurrentTime, r.time);
        EXPECT_EQ(receiver.gpsTimeWeek, 2245u);
        EXPECT_EQ(receiver.gpsTow, 43200u);
        EXPECT_EQ(b.told("GPtps: Time is not usable"), r.notValid == 1);
        EXPECT_EQ(b.told("GPtps time not valid"), r.valid == 0);
        EXPECT_TRUE(b.told(std::string("TIME STANDARD 0 to ") + r.standard));
        const SentenceBench::Quality quality = b.quality();
        EXPECT_EQ(quality.count, 1u);
        EXPECT_EQ(quality.clockQuality, r.quality);
        EXPECT_EQ(b.take(tps(r.standard, r.pps)), 1);
        EXPECT_EQ(b.quality().count, 0u) << "told once";
    }
}

TEST(Gptps, OverrideStandsForTheTimeStandard)
{
    SentenceBench b;
    EXPECT_EQ(b.take(tps()), 1);
    EXPECT_EQ(b.quality().clockQuality, 0u);
    b.in([] { KvdLoz6TuGps_overrideTimeStandard(true, 0); });
    EXPECT_EQ(b.take(tps()), 1);
    EXPECT_EQ(b.quality().clockQuality, 1u);
    EXPECT_EQ(b.receiver().timeNotValid, 1u);
    b.in([] { KvdLoz6TuGps_overrideTimeStandard(false, 2); });
    EXPECT_TRUE(b.told("coli gentimestandard in state = 0 (disabled), time standard = 0x02 (GPS)"));
    EXPECT_EQ(b.take(tps()), 1);
    EXPECT_EQ(b.receiver().timeNotValid, 0u);
}

TEST(Gptps, IsRefusedWithTheReason)
{
    SentenceBench b;
    gpstest::check(b, std::to_array<Case>({
        {"72 characters", tps("2", "1", "2", "43200"), 0, "GPtps: Sentence length error: 72 chars"},
        {"76", tps() + ",xx", 1},
        {"77", tps() + "*690", 0, "GPtps: Sentence length error: 77 chars"},
        {"wrong checksum", tps() + "*68", 0,
         "KvdLoz6TuGps_parsePxxxGPtps: Checksum incorrect or missing"},
        {"odd widths under a checksum", summed(tps("02", "1", "2", "3200")), 1},
        {"a field more under a checksum", summed(tps("3", "1", "1", "0,1")), 0,
         "GPtps message not fully parsed (parsed 69 of 73 chars)"},
    }));
    EXPECT_EQ(b.look(KvdLoz6TuGps_timeStandard), 3u) << "stored as it is read";
    EXPECT_EQ(b.receiver().gpsTow, 0u);
    EXPECT_EQ(b.receiver().observationMode, 1) << "stored at the end";
    EXPECT_EQ(b.take(summed(tps())), 1);

    // A field that is one short is made up for behind the last, so that the length passes.
    struct Width { const char* from; const char* to; const char* told; };
    for (const Width& w : std::to_array<Width>({
             {"GPtps,230115120000", "GPtps,23011512000", "GPtps: Date/Time field is 11 bytes"},
             {",2,1,2,", ",,1,2,", "GPtps: Time standard ID field is 0 bytes"},
             {",2,1,2,", ",2,01,2,", "1PPS availability status flag field is 2 bytes"},
             {",2,1,2,", ",2,1,,", "GPtps: Mode field is 0 bytes"},
             {",000000000000,", ",0000000000000,",
              "GPtps: Leap second adjustment field is 13 bytes"},
             {",18,18,", ",8,18,", "GPtps: Leap second field is 1 bytes"},
             {",18,18,", ",18,018,", "GPtps: UTC-GPS Time Offset field is 3 bytes"},
             {",18,230115120000", ",18,23011512000",
              "GPtps: Date/Time stamp of UTC field is 11 bytes"},
             {",2245,", ",02245,", "GPtps: Gps weeks field is 5 bytes"},
             {",043200", ",43200", "GPtps: Count of seconds field is 5 bytes"}})) {
        std::string text = tps();
        text.replace(text.find(w.from), std::strlen(w.from), w.to);
        if (text.size() < 73) text += ",";
        EXPECT_EQ(b.take(text), 0) << text;
        EXPECT_TRUE(b.told(w.told)) << w.told << "\n" << b.tellAll();
    }
}

TEST(Gpanc, StoresTheAlmanacWhole)
{
    const std::string date = "PFEC,GPanc,230115123456,";
    SentenceBench b;
    EXPECT_EQ(b.take(date + "01234567890123456789012345678901"), 1);
    EXPECT_TRUE(b.told("GPanc Almanac date/time: 230115 12:34:56"));
    gpstest::check(b, std::to_array<Case>({
        {"55 characters", date + std::string(31, '9'), 0, "GPanc: Sentence length error: 55 chars"},
        {"60", date + std::string(36, '9'), 0, "GPanc: Sentence length error: 60 chars"},
        {"health of 33", date + std::string(33, '9'), 0,
         "GPanc: Satellite Health field is 33 bytes"},
        {"date of 11", "PFEC,GPanc,23011512345," + std::string(33, '9'), 0,
         "GPanc: Date/Time of almanac field is 11 bytes"},
        {"wrong checksum", date + std::string(32, '9') + "*00", 0,
         "KvdLoz6TuGps_parsePxxxGPanc: Checksum incorrect or missing"},
        {"no health", "PFEC,GPanc," + std::string(45, '9'), 0},
    }));
    const GpsAlmanac almanac = b.look([] { return KvdLoz6TuGps_almanac(); });
    EXPECT_EQ(almanac.dateTime[5], 56);
    EXPECT_EQ(almanac.health[0], 0);
    EXPECT_EQ(almanac.health[9], 9);
    EXPECT_EQ(almanac.health[31], 1);
    EXPECT_EQ(b.look(KvdLoz6TuGps_furunoCounters).numberOfPFECGPanc, 4u) << "those that were read";
    EXPECT_EQ(b.take(date + std::string(32, '0')), 1);
}

// ---- PTNL ---------------------------------------------------------------------------------------

TEST(Ptnlrba, StoresTheFeedline)
{
    struct Row { const char* text; u32 feedline; const char* name; };
    SentenceBench b;
    EXPECT_EQ(b.look(KvdLoz6TuGps_antennaFeedline), 3u);
    for (const Row& r : std::to_array<Row>({{"PTNLRBA,1,0", 0, "Normal"},
                                            {"PTNLRBA,1,1", 1, "Open Circuit"},
                                            {"PTNLRBA,0,2", 2, "Short Circuit"},
                                            {"PTNLRBA,1,7", 3, "Unknown"}})) {
        EXPECT_EQ(b.take(r.text), 1);
        EXPECT_EQ(b.look(KvdLoz6TuGps_antennaFeedline), r.feedline);
        EXPECT_STREQ(KvdLoz6TuGps_feedlineText(r.feedline), r.name);
    }
    gpstest::check(b, std::to_array<Case>({
        {"7 characters", "PTNLRBA", 0,
         "KvdLoz6TuGps_parsePTNLRBA: PTNLRBA: Sentence length error: 7 chars"},
        {"15", "PTNLRBA,1,00001", 0,
         "KvdLoz6TuGps_parsePTNLRBA: PTNLRBA: Sentence length error: 15 chars"},
        {"status", "PTNLRBA,11,1", 0,
         "KvdLoz6TuGps_parsePTNLRBA: Antenna STATUS Message field is 2 bytes"},
        {"feedline", "PTNLRBA,1,11", 0,
         "KvdLoz6TuGps_parsePTNLRBA: Antenna FEEDLINE Message field is 2 bytes"},
        {"one missing", "PTNLRBA,1", 0,
         "KvdLoz6TuGps_parsePTNLRBA: NMEA parse error: End of sentence reached"},
        {"wrong checksum", "PTNLRBA,1,1*00", 0,
         "KvdLoz6TuGps_parsePTNLRBA: Checksum incorrect or missing"},
        {"odd under a checksum", summed("PTNLRBA,11,1"), 0},
        {"odd under a checksum", summed("PTNLRBA,1,01"), 0},
    }));
    EXPECT_EQ(b.take(summed("PTNLRBA,,2")), 1) << "a good checksum vouches for the widths";
    EXPECT_EQ(b.look(KvdLoz6TuGps_antennaFeedline), 2u);
}

TEST(Ptnlrvr, WidthsCountEvenUnderAChecksum)
{
    const std::string who = "KvdLoz6TuGps_parsePTNLRVR: ";
    SentenceBench b;
    EXPECT_EQ(b.take(summed("PTNLRVR,H,ABCD,x,12345678,01,31,2010")), 1);
    EXPECT_EQ(b.take(summed("PTNLRVR,S,01.02.03,04,05,2010")), 1);
    struct Row { const char* fields; const char* told; };
    for (const Row& r : std::to_array<Row>({
             {"H,ABC,x,12345678,01,31,2010", "Hardware ID field is 3 bytes"},
             {"H,ABCD,x,123456789,01,31,2010", "Serial Number field is 9 bytes"},
             {"H,ABCD,x,12345678,1,31,2010", "Manf date Month field is 1 bytes"},
             {"H,ABCD,x,12345678,01,031,2010", "Manf date Day field is 3 bytes"},
             {"H,ABCD,x,12345678,01,31,10", "Manf date Year field is 2 bytes"},
             {"S,1.02.03,04,05,2010", "Firmware major version field is 1 bytes"},
             {"S,01.002.03,04,05,2010", "Firmware minor version field is 3 bytes"},
             {"S,01.02.3,04,05,2010", "Firmware build version field is 1 bytes"},
             {"S,01.02.03,4,05,2010", "Manf date Month field is 1 bytes"},
             {"S,01.02.03,04,05,20100", "Manf date Year field is 5 bytes"},
             {"X,01", "Wrong PTNLRVR subfield!"},
             {"HH,01", "Type field is 2 bytes"},
             {"H,EFGH", "NMEA parse error: End of sentence reached"}})) {
        EXPECT_EQ(b.take(summed(std::string("PTNLRVR,") + r.fields)), 0) << r.fields;
        EXPECT_TRUE(b.told(who + r.told)) << r.told << "\n" << b.tellAll();
    }
    gpstest::check(b, std::to_array<Case>({
        {"no checksum", "PTNLRVR,S,01.02.03,04,05,2010", 0,
         "KvdLoz6TuGps_parsePTNLRVR: Checksum incorrect or missing"},
        {"65 characters",
         summed("PTNLRVR,H,ABCD," + std::string(27, 'x') + ",12345678,01,31,2010"), 0,
         "KvdLoz6TuGps_parsePTNLRVR: PTNLRVR: Sentence length error: 65 chars"},
    }));
    const GpsModule module = b.look([] { return KvdLoz6TuGps_module(); });
    EXPECT_STREQ(module.hardwareId, "ABCD");
    EXPECT_STREQ(module.serialNumber, "12345678");
    EXPECT_STREQ(module.manufactureDate, "01.31.2010");
    EXPECT_STREQ(module.firmwareVersion, "01.02.03");
}

namespace {

/// A receiver's front end in a manager process of its own, and answers that come after a time.
struct QueryBench : SentenceBench {
    explicit QueryBench(u32 gpssType)
    {
        const PROCESS manager = node.system().launch(*node.program(), "front_end", 16, [] {
            for (;;) {
                Signal* sig = ose::receive(ose::ANY_SIGNAL);
                KvdLoz6TuGps_dispatch(sig);
                ose::free_buf(&sig);
            }
        });
        in([=] {
            KvdLoz6TuMgr_setPids(manager, 0, 0);
            KvdLoz6TuGps_setTuGpsRefType(GPS_REF);
            KvdLoz6TuGps_storeGpsState(GPS_WAIT_FOR_VALID_MSG);
            KvdLoz6TuGps_setGpssType(gpssType);
        });
    }
    void answerAfter(OSTIME span_ms, const std::string& text)
    {
        node.system().launch(*node.program(), "answer", 15, [=] {
            ose::delay(span_ms);
            GpsSentenceType type;
            EXPECT_EQ(KvdLoz6TuGps_parseSentence((text + "\r").c_str(), type), 1);
        });
    }
    /// Runs a question to its end, in a process of its own; how long it waited, ms.
    template <typename Question>
    u32 ask(Question question)
    {
        u32 waited = 0;
        node.system().call(*node.program(), [&] {
            const u32 begin = ose::get_ticks();
            question();
            waited = (ose::get_ticks() - begin) * ose::system_tick() / 1000;
        }, 20, "operator");
        return waited;
    }
};

}  // namespace

TEST(ModuleQueries, EndWithTheAnswerOrAfterTwoSeconds)
{
    QueryBench b(2);
    GpsModule module;
    const auto chipset = [&] { module = KvdLoz6TuGps_queryChipset(); };
    b.answerAfter(300, summed("PTNLRVR,H,ABCD,x,12345678,01,31,2010"));
    b.answerAfter(500, summed("PTNLRVR,S,01.02.03,04,05,2010"));
    EXPECT_LE(b.ask(chipset), 510u);
    EXPECT_STREQ(module.hardwareId, "ABCD");
    EXPECT_STREQ(module.firmwareVersion, "01.02.03");
    EXPECT_EQ(b.look(KvdLoz6TuGps_waiter), 0u);

    // The firmware comes too late: it isn't shown, and doesn't answer the next question.
    b.answerAfter(300, summed("PTNLRVR,H,EFGH,x,12345678,01,31,2010"));
    b.answerAfter(2500, summed("PTNLRVR,S,01.02.04,04,05,2010"));
    EXPECT_GE(b.ask(chipset), 2000u);
    EXPECT_STREQ(module.hardwareId, "EFGH");
    EXPECT_STREQ(module.firmwareVersion, "Unknown");

    const char* feedline = nullptr;
    const auto antenna = [&] { feedline = KvdLoz6TuGps_queryAntenna(); };
    b.answerAfter(100, summed("PTNLRBA,1,1"));
    EXPECT_LE(b.ask(antenna), 110u);
    EXPECT_STREQ(feedline, "Open Circuit");
    EXPECT_GE(b.ask(antenna), 2000u);
    EXPECT_STREQ(feedline, "Unknown");
    EXPECT_EQ(b.look(KvdLoz6TuGps_antennaFeedline), 3u);
}

TEST(ModuleQueries, AreNotAskedWithoutAModule)
{
    struct Row { const char* what; u32 gpssType; u8 refType; u32 state; };
    for (const Row& r : std::to_array<Row>({{"GPS01", 1, GPS_REF, 6},
                                            {"external reference", 2, TU_REF, 6},
                                            {"line closed", 2, GPS_REF, GPS_UN_INIT}})) {
        QueryBench b(r.gpssType);
        b.in([&] {
            KvdLoz6TuGps_storeGpsState(r.state);
            KvdLoz6TuGps_setTuGpsRefType(r.refType);
        });
        EXPECT_EQ(b.ask([] { EXPECT_STREQ(KvdLoz6TuGps_queryChipset().hardwareId, "Unknown"); }),
                  0u) << r.what;
        EXPECT_EQ(b.ask([] { EXPECT_STREQ(KvdLoz6TuGps_queryAntenna(), ""); }), 0u) << r.what;
    }
}
