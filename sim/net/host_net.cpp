#include "sim/net/host_net.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace sim {
namespace {

constexpr const char* BACK = "the interface is back";

/// Of an interface by its number, 0 for one that isn't there.
const char* stateOf(const std::string& name, unsigned index)
{
    if (index == 0) return "the interface is gone";
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq r{};
    std::strncpy(r.ifr_name, name.c_str(), sizeof r.ifr_name - 1);
    const bool isKnown = ioctl(any, SIOCGIFFLAGS, &r) == 0;
    close(any);
    constexpr short CARRIES = IFF_UP | IFF_RUNNING;
    return isKnown && (r.ifr_flags & CARRIES) != CARRIES ? "the interface is down" : BACK;
}

}  // namespace

void Lateness::take(double late_s)
{
    ++count;
    sum_s += late_s;
    max_s = std::max(max_s, late_s);
    over1ms += late_s > 1e-3;
    over10ms += late_s > 10e-3;
    over100ms += late_s > 100e-3;
}

HostNet::~HostNet()
{
    for (const auto& port : ports_) network_.putOn(port->host(), nullptr);
}

HostPort& HostNet::add(NetHost& host, const std::string& name)
{
    if (if_nametoindex(name.c_str()) == 0) throw HostError(name + ": there is no such network interface");
    const bool isFirst = !interfaces_.contains(name);
    Interface& i = interface(name);
    ports_.push_back(std::make_unique<HostPort>(world_, clock_, host, name, i.stamps.card.get()));
    ports_.back()->reportTo(i.heard, isFirst);
    network_.putOn(host, ports_.back().get());
    return *ports_.back();
}

const HeardMasters* HostNet::heard(const std::string& name) const
{
    const auto found = interfaces_.find(name);
    return found != interfaces_.end() ? &found->second->heard : nullptr;
}

HostNet::Interface& HostNet::interface(const std::string& name)
{
    std::unique_ptr<Interface>& i = interfaces_[name];
    if (i) return *i;
    const auto listens = [this, name] { return listens_ ? listens_(name) : std::nullopt; };
    const auto tell = [this, name](const std::string& text) { if (tell_) tell_(name, text); };
    i = std::make_unique<Interface>(Interface{if_nametoindex(name.c_str()), stampsFor(name),
                                              HeardMasters(world_, listens, tell), nullptr, BACK});
    i->ear = std::make_unique<HostEar>(name, i->index, i->heard);
    return *i;
}

InterfaceStamps HostNet::stampsFor(const std::string& name) const
{
    return openStamps(name, oneStep_.contains(name));
}

/// The cards' are read against the host's time of day.
void HostNet::followClocks()
{
    const u32 before = clock_.steps();
    clock_.follow();
    if (clock_.steps() == before) return;
    char text[80];
    std::snprintf(text, sizeof text, "its time of day was stepped by %+.6f s",
                  static_cast<double>(clock_.lastStep_ns()) * 1e-9);
    if (tell_) tell_("host", text);
    for (auto& [name, i] : interfaces_)
        if (i->stamps.card) i->stamps.card->onHostStep();
}

/// One that was removed comes back as another.
void HostNet::followInterfaces()
{
    constexpr ose::Time LOOK_AGAIN = ose::SEC;
    const ose::Time now = clock_.now();
    if (now < lookAgain_) return;
    lookAgain_ = now + LOOK_AGAIN;
    for (const auto& port : ports_)
        if (port->lookAgain() && tell_) tell_(port->interface(), "a socket was closed, and is opened again");
    for (auto& [name, i] : interfaces_) {
        if (i->stamps.card) i->stamps.card->follow();
        if (i->ear && i->ear->wasClosed()) i->ear = std::make_unique<HostEar>(name, i->index, i->heard);
        const unsigned index = if_nametoindex(name.c_str());
        if (index != i->index) replace(name, *i, index);
        const char* const state = stateOf(name, index);
        if (tell_ && state != i->state) tell_(name, state);
        i->state = state;
    }
}

void HostNet::replace(const std::string& name, Interface& i, unsigned index)
{
    i.index = index;
    if (index != 0) i.stamps = stampsFor(name);
    i.ear = index != 0 ? std::make_unique<HostEar>(name, index, i.heard) : nullptr;
    for (const auto& port : ports_)
        if (port->interface() == name) port->reopen(index, i.stamps.card.get());
}

/// Until the time has come or a socket has something, at most so long that an operator doesn't notice.
void HostNet::waitUntil(ose::Time due)
{
    constexpr ose::Time LONGEST = 20 * ose::MS;
    const ose::Time now = clock_.now();
    if (due <= now) return;
    const ose::Time wait = std::min(due - now, LONGEST);
    const timespec span{0, static_cast<long>(wait / ose::NS)};
    std::vector<pollfd> fds;
    for (const auto& port : ports_) port->waitFor(fds);
    for (const auto& [name, i] : interfaces_)
        if (i->ear) i->ear->waitFor(fds);
    for (const HostDevice* const device : devices_) device->waitFor(fds);
    ppoll(fds.data(), fds.size(), &span, nullptr);
}

void HostNet::runUntil(ose::Time end)
{
    while (world_.now() < end) {
        followClocks();
        followInterfaces();
        for (const auto& port : ports_) port->take();
        for (const auto& [name, i] : interfaces_)
            if (i->ear) i->ear->take();
        for (HostDevice* const device : devices_) device->take();
        const ose::Time wall = clock_.now();
        if (wall >= world_.now()) {
            const ose::Time due = std::max(world_.nextDue(), world_.now());
            if (due <= wall) lateness_.take(static_cast<double>(wall - due) * 1e-12);
            world_.runUntil(std::min(wall, end));
        }
        waitUntil(std::min(wall < 0 ? 0 : world_.nextDue(), end));
    }
}

}  // namespace sim
