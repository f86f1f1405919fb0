// Logs of receivers on a unit's serial line: which sentences are taken.
#include "app/nmea.h"
#include "app/nmea_beside.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using app::NmeaVerdict;
namespace fs = std::filesystem;

TEST(NmeaFeed, TellsWhatBecameOfEachSentence)
{
    struct Case { const char* bytes; NmeaVerdict verdict; const char* type; const char* reason; };
    const std::string tooLong = "$GPGGA," + std::string(260, '1');
    const Case cases[] = {
        {"$GPRMC,first*00\r\n", NmeaVerdict::Woke, "GPRMC", ""},
        {"$GPGGA,105153.71,4539.5432,N,01346.7712,E,1,07,1.2,90.0,M,42.9,M,,*53\r\n", NmeaVerdict::Taken,
         "GPGGA", ""},
        {"$GPGGA,105153.71,4539.5432,N,01346.7712,E,1,07,1.2,90.0,M,42.9,M,,*54\r\n", NmeaVerdict::Refused,
         "GPGGA", "KvdLoz6TuGps_parseGPGGA: Checksum incorrect or missing"},
        {"~~~$GPRMC,105153,A*09\r\n", NmeaVerdict::Refused, "GPRMC", "NMEA address GPRMC not handled"},
        {"$PFEC,GPxyz,1*00\r\n", NmeaVerdict::Refused, "PFEC,GPxyz",
         "Proprietary message PFEC,GPxyz not handled"},
        {"$GPGSA,A,3\r\n", NmeaVerdict::Refused, "GPGSA", "GPGSA: Sentence length error: n chars"},
        {tooLong.c_str(), NmeaVerdict::TooLong, "GPGGA", ""},
    };
    app::NmeaBench unit;
    std::vector<app::NmeaSentence> heard;
    unit.onSentence([&](const app::NmeaSentence& s) { heard.push_back(s); });
    for (const Case& c : cases) unit.feed(c.bytes, std::nullopt);
    ASSERT_EQ(heard.size(), std::size(cases));
    for (std::size_t i = 0; i < heard.size(); ++i) {
        SCOPED_TRACE(cases[i].bytes);
        EXPECT_EQ(heard[i].verdict, cases[i].verdict);
        EXPECT_EQ(heard[i].type, cases[i].type);
        EXPECT_EQ(heard[i].reason, cases[i].reason);
    }
    const app::NmeaResult r = unit.result();
    EXPECT_EQ(r.outsideBytes, 3u + 11u);     // "~~~", and what follows the 254 characters
    EXPECT_EQ(r.position.latitude.deg, 45);
    EXPECT_EQ(r.position.longitude.fractMin, 7712);
    EXPECT_EQ(r.satellitesUsed, 7);
}

TEST(NmeaLogFile, IsReadWithoutItsHeadingAndWithItsReturns)
{
    const fs::path file = fs::temp_directory_path() / ("tu-nmea-" + std::to_string(::getpid()) + ".log");
    const auto write = [&](const char* content) { std::ofstream(file, std::ios::binary) << content; };
    write("# a receiver\n# its notes\n$GPGGA,1\n#$GPGSA\n");
    EXPECT_EQ(app::readNmeaLog(file, false).bytes, "$GPGGA,1\r\n#$GPGSA\r\n");
    EXPECT_EQ(app::readNmeaLog(file, true).bytes, "$GPGGA,1\n#$GPGSA\n");
    write("$GPGGA,1\r\nx\n");
    EXPECT_EQ(app::readNmeaLog(file, false).bytes, "$GPGGA,1\r\nx\n");
    for (const char* content : {"", "# heading alone"}) {
        write(content);
        EXPECT_THROW(app::readNmeaLog(file, false), app::NmeaError) << content;
    }
    fs::remove(file);
    EXPECT_THROW(app::readNmeaLog(file, false), app::NmeaError);
}

TEST(NmeaBeside, ReadsDateAndTimeOfAnyTalker)
{
    const auto withSum = [](const std::string& body) {
        u8 sum = 0;
        for (const char c : body) sum ^= static_cast<u8>(c);
        char tail[4];
        std::snprintf(tail, sizeof tail, "*%02X", sum);
        return body + tail + "\r";
    };
    struct Case { const char* body; const char* type; const char* time; };
    constexpr Case CASES[] = {
        {"GNRMC,120000.00,A,5924.0,N,01757.0,E,0.0,0.0,010524,,,A", "GNRMC", "2024-05-01 12:00:00 UTC"},
        {"GPRMC,235959,A,,,,,,,311299,,", "GPRMC", "2099-12-31 23:59:59 UTC"},
        {"GNZDA,000000.00,01,03,2024,00,00", "GNZDA", "2024-03-01 00:00:00 UTC"},
        {"GBZDA,235960,31,12,2016,00,00", "GBZDA", "2017-01-01 00:00:00 UTC"},       // a leap second
        {"GNRMC,120000.00,V,,,,,,,010524,,,N", "GNRMC", ""},
        {"GNZDA,120000.00,31,02,2024,00,00", "GNZDA", ""},
        {"GNZDA,1200,01,02,2024,00,00", "GNZDA", ""},
        {"GNRMC,120000", "GNRMC", ""},
    };
    for (const Case& c : CASES) {
        SCOPED_TRACE(c.body);
        app::NmeaBeside beside;
        beside.take(withSum(c.body));
        EXPECT_EQ(beside.time(), c.time);
        ASSERT_EQ(beside.counts().count(c.type), 1u);
        EXPECT_EQ(beside.counts().at(c.type).good, *c.time != '\0' ? 1u : 0u);
    }
    app::NmeaBeside beside;
    for (const char* const wrong : {"", "GN", "GNRMC", "GPGGA,1*00\r", "GNRMC,120000.00,A*ZZ\r", "GNRMC,1*5"})
        beside.take(wrong);
    EXPECT_EQ(beside.counts().at("GNRMC").badSum, 2u);
    for (const char* const second : {"00", "01", "01", "05", "04"})
        beside.take(withSum("GNZDA,1200" + std::string(second) + ",01,05,2024,,"));
    EXPECT_EQ(beside.steps(), 2u);
}

}  // namespace
