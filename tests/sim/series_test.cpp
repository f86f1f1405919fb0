// Recorded series: what is read, what is refused and with which words.
#include "sim/clock/series.h"

#include <gmock/gmock.h>
#include <unistd.h>
#include <zlib.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using sim::SeriesKind;

/// A file that goes with its test.
struct File {
    std::string path;

    File(const std::string& name, const std::string& content)
        : path(testing::TempDir() + "series_" + std::to_string(::getpid()) + "_" + name)
    {
        std::ofstream(path, std::ios::binary) << content;
    }
    ~File() { std::filesystem::remove(path); }
};

void compress(const std::string& path, const std::string& content)
{
    gzFile out = gzopen(path.c_str(), "wb");
    gzwrite(out, content.data(), static_cast<unsigned>(content.size()));
    gzclose(out);
}

std::string errorOf(const std::string& path, std::size_t column = 0)
{
    try {
        sim::readSeries(path, column);
    } catch (const sim::SeriesError& error) {
        return error.what();
    }
    return "";
}

TEST(Series, ReadsOneNumberALine)
{
    struct Case {
        const char* what;
        const char* content;
        std::size_t column;
        std::vector<double> values;
    };
    for (const Case& c : std::vector<Case>{
             {"no end of line", "1\n2", 0, {1.0, 2.0}},
             {"comments and empty lines", "# unit: s\n\n  # more\n1\n\r\n2\n", 0, {1.0, 2.0}},
             {"signs, long exponents", "+2.76845904E-007\n -1E+002\n", 0, {2.76845904e-7, -100.0}},
             {"second of a comma list", "1,10\n2, 20\n", 1, {10.0, 20.0}},
             {"third of blanks and tabs", "a 1\t10 x\nb 2 \t 20 y\n", 2, {10.0, 20.0}},
             {"semicolons", "1;2;3\n", 2, {3.0}},
             {"heading of a table", "t;offset\n1;2\n", 1, {2.0}},
             {"a terminal's line and a heading", "=~=~= log =~=~=\n#\t\tCounts\n1\t\t52\n", 1, {52.0}},
             {"blanks behind", "1  \n", 0, {1.0}}}) {
        SCOPED_TRACE(c.what);
        const File file("good", c.content);
        EXPECT_EQ(sim::readSeries(file.path, c.column), c.values);
        compress(file.path, c.content);
        EXPECT_EQ(sim::readSeries(file.path, c.column), c.values);
    }
}

TEST(Series, RefusesABadLineWithFileLineAndReason)
{
    struct Case { const char* what; std::string content; std::size_t column; const char* error; };
    for (const Case& c : std::vector<Case>{
             {"word", "1\n2\nabc\n4\n", 0, ":3: 'abc' isn't a number"},
             {"number with a tail", "# head\n1.5x\n", 0, ":2: '1.5x' isn't a number"},
             {"not finite", "1\nnan\n", 0, ":2: the number isn't finite"},
             {"missing column", "1,2\n3\n", 1, ":2: no field 1"},
             {"long line", "1\n" + std::string(5000, '7') + "\n", 0, ":2: the line is too long"},
             {"zero byte", std::string("1\n2\0003\n4\n", 8), 0, ":2: a zero byte: the file is no text"},
             {"empty", "", 0, ": no number in the file"},
             {"comments only", "# nothing\n\n", 0, ": no number in the file"}}) {
        SCOPED_TRACE(c.what);
        const File file("bad", c.content);
        EXPECT_EQ(errorOf(file.path, c.column), file.path + c.error);
    }
    EXPECT_EQ(errorOf("/nowhere/at/all.txt"), "/nowhere/at/all.txt: the file can't be opened");
    const File cut("cut", "");
    std::string lines;
    for (int i = 0; i < 5000; ++i) lines += std::to_string(i * i % 7919) + "\n";
    compress(cut.path, lines);
    std::filesystem::resize_file(cut.path, std::filesystem::file_size(cut.path) / 2);
    EXPECT_NE(errorOf(cut.path).find("the compressed file is broken"), std::string::npos);
}

TEST(Series, RunsBackAtItsEndSoThatNothingJumps)
{
    const sim::EndlessSeries three({1.0, 2.0, 3.0});
    for (u64 i = 0; const double value : {1.0, 2.0, 3.0, 2.0, 1.0, 2.0, 3.0, 2.0, 1.0})
        EXPECT_EQ(three.at(i++), value);
    EXPECT_EQ(three.at(4'000'000'000'000), 1.0);
    EXPECT_EQ(sim::EndlessSeries({7.0}).at(123), 7.0);
}

TEST(Series, TurnsPhasesAndFrequenciesIntoEachOther)
{
    struct Case { SeriesKind kind; double interval_s; std::vector<double> values, phase, frequency; };
    for (const Case& c : std::vector<Case>{
             {SeriesKind::Phase, 2.0, {5e-9, 9e-9, 3e-9}, {0.0, 4e-9, -2e-9}, {2e-9, -3e-9}},
             {SeriesKind::Phase, 1.0, {5e-9}, {0.0}, {0.0}},
             {SeriesKind::Frequency, 2.0, {1e-9, -3e-9}, {2e-9, -4e-9}, {1e-9, -3e-9}}}) {
        const auto near = testing::DoubleNear(1e-20);
        EXPECT_THAT(sim::asPhase(c.values, c.kind, c.interval_s), testing::Pointwise(near, c.phase));
        EXPECT_THAT(sim::asFrequency(c.values, c.kind, c.interval_s), testing::Pointwise(near, c.frequency));
    }
}

TEST(Series, IsAClockOrIsRefused)
{
    struct Case { const char *what, *content, *form; std::vector<double> y; const char* error; };
    for (const Case& c : std::vector<Case>{
             {"Hz by its look", "10000001\n", "", {1e-7}, ""},
             {"MHz by its look", "10.000001\n", "", {1e-7}, ""},
             {"MHz", "9.999999\n", ":mhz", {-1e-7}, ""},
             {"relative by its look", "1e-9\n", "", {1e-9}, ""},
             {"counts of two gates", "1 50000005\n2 49999995\n", ":counts,column=1,nominal=50000000,gate=2",
              {1e-7, 1e-7, -1e-7, -1e-7}, ""},
             {"Hz said relative", "10000001\n", ":frequency", {}, ": value 1 would be a clock 1e+16 ppb"},
             {"just inside", "0.0001\n", ":frequency", {1e-4}, ""},
             {"just outside", "0\n0.00011\n", ":frequency", {}, ": value 2 would be a clock 1.1e+05 ppb off"},
             {"ns said to be s", "15\n16\n", ":phase", {}, ": value 1 would be a clock 1e+09 ppb off"},
             {"nothing of a clock", "42\n", "", {}, "name what it holds"},
             {"counts of nothing", "1\n", ":counts", {}, "counts need nominal=COUNTS"},
             {"no such word", "1\n", ":hz,colour=1", {}, "'colour=1' is none of column=N"},
             {"column that is none", "1\n", ":hz,column=", {}, "'column=' is none of"}}) {
        SCOPED_TRACE(c.what);
        const File file("clock", c.content);
        std::string error;
        std::vector<double> y;
        try {
            const auto [path, form] = sim::parseSeriesForm(file.path + c.form);
            y = sim::readFrequencies(path, form);
        } catch (const sim::SeriesError& e) {
            error = e.what();
        }
        EXPECT_NE(error.find(c.error), std::string::npos) << error;
        EXPECT_EQ(error.empty(), *c.error == '\0') << error;
        EXPECT_THAT(y, testing::Pointwise(testing::DoubleNear(1e-15), c.y));
    }
}

}  // namespace
