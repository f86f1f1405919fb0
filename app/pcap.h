// pcap.h - A recorded capture on the packet port of a unit: which of its PTP messages the unit takes,
// which it refuses and why.
//
// The unit has a reference for each domain on Ethernet and one for each master of unicast UDP, eight in all.
// A datagram is handed to the unit's own address whatever group or host it was sent to.
// Units   virtual time passes as in the capture, from its first packet on; steps back, and of more than a
//         day, are left out.
#pragma once
#include "app/pcap_file.h"
#include "ose/world.h"
#include "sim/node/node.h"

#include <cstdio>
#include <functional>
#include <map>
#include <memory>

namespace app {

enum class PcapVerdict : u8 { Taken, Refused, Waits, Ignored, NotHanded };
constexpr std::size_t PCAP_VERDICTS = 5;

/// One PTP message and what became of it.
struct PcapMessage {
    std::size_t number = 0;            // of the packet in the capture, from 1
    double at_s = 0;                   // since its first packet
    std::string way;                   // "L2" or the sender's address
    std::string type;                  // "Sync", "PTP version 1"
    u32 domain = 0, sequence = 0;
    PcapVerdict verdict = PcapVerdict::Taken;
    std::string reason;                // of all verdicts but Taken
};

/// A port that speaks as a master.
struct PcapMaster {
    u64 announces = 0, syncs = 0;
    u64 refusedAnnounces = 0;          // of those
    bool isRead = false;               // what follows, of its newest Announce that can be read
    u32 priority1 = 0, clockClass = 0, clockAccuracy = 0, priority2 = 0, stepsRemoved = 0;
    std::string grandmaster;
};

/// Where a reference of the unit stands at the end.
struct PcapReference { std::string what, portState, parent; };

struct PcapResult {
    u64 packets = 0, other = 0;        // of the capture; that carry no PTP
    std::array<u64, PCAP_VERDICTS> totals{};
    std::map<std::string, std::array<u64, PCAP_VERDICTS>> types;
    std::map<std::string, u64> reasons;
    std::map<std::string, PcapMaster> masters;     // by way, domain and port identity
    std::vector<PcapReference> references;
    u32 leftOut = 0;                   // domains and masters beyond the eight
    std::vector<std::string> misuses;  // of the kernel
};

/// A unit in its node, its references created, about to hear a capture.
class PcapBench {
public:
    explicit PcapBench(std::vector<PcapPacket> capture);

    sim::Node& node() { return *node_; }
    void onMessage(std::function<void(const PcapMessage&)> observer) { observer_ = std::move(observer); }
    PcapResult run();

private:
    sim::NodeConfig configFor(const std::vector<PcapPacket>& capture);
    void hand(const PtpCarrier& carrier, PcapMessage& message);
    struct Counts { u64 used = 0, stored = 0, unread = 0; };
    const char* obstacle(const PtpCarrier& carrier);
    Counts counts();                   // of messages, over all clocks of the unit
    void note(const PtpCarrier& carrier, const PcapMessage& message);
    void readReferences();

    std::vector<PcapPacket> capture_;
    PcapResult result_;
    u32 family_ = 0;                   // of the unit's host; 0 for none
    ose::World world_{1};
    std::unique_ptr<sim::Node> node_;
    Counts counts_;                    // behind the last message
    std::string lastWord_;             // of the program's packet side about the message under way
    std::function<void(const PcapMessage&)> observer_;
};

void printPcapMessage(const PcapMessage& message, std::FILE* out);
void printPcapResult(const PcapResult& result, const std::string& name, std::FILE* out);

}  // namespace app
