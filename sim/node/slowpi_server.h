// slowpi_server.h - The node's slow protocol service: hands the frames of the Ethernet ports to the unit that
// subscribed, and sends the unit's own.
//
// The unit's requests name no port. Frames go out of, and come in at, the port that the node has given the
// service; the main processor gives it the port whose supervision it orders last.
#pragma once
#include "sim/node/server.h"

#include <array>
#include <functional>
#include <span>

namespace sim {

constexpr u32 ETHERNET_PORTS = 3;            // A, B, C

class SlowpiServer : public Server {
public:
    explicit SlowpiServer(Node& node);

    // ---- script, beside Server's answers --------------------------------------------------------
    u32 highestPv = 1;
    u8  subscribeResult = 0, unsubscribeResult = 0;   // 0 done
    bool answersSubscriptions = true;                 // false: takes the requests and never answers
    /// Port of the frames, 0 to 2.
    void setPort(u32 port) { port_ = port; }
    u32  port() const { return port_; }
    /// Any of the service's answers, asked for or not, to the client that asked for the service last.
    void tellInitiated(SIGSELECT answer);             // CFM, SUS or REJ
    void tellResult(SIGSELECT answer, u8 result);     // of a subscription or its end

    // ---- frames ---------------------------------------------------------------------------------
    /// A frame that a port received: delivered to a subscribed unit when it is the service's port.
    void receive(u32 port, std::span<const u8> frame);
    /// Whoever is at the far end of a port. Frames arrive there padded to 60 bytes.
    void connect(u32 port, std::function<void(std::span<const u8>)> farEnd)
    {
        farEnds_.at(port) = std::move(farEnd);
    }

    bool subscribed() const { return subscribed_; }
    u32 connections() const { return connections_; }   // confirmed
    u32 framesSent() const { return framesSent_; }     // of the unit
    u32 framesDelivered() const { return framesDelivered_; }
    void die() override;

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onInitiate(u32 lowestPv, PROCESS from);
    void onSubscription(bool subscribes, PROCESS from);
    void onSend(Signal* sig);
    void tell(std::vector<std::byte> signal);

    PROCESS client_ = 0;
    bool subscribed_ = false;
    u32 port_ = 0;
    u32 connections_ = 0, framesSent_ = 0, framesDelivered_ = 0;
    std::array<std::function<void(std::span<const u8>)>, ETHERNET_PORTS> farEnds_{};
};

}  // namespace sim
