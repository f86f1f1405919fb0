// kvd_slowpi_esmc.h - The ESMC frame (ITU-T G.8264 clause 11.3) as bytes: reading one of a peer's, building
// the unit's own. Values in, values out; no state.
//
//     0  u48  destination, 01-80-C2-00-00-02
//     6  u48  source
//    12  u16  EtherType 0x8809; a VLAN tag (0x8100) before it moves all that follows by 4
//    14  u8   slow protocol subtype, 10
//    15  u24  ITU's organisation, 00-19-A7
//    18  u16  ITU subtype, 1
//    20  u8   version in the upper four bits, bit 3: event PDU
//    21  u24  reserved
//    24  u8   type of the quality level TLV, 1
//    25  u16  its length, 4
//    27  u8   SSM code in the lower four bits
//    28  u8   16: the peer is a transport clock unit
#pragma once
#include "ose/types.h"

#include <array>
#include <span>

namespace slowpi {

constexpr u32 ESMC_FRAME_SIZE = 28;          // of the own frame, without padding
constexpr u32 ESMC_SOURCE_AT = 6, ESMC_VERSION_AT = 20, ESMC_SSM_AT = 27;
constexpr u8  ESMC_EVENT_PDU = 0x18, ESMC_INFORMATION_PDU = 0x10;   // version 1
constexpr u8  SSM_DO_NOT_USE = 15;
constexpr u8  ESMC_SUBTYPE = 10;             // slow protocol subtype of organisations
constexpr u32 ESMC_OUI = 0x19A7;

using EsmcFrame = std::array<u8, ESMC_FRAME_SIZE>;
using MacAddress = std::array<u8, 6>;

/// Information PDU that says do not use, its source address zero.
EsmcFrame ownFrame();

/// In the order in which a frame is looked at.
enum class EsmcVerdict : u8 {
    Taken,
    NoFrame,         // code 1: no EtherType in it
    OtherEtherType,  // code 2
    OtherProtocol,   // code holds NOT_ESMC_ bits
    TooShort,
    BadSubtype,
    BadTlvType,
    BadTlvLength,
};
enum EsmcCode : u8 {
    NO_FRAME = 1,
    OTHER_ETHER_TYPE = 2,
    NOT_ESMC_SHORT = 4,        // ends before or within the subtype
    NOT_ESMC_SUBTYPE = 8,
    NOT_ESMC_OUI = 16,
};

/// Fields beyond where a verdict was reached are 0.
struct EsmcReading {
    EsmcVerdict verdict = EsmcVerdict::Taken;
    u8  code = 0;              // EsmcCode
    u16 etherType = 0;
    u8  slowProtocolSubtype = 0;
    u16 oui = 0;               // its lower 16 bits
    u16 subtype = 0;           // ITU's
    u8  qlTlvType = 0;
    u16 tlvLength = 0;
    u8  version = 0;
    bool isEvent = false;
    u8  ssm = 0;
    bool tcuDetected = false;
};
/// Octets behind the end of a frame that is too short to hold its organisation count as 0.
EsmcReading readEsmc(std::span<const u8> frame);

}  // namespace slowpi
