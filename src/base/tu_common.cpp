#include "base/tu_common.h"

#include "base/trace_groups.h"
#include "node/platform.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "ose/ose.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace {

constexpr i64 SECONDS_PER_DAY = 86400;
constexpr i64 DAYS_PER_ERA = 146097;          // 400 Gregorian years
constexpr i64 DAYS_TO_1970 = 719468;          // from 0000-03-01

constexpr u32 BOOT_ATTEMPTS = 3;
constexpr OSTIME BOOT_RETRY_ms = 50;

constexpr u32 TEXT_SLOTS = 16;                // more than one trace has arguments
constexpr std::size_t TEXT_SIZE = 40;

struct State {
    std::array<std::array<char, TEXT_SIZE>, TEXT_SLOTS> text{};
    u32 nextText = 0;
};
ose::ModuleData<State> s;

/// The last `width` decimal digits of a value, from `at` on.
void putDigits(char* at, u32 value, u32 width)
{
    for (; width > 0; value /= 10) at[--width] = static_cast<char>('0' + value % 10);
}

/// Quotient and remainder with the remainder from 0 to divisor - 1.
i64 floorDiv(i64 value, i64 divisor)
{
    const i64 quotient = value / divisor;
    return value % divisor < 0 ? quotient - 1 : quotient;
}

void traceBootFailure(int result, const char* name)
{
    switch (result) {
    case 1: KVD_TRACE(TRACE_TUCOMMON, TRACE_ERROR, "Hunt for NVPI server process timed out"); return;
    case 2: KVD_TRACE(TRACE_TUCOMMON, TRACE_ERROR, "PBOOT parameter (%s) area not found.", name); return;
    case 3: KVD_TRACE(TRACE_TUCOMMON, TRACE_ERROR, "PBOOT parameter (%s) is too large", name); return;
    default: KVD_TRACE(TRACE_TUCOMMON, TRACE_ERROR, "Unexpected reponse from NVPI"); return;
    }
}

}  // namespace

DateTime TuCommon_secondsToDate(i64 seconds)
{
    const i64 days = floorDiv(seconds, SECONDS_PER_DAY);
    const i64 rest = seconds - days * SECONDS_PER_DAY;

    // Years begin on 1 March here, so that the leap day is the last of its year.
    const i64 shifted = days + DAYS_TO_1970;
    const i64 era = floorDiv(shifted, DAYS_PER_ERA);
    const i64 dayOfEra = shifted - era * DAYS_PER_ERA;
    const i64 yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const i64 dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const i64 marchMonth = (5 * dayOfYear + 2) / 153;      // 0 is March
    const i64 month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
    const i64 year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);

    return {static_cast<u16>(year),
            static_cast<u8>(month),
            static_cast<u8>(dayOfYear - (153 * marchMonth + 2) / 5 + 1),
            static_cast<u8>(rest / 3600),
            static_cast<u8>(rest / 60 % 60),
            static_cast<u8>(rest % 60)};
}

i64 TuCommon_dateToSeconds(const DateTime& date)
{
    const i64 marchYear = static_cast<i64>(date.year) - (date.month <= 2 ? 1 : 0);
    const i64 era = floorDiv(marchYear, 400);
    const i64 yearOfEra = marchYear - era * 400;
    const i64 marchMonth = date.month > 2 ? date.month - 3 : date.month + 9;
    const i64 dayOfYear = (153 * marchMonth + 2) / 5 + date.day - 1;
    const i64 dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    const i64 days = era * DAYS_PER_ERA + dayOfEra - DAYS_TO_1970;
    return days * SECONDS_PER_DAY + date.hour * 3600 + date.minute * 60 + date.second;
}

u8 TuCommon_nmeaChecksum(const char* text, std::size_t length)
{
    std::string_view summed(text, length);
    if (summed.starts_with('$')) summed.remove_prefix(1);
    u8 sum = 0;
    for (const char c : summed.substr(0, summed.find('*'))) sum = static_cast<u8>(sum ^ static_cast<u8>(c));
    return sum;
}

u8 TuCommon_crc8(const u8* bytes, std::size_t length)
{
    u8 crc = 0xFF;
    for (std::size_t i = 0; i < length; ++i) {
        crc = static_cast<u8>(crc ^ bytes[i]);
        for (int bit = 0; bit < 8; ++bit)
            crc = static_cast<u8>((crc & 1) != 0 ? (crc >> 1) ^ 0x8C : crc >> 1);
    }
    return crc;
}

int TuCommon_bootParameter(const char* name, char* text, std::size_t size)
{
    int result = 0;
    for (u32 attempt = 0; attempt < BOOT_ATTEMPTS; ++attempt) {
        if (attempt > 0) ose::delay(BOOT_RETRY_ms);
        result = node::platform().bootParameter(name, text, size);
        if (result == 0) return 0;
        traceBootFailure(result, name);
    }
    return result;
}

void TuCommon_timeStamp(char* text)
{
    const node::CalendarTime now = node::platform().calendar();
    const DateTime d = TuCommon_secondsToDate(now.seconds);
    // The records of a link and of each second bear one: by hand, a printed one takes ten times as long.
    constexpr char FORM[TIME_STAMP_SIZE] = "0000-00-00 00:00:00.000000";
    std::memcpy(text, FORM, sizeof FORM);
    putDigits(text, d.year, 4);
    putDigits(text + 5, d.month, 2);
    putDigits(text + 8, d.day, 2);
    putDigits(text + 11, d.hour, 2);
    putDigits(text + 14, d.minute, 2);
    putDigits(text + 17, d.second, 2);
    putDigits(text + 20, now.microseconds, 6);
}

const char* TuCommon_text(double value)
{
    std::array<char, TEXT_SIZE>& slot = s->text[s->nextText];
    s->nextText = (s->nextText + 1) % TEXT_SLOTS;
    std::snprintf(slot.data(), slot.size(), "%-16.17g", value);
    return slot.data();
}
