// Logs of receivers on a unit's serial line: which sentences are taken, that nothing else moves.
#include "app/nmea.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace {

using app::NmeaVerdict;
namespace fs = std::filesystem;

/// What the unit says of its clock and its references.
std::string outside(app::NmeaBench& unit)
{
    std::string regulator;
    std::string references;
    unit.node().shell().run("kvdinfo tureg", regulator);
    unit.node().shell().run("kvdinfo turef", references);
    return regulator + references;
}

// Two units from one seed: one hears a minute of garbage and sentences, one hears nothing.
TEST(NmeaLogs, MoveNothingOutsideTheReader)
{
    app::NmeaLog log;
    for (int i = 0; i < 60; ++i)
        log.bytes += "$GPGGA,105153.71,4539.5432,N,01346.7712,E,1,07,1.2,90.0,M,42.9,M,,*53\r\n"
                     "$GPGSV,1,1,02,12,40,120,44,14,,,00*4A\r\n";
    app::mixNoise(log, 0.05, 3);
    app::NmeaBench hears;
    app::NmeaBench silent;
    hears.feed(log.bytes, 4);
    silent.world().runUntil(hears.world().now());
    EXPECT_GT(hears.result().refused, 0u);
    EXPECT_EQ(hears.node().mainProcessor().clockState(),
              silent.node().mainProcessor().clockState());
    EXPECT_EQ(outside(hears), outside(silent));
}

TEST(NmeaFeed, TellsWhatBecameOfEachSentence)
{
    struct Case { const char* bytes; NmeaVerdict verdict; const char* type; const char* reason; };
    const std::string tooLong = "$GPGGA," + std::string(260, '1');
    const Case cases[] = {
        {"$GPRMC,first*00\r\n", NmeaVerdict::Woke, "GPRMC", ""},
        {"$GPGGA,105153.71,4539.5432,N,01346.7712,E,1,07,1.2,90.0,M,42.9,M,,*53\r\n",
         NmeaVerdict::Taken, "GPGGA", ""},
        {"$GPGGA,105153.71,4539.5432,N,01346.7712,E,1,07,1.2,90.0,M,42.9,M,,*54\r\n",
         NmeaVerdict::Refused, "GPGGA", "KvdLoz6TuGps_parseGPGGA: Checksum incorrect or missing"},
        {"~~~$GPRMC,105153,A*09\r\n", NmeaVerdict::Refused, "GPRMC",
         "NMEA address GPRMC not handled"},
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
    const fs::path file =
        fs::temp_directory_path() / ("tu-nmea-" + std::to_string(::getpid()) + ".log");
    const auto write = [&](const char* content) {
        std::ofstream(file, std::ios::binary) << content;
    };
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

}  // namespace
