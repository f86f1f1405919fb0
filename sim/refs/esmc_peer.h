// esmc_peer.h - The far end of an Ethernet port: sends its quality level as ESMC frames (ITU-T G.8264), an
// information PDU a second and an event PDU at once with each change, and looks at what the unit sends.
#pragma once
#include "sim/node/slowpi_server.h"

#include <optional>

namespace sim {

class Node;

/// What is wrong with every frame that the peer sends.
enum class EsmcFault : u8 {
    None,
    Empty,            // no byte
    NoEtherType,      // 13 bytes
    EtherType,        // 0x88F7
    SlowSubtype,      // 3, another slow protocol
    Oui,
    OneShort,         // ends one byte before it is long enough
    ItuSubtype,       // 2
    TlvType,          // 2
    TlvLength,        // 5
    Unpadded,         // 28 bytes, as a unit hands its own over
};

struct EsmcPeerConfig {
    u32 port = 0;                // 0 to 2
    u8  ssm = 2;                 // QL-PRC of option I
    bool present = true;         // sends from the beginning
    bool vlan = false;           // frames carry a tag
    bool tcu = false;            // marks itself as a transport clock unit
    double phase_s = 0.3;        // of its seconds against the world's
};

class EsmcPeer {
public:
    EsmcPeer(Node& node, const EsmcPeerConfig& config);
    EsmcPeer(const EsmcPeer&) = delete;
    EsmcPeer& operator=(const EsmcPeer&) = delete;

    // ---- script ---------------------------------------------------------------------------------
    /// A new quality level, with an event PDU at once unless `tells` is false: then its information PDUs
    /// alone carry it.
    void setQuality(u8 ssm, bool tells = true);
    void setSilent(bool silent);
    void setVlan(bool vlan) { config_.vlan = vlan; }
    void setTcu(bool tcu) { config_.tcu = tcu; }
    void setFault(EsmcFault fault) { fault_ = fault; }

    // ---- what the unit sent here ----------------------------------------------------------------
    u32 received() const { return received_; }
    u32 eventsReceived() const { return events_; }
    /// SSM code of the last frame; nothing before the first.
    std::optional<u8> lastSsm() const { return lastSsm_; }
    const std::vector<u8>& lastFrame() const { return lastFrame_; }

private:
    void second();
    void send(bool event);
    std::vector<u8> frame(bool event) const;
    void take(std::span<const u8> frame);

    Node& node_;
    EsmcPeerConfig config_;
    bool silent_;
    EsmcFault fault_ = EsmcFault::None;
    u32 received_ = 0, events_ = 0;
    std::optional<u8> lastSsm_;
    std::vector<u8> lastFrame_;
};

}  // namespace sim
