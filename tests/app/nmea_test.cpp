// Logs of receivers on a unit's serial line: which sentences are taken, that nothing else moves.
#include "app/nmea.h"
#include "app/nmea_beside.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <unistd.h>

namespace {

using app::NmeaVerdict;
namespace fs = std::filesystem;

/// Folder of recorded logs: $TU_DATA/nmea, else shared/data/nmea above this source, or empty.
fs::path logFolder()
{
    std::error_code ignored;
    if (const char* given = std::getenv("TU_DATA")) return fs::path(given) / "nmea";
    for (fs::path at = fs::absolute(__FILE__).parent_path();; at = at.parent_path()) {
        if (fs::is_directory(at / "shared" / "data" / "nmea", ignored))
            return at / "shared" / "data" / "nmea";
        if (at == at.parent_path()) return {};
    }
}

std::vector<fs::path> recordedLogs()
{
    std::vector<fs::path> logs;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(logFolder(), ignored))
        if (entry.path().extension() == ".log") logs.push_back(entry.path());
    std::sort(logs.begin(), logs.end());
    return logs;
}

// ---- a reader of its own, that knows of sentences only what a good one looks like --------------

std::vector<std::string> fieldsOf(const std::string& body)
{
    std::vector<std::string> fields(1);
    for (const char c : body) {
        if (c == ',' || c == '*') fields.emplace_back();
        else fields.back() += c;
    }
    return fields;
}

bool widthsAre(const std::vector<std::string>& fields, std::size_t first,
               const std::vector<std::vector<std::size_t>>& widths)
{
    for (std::size_t i = 0; i < widths.size(); ++i)
        if (std::count(widths[i].begin(), widths[i].end(), fields[first + i].size()) == 0)
            return false;
    return true;
}

/// All of the body but its checksum is in the first `count` fields.
bool endsWith(const std::vector<std::string>& fields, std::size_t count, std::size_t length)
{
    std::size_t consumed = 0;
    for (std::size_t i = 0; i < count; ++i) consumed += fields[i].size() + 1;
    return consumed + 2 >= length;
}

bool goodGga(const std::vector<std::string>& f, std::size_t length, bool summed)
{
    if (f.size() < 15 || !endsWith(f, 15, length)) return false;
    if (!summed &&
        (length < 70 || length > 79 ||
         !widthsAre(f, 1,
                    {{6}, {9}, {1}, {10}, {1}, {1}, {2}, {5}, {8}, {1}, {6}, {1}, {0, 2}, {0, 4}})))
        return false;
    const auto isOneOf = [](const std::string& field, const char* letters) {
        return !field.empty() && std::string(letters).find(field[0]) != std::string::npos;
    };
    return f[2].size() > 4 && f[2][4] == '.' && isOneOf(f[3], "NS") && f[4].size() > 5 &&
           f[4][5] == '.' && isOneOf(f[5], "EW") && isOneOf(f[6], "012");
}

bool goodGsa(const std::vector<std::string>& f, std::size_t length, bool summed)
{
    if (f.size() < 18 || length < 39 || length > 66 || !endsWith(f, 18, length)) return false;
    std::vector<std::vector<std::size_t>> widths = {{1}, {1}};
    widths.insert(widths.end(), 12, {0, 2});
    widths.insert(widths.end(), 3, {5});
    return summed || widthsAre(f, 1, widths);
}

bool goodGsv(const std::vector<std::string>& f, std::size_t length, bool summed)
{
    if (f.size() < 4 || length < 12 || length > 67) return false;
    const int total = std::atoi(f[1].c_str());
    const int number = std::atoi(f[2].c_str());
    if (total < 1 || total > 9 || number > total) return false;
    if (!summed && !widthsAre(f, 1, {{1}, {1}, {2}})) return false;
    std::size_t count = 4;
    for (int group = 0; group < 4; ++group) {
        std::size_t consumed = count;
        for (std::size_t i = 0; i < count; ++i) consumed += f[i].size();
        if (consumed >= length - (summed ? 2 : 0)) continue;
        if (f.size() < count + 4) return false;
        if (!summed && !widthsAre(f, count, {{0, 2}, {0, 2}, {0, 3}, {0, 2}})) return false;
        count += 4;
    }
    return endsWith(f, count, length);
}

bool goodTps(const std::vector<std::string>& f, std::size_t length, bool summed)
{
    return f.size() >= 12 && length >= 73 && length <= 76 && endsWith(f, 12, length) &&
           (summed || widthsAre(f, 2, {{12}, {1}, {1}, {1}, {12}, {2}, {2}, {12}, {4}, {6}}));
}

/// Whether a sentence with its CR should be taken; nothing where fields overrun what is held.
std::optional<bool> shouldBeTaken(const std::string& sentence)
{
    if (sentence.back() != '\r') return false;
    const std::string body = sentence.substr(0, sentence.size() - 1);
    if (body.find('\0') != std::string::npos) return std::nullopt;
    const std::vector<std::string> f = fieldsOf(body);
    const bool summed = body.size() >= 4 && body[body.size() - 3] == '*';
    if (summed) {
        const std::string before = body.substr(0, body.find('*'));
        const int sum = std::accumulate(before.begin(), before.end(), 0, [](int x, char c) {
            return x ^ static_cast<unsigned char>(c);
        });
        if (body.find('*') != body.size() - 3) return std::nullopt;
        if (std::strtol(body.substr(body.size() - 2).c_str(), nullptr, 16) != sum) return false;
    }
    const bool isGsv = f[0] == "GPGSV" || f[0] == "GLGSV";
    const std::size_t room = isGsv || f[0] == "GPGSA" ? 6 : 12;
    for (const std::string& field : f)
        if (field.size() > room && (f[0] == "GPGGA" || f[0] == "GPGSA" || isGsv))
            return std::nullopt;
    if (f[0] == "GPGGA") return goodGga(f, body.size(), summed);
    if (f[0] == "GPGSA") return goodGsa(f, body.size(), summed);
    if (isGsv) return goodGsv(f, body.size(), summed);
    if (f[0].size() == 4 && f[0][0] == 'P' && f.size() > 1 && f[1] == "GPtps")
        return goodTps(f, body.size(), summed);
    return false;
}

u64 sentencesOf(const std::string& bytes)
{
    u64 count = 0;
    std::optional<std::size_t> length;      // of the sentence under way
    std::size_t idle = 0;
    for (const char c : bytes) {
        const std::size_t held = length.value_or(idle);
        if (held == 254) {
            count += length ? 1 : 0;
            length.reset();
            idle = 0;
        } else if (length) {
            ++*length;
            if (c != '\r' && c != '$') continue;
            ++count;
            length.reset();
            idle = 0;
        } else if (c == '$') {
            length = 0;
        } else {
            ++idle;
        }
    }
    return count;
}

struct Way { const char* name; std::optional<u64> cut; double noise; bool raw; };

TEST(NmeaLogs, OfRealReceiversAreTakenAsFarAsTheyAreGood)
{
    const std::vector<fs::path> logs = recordedLogs();
    if (logs.empty())
        GTEST_SKIP() << "recorded logs not found: set TU_DATA to the folder that holds nmea/";
    constexpr Way WAYS[] = {{"whole", std::nullopt, 0.0, false},
                            {"cut", 7, 0.0, false},
                            {"noise", 8, 0.002, false},
                            {"as recorded", 9, 0.0, true}};
    for (const fs::path& path : logs) {
        u64 takenWhole = 0;
        for (const Way& way : WAYS) {
            SCOPED_TRACE(path.filename().string() + " " + way.name);
            app::NmeaLog log = app::readNmeaLog(path.string(), way.raw);
            app::mixNoise(log, way.noise, 5);
            app::NmeaBench unit;
            u64 good = 0;
            unit.onSentence([&](const app::NmeaSentence& s) {
                if (s.verdict == NmeaVerdict::Woke || s.verdict == NmeaVerdict::TooLong) return;
                const std::optional<bool> wanted = shouldBeTaken(s.text);
                EXPECT_EQ(s.verdict == NmeaVerdict::Taken,
                          wanted.value_or(s.verdict == NmeaVerdict::Taken))
                    << s.text << " " << s.reason;
                if (wanted.value_or(s.verdict == NmeaVerdict::Taken)) ++good;
                EXPECT_EQ(s.reason.empty(), s.verdict == NmeaVerdict::Taken) << s.text;
            });
            unit.feed(log.bytes, way.cut);
            const app::NmeaResult r = unit.result();
            EXPECT_THAT(r.misuses, testing::IsEmpty());
            EXPECT_TRUE(unit.node().programEnds().empty());
            EXPECT_EQ(r.sentences, sentencesOf(log.bytes));
            EXPECT_EQ(r.taken, good);
            EXPECT_EQ(r.taken + r.refused + r.woke + r.tooLong, r.sentences);
            EXPECT_EQ(r.lostBytes, 0u);
            if (!way.cut) takenWhole = r.taken;
            EXPECT_EQ(r.taken, way.noise == 0.0 && !way.raw ? takenWhole : r.taken);
            std::printf("%-36s %-12s %5llu sentences, %5llu taken, %5llu refused, %3llu woke\n",
                        path.filename().c_str(), way.name,
                        static_cast<unsigned long long>(r.sentences),
                        static_cast<unsigned long long>(r.taken),
                        static_cast<unsigned long long>(r.refused),
                        static_cast<unsigned long long>(r.woke));
        }
    }
}

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
        {"GNZDA,,,,,,", "GNZDA", ""},
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
    for (const char* const s : {"GNZDA,120000,01,05,2024,,", "GNZDA,120001,01,05,2024,,", "GNZDA,120001,01,05,2024,,",
                                "GNZDA,120005,01,05,2024,,", "GNZDA,120004,01,05,2024,,"})
        beside.take(withSum(s));
    EXPECT_EQ(beside.steps(), 2u);
}

}  // namespace
