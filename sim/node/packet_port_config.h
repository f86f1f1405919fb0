// packet_port_config.h - The port of a simulated node that carries its packets.
#pragma once
#include "sim/net/network.h"

namespace sim {

struct PacketPortConfig {
    MacAddress mac{2, 0, 0, 0, 0, 1};
    NetAddress address{4, {192, 168, 0, 1}};
    double stampResolution_ns = 8;
    u32 linkSpeed = 6;               // code as the main processor tells it: 4 or 6
    u32 portWord = 0;
    /// Of the board's stamps: how late one of a received packet is, how early one of a sent. Negative
    /// takes the board type's own.
    double ingress_ns = -1, egress_ns = -1;
};

}  // namespace sim
