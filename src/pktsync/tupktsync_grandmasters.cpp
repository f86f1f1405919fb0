#include "pktsync/tupktsync_grandmasters.h"

#include "base/ref_ring.h"
#include "node/platform.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_coli.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace {

struct Entry {
    node::CalendarTime time{};
    PtpClockIdentity grandmasterIdentity{};
    u32 syncrefId = 0;
};
ose::ModuleData<RefRing<Entry, 20>> s;

}  // namespace

void TuPktsync_addGrandmaster(u32 syncrefId, const PtpClockIdentity& grandmasterIdentity)
{
    const Entry last = s->count > 0 ? s->oldest(s->count - 1) : Entry{};
    if (last.syncrefId == syncrefId && last.grandmasterIdentity == grandmasterIdentity) return;
    s->push({node::platform().calendar(), grandmasterIdentity, syncrefId});
}

u32 TuPktsync_grandmastersText(char* text, u32 room)
{
    if (room == 0) return 0;
    u32 length = static_cast<u32>(std::snprintf(text, room, "***** History of grandmasters *****\n"));
    for (u32 i = 0; i < s->count && length < room; ++i) {
        const Entry& e = s->oldest(i);
        const std::time_t seconds = static_cast<std::time_t>(e.time.seconds);
        std::tm t{};
        gmtime_r(&seconds, &t);
        length += static_cast<u32>(
            std::snprintf(text + length, room - length, "%04d-%02d-%02d %02d:%02d:%02d  syncref %u  %s\n",
                          t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour, t.tm_min, t.tm_sec,
                          e.syncrefId, TuPktsync_portIdentityText({e.grandmasterIdentity, 0}).data()));
    }
    return std::min(length, room - 1);
}
