#include "base/tu_common.h"

#include "support/idle_node.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>

TEST(Date, OfASecondCountIsTheCalendars)
{
    struct Case { i64 seconds; DateTime date; };
    for (const Case& c : std::to_array<Case>({
             {-1, {1969, 12, 31, 23, 59, 59}},
             {315'964'800, {1980, 1, 6, 0, 0, 0}},        // GPS epoch
             {951'782'400, {2000, 2, 29, 0, 0, 0}},       // leap day of a year divisible by 400
             {951'868'800, {2000, 3, 1, 0, 0, 0}},
             {1'000'000'000, {2001, 9, 9, 1, 46, 40}},
             {1'709'164'800, {2024, 2, 29, 0, 0, 0}},
             {4'107'542'399, {2100, 2, 28, 23, 59, 59}},  // 2100 has no leap day
             {4'107'542'400, {2100, 3, 1, 0, 0, 0}}})) {
        SCOPED_TRACE(c.seconds);
        const DateTime d = TuCommon_secondsToDate(c.seconds);
        EXPECT_EQ(std::tie(d.year, d.month, d.day), std::tie(c.date.year, c.date.month, c.date.day));
        EXPECT_EQ(std::tie(d.hour, d.minute, d.second), std::tie(c.date.hour, c.date.minute, c.date.second));
        EXPECT_EQ(TuCommon_dateToSeconds(c.date), c.seconds);
    }
}

TEST(Checksum, OfASentenceLeavesOutTheLeadingDollarAlone)
{
    struct Case { std::string_view sentence; u8 sum; };
    for (const Case& c : std::to_array<Case>({
             {"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47", 0x47},
             {"GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,", 0x47},
             {"", 0x00},
             {"$A$*", 0x65}}))                                      // only the leading $ is left out
        EXPECT_EQ(TuCommon_nmeaChecksum(c.sentence.data(), c.sentence.size()), c.sum) << c.sentence;
}

TEST(BootParameter, IsTriedThreeTimesFiftyMillisecondsApart)
{
    struct Case {
        const char* when;
        u32 serverMissing, nonsense;
        const char* name;
        std::size_t room;
        int result;
        u32 attempts;
        const char* trace;
        std::size_t traces;
    };
    constexpr const char* TIMED_OUT = "Hunt for NVPI server process timed out";
    for (const Case& c : std::to_array<Case>(
             {{"at once", 0, 0, "sys_name", 6, 0, 1, "", 0},
              {"third attempt", 2, 0, "sys_name", 6, 0, 3, TIMED_OUT, 2},
              {"no server", 3, 0, "sys_name", 6, 1, 3, TIMED_OUT, 3},
              {"no such name", 0, 0, "other", 6, 2, 3, "PBOOT parameter (other) area not found.", 3},
              {"no room", 0, 0, "sys_name", 5, 3, 3, "PBOOT parameter (sys_name) is too large", 3},
              {"nonsense", 0, 1, "sys_name", 6, 0, 2, "Unexpected reponse from NVPI", 1}})) {
        SCOPED_TRACE(c.when);
        IdleNode b;
        b.node.parameters().bootTexts["sys_name"] = "abcde";
        b.node.parameters().bootServerMissing = c.serverMissing;
        b.node.parameters().bootNonsense = c.nonsense;
        char text[8] = "";
        int result = -1;
        ose::Time took = 0;
        b.in([&] {
            const ose::Time before = b.world.now();
            result = TuCommon_bootParameter(c.name, text, c.room);
            took = b.world.now() - before;
        });
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(b.node.parameters().bootAttempts, c.attempts);
        EXPECT_EQ(took, (c.attempts - 1) * 50 * ose::MS);
        EXPECT_EQ(b.node.traces().count({.text = c.trace, .level = 1}), c.traces);
        EXPECT_STREQ(text, c.result == 0 ? "abcde" : "");
    }
}

TEST(NumberText, KeepsAllDigitsAndSeveralAtATime)
{
    IdleNode b;
    std::string joined;
    b.in([&] {
        const char* a = TuCommon_text(0.1);
        const char* c = TuCommon_text(-0.5);
        joined = std::string(a) + "|" + c + "|";
    });
    EXPECT_EQ(joined, "0.10000000000000001|-0.5            |");
}
