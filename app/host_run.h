// host_run.h - A run on interfaces of the machine: what the host gives it, which masters it hears there, and
// the account of both at its end.
#pragma once
#include "sim/net/host_net.h"
#include "sim/node/main_processor_config.h"
#include "sim/refs/host_gps.h"

#include <cstdio>
#include <nlohmann/json_fwd.hpp>

namespace app {

struct HostReport {
    std::string realTimeRefused;     // why, empty when the kernel schedules the run first (SCHED_FIFO)
    u32 clockSteps = 0;              // of the host's time of day, followed
    sim::Lateness lateness;
    struct Port {
        std::string interface, host, noDatagrams, stamps;
        sim::HostPort::Counts counts;
        struct Card { i64 ahead_ns; double fast_ppb; u32 steps; };
        std::optional<Card> card;    // its clock against the host's
        u64 beyond = 0;              // Announces of more masters than are kept
    };
    std::vector<Port> ports;
    struct Master {
        std::string interface, text;
        bool taken;                  // by a reference of a unit
        u64 announces, syncs;
        double first_s, last_s;
    };
    std::vector<Master> masters;
    struct Receiver {
        std::string tty, pps;
        sim::HostGps::Counts counts;
    };
    std::optional<Receiver> receiver;
};

/// Asks the kernel to run this thread before all others; why it doesn't, or nothing.
std::string askForRealTime();
/// What decides whose messages reach a reference.
sim::Listening listeningOf(const sim::MpPacketRef& ref);
/// `receiver` may be nullptr.
HostReport hostReport(const sim::HostNet& net, const sim::HostClock& clock,
                      const std::string& realTimeRefused, const sim::HostGps* receiver);
nlohmann::ordered_json toJson(const HostReport& report);
/// A line for each master that is heard there, as `toJson` tells of them.
std::string heardText(const nlohmann::ordered_json& host);
void printHost(const HostReport& report, std::FILE* out);

}  // namespace app
