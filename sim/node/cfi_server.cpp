#include "sim/node/cfi_server.h"

#include "node/cfi_sig.h"
#include "node/sig.h"
#include "sim/node/node.h"

namespace sim {

namespace {

constexpr std::size_t MAC_OCTETS = 6, HEADER = 14, TAGGED_HEADER = 18;
constexpr u32 METADATA = 8;

void put32(u8* at, u32 value)
{
    for (int i = 0; i < 4; ++i) at[i] = static_cast<u8>(value >> (24 - 8 * i));
}

/// Where a frame's payload begins, behind its EtherType.
std::size_t payloadAt(const std::vector<u8>& frame)
{
    if (frame.size() < HEADER) return frame.size();
    const bool isTagged = frame[12] == 0x81 && frame[13] == 0x00;
    return std::min(isTagged ? TAGGED_HEADER : HEADER, frame.size());
}

}  // namespace

CfiServer::CfiServer(Node& node) : Server(node, CFI_SERVER_NAME, 10) {}

void CfiServer::start()
{
    client_ = 0;
    attached_ = false;
    groups_.clear();
    owed_.clear();
    Server::start();
}

void CfiServer::die()
{
    attached_ = false;
    client_ = 0;
    Server::die();
}

void CfiServer::confirmGroups()
{
    if (!alive() || client_ == 0) return;
    for (const Owed& o : std::exchange(owed_, {})) {
        const CfiResultCfm cfm{o.sigNo, 3, 0, o.clientData};
        node_.system().inject(std::as_bytes(std::span(&cfm, 1)), client_, pid());
    }
}

void CfiServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    switch (sig->sigNo) {
    case CFI_INITIATE_SERVICE_REQ: {
        client_ = from;
        attached_ = false;
        groups_.clear();
        const SIGSELECT said = answer() == Answer::Suspend  ? CFI_INITIATE_SERVICE_SUS
                               : answer() == Answer::Reject ? CFI_INITIATE_SERVICE_REJ
                                                            : CFI_INITIATE_SERVICE_CFM;
        return send(from, node::ProxyInitiateAnswer{said, selectedPv});
    }
    case CFI_ATTACH_REQ: {
        const auto* req = as<CfiAttachReq>(sig);
        attached_ = attachResult == 0;
        return send(from, CfiResultCfm{CFI_ATTACH_CFM, req->deviceId, attachResult, 0});
    }
    case CFI_JOIN_MULTICAST_REQ:
    case CFI_LEAVE_MULTICAST_REQ: return onMulticast(sig, from);
    case CFI_SEND_FRAME_REQ:      return onSend(sig);
    default:                      return;
    }
}

void CfiServer::onMulticast(Signal* sig, PROCESS from)
{
    const auto* req = as<CfiMulticastReq>(sig);
    const MacAddress mac{static_cast<u8>(req->macHigh >> 24), static_cast<u8>(req->macHigh >> 16),
                         static_cast<u8>(req->macHigh >> 8),  static_cast<u8>(req->macHigh),
                         static_cast<u8>(req->macLow >> 24),  static_cast<u8>(req->macLow >> 16)};
    const bool isJoin = sig->sigNo == CFI_JOIN_MULTICAST_REQ;
    const u32 result = isJoin ? joinResult : leaveResult;
    if (result == 0) {
        if (isJoin) groups_.insert(mac);
        else groups_.erase(mac);
    }
    const SIGSELECT cfm = isJoin ? CFI_JOIN_MULTICAST_CFM : CFI_LEAVE_MULTICAST_CFM;
    if (!confirmsGroups) return owed_.push_back({cfm, req->clientData});
    send(from, CfiResultCfm{cfm, req->deviceId, result, req->clientData});
}

/// The metadata doesn't leave: it comes back with the stamp.
void CfiServer::onSend(Signal* sig)
{
    const auto* req = as<CfiSendFrameReq>(sig);
    const u8* const bytes = reinterpret_cast<const u8*>(req + 1);
    NetPacket packet;
    packet.bytes.assign(bytes, bytes + req->length);
    if (req->metalength == METADATA) {
        const auto at = packet.bytes.begin() + static_cast<std::ptrdiff_t>(payloadAt(packet.bytes));
        std::array<u8, METADATA> metadata;
        std::copy_n(at, METADATA, metadata.begin());
        packet.bytes.erase(at, at + METADATA);
        return node_.packetPort().send(packet, [this, metadata](const PacketTime& stamp) {
            node_.pktsyncDrv().sent(metadata, stamp);
        });
    }
    node_.packetPort().send(packet);
}

void CfiServer::deliver(const std::vector<u8>& frame, const PacketTime& stamp)
{
    if (!alive() || client_ == 0 || !attached_ || frame.size() < HEADER) return;
    MacAddress to;
    std::copy_n(frame.begin(), MAC_OCTETS, to.begin());
    if ((to[0] & 1) != 0 && !groups_.contains(to)) return;
    const std::size_t at = payloadAt(frame);
    CfiReceiveFrameInd ind{};
    ind.sigNo = CFI_RECEIVE_FRAME_IND;
    ind.deviceId = 3;
    ind.length = static_cast<u32>(frame.size()) + METADATA;
    ind.metalength = METADATA;
    std::vector<std::byte> signal(sizeof ind + ind.length);
    std::memcpy(signal.data(), &ind, sizeof ind);
    u8* out = reinterpret_cast<u8*>(signal.data()) + sizeof ind;
    out = std::copy_n(frame.begin(), at, out);
    put32(out, stamp.seconds);
    put32(out + 4, stamp.fraction);
    std::copy(frame.begin() + static_cast<std::ptrdiff_t>(at), frame.end(), out + METADATA);
    node_.system().inject(signal, client_, pid());
}

}  // namespace sim
