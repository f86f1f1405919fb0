// tupktsync_pdu.h - PTP messages as frames and datagrams, and back (IEEE 1588-2008 annexes D, F).
// Owner   Kvd_loz6_tupktsync_proc.
// Errors  what can't be sent or read is traced and dropped.
#pragma once
#include "pktsync/tupktsync_ptp_protocol.h"

constexpr u32 PDU_METADATA_LENGTH = 8;
constexpr u32 ETHERNET_HEADER = 14, ETHERNET_HEADER_VLAN = 18;

/// A message to be sent: where its payload goes, and how it leaves.
struct TuPktsyncPdu {
    PtpDescriptor descriptor;
    u8* buffer = nullptr;            // of the transport
    u8* payload = nullptr;
};

/// Source address of this unit's frames.
void TuPktsync_PDU_setMacAddress(const std::array<u8, 6>& mac);

/// Room for `length` octets; the eight octets of metadata, where given, come back with the egress
/// stamp. False without a buffer.
bool TuPktsync_alloc_pduBuf(TuPktsyncPdu& pdu, const PtpDescriptor& descriptor, u32 length,
                            const u8* metadata);
/// 1 when it left.
u32  TuPktsync_send_pdu(TuPktsyncPdu& pdu);
/// Both, for a message that stands; false without a buffer.
bool TuPktsync_send_message(const PtpDescriptor& descriptor, const u8* message, u32 length,
                            const u8* metadata);

/// A received frame of `frame_len` octets with `metadata_len` octets of metadata behind its EtherType.
void TuPktsync_PDU_CfiRcvFrame(u32 frame_len, u32 metadata_len, const u8* bytes);
/// A datagram of a local port; a zero stamp and no sender when they aren't known.
void TuPktsync_PDU_SockiRcvPacket(u32 localPort, const u8* data, u32 length, const PtpStamp& stamp,
                                  const PktIpAddress* sender);
