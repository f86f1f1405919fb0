#include "node/platform.h"

#include "ose/module_data.h"
#include "ose/ose.h"
#include "ose/world.h"

#include <cstdarg>
#include <cstdio>

namespace {

struct State {
    PROCESS redirected = 0;                    // whose printout goes to the sink
    void (*sink)(const char* text) = nullptr;
};
ose::ModuleData<State> s;

void print(const char* text)
{
    if (s->sink != nullptr && s->redirected == ose::current_process()) s->sink(text);
    else node::platform().shellPrint(text);
}

}  // namespace

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
        print(small);
    } else if (length >= 0) {
        std::string large(static_cast<std::size_t>(length), '\0');
        std::vsnprintf(large.data(), large.size() + 1, format, again);
        print(large.c_str());
    }
    va_end(again);
}

void shellRedirect(void (*sink)(const char* text))
{
    s->redirected = ose::current_process();
    s->sink = sink;
}

}  // namespace node
