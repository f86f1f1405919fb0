// heard.h - The PTP masters that can be heard on an interface of the machine, whoever listens to them: what
// they announce, over which transport and group, and why a unit there doesn't follow them.
// Units   world's time; intervals as log2 of s.
#pragma once
#include "sim/net/network.h"
#include "sim/net/ptp_wire.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/// How a message comes; what units listen to is one of the first two.
enum class PtpWay : u8 { Frame, Unicast, IpGroup };

struct HeardMaster {
    ptp::Port source;
    u8 domain = 0;
    PtpWay way = PtpWay::Frame;
    std::string to;                  // the group's MAC or IP address, or the unit's own address
    std::string from;                // the sender's
    ptp::Message announce;           // the latest
    std::optional<i8> logSync;
    u64 announces = 0, syncs = 0;
    ose::Time first = 0, last = 0;
    std::string said;                // what was told of it last
    ose::Time saidAt = 0;
};

/// A reference that a unit has, as far as it decides whose messages reach it.
struct Listening {
    PtpWay way = PtpWay::Frame;
    u8 domain = 0;
    std::string address;             // of the group that it joins, or of its server
    std::string profile;
    double announceWithin_s = 0;     // a master that is silent for longer is given up
    double syncWithin_s = 0;         // a slower flow is a fault
    bool needsTai = false;           // a master of another time scale is a fault
    bool isTime = true;
    u8 classWithin = 0xFF;           // a higher one is a fault
    std::vector<u8> classesToo{};    // but for these
    u8 accuracyWithin = 0xFF;
};

class HeardMasters {
public:
    /// `listening` answers what the unit on this interface has; nothing for who isn't a unit.
    HeardMasters(ose::World& world, std::function<std::optional<std::vector<Listening>>()> listening,
                 std::function<void(const std::string&)> tell)
        : world_(world), listening_(std::move(listening)), tell_(std::move(tell))
    {
    }

    /// A message that has come; anything but Announce and Sync is left aside.
    void take(PtpWay way, const std::string& to, const std::string& from, const u8* octets,
              std::size_t count);
    const std::vector<HeardMaster>& masters() const { return masters_; }
    /// Masters that found no room in the table.
    u64 beyond() const { return beyond_; }
    /// "Announce from 3C:... domain 0, group 01-80-...", and what keeps the unit from following it.
    std::string describe(const HeardMaster& master) const;
    /// Whether one of the unit's references takes its messages.
    bool isTaken(const HeardMaster& master) const;

private:
    void onAnnounce(HeardMaster& master);

    ose::World& world_;
    std::function<std::optional<std::vector<Listening>>()> listening_;
    std::function<void(const std::string&)> tell_;
    std::vector<HeardMaster> masters_;
    u64 beyond_ = 0;
};

/// "3cecef.fffe.123456-1"
std::string textOf(const ptp::Port& port);
/// "01-80-C2-00-00-0E"
std::string textOf(const u8* mac);

}  // namespace sim
