// kvd_gps_capture.cpp - Buffer of caught sentences.
#include "gps/kvd_gps_capture.h"

#include "node/platform.h"
#include "ose/module_data.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {

constexpr u32 CAPTURE_TEXT = 84;      // a longer sentence is cut

struct Entry {
    char text[CAPTURE_TEXT];
    std::tm time;                     // UTC
    u32 direction;                    // GPS_CAPTURE_RECEIVED or GPS_CAPTURE_SENT
};
struct State {
    bool on = false;
    u32 filter = GPS_CAPTURE_BOTH;
    u32 limit = GPS_CAPTURE_MAX;
    u32 count = 0;
    std::array<Entry, GPS_CAPTURE_MAX> entries{};
};
ose::ModuleData<State> s;

}  // namespace

void KvdLoz6TuGps_startCapture(u32 filter, u32 limit)
{
    s->count = 0;
    s->filter = filter;
    s->limit = std::min(limit, GPS_CAPTURE_MAX);
    s->on = true;
}

void KvdLoz6TuGps_stopCapture() { s->on = false; }
void KvdLoz6TuGps_clearCapture() { s->count = 0; }

void KvdLoz6TuGps_capture(const char* text, u32 length, u32 direction)
{
    if (!s->on || (s->filter != GPS_CAPTURE_BOTH && s->filter != direction)) return;
    Entry& entry = s->entries[s->count];
    const std::size_t shown = std::string_view(text, length).find_last_not_of("\r\n") + 1;   // 0: none
    const std::size_t taken = std::min<std::size_t>(shown, CAPTURE_TEXT - 1);
    std::memcpy(entry.text, text, taken);
    entry.text[taken] = '\0';
    const std::time_t now = node::platform().calendar().seconds;
    gmtime_r(&now, &entry.time);
    entry.direction = direction;
    if (++s->count >= s->limit) s->on = false;
}

void KvdLoz6TuGps_printCapture()
{
    if (s->count == 0) {
        node::shellPrintf("No NMEA messages of wanted type were captured.\n");
        return;
    }
    for (u32 i = 0; i < s->count; ++i) {
        const Entry& entry = s->entries[i];
        char time[32] = "";
        std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &entry.time);
        node::shellPrintf("[%s] %s %s\n", time, entry.direction == GPS_CAPTURE_SENT ? ">>" : "<<",
                          entry.text);
    }
}
