#include "refs/kvd_slowpi_esmc.h"

#include "base/element_of.h"
#include "node/bytes.h"

namespace slowpi {
namespace {

constexpr u16 ETHER_TYPE_SLOW = 0x8809, ETHER_TYPE_VLAN = 0x8100;
constexpr u32 ETHER_TYPE_AT = 12, PROTOCOL_AT = 14, VLAN_TAG_SIZE = 4;
constexpr u16 ITU_SUBTYPE = 1;
constexpr u8  QL_TLV_TYPE = 1;
constexpr u16 QL_TLV_LENGTH = 4;
constexpr u8  PEER_IS_TCU = 16;
constexpr u32 PDU_SIZE_MIN = 16;              // behind subtype and the organisation's first octet

// From the slow protocol subtype on.
constexpr u32 OUI_AT = 2, SUBTYPE_AT = 4, VERSION_AT = 6, TLV_TYPE_AT = 10, TLV_LENGTH_AT = 11, SSM_AT = 13,
              BEHIND_TLV_AT = 14;

u8 octet(std::span<const u8> frame, u32 at)
{
    const u8* const found = elementOf(frame, at);
    return found != nullptr ? *found : u8{0};
}
u16 word(std::span<const u8> frame, u32 at)
{
    return static_cast<u16>(octet(frame, at) << 8 | octet(frame, at + 1));
}

EsmcReading refused(EsmcReading reading, EsmcVerdict verdict, u8 code = 0)
{
    reading.verdict = verdict;
    reading.code = code;
    return reading;
}

/// EsmcCode bits of what isn't ESMC from the subtype on.
u8 protocolCode(std::span<const u8> frame, u32 protocolAt, EsmcReading& reading)
{
    u8 code = frame.size() < protocolAt + 2 ? NOT_ESMC_SHORT : 0;
    reading.slowProtocolSubtype = octet(frame, protocolAt);
    reading.oui = word(frame, protocolAt + OUI_AT);
    if (reading.slowProtocolSubtype != ESMC_SUBTYPE) code |= NOT_ESMC_SUBTYPE;
    if (octet(frame, protocolAt + 1) != 0) code |= NOT_ESMC_OUI;
    if (reading.oui != ESMC_OUI) code |= NOT_ESMC_OUI;
    return code;
}

/// All of the PDU's octets are there.
EsmcReading readPdu(std::span<const u8> pdu, EsmcReading reading)
{
    reading.subtype = word(pdu, SUBTYPE_AT);
    reading.qlTlvType = pdu[TLV_TYPE_AT];
    reading.tlvLength = word(pdu, TLV_LENGTH_AT);
    if (reading.subtype != ITU_SUBTYPE) return refused(reading, EsmcVerdict::BadSubtype);
    if (reading.qlTlvType != QL_TLV_TYPE) return refused(reading, EsmcVerdict::BadTlvType);
    if (reading.tlvLength != QL_TLV_LENGTH) return refused(reading, EsmcVerdict::BadTlvLength);
    reading.version = pdu[VERSION_AT] >> 4;
    reading.isEvent = (pdu[VERSION_AT] & 0x08) != 0;
    reading.ssm = pdu[SSM_AT] & 0x0F;
    reading.tcuDetected = pdu[BEHIND_TLV_AT] == PEER_IS_TCU;
    return reading;
}

}  // namespace

EsmcFrame ownFrame()
{
    return {0x01, 0x80, 0xC2, 0x00, 0x00, 0x02,            // slow protocols multicast
            0, 0, 0, 0, 0, 0, 0x88, 0x09, ESMC_SUBTYPE, 0x00, 0x19, 0xA7,
            0, ITU_SUBTYPE, ESMC_INFORMATION_PDU, 0, 0, 0,
            QL_TLV_TYPE, 0, QL_TLV_LENGTH, SSM_DO_NOT_USE};
}

EsmcReading readEsmc(std::span<const u8> frame)
{
    EsmcReading reading;
    if (frame.size() < PROTOCOL_AT) return refused(reading, EsmcVerdict::NoFrame, NO_FRAME);
    reading.etherType = node::be16(frame.data() + ETHER_TYPE_AT);
    u32 protocolAt = PROTOCOL_AT;
    if (reading.etherType == ETHER_TYPE_VLAN)
        protocolAt += VLAN_TAG_SIZE;                       // the EtherType behind the tag isn't looked at
    else if (reading.etherType != ETHER_TYPE_SLOW)
        return refused(reading, EsmcVerdict::OtherEtherType, OTHER_ETHER_TYPE);

    const u8 code = protocolCode(frame, protocolAt, reading);
    if (code != 0) return refused(reading, EsmcVerdict::OtherProtocol, code);
    if (frame.size() < protocolAt + 2 + PDU_SIZE_MIN) return refused(reading, EsmcVerdict::TooShort);
    return readPdu(frame.subspan(protocolAt), reading);
}

}  // namespace slowpi
