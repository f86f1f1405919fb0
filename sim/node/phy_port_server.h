// phy_port_server.h - The node's PHY port info service: which physical lines exist and how they
// fare.
#pragma once
#include "sim/node/node_config.h"
#include "sim/node/server.h"

#include <vector>

namespace sim {

class PhyPortServer : public Server {
public:
    PhyPortServer(Node& node, const std::vector<PhyPort>& ports);

    // ---- script: the connected client is told at once, a later one when it connects -------------
    void add(const PhyPort& port);                 // announces it with its sync state
    /// New content of the line's entry, announced as a change. Nothing when there is no such line.
    void change(u32 line, const PhyPort& port);
    /// The line's entry from now on, known or new; another line that had its reference has none.
    void put(const PhyPort& port);
    void remove(u32 line);
    void setSyncState(u32 line, u32 syncState);    // any value goes out; 0 to 2 are meant
    void disconnect();                             // the client's connection end point goes away
    void connect();                                // and comes back, with all ports

    bool connected() const { return client_ != 0; }
    const std::vector<PhyPort>& ports() const { return ports_; }
    void die() override;

    u32 cepId = 1;
    u32 highestPv = 2;

protected:
    void onSignal(Signal* sig, PROCESS from) override;

private:
    template <typename T>
    void tell(const T& layout);
    void announce(const PhyPort& port, u32 stateControl);
    void announceAll();

    std::vector<PhyPort> ports_;
    PROCESS client_ = 0;
};

}  // namespace sim
