// host_net.h - Hosts of the packet network on interfaces of the machine, and the world run along with the
// host's time: always a little behind it, so that what comes at a time reaches the world at that time or
// hardly later, and what the world sends leaves later than it meant to. The stamps tell when it was.
#pragma once
#include "sim/net/host_device.h"
#include "sim/net/host_ear.h"
#include "sim/net/host_port.h"

#include <map>
#include <memory>
#include <set>

namespace sim {

/// How late the world comes to what is due, as the host lets it.
struct Lateness {
    u64 count = 0;
    double sum_s = 0, max_s = 0;
    u64 over1ms = 0, over10ms = 0, over100ms = 0;
    void take(double late_s);
};

class HostNet {
public:
    using Listens = std::function<std::optional<std::vector<Listening>>(const std::string& interface)>;
    using Tell = std::function<void(const std::string& what, const std::string& text)>;
    /// What the units on an interface have, and who is told of the masters there, of what becomes of it, and
    /// of the "host"; before the first `add`.
    void onHeard(Listens listens, Tell tell)
    {
        listens_ = std::move(listens);
        tell_ = std::move(tell);
    }

    HostNet(ose::World& world, Network& network, HostClock& clock)
        : world_(world), network_(network), clock_(clock)
    {
    }
    ~HostNet();
    HostNet(const HostNet&) = delete;
    HostNet& operator=(const HostNet&) = delete;

    /// A master of one step is to be on the interface; before the first `add` there.
    void wantOneStep(const std::string& interface) { oneStep_.insert(interface); }
    /// Takes the host off its paths and puts it on the interface. Throws HostError.
    HostPort& add(NetHost& host, const std::string& interface);
    /// Read beside the interfaces; it must live as long as the runs.
    void attach(HostDevice& device) { devices_.push_back(&device); }
    /// Runs the world until its time is `end`, one second a second.
    void runUntil(ose::Time end);
    const std::vector<std::unique_ptr<HostPort>>& ports() const { return ports_; }
    /// nullptr without a host on it.
    const HeardMasters* heard(const std::string& interface) const;
    /// Whose stamps its packets have, one line.
    const std::string& stampsOf(const std::string& interface) const
    {
        return interfaces_.at(interface)->stamps.text;
    }
    /// Who puts the time into its Syncs of one step, one line.
    const std::string& oneStepOf(const std::string& interface) const
    {
        return interfaces_.at(interface)->stamps.oneStep;
    }
    /// nullptr where it has none.
    const CardClock* cardOf(const std::string& interface) const
    {
        return interfaces_.at(interface)->stamps.card.get();
    }
    const Lateness& lateness() const { return lateness_; }

private:
    struct Interface {
        unsigned index;
        InterfaceStamps stamps;
        HeardMasters heard;
        std::unique_ptr<HostEar> ear;
        std::string state;           // in words, told when it changes
    };
    Interface& interface(const std::string& name);
    InterfaceStamps stampsFor(const std::string& name) const;
    void followClocks();
    void followInterfaces();
    void replace(const std::string& name, Interface& interface, unsigned index);
    void waitUntil(ose::Time due);

    ose::World& world_;
    Network& network_;
    HostClock& clock_;
    Listens listens_;
    Tell tell_;
    std::set<std::string> oneStep_;
    std::map<std::string, std::unique_ptr<Interface>> interfaces_;
    std::vector<std::unique_ptr<HostPort>> ports_;
    std::vector<HostDevice*> devices_;
    ose::Time lookAgain_ = 0;
    Lateness lateness_;
};

}  // namespace sim
