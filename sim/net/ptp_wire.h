// ptp_wire.h - PTP messages as octets, for the masters of the simulation and for those who look at what
// a unit sends (IEEE 1588-2008 clause 13). Nothing of the program's own reader is used: what one writes
// the other must read.
#pragma once
#include "ose/types.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

namespace sim::ptp {

enum Type : u8 {
    SYNC = 0x0, DELAY_REQ = 0x1, PDELAY_REQ = 0x2, PDELAY_RESP = 0x3, FOLLOW_UP = 0x8, DELAY_RESP = 0x9,
    PDELAY_RESP_FOLLOW_UP = 0xA, ANNOUNCE = 0xB, SIGNALING = 0xC, MANAGEMENT = 0xD,
};
constexpr std::size_t HEADER = 34;
constexpr u16 EVENT_PORT = 319, GENERAL_PORT = 320;
constexpr u16 ETHERTYPE = 0x88F7;

struct Port {
    std::array<u8, 8> clock{};
    u16 number = 1;
    bool operator==(const Port&) const = default;
};

/// PTP time: s since 1970 of TAI, and ns.
struct Stamp {
    u64 seconds = 0;
    u32 ns = 0;
};

/// All that a message can hold; which of it counts depends on its type.
struct Message {
    u8  type = SYNC;
    u8  transport = 0;
    u8  version = 2;
    u16 length = 0;                  // as the message says; filled in when it is written
    u8  domain = 0;
    u8  flags0 = 0, flags1 = 0;
    i64 correction = 0;              // ns * 2^16
    Port source;
    u16 sequence = 0;
    u8  control = 0;
    i8  logInterval = 0;
    Stamp stamp;                     // origin, precise origin or receive
    Port requesting;                 // Delay_Resp
    // Announce
    i16 utcOffset = 0;
    u8  priority1 = 0, clockClass = 0, accuracy = 0;
    u16 variance = 0;
    u8  priority2 = 0;
    std::array<u8, 8> grandmaster{};
    u16 steps = 0;
    u8  timeSource = 0;
    // Signaling
    Port target;
    struct Tlv { u16 type; std::vector<u8> value; };
    std::vector<Tlv> tlvs;
};

constexpr u16 TLV_REQUEST = 4, TLV_GRANT = 5, TLV_CANCEL = 6, TLV_ACK_CANCEL = 7;

std::vector<u8> write(const Message& message);
/// Nothing for octets that hold no such message; `why` says what is wrong.
std::optional<Message> read(const u8* octets, std::size_t count, std::string* why = nullptr);
/// A frame around a message; with a VLAN tag when `priority` isn't 0.
std::vector<u8> frame(const std::array<u8, 6>& to, const std::array<u8, 6>& from, u8 priority,
                      const std::vector<u8>& message);
/// Where the message of a frame begins; 0 when it isn't PTP.
std::size_t messageAt(const std::vector<u8>& frame);
/// Adds a residence time to the correctionField of an event message.
void addResidence(std::vector<u8>& bytes, bool isFrame, double residence_s);
const char* typeName(u8 type);

}  // namespace sim::ptp
