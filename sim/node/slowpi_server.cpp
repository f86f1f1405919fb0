#include "sim/node/slowpi_server.h"

#include "node/slowpi_sig.h"
#include "sim/node/node.h"

#include <algorithm>

namespace sim {

namespace {

constexpr u32 REVISION = 1;
constexpr std::size_t FRAME_SIZE_MIN = 60;   // IEEE 802.3, without the check sequence

template <typename T>
std::vector<std::byte> bytesOf(const T& layout)
{
    const auto* bytes = reinterpret_cast<const std::byte*>(&layout);
    return {bytes, bytes + sizeof(T)};
}

}  // namespace

SlowpiServer::SlowpiServer(Node& node) : Server(node, SLOWPI_SERVER_NAME, 10) {}

void SlowpiServer::die()
{
    client_ = 0;
    subscribed_ = false;
    Server::die();
}

/// By an event of the world, whoever calls: the order of the calls is the order of arrival.
void SlowpiServer::tell(std::vector<std::byte> signal)
{
    if (client_ == 0 || !alive()) return;
    node_.after(0, [this, signal = std::move(signal), client = client_] {
        if (alive() && node_.system().alive(client)) node_.system().inject(signal, client, pid());
    });
}

void SlowpiServer::tellInitiated(SIGSELECT answer)
{
    tell(bytesOf(SlowpiInitiateServiceCfm{answer, REVISION, highestPv}));
}

void SlowpiServer::tellResult(SIGSELECT answer, u8 result) { tell(bytesOf(SlowpiResultRsp{answer, result})); }

void SlowpiServer::onInitiate(u32 lowestPv, PROCESS from)
{
    client_ = from;
    subscribed_ = false;
    if (answer() == Answer::Suspend) return tellInitiated(SLOWPI_INITIATE_SERVICE_SUS);
    if (answer() != Answer::Accept || lowestPv > highestPv) return tellInitiated(SLOWPI_INITIATE_SERVICE_REJ);
    ++connections_;
    tellInitiated(SLOWPI_INITIATE_SERVICE_CFM);
}

void SlowpiServer::onSubscription(bool subscribes, PROCESS from)
{
    if (from != client_ || !answersSubscriptions) return;
    const u8 result = subscribes ? subscribeResult : unsubscribeResult;
    if (result == 0) subscribed_ = subscribes;
    tellResult(subscribes ? SLOWPI_SUBSCRIBE_RSP : SLOWPI_UNSUBSCRIBE_RSP, result);
}

void SlowpiServer::onSend(Signal* sig)
{
    const u32 held = ose::sigsize(&sig) - static_cast<u32>(sizeof(SlowpiFrame));
    const u32 length = std::min(reinterpret_cast<const SlowpiFrame*>(sig)->length, held);
    const u8* const bytes = reinterpret_cast<const u8*>(sig) + sizeof(SlowpiFrame);
    std::vector<u8> frame(bytes, bytes + length);
    frame.resize(std::max(frame.size(), FRAME_SIZE_MIN));
    ++framesSent_;
    if (farEnds_[port_]) farEnds_[port_](frame);
}

void SlowpiServer::onSignal(Signal* sig, PROCESS from)
{
    if (answer() == Answer::Silent) return;
    const u32 size = ose::sigsize(&sig);
    switch (sig->sigNo) {
    case SLOWPI_INITIATE_SERVICE_REQ:
        if (size < sizeof(SlowpiInitiateServiceReq)) return;
        return onInitiate(reinterpret_cast<const SlowpiInitiateServiceReq*>(sig)->pvFirstWanted, from);
    case SLOWPI_SUBSCRIBE_REQ:
    case SLOWPI_UNSUBSCRIBE_REQ:
        if (size < sizeof(SlowpiSubscribeReq)) return;
        return onSubscription(sig->sigNo == SLOWPI_SUBSCRIBE_REQ, from);
    case SLOWPI_SEND_FRAME_IND:
        if (size >= sizeof(SlowpiFrame)) onSend(sig);
        return;
    default: return;
    }
}

void SlowpiServer::receive(u32 port, std::span<const u8> frame)
{
    if (!subscribed_ || port != port_) return;
    ++framesDelivered_;
    std::vector<std::byte> signal = bytesOf(
        SlowpiFrame{SLOWPI_RECEIVE_FRAME_IND, static_cast<u32>(frame.size())});
    const auto bytes = std::as_bytes(frame);
    signal.insert(signal.end(), bytes.begin(), bytes.end());
    tell(std::move(signal));
}

}  // namespace sim
