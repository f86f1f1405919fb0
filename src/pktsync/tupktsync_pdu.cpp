#include "pktsync/tupktsync_pdu.h"

#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/trace.h"
#include "ose/module_data.h"
#include "pktsync/tupktsync_cfi_client.h"
#include "pktsync/tupktsync_ipsocki_client.h"

#include <algorithm>

namespace {

struct State { std::array<u8, 6> mac{}; };
ose::ModuleData<State> s;

constexpr u32 TYPE_AT = 12, TYPE_AT_VLAN = 16;

/// Header of a frame to PTP's group; returns its length.
u32 putEthernetHeader(u8* frame, const PtpDescriptor& d)
{
    const auto& group = TUPKTSYNC_GROUP_MAC[d.ptpMulticastAddress != FORWARDABLE ? 1 : 0];
    std::copy(group.begin(), group.end(), frame);
    std::copy(s->mac.begin(), s->mac.end(), frame + 6);
    if (d.pbit == 0) {
        node::putBe16(frame + TYPE_AT, PTP_ETHERTYPE);
        return ETHERNET_HEADER;
    }
    node::putBe16(frame + TYPE_AT, VLAN_ETHERTYPE);
    frame[14] = static_cast<u8>(d.pbit * 32);
    frame[15] = 0;
    node::putBe16(frame + TYPE_AT_VLAN, PTP_ETHERTYPE);
    return ETHERNET_HEADER_VLAN;
}

void allocFrame(TuPktsyncPdu& pdu, u32 length, const u8* metadata)
{
    const u32 header = pdu.descriptor.pbit != 0 ? ETHERNET_HEADER_VLAN : ETHERNET_HEADER;
    const u32 metadataLength = metadata != nullptr ? PDU_METADATA_LENGTH : 0;
    pdu.buffer = TuPktsync_CFI_client_getSendBuffer(header + metadataLength + length, metadataLength);
    if (pdu.buffer == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_PDU, TRACE_ERROR, "failed to obtain CFI send buffer");
        return;
    }
    pdu.payload = pdu.buffer + putEthernetHeader(pdu.buffer, pdu.descriptor);
    if (metadata != nullptr) pdu.payload = std::copy_n(metadata, PDU_METADATA_LENGTH, pdu.payload);
}

void allocDatagram(TuPktsyncPdu& pdu, u32 length, const u8* metadata)
{
    pdu.buffer = TuPktsync_IPSOCKI_client_getPayloadPointer(pdu.descriptor.socket, length,
                                                            metadata != nullptr ? PDU_METADATA_LENGTH : 0,
                                                            metadata, pdu.descriptor.dscp);
    pdu.payload = pdu.buffer;
}

/// What is wrong with a frame, a bit each: 1 metadata that is no stamp, 2 no header, 4 no room for the
/// metadata, 8 not PTP. `header` becomes the length of its header.
u32 verdict(u32 frame_len, u32 metadata_len, const u8* bytes, u32& header)
{
    const bool isTagged = frame_len >= ETHERNET_HEADER && node::be16(bytes + TYPE_AT) == VLAN_ETHERTYPE;
    header = isTagged ? ETHERNET_HEADER_VLAN : ETHERNET_HEADER;
    const bool isPtp = frame_len >= header && node::be16(bytes + header - 2) == PTP_ETHERTYPE;
    u32 code = 0;
    if (metadata_len != PDU_METADATA_LENGTH) code |= 1;
    if (frame_len < ETHERNET_HEADER) code |= 2;
    if (u64{frame_len} < u64{header} + metadata_len) code |= 4;
    if (!isPtp) code |= 8;
    return code;
}

}  // namespace

void TuPktsync_PDU_setMacAddress(const std::array<u8, 6>& mac) { s->mac = mac; }

bool TuPktsync_alloc_pduBuf(TuPktsyncPdu& pdu, const PtpDescriptor& d, u32 length, const u8* metadata)
{
    pdu = {d, nullptr, nullptr};
    switch (d.ptpMapping) {
    case PTP_ETHERNET: allocFrame(pdu, length, metadata);    break;
    case UDP_UC:
    case UDP_MC:       allocDatagram(pdu, length, metadata); break;
    default: KVD_TRACE(TRACE_TUPKTSYNC_PDU, TRACE_ERROR, "TuPktsync_alloc_pduBuf: invalid transport type");
    }
    return pdu.payload != nullptr;
}

u32 TuPktsync_send_pdu(TuPktsyncPdu& pdu)
{
    if (pdu.descriptor.ptpMapping == PTP_ETHERNET) return TuPktsync_CFI_client_sendFrame(pdu.buffer);
    return TuPktsync_IPSOCKI_client_sendPayload(pdu.descriptor.socket, pdu.descriptor.serverIpAddress);
}

bool TuPktsync_send_message(const PtpDescriptor& descriptor, const u8* message, u32 length,
                            const u8* metadata)
{
    TuPktsyncPdu pdu;
    if (!TuPktsync_alloc_pduBuf(pdu, descriptor, length, metadata)) return false;
    std::copy_n(message, length, pdu.payload);
    TuPktsync_send_pdu(pdu);
    return true;
}

void TuPktsync_PDU_CfiRcvFrame(u32 frame_len, u32 metadata_len, const u8* bytes)
{
    u32 header = 0;
    const u32 code = verdict(frame_len, metadata_len, bytes, header);
    if (code != 0) {
        KVD_TRACE(TRACE_TUPKTSYNC_PDU, TRACE_2,
                  "Unrecognized MC frame received; frame_len %u bytes, metadata_len %u bytes; code=%u, ",
                  frame_len, metadata_len, code);
        return;
    }
    const u8* const metadata = bytes + header;
    TuPktsync_handle_ptp_message(metadata + metadata_len, frame_len - header - metadata_len,
                                 {node::be32(metadata), node::be32(metadata + 4)}, nullptr);
}

void TuPktsync_PDU_SockiRcvPacket(u32 localPort, const u8* data, u32 length, const PtpStamp& stamp,
                                  const PktIpAddress* sender)
{
    if (localPort != PTP_EVENT_PORT && localPort != PTP_GENERAL_PORT) {
        KVD_TRACE(TRACE_TUPKTSYNC_PDU, TRACE_2, "Socki packet received for unknown port number (%u)",
                  localPort);
        return;
    }
    TuPktsync_handle_ptp_message(data, length, stamp, sender);
}
