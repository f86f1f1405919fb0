// tu_common.h - Small helpers that several components share.
#pragma once
#include "ose/types.h"

#include <cstddef>

/// Calendar date and time, UTC.
struct DateTime {
    u16 year;
    u8 month;    // 1 to 12
    u8 day;      // 1 to 31
    u8 hour;
    u8 minute;
    u8 second;
};

/// Broken-down date of a count of seconds since 1970-01-01 00:00:00.
DateTime TuCommon_secondsToDate(i64 seconds);
/// Seconds since 1970-01-01 00:00:00 of a date.
i64 TuCommon_dateToSeconds(const DateTime& date);
/// Exclusive-or of the bytes of an NMEA sentence behind "$" up to "*" (NMEA 0183).
u8 TuCommon_nmeaChecksum(const char* text, std::size_t length);
/// CRC-8, initial value 0xFF, reflected polynomial 0x8C.
u8 TuCommon_crc8(const u8* bytes, std::size_t length);
/// Boot parameter as text: 0 done. Three attempts, 50 ms apart.
int TuCommon_bootParameter(const char* name, char* text, std::size_t size);
constexpr u32 TIME_STAMP_SIZE = 27;   // "%Y-%m-%d %H:%M:%S", point, six digits of microseconds, terminator
/// Present time; room for TIME_STAMP_SIZE bytes.
void TuCommon_timeStamp(char* text);
/// The number as "%-16.17g", in a small rotating store: for use as a trace argument only.
const char* TuCommon_text(double value);
