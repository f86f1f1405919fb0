#include "sim/net/network.h"

#include "sim/net/ptp_wire.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace sim {

namespace {

ose::Time timeOf(double seconds) { return static_cast<ose::Time>(std::llround(seconds * 1e12)); }

bool parseIpv4(const char* text, NetAddress& address)
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    char rest = 0;
    if (std::sscanf(text, "%3u.%3u.%3u.%3u%c", &a, &b, &c, &d, &rest) != 4) return false;
    if (a > 255 || b > 255 || c > 255 || d > 255) return false;
    address = {4, {static_cast<u8>(a), static_cast<u8>(b), static_cast<u8>(c), static_cast<u8>(d)}};
    return true;
}

bool parseIpv6(const char* text, NetAddress& address)
{
    unsigned g[8] = {};
    char rest = 0;
    if (std::sscanf(text, "%4x:%4x:%4x:%4x:%4x:%4x:%4x:%4x%c", &g[0], &g[1], &g[2], &g[3], &g[4], &g[5],
                    &g[6], &g[7], &rest) != 8)
        return false;
    address.family = 6;
    for (std::size_t i = 0; i < 8; ++i) {
        address.octets[2 * i] = static_cast<u8>(g[i] >> 8);
        address.octets[2 * i + 1] = static_cast<u8>(g[i]);
    }
    return true;
}

}  // namespace

bool parseNetAddress(const std::string& text, NetAddress& address)
{
    return parseIpv4(text.c_str(), address) || parseIpv6(text.c_str(), address);
}

std::string textOf(const NetAddress& address)
{
    char text[40];
    const auto& o = address.octets;
    if (address.family == 4) {
        std::snprintf(text, sizeof text, "%u.%u.%u.%u", o[0], o[1], o[2], o[3]);
        return text;
    }
    std::string out;
    for (std::size_t i = 0; i < o.size(); i += 2) {
        std::snprintf(text, sizeof text, "%s%x", i > 0 ? ":" : "", o[i] << 8 | o[i + 1]);
        out += text;
    }
    return out;
}

NetHost* Network::host(const std::string& name) const
{
    for (NetHost* const host : hosts_)
        if (host->netName() == name) return host;
    return nullptr;
}

Network::Path* Network::path(const std::string& from, const std::string& to)
{
    for (const auto& p : paths_)
        if (p->from->netName() == from && p->to->netName() == to) return p.get();
    return nullptr;
}

void Network::makePath(NetHost& from, NetHost& to, const DelayConfig& config)
{
    const std::string name = "path." + from.netName() + "." + to.netName();
    std::erase_if(paths_, [&](const auto& p) { return p->from == &from && p->to == &to; });
    paths_.push_back(std::unique_ptr<Path>(new Path{&from, &to, config, Random(world_.seed(), name)}));
}

void Network::connect(NetHost& a, NetHost& b, const DelayConfig& aToB, const DelayConfig& bToA)
{
    makePath(a, b, aToB);
    makePath(b, a, bToA);
}

bool Network::change(const std::string& from, const std::string& to,
                     const std::function<void(DelayConfig&)>& how)
{
    Path* const p = path(from, to);
    if (p == nullptr) return false;
    how(p->config);
    return true;
}

bool Network::setUp(const std::string& from, const std::string& to, bool up)
{
    Path* const p = path(from, to);
    if (p == nullptr) return false;
    p->up = up;
    return true;
}

void Network::putOn(NetHost& host, Wire* wire)
{
    if (wire != nullptr) wires_[&host] = wire;
    else                 wires_.erase(&host);
}

bool Network::carriesDatagrams(const NetHost& host) const
{
    const auto wire = wires_.find(&host);
    return wire == wires_.end() || wire->second->carriesDatagrams();
}

Leaving Network::leaving(const NetHost& host) const
{
    const auto wire = wires_.find(&host);
    return wire != wires_.end() ? wire->second->leaving() : Leaving{world_.now(), std::nullopt};
}

void Network::send(NetHost& from, const NetPacket& packet, const Left& left)
{
    if (onSend_) onSend_(from, packet);
    if (const auto wire = wires_.find(&from); wire != wires_.end()) return wire->second->send(packet, left);
    for (const auto& p : paths_)
        if (p->from == &from && (packet.isFrame || p->to->netAddress() == packet.to)) carry(*p, packet);
    if (left) left(world_.now());
}

ose::Time Network::delay(Path& p, NetPacket& packet, bool& isReordered)
{
    const DelayConfig& c = p.config;
    double s = c.constant_s;
    if (c.gaussian_s > 0) s += c.gaussian_s * p.random.gaussian();
    if (c.exponential_s > 0) s -= c.exponential_s * portable::ln(1.0 - p.random.uniform());
    if (!c.series.empty()) s += c.series.at(p.count);
    if (c.residence_s > 0) {
        const double residence = c.residence_s * p.random.uniform();
        s += residence;
        ptp::addResidence(packet.bytes, packet.isFrame, residence);
    }
    if (c.reordered > 0 && p.random.uniform() < c.reordered) {
        s += c.reorderedBy_s;
        isReordered = true;
    }
    return timeOf(std::max(s, 0.0));
}

void Network::carry(Path& p, const NetPacket& packet)
{
    ++p.count;
    if (!p.up || wires_.contains(p.to) || (p.config.loss > 0 && p.random.uniform() < p.config.loss)) return;
    const int copies = p.config.duplicates > 0 && p.random.uniform() < p.config.duplicates ? 2 : 1;
    for (int i = 0; i < copies; ++i) {
        NetPacket moved = packet;
        bool isReordered = false;
        ose::Time arrival = world_.now() + delay(p, moved, isReordered);
        // Only what is meant to be overtaken is: the rest of a path is a queue.
        if (!isReordered) {
            arrival = std::max(arrival, p.lastArrival + 1);
            p.lastArrival = arrival;
        }
        if (onCarry_) onCarry_(*p.from, *p.to, arrival - world_.now());
        world_.at(arrival, [to = p.to, moved = std::move(moved)] { to->onPacket(moved); });
    }
}

}  // namespace sim
