#include "sim/net/heard.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace sim {
namespace {

constexpr std::size_t MASTERS_MAX = 64;          // what floods the interface can't fill the memory
constexpr u64 SURE = 3;                          // Announces before a word about their sender
constexpr ose::Time SAID_AGAIN = 10 * ose::SEC;
constexpr u8 PTP_TIMESCALE = 0x08;               // in the second octet of flagField (IEEE 1588-2008 13.3.2.6)

std::string intervalText(double s)
{
    char text[32];
    std::snprintf(text, sizeof text, s < 1 ? "%.0f ms" : "%g s", s < 1 ? s * 1e3 : s);
    return text;
}

std::string place(PtpWay way, u8 domain, const char* unicast, const std::string& address)
{
    const char* const kind = way == PtpWay::Frame     ? "Ethernet group "
                             : way == PtpWay::IpGroup ? "UDP group "
                                                      : unicast;
    return "domain " + std::to_string(domain) + ", " + kind + address;
}

std::string whatItIs(const HeardMaster& m)
{
    char quality[64];
    std::snprintf(quality, sizeof quality, ", class %u, accuracy 0x%02X, Announce every ",
                  m.announce.clockClass, m.announce.accuracy);
    std::string text = "Announce from " + textOf(m.source) + " (" + m.from + ") "
                       + place(m.way, m.domain, "UDP to ", m.to) + quality
                       + intervalText(std::ldexp(1.0, m.announce.logInterval));
    if (m.logSync) text += ", Sync every " + intervalText(std::ldexp(1.0, *m.logSync));
    if ((m.announce.flags1 & PTP_TIMESCALE) == 0) text += ", not TAI (no ptpTimescale)";
    return text;
}

bool takes(const Listening& l, const HeardMaster& m)
{
    return l.way == m.way && l.domain == m.domain && l.address == (l.way == PtpWay::Frame ? m.to : m.from);
}

std::string classComplaint(const Listening& l, u8 clockClass)
{
    if (clockClass <= l.classWithin || std::ranges::count(l.classesToo, clockClass) > 0) return {};
    std::string text = ", wants class " + std::to_string(l.classWithin) + " or less";
    for (const u8 c : l.classesToo) text += (c == l.classesToo.front() ? " or " : ", ") + std::to_string(c);
    return text;
}

/// What keeps a reference that hears the master from being content with it.
std::string complaints(const Listening& l, const HeardMaster& m)
{
    std::string text;
    const double announce_s = std::ldexp(1.0, m.announce.logInterval);
    if (announce_s > l.announceWithin_s)
        text += ", gives a master up that is silent for " + intervalText(l.announceWithin_s);
    if (m.logSync && l.syncWithin_s > 0 && std::ldexp(1.0, *m.logSync) > l.syncWithin_s)
        text += ", wants Sync within " + intervalText(l.syncWithin_s);
    if (l.isTime && l.needsTai && (m.announce.flags1 & PTP_TIMESCALE) == 0) text += ", wants TAI";
    text += classComplaint(l, m.announce.clockClass);
    if (m.announce.accuracy > l.accuracyWithin) {
        char accuracy[32];
        std::snprintf(accuracy, sizeof accuracy, ", wants accuracy 0x%02X", l.accuracyWithin);
        text += accuracy;
    }
    return text.empty() ? text : "; " + l.profile + text.substr(1);
}

}  // namespace

std::string textOf(const ptp::Port& port)
{
    const auto& c = port.clock;
    char text[40];
    std::snprintf(text, sizeof text, "%02x%02x%02x.%02x%02x.%02x%02x%02x-%u", c[0], c[1], c[2], c[3], c[4],
                  c[5], c[6], c[7], port.number);
    return text;
}

std::string textOf(const u8* mac)
{
    char text[24];
    std::snprintf(text, sizeof text, "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return text;
}

void HeardMasters::take(PtpWay way, const std::string& to, const std::string& from, const u8* octets,
                        std::size_t count)
{
    if (count == 0) return;
    const u8 type = octets[0] & 0x0F;
    if (type != ptp::ANNOUNCE && type != ptp::SYNC) return;
    const std::optional<ptp::Message> m = ptp::read(octets, count);
    if (!m) return;
    const auto known = std::find_if(masters_.begin(), masters_.end(), [&](const HeardMaster& h) {
        return h.source == m->source && h.domain == m->domain && h.way == way && h.to == to;
    });
    if (type == ptp::SYNC) {
        if (known == masters_.end()) return;
        ++known->syncs;
        constexpr i8 NO_INTERVAL = 0x7F;         // of a message by contract
        if (m->logInterval != NO_INTERVAL) known->logSync = m->logInterval;
        return;
    }
    if (known == masters_.end() && masters_.size() == MASTERS_MAX) {
        ++beyond_;
        return;
    }
    HeardMaster& h = known != masters_.end() ? *known : masters_.emplace_back();
    if (h.announces == 0) h = {m->source, m->domain, way, to, from, *m, {}, 0, 0, world_.now(), 0, {}, 0};
    h.announce = *m;
    h.from = from;
    h.last = world_.now();
    ++h.announces;
    onAnnounce(h);
}

/// Again when something about it has changed, though not with every message.
void HeardMasters::onAnnounce(HeardMaster& h)
{
    if (h.announces < SURE || (!h.said.empty() && h.last - h.saidAt < SAID_AGAIN)) return;
    const std::string text = describe(h);
    if (text == h.said) return;
    h.said = text;
    h.saidAt = h.last;
    tell_(text);
}

bool HeardMasters::isTaken(const HeardMaster& m) const
{
    const auto refs = listening_();
    return refs && std::ranges::any_of(*refs, [&](const Listening& l) { return takes(l, m); });
}

std::string HeardMasters::describe(const HeardMaster& m) const
{
    std::string text = whatItIs(m);
    const auto refs = listening_();
    if (!refs) return text;
    const auto taker = std::ranges::find_if(*refs, [&](const Listening& l) { return takes(l, m); });
    if (taker != refs->end()) return text + complaints(*taker, m);
    if (refs->empty()) return text + "; this unit listens to nothing";
    std::string places;
    for (const Listening& l : *refs)
        places += (places.empty() ? "" : ", or ")
                  + place(l.way, l.domain, "UDP by contract from ", l.address);
    return text + "; this unit listens to " + places;
}

}  // namespace sim
