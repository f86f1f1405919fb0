#include "pktsync/tupktsync_genann.h"

#include "node/platform.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_coli.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>
#include <string_view>

namespace {

constexpr u32 ENTRIES = 5;
constexpr int DONE = 0, USAGE = 20;

struct Entry {
    bool used = false;
    PtpPortIdentity port;
    bool override = false;
    u8 flags = 0;                      // second octet of flagField
    PtpAnnounce fields;
    u16 filter = 0xFFFF;               // a 0 in the position drops a message
    static constexpr u16 POSITION = 1;
};
struct State {
    bool inUse = false;                // the command was given
    std::array<Entry, ENTRIES> entries;
};
ose::ModuleData<State> s;

Entry* entryOf(const PtpPortIdentity& port)
{
    auto& all = s->entries;
    const auto known = std::find_if(all.begin(), all.end(),
                                    [&](const Entry& e) { return e.used && e.port == port; });
    if (known != all.end()) return &*known;
    const auto free = std::find_if(all.begin(), all.end(), [](const Entry& e) { return !e.used; });
    if (free == all.end()) return nullptr;
    *free = {};
    free->used = true;
    free->port = port;
    return &*free;
}

bool parse(const char* text, u32& value)
{
    std::string_view digits = text;
    const bool isHex = digits.starts_with("0x");
    if (isHex) digits.remove_prefix(2);
    const auto [stop, error] = std::from_chars(digits.begin(), digits.end(), value, isHex ? 16 : 10);
    return error == std::errc{} && stop == digits.end();
}

struct Field { const char* name; u32 largest; void (*set)(Entry& e, u32 value); };
constexpr Field FIELDS[] = {
    {"class", 255, [](Entry& e, u32 v) { e.fields.grandmasterClockQuality.clockClass = static_cast<u8>(v); }},
    {"accuracy", 255,
     [](Entry& e, u32 v) { e.fields.grandmasterClockQuality.clockAccuracy = static_cast<u8>(v); }},
    {"variance", 65535,
     [](Entry& e, u32 v) { e.fields.grandmasterClockQuality.offsetScaledLogVariance = static_cast<u16>(v); }},
    {"priority1", 255, [](Entry& e, u32 v) { e.fields.grandmasterPriority1 = static_cast<u8>(v); }},
    {"priority2", 255, [](Entry& e, u32 v) { e.fields.grandmasterPriority2 = static_cast<u8>(v); }},
    {"steps", 65535, [](Entry& e, u32 v) { e.fields.stepsRemoved = static_cast<u16>(v); }},
    {"utcoffset", 32767, [](Entry& e, u32 v) { e.fields.currentUtcOffset = static_cast<i16>(v); }},
    {"timesource", 255, [](Entry& e, u32 v) { e.fields.timeSource = static_cast<u8>(v); }},
    {"flags", 255, [](Entry& e, u32 v) { e.flags = static_cast<u8>(v); }},
};

void print()
{
    if (std::none_of(s->entries.begin(), s->entries.end(), [](const Entry& e) { return e.used; }))
        node::shellPrintf(
            "Senders are gathered from now on; each is listed once an Announce of it has come\n");
    for (const Entry& e : s->entries) {
        if (!e.used) continue;
        node::shellPrintf("%u: %s override %s, filter 0x%04x\n", static_cast<u32>(&e - s->entries.data()),
                          TuPktsync_portIdentityText(e.port).data(), e.override ? "on" : "off", e.filter);
        const PtpAnnounce& f = e.fields;
        node::shellPrintf("   class %u accuracy 0x%02x variance 0x%04x priority1 %u priority2 %u steps %u "
                          "utcoffset %d timesource 0x%02x flags 0x%02x\n",
                          f.grandmasterClockQuality.clockClass, f.grandmasterClockQuality.clockAccuracy,
                          f.grandmasterClockQuality.offsetScaledLogVariance, f.grandmasterPriority1,
                          f.grandmasterPriority2, f.stepsRemoved, f.currentUtcOffset, f.timeSource, e.flags);
    }
}

int usage()
{
    node::shellPrintf("Usage: genann list\n"
                      "       genann stop\n"
                      "       genann <entry> override [on | off]\n"
                      "       genann <entry> filter <16 bits, a 0 drops a message>\n"
                      "       genann <entry> set [class | accuracy | variance | priority1 | priority2 | "
                      "steps | utcoffset | timesource | flags] <value>\n");
    return USAGE;
}

int change(Entry& e, int argc, char** argv)
{
    u32 value = 0;
    if (argc == 4 && std::strcmp(argv[2], "override") == 0) {
        const bool on = std::strcmp(argv[3], "on") == 0;
        if (!on && std::strcmp(argv[3], "off") != 0) return usage();
        e.override = on;
        return DONE;
    }
    if (argc == 4 && std::strcmp(argv[2], "filter") == 0 && parse(argv[3], value) && value <= 0xFFFF) {
        e.filter = static_cast<u16>(value);
        return DONE;
    }
    if (argc != 5 || std::strcmp(argv[2], "set") != 0 || !parse(argv[4], value)) return usage();
    for (const Field& f : FIELDS) {
        if (std::strcmp(argv[3], f.name) != 0 || value > f.largest) continue;
        f.set(e, value);
        return DONE;
    }
    return usage();
}

}  // namespace

bool TuPktsync_genAnn(const PtpHeader& header, u8& flags, PtpAnnounce& announce)
{
    if (!s->inUse) return true;
    Entry* const e = entryOf(header.sourcePortIdentity);
    if (e == nullptr) return true;
    if (e->override) {
        const PtpClockIdentity identity = announce.grandmasterIdentity;
        announce = e->fields;
        announce.grandmasterIdentity = identity;
        flags = e->flags;
    } else {
        e->fields = announce;
        e->flags = flags;
    }
    const bool passes = (e->filter & Entry::POSITION) != 0;
    e->filter = std::rotl(e->filter, 1);
    return passes;
}

int TuPktsync_genannCommand(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "stop") == 0) {
        *s = {};
        return DONE;
    }
    const bool isList = argc == 2 && std::strcmp(argv[1], "list") == 0;
    if (isList) {
        s->inUse = true;               // senders are gathered from now on
        print();
        return DONE;
    }
    u32 entry = 0;
    if (argc < 4 || !parse(argv[1], entry) || entry >= ENTRIES) return usage();
    if (!s->entries[entry].used) {
        node::shellPrintf("No Announce has come for entry %u\n", entry);
        return USAGE;
    }
    return change(s->entries[entry], argc, argv);
}
