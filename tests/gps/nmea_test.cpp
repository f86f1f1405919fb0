// Grammar, checksums and dispatch of sentences; position and DOP from GPGGA and GPGSA; written
// frames.
#include "gps/kvd_gps_nmea.h"
#include "tests/gps/sentence_bench.h"

namespace {

using gpstest::SentenceBench;
using gpstest::summed;

const std::string GGA = "GPGGA,123519,4807.0380,N,01131.0000,E,1,08,000.9,000545.4,M,0046.9,M,,";
const std::string& GSA = gpstest::GOOD;

std::string replaced(std::string text, const std::string& part, const std::string& by)
{
    return text.replace(text.find(part), part.size(), by);
}

}  // namespace

TEST(NmeaGrammar, AddressFindsParserClassAndKind)
{
    struct Known { const char* text; u8 sentenceClass, kind; };
    SentenceBench b;
    // Refused for want of everything else, and told what they are all the same.
    for (const Known& c : std::to_array<Known>(
             {{"GPGGA,", 2, 1}, {"GPGSA,", 3, 2}, {"GPGSV,", 3, 3}, {"PFEC,GPanc,", 3, 4},
              {"PFEC,GPtps,", 1, 5}, {"PNVX,GPppr,", 1, 6}, {"PNVX,GPsts,", 5, 7},
              {"PNVX,GPavp,", 2, 8},
              {"PNVX,GPver,", 5, 9}, {"PNVX,GPout,", 5, 10}, {"GLGSV,", 3, 11}, {"PTNLRBA", 6, 12},
              {"PTNLRVR,", 7, 13}, {"Pxyz,GPppr,", 1, 6}})) {
        EXPECT_EQ(b.take(c.text), 0) << c.text;
        EXPECT_EQ(b.type.sentenceClass, c.sentenceClass) << c.text;
        EXPECT_EQ(b.type.kind, c.kind) << c.text;
    }
    for (const auto& [text, trace] : std::to_array<SentenceBench::Refusal>({
             {"GPGGAGGA,1", "NMEA address field too large"},
             {"GPGGAGG,1", "NMEA address GPGGAGG not handled"},
             {"GPRMC,1", "NMEA address GPRMC not handled"},
             {"XNVX,GPppr,", "NMEA address XNVX not handled"},
             {"PNV,GPppr,", "NMEA address PNV not handled"},
             {"", "NMEA address  not handled"},
             {"PNVX,GPppr1,", "Proprietary sentence type field too large"},
             {"PNVX,GPmod,1", "Proprietary message PNVX,GPmod not handled"},
             {"PNVX", "Proprietary message PNVX, not handled"}})) {
        b.refuses(text, trace);
        EXPECT_EQ(b.type.sentenceClass, 0) << text;
        EXPECT_EQ(b.type.kind, 0) << text;
    }
}

TEST(NmeaGrammar, ChecksumsAreReadAsTheyAreWritten)
{
    SentenceBench b;
    for (const std::string& text :
         {GSA, GSA + "*39", GSA + "*3", replaced(GSA, ",A,", ",C,") + "*3B",
          replaced(GSA, ",A,", ",C,") + "*3b", replaced(GSA, ",A,", ",q,") + "*09",
          replaced(GSA, ",A,", ",q,") + "* 9"})
        EXPECT_EQ(b.take(text), 1) << text;
    EXPECT_EQ(b.look(KvdLoz6TuGps_nmeaCounters).numberOfGPGSA, 7u);
    for (const char* checksum : {"*38", "*zz"})
        b.refuses(GSA + checksum, "KvdLoz6TuGps_parseGPGSA: Checksum incorrect or missing");
    EXPECT_EQ(b.look(KvdLoz6TuGps_nmeaCounters).numberOfGPGSA, 9u) << "the good ones alone";
}

TEST(NmeaGrammar, TextEndsAtADollarOrANul)
{
    SentenceBench b;
    b.refusesEach({{GSA + "$", "GPGSA VDOP field is 6 bytes"},
                   {GSA.substr(0, 30) + "$", "GPGSA: Sentence length error: 31 chars"},
                   {GSA.substr(0, 30) + std::string(1, '\0') + GSA.substr(31),
                    "GPGSA: Sentence length error: 30 chars"}});
}

TEST(NmeaGrammar, FramesOfWrittenSentences)
{
    struct Frame { const char* body; NmeaFrame frame; const char* text; };
    char out[32];
    for (const Frame& f : std::to_array<Frame>({
             {"PTNLSRT,C,0", NMEA_CHECKSUM, "$PTNLSRT,C,0*20\r\n"},
             {"PNVX,GPdbg,g", NMEA_CHECKSUM, "$PNVX,GPdbg,g*01\r\n"},
             {"PNVX,GPdbg,g", NMEA_CHECKSUM_BLANK, "$PNVX,GPdbg,g* 1\r\n"},
             {"PFEC,GPset,Z1", NMEA_PLAIN, "$PFEC,GPset,Z1\r\n"}})) {
        EXPECT_EQ(KvdLoz6TuGps_frameSentence(out, sizeof out, f.body, f.frame),
                  std::strlen(f.text));
        EXPECT_STREQ(out, f.text);
    }
    EXPECT_EQ(KvdLoz6TuGps_frameSentence(out, 17, "PTNLSRT,C,0", NMEA_CHECKSUM), 0u)
        << "no room for the NUL";
    EXPECT_STREQ(out, "");
    EXPECT_EQ(KvdLoz6TuGps_frameSentence(out, 18, "PTNLSRT,C,0", NMEA_CHECKSUM), 17u);
}

TEST(Gpgga, StoresThePosition)
{
    SentenceBench b;
    EXPECT_EQ(
        b.take("GPGGA,000001,3352.1234,S,15112.9999,W,2,11,001.0,-00012.5,M,0046.9,M,12,0123"), 1);
    EXPECT_EQ(gpstest::flat(b.receiver().instantaneous),
              (std::vector<double>{33, 52, 1234, 2, 151, 12, 9999, 3, -12.5}));
    EXPECT_EQ(b.look(KvdLoz6TuGps_noOfSatellitesForPosit), 11);
    EXPECT_TRUE(b.told("GPGGA UTC time: 0:0:1"));
    EXPECT_TRUE(b.told("GPGGA GPS Receiver Status: 2"));
}

TEST(Gpgga, IsRefusedWithTheReason)
{
    SentenceBench b;
    EXPECT_EQ(b.take(GGA), 1) << "70 characters";
    EXPECT_EQ(b.take(summed("GPGGA,12,4807.1,N,01131.2,E,1,8,.9,5,,4,,1,2")), 1) << "odd widths";
    b.refusesEach({
        {GGA.substr(0, 69), "GPGGA: Sentence length error: 69 chars"},
        {GGA + "0,123456", "GPGGA DGPS Station ID field is 1 bytes"},
        {GGA + "00,1234,00", "GPGGA: Sentence length error: 80 chars"},
        {GGA + "*76", "KvdLoz6TuGps_parseGPGGA: Checksum incorrect or missing"},
        {summed(replaced(GGA, "4807.0", "48070.")), "GPGGA latitude separator error: 0"},
        {summed(replaced(GGA, "1131.0", "11310.")), "GPGGA longitude separator error: 0"},
        {summed(replaced(GGA, "N", "n")), "GPGGA: Error in latitude direction value"},
        {summed(replaced(GGA, "E", "S")), "GPGGA: Error in longitude direction value"},
        {summed(replaced(GGA, ",1,", ",3,")), "GPGGA: Error in receiver status value"},
        {summed("GPGGA,123519,4807.0380,N,01131.0000,E,1"),
         "NMEA parse error: End of sentence reached"},
        {GGA + ",xxx", "GPGGA message not fully parsed (parsed 71 of 74 chars)"},
        // As long as the line delivers.
        {summed(GGA + "," + std::string(179, 'x')),
         "GPGGA message not fully parsed (parsed 71 of 253 chars)"},
    });
    b.refusesOddWidths("GPGGA", {
        {"GPGGA UTC", "123519"}, {"GPGGA latitude", "4807.0380"}, {"", "N"},
        {"GPGGA longitude", "01131.0000"}, {"", "E"}, {"GPGGA status", "1"},
        {"GPGGA number of satellites", "08"}, {"GPGGA DOP", "000.9"},
        {"GPGGA altitude", "000545.4"}, {"GPGGA unit of altitude", "M"},
        {"GPGGA geoid altitude", "0046.9"}, {"GPGGA unit of geoid", "M"},
        {"GPGGA DGPS data time", "12"}, {"GPGGA DGPS Station ID", "0123"}}, 70);
}

TEST(Gpgga, KeepsThePositionOfARefusedSentenceOut)
{
    SentenceBench b;
    EXPECT_EQ(b.take(GGA), 1);
    const std::string longer =
        "GPGGA,123519,3300.0000,S,15100.0000,W,1,05,000.9,000001.0,M,1,M,,,x";
    EXPECT_EQ(b.take(summed(longer)), 0);
    EXPECT_EQ(b.receiver().instantaneous.latitude.deg, 48);
    EXPECT_EQ(b.receiver().instantaneous.altitude, 545.4);
    EXPECT_EQ(b.look(KvdLoz6TuGps_noOfSatellitesForPosit), 5) << "stored when it is read";
    // A field of 13 doesn't fit: the altitude is what stands in the field before.
    EXPECT_EQ(b.take(summed(replaced(GGA, "000545.4", "00000000545.4"))), 1);
    EXPECT_TRUE(b.told("NMEA message field too large: 13"));
    EXPECT_EQ(b.receiver().instantaneous.altitude, 0.9);
}

TEST(Gpgsa, StoresDopAndUsedSatellites)
{
    SentenceBench b;
    EXPECT_EQ(b.take(GSA), 1);
    const GpsDop dop = b.look([] { return KvdLoz6TuGps_dop(); });
    EXPECT_EQ(dop.PDOP, 2.5);
    EXPECT_EQ(dop.HDOP, 1.3);
    EXPECT_EQ(dop.VDOP, 2.1);
    EXPECT_EQ(b.look([] { return KvdLoz6TuGps_usedSatellites(); }),
              (std::array<u8, 12>{4, 5, 0, 9, 12, 0, 0, 24, 0, 0, 0, 0}));

    for (const char* text : {"GPGSA,A,3,,,,,,,,,,,,,009.5,001.3,002.1",
                             "GPGSA,A,3,01,02,03,04,05,06,07,08,09,10,11,12,002.5,001.3,002.1*37"})
        EXPECT_EQ(b.take(text), 1) << text;
    b.refusesEach({
        {"GPGSA,A,3,,,,,,,,,,,,,09.5,001.3,002.1", "GPGSA: Sentence length error: 38 chars"},
        {summed("GPGSA,A,3,,,,,,,,,,,,,01.0,01.0,1.0"), "GPGSA: Sentence length error: 38 chars"},
        {summed("GPGSA,A,3,01,02,03,04,05,06,07,08,09,10,11,12,0002.5,001.3,002.1"),
         "GPGSA: Sentence length error: 67 chars"},
        {GSA + ",xxx", "GPGSA message not fully parsed (parsed 50 of 53 chars)"},
    });
    b.refusesOddWidths("GPGSA", {
        {"GPGSA operational mode", "A"}, {"GPGSA positioning status", "3"},
        {"GPGSA satellite used", "04"}, {"", "05"}, {"", ""}, {"", ""}, {"", ""}, {"", ""},
        {"", ""}, {"", ""}, {"", ""}, {"", ""}, {"", ""}, {"GPGSA satellite used", "06"},
        {"GPGSA PDOP", "002.5"},
        {"GPGSA HDOP", "001.3"}, {"GPGSA VDOP", "002.1"}}, 39);
}
