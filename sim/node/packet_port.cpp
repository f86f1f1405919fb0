#include "sim/node/packet_port.h"

#include "sim/node/node.h"

namespace sim {

namespace {

struct Latency { double ingress_ns, egress_ns; };

/// Of the port's circuits, by board type, link speed and whether the port is the first.
Latency latencyOf(u32 boardType, const PacketPortConfig& c)
{
    constexpr u32 SPEED_4 = 4;
    const bool isFirst = c.portWord == 0;
    if (boardType == 2) return !isFirst              ? Latency{0, 0}
                               : c.linkSpeed == SPEED_4 ? Latency{446, 277}
                                                        : Latency{291, 148};
    if (c.linkSpeed == SPEED_4) return isFirst ? Latency{8191, 1605} : Latency{7750, 1340};
    return isFirst ? Latency{1354, 434} : Latency{1070, 230};
}

double seconds(ose::Time t) { return static_cast<double>(t) * 1e-12; }

}  // namespace

PacketPort::PacketPort(Node& node, const PacketPortConfig& c) : config(c), node_(node)
{
    const Latency latency = latencyOf(node.config().boardType, config);
    if (config.ingress_ns < 0) config.ingress_ns = latency.ingress_ns;
    if (config.egress_ns < 0) config.egress_ns = latency.egress_ns;
}

const std::string& PacketPort::netName() const { return node_.name(); }

PacketTime PacketPort::ingress(ose::Time age)
{
    return node_.board().packetTime(config.ingress_ns * 1e-9 - seconds(age), config.stampResolution_ns);
}

PacketTime PacketPort::egress(ose::Time age)
{
    return node_.board().packetTime(-config.egress_ns * 1e-9 - seconds(age), config.stampResolution_ns);
}

void PacketPort::send(const NetPacket& packet, std::function<void(const PacketTime&)> left)
{
    ++sent_;
    if (onSend_) onSend_(packet);
    Left stamped;
    if (left)
        stamped = [this, left = std::move(left)](ose::Time at) {
            left(egress(node_.world().now() - at));
        };
    if (network_ != nullptr) network_->send(*this, packet, stamped);
    else if (stamped)        stamped(node_.world().now());
}

void PacketPort::onPacket(const NetPacket& packet)
{
    ++received_;
    if (packet.isFrame) node_.cfi().deliver(packet.bytes, ingress(packet.age));
    else                node_.ipsocki().deliver(packet, ingress(packet.age));
}

}  // namespace sim
