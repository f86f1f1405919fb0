// A received message: whose it is, whether it can be read, which part of its clock takes it.
#include "base/trace_groups.h"
#include "node/bytes.h"
#include "node/trace.h"
#include "pktsync/tupktsync_ptp_clock.h"
#include "pktsync/tupktsync_ptp_uc_neg.h"

#include <cstdio>

namespace {

/// Octets behind the header that a message needs, and its name.
struct Needed { u8 messageType; u32 octets; const char* name; };
constexpr Needed NEEDED[] = {
    {PTP_SYNC, 10, "Sync"},
    {PTP_FOLLOW_UP, 10, "Follow_Up"},
    {PTP_DELAY_RESP, 20, "Delay_Resp"},
    {PTP_ANNOUNCE, 30, "Announce"},
};

PtpClock* receiver(u8 domain, const PktIpAddress* server)
{
    for (const u32 id : PTP_CLOCK_IDS) {
        PtpClock* const c = ptpClockOf(id);
        if (c == nullptr || c->setup.domainNumber != domain) continue;
        const bool isIp = c->setup.ptpMapping != PTP_ETHERNET;
        if (server != nullptr ? isIp && c->setup.serverIpAddress == *server : !isIp) return c;
    }
    return nullptr;
}

void traceNoReceiver(u8 domain, const PktIpAddress* server)
{
    if (server == nullptr) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "PTP message received for unknown domainId (%u)",
                  domain);
        return;
    }
    char text[40];
    int at = 0;
    const u32 count = server->family == 4 ? 4 : 16;
    for (u32 i = 0; i < count; ++i)
        at += std::snprintf(text + at, sizeof text - static_cast<std::size_t>(at),
                            server->family == 4 ? "%s%u" : "%s%02x", i > 0 && server->family == 4 ? "." : "",
                            server->octets[i]);
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
              "PTP message received for unknown server IP address (%s) and/or domainId (%u)", text, domain);
}

bool onTlv(const PtpClock& c, const PtpHeader& h, u16 type, const u8* tlv, u32 length)
{
    constexpr u16 GRANT = 5, CANCEL = 6, ACK_CANCEL = 7;
    constexpr u32 GRANT_OCTETS = 12, CANCEL_OCTETS = 6;
    const u32 id = c.setup.syncrefId;
    if (type == GRANT && length >= GRANT_OCTETS)
        return TuPktsyncPTP_UCgrant(id, h, tlv[4] >> 4, static_cast<i8>(tlv[5]),
                                    u32{node::be16(tlv + 6)} << 16 | node::be16(tlv + 8));
    if (type == CANCEL && length >= CANCEL_OCTETS) return TuPktsyncPTP_UCcancel(id, h, tlv[4] >> 4);
    if (type == ACK_CANCEL && length >= CANCEL_OCTETS) {
        TuPktsyncPTP_UCackCancel(id, tlv[4] >> 4);
        return true;
    }
    KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Signaling TLV of unsupported type (%u) received ", type);
    return false;
}

/// True when one of its TLVs served.
bool onSignaling(const PtpClock& c, const PtpHeader& h, const u8* message, u32 length)
{
    constexpr u32 TARGET_OCTETS = 10, TLV_HEADER = 4;
    if (!ptpHasUcNeg(c.setup.syncrefId)) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "PTP Signaling message received for syncref(id=%d) not mapped to unicast bearer",
                  c.setup.syncrefId);
        return false;
    }
    if (h.messageLength > length || h.messageLength < PTP_HEADER_LENGTH + TARGET_OCTETS) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "PTP Signaling received in too short frame; only %d bytes left",
                  length - PTP_HEADER_LENGTH);
        return false;
    }
    const PtpPortIdentity target = ptpPortIdentityOf(message + PTP_HEADER_LENGTH);
    const bool isAny = target.clockIdentity == PTP_ANY_PORT.clockIdentity
                       && (target.portNumber == c.portIdentity.portNumber
                           || target.portNumber == PTP_ANY_PORT.portNumber);
    if (target != c.portIdentity && !isAny) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "PTP Signaling message received for unknown targetPortIdentity");
        return false;
    }
    bool used = false;
    u32 at = PTP_HEADER_LENGTH + TARGET_OCTETS;
    while (h.messageLength - at >= TLV_HEADER) {
        const u32 octets = TLV_HEADER + node::be16(message + at + 2);
        if (octets > h.messageLength - at) break;
        if (onTlv(c, h, node::be16(message + at), message + at, octets)) used = true;
        at += octets;
    }
    if (at != h.messageLength)
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Signaling message received with %d residual octets ",
                  h.messageLength - at);
    return used;
}

bool give(PtpClock& c, const PtpHeader& h, const u8* message, u32 length, const PtpStamp& received)
{
    const u8* const body = message + PTP_HEADER_LENGTH;
    switch (h.messageType) {
    case PTP_SYNC:       return ptpOnSync(c, h, ptpTimestampOf(body), received);
    case PTP_FOLLOW_UP:  return ptpOnFollowUp(c, h, ptpTimestampOf(body));
    case PTP_DELAY_RESP: return ptpOnDelayResp(c, h, ptpDelayRespOf(body));
    case PTP_ANNOUNCE:   return ptpOnAnnounce(c, h, ptpAnnounceOf(body));
    case PTP_SIGNALING:  return onSignaling(c, h, message, length);
    default:             ++c.unread; return false;
    }
}

}  // namespace

void TuPktsync_handle_ptp_message(const u8* message, u32 length, const PtpStamp& received,
                                  const PktIpAddress* server)
{
    constexpr u32 SHORTEST = 40;
    if (length < SHORTEST) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2,
                  "PTP received in too short frame, %d bytes; not even enough for common message "
                  "header",
                  length);
        return;
    }
    const PtpHeader h = ptpHeaderOf(message);
    PtpClock* const c = receiver(h.domainNumber, server);
    if (c == nullptr) return traceNoReceiver(h.domainNumber, server);
    if (h.versionPTP != 2 || h.messageLength < PTP_HEADER_LENGTH) {
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "Nonconformant PTP frame received; msg_len %u octets",
                  h.messageLength);
        return;
    }
    const u32 left = length - PTP_HEADER_LENGTH;
    for (const Needed& n : NEEDED) {
        if (n.messageType != h.messageType || left >= n.octets) continue;
        KVD_TRACE(TRACE_TUPKTSYNC_PTP_PROT, TRACE_2, "PTP %s received in too short frame; only %d bytes left",
                  n.name, left);
        return;
    }
    if (give(*c, h, message, length, received)) ++c->used[h.messageType];
}
