// What happens to the packet references of a drawn scenario: their masters, routes, and what carries them.
#include "app/soak_plan.h"

#include <iterator>

namespace app {
namespace {

constexpr const char* SILENT = "announces = false\nsyncs = false\nresponds = false\n";
constexpr const char* SPEAKING = "announces = true\nsyncs = true\nresponds = true\n";

std::string masterOf(const Drawn& u) { return "master = \"" + u.masters.front() + "\"\n"; }

}  // namespace

double Plan::packets(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 5.0, 7200.0);
    switch (below(u.ptp ? 8 : 5)) {
    case 0: case 1: masterFails(u, at_s, lasts); return lasts;
    case 2: route(u, at_s, lasts); return lasts;
    case 3: packetServices(u, at_s, lasts); return lasts;
    case 4: routeDown(u, at_s, lasts); return lasts;
    case 5: masterErrs(u, at_s, lasts); return lasts;
    case 6: add(u, at_s, "mp.set_packet_reference",
                u.ptpReference + format("asymmetry_ns = %d\n", static_cast<int>(between(-90, 90))));
            return 0;
    default:
        add(u, at_s, "mp.delete_packet_reference", "fro_id = 200\n");
        add(u, at_s + lasts, "mp.create_packet_reference", u.ptpReference);
        return lasts;
    }
}

/// The other one speaks for a while, as the better or the worse.
void Plan::standby(const Drawn& u, double at_s, double lasts)
{
    const std::string master = "master = \"" + u.masters.back() + "\"\n";
    add(u, at_s, "master.set", master + SPEAKING + format("priority2 = %u\n", 127 + 2 * below(2)));
    add(u, at_s + lasts, "master.set", master + SILENT);
}

/// It falls silent in part or degrades, and is well again.
void Plan::masterFails(const Drawn& u, double at_s, double lasts)
{
    if (u.ptp && below(2) == 0) standby(u, at_s, lasts);
    constexpr const char* FAULTS[][2] = {
        {"announces = false\n", "announces = true\n"},
        {"syncs = false\n", "syncs = true\n"},
        {"responds = false\n", "responds = true\n"},
        {SILENT, SPEAKING},
        {"answers = false\ngrants = false\n", "answers = true\ngrants = true\n"},
        {"steps_removed = 300\n", "steps_removed = 0\n"},
        {"alternate_master = true\n", "alternate_master = false\n"}};
    const std::string master = masterOf(u);
    if (below(4) == 0) {
        add(u, at_s, "master.set", master + "class = 187\naccuracy = 0xFE\nflags = 0x08\n");
        add(u, at_s + lasts, "master.set",
            master + format("class = %u\naccuracy = 0x21\nflags = 0x3C\n", u.frequency ? 80 : 6));
        return;
    }
    if (below(6) == 0) {
        add(u, at_s, "master.set", master + intervals(below(2) == 0 ? -7 : 2));
        add(u, at_s + lasts / 10, "master.set", master + intervals(u.log));
        return;
    }
    const auto& fault = FAULTS[below(static_cast<unsigned>(std::size(FAULTS)))];
    add(u, at_s, "master.set", master + fault[0]);
    add(u, at_s + lasts, "master.set", master + fault[1]);
}

/// Its time steps, or runs off until a step puts it right.
void Plan::masterErrs(const Drawn& u, double at_s, double lasts)
{
    const std::string master = masterOf(u);
    if (below(2) == 0) {
        const double ns = between(-1000, 1000);
        add(u, at_s, "master.step", master + format("ns = %.1f\n", ns));
        add(u, at_s + lasts, "master.step", master + format("ns = %.1f\n", -ns));
        return;
    }
    const double ppb = between(-2, 2);
    add(u, at_s, "master.frequency", master + format("ppb = %.3f\n", ppb));
    add(u, at_s + lasts, "master.frequency", master + "ppb = 0.0\n");
    add(u, at_s + lasts, "master.step", master + format("ns = %.3f\n", -ppb * lasts));
}

/// A load on the way to all masters, with loss; or another route.
void Plan::route(const Drawn& u, double at_s, double lasts)
{
    const double us = between(0.1, 200), share = between(0, 0.3);
    const bool bothWays = below(2) == 0;
    for (const std::string& master : u.masters) {
        const std::string way = format("from = \"%s\"\nto = \"%s\"\nboth_ways = ", master.c_str(),
                                       u.name.c_str());
        add(u, at_s, "path.change",
            way + (bothWays ? "true\n" : "false\n") + u.path +
                format("exponential_us = %.3f\nloss = %.3f\nduplicates = %.3f\nreordered = %.3f\n"
                       "reordered_by_us = 300.0\nresidence_us = %.2f\n",
                       us, share, share / 3, share / 3, us / 10));
        add(u, at_s + lasts, "path.change", way + "true\n" + u.path);
    }
}

void Plan::routeDown(const Drawn& u, double at_s, double lasts)
{
    const bool isAll = below(2) == 0;
    for (const std::string& master : u.masters) {
        const std::string way = format("from = \"%s\"\nto = \"%s\"\n", master.c_str(), u.name.c_str());
        add(u, at_s, "path.down", way);
        add(u, at_s + lasts, "path.up", way);
        if (!isAll) return;
    }
}

void Plan::packetServices(const Drawn& u, double at_s, double lasts)
{
    if (below(3) == 0) {
        add(u, at_s, "node.packet_stamps",
            format("lost = %.2f\nlate_ms = %.1f\n", between(0, 1), between(0, 400)));
        add(u, at_s + lasts, "node.packet_stamps");
        return;
    }
    constexpr const char* SERVICES[] = {"cfi", "driver", "socket"};
    const std::size_t which = below(3);
    const std::string service = format("service = \"%s\"\n", SERVICES[which]);
    if (below(2) == 0) return packetServiceMute(u, at_s, lasts, service);
    add(u, at_s, "node.packet_service", service + "on = false\n");
    add(u, at_s + lasts, "node.packet_service", service);
}

/// One says nothing, or all of it late, most often while it is asked for something.
void Plan::packetServiceMute(const Drawn& u, double at_s, double lasts, const std::string& service)
{
    const double asked_s = at_s + 0.2;
    switch (below(5)) {
    case 0: break;
    case 1: add(u, asked_s, "unit.restart", format("type = %u\ngap = \"1s\"\n", below(6))); break;
    case 2: add(u, asked_s, "mp.restart", "gone = \"1s\"\n"); break;
    case 3: {                                            // the chain of starts begins anew
        const std::string other = service.find("driver") != std::string::npos ? "service = \"cfi\"\n"
                                                                              : "service = \"driver\"\n";
        add(u, asked_s, "node.packet_service", other + "on = false\n");
        add(u, asked_s + 1, "node.packet_service", other);
        break;
    }
    default:
        if (!u.ptp) break;
        add(u, asked_s, "mp.delete_packet_reference", "fro_id = 200\n");
        add(u, asked_s + between(0.2, lasts), "mp.create_packet_reference", u.ptpReference);
        break;
    }
    const auto& fails = SERVICE_FAILS[1 + below(2)];
    add(u, at_s, "node.service", service + does(fails[0]));
    add(u, at_s + lasts, "node.service", service + does(fails[1]));
}

}  // namespace app
