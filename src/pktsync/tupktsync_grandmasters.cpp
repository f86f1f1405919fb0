#include "pktsync/tupktsync_grandmasters.h"

#include "node/platform.h"
#include "ose/module_data.h"

#include <array>

namespace {

constexpr u32 ENTRIES = 20;

struct Entry {
    node::CalendarTime time{};
    PtpClockIdentity grandmasterIdentity{};
    u32 syncrefId = 0;
};
struct State {
    std::array<Entry, ENTRIES> ring{};
    u32 next = 0;
    u32 count = 0;
};
ose::ModuleData<State> s;

}  // namespace

void TuPktsync_addGrandmaster(u32 syncrefId, const PtpClockIdentity& grandmasterIdentity)
{
    const Entry& last = s->ring[(s->next + ENTRIES - 1) % ENTRIES];
    if (s->count > 0 && last.syncrefId == syncrefId && last.grandmasterIdentity == grandmasterIdentity)
        return;
    s->ring[s->next] = {node::platform().calendar(), grandmasterIdentity, syncrefId};
    s->next = (s->next + 1) % ENTRIES;
    if (s->count < ENTRIES) ++s->count;
}
