// What `tu pcap` prints.
#include "app/pcap.h"

#include <algorithm>

namespace app {
namespace {

unsigned long long count(u64 n) { return static_cast<unsigned long long>(n); }
constexpr const char* VERDICTS[PCAP_VERDICTS] = {"taken", "refused", "waits", "ignored", "not handed"};

}  // namespace

void printPcapMessage(const PcapMessage& m, std::FILE* out)
{
    std::fprintf(out, "%6zu %12.6f  %-10s  %-21s domain %3u  sequence %5u  %s%s%s\n", m.number, m.at_s,
                 VERDICTS[static_cast<std::size_t>(m.verdict)], m.type.c_str(), m.domain, m.sequence,
                 m.way.c_str(), m.reason.empty() ? "" : "   <- ", m.reason.c_str());
}

void printPcapResult(const PcapResult& r, const std::string& name, std::FILE* out)
{
    std::fprintf(out, "%s: %llu packets, %llu of them PTP\n", name.c_str(), count(r.packets),
                 count(r.packets - r.other));
    std::fprintf(out, "by type                  taken refused   waits ignored not handed\n");
    const auto row = [out](const char* what, const std::array<u64, PCAP_VERDICTS>& n) {
        std::fprintf(out, "  %-21s %7llu %7llu %7llu %7llu %10llu\n", what, count(n[0]), count(n[1]),
                     count(n[2]), count(n[3]), count(n[4]));
    };
    for (const auto& [type, n] : r.types) row(type.c_str(), n);
    row("all", r.totals);
    if (!r.reasons.empty()) std::fprintf(out, "not taken because\n");
    std::vector<std::pair<std::string, u64>> reasons(r.reasons.begin(), r.reasons.end());
    std::stable_sort(reasons.begin(), reasons.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    for (const auto& [reason, n] : reasons) std::fprintf(out, "  %7llu  %s\n", count(n), reason.c_str());

    std::fprintf(out, r.masters.empty() ? "no master seen\n" : "masters seen\n");
    for (const auto& [port, m] : r.masters) {
        std::fprintf(out, "  %s: %llu Announce", port.c_str(), count(m.announces));
        if (m.refusedAnnounces != 0) std::fprintf(out, " (%llu refused)", count(m.refusedAnnounces));
        std::fprintf(out, ", %llu Sync\n", count(m.syncs));
        if (!m.isRead) continue;
        std::fprintf(out, "    grandmaster %s, priorities %u %u, class %u, accuracy 0x%02X, %u steps away\n",
                     m.grandmaster.c_str(), m.priority1, m.priority2, m.clockClass, m.clockAccuracy,
                     m.stepsRemoved);
    }
    if (!r.references.empty()) std::fprintf(out, "the unit's references end as\n");
    for (const PcapReference& ref : r.references)
        std::fprintf(out, "  %s: %s, parent %s\n", ref.what.c_str(), ref.portState.c_str(),
                     ref.parent.c_str());
    if (r.leftOut != 0)
        std::fprintf(out, "  %u more domains or masters than the unit has references\n", r.leftOut);
    for (const std::string& misuse : r.misuses) std::fprintf(out, "kernel misuse: %s\n", misuse.c_str());
}

}  // namespace app
