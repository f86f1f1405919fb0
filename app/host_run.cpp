#include "app/host_run.h"

#include "app/summary.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sched.h>

namespace app {
namespace {

double seconds(ose::Time t) { return static_cast<double>(t) * 1e-12; }

}  // namespace

std::string askForRealTime()
{
    sched_param first{};
    first.sched_priority = sched_get_priority_min(
        SCHED_FIFO);  // before whatever isn't real-time, after the rest
    if (sched_setscheduler(0, SCHED_FIFO | SCHED_RESET_ON_FORK, &first) == 0) return {};
    return std::strerror(errno);
}

sim::Listening listeningOf(const sim::MpPacketRef& ref)
{
    constexpr u8 ETHERNET_TIME = 0, UNICAST_FREQUENCY = 3, G_8275_1 = 1;
    constexpr u8 GROUPS[][6] = {{0x01, 0x1B, 0x19, 0, 0, 0}, {0x01, 0x80, 0xC2, 0, 0, 0x0E}};
    sim::Listening l;
    l.domain = ref.domain;
    l.isTime = ref.typeOfPktStruct < UNICAST_FREQUENCY;
    l.announceWithin_s = 8.1;
    l.syncWithin_s = 0.125;
    if (ref.typeOfPktStruct != ETHERNET_TIME) {
        l.way = sim::PtpWay::Unicast;
        l.address = sim::textOf(sim::NetAddress{ref.family, ref.server});
        l.profile = "ITU_T_G_8265_1";
        l.syncWithin_s = 0;                      // as granted
        l.classWithin = 14;
        l.classesToo = {80, 82, 84, 86, 90};     // quality levels of ITU-T G.8265.1
        return l;
    }
    l.address = sim::textOf(GROUPS[ref.multicastAddress & 1]);
    l.profile = ref.profile == G_8275_1 ? "ITU_T_G_8275_1" : "IEEE_1588_J3";
    if (ref.profile == G_8275_1) {
        l.announceWithin_s = 1.1;
        l.syncWithin_s = 0.063;
    } else {
        l.needsTai = true;
        l.classWithin = 7;
        l.accuracyWithin = 0x22;                 // 250 ns (IEEE 1588-2008 7.6.2.5)
    }
    return l;
}

HostReport hostReport(const sim::HostNet& net, const sim::HostClock& clock,
                      const std::string& realTimeRefused, const sim::HostGps* receiver)
{
    HostReport r;
    r.realTimeRefused = realTimeRefused;
    r.clockSteps = clock.steps();
    r.lateness = net.lateness();
    if (receiver != nullptr) r.receiver = {receiver->tty(), receiver->pps(), receiver->counts()};
    for (const auto& port : net.ports()) {
        const bool isNew = std::ranges::none_of(
            r.ports, [&](const HostReport::Port& p) { return p.interface == port->interface(); });
        r.ports.push_back({port->interface(), port->host().netName(), port->noDatagrams(),
                           net.stampsOf(port->interface()), port->counts(), std::nullopt, 0});
        if (const sim::CardClock* const card = net.cardOf(port->interface()))
            r.ports.back().card = {card->difference_ns(), card->rate_ppb(), card->steps()};
        if (!isNew) continue;
        const sim::HeardMasters* const heard = net.heard(port->interface());
        r.ports.back().beyond = heard->beyond();
        for (const sim::HeardMaster& m : heard->masters())
            r.masters.push_back({port->interface(), heard->describe(m), heard->isTaken(m), m.announces,
                                 m.syncs, seconds(m.first), seconds(m.last)});
    }
    return r;
}

nlohmann::ordered_json toJson(const HostReport& r)
{
    nlohmann::ordered_json json;
    const sim::Lateness& l = r.lateness;
    json["real_time"] = r.realTimeRefused.empty();
    json["clock_steps"] = r.clockSteps;
    json["lateness"] = {{"wakes", l.count}, {"max_s", l.max_s},
                        {"mean_s", l.count > 0 ? l.sum_s / static_cast<double>(l.count) : 0.0},
                        {"over_1ms", l.over1ms}, {"over_10ms", l.over10ms}, {"over_100ms", l.over100ms}};
    json["interfaces"] = nlohmann::ordered_json::array();
    for (const HostReport::Port& p : r.ports) {
        json["interfaces"].push_back({{"interface", p.interface},
                                      {"host", p.host},
                                      {"received", p.counts.received},
                                      {"sent", p.counts.sent},
                                      {"unstamped", p.counts.unstamped},
                                      {"stamps_lost", p.counts.lostStamps},
                                      {"not_sent", p.counts.failed},
                                      {"unusable", p.counts.unusable},
                                      {"errors", p.counts.errors},
                                      {"no_datagrams", p.noDatagrams},
                                      {"announces_beyond", p.beyond},
                                      {"stamps", p.stamps}});
        if (p.card)
            json["interfaces"].back()["card"] = {
                {"ahead_ns", p.card->ahead_ns}, {"fast_ppb", p.card->fast_ppb}, {"steps", p.card->steps}};
    }
    json["masters"] = nlohmann::ordered_json::array();
    for (const HostReport::Master& m : r.masters)
        json["masters"].push_back({{"interface", m.interface}, {"text", m.text}, {"followed", m.taken},
                                   {"announces", m.announces}, {"syncs", m.syncs}, {"first_s", m.first_s},
                                   {"last_s", m.last_s}});
    if (r.receiver) {
        const sim::HostGps::Counts& c = r.receiver->counts;
        json["receiver"] = {{"tty", r.receiver->tty}, {"pps", r.receiver->pps}, {"bytes", c.bytes},
                            {"flooded", c.flooded}, {"sentences", c.sentences}, {"sent", c.sent},
                            {"unsent", c.unsent}, {"pulses", c.pulses}, {"hangups", c.hangups}};
    }
    return json;
}

void printHost(const HostReport& r, std::FILE* out)
{
    const sim::Lateness& l = r.lateness;
    std::fprintf(
        out,
        "host           %s; late by %.3f ms in the mean, %.1f ms at most; above 1, 10, 100 ms: %llu, %llu, "
        "%llu of %llu times\n",
        r.realTimeRefused.empty() ? "SCHED_FIFO" : ("no SCHED_FIFO: " + r.realTimeRefused).c_str(),
        l.count > 0 ? l.sum_s / static_cast<double>(l.count) * 1e3 : 0.0, l.max_s * 1e3,
        static_cast<unsigned long long>(l.over1ms), static_cast<unsigned long long>(l.over10ms),
        static_cast<unsigned long long>(l.over100ms), static_cast<unsigned long long>(l.count));
    if (r.clockSteps > 0)
        std::fprintf(out, "host           its time of day was stepped %u times\n", r.clockSteps);
    for (const HostReport::Port& p : r.ports) {
        const sim::HostPort::Counts& c = p.counts;
        std::fprintf(
            out,
            "interface %s of %s: %u received, %u sent, %u without a stamp, %u stamps lost, %u not sent, "
            "%u unusable, %u errors\n",
            p.interface.c_str(), p.host.c_str(), c.received, c.sent, c.unstamped, c.lostStamps, c.failed,
            c.unusable, c.errors);
        if (p.card)
            std::fprintf(out,
                         "card of %s: %.9f s ahead of the host's time, fast by %.3f ppm, stepped %u times\n",
                         p.interface.c_str(), static_cast<double>(p.card->ahead_ns) * 1e-9,
                         p.card->fast_ppb * 1e-3, p.card->steps);
    }
    if (r.receiver) {
        const sim::HostGps::Counts& c = r.receiver->counts;
        const auto n = [](u64 count) { return static_cast<unsigned long long>(count); };
        std::fprintf(
            out,
            "receiver on %s: %llu sentences in %llu bytes, %llu more than the line's speed allows, %llu "
            "bytes to it, %llu not taken, %u hang-ups; pulses %s\n",
            r.receiver->tty.c_str(), n(c.sentences), n(c.bytes), n(c.flooded), n(c.sent), n(c.unsent),
            c.hangups,
            r.receiver->pps.empty() ? "at the host's seconds"
                                    : (std::to_string(c.pulses) + " of " + r.receiver->pps).c_str());
    }
    std::fputs(heardText(toJson(r)).c_str(), out);
}

std::string heardText(const nlohmann::ordered_json& host)
{
    std::string text;
    for (const auto& m : host.at("masters"))
        text += "heard on " + m.at("interface").get<std::string>() + ", "
                + clockText(m.at("first_s").get<double>()) + " to " + clockText(m.at("last_s").get<double>())
                + (m.at("followed").get<bool>() ? ", followed: " : ", not followed: ")
                + m.at("text").get<std::string>() + "\n";
    for (const auto& i : host.at("interfaces"))
        if (const u64 beyond = i.value("announces_beyond", u64{0}); beyond > 0)
            text += "heard on " + i.at("interface").get<std::string>() + ", " + std::to_string(beyond)
                    + " Announces of more masters than are kept\n";
    return text;
}

}  // namespace app
