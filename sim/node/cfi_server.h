// cfi_server.h - The node's frame service, "CfiServer": a client attaches to the device, joins multicast
// groups, sends and receives frames with their stamps as metadata.
#pragma once
#include "sim/board/board.h"
#include "sim/net/network.h"
#include "sim/node/server.h"

#include <set>

namespace sim {

class CfiServer : public Server {
public:
    explicit CfiServer(Node& node);

    // The script, beside setAnswer and delay_ms.
    u32 selectedPv = 1;
    u32 attachResult = 0, joinResult = 0, leaveResult = 0;   // 0 good
    bool confirmsGroups = true;        // or leaves joins and leaves unanswered, until confirmGroups
    void confirmGroups();

    void start() override;
    void die() override;

    /// A frame is there: handed up when the client has joined its group.
    void deliver(const std::vector<u8>& frame, const PacketTime& stamp);
    bool attached() const { return attached_; }
    const std::set<MacAddress>& groups() const { return groups_; }

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    void onMulticast(Signal* sig, PROCESS from);
    void onSend(Signal* sig);

    PROCESS client_ = 0;
    bool attached_ = false;
    std::set<MacAddress> groups_;
    struct Owed { SIGSELECT sigNo; u32 clientData; };
    std::vector<Owed> owed_;           // confirmations held back
};

}  // namespace sim
