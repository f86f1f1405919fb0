// pcap_file.h - Recorded packets: pcap with stamps in us or ns and pcapng, of either byte order, plain or
// gzip, of Ethernet; and what of PTP they carry (IEEE 1588-2008 annexes D, E, F).
// Errors  a file that can't be used throws PcapError, one line that names it.
#pragma once
#include "sim/net/network.h"

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace app {

class PcapError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct PcapPacket {
    i64 time_ns = 0;                   // since 1970; one without a stamp has that of the one before
    u32 wireLength = 0;                // octets that the recorder saw; more than it kept when it cut
    std::vector<u8> frame;
};

/// Packets of a file's bytes, in the file's order; `name` is for the error's line.
std::vector<PcapPacket> parsePcap(std::span<const u8> file, const std::string& name);
std::vector<PcapPacket> readPcap(const std::string& path);

/// A packet's PTP as the node's services would hand it up: the whole frame, or a datagram to port 319 or 320.
/// Behind more than the one VLAN tag that the node reads, or under MPLS labels (IP or an Ethernet pseudowire
/// with control word, RFC 4448), it is found too, and `behind` says so.
struct PtpCarrier {
    sim::NetPacket packet;
    std::size_t messageAt = 0;         // in packet.bytes
    std::string behind;                // headers that the node doesn't read: "2 VLAN tags", "MPLS"
    bool isCut = false;                // the recorder kept less than was sent
    std::span<const u8> message() const { return std::span(packet.bytes).subspan(messageAt); }
};
/// A datagram of UDP, whatever it is for; nothing for another packet, nor for a fragment.
struct UdpCarrier {
    sim::NetAddress from, to;
    u16 fromPort = 0, toPort = 0;
    std::vector<u8> bytes;
};
std::optional<UdpCarrier> udpOf(const PcapPacket& packet);
/// Nothing for a packet that carries no PTP, nor for a fragment.
std::optional<PtpCarrier> ptpOf(const PcapPacket& packet);

}  // namespace app
