// The receivers' own sentences: what each stores, when it is refused, what it tells the main
// processor, and the questions to a receiver's module.
#include "gps/kvd_gps.h"
#include "gps/kvd_gps_furuno.h"
#include "gps/kvd_gps_norvane.h"
#include "gps/kvd_gps_osl.h"
#include "gps/kvd_gps_trimble.h"
#include "sig/gps_sig.h"
#include "tests/gps/sentence_bench.h"
#include "unit/kvd_gps_state.h"
#include "unit/kvd_unit_process.h"

namespace {

using gpstest::SentenceBench;
using gpstest::summed;

constexpr double BEFORE = 5.0;       // s, GPS time before a sentence

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

/// A timing sentence turns both flags and the time to these, and tells the quality once.
struct Timing { std::string text; u8 valid; u32 notValid; double time; u32 clockQuality; };
void takesTime(const Timing& t)
{
    SCOPED_TRACE(t.text);
    SentenceBench b;
    b.in([&] {
        KvdLoz6TuGps_receiver().gpsCurrentTime = BEFORE;
        KvdLoz6TuGps_receiver().timeValid = t.valid == 0;
        KvdLoz6TuGps_receiver().timeNotValid = t.notValid == 0;
    });
    EXPECT_EQ(b.take(t.text), 1);
    EXPECT_EQ(b.receiver().timeValid, t.valid);
    EXPECT_EQ(b.receiver().timeNotValid, t.notValid);
    EXPECT_EQ(b.receiver().gpsCurrentTime, t.time);
    EXPECT_EQ(b.quality().clockQuality, t.clockQuality);
    EXPECT_EQ(b.take(t.text), 1);
    EXPECT_EQ(b.quality().count, 0u);
}

}  // namespace

// ---- PNVX ---------------------------------------------------------------------------------------

TEST(Gpppr, StatusAndFaultDecideOnTheTime)
{
    constexpr double TOLD = 746446656.0;          // 1234 * 604800 + 123456
    for (const Timing& t : std::to_array<Timing>({{ppr(0, 0), 1, 0, TOLD, 0},
                                                  {ppr(1, 0), 1, 0, BEFORE, 0},
                                                  {ppr(2, 0), 1, 0, BEFORE, 1},
                                                  {ppr(3, 0), 0, 1, BEFORE, 1},
                                                  {ppr(0, 1), 0, 1, BEFORE, 0}}))
        takesTime(t);
}

TEST(Gpppr, WithoutAllItsFieldsIsNoWord)
{
    SentenceBench b;
    for (const char* cut : {"123456,01234,00000,00,1", "123456,0001234,00000,1"}) {
        b.refuses(summed(std::string("PNVX,GPppr,") + cut), "NMEA parse error: End of sentence reached");
        EXPECT_EQ(b.receiver().gpsTow, 123456u);
        EXPECT_EQ(b.receiver().gpsTimeWeek, 1234u);
        EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane(); }).gpssStatus, 0xFF);
        EXPECT_EQ(b.look([] { return KvdLoz6TuGps_selfTestRecord(); }).gppprCount, 0);
    }
    EXPECT_EQ(b.quality().count, 0u);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvaneCounters(); }).numberOfPNVXGPppr, 2u);
}

TEST(Gpppr, OverrideStandsForTheStatus)
{
    SentenceBench b;
    b.in([] { KvdLoz6TuGps_overrideGpssStatus(true, 3); });
    EXPECT_EQ(b.take(ppr(0, 0)), 1);
    EXPECT_TRUE(b.told("QualityLevelInd (GPS) gpssStatus: 255 -> 3"));
    EXPECT_TRUE(b.told("GPppr time not valid"));
    EXPECT_STREQ(KvdLoz6TuGps_gpssStatusText(3), "1PPS not Synchronized");
    b.in([] { KvdLoz6TuGps_overrideGpssStatus(false, 0); });
    EXPECT_EQ(b.take(ppr(0, 0)), 1);
    EXPECT_EQ(b.receiver().timeValid, 1);
}

TEST(Norvane, SentencesNeedTheirChecksumAndLength)
{
    SentenceBench b;
    struct Row { std::string shortest, longest; u32 tooShort, tooLong; };
    for (const Row& r : std::to_array<Row>({
             {"PNVX,GPppr,12,01234,00000,00,0,0", "PNVX,GPppr,0123456,01234,00000,00,0,0", 34, 41},
             {"PNVX,GPsts,1,1,0,0000", "PNVX,GPsts,1,1,0," + std::string(60, '0'), 23, 81},
             {"PNVX,GPver,,,,", "PNVX,GPver,0123456789abcdef,0123456789abcdef,0123456789abcd,"
                                "01234567890123", 16, 78},
             {"PNVX,GPavp,4807.0380,N,01131.0000,E,00545.4,00",
              "PNVX,GPavp,4807.0380,N,01131.0000,E,0000545.4,0000", 48, 54},
             {"PNVX,GPout,05,0,0,0,0", "PNVX,GPout,005,001,1,0,0", 23, 28}})) {
        const std::string name = r.shortest.substr(5, 5);
        EXPECT_EQ(b.take(summed(r.shortest)), 1) << r.shortest;
        EXPECT_EQ(b.take(summed(r.longest)), 1) << r.longest;
        const std::string length = name + ": Sentence length error: ";
        b.refusesEach({
            {r.shortest, name + ": Checksum incorrect or missing"},
            {r.shortest + "*00", name + ": Checksum incorrect or missing"},
            {summed(r.shortest.substr(0, r.shortest.size() - 1)),
             length + std::to_string(r.tooShort) + " chars"},
            {summed(r.longest + "0"), length + std::to_string(r.tooLong) + " chars"},
        });
    }
}

TEST(Norvane, FieldsMissingOrTooLong)
{
    const std::string end = "NMEA parse error: End of sentence reached";
    SentenceBench b;
    b.refuses(summed("PNVX,GPppr,000777,01234,000000000000"), end);
    EXPECT_EQ(b.receiver().gpsTow, 777u) << "stored before the end was met";
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_selfTestRecord().gppprCount; }), 0);
    b.refuses(summed("PNVX,GPppr,1,01234,00000,0,0,1,000"),
              "GPppr message not fully parsed (parsed 31 of 37 chars)");
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_selfTestRecord().gpssFaulty; }), 1);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_selfTestRecord().gppprCount; }), 1);
    EXPECT_EQ(b.take(summed("PNVX,GPppr,12,12345678,00000,0,0,0")), 1);
    EXPECT_TRUE(b.told("NMEA message field too large: 8"));
    EXPECT_EQ(b.receiver().gpsTimeWeek, 12u) << "the field before";
    // The checksum's digits pass for one field; here two are missing.
    b.refusesEach({{summed("PNVX,GPsts,1,100000000000"), end},
                   {summed("PNVX,GPavp,4807.0380,N,0000001131.00000000000,E"), end},
                   {summed("PNVX,GPout,05,0,000000"), end}});
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
    struct Row { const char* fields; u8 mode, glonass; };
    SentenceBench b;
    for (const Row& r : std::to_array<Row>({{"1,0,7,00001", 0, 1}, {"02,0,7,11112", 1, 2},
                                            {"0,0,7,00003", 2, 0}, {"3,0,7,0001", 2, 0},
                                            {"1,0,7,000021", 0, 2}})) {
        EXPECT_EQ(b.take(summed(std::string("PNVX,GPsts,") + r.fields)), 1);
        EXPECT_EQ(b.receiver().observationMode, r.mode) << r.fields;
        EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane().glonassCapability; }), r.glonass)
            << r.fields;
        EXPECT_TRUE(b.told(r.glonass != 0 ? "Glonass supported" : "Glonass not supported"));
    }
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane().GPsts_positionHoldMode; }), 0);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvane().GPsts_antennaPortSts; }), 7);
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
    EXPECT_EQ(designation(), "GPver") << "the field before";
    EXPECT_FALSE(b.look([] { return KvdLoz6TuGps_isGps02(); }));
    b.refuses(summed("PNVX,GPver,SHORT,ONE"), "NMEA parse error: End of sentence reached");
    EXPECT_EQ(designation(), "SHORT");
    EXPECT_EQ(b.take(summed("PNVX,GPver," + std::string(40, 'A') + ",B,C,D")), 1);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_norvaneCounters(); }).numberOfPNVXGPver, 4u);
    b.in([] { KvdLoz6TuGps_resetVersion(); });
    EXPECT_TRUE(b.look([] { return KvdLoz6TuGps_isFirmware("Unknown"); }));
}

TEST(Gpavp, StoresTheAveragedPosition)
{
    SentenceBench b;
    EXPECT_EQ(b.take(summed("PNVX,GPavp,0001.0002,S,17959.9999,W,-00545.4,0")), 1);
    b.refusesEach({{summed("PNVX,GPavp,4807.0380,E,01131.0000,E,000545.4,0"),
                    "GPavp: Error in latitude direction value"},
                   {summed("PNVX,GPavp,4807.0380,N,01131.0000,N,000545.4,0"),
                    "GPavp: Error in longitude direction value"}});
    EXPECT_EQ(gpstest::flat(b.receiver().averaged),
              (std::vector<double>{0, 1, 2, 2, 179, 59, 9999, 3, -545.4}));
}

TEST(Gpout, ValuesOutOfRangeAreReplaced)
{
    SentenceBench b;
    const auto stored = [&] {
        const GpsNorvane said = b.look([] { return KvdLoz6TuGps_norvane(); });
        const int remoteState = static_cast<int>(b.look(KvdLoz6GpsOsl_remoteState));
        return std::array<int, 5>{remoteState, said.remoteJumpIndication,
                                  said.gnssTimePresent, said.gnssDataPresent, said.isMaster};
    };
    EXPECT_EQ(b.take(summed("PNVX,GPout,18,1,2,1,1")), 1);
    EXPECT_EQ(stored(), (std::array{18, 1, 2, 1, 1}));
    EXPECT_TRUE(b.told("Remote Radio Clock State changed from UNKNOWN (0) to PRE_JUMP_HIST (18)"));
    EXPECT_EQ(b.take(summed("PNVX,GPout,19,2,3,2,2")), 1);
    EXPECT_EQ(stored(), (std::array{10, 0, 0, 0, 0}));
    for (const char* text : {
             "Remote Radio Clock State changed from PRE_JUMP_HIST (18) to RC_UNKNOWN (10)",
             "Unexpected value for remoteRadioClockState in GPout message : 19",
             "Unexpected value for remoteJumpIndication in GPout message : 2",
             "Unexpected value for GNSS Time Present in GPout message : 3",
             "Unexpected value for GNSS Data Present in GPout message : 2",
             "Unexpected value for is Master field in GPout message : 2"})
        EXPECT_TRUE(b.told(text)) << text << "\n" << b.tellAll();
}

// ---- PFEC ---------------------------------------------------------------------------------------

TEST(Gptps, TimeStandardAndPulseDecideOnTheTime)
{
    constexpr double TOLD = 1357819200.0;         // 2245 * 604800 + 43200
    for (const Timing& t : std::to_array<Timing>({{tps("2", "1"), 1, 0, TOLD, 0},
                                                  {tps("3", "2"), 0, 0, BEFORE, 0},
                                                  {tps("1", "1"), 1, 1, TOLD, 1},
                                                  {tps("4", "0"), 0, 1, BEFORE, 1}}))
        takesTime(t);
}

TEST(Gptps, OverrideStandsForTheTimeStandard)
{
    SentenceBench b;
    EXPECT_EQ(b.take(tps()), 1);
    EXPECT_TRUE(b.told("TIME STANDARD 0 to 2"));
    EXPECT_EQ(b.quality().clockQuality, 0u);
    b.in([] { KvdLoz6TuGps_overrideTimeStandard(true, 0); });
    EXPECT_EQ(b.take(tps()), 1);
    EXPECT_TRUE(b.told("GPtps: Time is not usable"));
    EXPECT_EQ(b.quality().clockQuality, 1u);
    b.in([] { KvdLoz6TuGps_overrideTimeStandard(false, 2); });
    EXPECT_TRUE(b.told("coli gentimestandard in state = 0 (disabled), time standard = 0x02 (GPS)"));
    EXPECT_EQ(b.take(tps()), 1);
    EXPECT_EQ(b.receiver().timeNotValid, 0u);
}

TEST(Gptps, IsRefusedWithTheReason)
{
    SentenceBench b;
    EXPECT_EQ(b.take(tps() + ",xx"), 1) << "76 characters";
    EXPECT_EQ(b.take(summed(tps("02", "1", "2", "3200"))), 1) << "odd widths";
    b.refusesEach({
        {tps("2", "1", "2", "43200"), "GPtps: Sentence length error: 72 chars"},
        {tps() + "*690", "GPtps: Sentence length error: 77 chars"},
        {tps() + "*68", "KvdLoz6TuGps_parsePxxxGPtps: Checksum incorrect or missing"},
        {summed(tps("3", "1", "1", "0,1")),
         "GPtps message not fully parsed (parsed 69 of 73 chars)"},
    });
    EXPECT_EQ(b.look(KvdLoz6TuGps_timeStandard), 3u) << "stored as it is read";
    EXPECT_EQ(b.receiver().gpsTow, 0u);
    EXPECT_EQ(b.receiver().observationMode, 1) << "stored at the end";
    b.refusesOddWidths("PFEC,GPtps", {
        {"GPtps: Date/Time", "230115120000"}, {"GPtps: Time standard ID", "2"},
        {"1PPS availability status flag", "1"}, {"GPtps: Mode", "2"},
        {"GPtps: Leap second adjustment", "000000000000"}, {"GPtps: Leap second", "18"},
        {"GPtps: UTC-GPS Time Offset", "18"}, {"GPtps: Date/Time stamp of UTC", "230115120000"},
        {"GPtps: Gps weeks", "2245"}, {"GPtps: Count of seconds", "043200"}}, 73);
    EXPECT_EQ(b.take(summed(tps())), 1);
}

TEST(Gpanc, StoresTheAlmanacWhole)
{
    const std::string date = "PFEC,GPanc,230115123456,";
    SentenceBench b;
    EXPECT_EQ(b.take(date + "01234567890123456789012345678901"), 1);
    EXPECT_TRUE(b.told("GPanc Almanac date/time: 230115 12:34:56"));
    b.refusesEach({
        {date + std::string(31, '9'), "GPanc: Sentence length error: 55 chars"},
        {date + std::string(36, '9'), "GPanc: Sentence length error: 60 chars"},
        {date + std::string(32, '9') + "*00",
         "KvdLoz6TuGps_parsePxxxGPanc: Checksum incorrect or missing"},
        {"PFEC,GPanc," + std::string(45, '9'), "GPanc: Date/Time of almanac field is 45 bytes"},
    });
    b.refusesOddWidths("PFEC,GPanc", {{"GPanc: Date/Time of almanac", "999999999999"},
                                      {"GPanc: Satellite Health", std::string(32, '9')}}, 56);
    const GpsAlmanac almanac = b.look([] { return KvdLoz6TuGps_almanac(); });
    EXPECT_EQ(almanac.dateTime[5], 56);
    EXPECT_EQ(almanac.health[0], 0);
    EXPECT_EQ(almanac.health[9], 9);
    EXPECT_EQ(almanac.health[31], 1);
    EXPECT_EQ(b.take(date + std::string(32, '0')), 1);
    EXPECT_EQ(b.look(KvdLoz6TuGps_furunoCounters).numberOfPFECGPanc, 7u) << "those that were read";
}

// ---- PTNL ---------------------------------------------------------------------------------------

TEST(Ptnlrba, StoresTheFeedline)
{
    const std::string who = "KvdLoz6TuGps_parsePTNLRBA: ";
    SentenceBench b;
    EXPECT_EQ(b.look(KvdLoz6TuGps_antennaFeedline), 3u);
    struct Row { std::string text; u32 feedline; const char* name; };
    for (const Row& r : std::to_array<Row>({{"PTNLRBA,1,0", 0, "Normal"},
                                            {"PTNLRBA,1,1", 1, "Open Circuit"},
                                            {"PTNLRBA,0,2", 2, "Short Circuit"},
                                            {"PTNLRBA,1,7", 3, "Unknown"},
                                            {"PTNLRBA,0,0", 0, "Normal"},
                                            {summed("PTNLRBA,1,"), 3, "Unknown"},
                                            {"PTNLRBA,0,0", 0, "Normal"},
                                            {"PTNLRBA,1,x", 3, "Unknown"}})) {
        EXPECT_EQ(b.take(r.text), 1);
        EXPECT_EQ(b.look(KvdLoz6TuGps_antennaFeedline), r.feedline);
        EXPECT_STREQ(KvdLoz6TuGps_feedlineText(r.feedline), r.name);
    }
    EXPECT_EQ(b.take(summed("PTNLRBA,,2")), 1) << "a good checksum vouches for the widths";
    b.refusesEach({
        {"PTNLRBA", who + "PTNLRBA: Sentence length error: 7 chars"},
        {"PTNLRBA,1,00001", who + "PTNLRBA: Sentence length error: 15 chars"},
        {"PTNLRBA,1", who + "NMEA parse error: End of sentence reached"},
        {"PTNLRBA,1,1*00", who + "Checksum incorrect or missing"},
    });
    b.refusesOddWidths("PTNLRBA", {{who + "Antenna STATUS Message", "1"},
                                   {who + "Antenna FEEDLINE Message", "1"}}, 8);
    EXPECT_EQ(b.look(KvdLoz6TuGps_antennaFeedline), 2u);
}

TEST(Ptnlrvr, WidthsCountEvenUnderAChecksum)
{
    const std::string who = "KvdLoz6TuGps_parsePTNLRVR: ";
    const std::string month = who + "Manf date Month", day = who + "Manf date Day",
                      year = who + "Manf date Year";
    SentenceBench b;
    EXPECT_EQ(b.take(summed("PTNLRVR,H,ABCD,x,12345678,01,31,2010")), 1);
    EXPECT_EQ(b.take(summed("PTNLRVR,S,01.02.03,04,05,2010")), 1);
    b.refusesEach({
        {"PTNLRVR,S,01.02.03,04,05,2010", who + "Checksum incorrect or missing"},
        {summed("PTNLRVR,H,ABCD," + std::string(27, 'x') + ",12345678,01,31,2010"),
         who + "PTNLRVR: Sentence length error: 65 chars"},
        {summed("PTNLRVR,X,01"), who + "Wrong PTNLRVR subfield!"},
        {summed("PTNLRVR,H,EFGH"), who + "NMEA parse error: End of sentence reached"},
    });
    b.refusesOddWidths("PTNLRVR", {{who + "Type", "H"}, {"", "01"}}, 0, true);
    b.refusesOddWidths("PTNLRVR,H", {{who + "Hardware ID", "EFGH"}, {"", "x"},
                                     {who + "Serial Number", "87654321"}, {month, "02"},
                                     {day, "03"}, {year, "2011"}}, 0, true);
    b.refusesOddWidths("PTNLRVR,S", {{who + "Firmware major version", "04"},
                                     {who + "Firmware minor version", "05"},
                                     {who + "Firmware build version", "06"}, {month, "02"},
                                     {day, "03"}, {year, "2011"}}, 0, true);
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
