// network.h - The packet network between units and the masters they follow: hosts, and between two of
// them a path each way with a delay model of its own.
//
// Calls are from outside of any process, or from a host's own events. The world must outlive the
// network, the network its hosts' last packet.
// Units   s; a packet is delayed as a whole, its length doesn't count.
#pragma once
#include "ose/world.h"
#include "sim/clock/random.h"
#include "sim/clock/series.h"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// IP version 4 or 6; an IPv4 address fills the first four octets.
struct NetAddress {
    u32 family = 4;
    std::array<u8, 16> octets{};
    bool operator==(const NetAddress&) const = default;
};
/// "192.168.0.1", or eight groups of hexadecimal digits; false when it is neither.
bool parseNetAddress(const std::string& text, NetAddress& address);
std::string textOf(const NetAddress& address);

using MacAddress = std::array<u8, 6>;

/// A frame as it is on the wire, or a datagram with its addresses.
struct NetPacket {
    bool isFrame = true;
    std::vector<u8> bytes;           // whole frame, or UDP payload
    NetAddress from, to;             // of a datagram
    u16 fromPort = 0, toPort = 0;
    u8  tos = 0;                     // of a datagram, as it leaves an interface of the machine
    ose::Time age = 0;               // since it came, for one that the world's time had passed already
};

/// Told when a packet has left; never, when nothing is known of that.
using Left = std::function<void(ose::Time at)>;

/// When a packet that is sent now leaves, as far as that is known before it has left.
struct Leaving {
    ose::Time at = 0;
    /// Who puts the time into a Sync of one step itself writes this as its origin: ns of its own clock.
    std::optional<i64> inserted_ns;
};

/// What carries a host's packets in place of its paths.
class Wire {
public:
    virtual ~Wire() = default;
    virtual void send(const NetPacket& packet, Left left) = 0;
    virtual bool carriesDatagrams() const = 0;
    virtual Leaving leaving() const = 0;
};

class NetHost {
public:
    virtual ~NetHost() = default;
    /// A packet is there.
    virtual void onPacket(const NetPacket& packet) = 0;
    virtual NetAddress netAddress() const = 0;
    virtual const std::string& netName() const = 0;
};

/// Delay of one direction: the parts add up.
struct DelayConfig {
    double constant_s = 0;
    double gaussian_s = 0;           // deviation, about the constant; never below 0
    double exponential_s = 0;        // mean of a queue's delay
    EndlessSeries series;            // recorded, a value a packet, s
    double loss = 0, duplicates = 0; // share of packets
    double reordered = 0;            // share of packets that others may overtake
    double reorderedBy_s = 0;
    /// A transparent clock on the way: resides up to that long and says so in the correctionField.
    double residence_s = 0;
};

class Network {
public:
    explicit Network(ose::World& world) : world_(world) {}

    void attach(NetHost& host) { hosts_.push_back(&host); }
    /// A path each way; one that is there is replaced.
    void connect(NetHost& a, NetHost& b, const DelayConfig& aToB, const DelayConfig& bToA);
    NetHost* host(const std::string& name) const;
    /// Changes how packets fare from one to the other from now on; false without a path.
    bool change(const std::string& from, const std::string& to, const std::function<void(DelayConfig&)>& how);
    bool setUp(const std::string& from, const std::string& to, bool up);

    /// The host's paths carry nothing while it is on a wire; nullptr takes it off.
    void putOn(NetHost& host, Wire* wire);
    bool carriesDatagrams(const NetHost& host) const;
    Leaving leaving(const NetHost& host) const;

    /// To all hosts with a path, or to the one of its address.
    void send(NetHost& from, const NetPacket& packet, const Left& left = {});
    /// Sees each packet as it leaves, dropped or not.
    void onSend(std::function<void(const NetHost& from, const NetPacket& packet)> observer)
    {
        onSend_ = std::move(observer);
    }
    /// Sees each packet that is on its way between two hosts, with its delay.
    void onCarry(std::function<void(const NetHost& from, const NetHost& to, ose::Time delay)> observer)
    {
        onCarry_ = std::move(observer);
    }

private:
    struct Path {
        NetHost* from;
        NetHost* to;
        DelayConfig config;
        Random random;
        u64 count = 0;
        ose::Time lastArrival = 0;
        bool up = true;
    };
    Path* path(const std::string& from, const std::string& to);
    void makePath(NetHost& from, NetHost& to, const DelayConfig& config);
    void carry(Path& path, const NetPacket& packet);
    ose::Time delay(Path& path, NetPacket& packet, bool& isReordered);

    ose::World& world_;
    std::vector<NetHost*> hosts_;
    std::vector<std::unique_ptr<Path>> paths_;
    std::map<const NetHost*, Wire*> wires_;
    std::function<void(const NetHost&, const NetPacket&)> onSend_;
    std::function<void(const NetHost&, const NetHost&, ose::Time)> onCarry_;
};

}  // namespace sim
