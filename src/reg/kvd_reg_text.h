// kvd_reg_text.h - Text of limited room for the regulator's reports: what doesn't fit is cut.
#pragma once
#include "base/tu_common.h"
#include "ose/types.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

struct CutText {
    char* text;
    u32 room;                              // with the terminator, at least 1
    u32 length = 0;

    [[gnu::format(printf, 2, 3)]] void add(const char* format, ...)
    {
        std::va_list arguments;
        va_start(arguments, format);
        const int wanted = std::vsnprintf(text + length, room - length, format, arguments);
        va_end(arguments);
        if (wanted > 0) length = std::min(length + static_cast<u32>(wanted), room - 1);
    }
    void addTime(const DateTime& d)
    {
        add("%04u-%02u-%02u %02u:%02u:%02u", d.year, d.month, d.day, d.hour, d.minute, d.second);
    }
};
