#include "app/nmea_beside.h"

#include <charconv>
#include <chrono>
#include <optional>
#include <vector>

namespace app {
namespace {

std::vector<std::string_view> fieldsOf(std::string_view text)
{
    std::vector<std::string_view> fields;
    for (;;) {
        const std::size_t comma = text.find(',');
        fields.push_back(text.substr(0, comma));
        if (comma == std::string_view::npos) return fields;
        text.remove_prefix(comma + 1);
    }
}

/// "hh" behind the star against the exclusive or of all before it.
bool isSumRight(std::string_view sentence, std::size_t star)
{
    u8 sum = 0, told = 0;
    for (const char c : sentence.substr(0, star)) sum ^= static_cast<u8>(c);
    const char* const from = sentence.data() + star + 1;
    if (sentence.size() < star + 3) return false;
    const auto [end, error] = std::from_chars(from, from + 2, told, 16);
    return error == std::errc{} && end == from + 2 && told == sum;
}

std::optional<int> numberOf(std::string_view digits, int low, int high)
{
    int value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc{} || end != digits.data() + digits.size() || value < low || value > high)
        return std::nullopt;
    return value;
}

struct Date { std::optional<int> day, month, year; };

/// s since 1970 of "hhmmss[.ss]" on a day.
std::optional<i64> secondOf(std::string_view time, const Date& date)
{
    if (time.size() < 6) return std::nullopt;
    const auto h = numberOf(time.substr(0, 2), 0, 23), m = numberOf(time.substr(2, 2), 0, 59),
               s = numberOf(time.substr(4, 2), 0, 60);
    if (!h || !m || !s || !date.day || !date.month || !date.year) return std::nullopt;
    using namespace std::chrono;
    const year_month_day day{year{*date.year}, month{static_cast<unsigned>(*date.month)},
                             std::chrono::day{static_cast<unsigned>(*date.day)}};
    if (!day.ok()) return std::nullopt;
    return sys_days{day}.time_since_epoch().count() * 86'400LL + *h * 3600 + *m * 60 + *s;
}

/// Two figures: of this century, as no receiver of today means the last one's eighties.
Date dateOfRmc(std::string_view ddmmyy)
{
    if (ddmmyy.size() != 6) return {};
    const auto year = numberOf(ddmmyy.substr(4, 2), 0, 99);
    return {numberOf(ddmmyy.substr(0, 2), 1, 31), numberOf(ddmmyy.substr(2, 2), 1, 12),
            year ? std::optional(2000 + *year) : std::nullopt};
}

std::string textOf(i64 second)
{
    using namespace std::chrono;
    const sys_seconds at{seconds{second}};
    const sys_days day = floor<days>(at);
    const year_month_day date{day};
    const hh_mm_ss time{at - day};
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02u-%02u %02d:%02d:%02d UTC", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text;
}

}  // namespace

void NmeaBeside::take(std::string_view sentence)
{
    constexpr std::size_t ADDRESS = 5;               // talker and type
    if (sentence.size() <= ADDRESS || sentence[ADDRESS] != ',') return;
    const std::string_view type = sentence.substr(2, 3);
    if (type != "RMC" && type != "ZDA") return;
    Count& count = counts_[std::string(sentence.substr(0, ADDRESS))];
    const std::size_t star = sentence.find('*');
    if (star == std::string_view::npos || !isSumRight(sentence, star)) {
        ++count.badSum;
        return;
    }
    const std::vector<std::string_view> f = fieldsOf(sentence.substr(0, star));
    std::optional<i64> second;
    if (type == "RMC" && f.size() > 9) {
        if (f[2] != "A") {
            ++count.invalid;
            return;
        }
        second = secondOf(f[1], dateOfRmc(f[9]));
    } else if (type == "ZDA" && f.size() > 4) {
        if (f[1].empty() || f[4].empty()) {
            ++count.invalid;
            return;
        }
        second = secondOf(f[1], {numberOf(f[2], 1, 31), numberOf(f[3], 1, 12), numberOf(f[4], 1980, 9999)});
    }
    if (second) note(count, *second);
    else        ++count.unreadable;
}

void NmeaBeside::note(Count& count, i64 second)
{
    ++count.good;
    const bool isNext = second == second_ || second == second_ + 1;
    if (!time_.empty() && !isNext) ++steps_;
    second_ = second;
    time_ = textOf(second);
}

void printNmeaBeside(const NmeaBeside& beside, std::FILE* out)
{
    if (beside.counts().empty()) return;
    const auto n = [](u64 count) { return static_cast<unsigned long long>(count); };
    std::fprintf(out, "beside the unit, which doesn't read them    good  invalid  bad sum  unreadable\n");
    for (const auto& [type, c] : beside.counts())
        std::fprintf(out, "  %-40s %7llu  %7llu  %7llu  %10llu\n", type.c_str(), n(c.good), n(c.invalid),
                     n(c.badSum), n(c.unreadable));
    if (!beside.time().empty())
        std::fprintf(out, "  time       %s, %llu steps\n", beside.time().c_str(), n(beside.steps()));
}

}  // namespace app
