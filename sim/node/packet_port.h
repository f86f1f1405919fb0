// packet_port.h - The node's port to the packet network: frames and datagrams of its services, stamped
// by the board's counter as they come and go.
#pragma once
#include "sim/board/board.h"
#include "sim/net/network.h"
#include "sim/node/packet_port_config.h"

#include <functional>

namespace sim {

class Node;

class PacketPort : public NetHost {
public:
    PacketPort(Node& node, const PacketPortConfig& config);

    PacketPortConfig config;

    /// The network that the port is plugged into; nullptr for none.
    void plug(Network* network) { network_ = network; }
    /// `left`, where the service wants it, is handed the packet's stamp.
    void send(const NetPacket& packet, std::function<void(const PacketTime&)> left = {});
    bool carriesDatagrams() const { return network_ == nullptr || network_->carriesDatagrams(*this); }
    /// Also a packet that no network brings.
    void onPacket(const NetPacket& packet) override;
    NetAddress netAddress() const override { return config.address; }
    const std::string& netName() const override;

    u32 sent() const { return sent_; }
    u32 received() const { return received_; }
    void onSend(std::function<void(const NetPacket&)> observer) { onSend_ = std::move(observer); }

private:
    /// What the packet driver shows for a packet that came, or went, that long ago.
    PacketTime ingress(ose::Time age);
    PacketTime egress(ose::Time age);

    Node& node_;
    Network* network_ = nullptr;
    u32 sent_ = 0, received_ = 0;
    std::function<void(const NetPacket&)> onSend_;
};

}  // namespace sim
