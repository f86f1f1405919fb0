// ipsocki_server.h - The node's socket service, "TarsoIpsockiServer": UDP sockets of the unit's host, a
// receive stamp beside each datagram of a socket that asked for it.
#pragma once
#include "node/ipsocki_sig.h"
#include "sim/board/board.h"
#include "sim/net/network.h"
#include "sim/node/server.h"

#include <array>
#include <deque>

namespace sim {

class IpsockiServer : public Server {
public:
    explicit IpsockiServer(Node& node);

    // The script, beside setAnswer and delay_ms.
    u32 selectedPv = 5;
    bool hostAvailable = true;
    i32 socketError = 0, bindError = 0;              // of the next calls; 0: they succeed
    u32 failingOption = 0;                           // IpsockiOption that is refused; 0: none
    bool stampsReceived = true;

    void start() override;
    void die() override;

    // ---- the calls of node::Platform ------------------------------------------------------------
    int state() const;
    int socket(u32 family, u32 type);
    int option(int socket, u32 option, u32 value, u32 low);
    int bind(int socket, const u8* octets, u32 port);
    int send(int socket, const u8* bytes, std::size_t count, const u8* octets, u32 port);
    int close(int socket);
    int error() const { return error_; }

    /// A datagram is there: handed up when a socket is bound to its port and credit is left.
    void deliver(const NetPacket& packet, const PacketTime& stamp);

    std::size_t sockets() const { return sockets_.size(); }
    u32 dropped() const { return dropped_; }         // beyond what may wait
    u32 credit() const { return credit_; }
    int tos(int socket) const;

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    struct Socket {
        u32 family = 0;
        NetAddress own;
        u32 port = 0;                                // 0 until bound
        bool stamps = false;
        int tos = 0;
        std::optional<std::array<u8, 8>> metadata;   // of the next message
    };
    int fail(i32 why);
    void handUp();

    PROCESS client_ = 0;
    u32 credit_ = 0, maxUndelivered_ = 0;
    std::map<int, Socket> sockets_;
    int nextSocket_ = 0;
    int error_ = 0;
    std::deque<std::vector<std::byte>> waiting_;
    u32 dropped_ = 0;
};

}  // namespace sim
