// What happens to the units of a drawn scenario. Each disturbance is taken back after a while, and behind
// each round of them everything is left alone for more than an hour.
#include "app/soak_plan.h"

#include <algorithm>
#include <iterator>

namespace app {
// ---- rounds -------------------------------------------------------------------------------------

void Plan::drawRounds()
{
    constexpr double FIRST_JUMP_s = 3000.0, FIRST_QUIET_s = 7500.0, QUIET_s = 4200.0, SHORTEST_s = 900.0,
                     STILL_s = 1800.0;
    for (const Drawn& u : units_) {
        if (u.socpri) orderRadio(u, 900.0);
        if ((u.gps || u.ptp) && !u.follows) add(u, FIRST_JUMP_s, "mp.jump");
    }
    double at_s = FIRST_QUIET_s;
    while (at_s + SHORTEST_s + QUIET_s < end_s_) {
        until_s_ = std::min(at_s + between(SHORTEST_s, 4 * 3600.0), end_s_ - QUIET_s);
        rounds_.emplace_back(at_s, until_s_);
        for (const Drawn& u : units_) drawRound(u, at_s);
        for (double t = at_s; t < until_s_; t += STILL_s)     // however long a disturbance is alone
            add(units_.front(), t, "unit.command", "line = \"kvdinfo nothing\"\n");
        for (const Drawn& u : units_)
            if (u.socpri) orderRadio(u, until_s_ + 120.0);
        at_s = until_s_ + 120.0 + QUIET_s;
    }
}

void Plan::drawRound(const Drawn& u, double from_s)
{
    double at_s = from_s + between(0.0, 600.0);
    while (at_s < until_s_) {
        at_s += drawEvent(u, at_s);
        at_s += between(30.0, 1500.0);
    }
    if (below(3) == 0) drawCrossing(u, from_s);
}

/// Orders, restarts and services that fail, in the middle of whatever else happens.
void Plan::drawCrossing(const Drawn& u, double from_s)
{
    for (double at_s = from_s + between(0.0, 600.0); at_s < until_s_; at_s += between(1.0, 900.0)) {
        switch (below(8)) {
        case 0: at_s += restart(u, at_s); break;
        case 1: case 2: at_s += mainProcessor(u, at_s); break;
        case 3: at_s += selection(u, at_s); break;
        case 4: at_s += u.hasTime() ? jump(u, at_s) : command(u, at_s); break;
        case 5: at_s += u.socpri ? radio(u, at_s) : power(u, at_s); break;
        default: at_s += service(u, at_s); break;
        }
    }
}

/// What the node has for a start fails, across whatever else happens. Of a stream of its own: the rest of a
/// seed's plan doesn't depend on it.
void Plan::drawNodeFailures(unsigned long long seed)
{
    random_ = sim::Random(seed, "soak-node");
    for (const auto& [from_s, until_s] : rounds_) {
        until_s_ = until_s;
        for (const Drawn& u : units_) {
            if (below(3) == 0) volumeFails(u, between(from_s, until_s - 60.0));
            if (below(3) == 0) nameServerFails(u, between(from_s, until_s - 60.0));
        }
    }
}

void Plan::add(const Drawn& u, double at_s, const char* what, const std::string& with)
{
    if (at_s >= end_s_) return;
    const std::string word = what;
    const bool isNet = word.starts_with("master.") || word.starts_with("path.");
    events_ += format("[[event]]\nat = \"%.1fs\"\ndo = \"%s\"\n", at_s, what)
               + (isNet ? "" : format("unit = \"%s\"\n", u.name.c_str())) + with;
}

void Plan::addOfLink(double at_s, const char* what, const std::string& with)
{
    if (at_s >= end_s_) return;
    events_ += format("[[event]]\nat = \"%.1fs\"\ndo = \"%s\"\n", at_s, what) + with;
}

/// A time span that ends with the round, at least a second.
double Plan::lasting(double at_s, double low, double high)
{
    return std::max(1.0, std::min(between(low, high), until_s_ - at_s));
}

/// One disturbance; how long it lasts, s.
double Plan::drawEvent(const Drawn& u, double at_s)
{
    if (!u.masters.empty() && below(4) == 0) return packets(u, at_s);
    // Of one unit's making, so that what turns and breaks is put right in order.
    if (!links_.empty() && &u == &units_.front() && below(2) == 0) return link(at_s);
    switch (below(22)) {
    case 0: case 1: return reference(u, at_s);
    case 2: case 3: return u.gps ? source(u, at_s) : reference(u, at_s);
    case 4: return restart(u, at_s);
    case 5: return power(u, at_s);
    case 6: case 7: return mainProcessor(u, at_s);
    case 8: return selection(u, at_s);
    case 9: return boardFault(u, at_s);
    case 10: return memory(u, at_s);
    case 11: return u.hasTime() ? jump(u, at_s) : selection(u, at_s);
    case 12: case 13: return service(u, at_s);
    case 14: return oven(u, at_s);
    case 15: return u.cmcc ? source(u, at_s) : service(u, at_s);
    case 16: return u.ntp || !u.esmc.empty() ? network(u, at_s) : command(u, at_s);
    case 17: return u.socpri ? radio(u, at_s) : command(u, at_s);
    case 18: add(u, at_s, "board.spurious_interrupt"); return 0;
    case 19: return u.onLine.empty() ? service(u, at_s) : lineChangesHands(u, at_s);
    case 20: return u.hasSpareLine ? portMoves(u, at_s) : mainProcessor(u, at_s);
    default: return command(u, at_s);
    }
}

// ---- references ---------------------------------------------------------------------------------

double Plan::reference(const Drawn& u, double at_s)
{
    if (u.inputs.empty()) return 0;
    const std::string& input = oneOf(u.inputs);
    const std::string at = format("input = \"%s\"\n", input.c_str());
    const double lasts = lasting(at_s, 5.0, 7200.0);
    switch (below(4)) {
    case 0:
        add(u, at_s, "input.off", at);
        add(u, at_s + lasts, "input.on", at);
        return lasts;
    case 1: add(u, at_s, "input.phase_step", at + format("ns = %.1f\n", between(-2000, 2000))); return 0;
    case 2:
        add(u, at_s, "input.frequency", at + format("ppb = %.3f\n", between(-4, 4)));
        add(u, at_s + lasts, "input.frequency", at + "ppb = 0.0\n");
        return lasts;
    default: add(u, at_s, "input.bad_pulse", at + format("ns = %.1f\n", between(-5000, 5000))); return 0;
    }
}

/// What speaks on the serial line, a receiver or a time source, fails or is gone.
double Plan::source(const Drawn& u, double at_s)
{
    // Not a stuck 1PPS: the unit can't tell it from a quiet one until its estimate has aged.
    constexpr const char* OF_RECEIVER[] = {"antenna_open", "antenna_short", "jamming", "status_nok",
                                           "no_gpgsv", "no_pps", "silence", "garbled", "faulty"};
    constexpr const char* OF_TIME_SOURCE[] = {"wrong_checksum", "garbled", "silence", "no_info",
                                              "no_state",       "late",    "no_pps"};
    const double lasts = lasting(at_s, 5.0, 7200.0);
    if (below(5) == 0) {
        const char* const what = u.gps ? "gps.power" : "cmcc.tell";
        add(u, at_s, what, u.gps ? "on = false\n" : "state = 128\nalarm = 5\n");
        add(u, at_s + lasts, what, u.gps ? "on = true\n" : "state = 5\nalarm = 0\n");
        return lasts;
    }
    const char* const what = u.gps ? "gps.fault" : "cmcc.fault";
    const std::string fault = format("fault = \"%s\"\n", u.gps ? oneOf(OF_RECEIVER) : oneOf(OF_TIME_SOURCE));
    add(u, at_s, what, fault);
    add(u, at_s + lasts, what, fault + "on = false\n");
    return lasts;
}

/// The main processor has the serial line read as another reference's, and comes back to the first, by an
/// order or as a new one that knows of that alone.
double Plan::lineChangesHands(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 10.0, 1200.0);
    const auto supervise = [&](double t, const std::string& reference, bool on) {
        add(u, t, "mp.supervise",
            format("reference = \"%s\"\non = %s\n", reference.c_str(), on ? "true" : "false"));
    };
    supervise(at_s, u.onLine, false);
    supervise(at_s + 1, u.offLine, true);
    const bool byNewOne = below(2) == 0;
    if (byNewOne) add(u, at_s + lasts, "mp.restart", format("gone = \"%us\"\n", 1 + below(20)));
    else {
        supervise(at_s + lasts, u.offLine, false);
        supervise(at_s + lasts + 1, u.onLine, true);
    }
    return lasts + 20;
}

/// The line's reference is found on another line, on which it is followed; its own gives nothing meanwhile.
double Plan::portMoves(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 10.0, 3600.0);
    const auto port = [&](double t, const char* words) { add(u, t, "node.port", words); };
    const auto own = [&](double t, bool isThere) {
        add(u, t, isThere ? "input.on" : "input.off", "input = \"pdh1\"\n");
    };
    if (below(2) == 0) {                                 // in one word
        port(at_s, "line = 1\non = false\n");
        port(at_s + 1, "line = 1\nfro_id = 100\n");
    } else {
        port(at_s, "line = 0\non = false\n");
        port(at_s + 0.5, "line = 1\non = false\n");
        port(at_s + 1, "line = 1\nfro_id = 100\n");
    }
    own(at_s + 2, false);
    own(at_s + lasts, true);
    port(at_s + lasts, "line = 1\non = false\n");
    port(at_s + lasts + 1, "line = 0\nfro_id = 100\n");
    port(at_s + lasts + 2, "line = 1\nfro_id = 101\n");
    return lasts + 20;
}

/// What an Ethernet port or an NTP server gives.
double Plan::network(const Drawn& u, double at_s)
{
    const double lasts = lasting(at_s, 1.0, 3600.0);
    if (u.ntp && (u.esmc.empty() || below(2) == 0)) {
        add(u, at_s, "ntp.off");
        add(u, at_s + lasts, "ntp.on");
        return lasts;
    }
    const std::string port = format("port = \"%s\"\n", oneOf(u.esmc).c_str());
    if (below(2) == 0) {
        add(u, at_s, "esmc.quality", port + "quality = 15\n");
        add(u, at_s + lasts, "esmc.quality", port + "quality = 2\n");
        return lasts;
    }
    add(u, at_s, "esmc.silent", port);
    add(u, at_s + lasts, "esmc.silent", port + "on = false\n");
    return lasts;
}

// ---- links --------------------------------------------------------------------------------------

/// It goes, it flaps, or its ends change their parts.
double Plan::link(double at_s)
{
    if ((linkType_ == "idl1" || linkType_ == "idl2") && below(3) == 0) return turn(at_s);
    const std::string name = format("link = \"%s\"\n", oneOf(links_).c_str());
    if (linkType_ == "idl2" && below(3) == 0) return unstable(at_s, name);
    const unsigned times = below(3) == 0 ? 1 + below(5) : 1;
    double took = 0;
    for (unsigned i = 0; i < times; ++i) {
        const double lasts = lasting(at_s + took, 0.5, times > 1 ? 20.0 : 3600.0);
        addOfLink(at_s + took, "link.down", name);
        addOfLink(at_s + took + lasts, "link.up", name);
        took += lasts + between(1.0, 60.0);
    }
    return took;
}

/// Its delays are unstable or noisy, for a moment or so long that the hardware is given back, to somebody who
/// doesn't always hear of it.
double Plan::unstable(double at_s, const std::string& name)
{
    constexpr const char* FAULTS[] = {"unstable_from", "unstable_to", "jitter"};
    const std::string fault = name + format("fault = \"%s\"\n", oneOf(FAULTS));
    const double lasts = lasting(at_s, 0.5, 20.0);
    const bool isMute = below(3) == 0;
    const auto bira = [&](double t, const char* deed) {
        for (const Drawn& u : units_) add(u, t, "node.service", "service = \"bira\"\n" + does(deed));
    };
    if (isMute) bira(at_s - 1, "mute");
    addOfLink(at_s, "link.fault", fault + "amount = 200.0\n");
    addOfLink(at_s + lasts, "link.fault", fault + "on = false\n");
    if (isMute) bira(at_s + lasts + 1, "speak");
    return lasts + 1;
}

/// The first slave becomes master, and slave again; either hears of it first.
double Plan::turn(double at_s)
{
    const double lasts = lasting(at_s, 30.0, 3600.0);
    const std::string name = format("link = \"%s\"\n", links_.front().c_str());
    for (const bool back : {false, true}) {
        const double t = at_s + (back ? lasts : 0.0);
        const double first = between(0.0, 10.0), second = between(0.0, 10.0);
        takesRole(units_[back ? 1 : 0], t + first, "slave");
        takesRole(units_[back ? 0 : 1], t + second, "master");
        addOfLink(t + std::max(first, second), "link.turn", name);
    }
    return lasts + 20.0;
}

/// By an order, or as a new main processor has it.
void Plan::takesRole(const Drawn& u, double at_s, const char* role)
{
    const bool byNewOne = below(3) == 0;
    if (byNewOne) add(u, at_s, "mp.die");
    add(u, at_s + 0.5, "mp.change_master", format("role = \"%s\"\ntime_mode = \"time\"\n", role));
    if (byNewOne) add(u, at_s + 1, "mp.start");
}

/// Orders about a radio link that come in the middle of what is under way.
double Plan::radio(const Drawn& u, double at_s)
{
    constexpr const char* ORDERS[] = {"mp.socpri_scan", "mp.socpri_select", "mp.socpri_deselect",
                                      "mp.socpri_align", "mp.socpri_coarse_time"};
    switch (below(5)) {
    case 0: {                                            // and something else within its five minutes
        add(u, at_s, "mp.socpri_holdover");
        const double then_s = at_s + lasting(at_s, 1.0, 200.0);
        if (below(2) == 0) add(u, then_s, oneOf(ORDERS), "port = 1\n");
        else               serviceFails(u, then_s, "inrsi", lasting(then_s, 0.5, 30.0));
        return then_s - at_s + 30.0;
    }
    case 1:
        add(u, at_s, "mp.select_none");
        add(u, at_s + 10.0, "mp.selects_itself");
        break;
    case 2:
        add(u, at_s, "mp.socpri_stop");
        add(u, at_s + 30.0, "mp.socpri_start");
        break;
    case 3:  serviceFails(u, at_s, "inrsi", lasting(at_s, 0.5, 60.0)); break;
    default: add(u, at_s, oneOf(ORDERS), "port = 1\n"); break;
    }
    return 30.0;
}

/// From nothing to the lead's time.
void Plan::orderRadio(const Drawn& u, double at_s)
{
    add(u, at_s, "mp.socpri_start");
    add(u, at_s + 1, "mp.socpri_supervise", "ports = \"A\"\n");
    add(u, at_s + 2, "mp.socpri_scan", "port = 1\n");
    add(u, at_s + 12, "mp.socpri_align", "port = 1\n");
    add(u, at_s + 25, "mp.socpri_coarse_time", "port = 1\n");
    add(u, at_s + 27, "mp.socpri_select", "port = 1\n");
}

}  // namespace app
