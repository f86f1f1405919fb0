// What happens to the node and the board of a drawn scenario: services, oven, restarts, power, main
// processor, memory, and what the operator types.
#include "app/soak_plan.h"

#include <algorithm>
#include <iterator>

namespace app {
double Plan::service(const Drawn& u, double at_s)
{
    constexpr const char* OF_EACH[] = {"temi", "pri", "msi", "phy", "pm_agent"};
    const std::string which = u.services.empty() || below(2) == 0 ? oneOf(OF_EACH) : oneOf(u.services);
    const double lasts = lasting(at_s, 0.5, 900.0);
    switch (below(4)) {                                  // most of what it is asked is asked at a start
    case 0: break;
    case 1: add(u, at_s + 0.2, "unit.restart", format("type = %u\ngap = \"1s\"\n", below(6))); break;
    default: add(u, at_s + 0.2, "mp.restart", "gone = \"1s\"\n"); break;
    }
    serviceFails(u, at_s, which, lasts);
    return lasts;
}

void Plan::serviceFails(const Drawn& u, double at_s, const std::string& which, double lasts)
{
    const std::string name = format("service = \"%s\"\n", which.c_str());
    const auto& fails = SERVICE_FAILS[below(3)];
    add(u, at_s, "node.service", name + does(fails[0]));
    add(u, at_s + lasts, "node.service", name + does(fails[1]));
}

/// The history's file can't be written, or no file be read, most often over a start.
void Plan::volumeFails(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 30.0, 3600.0);
    add(u, at_s, "node.volume", below(3) == 0 ? "writes = false\nreads = false\n" : "writes = false\n");
    switch (below(4)) {
    case 0:  break;
    case 1:  add(u, at_s + lasts / 2, "unit.command", "line = \"kvdwritehist flash\"\n"); break;
    default: add(u, at_s + lasts / 2, "unit.restart", format("type = %u\ngap = \"1s\"\n", below(6))); break;
    }
    add(u, at_s + lasts, "node.volume");
}

/// Gone or late, mostly when it is asked for the main processor.
void Plan::nameServerFails(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 0.5, 900.0);
    const std::string name = "service = \"name_server\"\n";
    const auto& fails = SERVICE_FAILS[below(2) * 2];     // a mute one would never be asked again
    switch (below(3)) {
    case 0:  break;
    case 1:  add(u, at_s + 0.2, "unit.restart", format("type = %u\ngap = \"1s\"\n", below(6))); break;
    default: add(u, at_s + 0.2, "mp.restart", "gone = \"1s\"\n"); break;
    }
    add(u, at_s, "node.service", name + does(fails[0]));
    add(u, at_s + lasts, "node.service", name + does(fails[1]));
}

/// It leaves its limits for a while, by a step or slowly.
double Plan::oven(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 5.0, 1800.0);
    const double volts = below(2) == 0 ? -1.2 : 1.2;
    add(u, at_s, "temperature.step", format("volts = %.2f\n", volts));
    add(u, at_s + lasts, "temperature.step", format("volts = %.2f\n", -volts));
    return lasts;
}

double Plan::restart(const Drawn& u, double at_s)
{
    const double gap = below(2) == 0 ? 0.0 : lasting(at_s, 1.0, 300.0);
    add(u, at_s, "unit.restart", format("type = %u\ngap = \"%.0fs\"\n", below(6), gap));
    return gap;
}
double Plan::power(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 1.0, 3600.0);
    add(u, at_s, "unit.power_off");
    add(u, at_s + lasts, "unit.power_on");
    return lasts;
}

double Plan::mainProcessor(const Drawn& u, double at_s)
{
    const double gone = lasting(at_s, 0.5, 600.0);
    switch (below(4)) {
    case 0: add(u, at_s, "mp.restart", format("gone = \"%.1fs\"\n", gone)); return gone;
    case 1:
        add(u, at_s, "mp.die");
        add(u, at_s + gone, "mp.start");
        return gone;
    case 2: {
        constexpr const char* ANSWERS[] = {"suspend", "reject", "busy", "silent"};
        const unsigned which = below(4);
        add(u, at_s, "mp.answer", format("answer = \"%s\"\n", ANSWERS[which]));
        add(u, at_s + 1, "mp.restart", "gone = \"1s\"\n");
        add(u, at_s + gone, "mp.answer", "answer = \"accept\"\n");
        const bool mayLiveOn = which >= 2;               // it has refused nothing
        if (!mayLiveOn || below(2) == 0) add(u, at_s + gone + 1, "mp.restart", "gone = \"1s\"\n");
        return gone + 1;
    }
    default: ask(u, at_s); return 0;
    }
}

/// Of the moment, not drawn: the rest of a seed's plan doesn't depend on what there is to ask.
void Plan::ask(const Drawn& u, double at_s)
{
    constexpr const char* WHAT[] = {"gpsosl_attributes", "rnt_to_sfc", "rnt_for_sfn", "sync_info"};
    const unsigned which = static_cast<unsigned>(at_s) % (std::size(WHAT) + 1);
    if (which == std::size(WHAT)) return add(u, at_s, "mp.gps_attributes");
    add(u, at_s, "mp.ask", format("what = \"%s\"\n", WHAT[which]));
}

double Plan::selection(const Drawn& u, double at_s)
{
    if (u.references.empty()) return 0;
    const double lasts = lasting(at_s, 1.0, 3600.0);
    const std::string name = format("reference = \"%s\"\n", oneOf(u.references).c_str());
    // Between units the role alone selects the link.
    const bool hasChoice = linkType_ != "idl1" && linkType_ != "idl2";
    switch (below(3)) {
    case 0: add(u, at_s, "mp.select_none"); break;
    case 1: add(u, at_s, hasChoice ? "mp.select" : "mp.select_none", hasChoice ? name : ""); break;
    default:
        add(u, at_s, "mp.supervise", name + "on = false\n");
        add(u, at_s + lasts, "mp.supervise", name + "on = true\n");
        break;
    }
    add(u, at_s + lasts + 1, "mp.selects_itself");
    return lasts + 1;
}

double Plan::boardFault(const Drawn& u, double at_s)
{
    constexpr const char* FAULTS[] = {"no_feedback", "synth_c_unlocked", "synth_b_unlocked",
                                      "temperature_invalid", "latch_invalid"};
    const std::string fault = format("fault = \"%s\"\n", oneOf(FAULTS));
    const double lasts = lasting(at_s, 1.0, 600.0);
    if (below(4) == 0) {                                 // with nobody to tell
        add(u, at_s, "node.service", "service = \"temi\"\ndoes = \"mute\"\n");
        add(u, at_s + lasts, "node.service", "service = \"temi\"\ndoes = \"speak\"\n");
    }
    add(u, at_s, "board.fault", fault);
    if (below(2) == 0) add(u, at_s + lasts / 2, "mp.restart", "gone = \"1s\"\n");   // the next one is told
    add(u, at_s + lasts, "board.fault", fault + "on = false\n");
    add(u, at_s + lasts + 60, "unit.restart", "type = 4\n");     // out of the halted state
    return lasts + 60;
}

double Plan::memory(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 1.0, 600.0);
    switch (below(3)) {
    case 0:
        add(u, at_s, "node.msi_die");
        add(u, at_s + lasts, "node.msi");
        return lasts;
    case 1:
        add(u, at_s, "node.msi", format("delay_ms = %u\n", below(5000)));
        add(u, at_s + lasts, "node.msi");
        return lasts;
    default:
        add(u, at_s, "node.msi_flip", format("region = \"TuRegHistData\"\nbyte = %u\n", below(456)));
        return 0;
    }
}

double Plan::jump(const Drawn& u, double at_s)
{
    add(u, at_s, "mp.jump");
    return 10;
}

double Plan::command(const Drawn& u, double at_s)
{
    constexpr const char* LINES[] = {
        "kvdinfo all", "kvdinfo tumem", "kvdinfo nothing", "kvdhist all", "gpsstatus 50",
        "gpscapture start 20", "gpscapture display", "kvdreadhist", "kvdwritehist msi",
        "kvdwritehist flash", "kvdgpstrace", "gpsskyview start", "gpsskyview stop", "kvdpdvthr",
        "kvdpdvthr packettime 200000", "kvdpdvthr packettime d",
        "kvdpdvthr packetfreq 0", "kvdtupktsync", "genpdv ptp_t uplink enable", "genpdv ptp_t uplink disable",
        "kvdholdoverthr", "kvdholdoverthr freq d", "socprireadsfc", "socpritogreg current",
        "kvdsetcallimit 14", "kvdsetfastlock 9", "genwander 0 0", "genpdv x y z", "gpssend nmea $X",
        "kvdprodtest a b", "kvdsetfsyncreg maybe", "kvdconfigtimeacc enable",
        "kvdconfigtimeacc disable", "no_such_command"};
    add(u, at_s, "unit.command", format("line = \"%s\"\n", oneOf(LINES)));
    return 0;
}

}  // namespace app
