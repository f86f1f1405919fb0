#include "node/platform.h"

#include "ose/world.h"

#include <cstdarg>
#include <cstdio>

namespace node {

Platform& platform() { return *static_cast<Platform*>(ose::currentSystem()->platform()); }

void shellPrintf(const char* format, ...)
{
    char small[512];
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(small, sizeof small, format, arguments);
    va_end(arguments);
    if (length >= 0 && length < static_cast<int>(sizeof small)) {
        platform().shellPrint(small);
    } else if (length >= 0) {
        std::string large(static_cast<std::size_t>(length), '\0');
        std::vsnprintf(large.data(), large.size() + 1, format, again);
        platform().shellPrint(large.c_str());
    }
    va_end(again);
}

}  // namespace node
